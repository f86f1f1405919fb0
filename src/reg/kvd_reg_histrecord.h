// kvd_reg_histrecord.h - The regulator's history record, 456 bytes big-endian, as it stands in
// persistent memory and on flash: the parts that its readers agree on.
#pragma once
#include "ose/types.h"

constexpr u32 HIST_RECORD_SIZE    = 456;
constexpr u32 HIST_RECORD_VERSION = 0x50006;

/// 1 when the record is of this version and none of its doubles from U[0] to T is NaN.
int KvdLoz6TuReg_validateHistory(const u8* record);
