// Replay of check values: frequency and phase of a radio link, validity, the pause, a slave that
// follows; and the log of it.
#include "reg/kvd_reg_packet_int.h"
#include "reg/kvd_reg_pll_int.h"
#include "reg/kvd_reg_socpri_int.h"
#include "tests/reg/support/regulator_unit.h"
#include "tests/support/vectors.h"

#include <cmath>
#include <optional>

using vectors::expect;
using vectors::json;
using vectors::Value;

namespace {

/// What the measurements did to their neighbours, and the frequency that they see.
struct Told {
    double frequency = 0.0;
    json adjusted, followed, phase, step;      // null: not told
    json events = json::array();
    u16 kept = 0;                      // end of the snapshot as it was seen last
};
Told* now = nullptr;

u16 written() { return socpri::snapshot().index; }

/// A log that has been kept since the last look stands before what comes after it.
void lookAtLog()
{
    if (written() != now->kept) now->events.push_back("log");
    now->kept = written();
}

constexpr socpri::Needs NEEDS = {
    .currentFrequency = [] { return now->frequency; },
    .adjustFrequency = [](double relative) { now->frequency = relative, now->adjusted = relative; },
    .sendFollowOcxoAdj = [](i16 freqDiff) { now->followed = freqDiff; },
    .pllControl = [](double phaseDiff) { now->phase = phaseDiff, now->events.push_back("pll"); },
    .adjustTime = [](double c, double f) { now->step = c + f; },
    .phaseMeasAnalysisFailed = [] { now->events.push_back("phaseMeasAnalysisFailed"); },
    .answerContinuation =
        [](u32 status) {
            lookAtLog();
            now->events.push_back("inrsiAnswerContinuation(" + std::to_string(status) + ")");
        },
};

/// Runs `body` in a unit whose measurements reach `told` instead of their neighbours.
void inUnit(Told& told, const std::function<void(regtest::RegulatorUnit&)>& body)
{
    regtest::RegulatorUnit unit;
    now = &told;
    unit.run([&] {
        regtest::selectReference(TU_SR_SOCPRI_REF, TU_SR_NO_REF);
        socpri::setNeeds(&NEEDS);
        body(unit);
    });
    now = nullptr;
}

/// Replays a list of cases, each in a unit of its own.
using Case = void (*)(Told& told, const Value& c);
void replay(const char* file, Case row)
{
    vectors::replay(file, "cases", [row](const Value& c) {
        Told told;
        inUnit(told, [&](regtest::RegulatorUnit&) { row(told, c); });
    });
}

void frequency(Told& told, const Value& c)
{
    told.frequency = c["currentFrequencyAtStart"];
    vectors::eachStep(c["steps"], [&](const Value& step) {
        told.adjusted = told.followed = nullptr;
        const u16 before = written();
        const auto result = KvdLoz6TuReg_handleSoCpriFreqDiffMeas(step["freqDiff"], step["valid"]);
        expect("adjustFrequency", told.adjusted, step["adjustFrequency"], {0.0, 5e-12});
        expect("followOcxoAdj", told.followed, step["followOcxoAdj"]);
        vectors::expectAll({{"result", result}, {"snapshot", written() != before},
                            {"freqDiff", socpri::newest().freqDiff}}, step);
        EXPECT_EQ(socpri::newest().event, u32{SOCPRI_EV_FREQ_MEAS});
        step["goodCount"].read();    // inside: it decides the next results
    });
}

void phase(Told& told, const Value& c)
{
    const double calc = c["phaseDiffCalc"];
    const vectors::Tolerance room{0.0, std::max(1e-13, 1e-15 * calc)};
    KvdLoz6TuReg_handleSoCpriPhaseDiffMeas(c["trpDiffHigh"], c["trpDiffLow"], 1);
    expect("phaseDiffCalc", socpri::newest().phaseDiffCalc, c["phaseDiffCalc"], room);
    expect("phaseDiff", told.phase, c["phaseDiff"], room);
    EXPECT_EQ(socpri::newest().phaseDiff, told.phase);
}

void validityStep(Told& told, const Value& step)
{
    constexpr u32 HIGH = 1, LOW = 5;
    if (step.contains("op")) {
        if (step["op"] == "postpone")    KvdLoz6TuReg_orderContinuedRegulationTimer();
        else if (step["op"] == "expire") KvdLoz6TuReg_onContinuePostponedRegulationTimeout();
        else                             throw std::runtime_error("no replay of " + step.dump());
        return;
    }
    told.events = json::array();
    KvdLoz6TuReg_handleSoCpriPhaseDiffMeas(HIGH, LOW, step["valid"]);
    lookAtLog();
    const socpri::LogRecord& r = socpri::newest();
    vectors::expectAll({{"m", r.m}, {"validityCnt", socpri::validityCnt()}, {"events", told.events},
                        {"iterationIsRegulated", r.iterationIsRegulated},
                        {"loggedValuesZero", r.phaseDiff == 0.0 && r.phaseDiffCalc == 0.0}}, step);
}

void validity(Told& told, const Value& c)
{
    measure::state().var.m[Z_SOCPRI_REF] = 0;
    vectors::eachStep(c["steps"], [&](const Value& step) { validityStep(told, step); });
}

/// One of the answers that the file takes.
bool isAsWanted(const Told& told, TimePair offset, const Value& wanted)
{
    const Value step = wanted["adjustTime"], after = wanted["delta0After"];
    const double c = after[0], f = after[1];
    const json wantedStep = step.is_null() ? json() : json(double{step[0]} + double{step[1]});
    return std::fabs(offset.c + offset.f - (c + f)) <= 1e-12
           && vectors::isNear(told.step, wantedStep, {0.0, 1e-9});
}

void followFrequency(Told& told, const Value& c)
{
    told.frequency = c["currentFrequency"];
    pll::vars().currSlaveState = c["slavePllState"];
    pll::vars().extAccFreqOffset = c["extAccFreqOffset"];
    KvdLoz6TuReg_handleSoCpriSDuFollowOCXOAdjInd(c["freqDiff"]);
    expect("adjustFrequency", told.adjusted, c["adjustFrequency"], {0.0, 5e-12});
    expect("extAccFreqOffset", pll::vars().extAccFreqOffset, c["newExtAccFreqOffset"], {0.0, 1e-18});
}

void followTime(Told& told, const Value& c)
{
    regtest::selectReference(TU_SR_IDL1_REF, TU_SR_NO_REF);
    KvdLoz6TuReg_setOffset(c["delta0Before"][0], c["delta0Before"][1]);
    packet::state().supervision.phaseJumpFlag = 0;
    KvdLoz6TuReg_handleSoCpriSDuFollowSFCAdjInd(c["received"][0], c["received"][1]);
    const TimePair offset = KvdLoz6TuReg_getOffset();
    const bool asOther = c.contains("alt") && isAsWanted(told, offset, c["alt"]);
    EXPECT_TRUE(isAsWanted(told, offset, c) || asOther);
    EXPECT_EQ(packet::state().supervision.phaseJumpFlag, c["phaseJumpFlag"]);
}

void follow(Told& told, const Value& c)
{
    const std::string role = c.value("role", "slave");
    if (role != "slave" && role != "master") throw std::runtime_error("no replay of \"" + role + "\"");
    regtest::RegulatorUnit::beMaster(role == "master");
    if (c["operation"] == "handleSoCpriSDuFollowOCXOAdjInd")     followFrequency(told, c);
    else if (c["operation"] == "handleSoCpriSDuFollowSFCAdjInd") followTime(told, c);
    else throw std::runtime_error("no replay of " + c["operation"].dump());
    const bool isKept = written() == 1;                      // in the snapshot
    expect("log", isKept ? json(socpri::newest().event) : json(), c["log"]);
    EXPECT_EQ(socpri::newest().used != 0, isKept);
}

TEST(SocpriCheckValues, AreMet)
{
    replay("o03_socpri_freq.json", frequency);
    replay("o03_socpri_phase.json", phase);
    replay("o03_socpri_valid.json", validity);
    replay("o03_socpri_follow.json", follow);
}

// Steps of the master's between one counter step and the limit of other references are followed, and
// a slave's own offset below it isn't lost.
TEST(SocpriFollow, NoStepAndNoOffsetIsTooSmall)
{
    struct Case { double received, own; bool steps; };
    for (const Case& c : {Case{2e-8, 3e-8, true}, Case{-2e-8, 3e-8, true}, Case{8e-9, 1e-9, false},
                          Case{-8e-9, 1e-9, false}}) {
        SCOPED_TRACE(c.received);
        Told told;
        inUnit(told, [&](regtest::RegulatorUnit&) {
            regtest::RegulatorUnit::beMaster(false);
            regtest::selectReference(TU_SR_IDL1_REF, TU_SR_NO_REF);
            KvdLoz6TuReg_setOffset(0.0, c.own);
            KvdLoz6TuReg_handleSoCpriSDuFollowSFCAdjInd(0.0, c.received);
            ASSERT_EQ(told.step.is_number(), c.steps);
            EXPECT_NEAR(c.steps ? told.step.get<double>() : -c.received, -c.received, 1e-15);
            EXPECT_EQ(KvdLoz6TuReg_getOffset().c, 0.0);
            EXPECT_EQ(KvdLoz6TuReg_getOffset().f, c.own);
        });
    }
}

TEST(SocpriPhase, ASecondOrderOfThePauseChangesNothing)
{
    Told told;
    inUnit(told, [&](regtest::RegulatorUnit& unit) {
        unit.traceAll();
        KvdLoz6TuReg_orderContinuedRegulationTimer();
        EXPECT_EQ(socpri::newest().event, u32{SOCPRI_EV_REGULATION_POSTPONED_AFTER_BFN_ADJ});
        KvdLoz6TuReg_logSoCpriEvent(SOCPRI_EV_JUMP_END);
        KvdLoz6TuReg_orderContinuedRegulationTimer();
        EXPECT_EQ(socpri::newest().event, u32{SOCPRI_EV_JUMP_END}) << "nothing logged";
        EXPECT_EQ(unit.traced("SoCPRI continued regulation tmo already started."), 1u);
        EXPECT_EQ(KvdLoz6TuReg_postponeReg(), 1u);
    });
}

}  // namespace
