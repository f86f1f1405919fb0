#include "iif/kvd_mgr_wait.h"

#include "base/trace_groups.h"
#include "hw/kvd_hwif.h"
#include "iif/kvd_iif_upcalls.h"
#include "node/ipsynctsi.h"
#include "node/msi.h"
#include "node/name_service.h"
#include "node/phyport.h"
#include "node/slowpi.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "sig/bira_sig.h"
#include "sig/hwif_sig.h"
#include "sig/idpi_sig.h"
#include "sig/inci_sig.h"
#include "sig/inrsi_sig.h"
#include "sig/reg_sig.h"

#include <algorithm>
#include <array>

namespace {

constexpr OSTIME EXCHANGE_TRACE_ms = 10'000;
constexpr OSTIME DEAF_TRACE_ms = 3'600'000;

/// Time-outs are at most as many as the kernel has timers. Links that come and go all the time could be more.
constexpr u32 ASIDE_MAX = 512;

struct State {
    std::array<Signal*, ASIDE_MAX> aside{};   // a queue: from `next` up to `count`
    u32 next = 0, count = 0;
    u32 lost = 0;                             // no place was left for them
};
ose::ModuleData<State> s;

/// What services say of themselves once, and not again: it changes what a component holds of them.
/// Measurements, sentences and packets aren't among them; they are old when the wait is over, and others
/// follow.
struct Numbers { SIGSELECT first, last; };
constexpr Numbers STANDING[] = {
    {KVD_COMM_ONS_HUNT, KVD_COMM_ONS_DEAD},
    {TARSO_MSI_INITIATE_SERVICE_CFM, TARSO_MSI_MEM_ALLOC_REJ},
    {PHYPORT_SERVER_UP_IND, PHYPORT_PORT_INFO_IND},
    {IPSYNCTSI_SERVER_DOWN_IND, IPSYNCTSI_INITIATE_SERVICE_REJ},
    {IPSYNCTSI_SERVER_UP_IND, IPSYNCTSI_SERVER_UP_IND},
    {SLOWPI_SERVER_UP_IND, SLOWPI_UNSUBSCRIBE_RSP},
    {KVD_BIRAIIF_INITIATE_SERVICE_REQ, KVD_BIRAIIF_IDL1_CLK_STATE_TMO},
    {IDPI_SERVER_UP_IND, IDPI_SERVER_DOWN_IND},
    {IDPI_CONN_ESTABLISH_REQ, IDPI_PROP_PORT_INFO_CFM},
    {INRSI_SERVER_UP_IND, INRSI_SERVER_DOWN_IND},
    {INRSI_CONN_ESTABLISH_REQ, INRSI_BFN_JUMP_INFO_REJ},
    {INRSI_LINK_STATUS2_IND, INRSI_LINK_STATUS2_IND},
    {KVD_TUSOCPRI_INCI_ESTABLISH_RSP, KVD_TUSOCPRI_INCI_ESTABLISH_RSP},
    {KVD_TUSOCPRI_INCI_RELEASE_RSP, KVD_TUSOCPRI_INCI_RELEASE_RSP},
    {KVD_TUREG_PTP_TIME_PROFILE_CHANGE_IND, KVD_TUREG_PTP_TIME_PROFILE_CHANGE_IND},
};

/// Kernel time modulo 2^32 ms.
u32 now_ms() { return static_cast<u32>(u64{ose::get_ticks()} * ose::system_tick() / 1000); }

bool isStanding(SIGSELECT sigNo)
{
    return std::any_of(std::begin(STANDING), std::end(STANDING),
                       [=](const Numbers& n) { return sigNo >= n.first && sigNo <= n.last; });
}

/// A time-out comes from the manager itself. A word of a process that is gone is that of its death, most of
/// all.
bool isNeededLater(Signal* sig)
{
    const PROCESS from = ose::sender(&sig);
    return from == ose::current_process() || ose::process_name(from) == nullptr || isStanding(sig->sigNo);
}

/// False, and counted, when no place is left for it.
bool setAside(Signal* sig)
{
    const bool isFull = s->count == ASIDE_MAX;
    if (isFull) {
        ++s->lost;
    } else {
        ose::keep(sig);
        s->aside[s->count++] = sig;
    }
    return !isFull;
}

/// A wait without an end of its own, traced every hour.
class DeafWait {
public:
    Signal* receive()
    {
        for (;;) {
            Signal* const sig = ose::receive_w_tmo(DEAF_TRACE_ms, ose::ANY_SIGNAL);
            follow();
            if (sig != nullptr) return sig;
        }
    }

private:
    /// Adds up what the kernel's time, which wraps after 49 days, has gone on.
    void follow()
    {
        waited_ms_ += now_ms() - last_ms_;
        last_ms_ = now_ms();
        const u64 hours = waited_ms_ / DEAF_TRACE_ms;
        if (hours == hours_) return;
        hours_ = hours;
        KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO,
                  "the unit waits for the main processor to restart, waited=%u h", static_cast<u32>(hours));
    }

