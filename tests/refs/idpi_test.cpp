// The inter-unit link ports: which of them count, and when a round of their delays is complete.
#include "ref/kvd_ref.h"
#include "refs/kvd_idpi_int.h"
#include "refs/kvd_ref_idl.h"
#include "reg/kvd_reg_measure.h"
#include "tests/refs/idl_unit.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <functional>
#include <map>
#include <span>
#include <vector>

namespace {

using bench::IdlUnit;
using bench::idlConfig;
using bench::MASTER;
using bench::SLAVE;

/// A master with two ports; each request for a delay is counted.
struct PortUnit : IdlUnit {
    std::map<u16, u32> requests;

    static sim::NodeConfig config()
    {
        sim::NodeConfig c = idlConfig(MASTER);
        c.idpi.ports = {{.port = 1, .farDu = 2, .farPort = 3}, {.port = 4, .farDu = 3, .farPort = 0}};
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
    EXPECT_EQ(word(36 + 24) & 0xFFFF, 3u);       // far end without a number
    for (const double last_f : {0.0, 1'000.0}) {  // the counter's wrap is behind the last sample
        unit.get([=] { KvdLoz6TuReg_setLastTime(2'048.0, last_f); });
        unit.run(0.05);
        const auto ind = unit.mp().last(KVD_TUIIF_IDL2_TIME_DATA_IND)->as<KvdTuiifIdl2TimeDataInd>();
        EXPECT_EQ(ind->eSFC, last_f == 0.0 ? 2u : 3u);
    }
    unit.idpi().setAnswer(sim::Answer::Busy);
    EXPECT_EQ(unit.roundsIn(1.0), 0u);
    unit.idpi().setAnswer(sim::Answer::Accept);  // 25 requests are answered at once
    EXPECT_EQ(unit.roundsIn(0.001), 1u);

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
    EXPECT_EQ(unit.roundsIn(0.2), 5u);           // that of the refusal, too
    EXPECT_EQ(unit.activePorts(), 1u);
    IdpiGetDelayCfm late{};
    late.sigNo = IDPI_GET_DELAY_CFM;
    late.portNo = 4;
    late.delayC4T1Low = 99;
    unit.inject(late);
    EXPECT_NE(unit.port(3).delayC4T1Low, 99u);
}

TEST(IdpiPort, OfASlaveIsSupervisedOnceHardwarePortAndOrderAreThere)
{
    std::array<u32, 3> order = {0, 1, 2};
    do {
        SCOPED_TRACE(testing::PrintToString(order));
        sim::NodeConfig c = idlConfig(SLAVE);
        c.bira.lock_ms = -1;
        IdlUnit unit{c};
        const auto idlState = [&] { return unit.get([] { return KvdLoz6TuRef_idlState(IDLPORT_2); }); };
        for (u32 step : order) {
            EXPECT_NE(idlState(), IDL_SUPERVISED);
            if (step == 0) unit.bira().tellFreqLocked();
            if (step == 1) unit.idpi().setPort({1, 2, 1, 1, IDPI_LINK_AVAILABLE});
            if (step == 2) unit.mp().supervise({.name = "idl", .refType = IDL2_REF}, true);
            unit.run(0.01);
        }
        EXPECT_EQ(idlState(), IDL_SUPERVISED);
        unit.idpi().setPort({3, 2, 1, 2, IDPI_LINK_AVAILABLE});   // another one changes nothing
        unit.run(0.35);
        EXPECT_EQ(idlState(), IDL_OFF);                           // the other end says nothing
    } while (std::next_permutation(order.begin(), order.end()));
    for (const auto missing : {&KvdUnitLink::hasHwControl, &KvdUnitLink::timeTuningOngoing}) {
        IdlUnit unit{idlConfig(SLAVE)};
        unit.bira().tellFreqLocked();
        unit.idpi().setPort({1, 2, 1, 1, IDPI_LINK_AVAILABLE});
        unit.run(0.01);
        ASSERT_EQ(unit.get([missing] { return std::exchange(KvdUnit_link().*missing, 0u); }), 1u);
        unit.mp().supervise({.name = "idl", .refType = IDL2_REF}, true);
        unit.run(0.01);
        EXPECT_EQ(unit.get([] { return KvdLoz6TuRef_idlState(IDLPORT_2); }), IDL_ON) << "half a handover";
    }
}

TEST(IdpiConnection, IsMadeAgainAfterALossAndAsksAgainForWhatIsLateAlone)
{
    PortUnit unit;
    unit.idpi().die();
    unit.idpi().capabilityAnswer = sim::Answer::Silent;
    unit.idpi().start();
    unit.run(25.0);
    EXPECT_EQ(unit.idpi().received(IDPI_GET_CAPABILITY_REQ), 1u + 3u);
    unit.idpi().capabilityAnswer = sim::Answer::Accept;
    unit.idpi().subscribeAnswer = sim::Answer::Reject;
    unit.run(25.0);
    EXPECT_EQ(unit.idpi().received(IDPI_SUBSCRIBE_LINK_STATUS_REQ), 1u + 1u);
    EXPECT_EQ(unit.activePorts(), 2u);
}

/// A signal that names no port of this unit, comes in no order, or is cut off.
struct Stray { std::vector<std::byte> bytes; const char* trace; };

template <typename T>
std::vector<std::byte> bytesOf(SIGSELECT sigNo, const std::function<void(T&)>& fill = {},
                               std::size_t size = sizeof(T))
{
    T sig{};
    sig.sigNo = sigNo;
    if (fill) fill(sig);
    const auto bytes = std::as_bytes(std::span<const T, 1>(&sig, 1));
    return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size)};
}

std::vector<std::byte> linkStatus(u16 nearPort, bool valid, u16 nearDu = 1,
                                  std::size_t size = sizeof(IdpiLinkStatusInd))
{
    return bytesOf<IdpiLinkStatusInd>(IDPI_LINK_STATUS_IND, [&](IdpiLinkStatusInd& ind) {
        ind.dunDataValid = ind.portDataValid = valid ? 1 : 0;
        ind.nearEndPortNo = nearPort;
        ind.nearEndDuId = nearDu;
        ind.farEndPortNo = 3;
        ind.farEndDuId = 2;
        ind.status = 0;
    }, size);
}

std::vector<std::byte> delayOf(u16 port)
{
    return bytesOf<IdpiGetDelayCfm>(IDPI_GET_DELAY_CFM, [port](auto& cfm) { cfm.portNo = port; });
}
std::vector<std::byte> refusalOf(u16 port, std::size_t size = 14)
{
    return bytesOf<IdpiGetDelayReq>(IDPI_GET_DELAY_REJ, [port](auto& rej) { rej.portNo = port; }, size);
}

TEST(IdpiBadInput, IsTracedAndTheNextRoundGoesOn)
{
    constexpr const char* OUT_OF_RANGE = "Port ID out of range";
    constexpr const char* NOT_IN_TABLE = "not in port table, Ignore IDPI indication";
    constexpr const char* INACTIVE = "Received IDL2 delay data for inactive port";
    constexpr const char *REJECTED = "received IDPI_GET_DELAY_REJ for port", *SHORT = "too short";
    const auto withText = [](auto& rej) { std::memcpy(reinterpret_cast<char*>(&rej) + 14, "~\x1F", 3); };
    PortUnit unit;
    unit.traceAll();
    // Ports that don't exist, another unit's, one without a link; answers out of turn, or without their text.
    for (const Stray& stray : std::vector<Stray>{
             {linkStatus(0, true), OUT_OF_RANGE}, {linkStatus(7, true), OUT_OF_RANGE},
             {linkStatus(0xFFFF, true), OUT_OF_RANGE}, {linkStatus(0, false), NOT_IN_TABLE},
             {linkStatus(7, false), NOT_IN_TABLE}, {linkStatus(1, false, 9), NOT_IN_TABLE},
             {linkStatus(2, false), NOT_IN_TABLE}, {linkStatus(1, true, 1, 26), SHORT},
             {delayOf(0), INACTIVE}, {delayOf(7), INACTIVE}, {delayOf(2), INACTIVE},
             {refusalOf(0), REJECTED}, {refusalOf(7), REJECTED}, {refusalOf(2), REJECTED},
             {refusalOf(2, 13), SHORT},
             {bytesOf<IdpiRefs>(IDPI_CONN_ESTABLISH_CFM), "IDPI_CONN_ESTABLISH_CFM not asked for"},
             {bytesOf<IdpiConnEstablishRej>(IDPI_CONN_ESTABLISH_REJ, {}, 16), "ESTABLISH_REJ not asked for"},
             {bytesOf<IdpiRej>(IDPI_SUBSCRIBE_LINK_STATUS_REJ, {}, 14), "received IDPI_SUBSCRIBE_LINK"},
             {bytesOf<IdpiRej>(IDPI_SUBSCRIBE_LINK_STATUS_REJ, {}, 13), SHORT},
             {bytesOf<IdpiConnEstablishRej>(IDPI_SUBSCRIBE_LINK_STATUS_REJ, withText), "errorCode=0 (~?)"}}) {
        SCOPED_TRACE(stray.trace);
        const std::size_t traced = unit.traces(stray.trace);
        unit.node.system().inject(stray.bytes, unit.manager(), unit.idpi().pid());
        unit.run(0.001);
        EXPECT_EQ(unit.traces(stray.trace), traced + 1);
        EXPECT_EQ(unit.activePorts(), 2u);
        EXPECT_EQ(unit.port(0).farDu, 2u);
        EXPECT_NEAR(static_cast<double>(unit.roundsIn(0.4)), 10.0, 1.0);
    }
    unit.node.system().inject(bytesOf<IdpiRej>(IDPI_GET_CAPABILITY_REJ, {}, 14), unit.manager(), 0);
    unit.run(0.1);
    EXPECT_EQ(unit.traces("IDPI_GET_CAPABILITY_REQ rejected. error_code: 0"), 1u);
    EXPECT_EQ(unit.roundsIn(0.4), 0u) << "a server that can't measure isn't asked";
    constexpr IdpiCapability DELAYS{IDPI_CAPABILITY_DELAY, 1, 1};
    unit.inject(IdpiGetCapabilityCfm{IDPI_GET_CAPABILITY_CFM, 0, 0, 0xFFFF, {DELAYS}});
    EXPECT_GT(unit.roundsIn(0.4), 0u) << "one record, whatever the count says";
}

// Status before the connection, a delay before its request: what is known stays, nothing is sent for it.
TEST(IdpiBadInput, InTheWrongOrderStandsForNothing)
{
    sim::NodeConfig c = idlConfig(MASTER);
    c.idpi.present = false;
    IdlUnit unit{c, 2.0};
    unit.traceAll();
    unit.inject(SIGSELECT{IDPI_REQUEST_DATA_TMO});
    unit.node.system().inject(delayOf(1), unit.manager(), 0);
    unit.inject(SIGSELECT{IDPI_GET_CAPABILITY_CFM});
    EXPECT_EQ(unit.traces("IDPI SUBSCRIBE LINK STATUS failed"), 1u);
    EXPECT_EQ(unit.traces("Received IDL2 delay data for inactive port"), 1u);
    EXPECT_EQ(unit.get(KvdLoz6Idpi_portAvailable), 0u);
    EXPECT_EQ(unit.mp().count(KVD_TUIIF_IDL2_TIME_DATA_IND), 0u);
    EXPECT_EQ(unit.get(KvdLoz6Idpi_availabilityStatus), u32{IDPI_INITIATING});
}

}  // namespace
