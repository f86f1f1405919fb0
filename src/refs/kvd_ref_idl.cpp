// Inter-unit links: both ports' state machines, slave holdover, sync data supervision, histories.
#include "refs/kvd_ref_idl.h"
#include "base/assert.h"
#include "base/kvd_timer.h"
#include "base/trace_groups.h"
#include "base/tu_common.h"
#include "hw/kvd_hwif.h"
#include "mp/kvd_iifadm.h"
#include "node/platform.h"
#include "node/sig.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "refs/kvd_idpi.h"
#include "refs/kvd_ref_history.h"
#include "refs/kvd_refs_upcalls.h"
#include "refs/kvd_slave.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_measure.h"
#include "reg/kvd_reg_pll.h"
#include "unit/kvd_ref_table.h"
#include "unit/kvd_unit_link.h"
#include "unit/kvd_unit_process.h"

namespace {

constexpr OSTIME SLAVE_HO_TIME   = 60000;   // ms
constexpr OSTIME SYNC_DATA_TIME  = 40;      // ms
constexpr u32 SYNC_DATA_TMO_MAX  = 50;      // expiries that tell that data stopped
constexpr u32 DUAL_LINK = 1, SINGLE_LINK = 0;
constexpr u32 PORTS = 2;
constexpr u32 SYNCH_PORTS = 6;

/// A port's timers, and how their starts and cancels are traced.
enum PortTimerId : u32 { HO, WTR, SUPERVISION, PORT_TIMERS };
struct PortTimerTraits { IdlTimerType type; const char* operation; const char* name; };
constexpr PortTimerTraits PORT_TIMER[PORT_TIMERS] = {
    {HO_TIMER, "Ho", "HO"}, {WTR_TIMER, "Wtr", "WTR"}, {SUP_TIMER, "Supervision", "Supervision"}};

struct PortTraits {
    u8 refType;
    u32 linkBit;                       // of tuiifRefState
    OSTIME time[PORT_TIMERS];          // ms
    SIGSELECT sigNo[PORT_TIMERS];
    const char* name;
};
constexpr PortTraits PORT[PORTS] = {
    {IDL1_REF, KVD_TUIIF_TU_LINK1_DETECTED, {310, 10000, 110},
     {KVD_TUREF_IDL1_HO_TIMEOUT_IND, KVD_TUREF_IDL1_WTR_TIMEOUT_IND,
      KVD_TUREF_IDL1_SUPERVISION_TIMEOUT_IND}, "IDL1"},
    {IDL2_REF, KVD_TUIIF_TU_LINK2_DETECTED, {310, 10000, 160},
     {KVD_TUREF_IDL2_HO_TIMEOUT_IND, KVD_TUREF_IDL2_WTR_TIMEOUT_IND,
      KVD_TUREF_IDL2_SUPERVISION_TIMEOUT_IND}, "IDL2"},
};

struct Port {
    u32 idlState = IDL_UNKNOWN;
    std::array<KvdTimer, PORT_TIMERS> timer;
};

struct State {
    std::array<Port, PORTS> port;
    KvdTimer slaveHoldoverTimer;
    KvdTimer syncDataTimer;
    u32 idl2SyncDataIndTmoCntr = 0;      // 0 to SYNC_DATA_TMO_MAX
    u32 staleWords = 0;                // of port 1, in a row
    IdlHistory history;
    bool hasSynchPort = false;
    u8 synchPortNo = 0;
    RefRing<SynchPortRecord, 50> synchPortHistory;
};
ose::ModuleData<State> s;

void record(u32 port, IdlTimerType type, IdlTimerStatus status)
{
    tuAssert(port < PORTS);
    IdlHistoryRecord event{};
    event.idlState = s->port[port].idlState;
    event.port = static_cast<u8>(port);
    event.timerType = type;
    event.timerStatus = status;
    TuCommon_timeStamp(event.time);
    s->history.offer(event);
}

// ---- a port's timers ----------------------------------------------------------------------------

void startTimer(u32 port, PortTimerId id)
{
    KvdTimer& timer = s->port[port].timer[id];
    if (timer.runs())
        KVD_TRACE(TRACE_TUREF, TRACE_3, "startIdl%sTimer ignored.idl%s timer already started for %s",
                  PORT_TIMER[id].operation, PORT_TIMER[id].name, KvdLoz6TuRef_idlPortText(port));
    else if (KvdTimer_start(timer, PORT[port].time[id], PORT[port].sigNo[id]))
        record(port, PORT_TIMER[id].type, TIMER_ON);
    else
        KVD_TRACE(TRACE_TUREF, TRACE_ERROR, "IDL timer 0x%x failed to start for %s", PORT[port].sigNo[id],
                  KvdLoz6TuRef_idlPortText(port));
}

void cancelTimer(u32 port, PortTimerId id)
{
    KvdTimer& timer = s->port[port].timer[id];
    if (!timer.runs()) {
        KVD_TRACE(TRACE_TUREF, TRACE_3, "Ignored cancelIdl%sTimer since timer was not started for [%s]",
                  PORT_TIMER[id].operation, KvdLoz6TuRef_idlPortText(port));
        return;
    }
    KvdTimer_cancel(timer);
    record(port, PORT_TIMER[id].type, TIMER_CANCELED);
}

void restartTimer(u32 port, PortTimerId id)
{
    cancelTimer(port, id);
    startTimer(port, id);
}

/// False for a time-out of a former run.
bool timerExpired(u32 port, PortTimerId id)
{
    if (!KvdTimer_expired(s->port[port].timer[id])) return false;
    record(port, PORT_TIMER[id].type, TIMER_EXPIRED);
    return true;
}

void cancelPortTimers(u32 port)
{
    for (u32 id = 0; id < PORT_TIMERS; ++id)
        if (s->port[port].timer[id].runs()) cancelTimer(port, static_cast<PortTimerId>(id));
}

// ---- slave holdover -----------------------------------------------------------------------------

/// A slave that lost its link keeps its loop for a minute. The first loss starts it; it runs on
/// while the link comes and goes.
void startSlaveHoldover(u32 port)
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

void stopSlaveHoldover(u32 port)
{
    if (!s->slaveHoldoverTimer.runs()) return;
    KvdTimer_cancel(s->slaveHoldoverTimer);
    record(port, SLAVE_HO_TIMER, TIMER_CANCELED);
}

void report() { KvdLoz6TuIifAdm_updateRefState(KvdLoz6TuIifAdm_tuiifRefState()); }

// ---- steps of the machine -----------------------------------------------------------------------

void linkUp(u32 port) { KvdLoz6TuIifAdm_setRefStateBits(PORT[port].linkBit); }
void linkDown(u32 port) { KvdLoz6TuIifAdm_clearRefStateBits(PORT[port].linkBit); }

void selectOnSlave(u32 port)
{
    if (!KvdLoz6TuMgr_isMaster()) REFS_UPCALLS.followLink(PORT[port].refType);
}

void enter(u32 port, IdlState idlState)
{
    KVD_TRACE(TRACE_TUREF, TRACE_3, "%s: %s -> %s", KvdLoz6TuRef_idlPortText(port),
              KvdLoz6TuRef_idlStateText(s->port[port].idlState), KvdLoz6TuRef_idlStateText(idlState));
    s->port[port].idlState = idlState;
}

bool isDown(u32 port) { return s->port[port].idlState == IDL_UNKNOWN || s->port[port].idlState == IDL_OFF; }

void supervisionOff(u32 port)
{
    cancelTimer(port, HO);
    cancelTimer(port, WTR);
    if (s->port[port].timer[SUPERVISION].runs()) cancelTimer(port, SUPERVISION);
    stopSlaveHoldover(port);
    if (port == IDLPORT_1) tuHwIf_disableIsr(TU_BFN_IN_INT);
    enter(port, IDL_UNKNOWN);
    KVD_TRACE(TRACE_TUREF, TRACE_INFO, "%s state is UNKNOWN, %s supervision is disabled", PORT[port].name,
              PORT[port].name);
    linkDown(port);
    KvdLoz6TuReg_setPortSupervised(0, port);
    if (isDown(1 - port)) {
        KVD_TRACE(TRACE_TUREF, TRACE_INFO, "IDL state is UNKNOWN/OFF,not a dual configuration");
        KvdLoz6TuReg_dualConfiguration(SINGLE_LINK);
    }
}

/// The other end's data comes to a slave's port 2 only once the hardware is handed over and the port
/// available: nothing to wait for before.
bool awaitsHandover(u32 port)
{
    if (port != IDLPORT_2 || KvdLoz6TuMgr_isMaster() || KvdLoz6BiraIifAdm_initiatedFromSlaveMsi() != 0)
        return false;
    return KvdLoz6BiraIifAdm_hasHwControl() == 0 || KvdLoz6BiraIifAdm_timeTuningOngoing() == 0
           || KvdLoz6Idpi_portAvailable() == 0;
}

void beginSupervision(u32 port)
{
    if (awaitsHandover(port)) {
        KvdLoz6TuRef_awaitLeader();      // a loop from before would go on with a link that went meanwhile
        return enter(port, IDL_ON);
    }
    enter(port, IDL_SUPERVISED);
    KVD_TRACE(TRACE_TUREF, TRACE_INFO, "%s is SUPERVISED", PORT[port].name);
    startTimer(port, HO);
}

void supervisionOn(u32 port)
{
    if (port == IDLPORT_1) tuHwIf_enableIsr(TU_BFN_IN_INT);
    if (s->port[port].idlState == IDL_UNKNOWN) beginSupervision(port);
    selectOnSlave(port);
    KvdLoz6TuReg_setPortSupervised(1, port);
    KvdLoz6TuReg_dualConfiguration(DUAL_LINK);
}

void linkSeen(u32 port)
{
    cancelTimer(port, HO);
    stopSlaveHoldover(port);
    enter(port, IDL_ON);
    linkUp(port);
    startTimer(port, HO);
    selectOnSlave(port);
    report();
}

void ignoreTimeout(u32 port)
{
    KVD_TRACE(TRACE_TUREF, TRACE_INFO,
              "idl supervision is disabled or it's status is OFF, ignore timeout [%s] ",
              KvdLoz6TuRef_idlPortText(port));
}

}  // namespace

