// Texts of both clients' events and states, and what their printouts share.
#include "socpri/kvd_socpri_inrsi.h"
#include "socpri/kvd_socpri_inrsi_int.h"

#include "base/text_of.h"
#include "node/platform.h"

using node::shellPrintf;

namespace inrsi {

namespace {

constexpr const char* EVENT_TEXT[] = {
    "INRSI_CL_EV_ACTIVITY_DISRUPTED", "INRSI_CL_EV_CONN_ESTABLISH_CFM", "INRSI_CL_EV_CONN_ESTABLISH_REJ",
    "INRSI_CL_EV_ENTERED_HO", "INRSI_CL_EV_FREQ_DIFF_CFM_UNEXPECTED_ACTION",
    "INRSI_CL_EV_FREQ_DIFF_CFM_WRONG_PORT_NUMBER", "INRSI_CL_EV_FREQ_DIFF_REJ",
    "INRSI_CL_EV_FREQ_DIFF_REJ_THRESHOLD", "INRSI_CL_EV_FREQ_LOCKED", "INRSI_CL_EV_FREQ_SYNC_FAILED",
    "INRSI_CL_EV_ACTION_ABORTED", "INRSI_CL_EV_HO_ENTRY_ORDERED", "INRSI_CL_EV_HO_ENTRY_DECLINED",
    "INRSI_CL_EV_HO_TMO_EXPIRED", "INRSI_CL_EV_INIT", "INRSI_CL_EV_INIT_FREQ_SCAN",
    "INRSI_CL_EV_INIT_BFN_ALIGN", "INRSI_CL_EV_INIT_SYNC_ON_LINK", "INRSI_CL_EV_INIT_SYNC_POSTPONED",
    "INRSI_CL_EV_INIT_SYNC_CONTINUED", "INRSI_CL_EV_INIT_SYNC_CONTINUED_FAILURE",
    "INRSI_CL_EV_LINK_STATUS_CHANGE", "INRSI_CL_EV_LINK_X_STATUS_CHANGE",
    "INRSI_CL_EV_LINK_SC_IGNORED_PORT_NOT_SUBSCRIBED", "INRSI_CL_EV_LINK_SC_IGNORED_PORTNO_LIMITS",
    "INRSI_CL_EV_LINK_STATUS_RESET", "INRSI_CL_EV_MEAS_TMO_EXPIRED",
    "INRSI_CL_EV_MEAS_TMO_EXPIRED_SUPERVISION", "INRSI_CL_EV_PHASE_DIFF_CFM_LINK_UNAVAILABLE",
    "INRSI_CL_EV_PHASE_DIFF_CFM_UNEXPECTED_ACTION", "INRSI_CL_EV_PHASE_DIFF_CFM_WRONG_PORT_NUMBER",
    "INRSI_CL_EV_PHASE_DIFF_REJ", "INRSI_CL_EV_PHASE_DIFF_REJ_THRESHOLD",
    "INRSI_CL_EV_PHASE_DIFF_REJ_UNEXPECTED_ACTION", "INRSI_CL_EV_PHASE_MEAS_ANALYSIS_FAILED",
    "INRSI_CL_EV_PORT_STATUS_RESET", "INRSI_CL_EV_RESET", "INRSI_CL_EV_SERVER_DOWN",
    "INRSI_CL_EV_SERVER_UP", "INRSI_CL_EV_SET_TO_IDLE", "INRSI_CL_EV_START_REQ_HANDLED",
    "INRSI_CL_EV_STOP_REQ_HANDLED", "INRSI_CL_EV_SUBSCRIBE_SERVER_STATUS_NOK",
    "INRSI_CL_EV_SUBSCRIBE_SERVER_STATUS_OK", "INRSI_CL_EV_SUP_DATA_RESET", "INRSI_CL_EV_SUP_IND_HANDLED",
    "INRSI_CL_EV_TIME_SYNC_FAILED", "INRSI_CL_EV_TIME_SYNC_SUCCEEDED", "INRSI_CL_EV_BFN_ALIGN_COMPLETED",
    "INRSI_CL_EV_BFN_ALIGN_COMPLETED_UNEXP_STATE", "INRSI_CL_EV_UNSUBSCRIBE_LINK_STATUS_NOK",
    "INRSI_CL_EV_UNSUBSCRIBE_LINK_STATUS_OK", "INRSI_CL_EV_SFC_ADJ_NOTIF_CFM",
    "INRSI_CL_EV_SFC_ADJ_NOTIF_NOK", "INRSI_CL_EV_SFC_ADJ_NOTIF_OK_DISABLED",
    "INRSI_CL_EV_SFC_ADJ_NOTIF_OK_ENABLED", "INRSI_CL_EV_SFC_ADJ_NOTIF_REJ",
    "INRSI_CL_EV_CONTINUE_SYNC_ON_LINK", "INRSI_CL_EV_CONTINUE_SYNC_FLAG_SET",
    "INRSI_CL_EV_HO_ENTRY_MP_RESTART", "INRSI_CL_EV_IMPLICIT_HO", "INRSI_CL_EV_MEAS_ONGOING_CONFLICT",
    "INRSI_CL_EV_LINK_DESELECTED", "INRSI_CL_EV_PHASE_DIFF_CFM_PORT_NOT_SELECTED",
    "INRSI_CL_EV_READ_DELTA_SIGMA", "INRSI_CL_EV_REVERTED_DELTA_SIGMA",
    "INRSI_CL_EV_IGNORED_DELTA_SIGMA_REVERSAL", "INRSI_CL_EV_LATE_PHASE_MEAS_WHILE_BFN_ALIGNING",
    "INRSI_CL_EV_LOCK_PORT_FOCUS_ERROR", "INRSI_CL_EV_LOCK_PORT_FOCUS_OVERWRITE",
    "INRSI_CL_EV_LOCK_PORT_FOCUS_SET", "INRSI_CL_EV_CLEAR_PORT_FOCUS",
    "INRSI_CL_EV_SFC_ADJ_FWD_NOTIF_OK_ENABLED", "INRSI_CL_EV_SFC_ADJ_FWD_NOTIF_OK_DISABLED",
    "INRSI_CL_EV_SFC_ADJ_FWD_NOTIF_NOK", "INRSI_CL_EV_FREQ_DIFF_REQ_OBSOLETE",
    "INRSI_CL_EV_PHASE_DIFF_REQ_OBSOLETE",
};
static_assert(std::size(EVENT_TEXT) == EVENTS);

constexpr const char* AVAILABILITY_TEXT[] = {"INRSI_AVAILABLE", "INRSI_INITIATING", "INRSI_UNAVAILABLE"};
constexpr const char* ACTION_TEXT[] = {
    "INRSI_CLIENT_IDLE", "INRSI_CLIENT_ACTION_FREQ_SCANNING", "INRSI_CLIENT_ACTION_BFN_ALIGN",
    "INRSI_CLIENT_ACTION_FREQ_SYNC", "INRSI_CLIENT_ACTION_TIME_SYNC"};
constexpr const char* SYNC_STATUS_TEXT[] = {
    "PORT_STATUS_UNKNOWN", "OK_FREQ_LOCKED", "OK_TIME_LOCKED", "CPRI_LINK_NOT_AVAILABLE",
    "FREQ_MEAS_PROBLEM", "FREQ_MEAS_MISSING", "PHASE_MEAS_PROBLEM", "PHASE_MEAS_MISSING"};

}  // namespace

const char* eventText(Event event) { return textOf(EVENT_TEXT, event, "<Unknown>"); }
const char* syncStatusText(u32 syncStatus) { return textOf(SYNC_STATUS_TEXT, syncStatus, "UNKNOWN_STATE"); }
const char* actionText(u32 action) { return textOf(ACTION_TEXT, action, "<Unknown>"); }

const char* subscribedText(const Subscribed& subscribed, char (&text)[PORTS + 1])
{
    for (const u8 port : PORTS_A_TO_F) text[port] = subscribed[port] ? static_cast<char>('A' + port) : '-';
    text[PORTS] = '\0';
    return text;
}

void printUnits(const CpriPortStatus& status, u8 ports)
{
    for (u8 port = 0; port < ports; ++port)
        for (const Slot& slot : status[port]) {
            if (slot.sharedUnitId == NO_UNIT) continue;
            shellPrintf("   port %c: unit 0x%08x, subsumed 0x%08x, link status %u, INCI %u, prefix %s\n",
                        port == PORT_X ? 'X' : 'A' + port, slot.sharedUnitId, slot.subsumedUnitId,
                        slot.linkStatus, slot.inciEstablishStatus, slot.huntPathPrefix);
        }
}

void printClient(const Client& c)
{
    char ports[PORTS + 1];
    shellPrintf("   availabilityStatus     : %s (%u)\n",
                textOf(AVAILABILITY_TEXT, c.availabilityStatus, "<Unknown>"), c.availabilityStatus);
    shellPrintf("   factoryPid             : 0x%08x\n", c.factoryPid);
    shellPrintf("   servicePid             : 0x%08x\n", c.servicePid);
    shellPrintf("   protocolRev            : %u\n", c.protocolRev[0]);
    shellPrintf("   procedureRef           : %u\n", c.procedureRef);
    shellPrintf("   connectionRef          : %u\n", c.connectionRef);
    shellPrintf("   subscribed             : %s\n", subscribedText(c.subscribed, ports));
    shellPrintf("   portNo                 : %u\n", c.portNo);
    shellPrintf("   sharedUnitId           : 0x%08x\n", c.sharedUnitId);
    for (const u8 port : PORTS_A_TO_F) {
        const Supervision& sup = c.supervision[port];
        if (sup.started)
            shellPrintf("   supervision of port %c  : %u samples, %u good, %s\n", 'A' + port, sup.supCount,
                        sup.validCount, sup.supMeasOngoing ? "one open" : "none open");
    }
}

}  // namespace inrsi
