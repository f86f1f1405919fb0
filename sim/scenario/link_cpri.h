// link_cpri.h - A CPRI link between two units of a node, for IDL2: each end's port server measures when
// the other end's frames come, the main processor carries the leader's numbers to the follower.
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
    void leadsTo(CpriLink& below) { below_.push_back(&below); }

private:
    IdpiDelay measure(Unit& near, Unit& far, PhaseNoise& noise, bool unstable);
    void tellPorts();
    void onMaster(const KvdTuiifIdl2TimeDataInd& data, bool direct);
    void carry(const KvdTuiifIdl2TimeDataInd& data, bool direct);

    ose::World& world_;
    PhaseNoise noiseFrom_, noiseTo_;
    IdpiDelay atFrom_;                          // as measured last
    KvdTuiifIdl2SyncReportInd report_{};        // of the leader, when it follows another itself
    std::vector<CpriLink*> below_;
};

}  // namespace sim
