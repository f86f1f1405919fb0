// link_sdu.h - The two units of one node at synchronisation over radio links: what the main processor
// hands on between the master unit (from), which regulates, and the slave unit (to), which lends its ports.
#pragma once
#include "sig/tuiif_sig.h"
#include "sim/node/main_processor.h"
#include "sim/scenario/link.h"

#include <map>

namespace sim {

class SduLink : public Link {
public:
    SduLink(ose::World& world, const LinkSpec& spec, Unit& from, Unit& to);

    /// The slave's port that the master is to see as its port X, 1 to 6; 0 for none.
    void setFocus(u8 port);

private:
    void onMaster(const MpRecord& r);
    void onSlave(const MpRecord& r);
    void handOn(const MpRecord& r, Unit& receiver);
    void tellMaster(const KvdTuiifSocpriLinkStatusFwd& link, u8 status);

    ose::World& world_;
    u8 focus_ = 0;
    std::map<u32, KvdTuiifSocpriLinkStatusFwd> links_;   // of the slave, by the unit behind; the newest word
};

}  // namespace sim
