#include "reg/kvd_reg_flashfile.h"

#include "base/trace_groups.h"
#include "base/tu_common.h"
#include "hw/kvd_hwif.h"
#include "node/bytes.h"
#include "node/platform.h"
#include "node/trace.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_histrecord.h"
#include "reg/kvd_reg_int.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

constexpr u32 VERSION_30003 = 0x30003, VERSION_30005 = 0x30005, VERSION_40006 = 0x40006;
constexpr u32 REVISION_SIZE = 4;                   // behind the data
constexpr u32 SIZE_40006 = 432;

struct Version { u32 version; u32 size; };
constexpr Version VERSIONS[] = {
    {VERSION_30003, 352},
    {VERSION_30005, 360},
    {VERSION_40006, SIZE_40006},
    {HIST_RECORD_VERSION, HIST_RECORD_SIZE},
};

// The older versions lack the two words behind the version: from the write time up to U all lies 8
// bytes lower, and in 0x40006 what follows too, up to T.
constexpr u32 OLD_FROM = 4;
constexpr u32 OLD_X_AT = 56;
constexpr u32 OLD_P_AT = 104;
constexpr u32 OLD_T_AT = 416;
constexpr u32 FIVE_P_AT = 96;
constexpr u32 FIVE_T_AT = 320;

const u8* bytesOf(const std::string& content) { return reinterpret_cast<const u8*>(content.data()); }

bool hasSizeOfItsVersion(const std::string& content)
{
    const u32 version = node::be32(bytesOf(content));
    for (const Version& v : VERSIONS)
        if (v.version == version) return content.size() == v.size + REVISION_SIZE;
    return false;
}

// ---- choice -------------------------------------------------------------------------------------

struct Candidate {
    const char* path;
    bool usable = false;
    u32 freqWriteTime = 0;
    std::string content{};
};

/// Judges a file that could be read; true when it may be used.
bool judge(Candidate& c, int result)
{
    const std::size_t size = c.content.size();
    if (std::strcmp(c.path, HIST_FILE) == 0 && size != HIST_RECORD_SIZE + REVISION_SIZE) {
        KVD_TRACE(TRACE_HIST, TRACE_INFO, "Files size does not match: %s errno = %d", c.path, result);
        return false;
    }
    if (size < 4) {
        KVD_TRACE(TRACE_HIST, TRACE_INFO, "Problems reading flash file version, errno = %d", result);
        return false;
    }
    const bool old = node::be32(bytesOf(c.content)) < HIST_RECORD_VERSION;
    const u32 timeAt = old ? OLD_FROM : HIST_WRITE_TIME_AT;
    if (size < timeAt) {
        KVD_TRACE(TRACE_HIST, TRACE_INFO, "Problems seeking flash file, errno = %d", result);
        return false;
    }
    if (size < timeAt + 4) {
        KVD_TRACE(TRACE_HIST, TRACE_INFO, "Problems reading flash file freqWriteTime, errno = %d", result);
        return false;
    }
    if (!hasSizeOfItsVersion(c.content)) {
        KVD_TRACE(TRACE_HIST, TRACE_INFO, "Historical data size mismatch");
        return false;
    }
    c.freqWriteTime = node::be32(bytesOf(c.content) + timeAt);
    const DateTime t = TuCommon_secondsToDate(c.freqWriteTime);
    KVD_TRACE(TRACE_HIST, TRACE_INFO, "Flash file %s found, freqWriteTime=%d-%02d-%02d %02d:%02d:%02d",
              c.path, t.year, t.month, t.day, t.hour, t.minute, t.second);
    return true;
}

void lookAt(Candidate& c)
{
    const int result = node::platform().fileRead(c.path, c.content);
    if (result == ENOENT) return;
    if (result != 0) {
        KVD_TRACE(TRACE_HIST, TRACE_INFO, "Problems reading flash file version, errno = %d", result);
        return;
    }
    c.usable = judge(c, result);
}

// ---- older versions -----------------------------------------------------------------------------

/// State and covariance of five states: time, frequency, one that is gone, drift, one that is gone.
void takeFiveStates(const u8* old, const double coeff[3], u8* record)
{
    constexpr u32 STATES = 5, FREQUENCY = 1, DRIFT = 3;
    using regulator::VAR_T1, regulator::VAR_T2, regulator::VAR_T3;
    constexpr double TEMPERATURE_VARIANCE[3] = {VAR_T1, VAR_T2, VAR_T3};
    const auto putP = [record](u32 i, double value) {
        node::putBeDouble(record + HIST_P_AT + 8 * (i * 7), value);
    };
    const auto variance = [old](u32 i) { return node::beDouble(old + FIVE_P_AT + 8 * (i * STATES + i)); };
    std::memcpy(record + HIST_X_AT, old + OLD_X_AT, 16);
    std::memcpy(record + HIST_X_AT + 16, old + OLD_X_AT + 8 * DRIFT, 8);
    for (u32 i = 0; i < 3; ++i) {
        node::putBeDouble(record + HIST_X_AT + 8 * (3 + i), coeff[i]);
        putP(3 + i, TEMPERATURE_VARIANCE[i]);
    }
    putP(1, variance(FREQUENCY));
    putP(2, variance(DRIFT));
    std::memcpy(record + HIST_T_AT, old + FIVE_T_AT, 8);
}

/// A flash record keeps frequency, not time.
void forgetTime(u8* record)
{
    record[HIST_TIME_MODE_AT] = ABSOLUTE_TIME_LOCKING;
    record[HIST_TIME_MODE_AT + 1] = 0;
    std::memset(record + HIST_DELTA0_AT, 0, HIST_OFFSET_SIZE);
    for (u32 i = 0; i < 6; ++i) {
        node::putBeDouble(record + HIST_P_AT + 8 * i, 0.0);
        node::putBeDouble(record + HIST_P_AT + 48 * i, 0.0);
    }
    node::putBeDouble(record + HIST_P_AT, regulator::TIME_UNKNOWN);
    node::putBe32(record + HIST_COLD_AT, 1);
}

