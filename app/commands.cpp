#include "app/commands.h"

#include "app/batch.h"
#include "app/end_signals.h"
#include "app/junit.h"
#include "app/nmea.h"
#include "app/nmea_beside.h"
#include "app/pcap.h"
#include "app/pcap_live.h"
#include "app/pcap_report.h"
#include "app/report.h"
#include "app/runner.h"
#include "app/summary.h"
#include "sim/scenario/scenario.h"

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <future>
#include <set>

namespace app {

int refuse(const std::string& line)
{
    std::fprintf(stderr, "%s\n", line.c_str());
    return BAD_INPUT;
}

namespace {

/// A scenario that the installed program brings goes by its name alone: "gps-lock", "lab/g8275-1".
std::string scenarioFile(const std::string& name)
{
    namespace fs = std::filesystem;
    std::error_code none;
    if (fs::exists(name, none)) return name;
    const fs::path own = fs::read_symlink("/proc/self/exe", none).parent_path();
    const fs::path brought = own.parent_path() / "share/timing-unit/scenarios" / (name + ".toml");
    return fs::exists(brought, none) ? brought.string() : name;
}

Prepared prepare(const RunArguments& a, const std::string& file)
{
    Prepared p{file, sim::readScenario(scenarioFile(file)), {}};
    if (a.seed) p.scenario.seed = *a.seed;
    if (!a.oscillator.empty()) sim::replaceOscillator(p.scenario, a.oscillator);
    if (!a.referenceNoise.empty()) sim::replaceReferenceNoise(p.scenario, a.referenceNoise);
    p.checks = readChecks(p.scenario);
    return p;
}

/// A file that is to be written at the end of a long run; "" when it will do, else what is wrong with it.
std::string unwritable(const std::string& file)
{
    if (file.empty() || file == "-") return "";
    const std::filesystem::path folder = std::filesystem::path(file).parent_path();
    if (!folder.empty() && !std::filesystem::is_directory(folder)) return file + ": there is no such folder";
    return std::filesystem::is_directory(file) ? file + ": it is a folder" : "";
}

/// "-" is standard output.
std::string write(const std::string& file, const std::string& content)
{
    if (file != "-") return writeFile(file, content);
    const bool ok = std::fwrite(content.data(), 1, content.size(), stdout) == content.size();
    return ok && std::fflush(stdout) == 0 ? "" : "standard output can't be written";
}

/// Several scenarios, or several seeds of one.
int runMany(const RunArguments& a, const std::vector<Prepared>& scenarios)
{
    if (a.shell || a.speed || !a.interfaces.empty() || !a.gpsTty.empty() || !a.feed.socket.empty()
        || !a.feed.metrics.empty())
        return refuse("tu: --shell, --speed, --status, --metrics, --ptp-if and --gps-tty are for one run");
    BatchOptions options;
    options.quiet = a.quiet || a.summary == "-" || a.junit == "-";
    options.jobs = a.jobs;
    options.out = a.out;
    if (!a.seeds.empty()) options.seeds = parseSeeds(a.seeds);
    if (!a.seeds.empty() && options.seeds.empty())
        return refuse("tu: --seeds: '" + a.seeds + "' is no list of seeds, such as 1..50 or 1,4,9");
    std::set<std::string> names;
    for (const Prepared& p : scenarios)
        if (!a.out.empty() && !names.insert(p.scenario.name).second)
            return refuse(p.file + ": another scenario is named '" + p.scenario.name
                          + "', and --out has a folder a name");
    const EndSignals endSignals;
    std::string wrong;
    const std::vector<BatchRun> runs = runBatch(scenarios, options, wrong);
    if (!options.quiet && !options.seeds.empty()) printSpread(spreadOf(runs), stdout);
    std::vector<Recording> recordings;
    for (const BatchRun& run : runs) recordings.push_back(run.recording);
    if (wrong.empty() && !a.summary.empty()) wrong = write(a.summary, batchJson(runs));
    if (wrong.empty() && !a.junit.empty()) wrong = write(a.junit, junitXml(recordings));
    if (!wrong.empty()) return refuse(wrong);
    if (endSignal() != 0) return KILLED + endSignal();
    return std::ranges::all_of(recordings, &Recording::passed) ? 0 : CHECK_FAILED;
}

/// [NAME=]INTERFACE
HostInterface interfaceOf(const std::string& text)
{
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos) return {"", text};
    return {text.substr(0, equals), text.substr(equals + 1)};
}

RunOptions optionsOf(const RunArguments& a)
{
    RunOptions options;
    options.quiet = a.quiet || a.summary == "-" || a.junit == "-";   // nothing else may stand there
    options.shell = a.shell;
    options.stacks = a.stacks;
    options.traceAll = a.traceAll;
    options.speed = a.speed.value_or(a.shell ? 1.0 : 0.0);
    options.out = a.out;
    options.feed = a.feed;
    for (const std::string& text : a.interfaces) options.interfaces.push_back(interfaceOf(text));
    if (!a.gpsTty.empty()) {
        const HostInterface line = interfaceOf(a.gpsTty);
        options.receiver = {line.host, line.interface, a.pps};
    }
    options.oneStep = a.oneStep;
    options.hostTimeIsUtc = a.hostScale == "utc";
    return options;
}

/// What the run is asked to leave behind; the first thing that can't be written.
std::string writeAll(const RunArguments& a, const Recording& recording)
{
    std::string wrong;
    if (!a.summary.empty()) wrong = write(a.summary, summaryJson(recording));
    if (wrong.empty() && !a.junit.empty()) wrong = write(a.junit, junitXml({recording}));
    if (wrong.empty() && !a.out.empty()) wrong = writeReport(recording, a.out);
    return wrong;
}

int runOne(const RunArguments& a, const Prepared& p)
{
    const RunOptions options = optionsOf(a);
    const EndSignals endSignals;
    if (!options.quiet)
        std::printf("%s\n", (p.scenario.title.empty() ? p.scenario.name : p.scenario.title).c_str());
    const Recording recording = runScenario(p.scenario, p.checks, options);
    if (!options.quiet) printSummary(recording, stdout);
    if (const std::string wrong = writeAll(a, recording); !wrong.empty()) return refuse(wrong);
    if (!options.quiet && !a.out.empty()) std::printf("report         %s/report.html\n", a.out.c_str());
    if (!recording.complete && !options.quiet)
        std::printf("ended at %s of %s: its checks aren't judged\n", clockText(recording.virtual_s).c_str(),
                    clockText(p.scenario.duration_s).c_str());
    if (endSignal() != 0) return KILLED + endSignal();
    if (recording.passed()) return 0;
    if (options.quiet)
        for (const CheckResult& c : recording.checks)
            if (!c.pass)
                std::fprintf(stderr, "%s: FAIL %s: %s\n", p.file.c_str(), c.name.c_str(), c.detail.c_str());
    for (const std::string& misuse : recording.misuses)
        std::fprintf(stderr, "%s: kernel misuse: %s\n", p.file.c_str(), misuse.c_str());
    return CHECK_FAILED;
}

}  // namespace