const char* KvdLoz6TuRef_idlPortText(u32 port)
{
    switch (port) {
    case IDLPORT_1: return "IDLPORT_1";
    case IDLPORT_2: return "IDLPORT_2";
    default:        return "<Unknown>";
    }
}

const char* KvdLoz6TuRef_idlStateText(u32 idlState)
{
    switch (idlState) {
    case IDL_UNKNOWN:         return "IDL_UNKNOWN";
    case IDL_SUPERVISED:      return "IDL_SUPERVISED";
    case IDL_ON:              return "IDL_ON";
    case IDL_OFF:             return "IDL_OFF";
    case IDL_WAIT_TO_RESTORE: return "IDL_WAIT_TO_RESTORE";
    default:                  return "<Unknown>";
    }
}

u32 KvdLoz6TuRef_idlState(u32 port) { return port < PORTS ? s->port[port].idlState : u32{IDL_UNKNOWN}; }

void KvdLoz6TuRef_idlSupervision(u32 port, u32 on)
{
    if (on == 1)
        supervisionOn(port);
    else
        supervisionOff(port);
}

void KvdLoz6TuRef_idlInterrupt(u32 port)
{
    if (port >= PORTS) return;
    switch (s->port[port].idlState) {
    case IDL_SUPERVISED: linkSeen(port); break;
    case IDL_ON: restartTimer(port, HO); break;
    case IDL_OFF:
        enter(port, IDL_WAIT_TO_RESTORE);
        startTimer(port, WTR);
        startTimer(port, SUPERVISION);
        break;
    case IDL_WAIT_TO_RESTORE: restartTimer(port, SUPERVISION); break;
    default: break;
    }
}

