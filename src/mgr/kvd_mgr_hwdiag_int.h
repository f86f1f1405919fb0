// kvd_mgr_hwdiag_int.h - Entries of the error log, shared between the tests and their reports.
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
