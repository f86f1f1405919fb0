#include "sim/scenario/link_sdu.h"

#include "sim/scenario/unit.h"

#include <algorithm>
#include <cstring>

namespace sim {
namespace {

constexpr ose::Time MP_WAY = 2 * ose::MS;        // from one unit over the main processor to the other
constexpr u8 PORT_X = 7, LINK_GONE = 0;
constexpr std::size_t APN_AT = 4;                // in all of these signals

constexpr SIGSELECT TO_SLAVE[] = {
    KVD_TUIIF_INRSI_GET_FREQ_DIFF2_REQ_FWD,    KVD_TUIIF_INRSI_GET_PHASE_DIFF2_REQ_FWD,
    KVD_TUIIF_INRSI_BFN_JUMP_INFO_REQ_FWD,     KVD_TUIIF_SOCPRI_SDU_FOLLOW_OCXO_ADJ_IND,
    KVD_TUIIF_SOCPRI_SDU_FOLLOW_OCXO_REVERT_IND, KVD_TUIIF_SOCPRI_SDU_FOLLOW_SFC_ADJ_IND,
};
constexpr SIGSELECT TO_MASTER[] = {
    KVD_TUIIF_INRSI_GET_FREQ_DIFF2_CFM_FWD,    KVD_TUIIF_INRSI_GET_FREQ_DIFF2_REJ_FWD,
    KVD_TUIIF_INRSI_GET_PHASE_DIFF2_CFM_FWD,   KVD_TUIIF_INRSI_GET_PHASE_DIFF2_REJ_FWD,
};

template <std::size_t N>
bool isOf(const SIGSELECT (&signals)[N], SIGSELECT sigNo)
{
    return std::find(std::begin(signals), std::end(signals), sigNo) != std::end(signals);
}

}  // namespace

SduLink::SduLink(ose::World& world, const LinkSpec& spec, Unit& from, Unit& to)
    : Link(spec, from, to), world_(world)
{
    from.node().mainProcessor().onForward([this](const MpRecord& r) { onMaster(r); });
    to.node().mainProcessor().onForward([this](const MpRecord& r) { onSlave(r); });
}

void SduLink::onMaster(const MpRecord& r)
{
    if (isOf(TO_SLAVE, r.sigNo)) handOn(r, to_);
}

void SduLink::onSlave(const MpRecord& r)
{
    if (isOf(TO_MASTER, r.sigNo)) return handOn(r, from_);
    if (r.sigNo != KVD_TUIIF_SOCPRI_LINK_STATUS_FWD) return;
    const auto link = r.as<KvdTuiifSocpriLinkStatusFwd>();
    if (!link) return;
    links_[link->id] = *link;
    if (link->portNo == focus_) tellMaster(*link, link->linkStatus);
}

/// The same signal, under the receiver's own number.
void SduLink::handOn(const MpRecord& r, Unit& receiver)
{
    if (!isUp()) return;
    std::vector<std::byte> bytes = r.bytes;
    const u32 apn = receiver.node().config().apn;
    std::memcpy(bytes.data() + APN_AT, &apn, sizeof apn);
    world_.after(MP_WAY, [&receiver, bytes] { receiver.node().mainProcessor().send(bytes); });
}

void SduLink::tellMaster(const KvdTuiifSocpriLinkStatusFwd& link, u8 status)
{
    if (!isUp()) return;
    from_.node().mainProcessor().sendLayout(
        KvdTuiifInrsiLinkStatus2IndFwd{KVD_TUIIF_INRSI_LINK_STATUS2_IND_FWD, from_.node().config().apn,
                                       PORT_X, status, link.id, link.subsumedId, link.valid});
}

/// The slave first: a request of the master for a unit that isn't in focus comes back as void.
void SduLink::setFocus(u8 port)
{
    MainProcessor& slave = to_.node().mainProcessor();
    if (port != 0)
        slave.sendLayout(KvdTuiifSocpriSduLockPortFocusInd{KVD_TUIIF_SOCPRI_SDU_LOCK_PORT_FOCUS_IND, port});
    else
        slave.sendLayout(SIGSELECT{KVD_TUIIF_SOCPRI_SDU_CLEAR_PORT_FOCUS_IND});
    if (port == focus_) return;
    for (const auto& [id, link] : links_)
        if (link.portNo == focus_) tellMaster(link, LINK_GONE);
    focus_ = port;
    for (const auto& [id, link] : links_)
        if (link.portNo == focus_) tellMaster(link, link.linkStatus);
}

}  // namespace sim
