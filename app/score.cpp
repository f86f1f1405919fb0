#include "app/score.h"

#include <algorithm>
#include <cmath>
#include <deque>

namespace app {
namespace {

constexpr double FOREVER = 1e9;   // s

// ITU-T G.811 (09/97) clause 6.1, tables 1 and 2; us and ns turned into ns.
constexpr MaskSegment G811_MTIE[] = {{0.1, 1000.0, 0.275, 1.0, 25.0}, {1000.0, FOREVER, 0.01, 1.0, 290.0}};
constexpr MaskSegment G811_TDEV[] = {{0.1, 100.0, 3.0, 0.0, 0.0},
                                     {100.0, 1000.0, 0.03, 1.0, 0.0},
                                     {1000.0, 10000.0, 30.0, 0.0, 0.0}};
// ITU-T G.812 (06/2004), wander generation of types II and III at constant temperature.
constexpr MaskSegment G812_MTIE[] = {
    {0.1, 1.0, 40.0, 0.0, 0.0}, {1.0, 10.0, 40.0, 0.4, 0.0}, {10.0, 1000.0, 100.0, 0.0, 0.0}};
constexpr MaskSegment G812_TDEV[] = {{0.1, 2.5, 3.2, -0.5, 0.0},
                                     {2.5, 40.0, 2.0, 0.0, 0.0},
                                     {40.0, 1000.0, 0.32, 0.5, 0.0},
                                     {1000.0, 10000.0, 10.0, 0.0, 0.0}};
// ITU-T G.8272 (11/2018) clause 6.2, classes A and B.
constexpr MaskSegment G8272_MTIE[] = {{0.1, 273.0, 0.275, 1.0, 25.0}, {273.0, FOREVER, 100.0, 0.0, 0.0}};
constexpr MaskSegment G8272_TDEV[] = {{0.1, 100.0, 3.0, 0.0, 0.0},
                                      {100.0, 1000.0, 0.03, 1.0, 0.0},
                                      {1000.0, 10000.0, 30.0, 0.0, 0.0}};
constexpr MaskSegment G8272B_MTIE[] = {{0.1, 54.5, 0.275, 1.0, 25.0}, {54.5, FOREVER, 40.0, 0.0, 0.0}};
constexpr MaskSegment G8272B_TDEV[] = {{0.1, 100.0, 1.0, 0.0, 0.0},
                                       {100.0, 500.0, 0.01, 1.0, 0.0},
                                       {500.0, 100000.0, 5.0, 0.0, 0.0}};
// ITU-T G.8262 (11/2018) clause 8.1, wander generation of option 1 at constant temperature.
constexpr MaskSegment G8262_MTIE[] = {
    {0.1, 1.0, 40.0, 0.0, 0.0}, {1.0, 100.0, 40.0, 0.1, 0.0}, {100.0, 1000.0, 25.25, 0.2, 0.0}};
constexpr MaskSegment G8262_TDEV[] = {
    {0.1, 25.0, 3.2, 0.0, 0.0}, {25.0, 100.0, 0.64, 0.5, 0.0}, {100.0, 1000.0, 6.4, 0.0, 0.0}};

constexpr Mask MASKS[] = {
    {"G.811", G811_MTIE, G811_TDEV},    {"G.812-III", G812_MTIE, G812_TDEV},
    {"G.8272", G8272_MTIE, G8272_TDEV}, {"G.8272-B", G8272B_MTIE, G8272B_TDEV},
    {"G.8262", G8262_MTIE, G8262_TDEV},
};

// ITU-T G.8273.2 (10/2020) clause 7.1.2, at constant temperature; class D has limits of its own there, which
// aren't held against.
constexpr MaskSegment G8273_2_AB_MTIE[] = {{0.1, 1000.0, 40.0, 0.0, 0.0}};
constexpr MaskSegment G8273_2_AB_TDEV[] = {{0.1, 1000.0, 4.0, 0.0, 0.0}};
constexpr MaskSegment G8273_2_C_MTIE[] = {{0.1, 1000.0, 10.0, 0.0, 0.0}};
constexpr MaskSegment G8273_2_C_TDEV[] = {{0.1, 1000.0, 2.0, 0.0, 0.0}};
constexpr TimeClass TIME_CLASSES[] = {
    {"G.8273.2-A", 100.0, 0.0, 50.0, {"G.8273.2-A", G8273_2_AB_MTIE, G8273_2_AB_TDEV}},
    {"G.8273.2-B", 70.0, 0.0, 20.0, {"G.8273.2-B", G8273_2_AB_MTIE, G8273_2_AB_TDEV}},
    {"G.8273.2-C", 30.0, 0.0, 10.0, {"G.8273.2-C", G8273_2_C_MTIE, G8273_2_C_TDEV}},
    {"G.8273.2-D", 0.0, 5.0, 0.0, {"G.8273.2-D", {}, {}}},
};

// ITU-T G.8271.1 (03/2020) clause 7.3; below its shortest interval the limit stays.
constexpr MaskSegment G8271_1_MTIE[] = {
    {0.0, 1.3, 197.5, 0.0, 0.0}, {1.3, 2.4, 75.0, 1.0, 100.0}, {2.4, 275.0, 1.1, 1.0, 277.0}};
constexpr Mask PACKET_NETWORK = {"G.8271.1", G8271_1_MTIE, {}};

std::size_t steps(double tau, double interval)
{
    return static_cast<std::size_t>(std::llround(tau / interval));
}

/// Largest peak-to-peak value in any window of `width` + 1 samples: monotonic queues of the extremes.
double largestSpread(std::span<const double> x, std::size_t width)
{
    std::deque<std::size_t> low;
    std::deque<std::size_t> high;
    double spread = 0.0;
    for (std::size_t i = 0; i < x.size(); ++i) {
        while (!low.empty() && x[low.back()] >= x[i]) low.pop_back();
        while (!high.empty() && x[high.back()] <= x[i]) high.pop_back();
        low.push_back(i);
        high.push_back(i);
        if (low.front() + width < i) low.pop_front();
        if (high.front() + width < i) high.pop_front();
        spread = std::max(spread, x[high.front()] - x[low.front()]);
    }
    return spread;
}

double timeDeviation(std::span<const double> prefix, std::size_t n)
{
    const std::size_t count = prefix.size() - 1;
    double squares = 0.0;
    for (std::size_t j = 0; j + 3 * n <= count; ++j) {
        const double first = prefix[j + n] - prefix[j];
        const double second = prefix[j + 2 * n] - prefix[j + n];
        const double third = prefix[j + 3 * n] - prefix[j + 2 * n];
        const double sum = third - 2.0 * second + first;
        squares += sum * sum;
    }
    const double terms = static_cast<double>(count - 3 * n + 1);
    const double width = static_cast<double>(n);
    return std::sqrt(squares / (6.0 * width * width * terms));
}

}  // namespace

std::vector<double> observationIntervals(std::size_t count, double interval)
{
    constexpr std::size_t A_DECADE[] = {10, 15, 20, 30, 50, 70};   // tenths
    std::vector<double> taus;
    std::size_t last = 0;
    for (std::size_t decade = 1; decade <= count; decade *= 10) {
        for (const std::size_t tenths : A_DECADE) {
            const std::size_t n = decade * tenths / 10;
            if (n == last || n > count / 4) continue;
            taus.push_back(static_cast<double>(n) * interval);
            last = n;
        }
    }
    return taus;
}

std::vector<TauValue> mtie(std::span<const double> timeError_ns, double interval,
                           std::span<const double> taus)
{
    std::vector<TauValue> values;
    for (const double tau : taus) {
        const std::size_t width = steps(tau, interval);
        if (width == 0 || width >= timeError_ns.size()) continue;
        values.push_back({tau, largestSpread(timeError_ns, width)});
    }
    return values;
}

std::vector<TauValue> tdev(std::span<const double> timeError_ns, double interval,
                           std::span<const double> taus)
{
    std::vector<TauValue> values;
    if (timeError_ns.empty()) return values;
    std::vector<double> prefix(timeError_ns.size() + 1, 0.0);
    for (std::size_t i = 0; i < timeError_ns.size(); ++i)
        prefix[i + 1] = prefix[i] + (timeError_ns[i] - timeError_ns[0]);
    for (const double tau : taus) {
        const std::size_t n = steps(tau, interval);
        if (n == 0 || 3 * n > timeError_ns.size()) continue;
        values.push_back({tau, timeDeviation(prefix, n)});
    }
    return values;
}

std::span<const Mask> masks() { return MASKS; }

const Mask* maskByName(const std::string& name)
{
    for (const Mask& mask : MASKS)
        if (name == mask.name) return &mask;
    for (const TimeClass& c : TIME_CLASSES)
        if (name == c.name && !c.dynamic.mtie.empty()) return &c.dynamic;
    return name == PACKET_NETWORK.name ? &PACKET_NETWORK : nullptr;
}

std::string maskNames()
{
    std::string names;
    for (const Mask& mask : MASKS) names += std::string(mask.name) + ", ";
    for (const TimeClass& c : TIME_CLASSES)
        if (!c.dynamic.mtie.empty()) names += std::string(c.name) + ", ";
    return names + PACKET_NETWORK.name;
}

std::span<const TimeClass> timeClasses() { return TIME_CLASSES; }
const Mask& packetNetworkMask() { return PACKET_NETWORK; }

double maskLimit(std::span<const MaskSegment> mask, double tau)
{
    for (const MaskSegment& s : mask)
        if (tau > s.from && tau <= s.to) return s.factor * std::pow(tau, s.exponent) + s.offset;
    return -1.0;
}

const TauValue* aboveMask(std::span<const TauValue> values, std::span<const MaskSegment> mask)
{
    for (const TauValue& v : values) {
        const double limit = maskLimit(mask, v.tau);
        if (limit >= 0.0 && v.value > limit) return &v;
    }
    return nullptr;
}

const TauValue& nearestToMask(std::span<const TauValue> values, std::span<const MaskSegment> mask)
{
    return *std::ranges::max_element(values, {}, [mask](const TauValue& v) {
        const double limit = maskLimit(mask, v.tau);
        return limit > 0.0 ? v.value / limit : -1.0;
    });
}

}  // namespace app
