// What a selection means for the clock state that is told, and the end of a holdover's time for the
// regulator.
#include "iif/kvd_iifadm_orders.h"

#include "base/trace_groups.h"
#include "gps/kvd_gps_osl.h"
#include "gps/kvd_gps_out.h"
#include "mp/kvd_iifadm_state.h"
#include "node/trace.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control.h"
#include "reg/kvd_reg_estimate.h"
#include "reg/kvd_reg_pll.h"
#include "reg/kvd_reg_socpri.h"
#include "socpri/kvd_socpri_inrsi.h"
#include "unit/kvd_ref_table.h"

namespace {

using tuiif::state;

tuiif::SavedBvqStatusData& saved() { return state().savedBvqStatusData; }

/// Pushes the estimate down a grade, by HoldoverClass.
constexpr void (*HOLDOVER_ENDS[])() = {
    KvdLoz6TuReg_forceFrequencyDrifting,
    KvdLoz6TuReg_forceFrequencyHoldover,
    KvdLoz6TuReg_forceTimeOffsetHoldover,
};

}  // namespace

namespace tuiif {

void onHoldoverTimeout(u32 holdoverClass)
{
    HoldoverThreshold& threshold = state().threshold[holdoverClass];
    if (!KvdTimer_expired(threshold.timer) || threshold.minutes == 0) return;
    HOLDOVER_ENDS[holdoverClass]();
}

void onForcedLockedTimeout()
{
    if (!KvdTimer_expired(state().forceLockedTimer)) return;
    const u32 pllState = KvdLoz6TuReg_pllState();
    if (pllState != PLL_Uninitialized && saved().selectedRef == GPSOSL_REF) {
        KVD_TRACE(TRACE_TUIIFADM, TRACE_INFO,
                  "forceLockedTimerTimeout expired while controling with PLL in state %u", pllState);
        return;
    }
    KvdLoz6TuIifAdm_reportRegState(KvdLoz6TuReg_regState());
    KvdLoz6GpsOut_regStateChanged();
}

}  // namespace tuiif

namespace {

void moveTypesOn(u8 refType)
{
    if (refType == NO_REF && saved().selectedRef == NO_REF) {
        KVD_TRACE(TRACE_TUIIFADM, TRACE_INFO,
                  "Select refType = %s (%u) received while selectedRef = %s (%u) and "
                  "prevSelectedRef = %s (%u). Update of reference variables ignored.",
                  KvdLoz6TuRef_refTypeText(refType), refType, KvdLoz6TuRef_refTypeText(saved().selectedRef),
                  saved().selectedRef, KvdLoz6TuRef_refTypeText(saved().prevSelectedRef),
                  saved().prevSelectedRef);
        return;
    }
    saved().prevPrevSelectedRef = saved().prevSelectedRef;
    saved().prevSelectedRef = saved().selectedRef;
    saved().selectedRef = refType;
}

bool typesRead(u8 newest, u8 before, u8 oldest)
{
    return saved().selectedRef == newest && saved().prevSelectedRef == before
           && saved().prevPrevSelectedRef == oldest;
}

/// SoCPRI goes away, or starts afresh; only one that comes back after a pause keeps its loop.
void endSocpri()
{
    inrsiClientReset();
    if (KvdLoz6TuReg_pllState() == PLL_Uninitialized) return;
    KvdLoz6TuReg_endPll([](u32 event) {
        KvdLoz6TuReg_logSoCpriEvent(event);
        KvdLoz6TuReg_traceSoCpriLog(1);
    }, SOCPRI_EV_PI_CONTROLLER_SHUTDOWN_SAVACTREF);
}

void clockOfNewSelection(u8 refType)
{
    const bool isFirstStart = KvdLoz6TuRef_isFirstStart() != 0;
    const u8 before = saved().prevSelectedRef;
    const bool intoHoldover = refType == NO_REF && !isFirstStart;
    if (refType != SOCPRI_REF && (before != SOCPRI_REF || intoHoldover)) {
        tuiif::showLastRegState();
        KvdLoz6TuIifAdm_markNotSent();
    } else if (before == SOCPRI_REF && refType != NO_REF && isFirstStart) {
        KvdLoz6TuIifAdm_reportClockState(KVD_TUIIF_FREQUENCY_HOLDOVER);
        inrsiAnswerOpenScan(FREQ_MEAS_MISSING);
        inrsiClientReset();
        KvdLoz6TuIifAdm_markNotSent();
    } else if (!typesRead(SOCPRI_REF, NO_REF, SOCPRI_REF)) {
        endSocpri();
        KvdLoz6TuIifAdm_markNotSent();
    } else if (before == NO_REF && state().socpriMarker != 0) {
        state().socpriMarker = 0;
        KvdLoz6TuIifAdm_markNotSent();
    }
}

}  // namespace

void KvdLoz6TuIifAdm_updateSelection(u8 refType, u32 froId, u32 froClassNo)
{
    moveTypesOn(refType);
    if (typesRead(GPSOSL_REF, NO_REF, GPS_REF)) KvdLoz6GpsOsl_sendRemoteState();
    saved().activRefFroId = froId;
    saved().activRefFroClassNo = froClassNo;
    saved().activRefLtrStatus = KVD_TUIIF_NOT_VALID;
    saved().activRefDegrStatus = KVD_TUIIF_NOT_VALID;
    clockOfNewSelection(refType);
}
