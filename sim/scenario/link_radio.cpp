#include "sim/scenario/link_radio.h"

#include "base/frame_counter.h"
#include "sim/board/board.h"

#include <algorithm>
#include <cmath>

namespace sim {
namespace {

constexpr u8 LINK_GONE = 0, LINK_AVAILABLE = 2;

/// A unit's own, of which its links tell.
u32 sharedId(Unit& unit) { return unit.node().config().apn; }

i16 ppbOf(double relative)
{
    return static_cast<i16>(std::clamp(std::round(relative * 1e9), -32768.0, 32767.0));
}

}  // namespace

RadioLink::RadioLink(ose::World& world, const LinkSpec& spec, Unit& from, Unit& to)
    : Link(spec, from, to), world_(world), noiseFrom_(spec.noise, world.seed(), spec.name + ".from"),
      noiseTo_(spec.noise, world.seed(), spec.name + ".to")
{
    connect(from, to, spec.fromPort, noiseFrom_, LinkFault::UnstableFrom);
    connect(to, from, spec.toPort, noiseTo_, LinkFault::UnstableTo);
    tellEnds();
}

/// The server's answers about the unit behind the port; the ways of the link are measured and taken off.
void RadioLink::connect(Unit& near, Unit& far, u16 port, PhaseNoise& noise, LinkFault unstable)
{
    const auto frequency = [this, &near, &far, unstable]() -> std::optional<InrsiFrequency> {
        if (!isUp()) return std::nullopt;
        return InrsiFrequency{
            ppbOf(far.node().board().frequencyError() - near.node().board().frequencyError()),
            faultAmount(unstable) == 0};
    };
    const auto phase = [this, &near, &far, &noise, unstable]() -> std::optional<InrsiPhase> {
        if (!isUp()) return std::nullopt;
        const double now_s = static_cast<double>(world_.now()) * 1e-12;
        const double ahead_s = counterDifference_s(near, far) + noise.next(now_s);
        const double within_s = ahead_s - std::floor(ahead_s / SFN_PERIOD_s) * SFN_PERIOD_s;
        return InrsiPhase{static_cast<u64>(std::llround(within_s * 1e12)), faultAmount(unstable) == 0};
    };
    near.onRadio(port, {sharedId(far), &far, frequency, phase});
}

void RadioLink::tellEnds()
{
    const u8 status = isUp() ? LINK_AVAILABLE : LINK_GONE;
    from_.node().inrsi().setLink({spec_.fromPort, sharedId(to_), status, to_.name()});
    to_.node().inrsi().setLink({spec_.toPort, sharedId(from_), status, from_.name()});
}

void RadioLink::setUp(bool up)
{
    if (up == isUp()) return;
    Link::setUp(up);
    tellEnds();
}

}  // namespace sim
