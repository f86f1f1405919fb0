// captures.h - Packets of recorded pcapng files, read at run time from a folder outside the tree. The folder
// is $TU_DATA, else "shared/data" in a folder above this source. Tests that find no file are skipped with a
// clear line.
#pragma once
#include "ose/types.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace captures {

struct Packet {
    std::vector<u8> bytes;
};

inline std::filesystem::path folder()
{
    namespace fs = std::filesystem;
    if (const char* given = std::getenv("TU_DATA")) return fs::is_directory(given) ? given : "";
    std::error_code ignored;
    for (fs::path at = fs::absolute(__FILE__).parent_path();; at = at.parent_path()) {
        if (fs::is_directory(at / "shared" / "data", ignored)) return at / "shared" / "data";
        if (at == at.parent_path()) return {};
    }
}

/// Packets of a little-endian pcapng file in order. False when there is no such file.
inline bool load(const std::string& name, std::vector<Packet>& packets)
{
    const std::filesystem::path dir = folder();
    if (dir.empty()) return false;
    std::ifstream in(dir / name, std::ios::binary);
    if (!in) return false;
    const std::vector<u8> file((std::istreambuf_iterator<char>(in)), {});
    const auto word = [&](std::size_t at) {
        u32 value = 0;
        if (at + 4 <= file.size()) std::memcpy(&value, &file[at], 4);
        return value;
    };
    constexpr u32 ENHANCED_PACKET_BLOCK = 6;
    constexpr std::size_t LENGTH_AT = 20, BYTES_AT = 28, BLOCK_MIN = 12;
    for (std::size_t at = 0; at + BLOCK_MIN <= file.size();) {
        const u32 size = word(at + 4);
        if (size < BLOCK_MIN || size > file.size() - at) break;
        const u32 length = word(at + LENGTH_AT);
        if (word(at) == ENHANCED_PACKET_BLOCK && BYTES_AT + length <= size)
            packets.push_back({{file.begin() + static_cast<std::ptrdiff_t>(at + BYTES_AT),
                                file.begin() + static_cast<std::ptrdiff_t>(at + BYTES_AT + length)}});
        at += size;
    }
    return true;
}

}  // namespace captures
