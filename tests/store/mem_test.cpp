// Persistent memory: the service's answers at the start, what outlives what, what is refused.
#include "mem_bench.h"
#include "node/bytes.h"
#include "reg/kvd_reg.h"
#include "sig/tuiif_sig.h"
#include "support/unit_bench.h"

#include <array>
#include <cstring>

using sim::Answer;

namespace {

using Bytes = std::vector<u8>;

/// 456 bytes of a usable history record: version 0x50006, all doubles 0.
Bytes historyRecord()
{
    Bytes record(456);
    record[1] = 5;
    record[3] = 6;
    return record;
}

struct ClientCase { u32 client; const char* region; Bytes data; u32 dataFrom, dataTo; };
std::vector<ClientCase> clients()
{
    Bytes history = historyRecord(), slave(40);
    history[20] = 'T';
    for (u8 i = 8; i < 40; ++i) slave[i] = i;
    return {{1, "TuRegHistData", history, 12, 456},
            {2, "GpsOutMfnOffset", {0, 0, 1, 2, 0, 0, 0, 7, 0, 0, 0, 0}, 0, 8},
            {3, "TuRegNfDataV0", {0, 0, 0, 0, 9, 9, 9, 9, 0xC0, 0x33, 0, 0, 0, 0, 0, 0}, 4, 16},
            {4, "SlaveWarmData", slave, 8, 40}};
}

int write(const ClientCase& c)
{
    return KvdLoz6TuMem_write(c.client, c.data.data(), static_cast<u32>(c.data.size()));
}
/// 1 good and the same data, 0 refused, -1 other data.
int readBack(const ClientCase& c)
{
    Bytes read(c.data.size());
    if (KvdLoz6TuMem_read(c.client, read.data(), static_cast<u32>(read.size())) == 0) return 0;
    const u32 count = c.dataTo - c.dataFrom;
    return std::memcmp(read.data() + c.dataFrom, c.data.data() + c.dataFrom, count) == 0 ? 1 : -1;
}

}  // namespace

