// The main processor's orders to the unit, but for those of packet references.
#include "sig/tuiif_sig.h"
#include "sim/node/main_processor.h"
#include "sim/node/main_processor_int.h"
#include "sim/node/node.h"

#include <algorithm>

namespace sim {

void MainProcessor::send(std::span<const std::byte> signal)
{
    if (unit_ == 0 || !alive() || signal.size() < sizeof(SIGSELECT)) return;
    if (onOrder_) onOrder_(signal);
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

void MainProcessor::askGpsOslAttributes()
{
    u32 froId = 0;
    for (const MpReference& r : config.references)
        if (r.refType == GPSOSL_REF) froId = r.froId;
    sendLayout(KvdTuiifGpsAttribReq{KVD_TUIIF_GPSOSL_ATTRIB_REQ, froId});
}

void MainProcessor::askRntToSfc()
{
    sendLayout(KvdTuiifGetRntToSfcDiffReq{KVD_TUIIF_GET_RNT_TO_SFC_DIFF_REQ, pid()});
}

void MainProcessor::askRntForSfn(u32 sfn)
{
    sendLayout(KvdTuiifGetRntForSfnReq{KVD_TUIIF_GET_RNT_FOR_SFN_REQ, pid(), sfn});
}

void MainProcessor::askSyncInfo(u8 option)
{
    constexpr u32 CLIENT = 0x51;
    sendLayout(KvdTuiifSyncinfoReq{KVD_TUIIF_SYNCINFO_REQ, option, CLIENT});
}

void MainProcessor::registerByName(const std::string& name, bool on)
{
    const SIGSELECT sigNo = on ? KVD_TUIIF_REGISTER_SYNCH_REF_IND : KVD_TUIIF_DEREGISTER_SYNCH_REF_IND;
    for (const MpReference& r : config.references)
        if (r.name == name) sendLayout(KvdTuiifRegisterSynchRefInd{sigNo, r.froClassNo, r.froId});
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

}  // namespace sim
