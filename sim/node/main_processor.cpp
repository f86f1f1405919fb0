#include "sim/node/main_processor.h"

#include "sig/ref_types.h"
#include "sig/tuiif_sig.h"
#include "sim/node/main_processor_int.h"
#include "sim/node/node.h"

#include <algorithm>

namespace sim {

namespace {

constexpr u32 ACCEPTED_REVISION = 4;
constexpr u32 ACCEPTED_PV = 22;
constexpr u32 LINES = 5;

}  // namespace

// Below the manager: the unit ends its own step first, as beside a processor of its own.
MainProcessor::MainProcessor(Node& node, const MainProcessorConfig& c)
    : Server(node, "KvdTuIIfServer", 20), config(c), selected_(none())
{
}

void MainProcessor::start()
{
    if (alive()) return;
    unit_ = 0;
    confirmed_ = false;
    Server::start();
    node_.nameServer().publish(TUIIF_SERVICE_NAME, pid());
}

void MainProcessor::die()
{
    node_.nameServer().withdraw(TUIIF_SERVICE_NAME);
    confirmed_ = false;
    unit_ = 0;
    Server::die();
}

void MainProcessor::restart(ose::Time gone)
{
    die();
    node_.after(gone, [this] { start(); });
}

bool MainProcessor::connected() const
{
    return confirmed_ && alive() && unit_ != 0 && node_.system().alive(unit_);
}

// ---- signals of the unit ------------------------------------------------------------------------

void MainProcessor::onSignal(Signal* sig, PROCESS from)
{
    record(sig, from);
    const MpRecord& received = log_.back();
    switch (received.sigNo) {
    case KVD_TUIIF_INITIATE_SERVICE_REQ: onInitiate(received); break;
    case KVD_TUIIF_BVQ_STATUS_IND:       onStatusInd(received); break;
    case KVD_TUIIF_GPS_STATUS_IND:
    case KVD_TUIIF_HPTSI_STATUS_IND:
    case KVD_TUIIF_GPSOSL_STATUS_IND:    onReceiverStatus(received); break;
    case KVD_TUIIF6_BVQ_REF_STATE_IND:   onRefState(received); break;
    case KVD_TUIIF_ET_FROID_IND:         onEtFroid(received); break;
    case KVD_TUIIF_CREATE_PKT_REF_RO_CFM:
    case KVD_TUIIF_DELETE_PKT_REF_RO_CFM:
    case KVD_TUIIF_PKT_REF_RO_UNAVAILABLE_IND:
    case KVD_TUIIF_AUDIT_PKT_REF_RO_REQ:
    case KVD_TUIIF_AUDIT_PKT_REF_RO_RESULT_IND: onPacketRefSignal(received); break;
    case KVD_TUIIF_PKT_RATE_IND:         onPktRate(received); break;
    case KVD_TUIIF_QUALITY_LEVEL_IND:    onQualityLevel(received); break;
    default:                             break;
    }
}

void MainProcessor::onInitiate(const MpRecord& received)
{
    unit_ = received.from;
    confirmed_ = false;
    switch (answer()) {
    case Answer::Suspend:
        return sendLayout(KvdTuiifInitiateServiceSus{KVD_TUIIF_INITIATE_SERVICE_SUS, config.signalRevision,
                                                     config.highestAvailablePv});
    case Answer::Reject:
        return sendLayout(KvdTuiifInitiateServiceRej{KVD_TUIIF_INITIATE_SERVICE_REJ, config.signalRevision,
                                                     config.highestAvailablePv});
    case Answer::Accept: break;
    default: return;
    }

    supervised_.clear();
    reported_.clear();
    lines_.clear();
    created_.clear();
    deleting_.clear();
    levels_.clear();
    selected_ = none();
    gpsStatus_ = gpsOslStatus_ = hptsiStatus_ = 0;
    status_ = {};
    status_.at = node_.world().now();

    KvdTuiifInitiateServiceCfm cfm{};
    cfm.sigNo = KVD_TUIIF_INITIATE_SERVICE_CFM;
    cfm.signalRevision = config.signalRevision;
    cfm.pvSelected = config.selectedPv;
    cfm.timeMode = config.timeMode;
    cfm.masterSlaveMode = config.masterSlaveMode;
    cfm.gpsOutEnabled = config.gpsOut;
    cfm.hptsiOutEnabled = config.hptsiOut;
    const MpDate& d = config.sfnInitTime;
    cfm.sfnInitTime = {d.year, d.month, d.day, d.hour, d.minute, d.second};
    cfm.selectionQlMode = config.selectionQlMode;
    sendLayout(cfm);

    confirmed_ = config.signalRevision == ACCEPTED_REVISION && config.selectedPv == ACCEPTED_PV;
    if (!confirmed_) return;
    ++connections_;
    superviseConfigured();
    applyPolicy();
}

void MainProcessor::onStatusInd(const MpRecord& received)
{
    const auto ind = received.as<KvdTuiifBvqStatusInd>();
    if (!ind) return;
    status_ = {received.at,       ind->smn,
               ind->apn,          ind->radioClockState,
               ind->refState,     ind->activRefLtrStatus,
               ind->activRefDegrStatus, ind->activRefFroId,
               ind->activRefFroClassNo};
    statuses_.push_back(status_);
    if (onStatus_) onStatus_(status_);
    applyPolicy();
}

/// A receiver's status, or that of the link whose far end sends as one.
void MainProcessor::onReceiverStatus(const MpRecord& received)
{
    if (received.sigNo == KVD_TUIIF_GPS_STATUS_IND) {
        const auto ind = received.as<KvdTuiifGpsStatusInd>();
        if (!ind) return;
        gpsStatus_ = ind->gpsStatus;
    } else {
        const auto ind = received.as<KvdTuiifGpsoslStatusInd>();    // the time input's, too
        if (!ind) return;
        (received.sigNo == KVD_TUIIF_HPTSI_STATUS_IND ? hptsiStatus_ : gpsOslStatus_) = ind->status;
    }
    applyPolicy();
}

void MainProcessor::onRefState(const MpRecord& received)
{
    const auto ind = received.as<KvdTuiif6BvqRefStateInd>();
    if (!ind) return;
    std::erase_if(reported_, [&](const Reported& r) {
        return r.froId == ind->froId && r.froClassNo == ind->froClassNo;
    });
    reported_.push_back({ind->froId, ind->froClassNo, ind->refState, ind->additionalRefStateInfo});
    applyPolicy();
}

void MainProcessor::onEtFroid(const MpRecord& received)
{
    const auto ind = received.as<KvdTuiifEtFroidInd>();
    if (!ind) return;
    std::erase_if(lines_, [&](const Line& l) { return l.froId == ind->froId; });
    const bool added = ind->statusControl == 1;
    if (added && ind->lineNum < LINES) lines_.push_back({ind->lineNum, ind->froId});
    for (const MpReference& r : config.references) {
        if (r.refType != PDH_SDH_REF || r.froId != ind->froId || !r.supervise) continue;
        if (added) supervise(r, true);
        else std::erase_if(supervised_, [&](const MpReference& s) { return same(s, r); });
    }
    applyPolicy();
}

/// The service asks its NTP server as often as the unit wants.
void MainProcessor::onPktRate(const MpRecord& received)
{
    if (const auto ind = received.as<KvdTuiifPktRateInd>()) node_.ipsync().setRate(ind->pktRate);
}

void MainProcessor::onQualityLevel(const MpRecord& received)
{
    constexpr u32 ETHERNET = 7;        // froClassNo
    const auto ind = received.as<KvdTuiifQualityLevelInd>();
    if (!ind || ind->froClassNo != ETHERNET) return;
    std::erase_if(levels_, [&](const Level& l) { return l.froId == ind->froId; });
    levels_.push_back({ind->froId, ind->clockQuality});
    applyPolicy();
}

}  // namespace sim
