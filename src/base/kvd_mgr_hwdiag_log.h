// kvd_mgr_hwdiag_log.h - Reports of hardware faults to the node's error log.
// Owner   the manager process.
// Errors  an entry that the log refuses is traced.
#pragma once
#include "ose/types.h"

enum LogEntry : u32 {
    LOG_MC0, LOG_MC1, LOG_MC2, LOG_MC3, LOG_MC4, LOG_MC5, LOG_MC6, LOG_MC7, LOG_MC8, LOG_MC9,
    LOG_MCA, LOG_MCB, LOG_MCC, LOG_MCD, LOG_MCE, LOG_MCF, LOG_MCH, LOG_MCI, LOG_MCJ, LOG_MCK,
    LOG_MCL, LOG_MCM, LOG_MCO, LOG_MCP,
    LOG_ENTRIES
};

// Report numbers beyond the start-up tests 1 to 7.
constexpr u32 REPORT_EEPROM = 8, REPORT_MULTIPLICATOR = 9, REPORT_BOARD_TYPE = 10, REPORT_BASE_ADDRESS = 20;

void KvdLoz6HwDiag_writeLog(LogEntry entry);

/// Report by test number: 1 to 10, or 20.
void KvdLoz6HwDiag_reportError(u32 testNumber);
/// Oscillator temperature: 1 good, 2 too low, 3 too high, 4 unreadable; haliResult of the reading.
void KvdLoz6HwDiag_temperatureState(u8 state, int haliResult);
/// Last stored temperature state, 0 before the first.
u8 KvdLoz6HwDiag_lastTemperatureState();
/// A counter value that can't be: error log once a program life.
void KvdLoz6HwDiag_reportSfcFailure(const char* text);
/// A negative sampling interval: error log once a program life.
void KvdLoz6HwDiag_reportSamplingFailure();
void KvdLoz6HwDiag_reportNominalFrequencyFailure();
