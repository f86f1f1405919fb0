#include "reg/kvd_reg_history.h"

#include "base/trace_groups.h"
#include "base/tu_common.h"
#include "hw/hali.h"
#include "hw/kvd_hwif.h"
#include "node/platform.h"
#include "node/trace.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control.h"
#include "reg/kvd_reg_estimate.h"
#include "reg/kvd_reg_flashfile.h"
#include "reg/kvd_reg_histrecord.h"
#include "reg/kvd_reg_int.h"
#include "reg/kvd_reg_measure.h"
#include "sig/ref_types.h"
#include "store/kvd_mgr_mem.h"

#include <cstdio>
#include <iterator>

namespace {

constexpr double ASK_AGAIN = 28.571428571428573;   // ticks, a minute
constexpr const char* MSI_REGION = "TuRegHistData";

/// What the measurements and the board say; false when the oscillator can't be told by its number.
bool fillCommon(HistRecord& h)
{
    u8 version{}, manufacturer{};
    const int result = HALI_readOcxoSerial(h.serial, version, manufacturer);
    if (result != 0) {
        KVD_TRACE(TRACE_HIST, TRACE_INFO, "HALI_readOcxoSerial failed with return code = %u",
                  static_cast<u32>(result));
        return false;
    }
    const MeasStateVar& meas = KvdLoz6TuReg_measStateVar();
    h.freqWriteTime = static_cast<u32>(node::platform().calendar().seconds);
    h.timeMode = KvdLoz6TuReg_timeMode();
    h.selectedRef = meas.selectedRef;
    h.prevSelectedRef = meas.prevSelectedRef;
    h.delta0_c = meas.delta0_c;
    h.delta0_f = meas.delta0_f;
    h.t_mod = meas.t_mod_old;
    h.t_c_last = meas.t_c_last;
    h.t_f_last = meas.t_f_last;
    h.T = KvdLoz6TuReg_estimateStateVar().T;
    return true;
}

bool fill(HistRecord& h)
{
    if (!fillCommon(h)) return false;
    const EstimateStateVar& estimate = KvdLoz6TuReg_estimateStateVar();
    const ControlStateVar& control = KvdLoz6TuReg_controlStateVar();
    h.U[0] = control.U[0];
    h.U[1] = control.U[1];
    h.x_est = estimate.x_est;
    h.P_est = estimate.P_est;
    return true;
}

void storeInMsi(const u8* record)
{
    const bool stored = KvdLoz6TuMem_ready(MEM_REG_HIST)
                        && KvdLoz6TuMem_write(MEM_REG_HIST, record, HIST_RECORD_SIZE);
    if (stored)
        KVD_TRACE(TRACE_HIST, TRACE_3, "Wrote history data to msi: %s", MSI_REGION);
    else
        KVD_TRACE(TRACE_HIST, TRACE_3, "Failed to write history file to persistent memory");
}

bool storeOnFlash(const u8* record)
{
    const bool stored = KvdLoz6TuReg_writeFlashFile(record);
    if (stored)
        KVD_TRACE(TRACE_HIST, TRACE_INFO, "Wrote history data to flash file: %s", HIST_FILE);
    else
        KVD_TRACE(TRACE_HIST, TRACE_INFO, "Failed to write history file to flash");
    return stored;
}

/// Half of the time for which the record will hold, then it is renewed; a minute when it won't hold or
/// can't be written.
void writeToFlash(const u8* record)
{
    const double h = KvdLoz6TuReg_lookAheadHistory();
    double histCountDown = ASK_AGAIN;
    if (h > 0.0 && storeOnFlash(record)) histCountDown = h / 2.0;
    KvdLoz6TuReg_setHistCountDown(histCountDown);
    char text[64];
    std::snprintf(text, sizeof text, "%-17.16g (%-17.16g [s])", histCountDown, histCountDown * TEMP_TICK);
    KVD_TRACE(TRACE_HIST, TRACE_INFO, "histCountDown: %s", text);
}

}  // namespace

