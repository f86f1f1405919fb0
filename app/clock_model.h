// clock_model.h - What a unit's clock state has to be, by what happens to it: a second answer to the question
// that the interface to the main processor answers, made of nothing of it.
//
// It is fed by what somebody beside the unit sees: the orders that the main processor sends, what the unit's
// recorder writes down, the board's faults, the marker file at a start. It looks into no module of the unit.
// What can't be had from there is taken as it is:
// - the grades of the estimate: the regulator's and the loops' states are those that the recorder gets;
// - how many samples a loop had while it pulls in, so either of two states may be told then, or any;
// - who has the hardware on a link that measures delays: while it isn't the unit, the watch doesn't ask;
// - an operator's holdover threshold, which ends the first day's relaxation: long runs set none.
#pragma once
#include "ose/types.h"

#include <span>
#include <string>
#include <vector>

namespace app {

class ClockModel {
public:
    /// `awaitsRadio`: a radio link was followed when the program ended.
    void programStarts(bool awaitsRadio);
    /// A signal of the main processor to the unit.
    void ordered(std::span<const std::byte> signal);
    /// A line of the unit's recorder.
    void recorded(double t, const std::string& text);
    void synthesiserUnlocked(double t, bool isUnlocked);

    /// Radio clock states that may be told, the first one by the present words; empty when any may.
    std::vector<u8> due(double t) const;

    bool isMaster() const { return isMaster_; }
    u8   before() const { return before_; }        // reference type selected before the present one
    /// A loop goes on with the time of another unit that it doesn't hear.
    bool loopHoldsTime() const;
    bool loopPullsIn() const { return loop_ == "PLL_Unlocked"; }
    /// For a reader: "TRUETIME, PLL_Uninitialized, reference 6 after 1".
    std::string words() const;

private:
    void selected(u8 reference);
    bool hasLoop() const;
    std::vector<u8> ofRegulator(double t) const;
    std::vector<u8> ofMaster(double t) const;
    std::vector<u8> ofSlave() const;
    u8 shown(u8 clock) const;

    bool isMaster_ = true, hasTime_ = true;
    u32 confirms_ = 0;                 // of main processors to this run of the program
    u8 selected_ = 1, before_ = 1, oldest_ = 1;    // reference types; 1 is none
    std::string regulator_, loop_, slaveLoop_;     // the last state of each, by its name
    bool fellFromLock_ = false;        // a loop that pulls in
    bool isFirst_ = false;             // the present main processor is this run's first
    bool awaitsRadio_ = false, scansRadio_ = false;
    double calibrated_s_ = -1e9;       // a start from the oven's calibration
    bool tracksNothing_ = false, isUnlocked_ = false;
    double relocked_s_ = -1e9;
};

}  // namespace app
