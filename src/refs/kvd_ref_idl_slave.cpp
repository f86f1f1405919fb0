// A slave's minute of holdover over its inter-unit link, and its wait for the leader's data on port 2.
#include "base/trace_groups.h"
#include "mp/kvd_iifadm.h"
#include "node/sig.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "refs/kvd_ref_idl_int.h"
#include "refs/kvd_slave.h"
#include "reg/kvd_reg_pll.h"
#include "unit/kvd_unit_link.h"
#include "unit/kvd_unit_process.h"

using namespace idl;

namespace {

constexpr OSTIME SLAVE_HO_TIME  = 60000;    // ms
constexpr OSTIME SYNC_DATA_TIME = 40;       // ms
constexpr u32 SYNC_DATA_TMO_MAX = 50;       // expiries that tell that data stopped
constexpr u32 STALE_MAX = 20;               // words that tell that they say nothing: two seconds

struct State {
    KvdTimer slaveHoldoverTimer;
    KvdTimer syncDataTimer;
    u32 idl2SyncDataIndTmoCntr = 0;         // 0 to SYNC_DATA_TMO_MAX
    u32 staleWords = 0;                     // of port 1, in a row
};
ose::ModuleData<State> s;

bool areWordsStale() { return s->staleWords >= STALE_MAX; }

}  // namespace

// ---- holdover -----------------------------------------------------------------------------------

void idl::startSlaveHoldover(u32 port)
{
    if (KvdLoz6TuMgr_isMaster()) return;
    if (s->slaveHoldoverTimer.runs()) {
        KVD_TRACE(TRACE_TUREF, TRACE_3, "Slave HoldOver timer already started");
        return;
    }
    auto* ind = node::make<KvdTurefSlaveHoldoverTimeoutInd>(KVD_TUREF_SLAVE_HOLDOVER_TIMEOUT_IND);
    ind->port = port;
    if (!KvdTimer_startSig(s->slaveHoldoverTimer, SLAVE_HO_TIME, reinterpret_cast<Signal*>(ind))) {
        KVD_TRACE(TRACE_TUREF, TRACE_ERROR, "Slave HoldOver timer failed to start for %s",
                  KvdLoz6TuRef_idlPortText(port));
        return;
    }
    KvdLoz6TuReg_slavePll_hold();
    record(port, SLAVE_HO_TIMER, TIMER_ON);
    KVD_TRACE(TRACE_TUREF, TRACE_INFO, "Slave HoldOver timer started. Slave PLL state %u, idlPort = %u",
              KvdLoz6TuReg_slavePllState(), port);
}

void idl::stopSlaveHoldover(u32 port)
{
    if (!s->slaveHoldoverTimer.runs()) return;
    KvdTimer_cancel(s->slaveHoldoverTimer);
    record(port, SLAVE_HO_TIMER, TIMER_CANCELED);
}

void idl::linkIsBack(u32 port)
{
    if (port == IDLPORT_2 || !areWordsStale()) stopSlaveHoldover(port);
}

bool idl::slaveHoldoverRuns() { return s->slaveHoldoverTimer.runs(); }

void KvdLoz6TuRef_onSlaveHoldoverTimeout(const KvdTurefSlaveHoldoverTimeoutInd* ind)
{
    if (!KvdTimer_expired(s->slaveHoldoverTimer) || ind == nullptr) return;
    if (ind->port < PORTS) record(ind->port, SLAVE_HO_TIMER, TIMER_EXPIRED);
    if (KvdLoz6TuReg_slavePllState() != SLAVE_PLL_Uninitialized)
        KvdLoz6TuReg_slavePll_setState(SLAVE_PLL_Unlocked);
    forgetSyncDataStop();
}

void KvdLoz6TuRef_awaitLeader()
{
    const bool isIdl2 = KvdLoz6BiraIifAdm_idlMode() == KVD_BIRAIIF_IDL_MODE_2;
    if (KvdLoz6TuReg_slavePllState() != SLAVE_PLL_Uninitialized)
        startSlaveHoldover(isIdl2 ? IDLPORT_2 : IDLPORT_1);
}

void KvdLoz6TuRef_idl1Words(bool areFresh)
{
    s->staleWords = areFresh ? 0 : s->staleWords + 1;
    if (KvdLoz6TuRef_idlState(IDLPORT_1) != IDL_ON) return;
    if (areFresh) stopSlaveHoldover(IDLPORT_1);
    else if (areWordsStale()) startSlaveHoldover(IDLPORT_1);
}

// ---- sync data of port 2 on a slave -------------------------------------------------------------

void KvdLoz6TuRef_startIdl2SyncDataTimer()
{
    if (s->syncDataTimer.runs())
        KVD_TRACE(TRACE_TUREF, TRACE_3, "IDL2 SyncDataInd timer already started!");
    else if (KvdTimer_start(s->syncDataTimer, SYNC_DATA_TIME, KVD_TUREF_IDL2_SYNC_DATA_TIMEOUT_IND))
        KVD_TRACE(TRACE_TUREF, TRACE_3, "IDL2 SyncDataInd timer requested.");
    else
        KVD_TRACE(TRACE_TUREF, TRACE_ERROR, "IDL2 SyncDataInd timer failed to start");
}

void KvdLoz6TuRef_stopIdl2SyncDataTimer()
{
    if (!s->syncDataTimer.runs()) return;
    KvdTimer_cancel(s->syncDataTimer);
    KVD_TRACE(TRACE_TUREF, TRACE_3, "IDL2 SyncDataInd timer canceled.");
}

void idl::forgetSyncDataStop()
{
    s->idl2SyncDataIndTmoCntr = 0;
    KvdLoz6TuSlave_idl2SyncDataStopped(0);
}

bool KvdLoz6TuRef_idl2SyncDataTimerRuns() { return s->syncDataTimer.runs(); }
u32 KvdLoz6TuRef_idl2SyncDataIndTmoCntr() { return s->idl2SyncDataIndTmoCntr; }
void KvdLoz6TuRef_setIdl2SyncDataIndTmoCntr(u32 expiries) { s->idl2SyncDataIndTmoCntr = expiries; }

void KvdLoz6TuRef_onIdl2SyncDataTimeout()
{
    if (!KvdTimer_expired(s->syncDataTimer)) return;
    if (s->idl2SyncDataIndTmoCntr >= SYNC_DATA_TMO_MAX) return;
    ++s->idl2SyncDataIndTmoCntr;
    if (s->idl2SyncDataIndTmoCntr < SYNC_DATA_TMO_MAX) return;
    KVD_TRACE(TRACE_TUREF, TRACE_INFO, "IDL2 SyncDataIndTimeout threshold reached!");
    KvdLoz6TuSlave_idl2SyncDataStopped(1);
    // Data answers data: while this end holds its own back none comes. The holdover's end lets it try again.
    startSlaveHoldover(IDLPORT_2);
}
