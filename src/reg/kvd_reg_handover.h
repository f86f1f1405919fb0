// kvd_reg_handover.h - The regulator of a slave when the hardware changes hands, or its link its type.
// Owner   the manager process; called by the BIRA client.
// Errors  none; before the regulator's first initiation there is nothing to do.
#pragma once
#include "ose/types.h"

/// The link is IDL2 and the hardware still the basic function's: its oscillator is warm, and the
/// start-up waits for the hand-over.
void KvdLoz6TuReg_idl2Start();
/// The hardware has been handed over: the start-up runs now, and with each temperature tick from now on.
void KvdLoz6TuReg_idl2Go();
/// The hardware is being handed back: the loop ends and the start-up waits again.
void KvdLoz6TuReg_idl2Stop();
/// The link is IDL1 and the hardware this program's: the regulator begins anew as an IDL1 slave, from
/// the frequency that the hardware has.
void KvdLoz6TuReg_resetIdl1Slave();
