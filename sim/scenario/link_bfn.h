// link_bfn.h - The BFN link between two boards: every tenth frame each board sends the frame that
// begins and the two words that its program has left, and the other one latches its counter when it
// comes.
#pragma once
#include "sim/clock/random.h"
#include "sim/scenario/link.h"

namespace sim {

struct BfnInput;

class BfnLink : public Link {
public:
    BfnLink(ose::World& world, const LinkSpec& spec, Unit& from, Unit& to);
    ~BfnLink() override;

    void turn() override;

private:
    struct Way {
        Unit& sender;
        Unit& receiver;
        PhaseNoise noise;
        Random damage;
    };
    void send(Way& way);
    double passage_s(Way& way);
    void disturb(Way& way);
    void deliver(Way& way, double after_s, const BfnInput& in);

    ose::World& world_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
    Way there_, back_;
};

}  // namespace sim
