// kvd_gps_osl.h - GPS out sync link: another unit's output, a 1PPS and its sentences, as a reference.
// Read as a receiver's are, with a state machine of its own; the phase goes to the loop.
// Owner   the manager process; only kvd_gps_osl.cpp writes this module's state.
// Units   s, ns where a name says so; timers in ms.
// Errors  a failed opening of the line or start of a timer is traced; the state machine goes on.
#pragma once
#include "ose/types.h"

struct Signal;

constexpr u32 RC_UNKNOWN = 10;   // remote radio clock state

bool KvdLoz6GpsOsl_dispatch(Signal* sig);
/// A latched 1PPS edge while the link is selected.
void KvdLoz6GpsOsl_handleInt();
/// 1PPS present or absent, as the toggle detector's filter says.
void KvdLoz6GpsOsl_statusChange(u32 present);
/// The next report goes while the alarm is suppressed, too.
void KvdLoz6GpsOsl_setForceReport();
/// The holdover of a link that was left is over: alarms are told again.
void KvdLoz6GpsOsl_holdoverEnded();
void KvdLoz6GpsOsl_serverGone();
void KvdLoz6GpsOsl_closePort();
/// End of the path's filter, after its row: what a selected reference's end means.
void KvdLoz6GpsOsl_filterEnd(u32 row);
/// Radio clock state of the far end, as its GPout tells it; RC_UNKNOWN when nothing is known, 0 before
/// the first start. The one place where it is kept: the reader of GPout stores it here.
u32  KvdLoz6GpsOsl_remoteState();
void KvdLoz6GpsOsl_storeRemoteState(u32 state);
/// Sends the stored remote state to the main processor.
void KvdLoz6GpsOsl_sendRemoteState();
void KvdLoz6GpsOsl_supervision(const Signal* sig, u32 row);
/// Ends reception and gives the serial line up; nothing while it doesn't run.
void KvdLoz6GpsOsl_stop();
/// The far end's last GPppr gave a time; false while it runs free.
bool KvdLoz6GpsOsl_givesTime();
/// Time query: status 0, 3, 4, 6 or 7; time in s since the GPS epoch with 7, else 0.0.
u32  KvdLoz6GpsOsl_time(double& time);
/// "tugps_osl" section of kvdinfo.
void KvdLoz6GpsOsl_printInfo();
