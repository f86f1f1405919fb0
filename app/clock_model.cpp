#include "app/clock_model.h"

#include "sig/ref_types.h"
#include "sig/tuiif_sig.h"
#include "sig/tuiif_socpri_sig.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <optional>

namespace app {
namespace {

struct Row { const char* state; u8 clock; };

constexpr Row MASTER[] = {
    {"WARMUP", KVD_TUIIF_WARMUP}, {"FREQDRIFTING", KVD_TUIIF_FREQUENCY_DRIFTING},
    {"SYNCH1", KVD_TUIIF_FREQUENCY_DRIFTING}, {"SYNCH2", KVD_TUIIF_FREQUENCY_DRIFTING},
    {"SYNCH3", KVD_TUIIF_FREQUENCY_DRIFTING}, {"FREQLOCKED", KVD_TUIIF_FREQUENCY_LOCKED},
    {"TIMELOCKED", KVD_TUIIF_TIME_OFFSET_LOCKED}, {"TRUETIME", KVD_TUIIF_RNT_TIME_LOCKED},
    {"PREJUMPSTART", KVD_TUIIF_PREJUMP_START}, {"PREJUMPHIST", KVD_TUIIF_PREJUMP_HIST}};
constexpr Row SLAVE[] = {
    {"WARMUP", KVD_TUIIF_WARMUP}, {"FREQLOCKED", KVD_TUIIF_SLAVE_FREQUENCY_LOCKED},
    {"FREQDRIFTING", KVD_TUIIF_SLAVE_FREE_RUNNING}, {"TRUETIME", KVD_TUIIF_SLAVE_FRAME_LOCKED},
    {"PREJUMPSTART", KVD_TUIIF_PREJUMP_START}, {"PREJUMPHIST", KVD_TUIIF_PREJUMP_HIST}};
constexpr Row LOOP[] = {
    {"PLL_OffsetLocked", KVD_TUIIF_TIME_OFFSET_LOCKED},
    {"PLL_Locked", KVD_TUIIF_RNT_TIME_LOCKED},
    {"PLL_Freq_Holdover", KVD_TUIIF_FREQUENCY_HOLDOVER},
    {"PLL_Offset_Holdover", KVD_TUIIF_TIME_OFFSET_HOLDOVER},
    {"PLL_Locked_Holdover", KVD_TUIIF_RNT_TIME_HOLDOVER}};

struct Twin { u8 clock, other; };
constexpr Twin LOCKED_TO_HOLDOVER[] = {
    {KVD_TUIIF_FREQUENCY_LOCKED, KVD_TUIIF_FREQUENCY_HOLDOVER},
    {KVD_TUIIF_TIME_OFFSET_LOCKED, KVD_TUIIF_TIME_OFFSET_HOLDOVER},
    {KVD_TUIIF_RNT_TIME_LOCKED, KVD_TUIIF_RNT_TIME_HOLDOVER}};
constexpr Twin TIME_TO_FREQUENCY[] = {
    {KVD_TUIIF_TIME_OFFSET_LOCKED, KVD_TUIIF_FREQUENCY_LOCKED},
    {KVD_TUIIF_RNT_TIME_LOCKED, KVD_TUIIF_FREQUENCY_LOCKED},
    {KVD_TUIIF_TIME_OFFSET_HOLDOVER, KVD_TUIIF_FREQUENCY_HOLDOVER},
    {KVD_TUIIF_RNT_TIME_HOLDOVER, KVD_TUIIF_FREQUENCY_HOLDOVER}};

constexpr const char* NO_LOOP = "PLL_Uninitialized";
constexpr const char* NO_SLAVE_LOOP = "SLAVE_PLL_Uninitialized";
constexpr double RELAXED_s = 86400.0;        // from a start with a valid calibration
constexpr double CHECKED_s = 130.0;          // two minute checks of the synthesisers

template <std::size_t N>
std::vector<u8> look(const Row (&rows)[N], const std::string& state)
{
    for (const Row& row : rows)
        if (state == row.state) return {row.clock};
    return {};
}

template <std::size_t N>
u8 twin(const Twin (&twins)[N], u8 clock)
{
    for (const Twin& t : twins)
        if (t.clock == clock) return t.other;
    return clock;
}

/// The state behind "Report regState A -> B" or the like; nothing when the line begins otherwise.
std::optional<std::string> stateAfter(const char* beginning, const std::string& text)
{
    if (!text.starts_with(beginning)) return {};
    const std::size_t arrow = text.find(" -> ");
    return arrow == std::string::npos ? std::nullopt : std::optional(text.substr(arrow + 4));
}

bool hasOwnHoldover(u8 reference) { return reference == GPSOSL_REF || reference == SOCPRI_REF; }

template <typename T>
std::optional<T> as(std::span<const std::byte> signal)
{
    T layout;
    if (signal.size() < sizeof layout) return {};
    std::memcpy(static_cast<void*>(&layout), signal.data(), sizeof layout);
    return layout;
}

}  // namespace

// ---- what happens -------------------------------------------------------------------------------

void ClockModel::programStarts(bool awaitsRadio)
{
    const bool isUnlocked = isUnlocked_;
    const double relocked_s = relocked_s_;
    *this = {};
    regulator_ = "WARMUP";
    loop_ = NO_LOOP;
    slaveLoop_ = NO_SLAVE_LOOP;
    awaitsRadio_ = awaitsRadio;
    isUnlocked_ = isUnlocked;
    relocked_s_ = relocked_s;
}

void ClockModel::ordered(std::span<const std::byte> signal)
{
    const SIGSELECT number = as<SIGSELECT>(signal).value_or(0);
    if (number == KVD_TUIIF_SOCPRI_SCAN_LINK_REQ)
        scansRadio_ = isFirst_ && isMaster_ && selected_ != SOCPRI_REF;
    if (number == KVD_TUIIF_CHANGE_MASTER_TU_IND)
        if (const auto ind = as<KvdTuiifChangeMasterTuInd>(signal))
            isMaster_ = ind->masterSlaveMode == KVD_TUIIF_MASTER_TU;
    if (number != KVD_TUIIF_INITIATE_SERVICE_CFM) return;
    const auto cfm = as<KvdTuiifInitiateServiceCfm>(signal);
    if (!cfm) return;
    isMaster_ = cfm->masterSlaveMode == KVD_TUIIF_MASTER_TU;
    hasTime_ = cfm->timeMode != 1;
    isFirst_ = confirms_++ == 0;
}

void ClockModel::selected(u8 reference)
{
    if (reference == NO_REF && selected_ == NO_REF) return;
    oldest_ = before_;
    before_ = selected_;
    selected_ = reference;
    const bool isBack = selected_ == SOCPRI_REF && before_ == NO_REF && oldest_ == SOCPRI_REF;
    if (isBack) awaitsRadio_ = false;
    if (selected_ != SOCPRI_REF) scansRadio_ = false;
    tracksNothing_ = false;            // it is for the reference to be tracked: found again, or not
}

void ClockModel::recorded(double t, const std::string& text)
{
    unsigned reference = 0;
    if (std::sscanf(text.c_str(), "Reference update: selectedRef (%u)", &reference) == 1)
        return selected(static_cast<u8>(reference));
    if (text == "ltrDetected = True") tracksNothing_ = true;
    if (text.ends_with(":: initiate with calibration done") && calibrated_s_ < 0) calibrated_s_ = t;
    if (const auto state = stateAfter("Report regState ", text)) {
        regulator_ = *state;
        if (regulator_ == "WARMUP") scansRadio_ = false;   // an oven out of its range is told whatever starts
    }
    const auto state = stateAfter("State change: ", text);
    if (!state) return;
    if (state->starts_with("SLAVE_")) {
        slaveLoop_ = *state;
        return;
    }
    fellFromLock_ = loop_ == "PLL_OffsetLocked" || loop_ == "PLL_Locked";
    loop_ = *state;
    scansRadio_ = false;
}

void ClockModel::synthesiserUnlocked(double t, bool isUnlocked)
{
    if (isUnlocked_ && !isUnlocked) relocked_s_ = t;
    isUnlocked_ = isUnlocked;
    tracksNothing_ = false;
}

// ---- what is due --------------------------------------------------------------------------------

/// Selected, or left behind for its holdover.
bool ClockModel::hasLoop() const
{
    return hasOwnHoldover(selected_ != NO_REF ? selected_ : before_) && loop_ != NO_LOOP;
}

bool ClockModel::loopHoldsTime() const
{
    return loop_ == "PLL_Offset_Holdover" || loop_ == "PLL_Locked_Holdover";
}

std::vector<u8> ClockModel::ofRegulator(double t) const
{
    if (regulator_.starts_with("SYNCH") && t - calibrated_s_ < RELAXED_s) return {KVD_TUIIF_FREQUENCY_LOCKED};
    return look(MASTER, regulator_);
}

std::vector<u8> ClockModel::ofMaster(double t) const
{
    if (regulator_.starts_with("PREJUMP")) return ofRegulator(t);
    if (scansRadio_) return {TUIIF_SOCPRI_STARTING};
    if (hasLoop()) {
        // On its way to the lock a unit may keep the state that it had before the loop.
        if (loop_ == "PLL_Unlocked" && fellFromLock_)
            return {KVD_TUIIF_FREQUENCY_LOCKED, KVD_TUIIF_FREQUENCY_DRIFTING};
        return look(LOOP, loop_);
    }
    // Selected all the same when the loop's holdover is over: nothing is followed.
    if (selected_ == GPSOSL_REF && regulator_ == "FREQLOCKED") return {KVD_TUIIF_FREQUENCY_HOLDOVER};
    const std::vector<u8> clock = ofRegulator(t);
    const bool awaitsRadio = selected_ == NO_REF && awaitsRadio_ && regulator_ != "WARMUP";
    return awaitsRadio && !clock.empty() ? std::vector<u8>{KVD_TUIIF_FREQUENCY_DRIFTING} : clock;
}

std::vector<u8> ClockModel::ofSlave() const
{
    if (slaveLoop_ == "SLAVE_PLL_Locked") return {KVD_TUIIF_SLAVE_FRAME_LOCKED};
    // It follows in frequency, or fell out of its lock, or has been at it for long.
    if (slaveLoop_ == "SLAVE_PLL_Unlocked")
        return {KVD_TUIIF_SLAVE_FREQUENCY_LOCKED, KVD_TUIIF_SLAVE_FREE_RUNNING};
    return look(SLAVE, regulator_);
}

u8 ClockModel::shown(u8 clock) const
{
    if (selected_ == NO_REF) clock = twin(LOCKED_TO_HOLDOVER, clock);
    return isMaster_ && !hasTime_ ? twin(TIME_TO_FREQUENCY, clock) : clock;
}

std::vector<u8> ClockModel::due(double t) const
{
    if (tracksNothing_) return {KVD_TUIIF_LOSS_OF_TRACKING};
    std::vector<u8> clocks = isMaster_ ? ofMaster(t) : ofSlave();
    for (u8& clock : clocks) clock = shown(clock);
    // The checks see that a synthesiser is lost, or is back, a while after.
    const bool isUncertain = isUnlocked_ || t - relocked_s_ < CHECKED_s;
    if (isUncertain && !clocks.empty()) clocks.push_back(KVD_TUIIF_LOSS_OF_TRACKING);
    return clocks;
}

std::string ClockModel::words() const
{
    return regulator_ + ", " + (isMaster_ ? loop_ : slaveLoop_) + ", reference " + std::to_string(selected_)
           + " after " + std::to_string(before_);
}

}  // namespace app
