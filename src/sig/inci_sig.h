// inci_sig.h - Signals of the process that exchanges sync data with other units: with the manager
// (KVD_TUSOCPRI_INCI_...), with the same process of another unit (SYNC-INCI), and its own.
// Units   timers in ms; references are numbers of a connection, as each side gave them.
#pragma once
#include "ose/types.h"

#include <cstddef>

// ---- with the manager ----

constexpr SIGSELECT KVD_TUSOCPRI_INCI_ESTABLISH_REQ     = 0x9C6D7;   // manager -> process
constexpr SIGSELECT KVD_TUSOCPRI_INCI_ESTABLISH_RSP     = 0x9C6D8;   // process -> manager
constexpr SIGSELECT KVD_TUSOCPRI_INCI_RELEASE_REQ       = 0x9C6D9;   // manager -> process
constexpr SIGSELECT KVD_TUSOCPRI_INCI_RELEASE_RSP       = 0x9C6DA;   // process -> manager
constexpr SIGSELECT KVD_TUSOCPRI_INCI_ESTABLISH_TMO     = 0x9C6DB;   // internal: InciClientInd
constexpr SIGSELECT KVD_TUSOCPRI_INCI_GET_TIME_DATA_REQ = 0x9C6DC;   // process -> manager, no data
constexpr SIGSELECT KVD_TUSOCPRI_INCI_GET_TIME_DATA_RSP = 0x9C6DD;   // manager -> process
constexpr SIGSELECT KVD_TUSOCPRI_INCI_GET_TIME_DATA_TMO = 0x9C6DE;   // internal, no data
constexpr SIGSELECT KVD_NGPDUHIF_ANSWER_TMO             = 0x9C6CF;   // internal, no data
constexpr SIGSELECT NGSC_INCI_CLIENT_DOWN_IND           = 0x9C6F9;   // attach: InciServerInd
constexpr SIGSELECT PSX_IW_NGSC_INCI_SERVER_UP_IND      = 0x9C6FA;   // hunt: InciClientInd
constexpr SIGSELECT PSX_IW_NGSC_INCI_SERVER_DOWN_IND    = 0x9C6FB;   // attach: InciClientInd

constexpr u32 INCI_PATH_SIZE = 100;        // chars with the terminator
constexpr u32 INCI_NO_UNIT   = 0xFFFFFFFF; // subsumedUnitId: none

struct KvdTuSocpriInciEstablishReq {
    SIGSELECT sigNo;
    char huntPathPrefix[INCI_PATH_SIZE];
    u8  cpriPortNo;
    u32 sharedId;
    u32 subsumedUnitId;
};
static_assert(offsetof(KvdTuSocpriInciEstablishReq, cpriPortNo) == 104);
static_assert(offsetof(KvdTuSocpriInciEstablishReq, subsumedUnitId) == 112);
static_assert(sizeof(KvdTuSocpriInciEstablishReq) == 116);

struct KvdTuSocpriInciEstablishRsp {
    SIGSELECT sigNo;
    u8  cpriPortNo;
    u32 sharedId;
    u32 subsumedUnitId;
    u32 subsumedIdValid;       // 1: there is a client of the subsumed unit
    u32 result;                // 1 established, 0 not
};
static_assert(offsetof(KvdTuSocpriInciEstablishRsp, sharedId) == 8);
static_assert(sizeof(KvdTuSocpriInciEstablishRsp) == 24);

struct KvdTuSocpriInciReleaseReq {
    SIGSELECT sigNo;
    u8  cpriPortNo;
    u32 sharedId;
    u32 remove;                // not 0: put out of use at once, without a word to the peer
};
static_assert(offsetof(KvdTuSocpriInciReleaseReq, remove) == 12);
static_assert(sizeof(KvdTuSocpriInciReleaseReq) == 16);

struct KvdTuSocpriInciReleaseRsp {
    SIGSELECT sigNo;
    u8  cpriPortNo;
    u32 sharedId;
    u32 result;                // 1: the peer is asked, 0: there is nothing to release
};
static_assert(sizeof(KvdTuSocpriInciReleaseRsp) == 16);

struct KvdTuSocpriInciGetTimeDataRsp {
    SIGSELECT sigNo;
    u32 eSfc;
    u16 mfn, sfn;
    u32 inc;
    u8  clockState;
    u16 jumpState;
    u32 timeDataValid;
};
static_assert(offsetof(KvdTuSocpriInciGetTimeDataRsp, sfn) == 10);
static_assert(offsetof(KvdTuSocpriInciGetTimeDataRsp, inc) == 12);
static_assert(offsetof(KvdTuSocpriInciGetTimeDataRsp, clockState) == 16);
static_assert(offsetof(KvdTuSocpriInciGetTimeDataRsp, jumpState) == 18);
static_assert(offsetof(KvdTuSocpriInciGetTimeDataRsp, timeDataValid) == 20);
static_assert(sizeof(KvdTuSocpriInciGetTimeDataRsp) == 24);

// ---- the process's own ----

struct InciClientInd {
    SIGSELECT sigNo;
    u32 clientRef;
};
struct InciServerInd {
    SIGSELECT sigNo;
    u32 serverConnectionRef;
};

// ---- SYNC-INCI, between two units ----

constexpr const char* INCI_PROCESS = "PsxIwNgscInciServer";

