// The serial line to the receiver: what counts as a sentence, what is lost and counted, whose line
// it is.
#include "frame/kvd_mgr_proc.h"
#include "gps/kvd_gps_serial.h"
#include "node/sig.h"
#include "sig/gps_sig.h"
#include "tests/gps/gps_unit.h"
#include "tests/support/idle_node.h"
#include "unit/kvd_unit_process.h"

namespace {

struct Posted {
    std::string text;
    u32 length;
    u32 bufferSize;
    bool operator==(const Posted&) const = default;
};

/// The framing alone; what it posts to the manager comes back to the test.
struct Framing : IdleNode {
    std::vector<Posted> feed(const std::vector<std::string>& pieces)
    {
        std::vector<Posted> posted;
        in([&] {
            KvdLoz6TuMgr_setPids(ose::current_process(), 0, 0);
            for (const std::string& piece : pieces)
                KvdLoz6TuGps_serialReceived(reinterpret_cast<const u8*>(piece.data()),
                                            static_cast<u32>(piece.size()));
            while (Signal* sig = ose::receive_w_tmo(0, ose::ANY_SIGNAL)) {
                EXPECT_EQ(sig->sigNo, 0x9C604u);
                const auto* rec = as<KvdTugpsNmeaMsgRec>(sig);
                ASSERT_NE(rec, nullptr);
                const char* text = reinterpret_cast<const char*>(sig) + 8;
                posted.push_back({{text, rec->length}, rec->length, ose::sigsize(&sig)});
                EXPECT_EQ(text[rec->length], '\0');
                ose::free_buf(&sig);
            }
        });
        return posted;
    }
    GpsSerialCounters counters()
    {
        return node.inProgram([] { return KvdLoz6TuGps_serialCounters(); });
    }
};

std::string a(std::size_t count) { return std::string(count, 'A'); }
using namespace std::string_literals;

TEST(Framing, TakesSentencesAndCountsWhatIsTooLong)
{
    struct Case {
        const char* what;
        std::vector<std::string> pieces;
        std::vector<std::string> sentences;
        u32 tooLong;
    };
    const Case cases[] = {
        {"plain, LF and noise around", {"x\r\ny$AB,C\r\n*\n\r$D\r"}, {"AB,C\r", "D\r"}, 0},
        {"cut anywhere", {"$", "A", "", "B\r$", "C", "\r"}, {"AB\r", "C\r"}, 0},
        {"nothing between", {"$\r$\r"}, {"\r", "\r"}, 0},
        {"254 characters with the CR", {"$" + a(253) + "\r$B\r"}, {a(253) + "\r", "B\r"}, 0},
        {"255 characters", {"$" + a(254) + "\r\r$B\r"}, {"B\r"}, 1},
        {"far too long", {"$" + a(2000) + "\r$B\r"}, {"B\r"}, 1},
        {"a dollar ends and doesn't begin", {"$AB$CD\r$EF\r"}, {"AB$", "EF\r"}, 0},
        {"the dollar that finds no room is lost", {"$" + a(254) + "$B\r$C\r"}, {"C\r"}, 1},
        {"noise isn't a long sentence", {a(3000) + "$B\r"}, {"B\r"}, 0},
        {"NULs stay", {"$A\0B\0\r"s}, {"A\0B\0\r"s}, 0},
        {"any byte", {"$\xFF\x80\n\r"}, {"\xFF\x80\n\r"}, 0},
        {"no end", {"$" + a(253)}, {}, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Framing line;
        std::vector<Posted> expected;
        u32 bytes = 0;
        for (const std::string& sentence : c.sentences) {
            const u32 length = static_cast<u32>(sentence.size());
            expected.push_back({sentence, length, length + 14});
        }
        for (const std::string& piece : c.pieces) bytes += static_cast<u32>(piece.size());
        EXPECT_EQ(line.feed(c.pieces), expected);
        EXPECT_EQ(line.counters().numberOfTooLongMsgs, c.tooLong);
        EXPECT_EQ(line.node.traces().count({"Too big NMEA message received"}), c.tooLong);
        EXPECT_EQ(line.counters().numberOfBytesRec, bytes);
    }
}

TEST(Framing, SkipsANullBufferWithinASentence)
{
    Framing line;
    line.feed({"$AB"});
    line.in([] { KvdLoz6TuGps_serialReceived(nullptr, 5); });
    EXPECT_TRUE(line.node.traces().has("Null pointer passed"));
    EXPECT_EQ(line.feed({"C\r"}), (std::vector<Posted>{{"ABC\r", 4, 18}}));
    EXPECT_EQ(line.counters().numberOfBytesRec, 5u);
}

// ---- the line of a running unit -----------------------------------------------------------------

u32 bytesReceived(bench::GpsUnit& unit)
{
    return unit.node.inProgram([] { return KvdLoz6TuGps_serialCounters().numberOfBytesRec; });
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
    EXPECT_EQ(bytesReceived(unit), 6u);
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
    EXPECT_EQ(bytesReceived(unit), 1u);
}

}  // namespace
