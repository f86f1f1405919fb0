// kvd_slave_word.cpp - The word that a unit sends on IDL1, and its extended counter on both sides.
#include "refs/kvd_slave.h"
#include "refs/kvd_slave_int.h"

#include "base/trace_groups.h"
#include "hw/kvd_hwif.h"
#include "mp/kvd_iifadm.h"
#include "node/trace.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_measure.h"

#include <algorithm>

namespace {

constexpr double TURNS_PER_SECOND = 0.0009765625;   // 1/1024
constexpr u16 MFN_LAST = 24;                        // before the counter wraps to 0
constexpr u32 RC_STATE_OF_SLAVE = 7;

}  // namespace

namespace slave {

u32 turns(double t_c_last)
{
    const double count = std::max(0.0, t_c_last * TURNS_PER_SECOND);    // 0 of a NaN, too
    return static_cast<u32>(std::min(count, 4294967295.0));
}

u32 esfcToSend(EsfcSend& state, u32 eSfc, bool readOk, u16 mfn)
{
    const bool lags = readOk && mfn == 0 && state.lastMfn == MFN_LAST && eSfc == state.lastEsfc
                      && state.eSfcClosed == 0;
    if (lags) {
        KVD_TRACE(TRACE_TUSLAVE, TRACE_3, "eSfc mismatch happend, increment the esfc");
        return eSfc + 1;
    }
    state.lastEsfc = eSfc;
    state.lastMfn = mfn;
    state.eSfcClosed = mfn == 0 ? 1 : 0;
    if (state.eSfcClosed != 0) KVD_TRACE(TRACE_TUSLAVE, TRACE_3, "eSfc mismatch done.");
    return eSfc;
}

bool esfcFollow(EsfcFollow& state, u32 e_sfc)
{
    if (e_sfc != state.lastEsfc) {
        state.updateEsfc = state.updateEsfc == 0 ? 1 : 0;
        KVD_TRACE(TRACE_TUSLAVE, TRACE_3,
                  "%s: Received new eSfc value, lastRecevied = %d  new_esfc = %d  "
                  "update_esfc = %d",
                  "handleIdl1IntSlave", static_cast<int>(state.lastEsfc), static_cast<int>(e_sfc),
                  static_cast<int>(state.updateEsfc));
        if (state.updateEsfc != 0) state.lastEsfc = e_sfc;
        return false;
    }
    if (state.updateEsfc == 0) return false;
    state.updateEsfc = 0;
    return true;
}

void sendIdl(u32 localInc, u32 jump, u32 cold)
{
    const u32 eSfc = turns(KvdLoz6TuReg_getLastTime().c);
    if (!KvdLoz6TuReg_isMaster()) {
        tuHwIf_writeBfnOutPacked(localInc, eSfc, RC_STATE_OF_SLAVE, jump, cold, 0);
        return;
    }
    u16 mfn = 0, sfn = 0;
    u32 inc = 0;
    const bool readOk = tuHwIf_readSfc(mfn, sfn, inc) == 0;
    const u32 e_sfc = esfcToSend(esfcSend(), eSfc, readOk, mfn);
    tuHwIf_writeBfnOutPacked(localInc, e_sfc, KvdLoz6TuIifAdm_radioClockState(), KvdLoz6TuReg_jumpIdl1(),
                             cold, 1);
}

}  // namespace slave
