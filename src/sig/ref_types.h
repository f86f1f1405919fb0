// ref_types.h - Reference types and the numbering that references share.
#pragma once
#include "ose/types.h"

/// Type of a reference, in the table of supervised paths and on the main processor's interface.
enum RefType : u8 {
    NO_REF = 1,
    TU_REF = 2,            // common input: external frequency or 1PPS
    NTP_REF = 3,
    PDH_SDH_REF = 4,
    IDL1_REF = 5,
    GPS_REF = 6,
    PACKET_TIME_REF = 7,
    PACKET_FREQ_REF = 8,
    IDL2_REF = 9,
    HPTSI_REF = 10,
    ETHA_REF = 11,
    ETHB_REF = 12,
    ETHC_REF = 13,
    GPSOSL_REF = 14,
    SOCPRI_REF = 15,
};

constexpr u32 FRO_NONE = 0xFFFFFFFF;   // no froId, no froClassNo

/// Class of a reference on the main processor's interface: its froClassNo.
constexpr u32 NTP_FRO_CLASS = 2, GPS_FRO_CLASS = 3, PACKET_TIME_FRO_CLASS = 4, PACKET_FREQ_FRO_CLASS = 5,
              HPTSI_FRO_CLASS = 6, ETHERNET_FRO_CLASS = 7, SOCPRI_FRO_CLASS = 9;
/// Of each of these there is one: its froId.
constexpr u32 GPS_FRO_ID = 0, HPTSI_FRO_ID = 0;

/// The regulator's own reference values (its `selectedRef`).
enum TuSelectedRef : u32 {
    TU_SR_NO_REF = 0,
    TU_SR_PDH_REF1 = 1, TU_SR_PDH_REF2 = 2, TU_SR_PDH_REF3 = 3, TU_SR_PDH_REF4 = 4,
    TU_SR_SDH_REF = 5,
    TU_SR_GPS_REF = 6,
    TU_SR_EXT_REF = 7,
    TU_SR_NTP_REF = 8,
    TU_SR_IDL1_REF = 9,
    TU_ETH_REF = 10,
    TU_SR_EXT_1PPS_REF = 11,
    TU_SR_PKT_FREQ_REF = 12,
    TU_SR_PKT_TIME_REF = 13,
    TU_SR_IDL2_REF = 14,
    TU_SR_HPTSI_REF = 15,
    TU_GPS_OUT_REF = 16,
    TU_SR_GPSOSL_REF = 17,
    TU_SR_SOCPRI_REF = 18,
};

/// Selector of the hardware reference multiplexer.
enum HaliSyncRef : u32 {
    HALI_NO_HW_SYNC_REF = 0,
    HALI_PDH_REF_1 = 1, HALI_PDH_REF_2 = 2, HALI_PDH_REF_3 = 3, HALI_PDH_REF_4 = 4,
    HALI_SDH_REF = 5,
    HALI_GPS_HW_SYNC_REF = 6,
    HALI_EXT_HW_SYNC_REF = 7,
    HALI_ETH_REF_A = 8, HALI_ETH_REF_B = 9, HALI_ETH_REF_C = 10,
};

/// Inter-unit links.
enum IdlPort : u32 { IDLPORT_1 = 0, IDLPORT_2 = 1 };
enum IdlState : u32 { IDL_UNKNOWN = 0, IDL_SUPERVISED = 1, IDL_ON = 2, IDL_OFF = 3, IDL_WAIT_TO_RESTORE = 4 };
