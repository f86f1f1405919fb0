// ngpduhif.h - Client of the node's NGPDUHIF service, which holds the sync group logic of the node: signals,
// layouts, and the requests of a client. Answers come as signals to the client's process.
// Owner   the process that serves SYNC-INCI.
// Units   references are numbers of a connection, as each side gave them.
#pragma once
#include "ose/types.h"

#include <cstddef>

/// Name of the service at the name server.
constexpr const char* NGPDUHIF_SERVICE_NAME = "KvdNgpduhifServiceName";

constexpr SIGSELECT KVD_NGPDUHIF_CONN_ESTABLISH_REQ      = 0x9C6E1;   // client -> server
constexpr SIGSELECT KVD_NGPDUHIF_CONN_ESTABLISH_CFM      = 0x9C6E2;   // server -> client
constexpr SIGSELECT KVD_NGPDUHIF_CONN_ESTABLISH_REJ      = 0x9C6E3;   // server -> client
constexpr SIGSELECT KVD_NGPDUHIF_HANDSHAKE_PDU_REQ       = 0x9C6E4;   // client -> server
constexpr SIGSELECT KVD_NGPDUHIF_HANDSHAKE_PDU_CFM       = 0x9C6E5;   // server -> client
constexpr SIGSELECT KVD_NGPDUHIF_HANDSHAKE_PDU_REJ       = 0x9C6E6;   // server -> client
constexpr SIGSELECT KVD_NGPDUHIF_SEND_BCM_DATA_IND       = 0x9C6E7;   // server -> client
constexpr SIGSELECT KVD_NGPDUHIF_RECEIVE_BCM_DATA_IND    = 0x9C6E8;   // client -> server
constexpr SIGSELECT KVD_NGPDUHIF_SERVER_CONN_RELEASE_REQ = 0x9C6E9;   // client -> server
constexpr SIGSELECT KVD_NGPDUHIF_SERVER_CONN_RELEASE_RSP = 0x9C6EA;   // server -> client
constexpr SIGSELECT KVD_NGPDUHIF_CLIENT_CONN_RELEASE_REQ = 0x9C6EB;   // client -> server
constexpr SIGSELECT KVD_NGPDUHIF_CLIENT_CONN_RELEASE_RSP = 0x9C6EC;   // server -> client
constexpr SIGSELECT KVD_NGPDUHIF_TIME_DATA_IND           = 0x9C6ED;   // client -> server

struct KvdNgpduhifConnEstablishReq {
    SIGSELECT sigNo;
    u32 clientRef, serverRef;
    u32 protocolRev[3];        // first, second and third wanted
    u32 apn;
};
static_assert(offsetof(KvdNgpduhifConnEstablishReq, protocolRev) == 12);
static_assert(offsetof(KvdNgpduhifConnEstablishReq, apn) == 24);
static_assert(sizeof(KvdNgpduhifConnEstablishReq) == 28);

struct KvdNgpduhifConnEstablishCfm {
    SIGSELECT sigNo;
    u32 clientRef, serverRef;
    u32 protocolRev;
    u32 nodeIdentifier;        // of the node in its sync group
};
static_assert(offsetof(KvdNgpduhifConnEstablishCfm, nodeIdentifier) == 16);

struct KvdNgpduhifConnEstablishRej {
    SIGSELECT sigNo;
    u32 clientRef, serverRef;
    u8  errorCode;
};
static_assert(offsetof(KvdNgpduhifConnEstablishRej, errorCode) == 12);

/// KVD_NGPDUHIF_HANDSHAKE_PDU_CFM, _REJ.
struct KvdNgpduhifRefs {
    SIGSELECT sigNo;
    u32 clientRef, serverRef;
};
static_assert(sizeof(KvdNgpduhifRefs) == 12);

/// KVD_NGPDUHIF_HANDSHAKE_PDU_REQ, both release requests.
struct KvdNgpduhifConnReq {
    SIGSELECT sigNo;
    u32 clientRef, serverRef;
    u32 connId;                // inciServerConnId, inciConnId: reference of the SYNC-INCI connection
};
static_assert(offsetof(KvdNgpduhifConnReq, connId) == 12 && sizeof(KvdNgpduhifConnReq) == 16);

/// Both release responses.
struct KvdNgpduhifConnReleaseRsp {
    SIGSELECT sigNo;
    u32 clientRef, serverRef;
    u32 connId;
    u32 responseOk;
};
static_assert(offsetof(KvdNgpduhifConnReleaseRsp, responseOk) == 16);

