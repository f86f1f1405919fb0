#include "frame/kvd_load.h"

#include "base/trace_groups.h"
#include "base/tsv_if_support.h"
#include "fifo/kvd_fifo_proc.h"
#include "frame/kvd_mgr_proc.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "pktsync/tupktsync_proc.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr ose::ConfigLine CONFIG[] = {
    {"OSE_LM_POOL_SIZE", "300000"},
    {"OSE_LM_SIGNAL_SIZES", "31,63,127,255,1023,4095,16383,65535"},
    {"OSE_LM_STACK_SIZES", "256,512,1024,2048,4096,8192,16384,65536"},
    {"OSE_LM_MAIN_PRIORITY", "30"},
    {"OSE_LM_MAIN_STACK_SIZE", "8000"},
    {"OSE_LM_MAIN_NAME", "kvdloz6_lm"},
    {"OSE_LM_PROGRAM_TYPE", "APP_DRIVER"},
    {"OSE_LM_EXEC_MODEL", "PRIVATE"},
    {"OSE_LM_DATA_INIT", "YES"},
    {"OSE_LM_BSS_INIT", "YES"},
    {"OSE_LM_HEAP_SIZE", "1798144"},
    {"HEAP_SMALL_BUF_INIT_SIZE", "1798144"},
    {"HEAP_ALGO_TLSF", "TRUE"},
    {"HEAP_ALGO_BUDDY", "FALSE"},
};

struct StaticProcess {
    u32 kind;
    const char* name;
    ose::Entry entry;
    u32 stack;       // bytes
    u32 priority;    // lower runs first
};

// Created and started in this order.
constexpr StaticProcess PROCESSES[] = {
    {ose::KIND_PRIORITISED, "Kvd_loz6_tumgr_proc",     KvdLoz6TuMgr_proc,  16384, 16},
    {ose::KIND_PRIORITISED, "Kvd_loz6_fifo_proc",      KvdLoz6Fifo_proc,   16384, 31},
    {ose::KIND_PRIORITISED, "Tsv_IfSupport_proc",      TsvIfSupport_proc,   2000, 10},
    {ose::KIND_PRIORITISED, "Kvd_loz6_tupktsync_proc", TuPktsync_proc,      8192, 18},
};
constexpr u32 MANAGER = 0, FIFO = 1, PKTSYNC = 3;

struct Environment { const char* name; const char* value; };
constexpr Environment ENVIRONMENT[] = {
    {"OSE_INET", "ose_sock_client"},
    {"MALLOC_RETURN_ONLY_ON_SUCCESS", "TRUE"},
    {"TARSO_TEMI_NO_EQ_RESOURCES", "1"},
};

constexpr SIGSELECT KILL_LOAD_MODULE = 252;
constexpr u32 ERROR_ENTERED_TWICE = 0x4C4D0001;
constexpr u32 ERROR_SIGNAL_TO_MAIN = 0x4C4D0002;

struct State {
    bool entered = false;
};
ose::ModuleData<State> s;

void loadModuleMain()
{
    node::traceAttachProcess();
    if (s->entered) ose::error(ERROR_ENTERED_TWICE);
    s->entered = true;

    PROCESS pid[std::size(PROCESSES)];
    std::ranges::transform(PROCESSES, pid, [](const StaticProcess& p) {
        return ose::create_process(p.kind, p.name, p.entry, p.stack, p.priority, 0, 0);
    });
    KvdLoz6TuMgr_setPids(pid[MANAGER], pid[FIFO], pid[PKTSYNC]);

    const BLOCK block = ose::get_bid(ose::current_process());
    for (const Environment& e : ENVIRONMENT) ose::set_env(block, e.name, e.value);
    for (const char* name : TRACE_GROUP_NAMES) node::traceRegisterGroup(name);
    for (const PROCESS p : pid) ose::start(p);

    for (;;) {
        Signal* sig = ose::receive(ose::ANY_SIGNAL);
        if (sig->sigNo != KILL_LOAD_MODULE) ose::error(ERROR_SIGNAL_TO_MAIN);
        ose::free_buf(&sig);
        ose::kill_proc(block);
    }
}

}  // namespace

const ose::Program& KvdLoz6_program()
{
    static const ose::Program program{"kvdloz6", loadModuleMain, CONFIG};
    return program;
}
