// kvd_reg_history.h - What the regulator remembers across a restart: when its record is written to
// persistent memory (kvd_mgr_mem.h) and to flash (kvd_reg_flashfile.h), and how a start uses it.
// The record in persistent memory is trusted for the time too, for 200 s; that on flash for the
// frequency alone.
//
// Owner   the manager process; kvd_reg_history*.cpp keep no state.
// Units   seconds, volts of the temperature sensor.
// Errors  a failed write is traced, the next one tries again; a failed read leads to the next
//         source.
#pragma once
#include "ose/types.h"

/// Ways in which an attempt to start from stored values ends.
constexpr int INITIATE_DONE = 0;
constexpr int INITIATE_NO_SYSTIME = 1;
constexpr int INITIATE_FAILED = 2;

// kvd_reg_history_start.cpp: on a master alone.
int  KvdLoz6TuReg_initiateWithMsi(double vT);
int  KvdLoz6TuReg_initiateWithFlash(double vT);
/// For the start of a GPS out sync link: 0 valid data, 1 none valid, 2 could not be read.
int  KvdLoz6TuReg_historyForPll();
/// True with a record of 456 bytes, from persistent memory when that is at most 200 s old.
bool KvdLoz6TuReg_readHistData(u8* record, u32& fromMsi);
/// The record's cold flag at hardware start: raised by a cold start, raises coldRestart otherwise.
void KvdLoz6TuReg_historyColdFlag(u32& coldRestart);

/// Writes the history: to flash when `toFlash`, otherwise to persistent memory. Nothing is written
/// unless a master is locked in frequency.
void KvdLoz6TuReg_writeHistory(bool toFlash);
/// The same for a loop that steers by itself, `y` being its frequency relative to the divider's
/// factory value. The loop judges when.
void KvdLoz6TuReg_writeHistoryFromPll(bool toFlash, double y);
/// kvdwritehist, kvdreadhist.
void KvdLoz6TuReg_forceWriteHistory(bool flash);
void KvdLoz6TuReg_printHistory();

/// kvd_reg_calibration.cpp: 1 when the calibration is soon to expire; sets the next check and the
/// expiry date.
bool KvdLoz6TuReg_calibrationExpiryCheck();
