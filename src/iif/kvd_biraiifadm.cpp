// The interface to the node's simpler timing function isn't part of this load yet: it counts as started
// and unavailable, so that this program owns the hardware.
#include "iif/kvd_biraiifadm.h"

#include "mgr/trace_groups.h"
#include "node/platform.h"
#include "node/trace.h"
#include "ose/module_data.h"

namespace {

struct State {
    u32 biraUnavailable = 0;
    u32 hasHwControl = 0;
};
ose::ModuleData<State> s;

}  // namespace

int KvdLoz6BiraIifAdm_dispatch(Signal*) { return 0; }

int KvdLoz6BiraIifAdm_initiate(u32)
{
    KVD_TRACE(TRACE_BIRAIIFADM, TRACE_INFO, "Failed to hunt for process: %s", "Syncdrv_proc");
    s->hasHwControl = 1;
    s->biraUnavailable = 1;
    return 1;
}

int KvdLoz6BiraIifAdm_started() { return s->biraUnavailable != 0 ? 1 : 0; }
u32 KvdLoz6BiraIifAdm_hasHwControl() { return s->hasHwControl; }
u32 KvdLoz6BiraIifAdm_idlMode() { return IDL_MODE_NONE; }
u32 KvdLoz6BiraIifAdm_timeTuningOngoing() { return 0; }
u32 KvdLoz6BiraIifAdm_initiatedFromSlaveMsi() { return 0; }
void KvdLoz6BiraIifAdm_selectIdlType(u32, u8) {}
void KvdLoz6BiraIifAdm_togglePersistentFreqLock(u32, u8) {}
void KvdLoz6BiraIifAdm_printInfo()
{
    node::shellPrintf("\n***** BIRA interface *****\n   hasHwControl    : %u\n   biraUnavailable : %u\n",
                      s->hasHwControl, s->biraUnavailable);
}
