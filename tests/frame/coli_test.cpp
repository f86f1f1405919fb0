// The operator's commands: arguments, result codes, effects.
#include "sim/board/board.h"
#include "tests/support/unit_bench.h"

#include <gmock/gmock.h>

namespace {

using testing::HasSubstr;
using testing::Not;

struct Operator : bench::Unit {
    Operator()
    {
        node.powerOn();
        run(5);
    }
    /// Result of a line; its output stays in `text`.
    int type(const std::string& line) { return command(line, text); }
    std::string text;
};

/// A line with its result and a part of what it prints ("" is nothing).
struct Case { const char* line; int result; const char* output; };

void expectAll(Operator& op, std::initializer_list<Case> cases)
{
    for (const Case& c : cases) {
        SCOPED_TRACE(c.line);
        EXPECT_EQ(op.type(c.line), c.result);
        if (*c.output == '\0') EXPECT_EQ(op.text, "");
        else                   EXPECT_THAT(op.text, HasSubstr(c.output));
    }
}

TEST(Kvdinfo, PrintsASectionOrAllButMemory)
{
    Operator op;
    expectAll(op, {{"kvdinfo", 20, "kvdinfo tugps_osl - prints out data for tugps osl\n"},
                   {"kvdinfo nonsense", 20, "\nkvdhist all - prints all trace history"},
                   {"kvdinfo tumgr", 0, "   temiRestartType    : COLDWTEST_POWERON (0)\r\n"},
                   {"kvdinfo tumem", 0, "clientRef=3 size=16 address=0x40001000 alloc\n"},
                   {"kvdhist socpri_supervision 6", 20, "kvdinfo all"},
                   {"kvdhist socpri_supervision 5", 0, "SoCPRI supervision history:"},
                   {"kvdhist all all", 20, "kvdinfo all"}});
    EXPECT_EQ(op.type("kvdinfo all"), 0);
    EXPECT_THAT(op.text, HasSubstr("tumgr_proc related data"));
    const std::size_t memory = op.text.find("***** Persistent memory *****");
    EXPECT_NE(memory, std::string::npos) << "with the manager's section";
    EXPECT_EQ(op.text.find("***** Persistent memory *****", memory + 1), std::string::npos);
}

TEST(Kvdsetfsyncreg, AppliesSettingsAndStoresOnlyWithTheRepeatFlag)
{
    Operator op;
    sim::Volumes& volumes = op.node.volumes();
    constexpr const char* FILE = "/d/kvdsetfsyncreg.txt";
    EXPECT_EQ(op.type("kvdsetfsyncreg on"), 0);
    EXPECT_EQ(volumes.exists(FILE), 0);
    EXPECT_EQ(op.type("kvdsetfsyncreg on true"), 0);
    std::string stored;
    ASSERT_EQ(volumes.read(FILE, stored), 0);
    EXPECT_EQ(stored, "kvdsetfsyncreg on true ");
    EXPECT_EQ(op.type("kvdsetfsyncreg on 40"), 0);           // an interval, no repeat rule
    EXPECT_EQ(volumes.exists(FILE), 1);
    EXPECT_EQ(op.type("kvdsetfsyncreg off false"), 0);
    EXPECT_EQ(volumes.exists(FILE), 0);
    EXPECT_THAT(op.text, HasSubstr("will not be re-executed after node restart\n"));
    volumes.writeFails = true;
    EXPECT_EQ(op.type("kvdsetfsyncreg on 60 BFN rising true"), 0);
    EXPECT_THAT(op.text, HasSubstr("kvdsetfsyncreg.txt file cannot be found\n"));
    volumes.writeFails = false;
    expectAll(op, {{"kvdsetfsyncreg", 20, "usage:\nBVQ1: kvdsetfsyncreg [on |off] [true|false]\n"},
                   {"kvdsetfsyncreg maybe", 20, "on = 40 ms, off = 40960ms."},
                   {"kvdsetfsyncreg on 50", 20, "Invalid last argument"},
                   {"kvdsetfsyncreg 40 40 BFN", 20, "Parameter [on|off] must always be specified."},
                   {"kvdsetfsyncreg on 50 BFN", 20, "Invalid FSYNC transmit interval. Value is not changed."},
                   {"kvdsetfsyncreg on 60 XXX", 20, "Invalid FSYNC pattern. Pattern is not changed."},
                   {"kvdsetfsyncreg on 60 off up", 20, "Invalid FSYNC phase alignment."},
                   {"kvdsetfsyncreg on 60 off rising perhaps", 20, "Invalid last argument.\n"},
                   {"kvdsetfsyncreg a b c d e f", 0, "usage:"}});
}

TEST(Genwander, ChecksItsRangesAndStartsAndStops)
{
    Operator op;
    expectAll(op, {{"genwander", 0, "genwander <frequency [mHz]> <amplitude [ns]>"},
                   {"genwander 0 100", 20, "Invalid frequency, expected 1 - 10'000 mHz\n"},
                   {"genwander 10001 100", 20, "Invalid frequency, expected 1 - 10'000 mHz\n"},
                   {"genwander 10 1000001", 20, "Invalid amplitude, expected 0 - 1'000'000 mHz\n"},
                   {"genwander 10", 20, "Invalid number of arguments, expected 2 or 3\n"},
                   {"genwander 10 100 1 1", 20, "Invalid number of arguments, expected 2 or 3\n"},
                   {"genwander 10 100 nan", 20, "genwander <frequency [mHz]>"},
                   {"genwander 10 100 1e999", 20, "genwander <frequency [mHz]>"},
                   {"genwander 10 100", 0, ""}});
    op.run(0.1);
    EXPECT_TRUE(op.traced("Starting wander generation, frequency= 10, amplitude= 100, offset= 0"));
    EXPECT_EQ(op.type("genwander 10 0 1.5"), 0);             // offset alone keeps it running
    op.run(0.1);
    EXPECT_FALSE(op.traced("Wander generation stopped."));
    EXPECT_EQ(op.type("genwander 10 0"), 0);
    op.run(0.1);
    EXPECT_TRUE(op.traced("Wander generation stopped."));
}

TEST(ClientCommands, KeepTheirRulesOfUse)
{
    Operator op;
    expectAll(op, {{"kvdconfigtimeacc set 1000", 20, "Usage: kvdconfigtimeacc enable "},
                   {"kvdconfigtimeacc enable", 0, "Auto sending of real time accuracy is now disabled, "},
                   {"kvdconfigtimeacc set 0", 20, "must be a number in the range of 1 to 10 000"},
                   {"kvdconfigtimeacc set 10001", 20, "Time accuracy must be a number"},
                   {"kvdconfigtimeacc set 1000", 0, ""},
                   {"kvdconfigtimeacc disable", 0, ""},
                   {"kvdholdoverthr to 0", 20, "Usage: kvdholdoverthr"},
                   {"kvdholdoverthr freq 30", 0, ""},
                   {"kvdholdoverthr", 0, "freq : 30 min"},
                   {"kvdholdoverthr freq d", 0, ""},
                   {"kvdholdoverthr", 0, "freq : none"},
                   {"kvdremovetime", 10, "not currently in TIME HOLDOVER mode"},
                   {"kvdsetcallimit 61", 20, "[days] are in range from 0 to 60"},
                   {"kvdsetcallimit 60", 0, "Calibration Expiration Limit set to 60 days\n"},
                   {"kvdwritehist flash", 0, "Not possible to force writing of hist data, no selected ref\n"},
                   {"kvdselectregref eth_b", 0, "Setting TU_ETH_REF in tureg and HALI_ETH_REF_B in tuhwif"},
                   {"kvdprodtest mokatestbus on", 0, "Not enabled or disabled\n"},
                   {"kvdprodtest mokatestbus enable", 0, "MokaTestBus enabled"},
                   {"genpdv ptp_t uplink", 20, "Invalid number of arguments, expected 2 or 3\n"},
                   {"genpdv ntp uplink enable", 0, ""},
                   {"kvdpdvthr", 0, "   Packet Time :     100000 (1588J3)\n"},
                   {"kvdpdvthr ntp 0", 20, "or 'd' for setting the default value"},
                   {"kvdpdvthr ntp 4294967296", 20, "Usage: kvdpdvthr"},
                   {"kvdpdvthr ntp 017", 0, ""},
                   {"kvdpdvthr", 0, "   NTP         :         15\n"},
                   {"kvdpdvthr ntp 0x1G", 20, "Usage: kvdpdvthr"},
                   {"kvdpdvthr ntp 0x1F", 0, ""},
                   {"kvdpdvthr", 0, "   NTP         :         31\n"},
                   {"kvdpdvthr ntp d", 0, ""},
                   {"kvdpdvthr", 0, "   NTP         :   15000000\n"},
                   {"genhptsisource 5", 20, "Usage: genhptsisource"},
                   {"genhptsisource 0x", 20, "Usage: genhptsisource"},
                   {"genhptsisource 0x04", 0, "genhptsisource enabled"},
                   {"socpritogreg", 0, "Usage: socpritogreg [on | cv | off | current]\n"},
                   {"socpritogreg on off", 20, "Invalid number of arguments, expected 2\n"},
                   {"socpritogreg cv", 0, "Regulation mode is now set to: HOLDOVER WITH VECTOR\n"},
                   {"socpritogreg current", 0, "Current regulation mode is - HOLDOVER WITH VECTOR\n"},
                   {"socpritogreg off", 0, "Regulation mode is now set to: OFF\n"},
                   {"socpritogreg on", 0, "Regulation mode is now set to: ON\n"},
                   {"kvdsetcallimit -1", 20, "Usage: kvdsetcallimit [days]\n"},
                   {"kvdsetcallimit 6x", 20, "Usage: kvdsetcallimit [days]\n"},
                   {"freerunning", 0, ""},
                   {"kvdreadhist", 0, "\n***** History on flash *****\n   none\n"},
                   {"kvdwritehist disk", 0, ""},              // a reference is selected since eth_b
                   {"kvdwritehist msi", 0, "Forced writing of historical data to msi"}});
}

}  // namespace
