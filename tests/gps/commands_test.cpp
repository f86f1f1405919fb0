// The operator's commands on the GPS receiver: when they are refused, what they print and send.
#include "gps/kvd_gps_norvane.h"
#include "tests/gps/gps_unit.h"

#include <gmock/gmock.h>

namespace {

using bench::GpsLine;
using testing::HasSubstr;

struct Case { std::string line; int result; std::string output; };     // a piece of it, "" for none at all

void expectAll(GpsLine& unit, const std::vector<Case>& cases)
{
    for (const Case& c : cases) {
        SCOPED_TRACE(c.line);
        EXPECT_EQ(unit.type(c.line), c.result);
        EXPECT_THAT(unit.output, HasSubstr(c.output));
        EXPECT_EQ(unit.output.empty(), c.output.empty());
    }
}

const std::string BLANKS_80 = "A" + std::string(78, ' ') + "B";

TEST(GpsCommands, AreRefusedWithoutAReceiverOfTheReference)
{
    constexpr const char *NOT_SENT = "Sending messages to GPS receiver is not allowed.\nPlease check sync",
                         *NO_PROTOCOL = "Protocol change is not supported.\nPlease check GPS reference",
                         *NO_RESET = "Connected GPS receiver couldn't be reset.\nPlease check state of Gps";
    GpsLine unit(GPSS_NORVANE);                 // another unit's output
    unit.supervise(GPS_REF, false);
    expectAll(unit, {{"gpsprot chprot Furuno", 20, NO_PROTOCOL},
                     {"gpscapture start", 20, "Can't start capturing messages.\nPlease check sync reference"},
                     {"gps01reset execute", 20, "GPS module can't be reset, message to GPS module can't"},
                     {"gps02reset all", 20, NOT_SENT}, {"gpssend nmea PTNLQBA", 20, NOT_SENT},
                     {"kvdgpsreset", 20, NO_RESET},
                     {"gpsskyview start", 20, "Usage: Take cmd 'man gpsskyview' for help info\n"}});
    unit.supervise(GPS_REF, true);
    unit.setType(GPSS_NORVANE);
    expectAll(unit, {{"gpsprot chprot Furuno", 20, NO_PROTOCOL}, {"kvdgpsreset HRV", 20, NO_RESET},
                     {"gps01reset execute", 20, "GPS receiver can't be reset, message to GPS receiver can't"},
                     {"gps02reset all", 20, "Connected GPS module is not a GPS02.\n"},
                     {"gpssend nmea PTNLQBA", 20, NOT_SENT}});
    unit.run(2.0);
    EXPECT_TRUE(unit.sent.empty());
}

TEST(GpsCommands, RefuseWrongWords)
{
    GpsLine unit(GPSS_FURUNO_GPS02, "120510");
    for (const std::string name :
         {"gpsprot", "gpscapture", "gps01reset", "gps02reset", "gpsstatus", "gpssend", "gpsskyview"})
        for (const char* words : {" nonsense", " start stop 1 2"})
            expectAll(unit, {{name + words, 20, "Usage: Take cmd 'man " + name + "' for help info\n"}});
    for (const char* line : {"gpscapture start 0", "gpscapture start 101", "gpscapture start -tx 0",
                             "gpscapture start 5 -tx", "gpscapture display 1", "gpsprot chprot",
                             "gpsprot chprot norcomb", "gpsstatus 0", "gpsstatus -1", "gpssend nmea"})
        expectAll(unit, {{line, 20, "Usage: Take cmd 'man gps"}});
    for (const char* line : {"gengpssstatus", "gengpssstatus 2", "gengpssstatus 03", "gentimestandard 0",
                             "gentimestandard stop 1", "genhptsisource 5", "genhptsisource 0x4g",
                             "genhptsisource 4x", "genhptsisource 0x"})
        expectAll(unit, {{line, 20, "Usage: gen"}});
    expectAll(unit, {{"kvdgpsreset GRM", 20, "Usage: kvdgpsreset <HRV>\n"},
                     {"kvdgpstrace now", 20, "\nUsage: kvdgpstrace \n"}});
}

TEST(GpsCommands, ReachTheReceiver)
{
    constexpr u32 GPS01 = GPSS_FURUNO, GPS02 = GPSS_FURUNO_GPS02;
    constexpr const char *SENT = "\nNMEA message sent to GPS module\n",
                         *WRONG = "\nWrong message entered, please check entered message\n";
    struct Sends { u32 gpssType; const char* firmware; Case command; const char* sent; };
    for (const Sends& c : std::vector<Sends>{
        {GPS02, "120510", {"gpsprot chprot Norcomb", 0, "to Norvane Combined protocol has been ordered."},
         "$PNVX,GPper,1*51\r\n"},
        {GPS02, "120510", {"gpsprot chprot Furuno", 0, "protocol is already set to Furuno protocol.\n"}, ""},
        {GPSS_NORVANE_COMBINED, "", {"gpsprot chprot Furuno", 0, "to Furuno protocol has been ordered."},
         "$PFEC,GPset,Z1\r\n"},
        {GPS01, "", {"gpsprot chprot Norcomb", 20, "GPS receiver does not support changing of"}, ""},
        {GPS01, "", {"gps01reset execute", 0, "GPS01 receiver has been reset, wait for additional time"},
         "$PFEC,GPset,Z1\r\n$PFEC,GPclr,1\r\n"},
        {GPS01, "120510", {"gps01reset execute", 20, "Connected GPS module is not GPS01\n"}, ""},
        {GPS02, "110624", {"gps02reset module", 0, "Request for resetting the GPS02 receiver is sent.\n"},
         "$PTNLSRT,C,0*20\r\n"},
        {GPS02, "120510", {"kvdgpsreset HRV", 0, "Reset of HRV on connected GPS receiver has been"},
         "$PNVX,GPdbg,r,s*4B\r\n"},
        {GPS02, "110624", {"kvdgpsreset HRV", 20, "Reset of HRV on connected GPS receiver isn't"}, ""},
        {GPS01, "120510", {"kvdgpsreset HRV", 20, "Reset of HRV on connected GPS receiver isn't"}, ""},
        {GPS02, "130101", {"kvdgpsreset", 0, "Reset of GRM on connected GPS receiver has been initiated.\n"},
         "$PNVX,GPrst,S,1*3C\r\n"},
        {GPS02, "", {"kvdgpsreset", 20, "Reset of GRM on connected GPS receiver isn't supported.\n"}, ""},
        {GPS01, "", {"gpssend nmea PFEC,GPclr,1", 0, SENT}, "$PFEC,GPclr,1*4B\r\n"},
        {GPS02, "", {"gpssend nmea \\\"$PTNLQBA\\\"", 0, SENT}, "$PTNLQBA*54\r\n"},
        {GPS02, "", {"gpssend nmea $PTNLQBA*00", 0, SENT}, "$PTNLQBA*00\r\n"},
        {GPS02, "", {"gpssend nmea A:B", 20, WRONG}, ""}, {GPS02, "", {"gpssend nmea $", 20, WRONG}, ""}}) {
        SCOPED_TRACE(c.command.line + " to type " + std::to_string(c.gpssType));
        GpsLine unit(c.gpssType, c.firmware);
        expectAll(unit, {c.command});
        unit.run(1.0);
        std::string sent;
        for (const std::string& write : unit.sent) sent += write;
        EXPECT_EQ(sent, c.sent);
    }
}

TEST(GpsCommands, SendUpTo80Characters)
{
    GpsLine unit(GPSS_FURUNO_GPS02, "120510");
    EXPECT_EQ(unit.type("gpssend nmea \"" + BLANKS_80 + "\""), 0);
    unit.run(1.0);
    ASSERT_EQ(unit.sent.size(), 1u);
    EXPECT_EQ(unit.takeSent()[0], "$" + BLANKS_80 + "*03\r\n");
    EXPECT_EQ(unit.type("gpssend nmea \"" + BLANKS_80 + "C\""), 20);
    EXPECT_THAT(unit.output, HasSubstr("Wrong message entered, maximum size allowed is 80 characters.\n"));
    expectAll(unit, {{"gps02reset buffer", 0, "Request for clearing the GPS02 buffer is sent.\n"}});
    unit.run(22.0);
    EXPECT_EQ(unit.takeSent().size(), 20u);
    expectAll(unit, {{"gps02reset all", 0, "Requests for clearing the receiver buffer and resetting the"}});
    unit.run(22.0);
    EXPECT_EQ(unit.takeSent().size(), 21u);
    unit.say(bench::nmea("PNVX,GPver,GPS02,KDU123,R1A,110624"));
    expectAll(unit, {{"kvdgpsreset", 0, "Reset of GRM on connected GPS receiver has been initiated.\n"}});
}

TEST(Capture, TakesWhatIsWantedUpToItsLimit)
{
    GpsLine unit(GPSS_FURUNO_GPS02, "120510");
    unit.node.setCalendar(1'700'000'000);       // 2023-11-14 22:13:20 UTC
    const auto traffic = [&unit] {
        unit.type("gpssend nmea PTNLQBA");
        unit.type("gpssend nmea AB");
        unit.node.serial().feed("$GPxxx,1\r\n$" + std::string(90, 'y') + "\r\n");
        unit.run(1.0);
    };
    const std::string rx = "[2023-11-14 22:13:20] << GPxxx,1\n[2023-11-14 22:13:20] << "
                           + std::string(83, 'y') + "\n";
    const std::string tx = ">> $PTNLQBA*54\n", tx2 = ">> $AB*03\n";
    constexpr const char* NOTHING = "No NMEA messages of wanted type were captured.\n";
    expectAll(unit, {{"gpscapture display", 0, NOTHING}, {"gpscapture start -rx", 0, ""}});
    traffic();
    expectAll(unit, {{"gpscapture display", 0, rx.c_str()}, {"gpscapture start -tx 1", 0, ""}});
    traffic();
    traffic();
    ASSERT_EQ(unit.type("gpscapture display"), 0);
    EXPECT_THAT(unit.output, testing::EndsWith(tx));
    EXPECT_EQ(std::count(unit.output.begin(), unit.output.end(), '\n'), 1);
    EXPECT_EQ(unit.type("gpscapture start 9"), 0);
    traffic();
    ASSERT_EQ(unit.type("gpscapture display"), 0);
    EXPECT_THAT(unit.output, testing::AllOf(HasSubstr("<< GPxxx,1\n"), HasSubstr("<< yyy"), HasSubstr(tx),
                                            HasSubstr(tx2)));
    unit.supervise(GPS_REF, false);             // refused now, and empty afterwards
    EXPECT_EQ(unit.type("gpscapture display"), 20);
    unit.supervise(GPS_REF, true);
    traffic();
    expectAll(unit, {{"gpscapture display", 0, NOTHING}});
}

TEST(GpsCommands, OrderTestValuesAndRecordings)
{
    GpsLine unit(GPSS_NORVANE_COMBINED);
    const auto heard = [&unit] {
        unit.say(bench::gpppr(100));
        return unit.node.inProgram([] { return KvdLoz6TuGps_norvane().gpssStatus; });
    };
    expectAll(unit, {{"gengpssstatus 3", 0, "gengpssstatus enabled"}});
    EXPECT_EQ(heard(), 3);
    expectAll(unit, {{"gengpssstatus stop", 0, "gengpssstatus disabled"},
                     {"gentimestandard 1", 0, "gentimestandard enabled"},
                     {"gentimestandard stop", 0, "gentimestandard disabled"},
                     {"kvdgpstrace", 0, "Collected data is dumped to file.\n"},
                     {"gpsskyview stop", 20, "Sky-view data collection is not started.\n"}});
    EXPECT_EQ(heard(), 0);
    EXPECT_EQ(unit.type("gpsstatus"), 0);
    EXPECT_THAT(unit.output, testing::Not(HasSubstr("GPS serial port initialized")));
    EXPECT_EQ(unit.type("gpsstatus 99"), 0);
    EXPECT_THAT(unit.output, HasSubstr("GPS serial port initialized"));
    EXPECT_EQ(unit.type("gpsskyview start"), 0);
    EXPECT_EQ(unit.type("gpsskyview start"), 20);
    EXPECT_EQ(unit.type("gpsskyview stop"), 0);
}

}  // namespace
