// msi.h - Client of the node's persistent memory: named regions that outlive the program.
// Negotiation and allocation are answered by signals to the process that asked. An allocated region
// is memory of the node: reading and writing take effect in the call, and only that a write is
// stored is told later, by signal to the process that allocated the region.
#pragma once
#include "ose/types.h"

#include <cstddef>

constexpr SIGSELECT TARSO_MSI_INITIATE_SERVICE_CFM = 0x601F0;   // TarsoMsiInitiateServiceCfm
constexpr SIGSELECT TARSO_MSI_INITIATE_SERVICE_REJ = 0x601F1;   // TarsoMsiRej
constexpr SIGSELECT TARSO_MSI_MEM_ALLOC_CFM        = 0x601F2;   // TarsoMsiMemAllocCfm
constexpr SIGSELECT TARSO_MSI_MEM_ALLOC_REJ        = 0x601F3;   // TarsoMsiRej
constexpr SIGSELECT TARSO_MSI_MEM_S_WRITE_CFM      = 0x60806;   // no data
constexpr SIGSELECT TARSO_MSI_MEM_S_WRITE_REJ      = 0x60807;   // TarsoMsiRej

constexpr u32 MSI_NAME_SIZE = 20;             // of a region, terminated
constexpr u32 MSI_TYPE_RECOVERED = 9;         // the region still holds what was written before

struct TarsoMsiInitiateServiceCfm {
    SIGSELECT sigNo;
    u32 signalRevision;
    u32 protocolVersion;
};
static_assert(sizeof(TarsoMsiInitiateServiceCfm) == 12);

struct TarsoMsiRej {
    SIGSELECT sigNo;
    u32 reason;
};
static_assert(sizeof(TarsoMsiRej) == 8);

struct TarsoMsiMemAllocCfm {
    SIGSELECT sigNo;
    u32 address;
    u32 type;                                 // MSI_TYPE_RECOVERED, other values: new or wiped
    u32 clientRef;                            // as in the request
    char name[MSI_NAME_SIZE];
};
static_assert(offsetof(TarsoMsiMemAllocCfm, name) == 16 && sizeof(TarsoMsiMemAllocCfm) == 36);

/// Reasons that the proxy itself gives for a negotiation that got no answer.
constexpr u32 MSI_REASON_SERVER_GONE = 100;
constexpr u32 MSI_REASON_NO_ANSWER = 101;

namespace node {

/// What the calls answer.
enum MsiResult : u32 {
    MSI_DONE = 0,            // asked; the answer comes by signal
    MSI_NO_SERVER = 1,
    MSI_IN_USE = 2,          // answered at once, or the service is in use from now on
    MSI_REFUSED = 3,
    MSI_BUSY = 4,            // try again
};

struct MsiRequest {
    char name[MSI_NAME_SIZE];
    u32 size;                // bytes
    u32 clientRef;
    u32 options;             // a word of the service's own
    u32 clear;               // 1 wipes what the region held
};

/// MSI_DONE when the service is there.
u32 TarsoMsi_contact();
/// Negotiates the first of three protocol versions that the service knows; 0 is none. With
/// MSI_IN_USE `answer` is the service's signal, now the caller's. A service that is asked and dies,
/// or says nothing for 10 s, counts as a rejection, which comes as a signal too.
u32 TarsoMsi_initiateService(u32 firstPv, u32 secondPv, u32 thirdPv, Signal*& answer);
/// Lets the proxy take an answer of the negotiation; MSI_IN_USE when it was confirmed.
u32 TarsoMsi_internal(const Signal* sig);
/// Asks for a region, keeping what it held or wiping it. `address` isn't 0 when it was answered at
/// once: a region that this program has got already.
u32 TarsoMsi_memAlloc(const MsiRequest& request, u32& address);
u32 TarsoMsi_memAllocClear(const MsiRequest& request, u32& address);
u32 TarsoMsi_memRead(u32 address, u8* to, u32 size);
u32 TarsoMsi_memSafeWrite(u32 address, const u8* from, u32 size);

}  // namespace node
