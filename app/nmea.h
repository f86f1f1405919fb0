// nmea.h - A receiver's log on the serial line of a unit: what the reader takes, what it refuses
// and why.
// Units   bytes; virtual time passes as on a line of 9600 bit/s.
// Errors  a log that can't be read throws NmeaError, one line that names the file.
#pragma once
#include "gps/kvd_gps_nmea.h"
#include "gps/kvd_gps_receiver.h"
#include "ose/world.h"
#include "sim/node/node.h"

#include <cstdio>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace app {

class NmeaError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// A recorded log as it goes onto the line.
struct NmeaLog {
    std::string bytes;
    bool headingDropped = false;      // lines that begin with "#" at the top
    bool returnsPutBack = false;      // the recorder had left LF alone as the end of a line
    u64 noiseBytes = 0;               // mixed in
};
/// Reads a log. A recorder's heading isn't the receiver's and is dropped; `raw` leaves the ends of
/// lines as they are.
NmeaLog readNmeaLog(const std::string& path, bool raw);
/// Mixes random bytes in: before each byte of the log one of probability `rate`.
void mixNoise(NmeaLog& log, double rate, u64 seed);

enum class NmeaVerdict : u8 { Taken, Refused, Woke, TooLong };

/// One sentence as the line carried it, without the "$", and what became of it.
struct NmeaSentence {
    std::string text;
    std::string type;                 // "GPGGA", "PNVX,GPppr", "other" for what is no address
    NmeaVerdict verdict = NmeaVerdict::Woke;
    std::string reason;               // of a refusal, as traced, figures left out
};

struct NmeaTypeCount { u64 taken = 0, refused = 0; };

struct NmeaResult {
    u64 bytes = 0;                    // that went onto the line
    u64 lostBytes = 0;                // that the line's driver had no room for
    u64 outsideBytes = 0;             // that belong to no sentence; ends of lines aren't counted
    u64 sentences = 0;                // that the line carried
    u64 taken = 0, refused = 0;       // as the reader counts
    u64 woke = 0;                     // told a reader that knew of no receiver that there is one
    u64 tooLong = 0;
    std::map<std::string, NmeaTypeCount> types;
    std::map<std::string, u64> reasons;
    std::vector<std::string> misuses; // of the kernel

    // Where the reader stands at the end.
    std::string state, receiver;
    GpsPosition position;
    bool hasPosition = false;
    u8 satellitesInView = 0, gpsInView = 0, glonassInView = 0, satellitesUsed = 0;
    std::array<GpsSatellite, GPS_BEST_SATELLITES> best{};
    double gpsTime = 0.0;             // s since 1980-01-06, 0.0: none that can be used
    u32 week = 0, secondOfWeek = 0;
};

/// A unit in its node, GPS under supervision, its line open and silent.
class NmeaBench {
public:
    NmeaBench();

    sim::Node& node() { return node_; }
    ose::World& world() { return world_; }
    /// Feeds a log, a sentence at a time or, with a seed, in pieces of random length, and waits
    /// until its last byte has been looked at.
    void feed(std::string_view bytes, std::optional<u64> cutSeed);
    void onSentence(std::function<void(const NmeaSentence&)> observer) { observer_ = std::move(observer); }
    NmeaResult result();

private:
    void feedPiece(std::string_view piece);
    bool follow(char byte, NmeaSentence& sentence);
    void judge(NmeaSentence& sentence);

    ose::World world_{1};
    sim::Node node_;
    NmeaResult result_;
    std::function<void(const NmeaSentence&)> observer_;
    std::string reason_;              // newest trace of the reader that tells one
    // Where the bytes fed so far leave the line: the sentence under way, and its length.
    bool inside_ = false;
    std::string text_;
    std::size_t idle_ = 0;            // bytes of no sentence that fill the reader's buffer
    bool lineEnd_ = false;            // nothing but ends of lines since the last sentence
    u64 takenBefore_ = 0, refusedBefore_ = 0;
};

/// `name` is the log's, for the heading.
void printNmeaResult(const NmeaResult& result, const NmeaLog& log, const std::string& name, std::FILE* out);
void printNmeaSentence(const NmeaSentence& sentence, std::FILE* out);

}  // namespace app
