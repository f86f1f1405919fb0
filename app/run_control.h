// run_control.h - How a run goes on: paced or not, paused, up to a moment, to its end. Owned by the world's
// thread; a console changes it by work that it posts to the world.
#pragma once
#include "ose/world.h"

#include <functional>
#include <optional>

namespace app {

class RunControl {
public:
    /// `advance` takes the world up to a time, `end` is the run's. A run that stays waits there for `quit`.
    RunControl(ose::World& world, ose::Time end, double speed, bool stays,
               std::function<void(ose::Time)> advance);

    /// Until the end, `quit` or a signal that ends the process. `look` is called several times a second.
    void run(const std::function<void()>& look);

    void setSpeed(double speed);
    double speed() const { return speed_; }
    void pause();
    void go();
    /// As fast as it goes up to then, and pauses; `reached` is told, also when something else ends it.
    void runTo(ose::Time when, std::function<void()> reached);
    void quit();
    bool paused() const { return paused_; }
    /// The end is reached and the operator hasn't asked for more.
    bool atEnd() const { return world_.now() >= end_; }
    void onEnd(std::function<void()> observer) { onEnd_ = std::move(observer); }

private:
    void standStill();
    void arrive();
    ose::Time slice() const;

    ose::World& world_;
    ose::Time end_;
    double speed_;
    bool stays_;
    std::function<void(ose::Time)> advance_;
    bool paused_ = false, quit_ = false, endTold_ = false;
    std::optional<ose::Time> target_;
    std::function<void()> reached_, onEnd_;
};

}  // namespace app
