// tupktsync_syncref_int.h - Shared by tupktsync_syncref_*.cpp: the table, and what it reaches outside.
#pragma once
#include "base/kvd_timer.h"
#include "node/pktsyncdrv.h"
#include "pktsync/tupktsync_ptp_protocol.h"
#include "pktsync/tupktsync_syncref_ctrl.h"
#include "sig/tuiif_sig.h"

#include <optional>
#include <vector>

namespace syncref {

enum IndivState : u32 { FREE = 0, CREATE_PENDING, CREATED, DELETE_PENDING, CHANGE_PENDING };
enum Pending : u32 { WAIT_PKTDRV = 0x1, WAIT_CFI_MCG1 = 0x2, WAIT_CFI_MCG2 = 0x4 };
enum PktStruct : u8 {
    MULTI_ETH_TIME_PTP = 0, MULTI_IP_TIME_PTP = 1, UNI_IP_TIME_PTP = 2, UNI_IP_FREQ_PTP = 3,
    UNI_IP_FREQ_NTP = 4,
};
enum Result : u32 { SUCCESS = 0, HOST_NOT_AVAILABLE = 1, FAILURE = 2 };
constexpr i32 NOT_YET = -1;            // of an audit's row

struct Syncref {
    u32 syncRefIndivState = FREE;
    u32 pendingFlags = 0;
    i32 eventSocket = -1, generalSocket = -1;
    u32 froId = 0, froClassNo = 0;
    u8  typeOfPktStruct = 0;
    bool usePTP = false, multiCast = false;
    u8  ptpDomain = 0;
    i32 asymmetryCompensation = 0;     // ns
    bool peerDelayMechanism = false;
    PktIpAddress serverIpAddress, ownIpAddress;
    u8  dscp = 0, pbit = 0;
    u8  ptpProfile = 0;
    u8  ptpMulticastAddress = 0;
    bool isRefused = false;            // it fails once nothing is pending
    bool protocolStarted = false;
    bool selected = false;
    u32 portWord = 0;
    PtpPortIdentity port;
};

struct AuditRow {
    u32 froId = 0, froClassNo = 0;
    i32 result = NOT_YET;
};

struct HwAddr { u32 smn = 0, apn = 0, ern = 0; };
struct Latency { u32 ingress_ns, egress_ns; };

struct State;

/// What the table reaches outside of itself.
struct Needs {
    u32  (*addMCgroupUser)(u32 group);
    u32  (*removeMCgroupUser)(u32 group);
    i32  (*createSocketAndBind)(const PktIpAddress& own, u32 portKind);
    void (*removeResourceUser)(i32 resource);
    u32  (*setSyncRef)(u32 froId, const PktsyncDrvRef& ref);
    u32  (*changeSyncRef)(u32 froId, const PktsyncDrvRef& ref);
    u32  (*deleteSyncRef)(u32 froId, u32 syncrefId);
    bool (*newClock)(const PtpClockSetup& setup);
    void (*deleteClock)(u32 syncrefId);
    void (*changeClock)(u32 syncrefId, i32 delayAsymmetry, u8 pbit, u8 dscp, u8 ptpProfile);
    void (*superviseClock)(u32 syncrefId, u32 on);
    void (*selectClock)(u32 syncrefId, u32 selected);
    void (*sendToMainProcessor)(Signal** sig);
    void (*awaitAudit)(bool isAwaited);    // the list that it owes
    void (*resetClients)();
    void (*reInit)();
    void (*ready)();
};

struct State {
    u32 syncRefCtrlState = UNINITIALIZED;
    std::array<std::optional<Syncref>, PTP_CLOCKS> table;
    HwAddr ownPiuHwAddr;               // as the main processor confirmed it
    i32 selected_syncrefId = -1;
    std::optional<TuPktsyncClockRqmt> clockRqmt;
    std::vector<AuditRow> audit;
    u32 auditRemaining = 0;
    KvdTimer auditTimer;               // the main processor owes its list
    bool requestAudit = false;
    bool tuiifAlive = false;
    u32 deletionsRemaining = 0;
    bool standardIdentityTaken = false;
    u32 board = 1;
    i32 latencyAsymmetry = 0;          // ns
    const Needs* needs = nullptr;
};

State& state();
const Needs& needs();
/// Of tests; nullptr gives the true ones back.
void setNeeds(const Needs* needs);

/// 0 to 7, or nothing.
std::optional<u32> find(u32 froId, u32 froClassNo);
bool isReady(const char* request);
const char* indivStateText(u32 state);
PktIpAddress addressOf(const TuiifIpAddress& address);

// ---- tupktsync_syncref_requests.cpp -------------------------------------------------------------
void handle_CreateReq(const Signal* sig);
void onDeleteReq(const Signal* sig);
void handle_SetReq(const Signal* sig);
void onPathSupervision(const Signal* sig);
void onGetAttributes(const Signal* sig);

// ---- tupktsync_syncref_create.cpp ---------------------------------------------------------------
void create_syncref(const TuiifPktRefConfig& config);
void check_create_ready(u32 syncrefId);
void delete_syncref(u32 syncrefId);
void check_delete_ready(u32 syncrefId);
void delete_all_syncrefs();
/// What the driver is to know of it now.
void tellDriver(u32 syncrefId);
PtpClockRqmt rqmtOf(const Syncref& r);
/// An EUI-64 of six octets of the port's own. Clocks of one port differ in its filler.
void formIdentity(Syncref& r, u32 syncrefId, const std::array<u8, 6>& own);
PtpClockSetup setupOf(u32 syncrefId, const Syncref& r);
/// Of the port in use; another speed leaves it.
void setTimestampLatency(u32 linkSpeed, u32 portWord);
void resetTimestampLatency();

// ---- tupktsync_syncref_audit.cpp ----------------------------------------------------------------
void requestAudit();
/// Of this node, when the process begins and at each link up.
void readOwnAddress();
void handle_AuditCfm(const Signal* sig);
/// A row of the audit has its result.
void auditRowDone(u32 froId, u32 froClassNo, u32 result);
/// One of a mass delete's is confirmed; all of them are.
void deletionDone();
void massDeleteDone();
void onTuiifUp();
void onTuiifDown();

}  // namespace syncref
