#include "sim/node/msi_server.h"

#include "sim/node/node.h"

#include <algorithm>

namespace sim {

namespace {

constexpr u32 SIGNAL_REVISION = 1;
constexpr u32 TYPE_NEW = 8;
constexpr u32 ADDRESS_BASE = 0x4000'0000;
constexpr u32 ADDRESS_STEP = 0x1000;
constexpr u32 REASON_NO_PROTOCOL = 1, REASON_NO_ROOM = 2;
constexpr int NO_SUCH_MEMORY = 3;

}  // namespace

MsiServer::MsiServer(Node& node) : Server(node, TARSO_MSI_SERVER_NAME, 10) {}

bool MsiServer::flip(const std::string& region, u32 byte, u8 mask)
{
    for (MsiRegion& r : regions_) {
        if (r.name != region || byte >= r.bytes.size()) continue;
        r.bytes[byte] ^= mask;
        return true;
    }
    return false;
}

const MsiRegion* MsiServer::region(const std::string& name) const
{
    const auto found = std::find_if(regions_.begin(), regions_.end(),
                                    [&](const MsiRegion& r) { return r.name == name; });
    return found != regions_.end() ? &*found : nullptr;
}

void MsiServer::put(const std::string& region, std::span<const u8> bytes)
{
    regionFor(region).bytes.assign(bytes.begin(), bytes.end());
}

MsiRegion& MsiServer::regionFor(const std::string& name)
{
    for (MsiRegion& r : regions_)
        if (r.name == name) return r;
    const u32 address = ADDRESS_BASE + static_cast<u32>(regions_.size()) * ADDRESS_STEP;
    return regions_.emplace_back(MsiRegion{name, address, 0, 0, {}});
}

int MsiServer::state() const
{
    if (!alive()) return node::MSI_NO_SERVER;
    return answer() == Answer::Busy ? node::MSI_BUSY : node::MSI_DONE;
}

u32 MsiServer::refusal() const
{
    if (answer() == Answer::Reject) return rejectReason;
    return answer() == Answer::Suspend ? suspendReason : 0;
}

int MsiServer::read(u32 address, u8* bytes, std::size_t count)
{
    if (state() != 0) return state();
    std::size_t offset = 0;
    const MsiRegion* const region = find(address, count, offset);
    if (region == nullptr) return NO_SUCH_MEMORY;
    std::copy_n(region->bytes.data() + offset, count, bytes);
    return 0;
}

int MsiServer::write(u32 address, const u8* bytes, std::size_t count)
{
    if (state() != 0) return state();
    std::size_t offset = 0;
    MsiRegion* const region = find(address, count, offset);
    if (region == nullptr) return NO_SUCH_MEMORY;
    const u32 reason = refusal();
    if (reason == 0) std::copy_n(bytes, count, region->bytes.data() + offset);
    if (answer() == Answer::Silent) return 0;
    node_.after(delay_ms * ose::MS, [this, client = region->client, reason] {
        const TarsoMsiRej rej{TARSO_MSI_MEM_S_WRITE_REJ, reason};
        const Signal cfm{TARSO_MSI_MEM_S_WRITE_CFM};
        node_.system().inject(reason != 0 ? std::as_bytes(std::span(&rej, 1))
                                          : std::as_bytes(std::span(&cfm, 1)),
                              client, pid());
    });
    return 0;
}

void MsiServer::onSignal(Signal* sig, PROCESS from)
{
    if (answer() == Answer::Silent) return;
    switch (sig->sigNo) {
    case TARSO_MSI_INITIATE_SERVICE_REQ:
        if (ose::sigsize(&sig) >= sizeof(TarsoMsiInitiateServiceReq))
            negotiate(*reinterpret_cast<const TarsoMsiInitiateServiceReq*>(sig), from);
        return;
    case TARSO_MSI_MEM_ALLOC_REQ:
        if (ose::sigsize(&sig) >= sizeof(TarsoMsiMemAllocReq))
            allocate(reinterpret_cast<const TarsoMsiMemAllocReq*>(sig)->request, from);
        return;
    default: return;
    }
}

void MsiServer::negotiate(const TarsoMsiInitiateServiceReq& req, PROCESS from)
{
    u32 reason = refusal();
    u32 selected = 0;
    for (const u32 pv : {req.pvFirstWanted, req.pvSecondWanted, req.pvThirdWanted})
        if (selected == 0 && pv <= highestPv) selected = pv;
    if (reason == 0 && selected == 0) reason = REASON_NO_PROTOCOL;
    if (reason != 0) return send(from, TarsoMsiRej{TARSO_MSI_INITIATE_SERVICE_REJ, reason});
    send(from, TarsoMsiInitiateServiceCfm{TARSO_MSI_INITIATE_SERVICE_CFM, SIGNAL_REVISION, selected});
}

void MsiServer::allocate(const node::MsiRequest& request, PROCESS from)
{
    const char* const nameEnd = std::find(request.name, request.name + MSI_NAME_SIZE, '\0');
    const std::string name{request.name, nameEnd};
    u32 reason = refusal();
    if (reason == 0 && refusedRegions.contains(name)) reason = rejectReason;
    u32 used = 0;
    for (const MsiRegion& r : regions_)
        if (r.name != name) used += static_cast<u32>(r.bytes.size());
    if (reason == 0 && (used > room || request.size > room - used)) reason = REASON_NO_ROOM;
    if (reason != 0) return send(from, TarsoMsiRej{TARSO_MSI_MEM_ALLOC_REJ, reason});

    MsiRegion& region = regionFor(name);
    const bool recovered = region.bytes.size() == request.size && request.clear == 0;
    region.clientRef = request.clientRef;
    region.client = from;
    if (!recovered) region.bytes.assign(request.size, 0);
    TarsoMsiMemAllocCfm cfm{TARSO_MSI_MEM_ALLOC_CFM, region.address,
                            recovered ? MSI_TYPE_RECOVERED : TYPE_NEW, request.clientRef, {}};
    name.copy(cfm.name, sizeof cfm.name - 1);
    send(from, cfm);
}

MsiRegion* MsiServer::find(u32 address, std::size_t count, std::size_t& offset)
{
    for (MsiRegion& r : regions_) {
        if (address < r.address || address - r.address >= ADDRESS_STEP) continue;
        offset = address - r.address;
        return count <= r.bytes.size() && offset <= r.bytes.size() - count ? &r : nullptr;
    }
    return nullptr;
}

}  // namespace sim
