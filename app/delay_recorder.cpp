#include "app/delay_recorder.h"

#include <algorithm>
#include <limits>

namespace app {

constexpr float NONE = std::numeric_limits<float>::quiet_NaN();

void DelayRecorder::watch(sim::Network& network, const sim::Scenario& scenario)
{
    const auto isUnit = [&scenario](const std::string& name) {
        return std::ranges::any_of(scenario.units,
                                   [&](const sim::UnitSpec& u) { return u.node.name == name; });
    };
    for (const sim::PathSpec& p : scenario.paths)
        for (const auto& [unit, peer] : {std::pair(p.from, p.to), std::pair(p.to, p.from)})
            if (isUnit(unit)) pairs_.try_emplace({unit, peer}, Pair{NONE, NONE, {peer, {}, {}}});
    if (pairs_.empty()) return;
    network.onCarry([this](const sim::NetHost& from, const sim::NetHost& to, ose::Time delay) {
        const float us = static_cast<float>(static_cast<double>(delay) * 1e-6);
        if (const auto down = pairs_.find({to.netName(), from.netName()}); down != pairs_.end())
            down->second.down_us = us;
        if (const auto up = pairs_.find({from.netName(), to.netName()}); up != pairs_.end())
            up->second.up_us = us;
    });
}

void DelayRecorder::sample()
{
    for (auto& [names, pair] : pairs_) {
        pair.series.down_us.push_back(std::exchange(pair.down_us, NONE));
        pair.series.up_us.push_back(std::exchange(pair.up_us, NONE));
    }
}

std::vector<PacketDelays> DelayRecorder::take(const std::string& unit)
{
    std::vector<PacketDelays> delays;
    for (auto& [names, pair] : pairs_)
        if (names.first == unit) delays.push_back(std::move(pair.series));
    return delays;
}

}  // namespace app
