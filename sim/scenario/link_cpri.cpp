#include "sim/scenario/link_cpri.h"

#include "sim/board/board.h"
#include "sim/scenario/unit.h"

#include <cmath>

namespace sim {
namespace {

constexpr double SFN_TURN_s = 40.96;
constexpr double SERDES_s = 250e-9;              // in both numbers of an end: their difference counts
constexpr u16 PORT_AVAILABLE = 3, PORT_DOWN = 0;
constexpr u16 CLK_COARSE_TIME_SYNCED = 3, CLK_LAST = 4;
constexpr ose::Time MP_WAY = 2 * ose::MS;        // from one unit over the main processor to the other
constexpr ose::Time MASTER_LASTS = 200 * ose::MS;
constexpr ose::Time JUMP_FOLLOWED = 200 * ose::MS;   // two rounds of the unit in between

u64 picoseconds(double s) { return static_cast<u64>(std::llround(s * 1e12)); }

}  // namespace

CpriLink::CpriLink(ose::World& world, const LinkSpec& spec, Unit& from, Unit& to)
    : Link(spec, from, to), world_(world), noiseFrom_(spec.noise, world.seed(), spec.name + ".from"),
      noiseTo_(spec.noise, world.seed(), spec.name + ".to")
{
    joinNode();
    from.onDelay(spec.fromPort, [this]() -> std::optional<IdpiDelay> {
        if (!isUp()) return std::nullopt;
        atFrom_ = measure(from_, to_, noiseFrom_, faultAmount(LinkFault::UnstableFrom) != 0);
        return atFrom_;
    });
    to.onDelay(spec.toPort, [this]() -> std::optional<IdpiDelay> {
        if (!isUp()) return std::nullopt;
        return measure(to_, from_, noiseTo_, faultAmount(LinkFault::UnstableTo) != 0);
    });
    from.node().mainProcessor().onForward([this](const MpRecord& r) {
        if (r.sigNo == KVD_TUIIF_IDL2_SYNC_REPORT_IND)
            if (const auto report = r.as<KvdTuiifIdl2SyncReportInd>()) report_ = *report;
        if (r.sigNo != KVD_TUIIF_IDL2_TIME_DATA_IND) return;
        if (above_ != nullptr && above_->isUp()) return;       // it follows itself
        if (const auto data = r.as<KvdTuiifIdl2TimeDataInd>()) onMaster(*data, true);
    });
    to.node().mainProcessor().onForward([this](const MpRecord& r) {
        if (r.sigNo == KVD_TUIIF_IDL2_TIME_DATA_IND) onFollower();
    });
    tellPorts();
}

void CpriLink::setUp(bool up)
{
    Link::setUp(up);
    tellPorts();
}

void CpriLink::tellPorts()
{
    const u16 status = isUp() ? PORT_AVAILABLE : PORT_DOWN;
    const u16 fromDu = static_cast<u16>(from_.node().config().apn);
    const u16 toDu = static_cast<u16>(to_.node().config().apn);
    from_.node().idpi().setPort({spec_.fromPort, fromDu, toDu, spec_.toPort, status});
    to_.node().idpi().setPort({spec_.toPort, toDu, fromDu, spec_.fromPort, status});
}

/// When the far unit's frame zero comes, by the near unit's counter: how far its counter is ahead, and
/// the way.
IdpiDelay CpriLink::measure(Unit& near, Unit& far, PhaseNoise& noise, bool unstable)
{
    const double now_s = static_cast<double>(world_.now()) * 1e-12;
    const double ahead_s = counterDifference_s(near, far) + spec_.delay_s + noise.next(now_s);
    const double turns = std::floor(ahead_s / SFN_TURN_s);
    const u16 told = to_.node().idpi().clkStatus();
    IdpiDelay delay;
    delay.T1C1_ps = picoseconds(ahead_s - turns * SFN_TURN_s + SERDES_s);
    delay.C4T1_ps = picoseconds(SERDES_s);
    delay.linkMode = told >= CLK_COARSE_TIME_SYNCED && told <= CLK_LAST ? 1 : 0;
    delay.linkStability = unstable ? 0 : 1;
    return delay;
}

void CpriLink::onMaster(const KvdTuiifIdl2TimeDataInd& data, bool direct)
{
    if (data.jumpInd != 0) jumpAt_ = world_.now();
    if (isUp()) {
        const bool kept = newestAt_ >= 0;
        const u32 jumpPend = kept ? newest_.jumpPend : 0, jumpInd = kept ? newest_.jumpInd : 0;
        newest_ = data;
        newest_.jumpPend |= jumpPend;
        newest_.jumpInd |= jumpInd;
        newestIsDirect_ = direct;
        newestAt_ = world_.now();
    }
    for (CpriLink* const below : below_) below->onMaster(data, false);
}

/// Numbers of a master that tells no more are of no use.
void CpriLink::onFollower()
{
    if (!isUp() || newestAt_ < 0 || world_.now() - newestAt_ > MASTER_LASTS) return;
    world_.after(MP_WAY, [this, data = newest_, direct = newestIsDirect_] { carry(data, direct); });
    newest_.jumpPend = 0;
    newest_.jumpInd = 0;
}

void CpriLink::carry(const KvdTuiifIdl2TimeDataInd& data, bool direct)
{
    KvdTuiifIdl2SyncDataInd ind{};
    ind.sigNo = KVD_TUIIF_IDL2_SYNC_DATA_IND;
    ind.apn = to_.node().config().apn;
    ind.jumpPend = data.jumpPend;
    ind.jumpInd = data.jumpInd;
    ind.synchPortNo = static_cast<u8>(spec_.toPort - 1);
    ind.directConn = direct ? 1 : 0;
    // What the leader reported before it followed a jump itself is void.
    const bool leaderLags = jumpAt_ >= 0 && world_.now() - jumpAt_ < JUMP_FOLLOWED;
    ind.intermediaryDuFineTimeSynching = direct || leaderLags ? 0 : report_.fineTimeSync;
    ind.intermediaryDuPhaseDiff = direct ? 0.0 : report_.phaseDiff;
    ind.esfc = data.eSFC;
    ind.mfc = data.mfn;
    ind.sfc = data.sfn;
    ind.inc = data.inc;
    ind.nearEndportNo = static_cast<u8>(spec_.toPort - 1);
    ind.farEndportNo = static_cast<u8>(spec_.fromPort - 1);
    ind.delayC4T1High = static_cast<u32>(atFrom_.C4T1_ps >> 32);
    ind.delayC4T1Low = static_cast<u32>(atFrom_.C4T1_ps);
    ind.delayT1C1High = static_cast<u32>(atFrom_.T1C1_ps >> 32);
    ind.delayT1C1Low = static_cast<u32>(atFrom_.T1C1_ps);
    ind.linkMode = atFrom_.linkMode;
    ind.linkStability = atFrom_.linkStability;
    to_.node().mainProcessor().sendLayout(ind);
}

}  // namespace sim
