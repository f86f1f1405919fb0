// link_inci.h - The path between the processes of two units that share a CPRI link: each finds the other's
// under the other unit's name. A link that goes down takes the processes behind it along.
#pragma once
#include "sim/scenario/link.h"

namespace sim {

class InciLink : public Link {
public:
    InciLink(ose::World& world, const LinkSpec& spec, Unit& from, Unit& to);

    void setUp(bool up) override;

private:
    void join();

    ose::World& world_;
};

}  // namespace sim
