// Captures of any content: one is read or refused with a line that names it, and what is found of PTP in it
// lies within its packet. The bytes lie in a buffer of their own size.
#include "app/pcap_file.h"
#include "fuzz/wire_inputs.h"

#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

using Bytes = std::vector<u8>;

/// Heads of good files, so that inputs come past the first look.
const Bytes HEADS[] = {
    {},
    {0xD4, 0xC3, 0xB2, 0xA1, 2, 0, 4, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0, 0, 1, 0, 0, 0},
    {0xA1, 0xB2, 0x3C, 0x4D, 0, 2, 0, 4, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0, 0, 0, 1},
    {0x0A, 0x0D, 0x0D, 0x0A, 28, 0, 0, 0, 0x4D, 0x3C, 0x2B, 0x1A, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
     28,   0,    0,    0,    1,  0, 0, 0, 20,   0,    0,    0,    1, 0, 0, 0, 0, 0, 0, 0, 20, 0, 0, 0},
};

void readFile(const Bytes& file)
{
    try {
        for (const app::PcapPacket& p : app::parsePcap(file, "f")) {
            const auto c = app::ptpOf(p);
            if (!c) continue;
            const std::size_t size = c->packet.bytes.size();
            if (c->messageAt > size || size > p.frame.size()) std::abort();
        }
    } catch (const app::PcapError& e) {
        if (std::strncmp(e.what(), "f: ", 3) != 0) std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    if (size < 2) return 0;
    Bytes file = HEADS[data[0] % std::size(HEADS)];
    const Bytes rest(data + 1, data + size);
    file.insert(file.end(), rest.begin(), rest.end());
    readFile(file);
    // The rest as one good block or record, so that what it holds is looked at too.
    file = HEADS[2];
    for (const std::size_t word : {std::size_t{0}, std::size_t{0}, rest.size(), rest.size()})
        for (int shift = 24; shift >= 0; shift -= 8) file.push_back(static_cast<u8>(word >> shift));
    const Bytes frame = fuzz::frameOf(rest, data[0] >> 6);
    file.insert(file.end(), frame.begin(), frame.end());
    readFile(file);
    return 0;
}
