// link_gps_out.h - A unit's GPS output at another unit: its 1PPS at the receiver's input, its serial
// line at the receiver's. The other way the line carries nothing. Sentences and binary frames pass alike.
#pragma once
#include "sim/board/edge_source.h"
#include "sim/clock/random.h"
#include "sim/scenario/link.h"

namespace sim {

class GpsOutLink : public Link, public EdgeSource {
public:
    GpsOutLink(ose::World& world, const LinkSpec& spec, Unit& from, Unit& to);
    ~GpsOutLink() override;

    void setUp(bool up) override;

    // ---- EdgeSource -----------------------------------------------------------------------------
    bool present() const override;
    ose::Time nextEdge(ose::Time now) override { return edge_ > now ? edge_ : -1; }

private:
    void onPulse();
    void onText(std::vector<u8> bytes);

    ose::World& world_;
    PhaseNoise noise_;
    Random garble_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
    ose::Time edge_ = -1;              // that the last pulse makes at the far end
    ose::Time pulsedAt_ = -1;
    ose::Time lineFree_ = 0;
};

}  // namespace sim
