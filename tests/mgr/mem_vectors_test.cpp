// Check values of the persistent memory regions: checksums, what is accepted, what is written.
#include "mem_bench.h"
#include "support/vectors.h"

using vectors::json;

namespace {

std::vector<u8> hex(const std::string& text)
{
    std::vector<u8> bytes;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2)
        bytes.push_back(static_cast<u8>(std::stoul(text.substr(i, 2), nullptr, 16)));
    return bytes;
}

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

}  // namespace

TEST(MemCheckValues, ChecksumsReadsAndWrites)
{
    TU_LOAD_VECTORS(document, "o05_msi.json");
    MemBench b;
    std::size_t replayed = 0;
    for (const json& v : document["vectors"]) {
        SCOPED_TRACE(v["id"].get<std::string>());
        const std::string kind = v["kind"];
        const u32 client = v["in"]["client"];
        const std::vector<u8> bytes = hex(v["in"].value("region", v["in"].value("data", "")));
        const u32 size = static_cast<u32>(bytes.size());
        if (kind == "checksum") {
            EXPECT_EQ(KvdLoz6TuMem_checksum(client, bytes.data()), v["out"]["sum"].get<u32>());
        } else if (kind == "verify") {
            put(b.msi(), client, bytes);
            b.node.restart(4);
            int ok = -1;
            std::vector<u8> read(bytes.size());
            b.withRegions([&] { ok = KvdLoz6TuMem_read(client, read.data(), size); });
            EXPECT_EQ(ok, v["out"]["ok"].get<int>());
        } else if (kind == "write") {
            b.node.restart(4);
            b.withRegions([&] {
                EXPECT_EQ(KvdLoz6TuMem_write(client, bytes.data(), size), 1);
            });
            EXPECT_EQ(get(b, client), hex(v["out"]["region"]));
        } else {
            ADD_FAILURE() << "unknown kind " << kind;
            continue;
        }
        ++replayed;
    }
    EXPECT_EQ(replayed, document["count"].get<std::size_t>());
}
