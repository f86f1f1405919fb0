#include "app/batch.h"

#include "app/end_signals.h"
#include "app/report.h"
#include "app/runner.h"
#include "app/summary.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <map>
#include <optional>
#include <sstream>
#include <thread>
#include <tuple>

namespace app {
namespace {

constexpr u64 RUNS_MOST = 1'000'000;

bool wholeNumber(const std::string& text, u64& value)
{
    if (text.empty() || text.size() > 19 || text.find_first_not_of("0123456789") != std::string::npos)
        return false;
    value = std::strtoull(text.c_str(), nullptr, 10);
    return true;
}

struct Task { const Prepared* what; u64 seed; };

/// "gps-lock" or, of several seeds, "gps-lock-7".
std::string folderOf(const Task& task, const BatchOptions& o)
{
    const std::string name = task.what->scenario.name;
    return o.out + "/" + (o.seeds.empty() ? name : name + "-" + std::to_string(task.seed));
}

/// Series of many long runs don't fit into memory: what is made of them is made here.
BatchRun runOne(const Task& task, const BatchOptions& o, std::string& wrong)
{
    sim::Scenario scenario = task.what->scenario;
    scenario.seed = task.seed;
    RunOptions options;
    options.quiet = true;
    if (!o.out.empty()) {
        options.out = folderOf(task, o);
        std::error_code error;
        std::filesystem::create_directories(options.out, error);
        if (error) wrong = options.out + ": " + error.message();
    }
    BatchRun run{runScenario(scenario, task.what->checks, options), {}};
    run.summary = summaryOf(run.recording);
    if (!o.out.empty() && wrong.empty()) wrong = writeReport(run.recording, options.out);
    run.recording.units.clear();
    return run;
}

void tell(const Task& task, const Recording& r, bool quiet)
{
    if (quiet && r.passed()) return;
    std::FILE* const out = r.passed() ? stdout : stderr;
    const char* const verdict = !r.complete ? "cut " : r.passed() ? "ok  " : "FAIL";
    std::fprintf(out, "%s  %s seed %llu: %zu checks, %s of virtual time in %.1f s\n", verdict,
                 task.what->file.c_str(), static_cast<unsigned long long>(r.seed), r.checks.size(),
                 clockText(r.virtual_s).c_str(), r.wall_s);
    for (const CheckResult& c : r.checks)
        if (!c.pass) std::fprintf(out, "      %s: %s\n", c.name.c_str(), c.detail.c_str());
    for (const std::string& misuse : r.misuses)
        std::fprintf(out, "      kernel misuse: %s\n", misuse.c_str());
    std::fflush(out);
}

double percentile(const std::vector<double>& sorted, double share)
{
    const double place = std::ceil(share * static_cast<double>(sorted.size())) - 1.0;
    return sorted[static_cast<std::size_t>(std::max(place, 0.0))];
}

using Values = std::map<std::tuple<std::string, std::string, std::string>, std::vector<double>>;

void collect(const BatchRun& run, Values& values)
{
    for (const auto& unit : run.summary["units"]) {
        const auto add = [&](const std::string& what, double value) {
            values[{run.recording.scenario, unit["name"], what}].push_back(value);
        };
        if (unit["time_to_lock_s"] >= 0) add("time to lock, s", unit["time_to_lock_s"]);
        if (unit["scored_seconds"] > 0) {
            add("time error about its mean, max, ns", unit["time_error_about_mean_ns"]["max"]);
            add("time error from each lock on, max, ns", unit["time_error_ns"]["max"]);
            add("frequency error, max, ppb", unit["freq_error_ppb"]["max"]);
        }
        std::size_t number = 0;
        for (const auto& holdover : unit["holdovers"])
            add("holdover " + std::to_string(++number) + ", drift, ns",
                std::abs(holdover["drift_ns"].get<double>()));
    }
}

}  // namespace

std::vector<u64> parseSeeds(const std::string& text)
{
    std::vector<u64> seeds;
    std::stringstream parts(text);
    for (std::string part; std::getline(parts, part, ',');) {
        const std::size_t dots = part.find("..");
        u64 first = 0, last = 0;
        if (!wholeNumber(part.substr(0, dots), first)) return {};
        last = first;
        if (dots != std::string::npos && !wholeNumber(part.substr(dots + 2), last)) return {};
        if (last < first || last - first >= RUNS_MOST - seeds.size()) return {};
        for (u64 seed = first; seed <= last; ++seed) seeds.push_back(seed);
    }
    return seeds;
}

std::vector<BatchRun> runBatch(const std::vector<Prepared>& scenarios, const BatchOptions& options,
                               std::string& wrong)
{
    std::vector<Task> tasks;
    for (const Prepared& p : scenarios) {
        if (options.seeds.empty()) tasks.push_back({&p, p.scenario.seed});
        for (const u64 seed : options.seeds) tasks.push_back({&p, seed});
    }
    std::vector<std::promise<std::optional<BatchRun>>> results(tasks.size());   // nothing: not begun
    std::vector<std::string> faults(tasks.size());
    std::atomic<std::size_t> next{0};
    std::vector<std::jthread> workers;
    for (std::size_t i = 0; i < std::min<std::size_t>(options.jobs, tasks.size()); ++i)
        workers.emplace_back([&] {
            for (std::size_t task = next++; task < tasks.size(); task = next++) {
                try {
                    results[task].set_value(endSignal() != 0
                                                ? std::nullopt
                                                : std::optional(runOne(tasks[task], options, faults[task])));
                } catch (...) {
                    results[task].set_exception(std::current_exception());
                }
            }
        });
    std::vector<BatchRun> runs;
    for (std::size_t task = 0; task < tasks.size(); ++task) {
        std::optional<BatchRun> run = results[task].get_future().get();
        if (!run) continue;
        runs.push_back(std::move(*run));
        tell(tasks[task], runs.back().recording, options.quiet);
        if (wrong.empty()) wrong = faults[task];
    }
    return runs;
}

std::vector<Spread> spreadOf(const std::vector<BatchRun>& runs)
{
    Values values;
    for (const BatchRun& run : runs)
        if (run.recording.complete) collect(run, values);
    std::vector<Spread> spread;
    for (auto& [key, sorted] : values) {
        std::ranges::sort(sorted);
        const auto& [scenario, unit, what] = key;
        spread.push_back({scenario, unit, what, sorted.size(), percentile(sorted, 0.1),
                          percentile(sorted, 0.5), percentile(sorted, 0.9), percentile(sorted, 0.99),
                          sorted.back()});
    }
    return spread;
}

void printSpread(const std::vector<Spread>& spread, std::FILE* out)
{
    std::string head;
    for (const Spread& s : spread) {
        if (const std::string now = s.scenario + ", unit " + s.unit; now != head) {
            head = now;
            std::fprintf(out, "%-40s %6s %10s %10s %10s %10s %10s\n", head.c_str(), "runs", "10 %", "median",
                         "90 %", "99 %", "most");
        }
        std::fprintf(out, "  %-38s %6zu %10.4g %10.4g %10.4g %10.4g %10.4g\n", s.what.c_str(), s.count, s.p10,
                     s.p50, s.p90, s.p99, s.most);
    }
}

std::string batchJson(const std::vector<BatchRun>& runs)
{
    nlohmann::ordered_json json;
    json["version"] = SUMMARY_VERSION;
    json["passed"] = std::ranges::all_of(
        runs, [](const BatchRun& r) { return r.recording.complete && r.recording.passed(); });
    json["runs"] = nlohmann::ordered_json::array();
    for (const BatchRun& run : runs) json["runs"].push_back(run.summary);
    json["spread"] = nlohmann::ordered_json::array();
    for (const Spread& s : spreadOf(runs))
        json["spread"].push_back({{"scenario", s.scenario},
                                  {"unit", s.unit},
                                  {"what", s.what},
                                  {"runs", s.count},
                                  {"p10", s.p10},
                                  {"p50", s.p50},
                                  {"p90", s.p90},
                                  {"p99", s.p99},
                                  {"max", s.most}});
    return json.dump(1) + "\n";
}

}  // namespace app
