// link_cpri.h - A CPRI link between two units of a node, for IDL2: each end's port server measures when
// the other end's frames come, the main processor answers the follower's numbers with the leader's newest.
#pragma once
#include "sig/tuiif_sig.h"
#include "sim/clock/random.h"
#include "sim/node/idpi_server.h"
#include "sim/node/main_processor.h"
#include "sim/scenario/link.h"

namespace sim {

class CpriLink : public Link {
public:
    CpriLink(ose::World& world, const LinkSpec& spec, Unit& from, Unit& to);

    void setUp(bool up) override;
    void turn() override;
    /// Another link of the same node: a master's time data goes from link to link, down the chain.
    void isBeside(CpriLink& other) { others_.push_back(&other); }

private:
    struct End {
        Unit& near;
        Unit& far;
        PhaseNoise noise;
        Random jitter;
        LinkFault unstable;
        u16 port;
        IdpiDelay delay = {};                   // as measured last
        bool asksForTime = false;               // the unit did, of its present main processor
    };
    End& endOf(const Unit& unit) { return &unit == &atFrom_.near ? atFrom_ : atTo_; }
    std::optional<IdpiDelay> measure(End& end);
    void tellPorts();
    void onForward(Unit& unit, const MpRecord& record);
    bool follows(const Unit& unit) const { return isUp() && &follower() == &unit; }
    void onMaster(const Unit& master, const KvdTuiifIdl2TimeDataInd& data, bool direct);
    void onFollower();
    void carry(const KvdTuiifIdl2TimeDataInd& data, bool direct);

    ose::World& world_;
    End atFrom_, atTo_;
    KvdTuiifIdl2SyncReportInd report_{};        // of the leader, when it follows another itself
    std::vector<CpriLink*> others_;
    KvdTuiifIdl2TimeDataInd newest_{};          // of the master; its jumps stay until they are carried
    bool newestIsDirect_ = false;
    const Unit* master_ = nullptr;              // whose it is
    ose::Time newestAt_ = -1;                   // -1: none
    ose::Time jumpAt_ = -1;                     // the master's last one, -1: none
};

}  // namespace sim
