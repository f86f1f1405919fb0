// kvd_reg_rnt.h - The node's time (RNT) as the regulator answers it, and the date of frame zero.
// Owner   the manager process; part of the regulator's dispatch.
// Units   answers as the main processor's interface has them: us, calendar fields, 2^-32 s.
// Errors  a counter that can't be read is answered with the reject.
#pragma once
#include "ose/types.h"

struct Signal;

constexpr u32 RNT_REJECT_NO_COUNTER = 5;   // rejectCause

void KvdLoz6TuReg_onGetRntToSfcDiffReq(const Signal* sig);
void KvdLoz6TuReg_onGetRntForSfnReq(const Signal* sig);
void KvdLoz6TuReg_onSetSfnInitTimeInd(const Signal* sig);
