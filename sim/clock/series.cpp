#include "sim/clock/series.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <zlib.h>

namespace sim {
namespace {

constexpr std::size_t LINE_ROOM = 1024;
constexpr u32 HEADINGS_MOST = 3;
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
        fail(path, line, "'" + std::string(field, std::strcspn(field, "\r\n")) + "' isn't a number");
    if (!std::isfinite(value)) fail(path, line, "the number isn't finite");
    return value;
}

/// A line of words above the numbers, as instruments and terminals write them.
bool isHeading(const char* text, std::size_t column)
{
    const char* const field = fieldAt(text, column);
    const char first = field != nullptr ? *field : text[std::strspn(text, " \t")];
    return std::strchr("+-.0123456789", first) == nullptr;
}

constexpr double FARTHEST = 1e-4;        // no clock is farther from its nominal frequency, or moves faster

constexpr double SECOND = 1.0;           // between pulses: none is farther off

/// "1.2e9 ppb"
std::string offText(double relative)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.3g ppb", relative * 1e9);
    return text;
}

void checkFrequencies(const std::string& path, const std::vector<double>& y)
{
    for (std::size_t i = 0; i < y.size(); ++i)
        if (!(std::abs(y[i]) <= FARTHEST))
            throw SeriesError(path + ": value " + std::to_string(i + 1) + " would be a clock " + offText(y[i])
                              + " off; the file holds something else");
}

SeriesKind kindOf(const std::string& path, double first)
{
    constexpr double NEAR = 0.01;
    if (std::abs(first / NOMINAL_Hz - 1.0) < NEAR) return SeriesKind::FrequencyHz;
    if (std::abs(first / NOMINAL_Hz * 1e6 - 1.0) < NEAR) return SeriesKind::FrequencyMHz;
    if (std::abs(first) < NEAR) return SeriesKind::Frequency;
    throw SeriesError(path + ": it doesn't begin with the frequency of a 10 MHz clock; name what it holds");
}

/// Each count, as relative frequency, for as long as its gate.
std::vector<double> fromCounts(const std::vector<double>& counts, const SeriesForm& form)
{
    std::vector<double> y;
    y.reserve(counts.size() * form.gate_s);
    for (const double count : counts) y.insert(y.end(), form.gate_s, count / form.nominal - 1.0);
    return y;
}

}  // namespace

std::vector<double> readFrequencies(const std::string& path, const SeriesForm& form)
{
    std::vector<double> values = readSeries(path, form.column);
    const SeriesKind kind = form.kind ? *form.kind : kindOf(path, values.front());
    values = kind == SeriesKind::Counts ? fromCounts(values, form)
                                        : asFrequency(std::move(values), kind, 1.0);
    checkFrequencies(path, values);
    return values;
}

std::vector<double> readPhases(const std::string& path, const SeriesForm& form)
{
    const SeriesKind kind = form.kind.value_or(SeriesKind::Phase);
    if (kind != SeriesKind::Phase) return asPhase(readFrequencies(path, form), SeriesKind::Frequency, 1.0);
    std::vector<double> values = readSeries(path, form.column);
    if (const double first = values.front(); std::abs(first) > SECOND)   // frequencies in MHz, say
        throw SeriesError(path + ": value 1 would be a phase of " + std::to_string(first)
                          + " s; the file holds something else");
    checkFrequencies(path, asFrequency(values, kind, 1.0));
    return asPhase(std::move(values), kind, 1.0);
}

std::pair<std::string, SeriesForm> parseSeriesForm(const std::string& text)
{
    SeriesForm form;
    const std::size_t colon = text.rfind(':');
    if (colon == std::string::npos) return {text, form};
    std::stringstream words(text.substr(colon + 1));
    std::string word;
    std::getline(words, word, ',');
    for (const auto& [name, kind] : SERIES_KINDS)
        if (word == name) form.kind = kind;
    if (!form.kind) return {text, form};             // the colon is the file's own
    while (std::getline(words, word, ',')) {
        const std::size_t equals = word.find('=');
        char* end = nullptr;
        const double value = std::strtod(word.c_str() + std::min(equals, word.size() - 1) + 1, &end);
        const std::string key = word.substr(0, equals);
        const bool isNumber = equals != std::string::npos && equals + 1 < word.size() && *end == '\0';
        const bool isWhole = isNumber && value == std::floor(value);
        if (key == "column" && isWhole && value >= 0 && value < 100)
            form.column = static_cast<std::size_t>(value);
        else if (key == "nominal" && isNumber && value > 0) form.nominal = value;
        else if (key == "gate" && isWhole && value >= 1 && value <= 3600)
            form.gate_s = static_cast<u32>(value);
        else throw SeriesError(text + ": '" + word + "' is none of column=N, nominal=COUNTS, gate=SECONDS");
    }
    if (*form.kind == SeriesKind::Counts && form.nominal <= 0)
        throw SeriesError(text + ": counts need nominal=COUNTS, what an exact clock gives in a gate");
    return {text.substr(0, colon), form};
}

std::vector<double> readSeries(const std::string& path, std::size_t column)
{
    const Input input(path);
    if (input.file == nullptr) throw SeriesError(path + ": the file can't be opened");
    std::vector<double> values;
    char text[LINE_ROOM];
    u64 line = 0;
    u32 headings = 0;
    while (gzgets(input.file, text, sizeof text) != nullptr) {
        ++line;
        const std::size_t length = std::strlen(text);
        if (length + 1 == sizeof text && text[length - 1] != '\n') fail(path, line, "the line is too long");
        const bool whole = length > 0 && (text[length - 1] == '\n' || gzeof(input.file) != 0);
        if (!whole) fail(path, line, "a zero byte: the file is no text");
        const char first = text[std::strspn(text, " \t")];
        if (first == '#' || first == '\n' || first == '\r' || first == '\0') continue;
        if (values.empty() && headings < HEADINGS_MOST && isHeading(text, column)) {
            ++headings;
            continue;
        }
        values.push_back(parseLine(text, column, path, line));
    }
    int error = Z_OK;
    gzerror(input.file, &error);
    if (error != Z_OK && error != Z_STREAM_END) fail(path, line + 1, "the compressed file is broken");
    if (values.empty()) throw SeriesError(path + ": no number in the file");
    return values;
}

std::vector<double> asFrequency(std::vector<double> values, SeriesKind kind, double interval_s)
{
    switch (kind) {
    case SeriesKind::FrequencyHz:
        for (double& v : values) v = (v - NOMINAL_Hz) / NOMINAL_Hz;
        return values;
    case SeriesKind::FrequencyMHz:
        for (double& v : values) v = (v * 1e6 - NOMINAL_Hz) / NOMINAL_Hz;
        return values;
    case SeriesKind::Phase: {
        std::vector<double> frequency;
        for (std::size_t i = 1; i < values.size(); ++i)
            frequency.push_back((values[i] - values[i - 1]) / interval_s);
        if (frequency.empty()) frequency.push_back(0.0);
        return frequency;
    }
    case SeriesKind::Frequency: case SeriesKind::Counts: case SeriesKind::Plain: break;
    }
    return values;
}

std::vector<double> asPhase(std::vector<double> values, SeriesKind kind, double interval_s)
{
    if (kind != SeriesKind::Phase && kind != SeriesKind::Plain) {
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
