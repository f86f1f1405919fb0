// kvd_reg_packet.h - Packet measurements, delay histories and the supervision of frequency and delay.
#pragma once
#include "ose/types.h"

struct Signal;

/// Signals of the packet measurements offered by the regulator: 1 when taken.
int  KvdLoz6TuReg_packetDispatch(Signal* sig);
void KvdLoz6TuReg_onPktTimeRefInit();
void KvdLoz6TuReg_onPktTimeRefTerm();
/// Starts a delay history anew: type 0 NTP, 1 packet frequency, 2 packet time.
void KvdLoz6TuReg_restartPdvHistory(u32 type, u32 refId);
/// Supervision of frequency and delay variation of the selected reference.
void KvdLoz6TuReg_supervisionRestart();
void KvdLoz6TuReg_supervision(u32 z_i, double phase, double t_s, u32 interval, u32 window);
void KvdLoz6TuReg_supervisionPhaseJump();
/// A covariance reset after a run of outliers: counts their rate.
void KvdLoz6TuReg_reportPhaseJumpRate();
/// Registers and removes a packet reference: froClassNo 2, 4 or 5.
void KvdLoz6TuReg_registerPacketRef(u32 froClassNo, u32 froId);
void KvdLoz6TuReg_deregisterPacketRef(u32 froClassNo, u32 froId);
/// History of delay variation as a text; returns its length.
u32  KvdLoz6TuReg_pdvHistoryText(char* text, u32 room);
