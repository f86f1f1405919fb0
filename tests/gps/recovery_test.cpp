// The module that falls sick and is restarted, and the unit whose 1PPS stays away, in a whole unit
// with sentences on its serial line.
#include "base/tu_common.h"
#include "gps/kvd_gps.h"
#include "gps/kvd_gps_hrv_supervision.h"
#include "gps/kvd_gps_recovery.h"
#include "gps/kvd_gps_send.h"
#include "tests/ref/ref_unit.h"

#include <cstdio>
#include <string>
#include <vector>

namespace {

constexpr const char* HEALTHY = "01,40,083,46,02,17,308,41,12,07,344,40,14,22,228,45";
constexpr const char* NO_EL_AZ = "01,00,083,46,02,17,000,41,03,00,000,44";

struct Receiver : bench::RefUnit {
    std::string sent;       // on the line
    u32 tow = 100;

    template <typename F>
    auto look(F accessor) { return node.inProgram(accessor); }
    /// Talks, and its type is settled: timing sentences without a 1PPS.
    Receiver()
    {
        node.serial().onSent(
            [this](const std::vector<u8>& bytes) { sent.append(bytes.begin(), bytes.end()); });
        supervise(GPS_REF, true);
        ms(100);
        say("GPtxt");
        periodic();
        say("PNVX,GPsts,2,2,0,00001");
        EXPECT_EQ(look(KvdLoz6TuGps_gpssType), 2u);
        EXPECT_EQ(state(), 1u);
    }
    u32 state() { return look(KvdLoz6TuGps_recoveryState); }
    u32 subState() { return look(KvdLoz6TuGps_recoverySubState); }
    u32 status() { return look(KvdLoz6TuGps_supervisionStatus); }
    u32 unitState() { return look(KvdLoz6TuGps_hrvState); }
    RecoveryCounters counters()
    {
        return look([] { return KvdLoz6TuGps_recoveryCounters(); });
    }

