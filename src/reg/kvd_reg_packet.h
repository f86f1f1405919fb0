// kvd_reg_packet.h - Packet measurements, delay histories and the supervision of frequency and delay.
#pragma once
#include "ose/types.h"

#include <cstddef>

struct Signal;

/// A PTP time exchange as it arrives, 72 bytes: seconds, and ns of their sign. T1 and T4 are stamps
/// of the master, T2 and T3 of this node.
struct PktTimeMsg {
    u32 syncIntervalMs;
    u32 reserved;
    i64 T1_s; i32 T1_ns; u32 reserved1;
    i64 T2_s; i32 T2_ns; u32 reserved2;
    i64 T3_s; i32 T3_ns; u32 reserved3;
    i64 T4_s; i32 T4_ns;
    i32 asymComp;                      // ns, delay asymmetry compensation
};
static_assert(offsetof(PktTimeMsg, T1_s) == 8 && offsetof(PktTimeMsg, T2_s) == 24);
static_assert(offsetof(PktTimeMsg, T3_s) == 40 && offsetof(PktTimeMsg, T4_s) == 56);
static_assert(offsetof(PktTimeMsg, asymComp) == 68 && sizeof(PktTimeMsg) == 72);

/// One NTP or PTP frequency exchange: seconds and 2^-32 s of T1 to T4 in turn.
void KvdLoz6TuReg_handlePktFreqMsg(const double (&T)[8]);
void KvdLoz6TuReg_handlePktTimeMsg(const PktTimeMsg& msg);

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
