#include "app/nmea.h"

#include "gps/kvd_gps_common.h"
#include "gps/kvd_gps_serial.h"
#include "node/trace.h"
#include "sig/ref_types.h"
#include "sim/clock/random.h"
#include "unit/kvd_gps_state.h"

#include <algorithm>
#include <fstream>
#include <sstream>

namespace app {
namespace {

constexpr char CR = '\r', LF = '\n';
constexpr std::size_t SENTENCE_MAX = 254;                   // characters with the CR
constexpr ose::Time BYTE_TIME = ose::SEC * 10 / 9600;       // start bit, eight, stop bit
constexpr std::size_t PIECE_MAX = 64;
constexpr ose::Time START_LIMIT = 600 * ose::SEC;
constexpr u32 EVERY_LEVEL = 0xFFFFFFFF;
constexpr const char* READER_GROUP = "KVD_BVQ_LOZ6_TUGPS";

sim::NodeConfig nodeConfig()
{
    sim::NodeConfig config;
    sim::MpReference gps;
    gps.name = "gps";
    gps.refType = GPS_REF;
    gps.froClassNo = 3;
    config.mainProcessor.references = {gps};
    return config;
}

bool isWord(std::string_view text)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
    });
}

/// Address, and the type behind it where the address is a maker's own of four characters.
std::string typeOf(const std::string& text)
{
    constexpr const char* DELIMITERS = ",*\r";
    const std::size_t end = text.find_first_of(DELIMITERS);
    std::string type = text.substr(0, end);
    if (!isWord(type) || type.size() > 7) return "other";
    if (type[0] == 'P' && type.size() == 4 && end != std::string::npos && text[end] == ',') {
        const std::size_t second = text.find_first_of(DELIMITERS, end + 1);
        const std::string own = text.substr(end + 1, second - end - 1);
        type += isWord(own) && own.size() <= 5 ? "," + own : ",...";
    }
    return type;
}

bool isFigure(char c) { return c >= '0' && c <= '9'; }

/// A reason without its figures, so that equal reasons count together; what isn't printable is a
/// dot.
std::string withoutFigures(const std::string& text)
{
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool begins = i == 0 || text[i - 1] == ' ' || text[i - 1] == '(';
        if (begins && isFigure(text[i])) {
            while (i + 1 < text.size() && isFigure(text[i + 1])) ++i;
            out += 'n';
        } else {
            out += text[i] >= ' ' && text[i] <= '~' ? text[i] : '.';
        }
    }
    return out;
}

/// Addresses that nobody knows have a reason each, garbage one in all.
std::string reasonOf(const std::string& trace, const std::string& type)
{
    if (type == "other" && trace.ends_with(" not handled")) return "address not handled";
    return withoutFigures(trace);
}

}  // namespace

NmeaLog readNmeaLog(const std::string& path, bool raw)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    if (!in || !(content << in.rdbuf())) throw NmeaError(path + ": can't be read, or is empty");
    NmeaLog log;
    log.bytes = content.str();
    while (log.bytes.starts_with('#')) {
        const std::size_t end = log.bytes.find(LF);
        log.bytes.erase(0, end == std::string::npos ? end : end + 1);
        log.headingDropped = true;
    }
    if (log.bytes.empty()) throw NmeaError(path + ": nothing in it but a heading");
    if (raw || log.bytes.find(CR) != std::string::npos || log.bytes.find(LF) == std::string::npos) return log;
    std::string lines;
    for (const char c : log.bytes) {
        if (c == LF) lines += CR;
        lines += c;
    }
    log.bytes = std::move(lines);
    log.returnsPutBack = true;
    return log;
}

void mixNoise(NmeaLog& log, double rate, u64 seed)
{
    if (!(rate > 0.0)) return;
    sim::Random noise(seed, "nmea.noise");
    std::string mixed;
    for (const char byte : log.bytes) {
        if (noise.uniform() < rate) {
            mixed += static_cast<char>(noise.bits() & 0xFF);
            ++log.noiseBytes;
        }
        mixed += byte;
    }
    log.bytes = std::move(mixed);
}

NmeaBench::NmeaBench() : node_(world_, nodeConfig())
{
    world_.onMisuse([this](const ose::Misuse& m) { result_.misuses.push_back(m.text()); });
    node_.traces().setCapacity(0);
    node_.traces().onLine([this](const sim::TraceLine& line) {
        // What the caller of a parser says of a refusal tells nothing that the parser hasn't told.
        if (line.group == READER_GROUP && line.text != "Not a valid message") reason_ = line.text;
    });
    node_.powerOn();
    const auto listening = [this] {
        return node_.program() != nullptr
               && node_.inProgram([] { return KvdLoz6TuGps_gpsState() == GPS_WAIT_FOR_ANY_MSG; });
    };
    while (!listening() && world_.now() < START_LIMIT) world_.runFor(ose::SEC);
    if (!listening()) throw NmeaError("the unit doesn't listen to its receiver's line");
}

