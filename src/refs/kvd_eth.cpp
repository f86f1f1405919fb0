#include "refs/kvd_eth.h"

#include "base/kvd_math.h"
#include "reg/kvd_reg_measure.h"

void KvdLoz6TuEth_handleInt()
{
    constexpr double T_MOD = 0.125;          // s, one period of the 8 Hz edge
    constexpr double R = 5e-10;              // s^2
    constexpr double REF_TIME[2] = {0.0, 0.0};
    LatchedEdge edge{};
    if (!KvdLoz6TuReg_handleRefClkInt(edge)) return;
    KvdLoz6TuReg_setMeasR(R, Z_ETH_REF);
    double z = 0, phase = 0;
    TimePair zPair{};
    KvdLoz6TuReg_calcZ(T_MOD, edge.time, REF_TIME, z, zPair, phase);
    KvdLoz6TuReg_signalBreakCheck(edge.z_i, z, zPair);
    KvdLoz6TuReg_measUpdate(edge.z_i, z, edge.t_s, phase);
}
