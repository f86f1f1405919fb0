// kvd_fifo_reg.h - Ring of the regulator's control steps, a record a step, for trouble reports.
// Owner   the manager process fills; Kvd_loz6_fifo_proc reads it without a lock while it writes a
//         file.
// Units   s and s/s unless a name says otherwise.
// Errors  none.
#pragma once
#include "ose/types.h"

#include <array>

/// Moves on to a record without values, of NO_REF, and stamps it.
void KvdLoz6FifoReg_newRecord();
/// Time of the edge that the next record of a reference belongs to; that record takes it.
void KvdLoz6FifoReg_setLatchedTime(double latchedTime);
/// Measurement index. A step of a reference takes the latched time, one of temperature has none.
void KvdLoz6FifoReg_setRef(u32 z_i);
void KvdLoz6FifoReg_setSfcTime(double c, double f);
void KvdLoz6FifoReg_setZ(double z);
void KvdLoz6FifoReg_setR(double R);
void KvdLoz6FifoReg_setM(double m);
/// Of the six states the record keeps time and frequency, of a covariance their four elements.
void KvdLoz6FifoReg_setPrediction(const std::array<double, 6>& x_pred,
                                  const std::array<double, 36>& P_pred);
void KvdLoz6FifoReg_setEstimate(const std::array<double, 6>& x_est,
                                const std::array<double, 36>& P_est);
void KvdLoz6FifoReg_setKgain(const std::array<double, 6>& K);
/// Divider after the step, and the step.
void KvdLoz6FifoReg_setUf(double Uf);
void KvdLoz6FifoReg_setDuf(double duf);
