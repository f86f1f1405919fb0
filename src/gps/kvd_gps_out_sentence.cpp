// What the output says: a receiver's sentences of the address PNVX, or binary frames of a time of day.
#include "base/trace_groups.h"
#include "base/tu_common.h"
#include "gps/kvd_gps_common.h"
#include "gps/kvd_gps_out_int.h"
#include "node/bytes.h"
#include "node/trace.h"
#include "sig/ref_types.h"
#include "sig/tuiif_sig.h"

#include <cstdio>
#include <iterator>

namespace {

constexpr const char* ADDRESS = "PNVX";
constexpr u32 GPPPR_MAX = 44, GPOUT_MAX = 27, GPGGA_MAX = 83;   // characters of a framed sentence

gpsout::Sentence framed(const char* body, u32 longest, const char* name)
{
    gpsout::Sentence sentence;
    char text[128];
    const u32 length = KvdLoz6TuGps_frameSentence(text, sizeof text, body, NMEA_CHECKSUM);
    if (length > longest)
        KVD_TRACE(TRACE_TUGPS_OUT, TRACE_INFO, "%s message is invalid. Message not sent.", name);
    else
        sentence.append(text);
    return sentence;
}

// Frames of the time of day, all numbers big-endian.
constexpr u8 CMCC_CLASS = 1, CMCC_TIME = 0x20, CMCC_STATE = 3;
constexpr u32 PAYLOAD_LENGTH = 16, CRC_FROM = 2, CRC_BYTES = 20, CRC_AT = 22;

std::array<u8, gpsout::CMCC_FRAME> cmccFrame(u8 message)
{
    return {'C', 'M', CMCC_CLASS, message, 0, PAYLOAD_LENGTH};
}

void close(std::array<u8, gpsout::CMCC_FRAME>& frame)
{
    frame[CRC_AT] = TuCommon_crc8(&frame[CRC_FROM], CRC_BYTES);
}

}  // namespace

namespace gpsout {

u8 gppprStatus(u32 gpsOutState)
{
    switch (gpsOutState) {
    case OUT_TIME_LOCKED:       return 0;
    case OUT_FREQ_LOCKED:
    case OUT_TIMEOFFSET_LOCKED: return 1;
    default:                    return 3;
    }
}

Sentence gppprSentence(u32 tow, u32 week, u32 gpsOutState)
{
    char body[80];
    std::snprintf(body, sizeof body, "%s,GPppr,%06u,%05u,%05u,%02u,%01u,%01u", ADDRESS, tow, week & 0xFFFF,
                  0u, 0u, u32{gppprStatus(gpsOutState)}, 0u);
    return framed(body, GPPPR_MAX, "GPppr");
}

u8 remoteStateOf(u8 radioClockState)
{
    constexpr u8 REMOTE[] = {10, 1, 7, 5, 6, 8, 9, 10, 11, 12, 13, 14, 17, 18};
    constexpr u8 SOCPRI_STARTING = 17, WARMUP = 1, UNKNOWN = 10;
    if (radioClockState == SOCPRI_STARTING) return WARMUP;
    if (radioClockState >= 1 && radioClockState < std::size(REMOTE)) return REMOTE[radioClockState];
    KVD_TRACE(TRACE_TUGPS_OUT, TRACE_ERROR, "Illegal RC state via TUIIF: radioClockState= %d",
              static_cast<int>(radioClockState));
    return UNKNOWN;
}

u8 gnssTimePresent(u32 selectedRef, bool isMaster, u8 shown)
{
    if (selectedRef == GPS_REF || selectedRef == HPTSI_REF) return 1;
    return selectedRef == PACKET_TIME_REF || (isMaster && shown == PACKET_TIME_REF) ? 2 : 0;
}

Sentence gpoutSentence(u8 radioClockState, bool jump, u8 gnssTime, bool isSlave)
{
    constexpr u32 GNSS_DATA_PRESENT = 0;
    char body[64];
    std::snprintf(body, sizeof body, "%s,GPout,%02u,%hhu,%1u,%1u,%hhu", ADDRESS,
                  u32{remoteStateOf(radioClockState)}, static_cast<u8>(jump ? 1 : 0), u32{gnssTime},
                  GNSS_DATA_PRESENT, static_cast<u8>(isSlave ? 1 : 0));
    return framed(body, GPOUT_MAX, "GPout");
}

Sentence gpggaSentence()
{
    char body[96];
    std::snprintf(body, sizeof body, "GPGGA%s%s%s,%u,%02u,%05u,%08.1f,%c,%06.1f,%c", ",000000",
                  ",0000.0000,N", ",00000.0000,E", 0u, 0u, 0u, 0.0, 'M', 0.0, 'M');
    return framed(body, GPGGA_MAX, "GPGGA");
}

std::array<u8, CMCC_FRAME> cmccTimeFrame(u32 tow, u32 week, u8 radioClockState)
{
    constexpr u32 TOW_AT = 6, WEEK_AT = 14, PP1S_AT = 17, TACC_AT = 18;
    constexpr u8 NORMAL = 0, UNAVAILABLE = 2, TIME_SYNC_CRYSTAL = 3, ACCURACY_UNKNOWN = 255;
    std::array<u8, CMCC_FRAME> frame = cmccFrame(CMCC_TIME);
    node::putBe32(&frame[TOW_AT], tow);
    frame[WEEK_AT] = static_cast<u8>(week >> 8);
    frame[WEEK_AT + 1] = static_cast<u8>(week);
    frame[PP1S_AT] = radioClockState == KVD_TUIIF_RNT_TIME_LOCKED     ? NORMAL
                     : radioClockState == KVD_TUIIF_RNT_TIME_HOLDOVER ? TIME_SYNC_CRYSTAL
                                                                      : UNAVAILABLE;
    frame[TACC_AT] = ACCURACY_UNKNOWN;
    close(frame);
    return frame;
}

std::array<u8, CMCC_FRAME> cmccStateFrame()
{
    constexpr u32 SOURCE_AT = 6, STATE_AT = 7;
    constexpr u8 SOURCE_OTHER = 3, STATE_VALID = 5;
    std::array<u8, CMCC_FRAME> frame = cmccFrame(CMCC_STATE);
    frame[SOURCE_AT] = SOURCE_OTHER;
    frame[STATE_AT + 1] = STATE_VALID;
    close(frame);
    return frame;
}

}  // namespace gpsout
