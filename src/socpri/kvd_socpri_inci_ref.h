// kvd_socpri_inci_ref.h - References of SYNC-INCI connections, the same way on both sides.
#pragma once
#include "ose/types.h"

constexpr i32 INCI_FIRST_KEY = 1234;

/// 32-bit MurmurHash3, but for the byte order of the blocks (big-endian) and the second multiplier of the
/// final mix (0x02B2AE35).
u32 inciReferenceHash(const void* data, u32 len, u32 seed);

struct InciReference {
    i32 key;             // what was hashed, in decimal
    u32 reference;
};
/// The next reference of a side: its key times the unit's number, hashed; the key goes on by one and wraps.
/// With an even apn it ends at -1, so that from the 33rd on at the latest all references are the same.
InciReference inciNextReference(i32& key, u32 apn, u32 nodeIdentifier);
