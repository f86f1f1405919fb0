// kvd_hwif.cpp - Board type, register map, start-up of the hardware.
#include "hw/kvd_hwif.h"
#include "hw/kvd_hwif_priv.h"

#include "base/trace_groups.h"
#include "hw/kvd_hwif_upcalls.h"
#include "node/mmio.h"
#include "node/trace.h"
#include "ose/module_data.h"

#include <cstdlib>
#include <string_view>

using namespace hwif;

namespace {

constexpr u32 BOARD_CODE_TYPE1 = 7;
constexpr u32 BOARD_CODE_TYPE2 = 9;
constexpr std::size_t PARAMETER_SIZE = 16;   // text of a base address, bytes

struct State {
    std::optional<u32> boardType;
    BaseAddresses bases;
    RegisterTable table = buildRegisterTable(BOARD_UNKNOWN, {});   // no register until the bases are known
    u32 revision = 0;                        // four characters, read at start
};
ose::ModuleData<State> s;

u32 readBoardType()
{
    u32 code = 0;
    if (node::platform().adiBoardCode(code) != 0) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "Board type could not be received from ADI.");
        return BOARD_UNKNOWN;
    }
    if (code == BOARD_CODE_TYPE1) return BVQ1;
    if (code == BOARD_CODE_TYPE2) return BVQ3;
    KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "Unable to determine hardware type.");
    return BOARD_UNKNOWN;
}

/// A parameter that is missing, too long, no number, or no 32-bit address fails.
bool readBaseParameter(const char* name, u32& address)
{
    char text[PARAMETER_SIZE] = "";
    if (node::platform().boardParameter(name, text, sizeof text) != 0) return false;
    char* end = text;
    const unsigned long long value = std::strtoull(text, &end, 0);   // what fits in `text` fits in it
    if (end == text || value > 0xFFFFFFFFull) return false;
    address = static_cast<u32>(value);
    return true;
}

/// False, traced, when one is missing.
bool readBases(u32 board, BaseAddresses& bases)
{
    struct Parameter { const char* name; u32 BaseAddresses::* base; const char* missing; };
    constexpr Parameter PARAMETERS[] = {
        {"zfb/hw/fpga/moka/tu_clk_sys/base", &BaseAddresses::C, "Unable to obtain MOKA TU base parameter."},
        {"zfb/hw/fpga/moka/base", &BaseAddresses::D, "Unable to obtain MOKA top parameter."},
        {"zfb/hw/fpga/bvf4/base", &BaseAddresses::B, "Unable to obtain BVF4 base parameter."},
    };
    if (board == BVQ1) bases.A = BASE_A_ADDRESS;
    if (board != BVQ3) return board == BVQ1;
    for (const Parameter& p : PARAMETERS) {
        if (readBaseParameter(p.name, bases.*p.base)) continue;
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "%s", p.missing);
        return false;
    }
    bases.B += BASE_B_OFFSET;
    return true;
}

void keepRevision()
{
    s->revision = tuHwIf_readFpgaRev();
    const char text[] = {static_cast<char>(revisionCharacter(s->revision, 0)),
                         static_cast<char>(revisionCharacter(s->revision, 1)),
                         static_cast<char>(revisionCharacter(s->revision, 2)),
                         static_cast<char>(revisionCharacter(s->revision, 3)), '\0'};
    KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "LOZ6 FPGA revision is %s", text);
}

/// False when the first register isn't there.
bool openTimingPart()
{
    const auto control = findRegister(REG_BOARD_CONTROL);
    if (!control) return false;
    node::mmioWrite(s->bases.C + BASE_C_START, 1);
    node::ioBarrier();
    node::mmioWrite(*control, 1);
    return true;
}

/// Whether the registers still hold what a previous run put there.
u32 isColdStart()
{
    u32 cold = tuHwIf_isEepromLoaded() != 0 ? 0 : 1;
    if (tuHwIf_readNominalDivisor() == 0) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "Incorrect nominal divisor (0). Cold Start used.");
        cold = 1;
    }
    if (tuHwIf_readDeltaSigmaM() == 0) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "Incorrect Delta/Sigma M (0). Cold Start used.");
        cold = 1;
    }
    return cold;
}

}  // namespace

// ---- register access --------------------------------------------------------------------------

u64 tuHwIf_lookupRegister(u32 id)
{
    constexpr u64 FAILURE = u64{1} << 32;
    const u32 board = getBoardType();
    if (id >= REGISTER_COUNT || board == BOARD_UNKNOWN) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "Unable to look up register=0x%08x, boardType=%u", id, board);
        return FAILURE;
    }
    const u32 address = s->table[board][id];
    return address == REGISTER_NONE ? FAILURE : address;
}

