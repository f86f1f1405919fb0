#include "sim/scenario/link_cpri.h"

#include "base/frame_counter.h"
#include "sim/board/board.h"
#include "sim/scenario/unit.h"

#include <algorithm>
#include <cmath>

namespace sim {
namespace {

constexpr double SERDES_s = 250e-9;              // in both numbers of an end: their difference counts
constexpr u16 PORT_AVAILABLE = 3, PORT_DOWN = 0;
constexpr u16 CLK_COARSE_TIME_SYNCED = 3, CLK_LAST = 4;
constexpr ose::Time MP_WAY = 2 * ose::MS;        // from one unit over the main processor to the other
constexpr ose::Time MASTER_LASTS = 200 * ose::MS;
constexpr ose::Time JUMP_FOLLOWED = 200 * ose::MS;   // two rounds of the unit in between

u64 picoseconds(double s) { return static_cast<u64>(std::llround(s * 1e12)); }

}  // namespace

CpriLink::CpriLink(ose::World& world, const LinkSpec& spec, Unit& from, Unit& to)
    : Link(spec, from, to), world_(world),
      atFrom_{from, to, {spec.noise, world.seed(), spec.name + ".from"},
              {world.seed(), spec.name + ".from.jitter"}, LinkFault::UnstableFrom, spec.fromPort},
      atTo_{to, from, {spec.noise, world.seed(), spec.name + ".to"},
            {world.seed(), spec.name + ".to.jitter"}, LinkFault::UnstableTo, spec.toPort}
{
    joinNode();
    for (End* const end : {&atFrom_, &atTo_}) {
        end->near.onDelay(end->port, [this, end] { return measure(*end); });
        end->near.node().mainProcessor().onForward(
            [this, end](const MpRecord& r) { onForward(end->near, r); });
    }
    tellPorts();
}

void CpriLink::setUp(bool up)
{
    Link::setUp(up);
    tellPorts();
}

/// What the old leader told is void.
void CpriLink::turn()
{
    Link::turn();
    joinClocks();
    report_ = {};
    newest_ = {};
    newestAt_ = -1;
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
std::optional<IdpiDelay> CpriLink::measure(End& end)
{
    if (!isUp()) return std::nullopt;
    const double now_s = static_cast<double>(world_.now()) * 1e-12;
    double ahead_s = counterDifference_s(end.near, end.far) + spec_.delay_s + end.noise.next(now_s);
    if (const double jitter_ns = faultAmount(LinkFault::Jitter); jitter_ns > 0)
        ahead_s += jitter_ns * 1e-9 * end.jitter.gaussian();
    const double turns = std::floor(ahead_s / SFN_PERIOD_s);
    const u16 told = follower().node().idpi().clkStatus();
    end.delay.T1C1_ps = picoseconds(ahead_s - turns * SFN_PERIOD_s + SERDES_s);
    end.delay.C4T1_ps = picoseconds(SERDES_s);
    end.delay.linkMode = told >= CLK_COARSE_TIME_SYNCED && told <= CLK_LAST ? 1 : 0;
    end.delay.linkStability = faultAmount(end.unstable) != 0 ? 0 : 1;
    return end.delay;
}

void CpriLink::onForward(Unit& unit, const MpRecord& record)
{
    if (&unit == &leader() && record.sigNo == KVD_TUIIF_IDL2_SYNC_REPORT_IND)
        if (const auto report = record.as<KvdTuiifIdl2SyncReportInd>()) report_ = *report;
    if (record.sigNo == KVD_TUIIF_INITIATE_SERVICE_REQ) endOf(unit).asksForTime = false;
    if (record.sigNo == KVD_TUIIF_IDL2_SET_MASTER_SERVER_REQ)
        if (const auto req = record.as<KvdTuiifIdl2SetMasterServerReq>())
            endOf(unit).asksForTime = req->masterServer != 0;
    if (record.sigNo != KVD_TUIIF_IDL2_TIME_DATA_IND) return;
    if (&unit == &follower()) return onFollower();
    const bool followsItself = std::any_of(others_.begin(), others_.end(),
                                           [&](const CpriLink* l) { return l->follows(unit); });
    if (followsItself) return;
    if (const auto data = record.as<KvdTuiifIdl2TimeDataInd>()) onMaster(unit, *data, true);
}

/// Another master's time is a jump to who only hears it by way of a unit that takes it up.
void CpriLink::onMaster(const Unit& master, const KvdTuiifIdl2TimeDataInd& data, bool direct)
{
    const bool isAnothers = !direct && master_ != nullptr && master_ != &master;
    master_ = &master;
    if (data.jumpInd != 0 || isAnothers) jumpAt_ = world_.now();
    if (isUp()) {
        const bool kept = newestAt_ >= 0;
        const u32 jumpPend = kept ? newest_.jumpPend : 0, jumpInd = kept ? newest_.jumpInd : 0;
        newest_ = data;
        newest_.jumpPend |= jumpPend;
        newest_.jumpInd |= jumpInd | (isAnothers ? 1 : 0);
        newestIsDirect_ = direct;
        newestAt_ = world_.now();
    }
    for (CpriLink* const below : others_)
        if (&below->leader() == &follower()) below->onMaster(master, data, false);
}

/// Numbers of a master that tells no more are of no use, and only who tunes its time is given any.
void CpriLink::onFollower()
{
    if (!isUp() || newestAt_ < 0 || world_.now() - newestAt_ > MASTER_LASTS) return;
    if (!endOf(follower()).asksForTime) return;
    world_.after(MP_WAY, [this, data = newest_, direct = newestIsDirect_] { carry(data, direct); });
    newest_.jumpPend = 0;
    newest_.jumpInd = 0;
}

void CpriLink::carry(const KvdTuiifIdl2TimeDataInd& data, bool direct)
{
    const End& leading = isTurned() ? atTo_ : atFrom_;
    const End& following = isTurned() ? atFrom_ : atTo_;
    KvdTuiifIdl2SyncDataInd ind{};
    ind.sigNo = KVD_TUIIF_IDL2_SYNC_DATA_IND;
    ind.apn = following.near.node().config().apn;
    ind.jumpPend = data.jumpPend;
    ind.jumpInd = data.jumpInd;
    ind.synchPortNo = static_cast<u8>(following.port - 1);
    ind.directConn = direct ? 1 : 0;
    // What the leader reported before it followed a jump itself is void.
    const bool leaderLags = jumpAt_ >= 0 && world_.now() - jumpAt_ < JUMP_FOLLOWED;
    ind.intermediaryDuFineTimeSynching = direct || leaderLags ? 0 : report_.fineTimeSync;
    ind.intermediaryDuPhaseDiff = direct ? 0.0 : report_.phaseDiff;
    ind.esfc = data.eSFC;
    ind.mfc = data.mfn;
    ind.sfc = data.sfn;
    ind.inc = data.inc;
    ind.nearEndportNo = static_cast<u8>(following.port - 1);
    ind.farEndportNo = static_cast<u8>(leading.port - 1);
    ind.delayC4T1High = static_cast<u32>(leading.delay.C4T1_ps >> 32);
    ind.delayC4T1Low = static_cast<u32>(leading.delay.C4T1_ps);
    ind.delayT1C1High = static_cast<u32>(leading.delay.T1C1_ps >> 32);
    ind.delayT1C1Low = static_cast<u32>(leading.delay.T1C1_ps);
    ind.linkMode = leading.delay.linkMode;
    ind.linkStability = leading.delay.linkStability;
    following.near.node().mainProcessor().sendLayout(ind);
}

}  // namespace sim
