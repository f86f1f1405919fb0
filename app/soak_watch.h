// soak_watch.h - What must hold of a unit whatever happens, judged from one moment to the next.
// The judge knows the unit from outside: what it told, what its inputs were, what was done to it.
#pragma once
#include "ose/types.h"

#include <string>
#include <vector>

namespace app {

struct Violation {
    double t = 0;
    std::string unit;
    std::string what;
};

/// A unit a second, as the watch sees it.
struct Moment {
    double t = 0;
    bool runs = false;                 // its program does
    u32 starts = 0;                    // of the program so far
    bool connected = false;            // the main processor is, and was a moment ago
    bool serves = false;               // its start waits for nobody any more: it takes orders
    u8  clock = 7;                     // radio clock state by the unit itself
    u8  told = 7;                      // as the main processor was told last
    u8  selected = 1;                  // reference type by the unit; 1 is none
    u8  wanted = 1;                    // as the main processor selected last
    double timeError_ns = 0;           // counter against true time
    double freqError_ppb = 0;
    double gpsError_ns = 0;            // counter against GPS time; NaN without a receiver
    double coarse_s = 0, fine_s = 0;   // time of the last sample by the regulator; -1, 0: none
    bool degraded = false;             // the unit tells that it can't use what the reference gives
    u32 poolUsed = 0;                  // bytes of signals in use
    bool selectedDead = false;         // the selected reference gives nothing since a minute
    bool selectedUsable = true;        // by the word that the unit told
    std::vector<u8> due;               // clock states that may be told, by the model; empty: any
    std::string words;                 // that the model goes by
    u8  before = 1;                    // reference type selected before
    bool loopHoldsTime = false;        // a loop has another unit's time without its link
    bool loopPullsIn = false;          // it begins to follow, whatever the clock's state is until it does
    bool isRefused = false;            // the present main processor takes nothing and is told nothing
    bool isWatched = true;             // the main processor has its link supervised
    bool leaderGone = false;           // the link that it follows carries nothing
    bool hearsLeader = true;           // its loop took a sample a moment ago
    double followError_ns = 0;         // counter against the leader's; NaN without one
    double leaderFreqError_ppb = 0;    // of the unit that it follows
    u32 refState = 0, refStateTold = 0;   // usable references by the unit, and as told last
    std::string unusable;              // configured references of its role that it doesn't tell usable
    std::string missing;               // processes that it had when everything was well
    std::string waits;                 // what waits without an end
    std::string untold;                // a supervised receiver of which it has said neither good nor bad
    double quiet_s = 0;                // since anything was done to any unit or between them
};

/// What was done to a unit and lets it do what is forbidden otherwise.
struct Licence {
    double jump_s = -1e9;              // the last order to step the counters
    double boardFault_s = -1e9;        // the last moment of a fault that halts, or its end
    double reference_s = -1e9;         // the last step, fault or change at a reference
    double narrowed_s = -1e9;          // the wider limit of steering for a lasting offset ended
    bool halting = false;              // such a fault came since the last start
    bool refused = false;              // the peer suspends or rejects it, or did a moment ago
    // its oven is out of its limits, or was a while ago, its hardware another's,
    bool idle = false;
                                       // or its first two minutes aren't over
    bool unlocked = false;             // a synthesiser has no lock, or had none a minute ago
    bool hasTime = false;              // the unit runs in time mode
    bool canKnowTime = false;          // one of its references tells it
    bool follows = false;              // another unit, whose steps it makes
    bool slave = false;                // by its present role
};

class SoakWatch {
public:
    explicit SoakWatch(std::string unit) : unit_(std::move(unit)) {}

    /// Judges this moment; what it finds is added to `found`.
    void look(const Moment& m, const Licence& may, std::vector<Violation>& found);
    /// Judges a clock state that the main processor was told, by the one told before.
    void told(double t, u8 clock, std::vector<Violation>& found);
    /// What was told before doesn't bind what is told next: the program or the connection is another.
    void forgetTold();

private:
    void lookAtSteps(const Moment& m, const Licence& may);
    void lookAtClock(const Moment& m, const Licence& may);
    void lookAtErrors(const Moment& m, const Licence& may);
    void lookAtFrequency(const Moment& m, const Licence& may);
    void lookAtReceiver(const Moment& m, const Licence& may);
    void lookAtSamples(const Moment& m, const Licence& may);
    void lookAtMemory(const Moment& m);
    void lookAtModel(const Moment& m, const Licence& may);
    void lookAtHoldovers(const Moment& m);
    void lookBack(const Moment& m, const Licence& may);
    void fail(const Moment& m, const std::string& what);

    std::string unit_;
    std::vector<Violation>* found_ = nullptr;
    Moment before_;
    bool any_ = false;
    u8 lastTold_ = 7;                  // 7: nothing in this connection
    double started_s_ = 0;             // the present run of the program
    double stateSince_s_ = 0, selectedSince_s_ = 0, sampledAt_s_ = 0;
    double toldWrongSince_s_ = -1, selectedWrongSince_s_ = -1, modelWrongSince_s_ = -1;
    double loopHoldsSince_s_ = -1, framesSince_s_ = -1, untoldSince_s_ = -1;
    double leaderOff_s_ = -1e9;        // a leader was last off by more than a locked unit may be
    u32 poolOfFirstHour_ = 0;
};

/// True when a clock that tells `from` may tell `to` next, without a restart in between.
bool mayFollow(u8 from, u8 to);

}  // namespace app
