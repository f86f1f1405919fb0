#include "app/run_control.h"

#include "app/end_signals.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <thread>

namespace app {

RunControl::RunControl(ose::World& world, ose::Time end, double speed, bool stays,
                       std::function<void(ose::Time)> advance)
    : world_(world), end_(end), speed_(speed), stays_(stays), advance_(std::move(advance))
{
    world_.setPace(speed);
}

/// A paced run looks up five times a second, one as fast as it goes every ten virtual seconds.
ose::Time RunControl::slice() const
{
    constexpr double LONGEST_s = 10.0, WALL_s = 0.2;
    const double s = speed_ > 0 && !target_ ? std::min(LONGEST_s, WALL_s * speed_) : LONGEST_s;
    return std::max<ose::Time>(ose::MS, std::llround(s * 1e12));
}

void RunControl::run(const std::function<void()>& look)
{
    while (!quit_ && endSignal() == 0) {
        if (world_.now() >= end_ && !target_) {
            if (!stays_) break;
            if (!endTold_ && onEnd_) onEnd_();
            endTold_ = true;
            paused_ = true;
        }
        if (paused_) {
            standStill();
        } else {
            ose::Time until = world_.now() + slice();
            if (target_) until = std::min(until, *target_);
            else         until = std::min(until, end_);
            advance_(until);
        }
        if (target_ && world_.now() >= *target_) pause();
        look();
    }
    arrive();
}

/// Work that is posted runs all the same.
void RunControl::standStill()
{
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    world_.runUntil(world_.now());
}

void RunControl::arrive()
{
    if (target_) {
        target_.reset();
        world_.setPace(speed_);
    }
    if (const auto reached = std::exchange(reached_, nullptr)) reached();
}

void RunControl::setSpeed(double speed)
{
    speed_ = speed;
    if (!target_) world_.setPace(speed);
}

void RunControl::pause()
{
    paused_ = true;
    arrive();
    world_.stop();
}

void RunControl::go()
{
    paused_ = false;
    endTold_ = false;
    world_.setPace(speed_);
}

void RunControl::runTo(ose::Time when, std::function<void()> reached)
{
    arrive();
    target_ = when;
    reached_ = std::move(reached);
    paused_ = false;
    world_.setPace(0);
    world_.stop();
}

void RunControl::quit()
{
    quit_ = true;
    world_.stop();
}

}  // namespace app
