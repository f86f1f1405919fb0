// ipsynctsi_sig.h - Request of the IP sync proxy to its server; the answers stand in ipsynctsi.h.
#pragma once
#include "ose/types.h"

/// Name of the server's process.
constexpr const char* IPSYNCTSI_SERVER_NAME = "IpSyncTsiServer";

/// Client -> server: IpsynctsiInitiateServiceReq.
constexpr SIGSELECT IPSYNCTSI_INITIATE_SERVICE_REQ = 0x9E903;

struct IpsynctsiInitiateServiceReq {
    SIGSELECT sigNo;
    u32 pvFirstWanted;
    u32 pvSecondWanted;
    u32 pvThirdWanted;
};
static_assert(sizeof(IpsynctsiInitiateServiceReq) == 16);
