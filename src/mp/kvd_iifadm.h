// kvd_iifadm.h - Interface to the main processor: connection, clock state, status, senders.
// Owner   the manager process; senders are also called from packet sync's process.
// Errors  a signal is dropped unless the connection is ready.
#pragma once
#include "mp/kvd_iifadm_send.h"
#include "ose/types.h"

enum TuiifStartState : u32 {
    TUIIF_LOZ6_STARTED = 0,
    TUIIF_BVQ_RESTARTED = 1,
    TUIIF_START_RESTART_READY = 2,
    TUIIF_ERROR = 3,
};

/// SoCPRI was active before this start.
void KvdLoz6TuIifAdm_setSocpriMarker(u32 wasActive);
u32  KvdLoz6TuIifAdm_socpriMarker();
/// The marker's file, which lives as long as SoCPRI does. 0 for done.
int  KvdLoz6TuIifAdm_createSocpriMarkerFile();
int  KvdLoz6TuIifAdm_deleteSocpriMarkerFile();
u32  KvdLoz6TuIifAdm_hasSocpriMarkerFile();

u32  KvdLoz6TuIifAdm_startState();
PROCESS KvdLoz6TuIifAdm_peer();
u32  KvdLoz6TuIifAdm_apn();
u32  KvdLoz6TuIifAdm_smn();
u32  KvdLoz6TuIifAdm_piuInstanceId();
u8   KvdLoz6TuIifAdm_storedMasterSlaveMode();   // as negotiated, any value
/// 1 master, 0 slave; any other stored value is traced and reads as 0.
u8   KvdLoz6TuMgr_masterSlaveMode();
bool KvdLoz6TuMgr_isMaster();
u8   KvdLoz6TuIifAdm_radioClockState();

/// Clock state: report of the regulator, its regState.
void KvdLoz6TuIifAdm_reportRegState(u8 regState);
/// A loop's word replaces the regulator's. It reports nothing: a loop reports each clock state on
/// its way by updateRadioClockState.
void KvdLoz6TuIifAdm_reportPllState(u32 pllState);             // PllState
void KvdLoz6TuIifAdm_reportSlavePllState(u32 slavePllState);   // SlavePllState
/// Shows a clock state: with the holdover twins, thresholds and the time mode applied, and reported
/// when it differs from what is shown.
void KvdLoz6TuIifAdm_updateRadioClockState(u8 state);
/// The same for a component outside of the regulator; the regulator's word stays what it was.
void KvdLoz6TuIifAdm_reportClockState(u8 clockState);
/// The next status goes out whatever it says; set by the loop at its state changes.
void KvdLoz6TuIifAdm_setForceSend();
u8   KvdLoz6TuIifAdm_lastRegulatorState();
/// "KVD_TUIIF_FREQUENCY_LOCKED" for 3, "UNKNOWN" beyond the names.
const char* KvdLoz6TuIifAdm_clockStateText(u8 clockState);
/// "FREQ_LOCKED" for 5, "UNKNOWN" beyond the names.
const char* KvdLoz6TuIifAdm_remoteRcStateText(u32 state);

/// tuiifRefState: the word of usable references. Set and clear store; updateRefState reports.
u32  KvdLoz6TuIifAdm_tuiifRefState();
void KvdLoz6TuIifAdm_setRefStateBits(u32 bits);
void KvdLoz6TuIifAdm_clearRefStateBits(u32 bits);
void KvdLoz6TuIifAdm_storeRefState(u32 tuiifRefState);   // no sending
void KvdLoz6TuIifAdm_updateRefState(u32 tuiifRefState);  // stores and sends the status
/// Marks the status as not sent.
void KvdLoz6TuIifAdm_markNotSent();
void KvdLoz6TuIifAdm_updateLtr(u32 detected);
void KvdLoz6TuIifAdm_updateDegraded(u8 status);
/// Forgets the status texts of GPS, HPTSI and GPS out sync link, so that each goes out again.
void KvdLoz6TuIifAdm_clearStatusTexts();

/// Client view of the selection.
u8   KvdLoz6TuIifAdm_selectedRef();
u8   KvdLoz6TuIifAdm_prevSelectedRef();
/// Active references as ids, for the history of switches.
u32  KvdLoz6TuIifAdm_activRefFroId();
u32  KvdLoz6TuIifAdm_activRefFroClassNo();

/// Forced lock: SYNCH1 to SYNCH3 count as locked while it runs (86400000 ms).
void KvdLoz6TuIifAdm_startForceLockedTimer();
bool KvdLoz6TuIifAdm_forceLockedTimerRuns();

// Everything that goes to the main processor stands in kvd_iifadm_send.h.

/// Manual accuracy mode of kvdconfigtimeacc.
void KvdLoz6TuIifAdm_setManualAccuracy(u32 on);
u32  KvdLoz6TuIifAdm_manualAccuracy();
/// Holdover thresholds in minutes, 0 none, by class.
enum HoldoverClass : u32 { HOLDOVER_FREQ = 0, HOLDOVER_TO = 1, HOLDOVER_RNT = 2 };
u32  KvdLoz6TuIifAdm_holdoverThreshold(u32 holdoverClass);
/// A running timer of a threshold that is 0 ends at the next clock state update, without effect.
void KvdLoz6TuIifAdm_setHoldoverThreshold(u32 holdoverClass, u32 minutes);
