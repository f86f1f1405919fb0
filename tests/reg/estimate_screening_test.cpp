// Outliers: how many in a row each kind of reference may have, and what happens beyond.
#include "reg/support/regulator_unit.h"

#include <gtest/gtest.h>

#include <array>

using regtest::RegulatorUnit;

namespace {

constexpr double FAR_OFF = 1.0;     // s, an outlier for every reference

struct Feed {
    u32 z_i;
    double R;
    u32 used = 0;                   // measurements that updated the filter

    void measure(double z)
    {
        KvdLoz6TuReg_estimate({z, z_i, 1.0, 1e9, R});
        if (KvdLoz6TuReg_estimateStateVar().P_est != KvdLoz6TuReg_estimatePar().P_pred) ++used;
    }
    void good() { measure(KvdLoz6TuReg_estimateStateVar().x_est[0]); }
    void outliers(u32 count, double z = FAR_OFF)
    {
        for (u32 i = 0; i < count; ++i) measure(z);
    }
};

}  // namespace

TEST(Screening, RunsOfOutliersByKindOfReference)
{
    struct Case {
        const char* what;
        u32 z_i;
        double R;
        u32 outliers;
        u32 used;
        u8 degrState;
        u8 degrd;
        bool timeRowReset;
        double t_mod;
    };
    for (const Case& c : std::to_array<Case>({
             {"GPS, 9",            Z_GPS_REF, 1e-14, 9, 0, 1, 9, false, 1.0},
             {"GPS, 10",           Z_GPS_REF, 1e-14, 10, 0, 2, 10, false, 1.0},
             {"GPS, 30",           Z_GPS_REF, 1e-14, 30, 0, 2, 10, false, 1.0},
             {"link, 9",           Z_IDL2_LOZ6, 1e-14, 9, 0, 1, 9, false, 1.0},
             {"link, 10",          Z_IDL2_LOZ6, 1e-14, 10, 0, 2, 10, false, 1.0},
             {"line, 9",           Z_SDH_REF, 5e-10, 9, 0, 1, 9, false, 1.0},
             {"line, 10",          Z_SDH_REF, 5e-10, 10, 1, 1, 10, false, 1.0},
             {"line, 75",          Z_SDH_REF, 5e-10, 75, 66, 1, 75, false, 1.0},
             {"line, 76",          Z_SDH_REF, 5e-10, 76, 66, 2, 76, false, 1.0},
             {"NTP, 49",           Z_NTP_REF, 5e-7, 49, 0, 1, 49, false, 1.0},
             {"NTP, 50",           Z_NTP_REF, 5e-7, 50, 0, 1, 0, true, 1.0},
             {"NTP, 51",           Z_NTP_REF, 5e-7, 51, 1, 1, 0, false, 1.0},
             {"packet freq, 50",   Z_PKT_FREQ_REF, 5e-7, 50, 0, 1, 0, true, 1.0},
             {"packet time, 29",   Z_PKT_TIME_REF, 2e-11, 29, 0, 1, 29, false, 1.0},
             {"packet time, 30",   Z_PKT_TIME_REF, 2e-11, 30, 0, 1, 0, false, 0.0},
             {"time input, 3",     Z_HPTSI_REF, 1e-14, 3, 0, 1, 3, false, 1.0},
             {"time input, 4",     Z_HPTSI_REF, 1e-14, 4, 0, 1, 0, false, 0.0},
             {"GPS out, 4",        Z_GPS_OUT_REF, 5e-18, 4, 0, 1, 0, false, 0.0}})) {
        SCOPED_TRACE(c.what);
        RegulatorUnit unit;
        unit.run([&] {
            regtest::settle(6, 1.0);
            Feed feed{c.z_i, c.R};
            feed.good();
            feed.used = 0;
            feed.outliers(c.outliers);
            const EstimateStateVar& v = KvdLoz6TuReg_estimateStateVar();
            EXPECT_EQ(feed.used, c.used);
            EXPECT_EQ(v.degrState, c.degrState);
            EXPECT_EQ(v.degrd, c.degrd);
            EXPECT_EQ(v.P_est[0] > 87381.0, c.timeRowReset);
            if (c.timeRowReset) {
                for (u32 i = 1; i < 6; ++i) EXPECT_EQ(v.P_est[i], 0.0);
            }
            EXPECT_EQ(KvdLoz6TuReg_getMod(), c.t_mod);
        });
    }
}

