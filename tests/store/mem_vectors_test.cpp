// Check values of the persistent memory regions: checksums, what is accepted, what is written.
#include "mem_bench.h"
#include "support/vectors.h"

using vectors::Value;

namespace {

constexpr std::array<const char*, 4> NAMES = {"TuRegHistData", "GpsOutMfnOffset", "TuRegNfDataV0",
                                              "SlaveWarmData"};

/// A client's bytes into its region or regions.
void put(sim::MsiServer& msi, u32 client, std::span<const u8> bytes)
{
    msi.put(NAMES.at(client - 1), client == MEM_GPS_OUT ? bytes.first(8) : bytes);
    if (client == MEM_GPS_OUT) msi.put("GpsOutV1", bytes.subspan(8));
}

std::vector<u8> get(MemBench& b, u32 client)
{
    std::vector<u8> bytes = b.bytes(NAMES.at(client - 1));
    const std::vector<u8> sum = client == MEM_GPS_OUT ? b.bytes("GpsOutV1") : std::vector<u8>{};
    bytes.insert(bytes.end(), sum.begin(), sum.end());
    return bytes;
}

void checksum(const Value& v)
{
    const u32 sum = KvdLoz6TuMem_checksum(v["in"]["client"], vectors::bytes(v["in"]["region"]).data());
    vectors::expect("sum", sum, v["out"]["sum"]);
}

void verify(const Value& v)
{
    MemBench b;
    const u32 client = v["in"]["client"];
    std::vector<u8> region = vectors::bytes(v["in"]["region"]);
    put(b.msi(), client, region);
    b.node.restart(4);
    int ok = -1;
    std::vector<u8> read(region.size());
    b.withRegions([&] { ok = KvdLoz6TuMem_read(client, read.data(), static_cast<u32>(read.size())); });
    vectors::expectOut(v, "ok", ok);
    if (client == MEM_SLAVE_WARM && ok == 0) std::fill_n(region.begin(), 4, u8{0});   // its sum is forgotten
    EXPECT_EQ(get(b, client), region);
}

void writing(const Value& v)
{
    MemBench b;
    const u32 client = v["in"]["client"];
    const std::vector<u8> data = vectors::bytes(v["in"]["data"]);
    b.node.restart(4);
    const u32 size = static_cast<u32>(data.size());
    b.withRegions([&] { EXPECT_EQ(KvdLoz6TuMem_write(client, data.data(), size), 1); });
    EXPECT_EQ(get(b, client), vectors::bytes(v["out"]["region"]));
}

}  // namespace

TEST(MemCheckValues, ChecksumsReadsAndWrites)
{
    vectors::Document document("o05_msi.json");
    vectors::eachKind(document["vectors"], {{"checksum", checksum}, {"verify", verify}, {"write", writing}});
}
