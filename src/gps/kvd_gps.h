// kvd_gps.h - GPS receivers.
#pragma once
#include "ose/types.h"

struct Signal;

void KvdLoz6TuGps_initiate();
int  KvdLoz6TuGps_dispatch(Signal* sig);
void KvdLoz6TuGps_handleInt();
void KvdLoz6TuGps_regStateChanged(u8 regState);
void KvdLoz6TuGps_testMode(u32 on);
void KvdLoz6TuGps_clearPreTimeOffset();
void KvdLoz6TuGps_serverGone();
void KvdLoz6TuGps_statusChange(u32 present);
void KvdLoz6TuGps_closePort();
void KvdLoz6TuGps_selectionMode(u8 selectionProcessMode);
/// RefType that the receiver front end serves: GPS_REF, TU_REF for an external reference, or NO_REF.
u8   KvdLoz6TuGps_tuGpsRefType();
void KvdLoz6TuGps_setTuGpsRefType(u8 refType);
u32  KvdLoz6TuGps_gpssType();
/// The last type found, kept while the receiver is looked for anew.
u32  KvdLoz6TuGps_gpssTypeBackup();
bool KvdLoz6TuGps_isOperational();
void KvdLoz6TuGps_supervision(const Signal* sig, u32 row);
void KvdLoz6TuGps_printInfo();
