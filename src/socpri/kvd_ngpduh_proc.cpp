// The exchange with other units isn't part of this load yet: the process takes what it is sent.
#include "socpri/kvd_ngpduh_proc.h"

#include "mgr/trace_groups.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "ose/ose.h"
#include "socpri/inci_sig.h"

namespace {

constexpr u32 STACK = 8000, PRIORITY = 16;

struct State {
    PROCESS pid = 0;
};
ose::ModuleData<State> s;

}  // namespace

void KvdLoz6NgPduh_proc()
{
    node::traceAttachProcess();
    for (;;) {
        Signal* sig = ose::receive(ose::ANY_SIGNAL);
        KVD_TRACE(TRACE_PSXIWNGSCINCISERVER, TRACE_3, "signal %x dropped", sig->sigNo);
        ose::free_buf(&sig);
    }
}

void KvdLoz6NgPduh_start()
{
    if (s->pid != 0) {
        KVD_TRACE(TRACE_PSXIWNGSCINCISERVER, TRACE_INFO,
                  "PsxIwNgscInciServer_proc process already started!");
        return;
    }
    s->pid = ose::create_process(ose::KIND_PRIORITISED, INCI_PROCESS, KvdLoz6NgPduh_proc, STACK, PRIORITY, 0, 0);
    ose::start(s->pid);
    KVD_TRACE(TRACE_PSXIWNGSCINCISERVER, TRACE_INFO, "PsxIwNgscInciServer PROCESS created");
}

void KvdLoz6NgPduh_kill()
{
    if (s->pid == 0) return;
    ose::kill_proc(s->pid);
    s->pid = 0;
}

PROCESS KvdLoz6NgPduh_pid() { return s->pid; }
