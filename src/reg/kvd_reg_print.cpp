// "tureg" section of kvdinfo.
#include "base/trace_groups.h"
#include "node/platform.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control.h"
#include "reg/kvd_reg_estimate.h"
#include "reg/kvd_reg_int.h"
#include "reg/kvd_reg_jump.h"
#include "reg/kvd_reg_measure.h"
#include "reg/kvd_reg_measure_int.h"
#include "reg/kvd_reg_packet.h"
#include "reg/kvd_reg_pll.h"
#include "reg/kvd_reg_upcalls.h"

using node::shellPrintf;

namespace {

const char* timeModeText(u8 timeMode)
{
    switch (timeMode) {
    case FREQUENCY_LOCKING:     return "FREQUENCY_LOCKING";
    case ABSOLUTE_TIME_LOCKING: return "ABSOLUTE_TIME_LOCKING";
    default:                    return "<Unknown>";
    }
}

const char* runs(const KvdTimer& timer) { return timer.runs() ? "running" : "stopped"; }
const char* yesNo(u32 value) { return value != 0 ? "yes" : "no"; }

void printStartUp(const regulator::State& s)
{
    shellPrintf("   tuRegInitiateState   : %s (%u)\n", regulator::initiateStateText(s.tuRegInitiateState),
                s.tuRegInitiateState);
    const u32 room = static_cast<u32>(s.startUpHistory.size());
    for (u32 i = s.startUpChanges > room ? s.startUpChanges - room : 0; i < s.startUpChanges; ++i) {
        const regulator::StartUpChange& change = s.startUpHistory[i % room];
        shellPrintf("      tick %10u     : %s => %s\n", change.ticks,
                    regulator::initiateStateText(change.from), regulator::initiateStateText(change.to));
    }
    shellPrintf("   passedWarmup         : %s\n", yesNo(s.passedWarmup));
    shellPrintf("   noisy counter        : %u of %u temperature ticks\n", s.initCnt,
                regulator::TICKS_COUNTED);
    shellPrintf("   initialFrequencyDrift: %g\n", KvdLoz6TuReg_initialFrequencyDrift());
    shellPrintf("   warm-up timer        : %s\n   read temp timer      : %s\n", runs(s.warmupTimer),
                runs(s.readTempTimer));
}

void printModes(const regulator::State& s)
{
    const u8 timeMode = KvdLoz6TuReg_timeMode();
    shellPrintf("   master or slave      : %s\n", s.masterSlaveMode != 0 ? "master" : "slave");
    shellPrintf("   coldRestart          : %s\n", yesNo(s.coldRestart));
    shellPrintf("   time mode            : %s (%u), at the last start or change %u, before %u\n",
                timeModeText(timeMode), timeMode, s.tureg_timeMode, s.previousTimeMode);
    shellPrintf("   test mode            : %s\n", yesNo(s.testMode));
    shellPrintf("   dual configuration   : %s\n", yesNo(s.dualConfiguration));
    shellPrintf("   jumpState            : %u\n", KvdLoz6TuReg_jumpState());
    shellPrintf("   PLL, slave PLL state : %u, %u\n", KvdLoz6TuReg_pllState(), KvdLoz6TuReg_slavePllState());
    shellPrintf("   masterSel, slaveSel  : %u, %u\n   msiUsed, flashUsed   : %u, %u\n", s.masterSel,
                s.slaveSel, s.msiUsed, s.flashUsed);
}

void printTime(const regulator::State& s)
{
    shellPrintf("   sfcGpsOffset         : %-16.17g s since 1980-01-06 00:00:19\n", s.sfcGpsOffset);
    shellPrintf("   sfcPtpOffset         : %-16.17g s since 1970-01-01 00:00:00\n", s.sfcPtpOffset);
    shellPrintf("   SfnInitTime delta    : %-16.17g s\n", s.restartDelta);
    shellPrintf("   calibration expiry   : %s\n",
                s.calibrationExpiry[0] != '\0' ? s.calibrationExpiry : "not known");
}

void printOtherUnit(const regulator::State& s)
{
    if (s.receivedTimeDataInd == 0) {
        shellPrintf("   other unit           : no time data\n");
        return;
    }
    const regulator::OtherUnit& o = s.otherLoz6Data;
    shellPrintf("   other unit           : %s (%u)%s\n", KvdLoz6TuReg_regStateText(o.regState),
                o.regState, s.newTimeData != 0 ? ", not used yet" : "");
    shellPrintf(
        "      t_c               : %-16.17g s\n      delta0_c, delta0_f: %-16.17g, %-16.17g s\n",
        o.t_c, o.delta0_c, o.delta0_f);
    shellPrintf(
        "      x_est_1, x_est_2  : %-16.17g s, %-16.17g\n      P_est_1_1         : %-16.17g\n",
        o.x_est_1, o.x_est_2, o.P_est_1_1);
}

void printNoise(const MeasStateVar& v)
{
    shellPrintf("   z_i  reference      m            R [s^2]\n");
    for (u32 z_i = 1; z_i < Z_I_COUNT; ++z_i)
        shellPrintf("   %2u%c  %-14s %-12g %g\n", z_i,
                    z_i == KvdLoz6TuReg_measurementIndex(v.selectedRef) ? '*' : ' ',
                    KvdLoz6TuReg_measurementText(z_i), v.m[z_i], v.R_all[z_i]);
}

}  // namespace

