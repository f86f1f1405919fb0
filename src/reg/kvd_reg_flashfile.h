// kvd_reg_flashfile.h - History of the regulator in persistent memory and on flash.
// Owner   the manager process.
#pragma once
#include "ose/types.h"

/// Ways in which an attempt to start from stored values ends.
constexpr int INITIATE_DONE = 0;
constexpr int INITIATE_NO_SYSTIME = 1;
constexpr int INITIATE_FAILED = 2;

int  KvdLoz6TuReg_initiateWithMsi(double vT);
int  KvdLoz6TuReg_initiateWithFlash(double vT);
/// Writes the history: to flash when `toFlash`, otherwise to persistent memory.
void KvdLoz6TuReg_writeHistory(bool toFlash);
/// For the start of a GPS out sync link: 0 valid data, 1 none valid, 2 could not be read.
int  KvdLoz6TuReg_historyForPll();
/// True when the calibration is soon to expire; sets the next check.
bool KvdLoz6TuReg_calibrationExpiryCheck();
/// kvdwritehist, kvdreadhist.
void KvdLoz6TuReg_forceWriteHistory(bool flash);
void KvdLoz6TuReg_printHistory();
/// The history record's cold flag at hardware start: nothing stored leaves coldRestart as it is.
void KvdLoz6TuReg_historyColdFlag(u32& coldRestart);
