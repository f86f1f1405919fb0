// kvd_slave_select.h - The unit starts and stops following the other end of an inter-unit link.
// Owner   the manager process; holds no state.
// Errors  a selection that the hardware refuses is traced and answers 0.
#pragma once
#include "ose/types.h"

/// Selections, once the selection's history has been moved on: true when carried out.
bool KvdLoz6TuSlave_selectIdl1(u32 froId, u32 froClassNo);
bool KvdLoz6TuSlave_selectIdl2(u32 froId, u32 froClassNo);

/// Supervision of a link, as the main processor orders it: up with 1, not up with any other value.
void KvdLoz6TuSlave_idl1LinkInd(u32 state);
void KvdLoz6TuSlave_idl2LinkInd(u32 state);
