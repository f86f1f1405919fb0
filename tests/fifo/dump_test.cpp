// The GPS and the regulator's log: what a dump holds, and when there is one.
#include "fifo/kvd_fifo_dump.h"
#include "fifo/kvd_fifo_gps.h"
#include "fifo/kvd_fifo_reg.h"
#include "fifo/kvd_fifo_skyview.h"
#include "fifo_bench.h"
#include "gps/kvd_gps_common.h"
#include "reg/kvd_reg_control.h"
#include "reg/kvd_reg_estimate.h"
#include "unit/kvd_ref_table.h"

#include <array>
#include <vector>

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

constexpr i64 CALENDAR = 1700000000;           // 2023-11-14 22:13:20 UTC

constexpr GpsPosition STOCKHOLM = {{59, 20, 1234, GPS_NORTH}, {18, 3, 42, GPS_EAST}, 43.26};
constexpr GpsPosition SANTIAGO = {{33, 26, 9999, GPS_SOUTH}, {70, 40, 1, GPS_WEST}, 520.0};

/// Everything that a receiver can tell in a second, but for what closes the record.
void storeSecond()
{
    std::array<GpsSatellite, GPS_BEST_SATELLITES> best{};
    best[0] = {7, 81, 359, 47, 0};
    best[1] = {88, 5, 4, 21, 0};
    KvdLoz6FifoGps_storeGpggaSatellites(9);
    KvdLoz6FifoGps_storeGpggaDop(1.25);
    KvdLoz6FifoGps_storeGpggaPosition(STOCKHOLM);
    KvdLoz6FifoGps_storeSatellites(best);
    KvdLoz6FifoGps_storeGpavp(SANTIAGO);
    KvdLoz6FifoGps_storeGpgsa({2.5, 1.5, 2.0}, {7, 88});
    KvdLoz6FifoGps_storeGpppr(345600, 2288, 1, 0);
}

}  // namespace

TEST(GpsLog, WritesARecord)
{
    FifoBench b;
    b.receiver(GPSS_NORVANE_COMBINED);
    b.node.setCalendar(CALENDAR, 250);
    b.in([&] {
        storeSecond();
        KvdLoz6FifoGps_storeGpsts(2, 1, 4, "10012 and more");     // than there is room for
        KvdLoz6FifoGps_closeRecord();
    });
    b.dump();
    EXPECT_EQ(b.file("kvdFifoGps"),
              "Dump of GPS data started:\n2023-11-14 22:13:20.000250\n\n"
              "################################################### \n"
              "Time\t\t\t\t\t:\t2023-11-14 22:13:20.000250 \n" "\nGPsts data received \n"
              "GPsts_pp1state\t\t\t:\t2\n" "GPsts_positionHoldMode\t:\t1\n" "GPsts_antennaPortSts\t:\t4\n"
              "GPsts_capabilities\t\t:\t10012\n" "\nGPGGA data received \n"
              "GPGGA_latitude\t\t\t:\tN 59 20.1234\n" "GPGGA_longitude\t\t\t:\tE 18 3.0042\n"
              "GPGGA_altitude\t\t\t:\t43.3\n" "GPGGA_noOfSatellites\t\t:\t9\n" "GPGGA_DOP\t\t\t\t:\t1.25\n"
              "\nSatelliteInformation\n"
              "| satNo     |   7 |  88 |   0 |   0 |   0 |   0 |   0 |   0 |   0 |   0 |   0 |   0 |\n"
              "| elevation |  81 |   5 |   0 |   0 |   0 |   0 |   0 |   0 |   0 |   0 |   0 |   0 |\n"
              "| azimuth   | 359 |   4 |   0 |   0 |   0 |   0 |   0 |   0 |   0 |   0 |   0 |   0 |\n"
              "| SNR       |  47 |  21 |   0 |   0 |   0 |   0 |   0 |   0 |   0 |   0 |   0 |   0 |\n"
              "\nGPppr_GPtps data received \n" "GPS_TOW\t\t\t\t\t:\t345600\n" "GPS_week\t\t\t\t:\t2288\n"
              "GPppr_gpssStatus\t\t:\t1\n" "GPppr_gpssFaulty\t\t:\t0\n" "\nGPavp data received \n"
              "GPavp_latitude\t\t\t:\tS 33 26.9999\n" "GPavp_longitude\t\t\t:\tW 70 40.0001\n"
              "GPavp_altitude\t\t\t:\t520.0\n" "\nGPGSA data received \n" "GPGSA_HDOP\t\t\t\t:\t1.50\n"
              "GPGSA_VDOP\t\t\t\t:\t2.00\n" "GPGSA_PDOP\t\t\t\t:\t2.50\n"
              "GPGSA_usedSatellites\t:\t  7  88   0   0   0   0   0   0   0   0   0   0 \n"
              "Dump of GPS data finished:\n2023-11-14 22:13:20.000250\n\n");
}

