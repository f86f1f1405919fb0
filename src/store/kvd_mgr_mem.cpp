#include "store/kvd_mgr_mem.h"

#include "base/trace_groups.h"
#include "base/tu_common.h"
#include "node/bytes.h"
#include "node/platform.h"
#include "node/sig.h"
#include "ose/module_data.h"
#include "store/hali_msi.h"
#include "store/kvd_mgr_mem_int.h"
#include "store/kvd_mgr_mem_upcalls.h"

#include <algorithm>
#include <cstring>
#include <string_view>

using mem::Region;

namespace {

ose::ModuleData<mem::State> s;

struct RegionRow { mem::RegionIndex index; u32 clientRef; std::string_view name; u32 size; };
constexpr RegionRow REGIONS[] = {
    {mem::REG_HIST,       MEM_REG_HIST,   "TuRegHistData",   MEM_REG_HIST_SIZE},
    {mem::GPS_OUT_OFFSET, MEM_GPS_OUT,    "GpsOutMfnOffset", 8},
    {mem::GPS_OUT_SUM,    MEM_GPS_OUT,    "GpsOutV1",        4},
    {mem::REG_NF,         MEM_REG_NF,     "TuRegNfDataV0",   MEM_REG_NF_SIZE},
    {mem::SLAVE_WARM,     MEM_SLAVE_WARM, "SlaveWarmData",   MEM_SLAVE_WARM_SIZE},
};
static_assert(sizeof REGIONS / sizeof *REGIONS == mem::REGION_COUNT);

constexpr u32 ALLOCATE_OPTIONS = 272;    // the service's own word
constexpr OSTIME ASK_AGAIN_ms = 600'000;

void releaseStart()
{
    if (s->startReleased) return;        // a second release would ask the main processor again
    s->startReleased = true;
    MEM_UPCALLS.serviceAnswered();
}

void requestRegion(Region& region, u32 clear)
{
    node::MsiRequest request{};
    std::memcpy(request.name, region.name, sizeof request.name);
    request.size = region.size;
    request.clientRef = region.clientRef;
    request.options = ALLOCATE_OPTIONS;
    request.clear = clear;
    KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO,
              "Memory allocation data: name=%s, size=%u, clientRef=%u, clear=%c", request.name, request.size,
              request.clientRef, clear != 0 ? 'T' : 'F');
    u32 address = 0;
    const u32 result = HALI_msiAllocate(request, address);
    if (address != 0) region.address = address;
    if (result != node::MSI_DONE)
        KVD_TRACE(TRACE_TUMGR_PROC, TRACE_ERROR, "Memory allocation failed, name=%s result=%u", request.name,
                  result);
}

/// False for no client.
bool want(u32 clientRef, u32 clear)
{
    bool known = false;
    for (Region& r : s->region) {
        if (r.clientRef != clientRef) continue;
        known = r.wanted = true;
        r.clear = clear;
    }
    return known;
}

bool isMissing(const Region& r) { return r.wanted && !r.valid; }

/// A service that comes late, or didn't hear, would leave the unit without memory for the rest of its life.
void askAgainLater()
{
    if (!KvdTimer_start(s->askAgainTimer, ASK_AGAIN_ms, KVD_TUMEM_ASK_AGAIN_TMO))
        KVD_TRACE(TRACE_TUMGR_PROC, TRACE_ERROR, "timer of persistent memory refused");
}

/// The last of the table first: what a slave's start waits for.
void requestMissing()
{
    for (auto r = s->region.rbegin(); r != s->region.rend(); ++r)
        if (isMissing(*r)) requestRegion(*r, r->clear);
    if (std::ranges::any_of(s->region, isMissing)) askAgainLater();
}

// ---- answers of the service ---------------------------------------------------------------------

void onInitiateServiceCfm(const TarsoMsiInitiateServiceCfm* cfm)
{
    if (cfm == nullptr) return;
    KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO, "Service Request accepted by MSI proxy, sigRev=%u, PV=%u",
              cfm->signalRevision, cfm->protocolVersion);
    if (node::TarsoMsi_internal(reinterpret_cast<const Signal*>(cfm)) != node::MSI_IN_USE) {
        KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO, "Unexpected response from MSI proxy");
        return releaseStart();
    }
    s->msiState = 1;
    releaseStart();
    for (const u32 clientRef : {MEM_SLAVE_WARM, MEM_REG_NF}) want(clientRef, 0);
    requestMissing();                    // a service that comes late was asked for others before
}

