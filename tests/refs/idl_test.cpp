// Inter-unit links as the unit lives them: port A's interrupts, the main processor's supervision,
// time.
#include "tests/ref/ref_bench.h"
#include "tests/ref/ref_unit.h"
#include "refs/kvd_ref_idl.h"
#include "sig/idpi_sig.h"

namespace {

using namespace bench;

TEST(IdlLink, RefusedTimerLeavesTheLinkAsItIs)
{
    RefUnit unit;
    unit.supervise(IDL1_REF, true);
    unit.portAInterrupt();
    unit.node.system().faults().refuseTimers = 1;
    unit.portAInterrupt();
    unit.ms(5'000);
    EXPECT_EQ(unit.idlState(0), IDL_ON);
    unit.portAInterrupt();                                 // a timer again
    unit.ms(310);
    EXPECT_EQ(unit.idlState(0), IDL_OFF);
}

TEST(IdlLink, OnASlaveIsSelectedAndHasAMinuteOfHoldover)
{
    RefUnit unit(refConfig(0));
    unit.supervise(IDL1_REF, true);
    EXPECT_EQ(unit.selectedRef(), IDL1_REF);
    EXPECT_EQ(unit.regulatorRef(), TU_SR_IDL1_REF);
    unit.portAInterrupt();
    unit.ms(310);
    EXPECT_EQ(unit.idlState(0), IDL_OFF);
    EXPECT_EQ(unit.traces("Slave HoldOver timer started. Slave PLL state 0, idlPort = 0"), 1u);
    unit.ms(59'999);
    std::string print;
    unit.node.shell().run("kvdinfo turef", print);
    EXPECT_EQ(print.find("SLAVE_HO_TIMER  EXPIRED"), std::string::npos);
    unit.ms(1);
    unit.node.shell().run("kvdinfo turef", print);
    EXPECT_NE(print.find("SLAVE_HO_TIMER  EXPIRED"), std::string::npos);
    unit.toManager(KvdTurefSlaveHoldoverTimeoutInd{KVD_TUREF_SLAVE_HOLDOVER_TIMEOUT_IND, 2});    // no port's
    unit.supervise(IDL1_REF, false);
    unit.node.shell().run("kvdinfo tureg", print);
    EXPECT_NE(print.find("portSupervised       : 0, 0"), std::string::npos) << print;
}

TEST(IdlLink, OnPort2LivesOnDelayAnswersOfTheMaster)
{
    struct Bare { SIGSELECT sigNo; };
    constexpr Bare DELAY{IDPI_GET_DELAY_CFM};
    RefUnit unit;
    unit.supervise(IDL2_REF, true);
    unit.toManager(DELAY);
    EXPECT_EQ(unit.idlState(1), IDL_ON);
    unit.ms(310);
    ASSERT_EQ(unit.idlState(1), IDL_OFF);
    unit.toManager(DELAY);
    unit.ms(159);
    EXPECT_EQ(unit.idlState(1), IDL_WAIT_TO_RESTORE);
    unit.ms(1);
    EXPECT_EQ(unit.idlState(1), IDL_OFF);

    RefUnit slave(refConfig(0));
    slave.supervise(IDL2_REF, true);
    EXPECT_EQ(slave.idlState(1), IDL_ON);                  // nothing to wait for yet
    EXPECT_EQ(slave.selectedRef(), IDL2_REF);
    slave.toManager(DELAY);                                // not a slave's own clock
    slave.ms(1'000);
    EXPECT_EQ(slave.idlState(1), IDL_ON);
    slave.supervise(IDL2_REF, false);
    EXPECT_EQ(slave.traces("IDL state is UNKNOWN/OFF,not a dual configuration"), 1u);
}

TEST(Idl2SyncData, FiftyExpiriesTellOnceThatItStopped)
{
    RefBench bench;
    bench.firstStart();
    const std::string reached = "IDL2 SyncDataIndTimeout threshold reached!";
    auto expire = [&] {
        bench.inManager([] {
            KvdLoz6TuRef_startIdl2SyncDataTimer();
            KvdLoz6TuRef_startIdl2SyncDataTimer();         // the second is ignored
        });
        bench.world.runFor(39 * ose::MS);
        EXPECT_TRUE(bench.node.inProgram(KvdLoz6TuRef_idl2SyncDataTimerRuns));
        bench.world.runFor(ose::MS);
        EXPECT_FALSE(bench.node.inProgram(KvdLoz6TuRef_idl2SyncDataTimerRuns));
    };
    for (int i = 0; i < 49; ++i) expire();
    EXPECT_EQ(bench.node.inProgram(KvdLoz6TuRef_idl2SyncDataIndTmoCntr), 49u);
    EXPECT_FALSE(bench.node.traces().has(reached));
    expire();
    expire();
    EXPECT_EQ(bench.node.inProgram(KvdLoz6TuRef_idl2SyncDataIndTmoCntr), 50u);
    EXPECT_EQ(bench.node.traces().count({reached}), 1u);
    bench.inManager([] {
        KvdLoz6TuRef_startIdl2SyncDataTimer();
        KvdLoz6TuRef_stopIdl2SyncDataTimer();
        KvdLoz6TuRef_setIdl2SyncDataIndTmoCntr(0);
    });
    bench.world.runFor(100 * ose::MS);
    EXPECT_EQ(bench.node.inProgram(KvdLoz6TuRef_idl2SyncDataIndTmoCntr), 0u);
}

// The manager is busy while a time-out comes due: what is handled before it takes effect.
TEST(IdlLink, QueuedTimeOutOfAFormerRunDoesNothing)
{
    RefBench bench;
    bench.firstStart();
    const auto idlState = [&] {
        return bench.node.inProgram([] { return KvdLoz6TuRef_idlState(IDLPORT_1); });
    };
    bench.inManager([] {
        KvdLoz6TuRef_idlSupervision(IDLPORT_1, 1);
        KvdLoz6TuRef_idlInterrupt(IDLPORT_1);
        KvdLoz6TuRef_idlInterrupt(IDLPORT_2);              // not supervised
        ose::delay(315);
        KvdLoz6TuRef_idlInterrupt(IDLPORT_1);              // its hold-off lies in the queue
    });
    bench.world.runFor(500 * ose::MS);
    EXPECT_EQ(idlState(), IDL_ON);
    bench.world.runFor(200 * ose::MS);
    EXPECT_EQ(idlState(), IDL_OFF);                        // the present run's
    bench.inManager([] {
        KvdLoz6TuRef_startIdl2SyncDataTimer();
        ose::delay(45);
        KvdLoz6TuRef_stopIdl2SyncDataTimer();
    });
    bench.world.runFor(100 * ose::MS);
    EXPECT_EQ(bench.node.inProgram(KvdLoz6TuRef_idl2SyncDataIndTmoCntr), 0u);
}

TEST(SynchPortHistory, KeepsChangesOnly)
{
    RefUnit unit;
    unit.node.system().call(*unit.node.program(), [] {
        for (u8 port : {u8{0}, u8{0}, u8{5}, u8{6}, u8{5}, u8{2}}) KvdLoz6TuRef_setSynchPortNo(port);
    });
    std::string print;
    unit.node.shell().run("kvdinfo turef", print);
    EXPECT_NE(print.find("Synch port history, 3 of 50 records"), std::string::npos) << print;
}

}  // namespace
