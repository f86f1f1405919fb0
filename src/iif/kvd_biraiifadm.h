// kvd_biraiifadm.h - Client of the node's basic timing function ("Syncdrv_proc"), which owns the hardware
// until this program takes it: start negotiation, type of the inter-unit link, hand-over of the hardware
// both ways, the slave's warm data at a restart.
// Owner   the manager process.
// Units   timers in ms.
// Errors  a server that isn't there or refuses leaves the hardware to this program. One that says nothing in
//         the start blocks it, which is traced until it answers or dies; a unit that runs waits for it a few
//         seconds only, and takes its answers when they come.
#pragma once
#include "ose/types.h"
#include "unit/kvd_unit_link.h"

struct Signal;

bool KvdLoz6BiraIifAdm_dispatch(Signal* sig);
/// 1 when there is no server; 0 when there is one, and it has told the link type or refused: the call
/// blocks until then.
int KvdLoz6BiraIifAdm_initiate(u32 isMaster);
/// 1 when the link type is known, or there is no server to tell it.
int KvdLoz6BiraIifAdm_started();

/// Master became slave (0) or slave master (1); before the regulator's own change.
void KvdLoz6BiraIifAdm_roleChanged(u32 isMaster);
/// Time lock failed: the hardware goes back to the server, which is told. 0 done, 1 without a server.
int  KvdLoz6BiraIifAdm_unableToTimeLock();
/// The link works and the warm data was taken: the regulator starts on it, with the stored clock status.
void KvdLoz6BiraIifAdm_finishWarmStart();
/// Clock state of an IDL1 slave on board type 2, towards the port server: IDPI_CLK_STATUS_FREE_RUNNING or
/// _LOCKED; `again` 1 tells free running before a lock. Nothing in IDL mode 2.
void KvdLoz6BiraIifAdm_idl1ClkState(u32 clkStatus, u32 again);

/// Orders of the main processor that are passed on.
void KvdLoz6BiraIifAdm_selectIdlType(u32 idl2Type, u8 synchPortNo);
void KvdLoz6BiraIifAdm_togglePersistentFreqLock(u32 value, u8 synchPortNo);
void KvdLoz6BiraIifAdm_setIdl2InitState(u32 idl2InitState);
u32 KvdLoz6BiraIifAdm_persistentFreqLock();   // 1 from the order until the server confirms it
/// "bira_iif" section of kvdinfo.
void KvdLoz6BiraIifAdm_printInfo();