void onInitiateServiceRej(const TarsoMsiRej* rej)
{
    if (rej == nullptr) return;
    node::TarsoMsi_internal(reinterpret_cast<const Signal*>(rej));
    KVD_TRACE(TRACE_TUMGR_PROC, TRACE_ERROR, "Request rejected by MSI proxy, reason=%u", rej->reason);
    releaseStart();
    askAgainLater();
}

/// The region of a client by its name, nullptr when the client has none of that name.
Region* regionOf(u32 clientRef, const char* name)
{
    for (Region& r : s->region)
        if (r.clientRef == clientRef && std::strncmp(r.name, name, MSI_NAME_SIZE) == 0) return &r;
    return nullptr;
}

void take(Region& region, const TarsoMsiMemAllocCfm& cfm)
{
    region.address = cfm.address;
    region.type = cfm.type;
    region.valid = cfm.address != 0;
}

void gpsOutAllocated(const TarsoMsiMemAllocCfm& cfm)
{
    Region* const region = regionOf(MEM_GPS_OUT, cfm.name);
    if (region == nullptr) return;
    take(*region, cfm);
    mem::refreshShadow(MEM_GPS_OUT);
    const u8* const data = s->gpsOutShadow;
    if (region == &s->region[mem::GPS_OUT_OFFSET])
        KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO, "Successfully restored gpsOutData (mfnOffset=%u, mfn=%u)",
                  node::be32(data), node::be32(data + 4));
    else
        KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO, "Successfully restored gpsOutDataV1 (ckhsum=0x%08x)",
                  node::be32(data + 8));
}

void regNfAllocated(const TarsoMsiMemAllocCfm& cfm)
{
    take(s->region[mem::REG_NF], cfm);
    mem::refreshShadow(MEM_REG_NF);
    KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO,
              "Successfully restored TuRegNfDataV0 (ckhsum=0x%08x, sfcGpsOffset=%s)",
              node::be32(s->regNfShadow), TuCommon_text(node::beDouble(s->regNfShadow + MEM_REG_NF_OFFSET)));
    // A regulator that has taken its offset already knows better than the region; one that hasn't
    // will compare with what stood there before the restart.
    double offset_s = 0.0;
    if (!MEM_UPCALLS.timeOffset(offset_s)) return;
    u8 data[MEM_REG_NF_SIZE];
    std::memcpy(data, s->regNfShadow, sizeof data);
    node::putBeDouble(&data[MEM_REG_NF_OFFSET], offset_s);
    KvdLoz6TuMem_write(MEM_REG_NF, data, sizeof data);
}

void slaveWarmAllocated(const TarsoMsiMemAllocCfm& cfm)
{
    Region* const region = regionOf(MEM_SLAVE_WARM, cfm.name);
    if (region == nullptr) {
        KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO,
                  "Successfully restored SlaveWarmRestartData unknown MSI region");
        return;
    }
    take(*region, cfm);
    u8 head[8] = {};
    node::TarsoMsi_memRead(region->address, head, sizeof head);   // zeros are traced when it fails
    KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO,
              "Successfully restored SlaveWarmRestartData ckhsum=0x%08x, size=%u ", node::be32(head),
              node::be32(head + 4));
    if (!s->pending) return;
    if (KvdLoz6TuMem_write(MEM_SLAVE_WARM, s->slaveWarmPending, MEM_SLAVE_WARM_SIZE)) {
        KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO, "Updated IDL2 Slave MSI memory");
        s->pending = false;
    } else {
        KVD_TRACE(TRACE_TUMGR_PROC, TRACE_ERROR, "Failed to write IDL2 Slave MSI memory");
    }
}

void onMemAllocCfm(const TarsoMsiMemAllocCfm* cfm)
{
    if (cfm == nullptr) return;
    node::TarsoMsi_internal(reinterpret_cast<const Signal*>(cfm));
    switch (cfm->clientRef) {
    case MEM_REG_HIST:   take(s->region[mem::REG_HIST], *cfm);   break;
    case MEM_GPS_OUT:    gpsOutAllocated(*cfm);                  break;
    case MEM_REG_NF:     regNfAllocated(*cfm);                   break;
    case MEM_SLAVE_WARM: slaveWarmAllocated(*cfm);               break;
    default: KVD_TRACE(TRACE_TUMGR_PROC, TRACE_ERROR, "Invalid clientRef=%u", cfm->clientRef); break;
    }
}

