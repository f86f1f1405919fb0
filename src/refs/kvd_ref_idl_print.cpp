// What the inter-unit links went through, and their section of kvdinfo.
#include "base/assert.h"
#include "node/platform.h"
#include "ose/module_data.h"
#include "refs/kvd_ref_idl_int.h"

using namespace idl;

namespace {

constexpr u32 SYNCH_PORTS = 6;

struct State {
    IdlHistory history;
    bool hasSynchPort = false;
    u8 synchPortNo = 0;
    RefRing<SynchPortRecord, 50> synchPortHistory;
};
ose::ModuleData<State> s;

}  // namespace

void idl::record(u32 port, IdlTimerType type, IdlTimerStatus status)
{
    tuAssert(port < PORTS);
    IdlHistoryRecord event{};
    event.idlState = portOf(port).idlState;
    event.port = static_cast<u8>(port);
    event.timerType = type;
    event.timerStatus = status;
    TuCommon_timeStamp(event.time);
    s->history.offer(event);
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

const char* runsText(bool runs) { return runs ? "runs" : "-"; }

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
        const Port& p = portOf(port);
        node::shellPrintf("   %-9s  %-19s  %-4s  %-4s  %s\n", KvdLoz6TuRef_idlPortText(port),
                          KvdLoz6TuRef_idlStateText(p.idlState), runsText(p.timer[HO].runs()),
                          runsText(p.timer[WTR].runs()), runsText(p.timer[SUPERVISION].runs()));
    }
    node::shellPrintf("   slave holdover timer   : %s\n", runsText(slaveHoldoverRuns()));
    node::shellPrintf("   idl2SyncDataIndTmoCntr : %u\n", KvdLoz6TuRef_idl2SyncDataIndTmoCntr());

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
