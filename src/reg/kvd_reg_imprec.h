// kvd_reg_imprec.h - Recovery of a unit that believes it is locked in time and meets lasting offsets.
#pragma once
#include "ose/types.h"

/// Events of the recovery machine: 2 reference configured, 3 control step done.
void KvdLoz6TuReg_recoveryEvent(u32 event);
/// Watches each used measurement.
void KvdLoz6TuReg_recoveryWatch(double z);
