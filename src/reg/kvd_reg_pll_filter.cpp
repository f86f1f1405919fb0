// The loops' filter, the holdover vector and what is made of it.
#include "reg/kvd_reg_pll_int.h"

#include "base/trace_groups.h"
#include "node/trace.h"

#include <algorithm>
#include <numeric>

namespace {

constexpr double YI_LIMIT = 1e-5;
struct Gains { double Kp, Ki; };
constexpr Gains GPSOSL{0.3, 0.0225};
constexpr Gains TEN_A_SECOND{0.9, 0.00225};      // SoCPRI, and IDL1
constexpr Gains IDL2{1.8659, 0.0625};

void setGains()
{
    pll::Pll& p = pll::vars();
    const auto take = [&p](const Gains& g) { p.Kp = g.Kp, p.Ki = g.Ki; };
    switch (pll::mode()) {
    case pll::MODE_GPSOSL: return take(GPSOSL);
    case pll::MODE_SOCPRI:
    case pll::MODE_IDL1:   return take(TEN_A_SECOND);
    case pll::MODE_IDL2:   return take(IDL2);
    default:               return;               // keeps them
    }
}

void store(double y)
{
    pll::Pll& p = pll::vars();
    p.vector[p.holdOverVectorIndex] = y;
    if (++p.holdOverVectorIndex < pll::HO_VECTOR) return;
    p.holdOverVectorIndex = 0;
    p.holdOverVectorFull = 1;
}

void writeHistory(double y, u32 writeToFlash)
{
    pll::Pll& p = pll::vars();
    if (p.histPllCountDown != 0 && p.histPllCountDown <= pll::HIST_PERIOD) --p.histPllCountDown;
    if (p.histPllCountDown == 0) writeToFlash = 1;
    KVD_TRACE(TRACE_PLL, TRACE_3, "%s() - Writing history data from PLL to %s, histPllCountDown -> %d [s]",
              "pll_filter", writeToFlash != 0 ? "flash" : "msi", static_cast<i32>(p.histPllCountDown));
    pll::needs().writeHistory(writeToFlash != 0, y);
    if (writeToFlash != 0) p.histPllCountDown = pll::HIST_PERIOD;
}

}  // namespace

void pll::setSlaveGains(bool isIdl2)
{
    const Gains& g = isIdl2 ? IDL2 : TEN_A_SECOND;
    vars().Kp = g.Kp;
    vars().Ki = g.Ki;
}

u32 pll::vectorFill()
{
    const Pll& p = vars();
    return p.holdOverVectorFull != 0 ? HO_VECTOR : p.holdOverVectorIndex;
}

void pll::filter(double x, u32 writeToFlash)
{
    Pll& p = vars();
    const bool isMaster = needs().isMaster();
    setGains();
    const double yp = p.Kp * x;
    p.yi = std::clamp(p.yi + p.Ki * x, -YI_LIMIT, YI_LIMIT);
    if (!isMaster) needs().storeYi(p.yi);
    double y = yp + p.yi;
    if (!isMaster) y += p.extAccFreqOffset;
    KVD_TRACE(TRACE_PLL, TRACE_4, "%s() - yp %-17.16g, yi %-17.16g, y %-17.16g ", "pll_filter", yp, p.yi, y);
    needs().adjustFrequency(y);
    if (!isMaster) return;
    store(y);
    if (isGpsOsl()) ::writeHistory(y, writeToFlash);
}

double pll::vectorMean()
{
    const u32 count = vectorFill();
    if (count == 0) return 0.0;
    const auto begin = vars().vector.begin();
    return std::accumulate(begin, begin + count, 0.0) / count;
}

void pll::emptyVector()
{
    vars().holdOverVectorFull = 0;
    vars().holdOverVectorIndex = 0;
}

void KvdLoz6TuReg_pll_toHoldover()
{
    pll::Pll& p = pll::vars();
    const bool full = p.holdOverVectorFull != 0;
    u32 next = PLL_Freq_Holdover;
    switch (p.currState) {
    case PLL_Uninitialized:
        KVD_TRACE(TRACE_PLL, TRACE_INFO, "%s() - PLL is unitialized. Cannot set PLL to holdover.", __func__);
        return;
    case PLL_PreJumpStart:
    case PLL_PreJumpHist:
    case PLL_Unlocked: break;
    case PLL_OffsetLocked:
        if (full) next = PLL_Offset_Holdover;
        break;
    case PLL_Locked:
        if (full) next = PLL_Locked_Holdover;
        else
            KVD_TRACE(TRACE_PLL, TRACE_INFO,
                      "%s(): - Holdover vector is not filled - going into FREQ_HOLDOVER", __func__);
        break;
    default: return;
    }
    pll::changeState(next);
    pll::needs().adjustFrequency(pll::vectorMean());
}

/// One count of the phase alone is 7 ppb in what the last sample was answered with.
void KvdLoz6TuReg_slavePll_hold()
{
    const pll::Pll& p = pll::vars();
    if (p.currSlaveState != SLAVE_PLL_Uninitialized) pll::needs().adjustFrequency(p.yi + p.extAccFreqOffset);
}

void KvdLoz6TuReg_pll_soCpriPostponeRegulation()
{
    KVD_TRACE(TRACE_PLL, TRACE_INFO, "%s() - holdover vector fill level = %u (out of %u)", __func__,
              pll::vectorFill(), pll::HO_VECTOR);
    pll::needs().adjustFrequency(pll::vectorMean());
}
