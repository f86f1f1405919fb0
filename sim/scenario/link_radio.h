// link_radio.h - A radio link (CPRI) between two units of different nodes: the measurement server at each
// end has the other unit behind its port, and measures that unit's clock as it is.
#pragma once
#include "sim/scenario/link.h"
#include "sim/scenario/unit.h"

namespace sim {

class RadioLink : public Link {
public:
    RadioLink(ose::World& world, const LinkSpec& spec, Unit& from, Unit& to);

    void setUp(bool up) override;

private:
    void connect(Unit& near, Unit& far, u16 port, PhaseNoise& noise, LinkFault unstable);
    void tellEnds();

    ose::World& world_;
    PhaseNoise noiseFrom_, noiseTo_;
};

}  // namespace sim
