// kvd_mgr_mem_int.h - What the two sources of the persistent memory client share: negotiation and
// allocation (kvd_mgr_mem.cpp), content and checksums (kvd_mgr_mem_data.cpp).
#pragma once
#include "base/kvd_timer.h"
#include "node/msi.h"
#include "store/kvd_mgr_mem.h"

#include <array>

constexpr SIGSELECT KVD_TUMEM_ASK_AGAIN_TMO = 0x9C691;   // timer, no data

namespace mem {

struct Region {                          // descriptor
    u32 size = 0;
    u32 clientRef = 0;
    char name[MSI_NAME_SIZE] = {};
    bool valid = false;                  // confirmed by the service
    u32 type = 0;                        // as it was confirmed
    u32 address = 0;                     // 0: not allocated
    bool wanted = false;                 // its client has asked for it
    u32 clear = 0;                       // as it asked
};

enum RegionIndex : u32 { REG_HIST, GPS_OUT_OFFSET, GPS_OUT_SUM, REG_NF, SLAVE_WARM, REGION_COUNT };

struct State {
    std::array<Region, REGION_COUNT> region{};
    u32 msiState = 0;                    // 1 from the service's confirmation on
    bool startReleased = false;          // the unit's start was told to go on
    u8 gpsOutShadow[MEM_GPS_OUT_SIZE] = {};
    u8 regNfShadow[MEM_REG_NF_SIZE] = {};
    u8 slaveWarmPending[MEM_SLAVE_WARM_SIZE] = {};
    bool pending = false;                // slaveWarmPending waits for its region
    KvdTimer askAgainTimer;              // for what the service still owes
};
State& state();

/// Copies what is allocated of client 2 or 3 into its shadow.
void refreshShadow(u32 clientRef);

}  // namespace mem
