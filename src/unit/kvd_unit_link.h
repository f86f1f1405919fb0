// kvd_unit_link.h - What the unit is to its twin: type of the link, who drives the hardware, how it was
// started.
// Owner   the manager process. The client of the basic timing function writes (iif/kvd_biraiifadm*.cpp);
//         everybody reads.
#pragma once
#include "ose/types.h"

/// Type of the link between the units, as the server tells it; 0 without a server. Hardware start has a
/// numbering of its own, HardwareIdlMode below.
constexpr u32 KVD_BIRAIIF_IDL_MODE_1 = 0;
constexpr u32 KVD_BIRAIIF_IDL_MODE_2 = 1;

/// How the server said that it started; from its confirmation on.
enum BiraStartType : u8 {
    KVD_BIRAIIF_RESTART_NOT_AVAILABLE = 0,
    KVD_BIRAIIF_RESTART_COLD = 1,
    KVD_BIRAIIF_RESTART_WARM = 2,
};

/// A slave's start from its warm data.
enum Idl2InitState : u32 {
    IDL2_WARM_INIT_UNKNOWN = 0,
    IDL2_WARM_INIT_ONGOING = 1,
    IDL2_WARM_INIT_SUCCEEDED = 2,
    IDL2_WARM_INIT_FINISHED = 3,
};

/// Which unit's hardware is set up; not the numbering of the link's type.
enum HardwareIdlMode : u32 {
    HW_IDL_MODE_NOT_AVAILABLE = 0,     // no basic function: this program sets all of it up
    HW_IDL_MODE_1 = 1,
    HW_IDL_MODE_2 = 2,
};

struct KvdUnitLink {
    u8  startType = KVD_BIRAIIF_RESTART_NOT_AVAILABLE;
    u32 hasHwControl = 0;
    u32 timeTuningOngoing = 0;
    u32 idlMode = KVD_BIRAIIF_IDL_MODE_1;
    u32 idl2InitState = IDL2_WARM_INIT_UNKNOWN;
    u32 fromSlaveMsi = 0;              // the stored warm data counted
};
/// The one record, for its writer.
KvdUnitLink& KvdUnit_link();

u32 KvdLoz6BiraIifAdm_hasHwControl();       // this program may drive the hardware
u32 KvdLoz6BiraIifAdm_idlMode();            // KVD_BIRAIIF_IDL_MODE_...
u32 KvdLoz6BiraIifAdm_timeTuningOngoing();  // a slave tunes its time on the link
u8  KvdLoz6BiraIifAdm_startType();          // BiraStartType
u32 KvdLoz6BiraIifAdm_idl2InitState();      // Idl2InitState
/// 1 on a slave that was initiated from its stored warm data.
u32 KvdLoz6BiraIifAdm_initiatedFromSlaveMsi();
