// soak_waits.h - Who waits for whom, between a unit, its main processor and the services of its node, and
// whether anybody waits longer than he may. All of it is seen from outside: signals, and the kernel's queues.
#pragma once
#include "sim/node/node.h"

#include <map>
#include <set>
#include <span>
#include <string>
#include <vector>

namespace app {

class SoakWaits {
public:
    explicit SoakWaits(sim::Node& node) : node_(node) {}

    void programStarts();
    /// Before an event of the unit's node: "node.service does=mute service=msi".
    void onEvent(const std::string& what);
    /// A signal of the main processor to the unit, and one of the unit to the main processor.
    void ordered(double t, std::span<const std::byte> signal);
    void told(const sim::MpRecord& record);

    /// Once a second, whether the program runs or not: which services serve.
    void lookAtServices(double t);
    /// Behind it while the program runs; `disturbed_s` is the last moment at which anything was done to
    /// anybody, `serves` that the unit's start is over. What waits without an end, a sentence for a reader;
    /// "" when nothing does.
    std::string look(double t, double disturbed_s, bool serves);
    /// The present main processor did, and still does.
    bool isRefused() const { return isRefused_; }

private:
    struct Open {
        SIGSELECT request;
        double since_s;
    };
    struct Asked {
        u32 heard = 0;                           // so often, also by a mute service
        bool isLost = false;                     // the last one was, and its sender lives
    };
    void lookAtRequests();
    std::string manager(double t, bool serves);
    std::string connection(double t);
    std::string requests(double t) const;
    std::string orders(double t, double disturbed_s) const;
    std::string phases(double t);

    sim::Node& node_;
    std::vector<Open> open_;                     // orders that have an answer
    std::map<SIGSELECT, Asked> asked_;
    std::set<std::string> mute_;                 // services
    std::map<std::string, double> well_s_;       // since when each serves
    double allWell_s_ = 0;
    double blocked_s_ = -1, apart_s_ = -1;       // since when; -1: isn't
    double unmeasured_s_ = -1;                   // as these
    bool isRadioTold_ = false;                   // a radio link as the one whose time the unit has
    u32 phases_ = 0, forwarded_ = 0;             // requests for one; those by way of the main processor
    bool isRefused_ = false;                     // by the present main processor, until it dies
};

}  // namespace app
