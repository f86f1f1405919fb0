// kvd_load.h - The load module: configuration, static process table, load-time sequence.
#pragma once
#include "ose/world.h"

/// The load module as the kernel takes it.
const ose::Program& KvdLoz6_program();
