// gps_sig.h - Internal signals of the GPS reference, in number order.
#pragma once
#include "ose/types.h"

#include <cstddef>

constexpr SIGSELECT KVD_TUGPS_OPERATIONAL_TIMEOUT           = 0x9C600;   // timer, no data
constexpr SIGSELECT KVD_TUGPS_WAIT_FOR_OPERATIONAL_TIMEOUT  = 0x9C601;   // timer, no data
constexpr SIGSELECT KVD_TUGPS_WAIT_FOR_VALID_MSG            = 0x9C602;   // timer, no data
constexpr SIGSELECT KVD_TUGPS_VALID_TIMEOUT                 = 0x9C603;   // timer, no data
constexpr SIGSELECT KVD_TUGPS_NMEA_MSG_REC                  = 0x9C604;   // serial process -> manager
constexpr SIGSELECT KVD_TUGPS_SERIALPORT_INITIALISED        = 0x9C605;   // to itself, no data
constexpr SIGSELECT KVD_TUGPS_SUPR_ALARM_TIMEOUT            = 0x9C606;   // timer, no data
constexpr SIGSELECT KVD_TUGPS_SELF_TEST_TIMEOUT             = 0x9C607;   // timer, no data
constexpr SIGSELECT KVD_TUGPS_SEND_TO_GPS_TIMEOUT           = 0x9C608;   // timer, no data
constexpr SIGSELECT KVD_TUGPS_SUPPR_ADDINFO_TIMEOUT         = 0x9C60A;   // timer, no data
constexpr SIGSELECT KVD_TUGPS_RESET_GPS_SATELLITES          = 0x9C60B;   // timer, no data
constexpr SIGSELECT KVD_TUGPS_RESET_GLONASS_SATELLITES      = 0x9C60C;   // timer, no data
constexpr SIGSELECT KVD_TUGPS_STATUS_MSG_SENT               = 0x9C60D;   // command -> manager, no data
constexpr SIGSELECT KVD_TUGPS_STATUS_MSG_PARSED             = 0x9C60E;   // manager -> command, no data
constexpr SIGSELECT KVD_TUGPS_RECOVERY_GPGSV_TIMEOUT_IND    = 0x9C60F;   // timer, no data
constexpr SIGSELECT KVD_TUGPS_RECOVERY_GPSTS_TIMEOUT_IND    = 0x9C610;   // timer, no data
constexpr SIGSELECT KVD_TUGPS_RECOVERY_GPVER_TIMEOUT_IND    = 0x9C611;   // timer, no data
constexpr SIGSELECT KVD_TUGPS_RECOVERY_TIMER_TIMEOUT_IND    = 0x9C612;   // timer, no data
constexpr SIGSELECT KVD_TUGPS_RECOVERY_HYSTERESIS_TIMEOUT_IND = 0x9C613;   // timer, no data
constexpr SIGSELECT KVD_TUGPS_RECOVERY_HRVSW_TIMEOUT_IND    = 0x9C614;   // timer, no data
constexpr SIGSELECT KVD_GPS_HRV_SUPERVISION_TIMEOUT_IND     = 0x9C615;   // timer, no data
constexpr SIGSELECT KVD_GPS_HRV_SUPERVISION_1PPS_TIMEOUT_IND = 0x9C616;   // timer, no data
constexpr SIGSELECT KVD_TUGPS_CHIP_MSG_PARSED_IND           = 0x9C617;   // manager -> command, no data
// GPS output.
constexpr SIGSELECT KVD_TUGPS_OUT_GPPPR_TIMEOUT             = 0x9C652;   // timer, no data
constexpr SIGSELECT KVD_TUGPS_OUT_PERIODIC_GPGGA_TIMEOUT    = 0x9C653;   // timer, no data
constexpr SIGSELECT KVD_TUGPS_OUT_CMCC_TOD_TIME_TIMEOUT     = 0x9C655;   // timer, no data
constexpr SIGSELECT KVD_TUGPS_OUT_CMCC_TOD_STATE_TIMEOUT    = 0x9C656;   // timer, no data
constexpr SIGSELECT KVD_TUGPS_OUT_SIM_INTERRUPT_TIMEOUT     = 0x9C657;   // timer, no data
constexpr SIGSELECT KVD_TUGPS_OUT_GRACE_TIMEOUT             = 0x9C658;   // timer, no data
constexpr SIGSELECT KVD_TUGPS_OUT_GPOUT_TIMEOUT             = 0x9C659;   // timer, no data

// GPS out sync link.
constexpr SIGSELECT KVD_TUGPSOSL_OPERATIONAL_TIMEOUT          = 0x9C6A0;   // timer, no data
constexpr SIGSELECT KVD_TUGPSOSL_WAIT_FOR_OPERATIONAL_TIMEOUT = 0x9C6A1;   // timer, no data
constexpr SIGSELECT KVD_TUGPSOSL_WAIT_FOR_VALID_MSG           = 0x9C6A2;   // timer, no data
constexpr SIGSELECT KVD_TUGPSOSL_VALID_TIMEOUT                = 0x9C6A3;   // timer, no data
constexpr SIGSELECT KVD_TUGPSOSL_NMEA_MSG_REC                 = 0x9C6A4;   // serial process -> manager
constexpr SIGSELECT KVD_TUGPSOSL_SERIALPORT_INITIALISED       = 0x9C6A5;   // to itself, no data
constexpr SIGSELECT KVD_TUGPSOSL_SUPR_ALARM_TIMEOUT           = 0x9C6A6;   // timer, no data

/// A sentence as it came: the characters behind the "$" up to and with the CR, then a NUL. The buffer
/// has length + 14 bytes.
struct KvdTugpsNmeaMsgRec {
    SIGSELECT sigNo;
    u32  length;               // characters, with the CR, without the NUL
    char text[1];
};
static_assert(offsetof(KvdTugpsNmeaMsgRec, length) == 4 && offsetof(KvdTugpsNmeaMsgRec, text) == 8);
