// kvd_hwif.h - Hardware interface: frame counters, divider and delta-sigma, reference multiplexer,
// toggle detectors, interrupts, EEPROM and temperature of the oscillator, down to registers.
// Owner   the manager process; the interrupt process only touches the pending word and the line.
// Units   seconds unless told; counters as triples (mfn 0 to 24, sfn 0 to 4095, inc 0 to 1228799).
// Errors  0 is success, any other value failure; a register that can't be reached is traced, and
//         reads then give 0.
#pragma once
#include "ose/types.h"

#include <ctime>

struct Signal;

constexpr u32 BOARD_UNKNOWN = 0, BVQ1 = 1, BVQ3 = 2;

/// Board type, read once: BOARD_UNKNOWN, BVQ1, BVQ3.
u32  getBoardType();
u32  tuHwIf_initiateBoardType();
/// Finds the base addresses; 0 done.
int  tuHwIf_initBaseAddresses();
/// 0 good, 1 OCXO EEPROM, 2 multiplicator or PLL IC, 3 board type, 4 first register.
int  tuHwIf_initiate(u32& coldRestart, u32 basicHwInit);
/// Address of a register id, or failure in the high word.
u64  tuHwIf_lookupRegister(u32 id);
const char* tuHwIf_getSerialPort(u32& boardType);
u32  tuHwIf_readFpgaRev();
/// Element of the dispatch chain: wander generation.
bool tuHwIf_dispatch(Signal* sig);
/// Relative frequency offset of the wander generator, 0.0 while it doesn't run.
double tuHwIf_wanderOffset();

// ---- time counters ----------------------------------------------------------------------------
/// Running counter: time 0.0 up to 1024.0, period 1024.0. 1 when it can't be read or holds no count.
int  tuHwIf_readTime(double& period, double& time);
/// The same as a triple, which is then in its ranges.
int  tuHwIf_readSfc(u16& mfn, u16& sfn, u32& inc);
/// Time and frame number of one reading.
int  tuHwIf_getSfnAndCorrespondingTime(u16& sfn, double& period, double& time);
/// Sets the counter, at its next load.
int  tuHwIf_writeSfc(u16 mfn, u16 sfn, u32 inc);
/// Steps the counter by t, and its turns by ext_t: true performed, false not needed or failed.
bool tuHwIf_adjustTime(double ext_t, double t);
/// The counter as the selected reference's last edge latched it.
int  tuHwIf_readLatchedRefClock(double& period, double& time);
/// The same as a triple.
int  tuHwIf_readGpsFc(u16& mfn, u16& sfn, u32& inc);
/// Nothing is left to be loaded.
void tuHwIf_resetSfcLoadRegisters();
/// NTP format: seconds and 2^-32 fraction; board type 1.
int  tuHwIf_readNtp(u32& seconds, u32& fraction);

struct BfnIn {
    u32 extended;            // 1 when the extended words are present
    u16 mfn, sfn; u32 inc;   // local
    u16 remoteMfn, remoteSfn;
    u32 word1, word2;        // extended words
};
/// 0 good, 1 no register, value out of range or noise, 4 no valid data, 5 parity error.
int  tuHwIf_readBfnIn(BfnIn& in);
struct BfnAll {
    u32 extended; u32 inc; u32 e_sfc; u32 rc_state; u32 jump; u32 ms_flag;
    double meanDifference;   // increments
    u32 coldRestartFlag_tmp; u32 valid;
};
int  tuHwIf_readBfnAll(BfnAll& all);
int  tuHwIf_readBfnInAll(BfnAll& all);                   // the same operation by its other name
/// The two extended words that the other board reads.
void tuHwIf_writeBfnOut(u32 word1, u32 word2);
/// Packs and writes: inc_diff 22 bits, e_sfc 22 bits, rc_state 4 bits.
void tuHwIf_writeBfnOutPacked(u32 inc_diff, u32 e_sfc, u32 rc_state, u32 jump, u32 coldRestartFlag_tmp,
                              u32 ms_flag);

/// The GPS output's counter, its turns kept across a restart: time in s, period 1024.0.
int  tuHwIf_readGpsOutTime(double& period, double& time);
int  tuHwIf_readGpsOutSfc(u16& mfn, u16& sfn, u32& inc);
/// Moves the output's pulse to the whole second, less the delay in eighths of an increment, whole ones of it.
int  tuHwIf_adjustGpsOutTime(i32 delayEighths);
/// The computation of adjustGpsOutTime, traced only.
void tuHwIf_printGpsOutTime(i32 delayEighths);
/// Step of the output's counter, as its register takes it: frames below 4096, increments below 1228800.
int  tuHwIf_adjustGpsOutOffset(u32 frames, u32 inc);
/// Forgets the output's kept turns.
void tuHwIf_resetGpsOutMsiMem();