int run(const RunArguments& a)
{
    const bool onHost = !a.interfaces.empty() || !a.gpsTty.empty();
    if (onHost && a.speed.value_or(1.0) != 1.0)
        return refuse("tu: on an interface or a receiver's line the run keeps the host's time, --speed is 1");
    if (a.oneStep && a.interfaces.empty())
        return refuse("tu: --one-step goes with --ptp-if MASTER=INTERFACE");
    if (a.gpsTty.empty() && !a.pps.empty()) return refuse("tu: --pps goes with --gps-tty");
    std::vector<Prepared> scenarios;
    for (const std::string& file : a.scenarios) scenarios.push_back(prepare(a, file));
    for (const std::string& file : {a.summary, a.junit})
        if (const std::string wrong = unwritable(file); !wrong.empty()) return refuse(wrong);
    if (!a.out.empty()) {
        std::error_code error;
        std::filesystem::create_directories(a.out, error);
        if (error) return refuse(a.out + ": " + error.message());
    }
    if (scenarios.size() > 1 || !a.seeds.empty()) return runMany(a, scenarios);
    return runOne(a, scenarios.front());
}

int wait(const WaitArguments& a)
{
    const auto& [asked, within, timeout] = a;
    WaitQuery query = asked;
    const auto isNone = [](const std::string& text, const char* what) {
        return refuse("tu wait: '" + text + "' is no " + what);
    };
    if (!sim::clockStateByName(query.state)) return isNone(query.state, "clock state");
    if (!within.empty()) query.within_ns = parseTime_ns(within);
    if (!within.empty() && !query.within_ns) return isNone(within, "time such as \"1 us\"");
    if (!timeout.empty()) query.timeout_s = sim::parseDuration(timeout);
    if (!timeout.empty() && !query.timeout_s) return isNone(timeout, "time such as 10m");
    return waitForState(query);
}

