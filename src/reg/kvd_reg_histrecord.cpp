#include "reg/kvd_reg_histrecord.h"

#include "base/trace_groups.h"
#include "base/tu_common.h"
#include "node/bytes.h"
#include "node/trace.h"

#include <cmath>
#include <cstring>

namespace {

constexpr u32 WRITE_TIME_AGAIN_AT = 16;
constexpr u32 SERIAL_AT = 20;
constexpr u32 REFERENCES_AT = 40;
constexpr u32 T_MOD_AT = 416;

template <typename Values>
void putAll(u8* at, const Values& values)
{
    for (const double value : values) {
        node::putBeDouble(at, value);
        at += 8;
    }
}

template <typename Values>
void takeAll(const u8* at, Values& values)
{
    for (double& value : values) {
        value = node::beDouble(at);
        at += 8;
    }
}

}  // namespace

void KvdLoz6TuReg_packHistory(const HistRecord& h, u8* record)
{
    std::memset(record, 0, HIST_RECORD_SIZE);
    node::putBe32(record, HIST_RECORD_VERSION);
    node::putBe32(record + HIST_WRITE_TIME_AT, h.freqWriteTime);
    node::putBe32(record + WRITE_TIME_AGAIN_AT, h.freqWriteTime);
    std::memcpy(record + SERIAL_AT, h.serial, sizeof h.serial - 1);
    record[HIST_TIME_MODE_AT] = h.timeMode;
    node::putBe32(record + REFERENCES_AT, h.selectedRef);
    node::putBe32(record + REFERENCES_AT + 4, h.prevSelectedRef);
    putAll(record + HIST_U_AT, h.U);
    putAll(record + HIST_X_AT, h.x_est);
    putAll(record + HIST_P_AT, h.P_est);
    node::putBeDouble(record + HIST_DELTA0_AT, h.delta0_c);
    node::putBeDouble(record + HIST_DELTA0_AT + 8, h.delta0_f);
    node::putBeDouble(record + T_MOD_AT, h.t_mod);
    node::putBeDouble(record + HIST_T_AT, h.T);
    node::putBeDouble(record + HIST_LAST_TIME_AT, h.t_c_last);
    node::putBeDouble(record + HIST_LAST_TIME_AT + 8, h.t_f_last);
    node::putBe32(record + HIST_COLD_AT, h.cold);
}

HistRecord KvdLoz6TuReg_unpackHistory(const u8* record)
{
    HistRecord h;
    h.freqWriteTime = node::be32(record + HIST_WRITE_TIME_AT);
    std::memcpy(h.serial, record + SERIAL_AT, sizeof h.serial - 1);
    h.timeMode = record[HIST_TIME_MODE_AT];
    h.selectedRef = node::be32(record + REFERENCES_AT);
    h.prevSelectedRef = node::be32(record + REFERENCES_AT + 4);
    takeAll(record + HIST_U_AT, h.U);
    takeAll(record + HIST_X_AT, h.x_est);
    takeAll(record + HIST_P_AT, h.P_est);
    h.delta0_c = node::beDouble(record + HIST_DELTA0_AT);
    h.delta0_f = node::beDouble(record + HIST_DELTA0_AT + 8);
    h.t_mod = node::beDouble(record + T_MOD_AT);
    h.T = node::beDouble(record + HIST_T_AT);
    h.t_c_last = node::beDouble(record + HIST_LAST_TIME_AT);
    h.t_f_last = node::beDouble(record + HIST_LAST_TIME_AT + 8);
    h.cold = node::be32(record + HIST_COLD_AT);
    return h;
}

bool KvdLoz6TuReg_validateHistory(const u8* record)
{
    constexpr u32 DOUBLES_TO = HIST_T_AT + 8;
    const u32 version = node::be32(record);
    KVD_TRACE(TRACE_HIST, TRACE_INFO, " Flash file version = %x, accepts %x", version, HIST_RECORD_VERSION);
    if (version != HIST_RECORD_VERSION) {
        KVD_TRACE(TRACE_HIST, TRACE_INFO, "New or old flash file version ");
        return false;
    }
    KVD_TRACE(TRACE_HIST, TRACE_INFO, "Version OK ");
    for (u32 at = HIST_U_AT; at < DOUBLES_TO; at += 8) {
        if (!std::isnan(node::beDouble(record + at))) continue;
        const DateTime t = TuCommon_secondsToDate(node::be32(record + HIST_WRITE_TIME_AT));
        KVD_TRACE(TRACE_HIST, TRACE_INFO, "Reading data from flash memory with NaN values");
        KVD_TRACE(TRACE_HIST, TRACE_INFO, "Flash data: freqWriteTime=%d-%02d-%02d %02d:%02d:%02d", t.year,
                  t.month, t.day, t.hour, t.minute, t.second);
        return false;
    }
    return true;
}