void KvdLoz6TuRef_idl2Supervise()
{
    if (s->port[IDLPORT_2].idlState != IDL_ON) return;
    enter(IDLPORT_2, IDL_SUPERVISED);
    KVD_TRACE(TRACE_TUREF, TRACE_INFO, "%s is SUPERVISED", PORT[IDLPORT_2].name);
    startTimer(IDLPORT_2, HO);
}

void KvdLoz6TuRef_idl2PortAvailable()
{
    const bool isWatched = s->port[IDLPORT_2].timer[HO].runs();
    if (!isWatched && !awaitsHandover(IDLPORT_2)) KvdLoz6TuRef_idl2Supervise();
}

void KvdLoz6TuRef_roleChanged()
{
    stopSlaveHoldover(IDLPORT_2);
    KvdLoz6TuRef_stopIdl2SyncDataTimer();
    s->idl2SyncDataIndTmoCntr = 0;
    KvdLoz6TuSlave_idl2SyncDataStopped(0);
    // Port 1 hears the other board in either role. What keeps port 2 up differs.
    if (s->port[IDLPORT_2].idlState == IDL_UNKNOWN) return;
    cancelPortTimers(IDLPORT_2);
    linkDown(IDLPORT_2);
    beginSupervision(IDLPORT_2);
    report();
}

