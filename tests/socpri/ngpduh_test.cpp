// The process itself: started and killed by order, connection to the sync group logic, time data, command.
#include "reg/kvd_reg_measure.h"
#include "sig/tuiif_sig.h"
#include "socpri/kvd_ngpduhif_client.h"
#include "tests/socpri/inci_bench.h"

namespace {

using namespace bench;

struct ProcessBench : InciBench {
    using InciBench::InciBench;
    u32 availability() { return unit.node.inProgram(KvdLoz6TuSoCpri_ngpduhif_availabilityStatus); }
    u32 identifier() { return unit.node.inProgram(KvdLoz6TuSoCpri_ngpduhif_nodeIdentifier); }
    u32 connections() { return group().received(KVD_NGPDUHIF_CONN_ESTABLISH_REQ); }
    std::size_t timeRequests() const { return unit.manager.count(KVD_TUSOCPRI_INCI_GET_TIME_DATA_REQ); }
    void timeData(u8 clockState, u32 valid = 1)
    {
        unit.order(KvdTuSocpriInciGetTimeDataRsp{KVD_TUSOCPRI_INCI_GET_TIME_DATA_RSP, 7, 24, 4095, 1228799,
                                                 clockState, 5, valid});
    }
};

/// Answers to the connection request that come twice, or after all.
TEST(NgPduhConnection, AnswersThatNobodyAskedForLeaveItAsItIs)
{
    ProcessBench b{1, false, {.present = true, .nodeIdentifier = 0xABCD}};
    const auto answers = [&b] {
        const KvdNgpduhifConnEstablishCfm cfm{KVD_NGPDUHIF_CONN_ESTABLISH_CFM, 1, 9, 4, 0x1111};
        const KvdNgpduhifConnEstablishRej rej{KVD_NGPDUHIF_CONN_ESTABLISH_REJ, 1, 9, 1};
        b.unit.node.system().inject(asBytes(cfm), b.unit.process(), b.group().pid());
        b.unit.node.system().inject(asBytes(rej), b.unit.process(), b.group().pid());
        b.run(0.1);
    };
    answers();
    EXPECT_EQ(b.availability(), u32{NGPDUHIF_AVAILABLE});
    EXPECT_EQ(b.identifier(), 0xABCDu);
    EXPECT_EQ(b.unit.traces("not asked for, dropped"), 2u);
    b.group().die();
    b.run(0.1);
    answers();
    EXPECT_EQ(b.availability(), u32{NGPDUHIF_INITIATING});
    b.group().start();
    b.run(0.1);
    EXPECT_EQ(b.availability(), u32{NGPDUHIF_AVAILABLE});
    EXPECT_EQ(b.identifier(), 0xABCDu);
}

TEST(NgPduhTime, AMasterAsksEvery200msASlaveNever)
{
    ProcessBench master{1, true}, slave{2, false};
    master.run(9.99);
    slave.run(9.99);
    EXPECT_EQ(master.timeRequests(), 50u);
    EXPECT_EQ(slave.timeRequests(), 0u);
    slave.timeData(KVD_TUIIF_RNT_TIME_LOCKED);   // an answer is an answer
    EXPECT_EQ(slave.group().received(KVD_NGPDUHIF_TIME_DATA_IND), 1u);
    master.unit.order(SIGSELECT{KVD_TUSOCPRI_INCI_GET_TIME_DATA_TMO});   // doesn't double the rate
    const std::size_t before = master.timeRequests();
    master.run(10.0);
    EXPECT_LE(master.timeRequests() - before, 101u);
}

TEST(NgPduhTime, TheOffsetGoesByTheClockState)
{
    struct Case { u8 clockState; double delta0_c, delta0_f; u32 seconds, nanoseconds; };
    for (const Case& c : std::to_array<Case>({
             {KVD_TUIIF_RNT_TIME_LOCKED, 1024.0, 0.5, 0, 0},
             {KVD_TUIIF_TIME_OFFSET_LOCKED, 1024.0, 0.25, 1024, 250'000'000},
             {KVD_TUIIF_TIME_OFFSET_LOCKED, 0.0, 1.4e-9, 0, 1},
             {KVD_TUIIF_TIME_OFFSET_HOLDOVER, 1024.0, 0.5, 0xFFFFFFFF, 0xFFFFFFFF},
             {KVD_TUIIF_RNT_TIME_HOLDOVER, 0.0, 0.0, 0xFFFFFFFF, 0xFFFFFFFF},
             {KVD_TUIIF_FREQUENCY_LOCKED, 0.0, 0.0, 0xFFFFFFFF, 0xFFFFFFFF},
             {0, 0.0, 0.0, 0xFFFFFFFF, 0xFFFFFFFF},
             {255, 0.0, 0.0, 0xFFFFFFFF, 0xFFFFFFFF},
         })) {
        SCOPED_TRACE(c.clockState);
        ProcessBench b{1, true};
        b.unit.in([&c] { KvdLoz6TuReg_setOffset(c.delta0_c, c.delta0_f); });
        b.timeData(c.clockState);
        EXPECT_EQ(b.unit.traces("Cannot read INCI time data"), 0u);
        const KvdNgpduhifTimeDataInd& ind = b.group().lastTime();
        EXPECT_EQ(ind.sigNo, KVD_NGPDUHIF_TIME_DATA_IND);
        EXPECT_EQ(ind.eSfc, 7u);
        EXPECT_EQ(ind.mfn, 24u);
        EXPECT_EQ(ind.sfn, 4095u);
        EXPECT_EQ(ind.clockState, c.clockState);
        EXPECT_EQ(ind.cbfnJumpInd, 5u);
        EXPECT_EQ(ind.dataRTOSeconds, c.seconds);
        EXPECT_EQ(ind.dataRTONanoseconds, c.nanoseconds);
    }
}

TEST(NgPduhTime, WhatIsNotValidIsNotToldAndTheRoundsGoOn)
{
    ProcessBench b{1, true};
    for (int i = 0; i < 2; ++i) b.timeData(KVD_TUIIF_RNT_TIME_LOCKED, 0);    // an error once
    EXPECT_EQ(b.group().received(KVD_NGPDUHIF_TIME_DATA_IND), 0u);
    EXPECT_EQ(b.unit.node.traces().count(
                  {"Cannot read INCI time data or server is not available: timedataValid= 0.", "", 1}),
              1u);
    b.run(1.0);
    EXPECT_EQ(b.timeRequests(), 5u);
    b.unit.order(SIGSELECT{0x123456});
    EXPECT_EQ(b.unit.traces("Unexpected signal 1193046 received from manager"), 1u);
    b.timeData(KVD_TUIIF_RNT_TIME_LOCKED);
    EXPECT_EQ(b.group().received(KVD_NGPDUHIF_TIME_DATA_IND), 1u);
    b.timeData(KVD_TUIIF_RNT_TIME_LOCKED, 0);    // and once more after a good one
    EXPECT_EQ(b.unit.node.traces().count({"Cannot read INCI time data or server is not", "", 1}), 2u);
    EXPECT_EQ(b.unit.command("kvdngpduh nonsense", 20).find("related data"), std::string::npos);
}

TEST(NgPduhProcess, IsStartedOnceAndItsTablesGoWithIt)
{
    ProcessBench b{1, true};
    const PROCESS first = b.unit.process();
    b.unit.start();
    EXPECT_EQ(b.unit.process(), first);
    EXPECT_EQ(b.unit.traces("PsxIwNgscInciServer_proc process already started!"), 1u);
    b.unit.establish("peer", 1, 5);
    EXPECT_NE(b.unit.command("kvdngpduh all").find("client[0]  peer/PsxIwNgscInciServer"), std::string::npos);

    b.unit.kill();
    EXPECT_EQ(b.unit.process(), 0u);
    EXPECT_EQ(b.unit.node.inProgram(KvdLoz6NgPduh_pid), 0u);
    std::string shown = b.unit.command("kvdngpduh all");
    EXPECT_EQ(shown.find("client[0]"), std::string::npos);
    EXPECT_NE(shown.find("NGPDUHIF_UNAVAILABLE"), std::string::npos);
    const std::size_t asked = b.timeRequests();
    b.run(5.0);
    EXPECT_EQ(b.unit.responses(), 0u);           // its timers are gone
    EXPECT_EQ(b.timeRequests(), asked);
    b.unit.kill();                               // twice is once
    b.peer.start();
    EXPECT_TRUE(b.peer.inbox.taken.empty());     // and its hunts

    b.unit.start();
    b.run(1.1);
    EXPECT_EQ(b.unit.traces("PROCESS started: PsxIwNgscInciServer_proc"), 2u);
    EXPECT_EQ(b.unit.traces("PsxIwNgscInciServer PROCESS created"), 2u);
    EXPECT_EQ(b.timeRequests(), asked + 5);
    EXPECT_EQ(b.unit.traces("refused by the shell"), 0u);
    EXPECT_EQ(b.unit.traces("Unexpected signal"), 0u);
    b.unit.establish("peer", 1, 5);
    EXPECT_EQ(b.peer.inbox.count(PSX_IW_NGSC_INCI_CONN_ESTABLISH_REQ), 1u);
}

}  // namespace
