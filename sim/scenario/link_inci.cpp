#include "sim/scenario/link_inci.h"

#include "sim/scenario/unit.h"

namespace sim {

InciLink::InciLink(ose::World& world, const LinkSpec& spec, Unit& from, Unit& to)
    : Link(spec, from, to), world_(world)
{
    if (isUp()) join();
}

void InciLink::join()
{
    world_.link(from_.node().system(), to_.name(), to_.node().system());
    world_.link(to_.node().system(), from_.name(), from_.node().system());
}

void InciLink::setUp(bool up)
{
    if (up == isUp()) return;
    Link::setUp(up);
    if (up) return join();
    world_.unlink(from_.node().system(), to_.name());
    world_.unlink(to_.node().system(), from_.name());
}

}  // namespace sim