void KvdLoz6TuRef_onIdlHoTimeout(u32 port)
{
    if (!timerExpired(port, HO)) return;
    switch (s->port[port].idlState) {
    case IDL_SUPERVISED:
    case IDL_ON:
        enter(port, IDL_OFF);
        startSlaveHoldover(port);
        linkDown(port);
        report();
        break;
    case IDL_UNKNOWN:
    case IDL_OFF: ignoreTimeout(port); break;
    default: break;
    }
}

void KvdLoz6TuRef_onIdlWtrTimeout(u32 port)
{
    if (!timerExpired(port, WTR)) return;
    switch (s->port[port].idlState) {
    case IDL_WAIT_TO_RESTORE:
        cancelTimer(port, SUPERVISION);
        stopSlaveHoldover(port);
        enter(port, IDL_ON);
        linkUp(port);
        startTimer(port, HO);
        report();
        break;
    case IDL_UNKNOWN:
    case IDL_OFF: ignoreTimeout(port); break;
    default: break;
    }
}

void KvdLoz6TuRef_onIdlSupervisionTimeout(u32 port)
{
    if (!timerExpired(port, SUPERVISION)) return;
    if (s->port[port].idlState != IDL_WAIT_TO_RESTORE) return;
    cancelTimer(port, WTR);
    enter(port, IDL_OFF);
    startSlaveHoldover(port);
}

void KvdLoz6TuRef_onSlaveHoldoverTimeout(const KvdTurefSlaveHoldoverTimeoutInd* ind)
{
    if (!KvdTimer_expired(s->slaveHoldoverTimer) || ind == nullptr) return;
    if (ind->port < PORTS) record(ind->port, SLAVE_HO_TIMER, TIMER_EXPIRED);
    if (KvdLoz6TuReg_slavePllState() != SLAVE_PLL_Uninitialized)
        KvdLoz6TuReg_slavePll_setState(SLAVE_PLL_Unlocked);
    s->idl2SyncDataIndTmoCntr = 0;
    KvdLoz6TuSlave_idl2SyncDataStopped(0);
}

void KvdLoz6TuRef_awaitLeader()
{
    const bool isIdl2 = KvdLoz6BiraIifAdm_idlMode() == KVD_BIRAIIF_IDL_MODE_2;
    if (KvdLoz6TuReg_slavePllState() != SLAVE_PLL_Uninitialized)
        startSlaveHoldover(isIdl2 ? IDLPORT_2 : IDLPORT_1);
}

void KvdLoz6TuRef_idl1Words(bool areFresh)
{
    constexpr u32 STALE_MAX = 20;       // two seconds
    s->staleWords = areFresh ? 0 : s->staleWords + 1;
    if (s->port[IDLPORT_1].idlState != IDL_ON) return;
    if (areFresh) stopSlaveHoldover(IDLPORT_1);
    else if (s->staleWords >= STALE_MAX) startSlaveHoldover(IDLPORT_1);
}

