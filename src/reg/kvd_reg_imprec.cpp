// The recovery machine isn't part of this load yet: events and measurements pass by.
#include "reg/kvd_reg_imprec.h"

void KvdLoz6TuReg_recoveryEvent(u32) {}
void KvdLoz6TuReg_recoveryWatch(double) {}