/// Cuts the bytes into pieces. One holds at most two of the marks "$" and CR, so that at most one
/// sentence ends in it and the reader's verdict is known to be that sentence's.
void NmeaBench::feed(std::string_view bytes, std::optional<u64> cutSeed)
{
    node_.inProgram([] { node::traceSetProgramMask(EVERY_LEVEL); });
    sim::Random cut(cutSeed.value_or(0), "nmea.cut");
    const auto nextRoom = [&] {
        return cutSeed ? 1 + static_cast<std::size_t>(cut.bits() % PIECE_MAX) : SENTENCE_MAX;
    };
    std::string piece;
    std::size_t room = nextRoom();
    for (const char byte : bytes) {
        const bool mark = byte == CR || byte == '$';
        const auto marks = std::count_if(piece.begin(), piece.end(),
                                         [](char c) { return c == CR || c == '$'; });
        if (piece.size() >= room || (mark && marks == 2)) {
            feedPiece(piece);
            piece.clear();
            room = nextRoom();
        }
        piece += byte;
    }
    if (!piece.empty()) feedPiece(piece);
    node_.inProgram([] { node::traceSetProgramMask(node::TRACE_MASK_DEFAULT); });
}

void NmeaBench::feedPiece(std::string_view piece)
{
    result_.bytes += piece.size();
    NmeaSentence sentence;
    bool ended = false;
    for (const char byte : piece) ended = follow(byte, sentence) || ended;
    reason_.clear();
    node_.serial().feed(std::string(piece));
    world_.runFor(ose::MS);
    if (ended) judge(sentence);
    world_.runFor(BYTE_TIME * static_cast<ose::Time>(piece.size()));
}

/// Follows what the line carries: true when `byte` ended a sentence, or made it one that is too
/// long. The byte that finds the reader's buffer full is lost, outside of sentences too.
bool NmeaBench::follow(char byte, NmeaSentence& sentence)
{
    if (inside_) {
        const bool full = text_.size() == SENTENCE_MAX;
        if (!full) text_ += byte;
        if (!full && byte != CR && byte != '$') return false;
        inside_ = false;
        idle_ = 0;
        lineEnd_ = true;
        sentence = {text_, typeOf(text_), full ? NmeaVerdict::TooLong : NmeaVerdict::Woke, ""};
        return true;
    }
    if (idle_ == SENTENCE_MAX) {
        idle_ = 0;
    } else if (byte == '$') {
        inside_ = true;
        text_.clear();
        return false;
    } else {
        ++idle_;
    }
    lineEnd_ = lineEnd_ && (byte == LF || byte == CR);
    if (!lineEnd_) ++result_.outsideBytes;
    return false;
}

void NmeaBench::judge(NmeaSentence& sentence)
{
    struct Counts { u64 taken, refused; };
    const Counts now = node_.inProgram([] {
        const GpsLastSentence& last = KvdLoz6TuGps_lastSentence();
        return Counts{last.taken, last.refused};
    });
    ++result_.sentences;
    NmeaTypeCount& type = result_.types[sentence.type];
    if (sentence.verdict == NmeaVerdict::TooLong) {
        ++result_.tooLong;
    } else if (now.taken != takenBefore_) {
        sentence.verdict = NmeaVerdict::Taken;
        type.taken += now.taken - takenBefore_;
    } else if (now.refused != refusedBefore_) {
        sentence.verdict = NmeaVerdict::Refused;
        sentence.reason = reasonOf(reason_, sentence.type);
        type.refused += now.refused - refusedBefore_;
        result_.reasons[sentence.reason] += now.refused - refusedBefore_;
    } else {
        ++result_.woke;
    }
    result_.taken += now.taken - takenBefore_;
    result_.refused += now.refused - refusedBefore_;
    takenBefore_ = now.taken;
    refusedBefore_ = now.refused;
    if (observer_) observer_(sentence);
}

NmeaResult NmeaBench::result()
{
    NmeaResult r = result_;
    r.lostBytes = node_.serial().lost();
    node_.inProgram([&r] {
        r.state = KvdLoz6TuGps_gpsStateText(KvdLoz6TuGps_gpsState());
        const GpsReceiver& receiver = KvdLoz6TuGps_receiver();
        r.receiver = KvdLoz6TuGps_gpssTypeText(receiver.gpssType);
        r.position = KvdLoz6TuGps_shownPosition();
        r.gpsTime = receiver.gpsCurrentTime;
        r.week = receiver.gpsTimeWeek;
        r.secondOfWeek = receiver.gpsTow;
        r.satellitesInView = KvdLoz6TuGps_noOfSatellitesInView();
        r.gpsInView = KvdLoz6TuGps_gpsInView();
        r.glonassInView = KvdLoz6TuGps_glonassInView();
        r.satellitesUsed = KvdLoz6TuGps_noOfSatellitesForPosit();
        r.best = KvdLoz6TuGps_bestSatellites();
    });
    const auto isZero = [](const GpsCoordinate& c) { return c.deg == 0 && c.min == 0 && c.fractMin == 0; };
    r.hasPosition = !isZero(r.position.latitude) || !isZero(r.position.longitude);
    return r;
}

}  // namespace app
