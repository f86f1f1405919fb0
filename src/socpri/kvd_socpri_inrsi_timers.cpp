// The clients' timers, one set for whichever of the two is at work: a time-out that lies in the queue when
// the role changes meets the timer that it belongs to.
#include "socpri/kvd_socpri_inrsi_int.h"

#include "base/kvd_timer.h"
#include "base/trace_groups.h"
#include "node/trace.h"
#include "ose/module_data.h"

#include <algorithm>

namespace {

using namespace inrsi;

struct State {
    std::array<std::array<KvdTimer, PORTS_WITH_X>, PORT_TIMERS> ofPort;
    std::array<KvdTimer, CLIENT_TIMERS> ofClient;
};
ose::ModuleData<State> s;

constexpr SIGSELECT PORT_SIGNAL[PORT_TIMERS] = {INRSI_REQUEST_PHASE_DATA_TMO, KVD_TUSOCPRI_MEAS_RETRIEVE_TMO,
                                                KVD_TUSOCPRI_SUPERVISION_TMO};
constexpr SIGSELECT CLIENT_SIGNAL[CLIENT_TIMERS] = {INRSI_REQUEST_FREQ_DATA_TMO, KVD_TUSOCPRI_HOLDOVER_TMO,
                                                    KVD_TUSOCPRI_BFN_JUMP_WARNING_TMO};

/// Whose time-out it is; nullptr for another signal, and for a port that there isn't.
KvdTimer* timerOf(Signal* sig)
{
    for (const ClientTimer timer : {FREQ_DATA, HOLDOVER, BFN_JUMP_WARNING})
        if (sig->sigNo == CLIENT_SIGNAL[timer]) return &s->ofClient[timer];
    for (const PortTimer timer : {PHASE_DATA, MEAS_RETRIEVE, SUPERVISION}) {
        if (sig->sigNo != PORT_SIGNAL[timer]) continue;
        const auto* const tmo = as<InrsiPortTmo>(sig);
        return tmo != nullptr && isPortOrX(tmo->port) ? &s->ofPort[timer][tmo->port] : nullptr;
    }
    return nullptr;
}

bool isTimeout(SIGSELECT sigNo)
{
    const auto is = [sigNo](SIGSELECT other) { return other == sigNo; };
    return std::ranges::any_of(PORT_SIGNAL, is) || std::ranges::any_of(CLIENT_SIGNAL, is);
}

void traceRefused(SIGSELECT sigNo) { KVD_TRACE(TRACE_INRSI, TRACE_ERROR, "no timer for signal 0x%x", sigNo); }

}  // namespace

namespace inrsi {

void startTimer(PortTimer timer, u8 port, OSTIME time_ms)
{
    if (!isPortOrX(port)) return;
    auto* const tmo = node::make<InrsiPortTmo>(PORT_SIGNAL[timer]);
    tmo->port = port;
    if (!KvdTimer_restartSig(s->ofPort[timer][port], time_ms, reinterpret_cast<Signal*>(tmo)))
        traceRefused(PORT_SIGNAL[timer]);
}

void startTimer(ClientTimer timer, OSTIME time_ms)
{
    if (!KvdTimer_restart(s->ofClient[timer], time_ms, CLIENT_SIGNAL[timer]))
        traceRefused(CLIENT_SIGNAL[timer]);
}

void cancelTimer(PortTimer timer, u8 port)
{
    if (isPortOrX(port)) KvdTimer_cancel(s->ofPort[timer][port]);
}

void cancelTimer(ClientTimer timer) { KvdTimer_cancel(s->ofClient[timer]); }

bool runs(PortTimer timer, u8 port) { return isPortOrX(port) && s->ofPort[timer][port].runs(); }
bool runs(ClientTimer timer) { return s->ofClient[timer].runs(); }

void cancelAllTimers()
{
    for (auto& ports : s->ofPort)
        for (KvdTimer& timer : ports) KvdTimer_cancel(timer);
    for (KvdTimer& timer : s->ofClient) KvdTimer_cancel(timer);
}

bool isVoidTimeout(Signal* sig)
{
    if (!isTimeout(sig->sigNo)) return false;
    KvdTimer* const timer = timerOf(sig);
    return timer == nullptr || !KvdTimer_expired(*timer);
}

}  // namespace inrsi
