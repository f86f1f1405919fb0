// Commands on the GPS receiver: state, sentences to and from it, resets, test values.
#include "fifo/kvd_fifo_proc.h"
#include "fifo/kvd_fifo_skyview.h"
#include "frame/tu_coli_int.h"
#include "gps/kvd_gps.h"
#include "gps/kvd_gps_capture.h"
#include "gps/kvd_gps_furuno.h"
#include "gps/kvd_gps_norvane.h"
#include "gps/kvd_gps_receiver.h"
#include "gps/kvd_gps_send.h"
#include "node/platform.h"
#include "ref/kvd_ref.h"
#include "refs/kvd_hptsi.h"
#include "unit/kvd_gps_state.h"

#include <algorithm>
#include <charconv>
#include <cstring>

namespace {

using coli::is;
using coli::number;
using node::shellPrintf;

constexpr std::size_t SENTENCE_MAX = 80;      // characters of a sentence that the operator may send

int refuse(const char* text)
{
    shellPrintf("%s", text);
    return COLI_USAGE;
}

int done(const char* text)
{
    shellPrintf("%s", text);
    return COLI_DONE;
}

/// A GPS receiver is the reference in use, as far as its kind is known.
bool servesGps() { return KvdLoz6TuGps_gpssType() != GPSS_NORVANE && KvdLoz6TuGps_tuGpsRefType() == GPS_REF; }

/// The line is open, and a GPS reference or a receiver that has told its version is on it.
bool maySendAndCapture()
{
    return (!KvdLoz6TuGps_isFirmware("Unknown") || KvdLoz6TuGps_tuGpsRefType() == GPS_REF)
           && KvdLoz6TuGps_historyAboveUnInit();
}

int capture(u32 direction, u32 limit)
{
    KvdLoz6TuGps_startCapture(direction, limit);
    return COLI_DONE;
}

/// "start", then a direction, then a number, the two last as one likes.
int startCapture(int argc, char** argv, const char* usage)
{
    u32 direction = GPS_CAPTURE_BOTH;
    int next = 2;
    if (next < argc && (is(argv[next], "-tx") || is(argv[next], "-rx"))) {
        direction = is(argv[next], "-tx") ? GPS_CAPTURE_SENT : GPS_CAPTURE_RECEIVED;
        ++next;
    }
    if (next == argc) return capture(direction, GPS_CAPTURE_MAX);
    i64 limit = 0;
    if (next + 1 != argc || !number(argv[next], limit) || limit < 1 || limit > GPS_CAPTURE_MAX)
        return refuse(usage);
    return capture(direction, static_cast<u32>(limit));
}

/// "*" to "9" (with comma, point and signs), letters, blanks.
bool maySend(char c)
{
    return (c >= '*' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == ' ';
}

/// A test value in place of a received one.
struct Override {
    const char* values;                  // the digits that are allowed
    void (*set)(bool enabled, u8 value);
    const char* enabled;
    const char* disabled;
    const char* usage;
};
constexpr Override GPSS_STATUS{
    "013", KvdLoz6TuGps_overrideGpssStatus, "gengpssstatus enabled", "gengpssstatus disabled",
    "Usage: gengpssstatus [0|1|3|stop]\n"
    "  - 0    GPS Locked\n"
    "  - 1    Free Running\n"
    "  - 3    1PPS not Synchronized\n"
    "  - stop received value is used\n"};
constexpr Override TIME_STANDARD{
    "123", KvdLoz6TuGps_overrideTimeStandard, "gentimestandard enabled", "gentimestandard disabled",
    "Usage: gentimestandard [1|2|3|stop]\n"
    "  - 1    RTC\n"
    "  - 2    GPS\n"
    "  - 3    UTC\n"
    "  - stop received value is used\n"};

int overrideValue(const Override& o, int argc, char** argv)
{
    if (argc != 2) return refuse(o.usage);
    if (is(argv[1], "stop")) {
        o.set(false, 0);
        return done(o.disabled);
    }
    const char digit = argv[1][0];
    if (digit == '\0' || argv[1][1] != '\0' || std::strchr(o.values, digit) == nullptr)
        return refuse(o.usage);
    o.set(true, static_cast<u8>(digit - '0'));
    return done(o.enabled);
}

}  // namespace

namespace coli {

int gpsprot(int argc, char** argv)
{
    if (!servesGps())
        return refuse("Protocol change is not supported.\n"
                      "Please check GPS reference and state defined on node.\n");
    if (argc == 3 && is(argv[1], "chprot")) {
        const bool norvane = is(argv[2], "Norcomb");
        if (norvane || is(argv[2], "Furuno")) {
            const u32 protocol = norvane ? GPS_PROTOCOL_NORVANE : GPS_PROTOCOL_FURUNO;
            return KvdLoz6TuGps_changeProtocol(protocol) ? COLI_DONE : COLI_USAGE;
        }
    }
    return refuse("Usage: Take cmd 'man gpsprot' for help info\n");
}

int gpscapture(int argc, char** argv)
{
    constexpr const char* USAGE = "Usage: Take cmd 'man gpscapture' for help info\n";
    if (!maySendAndCapture()) {
        KvdLoz6TuGps_stopCapture();
        KvdLoz6TuGps_clearCapture();
        return refuse("Can't start capturing messages.\n"
                      "Please check sync reference and state defined on node.\n");
    }
    if (argc >= 2 && is(argv[1], "start")) return startCapture(argc, argv, USAGE);
    if (argc != 2 || !is(argv[1], "display")) return refuse(USAGE);
    KvdLoz6TuGps_printCapture();
    return COLI_DONE;
}

int gps01reset(int argc, char** argv)
{
    if (!servesGps())
        return refuse("GPS receiver can't be reset, message to GPS receiver can't be send.\n"
                      "Please check GPS reference and state defined on node.\n");
    if (argc != 2 || !is(argv[1], "execute"))
        return refuse("Usage: Take cmd 'man gps01reset' for help info\n");
    if (!KvdLoz6TuGps_resetGps01()) return COLI_USAGE;
    return done("GPS01 receiver has been reset, "
                "wait for additional time for receiver to become stable.\n");
}

int gps02reset(int argc, char** argv)
{
    constexpr const char* NOT_ALLOWED = "Sending messages to GPS receiver is not allowed.\n"
                                        "Please check sync reference and state defined on node.\n";
    if (!maySendAndCapture()) return refuse(NOT_ALLOWED);
    if (!KvdLoz6TuGps_isFirmware("110624") && !KvdLoz6TuGps_isFirmware("120510"))
        return refuse("Connected GPS module is not a GPS02.\n");
    const char* const what = argc == 2 ? argv[1] : "";
    if (is(what, "all")) {
        KvdLoz6TuGps_startGps02Reset(GPS02_CLEAR_AND_RESET, false);
        return done("Requests for clearing the receiver buffer "
                    "and resetting the GPS02 receiver are sent.\n");
    }
    if (is(what, "module")) {
        if (!KvdLoz6TuGps_sendOneShot("PTNLSRT,C,0", true)) return refuse(NOT_ALLOWED);
        return done("Request for resetting the GPS02 receiver is sent.\n");
    }
    if (is(what, "buffer")) {
        KvdLoz6TuGps_startGps02Reset(GPS02_CLEAR, false);
        return done("Request for clearing the GPS02 buffer is sent.\n");
    }
    return refuse("Usage: Take cmd 'man gps02reset' for help info\n");
}

int gpsstatus(int argc, char** argv)
{
    i64 rows = 0;
    if (argc > 2 || (argc == 2 && (!number(argv[1], rows) || rows < 1)))
        return refuse("Usage: Take cmd 'man gpsstatus' for help info\n");
    KvdLoz6TuGps_printStatus(static_cast<u32>(std::min<i64>(rows, GPS_STATE_HISTORY)));
    return COLI_DONE;
}

int gpssend(int argc, char** argv)
{
    constexpr const char* NOT_ALLOWED = "Sending messages to GPS receiver is not allowed.\n"
                                        "Please check sync reference and state defined on node.\n";
    if (!maySendAndCapture()) return refuse(NOT_ALLOWED);
    if (argc != 3 || !is(argv[1], "nmea")) return refuse("Usage: Take cmd 'man gpssend' for help info\n");
    const char* first = argv[2];
    const char* last = first + std::strlen(first);
    if (static_cast<std::size_t>(last - first) > SENTENCE_MAX)
        return refuse("Wrong message entered, maximum size allowed is 80 characters.\n"
                      "Please check entered message.\n");
    if (last - first >= 2 && *first == '"' && last[-1] == '"') {
        ++first;
        --last;
    }
    if (first != last && *first == '$') ++first;
    if (first == last || !std::all_of(first, last, maySend))
        return refuse("\nWrong message entered, please check entered message\n");
    char body[SENTENCE_MAX + 1] = {};
    std::copy(first, last, body);
    const bool withChecksum = std::find(first, last, '*') == last;
    if (!KvdLoz6TuGps_sendOneShot(body, withChecksum, true)) return refuse(NOT_ALLOWED);
    return done("\nNMEA message sent to GPS module\n");
}

int genhptsisource(int argc, char** argv)
{
    constexpr u32 SOURCES = 5;
    if (argc == 2 && is(argv[1], "stop")) {
        KvdLoz6TuHptsi_overrideClockSource(false, 0);
        return done("genhptsisource disabled");
    }
    u32 source = SOURCES;
    if (argc == 2) {
        const char* const text = argv[1];
        const bool isHex = text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
        const char* const last = text + std::strlen(text);
        const auto [stop, error] = std::from_chars(text + (isHex ? 2 : 0), last, source, isHex ? 16 : 10);
        if (error != std::errc() || stop != last) source = SOURCES;
    }
    if (source >= SOURCES)
        return refuse("Usage: genhptsisource [0x00|0x01|0x02|0x03|0x04|stop]\n"
                      "  - 0x00 BeiDou\n"
                      "  - 0x01 GPS\n"
                      "  - 0x02 1588\n"
                      "  - 0x03 other supported\n"
                      "  - 0x04 other unsupported\n"
                      "  - stop received value is used\n");
    KvdLoz6TuHptsi_overrideClockSource(true, static_cast<u8>(source));
    return done("genhptsisource enabled");
}

int gengpssstatus(int argc, char** argv) { return overrideValue(GPSS_STATUS, argc, argv); }
int gentimestandard(int argc, char** argv) { return overrideValue(TIME_STANDARD, argc, argv); }

int kvdgpsreset(int argc, char** argv)
{
    if (!servesGps() || !KvdLoz6TuGps_historyAboveUnInit())
        return refuse("Connected GPS receiver couldn't be reset.\n"
                      "Please check state of GpsSyncRef and GPS receiver connected to the node.\n");
    const bool hrv = argc == 2 && is(argv[1], "HRV");
    if (argc != 1 && !hrv) return refuse("Usage: kvdgpsreset <HRV>\n");
    const char* const what = hrv ? "HRV" : "GRM";
    const bool initiated = hrv ? KvdLoz6TuGps_resetHrv() : KvdLoz6TuGps_GpsFwRestart();
    shellPrintf("Reset of %s on connected GPS receiver %s.\n", what,
                initiated ? "has been initiated" : "isn't supported");
    return initiated ? COLI_DONE : COLI_USAGE;
}

int kvdgpstrace(int argc, char**)
{
    if (argc != 1) return refuse("\nUsage: kvdgpstrace \n");
    shellPrintf("Collected data is dumped to file.\n");
    KvdLoz6Fifo_dump();
    return COLI_DONE;
}

int gpsskyview(int argc, char** argv)
{
    const char* const what = argc == 2 ? argv[1] : "";
    const bool start = is(what, "start");
    if (KvdLoz6TuRef_row(ROW_GPS).supervisionStatus == 0 || (!start && !is(what, "stop")))
        return refuse("Usage: Take cmd 'man gpsskyview' for help info\n");
    if (start && KvdLoz6FifoSkyView_isRunning())
        return refuse("Sky-view data collection is already started.\n"
                      "If needed, please stop previously started sky-view data collection "
                      "and start it again.\n");
    if (start) {
        KvdLoz6FifoSkyView_start();
        return done("Sky-view data collection is started "
                    "and will be collected for maximum 24hours.\n");
    }
    if (!KvdLoz6FifoSkyView_isRunning()) return refuse("Sky-view data collection is not started.\n");
    KvdLoz6FifoSkyView_stop();
    return done("Sky-view data collection is stopped "
                "and collected data has been written to a file on DU.\n");
}

}  // namespace coli
