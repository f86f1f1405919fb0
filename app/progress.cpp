#include "app/progress.h"

#include "app/summary.h"

#include <algorithm>
#include <cstdio>
#include <unistd.h>

namespace app {

using Clock = std::chrono::steady_clock;

Progress::Progress(bool shown, double total_s)
    : shown_(shown), bar_(shown && isatty(STDOUT_FILENO) != 0), total_s_(total_s), began_(Clock::now()),
      last_(began_)
{
}

Progress::~Progress() { end(); }

void Progress::clear()
{
    if (drawn_) std::printf("\r\033[K");
    drawn_ = false;
}

void Progress::line(double t, const std::string& text)
{
    if (!shown_) return;
    clear();
    std::printf("%10s  %s\n", clockText(t).c_str(), text.c_str());
    std::fflush(stdout);
}

void Progress::at(double t, const std::string& status)
{
    if (!bar_) return;
    const Clock::time_point now = Clock::now();
    if (now - last_ < std::chrono::milliseconds(100)) return;
    last_ = now;
    constexpr int WIDTH = 24;
    const int full = std::clamp(static_cast<int>(WIDTH * t / total_s_), 0, WIDTH);
    const std::string bar = std::string(static_cast<std::size_t>(full), '#')
                            + std::string(static_cast<std::size_t>(WIDTH - full), '.');
    const double wall = std::chrono::duration<double>(now - began_).count();
    std::printf("\r\033[K[%s] %s  %s  %.0fx", bar.c_str(), clockText(t).c_str(), status.c_str(),
                t / std::max(wall, 1e-3));
    std::fflush(stdout);
    drawn_ = true;
}

void Progress::end()
{
    clear();
    if (shown_) std::fflush(stdout);
}

}  // namespace app
