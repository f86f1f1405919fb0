// hptsi_sig.h - Internal signals of the time input, in number order.
#pragma once
#include "ose/types.h"

#include <cstddef>

constexpr SIGSELECT KVD_TUHPTSI_OPERATIONAL_TIMEOUT    = 0x9C670;   // timer, no data
constexpr SIGSELECT KVD_TUHPTSI_VALID_TIME_TIMEOUT     = 0x9C671;   // timer, no data
constexpr SIGSELECT KVD_TUHPTSI_SERIALPORT_INITIALISED = 0x9C673;   // to itself, no data
constexpr SIGSELECT KVD_TUHPTSI_SUPR_ALARM_TIMEOUT     = 0x9C674;   // timer, no data
constexpr SIGSELECT KVD_TUHPTSI_CMCC_FRAME_REC         = 0x9C675;   // serial process -> manager
constexpr SIGSELECT KVD_TUHPTSI_NO_VALID_TIME_TIMEOUT  = 0x9C676;   // timer, no data
constexpr SIGSELECT KVD_TUHPTSI_MONITOR_TIMEOUT        = 0x9C677;   // timer, no data
constexpr SIGSELECT KVD_TUHPTSI_RECEIVE_FRAMES_TIMEOUT = 0x9C678;   // timer, no data

/// A frame as it came, from its "CM" on; the buffer has 8 + length bytes.
struct KvdTuhptsiCmccFrameRec {
    SIGSELECT sigNo;
    u32 length;
    u8  bytes[1];
};
static_assert(offsetof(KvdTuhptsiCmccFrameRec, length) == 4);
static_assert(offsetof(KvdTuhptsiCmccFrameRec, bytes) == 8);