TEST(GpsLog, KeepsAnHourAndCopiesOnWhatComesSeldom)
{
    FifoBench b;
    b.receiver(GPSS_NORVANE_COMBINED);
    b.in([] {
        storeSecond();
        for (const char* capabilities : {"99999", "1"}) KvdLoz6FifoGps_storeGpsts(2, 1, 4, capabilities);
        for (u32 second = 0; second < 3600; ++second) {
            KvdLoz6FifoGps_storeTowWeek(second, 2288);
            KvdLoz6FifoGps_closeRecord();
        }
    });
    b.dump();
    const std::string first = b.file("kvdFifoGps");
    for (const char* part : {"Time\t", "GPGGA_latitude\t\t\t:\tN 59 20.1234\n", "| satNo     |   7 |",
                             "GPavp_latitude\t\t\t:\tS 33 26.9999\n", "GPGSA_PDOP\t\t\t\t:\t2.50\n"})
        EXPECT_EQ(occurrences(first, part), 3600u) << part;
    EXPECT_EQ(occurrences(first, "GPppr_gpssStatus\t\t:\t1\n"), 1u) << "a second's own";
    EXPECT_EQ(occurrences(first, "GPsts_capabilities\t\t:\t1\n"), 1u);
    EXPECT_LT(first.find("GPS_TOW\t\t\t\t\t:\t0\n"), first.find("GPS_TOW\t\t\t\t\t:\t3599\n"));

    b.in([] {
        KvdLoz6FifoGps_storeTowWeek(3600, 2288);
        KvdLoz6FifoGps_closeRecord();
    });
    b.dump();
    const std::string wrapped = b.file("kvdFifoGps");
    EXPECT_EQ(occurrences(wrapped, "Time\t"), 3600u) << "the second dump replaces the first";
    EXPECT_THAT(wrapped, Not(HasSubstr("GPS_TOW\t\t\t\t\t:\t0\n")));
    EXPECT_LT(wrapped.find("GPS_TOW\t\t\t\t\t:\t1\n"), wrapped.find("GPS_TOW\t\t\t\t\t:\t3600\n"));

    b.in([] {
        KvdLoz6FifoGps_clear();
        KvdLoz6FifoGps_closeRecord();
    });
    b.dump();
    EXPECT_EQ(occurrences(b.file("kvdFifoGps"), "Time\t"), 1u);
    EXPECT_THAT(b.file("kvdFifoGps"), Not(HasSubstr("N 59 20.1234"))) << "nothing of before";
}

TEST(GpsLog, FollowsTheReceiversKindButNotItsLoss)
{
    FifoBench b;
    b.receiver(GPSS_NORVANE_COMBINED);
    b.in([] {
        storeSecond();
        KvdLoz6TuGps_receiverRecord().gpssType = GPSS_FURUNO;
        KvdLoz6FifoGps_closeRecord();
        KvdLoz6FifoGps_storeGptps(2, 1, 1, 2288, 100);
        KvdLoz6FifoGps_closeRecord();
        KvdLoz6TuGps_receiverRecord().gpssType = GPSS_UNKNOWN;
    });
    b.dump();
    const std::string text = b.file("kvdFifoGps");
    EXPECT_THAT(text, HasSubstr("\nGPtps data received \n"
                                "GPtps_timeStandard\t\t:\t2\n" "GPtps_1PPSavail\t\t\t:\t1\n"
                                "GPtps_ObsMode\t\t\t:\t1\n" "GPtps_gpsWeeks\t\t\t:\t2288\n"
                                "GPtps_gpsSeconds\t\t:\t100\n"));
    EXPECT_EQ(occurrences(text, "Time\t"), 2u) << "with one that had no sentence of its own";
    EXPECT_THAT(text, HasSubstr("N 59 20.1234")) << "position comes along into the other table";
    b.in([] {
        KvdLoz6FifoGps_clear();
        KvdLoz6FifoGps_closeRecord();
    });
    b.dump();
    EXPECT_EQ(occurrences(b.file("kvdFifoGps"), "GPtps_gpsSeconds\t\t:\t0\n"), 1u);
    EXPECT_EQ(occurrences(b.file("kvdFifoGps"), "Time\t"), 1u) << "of that table too";
}

