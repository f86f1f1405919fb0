#include "sim/scenario/link_bfn.h"

#include "sim/board/board.h"
#include "sim/scenario/unit.h"

#include <tuple>

namespace sim {

BfnLink::BfnLink(ose::World& world, const LinkSpec& spec, Unit& from, Unit& to)
    : Link(spec, from, to), world_(world),
      there_{from, to, {spec.noise, world.seed(), spec.name + ".there"},
             {world.seed(), spec.name + ".there.damage"}},
      back_{to, from, {spec.noise, world.seed(), spec.name + ".back"},
            {world.seed(), spec.name + ".back.damage"}}
{
    joinNode();
    from.node().board().onBfnFrame([this] { send(there_); });
    to.node().board().onBfnFrame([this] { send(back_); });
}

BfnLink::~BfnLink()
{
    from_.node().board().onBfnFrame(nullptr);
    to_.node().board().onBfnFrame(nullptr);
}

void BfnLink::turn()
{
    Link::turn();
    joinClocks();
}

void BfnLink::send(Way& way)
{
    if (!spec_.up) {
        way.sender.node().board().takeBfnWords();          // it sends them all the same
        return;
    }
    Board& board = way.sender.node().board();
    const CounterTriple frame = board.counter();
    BfnInput in;
    in.remoteMfn = frame.mfn;
    in.remoteSfn = frame.sfn;
    const auto words = board.takeBfnWords();
    in.extended = words.has_value();
    if (words) std::tie(in.word1, in.word2) = *words;
    const double garbled = faultAmount(LinkFault::Garbled);
    if (garbled > 0 && way.damage.uniform() < garbled) in.word2 ^= 1u << (way.damage.bits() % 29);
    in.parityError = way.damage.uniform() < faultAmount(LinkFault::Parity);
    deliver(way, passage_s(way), in);
    disturb(way);
}

double BfnLink::passage_s(Way& way)
{
    constexpr double NS = 1e-9;
    double way_s = spec_.delay_s + way.noise.next(static_cast<double>(world_.now()) * 1e-12);
    if (const double jitter_ns = faultAmount(LinkFault::Jitter); jitter_ns > 0)
        way_s += jitter_ns * NS * way.damage.gaussian();
    if (&way == &there_) way_s += faultAmount(LinkFault::Late) * NS;
    return way_s;
}

/// Noise: the input takes it for so many more words, evenly between two good ones, all of them damaged.
void BfnLink::disturb(Way& way)
{
    constexpr double WORD_DISTANCE_s = 0.1;
    const u32 count = static_cast<u32>(faultAmount(LinkFault::Noise));
    for (u32 i = 1; i <= count; ++i) {
        BfnInput in;
        in.parityError = true;
        in.word1 = static_cast<u32>(way.damage.bits());
        in.word2 = static_cast<u32>(way.damage.bits());
        deliver(way, WORD_DISTANCE_s * i / (count + 1), in);
    }
}

void BfnLink::deliver(Way& way, double after_s, const BfnInput& in)
{
    world_.after(std::max<ose::Time>(1, std::llround(after_s * 1e12)),
                 [alive = std::weak_ptr<bool>(alive_), &receiver = way.receiver, in] {
                     if (!alive.expired()) receiver.node().board().bfnReceived(in);
                 });
}

}  // namespace sim
