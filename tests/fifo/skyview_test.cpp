// The sky view: a record a minute, from its start to the order to stop or the end of the day.
#include "fifo/kvd_fifo_skyview.h"
#include "fifo_bench.h"
#include "gps/kvd_gps_nmea.h"
#include "sig/fifo_sig.h"

#include <cstdlib>
#include <new>

using testing::HasSubstr;

namespace {

u32 refusedRecords = 0;                        // allocations of a record that fail from now on
constexpr std::size_t RECORD_SIZE = 132;

struct SkyBench : FifoBench {
    void start()
    {
        in([] { KvdLoz6FifoSkyView_start(); });
        world.runFor(ose::MS);
    }
    void stop()
    {
        in([] { KvdLoz6FifoSkyView_stop(); });
        world.runFor(ose::MS);
    }
    // One timing sentence a second.
    void seconds(u32 count)
    {
        in([count] {
            for (u32 i = 0; i < count; ++i) {
                KvdLoz6FifoSkyView_tick();
                ose::delay(1000);
            }
        });
    }
    bool running()
    {
        bool is = false;
        in([&] { is = KvdLoz6FifoSkyView_isRunning(); });
        return is;
    }
    std::size_t records() { return occurrences(file("kvdFifoSkyView"), "\nGPavp data rec"); }
};

}  // namespace

void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    if (size == RECORD_SIZE && refusedRecords > 0) {
        --refusedRecords;
        return nullptr;
    }
    return ::operator new(size);
}

TEST(SkyView, TakesARecordAMinuteUntilItIsStopped)
{
    SkyBench b;
    b.stop();
    b.seconds(61);
    EXPECT_EQ(b.file("kvdFifoSkyView"), "") << "nothing happens before the start";
    b.start();
    EXPECT_TRUE(b.running());
    b.in([] {
        KvdLoz6TuGps_receiverRecord().instantaneous.altitude = 43.26;
        KvdLoz6TuGps_receiverRecord().averaged.longitude = {70, 40, 1, GPS_WEST};
    });
    b.node.setCalendar(1700000000, 0);
    b.seconds(121);
    b.stop();
    EXPECT_FALSE(b.running());
    EXPECT_EQ(b.records(), 3u) << "at seconds 0, 60 and 120";
    const std::string text = b.file("kvdFifoSkyView");
    EXPECT_THAT(text, HasSubstr("Time\t\t\t\t\t:\t2023-11-14 22:14:20.000000 \n"));
    EXPECT_THAT(text, HasSubstr("GPGGA_altitude\t\t\t:\t43.3\n"
                                "\nGPavp data received \n" "GPavp_latitude\t\t\t:\tN 0 0.0000\n"
                                "GPavp_longitude\t\t\t:\tW 70 40.0001\n" "GPavp_altitude\t\t\t:\t0.0\n"
                                "\nSatelliteInformation\n| satNo     |   0 "));

    b.seconds(86'400);                         // the end of that day is nobody's
    b.start(), b.seconds(2);
    b.start(), b.seconds(60);
    b.stop();
    EXPECT_EQ(b.records(), 1u) << "each one begins anew";
    b.start(), b.seconds(1);
    b.stop();
    EXPECT_EQ(b.records(), 1u) << "with its first sentence";
}

TEST(SkyView, OfADayEndsByItself)
{
    SkyBench b;
    b.start();
    b.seconds(86399);
    EXPECT_TRUE(b.running());
    EXPECT_EQ(b.file("kvdFifoSkyView"), "");
    b.seconds(3);
    EXPECT_FALSE(b.running());
    EXPECT_EQ(b.records(), 1440u);
    b.stop();
    EXPECT_EQ(b.records(), 1440u) << "an end that came already is no new file";
    b.start();
    b.seconds(86399);
    b.seconds(3);
    EXPECT_FALSE(b.running()) << "nor does it take the next day's";
}

TEST(SkyView, LosesAMinuteWithoutMemoryAndDoesNotRunWithoutATimer)
{
    SkyBench b;
    b.start();
    refusedRecords = 1;
    b.seconds(121);
    EXPECT_TRUE(b.node.traces().has("Failed to allocate memory for the skyview buffer"));
    b.stop();
    EXPECT_EQ(b.records(), 2u);

    b.node.system().faults().refuseTimers = 1;
    b.start();
    EXPECT_TRUE(b.node.traces().has("24h recordingIntervalTimer failed to start!"));
    EXPECT_FALSE(b.running());
}
