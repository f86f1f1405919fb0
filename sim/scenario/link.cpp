#include "sim/scenario/link.h"

#include "sim/scenario/link_bfn.h"
#include "sim/scenario/link_gps_out.h"
#include "sim/board/board.h"
#include "sim/scenario/unit.h"

#include <cmath>

namespace sim {

std::unique_ptr<Link> makeLink(ose::World& world, const LinkSpec& spec, Unit& from, Unit& to)
{
    switch (spec.kind) {
    case LinkKind::GpsOut: return std::make_unique<GpsOutLink>(world, spec, from, to);
    case LinkKind::Idl1:   return std::make_unique<BfnLink>(world, spec, from, to);
    }
    return nullptr;
}

double counterDifference_s(Unit& to, Unit& from)
{
    constexpr double TURN_s = 1024.0;
    return std::remainder(
        to.node().board().counterTime_s() - from.node().board().counterTime_s(), TURN_s);
}

}  // namespace sim
