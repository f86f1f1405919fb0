// kvd_fifo_reg.h - Ring of the regulator's control steps, a record a step, for trouble reports.
// Owner   the manager process fills; Kvd_loz6_fifo_proc reads it without a lock while it writes a
//         file.
// Units   s and s/s unless a name says otherwise.
// Errors  none.
#pragma once
#include "base/tu_common.h"
#include "ose/types.h"

#include <array>

/// What a control step leaves. Of the six states the record keeps time and frequency, of a covariance their
/// four elements.
struct FifoRegStep {
    char time[TIME_STAMP_SIZE] = {};      // when it began
    u32 z_i = 0;                          // measurement index
    double c = 0, f = 0;                  // frame counter's time: s, multiples of 1024, and the rest
    double z = 0;                         // s; the normalised temperature of a temperature step
    double R = 0;                         // s^2
    double m = 0;
    std::array<double, 6> x_pred{}, x_est{}, K{};
    std::array<double, 36> P_pred{}, P_est{};
    double Uf = 0, duf = 0;               // divider after the step, and the step
};

/// Time of the edge that the next step of a reference belongs to; that step's record takes it.
void KvdLoz6FifoReg_setLatchedTime(double latchedTime);
/// A step of temperature has no latched time, and leaves the one that waits.
void KvdLoz6FifoReg_add(const FifoRegStep& step);
