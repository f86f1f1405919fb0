#include "refs/kvd_ext.h"

#include "base/kvd_math.h"
#include "base/trace_groups.h"
#include "base/tu_common.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "reg/kvd_reg_measure.h"

namespace {

struct State {
    u32 useFastLock = 0;
    double R_fastLock = 0.0;    // s^2
    u32 stateSensitive = 1;     // external 1PPS: 1 SENSITIVE, 0 NON-SENSITIVE
};
ose::ModuleData<State> s;

constexpr double T_MOD_LINE = 0.125;        // s, edges at 8 Hz
constexpr double T_MOD_1PPS = 1.0;
constexpr double R_LINE = 5e-10;
constexpr double R_1PPS = 1e-14;
constexpr double NO_REF_TIME[2] = {0.0, 0.0};   // an edge is on the second, no more is known

/// What a line and an external frequency have in common once their noise is set.
void measureLine(const LatchedEdge& edge)
{
    double z = 0, phase = 0;
    TimePair zPair{};
    KvdLoz6TuReg_calcZ(T_MOD_LINE, edge.time, NO_REF_TIME, z, zPair, phase);
    KvdLoz6TuReg_signalBreakCheck(edge.z_i, z, zPair);
    KvdLoz6TuReg_measUpdate(edge.z_i, z, edge.t_s, phase);
}

/// Drops the first pulse that comes far too early for the local clock, and no more.
void sensitivityStep(double z)
{
    constexpr double NOT_SENSITIVE_ABOVE = 0.001, SENSITIVE_BELOW = 0.0005;   // s
    if (s->stateSensitive != 0) {
        if (!(z > NOT_SENSITIVE_ABOVE)) return;
        s->stateSensitive = 0;
        KVD_TRACE(TRACE_TUEXT, TRACE_INFO, "stateSensitive State change: SENSITIVE -> %s", "NON-SENSITIVE");
        KVD_TRACE(TRACE_TUEXT, TRACE_INFO, "One bad measurement discarded.");
        KvdLoz6TuReg_setMeasR(0.0, Z_EXT_1PPS_REF);
    } else if (z < SENSITIVE_BELOW) {
        s->stateSensitive = 1;
        KVD_TRACE(TRACE_TUEXT, TRACE_INFO, "stateSensitive State change: NON-SENSITIVE -> %s", "SENSITIVE");
    }
}

}  // namespace

void KvdLoz6TuExt_initiate() { s->stateSensitive = 1; }

void KvdLoz6TuExt_handlePdhSdhInt()
{
    LatchedEdge edge{};
    if (!KvdLoz6TuReg_handleRefClkInt(edge)) return;
    for (u32 z_i = Z_PDH_REF1; z_i <= Z_SDH_REF; ++z_i) KvdLoz6TuReg_setMeasR(R_LINE, z_i);
    measureLine(edge);
}

void KvdLoz6TuExt_handleExtInt()
{
    LatchedEdge edge{};
    if (!KvdLoz6TuReg_handleRefClkInt(edge)) return;
    KvdLoz6TuReg_setMeasR(s->useFastLock != 0 ? s->R_fastLock : R_LINE, Z_EXT_REF);
    measureLine(edge);
}

/// No board delay comes off: this pulse gives a frequency, no time.
void KvdLoz6TuExt_handleExt1ppsInt()
{
    LatchedEdge edge{};
    if (!KvdLoz6TuReg_handleRefClkInt(edge)) return;
    KvdLoz6TuReg_setMeasR(R_1PPS, Z_EXT_1PPS_REF);
    double z = 0, phase = 0;
    TimePair zPair{};
    KvdLoz6TuReg_calcZ(T_MOD_1PPS, edge.time, NO_REF_TIME, z, zPair, phase);
    sensitivityStep(z);
    KvdLoz6TuReg_measUpdate(edge.z_i, z, edge.t_s, phase);
}

void KvdLoz6TuExt_setFastLock(u32 useFastLock, double R_fastLock)
{
    s->useFastLock = useFastLock;
    s->R_fastLock = R_fastLock;
    KVD_TRACE(TRACE_TUEXT, TRACE_INFO, "useFastLock=%s, R_fastLock=%s", useFastLock != 0 ? "True" : "False",
              TuCommon_text(R_fastLock));
}

u32    KvdLoz6TuExt_useFastLock() { return s->useFastLock; }
double KvdLoz6TuExt_R_fastLock() { return s->R_fastLock; }
u32    KvdLoz6TuExt_stateSensitive() { return s->stateSensitive; }