TEST(GpsLog, AndSkyViewTakeASecondAtItsLastSentence)
{
    const char* GPPPR = "PNVX,GPppr,123456,01234,00000,00,0,0*5A\r";
    const char* GPSTS = "PNVX,GPsts,2,1,0,00000*5C\r";
    const char* GPTPS =
        "PFEC,GPtps,230115120000,2,1,2,000000000000,18,18,230115120000,2245,043200\r";
    struct Case { u32 gpssType; const char* sentence; std::size_t records; };
    for (const Case& c : std::to_array<Case>({{GPSS_NORVANE_COMBINED, GPPPR, 0},
                                              {GPSS_NORVANE_COMBINED, GPSTS, 1},
                                              {GPSS_FURUNO_GPS02, GPTPS, 0},
                                              {GPSS_FURUNO_GPS02, GPSTS, 1},
                                              {GPSS_FURUNO, GPTPS, 1}})) {
        SCOPED_TRACE(std::to_string(c.gpssType) + c.sentence);
        FifoBench b;
        b.receiver(c.gpssType);
        b.in([] { KvdLoz6FifoSkyView_start(); });
        b.world.runFor(ose::MS);
        b.in([&] {
            GpsSentenceType type;
            EXPECT_EQ(KvdLoz6TuGps_parseSentence(c.sentence, type), 1);
        });
        b.world.runFor(ose::MS);
        b.in([] { KvdLoz6FifoSkyView_stop(); });
        b.dump();
        EXPECT_EQ(occurrences(b.file("kvdFifoGps"), "Time\t"), c.records);
        EXPECT_EQ(occurrences(b.file("kvdFifoSkyView"), "Time\t"), c.records);
    }
}

TEST(RegulatorLog, WritesARecordAndThePrintouts)
{
    FifoBench b;
    b.node.setCalendar(CALENDAR, 250);
    b.in([] {
        for (const u32 z_i : {19u, 20u}) KvdLoz6FifoReg_add({.z_i = z_i});      // the last, and none
        std::array<double, 36> P{};
        P[0] = 1e-10, P[1] = 2e-12, P[6] = 3e-12, P[7] = 4e-20;
        KvdLoz6FifoReg_setLatchedTime(512.25);
        KvdLoz6FifoReg_add({.z_i = Z_TEMP_REF});
        KvdLoz6FifoReg_add({.z_i = Z_GPS_REF, .c = 2048.0, .f = 512.2500001, .z = -0.5, .R = 1e-14, .m = 12.0,
                            .x_pred = {1.5, -2.5e-9, 1, 1, 1, 1}, .x_est = {0.25, 3e-9}, .K = {0.125, 0.0625},
                            .P_pred = P, .P_est = P, .Uf = 2457600.5, .duf = -0.75});
    });
    b.dump();
    const std::string text = b.file("kvdFifoKalman");
    EXPECT_THAT(text, StartsWith("Dump of data started:\n2023-11-14 22:13:20.000250\n\n"));
    EXPECT_EQ(occurrences(text, "################################ \nTime\t\t\t\t:\t"), 5400u);
    EXPECT_EQ(occurrences(text, "Ref\t\t\t\t\t:\t<Unknown> \n"), 5397u);
    EXPECT_EQ(b.file("kvdFifoGps"), "") << "no GPS reference";

    const std::size_t temperature = text.find("TEMP_REF (11) \nlatchedTime\t\t\t:\t0          \n");
    const std::size_t newest = text.find("Ref\t\t\t\t\t:\tGPS_REF (8) \n");
    const std::size_t end = text.find("**********");
    ASSERT_LT(temperature, newest);
    ASSERT_LT(newest, end);
    EXPECT_EQ(text.substr(newest, end - newest),
              "Ref\t\t\t\t\t:\tGPS_REF (8) \n" "latchedTime\t\t\t:\t512.25     \n"
              "sfcTime c & f\t\t:\t2048       \t512.2500001       \n" "z\t\t\t\t\t:\t-0.5       \n"
              "R\t\t\t\t\t:\t1e-14 \n" "m\t\t\t\t\t:\t12.0              \n"
              "x_pred[1-2] \t\t:\t1.5   \t -2.5e-09\n"
              "P_pred[11 12 21 22]\t:\t1e-10 \t 2e-12 \t 3e-12 \t 4e-20\n"
              "Kgain[1-2] \t\t\t:\t0.125 \t 0.0625\n" "x_est[1-2] \t\t\t:\t0.25  \t 3e-09\n"
              "P_est[11 12 21 22]\t:\t1e-10 \t 2e-12 \t 3e-12 \t 4e-20\n"
              "Uf\t\t\t\t\t:\t2457600.5         \n" "duf\t\t\t\t\t:\t-0.75 \n");
    EXPECT_THAT(text.substr(end),
                HasSubstr("\n***** Current state of LOZ6 from the kvdinfo all coli printout *****\n"
                          "\n Date and Time for kvdinfo print: 2023-11-14 22:13:20.000250"));
    EXPECT_THAT(text.substr(end), HasSubstr("tumgr_proc related data"));
    EXPECT_TRUE(text.ends_with("\n\nDump of data finished:\n2023-11-14 22:13:20.000250\n\n"));
}

