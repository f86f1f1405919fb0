// pktsyncdrv_sig.h - Requests of the packet driver's proxy to its server; the answers stand in
// pktsyncdrv.h.
#pragma once
#include "node/pktsyncdrv.h"

/// Name of the server's process.
constexpr const char* PKTSYNCDRV_SERVER_NAME = "PktsyncDrvServer";

constexpr SIGSELECT PKTSYNCDRV_INITIATE_SERVICE_REQ = 0x9DD05;   // node::ProxyInitiateReq
constexpr SIGSELECT PKTSYNCDRV_SETSYNCREF_REQ       = 0x9DD06;   // PktsyncDrvReq
constexpr SIGSELECT PKTSYNCDRV_CHANGESYNCREF_REQ    = 0x9DD08;   // PktsyncDrvReq
constexpr SIGSELECT PKTSYNCDRV_DELETESYNCREF_REQ    = 0x9DD0A;   // PktsyncDrvReq, its reference is void

struct PktsyncDrvReq {
    SIGSELECT sigNo;
    u32 syncRefFroId;
    PktsyncDrvRef ref;
};
static_assert(sizeof(PktsyncDrvReq) == 44);
