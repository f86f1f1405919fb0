// kvd_ipsynctsiadm.h - NTP packets of the node's IP sync service, handed to the regulator and the
// performance counters while their NTP reference is selected.
// Owner   the manager process; printInfo, which only reads, runs in the shell's.
// Errors  everything is traced; a packet that can't be used is dropped.
#pragma once
#include "ose/types.h"

struct Signal;

enum IpSyncTsiState : u32 {
    STATE_UNAVAILABLE = 0,
    STATE_INITIATING = 1,
    STATE_AVAILABLE = 2,
    STATE_SUSPENDED = 3,
    STATE_REJECTED = 4,
};

/// Asks for the service: up to three tries, 500 ms of the caller's time after each that fails. A
/// service that isn't there yet is waited for and holds up nothing.
void KvdLoz6TuIpSyncTsiAdm_initiate();
bool KvdLoz6TuIpSyncTsiAdm_dispatch(Signal* sig);
/// "tuipsynctsi" section of kvdinfo.
void KvdLoz6TuIpSyncTsiAdm_printInfo();

// ---- for tests ----

struct IpSyncTsiCounts {
    u32 numberOfNtpPackets;              // accepted since the last selection
    u32 numberOfIgnoredNtpPackets;       // of another reference, since the program's start
};
u32 KvdLoz6TuIpSyncTsiAdm_state();
u32 KvdLoz6TuIpSyncTsiAdm_selectedSynchRef();   // froId, FRO_NONE while another or none is selected
IpSyncTsiCounts KvdLoz6TuIpSyncTsiAdm_counts();
