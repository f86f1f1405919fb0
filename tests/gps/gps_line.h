// gps_line.h - A unit with a receiver of a given kind on its serial line; each write of the unit
// stands alone.
#pragma once
#include "tests/gps/gps_unit.h"

#include <functional>

namespace bench {

struct GpsLine : GpsUnit {
    std::vector<std::string> sent;       // one entry a write
    std::string output;                  // of the last command

    /// `firmware` is the last field of its version, "" when it tells none.
    explicit GpsLine(u32 gpssType, const std::string& firmware = "")
    {
        node.serial().onSent([this](const std::vector<u8>& bytes) {
            sent.emplace_back(bytes.begin(), bytes.end());
        });
        say("$x\r\n");                   // the first one is heard and not read
        if (!firmware.empty()) say(nmea("PNVX,GPver,GPS02,KDU123,R1A," + firmware));
        setType(gpssType);
    }
    void setType(u32 gpssType)
    {
        node.inProgram([gpssType] { KvdLoz6TuGps_setGpssType(gpssType); });
    }
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
