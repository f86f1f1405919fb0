#include "ose/loop_watch.h"

#include "ose/kernel.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace ose {

namespace {

/// The look before this one, a limit ago.
constinit thread_local u64 switchesBefore = 0;

void onLook(int, siginfo_t*, void*)
{
    const u64 switches = here.switches;
    const bool isStuck = here.current != nullptr && switches == switchesBefore;
    switchesBefore = switches;
    if (!isStuck) return;
    char line[256];
    const int length = std::snprintf(line, sizeof line,
                                     "kernel: process %.100s computes and never gives the processor back\n",
                                     here.current->name.c_str());
    [[maybe_unused]] const auto written = ::write(STDERR_FILENO, line, static_cast<std::size_t>(length));
    std::abort();
}

class CpuTimer {
public:
    explicit CpuTimer(long period_ms)
    {
        struct sigaction own{};
        own.sa_sigaction = onLook;
        own.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_RESTART;
        sigevent event{};
        event.sigev_notify = SIGEV_THREAD_ID;
        event.sigev_signo = SIGRTMIN;
        event._sigev_un._tid = static_cast<pid_t>(::syscall(SYS_gettid));
        if (::sigaction(SIGRTMIN, &own, nullptr) != 0) return;
        if (::timer_create(CLOCK_THREAD_CPUTIME_ID, &event, &timer_) != 0) return;
        runs_ = true;
        const timespec look{period_ms / 1000, period_ms % 1000 * 1'000'000};
        const itimerspec period{look, look};
        ::timer_settime(timer_, 0, &period, nullptr);
    }
    ~CpuTimer()
    {
        if (runs_) ::timer_delete(timer_);
    }
    CpuTimer(const CpuTimer&) = delete;
    CpuTimer& operator=(const CpuTimer&) = delete;

private:
    timer_t timer_{};
    bool runs_ = false;
};

}  // namespace

void watchForLoops(long limit_ms)
{
    static thread_local const CpuTimer timer(limit_ms);
    static_cast<void>(timer);
}

}  // namespace ose
