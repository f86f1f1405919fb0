// progress.h - The progress bar on the terminal, and lines that pass above it.
#pragma once
#include "ose/types.h"

#include <chrono>
#include <string>

namespace app {

class Progress {
public:
    /// `shown` false keeps silent; the bar needs a terminal, lines don't.
    Progress(bool shown, double total_s);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void line(double t, const std::string& text);
    /// Redraws at most ten times a second of wall-clock time.
    void at(double t, const std::string& status);
    void end();

private:
    void clear();

    bool shown_;
    bool bar_;
    double total_s_;
    bool drawn_ = false;
    std::chrono::steady_clock::time_point began_;
    std::chrono::steady_clock::time_point last_;
};

}  // namespace app
