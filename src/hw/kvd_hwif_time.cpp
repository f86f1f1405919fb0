// kvd_hwif_time.cpp - Frame counters: running, latched at the 1PPS, stepped; NTP stamp.
#include "hw/kvd_hwif.h"
#include "hw/kvd_hwif_priv.h"

#include "base/kvd_math.h"
#include "base/kvd_mgr_hwdiag_log.h"
#include "base/trace_groups.h"
#include "base/tu_common.h"
#include "node/mmio.h"
#include "node/trace.h"
#include "ose/ose.h"

#include <cmath>

using namespace hwif;

namespace {

constexpr u32 STEP_THRESHOLD = 5;           // increments; a smaller step alone isn't made
constexpr u32 LOAD_ORDER = 0x5;             // bits of the load control
constexpr u32 LOAD_BITS = 0x7;
constexpr u32 LOAD_DONE = 0x1;
constexpr OSTIME LOAD_TIME_ms = 12;         // the hardware loads at the next frame, 10 ms at most
constexpr u32 TEST_BASE_ADDRESS = 20;       // report numbers of the hardware diagnostics
constexpr u32 TEST_BOARD_TYPE = 10;

/// Time of a triple; the counter was somewhere within the increment that was read.
double timeOf(const Sfc& c) { return (increments(c) + 0.5) / INCREMENTS_PER_SECOND; }

const char* faultText(SfcFault fault)
{
    switch (fault) {
    case SfcFault::Sfc: return "SFC value out of range";
    case SfcFault::Mfc: return "MFC value out of range";
    default:            return "Increment value out of range";
    }
}

bool readRunningCounter(Sfc& c)
{
    const u32 board = getBoardType();
    c = {};
    if (board == BOARD_UNKNOWN) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "Unable to determine hardware type.");
        KvdLoz6HwDiag_reportError(TEST_BOARD_TYPE);
        return false;
    }
    const auto frames = readRegister(REG_SFC_FRAMES);   // this read latches the increments
    if (!frames) {
        KvdLoz6HwDiag_reportError(TEST_BASE_ADDRESS);
        return false;
    }
    node::ioBarrier();
    const Sfc read = unpackCounter(board, *frames, readRegisterOr0(REG_SFC_INCREMENTS));
    if (!isCounter(read)) {
        KvdLoz6HwDiag_reportSfcFailure(faultText(checkSfc(read)));
        return false;
    }
    c = read;
    return true;
}

bool readLatch(Sfc& c)
{
    const u32 board = getBoardType();
    c = {};
    if (board == BVQ3 && (readRegisterOr0(REG_LATCH_VALID) & BIT31) == 0) return false;
    const auto frames = readRegister(REG_LATCH_FRAMES);
    if (!frames || (board == BVQ1 && (*frames & BIT31) == 0)) return false;
    node::ioBarrier();
    const Sfc read = unpackCounter(board, *frames, readRegisterOr0(REG_LATCH_INCREMENTS));
    if (!isCounter(read, "Latched ")) return false;
    c = read;
    return true;
}

bool isDone(bool result, const char* operation)
{
    if (!result) KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "%s failed", operation);
    return result;
}

/// Steps by whole counters and, on the newer board, the extended counter; true performed.
bool adjustTimeType1(const Sfc& step)
{
    if (step.mfn == 0 && step.sfn == 0 && step.inc < STEP_THRESHOLD) {
        KVD_TRACE(
            TRACE_TUHWIF, TRACE_3,
            "No time adjustment performed, as the value to adjust the sfc register is below 32ns "
            "threshold.");
        return false;
    }
    if (!isDone(tuHwIf_adjustSfc(step), "tuHwIf_adjustSfc")) return false;
    KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "Time adjustment performed.");
    return true;
}

bool adjustTimeType2(double ext_t, Sfc step)
{
    const u32 e = static_cast<u32>(static_cast<i64>(ext_t));   // modulo its width, also backwards
    if (step.mfn == 0 && step.sfn == 0 && step.inc < STEP_THRESHOLD) {
        if (e == 0) {
            KVD_TRACE(TRACE_TUHWIF, TRACE_3,
                      "No time adjustment performed, values are below threshold: ext=%u, mfn=%hu, "
                      "sfn=%hu, "
                      "inc=%u",
                      e, step.mfn, step.sfn, step.inc);
            return false;
        }
        step.inc = 0;
    }
    if (!isDone(tuHwIf_adjustSfc(step), "tuHwIf_adjustSfc") ||
        !isDone(tuHwIf_adjustExtSfc(e), "tuHwIf_adjustExtSfc") || !isDone(tuHwIf_loadSfc(), "tuHwIf_loadSfc"))
        return false;
    KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "Time adjustment performed: ext=%s, mfn=%hu, sfn=%hu, inc=%u",
              TuCommon_text(ext_t), step.mfn, step.sfn, step.inc);
    return true;
}

}  // namespace

bool hwif::isCounter(const Sfc& c, const char* whose, const char* increment)
{
    const auto refuse = [whose](const char* field, u32 value) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "%s%s value out of range 0x%x", whose, field, value);
        return false;
    };
    switch (checkSfc(c)) {
    case SfcFault::Sfc:       return refuse("SFC", c.sfn);
    case SfcFault::Mfc:       return refuse("MFC", c.mfn);
    case SfcFault::Increment: return refuse(increment, c.inc);
    default:                  return true;
    }
}

// ---- conversion -------------------------------------------------------------------------------

double tuHwIf_sfcToIncrements(u16 mfn, u16 sfn, u32 inc) { return increments({mfn, sfn, inc}); }

