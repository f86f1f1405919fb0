// delay_recorder.h - Delays of the packets between units and masters, as the network has them, a pair a
// sample.
#pragma once
#include "app/recording.h"
#include "sim/net/network.h"
#include "sim/scenario/scenario.h"

#include <map>
#include <utility>

namespace app {

class DelayRecorder {
public:
    /// Every path of the scenario between a unit and another host. The network must stay where it is.
    void watch(sim::Network& network, const sim::Scenario& scenario);
    void sample();
    /// Of a unit, one for each peer; once.
    std::vector<PacketDelays> take(const std::string& unit);

private:
    struct Pair { float down_us, up_us; PacketDelays series; };
    std::map<std::pair<std::string, std::string>, Pair> pairs_;   // by unit and peer
};

}  // namespace app
