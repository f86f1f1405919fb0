#include "sim/scenario/link_gps_out.h"

#include "sim/board/board.h"
#include "sim/scenario/unit.h"

namespace sim {
namespace {

/// From the output's counter to the connector: what the unit's parameter tells its program.
constexpr double OUTPUT_WAY_s = 40e-9;
/// A pulse that is missed for so long is no 1PPS any more.
constexpr ose::Time PULSE_LASTS = 1500 * ose::MS;
constexpr ose::Time BYTE_TIME = 10 * ose::SEC / 9600;

ose::Time picoseconds(double s) { return std::llround(s * 1e12); }

}  // namespace

GpsOutLink::GpsOutLink(ose::World& world, const LinkSpec& spec, Unit& from, Unit& to)
    : Link(spec, from, to), world_(world), noise_(spec.noise, world.seed(), spec.name),
      garble_(world.seed(), spec.name + ".garble")
{
    from.node().board().onOutputPulse([this] { onPulse(); });
    from.node().serial().onHeard([this](const std::vector<u8>& bytes) { onText(bytes); });
    to.node().board().connect(ReferenceInput::Pps, this);
}

GpsOutLink::~GpsOutLink()
{
    from_.node().board().onOutputPulse(nullptr);
    from_.node().serial().onHeard(nullptr);
}

void GpsOutLink::setUp(bool up)
{
    Link::setUp(up);
    if (changed) changed();
}

bool GpsOutLink::present() const
{
    return spec_.up && pulsedAt_ >= 0 && world_.now() - pulsedAt_ < PULSE_LASTS
           && faultAmount(LinkFault::NoPulse) == 0;
}

void GpsOutLink::onPulse()
{
    if (!spec_.up || faultAmount(LinkFault::NoPulse) != 0) return;
    const double now_s = static_cast<double>(world_.now()) * 1e-12;
    const double way_s = OUTPUT_WAY_s + spec_.delay_s + noise_.next(now_s)
                         + faultAmount(LinkFault::Late) * 1e-9;
    pulsedAt_ = world_.now();
    edge_ = world_.now() + std::max<ose::Time>(1, picoseconds(way_s));
    if (changed) changed();
}

/// A write arrives with its last byte.
void GpsOutLink::onText(std::vector<u8> bytes)
{
    if (!spec_.up || faultAmount(LinkFault::NoText) != 0) return;
    const double rate = faultAmount(LinkFault::Garbled);
    for (u8& b : bytes)
        if (rate > 0 && garble_.uniform() < rate) b ^= static_cast<u8>(1u << (garble_.bits() & 7));
    lineFree_ = std::max(lineFree_, world_.now()) + static_cast<ose::Time>(bytes.size()) * BYTE_TIME;
    world_.at(lineFree_, [this, alive = std::weak_ptr<bool>(alive_), text = std::move(bytes)] {
        if (!alive.expired()) to_.node().serial().feed(text.data(), text.size());
    });
}

}  // namespace sim
