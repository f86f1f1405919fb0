// Inter-unit links: the machines of the two ports, and their timers.
#include "refs/kvd_ref_idl_int.h"
#include "base/trace_groups.h"
#include "hw/kvd_hwif.h"
#include "mp/kvd_iifadm.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "refs/kvd_idpi.h"
#include "refs/kvd_refs_upcalls.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_measure.h"
#include "unit/kvd_ref_table.h"
#include "unit/kvd_unit_link.h"
#include "unit/kvd_unit_process.h"

#include <algorithm>

using namespace idl;

namespace {

constexpr u32 DUAL_LINK = 1, SINGLE_LINK = 0;

/// A port's timers, and how their starts and cancels are traced.
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

struct State {
    std::array<Port, PORTS> port;
};
ose::ModuleData<State> s;

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
    for (const PortTimerId id : {HO, WTR, SUPERVISION})
        if (s->port[port].timer[id].runs()) cancelTimer(port, id);
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

bool isDown(const Port& port) { return port.idlState == IDL_UNKNOWN || port.idlState == IDL_OFF; }

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
    if (std::all_of(s->port.begin(), s->port.end(), isDown)) {
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
    linkIsBack(port);
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

const Port& idl::portOf(u32 port) { return s->port[port]; }

u32 KvdLoz6TuRef_idlState(u32 port) { return s->port[port].idlState; }

void KvdLoz6TuRef_idlSupervision(u32 port, u32 on)
{
    if (on == 1)
        supervisionOn(port);
    else
        supervisionOff(port);
}

void KvdLoz6TuRef_idlInterrupt(u32 port)
{
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
    forgetSyncDataStop();
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
        linkIsBack(port);
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

void KvdLoz6TuRef_idlReset()
{
    for (const u32 port : {IDLPORT_1, IDLPORT_2}) {
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
