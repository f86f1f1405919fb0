#include "app/soak_watch.h"

#include "sig/ref_types.h"
#include "sig/tuiif_sig.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace app {
namespace {

constexpr double STEP_ns = 5000.0;            // more in a second than any frequency error makes
constexpr double JUMP_DONE_s = 12.0;          // after the order: its warning time and some
constexpr double START_s = 10.0;              // in which a start may do anything with counter and clock
constexpr double TOLD_s = 5.0;                // a change of state reaches the main processor within
constexpr double COUNTER_TURN_s = 1024.0;
constexpr u32 POOL_GROWTH = 16384;            // bytes above the first hour's
constexpr double HOUR_s = 3600.0;
constexpr double BACK_s = 3600.0;             // after the last disturbance everything is back

constexpr u8 NO_REFERENCE = 1;
constexpr u8 UNKNOWN = 7;                     // clock state

bool isLocked(u8 clock)
{
    return clock == KVD_TUIIF_FREQUENCY_LOCKED || clock == KVD_TUIIF_TIME_OFFSET_LOCKED
           || clock == KVD_TUIIF_RNT_TIME_LOCKED;
}
bool isHoldover(u8 clock)
{
    return clock == KVD_TUIIF_FREQUENCY_HOLDOVER || clock == KVD_TUIIF_TIME_OFFSET_HOLDOVER
           || clock == KVD_TUIIF_RNT_TIME_HOLDOVER;
}
bool hasTime(u8 clock)
{
    return clock >= KVD_TUIIF_TIME_OFFSET_LOCKED && clock <= KVD_TUIIF_RNT_TIME_HOLDOVER;
}

constexpr u32 bit(u8 state) { return 1u << state; }

/// Clock states that may follow each one in a run of the program, in one role. A loss of tracking may come
/// and go in any state; the halted state ends with a restart.
constexpr u32 DEGRADES = bit(KVD_TUIIF_FREQUENCY_DRIFTING) | bit(KVD_TUIIF_LOSS_OF_TRACKING)
                         | bit(KVD_TUIIF_FAILURE);
constexpr u32 FREQUENCY = bit(KVD_TUIIF_FREQUENCY_LOCKED) | bit(KVD_TUIIF_FREQUENCY_HOLDOVER);
constexpr u32 TIME_OFFSET = bit(KVD_TUIIF_TIME_OFFSET_LOCKED) | bit(KVD_TUIIF_TIME_OFFSET_HOLDOVER);
constexpr u32 RNT = bit(KVD_TUIIF_RNT_TIME_LOCKED) | bit(KVD_TUIIF_RNT_TIME_HOLDOVER);
constexpr u8  SOCPRI_STARTING = 17;
constexpr u32 LOOP = bit(KVD_TUIIF_PREJUMP_START) | bit(KVD_TUIIF_PREJUMP_HIST) | bit(SOCPRI_STARTING);
constexpr u32 SLAVE = bit(KVD_TUIIF_SLAVE_FREE_RUNNING) | bit(KVD_TUIIF_SLAVE_FREQUENCY_LOCKED)
                      | bit(KVD_TUIIF_SLAVE_FRAME_LOCKED);

u32 followers(u8 from)
{
    switch (from) {
    case KVD_TUIIF_WARMUP:             return DEGRADES | FREQUENCY | LOOP | SLAVE;
    case KVD_TUIIF_FREQUENCY_DRIFTING: return DEGRADES | FREQUENCY | LOOP;
    case KVD_TUIIF_LOSS_OF_TRACKING:
        return DEGRADES | FREQUENCY | TIME_OFFSET | RNT | LOOP | SLAVE | bit(KVD_TUIIF_WARMUP);
    case KVD_TUIIF_FAILURE:            return 0;
    default:
        if ((SLAVE & bit(from)) != 0) return SLAVE | bit(KVD_TUIIF_LOSS_OF_TRACKING) | bit(KVD_TUIIF_FAILURE);
        return DEGRADES | FREQUENCY | TIME_OFFSET | RNT | LOOP;
    }
}

}  // namespace

bool mayFollow(u8 from, u8 to) { return from == to || (followers(from) & bit(to)) != 0; }

void SoakWatch::fail(const Moment& m, const std::string& what) { found_->push_back({m.t, unit_, what}); }

