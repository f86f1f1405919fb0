// The inter-unit link ports: which of them count, and when a round of their delays is complete.
#include "refs/kvd_idpi_int.h"
#include "tests/refs/idl_unit.h"

#include <map>

namespace {

using bench::IdlUnit;
using bench::idlConfig;
using bench::MASTER;

/// A master with two ports; each request for a delay is counted.
struct PortUnit : IdlUnit {
    std::map<u16, u32> requests;

    static sim::NodeConfig config()
    {
        sim::NodeConfig c = idlConfig(MASTER);
        c.idpi.ports = {{.port = 1, .farDu = 2, .farPort = 3}, {.port = 4, .farDu = 3, .farPort = 5}};
        return c;
    }
    PortUnit() : IdlUnit(config(), 0.0)
    {
        idpi().onDelay([this](u16 port) -> std::optional<sim::IdpiDelay> {
            ++requests[port];
            return sim::IdpiDelay{.T1C1_ps = 0x1'0000'0000ull * port + 7, .C4T1_ps = port, .linkMode = 1};
        });
        run(2.0);
    }
    std::size_t rounds() { return mp().count(KVD_TUIIF_IDL2_TIME_DATA_IND); }
    std::size_t roundsIn(double seconds)
    {
        const std::size_t before = rounds();
        run(seconds);
        return rounds() - before;
    }
};

TEST(IdpiPorts, CountOnceAndOnlyWithValidDataOfThemselves)
{
    PortUnit unit;
    EXPECT_EQ(unit.activePorts(), 2u);
    unit.idpi().setStatus(1, 3);
    unit.run(0.1);
    EXPECT_EQ(unit.activePorts(), 2u);

    unit.idpi().setPort({.port = 7});
    unit.idpi().tellInvalid({.port = 1, .farDu = 9, .farPort = 3}, 0, 1);       // another far end's
    unit.run(0.1);
    EXPECT_EQ(unit.activePorts(), 2u);
    EXPECT_EQ(unit.port(0).farDu, 2u);
    EXPECT_EQ(unit.traces("Port ID out of range (6)"), 1u);

    unit.idpi().tellInvalid({.port = 1, .farDu = 2, .farPort = 3}, 1, 0);       // its own
    unit.run(0.1);
    EXPECT_EQ(unit.activePorts(), 1u);
    EXPECT_EQ(unit.port(0).farPort, IDPI_NO_PORT);
    EXPECT_EQ(unit.port(0).delayT1C1High, 0u);
    ASSERT_TRUE(unit.linkTold().has_value());
    EXPECT_EQ(unit.linkTold()->linkAvailable, 0u);
}

TEST(IdpiRound, GoesOnWhenEveryPortHasAnswered)
{
    PortUnit unit;
    EXPECT_NEAR(static_cast<double>(unit.roundsIn(4.0)), 100.0, 1.0);
    const sim::MpRecord* const told = unit.mp().last(KVD_TUIIF_IDL2_TIME_DATA_IND);
    ASSERT_NE(told, nullptr);
    ASSERT_EQ(told->bytes.size(), 60u + 27u);
    const auto word = [&](std::size_t at) {
        u32 value = 0;
        std::memcpy(&value, &told->bytes[at], sizeof value);
        return value;
    };
    EXPECT_EQ(word(20), 2u);                     // ports, 24 bytes apart
    EXPECT_EQ(word(48), 1u);
    EXPECT_EQ(word(48 + 24), 4u);
    EXPECT_EQ(static_cast<u8>(told->bytes[36 + 24]), 3u);

    unit.idpi().silentPorts = {4};
    unit.run(0.1);
    EXPECT_EQ(unit.roundsIn(1.0), 0u);
    unit.idpi().setStatus(4, 0);                 // the other alone is a round then
    unit.run(0.1);
    EXPECT_NEAR(static_cast<double>(unit.roundsIn(1.0)), 25.0, 1.0);
}

TEST(IdpiRound, ARejectedPortIsDroppedAndALateAnswerOfItIsNotTaken)
{
    PortUnit unit;
    unit.idpi().onDelay([](u16 port) -> std::optional<sim::IdpiDelay> {
        if (port == 4) return std::nullopt;
        return sim::IdpiDelay{.T1C1_ps = 5, .C4T1_ps = 6};
    });
    unit.run(0.2);
    EXPECT_EQ(unit.activePorts(), 1u);
    EXPECT_NEAR(static_cast<double>(unit.roundsIn(1.0)), 25.0, 1.0);
    IdpiGetDelayCfm late{};
    late.sigNo = IDPI_GET_DELAY_CFM;
    late.portNo = 4;
    late.delayC4T1Low = 99;
    unit.inject(late);
    EXPECT_NE(unit.port(3).delayC4T1Low, 99u);
    EXPECT_EQ(unit.port(3).received, 0u);
}

// A time-out that its timer's stop left in the queue meets a timer that was started again.
TEST(IdpiRound, AQueuedTimeoutLeavesOneTimer)
{
    PortUnit unit;
    for (u32 i = 0; i < 5; ++i) unit.inject(SIGSELECT{IDPI_REQUEST_DATA_TMO});
    unit.requests.clear();
    unit.run(4.0);
    EXPECT_NEAR(unit.requests[1], 100.0, 1.0);
    unit.idpi().setStatus(1, 0);
    unit.idpi().setStatus(4, 0);                 // stops it
    unit.run(0.1);
    unit.requests.clear();
    unit.inject(SIGSELECT{IDPI_REQUEST_DATA_TMO});
    unit.run(1.0);
    EXPECT_TRUE(unit.requests.empty());
}

TEST(IdpiConnection, IsMadeAgainAfterALossThatOnlyStopsTheAnswers)
{
    PortUnit unit;
    unit.idpi().die();
    unit.run(0.1);
    EXPECT_EQ(unit.get(KvdLoz6Idpi_availabilityStatus), u32{IDPI_INITIATING});
    EXPECT_EQ(unit.activePorts(), 2u);
    EXPECT_EQ(unit.roundsIn(1.0), 0u);
    unit.idpi().start();
    unit.run(0.5);
    EXPECT_EQ(unit.get(KvdLoz6Idpi_availabilityStatus), u32{IDPI_AVAILABLE});
    EXPECT_EQ(unit.idpi().connections(), 2u);
    EXPECT_EQ(unit.activePorts(), 2u);
    EXPECT_NEAR(static_cast<double>(unit.roundsIn(1.0)), 25.0, 1.0);
}

TEST(IdpiConnection, WithoutTheCapabilityPortsAreKnownButNothingIsAsked)
{
    sim::NodeConfig c = PortUnit::config();
    c.idpi.measuresDelay = false;
    IdlUnit unit{c, 2.0};
    EXPECT_EQ(unit.activePorts(), 2u);
    EXPECT_EQ(unit.get(KvdLoz6Idpi_portAvailable), 0u);
    EXPECT_EQ(unit.mp().count(KVD_TUIIF_IDL2_TIME_DATA_IND), 0u);
}

}  // namespace
