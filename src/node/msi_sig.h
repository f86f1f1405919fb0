// msi_sig.h - Requests of the persistent memory proxy to its server; the answers stand in msi.h.
#pragma once
#include "node/msi.h"

/// Name of the server's process.
constexpr const char* TARSO_MSI_SERVER_NAME = "TarsoMsiServer";

// Both go from client to server.
constexpr SIGSELECT TARSO_MSI_INITIATE_SERVICE_REQ = 0x60200;   // TarsoMsiInitiateServiceReq
constexpr SIGSELECT TARSO_MSI_MEM_ALLOC_REQ        = 0x60201;   // TarsoMsiMemAllocReq

struct TarsoMsiInitiateServiceReq {
    SIGSELECT sigNo;
    u32 pvFirstWanted;
    u32 pvSecondWanted;
    u32 pvThirdWanted;
};
static_assert(sizeof(TarsoMsiInitiateServiceReq) == 16);

struct TarsoMsiMemAllocReq {
    SIGSELECT sigNo;
    node::MsiRequest request;
};
static_assert(sizeof(TarsoMsiMemAllocReq) == 40);
