// pri_sig.h - Requests of the identity proxy to its server; the answers stand in pri.h.
#pragma once
#include "ose/types.h"

/// Name of the server's process.
constexpr const char* TARSO_PRI_SERVER_NAME = "TarsoPriServer";

// All go from client to server, without data but for the first: TarsoPriInitiateServiceReq.
constexpr SIGSELECT TARSO_PRI_INITIATE_SERVICE_REQ  = 0x60310;
constexpr SIGSELECT TARSO_PRI_TERMINATE_SERVICE_REQ = 0x60311;
constexpr SIGSELECT TARSO_PIU_OWN_IDENTITY_REQ      = 0x60312;
constexpr SIGSELECT TARSO_PIU3_OWN_HW_ADDR_REQ      = 0x60313;

struct TarsoPriInitiateServiceReq {
    SIGSELECT sigNo;
    u32 pvFirstWanted;
    u32 pvSecondWanted;
    u32 pvThirdWanted;
};
static_assert(sizeof(TarsoPriInitiateServiceReq) == 16);
