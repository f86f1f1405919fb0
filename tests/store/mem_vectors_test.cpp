// Check values of the persistent memory regions: checksums, what is accepted, what is written.
#include "mem_bench.h"
#include "support/vectors.h"

using vectors::Value;

namespace {

/// A client's bytes into its region or regions.
void put(sim::MsiServer& msi, u32 client, std::span<const u8> bytes)
{
    constexpr const char* NAMES[] = {"TuRegHistData", "GpsOutMfnOffset", "TuRegNfDataV0",
                                     "SlaveWarmData"};
    msi.put(NAMES[client - 1], client == MEM_GPS_OUT ? bytes.first(8) : bytes);
    if (client == MEM_GPS_OUT) msi.put("GpsOutV1", bytes.subspan(8));
}

std::vector<u8> get(MemBench& b, u32 client)
{
    switch (client) {
    case MEM_REG_HIST: return b.bytes("TuRegHistData");
    case MEM_REG_NF:   return b.bytes("TuRegNfDataV0");
    case MEM_GPS_OUT: {
        std::vector<u8> both = b.bytes("GpsOutMfnOffset");
        const std::vector<u8> sum = b.bytes("GpsOutV1");
        both.insert(both.end(), sum.begin(), sum.end());
        return both;
    }
    default: return b.bytes("SlaveWarmData");
    }
}

void checksum(const Value& v)
{
    EXPECT_EQ(KvdLoz6TuMem_checksum(v["in"]["client"].get<u32>(), vectors::bytes(v["in"]["region"]).data()),
              v["out"]["sum"].get<u32>());
}

void verify(const Value& v)
{
    MemBench b;
    const u32 client = v["in"]["client"].get<u32>();
    const std::vector<u8> region = vectors::bytes(v["in"]["region"]);
    put(b.msi(), client, region);
    b.node.restart(4);
    int ok = -1;
    std::vector<u8> read(region.size());
    b.withRegions([&] { ok = KvdLoz6TuMem_read(client, read.data(), static_cast<u32>(read.size())); });
    vectors::expectOut(v, "ok", ok);
}

void writing(const Value& v)
{
    MemBench b;
    const u32 client = v["in"]["client"].get<u32>();
    const std::vector<u8> data = vectors::bytes(v["in"]["data"]);
    b.node.restart(4);
    const u32 size = static_cast<u32>(data.size());
    b.withRegions([&] { EXPECT_EQ(KvdLoz6TuMem_write(client, data.data(), size), 1); });
    EXPECT_EQ(get(b, client), vectors::bytes(v["out"]["region"]));
}

}  // namespace

TEST(MemCheckValues, ChecksumsReadsAndWrites)
{
    const vectors::Kinds kinds = {{"checksum", checksum}, {"verify", verify}, {"write", writing}};
    vectors::Document document("o05_msi.json");
    vectors::each(document["vectors"], [&](const Value& v) {
        vectors::dispatch(kinds, v["kind"].get<std::string>(), v);
    });
}
