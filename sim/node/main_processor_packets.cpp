// Packet references as the main processor has them: created, changed, deleted, audited.
#include "sig/tuiif_sig.h"
#include "sim/node/main_processor.h"
#include "sim/node/main_processor_int.h"

#include <algorithm>

namespace sim {

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

}  // namespace sim
