// kvd_slave_idl2.cpp - IDL2 on a slave: one measurement for each sync data signal of the main
// processor. A coarse stage puts the counters where the master's are, then the fine stage gives
// the loop its samples; a jump of the master goes back to the coarse stage.
#include "refs/kvd_slave.h"
#include "refs/kvd_slave_int.h"

#include "base/kvd_math.h"
#include "base/trace_groups.h"
#include "hw/kvd_hwif.h"
#include "mp/kvd_iifadm_send.h"
#include "node/sig.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "refs/kvd_idpi.h"
#include "refs/kvd_ref_idl.h"
#include "refs/kvd_refs_upcalls.h"
#include "refs/kvd_slave_warm.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_jump.h"
#include "reg/kvd_reg_measure.h"
#include "reg/kvd_reg_pll.h"
#include "sig/idpi_sig.h"
#include "unit/kvd_ref_table.h"
#include "unit/kvd_unit_link.h"
#include "base/frame_counter.h"

#include <cmath>

namespace {

constexpr u8 UNSTABLE_IGNORED = 10;             // measurements in a row before help is asked for
constexpr u32 COARSE_STAGE = 0, FINE_STAGE = 1;

struct State {
    slave::Idl2State idl2;
    slave::EsfcSend esfcSend;
    slave::EsfcFollow esfcFollow;
    const slave::Needs* needs = nullptr;        // a test's own
};
ose::ModuleData<State> s;

void ownPortData(u32 port, slave::PortData& data)
{
    const IdpiPort record = KvdLoz6Idpi_port(port);
    data.delay = {record.delayT1C1High, record.delayT1C1Low, record.delayC4T1High, record.delayC4T1Low};
    data.linkMode = record.linkMode;
    data.linkStability = record.linkStability;
}

constexpr slave::Needs NEEDS = {
    KvdLoz6BiraIifAdm_timeTuningOngoing,
    KvdLoz6BiraIifAdm_hasHwControl,
    [] { return REFS_UPCALLS.unableToTimeLock(); },
    KvdLoz6Idpi_sendClkStatus,
    ownPortData,
    KvdLoz6TuReg_slavePllState,
    KvdLoz6TuReg_slavePll_control,
};

struct Counter { u16 mfn, sfn; u32 inc; };
bool readCounter(Counter& c) { return tuHwIf_readSfc(c.mfn, c.sfn, c.inc) == 0; }

double seconds(u16 mfn, u16 sfn, u32 inc)
{
    return tuHwIf_sfcToIncrements(mfn, sfn, inc) / INCREMENTS_PER_SECOND;
}

}  // namespace

// ---- arithmetic ---------------------------------------------------------------------------------

namespace slave {

const Needs& needs() { return s->needs != nullptr ? *s->needs : NEEDS; }
void setNeeds(const Needs* replacement) { s->needs = replacement; }
Idl2State& idl2State() { return s->idl2; }
EsfcSend& esfcSend() { return s->esfcSend; }
EsfcFollow& esfcFollowState() { return s->esfcFollow; }

double singleMeasurement(const DelayWords& words)
{
    const u64 T1C1 = u64{words.T1C1High} << 32 | words.T1C1Low;
    const u64 C4T1 = u64{words.C4T1High} << 32 | words.C4T1Low;
    const i64 diff_ps = static_cast<i64>(T1C1 - C4T1);
    return KvdLoz6Math_wrapSymmetric(static_cast<double>(diff_ps) * 1e-12, SFN_PERIOD_s);
}

double phaseDifference(const DelayWords& masterDu, const DelayWords& slaveDu)
{
    double master = singleMeasurement(masterDu);
    double slave = singleMeasurement(slaveDu);
    if (master < 0.0 && slave < 0.0) (master < slave ? master : slave) += SFN_PERIOD_s;
    return (slave - master) * 0.5;
}

}  // namespace slave

// ---- clock status and warm data -----------------------------------------------------------------

