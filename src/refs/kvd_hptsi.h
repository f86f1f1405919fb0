// kvd_hptsi.h - Dedicated time input: a 1PPS at the common input, and frames of a time of day beside it.
// Owner   the manager process; only kvd_hptsi*.cpp write this module's state.
// Units   s since the GPS epoch, ns where a name says so; timers in ms.
// Errors  a failed opening of the line or start of a timer is traced; the state machine goes on.
#pragma once
#include "ose/types.h"

struct Signal;

bool KvdLoz6TuHptsi_dispatch(Signal* sig);
/// A latched 1PPS edge while the input is selected.
void KvdLoz6TuHptsi_handleInt();
/// A change from another reference: the time of day is used at once, preTimeOffset_c is 0.
void KvdLoz6TuHptsi_clearPreTimeOffset();
void KvdLoz6TuHptsi_serverGone();
/// 1PPS present or absent, as the toggle detector's filter says.
void KvdLoz6TuHptsi_statusChange(u32 present);
/// The next OK goes while alarms are suppressed, too.
void KvdLoz6TuHptsi_setForceReport();
void KvdLoz6TuHptsi_closePort();
void KvdLoz6TuHptsi_selectionMode(u8 selectionProcessMode);
bool KvdLoz6TuHptsi_isOperational();
/// Supervision of its path by the main processor: 1 on, 0 off.
void KvdLoz6TuHptsi_supervision(const Signal* sig, u32 row);
/// Ends reception and gives the serial line up; nothing while it doesn't run.
void KvdLoz6TuHptsi_stop();
/// Time query: status 7 with the time of the next pulse, else 0 with 0.0.
u32  KvdLoz6TuHptsi_time(double& time);
/// A clock source in place of the received one, from the next frame on; false ends it.
void KvdLoz6TuHptsi_overrideClockSource(bool on, u8 clkSource);
/// "tuhptsi" section of kvdinfo.
void KvdLoz6TuHptsi_printInfo();
