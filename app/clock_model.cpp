#include "app/clock_model.h"

#include "reg/kvd_reg.h"
#include "reg/kvd_reg_pll.h"
#include "sig/ref_types.h"
#include "sig/tuiif_sig.h"

namespace app {
namespace {

struct Row { u8 state, clock; };

constexpr Row MASTER[] = {
    {WARMUP, KVD_TUIIF_WARMUP}, {FREQDRIFTING, KVD_TUIIF_FREQUENCY_DRIFTING},
    {FREQLOCKED, KVD_TUIIF_FREQUENCY_LOCKED}, {FAILURE, KVD_TUIIF_FAILURE},
    {TIMELOCKED, KVD_TUIIF_TIME_OFFSET_LOCKED}, {STARTUPTIME, KVD_TUIIF_TIME_OFFSET_LOCKED},
    {TRUETIME, KVD_TUIIF_RNT_TIME_LOCKED}, {PREJUMPSTART, KVD_TUIIF_PREJUMP_START},
    {PREJUMPHIST, KVD_TUIIF_PREJUMP_HIST}};
constexpr Row SLAVE[] = {
    {WARMUP, KVD_TUIIF_WARMUP}, {FREQLOCKED, KVD_TUIIF_SLAVE_FREQUENCY_LOCKED},
    {FREQDRIFTING, KVD_TUIIF_SLAVE_FREE_RUNNING}, {FAILURE, KVD_TUIIF_FAILURE},
    {TRUETIME, KVD_TUIIF_SLAVE_FRAME_LOCKED}};
constexpr Row SLAVE_LOOP[] = {
    {SLAVE_PLL_Unlocked, KVD_TUIIF_SLAVE_FREQUENCY_LOCKED}, {SLAVE_PLL_Locked, KVD_TUIIF_SLAVE_FRAME_LOCKED}};
constexpr Row LOOP[] = {
    {PLL_OffsetLocked, KVD_TUIIF_TIME_OFFSET_LOCKED},
    {PLL_Locked, KVD_TUIIF_RNT_TIME_LOCKED},
    {PLL_Freq_Holdover, KVD_TUIIF_FREQUENCY_HOLDOVER},
    {PLL_Offset_Holdover, KVD_TUIIF_TIME_OFFSET_HOLDOVER},
    {PLL_Locked_Holdover, KVD_TUIIF_RNT_TIME_HOLDOVER}};
constexpr Row LOCKED_TO_HOLDOVER[] = {
    {KVD_TUIIF_FREQUENCY_LOCKED, KVD_TUIIF_FREQUENCY_HOLDOVER},
    {KVD_TUIIF_TIME_OFFSET_LOCKED, KVD_TUIIF_TIME_OFFSET_HOLDOVER},
    {KVD_TUIIF_RNT_TIME_LOCKED, KVD_TUIIF_RNT_TIME_HOLDOVER}};
constexpr Row TIME_TO_FREQUENCY[] = {
    {KVD_TUIIF_TIME_OFFSET_LOCKED, KVD_TUIIF_FREQUENCY_LOCKED},
    {KVD_TUIIF_RNT_TIME_LOCKED, KVD_TUIIF_FREQUENCY_LOCKED},
    {KVD_TUIIF_TIME_OFFSET_HOLDOVER, KVD_TUIIF_FREQUENCY_HOLDOVER},
    {KVD_TUIIF_RNT_TIME_HOLDOVER, KVD_TUIIF_FREQUENCY_HOLDOVER}};

template <std::size_t N>
u8 look(const Row (&rows)[N], u32 state, u8 otherwise)
{
    for (const Row& row : rows)
        if (row.state == state) return row.clock;
    return otherwise;
}

bool hasLoop(const ClockFacts& f)
{
    const u8 reference = f.selected != NO_REF ? f.selected : f.before;
    return (reference == GPSOSL_REF || reference == SOCPRI_REF) && f.pllState > PLL_PreJumpHist;
}

u8 ownWord(const ClockFacts& f)
{
    if (f.regState == PREJUMPSTART || f.regState == PREJUMPHIST)
        return look(MASTER, f.regState, KVD_TUIIF_UNKNOWN);
    if (!f.master) return look(SLAVE_LOOP, f.slavePllState, look(SLAVE, f.regState, KVD_TUIIF_UNKNOWN));
    // On its way to the lock a unit may keep the state that it had.
    if (hasLoop(f) && f.pllState == PLL_Unlocked) return KVD_TUIIF_UNKNOWN;
    if (hasLoop(f)) return look(LOOP, f.pllState, KVD_TUIIF_UNKNOWN);
    // Selected all the same when the loop's holdover is over: nothing is followed.
    if (f.selected == GPSOSL_REF && f.regState == FREQLOCKED) return KVD_TUIIF_FREQUENCY_HOLDOVER;
    if (f.regState >= SYNCH1 && f.regState <= SYNCH3)
        return f.isRelaxed ? KVD_TUIIF_FREQUENCY_LOCKED : KVD_TUIIF_FREQUENCY_DRIFTING;
    return look(MASTER, f.regState, KVD_TUIIF_UNKNOWN);
}

}  // namespace

u8 expectedClock(const ClockFacts& f)
{
    u8 clock = ownWord(f);
    if (f.selected == NO_REF) {
        if (f.awaitsRadio && !hasLoop(f) && clock != KVD_TUIIF_WARMUP) clock = KVD_TUIIF_FREQUENCY_DRIFTING;
        clock = look(LOCKED_TO_HOLDOVER, clock, clock);
    }
    if (f.tracksNothing) clock = KVD_TUIIF_LOSS_OF_TRACKING;
    if (f.master && !f.timeMode) clock = look(TIME_TO_FREQUENCY, clock, clock);
    return clock;
}

}  // namespace app
