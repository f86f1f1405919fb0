// tupktsync_ptp_bmca.h - Which of two masters is the better one: the data set comparison of IEEE
// 1588-2008 9.3.4 and the alternate one of ITU-T G.8275.1 6.3.7, each for a slave that only looks up.
// Stateless.
#pragma once
#include "pktsync/tupktsync_ptp_msg.h"

/// A master as the comparison sees it.
struct PtpDataset {
    u8  priority1 = 0;
    PtpClockQuality quality;
    u8  priority2 = 0;
    PtpClockIdentity grandmasterIdentity{};
    u16 stepsRemoved = 0;              // present: as stored, received + 1; candidate: as received
    PtpPortIdentity port;              // present: the parent's; candidate: the sender's
};

/// True when the candidate wins. A class or accuracy of 0 loses against anything.
bool dataSetBmcaComparison(const PtpDataset& present, const PtpDataset& candidate);    // IEEE_1588_J3
bool dataSetAbmcaComparison(const PtpDataset& present, const PtpDataset& candidate);   // ITU_T_G_8275_1
/// By topology: fewer steps, then the lower port. Duplicates are traced and lose.
bool bmcaPart2Algorithm(const PtpDataset& present, const PtpDataset& candidate);
