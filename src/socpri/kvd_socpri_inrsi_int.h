// kvd_socpri_inrsi_int.h - What the two clients of the measurement server share: their record, the
// timers (kvd_socpri_inrsi_timers.cpp), connection (kvd_socpri_inrsi_conn.cpp), the table of units behind
// each port (_units), subscription and link states (_link), exchange of sync data (_inci), supervision
// (_sup), texts (_text), time data (_time). Nobody else includes it, but for the tests.
// Owner   a record belongs to its client; the shared code works on the one that it is given.
#pragma once
#include "node/sig.h"
#include "ose/ose.h"
#include "sig/inci_sig.h"
#include "sig/inrsi_sig.h"
#include "sig/tuiif_socpri_sig.h"

#include <array>
#include <iterator>

namespace inrsi {

constexpr u8  PORTS = 6;                       // A to F
constexpr u8  PORT_X = 6;                      // a master's: all links of the slave
constexpr u8  PORTS_WITH_X = 7;
constexpr u8  NO_PORT = 255;
constexpr u8  PORTS_A_TO_F[PORTS] = {0, 1, 2, 3, 4, 5};
constexpr bool isPort(u32 port) { return port < PORTS; }
constexpr bool isPortOrX(u32 port) { return port < PORTS_WITH_X; }
constexpr u32 SLOTS = 4;                       // units behind one port
constexpr u32 NO_UNIT = 0xFFFFFFFF;
constexpr AttachRef NO_ATTACH = 0xFFFFFFFF;

enum Availability : u32 { INRSI_AVAILABLE = 0, INRSI_INITIATING = 1, INRSI_UNAVAILABLE = 2 };
enum LinkStatus : u8 { LINK_NOT_AVAILABLE = 0, LINK_PRESENT = 1, LINK_AVAILABLE = 2 };
enum InciStatus : u32 { INCI_NONE = 0, INCI_ASKED = 1, INCI_ESTABLISHED = 2 };

constexpr OSTIME REQUEST_ms = 100;             // from an answer to the next request
constexpr OSTIME SUPERVISION_ms = 60000;

/// Events of both clients. A master's log holds these numbers; a slave's are places in its own list.
enum Event : u32 {
    INRSI_CL_EV_ACTIVITY_DISRUPTED, INRSI_CL_EV_CONN_ESTABLISH_CFM, INRSI_CL_EV_CONN_ESTABLISH_REJ,
    INRSI_CL_EV_ENTERED_HO, INRSI_CL_EV_FREQ_DIFF_CFM_UNEXPECTED_ACTION,
    INRSI_CL_EV_FREQ_DIFF_CFM_WRONG_PORT_NUMBER, INRSI_CL_EV_FREQ_DIFF_REJ,
    INRSI_CL_EV_FREQ_DIFF_REJ_THRESHOLD, INRSI_CL_EV_FREQ_LOCKED, INRSI_CL_EV_FREQ_SYNC_FAILED,
    INRSI_CL_EV_ACTION_ABORTED, INRSI_CL_EV_HO_ENTRY_ORDERED, INRSI_CL_EV_HO_ENTRY_DECLINED,
    INRSI_CL_EV_HO_TMO_EXPIRED, INRSI_CL_EV_INIT, INRSI_CL_EV_INIT_FREQ_SCAN, INRSI_CL_EV_INIT_BFN_ALIGN,
    INRSI_CL_EV_INIT_SYNC_ON_LINK, INRSI_CL_EV_INIT_SYNC_POSTPONED, INRSI_CL_EV_INIT_SYNC_CONTINUED,
    INRSI_CL_EV_INIT_SYNC_CONTINUED_FAILURE, INRSI_CL_EV_LINK_STATUS_CHANGE,
    INRSI_CL_EV_LINK_X_STATUS_CHANGE, INRSI_CL_EV_LINK_SC_IGNORED_PORT_NOT_SUBSCRIBED,
    INRSI_CL_EV_LINK_SC_IGNORED_PORTNO_LIMITS, INRSI_CL_EV_LINK_STATUS_RESET, INRSI_CL_EV_MEAS_TMO_EXPIRED,
    INRSI_CL_EV_MEAS_TMO_EXPIRED_SUPERVISION, INRSI_CL_EV_PHASE_DIFF_CFM_LINK_UNAVAILABLE,
    INRSI_CL_EV_PHASE_DIFF_CFM_UNEXPECTED_ACTION, INRSI_CL_EV_PHASE_DIFF_CFM_WRONG_PORT_NUMBER,
    INRSI_CL_EV_PHASE_DIFF_REJ, INRSI_CL_EV_PHASE_DIFF_REJ_THRESHOLD,
    INRSI_CL_EV_PHASE_DIFF_REJ_UNEXPECTED_ACTION, INRSI_CL_EV_PHASE_MEAS_ANALYSIS_FAILED,
    INRSI_CL_EV_PORT_STATUS_RESET, INRSI_CL_EV_RESET, INRSI_CL_EV_SERVER_DOWN, INRSI_CL_EV_SERVER_UP,
    INRSI_CL_EV_SET_TO_IDLE, INRSI_CL_EV_START_REQ_HANDLED, INRSI_CL_EV_STOP_REQ_HANDLED,
    INRSI_CL_EV_SUBSCRIBE_SERVER_STATUS_NOK, INRSI_CL_EV_SUBSCRIBE_SERVER_STATUS_OK,
    INRSI_CL_EV_SUP_DATA_RESET, INRSI_CL_EV_SUP_IND_HANDLED, INRSI_CL_EV_TIME_SYNC_FAILED,
    INRSI_CL_EV_TIME_SYNC_SUCCEEDED, INRSI_CL_EV_BFN_ALIGN_COMPLETED,
    INRSI_CL_EV_BFN_ALIGN_COMPLETED_UNEXP_STATE, INRSI_CL_EV_UNSUBSCRIBE_LINK_STATUS_NOK,
    INRSI_CL_EV_UNSUBSCRIBE_LINK_STATUS_OK, INRSI_CL_EV_SFC_ADJ_NOTIF_CFM, INRSI_CL_EV_SFC_ADJ_NOTIF_NOK,
    INRSI_CL_EV_SFC_ADJ_NOTIF_OK_DISABLED, INRSI_CL_EV_SFC_ADJ_NOTIF_OK_ENABLED,
    INRSI_CL_EV_SFC_ADJ_NOTIF_REJ, INRSI_CL_EV_CONTINUE_SYNC_ON_LINK, INRSI_CL_EV_CONTINUE_SYNC_FLAG_SET,
    INRSI_CL_EV_HO_ENTRY_MP_RESTART, INRSI_CL_EV_IMPLICIT_HO, INRSI_CL_EV_MEAS_ONGOING_CONFLICT,
    INRSI_CL_EV_LINK_DESELECTED, INRSI_CL_EV_PHASE_DIFF_CFM_PORT_NOT_SELECTED, INRSI_CL_EV_READ_DELTA_SIGMA,
    INRSI_CL_EV_REVERTED_DELTA_SIGMA, INRSI_CL_EV_IGNORED_DELTA_SIGMA_REVERSAL,
    INRSI_CL_EV_LATE_PHASE_MEAS_WHILE_BFN_ALIGNING,
    MASTER_EVENTS,
    // a slave's alone
    INRSI_CL_EV_LOCK_PORT_FOCUS_ERROR = MASTER_EVENTS, INRSI_CL_EV_LOCK_PORT_FOCUS_OVERWRITE,
    INRSI_CL_EV_LOCK_PORT_FOCUS_SET, INRSI_CL_EV_CLEAR_PORT_FOCUS, INRSI_CL_EV_SFC_ADJ_FWD_NOTIF_OK_ENABLED,
    INRSI_CL_EV_SFC_ADJ_FWD_NOTIF_OK_DISABLED, INRSI_CL_EV_SFC_ADJ_FWD_NOTIF_NOK,
    INRSI_CL_EV_FREQ_DIFF_REQ_OBSOLETE, INRSI_CL_EV_PHASE_DIFF_REQ_OBSOLETE,
    EVENTS,
};

/// A slave's events in the order of their numbers.
constexpr Event SLAVE_EVENTS[] = {
    INRSI_CL_EV_CONN_ESTABLISH_CFM, INRSI_CL_EV_CONN_ESTABLISH_REJ, INRSI_CL_EV_INIT,
    INRSI_CL_EV_LINK_STATUS_CHANGE, INRSI_CL_EV_LINK_SC_IGNORED_PORT_NOT_SUBSCRIBED,
    INRSI_CL_EV_LINK_SC_IGNORED_PORTNO_LIMITS, INRSI_CL_EV_LINK_STATUS_RESET,
    INRSI_CL_EV_LOCK_PORT_FOCUS_ERROR, INRSI_CL_EV_LOCK_PORT_FOCUS_OVERWRITE,
    INRSI_CL_EV_LOCK_PORT_FOCUS_SET, INRSI_CL_EV_CLEAR_PORT_FOCUS, INRSI_CL_EV_MEAS_TMO_EXPIRED,
    INRSI_CL_EV_PHASE_DIFF_REJ, INRSI_CL_EV_PORT_STATUS_RESET, INRSI_CL_EV_SERVER_DOWN,
    INRSI_CL_EV_SERVER_UP, INRSI_CL_EV_START_REQ_HANDLED, INRSI_CL_EV_STOP_REQ_HANDLED,
    INRSI_CL_EV_SUBSCRIBE_SERVER_STATUS_NOK, INRSI_CL_EV_SUBSCRIBE_SERVER_STATUS_OK,
    INRSI_CL_EV_SUP_DATA_RESET, INRSI_CL_EV_SUP_IND_HANDLED, INRSI_CL_EV_UNSUBSCRIBE_LINK_STATUS_NOK,
    INRSI_CL_EV_UNSUBSCRIBE_LINK_STATUS_OK, INRSI_CL_EV_SFC_ADJ_FWD_NOTIF_OK_ENABLED,
    INRSI_CL_EV_SFC_ADJ_FWD_NOTIF_OK_DISABLED, INRSI_CL_EV_SFC_ADJ_FWD_NOTIF_NOK,
    INRSI_CL_EV_SFC_ADJ_NOTIF_CFM, INRSI_CL_EV_SFC_ADJ_NOTIF_REJ, INRSI_CL_EV_REVERTED_DELTA_SIGMA,
    INRSI_CL_EV_FREQ_DIFF_REQ_OBSOLETE, INRSI_CL_EV_PHASE_DIFF_REQ_OBSOLETE,
};

/// A unit behind a port. No default values: the logs hold thousands of copies.
struct Slot {
    u32  sharedUnitId;                         // NO_UNIT: free
    u32  subsumedUnitId;                       // NO_UNIT: none
    u8   linkStatus;                           // LinkStatus
    char huntPathPrefix[INCI_PATH_SIZE];       // terminated
    u32  inciEstablishStatus;                  // InciStatus
};
constexpr Slot FREE_SLOT = {NO_UNIT, NO_UNIT, LINK_NOT_AVAILABLE, {}, INCI_NONE};

using PortUnits = std::array<Slot, SLOTS>;
using CpriPortStatus = std::array<PortUnits, PORTS_WITH_X>;
using Subscribed = std::array<bool, PORTS>;    // candidates for synchronisation

struct Supervision {
    u8 supCount = 0, validCount = 0;           // samples of a round, and the good ones
    bool supMeasOngoing = false;
    bool started = false;
    u8 concluded = 0;                          // of the round before
};

struct Role;

/// What either client knows.
struct Client {
    const Role* role = nullptr;
    PROCESS factoryPid = 0, servicePid = 0;
    AttachRef attach = NO_ATTACH;
    u32 numberOfRevisions = 1;
    u32 protocolRev[1] = {INRSI_PROTOCOL_REV};
    u32 procedureRef = 0, connectionRef = 0;
    u32 availabilityStatus = INRSI_UNAVAILABLE;
    CpriPortStatus cpriPortStatus{};
    Subscribed subscribed{};
    Subscribed asked{};                        // ports whose subscription the server hasn't answered
    u8  portNo = NO_PORT;                      // in focus
    u32 sharedUnitId = NO_UNIT;                // in focus
    std::array<Supervision, PORTS> supervision{};
};

/// What the shared code leaves to the client.
struct Role {
    bool isMaster;
    void (*log)(Event event, u32 line, bool keep);
    void (*serverLost)();                      // before the connection is forgotten
    /// A subscribed port's link is down or only present; before that is told.
    void (*linkLost)(u8 port, u8 linkStatus);
    OSTIME (*retrieveTime)();                  // of a supervision sample
    void (*supervised)(u8 port, double phaseDiff, u32 valid);
    void (*resendLinkStatus)();
};

/// `keep`: the log is copied to its snapshot.
inline void log(const Client& c, Event event, bool keep = false, ose::Place at = ose::Place::current())
{
    c.role->log(event, at.line(), keep);
}
constexpr bool KEEP = true;

/// "INRSI_CL_EV_INIT", without a name for others.
const char* eventText(Event event);
const char* syncStatusText(u32 syncStatus);
const char* actionText(u32 action);

// ---- timers --------------------------------------------------------------------------------------

/// Each port has one; a port that there isn't has none and nothing is done.
enum PortTimer : u8 { PHASE_DATA, MEAS_RETRIEVE, SUPERVISION, PORT_TIMERS };
/// A master's.
enum ClientTimer : u8 { FREQ_DATA, HOLDOVER, BFN_JUMP_WARNING, CLIENT_TIMERS };

/// Starts over when it runs already.
void startTimer(PortTimer timer, u8 port, OSTIME time_ms);
void startTimer(ClientTimer timer, OSTIME time_ms);
void cancelTimer(PortTimer timer, u8 port);
void cancelTimer(ClientTimer timer);
bool runs(PortTimer timer, u8 port);
bool runs(ClientTimer timer);
void cancelAllTimers();
/// True for a time-out that mustn't act: of a former run, or cut off. For each signal, before a client sees
/// it.
bool isVoidTimeout(Signal* sig);
/// Of a port's time-out that isn't void.
inline u8 portOfTimeout(const Signal* sig) { return reinterpret_cast<const InrsiPortTmo*>(sig)->port; }

// ---- requests ------------------------------------------------------------------------------------

/// A request with the references of the connection.
template <typename T>
T* makeRequest(Client& c, SIGSELECT sigNo)
{
    T* const req = node::make<T>(sigNo);
    req->procedureRef = c.procedureRef++;
    req->connectionRef = c.connectionRef;
    return req;
}
/// A measurement of that unit; these go to the factory.
void requestMeasurement(Client& c, SIGSELECT sigNo, u32 sharedUnitId);
/// False without the service.
bool requestBfnJumpInfo(Client& c, u32 enabled);

// ---- units ---------------------------------------------------------------------------------------

Slot* findUnit(Client& c, u8 port, u32 sharedUnitId);
/// The slot of that unit, or a free one; 0 when there is neither.
u32   mapUnitIdToArraySlot(Client& c, u8 port, u32 sharedUnitId);
/// The first unit at the port whose link has at least that status, or none.
Slot* firstUnit(Client& c, u8 port, u8 linkStatus);
/// Port A to F of a unit, NO_PORT when there is none.
u8    portOfUnit(Client& c, u32 sharedUnitId);
struct UnitReport {
    u8  linkStatus;
    u32 sharedUnitId, subsumedUnitId, subsumedValid;
    const char* huntPathPrefix;
};
void  setPortInCpriPortStatus(Client& c, u8 port, const UnitReport& report);
/// As the main processor is told: present, available, or neither.
u8    toldStatus(u8 linkStatus);
void  sendLinkStatus(u8 port, const UnitReport& report, u8 linkStatus);
void  resendLinkStatusData(Client& c);

/// Every place of the port is told as not available, and free then.
void  resetPortStatus(Client& c, u8 port);

// ---- connection (_conn) ---------------------------------------------------------------------------

void onStartReq(Client& c);
/// The server owes an answer, and is asked again without one; or it doesn't any more.
void awaitAnswer();
void cancelAnswer();
/// For those that it hasn't answered.
void askForSubscriptions(Client& c);
/// True when the signal was one of the connection.
bool dispatchConnection(Client& c, Signal* sig);

// ---- exchange of sync data with other units (_inci) ------------------------------------------------

/// A connection to the unit, unless it has one or was asked for already.
void establishInci(u8 port, Slot& slot);
/// The port's connections are given back.
void releaseInci(Client& c, u8 port);
/// The process runs from here on, and has a connection to each unit that is there.
void startInci(Client& c);
/// Its connections end with it.
void killInci(Client& c);
void onInciEstablishRsp(Client& c, const KvdTuSocpriInciEstablishRsp* rsp);

// ---- subscription, link states, life (_link) --------------------------------------------------------

void initiate(Client& c, const Role& role);
/// Timers, connection and tables, as after the initiation.
void leave(Client& c);
/// Signals that both clients take: true when it was one.
bool dispatchLink(Client& c, Signal* sig);
void mainProcessorRestarted(Client& c);

// ---- supervision ---------------------------------------------------------------------------------

/// A round begins in 60 s. Nothing for port X.
void startSupervision(Client& c, u8 port);
/// The same when there is a unit whose link is available.
void superviseIfLinked(Client& c, u8 port);
void stopSupervision(Client& c, u8 port);
/// The port has an order that doesn't last: the minute goes on, an open round doesn't.
void suspendSupervision(u8 port);
/// Nobody has the port in focus any more: it is supervised, unless its minute runs still.
void resumeSupervision(Client& c, u8 port);
void requestSupervision(Client& c, u8 port);
void onSupervisionSample(Client& c, u8 port, u32 trpDiffHigh, u32 trpDiffLow, u32 trpDiffValid);
void sendSupervisionStatus(u8 port, u32 syncStatus);

// ---- time data for other units -------------------------------------------------------------------

void answerTimeDataRequest(PROCESS to);

// ---- printout ------------------------------------------------------------------------------------

void printClient(const Client& c);
void printUnits(const CpriPortStatus& status, u8 ports);
/// "yes" for each subscribed port, as "ABCDEF" with "-" for the others.
const char* subscribedText(const Subscribed& subscribed, char (&text)[PORTS + 1]);

}  // namespace inrsi
