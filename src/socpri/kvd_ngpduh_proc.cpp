#include "socpri/kvd_ngpduh_proc.h"

#include "base/kvd_timer.h"
#include "base/trace_groups.h"
#include "mp/kvd_iifadm.h"
#include "node/platform.h"
#include "node/sig.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "reg/kvd_reg.h"
#include "sig/inci_sig.h"
#include "sig/tuiif_sig.h"
#include "socpri/kvd_ngpduhif_client.h"
#include "socpri/kvd_socpri_inci_client.h"
#include "socpri/kvd_socpri_inci_server.h"
#include "unit/kvd_unit_process.h"

#include <cstring>

namespace {

constexpr u32 STACK = 8000, PRIORITY = 16;
constexpr u32 PROTOCOL_REV = 4;
constexpr OSTIME TIME_DATA_ms = 200;
constexpr u32 NO_OFFSET = 0xFFFFFFFF;
constexpr int COMMAND_DONE = 0, COMMAND_USAGE = 20;

struct State {
    PROCESS pid = 0;                 // read by the manager
    KvdTimer timeDataTimer;
    bool failed = false;             // the last answer couldn't be passed on, which has been told
    bool commandRegistered = false;  // the shell keeps it over the process's restart
};
ose::ModuleData<State> s;

// ---- time data ----------------------------------------------------------------------------------

void startTimeDataTimer()
{
    if (s->timeDataTimer.runs()) {
        KVD_TRACE(TRACE_PSXIWNGSCINCISERVER, TRACE_7, "INCI request get time data tmo already requested.");
        return;
    }
    if (!KvdTimer_start(s->timeDataTimer, TIME_DATA_ms, KVD_TUSOCPRI_INCI_GET_TIME_DATA_TMO))
        KVD_TRACE(TRACE_PSXIWNGSCINCISERVER, TRACE_ERROR, "no timer for the time data, none go out any more");
    else
        KVD_TRACE(TRACE_PSXIWNGSCINCISERVER, TRACE_7, "INCI get time data tmo requested.");
}

void onGetTimeDataTmo()
{
    if (!KvdTimer_expired(s->timeDataTimer)) return;
    Signal* req = ose::alloc(sizeof(SIGSELECT), KVD_TUSOCPRI_INCI_GET_TIME_DATA_REQ);
    ose::send(&req, KvdLoz6TuMgr_pid());
    startTimeDataTimer();
}

/// What the radio network time is ahead of the node's own.
void readOffset(u8 clockState, KvdNgpduhifTimeDataInd& ind)
{
    switch (clockState) {
    case KVD_TUIIF_RNT_TIME_LOCKED:
        ind.dataRTOSeconds = 0;
        ind.dataRTONanoseconds = 0;
        break;
    case KVD_TUIIF_TIME_OFFSET_LOCKED:
        KvdLoz6TuReg_calcSoCpriRTO(ind.dataRTOSeconds, ind.dataRTONanoseconds);
        break;
    default:
        ind.dataRTOSeconds = NO_OFFSET;
        ind.dataRTONanoseconds = NO_OFFSET;
        break;
    }
}

void onGetTimeDataRsp(const KvdTuSocpriInciGetTimeDataRsp* rsp)
{
    if (rsp == nullptr) return;
    if (rsp->timeDataValid != 0) {
        KvdNgpduhifTimeDataInd ind{};
        ind.eSfc = rsp->eSfc;
        ind.mfn = rsp->mfn;
        ind.sfn = rsp->sfn;
        ind.clockState = rsp->clockState;
        ind.cbfnJumpInd = rsp->jumpState;
        readOffset(rsp->clockState, ind);
        if (KvdLoz6TuSoCpri_ngpduhif_sendTimeDataInd(ind) == 0) {
            s->failed = false;
            return;
        }
    }
    KVD_TRACE(TRACE_PSXIWNGSCINCISERVER, s->failed ? TRACE_7 : TRACE_ERROR,
              "Cannot read INCI time data or server is not available: timedataValid= %u.",
              rsp->timeDataValid);
    s->failed = true;
}

bool dispatchOwn(Signal* sig)
{
    switch (sig->sigNo) {
    case KVD_TUSOCPRI_INCI_GET_TIME_DATA_TMO: onGetTimeDataTmo();                                    break;
    case KVD_TUSOCPRI_INCI_GET_TIME_DATA_RSP:
        onGetTimeDataRsp(as<KvdTuSocpriInciGetTimeDataRsp>(sig));                                    break;
    default:                                                                                     return false;
    }
    return true;
}

// ---- command ------------------------------------------------------------------------------------

int kvdngpduh(int argc, char** argv)
{
    const char* const what = argc == 2 ? argv[1] : "";
    const bool all = std::strcmp(what, "all") == 0;
    const bool ngpduhIf = all || std::strcmp(what, "ngpduh_if") == 0;
    const bool inciIf = all || std::strcmp(what, "inci_if") == 0;
    if (!ngpduhIf && !inciIf) {
        node::shellPrintf("\nkvdngpduh all - prints all data for NGPDUHIF and SYNC-INCI IF\n\n");
        node::shellPrintf("kvdngpduh ngpduh_if - prints out data for NGPDUHIF\n");
        node::shellPrintf("kvdngpduh inci_if - prints out data for SYNC-INCI IF\n");
        return COMMAND_USAGE;
    }
    if (ngpduhIf) KvdLoz6TuSoCpri_ngpduhif_print();
    if (inciIf) {
        KvdLoz6TuSoCpri_inci_printServer();
        KvdLoz6TuSoCpri_inci_printClients();
    }
    node::shellPrintf("\n***** END *****\n");
    return COMMAND_DONE;
}

void registerCommand()
{
    if (s->commandRegistered) return;
    const int refused = node::platform().registerCommand({"kvdngpduh", "kvdngpduh [all | ngpduh_if | inci_if",
                                                          "Get KVD NgPduH status information", kvdngpduh});
    s->commandRegistered = refused == 0;
    if (refused != 0)
        KVD_TRACE(TRACE_PSXIWNGSCINCISERVER, TRACE_ERROR, "command kvdngpduh refused by the shell, code=%d",
                  refused);
}

// ---- process ------------------------------------------------------------------------------------

void emptyTables()
{
    KvdLoz6TuSoCpri_ngpduhif_initiate();
    KvdLoz6TuSoCpri_inci_initiateClient();
    KvdLoz6TuSoCpri_inci_initiateServer();
}

void startUp()
{
    node::traceAttachProcess();
    KVD_TRACE(TRACE_PSXIWNGSCINCISERVER, TRACE_INFO, "PROCESS started: PsxIwNgscInciServer_proc");
    registerCommand();
    s->pid = ose::current_process();
    s->timeDataTimer = {};           // a new process, whose queue is empty
    if (KvdLoz6TuMgr_isMaster()) {
        KVD_TRACE(TRACE_PSXIWNGSCINCISERVER, TRACE_INFO, "Start timer to collect needed data!");
        startTimeDataTimer();
    }
    emptyTables();
    if (!KvdLoz6TuSoCpri_ngpduhif_connEstablish(PROTOCOL_REV))
        KVD_TRACE(TRACE_PSXIWNGSCINCISERVER, TRACE_7, "Failed to initiate NGPDUHIF subscription!");
}

// The first that takes a signal ends its round.
using Dispatch = bool (*)(Signal* sig);
constexpr Dispatch PARTS[] = {
    dispatchOwn,
    KvdLoz6TuSoCpri_ngpduhif_dispatch,
    KvdLoz6TuSoCpri_inci_dispatchClient,
    KvdLoz6TuSoCpri_inci_dispatchServer,
};

bool isTaken(Signal* sig)
{
    for (const Dispatch part : PARTS)
        if (part(sig) != 0) return true;
    return false;
}

void serve()
{
    Signal* sig = ose::receive(ose::ANY_SIGNAL);
    if (!isTaken(sig)) {
        const char* const name = ose::process_name(ose::sender(&sig));
        KVD_TRACE(TRACE_PSXIWNGSCINCISERVER, TRACE_ERROR, "Unexpected signal %d received from %s",
                  static_cast<i32>(sig->sigNo), name != nullptr ? name : "an unknown process");
    }
    ose::free_buf(&sig);
}

}  // namespace

void KvdLoz6NgPduh_proc()
{
    startUp();
    for (;;) serve();
}

void KvdLoz6NgPduh_start()
{
    if (s->pid != 0) {
        KVD_TRACE(TRACE_PSXIWNGSCINCISERVER, TRACE_INFO, "PsxIwNgscInciServer_proc process already started!");
        return;
    }
    s->pid = ose::create_process(ose::KIND_PRIORITISED, INCI_PROCESS, KvdLoz6NgPduh_proc, STACK, PRIORITY, 0,
                                 0);
    ose::start(s->pid);
    KVD_TRACE(TRACE_PSXIWNGSCINCISERVER, TRACE_INFO, "PsxIwNgscInciServer PROCESS created");
}

void KvdLoz6NgPduh_kill()
{
    if (s->pid == 0) return;
    ose::kill_proc(s->pid);
    s->pid = 0;
    emptyTables();
}

void KvdLoz6NgPduh_restart()
{
    if (s->pid == 0) return;
    KvdLoz6NgPduh_kill();
    KvdLoz6NgPduh_start();
}

PROCESS KvdLoz6NgPduh_pid() { return s->pid; }
