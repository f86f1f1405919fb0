// kvd_reg_pdv_gen.h - Test generator that adds delay variation to packet time stamps.
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