struct KvdNgpduhifSendBcmDataInd {
    SIGSELECT sigNo;
    u32 clientRef, serverRef;
    u32 serverConnectionRef;   // SYNC-INCI connection that the data is for
    u16 syncNodePriority;
    u16 syncRefCandidate;
    u16 lockedTo;
    u16 syncProviderNodePriority;
    u16 syncProviderSelectedReference;
    u16 syncProviderSyncState;
    u32 syncProviderTimeAccuracy;
    u16 hopCounter;
    u32 dataValid;             // 0: the signal is dropped
    u32 translateSyncState;    // 1: syncProviderSyncState is a clock state of ours
    u32 esfc;
    u16 mfn, sfn;
    u16 syncProviderCbfnJumpIndication;
    u32 realTimeOffsetSeconds;
    u32 realTimeOffsetNanoSeconds;
};
static_assert(offsetof(KvdNgpduhifSendBcmDataInd, serverConnectionRef) == 12);
static_assert(offsetof(KvdNgpduhifSendBcmDataInd, syncProviderSyncState) == 26);
static_assert(offsetof(KvdNgpduhifSendBcmDataInd, hopCounter) == 32);
static_assert(offsetof(KvdNgpduhifSendBcmDataInd, dataValid) == 36);
static_assert(offsetof(KvdNgpduhifSendBcmDataInd, esfc) == 44);
static_assert(offsetof(KvdNgpduhifSendBcmDataInd, syncProviderCbfnJumpIndication) == 52);
static_assert(offsetof(KvdNgpduhifSendBcmDataInd, realTimeOffsetNanoSeconds) == 60);
static_assert(sizeof(KvdNgpduhifSendBcmDataInd) == 64);

struct KvdNgpduhifReceiveBcmDataInd {
    SIGSELECT sigNo;
    u32 clientRef, serverRef;
    u32 connectionRef;         // of the SYNC-INCI client that the broadcast came to
    u16 syncNodePriority;
    u16 syncRefCandidate;
    u16 lockedTo;
    u16 syncProviderNodePriority;
    u16 nodeGroupSyncRefSelected;
    u16 syncProviderSyncState;
    u32 syncProviderTimeAccuracy;
    u16 syncProviderBfnJumpIndication;
    u16 hopCounter;
    u8  riPortNo;
    u32 sharedId;
    u32 esfc;
    u16 mfn;
    u32 dataRTOSeconds;
    u32 dataRTONanoseconds;
    u32 ngsmNodeIdentifier;    // of the sender
    u32 apn;                   // of this unit
};
static_assert(offsetof(KvdNgpduhifReceiveBcmDataInd, connectionRef) == 12);
static_assert(offsetof(KvdNgpduhifReceiveBcmDataInd, syncProviderTimeAccuracy) == 28);
static_assert(offsetof(KvdNgpduhifReceiveBcmDataInd, riPortNo) == 36);
static_assert(offsetof(KvdNgpduhifReceiveBcmDataInd, sharedId) == 40);
static_assert(offsetof(KvdNgpduhifReceiveBcmDataInd, mfn) == 48);
static_assert(offsetof(KvdNgpduhifReceiveBcmDataInd, dataRTOSeconds) == 52);
static_assert(offsetof(KvdNgpduhifReceiveBcmDataInd, apn) == 64);
static_assert(sizeof(KvdNgpduhifReceiveBcmDataInd) == 68);

struct KvdNgpduhifTimeDataInd {
    SIGSELECT sigNo;
    u32 eSfc;
    u16 mfn, sfn;
    u8  clockState;
    u16 cbfnJumpInd;
    u32 dataRTOSeconds;        // both 0xFFFFFFFF: no offset known
    u32 dataRTONanoseconds;
};
static_assert(offsetof(KvdNgpduhifTimeDataInd, mfn) == 8);
static_assert(offsetof(KvdNgpduhifTimeDataInd, clockState) == 12);
static_assert(offsetof(KvdNgpduhifTimeDataInd, cbfnJumpInd) == 14);
static_assert(offsetof(KvdNgpduhifTimeDataInd, dataRTONanoseconds) == 20);
static_assert(sizeof(KvdNgpduhifTimeDataInd) == 24);

namespace node {

/// The server and both references of the connection to it.
struct NgpduhifPeer {
    PROCESS pid;
    u32 clientRef, serverRef;
};

void Ngpduhif_connEstablish(const NgpduhifPeer& peer, u32 protocolRev, u32 apn);
/// Has the server broadcast to this connection of the SYNC-INCI server.
void Ngpduhif_handshakePdu(const NgpduhifPeer& peer, u32 inciServerConnId);
void Ngpduhif_serverConnRelease(const NgpduhifPeer& peer, u32 inciServerConnId);
void Ngpduhif_clientConnRelease(const NgpduhifPeer& peer, u32 inciConnId);
/// The peer's references and the number go in here.
void Ngpduhif_receiveBcmData(const NgpduhifPeer& peer, const KvdNgpduhifReceiveBcmDataInd& data);
void Ngpduhif_timeData(PROCESS server, const KvdNgpduhifTimeDataInd& data);

}  // namespace node
