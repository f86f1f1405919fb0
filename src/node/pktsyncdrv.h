// pktsyncdrv.h - Client of the node's packet synchronisation driver (PKTSYNCDRV): which messages get a
// time stamp, and the stamps of those that left.
// Answers come as signals to the process that initiated the service.
// Errors  0 done, any other value the service's refusal.
#pragma once
#include "node/service_proxy.h"

#include <array>
#include <cstddef>

constexpr SIGSELECT PKTSYNCDRV_SERVER_UP_IND        = 0x9DD00;   // no data
constexpr SIGSELECT PKTSYNCDRV_SERVER_DOWN_IND      = 0x9DD01;   // no data
constexpr SIGSELECT PKTSYNCDRV_INITIATE_SERVICE_CFM = 0x9DD02;   // node::ProxyInitiateAnswer
constexpr SIGSELECT PKTSYNCDRV_INITIATE_SERVICE_SUS = 0x9DD03;   // node::ProxyInitiateAnswer
constexpr SIGSELECT PKTSYNCDRV_INITIATE_SERVICE_REJ = 0x9DD04;   // node::ProxyInitiateAnswer
constexpr SIGSELECT PKTSYNCDRV_SETSYNCREF_CFM       = 0x9DD07;   // PktsyncDrvCfm
constexpr SIGSELECT PKTSYNCDRV_CHANGESYNCREF_CFM    = 0x9DD09;   // PktsyncDrvCfm
constexpr SIGSELECT PKTSYNCDRV_DELETESYNCREF_CFM    = 0x9DD0B;   // PktsyncDrvCfm
constexpr SIGSELECT PKTSYNCDRV_TIMESTAMP_IND        = 0x9DD0C;   // PktsyncDrvTimestampInd

struct PktsyncDrvCfm {
    SIGSELECT sigNo;
    u32 syncRefFroId;        // as asked for
};
static_assert(sizeof(PktsyncDrvCfm) == 8);

/// A message left: its metadata, and when, in s and 2^-32 s.
struct PktsyncDrvTimestampInd {
    SIGSELECT sigNo;
    u32 MetadataH, MetadataL;
    u32 TimestampH, TimestampL;
};
static_assert(sizeof(PktsyncDrvTimestampInd) == 20);

/// What the driver must know of a reference to find its messages.
struct PktsyncDrvRef {
    u32 syncrefId;           // as the metadata of its messages names it
    u32 transport;           // 0 Ethernet, 1 IP
    u32 portWord;            // port of the node, as the main processor names it
    u32 domainNumber;
    std::array<u8, 20> serverIpAddress;   // family and address, of IP
};

namespace node {

struct PktsyncDrvProxy;      // of one client

PktsyncDrvProxy* PktsyncDrv_initiateMemory();
void PktsyncDrv_freeMemory(PktsyncDrvProxy* proxy);
/// PKTSYNCDRV_SERVER_UP_IND comes when the service is there.
u32  PktsyncDrv_initiateServiceReq(PktsyncDrvProxy* proxy, u32 firstPv, u32 secondPv, u32 thirdPv,
                                   u32 fourthPv);
/// Takes one of the service's own signals.
u32  PktsyncDrv_internal(PktsyncDrvProxy* proxy, const Signal* sig);
/// Repeats the initiation to a server that said nothing to it; fails when there is none.
u32  PktsyncDrv_askAgain(const PktsyncDrvProxy* proxy);
u32  PktsyncDrv_setPktSyncReq(PktsyncDrvProxy* proxy, u32 syncRefFroId, const PktsyncDrvRef& ref);
u32  PktsyncDrv_changePktSyncReq(PktsyncDrvProxy* proxy, u32 syncRefFroId, const PktsyncDrvRef& ref);
u32  PktsyncDrv_deletePktSyncReq(PktsyncDrvProxy* proxy, u32 syncRefFroId);

}  // namespace node
