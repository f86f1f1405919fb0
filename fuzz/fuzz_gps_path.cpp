// The whole way of a GPS reference's signals: bytes in pieces on the serial line, sentences whole
// and damaged, time that passes, a 1PPS that comes and goes, in a running unit that supervises and
// selects the receiver. The kernel isn't misused, the state stays one of the known, the program lives
// on, and good sentences bring the reference back to a valid time.
#include "fuzz/fuzz.h"
#include "sig/ref_types.h"
#include "sim/board/board.h"
#include "sim/refs/line_source.h"
#include "unit/kvd_gps_state.h"

#include <string>

namespace {

using fuzz::require;

sim::NodeConfig config()
{
    sim::NodeConfig c;
    c.mainProcessor.references.push_back({"gps", GPS_REF, 0, 3});
    return c;
}

/// A unit that serves many inputs; after so many it begins anew.
struct Target {
    ose::World world{1};
    sim::Node node{world, config()};
    sim::LineSource pps{world, sim::LineConfig{}, sim::PPS_RATE_Hz, 1, "pps"};
    u32 tow = 0;

    Target()
    {
        fuzz::watch(world, node);
        node.board().connect(sim::ReferenceInput::Pps, &pps);
        node.powerOn();
        world.runFor(5 * ose::SEC);
    }
    u32 gpsState() { return node.inProgram(KvdLoz6TuGps_gpsState); }
};

// What receivers say. Damage is done to these, so that it reaches behind address and checksum.
constexpr const char* SENTENCES[] = {
    "GPGGA,123519,4807.0380,N,01131.0000,E,1,08,000.9,000545.4,M,0046.9,M,,",
    "GPGSA,A,3,04,05,,09,12,,,24,,,,,002.5,001.3,002.1",
    "GPGSV,3,1,11,03,03,111,00,04,15,270,00,06,01,010,00,13,06,292,00",
    "GPGSV,1,1,04,01,40,083,46,02,17,308,41,12,07,344,40,14,22,228,45",
    "GPGSV,1,1,03,01,00,083,46,02,17,000,41,03,00,000,44",
    "GLGSV,2,1,06,65,40,083,46,66,17,308,41,78,07,344,39,79,22,228,45",
    "PFEC,GPtps,230115120000,2,1,2,000000000000,18,18,230115120000,2245,000069",
    "PFEC,GPanc,2301151200000,00000000000000000000000000000000",
    "PNVX,GPppr,000116,02245,00000,00,0,0",
    "PNVX,GPppr,000117,02245,00000,00,3,1",
    "PNVX,GPsts,2,1,0,00001",
    "PNVX,GPsts,0,0,0,00002",
    "PNVX,GPver,GRM,NUMBER,R1A,120510",
    "PNVX,GPver,GRM,NUMBER,R1A,110624",
    "PNVX,GPavp,4807.0380,N,01131.0000,E,000545.4,0",
    "PNVX,GPout,11,0,2,1,1,0",
    "PTNLRBA,0,1",
    "PTNLRVR,H,3001,RES SMT,12345678,12,31,2011,9",
    "PTNLRVR,S,1,7,0,11,24,2011",
};

std::string framed(const std::string& body)
{
    u32 sum = 0;
    for (const char c : body) sum ^= static_cast<unsigned char>(c);
    char end[8];
    std::snprintf(end, sizeof end, "*%02X\r\n", sum & 0xFF);
    return "$" + body + end;
}

/// The bytes of an input, zeros behind its end.
struct Input {
    std::span<const unsigned char> rest;
    bool empty() const { return rest.empty(); }
    u8 next()
    {
        if (rest.empty()) return 0;
        const u8 byte = rest[0];
        rest = rest.subspan(1);
        return byte;
    }
};

void feedRaw(Target& t, Input& in)
{
    const std::size_t wanted = in.next() % 64;
    const std::size_t count = std::min(wanted, in.rest.size());
    t.node.serial().feed(in.rest.data(), count);
    in.rest = in.rest.subspan(count);
}

/// A sentence with up to seven characters replaced, put in or taken out; the checksum fits, but for
/// one in eight.
void feedDamaged(Target& t, Input& in, u8 choice)
{
    std::string body = SENTENCES[in.next() % std::size(SENTENCES)];
    for (u32 n = choice & 7; n > 0; --n) {
        const std::size_t at = in.next() % body.size();
        const char byte = static_cast<char>(in.next());
        switch (in.next() % 4) {
        case 0:  body.insert(at, 1, byte);                       break;
        case 1:  if (body.size() > 1) body.erase(at, 1);         break;
        case 2:  body[at] = static_cast<char>('0' + (byte & 7)); break;
        default: body[at] = byte;                                break;
        }
    }
    std::string text = framed(body);
    if ((in.next() & 7) == 0) text[1] = static_cast<char>(text[1] ^ 1);
    t.node.serial().feed(text);
}

void step(Target& t, Input& in)
{
    const u8 op = in.next();
    switch (op & 7) {
    case 0:  feedRaw(t, in);                                                          break;
    case 1:  t.pps.setPresent((op & 8) != 0);                                         break;
    case 2:  t.world.runFor((op & 8) != 0 ? (in.next() & 63) * ose::SEC : 0);         break;
    case 3:  t.node.serial().writeResult = op >> 6 == 3 ? 1 : 0;                      break;
    default: feedDamaged(t, in, op >> 3);                                             break;
    }
    t.world.runFor((op >> 3) * 20 * ose::MS);
    const u32 gpsState = t.gpsState();
    require(gpsState >= GPS_UN_INIT && gpsState <= GPS_OPERATIONAL_WITH_VALID_TIME,
            "gpsState is none of the known");
}

/// A healthy receiver: status and time each second.
void recover(Target& t)
{
    t.node.serial().writeResult = 0;
    t.node.serial().feed("\r\n");
    for (u32 n = 0; n < 12; ++n) {
        char body[48];
        std::snprintf(body, sizeof body, "PNVX,GPppr,%06u,02245,00000,00,0,0", t.tow++ % 604'800);
        t.node.serial().feed(framed("PNVX,GPsts,2,2,0,00001") + framed(body));
        t.world.runFor(700 * ose::MS);
        if (t.gpsState() == GPS_OPERATIONAL_WITH_VALID_TIME) return;
    }
    require(false, "good sentences don't bring the time back");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    constexpr u32 INPUTS_A_UNIT = 1000;
    Target& target = fuzz::serving<Target>(INPUTS_A_UNIT);
    Input in{{data, size}};
    while (!in.empty()) step(target, in);
    recover(target);
    require(target.node.programEnds().empty(), "the program ended");
    return 0;
}
