// link_cpri.h - A CPRI link between two units of a node, for IDL2: each end's port server measures when
// the other end's frames come, the main processor answers the follower's numbers with the leader's newest.
#pragma once
#include "iif/tuiif_sig.h"
#include "sim/clock/random.h"
#include "sim/node/idpi_server.h"
#include "sim/node/main_processor.h"
#include "sim/scenario/link.h"

namespace sim {

class CpriLink : public Link {
public:
    CpriLink(ose::World& world, const LinkSpec& spec, Unit& from, Unit& to);

    void setUp(bool up) override;
    /// The master's time data goes on to `below`, whose leader is this link's follower.
    void leadsTo(CpriLink& below)
    {
        below_.push_back(&below);
        below.above_ = this;
    }

private:
    IdpiDelay measure(Unit& near, Unit& far, PhaseNoise& noise, bool unstable);
    void tellPorts();
    void onMaster(const KvdTuiifIdl2TimeDataInd& data, bool direct);
    void onFollower();
    void carry(const KvdTuiifIdl2TimeDataInd& data, bool direct);

    ose::World& world_;
    PhaseNoise noiseFrom_, noiseTo_;
    IdpiDelay atFrom_;                          // as measured last
    KvdTuiifIdl2SyncReportInd report_{};        // of the leader, when it follows another itself
    std::vector<CpriLink*> below_;
    const CpriLink* above_ = nullptr;           // whose follower leads here
    KvdTuiifIdl2TimeDataInd newest_{};          // of the master; its jumps stay until they are carried
    bool newestIsDirect_ = false;
    ose::Time newestAt_ = -1;                   // -1: none
    ose::Time jumpAt_ = -1;                     // the master's last one, -1: none
};

}  // namespace sim
