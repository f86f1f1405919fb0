// kvd_hwif_priv.h - What the sources of the hardware interface share: register access by id, the
// board's state, the steps of the cold start. Nobody else includes it, but for the tests.
// Owner   each function's own source; state is written there alone.
// Errors  a register that can't be reached is traced once, in findRegister; reads then give nothing, writes
//         do nothing.
#pragma once
#include "hw/kvd_hwif_regs.h"
#include "hw/kvd_hwif_words.h"

#include <array>
#include <optional>

namespace hwif {

/// Cut to a whole number of 32 bits; 0 for what has none.
constexpr u32 wholeOr0(double value)
{
    return value >= 1.0 && value < 4294967296.0 ? static_cast<u32>(value) : 0;
}

// ---- kvd_hwif.cpp: access ---------------------------------------------------------------------
std::optional<u32> readRegister(u32 id);
/// The same, 0 when it can't be reached.
u32 readRegisterOr0(u32 id);
bool writeRegister(u32 id, u32 value);
/// Reads, clears and sets bits, writes.
bool updateRegister(u32 id, u32 clear, u32 set);
/// Address of the id; nothing (traced) when there is none.
std::optional<u32> findRegister(u32 id);
const BaseAddresses& baseAddresses();
u32 revisionAtStart();

// ---- kvd_hwif_osc.cpp: divider and delta-sigma ------------------------------------------------

/// Nominal start values of a board. The divisor register holds nomDiv - 1.
struct NominalValues { u32 nomDiv; i64 K; i64 M; u32 synthC; };
constexpr NominalValues NOMINAL_REV3 = {1250, 0, 800000000, 0}; // synth C not written
constexpr NominalValues NOMINAL_EXT_PHASE = {110, 260904947, 800000000, 99};
constexpr NominalValues NOMINAL_TYPE2 = {706, 69791666, 800000000, 1592};
constexpr NominalValues NOMINAL_TYPE1 = {706, 69791666, 800000000, 398};
constexpr NominalValues nominalValues(u32 boardType, u32 isRev3, u32 extPhaseDetector)
{
    if (isRev3 != 0) return NOMINAL_REV3;
    if (extPhaseDetector != 0) return NOMINAL_EXT_PHASE;
    return boardType == BVQ3 ? NOMINAL_TYPE2 : NOMINAL_TYPE1;
}
NominalValues nominalValues();
/// nomDiv + K/M.
constexpr double nominalRatio(const NominalValues& n)
{
    return n.nomDiv + static_cast<double>(n.K) / static_cast<double>(n.M);
}

/// What a relative frequency comes to. divisor in register form; ratio = divisor + 1 + K/M. inRange
/// is false when no 14-bit divisor gives that ratio.
struct FrequencyWords { double U_nom; double U; double divisor; i64 K = 0; bool inRange = false; };
FrequencyWords frequencyWords(const NominalValues& nominal, double relative, double wander);
/// Largest |relative| that adjustFrequency takes.
double frequencyLimit(u8 isMaster, u8 selectedRef, u32 idlMode);
/// (divisor register + 1 + K/M) / U_nom - 1; 0.0 when M is 0, as it reads without hardware.
double currentFrequency(const NominalValues& nominal, u32 divisor, i64 K, i64 M);

void setRev3(u32 isRev3);
void setExtPhaseDetector(u32 present);
u32  extPhaseDetector();
double nomDivOld();
void setNomDivOld(double divisor);
void tuHwIf_writeSynthcDivider(u32 divider);
/// Divider, delta-sigma, multiplicator and PLL IC from nothing; false when an IC didn't answer.
bool coldStartSynthesiser(u32 revision);

// ---- kvd_hwif_mult.cpp: the ICs ---------------------------------------------------------------
/// False when an IC didn't take a word.
bool tuHwIf_writeMultiplicator();
bool tuHwIf_writeExternalPllIC();
/// Three attempts of write, read back, feedback check.
bool writeAndCheckMultiplicator();
bool readAndCheckMultiplicator();
void enableExternalPll();
u32 readA1Ref();

// ---- kvd_hwif_time.cpp: counters --------------------------------------------------------------
/// The step of the counters that `t` s, 0 up to 1024, are.
Sfc stepOf(double t);
bool tuHwIf_adjustSfc(const Sfc& step);
bool tuHwIf_adjustExtSfc(u32 e);
bool tuHwIf_loadSfc();
/// Whether it can be; a field that is out of its range is traced, behind `whose`.
bool isCounter(const Sfc& c, const char* whose = "", const char* increment = "Increment");

// ---- kvd_hwif_bfn.cpp -------------------------------------------------------------------------

/// Keeps runs of noise on the BFN input away from the logic. Times in s of the frame counter.
struct BfnNoiseFilter {
    u32 active = 0;
    double last = 0;         // time of the last word
    double start = 0;        // when noise began
    u32 parityRun = 0;       // close parity errors in a row
    u32 goodCount = 0;       // words in a row at their distance, while noise is active
};
enum class BfnNoise : u8 { Quiet, Began, Ceased };
/// Takes one valid word at time T into the filter.
BfnNoise filterBfnNoise(BfnNoiseFilter& filter, double T, bool parityError);
const BfnNoiseFilter& bfnNoiseFilter();

// ---- kvd_hwif_gpsout.cpp ----------------------------------------------------------------------

/// What stands in persistent memory before its checksum.
struct GpsOutData { u32 mfnOffset = 0; u32 mfn = 0; };

struct GpsOutSources {
    bool isMaster;
    double t_c;              // master: the regulator's coarse time, s
    u32 outValid;            // slave: the output's time is valid
    double outTime;          // slave: s
};
struct GpsOutReading { double time; bool missedWrap; bool adjusted; u32 reported_mfnOffset; };
/// Time of the counter with its lost wraps; moves the record to what has to be stored.
GpsOutReading extendGpsOutTime(const Sfc& counter, const GpsOutSources& sources, GpsOutData& data);

struct GpsOutStep { double t_f_out; double t_f_diff; u32 x; u32 frames; u32 inc; };
/// Step of the output counter to the next whole second; delay in eighths of an increment.
GpsOutStep gpsOutStep(const Sfc& counter, i32 delayEighths);

// ---- kvd_hwif_ocxo.cpp ------------------------------------------------------------------------
/// Reads, validates (four times at most) and takes the identity over.
bool startOcxo();
const char* heldPartNumber();
/// Temperature limit (index 7 lowest, 8 highest) of an oscillator model from its EEPROM's value.
double temperatureLimit(const char* partNumber, u32 index, double eeprom);
/// Days of the calibration at `now` (s since 1970).
double daysSince(const std::tm& date, i64 now);

// ---- kvd_hwif_wander.cpp ----------------------------------------------------------------------
double wanderOffset(double f_mHz, double a_ns, double o, u32 index);
/// ms; 0 when the frequency gives none.
u32 wanderInterval(double f_mHz);
struct WanderState { u32 active; u32 index; u32 timerRuns; };
WanderState wanderState();

}  // namespace hwif
