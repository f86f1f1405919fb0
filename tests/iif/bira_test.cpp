// The node's basic timing function and the unit: how both start, how the hardware changes hands, what a
// slave keeps across a restart.
#include "tests/refs/idl_unit.h"

#include "hw/kvd_hwif.h"
#include "unit/kvd_unit_link.h"

namespace {

using bench::IdlUnit;
using bench::idlConfig;
using bench::MASTER;
using bench::SLAVE;
using sim::Answer;

TEST(BiraStart, GivesTheHardwareToWhomTheServerSays)
{
    constexpr const char* ALONE = "biraiif idlMode: KVD_BIRAIIF_IDL_MODE_NOT_AVAILABLE";
    struct Case { const char* when; u8 role; bool present; Answer answer; u8 linkType; u32 control, idl2; };
    for (const Case& c : std::to_array<Case>({
             {"no server, slave",     SLAVE,  false, Answer::Accept,  0, 1, 0},
             {"no server, master",    MASTER, false, Answer::Accept,  0, 1, 0},
             {"rejected",             SLAVE,  true,  Answer::Reject,  1, 1, 0},
             {"suspended",            SLAVE,  true,  Answer::Suspend, 1, 1, 0},
             {"IDL1, slave takes it", SLAVE,  true,  Answer::Accept,  0, 1, 0},
             {"IDL1, master",         MASTER, true,  Answer::Accept,  0, 1, 0},
             {"IDL2, slave waits",    SLAVE,  true,  Answer::Accept,  1, 0, 1},
             {"IDL2, master",         MASTER, true,  Answer::Accept,  1, 1, 1}})) {
        SCOPED_TRACE(c.when);
        const bool isAlone = !c.present || c.answer != Answer::Accept;
        bench::Unit unit{idlConfig(c.role, c.present, c.linkType)};
        unit.node.bira().setAnswer(c.answer);
        unit.node.powerOn();
        unit.run(1.0);
        EXPECT_EQ(unit.node.inProgram(KvdLoz6BiraIifAdm_hasHwControl), c.control);
        EXPECT_EQ(unit.node.inProgram(KvdLoz6BiraIifAdm_started), 1);
        EXPECT_EQ(unit.node.system().find("Kvd_loz6_tuhwif_int_proc") != 0, c.control == 1);
        EXPECT_EQ(unit.traced(ALONE), isAlone);
        const sim::MpRecord* const told = unit.node.mainProcessor().last(KVD_TUIIF_IDL2_MODE_IND);
        ASSERT_NE(told, nullptr);
        EXPECT_EQ(told->as<KvdTuiifIdl2ModeInd>()->idl2Used, c.idl2);
    }
}

// The start blocks as long as the server says nothing; the operator is told what it waits for.
TEST(BiraStart, SaysWhatItWaitsFor)
{
    constexpr const char* SERVICE = "Syncdrv_proc doesn't answer, the start waits for the service";
    constexpr const char* LINK = "Syncdrv_proc doesn't answer, the start waits for the link type";
    {
        SCOPED_TRACE("link type comes late");
        bench::Unit unit{idlConfig(SLAVE)};
        unit.node.bira().tellsLink = false;
        unit.node.powerOn();
        unit.run(25.0);
        EXPECT_EQ(unit.traces(LINK), 2u);
        EXPECT_EQ(unit.traces(SERVICE), 0u);
        EXPECT_EQ(unit.node.mainProcessor().count(KVD_TUIIF_BVQ_STATUS_IND), 0u);
        unit.node.bira().tellsLink = true;               // from the next request on
        unit.run(40.0);
        EXPECT_EQ(unit.node.bira().received(KVD_BIRAIIF_INITIATE_SERVICE_REQ), 2u);
        EXPECT_EQ(unit.traces(SERVICE), 0u);
        EXPECT_EQ(unit.node.inProgram(KvdLoz6BiraIifAdm_idlMode), 1u);
    }
    {
        SCOPED_TRACE("no answer at all, then it dies and comes back");
        bench::Unit unit{idlConfig(SLAVE)};
        unit.node.bira().setAnswer(Answer::Silent);
        unit.node.powerOn();
        unit.run(15.0);
        EXPECT_EQ(unit.traces(SERVICE), 1u);
        unit.node.bira().die();
        unit.run(1.0);
        EXPECT_TRUE(unit.traced("Syncdrv_proc died in the start"));
        EXPECT_EQ(unit.node.inProgram(KvdLoz6BiraIifAdm_hasHwControl), 1u);
        EXPECT_TRUE(unit.traced("biraiif idlMode: KVD_BIRAIIF_IDL_MODE_NOT_AVAILABLE"));
        unit.node.bira().setAnswer(Answer::Accept);
        unit.node.bira().start();
        unit.run(1.0);
        EXPECT_TRUE(unit.node.bira().connected());
        EXPECT_EQ(unit.traces("tuHwIf_initiate coldStart"), 1u);
        unit.node.bira().die();
        unit.run(1.0);
        EXPECT_EQ(unit.node.inProgram(KvdLoz6BiraIifAdm_started), 0);    // it had served
    }
}

// A type of link that isn't known is refused each time: in the start, which waits for another, in running, as
// an order of the main processor.
TEST(BiraStart, RefusesATypeOfLinkThatItDoesNotKnow)
{
    constexpr const char* REFUSED = "Unknown linkType (7) received from syncDrv-LOZ4";
    IdlUnit unit{idlConfig(SLAVE, true, 7)};
    EXPECT_EQ(unit.traces(REFUSED), 1u);
    EXPECT_EQ(unit.mp().count(KVD_TUIIF_IDL2_MODE_IND), 0u);
    unit.bira().config.linkType = 1;
    unit.bira().tellLink();
    unit.run(1.0);
    EXPECT_EQ(unit.get(KvdLoz6BiraIifAdm_idlMode), 1u);
    EXPECT_EQ(unit.traces("tuHwIf_initiate coldStart"), 1u);
    unit.inject(KvdBiraiifIdl2LinkInd{KVD_BIRAIIF_IDL2_LINK_IND, 7, 0, 0, 0});
    unit.mp().sendLayout(KvdTuiifIdl2SetMasterServerCfm{KVD_TUIIF_IDL2_SET_MASTER_SERVER_CFM, 1});
    unit.mp().sendLayout(KvdTuiifIdl2SelectIdlTypeReq{KVD_TUIIF_IDL2_SELECT_IDL_TYPE_REQ, 256, 1});
    unit.run(0.2);
    EXPECT_EQ(unit.traces(REFUSED), 2u);
    EXPECT_TRUE(unit.traced("Unknown linkType (256) received from syncDrv-LOZ4"));
    EXPECT_EQ(unit.get(KvdLoz6BiraIifAdm_idlMode), 1u);
}

// A unit that runs doesn't stand still for a server that comes back and says nothing; it takes a late answer.
TEST(BiraServerDown, ThatComesBackSilentHoldsTheUnitUpForSecondsOnly)
{
    IdlUnit unit{idlConfig(MASTER), 10.0};
    unit.bira().die();
    unit.bira().setAnswer(Answer::Busy);
    unit.run(1.0);
    unit.bira().start();
    unit.run(9.0);
    EXPECT_TRUE(unit.traced("the unit goes on without the service, waited=5000 ms"));
    std::string text;
    EXPECT_EQ(unit.command("kvdinfo tumgr", text), 0);
    unit.mp().boardFailure(true);
    unit.run(0.1);
    EXPECT_EQ(unit.node.led(), sim::Led::RedOn) << "served";
    EXPECT_EQ(unit.get(KvdLoz6BiraIifAdm_started), 0);
    unit.bira().setAnswer(Answer::Accept);
    unit.run(1.0);
    EXPECT_EQ(unit.get(KvdLoz6BiraIifAdm_started), 1);
    EXPECT_FALSE(unit.traced("answer not asked for"));
    // One that has lost the request is asked again.
    unit.bira().die();
    unit.bira().setMute(true);
    unit.bira().start();
    unit.run(25.0);
    EXPECT_EQ(unit.get(KvdLoz6BiraIifAdm_started), 0);
    unit.bira().setMute(false);
    unit.run(10.0);
    EXPECT_EQ(unit.get(KvdLoz6BiraIifAdm_started), 1);
}

TEST(BiraServerDown, LeavesTheHardwareToTheSlaveAfterTenSeconds)
{
    struct Case {
        const char* when;
        u8 role, linkType;
        double gone_s;
        u32 control, idl2, timers;
        Answer then;
    };
    for (const Case& c : std::to_array<Case>({
             {"IDL2 slave, back in time",   SLAVE,  1, 9.5,  0, 1, 1, Answer::Accept},
             {"IDL2 slave, refused then",   SLAVE,  1, 9.5,  1, 0, 1, Answer::Reject},
             {"IDL2 slave, gone for good",  SLAVE,  1, 10.5, 1, 0, 1, Answer::Accept},
             {"IDL1 slave has it already",  SLAVE,  0, 10.5, 1, 0, 0, Answer::Accept},
             {"IDL1 slave, refused then",   SLAVE,  0, 9.5,  1, 0, 0, Answer::Reject},
             {"master starts no timer",     MASTER, 1, 10.5, 1, 1, 0, Answer::Accept}})) {
        SCOPED_TRACE(c.when);
        sim::NodeConfig config = idlConfig(c.role, true, c.linkType);
        config.bira.lock_ms = -1;
        IdlUnit unit{config};
        unit.bira().die();
        unit.bira().setAnswer(c.then);
        unit.run(c.gone_s);
        if (c.gone_s < 10.0) unit.bira().start();
        unit.run(2.0);
        EXPECT_EQ(unit.traces("Basic restart tmo requested."), c.timers);
        EXPECT_EQ(unit.hwControl(), c.control);
        EXPECT_EQ(unit.get(KvdLoz6BiraIifAdm_idlMode), c.idl2);
        EXPECT_EQ(unit.interruptProcess(), c.control == 1);
        EXPECT_EQ(unit.mp().last(KVD_TUIIF_IDL2_MODE_IND)->as<KvdTuiifIdl2ModeInd>()->idl2Used, c.idl2);
    }
}

TEST(BiraOrders, PersistentFrequencyLockKeepsTheHardwareWithTheServer)
{
    sim::NodeConfig config = idlConfig(SLAVE);
    config.apn = 3;                      // a unit that takes this order
    IdlUnit unit{config, 22.0};
    ASSERT_EQ(unit.hwControl(), 1u);
    unit.bira().confirms = false;
    const auto order = [&](u32 value) {
        unit.mp().sendLayout(KvdTuiifIdl2TogglePersistentFreqLockReq{
            KVD_TUIIF_IDL2_TOGGLE_PERSISTENT_FREQ_LOCK_REQ, value, 4});
        unit.run(0.1);
    };
    order(1);
    EXPECT_EQ(unit.hwControl(), 0u);
    EXPECT_EQ(unit.bira().handBacks(), 0u);          // it was ordered, not given up
    EXPECT_EQ(unit.bira().persistentFreqLock(), 1u);
    unit.bira().tellFreqLocked();
    unit.run(0.1);
    EXPECT_EQ(unit.hwControl(), 0u);
    // It stands until the server confirms it, which is asked again, also by another life's.
    const auto asked = [&] { return unit.bira().received(KVD_BIRAIIF_IDL2_TOGGLE_PERSISTENT_FREQ_LOCK_REQ); };
    unit.run(10.0);
    EXPECT_EQ(asked(), 2u);
    unit.bira().die();
    unit.bira().confirms = true;
    unit.bira().start();
    unit.run(1.0);
    EXPECT_EQ(asked(), 3u);
    EXPECT_EQ(unit.get(KvdLoz6BiraIifAdm_persistentFreqLock), 0u);
    unit.run(15.0);
    EXPECT_EQ(asked(), 3u);
    order(0);
    unit.run(20.5);
    EXPECT_EQ(unit.hwControl(), 1u);
}

TEST(BiraOrders, LinkTypeOrderedByTheMainProcessor)
{
    IdlUnit unit{idlConfig(SLAVE, true, 0), 3.0};
    const auto order = [&](u32 type) {
        unit.mp().sendLayout(KvdTuiifIdl2SelectIdlTypeReq{KVD_TUIIF_IDL2_SELECT_IDL_TYPE_REQ, type, 1});
        unit.run(0.2);
    };
    order(1);                            // not while the master's end isn't the server
    EXPECT_EQ(unit.get(KvdLoz6BiraIifAdm_idlMode), 0u);
    unit.mp().sendLayout(KvdTuiifIdl2SetMasterServerCfm{KVD_TUIIF_IDL2_SET_MASTER_SERVER_CFM, 1});
    order(1);
    EXPECT_EQ(unit.get(KvdLoz6BiraIifAdm_idlMode), 1u);
    EXPECT_EQ(unit.timeTuning(), 1u);
    EXPECT_EQ(unit.hwControl(), 1u);
    EXPECT_EQ(unit.bira().config.linkType, 1);
    order(0);
    EXPECT_EQ(unit.get(KvdLoz6BiraIifAdm_idlMode), 0u);
    EXPECT_EQ(unit.timeTuning(), 0u);
    EXPECT_EQ(unit.hwControl(), 1u);
    EXPECT_EQ(unit.idpi().clkStatuses(), (std::vector<u16>{1, 2}));
    EXPECT_EQ(unit.traces("IDL2 slave mode detected"), 2u);
    EXPECT_FALSE(unit.traced("Unexpected signal"));
}

TEST(BiraWarm, StoredDataCountsAfterAWarmRestartInHoldover)
{
    struct Case {
        const char* when;
        u32 stored;                      // clock status before the restart
        bool holdover;
        std::optional<bool> cold;
        u8 data;
        u32 control, restored, storedThen;
    };
    for (const Case& c : std::to_array<Case>({
             {"locked before",              2, true,  false, 0, 1, 1, 2},
             {"fine before",                4, true,  false, 0, 1, 1, 4},
             {"free running before",        1, true,  false, 0, 1, 0, 2},
             {"the server was long away",   2, true,  false, 1, 1, 0, 2},
             {"the server's clock is good", 2, false, false, 0, 0, 0, 1},
             {"the server started cold",    2, true,  true,  0, 0, 0, 0}})) {
        SCOPED_TRACE(c.when);
        sim::NodeConfig config = idlConfig(SLAVE);
        config.idpi.ports = {{3, 2, 1, 1, 3}};
        IdlUnit unit{config, 22.0};
        ASSERT_EQ(unit.hwControl(), 1u);
        unit.node.system().call(*unit.node.program(), [&] {
            KvdLoz6SlaveWarm_setIdpiClkStatus(c.stored);
            KvdLoz6SlaveWarm_write("test");
        });
        unit.bira().config.holdover = c.holdover;
        unit.bira().config.cold = c.cold;
        unit.bira().config.data = c.data;
        unit.bira().config.lock_ms = -1;
        unit.node.traces().clear();
        const auto toldBefore = unit.mp().count(KVD_TUIIF_IDL2_SET_MASTER_SERVER_REQ);
        unit.node.restartWarm();
        unit.run(5.0);
        EXPECT_EQ(unit.hwControl(), c.control);
        EXPECT_EQ(unit.get(KvdLoz6BiraIifAdm_initiatedFromSlaveMsi), c.restored);
        EXPECT_EQ(unit.storedClkStatus(), c.storedThen);
        EXPECT_EQ(unit.traced("Initiate with Slave MSI is DONE."), c.control == 1);
        EXPECT_EQ(unit.mp().count(KVD_TUIIF_IDL2_SET_MASTER_SERVER_REQ) > toldBefore, c.control == 1);
        EXPECT_EQ(unit.idpi().clkStatus(), c.control != 0 ? c.storedThen : 0);
    }
}

// An IDL1 slave that doesn't lock tells its port server locked all the same, after 20 minutes.
TEST(BiraIdl1ClockState, IsLockedAtTheLatestAfterTwentyMinutes)
{
    for (const u32 boardType : {1u, 2u}) {
        SCOPED_TRACE(boardType);
        sim::NodeConfig config = idlConfig(SLAVE, true, 0);
        config.boardType = boardType;
        IdlUnit unit{config, 1195.0};
        EXPECT_TRUE(unit.idpi().clkStatuses().empty());
        unit.run(10.0);
        const bool tells = boardType == 2;           // the other board has no such port
        EXPECT_EQ(unit.idpi().clkStatuses(), tells ? std::vector<u16>({1, 2}) : std::vector<u16>{});
        EXPECT_EQ(unit.storedClkStatus(), tells ? 2u : 0u);
    }
}

}  // namespace
