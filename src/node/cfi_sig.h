// cfi_sig.h - Requests of the frame service's proxy to its server; the answers stand in cfi.h.
#pragma once
#include "node/cfi.h"

/// Name of the server's process.
constexpr const char* CFI_SERVER_NAME = "CfiServer";

constexpr SIGSELECT CFI_INITIATE_SERVICE_REQ = 0x1C0603;   // node::ProxyInitiateReq
constexpr SIGSELECT CFI_ATTACH_REQ           = 0x1C0607;   // CfiAttachReq
constexpr SIGSELECT CFI_JOIN_MULTICAST_REQ   = 0x1C0611;   // CfiMulticastReq
constexpr SIGSELECT CFI_LEAVE_MULTICAST_REQ  = 0x1C0613;   // CfiMulticastReq
constexpr SIGSELECT CFI_SEND_FRAME_REQ       = 0x1C0615;   // CfiSendFrameReq

struct CfiAttachReq {
    SIGSELECT sigNo;
    u32 deviceId;
};
static_assert(sizeof(CfiAttachReq) == 8);

struct CfiMulticastReq {
    SIGSELECT sigNo;
    u32 deviceId;
    u32 macHigh;             // first four octets
    u32 macLow;              // the other two, in its upper half
    CfiFilter filter;
    u32 clientData;
};
static_assert(sizeof(CfiMulticastReq) == 40);

/// `length` octets of the frame follow, `metalength` of them metadata behind the Ethernet header.
struct CfiSendFrameReq {
    SIGSELECT sigNo;
    u32 deviceId;
    u32 length;
    u32 metalength;
};
static_assert(sizeof(CfiSendFrameReq) == 16);