void KvdLoz6TuReg_measPrintInfo()
{
    const measure::State& s = measure::state();
    const MeasStateVar& v = s.var;
    shellPrintf("\n***** Measurements *****\n");
    shellPrintf("   selectedRef          : %s (%u)\n   prevSelectedRef      : %s (%u)\n",
                KvdLoz6TuReg_measurementText(KvdLoz6TuReg_measurementIndex(v.selectedRef)), v.selectedRef,
                KvdLoz6TuReg_measurementText(KvdLoz6TuReg_measurementIndex(v.prevSelectedRef)),
                v.prevSelectedRef);
    shellPrintf("   vT                   : %g V (%g - %g), seen %g - %g, normalised %g\n", v.vT, v.vTmin,
                v.vTmax, v.vTlow, v.vThigh, v.vTnorm);
    shellPrintf("   nrBadSamples         : %u\n   nrOutRange           : %u\n", v.nrBadSamples, v.nrOutRange);
    shellPrintf("   t_c_last, t_f_last   : %-16.17g, %-16.17g s\n", v.t_c_last, v.t_f_last);
    shellPrintf("   t_mod_old            : %g s%s\n", v.t_mod_old,
                KvdLoz6TuReg_knowsTime() ? ", time is known" : "");
    shellPrintf("   delta0_c, delta0_f   : %-16.17g, %-16.17g s\n", v.delta0_c, v.delta0_f);
    shellPrintf("   delta0_slave_c, _f   : %-16.17g, %-16.17g s\n", v.delta0_slave_c, v.delta0_slave_f);
    shellPrintf("   refBreak             : %u\n   pktRate              : %u\n", v.refBreak, v.pktRate);
    shellPrintf("   histCountDown        : %g ticks of 2.1 s\n   calibrationCountDown : %g s\n",
                v.histCountDown, v.calibrationCountDown);
    shellPrintf(
        "   mean_dsfc, jump_idl1 : %g, %u\n   max_locked           : diff %g, interval diff %g\n",
        v.mean_dsfc, v.jump_idl1, v.max_locked_diff, v.max_locked_interval_diff);
    shellPrintf("   coldRestartFlag      : %u\n   portSupervised       : %u, %u\n",
                s.coldRestartFlag, s.portSupervised[0], s.portSupervised[1]);
    shellPrintf("   pp1sBoardDelay       : %g s\n", s.pp1sBoardDelay);
    shellPrintf("   SFC to NTP           : %-16.17g, %-16.17g s, equal in a row %u, check %s\n", s.diff_c,
                s.diff_f, s.countConsecutiveDiff, s.diffCheckActive != 0 ? "on" : "off");
    shellPrintf("   last sample          : z %-16.17g  z_i %s  t_s %g s  m %g  R %g\n", v.measRefData.z,
                KvdLoz6TuReg_measurementText(v.measRefData.z_i), v.measRefData.t_s, v.measRefData.m,
                v.measRefData.R);
    printNoise(v);
}

void KvdLoz6TuReg_printInfo()
{
    const regulator::State& s = regulator::state();
    shellPrintf("\n***** KVD LOZ6 tureg related data *****\n");
    printModes(s);
    printStartUp(s);
    printTime(s);
    printOtherUnit(s);
    KvdLoz6TuReg_measPrintInfo();
    KvdLoz6TuReg_estimatePrintInfo();
    KvdLoz6TuReg_controlPrintInfo();
    KvdLoz6TuReg_pllPrintInfo();
    KvdLoz6TuReg_packetPrintInfo();
    REG_UPCALLS.printSlave();
}
