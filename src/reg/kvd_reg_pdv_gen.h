// kvd_reg_pdv_gen.h - Entries of packet time stamps to the measurements, and the test generator
// that adds delay variation to them.
// Owner   the manager process; only kvd_reg_pdv_gen.cpp writes this module's state.
// Units   seconds and ns of a PTP time stamp (IEEE 1588-2008 clause 5.3.3).
// Errors  files that are missing or too short change nothing and are not told.
#pragma once
#include "ose/types.h"
#include "reg/kvd_reg_packet.h"

struct Signal;

enum PdvType : u32 { PDV_NTP = 0, PDV_PTP_FREQ = 1, PDV_PTP_TIME = 2 };
constexpr u32 PDV_UPLINK = 1, PDV_DOWNLINK = 2;    // bits of a direction

/// Switches a direction on or off and loads the table: from the uplink's file while that direction
/// alone is on, else from the downlink's for both. Only PDV_PTP_TIME has an effect on packets.
void KvdLoz6TuReg_genPdv(u32 type, u32 direction, u32 enable);
/// KVD_TUHWIF_GEN_PDV_REQ.
void KvdLoz6TuReg_onGenPdvReq(const Signal* sig);
/// At start: what the files on the volume ask for.
void KvdLoz6TuReg_genPdvAutomatic();
/// Takes the next entry of the table into T4 (uplink) and T2 (downlink).
void KvdLoz6TuReg_addPdv(PktTimeMsg& msg);

/// A frequency exchange: seconds and 2^-32 s of T1 to T4 in turn. All kinds are dropped before the
/// regulator runs.
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
