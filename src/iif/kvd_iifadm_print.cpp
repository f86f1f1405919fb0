#include "iif/kvd_iifadm_orders.h"
#include "mp/kvd_iifadm_state.h"
#include "node/platform.h"
#include "ref/kvd_ref.h"

#include <iterator>

namespace {

using tuiif::state;

constexpr const char* START_STATES[] = {"TUIIF_LOZ6_STARTED", "TUIIF_BVQ_RESTARTED",
                                        "TUIIF_START_RESTART_READY", "TUIIF_ERROR"};

// By value; 0 has no name.
constexpr const char* CLOCK_STATES[] = {
    "UNKNOWN",
    "KVD_TUIIF_WARMUP", "KVD_TUIIF_FREQUENCY_DRIFTING", "KVD_TUIIF_FREQUENCY_LOCKED",
    "KVD_TUIIF_FREQUENCY_HOLDOVER", "KVD_TUIIF_LOSS_OF_TRACKING", "KVD_TUIIF_FAILURE",
    "KVD_TUIIF_UNKNOWN", "KVD_TUIIF_TIME_OFFSET_LOCKED", "KVD_TUIIF_TIME_OFFSET_HOLDOVER",
    "KVD_TUIIF_RNT_TIME_LOCKED", "KVD_TUIIF_RNT_TIME_HOLDOVER", "KVD_TUIIF_PREJUMP_START",
    "KVD_TUIIF_PREJUMP_HIST", "KVD_TUIIF_SLAVE_FREE_RUNNING", "KVD_TUIIF_SLAVE_FREQUENCY_LOCKED",
    "KVD_TUIIF_SLAVE_FRAME_LOCKED",
};
constexpr const char* REMOTE_RC_STATES[] = {
    "UNKNOWN",
    "WARMUP", "SYNCH1", "SYNCH2", "SYNCH3", "FREQ_LOCKED", "FREQ_HOLDOVER", "FREERUNNING",
    "LOSS_OF_TRACKING", "FAILURE", "RC_UNKNOWN", "TIME_OFFSET_LOCKED", "TIME_OFFSET_HOLDOVER",
    "RNT_TIME_LOCKED", "RNT_TIME_HOLDOVER", "INTER_DU_TIME_LOCKED", "INTER_DU_TIME_HOLDOVER",
    "PRE_JUMP_START", "PRE_JUMP_HIST",
};
constexpr const char* REF_STATUS[] = {"KVD_TUIIF_NOT_VALID", "KVD_TUIIF_REF_OK", "KVD_TUIIF_REF_DEGRADED",
                                      "KVD_TUIIF_REF_LTR"};
constexpr const char* CALIBRATION[] = {"UNKNOWN", "KVD_TUIIF_CALIBRATED", "KVD_TUIIF_SOON_TO_EXPIRE",
                                       "KVD_TUIIF_UNCALIBRATED"};

template <std::size_t SIZE>
const char* textOf(const char* const (&texts)[SIZE], u32 value)
{
    return value < SIZE ? texts[value] : "UNKNOWN";
}

void printConnection()
{
    const tuiif::State& s = state();
    node::shellPrintf("   tuiifStartState    : %u %s\n", s.startState, textOf(START_STATES, s.startState));
    node::shellPrintf("   nsPid              : 0x%08X\n", s.nsPid);
    node::shellPrintf("   procTuiifMpPid     : 0x%08X\n", s.procTuiifMpPid);
    node::shellPrintf("   tuiifServerUp      : %u\n", s.tuiifServerUp);
    node::shellPrintf("   msiMemInitiated    : %u\n", s.msiMemInitiated);
    node::shellPrintf("   ownPiuInstanceId   : %u\n", s.ownPiuInstanceId);
    node::shellPrintf("   ownPiuHwAddr_r     : smn %u, apn %u\n", s.ownPiuHwAddr_r.smn, s.ownPiuHwAddr_r.apn);
}

void printReference(const char* name, u8 refType)
{
    node::shellPrintf("   %-19s: %u %s\n", name, refType, KvdLoz6TuRef_refTypeText(refType));
}

void printClock(const char* name, u8 clock)
{
    node::shellPrintf("   %-19s: %u %s\n", name, clock, KvdLoz6TuIifAdm_clockStateText(clock));
}

void printSaved()
{
    const tuiif::SavedBvqStatusData& saved = state().savedBvqStatusData;
    node::shellPrintf("   masterSlaveMode    : %u\n", saved.masterSlaveMode);
    node::shellPrintf("   timeMode           : %u\n", saved.timeMode);
    node::shellPrintf("   gpsOut             : %u\n", saved.gpsOut);
    node::shellPrintf("   hptsiOut           : %u\n", saved.hptsiOut);
    printReference("selectedRef", saved.selectedRef);
    printReference("prevSelectedRef", saved.prevSelectedRef);
    printReference("prevPrevSelectedRef", saved.prevPrevSelectedRef);
    printClock("radioClockState", saved.radioClockState);
    printClock("lastRegulatorState", saved.lastRegulatorState);
    node::shellPrintf("   ltrStatus          : %u\n", saved.ltrStatus);
    node::shellPrintf("   activRefLtrStatus  : %u %s\n", saved.activRefLtrStatus,
                      textOf(REF_STATUS, saved.activRefLtrStatus));
    node::shellPrintf("   activRefDegrStatus : %u %s\n", saved.activRefDegrStatus,
                      textOf(REF_STATUS, saved.activRefDegrStatus));
    node::shellPrintf("   activRefFroId      : 0x%08X\n", saved.activRefFroId);
    node::shellPrintf("   activRefFroClassNo : 0x%08X\n", saved.activRefFroClassNo);
    node::shellPrintf("   tuiifRefState      : 0x%08X\n", saved.tuiifRefState);
    node::shellPrintf("   remoteRCState      : %u %s\n", saved.remoteRCState,
                      KvdLoz6TuIifAdm_remoteRcStateText(saved.remoteRCState));
}

void printSent()
{
    const tuiif::State& s = state();
    const tuiif::LatestSentBvqStatusInd& latest = s.latestSentBvqStatusInd;
    node::shellPrintf("   sentBvqStatusInd   : %u, clockState=%u, refState=%x, ltr=%u, degr=%u\n",
                      latest.sentBvqStatusInd, latest.radioClockState, latest.refState,
                      latest.activRefLtrStatus, latest.activRefDegrStatus);
    node::shellPrintf("   calibrationStatus  : %u %s %s\n", s.calibrationStatus,
                      textOf(CALIBRATION, s.calibrationStatus), s.calibrationExpirationDate);
    node::shellPrintf("   soonToExpire       : %u\n", s.soonToExpire);
    node::shellPrintf("   time accuracy      : %u ns\n", s.latestSentTimeAccChangeInd);
    node::shellPrintf("   GPS status         : %u \"%s\"\n", s.gps.status, s.gps.text);
    node::shellPrintf("   HPTSI status       : %u \"%s\"\n", s.hptsi.status, s.hptsi.text);
    node::shellPrintf("   GPS OSL status     : %u \"%s\"\n", s.gpsOsl.status, s.gpsOsl.text);
}

void printTimers()
{
    const tuiif::State& s = state();
    constexpr const char* CLASSES[] = {"freq", "to", "rnt"};   // by HoldoverClass
    for (std::size_t i = 0; i < std::size(CLASSES); ++i)
        node::shellPrintf("   threshold %-4s     : %u min, timer %s\n", CLASSES[i], s.threshold[i].minutes,
                          s.threshold[i].timer.runs() ? "runs" : "idle");
    node::shellPrintf("   forceLockedTimer   : %s\n", s.forceLockedTimer.runs() ? "runs" : "idle");
    node::shellPrintf("   SoCPRI marker      : %u\n", s.socpriMarker);
}

}  // namespace

const char* KvdLoz6TuIifAdm_clockStateText(u8 clockState) { return textOf(CLOCK_STATES, clockState); }
const char* KvdLoz6TuIifAdm_remoteRcStateText(u32 remoteState)
{
    return textOf(REMOTE_RC_STATES, remoteState);
}

void KvdLoz6TuIifAdm_printInfo()
{
    node::shellPrintf("\n***** TUIIF *****\n");
    printConnection();
    printSaved();
    printSent();
    printTimers();
}
