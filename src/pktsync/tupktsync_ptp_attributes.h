// tupktsync_ptp_attributes.h - The data sets of a PTP clock for the main processor.
// Owner   Kvd_loz6_tupktsync_proc.
#pragma once
#include "sig/tuiif_sig.h"

/// Fills the data sets of a syncref's clock in; leaves them without one.
void TuPktsync_get_ptp_attributes(u32 syncrefId, KvdTuiifGetPktRefRoAttribCfm& cfm);