void SoakWatch::look(const Moment& m, const Licence& may, std::vector<Violation>& found)
{
    found_ = &found;
    if (may.idle) forgetTold();
    if (!any_ || m.starts != before_.starts || m.runs != before_.runs) {
        started_s_ = m.t;
        stateSince_s_ = sampledAt_s_ = m.t;
        toldWrongSince_s_ = selectedWrongSince_s_ = modelWrongSince_s_ = -1;
        loopHoldsSince_s_ = framesSince_s_ = untoldSince_s_ = -1;
        poolOfFirstHour_ = 0;
    } else if (m.runs) {
        lookAtSteps(m, may);
        lookAtClock(m, may);
        lookAtErrors(m, may);
        lookAtFrequency(m, may);
        lookAtReceiver(m, may);
        lookAtSamples(m, may);
        lookAtMemory(m);
        lookAtModel(m, may);
        lookAtHoldovers(m);
        if (!m.waits.empty()) fail(m, m.waits);
    }
    if (any_ && m.quiet_s >= BACK_s && before_.quiet_s < BACK_s) lookBack(m, may);
    before_ = m;
    any_ = true;
}

void SoakWatch::told(double t, u8 clock, std::vector<Violation>& found)
{
    if (t - started_s_ >= START_s && lastTold_ != UNKNOWN && !mayFollow(lastTold_, clock))
        found.push_back({t, unit_, "clock state " + std::to_string(lastTold_) + " was followed by " +
                                       std::to_string(clock)});
    lastTold_ = clock;
}

void SoakWatch::forgetTold() { lastTold_ = UNKNOWN; }

void SoakWatch::lookAtSteps(const Moment& m, const Licence& may)
{
    const double step = m.timeError_ns - before_.timeError_ns;
    // A follower takes its leader's count whenever it finds it.
    const bool licensed = m.t - may.jump_s < JUMP_DONE_s || m.t - started_s_ < START_s
                          || (may.follows && m.quiet_s < BACK_s);
    if (std::fabs(step) > STEP_ns && !licensed)
        fail(m, "the counter stepped by " + std::to_string(step) + " ns without an order");
    if (m.coarse_s != -1.0 && (m.coarse_s < 0 || std::fmod(m.coarse_s, COUNTER_TURN_s) != 0.0))
        fail(m, "coarse time " + std::to_string(m.coarse_s) + " s is no whole number of turns");
    if (m.fine_s < 0 || m.fine_s >= COUNTER_TURN_s)
        fail(m, "fine time " + std::to_string(m.fine_s) + " s is out of range");
}

void SoakWatch::lookAtClock(const Moment& m, const Licence& may)
{
    if (m.clock != before_.clock) stateSince_s_ = m.t;
    if (m.selected != before_.selected) selectedSince_s_ = m.t;
    if (m.clock == KVD_TUIIF_FAILURE && !may.halting) fail(m, "halted without a fault of the board");
    if (m.clock == KVD_TUIIF_LOSS_OF_TRACKING && !may.unlocked)
        fail(m, "loss of tracking with both synthesisers locked");
    if (hasTime(m.clock) && !may.hasTime) fail(m, "a time state in frequency mode");
    if (m.selected == NO_REFERENCE && isLocked(m.clock)
        && m.t - std::max(stateSince_s_, selectedSince_s_) > TOLD_s)
        fail(m, "locked to no reference");

    const bool wrong = m.connected && m.clock != UNKNOWN && m.told != m.clock;
    if (!wrong) toldWrongSince_s_ = -1;
    else if (toldWrongSince_s_ < 0) toldWrongSince_s_ = m.t;
    else if (m.t - toldWrongSince_s_ > TOLD_s)
        fail(m, "told clock state " + std::to_string(m.told) + ", is " + std::to_string(m.clock));

    const bool isHalted = m.clock == KVD_TUIIF_FAILURE;           // it tells that, and carries nothing out
    if (!m.connected || !m.serves || isHalted || m.selected == m.wanted) selectedWrongSince_s_ = -1;
    else if (selectedWrongSince_s_ < 0) selectedWrongSince_s_ = m.t;
    else if (m.t - selectedWrongSince_s_ > TOLD_s)
        fail(m, "reference type " + std::to_string(m.selected) + " selected, wanted "
                    + std::to_string(m.wanted));
    if (m.connected && m.selectedDead && m.selectedUsable && m.selected != NO_REFERENCE)
        fail(m, "a reference without a signal since a minute is told usable");
}