void tuHwIf_incrementsToSfc(double d, u16& mfn, u16& sfn, u32& inc)
{
    const double rest = KvdLoz6Math_fmodSignY(d, INCREMENTS_PER_FRAME);
    const double frames = (d - rest) / INCREMENTS_PER_FRAME;
    const double frame = KvdLoz6Math_fmodSignY(frames, 4096.0);
    inc = static_cast<u32>(rest);
    sfn = static_cast<u16>(frame);
    mfn = static_cast<u16>(KvdLoz6Math_fmodSignY((frames - frame) / 4096.0, 25.0));
}

// ---- reading ----------------------------------------------------------------------------------

int tuHwIf_readSfc(u16& mfn, u16& sfn, u32& inc)
{
    Sfc c;
    const bool isRead = readRunningCounter(c);
    mfn = c.mfn;
    sfn = c.sfn;
    inc = c.inc;
    return isRead ? 0 : 1;
}

int tuHwIf_readTime(double& period, double& time)
{
    Sfc c;
    period = 0;
    time = 0;
    if (!readRunningCounter(c)) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "Read SFC failed");
        return 1;
    }
    period = PERIOD_s;
    time = timeOf(c);
    return 0;
}

int tuHwIf_getSfnAndCorrespondingTime(u16& sfn, double& period, double& time)
{
    Sfc c;
    sfn = 0;
    period = 0;
    time = 0;
    if (!readRunningCounter(c)) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "Read SFC failed");
        return 1;
    }
    sfn = c.sfn;
    period = PERIOD_s;
    time = timeOf({c.mfn, c.sfn, 0});
    return 0;
}

int tuHwIf_readGpsFc(u16& mfn, u16& sfn, u32& inc)
{
    Sfc c;
    const bool isRead = readLatch(c);
    mfn = c.mfn;
    sfn = c.sfn;
    inc = c.inc;
    return isRead ? 0 : 1;
}

int tuHwIf_readLatchedRefClock(double& period, double& time)
{
    Sfc c;
    period = 0;
    time = 0;
    if (!readLatch(c)) return 1;
    period = PERIOD_s;
    time = timeOf(c);
    return 0;
}

int tuHwIf_readNtp(u32& seconds, u32& fraction)
{
    const auto word1 = readRegister(REG_NTP_WORD1);
    seconds = word1.value_or(0);
    fraction = word1 ? readRegisterOr0(REG_NTP_WORD2) : 0;
    return word1 ? 0 : 1;
}

// ---- stepping ---------------------------------------------------------------------------------

bool hwif::tuHwIf_adjustSfc(const Sfc& step)
{
    if (!writeRegister(REG_LOAD_FRAMES, packStepFrames(step.mfn, step.sfn))) return false;
    node::ioBarrier();
    return writeRegister(REG_LOAD_INCREMENTS, packStepIncrements(getBoardType(), step.inc));
}

bool hwif::tuHwIf_adjustExtSfc(u32 e)
{
    node::ioBarrier();
    return writeRegister(REG_LOAD_EXT_SFC, e & 0xFFFFFF);
}

bool hwif::tuHwIf_loadSfc()
{
    if (!updateRegister(REG_LOAD_CONTROL, 0, LOAD_ORDER)) return false;
    node::ioBarrier();
    ose::delay(LOAD_TIME_ms);
    if ((readRegisterOr0(REG_LOAD_STATUS) & LOAD_DONE) == 0) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "SFC_LOAD_WAITING");
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "Loading value to SFC not finished in 10 ms.");
        return false;
    }
    KVD_TRACE(TRACE_TUHWIF, TRACE_3, "SFC_LOAD_DONE");
    return updateRegister(REG_LOAD_CONTROL, LOAD_BITS, 0);
}

Sfc hwif::stepOf(double t)
{
    Sfc step;
    tuHwIf_incrementsToSfc(std::trunc(t * INCREMENTS_PER_SECOND + 0.5), step.mfn, step.sfn, step.inc);
    return step;
}

bool tuHwIf_adjustTime(double ext_t, double t)
{
    const u32 board = getBoardType();
    if (board == BOARD_UNKNOWN) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "Unsupported HW");
        return false;
    }
    const Sfc step = stepOf(t);
    return board == BVQ3 ? adjustTimeType2(ext_t, step) : adjustTimeType1(step);
}

int  tuHwIf_writeSfc(u16 mfn, u16 sfn, u32 inc)
{
    const Sfc wanted{mfn, sfn, inc};
    Sfc now;
    if (!isCounter(wanted) || !readRunningCounter(now)) return 1;
    // The load registers hold a step, so the counters come to stand at the wanted value by the
    // difference.
    Sfc step;
    tuHwIf_incrementsToSfc(
        KvdLoz6Math_fmodSignY(increments(wanted) - increments(now), INCREMENTS_PER_PERIOD),
        step.mfn, step.sfn, step.inc);
    const bool isNewer = getBoardType() == BVQ3;
    return tuHwIf_adjustSfc(step) && (!isNewer || (tuHwIf_adjustExtSfc(0) && tuHwIf_loadSfc())) ? 0 : 1;
}

void tuHwIf_resetSfcLoadRegisters()
{
    switch (getBoardType()) {
    case BVQ1: break;
    case BVQ3:
        for (const u32 id : {REG_LOAD_EXT_SFC, REG_LOAD_FRAMES, REG_LOAD_INCREMENTS}) writeRegister(id, 0);
        break;
    default:
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "tuHwIf_resetSfcLoadRegisters failed due to unsupported hw");
        break;
    }
}
