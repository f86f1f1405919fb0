#include "store/hali_msi.h"

#include "base/trace_groups.h"
#include "node/trace.h"
#include "ose/ose.h"
#include "store/kvd_mgr_mem.h"

namespace {

constexpr u32 MSI_ATTEMPTS = 3;
constexpr OSTIME MSI_NEGOTIATE_PAUSE_ms = 200;
constexpr OSTIME MSI_ALLOCATE_PAUSE_ms = 100;

/// Calls until the proxy isn't busy any more.
template <typename Call>
u32 whileMsiBusy(OSTIME pause_ms, Call call)
{
    u32 result = call();
    for (u32 attempt = 1; attempt < MSI_ATTEMPTS && result == node::MSI_BUSY; ++attempt) {
        ose::delay(pause_ms);
        result = call();
    }
    return result;
}

}  // namespace

int HALI_msiInitiate()
{
    if (node::TarsoMsi_contact() != node::MSI_DONE) {
        KVD_TRACE(TRACE_HALI, TRACE_ERROR, "Unable to obtain contact to MSI proxy");
        return -1;
    }
    constexpr u32 PV_FIRST = 5, PV_SECOND = 4, PV_THIRD = 0;
    Signal* answer = nullptr;
    const u32 result = whileMsiBusy(MSI_NEGOTIATE_PAUSE_ms, [&answer] {
        return node::TarsoMsi_initiateService(PV_FIRST, PV_SECOND, PV_THIRD, answer);
    });
    if (result == node::MSI_DONE) return 0;
    if (result == node::MSI_IN_USE) {
        KvdLoz6TuMem_dispatch(answer);
        ose::free_buf(&answer);
        return 0;
    }
    KVD_TRACE(TRACE_HALI, TRACE_ERROR, "Protocol Negotiation failed with MSI proxy, reason=%d",
              static_cast<int>(result));
    return -1;
}

u32 HALI_msiAllocate(const node::MsiRequest& request, u32& address)
{
    return whileMsiBusy(MSI_ALLOCATE_PAUSE_ms, [&request, &address] {
        return request.clear != 0 ? node::TarsoMsi_memAllocClear(request, address)
                                  : node::TarsoMsi_memAlloc(request, address);
    });
}
