// link.h - What connects two units of a scenario: the output of one at the receiver's input of the
// other, or the BFN link between their boards.
//
// `from` is the unit that leads at first, `to` the one that follows; a turn changes their parts, the ends
// stay. Both must outlive the link. A link that is down carries nothing either way; what is under way
// arrives.
#pragma once
#include "sim/clock/noise.h"
#include "sim/scenario/scenario.h"

#include <array>
#include <memory>

namespace sim {

class Link {
public:
    Link(const LinkSpec& spec, Unit& from, Unit& to) : spec_(spec), from_(from), to_(to) {}
    virtual ~Link() = default;
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

    const LinkSpec& spec() const { return spec_; }
    Unit& from() { return from_; }
    Unit& to() { return to_; }
    Unit& leader() const { return turned_ ? to_ : from_; }
    Unit& follower() const { return turned_ ? from_ : to_; }
    /// The one that followed leads from here on.
    virtual void turn() { turned_ = !turned_; }
    bool isUp() const { return spec_.up; }
    virtual void setUp(bool up) { spec_.up = up; }
    void setFault(LinkFault fault, double amount) { faults_[static_cast<u32>(fault)] = amount; }

protected:
    /// 0 while it doesn't stand.
    double faultAmount(LinkFault fault) const { return faults_[static_cast<u32>(fault)]; }

    LinkSpec spec_;
    Unit& from_;
    Unit& to_;

    bool isTurned() const { return turned_; }
    /// Of two units of one node: each is told the other's time data, the follower's basic timing
    /// function has the leader's frequency.
    void joinNode();
    /// The latter, again after a turn.
    void joinClocks();

private:
    void forwardTimeData(Unit& sender, Unit& receiver);

    bool turned_ = false;
    std::array<double, LINK_FAULTS> faults_{};
};

std::unique_ptr<Link> makeLink(ose::World& world, const LinkSpec& spec, Unit& from, Unit& to);

/// All links of a scenario between its units, which come in the scenario's order.
std::vector<std::unique_ptr<Link>> makeLinks(ose::World& world, const Scenario& scenario,
                                             const std::vector<std::unique_ptr<Unit>>& units);

/// The follower's counter against the leader's, within half a turn of 1024 s, s.
double counterDifference_s(Unit& to, Unit& from);

}  // namespace sim
