// Which reference the main processor has the unit follow.
#include "sig/tuiif_sig.h"
#include "sim/node/main_processor.h"
#include "sim/node/main_processor_int.h"
#include "sim/node/node.h"

#include <algorithm>

namespace sim {

namespace {

// Usable references in the status word, a bit each.
constexpr u32 TU_REF_BIT = 0x20, IDL1_BIT = 0x40, IDL2_BIT = 0x100, GPSOSL_BIT = 0x2000;

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

bool isInterUnit(u8 refType) { return refType == IDL1_REF || refType == IDL2_REF; }

}  // namespace

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

}  // namespace sim
