// Hardware diagnostics: the start-up sequence with the test service, the run-time check, entries
// in the error log.
#include "base/kvd_mgr_hwdiag_log.h"
#include "base/trace_groups.h"
#include "frame/kvd_mgr_hwdiag.h"
#include "hw/kvd_hwif.h"
#include "hw/kvd_hwif_regs.h"
#include "node/temi.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_measure.h"
#include "sig/ref_sig.h"
#include "sig/ref_types.h"
#include "sim/board/board.h"
#include "tests/support/unit_bench.h"

namespace {

using bench::Unit;

struct DiagUnit : Unit {
    using Unit::Unit;
    sim::BoardFaults& faults() { return node.board().faults; }
    sim::ErrorLog& log() { return node.errorLog(); }
    const std::vector<sim::TestResult>& tests() { return node.temi().results(); }

    /// Codes in the error log, in their order.
    std::string codes()
    {
        std::string text;
        for (const sim::ErrorLogEntry& entry : log().entries())
            text += (text.empty() ? "" : " ") + entry.code;
        return text;
    }
    /// The detectors' fields of the hardware monitor, three bits each.
    u32 monitorWord()
    {
        const u32 address = node.inProgram([] { return static_cast<u32>(tuHwIf_lookupRegister(REG_HM)); });
        return node.board().read(address) & 0x3FFFF;
    }
    void in(const std::function<void()>& body) { node.system().call(*node.program(), body); }
    /// To the manager, from nobody.
    template <typename T>
    void give(const T& layout) { node.system().inject(bench::asBytes(layout), manager(), 0); }
    bool halted() { return traced("WARNING: LOZ6 HW diagnostic failed, halting process"); }
    /// Runs until so many start-up tests have been answered.
    bool runToTest(std::size_t count)
    {
        return world.runUntilTrue([&] { return tests().size() == count; }, 10 * ose::SEC);
    }
};

constexpr u32 ALL_DETECTORS_ON_REFERENCE = 0x9249;   // octal 111111

// ---- start-up -----------------------------------------------------------------------------------

/// A service that drives one test after the other; what breaks before or between them, and what it is told.
TEST(StartUpTests, EndAtTheFirstFailureInTheHaltedState)
{
    struct Case {
        const char* what;
        u32 restartType;
        void (*breakIt)(DiagUnit&);
        u32 tests;
        const char* code;                // "" when the unit goes on
        const char* message;
    };
    // Raw toggle bits: PDH 1 to 4, SDH, common input.
    constexpr Case CASES[] = {
        {"sound", 1, [](DiagUnit&) {}, 7, "", "Feedback check on 30,72 MHz successfull"},
        {"no tests wanted", 2, [](DiagUnit& u) { u.faults().toggleStuckOn = 0x1; }, 1, "",
         "No HW tests requested at restart"},
        {"PDH 1", 0, [](DiagUnit& u) { u.faults().toggleStuckOn = 0x1; }, 1, "MC0", "Zero in to HM 0 failed"},
        {"the first of two", 0, [](DiagUnit& u) { u.faults().toggleStuckOn = 0x14; }, 3, "MC2",
         "Zero in to HM 2 failed"},
        {"PDH 4", 1, [](DiagUnit& u) { u.faults().toggleStuckOff = 0x8; }, 4, "MC3",
         "Clock in to HM 3 failed"},
        {"external", 0, [](DiagUnit& u) { u.faults().toggleStuckOff = 0x20; }, 6, "MC5",
         "Clock in to HM 5 failed"},
        {"feedback, lost between the tests", 0, [](DiagUnit& u) {
             EXPECT_TRUE(u.runToTest(5));
             u.faults().synthStatusAnd = 0x7;
         }, 7, "MC6", "Feedback is missing on 30,72 MHz at start up"},
        {"EEPROM", 0, [](DiagUnit& u) { u.faults().eepromBadSum = true; }, 1, "MC7",
         "Start of the hardware failed"},
        {"multiplicator", 2, [](DiagUnit& u) { u.faults().multiplicatorCrc = true; }, 1, "MC8",
         "Start of the hardware failed"},
        {"board type", 0, [](DiagUnit& u) { u.node.parameters().adiResult = 1; }, 1, "MC9",
         "Start of the hardware failed"},
        {"base address", 0, [](DiagUnit& u) { u.node.parameters().boardTexts.clear(); }, 1, "MCL",
         "Start of the hardware failed"},
    };
    for (const Case& c : CASES) {
        SCOPED_TRACE(c.what);
        sim::NodeConfig config;
        config.restartType = c.restartType;
        DiagUnit unit(config);
        unit.node.powerOn();
        c.breakIt(unit);
        unit.run(30);
        const bool fails = *c.code != '\0';
        ASSERT_EQ(unit.tests().size(), c.tests);
        for (u32 i = 0; i < c.tests; ++i) {
            const bool isLast = i + 1 == c.tests;
            EXPECT_EQ(unit.tests()[i].testNumber, i + 1);
            EXPECT_EQ(unit.tests()[i].last, isLast);
            EXPECT_EQ(unit.tests()[i].result, isLast && fails ? 2u : 0u);
        }
        EXPECT_EQ(unit.tests().back().message, c.message);
        EXPECT_EQ(unit.codes(), c.code);
        EXPECT_EQ(unit.halted(), fails);
        if (std::string(c.message).find(" HM ") != std::string::npos) {
            EXPECT_EQ(unit.monitorWord(), ALL_DETECTORS_ON_REFERENCE);
        }
    }
}

TEST(StartUpTests, GoOnWithoutAServiceThatFallsSilentOrRejects)
{
    // It falls silent in the test behind `tests`, orders another, rejects, or dies.
    struct Case { const char* when; u32 tests; bool orders, rejects, fails, dies; };
    for (const Case& c : {Case{"silent", 3, false, false, false, false},
                          Case{"rejects", 3, false, true, false, false},
                          Case{"rejects behind the last test", 5, true, true, false, false},
                          Case{"dies behind the last test", 5, true, false, false, true},
                          Case{"rejects behind one that failed", 1, false, true, true, false}}) {
        SCOPED_TRACE(c.when);
        DiagUnit unit;
        unit.node.powerOn();
        if (c.fails) unit.faults().toggleStuckOn = 0x2;
        ASSERT_TRUE(unit.runToTest(c.tests));
        unit.node.temi().setAnswer(sim::Answer::Silent);
        const TarsoTemiDoTestInd order{TARSO_TEMI_DO_TEST_IND, 0, 1, {}};
        constexpr SIGSELECT REJ = TARSO_TEMI_INITIATE_SERVICE_REJ;
        if (c.orders) unit.node.system().inject(std::as_bytes(std::span(&order, 1)), unit.manager(), 0);
        if (c.rejects) unit.node.system().inject(std::as_bytes(std::span(&REJ, 1)), unit.manager(), 0);
        unit.run(0.1);
        if (c.dies) unit.node.temi().die();
        unit.run(c.rejects || c.dies ? 5 : 70);
        EXPECT_EQ(unit.traced("No restartType received from TEMI, assuming Power-on"), !c.fails && !c.dies);
        EXPECT_EQ(unit.traced("Last test performed."), c.orders);
        EXPECT_EQ(unit.traced("WARNING: LOZ6 HW diagnostic failed, halting process"), c.fails);
        if (!c.fails) { EXPECT_EQ(unit.node.mainProcessor().clockState(), 1); }
    }
}

TEST(StartUpTests, BeginAnewWithAServiceThatCameBackAndDropOrdersBeyondTheLast)
{
    DiagUnit unit;
    unit.node.powerOn();
    ASSERT_TRUE(unit.runToTest(2));
    unit.give(SIGSELECT{TARSO_TEMI_SERVER_DOWN_IND});        // not the one that is attached to
    ASSERT_TRUE(unit.runToTest(3));
    unit.node.temi().die();
    unit.run(1);
    unit.node.temi().start();
    ASSERT_TRUE(unit.runToTest(8));
    for (int i = 0; i < 4; ++i) unit.give(TarsoTemiDoTestInd{TARSO_TEMI_DO_TEST_IND, 0, 1, {}});
    unit.run(10);
    ASSERT_EQ(unit.tests().size(), 10u);
    EXPECT_EQ(unit.tests()[3].testNumber, 1u);
    EXPECT_EQ(unit.tests()[9].testNumber, 7u);
    EXPECT_TRUE(unit.traced("COLD RESTART of KVD on BVQ LOZ6"));
    EXPECT_TRUE(unit.traced("order to test after the last test, dropped"));
    EXPECT_EQ(unit.node.mainProcessor().clockState(), 1);
}

// ---- run-time check -----------------------------------------------------------------------------

/// A started unit whose run-time checks are ordered by the test alone.
struct Checked : DiagUnit {
    Checked()
    {
        node.powerOn();
        run(10);
        node.system().kill(node.system().find("Kvd_loz6_turefmon_proc"));
        started = tests().size();
    }
    void check(u32 times = 1)
    {
        for (u32 i = 0; i < times; ++i) {
            give(SIGSELECT{KVD_TUREFMON_CHECK_TD_IND});
            run(0.1);
        }
    }
    std::size_t runtimeReports() { return tests().size() - started; }
    std::size_t started = 0;
};

TEST(RunTimeCheck, DoesNotStandStillForATestServiceThatIsGoneOrSilent)
{
    for (const bool isGone : {true, false}) {
        SCOPED_TRACE(isGone ? "gone" : "silent");
        Checked unit;
        if (isGone) unit.node.temi().die();
        else        unit.node.temi().setAnswer(sim::Answer::Silent);
        unit.faults().toggleStuckOn = 0x1;
        unit.check();
        if (!isGone) unit.give(SIGSELECT{TARSO_TEMI_TERMINATE_SERVICE_CFM});     // of the tests before
        unit.run(6);
        unit.node.mainProcessor().boardFailure(true);
        unit.run(0.1);
        EXPECT_EQ(unit.node.led(), sim::Led::RedOn) << "served";
        EXPECT_EQ(unit.traced("doesn't answer, the unit goes on without its report"), !isGone);
        unit.node.temi().setAnswer(sim::Answer::Accept);
        unit.node.temi().start();
        unit.check();
        EXPECT_EQ(unit.runtimeReports(), 1u);
        EXPECT_EQ(unit.codes(), "MCA MCA");
    }
}

TEST(RunTimeCheck, ToleratesFourMissesOfTheFeedbackAndOneMoreFor240Checks)
{
    Checked unit;
    const auto forgiven = [&unit] { return unit.traces("Forgiving time! Decrease FeedbackMissingCounter"); };
    const auto miss = [&unit] {
        unit.faults().synthStatusAnd = 0x7;
        unit.check();
        unit.faults().synthStatusAnd = 0xF;
        unit.check();
        return unit.runtimeReports();
    };
    while (forgiven() == 0) unit.check();                    // nothing to be forgiven yet
    for (int i = 0; i < 4; ++i) EXPECT_EQ(miss(), 0u);
    unit.check(231);
    EXPECT_EQ(forgiven(), 1u);
    unit.check();
    EXPECT_EQ(forgiven(), 2u);
    EXPECT_EQ(miss(), 0u);
    EXPECT_EQ(unit.codes(), "");
    EXPECT_EQ(miss(), 1u);
    EXPECT_EQ(unit.codes(), "MCH");
}

TEST(RunTimeCheck, FindsADetectorThatSeesASignalWithItsInputCutOff)
{
    struct Case { u32 raw; const char* codes; const char* trace; };
    constexpr Case CASES[] = {
        {0x01, "MCA", "Zero in to HM test failed for TD=0"},
        {0x20, "MCF", "Zero in to HM test failed for TD=5"},
        {0x18, "MCD", "Zero in to HM test failed for TD=3"},       // the first one ends the check
        {0x1C00, "", "Waiting"},                                   // Ethernet has no monitor
    };
    for (const Case& c : CASES) {
        SCOPED_TRACE(c.raw);
        Checked unit;
        unit.faults().toggleStuckOn = c.raw;
        unit.faults().synthStatusAnd = 0x7;                        // comes after, isn't looked at
        unit.check();
        EXPECT_EQ(unit.codes(), c.codes);
        const bool faulty = *c.codes != '\0';
        EXPECT_EQ(unit.traced("Feedback is missing on 30,72 MHz, counter = 1"), !faulty);
        EXPECT_EQ(unit.monitorWord(), ALL_DETECTORS_ON_REFERENCE);
        ASSERT_EQ(unit.runtimeReports(), faulty ? 1u : 0u);
        if (!faulty) continue;
        EXPECT_TRUE(unit.traced(c.trace));
        const sim::TestResult& told = unit.tests().back();
        EXPECT_EQ(std::tuple(told.atRuntime, told.testNumber, told.name, told.result, told.message),
                  std::tuple(true, 8u, "Runtime fault", 2u, "HW fault at runtime detected"));
    }
}

// Raw synthesiser bits: 4 C locked, 1 B locked; both at once. scenarios/tracking-loss.toml has each alone.
TEST(LossOfTracking, IsToldAtTheSecondCheckInARow)
{
    Checked unit;
    EXPECT_TRUE(unit.world.runUntilTrue(
        [&] { return unit.node.inProgram(KvdLoz6TuReg_initiateState) == TUREG_INIT; }, 3600 * ose::SEC));
    unit.check();                                            // the synthesisers are seen locked
    unit.node.inProgram([] { return KvdLoz6TuReg_setSelectedRef(TU_SR_EXT_REF), 0; });
    unit.faults().synthStatusAnd = 0xA;
    for (const std::size_t told : {0u, 1u, 1u, 2u}) {        // pending again, the report stands
        unit.check();
        EXPECT_EQ(unit.traces("ltrDetected = True"), told);
        EXPECT_EQ(unit.codes(), told == 0 ? "" : "MCI MCJ"); // the bits have fallen before
        EXPECT_EQ(unit.node.mainProcessor().status().ltrStatus, told == 0 ? 0 : 3);
    }
    unit.faults().synthStatusAnd = 0xF;
    unit.check();
    EXPECT_EQ(unit.node.mainProcessor().status().ltrStatus, 1);
    EXPECT_EQ(unit.runtimeReports(), 0u);                    // no matter for the test service
    unit.faults().synthStatusAnd = 0x2;                      // and the feedback, whose fault ends the check
    unit.check(2);
    EXPECT_EQ(unit.traces("ltrDetected = True"), 2u);
    EXPECT_EQ(unit.runtimeReports(), 1u);
}

// ---- error log ----------------------------------------------------------------------------------

TEST(ErrorLogEntries, SomeAreWrittenOnceAProgramLife)
{
    Checked unit;
    const auto twice = [&](const std::function<void()>& report) {
        const std::size_t before = unit.log().entries().size();
        unit.in(report);
        unit.in(report);
        return unit.log().entries().size() - before;
    };
    EXPECT_EQ(twice([] { KvdLoz6HwDiag_reportError(8); }), 2u);
    EXPECT_EQ(twice([] { KvdLoz6HwDiag_reportError(9); }), 2u);
    EXPECT_EQ(twice([] { KvdLoz6HwDiag_reportError(10); }), 1u);
    EXPECT_EQ(twice([] { KvdLoz6HwDiag_reportError(20); }), 1u);
    EXPECT_EQ(twice([] { KvdLoz6HwDiag_reportSfcFailure("now"); }), 1u);
    EXPECT_EQ(unit.log().entries().back().text, "KVD: Read SFC Failed now");
    EXPECT_EQ(twice([] { KvdLoz6HwDiag_reportSamplingFailure(); }), 1u);
    EXPECT_EQ(twice([] { KvdLoz6HwDiag_reportNominalFrequencyFailure(); }), 2u);
    for (const u32 unknown : {0u, 11u, 19u, 21u})
        EXPECT_EQ(twice([=] { KvdLoz6HwDiag_reportError(unknown); }), 0u) << unknown;
    EXPECT_EQ(unit.codes(), "MC7 MC7 MC8 MC8 MC9 MCL MCN MCO MCP MCP");

    unit.node.restartWarm();
    unit.run(10);
    EXPECT_EQ(twice([] { KvdLoz6HwDiag_reportError(10); }), 1u);
    EXPECT_EQ(unit.log().count("MC9"), 2u);
}

TEST(ErrorLogEntries, FollowTheOscillatorsTemperature)
{
    struct Step { u8 state; int haliResult; const char* code; u8 stored; };
    // In this order: each step stands on what the ones before it have stored.
    constexpr Step STEPS[] = {
        {1, 0, "", 1},        {2, 0, "MCK", 2},  {2, 0, "", 2},   {3, 0, "MCK", 3}, {3, 0, "", 3},
        {4, 3, "MCM", 3},     {4, 3, "MCM", 3},                    // unreadable isn't stored
        {3, 0, "", 3},        {4, 1, "MCL", 3},  {4, 1, "", 3},    // once a life
        {4, 7, "", 3},        {1, 0, "", 1},     {3, 2, "MCK", 3}, {1, 0, "", 1},
        {1, 2, "", 1},        {4, 2, "MCK", 4},  {4, 2, "", 4},    {1, 0, "", 1},
    };
    Checked unit;
    unit.in([] { KvdLoz6HwDiag_temperatureState(1, 0); });
    for (std::size_t i = 0; i < std::size(STEPS); ++i) {
        SCOPED_TRACE(i);
        const Step& step = STEPS[i];
        const std::size_t before = unit.log().entries().size();
        unit.in([&] { KvdLoz6HwDiag_temperatureState(step.state, step.haliResult); });
        const bool written = *step.code != '\0';
        ASSERT_EQ(unit.log().entries().size() - before, written ? 1u : 0u);
        EXPECT_EQ(written ? unit.log().entries().back().code : "", step.code);
        EXPECT_EQ(unit.node.inProgram(KvdLoz6HwDiag_lastTemperatureState), step.stored);
    }
    EXPECT_TRUE(unit.traced("Unexpected result value received from HALI_getOcxoTemp 7"));
}

}  // namespace
