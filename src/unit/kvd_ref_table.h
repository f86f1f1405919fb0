// kvd_ref_table.h - Table of the reference paths that can be supervised, and which reference is selected.
// Owner   the manager process; reference management (src/ref) writes, everybody reads. The toggle monitor
//         only reads lastToggleStatus.
#pragma once
#include "base/kvd_timer.h"
#include "sig/ref_types.h"

#include <array>

constexpr u32 REF_ROWS = 12;
constexpr u32 ROW_TU = 5, ROW_GPS = 6, ROW_HPTSI = 7, ROW_ETHA = 8, ROW_ETHB = 9, ROW_ETHC = 10,
              ROW_GPSOSL = 11;

enum RefStatus : u32 { REF_STATUS_UNK = 0, REF_STATUS_ON = 1, REF_STATUS_OFF = 2 };
enum FilterType : u32 { NO_FILTER = 0, HO_FILTER = 1, WTR_FILTER = 2 };
enum GpsExtToggle : u32 { NO_TOGGLE = 0, EXT_TOGGLE = 1, GPS_TOGGLE = 2 };

struct RefDesc {
    u32 supervisionStatus = 0;
    u32 refStatus = REF_STATUS_UNK;
    u32 filterType = NO_FILTER;
    u8 refType = NO_REF;
    u32 stateBits = 0;                 // Ethernet reference's own state
    u32 froId = FRO_NONE;
    u32 froClassNo = FRO_NONE;
    KvdTimer filterTimer;
};

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
    u32 ethStatusSent = 0;        // an Ethernet row's status went out since supervision last started
    u32 firstStart = 0;
    RefOwnerStatus gps, hptsi, gpsOsl;

    /// The selection, newest first: RefTypes.
    u8 selectedRef = NO_REF, prevSelRef = NO_REF, prevPrevSelRef = NO_REF;
};
/// The one record, for its writer.
RefTable& KvdLoz6TuRef_table();

u32  KvdLoz6TuRef_isFirstStart();

u32  KvdLoz6TuRef_rowOfRefType(u8 refType);
const RefDesc& KvdLoz6TuRef_row(u32 row);      // any row beyond the table reads as the first
u32  KvdLoz6TuRef_toggleMask(u32 row);
u32  KvdLoz6TuRef_stateMask(u32 row);
u32  KvdLoz6TuRef_lastToggleStatus();
u32  KvdLoz6TuRef_noChangeCounter();           // toggle indications that changed nothing
u32  KvdLoz6TuRef_refStatusBits();
void KvdLoz6TuRef_setRefStatusBits(u32 bits);
void KvdLoz6TuRef_clearRefStatusBits(u32 bits);
u32  KvdLoz6TuRef_gpsExtToggle();
u32  KvdLoz6TuRef_prevGpsToggle();
void KvdLoz6TuRef_setGpsExtToggle(u32 toggle);
const char* KvdLoz6TuRef_refTypeText(u8 refType);   // "<Unknown>" for any other value

/// The selection that the main processor made: RefTypes.
u8   KvdLoz6TuRef_selectedRef();
u8   KvdLoz6TuRef_prevSelRef();
u8   KvdLoz6TuRef_prevPrevSelRef();
