// kvd_gps_fields.h - Reading a sentence field by field; only the sentence parsers include it.
// Units   lengths in characters; a sentence's length doesn't count its CR.
// Errors  false with a trace at LEVEL_REFUSED.
#pragma once
#include "base/trace_groups.h"
#include "node/trace.h"
#include "ose/types.h"

namespace gps {

constexpr u8 LEVEL_REFUSED = TRACE_4;    // why a sentence was refused, what was odd in it
constexpr u8 LEVEL_CONTENT = TRACE_5;    // what a good one says

enum ChecksumResult : u8 { CHECKSUM_GOOD = 0, CHECKSUM_WRONG = 1, CHECKSUM_MISSING = 2 };

/// A sentence's outer form, looked at once.
struct Sentence {
    const char* text;
    u32  total;               // characters up to the NUL
    u32  length;              // characters before the CR
    bool checksumPresent;     // "*" and two characters stand before the last one
    ChecksumResult checksum;
};
Sentence inspect(const char* text);

/// For parsers that can do without a checksum: one that is present and wrong is traced with
/// `parser`.
bool optionalChecksumPasses(const Sentence& sentence, const char* parser);
/// For those that can't. `sentenceName` opens the trace.
bool requiredChecksumPasses(const Sentence& sentence, const char* sentenceName);
/// "GPGGA: Sentence length error: 69 chars" unless shortest <= length <= longest.
bool lengthPasses(const Sentence& sentence, u32 shortest, u32 longest, const char* sentenceName);
/// "GPGGA message not fully parsed (parsed 71 of 74 chars)": at most two characters may be left.
bool fullyParsed(const Sentence& sentence, u32 consumed, const char* sentenceName);
/// "GPGGA UTC field is 5 bytes", behind `prefix`.
bool refuseWidth(const char* prefix, const char* label, u32 width);

/// Where a reader stands.
struct Cursor {
    const char* at;           // first character of the next field
    const char* end;          // the text's NUL
    u32 length;               // of the sentence
    u8  consumed = 0;         // characters so far, a delimiter with each field
    u8  width = 0;            // of the field read last, also of one too long for the buffer
};
/// Takes the next field. One that doesn't fit leaves the buffer as it was. `splitAtPoint` makes "."
/// a delimiter too.
bool takeField(Cursor& cursor, char* buffer, u32 size, bool splitAtPoint);
/// "NMEA parse error: End of sentence reached", behind `prefix`.
bool refuseEnd(const char* prefix);

/// Reads the fields of one sentence in order into a buffer of SIZE characters with the NUL.
template <u32 SIZE>
class Fields {
public:
    char value[SIZE] = {};

    /// `prefix` opens the traces of a field that is missing or has a wrong width.
    explicit Fields(const Sentence& sentence, const char* prefix = "")
        : cursor_{sentence.text, sentence.text + sentence.total, sentence.length},
          widthsChecked_(!sentence.checksumPresent), prefix_(prefix)
    {
    }
    bool next() { return takeField(cursor_, value, SIZE, splitAtPoint_) || refuseEnd(prefix_); }
    /// Past what every sentence begins with: it is read here because of it.
    void skipAddress() { next(); }
    void skipAddressAndType()
    {
        next();
        next();
    }
    /// The next field, which the checksum's digits aren't.
    bool nextBeforeChecksum()
    {
        const bool isOver = cursor_.consumed != 0 && cursor_.at[-1] == '*';
        return isOver ? refuseEnd(prefix_) : next();
    }
    /// The next field, of exactly one of these widths if no checksum vouches for the sentence.
    bool next(const char* label, u32 width, u32 orWidth)
    {
        if (!next()) return false;
        return !widthsChecked_ || cursor_.width == width || cursor_.width == orWidth
               || refuseWidth(prefix_, label, cursor_.width);
    }
    bool next(const char* label, u32 width) { return next(label, width, width); }
    /// The next field, of this width whatever the checksum says.
    bool nextExactly(const char* label, u32 width)
    {
        if (!next()) return false;
        return cursor_.width == width || refuseWidth(prefix_, label, cursor_.width);
    }
    bool is(char c) const { return value[0] == c && value[1] == '\0'; }
    u8   consumed() const { return cursor_.consumed; }
    void splitAtPoint() { splitAtPoint_ = true; }

private:
    Cursor cursor_;
    bool widthsChecked_;
    bool splitAtPoint_ = false;
    const char* prefix_;
};

/// Decimal digits at the start, with a sign; 0 when there are none.
u32 toNumber(const char* text);
/// The two-digit number at the start.
u8 toPair(const char* text);
/// Decimal number with sign and point at the start; 0.0 when there is none.
double toDouble(const char* text);
/// "4807.0380": `degDigits` digits of degrees, two of minutes, a point, up to four of a minute's
/// fraction.
struct DegMin { u8 deg = 0, min = 0; u16 fractMin = 0; };
DegMin toDegMin(const char* text, u32 degDigits);

}  // namespace gps