namespace {

void idl2HandleMsiWriting()
{
    if (!KvdLoz6SlaveWarm_write(__func__)) return;
    const SlaveWarmData& data = KvdLoz6SlaveWarm_data();
    KVD_TRACE(TRACE_TUSLAVE, TRACE_3,
              "%s(): idpiClkStatus = %u, delta0_c = %-17.16g, t_c_last = %-17.16gstored in slave "
              "MSI memory",
              __func__, data.idpiClkStatus, data.delta0_c, data.t_c_last);
}

/// The status counts only once the port server has it.
bool tellClkStatus(u8 clkStatus, const char* name, const char* caller)
{
    if (slave::needs().sendClkStatus(clkStatus) != 0) {
        KVD_TRACE(TRACE_TUSLAVE, TRACE_INFO, "%s(): Unable to send %s - IDPI Server is not available.",
                  caller, name);
        return false;
    }
    KvdLoz6SlaveWarm_setIdpiClkStatus(clkStatus);
    idl2HandleMsiWriting();
    return true;
}

// ---- jumps of the master ------------------------------------------------------------------------

/// The link has restarted in synchronous mode after a jump.
void linkRestarted(const char* caller)
{
    tellClkStatus(IDPI_CLK_STATUS_COARSE_TIME_SYNCED, "IDPI_CLK_STATUS_COARSE_TIME_SYNCED", caller);
    if (slave::needs().slavePllState() == SLAVE_PLL_Locked)
        tellClkStatus(IDPI_CLK_STATUS_FINE_TIME_SYNCED, "IDPI_CLK_STATUS_FINE_TIME_SYNCED", caller);
    s->idl2.repeatFineSyncIndDueTojump = 0;
    KvdLoz6TuReg_clearIdl2LinkRestart();
}

void idl2HandleJumpIndicationFlags(const KvdTuiifIdl2SyncDataInd& ind)
{
    if (ind.jumpPend == 1) {
        if (KvdLoz6SlaveWarm_data().idpiClkStatus != IDPI_CLK_STATUS_FINE_TIME_SYNCED) {
            s->idl2.postponeTimeTuning = 1;
            KVD_TRACE(TRACE_TUSLAVE, TRACE_INFO,
                      "%s(): Postponing time tuning (coarse and fine) on slave DU until master DU "
                      "performs BFN jump!",
                      __func__);
        }
        if (tellClkStatus(IDPI_CLK_STATUS_LOCKED, "IDPI_CLK_STATUS_LOCKED", __func__))
            KVD_TRACE(TRACE_TUSLAVE, TRACE_INFO,
                      "%s(): Jump indication received from MP, sent IDPI_CLK_STATUS_LOCKED to IDPI",
                      __func__);
        KvdLoz6TuSlave_logIdl2History(1);
    }
    if (ind.jumpInd == 1) {
        s->idl2.idl2FineTuning = COARSE_STAGE;
        s->idl2.repeatFineSyncIndDueTojump = 1;
        s->idl2.postponeTimeTuning = 0;
        KvdLoz6TuReg_cancelIdl2LinkRestartTimer();
        KvdLoz6TuSlave_logIdl2History(1);
    }
    if (KvdLoz6TuReg_idl2LinkRestart() != 0) linkRestarted(__func__);
}

// ---- one measurement ----------------------------------------------------------------------------

struct Measurement {
    const KvdTuiifIdl2SyncDataInd& ind;
    slave::DelayWords masterDu;
    slave::PortData own;
    double phaseDiff;                           // s
    bool keepSnapshot;

