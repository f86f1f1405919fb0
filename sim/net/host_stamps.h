// host_stamps.h - Whose stamps an interface's packets have: the card's own, whose clock is then followed
// beside the host's, or the kernel's.
// Units   ns of the host's CLOCK_REALTIME and of the card's clock.
#pragma once
#include "ose/types.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace sim {

/// A network card's clock (PHC) against the host's: read once a second, a straight line between and beyond.
class CardClock {
public:
    struct Reading { i64 card_ns, realtime_ns; };
    explicit CardClock(std::function<std::optional<Reading>()> read) : read_(std::move(read)) { follow(); }

    /// To be called now and then; a reading is taken once a second.
    void follow();
    /// Nothing before the first reading.
    std::optional<i64> realtimeOf(i64 card_ns) const;
    i64 difference_ns() const { return last_ ? last_->card_ns - last_->realtime_ns : 0; }
    double rate_ppb() const { return rate_ * 1e9; }  // positive: the card's runs fast
    u32 steps() const { return steps_; }             // of one against the other

private:
    std::function<std::optional<Reading>()> read_;
    std::optional<Reading> last_;
    double rate_ = 0;
    u32 steps_ = 0;
};

struct InterfaceStamps {
    std::unique_ptr<CardClock> card;                 // nullptr: the kernel's stamps
    std::string text;                                // one line about it
};
/// Turns the card's stamps on where there are any.
InterfaceStamps openStamps(const std::string& interface);

}  // namespace sim
