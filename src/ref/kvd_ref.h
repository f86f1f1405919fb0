// kvd_ref.h - Table of supervised reference paths, its filters, inter-unit link machines.
// Owner   the manager process; the toggle monitor only reads lastToggleStatus.
// Units   timers in ms.
// Errors  a refused timer is traced; the path keeps its status and the next change tries again.
#pragma once
#include "base/kvd_timer.h"
#include "ref/ref_types.h"

struct Signal;

constexpr u32 REF_ROWS = 12;
constexpr u32 ROW_TU = 5, ROW_GPS = 6, ROW_HPTSI = 7, ROW_ETHA = 8, ROW_ETHB = 9, ROW_ETHC = 10,
              ROW_GPSOSL = 11;

enum RefStatus : u32 { REF_STATUS_UNK = 0, REF_STATUS_ON = 1, REF_STATUS_OFF = 2 };
enum FilterType : u32 { NO_FILTER = 0, HO_FILTER = 1, WTR_FILTER = 2 };
enum GpsExtToggle : u32 { NO_TOGGLE = 0, EXT_TOGGLE = 1, GPS_TOGGLE = 2 };

struct RefDesc {
    u32 supervisionStatus = 0;
    u32 refStatus = REF_STATUS_UNK;
    u32 filterType = NO_FILTER;
    u8 refType = NO_REF;
    u32 stateBits = 0;                 // Ethernet reference's own state
    u32 froId = FRO_NONE;
    u32 froClassNo = FRO_NONE;
    KvdTimer filterTimer;
};

int  KvdLoz6TuRef_dispatch(Signal* sig);
void KvdLoz6TuRef_restart(u32 isFirstStart);
u32  KvdLoz6TuRef_isFirstStart();

u32  KvdLoz6TuRef_rowOfRefType(u8 refType);
RefDesc& KvdLoz6TuRef_row(u32 row);            // for the references' own handlers
u32  KvdLoz6TuRef_toggleMask(u32 row);
u32  KvdLoz6TuRef_stateMask(u32 row);
u32  KvdLoz6TuRef_lastToggleStatus();
u32  KvdLoz6TuRef_noChangeCounter();           // toggle indications that changed nothing
u32  KvdLoz6TuRef_refStatusBits();
void KvdLoz6TuRef_setRefStatusBits(u32 bits);
void KvdLoz6TuRef_clearRefStatusBits(u32 bits);
u32  KvdLoz6TuRef_gpsExtToggle();
u32  KvdLoz6TuRef_prevGpsToggle();
void KvdLoz6TuRef_setGpsExtToggle(u32 toggle);
u32  KvdLoz6TuRef_ethStatusSent();
void KvdLoz6TuRef_setEthStatusSent(u32 sent);
const char* KvdLoz6TuRef_refTypeText(u8 refType);   // "<Unknown>" for any other value

/// Common operations of the references' supervision handlers.
void KvdLoz6TuRef_startSupervision(const Signal* sig, u32 row);
/// The board's one serial line is wanted by the front end of that row, or by the output with REF_ROWS: those
/// that went on while the main processor was away and aren't supervised any more give it up.
void KvdLoz6TuRef_freeSerialLine(u32 wantedRow);
void KvdLoz6TuRef_stopFilter(u32 row);
/// A port's line ends (port service): supervision of its row ends.
void KvdLoz6TuRef_lineEnd(u32 line);
/// A supervised port has another line, or another froId: its supervision goes with it, and a selection, too.
void KvdLoz6TuRef_lineMoved(u32 fromLine, u32 toLine, u32 froId);

/// Inter-unit links.
enum IdlPort : u32 { IDLPORT_1 = 0, IDLPORT_2 = 1 };
enum IdlState : u32 {
    IDL_UNKNOWN = 0,
    IDL_SUPERVISED = 1,
    IDL_ON = 2,
    IDL_OFF = 3,
    IDL_WAIT_TO_RESTORE = 4
};
u32  KvdLoz6TuRef_idlState(u32 port);
/// Starts a port's supervision with 1, ends it with any other value.
void KvdLoz6TuRef_idlSupervision(u32 port, u32 on);
/// The main processor went away: both ports unknown, tuiifRefState 0.
void KvdLoz6TuRef_idlReset();
/// Request of the port data or server interface: supervision of port 2 starts from IDL_ON.
void KvdLoz6TuRef_idl2Supervise();
/// A slave's link port works: supervision of port 2 starts, if nothing but the port was missing.
void KvdLoz6TuRef_idl2PortAvailable();
/// Master became slave, or slave master: what the old role waited for is over.
void KvdLoz6TuRef_roleChanged();
/// One interrupt step of a port's machine: the other end was heard.
void KvdLoz6TuRef_idlInterrupt(u32 port);
/// A new main processor knows nothing of the links yet: a slave's loop has a minute to hear its leader again.
void KvdLoz6TuRef_awaitLeader();
/// A slave took a word of port 1, fresh or one of before. Without fresh ones it keeps its loop for a minute, as
/// without the link: a leader that warms up sends none.
void KvdLoz6TuRef_idl1Words(bool areFresh);
/// Link port that carries IDL2, 0 to 5; a change goes to the port history.
void KvdLoz6TuRef_setSynchPortNo(u8 synchPortNo);

/// Sync data of port 2 on a slave: 40 ms from request to data, 50 expiries tell that data stopped.
void KvdLoz6TuRef_startIdl2SyncDataTimer();
void KvdLoz6TuRef_stopIdl2SyncDataTimer();
bool KvdLoz6TuRef_idl2SyncDataTimerRuns();
u32  KvdLoz6TuRef_idl2SyncDataIndTmoCntr();
void KvdLoz6TuRef_setIdl2SyncDataIndTmoCntr(u32 expiries);

/// GPS out sync link: 300 s in which a deselected, locked reference still holds its loop.
void KvdLoz6TuRef_startGpsOslHoldover();
void KvdLoz6TuRef_stopGpsOslHoldover();
void KvdLoz6TuRef_clearGpsOslHoldoverTimer();

/// "turef" section of kvdinfo.
void KvdLoz6TuRef_printInfo();
