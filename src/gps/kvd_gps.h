// kvd_gps.h - GPS receivers as a reference: from silence on the serial line to a time at each pulse.
// Owner   the manager process.
// Units   s, ns where a name says so; timers in ms.
// Errors  a failed opening of the line or start of a timer is traced; the state machine goes on.
#pragma once
#include "ose/types.h"

struct Signal;

void KvdLoz6TuGps_initiate();
bool KvdLoz6TuGps_dispatch(Signal* sig);
/// A latched 1PPS edge while GPS is selected.
void KvdLoz6TuGps_handleInt();
void KvdLoz6TuGps_testMode(u32 on);
/// A change from another reference: the time of day is used at once, preTimeOffset_c is 0.
void KvdLoz6TuGps_clearPreTimeOffset();
void KvdLoz6TuGps_serverGone();
/// 1PPS present or absent, as the toggle detector's filter says.
void KvdLoz6TuGps_statusChange(u32 present);
void KvdLoz6TuGps_setForceReport();
void KvdLoz6TuGps_closePort();
void KvdLoz6TuGps_selectionMode(u8 selectionProcessMode);
/// RefType that the receiver front end serves: GPS_REF, TU_REF for an external reference, or NO_REF.
u8   KvdLoz6TuGps_tuGpsRefType();
void KvdLoz6TuGps_setTuGpsRefType(u8 refType);
u32  KvdLoz6TuGps_gpssType();
/// The last type found, kept while the receiver is looked for anew.
u32  KvdLoz6TuGps_gpssTypeBackup();
bool KvdLoz6TuGps_isOperational();
/// Request for the path's supervision; before the filter of its row starts.
void KvdLoz6TuGps_supervision(const Signal* sig, u32 row);
/// Ends reception and gives the serial line up; nothing while it doesn't run.
void KvdLoz6TuGps_stop();
/// The row's filter has started: the quality level goes out.
void KvdLoz6TuGps_supervisionStarted();

/// Time query: status 0, 3, 4, 6 or 7; time in s since the GPS epoch with 7, else 0.0.
u32    KvdLoz6TuGps_time(double& time);
double KvdLoz6TuGps_compensationDelay();     // s
u32    KvdLoz6TuGps_preTimeOffset();         // seconds that must still agree
/// The process that asked for an answer of the module or the antenna, 0 when nobody waits.
PROCESS KvdLoz6TuGps_waiter();
void    KvdLoz6TuGps_clearWaiter();

/// "tugps" section of kvdinfo.
void KvdLoz6TuGps_printInfo();
/// The command gpsstatus: `rows` entries of the state history, clamped to what is held.
void KvdLoz6TuGps_printStatus(u32 rows);
