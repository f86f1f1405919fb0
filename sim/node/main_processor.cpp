#include "sim/node/main_processor.h"

#include "sig/ref_types.h"
#include "sig/tuiif_sig.h"
#include "sim/node/node.h"

#include <algorithm>

namespace sim {

namespace {

constexpr u32 ACCEPTED_REVISION = 4;
constexpr u32 ACCEPTED_PV = 22;
constexpr std::size_t LOG_MAX = 100'000;

// Usable references in the status word, a bit each.
constexpr u32 TU_REF_BIT = 0x20, IDL1_BIT = 0x40, IDL2_BIT = 0x100, GPSOSL_BIT = 0x2000;
constexpr u32 LINES = 5;

// Reference state of packet references, and of Ethernet ports.
constexpr u32 REF_STATE_FAULTY = 8192;
constexpr u32 ETH_SIGNAL_PRESENT = 0x2;

// Of KVD_TUIIF_GPS_STATUS_IND.
constexpr u8 GPS_STATUS_OK = 1;

u32 bitOf(u8 refType)
{
    switch (refType) {
    case TU_REF:     return TU_REF_BIT;
    case IDL1_REF:   return IDL1_BIT;
    case IDL2_REF:   return IDL2_BIT;
    case GPSOSL_REF: return GPSOSL_BIT;
    default:         return 0;
    }
}

bool isPacket(u8 refType) { return refType == PACKET_TIME_REF || refType == PACKET_FREQ_REF; }
bool isInterUnit(u8 refType) { return refType == IDL1_REF || refType == IDL2_REF; }
bool isEthernet(u8 refType) { return refType >= ETHA_REF && refType <= ETHC_REF; }

bool same(const MpReference& a, const MpReference& b)
{
    return a.refType == b.refType && a.froId == b.froId && a.froClassNo == b.froClassNo;
}

MpReference none()
{
    MpReference ref;
    ref.name = "none";
    ref.refType = NO_REF;
    ref.froId = FRO_NONE;
    ref.froClassNo = FRO_NONE;
    return ref;
}

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

// ---- orders -------------------------------------------------------------------------------------

void MainProcessor::send(std::span<const std::byte> signal)
{
    if (unit_ == 0 || !alive() || signal.size() < sizeof(SIGSELECT)) return;
    node_.system().inject(signal, unit_, pid());
}

void MainProcessor::supervise(const MpReference& ref, bool on)
{
    std::erase_if(supervised_, [&](const MpReference& s) { return same(s, ref); });
    if (on) supervised_.push_back(ref);
    KvdTuiifSynchPathSupEthInd ind{};
    ind.path = {KVD_TUIIF_SYNCH_PATH_SUP_IND, ref.refType, on ? 1u : 0u, ref.froId, ref.froClassNo};
    std::copy(ref.macAddress.begin(), ref.macAddress.end(), ind.macAddress);
    if (!isEthernet(ref.refType)) return sendLayout(ind.path);
    if (on) node_.slowpi().setPort(ref.refType - ETHA_REF);
    else std::erase_if(levels_, [&](const Level& l) { return l.froId == ref.froId; });
    sendLayout(ind);
}

void MainProcessor::select(u8 refType, u32 froId, u32 froClassNo)
{
    MpReference ref = none();
    for (const MpReference& r : config.references)
        if (r.refType == refType && r.froId == froId) ref = r;
    if (ref.refType != refType) ref.name = refTypeName(refType);
    ref.refType = refType;
    ref.froId = froId;
    ref.froClassNo = froClassNo;
    sendSelection(ref);
}

void MainProcessor::selectNone() { sendSelection(none()); }

void MainProcessor::selectByName(const std::string& name)
{
    if (const MpReference* ref = reference(name)) sendSelection(*ref);
}

void MainProcessor::superviseByName(const std::string& name, bool on)
{
    if (const MpReference* ref = reference(name)) supervise(*ref, on);
}

void MainProcessor::changeMaster(u8 timeMode, u8 masterSlaveMode)
{
    config.timeMode = timeMode;
    config.masterSlaveMode = masterSlaveMode;
    KvdTuiifChangeMasterTuInd ind{};
    ind.sigNo = KVD_TUIIF_CHANGE_MASTER_TU_IND;
    ind.timeMode = timeMode;
    ind.masterSlaveMode = masterSlaveMode;
    sendLayout(ind);
    selected_ = none();                // the unit drops what it had
    applyPolicy();
}

void MainProcessor::boardFailure(bool raised)
{
    sendLayout(KvdTuiifBoardFailureRecoveryInd{KVD_TUIIF_BOARD_FAILURE_RECOVERY_IND, raised ? 1u : 2u});
}

void MainProcessor::setTestMode(bool on)
{
    sendLayout(KvdTuiifSetTestModeInd{KVD_TUIIF_SET_TEST_MODE_IND, on ? u8{1} : u8{0}});
}

void MainProcessor::setSelectionMode(u8 selectionProcessMode)
{
    config.selectionQlMode = selectionProcessMode;
    sendLayout(KvdTuiifSelectionModeChangeInd{KVD_TUIIF_SELECTION_MODE_CHANGE_IND, selectionProcessMode});
    applyPolicy();
}

void MainProcessor::setGpsDelay(u16 delay_ns)
{
    KvdTuiifSetDelayInd ind{};
    ind.sigNo = KVD_TUIIF_SET_DELAY_IND;
    ind.delay = delay_ns;
    sendLayout(ind);
}

void MainProcessor::setFixedPosition(bool on)
{
    sendLayout(KvdTuiifSetFixedPositionInd{KVD_TUIIF_SET_FIXED_POSITION_IND, on ? 1u : 0u});
}

void MainProcessor::askGpsAttributes()
{
    u32 froId = 0;
    for (const MpReference& r : config.references)
        if (r.refType == GPS_REF) froId = r.froId;
    sendLayout(KvdTuiifGpsAttribReq{KVD_TUIIF_GPS_ATTRIB_REQ, froId});
}

void MainProcessor::orderJump()
{
    sendLayout(KvdTuiifJumpRntToSfcDiffZeroReq{KVD_TUIIF_JUMP_RNT_TO_SFC_DIFF_ZERO_REQ, pid()});
}

void MainProcessor::setGpsOut(bool on)
{
    config.gpsOut = on ? KVD_TUIIF_GPSOUT_ENABLED : KVD_TUIIF_GPSOUT_DISABLED;
    sendLayout(KvdTuiifSetGpsoutInd{KVD_TUIIF_SET_GPSOUT_IND, on ? 1u : 0u});
}

void MainProcessor::setHptsiOut(bool on)
{
    config.hptsiOut = on ? 1 : 0;
    sendLayout(KvdTuiifSetHptsioutInd{KVD_TUIIF_SET_HPTSIOUT_IND, on ? 1u : 0u});
}

void MainProcessor::setHptsiDelay(u16 delay_ns)
{
    KvdTuiifSetHptsiDelayInd ind{};
    ind.sigNo = KVD_TUIIF_SET_HPTSI_DELAY_IND;
    ind.delay = delay_ns;
    sendLayout(ind);
}

void MainProcessor::askHptsiAttributes()
{
    sendLayout(KvdTuiifHptsiAttribReq{KVD_TUIIF_HPTSI_ATTRIB_REQ, 0});
}

void MainProcessor::setGpsOslDelay(u16 delay_ns)
{
    KvdTuiifSetGpsoslDelayInd ind{};
    ind.sigNo = KVD_TUIIF_SET_GPSOSL_DELAY_IND;
    ind.delay = delay_ns;
    sendLayout(ind);
}

void MainProcessor::setSelects(bool on)
{
    config.selects = on;
    applyPolicy();
}

const MpReference* MainProcessor::reference(const std::string& name) const
{
    for (const MpReference& r : config.references)
        if (r.name == name) return &r;
    return nullptr;
}

// ---- selection ----------------------------------------------------------------------------------

bool MainProcessor::usable(const MpReference& ref) const
{
    if (ref.alwaysUsable) return true;
    // The unit is told of NTP's packets, the node's service whether any come.
    if (ref.refType == NTP_REF) return node_.ipsync().reachable(ref.froId);
    if (!supervises(ref)) return false;
    if (ref.refType == PDH_SDH_REF) {
        for (const Line& l : lines_)
            if (l.froId == ref.froId) return (status_.refState >> l.line & 1) != 0;
        return false;
    }
    for (const Reported& r : reported_) {
        if (r.froId != ref.froId || r.froClassNo != ref.froClassNo) continue;
        if (isEthernet(ref.refType))
            return (r.additional & ETH_SIGNAL_PRESENT) != 0
                   && (config.selectionQlMode != 1 || hasUsableLevel(ref.froId));
        return (r.refState & REF_STATE_FAULTY) == 0;
    }
    // A receiver's return is told by its own status alone, not by a new clock status.
    if (ref.refType == GPS_REF) return gpsStatus_ == GPS_STATUS_OK;
    if (ref.refType == GPSOSL_REF) return gpsOslStatus_ == GPS_STATUS_OK;
    if (ref.refType == HPTSI_REF) return hptsiStatus_ == GPS_STATUS_OK;
    return (status_.refState & bitOf(ref.refType)) != 0;
}

bool MainProcessor::supervises(const MpReference& ref) const
{
    return std::any_of(supervised_.begin(), supervised_.end(),
                       [&](const MpReference& s) { return same(s, ref); });
}

/// SSM codes of clocks; 15 says do not use, 255 that there is none.
bool MainProcessor::hasUsableLevel(u32 froId) const
{
    constexpr u32 DO_NOT_USE = 15;
    return std::any_of(levels_.begin(), levels_.end(),
                       [&](const Level& l) { return l.froId == froId && l.clockQuality < DO_NOT_USE; });
}

/// A master isn't to follow its slaves, nor a slave anything but its master.
bool MainProcessor::suitsRole(const MpReference& ref) const
{
    const bool hasMaster =
        config.masterSlaveMode == KVD_TUIIF_SLAVE_TU &&
        std::any_of(config.references.begin(), config.references.end(),
                    [](const MpReference& r) { return isInterUnit(r.refType); });
    return isInterUnit(ref.refType) == hasMaster;
}

void MainProcessor::applyPolicy()
{
    if (!config.selects || !connected()) return;
    const auto best =
        std::find_if(config.references.begin(), config.references.end(),
                     [this](const MpReference& r) { return suitsRole(r) && usable(r); });
    const MpReference wanted = best != config.references.end() ? *best : none();
    if (!same(wanted, selected_)) sendSelection(wanted);
}

void MainProcessor::sendSelection(const MpReference& ref)
{
    selected_ = ref;
    KvdTuiifSelectSynchRefInd ind{};
    ind.sigNo = KVD_TUIIF_SELECT_SYNCH_REF_IND;
    ind.refType = ref.refType;
    ind.froId = ref.froId;
    ind.froClassNo = ref.froClassNo;
    sendLayout(ind);
    if (onSelect_) onSelect_(ref);
}

void MainProcessor::superviseConfigured()
{
    // Lines wait until the unit has announced them, packet references until it has created them: before,
    // it knows none of that id.
    for (const MpReference& r : config.references) {
        if (r.refType == NTP_REF)
            sendLayout(KvdTuiifRegisterSynchRefInd{KVD_TUIIF_REGISTER_SYNCH_REF_IND, r.froClassNo, r.froId});
        else if (r.supervise && r.refType != PDH_SDH_REF && !isPacket(r.refType))
            supervise(r, true);
    }
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

void MainProcessor::record(Signal* sig, PROCESS from)
{
    const auto* bytes = reinterpret_cast<const std::byte*>(sig);
    if (log_.size() == LOG_MAX) log_.pop_front();
    log_.push_back({node_.world().now(), sig->sigNo, from, {bytes, bytes + ose::sigsize(&sig)}});
    told_.add(log_.back().at);
    told_.addBytes(log_.back().bytes);
    ++toldSignals_;
    if (onRecord_) onRecord_(log_.back());
    for (const auto& peer : onForward_) peer(log_.back());
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

// ---- packet references --------------------------------------------------------------------------

namespace {

TuiifPktRefConfig wire(const MpPacketRef& r)
{
    TuiifPktRefConfig c{};
    c.froId = r.froId;
    c.froClassNo = r.froClassNo;
    c.typeOfPktStruct = r.typeOfPktStruct;
    c.ptpDomain = r.domain;
    c.asymmetryCompensation = r.asymmetry_ns;
    c.peerDelayMechanism = r.peerDelay ? 1 : 0;
    c.serverIpAddress.family = c.ownIpAddress.family = static_cast<u8>(r.family);
    std::copy(r.server.begin(), r.server.end(), c.serverIpAddress.address);
    std::copy(r.own.begin(), r.own.end(), c.ownIpAddress.address);
    c.dscp = r.dscp;
    c.pbit = r.pbit;
    c.ptpProfile = r.profile;
    c.ptpMulticastAddress = r.multicastAddress;
    std::copy(r.mac.begin(), r.mac.end(), c.macAddress);
    c.linkSpeed = r.linkSpeed;
    c.portWord = r.portWord;
    return c;
}

}  // namespace

void MainProcessor::sendPacketRef(SIGSELECT sigNo, const MpPacketRef& ref)
{
    sendLayout(KvdTuiifCreatePktRefRoReq{sigNo, wire(ref)});
}

void MainProcessor::createPacketRef(const MpPacketRef& ref)
{
    std::erase_if(config.packetRefs, [&](const MpPacketRef& r) {
        return r.froId == ref.froId && r.froClassNo == ref.froClassNo;
    });
    config.packetRefs.push_back(ref);
    sendPacketRef(KVD_TUIIF_CREATE_PKT_REF_RO_REQ, ref);
}

void MainProcessor::setPacketRef(const MpPacketRef& ref)
{
    for (MpPacketRef& r : config.packetRefs)
        if (r.froId == ref.froId && r.froClassNo == ref.froClassNo) r = ref;
    sendPacketRef(KVD_TUIIF_SET_PKT_REF_RO_REQ, ref);
}

void MainProcessor::deletePacketRef(u32 froId, u32 froClassNo)
{
    std::erase_if(config.packetRefs,
                  [&](const MpPacketRef& r) { return r.froId == froId && r.froClassNo == froClassNo; });
    std::erase(deleting_, std::pair{froId, froClassNo});
    deleting_.emplace_back(froId, froClassNo);
    sendLayout(KvdTuiifDeletePktRefRoReq{KVD_TUIIF_DELETE_PKT_REF_RO_REQ, froId, froClassNo});
}

const MpPacketRef* MainProcessor::wantedPacketRef(u32 froId, u32 froClassNo) const
{
    const auto& refs = config.packetRefs;
    const auto r = std::find_if(refs.begin(), refs.end(), [&](const MpPacketRef& ref) {
        return ref.froId == froId && ref.froClassNo == froClassNo;
    });
    return r != refs.end() ? &*r : nullptr;
}

/// The unit refuses to create one while the former of that name goes: it is asked again.
void MainProcessor::packetRefDeleted(u32 froId, u32 froClassNo)
{
    std::erase(created_, std::pair{froId, froClassNo});
    const bool wasAsked = std::erase(deleting_, std::pair{froId, froClassNo}) > 0;
    const MpPacketRef* const wanted = wantedPacketRef(froId, froClassNo);
    if (wasAsked && wanted != nullptr) sendPacketRef(KVD_TUIIF_CREATE_PKT_REF_RO_REQ, *wanted);
}

void MainProcessor::askPacketRefAttributes(u32 froId, u32 froClassNo)
{
    sendLayout(KvdTuiifGetPktRefRoAttribReq{KVD_TUIIF_GET_PKT_REF_RO_ATTRIB_REQ, froId, froClassNo});
}

bool MainProcessor::packetRefCreated(u32 froId, u32 froClassNo) const
{
    return std::find(created_.begin(), created_.end(), std::pair{froId, froClassNo}) != created_.end();
}

void MainProcessor::answerAudit()
{
    if (!config.answersAudit) return;
    const KvdTuiifAuditPktRefRoCfm cfm{KVD_TUIIF_AUDIT_PKT_REF_RO_CFM,
                                       static_cast<u32>(config.packetRefs.size())};
    std::vector<std::byte> signal(sizeof cfm + cfm.count * sizeof(TuiifPktRefConfig));
    std::memcpy(signal.data(), &cfm, sizeof cfm);
    std::byte* at = signal.data() + sizeof cfm;
    for (const MpPacketRef& r : config.packetRefs) {
        const TuiifPktRefConfig c = wire(r);
        std::memcpy(at, &c, sizeof c);
        at += sizeof c;
    }
    send(signal);
}

void MainProcessor::packetRefResult(u32 froId, u32 froClassNo, u32 result)
{
    std::erase(created_, std::pair{froId, froClassNo});
    const bool wasDeleted = std::erase(deleting_, std::pair{froId, froClassNo}) > 0;
    if (result != 0) return;
    // It refuses to delete one that it is creating, too.
    if (wasDeleted && wantedPacketRef(froId, froClassNo) == nullptr)
        return deletePacketRef(froId, froClassNo);
    created_.emplace_back(froId, froClassNo);
    for (const MpReference& r : config.references)
        if (isPacket(r.refType) && r.supervise && r.froId == froId && r.froClassNo == froClassNo)
            supervise(r, true);
}

void MainProcessor::onPacketRefSignal(const MpRecord& received)
{
    switch (received.sigNo) {
    case KVD_TUIIF_AUDIT_PKT_REF_RO_REQ: return answerAudit();
    case KVD_TUIIF_PKT_REF_RO_UNAVAILABLE_IND: {
        created_.clear();
        deleting_.clear();                           // the audit lists what is wanted
        std::erase_if(reported_, [](const Reported& r) { return r.froClassNo == 4 || r.froClassNo == 5; });
        std::erase_if(supervised_, [](const MpReference& s) { return isPacket(s.refType); });
        return applyPolicy();
    }
    case KVD_TUIIF_CREATE_PKT_REF_RO_CFM:
        if (const auto cfm = received.as<KvdTuiifCreatePktRefRoCfm>())
            packetRefResult(cfm->froId, cfm->froClassNo, cfm->result);
        return;
    case KVD_TUIIF_DELETE_PKT_REF_RO_CFM:
        if (const auto cfm = received.as<KvdTuiifDeletePktRefRoCfm>()) {
            packetRefDeleted(cfm->froId, cfm->froClassNo);
            std::erase_if(reported_, [&](const Reported& r) {
                return r.froId == cfm->froId && r.froClassNo == cfm->froClassNo;
            });
            applyPolicy();
        }
        return;
    default: break;
    }
    const auto result = received.as<KvdTuiifAuditPktRefRoResultInd>();
    if (!result) return;
    for (u32 i = 0; i < result->count; ++i) {
        TuiifAuditResult row;
        const std::size_t at = sizeof *result + i * sizeof row;
        if (received.bytes.size() < at + sizeof row) return;
        std::memcpy(&row, received.bytes.data() + at, sizeof row);
        packetRefResult(row.froId, row.froClassNo, row.result);
    }
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

// ---- queries ------------------------------------------------------------------------------------

std::size_t MainProcessor::count(SIGSELECT sigNo, ose::Time since) const
{
    return static_cast<std::size_t>(std::count_if(log_.begin(), log_.end(), [&](const MpRecord& r) {
        return r.sigNo == sigNo && r.at >= since;
    }));
}

const MpRecord* MainProcessor::last(SIGSELECT sigNo) const
{
    for (auto r = log_.rbegin(); r != log_.rend(); ++r)
        if (r->sigNo == sigNo) return &*r;
    return nullptr;
}

std::vector<MpRecord> MainProcessor::all(SIGSELECT sigNo) const
{
    std::vector<MpRecord> found;
    for (const MpRecord& r : log_)
        if (r.sigNo == sigNo) found.push_back(r);
    return found;
}

std::string MainProcessor::describe(const MpRecord& record)
{
    char text[240];
    const char* name = tuiifSignalName(record.sigNo);
    if (const auto s = record.as<KvdTuiifBvqStatusInd>();
        record.sigNo == KVD_TUIIF_BVQ_STATUS_IND && s) {
        std::snprintf(
            text, sizeof text,
            "%s radioClockState=%u %s refState=0x%x ltr=%u degr=%u froId=%u froClassNo=%u", name,
            s->radioClockState, clockStateName(s->radioClockState), s->refState,
            s->activRefLtrStatus, s->activRefDegrStatus, s->activRefFroId, s->activRefFroClassNo);
    } else if (const auto e = record.as<KvdTuiifEtFroidInd>();
               record.sigNo == KVD_TUIIF_ET_FROID_IND && e) {
        std::snprintf(text, sizeof text, "%s line=%u froId=%u statusControl=%u", name, e->lineNum,
                      e->froId, e->statusControl);
    } else if (const auto r = record.as<KvdTuiif6BvqRefStateInd>();
               record.sigNo == KVD_TUIIF6_BVQ_REF_STATE_IND && r) {
        std::snprintf(text, sizeof text, "%s froId=%u froClassNo=%u refState=%u info=0x%x", name, r->froId,
                      r->froClassNo, r->refState, r->additionalRefStateInfo);
    } else if (const auto g = record.as<KvdTuiifGpsStatusInd>();
               record.sigNo == KVD_TUIIF_GPS_STATUS_IND && g) {
        std::snprintf(text, sizeof text, "%s gpsStatus=%u %.131s", name, g->gpsStatus, g->text);
    } else if (const auto h = record.as<KvdTuiifHptsiStatusInd>();
               record.sigNo == KVD_TUIIF_HPTSI_STATUS_IND && h) {
        std::snprintf(text, sizeof text, "%s status=%u %.131s", name, h->status, h->text);
    } else if (const auto q = record.as<KvdTuiifQualityLevelInd>();
               record.sigNo == KVD_TUIIF_QUALITY_LEVEL_IND && q) {
        std::snprintf(text, sizeof text, "%s froId=%u froClassNo=%u clockQuality=%u", name, q->froId,
                      q->froClassNo, q->clockQuality);
    } else if (const auto p = record.as<KvdTuiifPduMissingInd>();
               record.sigNo == KVD_TUIIF_PDU_MISSING_IND && p) {
        std::snprintf(text, sizeof text, "%s froId=%u froClassNo=%u pduMissing=%u", name, p->froId,
                      p->froClassNo, p->pduMissing);
    } else if (*name != '\0') {
        std::snprintf(text, sizeof text, "%s size=%zu", name, record.bytes.size());
    } else {
        std::snprintf(text, sizeof text, "signal 0x%x size=%zu", record.sigNo, record.bytes.size());
    }
    return text;
}

}  // namespace sim
