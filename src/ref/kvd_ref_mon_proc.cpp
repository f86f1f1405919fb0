#include "ref/kvd_ref_mon_proc.h"

#include "base/trace_groups.h"
#include "hw/hali.h"
#include "node/sig.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "ose/ose.h"
#include "ref/kvd_ref.h"
#include "sig/ref_sig.h"
#include "unit/kvd_unit_process.h"

namespace {

constexpr OSTIME PERIOD = 100;            // ms
constexpr u32 RUNS_PER_LOOK = 10;         // the detectors are looked at once a second
constexpr u32 RUNS_PER_CHECK = 600;       // the hardware check is due once a minute

struct State {
    u32 runs = 0;
    u32 created = 0;
};
ose::ModuleData<State> s;

void lookAtDetectors()
{
    // lastToggleStatus belongs to the manager. A stale read costs one signal, which it then drops.
    const u32 status = HALI_readToggleStatus();
    if (status == KvdLoz6TuRef_lastToggleStatus()) return;
    auto* ind = node::make<KvdTurefmonProcToggleStatusInd>(KVD_TUREFMON_PROC_TOGGLE_STATUS_IND);
    ind->status = status;
    node::sendTo(KvdLoz6TuMgr_pid(), ind);
}

/// One run of the timer interrupt.
void monitor()
{
    ++s->runs;
    if (s->runs % RUNS_PER_LOOK == 0) lookAtDetectors();
    if (s->runs < RUNS_PER_CHECK) return;
    s->runs = 0;
    Signal* check = ose::alloc(sizeof(SIGSELECT), KVD_TUREFMON_CHECK_TD_IND);
    ose::send(&check, KvdLoz6TuMgr_pid());
}

}  // namespace

void KvdLoz6TuRefMon_start()
{
    if (s->created != 0) {
        KVD_TRACE(TRACE_TUREFMON_PROC, TRACE_INFO,
                  "Timer Interrupt process Kvd_loz6_turefmon_proc already started!");
        return;
    }
    const PROCESS monitorPid = ose::create_process(ose::KIND_TIMER_INTERRUPT, "Kvd_loz6_turefmon_proc",
                                                   monitor, 2048, 16, PERIOD, 0);
    ose::start(monitorPid);
    s->created = 1;
    KVD_TRACE(TRACE_TUREFMON_PROC, TRACE_INFO, "TI PROCESS Kvd_loz6_turefmon_proc created");
}
