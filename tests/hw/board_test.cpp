// The hardware interface on the simulated board: what is written steers the counter.
#include "hw/fake_bus.h"
#include "sim/board/board.h"

#include <gtest/gtest.h>

using namespace hwtest;

namespace {

/// A bus whose registers are the board's.
struct BoardBus : FakeBus {
    sim::Board* board = nullptr;
    u32 mmioRead(u32 address) override { return board->read(address); }
    void mmioWrite(u32 address, u32 value) override { board->write(address, value); }
};

struct OnBoard {
    ose::World world{1};
    sim::BoardConfig config;
    BoardBus bus;
    ose::System& system = world.createSystem("node");
    std::optional<sim::Board> board;
    ose::Block* block = nullptr;
    u32 coldRestart = 0;

    explicit OnBoard(u32 type, const std::string& revision = "R5A2")
    {
        config.type = type;
        config.revision = revision;
        config.eeprom.calibrationDate = type == 2 ? "2023-06-15" : "";
        bus.boardCode = type == 1 ? 7 : 9;
        bus.parameters["zfb/hw/fpga/bvf4/base"] = "0xE1000000";
        bus.parameters["zfb/hw/fpga/moka/tu_clk_sys/base"] = "0xE2010000";
        bus.parameters["zfb/hw/fpga/moka/base"] = "0xE2000000";
        board.emplace(world, config);
        bus.board = &*board;
        board->powerOn(true);
        system.setPlatform(static_cast<node::Platform*>(&bus));
        block = &system.load(idleProgram());
        in([] { HALI_init(); });
    }
    void in(const std::function<void()>& body) { system.call(*block, body); }
    int initiate()
    {
        int result = -1;
        in([&] { result = tuHwIf_initiate(coldRestart, 0); });
        return result;
    }
};

}  // namespace

TEST(OnTheBoard, StartsColdAndThenWarm)
{
    for (const u32 type : {1u, 2u})
        for (const char* revision : {"R41A", "R5A2"}) {
            SCOPED_TRACE(testing::Message() << type << " " << revision);
            OnBoard unit(type, revision);
            ASSERT_EQ(unit.initiate(), 0);
            EXPECT_EQ(unit.coldRestart, 1u);
            EXPECT_EQ(unit.board->multiplicatorWords().size(), 112u);
            EXPECT_NEAR(unit.board->divider(), 706.0872395825, 1e-9);
            ASSERT_EQ(unit.initiate(), 0);
            EXPECT_EQ(unit.coldRestart, 0u);
            EXPECT_EQ(unit.board->multiplicatorWords().size(), 112u);
        }
}

TEST(OnTheBoard, SteersTheDividerAndReadsItBack)
{
    OnBoard unit(2);
    ASSERT_EQ(unit.initiate(), 0);
    unit.in([] {
        tuHwIf_adjustFrequency(2.5e-6);
        EXPECT_NEAR(tuHwIf_readCurrentFrequency(), 2.5e-6, 1e-12);
    });
    EXPECT_NEAR(unit.board->divider() / 706.0872395825 - 1, 2.5e-6, 1e-12);
}

TEST(OnTheBoard, TheCounterRunsAndIsSteppedByTheWantedTime)
{
    for (const u32 type : {1u, 2u}) {
        SCOPED_TRACE(type);
        OnBoard unit(type);
        ASSERT_EQ(unit.initiate(), 0);
        double period = 0, before = 0, after = 0;
        unit.in([&] { ASSERT_EQ(HALI_readTime(period, before), 0); });
        unit.world.runFor(10 * ose::SEC);
        unit.in([&] { ASSERT_EQ(HALI_readTime(period, after), 0); });
        EXPECT_NEAR(after - before, 10.0, 1e-3);          // an oven that is still cold

        const double error = unit.board->timeError_s();
        unit.in([] { EXPECT_EQ(HALI_adjustTime(0, 123.456), 1); });
        unit.world.runFor(ose::SEC);
        EXPECT_NEAR(unit.board->timeError_s() - error, 123.456, 1e-4);
        if (type == 1) continue;
        unit.in([] { EXPECT_EQ(HALI_adjustTime(5, 0), 1); });
        unit.world.runFor(ose::SEC);
        EXPECT_EQ(unit.board->externalCounter(), 5u);
    }
}

TEST(OnTheBoard, TheOscillatorTellsItsIdentityAndTemperature)
{
    OnBoard unit(2);
    ASSERT_EQ(unit.initiate(), 0);
    OcxoParams params;
    double volts = -1;
    char serial[18] = "";
    u8 version = 0, maker = 0;
    unit.in([&] {
        EXPECT_EQ(HALI_getOcxoParams(params), 0);
        EXPECT_EQ(HALI_getOcxoTemp(volts), 0);
        EXPECT_EQ(HALI_readOcxoSerial(serial, version, maker), 0);
    });
    EXPECT_STREQ(serial, " TU00000000000001");
    EXPECT_EQ(version, 3);
    EXPECT_EQ(maker, 'X');
    EXPECT_STREQ(params.calibrationDate, "2023-06-15");
    EXPECT_NEAR(params.tempMin, 1.2 * 0.9, 1e-9);
    EXPECT_NEAR(params.tempMax, 3.0, 1e-9);
    EXPECT_NEAR(volts, unit.board->temperature_V(), 1e-4);
}

TEST(OnTheBoard, FaultsEndTheStartWithTheirResult)
{
    struct Case { const char* what; void (*set)(sim::BoardFaults&); int result; };
    for (const Case& c : std::to_array<Case>({
             {"EEPROM sum", [](sim::BoardFaults& f) { f.eepromBadSum = true; }, 1},
             {"EEPROM all zero", [](sim::BoardFaults& f) { f.eepromZero = true; }, 1},
             {"EEPROM never there", [](sim::BoardFaults& f) { f.eepromNeverLoads = true; }, 1},
             {"multiplicator silent", [](sim::BoardFaults& f) { f.multiplicatorTimeoutAt = 7; }, 2},
             {"multiplicator differs",
              [](sim::BoardFaults& f) { f.multiplicatorDiffersAt = 77; }, 2},
             {"multiplicator CRC", [](sim::BoardFaults& f) { f.multiplicatorCrc = true; }, 2},
             {"not read back, not compared",
              [](sim::BoardFaults& f) { f.multiplicatorDiffersAt = 54; }, 0},
             {"no feedback", [](sim::BoardFaults& f) { f.synthStatusAnd = 0x7; }, 2},
             {"words that read back late", [](sim::BoardFaults& f) { f.readBackStuck = 3; }, 0}})) {
        SCOPED_TRACE(c.what);
        OnBoard unit(2);
        c.set(unit.board->faults);
        EXPECT_EQ(unit.initiate(), c.result);
    }
}
