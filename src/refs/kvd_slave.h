// kvd_slave.h - Time between the two units of a node. IDL1 carries a word each way on the boards'
// BFN link; on IDL2 the port server measures the delays and the main processor hands them over.
// Both give the slave a phase difference, local less master's, for its loop; the slave's coarse
// time is kept at the master's here. The master's answer on IDL1 is here too.
// Owner   the manager process; only kvd_slave*.cpp write this module's state.
// Units   seconds; delay words are halves of a 64-bit count of ps.
// Errors  a measurement that can't be used is dropped with a trace.
#pragma once
#include "ose/types.h"
#include "sig/reg_types.h"

struct Signal;

/// Interrupt of the BFN input: a master answers, a slave in IDL mode 1 measures and echoes.
void KvdLoz6TuSlave_handleIdlInt();
/// KVD_TUIIF_IDL2_SYNC_DATA_IND: true when a measurement was finished.
bool KvdLoz6TuReg_handleIdl2Slave(const Signal* sig);

/// Sync data stopped (1) or flows (0). While it is stopped no time data goes out.
void KvdLoz6TuSlave_idl2SyncDataStopped(u32 stopped);
u32  KvdLoz6TuSlave_isIdl2SyncDataStopped();
/// IDL2 begins anew with its coarse stage: the hardware has been handed back.
void KvdLoz6TuSlave_idl2Reset();

/// The event of the IDL1 record that is being written; cleared at each interrupt.
void KvdLoz6TuSlave_setSlavePllEvent(u32 event);
/// With `keep` 1 the ring is copied to its snapshot: the time before an event, for the printout.
void KvdLoz6TuSlave_logIdl1History(u32 keep);
void KvdLoz6TuSlave_logIdl2History(u32 keep);
/// State of both links and the two snapshots; part of the "tureg" section of kvdinfo.
void KvdLoz6TuSlave_printInfo();