    double total() const { return phaseDiff + ind.intermediaryDuPhaseDiff; }
};

void writeHistory(const Measurement& meas)
{
    const KvdTuiifIdl2SyncDataInd& ind = meas.ind;
    slave::Idl2Record r;
    r.currSlavePllState = slave::needs().slavePllState();
    r.masterDu = meas.masterDu;
    r.slaveDu = meas.own.delay;
    r.jumpPend = ind.jumpPend;
    r.jumpInd = ind.jumpInd;
    r.nearEndportNo = ind.nearEndportNo;
    r.farEndportNo = ind.farEndportNo;
    r.synchPortNo = ind.synchPortNo;
    r.directConn = ind.directConn;
    r.linkMode = ind.linkMode;
    r.linkStability = ind.linkStability;
    r.master_esfc = ind.esfc;
    r.master_mfc = ind.mfc;
    r.master_sfc = ind.sfc;
    r.master_inc = ind.inc;
    const MeasStateVar& var = KvdLoz6TuReg_measStateVar();
    Counter c{};
    readCounter(c);
    r.slave_esfc = slave::turns(var.t_c_last);
    r.slave_mfc = c.mfn;
    r.slave_sfc = c.sfn;
    r.slave_inc = c.inc;
    r.m = static_cast<u32>(var.m[Z_IDL2_LOZ6]);
    r.intermediaryDuFineTimeSynching = ind.intermediaryDuFineTimeSynching;
    r.intermediaryDuPhaseDiff = ind.intermediaryDuPhaseDiff;
    r.phaseDiff = meas.phaseDiff;
    r.totalPhaseDiff = meas.total();
    r.extAccFreqOffset = KvdLoz6TuReg_pll_extAccFreqOffset();
    r.idl2FineTuning = s->idl2.idl2FineTuning;
    r.repeatFineSyncIndDueTojump = s->idl2.repeatFineSyncIndDueTojump;
    r.instabilityCntNe = s->idl2.instabilityCntNe;
    r.instabilityCntFe = s->idl2.instabilityCntFe;
    r.iterationIsRegulated = s->idl2.iterationIsRegulated;
    r.postponeTimeTuning = s->idl2.postponeTimeTuning;
    slave::writeIdl2History(r);
    KvdLoz6TuSlave_logIdl2History(meas.keepSnapshot ? 1 : 0);
}

/// Numbers that no counter holds would be carried into time itself.
bool isUsable(const KvdTuiifIdl2SyncDataInd& ind)
{
    if (ind.mfc <= MFN_LAST && ind.sfc <= SFN_LAST && ind.inc <= INC_LAST && ind.synchPortNo < IDPI_PORTS
        && std::isfinite(ind.intermediaryDuPhaseDiff))
        return true;
    KVD_TRACE(TRACE_TUSLAVE, TRACE_INFO,
              "sync data refused, synchPortNo=%u mfc=%u sfc=%u inc=%u intermediaryDuPhaseDiff=%g",
              ind.synchPortNo, ind.mfc, ind.sfc, ind.inc, ind.intermediaryDuPhaseDiff);
    return false;
}

/// Time and loop as they stood before the restart of this program. A unit whose coarse stage was
/// over then doesn't repeat it.
void takeRestoredWarmData()
{
    if (KvdLoz6SlaveWarm_takeRestored() == 0) return;
    const SlaveWarmData& data = KvdLoz6SlaveWarm_data();
    KvdLoz6TuReg_setOffset(data.delta0_c, KvdLoz6TuReg_getOffset().f);
    KvdLoz6TuReg_setLastTime(data.t_c_last, KvdLoz6TuReg_getLastTime().f);
    KvdLoz6TuReg_slavePll_setYi(data.yi);
    if (data.idpiClkStatus >= IDPI_CLK_STATUS_COARSE_TIME_SYNCED) s->idl2.idl2FineTuning = FINE_STAGE;
    KVD_TRACE(TRACE_TUSLAVE, TRACE_INFO,
              "slave goes on from its warm data, t_c_last=%g s delta0_c=%g s yi=%g idpiClkStatus=%u",
              data.t_c_last, data.delta0_c, data.yi, data.idpiClkStatus);
}

void idl2HandleMeasurementIndex(Measurement& meas)
{
    if (s->idl2.idl2FineTuning == COARSE_STAGE) {
        KvdLoz6TuReg_restartMeasurementCount(Z_IDL2_LOZ6);
        tuHwIf_resetSfcLoadRegisters();
    }
    const u32 m = KvdLoz6TuReg_countMeasurement(Z_IDL2_LOZ6);
    KVD_TRACE(TRACE_TUSLAVE, TRACE_3, "%s(): m = %d", __func__, static_cast<int>(m));
    KvdLoz6TuRef_setSynchPortNo(meas.ind.synchPortNo);
    slave::needs().portData(meas.ind.synchPortNo, meas.own);
}

void idl2CheckLinkMode(u8 linkMode)
{
    if (s->idl2.idl2FineTuning == COARSE_STAGE && linkMode != IDPI_STARTUP_MODE)
        KVD_TRACE(TRACE_TUSLAVE, TRACE_3, "%s(): Slave IDPI linkMode is not IDPI_STARTUP_MODE", __func__);
    if (s->idl2.idl2FineTuning == FINE_STAGE && linkMode != IDPI_SYNCHRONOUS_MODE)
        KVD_TRACE(TRACE_TUSLAVE, TRACE_3, "%s(): Slave IDPI linkMode is not IDPI_SYNCHRONOUS_MODE", __func__);
}

/// One end's delays: true when they may be used. The count stays at the limit, so that each further
/// unstable measurement asks again.
bool checkLinkStability(u8 linkStability, u8& instabilityCnt, const char* end, const char* END,
                        const char* caller)
{
    if (linkStability == IDPI_DELAY_STABLE) {
        instabilityCnt = 0;
        return true;
    }
    ++instabilityCnt;
    KVD_TRACE(TRACE_TUSLAVE, instabilityCnt == 1 ? TRACE_INFO : TRACE_3,
              "%s(): %s IDPI linkStability is not IDPI_DELAY_STABLE. ignoring measurement (%u. "
              "subsequent) and exiting function",
              caller, end, static_cast<u32>(instabilityCnt));
    if (instabilityCnt <= UNSTABLE_IGNORED) return false;
    KVD_TRACE(TRACE_TUSLAVE, TRACE_INFO, "%s() - Synchronizing IDL2 link unstable at %s, initiating handover",
              caller, END);
    --instabilityCnt;
    if (slave::needs().unableToTimeLock() != 0)
        KVD_TRACE(TRACE_TUSLAVE, TRACE_INFO, "%s() - Unable to send unableToTimeLockInd over BIRA_IIF",
                  caller);
    KvdLoz6TuSlave_logIdl2History(1);
    return false;
}

bool idl2CheckLinkStabilityFe(u8 linkStability)
{
    return checkLinkStability(linkStability, s->idl2.instabilityCntFe, "FE", "FE", __func__);
}

bool idl2CheckLinkStabilityNe(u8 linkStability)
{
    return checkLinkStability(linkStability, s->idl2.instabilityCntNe, "Ne", "NE", __func__);
}

/// The master's turn of the frame number began after it told its time: the delays say where in it it is now.
bool hasTurnedSince(const KvdTuiifIdl2SyncDataInd& told, double masterNow)
{
    return hasTurned(masterNow, seconds(0, told.sfc, told.inc), SFN_PERIOD_s);
}

/// Coarse stage: false when the counter can't be read, and the stage isn't over.
bool adjustCoarse(Measurement& meas)
{
    // Coarse time moves only with a sample: without a fresh one it may lag a wrap behind.
    KvdLoz6TuReg_takeSampleTime();
    Counter local{};
    if (!readCounter(local)) {
        KVD_TRACE(TRACE_TUSLAVE, TRACE_INFO, "coarse adjustment waits, counter can't be read");
        return false;
    }
    const KvdTuiifIdl2SyncDataInd& ind = meas.ind;
    const double inTurn = seconds(0, local.sfn, local.inc);
    meas.phaseDiff = slave::neutralizeWraparound(meas.phaseDiff, inTurn, SFN_PERIOD_s);
    KVD_TRACE(TRACE_TUSLAVE, TRACE_INFO, "%s(): phaseDiff (after neutralizing SFN wraparound) = %-17.16g [s]",
              __func__, meas.phaseDiff);
    KvdLoz6TuReg_adjustSlaveOffset(0.0, meas.phaseDiff);
    KvdLoz6TuReg_adjustSlaveOffset(KvdLoz6TuReg_getLastTime().c - ind.esfc * COUNTER_PERIOD,
                                   seconds(local.mfn, 0, 0) - seconds(ind.mfc, 0, 0));
    if (hasTurnedSince(ind, inTurn - meas.phaseDiff)) KvdLoz6TuReg_adjustSlaveOffset(0.0, -SFN_PERIOD_s);
    const TimePair delta0_slave = KvdLoz6TuReg_getSlaveOffset();
    KvdLoz6TuReg_adjust_time(-delta0_slave.c, -delta0_slave.f);
    KvdLoz6TuReg_clearSlaveOffset();
    KVD_TRACE(TRACE_TUSLAVE, TRACE_INFO,
              "%s(): Coarse adjustment complete - d0_c = %-17.16g, d0_f = %-17.16g", __func__, delta0_slave.c,
              delta0_slave.f);
    KvdLoz6TuReg_setMod(COUNTER_PERIOD);
    s->idl2.idl2FineTuning = FINE_STAGE;
    if (s->idl2.repeatFineSyncIndDueTojump == 1)
        KvdLoz6TuReg_startIdl2LinkRestartTimer();
    else
        tellClkStatus(IDPI_CLK_STATUS_COARSE_TIME_SYNCED, "IDPI_CLK_STATUS_COARSE_TIME_SYNCED", __func__);
    meas.keepSnapshot = true;
    return true;
}

void regulateFine(const Measurement& meas)
{
    KvdLoz6TuReg_noteLockedDiff(meas.phaseDiff);
    slave::needs().slavePllControl(meas.total());
    s->idl2.iterationIsRegulated = 1;
}

void takeTime()
{
    double t_s = 0.0;
    if (!KvdLoz6TuReg_calcSampleTimeInterval(t_s))
        KVD_TRACE(TRACE_TUSLAVE, TRACE_3,
                  "IDL2 sampling interval not calculated, times of the last sample stay");
}

void storeTime()
{
    KvdLoz6SlaveWarm_setTime(KvdLoz6TuReg_getLastTime().c, KvdLoz6TuReg_getOffset().c);
    idl2HandleMsiWriting();
}

void report(const Measurement& meas)
{
    const bool counts = slave::needs().timeTuningOngoing() != 0 && slave::needs().hasHwControl() != 0;
    KvdLoz6TuIifAdm_sendIdl2SyncReportInd(counts ? s->idl2.iterationIsRegulated : 0,
                                          counts ? meas.total() : 0.0);
}

/// Data that came after its time: it may be of before the gap.
void skipLateData(const char* caller)
{
    KVD_TRACE(TRACE_TUSLAVE, TRACE_3,
              "%s(): KVD_TUIIF_IDL2_SYNC_DATA_IND possibly received with delay, skipping "
              "measurement!",
              caller);
    KvdLoz6TuRef_setIdl2SyncDataIndTmoCntr(KvdLoz6TuRef_idl2SyncDataIndTmoCntr() - 1);
    s->idl2.idl2SyncDataStopped = 0;
    KvdLoz6TuRef_stopIdl2SyncDataTimer();       // doesn't run when data had stopped
}

/// From the port's data on; true when the measurement was finished.
bool measureOnce(Measurement& meas)
{
    idl2HandleMeasurementIndex(meas);
    idl2CheckLinkMode(meas.own.linkMode);
    if (!idl2CheckLinkStabilityFe(meas.ind.linkStability)) return false;
    if (!idl2CheckLinkStabilityNe(meas.own.linkStability)) return false;
    meas.phaseDiff = slave::phaseDifference(meas.masterDu, meas.own.delay);
    KVD_TRACE(TRACE_TUSLAVE, TRACE_3, "%s(): phaseDiff (as calculated from NCI measurements) = %-17.16g [s]",
              __func__, meas.phaseDiff);
    if (s->idl2.idl2FineTuning == FINE_STAGE) {
        regulateFine(meas);
        takeTime();
    } else if (!adjustCoarse(meas)) {        // has taken its time before the step
        return false;
    }
    storeTime();
    report(meas);
    writeHistory(meas);
    return true;
}

}  // namespace

