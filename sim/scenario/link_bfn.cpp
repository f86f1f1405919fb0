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
    if (garbled > 0 && way.damage.uniform() < garbled)
        in.word2 ^= 1u << (way.damage.bits() % 29);
    in.parityError = way.damage.uniform() < faultAmount(LinkFault::Parity);
    const double now_s = static_cast<double>(world_.now()) * 1e-12;
    const double way_s = spec_.delay_s + way.noise.next(now_s);
    world_.after(std::max<ose::Time>(1, std::llround(way_s * 1e12)),
                 [this, alive = std::weak_ptr<bool>(alive_), &receiver = way.receiver, in] {
                     if (!alive.expired()) receiver.node().board().bfnReceived(in);
                 });
}

}  // namespace sim
