#include "sim/node/parameters.h"

#include <cmath>
#include <cstdio>
#include <cstring>

namespace sim {

namespace {

constexpr int NO_PARAMETER = 1;
constexpr u32 BVF4_WINDOW = 0x70000;      // where the timing unit's registers begin in that FPGA

enum BootResult : int { BOOT_DONE, BOOT_NO_SERVER, BOOT_NO_PARAMETER, BOOT_TOO_LARGE, BOOT_NONSENSE };

u32 codeOfType(u32 boardType)
{
    if (boardType == 1) return 7;
    return boardType == 2 ? 9 : 0;
}

std::string hex(u32 address)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", address);
    return text;
}

}  // namespace

std::map<std::string, std::string> Parameters::boardDefaults(u32 boardType, const BoardConfig& board)
{
    std::map<std::string, std::string> texts{
        {"bvqmodule", "ZTM 600 145/32"},
        {"productnumber", "YCA 350 208/1"},
        {"productrevision", board.extPhaseDetector ? "P3A" : "P2A"},
        {"pp1s_board_delay_to_latch", std::to_string(std::lround(board.latchDelay_ns))},
    };
    if (boardType == 2) {
        texts["zfb/hw/fpga/bvf4/base"] = hex(board.baseB - BVF4_WINDOW);
        texts["zfb/hw/fpga/moka/tu_clk_sys/base"] = hex(board.baseC);
        texts["zfb/hw/fpga/moka/base"] = hex(board.baseD);
    }
    return texts;
}

Parameters::Parameters(const NodeConfig& config)
    : code(config.boardCode != 0 ? config.boardCode : codeOfType(config.boardType)),
      boardTexts(config.boardParameters), bootTexts(config.bootParameters)
{
    boardTexts.merge(boardDefaults(config.boardType, config.board));
    std::erase_if(boardTexts, [](const auto& entry) { return entry.second == "-"; });
}

int Parameters::boardCode(u32& to)
{
    if (adiResult != 0) return adiResult;
    to = code;
    return 0;
}

int Parameters::board(const char* name, char* text, std::size_t size)
{
    const auto found = boardTexts.find(name);
    if (found == boardTexts.end() || found->second.size() + 1 > size) return NO_PARAMETER;
    std::memcpy(text, found->second.c_str(), found->second.size() + 1);
    return 0;
}

int Parameters::boot(const char* name, char* text, std::size_t size)
{
    ++bootAttempts;
    if (bootServerMissing > 0) {
        --bootServerMissing;
        return BOOT_NO_SERVER;
    }
    if (bootNonsense > 0) {
        --bootNonsense;
        return BOOT_NONSENSE;
    }
    const auto found = bootTexts.find(name);
    if (found == bootTexts.end()) return BOOT_NO_PARAMETER;
    if (found->second.size() + 1 > size) return BOOT_TOO_LARGE;
    std::memcpy(text, found->second.c_str(), found->second.size() + 1);
    return BOOT_DONE;
}

}  // namespace sim
