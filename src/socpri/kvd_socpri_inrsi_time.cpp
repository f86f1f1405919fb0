// The node's time counters for other units.
#include "socpri/kvd_socpri_inrsi_int.h"

#include "base/trace_groups.h"
#include "hw/kvd_hwif.h"
#include "mp/kvd_iifadm.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "reg/kvd_reg_jump.h"
#include "reg/kvd_reg_measure.h"
#include "sig/tuiif_sig.h"

namespace {

constexpr u16 LAST_MFN = 24;

/// The count of turns lags the counter after its wrap, until the next sample.
struct State {
    u32 eSfc = 0;
    u16 mfn = 0;
    bool isWrapSeen{};                         // the count is known to belong to the counter's turn
};
ose::ModuleData<State> s;

u32 eSfcOf(u16 mfn)
{
    const u32 eSfc = static_cast<u32>(KvdLoz6TuReg_getLastTime().c / COUNTER_PERIOD);
    if (mfn == 0 && s->mfn == LAST_MFN && eSfc == s->eSfc && !s->isWrapSeen) {
        const u32 next = eSfc + 1;
        KVD_TRACE(TRACE_INRSI, TRACE_3,
                  "%s():eSfc mismatch happened, increase eSfc. eSfc_current= %u, eSfc_new= %u, prev_mfn= %u",
                  __func__, eSfc, next, s->mfn);
        return next;
    }
    s->eSfc = eSfc;
    s->mfn = mfn;
    s->isWrapSeen = mfn == 0;
    if (mfn == 0)
        KVD_TRACE(TRACE_INRSI, TRACE_3, "%s():eSfc mismatch done. eSfc_current= %u", __func__, eSfc);
    return eSfc;
}

}  // namespace

void inrsi::answerTimeDataRequest(PROCESS to)
{
    auto* rsp = node::make<KvdTuSocpriInciGetTimeDataRsp>(KVD_TUSOCPRI_INCI_GET_TIME_DATA_RSP);
    u16 mfn = 0, sfn = 0;
    u32 inc = 0;
    if (tuHwIf_readSfc(mfn, sfn, inc) == 0) {
        rsp->eSfc = eSfcOf(mfn);
        rsp->mfn = mfn;
        rsp->sfn = sfn;
        rsp->inc = inc;
        rsp->clockState = KvdLoz6TuIifAdm_radioClockState();
        rsp->timeDataValid = 1;
    } else {
        KVD_TRACE(TRACE_INRSI, TRACE_ERROR, "%s():Sfc read failed", __func__);
        rsp->clockState = KVD_TUIIF_UNKNOWN;
    }
    rsp->jumpState = static_cast<u16>(KvdLoz6TuReg_jumpState());
    KVD_TRACE(TRACE_INRSI, TRACE_3,
              "KVD_TUSOCPRI_INCI_GET_TIME_DATA_RSP : eSfc = %u, mfn = %u, sfn= %u, inc= %u, "
              "clockState= %u, timeDataValid= %u",
              rsp->eSfc, rsp->mfn, rsp->sfn, rsp->inc, rsp->clockState, rsp->timeDataValid);
    node::sendTo(to, rsp);
}
