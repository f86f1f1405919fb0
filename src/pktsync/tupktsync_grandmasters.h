// tupktsync_grandmasters.h - The last 20 grandmasters that clocks took, for the printouts.
// Owner   Kvd_loz6_tupktsync_proc writes; a command reads.
#pragma once
#include "pktsync/tupktsync_ptp_msg.h"

/// Appends, unless the last entry is the same.
void TuPktsync_addGrandmaster(u32 syncrefId, const PtpClockIdentity& grandmasterIdentity);
/// The entries, the oldest first, as a text; returns its length.
u32  TuPktsync_grandmastersText(char* text, u32 room);
