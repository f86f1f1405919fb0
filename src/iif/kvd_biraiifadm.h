// kvd_biraiifadm.h - Client of the node's second, simpler timing function, which may own the hardware.
#pragma once
#include "ose/types.h"

struct Signal;

/// idlMode of the unit.
constexpr u32 IDL_MODE_NONE = 0;
constexpr u32 IDL_MODE_1 = 1;
constexpr u32 IDL_MODE_2 = 2;

int KvdLoz6BiraIifAdm_dispatch(Signal* sig);
/// 0 when the server is there, 1 when none was found.
int KvdLoz6BiraIifAdm_initiate(u32 isMaster);
/// 1 when the interface has been started, whatever it found.
int KvdLoz6BiraIifAdm_started();
u32 KvdLoz6BiraIifAdm_hasHwControl();
u32 KvdLoz6BiraIifAdm_idlMode();            // IDL_MODE_...
u32 KvdLoz6BiraIifAdm_timeTuningOngoing();
/// 1 on a slave that was initiated from its stored warm data.
u32 KvdLoz6BiraIifAdm_initiatedFromSlaveMsi();
/// Orders of the main processor that are passed on.
void KvdLoz6BiraIifAdm_selectIdlType(u32 idl2Type, u8 synchPortNo);
void KvdLoz6BiraIifAdm_togglePersistentFreqLock(u32 value, u8 synchPortNo);
void KvdLoz6BiraIifAdm_printInfo();