    void say(const std::string& body)
    {
        char sum[8];
        std::snprintf(sum, sizeof sum, "*%02X\r\n",
                      TuCommon_nmeaChecksum(body.data(), body.size()));
        node.serial().feed("$" + body + sum);
        ms(1);
    }
    /// The sentence of each second, which says nothing to recovery.
    void periodic()
    {
        char body[64];
        std::snprintf(body, sizeof body, "PNVX,GPppr,%06u,02245,00000,00,0,0", ++tow);
        say(body);
    }
    void firmware(const std::string& number) { say("PNVX,GPver,GRM,NUMBER,R1A," + number); }
    void pp1state(u32 value) { say("PNVX,GPsts," + std::to_string(value) + ",2,0,00001"); }
    /// A series of one sentence.
    void satellites(const std::string& groups)
    {
        const std::size_t count = (groups.size() + 1) / 13;
        say("GPGSV,1,1,0" + std::to_string(count) + (count > 0 ? "," : "") + groups);
    }
    /// Time passes while the receiver keeps telling its time.
    void wait(u32 milliseconds)
    {
        for (; milliseconds >= 1000; milliseconds -= 1000) {
            ms(999);
            periodic();
        }
        ms(milliseconds);
    }
    /// From state 1 to a module whose GPGSV doesn't come: state 5.
    void noGpgsv(const std::string& number)
    {
        firmware(number);
        wait(90'000);
        ASSERT_EQ(state(), 5u);
    }
    std::string printed(void (*print)())
    {
        std::string text;
        node.shell().onStray([&](const std::string& piece) { text += piece; });
        node.system().call(*node.program(), print);
        return text;
    }
};

TEST(GpsRecovery, JudgesTheSatellitesOfASeriesByTheNextStatus)
{
    struct Case {
        const char* what;
        const char* satellites;
        u32 pp1state;
        u32 state, subState, status;
    };
    for (const Case& c : std::to_array<Case>({
             {"pulse is good", HEALTHY, 1, 1, 3, 1},
             {"pulse is good whatever is in view", NO_EL_AZ, 2, 1, 3, 1},
             {"none in view", "", 0, 1, 3, 1},
             {"just not strong, no elevation", "01,00,083,39", 0, 1, 3, 1},
             {"just strong, no elevation", "01,00,083,40", 0, 3, 3, 2},
             {"just strong, no azimuth", "01,17,000,40", 3, 3, 3, 2},
             {"only a weak one is placed", "01,00,083,46,02,17,308,39", 0, 3, 3, 2},
             {"three strong, all placed", "01,40,083,46,02,17,308,41,12,07,344,40", 0, 1, 3, 1},
             {"four strong, one placed", "01,40,083,46,02,00,308,41,12,07,000,40,14,00,000,45", 3,
              2, 0, 0},
             {"four strong, all placed", HEALTHY, 0, 2, 0, 0}})) {
        SCOPED_TRACE(c.what);
        Receiver r;
        r.firmware("110624");
        r.satellites(c.satellites);
        EXPECT_EQ(r.subState(), 1u);
        r.pp1state(c.pp1state);
        EXPECT_EQ(r.state(), c.state);
        EXPECT_EQ(r.subState(), c.subState);
        EXPECT_EQ(r.status(), c.status);
    }
}

TEST(GpsRecovery, AsksForVersionSeriesAndStatusInTime)
{
    Receiver r;
    r.wait(89'900);                     // the version may take 90 s
    EXPECT_EQ(r.state(), 1u);
    r.wait(200);
    EXPECT_EQ(r.state(), 0u);
    r.pp1state(7);                      // a status of no meaning doesn't start the watch
    EXPECT_EQ(r.state(), 0u);
    EXPECT_EQ(r.traces("Unsuported pp1sState: 7"), 1u);
    r.pp1state(3);                      // any other does
    EXPECT_EQ(r.state(), 1u);
    r.firmware("200101");               // nothing is known of this module
    EXPECT_EQ(r.state(), 1u);
    r.firmware("120510");
    EXPECT_EQ(r.state(), 2u);

    r.say("GPGSV,2,1,05,01,40,083,46,02,17,308,41,12,07,344,40,14,22,228,45");
    EXPECT_EQ(r.subState(), 0u);        // the series isn't whole
    r.say("GPGSV,2,2,05,20,10,100,30");
    EXPECT_EQ(r.subState(), 1u);
    r.wait(3'000);
    r.satellites(HEALTHY);              // another series doesn't buy time
    r.wait(900);
    EXPECT_EQ(r.state(), 2u);
    r.wait(200);
    EXPECT_EQ(r.state(), 0u);
    EXPECT_EQ(r.subState(), 3u);
}

TEST(GpsRecovery, SeriesThatAreJudgedAgainDontRestartTheWaitForAGoodOne)
{
    Receiver r;
    r.firmware("110624");
    for (u32 n = 0; n < 8; ++n) {
        r.satellites(HEALTHY);
        r.pp1state(0);
        EXPECT_EQ(r.subState(), 0u);
        r.wait(11'000);
    }
    EXPECT_EQ(r.state(), 2u);
    r.wait(2'000);
    EXPECT_EQ(r.state(), 5u);
}

TEST(GpsRecovery, RestartsAModuleThreeTimesThenRestsHalfAnHour)
{
    Receiver r;
    r.noGpgsv("110624");
    for (u32 restart = 1; restart <= 3; ++restart) {
        SCOPED_TRACE(restart);
        r.sent.clear();
        r.pp1state(0);
        EXPECT_EQ(r.state(), 3u);
        EXPECT_EQ(r.status(), 4u);
        EXPECT_EQ(r.counters().currentAttemptedRecoveries, restart);
        r.wait(30'000);                 // the buffer is filled, then the module restarted
        EXPECT_NE(r.sent.find("$PTNLSRT,C,0*20\r\n"), std::string::npos);
        r.wait(329'900);
        EXPECT_EQ(r.state(), 3u);
        r.wait(200);
        EXPECT_EQ(r.state(), 6u);
        if (restart == 3) break;
        r.pp1state(3);
        EXPECT_EQ(r.state(), 2u);
        r.wait(90'000);
        EXPECT_EQ(r.state(), 5u);
    }
    r.pp1state(0);
    EXPECT_EQ(r.state(), 4u);
    EXPECT_EQ(r.counters().unsuccessfulRecoveryCycles, 1u);
    r.wait(1'799'900);
    EXPECT_EQ(r.state(), 4u);
    r.wait(200);
    EXPECT_EQ(r.state(), 1u);
    EXPECT_EQ(r.counters().currentAttemptedRecoveries, 0u);
    EXPECT_EQ(r.counters().totalAttemptedRecoveries, 3u);
}

TEST(GpsRecovery, AfterARestartAGoodPulseEndsItAndSilenceForgetsTheVerdict)
{
    for (const bool answers : {true, false}) {
        SCOPED_TRACE(answers);
        Receiver r;
        r.firmware("110624");
        r.satellites(NO_EL_AZ);
        r.pp1state(0);
        r.wait(360'000);
        EXPECT_EQ(r.state(), 6u);
        if (answers)
            r.pp1state(1);
        else
            r.wait(4'000);
        EXPECT_EQ(r.state(), answers ? 1u : 0u);
        EXPECT_EQ(r.status(), answers ? 1u : 0u);
        const std::string rows = r.printed(KvdLoz6TuGps_printRecoveryHistory);
        const std::string newest = answers ? "] Case 1              --> OK\n"
                                           : "] Case 1              --> Not Available\n";
        ASSERT_EQ(rows.find(newest), 26u) << rows;       // "      [2024-01-01 00:06:06"
        EXPECT_NE(rows.find("] Not Available       --> Case 1\n", 30), std::string::npos) << rows;
    }
}

TEST(GpsRecovery, ResetsTheUnitOfTheNewestFirmwareAndRestsAtTheSecondReset)
{
    Receiver r;
    struct Case { u32 counter; u32 rest_ms; };
    u32 total = 0;
    for (const Case& c : std::to_array<Case>({{1, 0}, {2, 3'600'000}, {0, 0}, {1, 0}})) {
        SCOPED_TRACE(++total);
        r.noGpgsv("120510");
        r.pp1state(2);
        EXPECT_EQ(r.status(), 3u);
        EXPECT_EQ(r.counters().HrvSwRestartsCounter, c.counter);
        EXPECT_EQ(r.counters().HrvSwRestartsCounterTotal, total);
        EXPECT_EQ(r.look([] { return KvdLoz6TuGps_sendCounters().numberOfPNVXGPdbgRS; }), total);
        if (c.rest_ms > 0) {
            r.wait(c.rest_ms - 100);
            EXPECT_EQ(r.state(), 7u);
            r.wait(200);
        }
        EXPECT_EQ(r.state(), 1u);
    }
    r.firmware("120510");               // a healthy pass counts anew
    r.satellites(HEALTHY);
    r.pp1state(1);
    EXPECT_EQ(r.counters().HrvSwRestartsCounter, 0u);

    Receiver older;                     // other firmware can't be reset
    older.noGpgsv("110624");
    older.pp1state(2);
    EXPECT_EQ(older.state(), 1u);
    EXPECT_EQ(older.counters().HrvSwRestartsCounterTotal, 0u);
}

TEST(GpsRecovery, ATimerThatDoesntStartLeavesTheMachineWhereItIs)
{
    Receiver r;
    r.noGpgsv("110624");
    r.node.system().faults().refuseTimers = 1;
    r.pp1state(0);
    EXPECT_EQ(r.traces("Timer recoveryTimer didn't start properly."), 1u);
    r.node.system().faults().refuseTimers = 0;
    r.wait(400'000);
    EXPECT_EQ(r.state(), 3u);
}

TEST(GpsRecovery, LivesThroughAStopOfSupervisionButNotThroughARestart)
{
    Receiver r;
    r.noGpgsv("110624");
    r.pp1state(0);
    r.supervise(GPS_REF, false);
    EXPECT_EQ(r.state(), 3u);
    EXPECT_EQ(r.counters().totalAttemptedRecoveries, 1u);
    EXPECT_EQ(r.printed(KvdLoz6TuGps_printRecoveryHistory), "      No state changes\n\n");
    r.ms(360'100);
    EXPECT_EQ(r.state(), 6u);
    r.ms(4'000);
    EXPECT_EQ(r.state(), 0u);           // its time-outs act on
    r.node.restartWarm();
    r.ms(5'000);
    EXPECT_EQ(r.counters().totalAttemptedRecoveries, 0u);
}

// ---- receiver-unit supervision ------------------------------------------------------------------

TEST(GpsUnitSupervision, RestartsTheReceiverEachHalfHourUntilThePulseIsBack)
{
    Receiver r;
    r.firmware("120510");
    const auto restarts = [&] {
        return r.look([] { return KvdLoz6TuGps_sendCounters().numberOfPNVXGPdbgRO; });
    };
    EXPECT_EQ(r.unitState(), 1u);       // no pulse is known at the start
    r.wait(1'799'000);
    EXPECT_EQ(r.unitState(), 1u);
    EXPECT_EQ(restarts(), 0u);
    r.wait(1'000);
    EXPECT_EQ(r.unitState(), 2u);
    EXPECT_EQ(restarts(), 1u);
    r.wait(89'000);
    EXPECT_EQ(r.unitState(), 2u);
    r.wait(2'000);
    EXPECT_EQ(r.unitState(), 1u);
    r.wait(1'799'000);
    EXPECT_EQ(r.unitState(), 2u);
    EXPECT_EQ(restarts(), 2u);
    EXPECT_EQ(r.look(KvdLoz6TuGps_hrvResetAttempts), 2u);
    const std::string rows = r.printed(KvdLoz6TuGps_printHrvHistory);
    EXPECT_EQ(rows.find("] HRV_SUPERVISION_STATE_HRV_WAITING_RESTART --> "
                        "HRV_SUPERVISION_STATE_HRV_RESTART\n"), 26u) << rows;
    EXPECT_NE(rows.find("] HRV_SUPERVISION_STATE_IDLE                --> "
                        "HRV_SUPERVISION_STATE_HRV_WAITING_RESTART\n"), std::string::npos) << rows;

    r.toggles(bench::RAW_1PPS);         // counts after the filter's wait
    r.wait(11'000);
    EXPECT_EQ(r.unitState(), 0u);
    r.wait(100'000);                    // the running timer is gone with it
    EXPECT_EQ(r.unitState(), 0u);
    r.toggles(0);
    r.wait(62'000);
    EXPECT_EQ(r.unitState(), 1u);
    r.supervise(GPS_REF, false);
    EXPECT_EQ(r.unitState(), 0u);
    EXPECT_EQ(r.look(KvdLoz6TuGps_hrvResetAttempts), 2u);
    EXPECT_EQ(r.printed(KvdLoz6TuGps_printHrvHistory), "      None");
}

TEST(GpsUnitSupervision, ATimerThatDoesntStartLeavesItWaiting)
{
    Receiver r;
    r.toggles(bench::RAW_1PPS);
    r.wait(11'000);
    ASSERT_EQ(r.unitState(), 0u);
    r.toggles(0);
    r.wait(59'000);
    r.node.system().faults().refuseTimers = 5;      // whatever else starts one in this second
    r.ms(2'000);
    r.node.system().faults().refuseTimers = 0;
    EXPECT_EQ(r.unitState(), 1u);
    EXPECT_EQ(r.traces("Timer supervisionTimer didn't start properly."), 1u);
    r.wait(2'000'000);
    EXPECT_EQ(r.unitState(), 1u);
}

}  // namespace
