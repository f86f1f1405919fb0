// status_feed.h - Looks at the units of a run and gives what it sees to the status socket and the metrics:
// after each event, and once a second of wall-clock time.
#pragma once
#include "app/recorder.h"
#include "app/status_server.h"
#include "app/unit_status_text.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace app {

struct FeedOptions {
    std::string socket;      // "" for none
    std::string metrics;     // [HOST:]PORT, "" for none
};

class StatusFeed {
public:
    /// Throws StatusError for what can't be opened.
    StatusFeed(std::string scenario, const FeedOptions& options);

    void add(Recorder& recorder) { recorders_.push_back(&recorder); }
    /// Asked for what the machine gives a run that keeps its time.
    void onHost(std::function<StatusJson()> host) { host_ = std::move(host); }
    /// Something has happened: the next look publishes.
    void changed() { changed_ = true; }
    /// Between two instants of the world.
    void look(double now_s, bool paused);
    /// The last line.
    void end(double now_s);
    /// Where the metrics are, "" without any.
    std::string metricsAddress() const { return metrics_ ? metrics_->address() : ""; }

private:
    using Clock = std::chrono::steady_clock;
    void publish(double now_s, bool paused, bool ended);
    double speed(double now_s);

    std::string scenario_;
    std::unique_ptr<StatusServer> socket_;
    std::unique_ptr<MetricsServer> metrics_;
    std::vector<Recorder*> recorders_;
    std::function<StatusJson()> host_;
    bool changed_ = true, paused_ = false;
    Clock::time_point published_{}, measured_ = Clock::now();
    double measuredAt_s_ = 0, speed_ = 0;
};

/// Prometheus text format 0.0.4. `run` is a line's JSON.
std::string metricsPage(const StatusJson& run);

}  // namespace app
