// kvd_phyadm.h - Physical ports (PDH and SDH lines) as the node's port service announces them.
// Owner   the manager process.
// Errors  everything is traced, the table is left as it was.
#pragma once
#include "ose/types.h"

struct Signal;

constexpr u32 PHY_PORTS = 5;             // rows of the port table
constexpr u32 PHY_LINE_NONE = 65535;     // line of a free row

enum PhyOpState : u16 { PHY_DISABLED = 0, PHY_ENABLED = 1 };
enum PhyAdState : u16 { PHY_LOCKED = 0, PHY_UNLOCKED = 1, PHY_SHUTTINGDOWN = 2 };
enum PhySyncState : u8 { PHY_SYNC_OK = 0, PHY_SYNC_DEGRADED = 1, PHY_SYNC_DEAD = 2 };

/// One row of the port table.
struct PhyPortInfo {
    u32 line = PHY_LINE_NONE;
    u32 froId = 0xFFFFFFFF;
    u16 opState = PHY_DISABLED;
    u16 adState = PHY_LOCKED;
    u8  syncState = PHY_SYNC_DEAD;
    u32 isSupervised = 0;                // the main processor uses the line as a reference
    u32 cepId = 0;                       // connection end point of the service, 0 is none
};

bool KvdLoz6TuPhyAdm_dispatch(Signal* sig);
/// At each start of the components.
void KvdLoz6TuPhyAdm_restart(u32 isFirstStart);
/// The main processor went away.
void KvdLoz6TuPhyAdm_stop();
/// Line of a froId as the service numbers it; unknown: traced, 0. FRO_NONE gives PHY_LINE_NONE
/// while a row is free.
u32  KvdLoz6TuPhyAdm_lineOfFroId(u32 froId);
/// A row of the table holds this froId. What an unknown one names is no line, 0 least of all.
bool KvdLoz6TuPhyAdm_knowsFroId(u32 froId);
/// The main processor supervises the line (1) or not (0).
void KvdLoz6TuPhyAdm_setSupervised(u32 froId, u32 isSupervised);
/// A row of the table, 0 to PHY_PORTS - 1.
const PhyPortInfo& KvdLoz6TuPhyAdm_row(u32 row);
/// "tuphy" section of kvdinfo.
void KvdLoz6TuPhyAdm_printInfo();