namespace hwif {

std::optional<u32> findRegister(u32 id)
{
    const u64 found = tuHwIf_lookupRegister(id);
    if (found >> 32 == 0) return static_cast<u32>(found);
    KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "Unable to obtain FPGA memory address.");
    return std::nullopt;
}

std::optional<u32> readRegister(u32 id)
{
    const auto address = findRegister(id);
    if (!address) return std::nullopt;
    return node::mmioRead(*address);
}

u32 readRegisterOr0(u32 id) { return readRegister(id).value_or(0); }

bool writeRegister(u32 id, u32 value)
{
    const auto address = findRegister(id);
    if (!address) return false;
    node::mmioWrite(*address, value);
    return true;
}

bool updateRegister(u32 id, u32 clear, u32 set)
{
    const auto address = findRegister(id);
    if (!address) return false;
    node::mmioWrite(*address, (node::mmioRead(*address) & ~clear) | set);
    return true;
}

const BaseAddresses& baseAddresses() { return s->bases; }
u32 revisionAtStart() { return s->revision; }

}  // namespace hwif

// ---- board ------------------------------------------------------------------------------------

u32 getBoardType()
{
    if (!s->boardType) {
        s->boardType = readBoardType();
        KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "Board type set to: %d", static_cast<int>(*s->boardType));
    }
    return *s->boardType;
}

u32 tuHwIf_initiateBoardType() { return getBoardType(); }

int tuHwIf_initBaseAddresses()
{
    s->bases = {};
    const bool isKnown = readBases(getBoardType(), s->bases);
    s->table = buildRegisterTable(isKnown ? getBoardType() : BOARD_UNKNOWN, s->bases);
    return isKnown ? 0 : 1;
}

u32 tuHwIf_readFpgaRev() { return readRegisterOr0(REG_FPGA_REVISION); }

const char* tuHwIf_getSerialPort(u32& boardType)
{
    boardType = getBoardType();
    if (boardType == BVQ3) return "UART";
    if (boardType == BVQ1) return "UART750";
    KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "UNKNOWN boardtype when init serialport");
    return "UNKNOWN";
}

u32 tuHwIf_checkExtPhaseDetector()
{
    constexpr std::size_t SIZE = 32;
    char text[SIZE];
    if (getBoardType() != BVQ3) return 0;
    node::Platform& platform = node::platform();
    if (platform.boardParameter("bvqmodule", text, SIZE) != 0) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "Unable to obtain BVQ module parameter.");
        return 0;
    }
    if (std::string_view(text) != "ZTM 600 145/32") return 1;
    if (platform.boardParameter("productnumber", text, SIZE) != 0) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "Unable to obtain product number parameter.");
        return 0;
    }
    if (std::string_view(text) != "YCA 350 208/1") return 1;
    if (platform.boardParameter("productrevision", text, SIZE) != 0) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "Unable to obtain product revision parameter.");
        return 0;
    }
    return std::string_view(text) >= "P3A" ? 1 : 0;
}

// ---- start ------------------------------------------------------------------------------------

int tuHwIf_initiate(u32& coldRestart, u32 basicHwInit)
{
    KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "%s coldStart: %s basicHwInit: %s", __func__,
              coldRestart != 0 ? "TRUE" : "FALSE", basicHwInit != 0 ? "TRUE" : "FALSE");
    const u32 board = getBoardType();
    if (board == BOARD_UNKNOWN) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "Unable to determine hardware type.");
        return 3;
    }
    setExtPhaseDetector(tuHwIf_checkExtPhaseDetector());
    if (board == BVQ3 && !openTimingPart()) return 4;

    if (basicHwInit == 0) coldRestart = isColdStart();
    keepRevision();
    KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "cold restart = %d", static_cast<int>(coldRestart));
    HWIF_UPCALLS.historyColdFlag(coldRestart);
    KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "cold restart = %d", static_cast<int>(coldRestart));

    const bool rev3 = isRevision3(s->revision);
    if (coldRestart == 1 && !rev3 && basicHwInit == 0 && !coldStartSynthesiser(s->revision)) return 2;
    setRev3(rev3);
    KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "%s", rev3 ? "Is P3" : " Not P3");
    setNomDivOld(tuHwIf_readNominalDivisor());

    if (startOcxo()) return 0;
    KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "Read eeprom error");
    return 1;
}
