// gps_unit.h - A connected unit with a receiver that says what the test writes down.
#pragma once
#include "base/tu_common.h"
#include "gps/kvd_gps_common.h"
#include "gps/kvd_gps_receiver.h"
#include "tests/ref/ref_unit.h"
#include "unit/kvd_gps_state.h"

#include <functional>
#include <string>
#include <vector>

namespace bench {

/// "$body*XX\r\n".
inline std::string nmea(const std::string& body)
{
    char end[8];
    std::snprintf(end, sizeof end, "*%02X\r\n", TuCommon_nmeaChecksum(body.data(), body.size()));
    return "$" + body + end;
}

/// A timing sentence of each protocol, `tow` in seconds of week 2245.
inline std::string gpppr(u32 tow, u32 gpssStatus = 0, u32 gpssFaulty = 0)
{
    char body[64];
    std::snprintf(body, sizeof body, "PNVX,GPppr,%06u,02245,00000,00,%u,%u", tow, gpssStatus, gpssFaulty);
    return nmea(body);
}
inline std::string gptps(u32 tow, u32 timeStandard = 2, u32 ppsAvailable = 1)
{
    char body[96];
    std::snprintf(body, sizeof body,
                  "PFEC,GPtps,230115000000,%u,%u,2,230115000000,18,18,230115000000,2245,%06u", timeStandard,
                  ppsAvailable, tow);
    return nmea(body);
}
inline const std::string GPSTS_HOLD = nmea("PNVX,GPsts,2,1,0,00001");
inline const std::string GPSTS_SURVEY = nmea("PNVX,GPsts,1,1,0,00001");

struct GpsUnit : RefUnit {
    u32 tow = 100;

    explicit GpsUnit(u32 raw = RAW_1PPS)
    {
        toggles(raw);
        supervise(GPS_REF, true);
        ms(5);
    }
    void say(const std::string& text, i64 then_ms = 5)
    {
        node.serial().feed(text);
        ms(then_ms);
    }
    /// A Norvane Combined receiver that has just been typed.
    void typeAsCombined()
    {
        say("$x\r");             // whatever it is, it isn't looked at
        say(gpppr(++tow));
        say(GPSTS_HOLD);
    }
    void becomeOperational()
    {
        typeAsCombined();
        say(gpppr(++tow));
    }
    void talk(u32 seconds, i64 period_ms = 700)
    {
        for (u32 i = 0; i < seconds; ++i) say(gpppr(++tow), period_ms);
    }
    u32 gpsState() { return node.inProgram(KvdLoz6TuGps_gpsState); }
    GpsReceiver receiver() { return node.inProgram([] { return KvdLoz6TuGps_receiver(); }); }
    u32 gpssType() { return receiver().gpssType; }
    std::vector<std::string> statuses()
    {
        return statusTexts(node.mainProcessor(), KVD_TUIIF_GPS_STATUS_IND, &KvdTuiifGpsStatusInd::gpsStatus);
    }
};

/// A unit with a receiver of a given kind; each write of the unit stands alone.
struct GpsLine : GpsUnit {
    std::vector<std::string> sent;       // one entry a write
    std::string output;                  // of the last command

    /// `firmware` is the last field of its version, "" when it tells none.
    explicit GpsLine(u32 gpssType, const std::string& firmware = "")
    {
        node.serial().onSent(
            [this](const std::vector<u8>& bytes) { sent.emplace_back(bytes.begin(), bytes.end()); });
        say("$x\r\n");                   // the first one is heard and not read
        if (!firmware.empty()) say(nmea("PNVX,GPver,GPS02,KDU123,R1A," + firmware));
        setType(gpssType);
    }
    void setType(u32 gpssType) { node.inProgram([gpssType] { KvdLoz6TuGps_setGpssType(gpssType); }); }
    /// Runs `body` as a process of the program beside the manager.
    void in(const std::function<void()>& body) { node.system().call(*node.program(), body); }
    void run(double seconds) { ms(static_cast<i64>(seconds * 1000.0)); }
    int type(const std::string& line)
    {
        output.clear();
        return node.shell().run(line, output);
    }
    std::vector<std::string> takeSent() { return std::exchange(sent, {}); }
};

}  // namespace bench
