// kvd_hwif_gpsout.cpp - The second counter, which the FPGA runs at the GPS output: its time beyond
// 1024 s, and its step to the whole second.
#include "hw/kvd_hwif.h"
#include "hw/kvd_hwif_priv.h"

#include "base/trace_groups.h"
#include "base/tu_common.h"
#include "hw/kvd_hwif_upcalls.h"
#include "node/bytes.h"
#include "node/mmio.h"
#include "node/trace.h"
#include "store/kvd_mgr_mem.h"

#include <cmath>

using namespace hwif;

namespace {

constexpr u32 FRAMES_MAX = 0x7F;
constexpr u32 INCREMENTS_LIMIT = 2097152;   // 21 bits
constexpr u16 WRAP_MFN = 24;
constexpr u16 WRAP_SFN = 3995;              // within the last second of the period
constexpr double SETTLE_s = 5.0;            // position from which a lost time is taken as lost

bool readGpsOut(Sfc& c)
{
    c = {};
    const auto frames = readRegister(REG_GPS_OUT_FRAMES);
    if (!frames) return false;
    node::ioBarrier();
    const Sfc read = unpackGpsOut(getBoardType(), *frames, readRegisterOr0(REG_GPS_OUT_INCREMENTS));
    if (!isCounter(read)) return false;
    c = read;
    return true;
}

void storeGpsOutData(const GpsOutData& data)
{
    if (!KvdLoz6TuMem_ready(MEM_GPS_OUT)) return;
    u8 bytes[MEM_GPS_OUT_SIZE] = {};
    node::putBe32(bytes, data.mfnOffset);
    node::putBe32(bytes + 4, data.mfn);
    if (KvdLoz6TuMem_write(MEM_GPS_OUT, bytes, sizeof bytes))
        KVD_TRACE(TRACE_TUHWIF, TRACE_3, "gpsOutData_r stored in persistent memory");
    else
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "Could not store gpsOutData_r in persistent memory");
}

GpsOutData loadGpsOutData()
{
    u8 bytes[MEM_GPS_OUT_SIZE];
    if (KvdLoz6TuMem_read(MEM_GPS_OUT, bytes, sizeof bytes)) {
        const GpsOutData data{node::be32(bytes), node::be32(bytes + 4)};
        KVD_TRACE(TRACE_TUHWIF, TRACE_3, "gpsOutData_r read from persistent memory mfnOffset=%u, mfn=%u",
                  data.mfnOffset, data.mfn);
        return data;
    }
    KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "Could not read gpsOutData_r from persistent memory");
    return {};
}

/// Whole periods of a time; none for a time that isn't known.
u32 periodsOf(double time) { return wholeOr0(time / PERIOD_s); }

}  // namespace

namespace hwif {

GpsOutReading extendGpsOutTime(const Sfc& counter, const GpsOutSources& sources, GpsOutData& data)
{
    GpsOutReading reading{};
    const double position = increments(counter) / INCREMENTS_PER_SECOND;
    if (counter.mfn < data.mfn) {
        ++data.mfnOffset;
        reading.missedWrap = true;
    }
    if (sources.isMaster) {
        const u32 N = periodsOf(sources.t_c);
        if (N != 0 && data.mfnOffset == 0) {
            data.mfnOffset = N;
            reading.adjusted = true;
        }
    } else {
        const u32 N = periodsOf(sources.outTime);
        const bool lost = N == 0 && data.mfnOffset != 0 && sources.outValid == 1 && position > SETTLE_s;
        if (lost || N > data.mfnOffset) {
            data.mfnOffset = N;
            reading.adjusted = true;
        }
    }
    reading.reported_mfnOffset = data.mfnOffset;
    reading.time = position + data.mfnOffset * PERIOD_s;
    if (counter.mfn == WRAP_MFN && counter.sfn > WRAP_SFN) {
        ++data.mfnOffset;
        data.mfn = 0;
    } else {
        data.mfn = counter.mfn;
    }
    return reading;
}

GpsOutStep gpsOutStep(const Sfc& counter, i32 delayEighths)
{
    GpsOutStep step{};
    const i32 delay = delayEighths / 8;      // whole increments, cut towards zero
    step.t_f_out = increments(counter) / INCREMENTS_PER_SECOND + delay / INCREMENTS_PER_SECOND;
    step.t_f_diff = std::ceil(step.t_f_out) - step.t_f_out;
    step.x = static_cast<u32>(step.t_f_diff * 1228800 * 100);
    step.inc = step.x % 1228800;
    step.frames = step.x > 1228800 ? step.x / 1228800 : 0;
    return step;
}

}  // namespace hwif

