// ptp_bench.h - PTP clocks in a process of an idle program: what they send, report and hand on is kept,
// their timers run.
#pragma once
#include "node/sig.h"
#include "pktsync/tupktsync_ptp_clock.h"
#include "pktsync/tupktsync_ptp_uc_neg.h"
#include "tests/support/hex.h"
#include "tests/support/idle_node.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace bench {

struct PtpSeen {
    struct Sent {
        std::string hex;
        bool event;
        std::string metadata;
    };
    std::vector<Sent> sent;
    std::vector<u32> faults;
    std::vector<u32> qualities;
    std::vector<PtpExchange> exchanges;
    i32 latency = 0;
    bool noBuffer = false;
};
inline PtpSeen& ptpSeen()
{
    static PtpSeen seen;
    return seen;
}

inline PtpClockIdentity identityOf(const std::string& hex)
{
    PtpClockIdentity id{};
    const std::vector<u8> bytes = bytesOf(hex);
    std::copy_n(bytes.begin(), id.size(), id.begin());
    return id;
}

/// From a process of the program.
inline void ptpBegin()
{
    ptpSeen() = {};
    PtpNeeds needs{};
    needs.profileChanged = [](u8) {};
    needs.reportFaults = [](u32, u32, u32 faults) { ptpSeen().faults.push_back(faults); };
    needs.reportQuality = [](u32, u32, u8 quality) { ptpSeen().qualities.push_back(quality); };
    needs.sendExchange = [](const PtpExchange& e) { ptpSeen().exchanges.push_back(e); };
    needs.latencyAsymmetry = [] { return ptpSeen().latency; };
    needs.send = [](const PtpDescriptor&, const u8* m, u32 n, const u8* metadata) -> bool {
        if (ptpSeen().noBuffer) return false;
        ptpSeen().sent.push_back(
            {hexOf(m, n), metadata != nullptr, metadata != nullptr ? hexOf(metadata, 8) : ""});
        return true;
    };
    TuPktsync_PTP_init(needs);
}

inline u32 ptpNow_ms() { return static_cast<u32>(u64{ose::get_ticks()} * ose::system_tick() / 1000); }

/// Lets the timers run for so long, or up to `ms` of kernel time.
inline void ptpRunFor(u32 ms)
{
    const u32 begin = ptpNow_ms();
    for (;;) {
        const u32 past = ptpNow_ms() - begin;
        Signal* sig = ose::receive_w_tmo(past < ms ? ms - past : 0, ose::ANY_SIGNAL);
        if (sig == nullptr && past >= ms) return;
        if (sig == nullptr) continue;
        if (sig->sigNo == TUPKTSYNC_TMO_IND) {
            const auto* tmo = as<TuPktsyncTmoInd>(sig);
            TuPktsync_PTP_TmoSig(tmo->syncrefId, tmo->timerId, tmo->index);
        }
        ose::free_buf(&sig);
    }
}
inline void ptpRunTo(u32 ms) { ptpRunFor(ms > ptpNow_ms() ? ms - ptpNow_ms() : 0); }

/// An idle program, every trace on; its processes run a test's body, each with the traces of its own.
struct PacketBench : IdleNode {
    PacketBench()
    {
        in([] { node::traceSetProgramMask(0xFFFFFFFF); });
    }
    void step(const std::function<void()>& body)
    {
        node.traces().clear();
        in([&body] {
            node::traceAttachProcess();
            body();
        });
    }
    std::size_t traced(const std::string& text) { return node.traces().count({text}); }
};

}  // namespace bench
