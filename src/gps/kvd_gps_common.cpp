#include "gps/kvd_gps_common.h"

#include "base/tu_common.h"
#include "gps/kvd_gps_fields.h"
#include "gps/kvd_gps_furuno.h"
#include "gps/kvd_gps_nmea.h"
#include "gps/kvd_gps_norvane.h"
#include "gps/kvd_gps_trimble.h"
#include "ose/module_data.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <optional>
#include <string_view>

namespace {

struct State {
    GpsLastSentence last;
};
ose::ModuleData<State> s;

constexpr u32 ADDRESS_MAX = 7;
constexpr u32 PROPRIETARY_ADDRESS = 4;
constexpr u32 PROPRIETARY_TYPE_MAX = 5;

struct Row {
    std::string_view name;
    GpsSentenceType type;
    bool (*parse)(const char* sentence);
};

constexpr Row BY_ADDRESS[] = {
    {"GPGGA", {GPS_CLASS_POSITION, GPS_KIND_GPGGA}, KvdLoz6TuGps_parseGPGGA},
    {"GPGSA", {GPS_CLASS_SATELLITES, GPS_KIND_GPGSA}, KvdLoz6TuGps_parseGPGSA},
    {"GPGSV", {GPS_CLASS_SATELLITES, GPS_KIND_GPGSV}, KvdLoz6TuGps_parseGPGSV},
    {"GLGSV", {GPS_CLASS_SATELLITES, GPS_KIND_GLGSV}, KvdLoz6TuGps_parseGLGSV},
    {"PTNLRBA", {GPS_CLASS_ANTENNA, GPS_KIND_PTNLRBA}, KvdLoz6TuGps_parsePTNLRBA},
    {"PTNLRVR", {GPS_CLASS_MODULE, GPS_KIND_PTNLRVR}, KvdLoz6TuGps_parsePTNLRVR},
};
// By sentence type, behind any address of four characters that begins with "P".
constexpr Row PROPRIETARY[] = {
    {"GPanc", {GPS_CLASS_SATELLITES, GPS_KIND_GPANC}, KvdLoz6TuGps_parsePxxxGPanc},
    {"GPtps", {GPS_CLASS_TIMING, GPS_KIND_GPTPS}, KvdLoz6TuGps_parsePxxxGPtps},
    {"GPppr", {GPS_CLASS_TIMING, GPS_KIND_GPPPR}, KvdLoz6TuGps_parsePxxxGPppr},
    {"GPsts", {GPS_CLASS_RECEIVER, GPS_KIND_GPSTS}, KvdLoz6TuGps_parsePxxxGPsts},
    {"GPavp", {GPS_CLASS_POSITION, GPS_KIND_GPAVP}, KvdLoz6TuGps_parsePxxxGPavp},
    {"GPver", {GPS_CLASS_RECEIVER, GPS_KIND_GPVER}, KvdLoz6TuGps_parsePxxxGPver},
    {"GPout", {GPS_CLASS_RECEIVER, GPS_KIND_GPOUT}, KvdLoz6TuGps_parsePxxxGPout},
};

template <std::size_t N>
const Row* find(const Row (&rows)[N], std::string_view name)
{
    for (const Row& row : rows)
        if (row.name == name) return &row;
    return nullptr;
}

constexpr u8 DELIMITER = 1, POINT = 2;
constexpr std::array<u8, 256> CHARACTER_KIND = [] {
    std::array<u8, 256> kind{};
    kind[','] = kind['*'] = kind['\r'] = kind['\0'] = DELIMITER;
    kind['.'] = POINT;
    return kind;
}();

/// Characters up to the first that ends a field; the text's NUL does.
u32 fieldLength(const char* text, u8 delimiters)
{
    u32 length = 0;
    while ((CHARACTER_KIND[static_cast<u8>(text[length])] & delimiters) == 0) ++length;
    return length;
}

int precision(std::string_view text) { return static_cast<int>(text.size()); }

/// The row of the sentence's address and type, nullptr (traced) when it is none of ours.
const Row* findParser(const char* text)
{
    const std::string_view address(text, fieldLength(text, DELIMITER));
    if (address.size() > ADDRESS_MAX) {
        KVD_TRACE(TRACE_TUGPS, gps::LEVEL_REFUSED, "NMEA address field too large");
        return nullptr;
    }
    const Row* row = find(BY_ADDRESS, address);
    if (address.size() == PROPRIETARY_ADDRESS && address[0] == 'P') {
        const char* const at = text[address.size()] != '\0' ? text + address.size() + 1 : "";
        const std::string_view type(at, fieldLength(at, DELIMITER));
        if (type.size() > PROPRIETARY_TYPE_MAX) {
            KVD_TRACE(TRACE_TUGPS, gps::LEVEL_REFUSED, "Proprietary sentence type field too large");
            return nullptr;
        }
        row = find(PROPRIETARY, type);
        if (row == nullptr)
            KVD_TRACE(TRACE_TUGPS, gps::LEVEL_REFUSED, "Proprietary message %.*s,%.*s not handled",
                      precision(address), address.data(), precision(type), type.data());
        return row;
    }
    if (row == nullptr)
        KVD_TRACE(TRACE_TUGPS, gps::LEVEL_REFUSED, "NMEA address %.*s not handled", precision(address),
                  address.data());
    return row;
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }

bool isBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

/// A checksum of at most two digits; blanks before it don't count, since a sum below 0x10 can be
/// written with one. Nothing when no digit stands there.
std::optional<u32> readChecksum(const char* at)
{
    while (isBlank(*at)) ++at;
    const std::string_view digits = std::string_view(at).substr(0, 2);
    u32 sum{};
    const auto read = std::from_chars(digits.begin(), digits.end(), sum, 16);
    return read.ec == std::errc{} ? std::optional(sum) : std::nullopt;
}

/// Up to `digits` decimal digits; moves past them. False when there is none.
bool scanDigits(const char*& at, u32 digits, u32& number)
{
    const char* const first = at;
    number = 0;
    while (digits-- > 0 && isDigit(*at)) number = number * 10 + static_cast<u32>(*at++ - '0');
    return at != first;
}

}  // namespace

