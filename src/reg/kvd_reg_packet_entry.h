// kvd_reg_packet_entry.h - Where exchanges of packets come in: from the clocks of packet synchronisation and
// from the NTP service, on to the measurement. All are dropped before the regulator runs.
// Owner   the manager process; no state.
// Units   seconds and ns of a PTP time stamp (IEEE 1588-2008 clause 5.3.3), or as told.
#pragma once
#include "ose/types.h"
#include "reg/kvd_reg_packet.h"

/// A frequency exchange: seconds and 2^-32 s of T1 to T4 in turn.
void KvdLoz6TuReg_pktFreqMsg(const u32 (&halves)[8]);
/// An NTP exchange as the node's service delivers it, stamps in the NTP timestamp format: seconds in
/// the upper, their fraction in the lower 32 bits. The measurement takes the stamps alone.
struct NtpMsg {
    u64 serverData[3];
    u64 T1, T2, T3, T4;
};
void KvdLoz6TuReg_ntpMsg(const NtpMsg& msg);
/// A time exchange; the generator's delay is added on the way.
void KvdLoz6TuReg_pktTimeMsg(PktTimeMsg& msg);