void SoakWatch::lookAtErrors(const Moment& m, const Licence& may)
{
    // What the references were made to do counts for a while: the filter follows what it is shown.
    constexpr double SETTLED_s = 3600.0;
    constexpr double FREQUENCY_MAX_ppb = 20.0, TIME_MAX_ns = 2000.0;
    constexpr double JUMP_SETTLED_s = 60.0;      // what the counter's resolution left is steered out
    if (std::fabs(m.leaderFreqError_ppb) > FREQUENCY_MAX_ppb) leaderOff_s_ = m.t;
    if (m.t - may.jump_s < JUMP_SETTLED_s || m.t - may.reference_s < SETTLED_s
        || m.t - stateSince_s_ < SETTLED_s || m.t - may.boardFault_s < SETTLED_s || m.degraded)
        return;
    // A follower goes as its leader does, which begins anew with a divider of its factory, say.
    constexpr double PULLED_IN_s = 60.0;
    if (isLocked(m.clock) && std::fabs(m.freqError_ppb) > FREQUENCY_MAX_ppb
        && m.t - leaderOff_s_ > PULLED_IN_s)
        fail(m, "locked, and " + std::to_string(m.freqError_ppb) + " ppb off");
    if (m.clock == KVD_TUIIF_RNT_TIME_LOCKED && std::fabs(m.gpsError_ns) > TIME_MAX_ns)
        fail(m, "locked in time, and " + std::to_string(m.gpsError_ns) + " ns off");
    // One that hears nothing of its leader holds its own frames for a minute, whatever that does meanwhile.
    if (m.clock == KVD_TUIIF_SLAVE_FRAME_LOCKED && m.hearsLeader && std::fabs(m.followError_ns) > TIME_MAX_ns)
        fail(m, "locked to its leader's frames, and " + std::to_string(m.followError_ns) + " ns off");
}

/// What steers without a reference goes on from where the loop or the filter had it.
void SoakWatch::lookAtFrequency(const Moment& m, const Licence& may)
{
    constexpr double STEP_ppb = 5.0, RETURNED_s = 30.0;
    const bool isHeld = m.selected == NO_REFERENCE && before_.selected == NO_REFERENCE
                        && m.clock == before_.clock && isHoldover(m.clock) && !m.loopPullsIn
                        && !before_.loopPullsIn;
    if (!isHeld || may.idle || may.slave || m.t - started_s_ < RETURNED_s) return;
    // A lasting offset is steered out by up to 24 ppb, and by 15 ppb from the filter's next step on when its
    // reference goes.
    constexpr double NARROWED_ppb = 9.0, NARROWED_s = 4.0;
    const double allowed = STEP_ppb + (m.t - may.narrowed_s < NARROWED_s ? NARROWED_ppb : 0.0);
    const double step = m.freqError_ppb - before_.freqError_ppb;
    if (std::fabs(step) > allowed)
        fail(m, "the frequency stepped by " + std::to_string(step) + " ppb in holdover");
}

/// The alarm of one that starts is held back for half a minute, and its kind isn't known at once. A unit that
/// waits for a service of its node, whose word decides on its hardware, has no order to supervise it yet.
void SoakWatch::lookAtReceiver(const Moment& m, const Licence& may)
{
    constexpr double KNOWN_s = 300.0;
    if (m.untold.empty() || !m.connected || !m.serves || may.refused || may.halting) untoldSince_s_ = -1;
    else if (untoldSince_s_ < 0)                                        untoldSince_s_ = m.t;
    else if (m.t - untoldSince_s_ > KNOWN_s)
        fail(m, "nothing is told of the receiver since " + std::to_string(untoldSince_s_) + " s:" + m.untold);
}

/// The temperature alone gives one each 2.1 s.
void SoakWatch::lookAtSamples(const Moment& m, const Licence& may)
{
    constexpr double LATEST_s = 30.0;
    constexpr double NONE_YET = -1.0;
    const bool isNew = m.coarse_s != before_.coarse_s || m.fine_s != before_.fine_s;
    if (isNew || m.coarse_s == NONE_YET || may.refused || may.halting || may.idle) sampledAt_s_ = m.t;
    if (m.t - sampledAt_s_ > LATEST_s)
        fail(m, "the regulator took no sample since " + std::to_string(sampledAt_s_) + " s");
}

