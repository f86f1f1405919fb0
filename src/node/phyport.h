// phyport.h - Client of the node's PHY port info service: which physical ports (PDH and SDH lines)
// there are and how they fare. The server is the process PHY_PORTINFO_SERVICE_NAME; the client
// hunts for it, asks it for a connection and from then on is told of its connection end points,
// ports and sync states.
// Owner   the process that attaches; the callbacks run inside its PhyPortInfo_dispatch.
// Errors  a server that refuses or dies is waited for again; nothing here stops the caller.
#pragma once
#include "ose/types.h"

#include <cstddef>

/// Name of the server's process.
constexpr const char* PHY_PORTINFO_SERVICE_NAME = "PhyPortInfoServer";
/// Number of this interface in the service's connection request.
constexpr u32 PHY_PORTINFO_INTERFACE = 664000;

constexpr SIGSELECT PHYPORT_SERVER_UP_IND   = 0xA21C0;   // hunt signal: sent by the server, no data
constexpr SIGSELECT PHYPORT_SERVER_DOWN_IND = 0xA21C1;   // attach signal: the server died, no data
constexpr SIGSELECT PHYPORT_CONNECT_REQ     = 0xA21C2;   // client -> server: PhyportConnectReq
constexpr SIGSELECT PHYPORT_CONNECT_CFM     = 0xA21C3;   // server -> client: PhyportConnectCfm
constexpr SIGSELECT PHYPORT_CONNECT_REJ     = 0xA21C4;   // server -> client: PhyportConnectRej
constexpr SIGSELECT PHYPORT_CEP_UP_IND      = 0xA21C5;   // server -> client: PhyportCepInd
constexpr SIGSELECT PHYPORT_CEP_DOWN_IND    = 0xA21C6;   // server -> client: PhyportCepInd
constexpr SIGSELECT PHYPORT_SYNC_STATE_IND  = 0xA21C7;   // server -> client: PhyportSyncStateInd
constexpr SIGSELECT PHYPORT_PORT_INFO_IND   = 0xA21C8;   // server -> client: PhyportPortInfoInd

struct PhyportConnectReq {
    SIGSELECT sigNo;
    u32 interfaceNumber;   // PHY_PORTINFO_INTERFACE
    u32 pvFirst;           // wanted protocol versions, lowest and highest
    u32 pvSecond;
};
static_assert(sizeof(PhyportConnectReq) == 16);

struct PhyportConnectCfm {
    SIGSELECT sigNo;
    u32 pv;                // selected protocol version
};
static_assert(sizeof(PhyportConnectCfm) == 8);

struct PhyportConnectRej {
    SIGSELECT sigNo;
    u32 highestPv;         // highest protocol version that the server speaks
};
static_assert(sizeof(PhyportConnectRej) == 8);

struct PhyportCepInd {
    SIGSELECT sigNo;
    u32 cepId;             // connection end point, never 0
};
static_assert(sizeof(PhyportCepInd) == 8);

struct PhyportSyncStateInd {
    SIGSELECT sigNo;
    u32 line;
    u32 syncState;         // 0 OK, 1 DEGRADED, 2 DEAD
};
static_assert(sizeof(PhyportSyncStateInd) == 12);

struct PhyportPortInfoInd {
    SIGSELECT sigNo;
    u32 cepId;
    u32 line;
    u32 froId;
    u32 stateControl;      // 0 add, 1 delete, 2 change
    u16 opState;           // 0 DISABLED, 1 ENABLED
    u16 adState;           // 0 LOCKED, 1 UNLOCKED, 2 SHUTTINGDOWN
};
static_assert(offsetof(PhyportPortInfoInd, opState) == 20 && sizeof(PhyportPortInfoInd) == 24);

namespace node {

/// One port as the service announces it.
struct PhyPort {
    u32 cepId;
    u32 line;
    u32 froId;
    u32 stateControl;
    u16 opState;
    u16 adState;
};

struct PhyPortCallbacks {
    void (*connected)(u32 cepId);
    void (*disconnected)(u32 cepId);
    void (*syncStateChange)(u32 line, u32 syncState);
    void (*portInfo)(const PhyPort& port);
};

/// Registers the calling process and starts the hunt for the server. 0 done; 1 when a callback is
/// missing or the program is registered already.
u32 PhyPortInfo_attach(const char* serviceName, u32 interfaceNumber, u32 pvFirst, u32 pvSecond,
                       const PhyPortCallbacks& callbacks);
/// Takes one of the service's signals: 1 when it was one. Never frees it.
int PhyPortInfo_dispatch(const Signal* sig);
/// The server was asked for its service and said nothing yet.
bool PhyPortInfo_owesAnswer();
/// Repeats the request to it.
void PhyPortInfo_askAgain();

}  // namespace node
