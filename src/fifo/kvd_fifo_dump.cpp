#include "fifo/kvd_fifo_dump.h"

#include "base/text_of.h"
#include "base/trace_groups.h"
#include "base/tu_common.h"
#include "node/platform.h"
#include "node/trace.h"
#include "ose/module_data.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

namespace {

constexpr std::size_t LINE_MAX = 512;        // of one filePrint
constexpr std::size_t PIECE = 8192;          // text goes to the volume in pieces of about this size

struct State {
    const char* path = nullptr;    // nullptr: the volume takes no more
    std::string piece;
};
ose::ModuleData<State> s;

void append()
{
    const int result = node::platform().fileAppend(s->path, s->piece);
    if (result == 0) return;
    KVD_TRACE(TRACE_FIFO, TRACE_ERROR, "Could not write to file: %s, reason: %s", s->path,
              std::strerror(result));
    s->path = nullptr;
}

void flush()
{
    if (s->path != nullptr) append();
    s->piece.clear();
}

const char* hemisphereText(u8 direction)
{
    static constexpr const char* TEXTS[] = {"N", "E", "S", "W"};
    return textOf(TEXTS, direction, "?");
}

}  // namespace

namespace fifo {

bool fileOpen(const char* path)
{
    s->path = path;
    const int result = node::platform().fileWrite(path, "");
    if (result == 0) return true;
    KVD_TRACE(TRACE_FIFO, TRACE_INFO, "Could not open file: %s, reason: %s", path, std::strerror(result));
    return false;
}

void filePrint(const char* format, ...)
{
    char line[LINE_MAX];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    fileText(line);
}

void fileText(const char* text)
{
    s->piece += text;
    if (s->piece.size() >= PIECE) flush();
}

void fileClose()
{
    flush();
    s->piece.shrink_to_fit();
}

DateText dateNow()
{
    DateText now;
    TuCommon_timeStamp(now.text);
    return now;
}

void writePosition(const char* name, const Coordinate& latitude, const Coordinate& longitude, float altitude)
{
    filePrint("%s_latitude\t\t\t:\t%s %u %u.%04u\n", name, hemisphereText(latitude.hemisphere),
              latitude.degrees, latitude.minutes, latitude.fraction);
    filePrint("%s_longitude\t\t\t:\t%s %u %u.%04u\n", name, hemisphereText(longitude.hemisphere),
              longitude.degrees, longitude.minutes, longitude.fraction);
    filePrint("%s_altitude\t\t\t:\t%.1f\n", name, altitude);
}

void writeSatellites(const Satellites& satellites)
{
    fileText("\nSatelliteInformation\n| satNo     ");
    for (const GpsSatellite& sat : satellites) filePrint("| %3u ", sat.SVno);
    fileText("|\n| elevation ");
    for (const GpsSatellite& sat : satellites) filePrint("| %3u ", sat.elevation);
    fileText("|\n| azimuth   ");
    for (const GpsSatellite& sat : satellites) filePrint("| %3u ", sat.azimuth);
    fileText("|\n| SNR       ");
    for (const GpsSatellite& sat : satellites) filePrint("| %3u ", sat.SNR);
    fileText("|\n");
}

}  // namespace fifo
