// The serial line to the receiver: its settings, its end, the pacing of what is sent, a line that refuses.
#include "gps/kvd_gps_send.h"
#include "gps/kvd_gps_serial.h"
#include "tests/gps/gps_unit.h"

namespace {

using bench::GpsLine;
using Writes = std::vector<std::string>;

int queue(GpsLine& unit, const std::string& text)
{
    int result = -1;
    const auto length = static_cast<u32>(text.size());
    unit.in([&] { result = KvdLoz6TuGps_queueSentence(text.data(), length); });
    return result;
}

TEST(Sending, LetsTheWholeQueueGoOnceASecondInOneWrite)
{
    GpsLine unit(GPSS_FURUNO_GPS02, "120510");
    queue(unit, "$A\r\n");
    queue(unit, "$BC\r\n");
    EXPECT_EQ(unit.sent, Writes{});
    unit.run(1.0);
    EXPECT_EQ(unit.takeSent(), Writes{"$A\r\n$BC\r\n"});
    queue(unit, "$D\r\n");
    unit.run(3.0);
    EXPECT_EQ(unit.takeSent(), Writes{"$D\r\n"});

    queue(unit, "$lost\r\n");                  // the end of supervision empties the queue
    unit.supervise(GPS_REF, false);
    unit.toManager(Signal{0x9C608});           // on its way when supervision ended
    unit.run(0.5);
    unit.supervise(GPS_REF, true);
    queue(unit, "$E\r\n");
    unit.run(0.9);
    EXPECT_EQ(unit.sent, Writes{});
    unit.run(1.1);
    EXPECT_EQ(unit.takeSent(), Writes{"$E\r\n"});
}

TEST(Sending, LosesWhatTheLineRefusesAndGoesOn)
{
    GpsLine unit(GPSS_FURUNO_GPS02, "120510");
    unit.node.serial().writeResult = 5;
    queue(unit, "$A\r\n");
    unit.run(3.0);
    EXPECT_EQ(unit.traces("Failed to send \"$A\r\n\" to GPS"), 1u);
    unit.node.serial().writeResult = 0;
    queue(unit, "$B\r\n");
    unit.run(1.0);
    EXPECT_EQ(unit.sent, Writes{"$B\r\n"});
}

TEST(Line, IsOpenedOnceWithItsSettingsWhileTheReferenceIsSupervised)
{
    bench::GpsUnit unit;
    std::vector<std::pair<u32, u32>> settings;
    for (const node::SerialSetting& s : unit.node.serial().settings())
        settings.emplace_back(s.key, s.value);
    EXPECT_EQ(settings, (std::vector<std::pair<u32, u32>>{
                            {0x1000, 9600}, {0x1001, 3000}, {0x1002, 254}, {0x1003, 8},
                            {0x1004, 1}, {0x1005, 0x4E}, {0x1006, 10}}));
    EXPECT_NE(unit.node.system().find("TuGpsInt_proc"), 0u);
    unit.say("$A");
    unit.node.system().call(*unit.node.program(), [] { EXPECT_EQ(KvdLoz6TuGps_openSerial(), 4); });
    EXPECT_TRUE(unit.node.traces().has("UART device UART already started"));
    unit.say("\r\n$B");
    EXPECT_EQ(unit.gpsState(), GPS_WAIT_FOR_VALID_MSG);
    unit.node.serial().closeResult = 0x17;
    unit.supervise(GPS_REF, false);
    unit.ms(5);
    EXPECT_TRUE(unit.node.traces().has("Error from serial port (err = 0x17)"));
    EXPECT_FALSE(unit.node.serial().isOpen());
    EXPECT_EQ(unit.node.system().find("TuGpsInt_proc"), 0u);

    unit.node.serial().openResult = 8;
    unit.supervise(GPS_REF, true);
    unit.ms(5);
    EXPECT_TRUE(unit.node.traces().has("Unsuccessful call to HALI_subscribeSerialPort"));
    EXPECT_FALSE(unit.node.serial().isOpen());
    unit.node.serial().openResult = 0;
    unit.supervise(GPS_REF, false);
    unit.supervise(GPS_REF, true);
    unit.ms(5);
    unit.say("\r");                        // doesn't end the sentence of before
    EXPECT_EQ(unit.gpsState(), GPS_WAIT_FOR_ANY_MSG);
}

}  // namespace
