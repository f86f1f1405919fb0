// kvd_eth.h - Ethernet references: the measurement. Their paths are supervised with all others.
// Owner   the manager process.
#pragma once
#include "ose/types.h"

struct Signal;

/// Reference edge with an Ethernet reference selected.
void KvdLoz6TuEth_handleInt();