/// Increments of a triple since the counter's period began, and back; of any other count modulo that period.
double tuHwIf_sfcToIncrements(u16 mfn, u16 sfn, u32 inc);
void   tuHwIf_incrementsToSfc(double increments, u16& mfn, u16& sfn, u32& inc);

// ---- oscillator, synthesiser ------------------------------------------------------------------
/// Steers to this relative frequency over the factory divider's. One beyond 1e-5, by role and reference,
/// is traced and not written.
void   tuHwIf_adjustFrequency(double relative);
/// What the registers stand for, in the same measure; 0.0 with an empty M.
double tuHwIf_readCurrentFrequency();
/// The same, as the loop of a PLL reference starts from it.
double tuHwIf_getCurrentFreqOffset();
u32    tuHwIf_readNominalDivisor();               // 14 bits, register form
void   tuHwIf_writeNominalDivisor(u32 divisor);
/// Fraction K / M of the divider, 44 bits each with sign; a write is read back, and a failure traced.
i64    tuHwIf_readDeltaSigmaM();
void   tuHwIf_writeDeltaSigmaM(i64 M);
i64    tuHwIf_readDeltaSigmaK();
void   tuHwIf_writeDeltaSigmaK(i64 K);
/// The words written take effect.
void   tuHwIf_enableDeltaSigma();
u32    tuHwIf_readNomDiv();                       // nominal start values
i64    tuHwIf_readInitDeltaSigmaM();
i64    tuHwIf_readInitDeltaSigmaK();
/// Relative frequency a divider unit moves, at divider U: -1 / U; with the factory's for 0, traced.
double tuHwIf_calcOcxoGain(double U);
double tuHwIf_factoryDivider();                   // nomDiv + K/M
/// Either of two times is more than an increment of the counter, of either sign.
bool   tuHwIf_isOverOneIncrement(double a, double b);
/// Of the oscillator's own nominal frequency in its EEPROM against the board's.
double tuHwIf_relativeNominalOffset();
/// Clock of the baseband, board type 1.
void   tuHwIf_enableBbClk(u32 on);
u32    tuHwIf_readSynthStatus();
u32    tuHwIf_isRev3();
u32    tuHwIf_checkExtPhaseDetector();

// ---- references, interrupts -------------------------------------------------------------------
/// Reference multiplexer: a HaliSyncRef.
int  tuHwIf_selectSynchRef(u32 selector);
/// Lines that toggle, in the bits of hali.h whatever the board; then as the register has them.
u32  tuHwIf_readToggleStatus();
u32  tuHwIf_readToggleStatusReg();
/// Puts one of the hardware monitors in a mode, for a test at start; 1 for one that isn't there.
int  tuHwIf_hwDiag(u32 hm, u32 mode);
/// Pending interrupts, and the mask of enable and disable, on either board.
constexpr u32 TU_BFN_IN_INT      = 0x1;   // port A: BFN in on a master, IDL1 in on a slave
constexpr u32 TU_100MS_INT       = 0x2;
constexpr u32 TU_INT_REF_CLK_INT = 0x4;   // the selected reference's edge is latched
constexpr u32 TU_GPS_OUT_INT     = 0x8;
u32  tuHwIf_readPendingIsr();
int  tuHwIf_enableIsr(u32 mask);
int  tuHwIf_disableIsr(u32 mask);
void tuHwIf_enableExtInt();
void tuHwIf_disableExtInt();
void tuHwif_startIntProc();
void tuHwif_killIntProc();

// ---- oscillator's EEPROM and temperature ------------------------------------------------------
u32    tuHwIf_isEepromLoaded();
int    tuHwIf_readOcxoEeprom();
int    tuHwIf_validateOcxoEeprom();
double tuHwIf_readOcxoCoeff(u32 index);
int    tuHwIf_readOcxoCalibDate(std::tm& date);
int    tuHwIf_isCalibrated();
int    tuHwIf_readOcxoTemp(double& volts);
int    tuHwIf_readOcxoSerial(char serial[18], u8& version, u8& manufacturer);
int    tuHwIf_readOcxoPartNum(char text[12]);
void   tuHwIf_setCalibrationLimit(u8 days);
u8     tuHwIf_calibrationLimit();

// ---- output, FSYNC, test access ---------------------------------------------------------------
void tuHwIf_enableGpsOut(u32 enable);
u32  tuHwIf_isGpsOutEnabled();
void tuHwIf_setFsync(u32 on);
void tuHwIf_setFsyncInterval(u32 interval);
void tuHwIf_setFsyncPattern(u32 bfn);
void tuHwIf_setFsyncAlignment(u32 rising);
void tuHwIf_setMokaTestMux(u32 on);
void tuHwIf_setMokaTestBus(u32 on);

/// "tuhwif related data" to the shell.
void tuHwIf_printInfo();
