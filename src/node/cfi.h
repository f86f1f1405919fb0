// cfi.h - Client of the node's frame service (CFI): raw Ethernet frames of a device, with a block of
// metadata between header and payload that the driver takes out, or puts in.
// Answers come as signals to the process that initiated the service.
// Units   lengths in octets.
// Errors  0 done, any other value the service's refusal.
#pragma once
#include "node/service_proxy.h"

#include <array>
#include <cstddef>

constexpr SIGSELECT CFI_SERVER_UP_IND        = 0x1C0600;   // no data
constexpr SIGSELECT CFI_SERVER_DOWN_IND      = 0x1C0601;   // no data
constexpr SIGSELECT CFI_INITIATE_SERVICE_CFM = 0x1C0604;   // node::ProxyInitiateAnswer
constexpr SIGSELECT CFI_INITIATE_SERVICE_SUS = 0x1C0605;   // node::ProxyInitiateAnswer
constexpr SIGSELECT CFI_INITIATE_SERVICE_REJ = 0x1C0606;   // node::ProxyInitiateAnswer
constexpr SIGSELECT CFI_ATTACH_CFM           = 0x1C0608;   // CfiResultCfm
constexpr SIGSELECT CFI_JOIN_MULTICAST_CFM   = 0x1C0612;   // CfiResultCfm
constexpr SIGSELECT CFI_LEAVE_MULTICAST_CFM  = 0x1C0614;   // CfiResultCfm
constexpr SIGSELECT CFI_RECEIVE_FRAME_IND    = 0x1C0616;   // CfiReceiveFrameInd

struct CfiResultCfm {
    SIGSELECT sigNo;
    u32 deviceId;
    u32 result;          // 0 good
    u32 clientData;      // of the request
};
static_assert(sizeof(CfiResultCfm) == 16);

/// `length` octets of the frame follow, metadata included.
struct CfiReceiveFrameInd {
    SIGSELECT sigNo;
    u32 deviceId;
    u32 flags;
    u32 rc;
    u32 length;
    u32 metalength;
};
static_assert(sizeof(CfiReceiveFrameInd) == 24);

/// Frames that a device hands up: those with `value` under `mask` in `width` octets at `offset`.
struct CfiFilter {
    u32 kind;            // 1: one field
    u32 offset;
    u32 width;
    u32 value;
    u32 mask;
};

namespace node {

struct CfiProxy;         // of one client

CfiProxy* Cfi_initiateMemory();
void Cfi_freeMemory(CfiProxy* proxy);
/// CFI_SERVER_UP_IND comes when the service is there.
u32  Cfi_initiateServiceReq(CfiProxy* proxy, u32 firstPv, u32 secondPv, u32 thirdPv);
/// Takes one of the service's own signals.
u32  Cfi_internal(CfiProxy* proxy, const Signal* sig);
/// Repeats the initiation to a server that said nothing to it; fails when there is none.
u32  Cfi_askAgain(const CfiProxy* proxy);
u32  Cfi_attachReq(CfiProxy* proxy, u32 deviceId);
/// One join or leave at a time.
u32  Cfi_joinMulticastReq(CfiProxy* proxy, u32 deviceId, const std::array<u8, 6>& mac,
                          const CfiFilter& filter, u32 clientData);
u32  Cfi_leaveMulticastReq(CfiProxy* proxy, u32 deviceId, const std::array<u8, 6>& mac,
                           const CfiFilter& filter, u32 clientData);
/// A buffer for one frame, nullptr without one; `frameLength` counts the metadata.
u8*  Cfi_getSendBuffer(CfiProxy* proxy, u32 deviceId, u32 frameLength, u32 metadataLength);
/// The frame in the buffer that was last given out leaves.
u32  Cfi_sendFrame(CfiProxy* proxy, u8* buffer);

}  // namespace node
