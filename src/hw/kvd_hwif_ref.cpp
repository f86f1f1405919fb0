// kvd_hwif_ref.cpp - Reference multiplexer, toggle detectors and hardware monitor, GPS output
// switch, synthesiser status, FSYNC, test access.
#include "hw/kvd_hwif.h"
#include "hw/kvd_hwif_priv.h"

#include "base/trace_groups.h"
#include "node/mmio.h"
#include "node/trace.h"

using namespace hwif;

namespace {

constexpr u32 TEST_BIT_CLOCK_MUX = 0x10;
constexpr u32 TEST_BIT_BUS = 0x20;

/// Applies one of the FSYNC words of the newer board.
void updateFsync(u32 (*word)(u32 value, u32 old), u32 value)
{
    if (const auto address = findRegister(REG_LOAD_CONTROL))
        node::mmioWrite(*address, word(value, node::mmioRead(*address)));
}

void setTestBit(u32 bit, u32 on, const char* text)
{
    if (getBoardType() != BVQ3) {
        node::shellPrintf("Current board (%d) is not a BVQ3 board with MOKA test ports.",
                          static_cast<int>(getBoardType()));
        return;
    }
    if (baseAddresses().D == 0) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "Unable to obtain FPGA memory address.");
        return;
    }
    const u32 address = baseAddresses().D + BASE_D_TEST_BITS;
    const u32 old = node::mmioRead(address);
    const u32 value = on != 0 ? old | bit : old & ~bit;
    node::mmioWrite(address, value);
    node::shellPrintf("%s: 0x%x = 0x%x\n", text, address, value);
}

}  // namespace

int tuHwIf_selectSynchRef(u32 selector)
{
    const u32 board = getBoardType();
    const u32 field = selectField(board, selector);
    if (field == SELECT_NONE) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "Unknown sync ref to select (only one at atime val = 0x%x)",
                  selector);
        return 1;
    }
    const auto address = findRegister(REG_SELECT);
    if (!address) return 1;
    node::mmioWrite(*address, selectWord(board, field, node::mmioRead(*address)));
    return 0;
}

u32 tuHwIf_readToggleStatusReg() { return readRegisterOr0(REG_TOGGLE_STATUS); }

u32 tuHwIf_readToggleStatus()
{
    const u32 board = getBoardType();
    if (board == BOARD_UNKNOWN) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "Unknown Board Type,can not check toggle");
        return 0;
    }
    return toggleWord(board, tuHwIf_readToggleStatusReg());
}

int tuHwIf_hwDiag(u32 hm, u32 mode)
{
    const auto address = findRegister(REG_HM);
    const auto word = address ? hmWord(hm, mode, node::mmioRead(*address)) : std::nullopt;
    if (!word) return 1;
    KVD_TRACE(TRACE_TUHWIF, TRACE_3, "Write 0x%x to HM module", *word);
    node::mmioWrite(*address, *word);
    return 0;
}

u32 tuHwIf_readSynthStatus() { return synthStatus(readRegisterOr0(REG_SYNTH_STATUS)); }

void tuHwIf_enableBbClk(u32 on)
{
    if (getBoardType() == BVQ1) writeRegister(REG_BB_CLK, on != 0 ? 1 : 0);
}

void tuHwIf_enableGpsOut(u32 enable)
{
    if (enable != 0) updateRegister(REG_SELECT, 0, SELECT_GPS_OUT);
    else updateRegister(REG_SELECT, SELECT_GPS_OUT, 0);
}

u32 tuHwIf_isGpsOutEnabled() { return (readRegisterOr0(REG_SELECT) & SELECT_GPS_OUT) != 0 ? 1 : 0; }

void tuHwIf_setFsync(u32 on)
{
    if (getBoardType() == BVQ3)
        updateFsync([](u32 value, u32 old) { return value != 0 ? fsyncOn(old) : fsyncOff(old); }, on);
    else
        writeRegister(REG_FSYNC, on != 0 ? BIT31 : 0);
}

void tuHwIf_setFsyncInterval(u32 interval)
{
    if (getBoardType() == BVQ3) updateFsync(fsyncInterval, interval);
    else
        KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "tuHwIf_setFsyncInterval should only be used for BVQ3 boards.");
}

void tuHwIf_setFsyncPattern(u32 bfn)
{
    if (getBoardType() == BVQ3) updateFsync(fsyncPattern, bfn);
    else
        KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "tuHwIf_setFsyncPattern should only be used for BVQ3 boards.");
}

void tuHwIf_setFsyncAlignment(u32 rising)
{
    if (getBoardType() == BVQ3) updateFsync(fsyncAlignment, rising);
    else
        KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "tuHwIf_setFsyncAlignment should only be used for BVQ3 boards.");
}

void tuHwIf_setMokaTestMux(u32 on)
{
    setTestBit(TEST_BIT_CLOCK_MUX, on, on != 0 ? "MokaProdTestPort enabled" : "MokaProdTestPort disabled");
}

void tuHwIf_setMokaTestBus(u32 on)
{
    setTestBit(TEST_BIT_BUS, on, on != 0 ? "MokaTestBus enabled" : "MokaTestBus disabled");
}
