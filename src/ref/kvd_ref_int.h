// kvd_ref_int.h - Shared between the sources of reference management; nobody else includes it.
#pragma once
#include "iif/tuiif_sig.h"
#include "ref/kvd_ref.h"
#include "ref/kvd_ref_history.h"
#include "ref/ref_sig.h"

#include <array>

constexpr u32 ROW_PDH_FIRST = 0, ROW_SDH = 4;

/// Bits of the toggle status word that the common input raises.
constexpr u32 TOGGLE_1PPS = 0x20, TOGGLE_EXT = 0x40;

/// tuiifRefState: which references are usable.
constexpr u32 KVD_TUIIF_NO_REF_DETECTED   = 0;
constexpr u32 KVD_TUIIF_PDH_REF1_DETECTED = 0x1;
constexpr u32 KVD_TUIIF_PDH_REF2_DETECTED = 0x2;
constexpr u32 KVD_TUIIF_PDH_REF3_DETECTED = 0x4;
constexpr u32 KVD_TUIIF_PDH_REF4_DETECTED = 0x8;
constexpr u32 KVD_TUIIF_SDH_REF_DETECTED  = 0x10;
constexpr u32 KVD_TUIIF_TU_REF_DETECTED   = 0x20;
constexpr u32 KVD_TUIIF_TU_LINK1_DETECTED = 0x40;
constexpr u32 REF_STATE_GPS               = 0x80;
constexpr u32 KVD_TUIIF_TU_LINK2_DETECTED = 0x100;
constexpr u32 REF_STATE_HPTSI             = 0x200;
constexpr u32 REF_STATE_GPSOSL            = 0x2000;

/// State of an Ethernet path in its row's stateBits: the line's clock is usable.
constexpr u32 ETH_STATE_DETECTED = 0x2;

/// A row's constant part.
struct RefRowTraits {
    u8 refType;
    u32 toggleMask;     // its bits of the toggle status word
    u32 stateMask;      // its bit of tuiifRefState, 0 is none
};
constexpr std::array<RefRowTraits, REF_ROWS> REF_ROW_TRAITS = {{
    {PDH_SDH_REF, 0x1,   KVD_TUIIF_PDH_REF1_DETECTED},
    {PDH_SDH_REF, 0x2,   KVD_TUIIF_PDH_REF2_DETECTED},
    {PDH_SDH_REF, 0x4,   KVD_TUIIF_PDH_REF3_DETECTED},
    {PDH_SDH_REF, 0x8,   KVD_TUIIF_PDH_REF4_DETECTED},
    {PDH_SDH_REF, 0x10,  KVD_TUIIF_SDH_REF_DETECTED},
    {TU_REF,      TOGGLE_1PPS | TOGGLE_EXT, KVD_TUIIF_TU_REF_DETECTED},
    {GPS_REF,     TOGGLE_1PPS | TOGGLE_EXT, REF_STATE_GPS},
    {HPTSI_REF,   TOGGLE_1PPS | TOGGLE_EXT, REF_STATE_HPTSI},
    {ETHA_REF,    0x100, 0},
    {ETHB_REF,    0x200, 0},
    {ETHC_REF,    0x400, 0},
    {GPSOSL_REF,  TOGGLE_1PPS | TOGGLE_EXT, REF_STATE_GPSOSL},
}};

/// What a receiver's owner was last told of its path.
struct RefOwnerStatus {
    u32 present = 0;        // the row's bit of tuiifRefState, 1 or 0
    u32 forceStatus = 0;    // 1: report again, changed or not
};

/// The table and what belongs to it.
struct RefTable {
    std::array<RefDesc, REF_ROWS> refDescTable;
    u32 refStatusBits = 0;        // toggle masks of the rows now ON
    u32 lastToggleStatus = 0;     // last status word that was acted on
    u32 noChangeCounter = 0;      // toggle indications that changed nothing
    u32 gpsExtToggle = NO_TOGGLE;
    u32 prevGpsToggle = NO_TOGGLE;
    u32 ethStatusSent = 0;   // an Ethernet row's status went out since supervision last started
    u32 firstStart = 0;
    RefOwnerStatus gps, hptsi, gpsOsl;
};
RefTable& KvdLoz6TuRef_table();

/// tuiifRefState to the main processor, if it differs from what it has or is marked as not sent.
void KvdLoz6TuRef_report();
const char* KvdLoz6TuRef_idlPortText(u32 port);
const char* KvdLoz6TuRef_idlStateText(u32 idlState);

// ---- supervision --------------------------------------------------------------------------------
void KvdLoz6TuRef_onPathSupervision(const KvdTuiifSynchPathSupInd* ind);
void KvdLoz6TuRef_onToggleStatus();
/// The toggle filter, and the start of a row's supervision, for a status word as the hardware gives
/// it.
void KvdLoz6TuRef_filterToggles(u32 status);
void KvdLoz6TuRef_startWithStatus(u32 row, u32 status);
void KvdLoz6TuRef_onFilterTimeout(const KvdTurefTimeoutInd* ind);

// ---- inter-unit links ---------------------------------------------------------------------------
void KvdLoz6TuRef_idlClear();
void KvdLoz6TuRef_onIdlHoTimeout(u32 port);
void KvdLoz6TuRef_onIdlWtrTimeout(u32 port);
void KvdLoz6TuRef_onIdlSupervisionTimeout(u32 port);
void KvdLoz6TuRef_onSlaveHoldoverTimeout(const KvdTurefSlaveHoldoverTimeoutInd* ind);
void KvdLoz6TuRef_onIdl2SyncDataTimeout();
void KvdLoz6TuRef_printIdl();

// ---- GPS out sync link --------------------------------------------------------------------------
void KvdLoz6TuRef_onGpsOslHoldoverTimeout();
bool KvdLoz6TuRef_gpsOslHoldoverTimerRuns();
