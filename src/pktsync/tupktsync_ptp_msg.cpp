#include "pktsync/tupktsync_ptp_msg.h"

#include "node/bytes.h"

#include <algorithm>
#include <iterator>

namespace {

// Intervals of 2^-10 to 2^13 s.
constexpr u32 INTERVAL_ms[] = {1,    2,    4,    8,     16,    31,    63,     125,
                               250,  500,  1000, 2000,  4000,  8000,  16000,  32000,
                               64000, 128000, 256000, 512000, 1024000, 2048000, 4096000, 8192000};
constexpr int LOG_MIN = -10;

}  // namespace

PtpPortIdentity ptpPortIdentityOf(const u8* at)
{
    PtpPortIdentity port;
    std::copy_n(at, port.clockIdentity.size(), port.clockIdentity.begin());
    port.portNumber = node::be16(at + 8);
    return port;
}

void ptpPut(u8* at, const PtpPortIdentity& port)
{
    std::copy(port.clockIdentity.begin(), port.clockIdentity.end(), at);
    node::putBe16(at + 8, port.portNumber);
}

PtpHeader ptpHeaderOf(const u8* m)
{
    PtpHeader h;
    h.messageType = m[0] & 0xF;
    h.versionPTP = m[1] & 0xF;
    h.messageLength = node::be16(m + 2);
    h.domainNumber = m[4];
    h.flagField = {m[6], m[7]};
    h.correctionField = static_cast<i64>(u64{node::be32(m + 8)} << 32 | node::be32(m + 12));
    h.sourcePortIdentity = ptpPortIdentityOf(m + 20);
    h.sequenceId = node::be16(m + 30);
    h.logMessageInterval = static_cast<i8>(m[33]);
    return h;
}

void ptpPutHeader(u8* m, const PtpHeader& h)
{
    std::fill_n(m, PTP_HEADER_LENGTH, u8{0});
    m[0] = h.messageType;
    m[1] = h.versionPTP;
    node::putBe16(m + 2, h.messageLength);
    m[4] = h.domainNumber;
    m[6] = h.flagField[0];
    m[7] = h.flagField[1];
    const u64 correction = static_cast<u64>(h.correctionField);
    node::putBe32(m + 8, static_cast<u32>(correction >> 32));
    node::putBe32(m + 12, static_cast<u32>(correction));
    ptpPut(m + 20, h.sourcePortIdentity);
    node::putBe16(m + 30, h.sequenceId);
    m[32] = h.controlField;
    m[33] = static_cast<u8>(h.logMessageInterval);
}

PtpAnnounce ptpAnnounceOf(const u8* b)
{
    PtpAnnounce a;   // originTimestamp, the first ten octets, isn't used
    a.currentUtcOffset = static_cast<i16>(node::be16(b + 10));
    a.grandmasterPriority1 = b[13];
    a.grandmasterClockQuality = {b[14], b[15], node::be16(b + 16)};
    a.grandmasterPriority2 = b[18];
    std::copy_n(b + 19, a.grandmasterIdentity.size(), a.grandmasterIdentity.begin());
    a.stepsRemoved = node::be16(b + 27);
    a.timeSource = b[29];
    return a;
}

PtpTimestamp ptpTimestampOf(const u8* b) { return {node::be32(b + 2), node::be32(b + 6)}; }

PtpDelayResp ptpDelayRespOf(const u8* b) { return {ptpTimestampOf(b), ptpPortIdentityOf(b + 10)}; }

i64 ptpCorrection_ns(i64 correctionField)
{
    return correctionField / 0x10000;       // towards zero
}

PtpTime ptpAdd(const PtpTimestamp& t, i64 ns)
{
    constexpr i64 SECOND_ns = 1'000'000'000;
    const i64 sum = ns + t.nanoseconds;
    i64 seconds = sum / SECOND_ns;
    i64 rest = sum % SECOND_ns;
    if (rest < 0) {
        rest += SECOND_ns;
        --seconds;
    }
    return {t.seconds + seconds, static_cast<u32>(rest)};
}

u32 ptpLogToMs(i8 logInterval)
{
    return INTERVAL_ms[std::clamp<int>(logInterval, LOG_MIN, PTP_LOG_MAX) - LOG_MIN];
}

i8 ptpMsToLog(u32 ms)
{
    const auto above = std::upper_bound(std::begin(INTERVAL_ms), std::end(INTERVAL_ms), ms);
    const auto index = std::max<std::ptrdiff_t>(above - std::begin(INTERVAL_ms) - 1, 0);
    return static_cast<i8>(index + LOG_MIN);
}
