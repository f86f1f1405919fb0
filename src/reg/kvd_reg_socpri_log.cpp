// The log of all that happens on a radio link, and its copy at the last event that ended something.
#include "reg/kvd_reg_socpri_int.h"

#include "base/trace_groups.h"
#include "base/tu_common.h"
#include "hw/kvd_hwif.h"
#include "mp/kvd_iifadm.h"
#include "node/platform.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "reg/kvd_reg_jump.h"
#include "reg/kvd_reg_measure.h"
#include "reg/kvd_reg_pll.h"
#include "reg/kvd_reg_upcalls.h"

#include <cmath>
#include <iterator>

namespace {

struct State {
    socpri::Log log{};
    socpri::Log snapshot{};
};
ose::ModuleData<State> s;

constexpr const char* EVENT_TEXT[] = {
    "SOCPRI_EV_FREQ_MEAS", "SOCPRI_EV_PHASE_MEAS", "SOCPRI_EV_TIME_DATA",
    "SOCPRI_EV_TIME_DATA_INCONSISTENCY", "SOCPRI_EV_TIME_DATA_INCONSISTENCY_TOLERATED",
    "SOCPRI_EV_JUMP_BEGIN", "SOCPRI_EV_JUMP_PHASE_1", "SOCPRI_EV_JUMP_PHASE_1_TO_2",
    "SOCPRI_EV_JUMP_PHASE_2", "SOCPRI_EV_JUMP_PHASE_3", "SOCPRI_EV_JUMP_PHASE_4",
    "SOCPRI_EV_JUMP_END", "SOCPRI_EV_JUMP_END_FAILURE", "SOCPRI_EV_JUMP_ABORTED",
    "SOCPRI_EV_JUMP_BEGIN_BFN_ADJ", "SOCPRI_EV_JUMP_PHASE_1_BFN_ADJ",
    "SOCPRI_EV_JUMP_PHASE_1_TO_2_BFN_ADJ", "SOCPRI_EV_JUMP_PHASE_2_BFN_ADJ",
    "SOCPRI_EV_JUMP_PHASE_3_BFN_ADJ", "SOCPRI_EV_JUMP_PHASE_4_BFN_ADJ",
    "SOCPRI_EV_JUMP_END_BFN_ADJ", "SOCPRI_EV_JUMP_END_BFN_ADJ_FAILURE", "SOCPRI_EV_BAD_OCXO_TEMP",
    "SOCPRI_EV_OCXO_TEMP_RECOVERED", "SOCPRI_EV_REGULATION_POSTPONED_AFTER_BFN_ADJ",
    "SOCPRI_EV_REGULATION_CONTINUED", "SOCPRI_EV_PI_CONTROLLER_SHUTDOWN_GPSOSL_HO_EXP",
    "SOCPRI_EV_PI_CONTROLLER_SHUTDOWN_NOREF_HO", "SOCPRI_EV_PI_CONTROLLER_SHUTDOWN_NOREF_LO",
    "SOCPRI_EV_PI_CONTROLLER_SHUTDOWN_SAVACTREF", "SOCPRI_EV_PI_CONTROLLER_SHUTDOWN_SELREF",
    "SOCPRI_EV_PI_CONTROLLER_SHUTDOWN_TEMP", "SOCPRI_EV_PI_CONTROLLER_SHUTDOWN_TRANS",
    "SOCPRI_EV_PI_CONTROLLER_GPSOSL_TO_SOCPRI_SWITCH", "SOCPRI_EV_OCXO_ACC_FREQ_UPDATED",
    "SOCPRI_EV_OCXO_ADJ_IGNORED", "SOCPRI_EV_SFC_ADJ_FOLLOWED",
};
static_assert(std::size(EVENT_TEXT) == SOCPRI_EV_SFC_ADJ_FOLLOWED + 1);

const char* eventText(u32 event) { return event < std::size(EVENT_TEXT) ? EVENT_TEXT[event] : "<Unknown>"; }

}  // namespace

socpri::Counters socpri::readCounters()
{
    Counters c{static_cast<u32>(KvdLoz6TuReg_getLastTime().c / COUNTER_PERIOD), 0, 0, 0};
    tuHwIf_readSfc(c.mfn, c.sfn, c.inc);
    return c;
}

