// host_stamps.h - Whose stamps an interface's packets have: the card's own, whose clock is then followed
// beside the host's, or the kernel's; and who puts the time into a Sync of one step.
// Units   ns of the host's CLOCK_REALTIME and of the card's clock.
#pragma once
#include "ose/types.h"
#include "sim/net/host_device.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace sim {

/// A network card's clock (PHC) against the host's: read once a second, a straight line between and beyond.
class CardClock {
public:
    struct Reading { i64 card_ns, realtime_ns; };
    explicit CardClock(std::function<std::optional<Reading>()> read, bool inserts = false)
        : read_(std::move(read)), inserts_(inserts)
    {
        follow();
    }

    /// To be called now and then; a reading is taken once a second.
    void follow();
    /// The host's time of day was stepped.
    void onHostStep();
    /// Nothing before the first reading.
    std::optional<i64> realtimeOf(i64 card_ns) const;
    std::optional<i64> cardTimeOf(i64 realtime_ns) const;
    /// Whether the card puts its time into each Sync of one step as it leaves.
    bool inserts() const { return inserts_; }
    i64 difference_ns() const { return last_ ? last_->card_ns - last_->realtime_ns : 0; }
    double rate_ppb() const { return rate_ * 1e9; }  // positive: the card's runs fast
    u32 steps() const { return steps_; }             // of one against the other

private:
    std::function<std::optional<Reading>()> read_;
    bool inserts_;
    std::optional<Reading> last_;
    double rate_ = 0;
    u32 steps_ = 0;
};

struct InterfaceStamps {
    std::unique_ptr<CardClock> card;                 // nullptr: the kernel's stamps
    std::string text;                                // one line about it
    std::string oneStep;                             // and about Sync of one step
};
/// Turns the card's stamps on where there are any, and its part in Sync of one step where that is wanted.
InterfaceStamps openStamps(const std::string& interface, bool oneStep,
                           const DeviceCalls& calls = DeviceCalls::kernel());

}  // namespace sim