int nmea(const NmeaArguments& a)
{
    NmeaLog log = readNmeaLog(a.log, a.raw);
    mixNoise(log, a.noise, a.seed);
    NmeaBench unit;
    NmeaBeside beside;
    unit.onSentence([&](const NmeaSentence& s) {
        beside.take(s.text);
        if (a.verbose) printNmeaSentence(s, stdout);
    });
    unit.feed(log.bytes, a.cut);
    const NmeaResult result = unit.result();
    printNmeaResult(result, log, a.log, stdout);
    printNmeaBeside(beside, stdout);
    return result.misuses.empty() ? 0 : CHECK_FAILED;
}

int pcap(const PcapArguments& a)
{
    const bool isFile = std::filesystem::exists(a.file);
    const std::vector<PcapPacket> capture = !isFile && isInterface(a.file) ? recordLive(a.file, a.seconds)
                                                                           : readPcap(a.file);
    PcapAnalysis analysis;
    PcapResult result;
    for (const PcapPacket& p : capture) {
        const auto ptp = ptpOf(p);
        analysis.take(p, ptp);
        ++result.packets;
        result.other += !ptp;
    }
    analysis.finish();
    if (!a.noUnit) {
        PcapBench unit(capture);
        if (!a.summary && !a.json) unit.onMessage([](const PcapMessage& m) { printPcapMessage(m, stdout); });
        result = unit.run();
    }
    if (a.json) {
        std::fputs(pcapJson(result, analysis, a.file).c_str(), stdout);
    } else {
        if (!a.noUnit) printPcapResult(result, a.file, stdout);
        printPcapAnalysis(analysis, stdout);
    }
    if (!a.out.empty())
        if (const std::string wrong = writePcapReport(result, analysis, a.file, a.out); !wrong.empty())
            return refuse(wrong);
    return result.misuses.empty() ? 0 : CHECK_FAILED;
}

int compare(const CompareArguments& a)
{
    return compareSummaries(a.before, a.after, a.tolerance, stdout) != 0 ? CHECK_FAILED : 0;
}

/// Runs share nothing, so that many go side by side; they are told in order of their seeds, each as soon as
/// those before it are, and behind several how many hours held and which seeds didn't.
int soak(const SoakArguments& a)
{
    if (!a.save.empty()) {
        std::ofstream out(a.save);
        out << drawScenario(a.options.hours, a.options.seed);
        if (out.flush()) return 0;
        return refuse(a.save + ": can't be written");
    }
    const u32 runs = a.runs;
    const auto optionsOf = [&a](u32 run) {
        SoakOptions options = a.options;
        options.seed += run;
        return options;
    };
    std::vector<std::promise<SoakResult>> results(runs);
    std::atomic<u32> next{0};
    std::vector<std::jthread> workers;
    for (u32 i = 0; i < std::min(a.jobs, runs); ++i)
        workers.emplace_back([&] {
            for (u32 run = next++; run < runs; run = next++) {
                try {
                    results[run].set_value(runSoak(optionsOf(run)));
                } catch (...) {
                    results[run].set_exception(std::current_exception());
                }
            }
        });
    double hours = 0;
    std::string failed;
    for (u32 run = 0; run < runs; ++run) {
        const SoakResult result = results[run].get_future().get();
        hours += result.hours;
        if (printSoak(optionsOf(run), result) != 0) failed += " " + std::to_string(optionsOf(run).seed);
        std::fflush(stdout);
    }
    if (runs > 1)
        std::printf("soak: %u runs, %.1f virtual hours, %s%s\n", runs, hours,
                    failed.empty() ? "all hold" : "these seeds don't hold:", failed.c_str());
    return failed.empty() ? 0 : CHECK_FAILED;
}

}  // namespace app