bool KvdLoz6TuGps_parseSentence(const char* text, GpsSentenceType& type)
{
    const Row* row = findParser(text);
    type = row != nullptr ? row->type : GpsSentenceType{};
    const bool result = row != nullptr && row->parse(text);
    s->last.result = result ? 1 : 0;
    s->last.type = type;
    ++(result ? s->last.taken : s->last.refused);
    return result;
}

const GpsLastSentence& KvdLoz6TuGps_lastSentence() { return s->last; }

u32 KvdLoz6TuGps_frameSentence(char* out, std::size_t size, const char* body, NmeaFrame frame)
{
    const u32 length = static_cast<u32>(std::strlen(body));
    const u32 framed = length + (frame == NMEA_PLAIN ? 3 : 6);  // "$" and CR LF, "*" and two digits
    if (framed >= size) {
        out[0] = '\0';
        return 0;
    }
    const auto digit = [](int value) { return "0123456789ABCDEF"[value]; };
    char* at = out;
    *at++ = '$';
    std::memcpy(at, body, length);
    at += length;
    if (frame != NMEA_PLAIN) {
        const u8 checksum = TuCommon_nmeaChecksum(body, length);
        *at++ = '*';
        const char high = digit(checksum >> 4);
        *at++ = frame == NMEA_CHECKSUM_BLANK && high == '0' ? ' ' : high;
        *at++ = digit(checksum & 0xF);
    }
    std::memcpy(at, "\r\n", 3);
    return framed;
}

