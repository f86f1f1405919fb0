// kvd_slowpi.h - ESMC client: subscribes to the ESMC frames of the Ethernet port whose path supervision was
// ordered last, tells the main processor the quality level that the peer sends, raises an alarm when the
// peer falls silent, and sends a frame a second that says do not use.
// Owner   the manager process; one context for the whole unit.
// Units   ms. Quality levels are SSM codes, 0 to 15; 255 is none.
// Errors  refusals of the service are traced; the next order of path supervision, or the service's next
//         server, begins anew.
#pragma once
#include "ose/types.h"

struct Signal;

constexpr SIGSELECT KVD_SLOWPI_HEART_BEAT_IND  = 0x9C6C0;   // own timer; its buffer is armed again and again
constexpr SIGSELECT KVD_SLOWPI_PDU_MISSING_IND = 0x9C6C1;   // own timer; its buffer is armed again and again
constexpr SIGSELECT KVD_SLOWPI_ANSWER_IND      = 0x9C6C2;   // own timer

void KvdLoz6TuSlowpi_initiate();
/// Keeps or frees buffers of its two timers' numbers itself: nobody else does.
bool KvdLoz6TuSlowpi_dispatch(Signal* sig);
/// 1 for the buffer of one of its timers, which it arms again and again: nobody else frees that.
u32  KvdLoz6TuSlowpi_owns(const Signal* sig);
/// The main processor is gone: no supervision until its next order.
void KvdLoz6TuSlowpi_unsubscribe();
/// 1: the main processor selects by quality level.
void KvdLoz6TuSlowpi_selectionMode(u8 selectionProcessMode);
/// "tuslowpi" section of kvdinfo.
void KvdLoz6TuSlowpi_printInfo();
