// slowpi.h - Client of the node's slow protocol service (SLOWPI): sends and receives slow protocol frames
// (IEEE 802.3 annex 57A) of one subtype on the Ethernet ports. The service lives in a process of the node
// that may come later and go away; its answers and the frames come as signals to the process that
// initiated the service.
// Owner   the process that holds the context.
// Errors  0 is done. Any other value means that nothing was asked of the service.
#pragma once
#include "ose/types.h"

#include <cstddef>

struct Signal;

constexpr SIGSELECT SLOWPI_SERVER_UP_IND        = 0x190C70;   // no data
constexpr SIGSELECT SLOWPI_SERVER_DOWN_IND      = 0x190C71;   // no data
constexpr SIGSELECT SLOWPI_INITIATE_SERVICE_CFM = 0x190C73;   // SlowpiInitiateServiceCfm
constexpr SIGSELECT SLOWPI_INITIATE_SERVICE_SUS = 0x190C74;   // SlowpiInitiateServiceRej
constexpr SIGSELECT SLOWPI_INITIATE_SERVICE_REJ = 0x190C75;   // SlowpiInitiateServiceRej
constexpr SIGSELECT SLOWPI_SUBSCRIBE_RSP        = 0x190C77;   // SlowpiResultRsp
constexpr SIGSELECT SLOWPI_UNSUBSCRIBE_RSP      = 0x190C79;   // SlowpiResultRsp
constexpr SIGSELECT SLOWPI_RECEIVE_FRAME_IND    = 0x190C7B;   // SlowpiFrame and the frame's bytes

struct SlowpiInitiateServiceCfm {
    SIGSELECT sigNo;
    u32 signalRevision;
    u32 selectedPv;
};
static_assert(sizeof(SlowpiInitiateServiceCfm) == 12);

struct SlowpiInitiateServiceRej {
    SIGSELECT sigNo;
    u32 signalRevision;
    u32 highestAvailablePv;
};
static_assert(sizeof(SlowpiInitiateServiceRej) == 12);

struct SlowpiResultRsp {
    SIGSELECT sigNo;
    u8 result;             // 0 done
};
static_assert(offsetof(SlowpiResultRsp, result) == 4);

/// Stands before a frame in both directions.
struct SlowpiFrame {
    SIGSELECT sigNo;
    u32 length;            // bytes of the frame, from its destination address on
};
static_assert(offsetof(SlowpiFrame, length) == 4 && sizeof(SlowpiFrame) == 8);

namespace node {

struct SlowpiContext;      // of one client

/// nullptr when there is no room for a context; a program has one.
SlowpiContext* Slowpi_initiateMemory();
/// The context is gone; a service that it was connected to is left.
void Slowpi_freeMemory(SlowpiContext* context);
/// Asks for the service, now or as soon as its server comes. The answer is one of CFM, SUS, REJ.
u32 Slowpi_initiateServiceReq(SlowpiContext* context, u32 firstPv, u32 secondPv, u32 thirdPv);
/// Repeats the request to a server that said nothing to it; not 0 when there is none.
u32  Slowpi_askAgain(const SlowpiContext* context);
/// Lets the proxy take one of the service's own signals: server up and down, CFM, SUS, REJ.
u32 Slowpi_internal(SlowpiContext* context, const Signal* sig);
/// Frames of a subtype and organisation; the answer is SLOWPI_SUBSCRIBE_RSP, SLOWPI_UNSUBSCRIBE_RSP.
u32 Slowpi_subscribeReq(SlowpiContext* context, u8 subtype, u32 oui);
u32 Slowpi_unsubscribeReq(SlowpiContext* context, u8 subtype, u32 oui);
/// Sends a frame of 1 to SLOWPI_FRAME_MAX bytes; the service pads a short one.
constexpr u32 SLOWPI_FRAME_MAX = 1514;
u32 Slowpi_sendFrameInd(SlowpiContext* context, u32 length, const u8* frame);

}  // namespace node