namespace gps {

/// Of a sentence whose address is known, which is longer than a checksum.
Sentence inspect(const char* text)
{
    const u32 total = static_cast<u32>(std::strlen(text));
    const auto offsetOf = [&](char c) {
        const void* at = std::memchr(text, c, total);
        return at != nullptr ? static_cast<u32>(static_cast<const char*>(at) - text) : total;
    };
    Sentence sentence{text, total, offsetOf('\r'), text[total - 4] == '*', CHECKSUM_MISSING};
    const u32 star = offsetOf('*');
    if (sentence.length >= star + 3)
        sentence.checksum = readChecksum(text + star + 1) == TuCommon_nmeaChecksum(text, star)
                                ? CHECKSUM_GOOD
                                : CHECKSUM_WRONG;
    return sentence;
}

bool optionalChecksumPasses(const Sentence& sentence, const char* parser)
{
    if (!sentence.checksumPresent || sentence.checksum == CHECKSUM_GOOD) return true;
    KVD_TRACE(TRACE_TUGPS, LEVEL_REFUSED, "%s: Checksum incorrect or missing", parser);
    return false;
}

bool requiredChecksumPasses(const Sentence& sentence, const char* sentenceName)
{
    if (sentence.checksum == CHECKSUM_GOOD) return true;
    KVD_TRACE(TRACE_TUGPS, LEVEL_REFUSED, "%s: Checksum incorrect or missing", sentenceName);
    return false;
}

bool lengthPasses(const Sentence& sentence, u32 shortest, u32 longest, const char* sentenceName)
{
    if (sentence.length >= shortest && sentence.length <= longest) return true;
    KVD_TRACE(TRACE_TUGPS, LEVEL_REFUSED, "%s: Sentence length error: %u chars", sentenceName,
              sentence.length);
    return false;
}

bool fullyParsed(const Sentence& sentence, u32 consumed, const char* sentenceName)
{
    if (consumed + 2 >= sentence.length) return true;
    KVD_TRACE(TRACE_TUGPS, LEVEL_REFUSED, "%s message not fully parsed (parsed %u of %u chars)", sentenceName,
              consumed, sentence.length);
    return false;
}

bool refuseWidth(const char* prefix, const char* label, u32 width)
{
    KVD_TRACE(TRACE_TUGPS, LEVEL_REFUSED, "%s%s field is %d bytes", prefix, label, static_cast<int>(width));
    return false;
}

bool refuseEnd(const char* prefix)
{
    KVD_TRACE(TRACE_TUGPS, LEVEL_REFUSED, "%sNMEA parse error: End of sentence reached", prefix);
    return false;
}

bool takeField(Cursor& cursor, char* buffer, u32 size, bool splitAtPoint)
{
    // The count is a u8 and can wrap in a text longer than any that the line delivers, so the
    // text's own end holds too.
    const u32 found = fieldLength(cursor.at, splitAtPoint ? DELIMITER | POINT : DELIMITER);
    cursor.width = static_cast<u8>(found);
    cursor.consumed = static_cast<u8>(cursor.consumed + cursor.width + 1);
    if (cursor.consumed > cursor.length + 1) {
        KVD_TRACE(TRACE_TUGPS, LEVEL_REFUSED, "End of message reached");
        return false;
    }
    if (cursor.width < size) {
        std::memset(buffer, 0, size);
        std::memcpy(buffer, cursor.at, cursor.width);
    } else {
        KVD_TRACE(TRACE_TUGPS, LEVEL_REFUSED, "NMEA message field too large: %u", cursor.width);
    }
    cursor.at = std::min(cursor.at + found + 1, cursor.end);
    return true;
}

u32 toNumber(const char* text)
{
    while (isBlank(*text)) ++text;
    const bool negative = *text == '-';
    if (*text == '-' || *text == '+') ++text;
    u32 number = 0;
    while (isDigit(*text)) number = number * 10 + static_cast<u32>(*text++ - '0');
    return negative ? 0 - number : number;
}

u8 toPair(const char* text)
{
    u32 number = 0;
    scanDigits(text, 2, number);
    return static_cast<u8>(number);
}

double toDouble(const char* text)
{
    while (isBlank(*text)) ++text;
    const bool negative = *text == '-';
    if (*text == '-' || *text == '+') ++text;
    // Fields have at most 60 characters and those that hold numbers at most 15, so the digits stay
    // below 2^53 and one division by an exact power of ten rounds once, as a conversion should.
    double digits = 0.0;
    double scale = 1.0;
    while (isDigit(*text)) digits = digits * 10.0 + (*text++ - '0');
    if (*text == '.')
        for (++text; isDigit(*text); ++text) {
            digits = digits * 10.0 + (*text - '0');
            scale *= 10.0;
        }
    return (negative ? -digits : digits) / scale;
}

DegMin toDegMin(const char* text, u32 degDigits)
{
    DegMin angle;
    u32 number = 0;
    if (!scanDigits(text, degDigits, number)) return angle;
    angle.deg = static_cast<u8>(number);
    if (!scanDigits(text, 2, number)) return angle;
    angle.min = static_cast<u8>(number);
    if (*text++ != '.' || !scanDigits(text, 4, number)) return angle;
    angle.fractMin = static_cast<u16>(number);
    return angle;
}

}  // namespace gps
