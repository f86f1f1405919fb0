#include "app/end_signals.h"

#include <atomic>
#include <csignal>
#include <ctime>
#include <pthread.h>

namespace app {
namespace {

std::atomic<int> came = 0;

sigset_t ending()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    struct sigaction hangUp;
    sigaction(SIGHUP, nullptr, &hangUp);
    if (hangUp.sa_handler != SIG_IGN) sigaddset(&set, SIGHUP);   // started with nohup, it goes on
    return set;
}

void watch(const std::stop_token& stop)
{
    const sigset_t set = ending();
    constexpr timespec LOOK{0, 100'000'000};
    while (!stop.stop_requested()) {
        const int number = sigtimedwait(&set, nullptr, &LOOK);
        if (number <= 0) continue;
        came = number;
        pthread_sigmask(SIG_UNBLOCK, &set, nullptr);   // the next one has its usual effect
        return;
    }
}

}  // namespace

EndSignals::EndSignals()
{
    const sigset_t set = ending();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    watcher_ = std::jthread(watch);
}

EndSignals::~EndSignals()
{
    watcher_.request_stop();
    watcher_.join();
    const sigset_t set = ending();
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

int endSignal() { return came; }

}  // namespace app
