// slowpi_sig.h - Requests of the slow protocol service's proxy to its server; the answers stand in slowpi.h.
#pragma once
#include "node/slowpi.h"

/// Name of the server's process.
constexpr const char* SLOWPI_SERVER_NAME = "SlowpiServer";

// All go from client to server.
constexpr SIGSELECT SLOWPI_INITIATE_SERVICE_REQ = 0x190C72;   // SlowpiInitiateServiceReq
constexpr SIGSELECT SLOWPI_SUBSCRIBE_REQ        = 0x190C76;   // SlowpiSubscribeReq
constexpr SIGSELECT SLOWPI_UNSUBSCRIBE_REQ      = 0x190C78;   // SlowpiSubscribeReq
constexpr SIGSELECT SLOWPI_SEND_FRAME_IND       = 0x190C7A;   // SlowpiFrame and the frame's bytes

struct SlowpiInitiateServiceReq {
    SIGSELECT sigNo;
    u32 pvFirstWanted;
    u32 pvSecondWanted;
    u32 pvThirdWanted;
};
static_assert(sizeof(SlowpiInitiateServiceReq) == 16);

struct SlowpiSubscribeReq {
    SIGSELECT sigNo;
    u32 oui;               // organisation, 24 bits
    u8  subtype;
};
static_assert(offsetof(SlowpiSubscribeReq, oui) == 4 && offsetof(SlowpiSubscribeReq, subtype) == 8);