void SoakWatch::lookAtMemory(const Moment& m)
{
    if (m.t - started_s_ < HOUR_s) {
        poolOfFirstHour_ = std::max(poolOfFirstHour_, m.poolUsed);
        return;
    }
    if (m.poolUsed > poolOfFirstHour_ + POOL_GROWTH)
        fail(m, "signals take " + std::to_string(m.poolUsed) + " bytes, " + std::to_string(poolOfFirstHour_)
                    + " in the first hour");
}

/// The clock state told by what makes it, from outside.
void SoakWatch::lookAtModel(const Moment& m, const Licence& may)
{
    constexpr double LOOP_STARTS_s = 30.0;        // a restored loop tells its state once it has filtered
    const bool isOfOtherRule = m.t - started_s_ < LOOP_STARTS_s || may.idle
                               || (m.told == KVD_TUIIF_FAILURE && may.halting);
    const bool isWrong = !may.refused && m.connected && !isOfOtherRule && !m.due.empty()
                         && std::ranges::find(m.due, m.told) == m.due.end();
    if (!isWrong) modelWrongSince_s_ = -1;
    else if (modelWrongSince_s_ < 0) modelWrongSince_s_ = m.t;
    else if (m.t - modelWrongSince_s_ > TOLD_s)
        fail(m, "clock state " + std::to_string(m.told) + " told, " + std::to_string(m.due.front()) + " by "
                    + m.words);
}

/// No loop holds over longer than its rule.
void SoakWatch::lookAtHoldovers(const Moment& m)
{
    constexpr double OTHERS_HELD_s = 300.0, SLAVE_HELD_s = 60.0, SLACK_s = 5.0;
    const bool isLost = m.selected == NO_REFERENCE ? m.before == GPSOSL_REF || m.before == SOCPRI_REF
                        : m.selected == GPSOSL_REF ? m.leaderGone && m.isWatched
                                                   : m.selected == SOCPRI_REF;
    // A halted unit tells failure, and no timer of it runs; one that is refused leaves them until it is
    // served.
    const bool isHeld = isLost && m.loopHoldsTime && m.selected == before_.selected
                        && m.clock != KVD_TUIIF_FAILURE && !m.isRefused;
    if (!isHeld) loopHoldsSince_s_ = -1;
    else if (loopHoldsSince_s_ < 0) loopHoldsSince_s_ = m.t;
    else if (m.t - loopHoldsSince_s_ > OTHERS_HELD_s + SLACK_s)
        fail(m,
             "the loop of another unit's time holds over since " + std::to_string(loopHoldsSince_s_) + " s");

    // A leader that comes back and warms up is selected again, and has its minute.
    const bool isFollowing = m.clock == KVD_TUIIF_SLAVE_FRAME_LOCKED && m.connected && m.isWatched
                             && m.selected == before_.selected && (m.leaderGone || !m.hearsLeader);
    if (!isFollowing)
        framesSince_s_ = -1;
    else if (framesSince_s_ < 0)
        framesSince_s_ = m.t;
    else if (m.t - framesSince_s_ > SLAVE_HELD_s + SLACK_s)
        fail(m, "locked to a leader whose link is gone since " + std::to_string(framesSince_s_) + " s");
}

/// An hour after the last disturbance there is nothing that isn't as it was.
void SoakWatch::lookBack(const Moment& m, const Licence& may)
{
    const auto gone = [&](const std::string& what) {
        fail(m, "an hour after the last disturbance: " + what);
    };
    if (!m.runs) return gone("the program doesn't run");
    if (!m.connected) return gone("no connection with the main processor");
    const u8 clock = m.clock;
    const bool isBack = may.slave ? clock == KVD_TUIIF_SLAVE_FRAME_LOCKED
                        : may.canKnowTime
                            ? clock == KVD_TUIIF_TIME_OFFSET_LOCKED || clock == KVD_TUIIF_RNT_TIME_LOCKED
                            : clock == KVD_TUIIF_FREQUENCY_LOCKED
                                  || (may.hasTime && hasTime(clock) && isLocked(clock));
    if (!isBack) gone("clock state " + std::to_string(clock));
    if (m.told != clock) gone("told clock state " + std::to_string(m.told) + ", is " + std::to_string(clock));
    if (m.selected == NO_REFERENCE) gone("no reference selected");
    if (m.refState != m.refStateTold)
        gone("told usable references " + std::to_string(m.refStateTold) + ", are "
             + std::to_string(m.refState));
    if (!m.unusable.empty()) gone("not told usable:" + m.unusable);
    if (!m.missing.empty()) gone("processes and memory that are no more:" + m.missing);
}

}  // namespace app