int tuHwIf_readGpsOutSfc(u16& mfn, u16& sfn, u32& inc)
{
    Sfc c;
    const bool isRead = readGpsOut(c);
    mfn = c.mfn;
    sfn = c.sfn;
    inc = c.inc;
    return isRead ? 0 : 1;
}

int tuHwIf_adjustGpsOutTime(i32 delayEighths)
{
    Sfc c;
    if (!readGpsOut(c)) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "Unable to read register for GPS OUT");
        return 1;
    }
    const GpsOutStep step = gpsOutStep(c, delayEighths);
    KVD_TRACE(
        TRACE_TUHWIF, TRACE_INFO,
        "GPS_OUT, mfn=%u, sfn=%u, inc=%u, t_f_out=%f, t_f_diff=%f, adjust temp=%u, sfn=%u, inc=%u",
        c.mfn, c.sfn, c.inc, step.t_f_out, step.t_f_diff, step.x, step.frames, step.inc);
    if (step.frames == 0 && step.inc == 0) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "No adjustment necessary");
        return 0;
    }
    const int result = tuHwIf_adjustGpsOutOffset(step.frames, step.inc);
    if (result != 0) KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "Failed to adjust GPS OUT counter");
    return result;
}

void tuHwIf_printGpsOutTime(i32 delayEighths)
{
    Sfc c;
    if (!readGpsOut(c)) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "Unable to read register for GPS OUT");
        return;
    }
    const GpsOutStep step = gpsOutStep(c, delayEighths);
    KVD_TRACE(TRACE_TUHWIF, TRACE_INFO,
              "GPS_OUT, mfc=%u, sfc=%u, inc=%u, t_f_out=%f, t_f_diff=%f, adjust temp", c.mfn, c.sfn, c.inc,
              step.t_f_out, step.t_f_diff);
}

int tuHwIf_adjustGpsOutOffset(u32 frames, u32 inc)
{
    if (frames > FRAMES_MAX) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "Frame value out of range 0x%08x", frames);
        return 1;
    }
    if (inc >= INCREMENTS_LIMIT) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "Increment value out of range 0x%08x", inc);
        return 1;
    }
    node::ioBarrier();
    if (!writeRegister(REG_GPS_OUT_OFFSET, packGpsOutOffset(getBoardType(), frames, inc))) return 1;
    KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "adjustGpsOutOffset: fc=%08x, inc=%08x", frames, inc);
    return 0;
}

int tuHwIf_readGpsOutTime(double& period, double& time)
{
    period = 0;
    time = 0;
    Sfc c;
    if (!readGpsOut(c)) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "Read GPS FC failed");
        return 1;
    }
    GpsOutData data = loadGpsOutData();
    GpsOutSources sources{};
    sources.isMaster = HWIF_UPCALLS.isMaster();
    if (sources.isMaster) sources.t_c = HWIF_UPCALLS.lastSampleTime();
    else sources.outValid = HWIF_UPCALLS.gpsOutTime(sources.outTime);
    const GpsOutReading reading = extendGpsOutTime(c, sources, data);
    if (reading.missedWrap) KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "Adding missing mfn offset");
    if (reading.adjusted)
        KVD_TRACE(TRACE_TUHWIF, TRACE_3,          // each second of a locked output, as the reset below
                  "GpsOutTime adjusted gpsOutData.mfnOffset=%u, since pDUW t_c=%s",
                  reading.reported_mfnOffset,
                  TuCommon_text(sources.isMaster ? sources.t_c : sources.outTime));
    period = PERIOD_s;
    time = reading.time;
    storeGpsOutData(data);
    return 0;
}

void tuHwIf_resetGpsOutMsiMem()
{
    KVD_TRACE(TRACE_TUHWIF, TRACE_3, "Resetting mfn and mfnOffset to 0!");
    storeGpsOutData({});
}