bool KvdLoz6TuReg_handleIdl2Slave(const Signal* sig)
{
    const auto* ind = as<KvdTuiifIdl2SyncDataInd>(sig);
    if (ind == nullptr) return false;
    if (KvdLoz6TuRef_idl2SyncDataIndTmoCntr() != 0) {
        skipLateData(__func__);
        idl2HandleJumpIndicationFlags(*ind);
        return false;
    }
    KvdLoz6TuRef_stopIdl2SyncDataTimer();
    if (slave::needs().timeTuningOngoing() == 0) {
        KVD_TRACE(TRACE_TUSLAVE, TRACE_ERROR, "Unexpected KVD_TUIIF_IDL2_SYNC_DATA_IND received!");
        return false;
    }
    takeRestoredWarmData();
    idl2HandleJumpIndicationFlags(*ind);
    if (s->idl2.postponeTimeTuning == 1) {
        KVD_TRACE(TRACE_TUSLAVE, TRACE_3,
                  "%s(): Time tuning postponed on slave DU, exiting function silently!", __func__);
        return false;
    }
    if (!isUsable(*ind)) return false;
    s->idl2.iterationIsRegulated = 0;
    Measurement meas{
        *ind, {ind->delayT1C1High, ind->delayT1C1Low, ind->delayC4T1High, ind->delayC4T1Low}, {}, 0.0, false};
    if (ind->directConn == 0 && ind->intermediaryDuFineTimeSynching == 0) {
        KVD_TRACE(TRACE_TUSLAVE, TRACE_3,
                  "%s(): This slave DU is indirectly connected to master DU and intermediary slave "
                  "DU has not yet reached IDL2_TSYNC_FINE_TUNING stage, exiting function",
                  __func__);
        writeHistory(meas);
        return false;
    }
    return measureOnce(meas);
}

void KvdLoz6TuSlave_idl2SyncDataStopped(u32 stopped) { s->idl2.idl2SyncDataStopped = stopped; }
u32  KvdLoz6TuSlave_isIdl2SyncDataStopped() { return s->idl2.idl2SyncDataStopped; }

void KvdLoz6TuSlave_idl2Reset()
{
    const u32 stopped = s->idl2.idl2SyncDataStopped;
    s->idl2 = slave::Idl2State{};
    s->idl2.idl2SyncDataStopped = stopped;
    KvdLoz6TuReg_cancelIdl2LinkRestartTimer();
}
