#include "unit/kvd_unit_link.h"

#include "ose/module_data.h"

namespace {
ose::ModuleData<KvdUnitLink> s;
}

KvdUnitLink& KvdUnit_link() { return *s; }

u32 KvdLoz6BiraIifAdm_hasHwControl() { return s->hasHwControl; }
u32 KvdLoz6BiraIifAdm_idlMode() { return s->idlMode; }
u32 KvdLoz6BiraIifAdm_timeTuningOngoing() { return s->timeTuningOngoing; }
u8  KvdLoz6BiraIifAdm_startType() { return s->startType; }
u32 KvdLoz6BiraIifAdm_idl2InitState() { return s->idl2InitState; }
u32 KvdLoz6BiraIifAdm_initiatedFromSlaveMsi() { return s->fromSlaveMsi; }
