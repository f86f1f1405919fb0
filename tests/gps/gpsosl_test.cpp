// The GPS out sync link's input: another unit's sentences move its states, its reports and the far
// end's clock state.
#include "gps/kvd_gps_osl.h"
#include "reg/kvd_reg_pll_int.h"
#include "sig/gps_sig.h"
#include "tests/gps/gps_unit.h"

namespace {

using bench::gpppr;
using bench::nmea;

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
    /// gpsOslStatus of the attributes.
    u32 status()
    {
        toManager(KvdTuiifGpsAttribReq{KVD_TUIIF_GPSOSL_ATTRIB_REQ, 5});
        ms(5);
        const auto cfm = node.mainProcessor().last(KVD_TUIIF_GPSOSL_ATTRIB_CFM);
        return cfm ? cfm->as<KvdTuiifGpsoslAttribCfm>()->gpsOslState : 99;
    }
    std::vector<std::string> statuses()
    {
        return bench::statusTexts(node.mainProcessor(), KVD_TUIIF_GPSOSL_STATUS_IND,
                                  &KvdTuiifGpsoslStatusInd::status);
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
    unit.toManager(Signal{KVD_TUGPSOSL_OPERATIONAL_TIMEOUT});   // on its way when supervision ended
    unit.say("$x\r");
    EXPECT_EQ(unit.query(), 0u);
}

TEST(GpsOsl, FaultsAreReportedOnceTheyLast)
{
    OslUnit unit;
    const auto expect = [&](const std::string& text, u32 status) {
        EXPECT_EQ(unit.statuses().back(), text);
        EXPECT_EQ(unit.status(), status);
    };
    unit.ms(29'900);
    EXPECT_EQ(unit.statuses().back(), "0 OK");               // suppressed for 30 s
    unit.ms(200);
    expect("2 No messages received from the remote DU", 2);
    unit.say("$x\r");
    expect("2 Unexpected messages received from the remote DU", 3);
    unit.say(GPOUT_LOCKED);
    expect("2 No usable time received from the remote DU", 4);
    unit.time();
    expect("1 OK", 1);
    unit.toggles(0);
    unit.ms(6'000);                                          // 5 s of holdoff
    expect("2 Loss of signal", 5);
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