socpri::LogRecord socpri::newRecord(u32 event, const Counters& counters)
{
    LogRecord r{};
    r.used = 1;
    r.event = event;
    r.portNo = REG_UPCALLS.socpriPort();
    r.validityCnt = validityCnt();
    r.targetDiff = KvdLoz6TuReg_pll_targetDiff();
    r.m = static_cast<u32>(KvdLoz6TuReg_measStateVar().m[Z_SOCPRI_REF]);
    r.pllState = KvdLoz6TuReg_pllState();
    r.esfc = counters.esfc;
    r.mfn = counters.mfn;
    r.sfn = counters.sfn;
    r.inc = counters.inc;
    r.ref_esfc = KvdLoz6TuReg_SoCpriRefEsfc();
    r.ref_mfn = KvdLoz6TuReg_SoCpriRefMfn();
    const TimePair delta0 = KvdLoz6TuReg_getOffset();
    r.delta0_c = delta0.c;
    r.delta0_f = delta0.f;
    TuCommon_timeStamp(r.time);
    return r;
}

void socpri::write(const LogRecord& record)
{
    Log& log = s->log;
    log.record[log.index] = record;
    log.index = static_cast<u16>((log.index + 1) % LOG_RECORDS);
}

const socpri::LogRecord& socpri::newest()
{
    return s->log.record[(s->log.index + LOG_RECORDS - 1) % LOG_RECORDS];
}

const socpri::Log& socpri::snapshot() { return s->snapshot; }

void KvdLoz6TuReg_logSoCpriEvent(u32 event) { socpri::write(socpri::newRecord(event)); }

void KvdLoz6TuReg_traceSoCpriLog(u32 keep)
{
    const socpri::LogRecord& r = socpri::newest();
    KVD_TRACE(TRACE_SOCPRI, TRACE_3,
              "SoCPRI Measurement History (timestamp [%s]): event = %s, portNo = %u, freqDiff = %d, "
              "freqDiffValid = %u, trpDiffHigh = %u, trpDiffLow = %u, trpDiffValid = %u, "
              "validityCnt = %u, phaseDiffCalc = %-17.16g, phaseDiff = %-17.16g, "
              "targetDiff = %-17.16g, relAbsDiff = %-17.16g, m = %u, iterationIsRegulated = %u, "
              "pllState = %sesfc = %umfn = %usfn = %uinc = %uref_esfc = %uref_mfn = %u"
              "delta0_c = %-17.16gdelta0_f = %-17.16g",
              r.time, eventText(r.event), r.portNo, r.freqDiff, r.freqDiffValid, r.trpDiffHigh, r.trpDiffLow,
              r.trpDiffValid, r.validityCnt, r.phaseDiffCalc, r.phaseDiff, r.targetDiff, r.relAbsDiff, r.m,
              r.iterationIsRegulated, KvdLoz6TuReg_pllStateText(r.pllState), r.esfc, r.mfn, r.sfn, r.inc,
              r.ref_esfc, r.ref_mfn, r.delta0_c, r.delta0_f);
    if (keep == 1) s->snapshot = s->log;
}

void KvdLoz6TuReg_printSoCpriHistory()
{
    node::shellPrintf("\nSoCPRI measurement history snapshot:             \n\n");
    const socpri::Log& log = s->snapshot;
    for (u32 i = 0; i < socpri::LOG_RECORDS; ++i) {
        const socpri::LogRecord& r = log.record[(log.index + i) % socpri::LOG_RECORDS];
        if (r.used == 0) continue;
        node::shellPrintf(
            "[%s]: apn = %u, event = %s, portNo = %u, freqDiff = %d ppb, freqDiffValid = %u, "
            "trpDiffHigh = %u, trpDiffLow = %u, trpDiffValid = %u, validityCnt = %u, "
            "phaseDiffCalc = %-17.16g s, phaseDiff = %-17.16g s, targetDiff = %-17.16g s, "
            "relAbsDiff = %-17.16g s, m = %u, iterationIsRegulated = %u, pllState = %s, "
            "esfc = %u, mfn = %u, sfn = %u, inc = %u, ref_esfc = %u, ref_mfn = %u, "
            "delta0_c = %-17.16g, delta0_f = %-17.16g\n",
            r.time, KvdLoz6TuIifAdm_apn(), eventText(r.event), r.portNo, r.freqDiff, r.freqDiffValid,
            r.trpDiffHigh, r.trpDiffLow, r.trpDiffValid, r.validityCnt, r.phaseDiffCalc, r.phaseDiff,
            r.targetDiff, r.relAbsDiff, r.m, r.iterationIsRegulated, KvdLoz6TuReg_pllStateText(r.pllState),
            r.esfc, r.mfn, r.sfn, r.inc, r.ref_esfc, r.ref_mfn, r.delta0_c, r.delta0_f);
    }
}
