// What goes to the receiver: pacing, the queue's limits, who is sent what, the reset sequences.
#include "gps/kvd_gps_send.h"
#include "tests/gps/gps_line.h"

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

GpsSendCounters counters(GpsLine& unit)
{
    return unit.node.inProgram([] { return KvdLoz6TuGps_sendCounters(); });
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
    EXPECT_EQ(counters(unit).numberOfBytesQueued, 13u);
    EXPECT_EQ(counters(unit).numberOfBytesSent, 13u);

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

TEST(Sending, WritesAFullQueueAtOnceAndNeverOverrunsIt)
{
    GpsLine unit(GPSS_FURUNO_GPS02, "120510");
    const std::string most(900, 'a');
    EXPECT_EQ(queue(unit, most), 1);
    EXPECT_EQ(queue(unit, std::string(39, 'b')), 1);
    unit.run(0.0);
    EXPECT_EQ(unit.sent, Writes{});
    EXPECT_EQ(queue(unit, "c"), 1);            // 940 would leave no room for the end of text
    unit.run(0.0);
    EXPECT_EQ(unit.takeSent(), Writes{most + std::string(39, 'b')});
    EXPECT_EQ(queue(unit, std::string(940, 'd')), 0);
    EXPECT_EQ(unit.traces("Not enough space left in send to GPS buffer"), 1u);
    unit.run(0.0);
    EXPECT_EQ(unit.takeSent(), Writes{"c"});

    // A running sequence comes first: the queue can't be emptied.
    unit.in([] { KvdLoz6TuGps_startGps02Reset(GPS02_CLEAR, false); });
    EXPECT_EQ(queue(unit, most), 1);
    EXPECT_EQ(queue(unit, std::string(40, 'e')), 0);
    EXPECT_EQ(unit.traces("Not enough space left in send to GPS buffer"), 2u);
    EXPECT_EQ(queue(unit, std::string(39, 'f')), 1);
    unit.run(25.0);
    EXPECT_EQ(unit.sent.back(), most + std::string(39, 'f'));
}

TEST(Sending, LosesWhatTheLineRefusesAndGoesOn)
{
    GpsLine unit(GPSS_FURUNO_GPS02, "120510");
    unit.node.serial().writeResult = 5;
    queue(unit, "$A\r\n");
    unit.run(3.0);
    EXPECT_EQ(unit.traces("Failed to send \"$A\r\n\" to GPS"), 1u);
    EXPECT_EQ(counters(unit).numberOfBytesSent, 0u);
    unit.node.serial().writeResult = 0;
    queue(unit, "$B\r\n");
    unit.run(1.0);
    EXPECT_EQ(unit.sent, Writes{"$B\r\n"});
}

TEST(Sending, GivesAGps01OnlyWhatTheOperatorOrders)
{
    GpsLine unit(GPSS_UNKNOWN);
    queue(unit, "$early\r\n");                 // before its kind is known
    unit.setType(GPSS_FURUNO);
    EXPECT_EQ(queue(unit, "$unasked\r\n"), 0);
    unit.run(2.0);
    EXPECT_EQ(unit.sent, Writes{});
    EXPECT_EQ(unit.traces("GPS01 Furuno but coli command isn't executed"), 2u);
    unit.in([] { EXPECT_EQ(KvdLoz6TuGps_queueOrdered("$order\r\n", 8), 1); });
    unit.run(1.0);
    EXPECT_EQ(unit.takeSent(), Writes{"$early\r\n$order\r\n"});
    EXPECT_EQ(queue(unit, "$again\r\n"), 0);   // the order was for that write alone
}

TEST(Reset, PushesTwentyFillersThroughTheReceiversBuffer)
{
    const std::string filler = "$PNVX,x,x,x," + std::string(65, '\0') + "*50\r\n";
    ASSERT_EQ(filler.size(), 82u);
    struct Case { const char* what; u32 step; bool debug; Writes end; u32 srt, debugG; };
    const Case cases[] = {
        {"clear", GPS02_CLEAR, false, {}, 0, 0},
        {"clear and reset", GPS02_CLEAR_AND_RESET, false, {"$PTNLSRT,C,0*20\r\n"}, 1, 0},
        {"with debug", GPS02_CLEAR_AND_RESET, true,
         {"$PTNLSRT,C,0*20\r\n", "$PNVX,GPdbg,g*01\r\n"}, 1, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        GpsLine unit(GPSS_FURUNO_GPS02, "110624");
        unit.in([&] { KvdLoz6TuGps_startGps02Reset(c.step, c.debug); });
        queue(unit, "$waits\r\n");
        unit.run(20.0);
        EXPECT_EQ(unit.takeSent(), Writes(20, filler));
        unit.run(5.0);
        Writes end = c.end;
        end.push_back("$waits\r\n");
        EXPECT_EQ(unit.takeSent(), end);
        EXPECT_EQ(counters(unit).numberOfPTNLSRT, c.srt);
        EXPECT_EQ(counters(unit).numberOfPNVXGPdbgG, c.debugG);
    }
}

TEST(Restart, FitsTheFirmware)
{
    struct Case { const char* firmware; int result; Writes sent; int hrvResult; };
    const Case cases[] = {
        {"", 0, {}, 0},
        {"120510", 1, {"$PNVX,GPdbg,r,i*51\r\n$PNVX,GPdbg,r,o*57\r\n$PNVX,GPdbg,r,s*4B\r\n"}, 1},
        {"130101", 1, {"$PNVX,GPrst,S,1*3C\r\n"}, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.firmware);
        GpsLine unit(GPSS_FURUNO_GPS02, c.firmware);
        unit.in([&] {
            EXPECT_EQ(KvdLoz6TuGps_GpsFwRestart(), c.result);
            EXPECT_EQ(KvdLoz6TuGps_resetHrv(), c.hrvResult);
        });
        unit.run(1.0);
        EXPECT_EQ(unit.takeSent(), c.sent);
        const u32 newest = c.hrvResult == 1 ? 1 : 0;
        EXPECT_EQ(counters(unit).numberOfPNVXGPdbgRI, newest);
        EXPECT_EQ(counters(unit).numberOfPNVXGPdbgRO, newest);
        EXPECT_EQ(counters(unit).numberOfPNVXGPdbgRS, newest);
        EXPECT_EQ(counters(unit).numberOfPNVXGPrst, std::string(c.firmware) == "130101" ? 1u : 0u);

        // Another unit's output isn't restarted.
        unit.setType(GPSS_NORVANE);
        unit.in([&] { EXPECT_EQ(KvdLoz6TuGps_sendOneShot("PTNLQBA", true), 0); });
        EXPECT_EQ(unit.traces("GpsFwRestart not initiated!"), 1u);
    }
}

}  // namespace
