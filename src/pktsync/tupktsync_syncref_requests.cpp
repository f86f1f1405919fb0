// What the main processor asks for about one syncref: creation, deletion, change, supervision, attributes.
#include "base/trace_groups.h"
#include "node/sig.h"
#include "pktsync/tupktsync_ptp_attributes.h"
#include "pktsync/tupktsync_syncref_int.h"
#include "sig/ref_types.h"

namespace syncref {

namespace {

/// The syncref in use whose domain an Ethernet clock can't share: frames tell it by nothing else.
std::optional<u32> sameDomain(const TuiifPktRefConfig& config)
{
    if (config.typeOfPktStruct > MULTI_IP_TIME_PTP) return std::nullopt;
    for (const u32 id : PTP_CLOCK_IDS) {
        const auto& r = state().table[id];
        if (r && r->typeOfPktStruct == MULTI_ETH_TIME_PTP && r->ptpDomain == config.ptpDomain) return id;
    }
    return std::nullopt;
}

/// Takes what may change of a running syncref; true when it has another server now.
bool takeChange(Syncref& r, const TuiifPktRefConfig& c)
{
    const PktIpAddress before = r.serverIpAddress;
    switch (r.typeOfPktStruct) {
    case MULTI_ETH_TIME_PTP:
        r.pbit = c.pbit;
        r.asymmetryCompensation = c.asymmetryCompensation;
        r.ptpProfile = c.ptpProfile;
        break;
    case MULTI_IP_TIME_PTP:
        r.dscp = c.dscp;
        r.asymmetryCompensation = c.asymmetryCompensation;
        break;
    case UNI_IP_TIME_PTP: r.asymmetryCompensation = c.asymmetryCompensation; [[fallthrough]];
    default: r.dscp = c.dscp; r.serverIpAddress = addressOf(c.serverIpAddress);
    }
    return before != r.serverIpAddress;
}

void restartProtocol(Syncref& r, u32 syncrefId)
{
    needs().deleteClock(syncrefId);
    r.protocolStarted = needs().newClock(setupOf(syncrefId, r));
    needs().superviseClock(syncrefId, 1);
    if (r.selected) needs().selectClock(syncrefId, 1);
    KVD_TRACE(TRACE_TUPKTSYNC_SYNCREF_CTRL, TRACE_INFO,
              "Restarted protocol handler for syncrefId %d to effect change of serverIpAddress", syncrefId);
}

}  // namespace

void handle_CreateReq(const Signal* sig)
{
    if (!isReady("Create")) return;
    const auto* req = as<KvdTuiifCreatePktRefRoReq>(sig);
    if (req == nullptr) return;
    const TuiifPktRefConfig& c = req->config;
    if (find(c.froId, c.froClassNo)) {
        KVD_TRACE(TRACE_TUPKTSYNC_SYNCREF_CTRL, TRACE_ERROR,
                  "Create request received with already existing froId(%u) and froClassNo(%u)", c.froId,
                  c.froClassNo);
        return;
    }
    if (const auto other = sameDomain(c)) {
        const Syncref& r = *state().table[*other];
        KVD_TRACE(TRACE_TUPKTSYNC_SYNCREF_CTRL, TRACE_ERROR,
                  "Attempt to create new syncref for froId %u, froClassNo %u, ptpDomain %d, when "
                  "syncrefId %d froId %u, froClassNo %u already configured with same ptpDomain",
                  c.froId, c.froClassNo, c.ptpDomain, *other, r.froId, r.froClassNo);
        return;
    }
    create_syncref(c);
}

void onDeleteReq(const Signal* sig)
{
    if (!isReady("Delete")) return;
    const auto* req = as<KvdTuiifDeletePktRefRoReq>(sig);
    if (req == nullptr) return;
    if (const auto id = find(req->froId, req->froClassNo)) return delete_syncref(*id);
    KVD_TRACE(TRACE_TUPKTSYNC_SYNCREF_CTRL, TRACE_ERROR,
              "Delete request received for non-existing froId(%u) and froClassNo(%u)", req->froId,
              req->froClassNo);
}

void handle_SetReq(const Signal* sig)
{
    if (!isReady("Set")) return;
    const auto* req = as<KvdTuiifSetPktRefRoReq>(sig);
    if (req == nullptr) return;
    const TuiifPktRefConfig& c = req->config;
    const auto id = find(c.froId, c.froClassNo);
    if (!id) {
        KVD_TRACE(TRACE_TUPKTSYNC_SYNCREF_CTRL, TRACE_ERROR,
                  "Set request received for non-existing froId(%u) and froClassNo(%u)", c.froId,
                  c.froClassNo);
        return;
    }
    Syncref& r = *state().table[*id];
    if (r.syncRefIndivState != CREATED) {
        KVD_TRACE(TRACE_TUPKTSYNC_SYNCREF_CTRL, TRACE_ERROR, "Set request received from FRO when in state=%s",
                  indivStateText(r.syncRefIndivState));
        return;
    }
    if (r.typeOfPktStruct < UNI_IP_FREQ_PTP) setTimestampLatency(c.linkSpeed, c.portWord);
    r.syncRefIndivState = CHANGE_PENDING;
    const bool hasNewServer = takeChange(r, c);
    if (hasNewServer) tellDriver(*id);
    if (hasNewServer && r.protocolStarted)
        restartProtocol(r, *id);
    else if (r.protocolStarted)
        needs().changeClock(*id, r.asymmetryCompensation, r.pbit, r.dscp, r.ptpProfile);
    auto* cfm = node::make<KvdTuiifSetPktRefRoCfm>(KVD_TUIIF_SET_PKT_REF_RO_CFM);
    cfm->froId = r.froId;
    cfm->froClassNo = r.froClassNo;
    cfm->apn = state().ownPiuHwAddr.apn;
    Signal* out = reinterpret_cast<Signal*>(cfm);
    needs().sendToMainProcessor(&out);
    r.syncRefIndivState = CREATED;
}

void onPathSupervision(const Signal* sig)
{
    const auto* ind = as<KvdTuiifSynchPathSupInd>(sig);
    if (ind == nullptr) return;
    if (ind->refType != PACKET_TIME_REF && ind->refType != PACKET_FREQ_REF) return;
    const auto id = find(ind->froId, ind->froClassNo);
    if (!id) {
        KVD_TRACE(TRACE_TUPKTSYNC_SYNCREF_CTRL, TRACE_ERROR,
                  "Synch Path Sup Ind received for non-existing froId(%u) and froClassNo(%u)", ind->froId,
                  ind->froClassNo);
        return;
    }
    if (state().table[*id]->usePTP) needs().superviseClock(*id, ind->on);
}

void onGetAttributes(const Signal* sig)
{
    if (!isReady("Get Attributes")) return;
    const auto* req = as<KvdTuiifGetPktRefRoAttribReq>(sig);
    if (req == nullptr) return;
    auto* cfm = node::make<KvdTuiifGetPktRefRoAttribCfm>(KVD_TUIIF_GET_PKT_REF_RO_ATTRIB_CFM);
    cfm->froId = req->froId;
    cfm->froClassNo = req->froClassNo;
    const auto id = find(req->froId, req->froClassNo);
    if (!id || !state().table[*id]->usePTP)
        KVD_TRACE(TRACE_TUPKTSYNC_SYNCREF_CTRL, TRACE_ERROR,
                  "Get Attributes Request for non-PTP syncref (froId/froClassNo %u/%u); replying with "
                  "all zeroes",
                  req->froId, req->froClassNo);
    else
        TuPktsync_get_ptp_attributes(*id, *cfm);
    Signal* out = reinterpret_cast<Signal*>(cfm);
    needs().sendToMainProcessor(&out);
}

}  // namespace syncref