    u64 waited_ms_ = 0, hours_ = 0;
    u32 last_ms_ = now_ms();
};

}  // namespace

Signal* KvdLoz6TuMgr_await(KvdMgrExchange& exchange, const SIGSELECT* selection, const char* what)
{
    for (;;) {
        // Up to the next trace; the last wait of a limit is what is left of it.
        const u32 waited_ms = exchange.waited_ms;
        OSTIME step = EXCHANGE_TRACE_ms - waited_ms % EXCHANGE_TRACE_ms;
        if (exchange.limit_ms != 0) step = std::min(step, exchange.limit_ms - waited_ms);
        const u32 before = now_ms();
        Signal* const sig = ose::receive_w_tmo(step, selection);
        exchange.waited_ms += now_ms() - before;
        const bool isTraced = exchange.waited_ms / EXCHANGE_TRACE_ms != waited_ms / EXCHANGE_TRACE_ms;
        if (sig != nullptr && !isTraced) return sig;
        if (sig == nullptr && exchange.limit_ms != 0 && exchange.waited_ms >= exchange.limit_ms) {
            KVD_TRACE(exchange.traceGroup, TRACE_ERROR,
                      "%s doesn't answer, the unit goes on without %s, waited=%u ms", exchange.server, what,
                      exchange.waited_ms);
            return nullptr;
        }
        KVD_TRACE(exchange.traceGroup, TRACE_ERROR, "%s doesn't answer, the start waits for %s, waited=%u s",
                  exchange.server, what, exchange.waited_ms / 1000);
        if (sig != nullptr) return sig;
    }
}

bool KvdLoz6TuMgr_pause(KvdMgrExchange& exchange, OSTIME time_ms)
{
    if (exchange.limit_ms != 0 && exchange.waited_ms + time_ms >= exchange.limit_ms) return false;
    ose::delay(time_ms);
    exchange.waited_ms += time_ms;
    return true;
}

void KvdLoz6TuMgr_deafWait()
{
    DeafWait wait;
    for (bool isOver = false; !isOver;) {
        Signal* sig = wait.receive();
        isOver = sig->sigNo == KVD_COMM_SERVER_DEAD;
        const bool isKept = !isOver && isNeededLater(sig) && setAside(sig);
        if (!isKept) IIF_UPCALLS.release(sig);
    }
    // The interrupt process left it closed for one that was dropped.
    tuHwIf_enableExtInt();
    KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO, "the wait for the main processor is over, set aside=%u, lost=%u",
              s->count - s->next, s->lost);
    s->lost = 0;
}

void KvdLoz6TuMgr_haltedWait(void (*take)(const Signal* sig))
{
    DeafWait wait;
    for (bool isOver = false; !isOver;) {
        Signal* const sig = wait.receive();
        isOver = sig->sigNo == KVD_COMM_SERVER_DEAD;
        take(sig);
        IIF_UPCALLS.release(sig);
    }
}

Signal* KvdLoz6TuMgr_next()
{
    if (s->next < s->count) return s->aside[s->next++];
    s->next = s->count = 0;
    return ose::receive(ose::ANY_SIGNAL);
}
