// kvd_gps_osl.h - GPS out sync link: another unit's output as a reference.
#pragma once
#include "ose/types.h"

struct Signal;

constexpr u32 RC_UNKNOWN = 10;   // remote radio clock state

int  KvdLoz6GpsOsl_dispatch(Signal* sig);
void KvdLoz6GpsOsl_handleInt();
void KvdLoz6GpsOsl_statusChange(u32 present);
void KvdLoz6GpsOsl_closePort();
/// End of the path's filter: its own state follows as a row's does.
void KvdLoz6GpsOsl_filterEnd(u32 row);
void KvdLoz6GpsOsl_storeRemoteState(u32 state);
/// Sends the stored remote state to the main processor.
void KvdLoz6GpsOsl_sendRemoteState();
void KvdLoz6GpsOsl_supervision(const Signal* sig, u32 row);
void KvdLoz6GpsOsl_printInfo();
