#include "sim/clock/series.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <zlib.h>

namespace sim {
namespace {

constexpr std::size_t LINE_ROOM = 1024;
constexpr double NOMINAL_Hz = 10e6;

[[noreturn]] void fail(const std::string& path, u64 line, const std::string& reason)
{
    throw SeriesError(path + ":" + std::to_string(line) + ": " + reason);
}

/// Start of a line's field, nullptr when it has fewer.
const char* fieldAt(const char* text, std::size_t column)
{
    constexpr const char* SEPARATORS = " \t,;";
    const char* at = text + std::strspn(text, " \t");
    for (std::size_t i = 0; i < column; ++i) {
        at += std::strcspn(at, SEPARATORS);
        at += std::strspn(at, SEPARATORS);
    }
    return *at == '\0' || *at == '\r' || *at == '\n' ? nullptr : at;
}

/// The gzip or plain file, closed with its owner.
struct Input {
    explicit Input(const std::string& path) : file(gzopen(path.c_str(), "rb")) {}
    ~Input()
    {
        if (file != nullptr) gzclose(file);
    }
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;
    gzFile file;
};

double parseLine(const char* text, std::size_t column, const std::string& path, u64 line)
{
    const char* const field = fieldAt(text, column);
    if (field == nullptr) fail(path, line, "no field " + std::to_string(column));
    char* end = nullptr;
    const double value = std::strtod(field, &end);
    if (end == field || std::strchr(" \t,;\r\n", *end) == nullptr)
        fail(path, line,
             "'" + std::string(field, std::strcspn(field, "\r\n")) + "' isn't a number");
    if (!std::isfinite(value)) fail(path, line, "the number isn't finite");
    return value;
}

}  // namespace

std::vector<double> readSeries(const std::string& path, std::size_t column)
{
    const Input input(path);
    if (input.file == nullptr) throw SeriesError(path + ": the file can't be opened");
    std::vector<double> values;
    char text[LINE_ROOM];
    u64 line = 0;
    while (gzgets(input.file, text, sizeof text) != nullptr) {
        ++line;
        const std::size_t length = std::strlen(text);
        if (length + 1 == sizeof text && text[length - 1] != '\n')
            fail(path, line, "the line is too long");
        const bool whole = length > 0 && (text[length - 1] == '\n' || gzeof(input.file) != 0);
        if (!whole) fail(path, line, "a zero byte: the file is no text");
        const char first = text[std::strspn(text, " \t")];
        if (first == '#' || first == '\n' || first == '\r' || first == '\0') continue;
        values.push_back(parseLine(text, column, path, line));
    }
    int error = Z_OK;
    gzerror(input.file, &error);
    if (error != Z_OK && error != Z_STREAM_END)
        fail(path, line + 1, "the compressed file is broken");
    if (values.empty()) throw SeriesError(path + ": no number in the file");
    return values;
}

std::vector<double> asFrequency(std::vector<double> values, SeriesKind kind, double interval_s)
{
    switch (kind) {
    case SeriesKind::FrequencyHz:
        for (double& v : values) v = (v - NOMINAL_Hz) / NOMINAL_Hz;
        return values;
    case SeriesKind::Phase: {
        std::vector<double> frequency;
        for (std::size_t i = 1; i < values.size(); ++i)
            frequency.push_back((values[i] - values[i - 1]) / interval_s);
        if (frequency.empty()) frequency.push_back(0.0);
        return frequency;
    }
    case SeriesKind::Frequency: case SeriesKind::Plain: break;
    }
    return values;
}

std::vector<double> asPhase(std::vector<double> values, SeriesKind kind, double interval_s)
{
    if (kind == SeriesKind::FrequencyHz || kind == SeriesKind::Frequency) {
        std::vector<double> phases = asFrequency(std::move(values), kind, interval_s);
        double phase = 0.0;
        for (double& x : phases) {
            phase += x * interval_s;
            x = phase;
        }
        return phases;
    }
    const double first = values.front();
    for (double& x : values) x -= first;
    return values;
}

}  // namespace sim
