// PTP clocks: what can't be used changes nothing, and the next good message is taken.
#include "tests/pktsync/ptp_bench.h"

namespace {

using namespace bench;

// An Announce of domain 4 from port 1 of 00:1b:19:ff:fe:00:00:01, class 6, accuracy 100 ns, one in 2 s.
constexpr const char* ANNOUNCE =
    "0b0200400400003c000000000000000000000000001b19fffe000001000100000501"
    "000000000000000000000025008006214e5d80001b19fffe000001000020";

PtpClockSetup timeClock()
{
    PtpClockSetup setup;
    setup.froClassNo = PACKET_TIME_FRO_CLASS;
    setup.domainNumber = 4;
    setup.clockIdentity = identityOf("acde48fffe010203");
    return setup;
}

void receive(std::vector<u8> message, const PktIpAddress* server = nullptr)
{
    TuPktsync_handle_ptp_message(message.data(), static_cast<u32>(message.size()), {}, server);
}

TEST(PtpMessage, ThatCantBeUsedChangesNothingAndTheNextIsTaken)
{
    struct Case {
        const char* what;
        std::size_t octet;
        u8 value;
        std::size_t length;
        const char* trace;
    };
    constexpr std::size_t WHOLE = 64;
    const Case CASES[] = {
        {"shorter than any message", 0, 0x0B, 39, "not even enough for common message header"},
        {"an Announce one octet short", 0, 0x0B, 63, "PTP Announce received in too short frame"},
        {"another domain", 4, 5, WHOLE, "PTP message received for unknown domainId (5)"},
        {"version 1", 1, 1, WHOLE, "Nonconformant PTP frame received; msg_len 64 octets"},
        {"a length below the header's", 3, 33, WHOLE, "Nonconformant PTP frame received; msg_len 33"},
        {"an alternate master", 6, 1, WHOLE, "Announce received from ALTERNATE_MASTER clock"},
        {"255 steps away", 62, 255, WHOLE, "Announce received stepRemoved = 255 field not accepted."},
        {"Signaling on Ethernet", 0, 0x0C, WHOLE, "not mapped to unicast bearer"},
        {"a Sync of nobody", 0, 0x00, WHOLE, "Sync received from unknown clock"},
        {"a Delay_Resp too early", 0, 0x09, WHOLE, "Delay_Resp received - not ready for handling"},
    };
    IdleNode b;
    b.in([] {
        node::traceAttachProcess();
        node::traceSetProgramMask(0xFFFFFFFF);
        ptpBegin();
        ASSERT_EQ(TuPktsync_new_ptp_clock(timeClock()), 1u);
    });
    for (const Case& c : CASES) {
        SCOPED_TRACE(c.what);
        b.node.traces().clear();
        b.in([&c] {
            node::traceAttachProcess();
            std::vector<u8> message = bytesOf(ANNOUNCE);
            message[c.octet] = c.value;
            if (c.octet == 62) message[61] = 0;
            message.resize(c.length);
            receive(message);
            EXPECT_EQ(ptpClockOf(0)->portState, LISTENING);
            EXPECT_EQ(ptpClockOf(0)->foreignMasterCount, 0u);
        });
        EXPECT_EQ(b.node.traces().count({c.trace}), 1u);
    }
    b.in([] {
        const u32 begin = ptpNow_ms();
        for (u32 i = 0; i < 3; ++i) {
            ptpRunTo(begin + 2000 * i);
            receive(bytesOf(ANNOUNCE));
        }
        EXPECT_EQ(ptpClockOf(0)->portState, UNCALIBRATED);   // the third inside four intervals
        TuPktsync_delete_ptp_clock(0);
    });
}

TEST(PtpTimescale, ThatIsntTaiIsToldOnceAndAFaultUnderIeee1588J3)
{
    struct Case { u8 profile; u32 faults; };
    for (const Case& c : {Case{IEEE_1588_J3, FAULT_CLOCK_CLASS}, Case{ITU_T_G_8275_1, 0}}) {
        SCOPED_TRACE(c.profile);
        IdleNode b;
        b.in([&c] {
            node::traceAttachProcess();
            ptpBegin();
            PtpClockSetup setup = timeClock();
            setup.ptpProfile = c.profile;
            ASSERT_EQ(TuPktsync_new_ptp_clock(setup), 1u);
            const auto hear = [](u8 flags) {
                std::vector<u8> message = bytesOf(ANNOUNCE);
                message[7] = flags;
                receive(message);
                return ptpClockOf(0)->fault_flags & FAULT_CLOCK_CLASS;
            };
            constexpr u8 TRACEABLE = PTP_TIME_TRACEABLE | PTP_FREQUENCY_TRACEABLE;
            for (u32 i = 0; i < 4; ++i) hear(TRACEABLE);
            EXPECT_EQ(hear(TRACEABLE), c.faults);
            EXPECT_EQ(hear(TRACEABLE | PTP_TIMESCALE), 0u);
            EXPECT_EQ(hear(TRACEABLE), c.faults);
            TuPktsync_delete_ptp_clock(0);
        });
        EXPECT_EQ(b.node.traces().count({"has no ptpTimescale: its time isn't TAI"}), 2u);
        EXPECT_EQ(b.node.traces().count({"has ptpTimescale now"}), 1u);
    }
}

TEST(PtpForeignMaster, IsForgottenWhenItsSilenceSpansTheTurnOfTheTicks)
{
    IdleNode b;
    b.world.runFor(ose::MS * (0x1'0000'0000 - 6'000));       // 49.7 days less 6 s
    b.in([] {
        ptpBegin();
        ASSERT_EQ(TuPktsync_new_ptp_clock(timeClock()), 1u);
        const auto serveFor = [](u32 ms) {
            const u32 begin = ptpNow_ms();
            for (u32 past = 0; past < ms; past = ptpNow_ms() - begin) {
                Signal* sig = ose::receive_w_tmo(ms - past, ose::ANY_SIGNAL);
                if (sig == nullptr) continue;
                const auto* tmo = as<TuPktsyncTmoInd>(sig);
                TuPktsync_PTP_TmoSig(tmo->syncrefId, tmo->timerId, tmo->index);
                ose::free_buf(&sig);
            }
        };
        for (u32 i = 0; i < 5; ++i) {
            receive(bytesOf(ANNOUNCE));
            serveFor(2000);
        }
        EXPECT_EQ(ptpClockOf(0)->foreignMasterCount, 1u);
        EXPECT_EQ(ptpClockOf(0)->portState, UNCALIBRATED);
        serveFor(20'000);
        EXPECT_EQ(ptpClockOf(0)->foreignMasterCount, 0u);
        EXPECT_EQ(ptpClockOf(0)->portState, LISTENING);
        TuPktsync_delete_ptp_clock(0);
    });
}

TEST(PtpTimer, ATimeoutQueuedBeforeARestartDoesntCount)
{
    IdleNode b;
    b.in([] {
        PktsyncTimer timer;
        TuPktsync_timerInit(timer, 3, PTP_TMO_DELAY, 10);
        TuPktsync_timerStart(timer, 0);
        ose::delay(20);                        // it runs out and waits in the queue
        TuPktsync_timerStart(timer, 0);
        u32 counted = 0, came = 0;
        while (Signal* sig = ose::receive_w_tmo(50, ose::ANY_SIGNAL)) {
            ++came;
            counted += TuPktsync_timerExpired(3, PTP_TMO_DELAY, 0) ? 1 : 0;
            ose::free_buf(&sig);
        }
        EXPECT_EQ(came, 2u);
        EXPECT_EQ(counted, 1u);
    });
}

}  // namespace