void onMemAllocRej(const TarsoMsiRej* rej)
{
    if (rej == nullptr) return;
    KVD_TRACE(TRACE_TUMGR_PROC, TRACE_ERROR, "Memory alloc rejected by MSI proxy, reason=%u", rej->reason);
}

void onMemSWriteCfm()
{
    // Several for each write of a client: too many for the default mask.
    KVD_TRACE(TRACE_TUMGR_PROC, TRACE_3, "Persistent memory was successfully stored");
}

void onMemSWriteRej(const TarsoMsiRej* rej)
{
    if (rej == nullptr) return;
    KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO, "Memory write was rejected by MSI proxy, reason=%u", rej->reason);
}

void negotiate()
{
    const int result = HALI_msiInitiate();
    if (result == 0) return;
    KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO, "Protocol Negotiation failed with MSI proxy, reason=%u",
              static_cast<u32>(result));
    releaseStart();
    askAgainLater();
}

void onAskAgainTimeout()
{
    if (!KvdTimer_expired(s->askAgainTimer)) return;
    if (s->msiState == 1) requestMissing();
    else                  negotiate();
}

}  // namespace

mem::State& mem::state() { return *s; }

void KvdLoz6TuMem_initiate()
{
    for (const RegionRow& row : REGIONS) {
        Region& r = s->region[row.index] = Region{};
        r.clientRef = row.clientRef;
        r.size = row.size;
        row.name.copy(r.name, sizeof r.name);
    }
    s->pending = false;
    negotiate();
}

bool KvdLoz6TuMem_dispatch(Signal* sig)
{
    switch (sig->sigNo) {
    case TARSO_MSI_INITIATE_SERVICE_CFM:
        onInitiateServiceCfm(as<TarsoMsiInitiateServiceCfm>(sig));                    break;
    case TARSO_MSI_INITIATE_SERVICE_REJ: onInitiateServiceRej(as<TarsoMsiRej>(sig));  break;
    case TARSO_MSI_MEM_ALLOC_CFM:        onMemAllocCfm(as<TarsoMsiMemAllocCfm>(sig)); break;
    case TARSO_MSI_MEM_ALLOC_REJ:        onMemAllocRej(as<TarsoMsiRej>(sig));         break;
    case TARSO_MSI_MEM_S_WRITE_CFM:      onMemSWriteCfm();                            break;
    case TARSO_MSI_MEM_S_WRITE_REJ:      onMemSWriteRej(as<TarsoMsiRej>(sig));        break;
    case KVD_TUMEM_ASK_AGAIN_TMO:        onAskAgainTimeout();                         break;
    default:                                                                          return false;
    }
    return true;
}

void KvdLoz6TuMem_allocate(u32 clientRef, u32 clear)
{
    const bool known = want(clientRef, clear);
    if (known) askAgainLater();
    if (s->msiState != 1) {
        KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO, "Memory allocation is not possible");
        return;
    }
    if (!known) {
        KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO, "Invalid clientRef=%u", clientRef);
        return;
    }
    for (Region& r : s->region)
        if (r.clientRef == clientRef) requestRegion(r, clear);
}

bool KvdLoz6TuMem_ready(u32 clientRef)
{
    bool known = false;
    for (const Region& r : s->region) {
        if (r.clientRef != clientRef) continue;
        known = true;
        if (!r.valid) return false;
    }
    return known;
}

void KvdLoz6TuMem_printInfo()
{
    node::shellPrintf("\n***** Persistent memory *****\n   msiState           : %u\n", s->msiState);
    node::shellPrintf("   slave data pending : %u\n", s->pending ? 1u : 0u);
    for (const Region& r : s->region) {
        const char* const content = !r.valid                          ? "not allocated"
                                    : r.type == MSI_TYPE_RECOVERED ? "recovered"
                                                                   : "alloc";
        node::shellPrintf("   %-18s : clientRef=%u size=%u address=0x%08x %s\n", r.name, r.clientRef, r.size,
                          r.address, content);
    }
}
