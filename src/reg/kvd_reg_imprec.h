// kvd_reg_imprec.h - Recovery of a unit that believes it is locked in time and meets lasting
// offsets: for a while the filter is widened and the divider may be steered further.
//
//   mode   0 normal, 2 widened, 1 on the way back (three controller steps)
//   event  0 offsets are small again, 1 they are lasting, 2 a reference was configured,
//          3 controller step, 4 way back is over (internal)
//
// Owner   the manager process; only kvd_reg_imprec.cpp writes this module's state.
// Units   s.
// Errors  none.
#pragma once
#include "ose/types.h"

#include <array>

struct Recovery {
    u32 recoveryModeState = 0;
    u8 steps = 0;                      // controller steps in mode 1
    std::array<double, 10> ring{};     // accepted measurements
    u32 next = 0;                      // written by the next one
};
const Recovery& KvdLoz6TuReg_recovery();

/// With the estimator's initiation.
void KvdLoz6TuReg_recoveryInitiate();
/// `z` is the measurement that led to event 1.
void KvdLoz6TuReg_recoveryEvent(u32 event, double z = 0.0);
/// Watches each used measurement.
void KvdLoz6TuReg_recoveryWatch(double z);