// ---- the older program's file -------------------------------------------------------------------

/// Data, zeros before, in the form of an older file's version; 0 bytes for one that isn't kept up to date.
u32 olderForm(u32 version, const u8* record, u8* data)
{
    if (version == VERSION_40006) {
        node::putBe32(data, version);
        std::memcpy(data + OLD_FROM, record + HIST_WRITE_TIME_AT, HIST_KEPT_SIZE);
        return SIZE_40006;
    }
    if (version == HIST_RECORD_VERSION) {
        std::memcpy(data, record, HIST_RECORD_SIZE);
        data[HIST_TIME_MODE_AT] = ABSOLUTE_TIME_LOCKING;
        std::memset(data + HIST_DELTA0_AT, 0, HIST_OFFSET_SIZE);
        std::memset(data + HIST_LAST_TIME_AT, 0, HIST_LAST_TIME_SIZE);
        return HIST_RECORD_SIZE;
    }
    return 0;
}

void updateOldFile(const u8* record)
{
    std::string content;
    const int result = node::platform().fileRead(HIST_FILE_OLD, content);
    if (result == ENOENT) return;
    if (result != 0 || content.size() < 4) {
        KVD_TRACE(TRACE_HIST, TRACE_INFO, "Problems reading flash file version, errno = %d", result);
        return;
    }
    const u32 version = node::be32(bytesOf(content));
    u8 data[HIST_RECORD_SIZE] = {};
    const u32 size = olderForm(version, record, data);
    if (size == 0) return;
    content.resize(std::max<std::size_t>(content.size(), size));
    std::memcpy(content.data(), data, size);       // what lies behind the data stays
    const int written = node::platform().fileWrite(HIST_FILE_OLD, content);
    if (written != 0) {
        KVD_TRACE(TRACE_HIST, TRACE_INFO, "Can't open file for writing: %s, errno = %d", HIST_FILE_OLD,
                  written);
        return;
    }
    KVD_TRACE(TRACE_HIST, TRACE_INFO, "Updated old flash file, flash file version=%x", version);
}

}  // namespace

const char* flashfile::choose(std::string& content)
{
    Candidate present{HIST_FILE}, old{HIST_FILE_OLD};
    lookAt(present);
    lookAt(old);
    Candidate* chosen = nullptr;
    if (old.usable) chosen = &old;
    if (present.usable && (!old.usable || present.freqWriteTime >= old.freqWriteTime)) chosen = &present;
    if (chosen == nullptr) {
        KVD_TRACE(TRACE_HIST, TRACE_INFO, "Historical data file do not exist");
        return nullptr;
    }
    KVD_TRACE(TRACE_HIST, TRACE_INFO, "Using %s historical data file.", chosen->path);
    content = std::move(chosen->content);
    return chosen->path;
}

bool flashfile::convert(const std::string& content, const double coeff[3], u8* record)
{
    const u8* const file = bytesOf(content);
    const u32 version = node::be32(file);
    KVD_TRACE(TRACE_HIST, TRACE_INFO, "Flash file version = %x, size = %u", version,
              static_cast<u32>(content.size()));
    if (!hasSizeOfItsVersion(content)) {
        KVD_TRACE(TRACE_HIST, TRACE_INFO, "Historical data size mismatch");
        return false;
    }
    std::memset(record, 0, HIST_RECORD_SIZE);
    node::putBe32(record, HIST_RECORD_VERSION);
    if (version == HIST_RECORD_VERSION) {
        std::memcpy(record + HIST_WRITE_TIME_AT, file + HIST_WRITE_TIME_AT, HIST_KEPT_SIZE);
    } else {
        std::memcpy(record + HIST_WRITE_TIME_AT, file + OLD_FROM, HIST_HEAD_SIZE);
        if (version == VERSION_40006) {
            std::memcpy(record + HIST_X_AT, file + OLD_X_AT, HIST_X_SIZE);
            std::memcpy(record + HIST_P_AT, file + OLD_P_AT, HIST_P_SIZE);
            std::memcpy(record + HIST_T_AT, file + OLD_T_AT, 8);
        } else {
            takeFiveStates(file, coeff, record);
        }
    }
    forgetTime(record);
    return true;
}

bool KvdLoz6TuReg_readFlashFile(u8* record)
{
    std::string content;
    if (flashfile::choose(content) == nullptr) return false;
    double coeff[3];
    KvdLoz6TuReg_temperatureCoefficients(coeff);
    return flashfile::convert(content, coeff, record);
}

bool KvdLoz6TuReg_writeFlashFile(const u8* record)
{
    const char* const bytes = reinterpret_cast<const char*>(record);
    const int opened = node::platform().fileWrite(HIST_FILE, std::string(bytes, HIST_RECORD_SIZE));
    if (opened != 0) {
        KVD_TRACE(TRACE_HIST, TRACE_INFO, "Can't open file for writing: %s, errno = %d", HIST_FILE, opened);
        return false;
    }
    u8 revision[REVISION_SIZE];
    node::putBe32(revision, tuHwIf_readFpgaRev());
    const int closed = node::platform().fileAppend(
        HIST_FILE, std::string(reinterpret_cast<const char*>(revision), sizeof revision));
    if (closed != 0)
        KVD_TRACE(TRACE_HIST, TRACE_INFO, "Can't close Flash-file: %s, errno = %d", HIST_FILE, closed);
    else
        updateOldFile(record);
    return closed == 0;
}
