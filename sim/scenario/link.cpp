#include "sim/scenario/link.h"

#include "sig/tuiif_sig.h"
#include "sim/board/board.h"
#include "sim/scenario/link_bfn.h"
#include "sim/scenario/link_cpri.h"
#include "sim/scenario/link_gps_out.h"
#include "sim/scenario/link_inci.h"
#include "sim/scenario/link_radio.h"
#include "sim/scenario/link_sdu.h"
#include "sim/scenario/unit.h"

#include <algorithm>
#include <cmath>

namespace sim {

std::unique_ptr<Link> makeLink(ose::World& world, const LinkSpec& spec, Unit& from, Unit& to)
{
    switch (spec.kind) {
    case LinkKind::Hptsi:
    case LinkKind::GpsOut: return std::make_unique<GpsOutLink>(world, spec, from, to);
    case LinkKind::Idl1:   return std::make_unique<BfnLink>(world, spec, from, to);
    case LinkKind::Idl2:   return std::make_unique<CpriLink>(world, spec, from, to);
    case LinkKind::Inci:   return std::make_unique<InciLink>(world, spec, from, to);
    case LinkKind::Cpri:   return std::make_unique<RadioLink>(world, spec, from, to);
    case LinkKind::Sdu:    return std::make_unique<SduLink>(world, spec, from, to);
    }
    return nullptr;
}

std::vector<std::unique_ptr<Link>> makeLinks(ose::World& world, const Scenario& scenario,
                                             const std::vector<std::unique_ptr<Unit>>& units)
{
    const auto unitOf = [&](const std::string& name) -> Unit& {
        return **std::find_if(units.begin(), units.end(), [&](const auto& u) { return u->name() == name; });
    };
    std::vector<std::unique_ptr<Link>> links;
    for (const LinkSpec& spec : scenario.links)
        links.push_back(makeLink(world, spec, unitOf(spec.from), unitOf(spec.to)));
    for (const auto& one : links)
        for (const auto& other : links) {
            auto* const link = dynamic_cast<CpriLink*>(one.get());
            auto* const beside = dynamic_cast<CpriLink*>(other.get());
            if (link != nullptr && beside != nullptr && link != beside) link->isBeside(*beside);
        }
    return links;
}

void Link::joinNode()
{
    forwardTimeData(from_, to_);
    forwardTimeData(to_, from_);
    joinClocks();
}

void Link::joinClocks()
{
    leader().node().bira().setLeader(nullptr);
    follower().node().bira().setLeader([this] { return leader().node().board().frequencyError(); });
}

void Link::forwardTimeData(Unit& sender, Unit& receiver)
{
    sender.node().mainProcessor().onForward([&receiver](const MpRecord& r) {
        if (r.sigNo == KVD_TUIIF10_TIME_DATA_IND) receiver.node().mainProcessor().send(r.bytes);
    });
}

double counterDifference_s(Unit& to, Unit& from)
{
    constexpr double TURN_s = 1024.0;
    return std::remainder(to.node().board().counterTime_s() - from.node().board().counterTime_s(), TURN_s);
}

}  // namespace sim
