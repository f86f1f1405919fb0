// Five minutes of holdover over the GPS out sync link, and what becomes of its loop at their end.
#include "base/kvd_timer.h"
#include "base/trace_groups.h"
#include "gps/kvd_gps_osl.h"
#include "mp/kvd_iifadm.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "ref/kvd_ref_int.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_pll.h"
#include "reg/kvd_reg_socpri.h"

namespace {

constexpr OSTIME GPSOSL_HOLDOVER_TIME = 300000;   // ms

struct State {
    KvdTimer gpsOslHoldoverTimer;
};
ose::ModuleData<State> s;

RefTable& table() { return KvdLoz6TuRef_table(); }

}  // namespace

void KvdLoz6TuRef_startGpsOslHoldover()
{
    if (s->gpsOslHoldoverTimer.runs()) return;
    if (!KvdTimer_start(s->gpsOslHoldoverTimer, GPSOSL_HOLDOVER_TIME,
                        KVD_TUREF_GPSOSL_HOLDOVER_TIMEOUT_IND)) {
        KVD_TRACE(TRACE_TUREF, TRACE_ERROR, "GpsOutSyncLink HoldOver timer failed to start");
        return;
    }
    KVD_TRACE(TRACE_TUREF, TRACE_INFO,
              "GpsOutSyncLink HoldOver timer started. SelectedRef %u, prevSelRef %u, gpsToggle %u, "
              "prevGpsToggle %u",
              table().selectedRef, table().prevSelRef, KvdLoz6TuRef_gpsExtToggle(),
              KvdLoz6TuRef_prevGpsToggle());
}

void KvdLoz6TuRef_stopGpsOslHoldover()
{
    if (!s->gpsOslHoldoverTimer.runs()) return;
    KvdLoz6TuRef_clearGpsOslHoldoverTimer();
    KVD_TRACE(TRACE_TUREF, TRACE_INFO,
              "GpsOutSyncLink HoldOver timer stopped. SelectedRef %u, gpsExtToggle %u", table().selectedRef,
              KvdLoz6TuRef_gpsExtToggle());
}

void KvdLoz6TuRef_clearGpsOslHoldoverTimer() { KvdTimer_cancel(s->gpsOslHoldoverTimer); }

bool KvdLoz6TuRef_gpsOslHoldoverTimerRuns() { return s->gpsOslHoldoverTimer.runs(); }

void KvdLoz6TuRef_onGpsOslHoldoverTimeout()
{
    if (!KvdTimer_expired(s->gpsOslHoldoverTimer)) return;
    if (table().selectedRef == GPSOSL_REF) {
        KvdLoz6TuIifAdm_markNotSent();
        KvdLoz6TuRef_report();
    }
    const RefDesc& row = KvdLoz6TuRef_row(ROW_GPSOSL);
    const u32 pllState = KvdLoz6TuReg_pllState();
    const bool pathLost = pllState != PLL_Uninitialized && row.refStatus == REF_STATUS_OFF;
    if (!KvdLoz6TuReg_pllIsHoldover() && !pathLost) return KvdLoz6GpsOsl_holdoverEnded();
    if (table().selectedRef == SOCPRI_REF)
        KvdLoz6TuReg_endPll(KvdLoz6TuRef_logLoopEnd, SOCPRI_EV_PI_CONTROLLER_SHUTDOWN_GPSOSL_HO_EXP);
    else
        KvdLoz6TuReg_endPll();
    if (row.supervisionStatus == 0) KvdLoz6TuIifAdm_sendRemoteRcState(RC_UNKNOWN);
    KvdLoz6GpsOsl_holdoverEnded();
}