void KvdLoz6TuReg_writeHistory(bool toFlash)
{
    if (!KvdLoz6TuReg_isMaster()) return;
    if (KvdLoz6TuReg_estimateStateVar().fixFreqMode != 0) return;
    if (KvdLoz6TuReg_f_ix() < F_IX_LOCKED) return;
    HistRecord h;
    if (!fill(h)) {
        if (toFlash) KvdLoz6TuReg_setHistCountDown(ASK_AGAIN);
        return;
    }
    u8 record[HIST_RECORD_SIZE];
    KvdLoz6TuReg_packHistory(h, record);
    if (toFlash) writeToFlash(record);
    else         storeInMsi(record);
}

void KvdLoz6TuReg_writeHistoryFromPll(bool toFlash, double y)
{
    HistRecord h;
    if (!fillCommon(h)) return;
    h.U[1] = tuHwIf_factoryDivider() * (1 + y);
    KvdLoz6TuReg_temperatureCoefficients(&h.x_est[3]);
    h.P_est = regulator::diagonal(regulator::P_FROM_PLL);
    h.T = KvdLoz6TuReg_measStateVar().vTnorm;
    u8 record[HIST_RECORD_SIZE];
    KvdLoz6TuReg_packHistory(h, record);
    if (toFlash) storeOnFlash(record);
    else         storeInMsi(record);
}

// ---- commands -----------------------------------------------------------------------------------

void KvdLoz6TuReg_forceWriteHistory(bool flash)
{
    const char* const text = flash ? "Forced writing of historical data to flash disk"
                                   : "Forced writing of historical data to msi";
    KVD_TRACE(TRACE_HIST, TRACE_INFO, "%s", text);
    node::shellPrintf("%s\n", text);
    const u32 selectedRef = KvdLoz6TuReg_selectedRef();
    if (selectedRef == TU_SR_GPSOSL_REF || selectedRef == TU_SR_SOCPRI_REF)
        KvdLoz6TuReg_writeHistoryFromPll(flash, tuHwIf_getCurrentFreqOffset());
    else
        KvdLoz6TuReg_writeHistory(flash);
}

namespace {

void printRecord(const u8* record)
{
    using node::shellPrintf;
    const HistRecord h = KvdLoz6TuReg_unpackHistory(record);
    const DateTime t = TuCommon_secondsToDate(h.freqWriteTime);
    shellPrintf("   freqWriteTime        : %04d-%02d-%02d %02d:%02d:%02d, %lld s ago\n", t.year, t.month,
                t.day, t.hour, t.minute, t.second,
                static_cast<long long>(node::platform().calendar().seconds - h.freqWriteTime));
    shellPrintf("   OCXO serial          : %s\n   time mode            : %u\n", h.serial, h.timeMode);
    shellPrintf("   selectedRef          : %u, before %u\n", h.selectedRef, h.prevSelectedRef);
    shellPrintf("   U                    : %-16.17g, %-16.17g\n", h.U[0], h.U[1]);
    for (u32 i = 0; i < h.x_est.size(); ++i)
        shellPrintf("   x_est[%u], P_est[%u][%u] : %-16.17g, %-16.17g\n", i, i, i, h.x_est[i],
                    h.P_est[i * 7]);
    shellPrintf("   delta0_c, delta0_f   : %-16.17g, %-16.17g\n", h.delta0_c, h.delta0_f);
    shellPrintf("   t_mod, T             : %-16.17g, %-16.17g\n", h.t_mod, h.T);
    shellPrintf("   t_c_last, t_f_last   : %-16.17g, %-16.17g\n", h.t_c_last, h.t_f_last);
}

}  // namespace

void KvdLoz6TuReg_printHistory()
{
    u8 record[HIST_RECORD_SIZE];
    node::shellPrintf("\n***** History in persistent memory *****\n");
    if (KvdLoz6TuMem_read(MEM_REG_HIST, record, sizeof record)) printRecord(record);
    else node::shellPrintf("   none\n");
    node::shellPrintf("\n***** History on flash *****\n");
    if (KvdLoz6TuReg_readFlashFile(record)) printRecord(record);
    else node::shellPrintf("   none\n");
}