void KvdLoz6TuRef_idlReset()
{
    for (u32 port = 0; port < PORTS; ++port) {
        cancelPortTimers(port);
        stopSlaveHoldover(port);
        enter(port, IDL_UNKNOWN);
        KvdLoz6TuReg_setPortSupervised(0, port);
    }
    tuHwIf_disableIsr(TU_BFN_IN_INT);
    KvdLoz6TuIifAdm_storeRefState(KVD_TUIIF_NO_REF_DETECTED);
}

void KvdLoz6TuRef_idlClear()
{
    for (Port& port : s->port) {
        for (KvdTimer& timer : port.timer) KvdTimer_cancel(timer);
        port.idlState = IDL_UNKNOWN;
    }
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

void KvdLoz6TuRef_setSynchPortNo(u8 synchPortNo)
{
    if (synchPortNo >= SYNCH_PORTS) return;
    if (s->hasSynchPort && s->synchPortNo == synchPortNo) return;
    s->hasSynchPort = true;
    s->synchPortNo = synchPortNo;
    SynchPortRecord change{};
    change.synchPortNo = synchPortNo;
    TuCommon_timeStamp(change.time);
    s->synchPortHistory.push(change);
}

// ---- printout -----------------------------------------------------------------------------------

namespace {

const char* timerTypeText(u8 type)
{
    switch (type) {
    case HO_TIMER:       return "HO_TIMER";
    case WTR_TIMER:      return "WTR_TIMER";
    case SUP_TIMER:      return "SUP_TIMER";
    case SLAVE_HO_TIMER: return "SLAVE_HO_TIMER";
    default:             return "---------";
    }
}

const char* timerStatusText(u8 status)
{
    switch (status) {
    case TIMER_ON:       return "ON";
    case TIMER_CANCELED: return "CANCELED";
    case TIMER_EXPIRED:  return "EXPIRED";
    default:             return "---------";
    }
}

const char* runsText(const KvdTimer& timer) { return timer.runs() ? "runs" : "-"; }

void printRecord(const IdlHistoryRecord& r, const char* note = "")
{
    node::shellPrintf("   %-26s  %-9s  %-19s  %-14s  %s%s\n", r.time, KvdLoz6TuRef_idlPortText(r.port),
                      KvdLoz6TuRef_idlStateText(r.idlState), timerTypeText(r.timerType),
                      timerStatusText(r.timerStatus), note);
}

}  // namespace

void KvdLoz6TuRef_printIdl()
{
    node::shellPrintf("\n   Inter-unit links\n");
    node::shellPrintf("   port       idlState             HO    WTR   supervision\n");
    for (u32 port = 0; port < PORTS; ++port) {
        const Port& p = s->port[port];
        node::shellPrintf("   %-9s  %-19s  %-4s  %-4s  %s\n", KvdLoz6TuRef_idlPortText(port),
                          KvdLoz6TuRef_idlStateText(p.idlState), runsText(p.timer[HO]),
                          runsText(p.timer[WTR]), runsText(p.timer[SUPERVISION]));
    }
    node::shellPrintf("   slave holdover timer   : %s\n", runsText(s->slaveHoldoverTimer));
    node::shellPrintf("   idl2SyncDataIndTmoCntr : %u\n", s->idl2SyncDataIndTmoCntr);

    node::shellPrintf("\n   IDL supervision history, %u of 200 records, oldest first\n",
                      s->history.ring.count);
    for (u32 i = 0; i < s->history.ring.count; ++i) printRecord(s->history.ring.oldest(i));
    node::shellPrintf("   latest of each port\n");
    for (const IdlHistory::Port& p : s->history.port) {
        if (p.hasLatest) printRecord(p.latest);
        if (p.hasHeld) printRecord(p.held, " (held back)");
    }

    node::shellPrintf("\n   Synch port history, %u of 50 records, oldest first\n", s->synchPortHistory.count);
    for (u32 i = 0; i < s->synchPortHistory.count; ++i) {
        const SynchPortRecord& r = s->synchPortHistory.oldest(i);
        node::shellPrintf("   %-26s  port %u\n", r.time, r.synchPortNo);
    }
}
