// What the clients of the measurement server print, and the time counters that they tell.
#include "mp/kvd_iifadm.h"
#include "tests/socpri/socpri_bench.h"

namespace {

using bench::LATER;
using bench::MASTER;
using bench::SocpriUnit;

// The count of turns follows the counter's wrap only with the next sample of a reference.
TEST(InrsiTimeData, CountsTheTurnThatTheCounterHasBegun)
{
    SocpriUnit u{MASTER};
    std::vector<KvdTuSocpriInciGetTimeDataRsp> got;
    const PROCESS asker = u.node.system().spawn("asker", 20, [&got] {
        for (;;) {
            Signal* sig = ose::receive(ose::ANY_SIGNAL);
            if (const auto* rsp = node::as<KvdTuSocpriInciGetTimeDataRsp>(sig)) got.push_back(*rsp);
            ose::free_buf(&sig);
        }
    });
    const auto ask = [&](u16 mfn, double lastTime) {
        const SIGSELECT req = KVD_TUSOCPRI_INCI_GET_TIME_DATA_REQ;
        u.node.system().call(*u.node.program(), [&] {
            tuHwIf_writeSfc(mfn, 5, 6);
            KvdLoz6TuReg_setLastTime(lastTime, 1.0);
        });
        u.run(0.1);
        u.node.system().inject(std::as_bytes(std::span(&req, 1)), u.manager(), asker);
        u.run(LATER);
        return got.empty() ? KvdTuSocpriInciGetTimeDataRsp{} : got.back();
    };
    EXPECT_EQ(ask(24, 5120.0).eSfc, 5u);
    const auto wrapped = ask(0, 5120.0);
    EXPECT_EQ(wrapped.eSfc, 6u);
    EXPECT_EQ(wrapped.mfn, 0u);
    EXPECT_EQ(wrapped.timeDataValid, 1u);
    EXPECT_EQ(wrapped.clockState, u.get(KvdLoz6TuIifAdm_radioClockState));
    EXPECT_EQ(ask(0, 5120.0).eSfc, 6u);
    EXPECT_EQ(ask(0, 6144.0).eSfc, 6u);
    EXPECT_EQ(ask(0, 6144.0).eSfc, 6u);
    EXPECT_EQ(ask(24, 6144.0).eSfc, 6u);
    EXPECT_EQ(ask(0, 6144.0).eSfc, 7u) << "at every wrap";
}

}  // namespace
