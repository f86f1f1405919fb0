// ipsocki_sig.h - Requests of the socket service's proxy to its server; the answers stand in ipsocki.h,
// the socket calls in platform.h.
#pragma once
#include "node/ipsocki.h"

/// Name of the server's process.
constexpr const char* TARSO_IPSOCKI_SERVER_NAME = "TarsoIpsockiServer";

constexpr SIGSELECT TARSO_IPSOCKI_INITIATE_SERVICE_REQ   = 0x111102;   // TarsoIpsockiInitiateReq
constexpr SIGSELECT TARSO_IPSOCKI_ACREDIT_REQ            = 0x111109;   // TarsoIpsockiAcreditReq
constexpr SIGSELECT TARSO_IPSOCKI4_TERMINATE_SERVICE_REQ = 0x11110B;   // no data

struct TarsoIpsockiInitiateReq {
    SIGSELECT sigNo;
    node::ProtocolVersions wanted;
    u32 apn, piuInstanceId;          // of the host
};
static_assert(sizeof(TarsoIpsockiInitiateReq) == 28);

struct TarsoIpsockiAcreditReq {
    SIGSELECT sigNo;
    u32 credit;
    u32 maxUndelivered;
};
static_assert(sizeof(TarsoIpsockiAcreditReq) == 12);
