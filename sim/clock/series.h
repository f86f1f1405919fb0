// series.h - A recorded series of numbers at a fixed interval, from a text file, plain or gzip.
#pragma once
#include "ose/types.h"

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace sim {

/// One line: "file:line: reason", or "file: reason" for the file as a whole.
class SeriesError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// What the numbers of a file are.
enum class SeriesKind : u8 {
    Phase,          // s
    Frequency,      // relative
    FrequencyHz,    // of a 10 MHz clock
    FrequencyMHz,
    Counts,         // of a counter's gate
    Plain,          // as they stand
};

/// How a file holds a clock.
struct SeriesForm {
    std::optional<SeriesKind> kind;   // nothing: whatever the first value can be
    std::size_t column = 0;
    double nominal = 0;               // counts of a gate, as they would be without error
    u32 gate_s = 1;                   // each count stands for so long
};

/// Reads one number a line; "#" begins a comment line, of fields between commas, semicolons or
/// blanks the `column`th (from 0) is taken. A few lines of heading may stand before the first number. Throws
/// SeriesError for a file that can't be read, a line without such a number, a number that isn't finite, or a
/// file without numbers.
std::vector<double> readSeries(const std::string& path, std::size_t column = 0);

/// A series without end: at its last value it runs back, at its first forward again, so that
/// nothing jumps. Copies share the values.
class EndlessSeries {
public:
    EndlessSeries() = default;
    explicit EndlessSeries(std::vector<double> values)
        : values_(std::make_shared<const std::vector<double>>(std::move(values)))
    {
    }
    bool empty() const { return !values_ || values_->empty(); }
    double at(u64 index) const
    {
        const u64 count = values_->size();
        if (count == 1) return (*values_)[0];
        const u64 turn = index % (2 * (count - 1));
        return (*values_)[turn < count ? turn : 2 * (count - 1) - turn];
    }

private:
    std::shared_ptr<const std::vector<double>> values_;
};

/// The phase of a record from its values: its first value taken off; frequencies summed up.
std::vector<double> asPhase(std::vector<double> values, SeriesKind kind, double interval_s);
/// The relative frequency of a record: phases differenced.
std::vector<double> asFrequency(std::vector<double> values, SeriesKind kind, double interval_s);

/// A record of one value a second, or a gate, as relative frequency or as phase. Throws SeriesError, also
/// where the values can't be of that kind: no clock is 100 ppm off.
std::vector<double> readFrequencies(const std::string& path, const SeriesForm& form);
std::vector<double> readPhases(const std::string& path, const SeriesForm& form);
/// FILE or FILE:KIND with words behind it: "log.txt:counts,column=1,nominal=50000000,gate=10". Throws
/// SeriesError.
std::pair<std::string, SeriesForm> parseSeriesForm(const std::string& text);
/// "hz" for FrequencyHz.
constexpr std::pair<const char*, SeriesKind> SERIES_KINDS[] = {
    {"hz", SeriesKind::FrequencyHz},      {"mhz", SeriesKind::FrequencyMHz}, {"counts", SeriesKind::Counts},
    {"frequency", SeriesKind::Frequency}, {"phase", SeriesKind::Phase}};

}  // namespace sim