constexpr SIGSELECT PSX_IW_NGSC_INCI_CONN_ESTABLISH_REQ     = 0x1700300;   // client -> server
constexpr SIGSELECT PSX_IW_NGSC_INCI_CONN_ESTABLISH_CFM     = 0x1700301;   // server -> client
constexpr SIGSELECT PSX_IW_NGSC_INCI_CONN_ESTABLISH_REJ     = 0x1700302;   // server -> client
constexpr SIGSELECT PSX_IW_NGSC_INCI_SUBSCRIBE_NGSM_BCM_REQ = 0x1700303;   // client -> server: InciRefs
constexpr SIGSELECT PSX_IW_NGSC_INCI_SUBSCRIBE_NGSM_BCM_CFM = 0x1700304;   // server -> client: InciRefs
constexpr SIGSELECT PSX_IW_NGSC_INCI_SUBSCRIBE_NGSM_BCM_REJ = 0x1700305;   // server -> client: InciRej
constexpr SIGSELECT PSX_IW_NGSC_INCI_BROADCAST_MESSAGE_IND  = 0x1700306;   // server -> client, revision 1
constexpr SIGSELECT PSX_IW_NGSC_INCI_CONN_RELEASE_REQ       = 0x1700307;   // client -> server: InciRefs
constexpr SIGSELECT PSX_IW_NGSC_INCI_CONN_RELEASE_CFM       = 0x1700308;   // server -> client: InciRefs
constexpr SIGSELECT PSX_IW_NGSC_INCI_BROADCAST_MESSAGE2_IND = 0x1700309;   // server -> client, revision 2

enum InciErrorCode : u8 {
    INCI_NO_SUPPORTED_REVISION = 1,
    INCI_CLIENT_NOT_CONNECTED = 2,
    INCI_TOO_MANY_CLIENTS = 3,
};

struct InciRefs {
    SIGSELECT sigNo;
    u32 procedureRef, connectionRef;
};
static_assert(offsetof(InciRefs, connectionRef) == 8 && sizeof(InciRefs) == 12);

struct InciRej {                // of a connection, of a subscription
    SIGSELECT sigNo;
    u32 procedureRef, connectionRef;
    u8  errorCode;
};
static_assert(offsetof(InciRej, errorCode) == 12 && sizeof(InciRej) == 16);

struct InciConnEstablishReq {   // the revisions follow
    SIGSELECT sigNo;
    u32 procedureRef, connectionRef;
    u32 numberOfRevisions;
};
static_assert(sizeof(InciConnEstablishReq) == 16);

struct InciConnEstablishCfm {
    SIGSELECT sigNo;
    u32 procedureRef, connectionRef;
    u32 protocolRevision;
};
static_assert(sizeof(InciConnEstablishCfm) == 16);

struct InciBroadcastMessageInd {
    SIGSELECT sigNo;
    u32 procedureRef, connectionRef;
    u32 ngsmNodeIdentifier;
    u32 extendedCbfnCounter;    // bits 3 to 7 mfn, from bit 8 esfc
    u32 realTimeOffsetSeconds;
    u32 realTimeOffsetNanoSeconds;
    u16 syncNodePriority;
    u16 syncRefCandidate;
    u16 lockedTo;
    alignas(4) u16 syncProviderNodePriority;
    u16 syncProviderSelectedReference;
    u16 syncProviderSyncState;
    u32 syncProviderTimeAccuracy;
    u16 syncProviderCbfnJumpIndication;
    u8  hopCounter;
    u8  ituTQualityLevel;       // 0
};
static_assert(offsetof(InciBroadcastMessageInd, extendedCbfnCounter) == 16);
static_assert(offsetof(InciBroadcastMessageInd, lockedTo) == 32);
static_assert(offsetof(InciBroadcastMessageInd, syncProviderNodePriority) == 36);
static_assert(offsetof(InciBroadcastMessageInd, syncProviderTimeAccuracy) == 44);
static_assert(offsetof(InciBroadcastMessageInd, ituTQualityLevel) == 51);
static_assert(sizeof(InciBroadcastMessageInd) == 52);

struct InciBroadcastMessage2Ind {
    SIGSELECT sigNo;
    u32 procedureRef, connectionRef;
    u32 ngsmNodeIdentifier;
    u32 extendedCbfnCounter;    // bits 0 to 4 mfn, from bit 5 esfc
    u32 extendedCbfnBfn;        // sfn
    u32 realTimeOffsetSeconds;
    u32 realTimeOffsetNanoSeconds;
    u16 syncNodePriority;
    u16 syncRefCandidate;
    u16 lockedTo;
    alignas(4) u16 syncProviderNodePriority;
    u16 syncProviderSelectedReference;
    u16 syncProviderSyncState;
    u32 syncProviderTimeAccuracy;
    u16 syncProviderCbfnJumpIndication;
    u8  hopCounter;
    u8  ituTQualityLevel;       // 0
};
static_assert(offsetof(InciBroadcastMessage2Ind, extendedCbfnBfn) == 20);
static_assert(offsetof(InciBroadcastMessage2Ind, lockedTo) == 36);
static_assert(offsetof(InciBroadcastMessage2Ind, syncProviderNodePriority) == 40);
static_assert(offsetof(InciBroadcastMessage2Ind, syncProviderTimeAccuracy) == 48);
static_assert(offsetof(InciBroadcastMessage2Ind, ituTQualityLevel) == 55);
static_assert(sizeof(InciBroadcastMessage2Ind) == 56);
