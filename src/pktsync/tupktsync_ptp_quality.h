// tupktsync_ptp_quality.h - What a grandmaster's Announce is worth: QualityLevelIndex of an ITU-T
// G.8275.1 master and the fault bits that an Announce sets or clears under each profile. Stateless.
#pragma once
#include "pktsync/tupktsync_ptp_msg.h"

#include <array>

/// Bits of a clock's fault word.
enum PtpFault : u32 {
    FAULT_NO_ANNOUNCE = 0x1,
    FAULT_CLOCK_CLASS = 0x2,
    FAULT_CLOCK_ACCURACY = 0x4,
    FAULT_SYNC_FAILED = 0x8,
    FAULT_SYNC_DEGRADED = 0x10,
    FAULT_SYNC_RATE = 0x20,                   // below the requirement
    FAULT_NO_DELAY_RESP = 0x40,
    FAULT_DELAY_REQ_RATE = 0x80,              // below the requirement
    FAULT_UC_NO_REPLY = 0x100,
    FAULT_UC_NO_AGREE = 0x200,
    FAULT_UC_MC_NOK = 0x400,
    FAULT_UC_CANCELLED = 0x800,
    FAULT_FREQ_NOT_TRACEABLE = 0x1000,
    FAULT_TIME_NOT_TRACEABLE = 0x2000,
    FAULT_TRACEABLILITY_INCONSISTENT = 0x4000,
};
constexpr u32 FAULTS_SYNC = FAULT_SYNC_FAILED | FAULT_SYNC_DEGRADED;
constexpr u32 FAULTS_UNICAST = FAULT_UC_NO_REPLY | FAULT_UC_NO_AGREE | FAULT_UC_MC_NOK | FAULT_UC_CANCELLED;

/// Class, accuracy and traceability that an Announce tells.
struct PtpTraceability {
    u8 clockClass = 0;
    u8 clockAccuracy = 0;
    bool timeTraceable = false;
    bool frequencyTraceable = false;
    bool operator==(const PtpTraceability&) const = default;
};

/// Row of the table of classes, 0 to 48.
u8 ptpQualityLevelIndex(const PtpTraceability& t);
/// Of a time reference under ITU_T_G_8275_1: `faults` with class, accuracy and traceability set anew.
u32 ptpFaultsG82751(u8 qualityLevelIndex, u32 faults);

/// What a syncref requires of its master.
struct PtpRequirement {
    bool isFrequency = false;                 // a packet frequency reference
    u8 clockClass = 248;
    std::array<u8, 5> freqClockClassG8265_1{};
    u8 clockAccuracy = 0xFE;
};
/// Of a frequency reference, or under IEEE_1588_J3.
u32 ptpFaultsJ3(const PtpRequirement& required, const PtpTraceability& t, bool ptpTimescale, u32 faults);
