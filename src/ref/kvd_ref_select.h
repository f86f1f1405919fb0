// kvd_ref_select.h - Carries out a selection that the main processor made.
// Owner   the manager process.
#pragma once
#include "ose/types.h"
#include "sig/ref_types.h"

/// True when a change was carried out on a master, false otherwise.
bool KvdLoz6TuRef_selectSynchRef(u8 refType, u32 froId, u32 froClassNo);