TEST(Screening, LineNoiseOfChangingSignDegradesAtTheTenth)
{
    struct Case { const char* what; u32 change; u32 total; u32 used; u8 degrState; };
    for (const Case& c : std::to_array<Case>({
             {"change at the second, nine",  2, 9, 0, 1},
             {"change at the second, ten",   2, 10, 0, 2},
             {"change at the tenth",         10, 10, 0, 2},
             {"change at the twentieth",     20, 20, 10, 2}})) {
        SCOPED_TRACE(c.what);
        RegulatorUnit unit;
        unit.run([&] {
            regtest::settle(10, 0.125);
            Feed feed{Z_ETH_REF, 5e-10};
            feed.good();
            feed.used = 0;
            feed.outliers(c.change - 1);
            feed.outliers(c.total - c.change + 1, -FAR_OFF);
            EXPECT_EQ(feed.used, c.used);
            EXPECT_EQ(KvdLoz6TuReg_degrState(), c.degrState);
        });
    }
}

TEST(Screening, OneReliableMeasurementStartsTheCountAnew)
{
    RegulatorUnit unit;
    unit.run([&] {
        regtest::settle(6, 1.0);
        Feed feed{Z_GPS_REF, 1e-14};
        for (u32 round = 0; round < 3; ++round) {
            feed.outliers(9);
            feed.good();
        }
        EXPECT_EQ(KvdLoz6TuReg_degrState(), 1);
        EXPECT_EQ(unit.traced("Report refState"), 0u);
        feed.outliers(15);
        EXPECT_EQ(KvdLoz6TuReg_degrState(), 2);
        feed.good();
        EXPECT_EQ(KvdLoz6TuReg_degrState(), 1);
        EXPECT_EQ(
            unit.traced("Report refState: degrState KVD_TUIIF_REF_OK -> KVD_TUIIF_REF_DEGRADED"),
            1u);
        EXPECT_EQ(
            unit.traced("Report refState: degrState KVD_TUIIF_REF_DEGRADED -> KVD_TUIIF_REF_OK"),
            1u);
    });
}

TEST(Screening, NewReferenceIsNotDegradedAndNothingIsReported)
{
    RegulatorUnit unit;
    unit.run([&] {
        regtest::settle(6, 1.0);
        Feed{Z_GPS_REF, 1e-14}.outliers(10);
        ASSERT_EQ(KvdLoz6TuReg_degrState(), 2);
        const std::size_t before = unit.traced("Report refState");
        Feed{Z_ETH_REF, 5e-10}.outliers(1);
        EXPECT_EQ(KvdLoz6TuReg_degrState(), 1);
        EXPECT_EQ(KvdLoz6TuReg_estimateStateVar().degrd, 1);
        EXPECT_EQ(unit.traced("Report refState"), before);
    });
}

TEST(Screening, TemperatureBetweenOutliersDoesNotCount)
{
    RegulatorUnit unit;
    unit.run([&] {
        regtest::settle(6, 1.0);
        Feed feed{Z_GPS_REF, 1e-14};
        for (u32 i = 0; i < 9; ++i) {
            feed.outliers(1);
            KvdLoz6TuReg_estimate({0.01, Z_TEMP_REF, 2.1, 10.0, 1e-6});
        }
        EXPECT_EQ(KvdLoz6TuReg_estimateStateVar().degrd, 9);
        EXPECT_EQ(KvdLoz6TuReg_degrState(), 1);
        feed.outliers(1);
        EXPECT_EQ(KvdLoz6TuReg_degrState(), 2);
    });
}

TEST(Screening, SlaveTakesWhatComes)
{
    RegulatorUnit unit;
    unit.run([&] {
        regtest::settle(9, 1024.0);
        RegulatorUnit::beMaster(false);
        KvdLoz6TuReg_forceRegState(FREQLOCKED);
        Feed feed{Z_IDL1_LOZ6, 1e-14};
        feed.outliers(20);
        const EstimateStateVar& v = KvdLoz6TuReg_estimateStateVar();
        EXPECT_EQ(feed.used, 20u);
        EXPECT_EQ(v.degrState, 1);
        EXPECT_EQ(v.degrd, 0);
        EXPECT_EQ(v.slaveR, 1e-14);     // kept for the pair's exchange of estimates
    });
}

TEST(Screening, MeasurementsOfNoVarianceAreNotUsed)
{
    struct Case { double R; bool used; };
    for (const Case& c :
         std::to_array<Case>({{0.0, false}, {1e-24, false}, {-1e-22, true}, {1e-20, true}})) {
        RegulatorUnit unit;
        unit.run([&] {
            regtest::settle(10, 0.125);
            Feed feed{Z_ETH_REF, c.R};
            feed.good();
            EXPECT_EQ(feed.used == 1, c.used) << c.R;
        });
    }
}
