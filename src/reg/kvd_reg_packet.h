// kvd_reg_packet.h - Measurements of references that come in packets: NTP, packet frequency, packet
// time. Exchanges are filtered down to the few that met the least delay, their noise is estimated,
// and their delay variation watched; beside it the supervision of every reference's frequency.
// Owner   the manager process; only kvd_reg_packet*.cpp and kvd_reg_supervision.cpp write this
//         module's state.
// Units   seconds, and ns where a name says so; delay variation in s, in the supervision in ms.
// Errors  a packet that can't be used is dropped with a trace.
#pragma once
#include "base/kvd_math.h"
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

/// One NTP or PTP frequency exchange: seconds and 2^-32 s of T1 to T4 in turn. T1 and T4 are stamps
/// of the side that asked, T2 and T3 of the one that answered.
void KvdLoz6TuReg_handlePktFreqMsg(const double (&T)[8]);
void KvdLoz6TuReg_handlePktTimeMsg(const PktTimeMsg& msg);

/// A signal of the packet measurements, offered by the regulator.
void KvdLoz6TuReg_packetDispatch(Signal* sig);
void KvdLoz6TuReg_onPktTimeRefInit();
void KvdLoz6TuReg_onPktTimeRefTerm();

/// Starts a delay history anew, and makes its reference the current one of its type: 0 NTP, 1
/// packet frequency, 2 packet time.
void KvdLoz6TuReg_restartPdvHistory(u32 type, u32 refId);
/// Registers and removes a packet reference: froClassNo 2, 4 or 5.
void KvdLoz6TuReg_registerPacketRef(u32 froClassNo, u32 froId);
void KvdLoz6TuReg_deregisterPacketRef(u32 froClassNo, u32 froId);
/// History of delay variation as a text of at least one byte; returns its length.
u32  KvdLoz6TuReg_pdvHistoryText(char* text, u32 room);

/// Limits of delay variation, ns: type 2 NTP, 4 packet time, 5 packet frequency; 0 restores the
/// default.
void KvdLoz6TuReg_setPdvThreshold(u32 type, u32 nanoseconds);
/// The limits as a text.
void KvdLoz6TuReg_pdvThresholdText(char* text, u32 room);

/// Delay variation of the selected packet reference beside its limit, s. One value of NTP and packet
/// frequency stands for both directions.
struct PacketPdv { double down = 0, up = 0, limit = 0; };
PacketPdv KvdLoz6TuReg_packetPdv(u32 froId);

/// Supervision of frequency and delay variation of the selected reference: its record begins anew;
/// one phase, s, with the measurements in an interval and in the window of its minimum.
void KvdLoz6TuReg_supervisionRestart();
void KvdLoz6TuReg_frequencySupervision(u32 interval, u32 window, double phase);
void KvdLoz6TuReg_frequencySupervision(u32 interval, u32 window, TimePair phase);
/// The next frequency value spans a step of local time.
void KvdLoz6TuReg_supervisionPhaseJump();
/// The selected frequency reference is degraded by the variation of its packets' delays.
bool KvdLoz6TuReg_pdvIsHigh();
/// A step of a reference's phase, s.
void KvdLoz6TuReg_reportPhaseJump(u32 z_i, double phase);
/// Record and timers of the packet references; part of the "tureg" section of kvdinfo.
void KvdLoz6TuReg_packetPrintInfo();