TEST(MemNegotiation, EachAnswerLetsTheStartGoOn)
{
    constexpr const char* STARTED = "tuHwIf_initiate coldStart";   // the main processor confirmed
    constexpr const char* ACCEPTED = "Service Request accepted by MSI proxy, sigRev=1, PV=5";
    struct Case {
        const char* when;
        std::function<void(sim::Node&)> script;
        double heldUntil_s;              // the start waits up to here
        double startedBy_s;
        const char* text;
        int ready;                       // regions 3 and 4 by the end
        double end_s = 0;                // looked at then
    };
    using N = sim::Node;
    const Case cases[] = {
        {"accepts", [](N&) {}, 0, 0.5, ACCEPTED, 1},
        {"knows version 4", [](N& n) { n.msi().highestPv = 4; }, 0, 0.5, "sigRev=1, PV=4", 1},
        {"knows version 3", [](N& n) { n.msi().highestPv = 3; }, 0, 0.5, "by MSI proxy, reason=1", 0},
        {"rejects", [](N& n) { n.msi().setAnswer(Answer::Reject); }, 0, 0.5, "by MSI proxy, reason=17", 0},
        {"suspended", [](N& n) { n.msi().setAnswer(Answer::Suspend); }, 0, 0.5, "by MSI proxy, reason=18", 0},
        {"isn't there", [](N& n) { n.msi().die(); }, 0, 0.5, "Unable to obtain contact to MSI proxy", 0},
        {"refuses at first",
         [](N& n) {
             n.msi().setAnswer(Answer::Reject);
             n.after(5 * ose::SEC, [&n] { n.msi().setAnswer(Answer::Accept); });
         }, 0, 0.5, ACCEPTED, 1, 605},
        {"busy for three attempts", [](N& n) { n.msi().setAnswer(Answer::Busy); }, 0.399, 0.4015,
         "Protocol Negotiation failed with MSI proxy, reason=4", 0},
        {"busy for two attempts",
         [](N& n) {
             n.msi().setAnswer(Answer::Busy);
             n.after(300 * ose::MS, [&n] { n.msi().setAnswer(Answer::Accept); });
         }, 0.39, 0.9, ACCEPTED, 1},
        {"late", [](N& n) { n.msi().delay_ms = 2000; }, 1.9, 2.5, ACCEPTED, 1, 7},
        {"dies before its answer",
         [](N& n) {
             n.msi().delay_ms = 2000;
             n.after(ose::SEC, [&n] { n.msi().die(); });
         }, 0.9, 1.5, "Request rejected by MSI proxy, reason=100", 0},
        {"silent", [](N& n) { n.msi().setAnswer(Answer::Silent); }, 9.9, 10.5, "by MSI proxy, reason=101", 0},
        {"too late for the start", [](N& n) { n.msi().delay_ms = 12'000; }, 9.9, 10.5, ACCEPTED, 1, 40},
        {"has no room", [](N& n) { n.msi().room = 15; }, 0, 0.5, "alloc rejected by MSI proxy, reason=2", 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.when);
        bench::Unit u;
        c.script(u.node);
        u.node.powerOn();
        u.run(c.heldUntil_s);
        EXPECT_EQ(u.traced(STARTED), c.heldUntil_s == 0);
        u.run(c.startedBy_s - c.heldUntil_s);
        EXPECT_EQ(u.traces(STARTED), 1u);
        if (c.end_s > c.startedBy_s) u.run(c.end_s - c.startedBy_s);
        EXPECT_TRUE(u.traced(c.text));
        EXPECT_EQ(u.node.mainProcessor().received(KVD_TUIIF_INITIATE_SERVICE_REQ), 1u);
        for (const u32 client : {3u, 4u})
            EXPECT_EQ(u.node.inProgram([&] { return KvdLoz6TuMem_ready(client); }), c.ready);
        if (c.end_s < 40) continue;
        // A regulator that has begun without the region's offset writes its own.
        u8 data[16];
        EXPECT_EQ(u.node.inProgram([&] { return KvdLoz6TuMem_read(3, data, sizeof data); }), 1);
        EXPECT_EQ(node::beDouble(data + 8), u.node.inProgram(KvdLoz6TuReg_sfcGpsOffset));
        EXPECT_NE(node::beDouble(data + 8), 0.0);
    }
}

TEST(MemContent, OutlivesProgramAndBoardButNotPowerOrAWipe)
{
    struct Case { const char* what; void (*happens)(sim::Node&); u32 clear; std::array<int, 4> good; };
    using N = sim::Node;
    for (const Case& c : {
             Case{"program restarted", [](N& n) { n.restart(4); }, 0, {1, 1, 1, 1}},
             Case{"board reset", [](N& n) { n.restart(1); }, 0, {1, 1, 1, 1}},
             Case{"power lost", [](N& n) { n.powerOff(), n.powerOn(); }, 0, {0, 0, 0, 0}},
             Case{"service restarted", [](N& n) { n.restart(4), n.msi().die(), n.msi().start(); }, 0,
                  {1, 1, 1, 1}},
             Case{"wiped", [](N& n) { n.restart(4); }, 1, {0, 0, 1, 1}}}) {
        SCOPED_TRACE(c.what);
        MemBench b;
        b.withRegions([&] {
            for (const ClientCase& k : clients()) EXPECT_EQ(write(k), 1) << k.region;
        });
        c.happens(b.node);
        b.world.runFor(ose::MS);
        b.withRegions([&] {
            for (const ClientCase& k : clients()) EXPECT_EQ(readBack(k), c.good[k.client - 1]) << k.region;
        }, c.clear);
        for (const char* text : {"gpsOutData (mfnOffset=258, mfn=7)", "sfcGpsOffset=-19 ", "size=40 "})
            EXPECT_EQ(b.node.traces().has(text), c.good[1] == 1 || (c.clear == 1 && text[0] == 's')) << text;
    }
}

TEST(MemContent, ReadsThatRepeatAndRecordsThatAreNone)
{
    MemBench b;
    b.withRegions([&] {
        for (const ClientCase& k : clients()) {
            EXPECT_EQ(readBack(k), 0) << k.region << " before the first write";
            EXPECT_EQ(write(k), 1) << k.region;
            EXPECT_EQ(readBack(k), 1) << k.region;
            EXPECT_EQ(readBack(k), k.client == 2 ? 0 : 1) << k.region << " again";
        }
        const u8 nan[] = {0x7F, 0xF8, 0, 0, 0, 0, 0, 0};
        for (const auto& [at, good] : {std::pair{40u, 1}, {48u, 0}, {424u, 0}, {432u, 1}}) {
            Bytes record = historyRecord();
            std::memcpy(record.data() + at, nan, sizeof nan);
            EXPECT_EQ(KvdLoz6TuMem_write(1, record.data(), 456), 1);
            EXPECT_EQ(KvdLoz6TuMem_read(1, record.data(), 456), good) << "not a number at " << at;
        }
        Bytes older = historyRecord();
        older[3] = 5;
        EXPECT_EQ(KvdLoz6TuMem_write(1, older.data(), 456), 1);
        EXPECT_EQ(KvdLoz6TuMem_read(1, older.data(), 456), 0);
    });
}

TEST(MemContent, NothingIsTouchedThatIsntThere)
{
    MemBench b;
    u8 buffer[456] = {};
    b.in([&] {
        for (u32 client = 0; client <= 5; ++client) {
            EXPECT_EQ(KvdLoz6TuMem_read(client, buffer, sizeof buffer), 0);
            EXPECT_EQ(KvdLoz6TuMem_write(client, buffer, sizeof buffer), 0);
            EXPECT_EQ(KvdLoz6TuMem_ready(client), 0);
        }
        KvdLoz6TuMem_allocate(1, 0);
    });
    EXPECT_TRUE(b.node.traces().has("MSI has not yet been initiated"));
    EXPECT_TRUE(b.node.traces().has("Memory allocation is not possible"));

    b.msi().refusedRegions = {"GpsOutV1"};
    b.withRegions([&] {
        EXPECT_EQ(KvdLoz6TuMem_ready(2), 0) << "one of its two regions is missing";
        EXPECT_EQ(KvdLoz6TuMem_write(2, buffer, 12), 0);
        EXPECT_EQ(KvdLoz6TuMem_read(2, buffer, 12), 0);
        EXPECT_EQ(KvdLoz6TuMem_write(4, buffer, 39), 0) << "of another size";
        EXPECT_EQ(KvdLoz6TuMem_write(4, nullptr, 40), 0);
        EXPECT_EQ(KvdLoz6TuMem_write(4, buffer, 40), 1);
        EXPECT_EQ(KvdLoz6TuMem_read(4, buffer, 41), 0);
        EXPECT_EQ(KvdLoz6TuMem_read(4, nullptr, 40), 0);
        EXPECT_EQ(KvdLoz6TuMem_read(5, buffer, 40), 0);
        KvdLoz6TuMem_allocate(5, 0);
    });
    EXPECT_TRUE(b.node.traces().has("Memory alloc rejected by MSI proxy, reason=17"));
    EXPECT_TRUE(b.node.traces().has("GpsOutMfnOffset not written, msiState=1"));
    EXPECT_EQ(b.node.traces().count({"Invalid clientRef=5", "", 4}), 1u);
    EXPECT_EQ(b.node.traces().count({"Invalid clientRef=", "", 4}), 1u);
    EXPECT_EQ(b.bytes("GpsOutMfnOffset"), Bytes(8));
}

TEST(MemContent, AServiceThatFailsLaterKeepsTheOldContent)
{
    struct Case {
        const char* what; void (*fails)(sim::MsiServer&); int written, readable; const char* text;
    };
    for (const Case& c : {
             Case{"rejects", [](sim::MsiServer& m) { m.setAnswer(Answer::Reject); }, 1, 1,
                  "Memory write was rejected by MSI proxy, reason=17"},
             Case{"busy", [](sim::MsiServer& m) { m.setAnswer(Answer::Busy); }, 0, 0,
                  "Memory read failed"},
             Case{"gone", [](sim::MsiServer& m) { m.die(); }, 0, 0, "Memory write failed"}}) {
        SCOPED_TRACE(c.what);
        MemBench b;
        const ClientCase old = clients()[3];
        ClientCase changed = old;
        changed.data[20] = 99;
        b.withRegions([&] {
            EXPECT_EQ(write(old), 1);
            c.fails(b.msi());
            for (const ClientCase& k : {clients()[1], clients()[2], changed})
                EXPECT_EQ(write(k), c.written) << k.region;
            EXPECT_EQ(readBack(old), c.readable);
            MemBench::serve(1);
            b.msi().start();
            b.msi().setAnswer(Answer::Accept);
            EXPECT_EQ(readBack(old), 1) << "and serves it when it is back";
            EXPECT_EQ(write(changed), 1);
            EXPECT_EQ(readBack(changed), 1);
        });
        EXPECT_TRUE(b.node.traces().has(c.text));
    }
}

TEST(MemSlaveWarm, WaitsForItsRegionAndIsStoredOnce)
{
    MemBench b;
    const ClientCase c = clients()[3];
    u8 read[40] = {};
    b.msi().delay_ms = 500;
    b.in([&] {
        KvdLoz6TuMem_initiate();
        EXPECT_EQ(KvdLoz6TuMem_writeSlaveWarm(c.data.data()), 0);
        EXPECT_EQ(KvdLoz6TuMem_readSlaveWarm(read), 0);
        MemBench::serve(2000);
        EXPECT_EQ(KvdLoz6TuMem_readSlaveWarm(read), 1);
        EXPECT_EQ(read[39], 39);
        // A wipe later on doesn't bring it back.
        b.msi().delay_ms = 0;
        KvdLoz6TuMem_allocate(4, 1);
        MemBench::serve();
        EXPECT_EQ(KvdLoz6TuMem_readSlaveWarm(read), 0);
        EXPECT_EQ(KvdLoz6TuMem_writeSlaveWarm(c.data.data()), 1);
        // Asked for again without a wipe, the region is this program's already.
        const u32 asked = b.msi().received(0x60201);
        KvdLoz6TuMem_allocate(4, 0);
        MemBench::serve(650'000);                             // nor after a while
        EXPECT_EQ(b.msi().received(0x60201), asked);
        EXPECT_EQ(KvdLoz6TuMem_readSlaveWarm(read), 1);
    });
    for (const char* text :
         {"Failed to write Slave warm data to MSI memory due to unallocated MSI.",
          "Slave MSI memory read Failed", "Slave MSI memory read SUCCEEDED",
          "Memory allocation data: name=SlaveWarmData, size=40, clientRef=4, clear=T"})
        EXPECT_TRUE(b.node.traces().has(text)) << text;
    EXPECT_EQ(b.node.traces().count({"Updated IDL2 Slave MSI memory"}), 1u);
}
