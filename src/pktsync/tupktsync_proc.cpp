#include "pktsync/tupktsync_proc.h"

#include "base/element_of.h"
#include "base/trace_groups.h"
#include "node/ipsocki.h"
#include "node/sig.h"
#include "ose/module_data.h"
#include "pktsync/tupktsync_cfi_client.h"
#include "pktsync/tupktsync_coli.h"
#include "pktsync/tupktsync_drv_client.h"
#include "pktsync/tupktsync_ipsocki_client.h"
#include "pktsync/tupktsync_syncref_ctrl.h"
#include "pktsync/tupktsync_timer.h"
#include "pktsync/tupktsync_timestamp_server.h"
#include "sig/tupktsync_sig.h"
#include "unit/kvd_unit_process.h"

#include <cstring>
#include <iterator>

namespace {

struct State { u32 root_state = ROOT_UNINITIALIZED; };
ose::ModuleData<State> s;

constexpr const char* OBJECT_TEXTS[] = {
    "TUPKTSYNC_OBJECT_ALL",           "TUPKTSYNC_OBJECT_ROOT",
    "TUPKTSYNC_OBJECT_PKTSYNCDRV_CLIENT", "TUPKTSYNC_OBJECT_CFI_CLIENT",
    "TUPKTSYNC_OBJECT_IPSOCKI_CLIENT", "TUPKTSYNC_OBJECT_TIMESTAMP_SERVER",
    "TUPKTSYNC_OBJECT_SYNCREFCTRL",
};

void nothing() {}

/// By root_state: the object whose report it waits for, and what starts then.
struct Step { u32 reports; void (*next)(); };
constexpr Step CHAIN[] = {
    {TUPKTSYNC_OBJECT_ROOT,              TuPktsync_PktsyncDriverClient_init},
    {TUPKTSYNC_OBJECT_PKTSYNCDRV_CLIENT, TuPktsync_CFI_client_init},
    {TUPKTSYNC_OBJECT_CFI_CLIENT,        TuPktsync_IPSOCKI_client_init},
    {TUPKTSYNC_OBJECT_IPSOCKI_CLIENT,    TuPktsync_Timestamp_server_init},
    {TUPKTSYNC_OBJECT_TIMESTAMP_SERVER,  TuPktsync_SyncrefCtrl_init},
    {TUPKTSYNC_OBJECT_SYNCREFCTRL,       nothing},
};
static_assert(std::size(CHAIN) == ROOT_STARTED);

void offer(Signal* sig)
{
    using Dispatch = bool (*)(Signal* sig);
    constexpr Dispatch OTHERS[] = {
        TuPktsync_PktSyncDrvClient_dispatch, TuPktsync_CFI_client_dispatch,
        TuPktsync_IPSOCKI_client_dispatch,   TuPktsync_Timestamp_server_dispatch,
        TuPktsync_SyncrefCtrl_dispatch,
    };
    if (sig->sigNo == TUPKTSYNC_TMO_IND) {
        TuPktsync_SyncrefCtrl_dispatch(sig);
        return;
    }
    if (sig->sigNo == TARSO_IPSOCKI_FD_READ_DATA) {
        TuPktsync_IPSOCKI_client_dispatch(sig);
        return;
    }
    for (const Dispatch dispatch : OTHERS)
        if (dispatch(sig) != 0) return;
    KVD_TRACE(TRACE_TUPKTSYNC_ROOT, TRACE_ERROR, "Unknown signal 0x%x received", sig->sigNo);
}

u32 waitForRelease()
{
    // What was sent before stays in the queue until then, but for the end of a connection that was
    // there before the one that releases: it would be taken for the end of this one.
    constexpr SIGSELECT CONNECTION[] = {2, TUPKTSYNC_TUIIF_UP_IND, TUPKTSYNC_TUIIF_DOWN_IND};
    Signal* up = ose::receive(CONNECTION);
    while (up->sigNo == TUPKTSYNC_TUIIF_DOWN_IND) {
        ose::free_buf(&up);
        up = ose::receive(CONNECTION);
    }
    KVD_TRACE(TRACE_TUPKTSYNC_ROOT, TRACE_INFO, "Kvd_loz6_tupktsync_proc started (semaphore signalled)");
    const auto* ind = as<TuPktsyncTuiifUpInd>(up);
    const u32 board = ind != nullptr ? ind->board : 1;
    ose::free_buf(&up);
    return board;
}

}  // namespace

void TuPktsync_proc()
{
    node::traceAttachProcess();
    TuPktsync_SyncrefCtrl_started(waitForRelease());
    TuPktsync_SyncrefCtrl_sendUnavailableInd();
    s->root_state = ROOT_UNINITIALIZED;
    TuPktsync_registerColiCmds();
    TuPktsync_Root_initReady(TUPKTSYNC_OBJECT_ROOT);
    for (;;) {
        Signal* sig = ose::receive(ose::ANY_SIGNAL);
        node::traceClearErrorStatus();
        offer(sig);
        // The time-out of a timer lives in its record only while it runs: here it is like any other.
        ose::free_buf(&sig);
        if (node::traceErrorStatus() != 0) KVD_TRACE(TRACE_TUPKTSYNC_ROOT, TRACE_CHECK, "ERROR STATUS");
    }
}

void TuPktsync_Root_initReady(u32 objectId)
{
    const Step* const step = elementOf(CHAIN, s->root_state);      // none once it has started
    if (step == nullptr || step->reports != objectId) {
        KVD_TRACE(TRACE_TUPKTSYNC_ROOT, TRACE_ERROR, "TuPktsync_Root_initReady(objectId=%s); Wrong state %s",
                  objectId < std::size(OBJECT_TEXTS) ? OBJECT_TEXTS[objectId] : "UNKNOWN",
                  TuPktsync_rootStateText(s->root_state));
        return;
    }
    ++s->root_state;
    step->next();
}

void TuPktsync_Root_reInitPktSyncRo()
{
    s->root_state = ROOT_UNINITIALIZED;
    TuPktsync_Root_initReady(TUPKTSYNC_OBJECT_ROOT);
}

u32 TuPktsync_Root_state() { return s->root_state; }

const char* TuPktsync_rootStateText(u32 rootState)
{
    static constexpr const char* TEXTS[] = {
        "ROOT_UNINITIALIZED",   "WAIT4_PKTSYNCDRV_CLIENT", "WAIT4_CFI_CLIENT", "WAIT4_IPSOCKI_CLIENT",
        "WAIT4_TIMESTAMP_SERVER", "WAIT4_SYNCREFCTRL",     "ROOT_STARTED",
    };
    return rootState < std::size(TEXTS) ? TEXTS[rootState] : "UNKNOWN";
}

// ---- in the manager process ---------------------------------------------------------------------

void TuPktsync_tuiifUPInd(u32 board)
{
    auto* ind = node::make<TuPktsyncTuiifUpInd>(TUPKTSYNC_TUIIF_UP_IND);
    ind->board = board;
    node::sendTo(KvdLoz6TuPktsync_pid(), ind);
}

void TuPktsync_tuiifDownInd()
{
    Signal* ind = ose::alloc(sizeof(SIGSELECT), TUPKTSYNC_TUIIF_DOWN_IND);
    ose::send(&ind, KvdLoz6TuPktsync_pid());
}

void TuPktsync_forward(Signal* sig)
{
    const u32 size = ose::sigsize(&sig);
    Signal* copy = ose::alloc(size, sig->sigNo);
    std::memcpy(static_cast<void*>(copy), sig, size);
    ose::send(&copy, KvdLoz6TuPktsync_pid());
}
