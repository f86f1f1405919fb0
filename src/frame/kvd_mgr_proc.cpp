#include "frame/kvd_mgr_proc.h"

#include "base/trace_groups.h"
#include "fifo/kvd_fifo_proc.h"
#include "frame/kvd_mgr_hwdiag.h"
#include "frame/kvd_mgr_int.h"
#include "frame/tu_coli.h"
#include "gps/kvd_gps.h"
#include "gps/kvd_gps_osl.h"
#include "gps/kvd_gps_out.h"
#include "hw/hali.h"
#include "hw/kvd_hwif.h"
#include "iif/kvd_biraiifadm.h"
#include "iif/kvd_iifadm_orders.h"
#include "iif/kvd_mgr_wait.h"
#include "iif/kvd_pm.h"
#include "mp/kvd_iifadm.h"
#include "node/sig.h"
#include "node/trace.h"
#include "pktsync/tupktsyncadm.h"
#include "ref/kvd_phyadm.h"
#include "ref/kvd_ref.h"
#include "refs/kvd_hptsi.h"
#include "refs/kvd_idpi.h"
#include "refs/kvd_ipsynctsiadm.h"
#include "refs/kvd_slowpi.h"
#include "reg/kvd_reg.h"
#include "sig/ref_sig.h"
#include "sig/tuiif_sig.h"
#include "socpri/kvd_socpri.h"
#include "store/kvd_mgr_mem.h"

namespace {

// Every received signal is offered to every element, in this order. The order is behaviour: the interface
// to the main processor forwards before others act, reference management sees an interrupt before the
// regulator.
using Dispatch = bool (*)(Signal* sig);
constexpr Dispatch DISPATCH_CHAIN[] = {
    KvdLoz6TuIifAdm_dispatch,
    KvdLoz6TuPhyAdm_dispatch,
    KvdLoz6TuRef_dispatch,
    KvdLoz6TuReg_dispatch,
    KvdLoz6TuMgr_dispatchFirstGroup,
    KvdLoz6TuGps_dispatch,
    KvdLoz6TuIpSyncTsiAdm_dispatch,
    KvdLoz6TuPm_dispatch,
    KvdLoz6GpsOut_dispatch,
    KvdLoz6TuMem_dispatch,
    KvdLoz6TuMgr_dispatchSecondGroup,
    TuPktsyncAdm_dispatch,
    KvdLoz6TuHptsi_dispatch,
    KvdLoz6GpsOsl_dispatch,
    tuHwIf_dispatch,
    KvdLoz6BiraIifAdm_dispatch,
    KvdLoz6Idpi_dispatch,
    KvdLoz6TuSlowpi_dispatch,
    KvdLoz6TuSoCpri_dispatch,
};

/// All but the buffers that their component allocates once and arms again as its own timer's signal: it may
/// have done so by now.
void release(Signal* sig)
{
    if (KvdLoz6TuSlowpi_owns(sig) == 0) ose::free_buf(&sig);
}

const char* senderName(Signal* sig)
{
    const char* const name = ose::process_name(ose::sender(&sig));
    return name != nullptr ? name : "an unknown process";
}

void offerAlongChain(Signal* sig)
{
    int handled = 0;
    for (const Dispatch dispatch : DISPATCH_CHAIN) handled |= dispatch(sig);
    if (handled == 0) {
        KVD_TRACE(TRACE_TUMGR_PROC, TRACE_ERROR, "Unexpected signal %d received from %s",
                  static_cast<i32>(sig->sigNo), senderName(sig));
        ose::free_buf(&sig);
        return;
    }
    release(sig);
}

/// A halted unit tells each new main processor that it has failed, and does nothing else.
void offerToConnection(Signal* sig)
{
    KvdLoz6TuIifAdm_dispatch(sig);
    release(sig);
}

void serve()
{
    node::traceClearErrorStatus();
    Signal* const sig = KvdLoz6TuMgr_next();
    if (KvdLoz6TuMgr_isHalted() != 0) offerToConnection(sig);
    else                              offerAlongChain(sig);
    if (node::traceErrorStatus() != 0) KVD_TRACE(TRACE_TUMGR_PROC, TRACE_CHECK, "ERROR STATUS");
}

}  // namespace

void KvdLoz6TuMgr_proc()
{
    KvdLoz6TuMgr_startUp();
    for (;;) serve();
}

void KvdLoz6TuMgr_release(Signal* sig) { release(sig); }
