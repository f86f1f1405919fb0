// The GPS out sync link's input: another unit's sentences move its states, its reports and the far
// end's clock state.
#include "gps/kvd_gps_osl.h"
#include "node/trace.h"
#include "reg/kvd_reg_pll_int.h"
#include "sig/gps_sig.h"
#include "tests/gps/gps_unit.h"

#include <gtest/gtest.h>

namespace {

using bench::gpppr;
using bench::nmea;
using Texts = std::vector<std::string>;

std::string gpout(const std::string& fields) { return nmea("PNVX,GPout," + fields); }
const std::string GPOUT_LOCKED = gpout("13,0,1,0,0");
const std::string GPGGA = nmea("GPGGA,000000,0000.0000,N,00000.0000,E,0,00,00000,000000.0,M,0000.0,M");

struct OslUnit : bench::RefUnit {
    u32 tow = 100;

    OslUnit()
    {
        toggles(bench::RAW_1PPS);
        supervise(GPSOSL_REF, true);
        ms(5);
    }
    void say(const std::string& text, i64 then_ms = 5)
    {
        node.serial().feed(text);
        ms(then_ms);
    }
    void time(i64 then_ms = 5) { say(gpppr(++tow), then_ms); }
    void becomeOperational()
    {
        say("$x\r");
        say(GPOUT_LOCKED);
        time();
    }
    u32 query()
    {
        return node.inProgram([] {
            double time = 0;
            return KvdLoz6GpsOsl_time(time);
        });
    }
    u32 remote() { return node.inProgram(KvdLoz6GpsOsl_remoteState); }
    std::string info()
    {
        std::string output;
        node.shell().run("kvdinfo tugps_osl", output);
        return output;
    }
    /// One of the texts of a refused sentence.
    bool toldWhy()
    {
        for (const char* text : {"Checksum incorrect or missing", "Sentence length error", "not handled",
                                 "field too large"})
            if (node.traces().has(text)) return true;
        return false;
    }
    u32 sentences() { return std::stoul(info().substr(info().find("numberOfNmeaMsgs") + 24)); }
    /// gpsOslStatus of the attributes.
    u32 status()
    {
        toManager(KvdTuiifGpsAttribReq{KVD_TUIIF_GPSOSL_ATTRIB_REQ, 5});
        ms(5);
        const auto cfm = node.mainProcessor().last(KVD_TUIIF_GPSOSL_ATTRIB_CFM);
        return cfm ? cfm->as<KvdTuiifGpsoslAttribCfm>()->gpsOslState : 99;
    }
    Texts statuses()
    {
        Texts texts;
        for (const sim::MpRecord& record : node.mainProcessor().all(KVD_TUIIF_GPSOSL_STATUS_IND)) {
            const auto ind = record.as<KvdTuiifGpsoslStatusInd>();
            if (ind) texts.push_back(std::to_string(ind->status) + " " + ind->text);
        }
        return texts;
    }
};

// What the time query answers says in which state it is: 0 none, 4 waits for a valid sentence, 3
// typed, 7 with time.
TEST(GpsOsl, AnotherUnitsSentencesLeadToItsTime)
{
    OslUnit unit;
    struct Step { std::string text; u32 query; };
    for (const Step& step : std::to_array<Step>({
             {"$x\r", 4},                                    // whatever it is, it isn't looked at
             {GPOUT_LOCKED, 3},                              // nobody else sends it
             {gpppr(101, 3), 3},                             // not aligned: no time
             {gpppr(102), 3},                                // operational
             {GPGGA, 3},
             {gpppr(103), 7},
             {GPOUT_LOCKED, 7}})) {
        SCOPED_TRACE(step.text);
        unit.say(step.text);
        EXPECT_EQ(unit.query(), step.query);
    }
    unit.ms(790);
    EXPECT_EQ(unit.query(), 3u);                             // 800 ms without another
    unit.time();
    EXPECT_EQ(unit.query(), 7u);
    unit.say(nmea("PFEC,GPtps,230115000000,2,1,2,230115000000,18,18,230115000000,2245,000104"));
    EXPECT_EQ(unit.query(), 0u);                             // no unit says that
    unit.supervise(GPSOSL_REF, false);
    unit.say("$x\r");
    EXPECT_EQ(unit.query(), 0u);
}

TEST(GpsOsl, AReceiverAtTheLineLeavesNoTraceForTheLinkAfterIt)
{
    OslUnit unit;
    unit.say("$x\r");
    unit.say(nmea("PFEC,GPtps,230115000000,2,1,2,230115000000,18,18,230115000000,2245,000104"));
    unit.say(nmea("PNVX,GPsts,2,1,0,00001"));                 // settled on a receiver
    for (u32 i = 0; i < 9; ++i) {
        EXPECT_EQ(unit.query(), 4u);
        unit.time();
    }
    EXPECT_EQ(unit.query(), 3u);                             // the ninth settles that it's another unit
}

TEST(GpsOsl, ADamagedSentenceGivesNoTimeAndNoClockState)
{
    // Each character of both sentences in turn, another in its place.
    for (const std::string& whole : {gpppr(500), gpout("05,1,2,0,1")}) {
        OslUnit unit;
        unit.node.inProgram([] {
            node::traceSetProgramMask(0xFFFFFFFF);
            return 0;
        });
        for (std::size_t at = 1; at + 2 < whole.size(); ++at) {
            std::string text = whole;
            text[at] = text[at] == '3' ? '4' : '3';
            SCOPED_TRACE(text);
            unit.supervise(GPSOSL_REF, false);
            unit.supervise(GPSOSL_REF, true);
            unit.ms(5);
            unit.becomeOperational();
            const u32 counted = unit.sentences();
            unit.node.traces().clear();
            unit.say(text);
            EXPECT_NE(unit.query(), 7u);
            EXPECT_EQ(unit.remote(), 13u);
            EXPECT_EQ(unit.sentences(), counted + 1);
            EXPECT_TRUE(unit.toldWhy());
            // The next good ones are taken, from the beginning again where no unit speaks like that.
            for (u32 good = 0; good < 5 && unit.query() != 7; ++good)
                good % 2 == 0 ? unit.time() : unit.say(GPOUT_LOCKED);
            EXPECT_EQ(unit.query(), 7u);
        }
    }
}

TEST(GpsOsl, FaultsAreReportedOnceTheyLast)
{
    OslUnit unit;
    unit.ms(29'900);
    EXPECT_EQ(unit.statuses().back(), "0 OK");               // suppressed for 30 s
    unit.ms(200);
    EXPECT_EQ(unit.statuses().back(), "2 No messages received from the remote DU");
    EXPECT_EQ(unit.status(), 2u);
    unit.say("$x\r");
    EXPECT_EQ(unit.statuses().back(), "2 Unexpected messages received from the remote DU");
    EXPECT_EQ(unit.status(), 3u);
    unit.say(GPOUT_LOCKED);
    EXPECT_EQ(unit.statuses().back(), "2 No usable time received from the remote DU");
    EXPECT_EQ(unit.status(), 4u);
    unit.time();
    EXPECT_EQ(unit.statuses().back(), "1 OK");
    EXPECT_EQ(unit.status(), 1u);
    unit.toggles(0);
    unit.ms(6'000);                                          // 5 s of holdoff
    EXPECT_EQ(unit.statuses().back(), "2 Loss of signal");
    EXPECT_EQ(unit.status(), 5u);
}

TEST(GpsOsl, SilenceLeadsBackStepByStep)
{
    OslUnit unit;
    unit.becomeOperational();
    unit.time();
    unit.ms(119'900);
    EXPECT_EQ(unit.status(), 1u);
    unit.ms(200);                                            // 120 s without time
    EXPECT_EQ(unit.status(), 4u);
    EXPECT_EQ(unit.query(), 3u);
    unit.ms(59'700);
    EXPECT_EQ(unit.query(), 3u);
    unit.ms(500);                                            // and 60 s more
    EXPECT_EQ(unit.query(), 0u);
    EXPECT_EQ(unit.status(), 2u);
    unit.say("$x\r");
    unit.ms(60'100);                                         // nothing valid in 60 s
    EXPECT_EQ(unit.query(), 0u);
}

TEST(GpsOsl, AnotherSupervisionKeepsTheFarEndsClockStateAndInHoldoverTheLoopsMeans)
{
    struct Case { u32 pllState, willEmpty; };
    for (const Case& c : {Case{PLL_Locked, 1}, {PLL_Locked_Holdover, 0}}) {
        OslUnit unit;
        EXPECT_EQ(unit.remote(), 10u);                       // a restart knows none
        unit.becomeOperational();
        unit.node.inProgram([&c] {
            pll::vars().currState = c.pllState;
            pll::vars().emptyHOVector = 1;
            return 0;
        });
        unit.supervise(GPSOSL_REF, false);
        unit.supervise(GPSOSL_REF, true);
        EXPECT_EQ(unit.remote(), 13u);
        EXPECT_EQ(unit.node.inProgram([] { return pll::vars().emptyHOVector; }), c.willEmpty);
    }
}

TEST(GpsOsl, TheEndOfSupervisionForgetsWhatTheFarEndSaid)
{
    OslUnit unit;
    unit.becomeOperational();
    unit.say(gpout("13,1,2,1,1"));
    const auto qualities = [&] { return unit.node.mainProcessor().all(KVD_TUIIF_QUALITY_LEVEL_IND).size(); };
    const std::string SAID = "remoteJumpIndication  : 1\n   remoteGnssTimeInfo    : 2\n"
                             "   remoteGnssDataInfo    : 1\n   is Master             : 1";
    EXPECT_NE(unit.info().find(SAID), std::string::npos);
    const std::size_t told = qualities();
    unit.time();
    EXPECT_EQ(qualities(), told);                            // the same quality again
    unit.supervise(GPSOSL_REF, false);
    EXPECT_EQ(unit.info().find(": 1\n   remoteGnss"), std::string::npos);
    unit.supervise(GPSOSL_REF, true);
    unit.ms(5);
    unit.becomeOperational();
    EXPECT_EQ(qualities(), told + 1);
}

}  // namespace
