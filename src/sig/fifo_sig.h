// fifo_sig.h - Signals to Kvd_loz6_fifo_proc, in number order. None carries data.
#pragma once
#include "ose/types.h"

constexpr SIGSELECT KVD_FIFO_DUMP_FIFO_TO_FILE_IND         = 0x9C700;
constexpr SIGSELECT KVD_FIFO_DUMP_SKYVIEW_FIFO_TO_FILE_IND = 0x9C701;   // also the timer's expiry
constexpr SIGSELECT KVD_FIFO_SKYVIEW_FIFO_WRITE_DATA_IND   = 0x9C702;
constexpr SIGSELECT KVD_FIFO_SKYVIEW_START_TIMER_IND       = 0x9C703;