TEST(RegulatorLog, HasTheStepsOfTheEstimator)
{
    FifoBench b;
    b.node.setCalendar(CALENDAR, 250);
    b.in([] {
        Mat6 P{};
        for (u32 i = 0; i < 6; ++i) P[i * 7] = i == 0 ? 1e-12 : 1e-20;
        const double u[2] = {0.0, 0.0};
        KvdLoz6TuReg_estimateInitiate({1e-7, 0, 0, 0, 0, 0}, P, 0.0, u, -1e-10);
        for (u32 i = 0; i < 5401; ++i) KvdLoz6TuReg_estimate({0.0, Z_GPS_REF, 1.0, 100.0, 1e-14});
        KvdLoz6TuReg_estimate({0.5, Z_TEMP_REF, 2.1, 10.0, 1e-6});
    });
    b.dump();
    const std::string text = b.file("kvdFifoKalman");
    EXPECT_EQ(occurrences(text, "Ref\t\t\t\t\t:\tGPS_REF (8) \n"), 5399u);
    EXPECT_THAT(text, HasSubstr("Time\t\t\t\t:\t2023-11-14 22:13:20.000250 \nRef\t\t\t\t\t:\tTEMP_REF"));
    const std::string newest = text.substr(text.rfind("Ref\t\t\t\t\t:\tTEMP_REF (11) \n"));
    EXPECT_THAT(newest, HasSubstr("\nz\t\t\t\t\t:\t0.5        \nR\t\t\t\t\t:\t1e-06 \n"));
    EXPECT_THAT(newest, HasSubstr("\nKgain[1-2] \t\t\t:\t0     \t 0    \n"));
    EXPECT_THAT(text.substr(0, 2000), Not(HasSubstr("Kgain[1-2] \t\t\t:\t0     \t 0    \n")));
}

TEST(Dump, HasNoGpsFileWithoutAReceiver)
{
    struct Case { const char* what; u32 supervised, gpssType; bool gpsFile; const char* trace; };
    for (const Case& c : std::to_array<Case>({
             {"not supervised", 0, GPSS_FURUNO, false,
              "GpsSyncRef is not registered in Synch MO - no GPS data will be dumped!"},
             {"another unit's output", 1, GPSS_NORVANE, false,
              "GpsSyncRef in GPSOUT profile - no GPS data will be dumped!"},
             {"receiver", 1, GPSS_PENDING, true, ""}})) {
        SCOPED_TRACE(c.what);
        FifoBench b;
        b.receiver(c.gpssType);
        b.in([&] { KvdLoz6TuRef_table().refDescTable[ROW_GPS].supervisionStatus = c.supervised; });
        b.dump();
        EXPECT_EQ(!b.file("kvdFifoGps").empty(), c.gpsFile);
        EXPECT_NE(b.file("kvdFifoKalman"), "");
        EXPECT_TRUE(b.node.traces().has(c.trace));
    }
}

TEST(Dump, IsLostWhenTheFileCannotBeOpenedAndTheNextOneComes)
{
    FifoBench b;
    b.receiver(GPSS_FURUNO);
    b.node.volumes().writeFails = true;
    b.dump();
    for (const char* name : {"kvdFifoGps", "kvdFifoKalman"})
        EXPECT_TRUE(b.node.traces().has("Could not open file: /gzip/c/logfiles/" + std::string(name)
                                        + ".gz, reason: Input/output error"));
    EXPECT_FALSE(b.node.traces().has("Could not write to file"));
    b.node.volumes().writeFails = false;
    b.dump();
    EXPECT_NE(b.file("kvdFifoGps"), "");
    EXPECT_NE(b.file("kvdFifoKalman"), "");
    b.in([] { fifo::fileOpen("/gzip/c/logfiles/piece.gz"), fifo::fileText(std::string(8192, '-').c_str()); });
    EXPECT_EQ(b.file("piece").size(), 8192u) << "what makes up a piece goes out";
}
