// kvd_reg_force.h - Forcing of the regulator by command, and the delay variation generator.
#pragma once
#include "ose/types.h"

struct Signal;

/// freerunning.
void KvdLoz6TuReg_forceDrift();
/// kvdremovetime.
void KvdLoz6TuReg_removeTime();
/// genpdv.
void KvdLoz6TuReg_onGenPdvReq(const Signal* sig);
void KvdLoz6TuReg_generatePdv(u32 direction);
