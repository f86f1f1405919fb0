// Bringing a syncref up and taking it down: what it needs is asked for in order, and the answers are
// gathered until none is missing.
#include "base/trace_groups.h"
#include "node/bytes.h"
#include "node/sig.h"
#include "pktsync/tupktsync_cfi_client.h"
#include "pktsync/tupktsync_ipsocki_client.h"
#include "pktsync/tupktsync_pdu.h"
#include "pktsync/tupktsync_syncref_int.h"

#include <algorithm>

namespace syncref {

namespace {

constexpr u8 STANDARD_IDENTITY = 0xFE;     // second filler octet of an EUI-64 from an EUI-48
constexpr u32 IDENTITY_OCTET = 4;
constexpr u32 BOARD_BVQ3 = 2;
constexpr i32 HOST_MISSING = -2;           // of createSocketAndBind

// By link speed 4 and 6, each with a port word other than 0 and with 0; by board.
constexpr Latency LATENCY_BVQ1[] = {{7750, 1340}, {8191, 1605}, {1070, 230}, {1354, 434}};
constexpr Latency LATENCY_BVQ3[] = {{0, 0}, {446, 277}, {0, 0}, {291, 148}};
constexpr Latency LATENCY_INITIAL = {1354, 434};

i32 asymmetry(const Latency& l) { return static_cast<i32>(l.egress_ns) - static_cast<i32>(l.ingress_ns); }
u32 groupOf(const Syncref& r) { return r.ptpMulticastAddress != FORWARDABLE ? 1 : 0; }
u32 groupFlag(u32 group) { return group == 0 ? WAIT_CFI_MCG1 : WAIT_CFI_MCG2; }
bool inAudit() { return state().syncRefCtrlState == AUDIT_CREATE_PENDING; }

u8 mappingOf(u8 typeOfPktStruct)
{
    return typeOfPktStruct == MULTI_ETH_TIME_PTP  ? PTP_ETHERNET
           : typeOfPktStruct == MULTI_IP_TIME_PTP ? UDP_MC
                                                  : UDP_UC;
}

/// The next clock takes the standard identity when this one had it.
void giveIdentityBack(const Syncref& r)
{
    if (r.port.clockIdentity[IDENTITY_OCTET] == STANDARD_IDENTITY) state().standardIdentityTaken = false;
}

/// The octets that tell a host from its neighbours: an IPv4 address, the end of an IPv6 one.
std::array<u8, 6> hostOctets(const PktIpAddress& own)
{
    constexpr u32 IPV6 = 6;
    std::array<u8, 6> octets{};
    if (own.family == IPV6) std::copy_n(own.octets.end() - 6, 6, octets.begin());
    else std::copy_n(own.octets.begin(), 4, octets.begin());
    return octets;
}

void answer(const Syncref& r, u32 result)
{
    auto* cfm = node::make<KvdTuiifCreatePktRefRoCfm>(KVD_TUIIF_CREATE_PKT_REF_RO_CFM);
    cfm->froId = r.froId;
    cfm->froClassNo = r.froClassNo;
    cfm->apn = state().ownPiuHwAddr.apn;
    cfm->result = result;
    Signal* sig = reinterpret_cast<Signal*>(cfm);
    needs().sendToMainProcessor(&sig);
}

/// A creation is through, for better or worse.
void conclude(const Syncref& r, u32 result)
{
    if (inAudit()) auditRowDone(r.froId, r.froClassNo, result);
    else if (state().syncRefCtrlState != AUDIT_DELETE_PENDING) answer(r, result);
}

void fail(u32 syncrefId, u32 result)
{
    const Syncref r = *state().table[syncrefId];
    giveIdentityBack(r);
    state().table[syncrefId].reset();
    conclude(r, result);
}

// ---- by kind of transport -----------------------------------------------------------------------

u32 bringUpEthernet(Syncref& r, u32 syncrefId, const TuiifPktRefConfig& config)
{
    r.usePTP = true;
    r.multiCast = true;
    r.ptpDomain = config.ptpDomain;
    r.asymmetryCompensation = config.asymmetryCompensation;
    r.pbit = config.pbit;
    r.peerDelayMechanism = config.peerDelayMechanism != 0;
    r.ptpProfile = config.ptpProfile;
    r.ptpMulticastAddress = config.ptpMulticastAddress;
    std::array<u8, 6> mac;
    std::copy_n(config.macAddress, mac.size(), mac.begin());
    formIdentity(r, syncrefId, mac);
    TuPktsync_PDU_setMacAddress(mac);
    setTimestampLatency(config.linkSpeed, config.portWord);
    const u32 group = groupOf(r);
    const u32 result = needs().addMCgroupUser(group);
    if (result == GROUP_NO_SERVICE) return FAILURE;
    if (result != 0) r.pendingFlags |= groupFlag(group);
    return SUCCESS;
}

i32 openSocket(const Syncref& r, u32 syncrefId, u32 portKind, const char* name)
{
    const i32 resource = needs().createSocketAndBind(r.ownIpAddress, portKind);
    if (resource == HOST_MISSING)
        KVD_TRACE(TRACE_TUPKTSYNC_SYNCREF_CTRL, TRACE_ERROR,
                  "host not available when creating %s-message socket for syncrefId %d", name, syncrefId);
    else if (resource < 0)
        KVD_TRACE(TRACE_TUPKTSYNC_SYNCREF_CTRL, TRACE_ERROR,
                  "failed to create %s-message socket for syncrefId %d", name, syncrefId);
    return resource;
}

u32 bringUpUnicastFrequency(Syncref& r, u32 syncrefId, const TuiifPktRefConfig& config)
{
    r.usePTP = true;
    r.ptpDomain = config.ptpDomain;
    r.dscp = config.dscp;
    r.serverIpAddress = addressOf(config.serverIpAddress);
    r.ownIpAddress = addressOf(config.ownIpAddress);
    formIdentity(r, syncrefId, hostOctets(r.ownIpAddress));
    r.eventSocket = openSocket(r, syncrefId, SOCKET_EVENT, "event");
    const auto isOpen = [](i32 resource) { return resource >= 0; };
    if (isOpen(r.eventSocket)) r.generalSocket = openSocket(r, syncrefId, SOCKET_GENERAL, "general");
    if (isOpen(r.generalSocket)) return SUCCESS;
    const bool isHost = r.eventSocket == HOST_MISSING || r.generalSocket == HOST_MISSING;
    if (isOpen(r.eventSocket)) needs().removeResourceUser(r.eventSocket);
    return isHost ? HOST_NOT_AVAILABLE : FAILURE;
}

u32 bringUp(Syncref& r, u32 syncrefId, const TuiifPktRefConfig& config)
{
    switch (r.typeOfPktStruct) {
    case MULTI_ETH_TIME_PTP: return bringUpEthernet(r, syncrefId, config);
    case UNI_IP_FREQ_PTP:    return bringUpUnicastFrequency(r, syncrefId, config);
    case MULTI_IP_TIME_PTP:
        KVD_TRACE(TRACE_TUPKTSYNC_SYNCREF_CTRL, TRACE_ERROR, "MULTI_IP_TIME_PTP not yet implemented");
        return FAILURE;
    case UNI_IP_TIME_PTP:
        KVD_TRACE(TRACE_TUPKTSYNC_SYNCREF_CTRL, TRACE_ERROR, "UNI_IP_TIME_PTP not yet implemented");
        return FAILURE;
    case UNI_IP_FREQ_NTP:
        KVD_TRACE(TRACE_TUPKTSYNC_SYNCREF_CTRL, TRACE_ERROR, "UNI_IP_FREQ_NTP not yet implemented");
        return FAILURE;
    default: KVD_TRACE(TRACE_TUPKTSYNC_SYNCREF_CTRL, TRACE_ERROR, "Unknown typeOfPktStruct"); return FAILURE;
    }
}

PktsyncDrvRef driverRef(u32 syncrefId, const Syncref& r)
{
    constexpr u32 ETHERNET = 0, IP = 1;
    PktsyncDrvRef ref{};
    ref.syncrefId = syncrefId;
    ref.transport = r.typeOfPktStruct == MULTI_ETH_TIME_PTP ? ETHERNET : IP;
    ref.portWord = r.portWord;
    ref.domainNumber = r.ptpDomain;
    node::putBe32(ref.serverIpAddress.data(), r.serverIpAddress.family);
    std::copy(r.serverIpAddress.octets.begin(), r.serverIpAddress.octets.end(),
              ref.serverIpAddress.begin() + 4);
    return ref;
}

/// 0 when the driver couldn't be asked. A time and a frequency reference may have one froId, which the
/// driver forgets as a whole: the other one is told again.
u32 forgetAtDriver(u32 syncrefId)
{
    const auto& table = state().table;
    const u32 froId = table[syncrefId]->froId;
    const u32 asked = needs().deleteSyncRef(froId, syncrefId);
    for (const u32 id : PTP_CLOCK_IDS) {
        const auto& r = table[id];
        const bool isTwin = id != syncrefId && r && r->froId == froId;
        if (isTwin && r->syncRefIndivState != DELETE_PENDING) tellDriver(id);
    }
    return asked;
}

void removeSockets(Syncref& r)
{
    for (i32* const socket : {&r.eventSocket, &r.generalSocket}) {
        if (*socket >= 0) needs().removeResourceUser(*socket);
        *socket = -1;
    }
}

void removePartialSetup(u32 syncrefId)
{
    Syncref& r = *state().table[syncrefId];
    KVD_TRACE(TRACE_TUPKTSYNC_SYNCREF_CTRL, TRACE_ERROR, "Removing unsuccessful partial setup");
    if (r.typeOfPktStruct == MULTI_ETH_TIME_PTP) needs().removeMCgroupUser(groupOf(r));
    removeSockets(r);
    giveIdentityBack(r);
    state().table[syncrefId].reset();
}

}  // namespace

// ---- create -------------------------------------------------------------------------------------

void create_syncref(const TuiifPktRefConfig& config)
{
    auto& table = state().table;
    const auto free = std::find_if(table.begin(), table.end(), [](const auto& r) { return !r; });
    Syncref wanted;
    wanted.froId = config.froId;
    wanted.froClassNo = config.froClassNo;
    wanted.typeOfPktStruct = config.typeOfPktStruct;
    wanted.portWord = config.portWord;
    if (free == table.end()) {
        KVD_TRACE(TRACE_TUPKTSYNC_SYNCREF_CTRL, TRACE_ERROR, "new_syncref_entry: max syncrefs already exist");
        return conclude(wanted, FAILURE);
    }
    const u32 syncrefId = static_cast<u32>(free - table.begin());
    Syncref& r = free->emplace(wanted);
    r.syncRefIndivState = CREATE_PENDING;
    const u32 result = bringUp(r, syncrefId, config);
    if (result != SUCCESS) return fail(syncrefId, result);
    r.pendingFlags |= WAIT_PKTDRV;
    if (needs().setSyncRef(r.froId, driverRef(syncrefId, r)) != 0) return;
    const Syncref told = r;                  // without a driver there would never be a stamp
    removePartialSetup(syncrefId);
    conclude(told, FAILURE);
}

void tellDriver(u32 syncrefId)
{
    const Syncref& r = *state().table[syncrefId];
    needs().changeSyncRef(r.froId, driverRef(syncrefId, r));
}

PtpClockRqmt rqmtOf(const Syncref& r)
{
    PtpClockRqmt rqmt;
    if (!state().clockRqmt) return rqmt;
    const TuPktsyncClockRqmt& saved = *state().clockRqmt;
    const bool isFrequency = r.typeOfPktStruct == UNI_IP_FREQ_PTP;
    rqmt.minSyncInterval = saved.minPktInterval;
    rqmt.maxSyncInterval = saved.maxPktInterval;
    rqmt.maxDelayReqInterval = saved.maxPktInterval;
    rqmt.clockClass = isFrequency ? saved.freqClockClass : saved.timeClockClass;
    rqmt.freqClockClassG8265_1 = saved.freqClockClassG8265_1;
    rqmt.clockAccuracy = isFrequency ? saved.freqClockAccuracy : saved.timeClockAccuracy;
    return rqmt;
}

PtpClockSetup setupOf(u32 syncrefId, const Syncref& r)
{
    PtpClockSetup setup;
    setup.syncrefId = syncrefId;
    setup.froId = r.froId;
    setup.froClassNo = r.froClassNo;
    setup.ptpMapping = mappingOf(r.typeOfPktStruct);
    setup.domainNumber = r.ptpDomain;
    setup.serverIpAddress = r.serverIpAddress;
    setup.clockIdentity = r.port.clockIdentity;
    setup.delayAsymmetry = r.asymmetryCompensation;
    setup.peerDelayMechanism = r.peerDelayMechanism;
    setup.dscp = r.dscp;
    setup.pbit = r.pbit;
    setup.ptpProfile = r.ptpProfile;
    setup.ptpMulticastAddress = r.ptpMulticastAddress;
    setup.eventSocket = r.eventSocket;
    setup.generalSocket = r.generalSocket;
    setup.rqmt = rqmtOf(r);
    return setup;
}

void check_create_ready(u32 syncrefId)
{
    Syncref& r = *state().table[syncrefId];
    if (r.syncRefIndivState != CREATE_PENDING || r.pendingFlags != 0) return;
    u32 result = r.isRefused ? FAILURE : SUCCESS;
    if (r.usePTP && result == SUCCESS) {
        r.protocolStarted = needs().newClock(setupOf(syncrefId, r));
        if (!r.protocolStarted) {
            KVD_TRACE(TRACE_TUPKTSYNC_SYNCREF_CTRL, TRACE_ERROR, "Failed to start protcol instance");
            result = FAILURE;
        }
    }
    const bool isUnwanted = state().syncRefCtrlState == AUDIT_DELETE_PENDING;
    const Syncref told = r;
    if (result == SUCCESS) r.syncRefIndivState = CREATED;
    // The answer stands before what follows from it: an audit's last row may delete everything.
    if (result != SUCCESS) {
        forgetAtDriver(syncrefId);
        if (!inAudit()) conclude(told, result);
        removePartialSetup(syncrefId);
        if (inAudit()) conclude(told, result);
        else if (isUnwanted) deletionDone();
        return;
    }
    if (isUnwanted) return delete_syncref(syncrefId);
    conclude(told, result);
}

// ---- delete -------------------------------------------------------------------------------------

void delete_syncref(u32 syncrefId)
{
    Syncref& r = *state().table[syncrefId];
    if (r.syncRefIndivState != CREATED) {
        KVD_TRACE(TRACE_TUPKTSYNC_SYNCREF_CTRL, TRACE_ERROR, "Delete request received when in state=%s",
                  indivStateText(r.syncRefIndivState));
        return;
    }
    r.syncRefIndivState = DELETE_PENDING;
    if (state().selected_syncrefId == static_cast<i32>(syncrefId)) state().selected_syncrefId = -1;
    if (r.protocolStarted) needs().deleteClock(syncrefId);
    r.protocolStarted = false;
    if (r.typeOfPktStruct == MULTI_ETH_TIME_PTP) {
        const u32 group = groupOf(r);
        if (needs().removeMCgroupUser(group) != 0) r.pendingFlags |= groupFlag(group);
    } else {
        removeSockets(r);
    }
    giveIdentityBack(r);
    if (forgetAtDriver(syncrefId) != 0) r.pendingFlags |= WAIT_PKTDRV;
    check_delete_ready(syncrefId);           // nobody to wait for when the services have gone
}

void check_delete_ready(u32 syncrefId)
{
    const Syncref& r = *state().table[syncrefId];
    if (r.syncRefIndivState != DELETE_PENDING || r.pendingFlags != 0) return;
    const bool isMassDelete = state().syncRefCtrlState == AUDIT_DELETE_PENDING;
    if (!isMassDelete) {
        auto* cfm = node::make<KvdTuiifDeletePktRefRoCfm>(KVD_TUIIF_DELETE_PKT_REF_RO_CFM);
        cfm->froId = r.froId;
        cfm->froClassNo = r.froClassNo;
        cfm->apn = state().ownPiuHwAddr.apn;
        Signal* sig = reinterpret_cast<Signal*>(cfm);
        needs().sendToMainProcessor(&sig);
    }
    state().table[syncrefId].reset();
    if (isMassDelete) deletionDone();
}

void delete_all_syncrefs()
{
    auto& s = state();
    s.syncRefCtrlState = AUDIT_DELETE_PENDING;
    s.deletionsRemaining = static_cast<u32>(
        std::count_if(s.table.begin(), s.table.end(), [](const auto& r) { return r.has_value(); }));
    if (s.deletionsRemaining == 0) return massDeleteDone();
    // One that is being created is deleted once it stands, one that is being deleted is awaited.
    for (const u32 id : PTP_CLOCK_IDS)
        if (s.table[id] && s.table[id]->syncRefIndivState == CREATED) delete_syncref(id);
}

void formIdentity(Syncref& r, u32 syncrefId, const std::array<u8, 6>& own)
{
    u8 filler = STANDARD_IDENTITY;
    if (!state().standardIdentityTaken) state().standardIdentityTaken = true;
    else if (syncrefId > 0) filler = static_cast<u8>(syncrefId - 1);
    r.port = {{own[0], own[1], own[2], 0xFF, filler, own[3], own[4], own[5]}, 1};
}

// ---- time stamp latency -------------------------------------------------------------------------

void resetTimestampLatency() { state().latencyAsymmetry = asymmetry(LATENCY_INITIAL); }

void setTimestampLatency(u32 linkSpeed, u32 portWord)
{
    constexpr u32 SPEED_4 = 4, SPEED_6 = 6;
    if (linkSpeed != SPEED_4 && linkSpeed != SPEED_6) {
        KVD_TRACE(TRACE_TUPKTSYNC_SYNCREF_CTRL, TRACE_ERROR,
                  "set_timestamp_latency: unsupported linkSpeed (%u), not changing latency", linkSpeed);
        return;
    }
    const u32 pair = (linkSpeed == SPEED_6 ? 2u : 0u) + (portWord == 0 ? 1u : 0u);
    state().latencyAsymmetry = asymmetry(state().board == BOARD_BVQ3 ? LATENCY_BVQ3[pair]
                                                                     : LATENCY_BVQ1[pair]);
}

}  // namespace syncref
