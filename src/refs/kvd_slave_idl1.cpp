// kvd_slave_idl1.cpp - IDL1: what an interrupt of the BFN input means to a master and to a slave.
#include "refs/kvd_slave.h"
#include "refs/kvd_slave_int.h"

#include "base/trace_groups.h"
#include "base/tu_common.h"
#include "hw/kvd_hwif.h"
#include "node/trace.h"
#include "refs/kvd_ref_idl.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control.h"
#include "reg/kvd_reg_jump.h"
#include "reg/kvd_reg_measure.h"
#include "reg/kvd_reg_pll.h"
#include "unit/kvd_ref_table.h"
#include "unit/kvd_unit_link.h"
#include "base/frame_counter.h"

#include <cstdio>

namespace {

constexpr u8 F_IX_USEFUL = 2;           // a clock below it isn't worth following

}  // namespace

double slave::neutralizeWraparound(double phase, double counter, double period)
{
    const double d = counter - phase;
    if (d < 0.0) return phase - period;
    if (d > period) return phase + period;
    return phase;
}

void slave::handleIdl1IntMaster()
{
    KVD_TRACE(TRACE_TUSLAVE, TRACE_3, "handleIdl1IntMaster: TU_BFN_IN_INT");
    BfnAll word{};
    tuHwIf_readBfnInAll(word);
    if (word.valid == 0) {
        KVD_TRACE(TRACE_TUSLAVE, TRACE_3, "handleIdl1IntMaster: Error when reading BFN IN.");
        return;
    }
    if (KvdLoz6TuReg_jumpIdl1() != 0 && word.jump != 0) {
        KvdLoz6TuReg_clearJumpIdl1();
        KVD_TRACE(TRACE_TUSLAVE, TRACE_INFO,
                  "handleIdl1IntMaster: Jump flag received from slave. Clear jump flag in master");
    }
    if (word.coldRestartFlag_tmp != 0) {
        KvdLoz6TuReg_clearColdRestartFlag();
        KVD_TRACE(TRACE_TUSLAVE, TRACE_INFO,
                  "handleIdl1IntMaster: Cold restart flag received from slave. "
                  "Clear cold restart flag in master.");
    }
    if (KvdLoz6TuReg_f_ix() < F_IX_USEFUL && KvdLoz6TuReg_pllState() == PLL_Uninitialized) return;
    KVD_TRACE(TRACE_TUSLAVE, TRACE_3, "handleIdl1IntMaster: Sending IDL - localInc = %d",
              static_cast<int>(word.inc));
    sendIdl(word.inc, 0, KvdLoz6TuReg_coldRestartFlag());
}

namespace {

/// The coarse time goes to the master's turn of the counter.
void followEsfc(u32 e_sfc)
{
    if (!slave::esfcFollow(slave::esfcFollowState(), e_sfc)) return;
    const double c = KvdLoz6TuReg_getLastTime().c - e_sfc * COUNTER_PERIOD;
    KvdLoz6TuReg_adjustSlaveOffset(c, 0.0);
    const TimePair delta0_slave = KvdLoz6TuReg_getSlaveOffset();
    char text[96];
    std::snprintf(text, sizeof text, "%s, %s, %s", TuCommon_text(c), TuCommon_text(delta0_slave.c),
                  TuCommon_text(delta0_slave.f));
    KVD_TRACE(TRACE_TUSLAVE, TRACE_3,
              "handleBfnIntSlave: input_diff [s], d0_c [increments], d0_f [increments] %s", text);
    KvdLoz6TuReg_adjust_time(-delta0_slave.c, -delta0_slave.f);
    KvdLoz6TuReg_clearSlaveOffset();
}

/// The phase on the same side of the counter's wrap as local time; as it is when the counter can't
/// be read.
double onLocalSide(double z)
{
    u16 mfn = 0, sfn = 0;
    u32 inc = 0;
    if (tuHwIf_readSfc(mfn, sfn, inc) != 0) return z;
    const double counter = tuHwIf_sfcToIncrements(mfn, sfn, inc) / INCREMENTS_PER_SECOND;
    const double neutral = slave::neutralizeWraparound(z, counter, COUNTER_PERIOD);
    if (neutral != z)
        KVD_TRACE(TRACE_TUSLAVE, TRACE_3, "handleIdl1IntSlave: after neutralizing SFC wraparound z = %s [s]",
                  TuCommon_text(neutral));
    return neutral;
}

}  // namespace

void slave::handleIdl1IntSlave()
{
    KVD_TRACE(TRACE_TUSLAVE, TRACE_3, "handleIdl1IntSlave: TU_IDL1_IN_INT");
    KvdLoz6TuSlave_setSlavePllEvent(EV_SLAVE_PLL_UNEVENTFUL_MEASUREMENT);
    BfnAll word{};
    tuHwIf_readBfnInAll(word);
    const bool isFresh = word.valid != 0 && word.extended != 0;
    KvdLoz6TuRef_idl1Words(isFresh);
    if (!isFresh) {
        KVD_TRACE(TRACE_TUSLAVE, TRACE_7, "handleIdl1IntSlave: Error when reading BFN IN.");
        KvdLoz6TuSlave_setSlavePllEvent(EV_SLAVE_PLL_BFN_READ_ERROR);
        KvdLoz6TuSlave_logIdl1History(1);
        return;
    }
    KvdLoz6TuReg_setMod(COUNTER_PERIOD);
    double z = word.meanDifference / INCREMENTS_PER_SECOND;
    KVD_TRACE(TRACE_TUSLAVE, TRACE_3, "handleIdl1IntSlave: z = %s [s]", TuCommon_text(z));
    KvdLoz6TuReg_noteLockedDiff(z);
    const u32 m = KvdLoz6TuReg_countMeasurement(Z_IDL1_LOZ6);
    KVD_TRACE(TRACE_TUSLAVE, TRACE_3, "handleIdl1IntSlave: m = %d", static_cast<int>(m));
    z = onLocalSide(z);
    needs().slavePllControl(z);
    KVD_TRACE(TRACE_TUSLAVE, TRACE_3, "handleIdl1IntSlave: Sending BFN - localInc = %d",
              static_cast<int>(word.inc));
    sendIdl(word.inc, word.jump, word.coldRestartFlag_tmp);
    double t_s = 0.0;
    if (!KvdLoz6TuReg_calcSampleTimeInterval(t_s))
        KVD_TRACE(TRACE_TUSLAVE, TRACE_3,
                  "handleIdl1IntSlave: Unable to calculate sampling interval - the measStateVar "
                  "will not be updated with correct t_f");
    followEsfc(word.e_sfc);
    writeIdl1History(z);
    const bool hasEvent = history().currSlavePllEvent != EV_SLAVE_PLL_UNEVENTFUL_MEASUREMENT;
    KvdLoz6TuSlave_logIdl1History(hasEvent ? 1 : 0);
}

void KvdLoz6TuSlave_handleIdlInt()
{
    if (!KvdLoz6TuReg_isValidState()) {
        KVD_TRACE(TRACE_TUSLAVE, TRACE_3,
                  "handleIdlInt: Measurement discarded - Regulator not in valid state.");
        BfnAll dropped{};
        tuHwIf_readBfnInAll(dropped);
        return;
    }
    if (KvdLoz6TuReg_isMaster())
        slave::handleIdl1IntMaster();
    else if (KvdLoz6BiraIifAdm_idlMode() == KVD_BIRAIIF_IDL_MODE_1)
        slave::handleIdl1IntSlave();
}
