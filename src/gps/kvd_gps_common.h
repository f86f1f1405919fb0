// kvd_gps_common.h - NMEA 0183 as the program reads and writes it: fields, checksum, frames, and the
// way from a sentence's address to its parser.
// Owner   stateless but for what is remembered of the last sentence.
// Errors  1 taken, 0 refused with a trace; what was stored before the fault stays stored.
#pragma once
#include "ose/types.h"

#include <cstddef>

/// Class of a sentence; only timing sentences move the state of the reference.
enum GpsSentenceClass : u8 {
    GPS_CLASS_NONE = 0, GPS_CLASS_TIMING = 1, GPS_CLASS_POSITION = 2, GPS_CLASS_SATELLITES = 3,
    GPS_CLASS_RECEIVER = 5, GPS_CLASS_ANTENNA = 6, GPS_CLASS_MODULE = 7,
};
enum GpsSentenceKind : u8 {
    GPS_KIND_NONE = 0, GPS_KIND_GPGGA = 1, GPS_KIND_GPGSA = 2, GPS_KIND_GPGSV = 3, GPS_KIND_GPANC = 4,
    GPS_KIND_GPTPS = 5, GPS_KIND_GPPPR = 6, GPS_KIND_GPSTS = 7, GPS_KIND_GPAVP = 8, GPS_KIND_GPVER = 9,
    GPS_KIND_GPOUT = 10, GPS_KIND_GLGSV = 11, GPS_KIND_PTNLRBA = 12, GPS_KIND_PTNLRVR = 13,
};
struct GpsSentenceType {
    u8 sentenceClass = GPS_CLASS_NONE;
    u8 kind = GPS_KIND_NONE;
};

/// Parses a sentence: the characters behind the "$" up to the CR, NUL-terminated. True when it was taken.
/// Class and kind are given for a refused sentence too; both 0 when no type matched.
bool KvdLoz6TuGps_parseSentence(const char* text, GpsSentenceType& type);
/// What became of the sentence parsed last, for the operator: result, class, kind, and how many.
struct GpsLastSentence {
    int result = 0;
    GpsSentenceType type;
    u32 taken = 0, refused = 0;
};
const GpsLastSentence& KvdLoz6TuGps_lastSentence();

/// Frames of a written sentence.
enum NmeaFrame : u8 {
    NMEA_CHECKSUM,        // "$%s*%02X\r\n"
    NMEA_CHECKSUM_BLANK,  // "$%s*%2X\r\n": a sum below 0x10 has a leading blank
    NMEA_PLAIN,           // "$%s\r\n"
};
/// Frames a body (without "$") into `out`, NUL-terminated. Length without the NUL, 0 when it doesn't fit.
u32 KvdLoz6TuGps_frameSentence(char* out, std::size_t size, const char* body, NmeaFrame frame);
