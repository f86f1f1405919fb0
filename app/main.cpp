// tu - Runs timing units in a simulated node from scenarios, or feeds one a receiver's log or a capture.
#include "app/batch.h"
#include "app/compare.h"
#include "app/end_signals.h"
#include "app/junit.h"
#include "app/manual.h"
#include "app/nmea.h"
#include "app/nmea_beside.h"
#include "app/pcap.h"
#include "app/pcap_live.h"
#include "app/pcap_report.h"
#include "app/report.h"
#include "app/runner.h"
#include "app/soak.h"
#include "app/status_client.h"
#include "app/summary.h"
#include "app/version.h"
#include "sim/clock/series.h"
#include "sim/net/host_port.h"
#include "sim/scenario/scenario.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <future>
#include <optional>
#include <set>
#include <string_view>
#include <thread>

namespace {

constexpr int CHECK_FAILED = 1;
constexpr int BAD_INPUT = 2;
constexpr int KILLED = 128;            // and the signal's number

struct RunArguments {
    std::vector<std::string> scenarios;
    std::string oscillator, referenceNoise;
    std::string summary, out, junit;
    std::optional<u64> seed;
    std::string seeds;
    u32 jobs = std::max(1u, std::thread::hardware_concurrency());
    bool quiet = false;
    bool shell = false;
    bool stacks = false;
    std::optional<double> speed;
    std::vector<std::string> interfaces;
    bool oneStep = false;
    std::string gpsTty, pps;
    std::string hostScale = "tai";
    app::FeedOptions feed;
};

int refuse(const std::string& line)
{
    std::fprintf(stderr, "%s\n", line.c_str());
    return BAD_INPUT;
}

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

app::Prepared prepare(const RunArguments& a, const std::string& file)
{
    app::Prepared p{file, sim::readScenario(scenarioFile(file)), {}};
    if (a.seed) p.scenario.seed = *a.seed;
    if (!a.oscillator.empty()) sim::replaceOscillator(p.scenario, a.oscillator);
    if (!a.referenceNoise.empty()) sim::replaceReferenceNoise(p.scenario, a.referenceNoise);
    p.checks = app::readChecks(p.scenario);
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
    if (file != "-") return app::writeFile(file, content);
    const bool ok = std::fwrite(content.data(), 1, content.size(), stdout) == content.size();
    return ok && std::fflush(stdout) == 0 ? "" : "standard output can't be written";
}

/// Several scenarios, or several seeds of one.
int runMany(const RunArguments& a, const std::vector<app::Prepared>& scenarios)
{
    if (a.shell || a.speed || !a.interfaces.empty() || !a.gpsTty.empty() || !a.feed.socket.empty()
        || !a.feed.metrics.empty())
        return refuse("tu: --shell, --speed, --status, --metrics, --ptp-if and --gps-tty are for one run");
    app::BatchOptions options;
    options.quiet = a.quiet || a.summary == "-" || a.junit == "-";
    options.jobs = a.jobs;
    options.out = a.out;
    if (!a.seeds.empty()) options.seeds = app::parseSeeds(a.seeds);
    if (!a.seeds.empty() && options.seeds.empty())
        return refuse("tu: --seeds: '" + a.seeds + "' is no list of seeds, such as 1..50 or 1,4,9");
    std::set<std::string> names;
    for (const app::Prepared& p : scenarios)
        if (!a.out.empty() && !names.insert(p.scenario.name).second)
            return refuse(p.file + ": another scenario is named '" + p.scenario.name
                          + "', and --out has a folder a name");
    const app::EndSignals endSignals;
    std::string wrong;
    const std::vector<app::BatchRun> runs = app::runBatch(scenarios, options, wrong);
    if (!options.quiet && !options.seeds.empty()) app::printSpread(app::spreadOf(runs), stdout);
    std::vector<app::Recording> recordings;
    for (const app::BatchRun& run : runs) recordings.push_back(run.recording);
    if (wrong.empty() && !a.summary.empty()) wrong = write(a.summary, app::batchJson(runs));
    if (wrong.empty() && !a.junit.empty()) wrong = write(a.junit, app::junitXml(recordings));
    if (!wrong.empty()) return refuse(wrong);
    if (app::endSignal() != 0) return KILLED + app::endSignal();
    return std::ranges::all_of(recordings, &app::Recording::passed) ? 0 : CHECK_FAILED;
}

/// [NAME=]INTERFACE
app::HostInterface interfaceOf(const std::string& text)
{
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos) return {"", text};
    return {text.substr(0, equals), text.substr(equals + 1)};
}

app::RunOptions optionsOf(const RunArguments& a)
{
    app::RunOptions options;
    options.quiet = a.quiet || a.summary == "-" || a.junit == "-";   // nothing else may stand there
    options.shell = a.shell;
    options.stacks = a.stacks;
    options.speed = a.speed.value_or(a.shell ? 1.0 : 0.0);
    options.out = a.out;
    options.feed = a.feed;
    for (const std::string& text : a.interfaces) options.interfaces.push_back(interfaceOf(text));
    if (!a.gpsTty.empty()) {
        const app::HostInterface line = interfaceOf(a.gpsTty);
        options.receiver = {line.host, line.interface, a.pps};
    }
    options.oneStep = a.oneStep;
    options.hostTimeIsUtc = a.hostScale == "utc";
    return options;
}

/// What the run is asked to leave behind; the first thing that can't be written.
std::string writeAll(const RunArguments& a, const app::Recording& recording)
{
    std::string wrong;
    if (!a.summary.empty()) wrong = write(a.summary, app::summaryJson(recording));
    if (wrong.empty() && !a.junit.empty()) wrong = write(a.junit, app::junitXml({recording}));
    if (wrong.empty() && !a.out.empty()) wrong = app::writeReport(recording, a.out);
    return wrong;
}

int runOne(const RunArguments& a, const app::Prepared& p)
{
    const app::RunOptions options = optionsOf(a);
    const app::EndSignals endSignals;
    if (!options.quiet)
        std::printf("%s\n", (p.scenario.title.empty() ? p.scenario.name : p.scenario.title).c_str());
    const app::Recording recording = app::runScenario(p.scenario, p.checks, options);
    if (!options.quiet) app::printSummary(recording, stdout);
    if (const std::string wrong = writeAll(a, recording); !wrong.empty()) return refuse(wrong);
    if (!options.quiet && !a.out.empty()) std::printf("report         %s/report.html\n", a.out.c_str());
    if (!recording.complete && !options.quiet)
        std::printf("ended at %s of %s: its checks aren't judged\n",
                    app::clockText(recording.virtual_s).c_str(),
                    app::clockText(p.scenario.duration_s).c_str());
    if (app::endSignal() != 0) return KILLED + app::endSignal();
    if (recording.passed()) return 0;
    if (options.quiet)
        for (const app::CheckResult& c : recording.checks)
            if (!c.pass)
                std::fprintf(stderr, "%s: FAIL %s: %s\n", p.file.c_str(), c.name.c_str(), c.detail.c_str());
    for (const std::string& misuse : recording.misuses)
        std::fprintf(stderr, "%s: kernel misuse: %s\n", p.file.c_str(), misuse.c_str());
    return CHECK_FAILED;
}

int run(const RunArguments& a)
{
    const bool onHost = !a.interfaces.empty() || !a.gpsTty.empty();
    if (onHost && a.speed.value_or(1.0) != 1.0)
        return refuse("tu: on an interface or a receiver's line the run keeps the host's time, --speed is 1");
    if (a.oneStep && a.interfaces.empty())
        return refuse("tu: --one-step goes with --ptp-if MASTER=INTERFACE");
    if (a.gpsTty.empty() && !a.pps.empty()) return refuse("tu: --pps goes with --gps-tty");
    std::vector<app::Prepared> scenarios;
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

struct WaitArguments {
    app::WaitQuery query;
    std::string within, timeout;
};

int wait(const WaitArguments& a)
{
    const auto& [asked, within, timeout] = a;
    app::WaitQuery query = asked;
    const auto isNone = [](const std::string& text, const char* what) {
        return refuse("tu wait: '" + text + "' is no " + what);
    };
    if (!sim::clockStateByName(query.state)) return isNone(query.state, "clock state");
    if (!within.empty()) query.within_ns = app::parseTime_ns(within);
    if (!within.empty() && !query.within_ns) return isNone(within, "time such as \"1 us\"");
    if (!timeout.empty()) query.timeout_s = sim::parseDuration(timeout);
    if (!timeout.empty() && !query.timeout_s) return isNone(timeout, "time such as 10m");
    return app::waitForState(query);
}

struct NmeaArguments {
    std::string log;
    std::optional<u64> cut;
    double noise = 0.0;
    u64 seed = 1;
    bool raw = false;
    bool verbose = false;
};

int nmea(const NmeaArguments& a)
{
    app::NmeaLog log = app::readNmeaLog(a.log, a.raw);
    app::mixNoise(log, a.noise, a.seed);
    app::NmeaBench unit;
    app::NmeaBeside beside;
    unit.onSentence([&](const app::NmeaSentence& s) {
        beside.take(s.text);
        if (a.verbose) app::printNmeaSentence(s, stdout);
    });
    unit.feed(log.bytes, a.cut);
    const app::NmeaResult result = unit.result();
    app::printNmeaResult(result, log, a.log, stdout);
    app::printNmeaBeside(beside, stdout);
    return result.misuses.empty() ? 0 : CHECK_FAILED;
}

struct PcapArguments {
    std::string file, out;
    bool summary = false, json = false, noUnit = false;
    double seconds = 10;
};

int pcap(const PcapArguments& a)
{
    const bool isFile = std::filesystem::exists(a.file);
    const std::vector<app::PcapPacket> capture =
        !isFile && app::isInterface(a.file) ? app::recordLive(a.file, a.seconds) : app::readPcap(a.file);
    app::PcapAnalysis analysis;
    app::PcapResult result;
    for (const app::PcapPacket& p : capture) {
        const auto ptp = app::ptpOf(p);
        analysis.take(p, ptp);
        ++result.packets;
        result.other += !ptp;
    }
    analysis.finish();
    if (!a.noUnit) {
        app::PcapBench unit(capture);
        if (!a.summary && !a.json)
            unit.onMessage([](const app::PcapMessage& m) { app::printPcapMessage(m, stdout); });
        result = unit.run();
    }
    if (a.json) {
        std::fputs(app::pcapJson(result, analysis, a.file).c_str(), stdout);
    } else {
        if (!a.noUnit) app::printPcapResult(result, a.file, stdout);
        app::printPcapAnalysis(analysis, stdout);
    }
    if (!a.out.empty())
        if (const std::string wrong = app::writePcapReport(result, analysis, a.file, a.out); !wrong.empty())
            return refuse(wrong);
    return result.misuses.empty() ? 0 : CHECK_FAILED;
}

struct CompareArguments {
    std::string before, after;
    app::Tolerance tolerance;
};

int compare(const CompareArguments& a)
{
    return app::compareSummaries(a.before, a.after, a.tolerance, stdout) != 0 ? CHECK_FAILED : 0;
}

struct SoakArguments {
    app::SoakOptions options;          // of the first run
    u32 runs = 1;
    u32 jobs = std::max(1u, std::thread::hardware_concurrency());
};

/// Runs share nothing, so that many go side by side; they are told in order of their seeds, each as soon as
/// those before it are, and behind several how many hours held and which seeds didn't.
int soak(const SoakArguments& a)
{
    const u32 runs = a.runs;
    const auto optionsOf = [&a](u32 run) {
        app::SoakOptions options = a.options;
        options.seed += run;
        return options;
    };
    std::vector<std::promise<app::SoakResult>> results(runs);
    std::atomic<u32> next{0};
    std::vector<std::jthread> workers;
    for (u32 i = 0; i < std::min(a.jobs, runs); ++i)
        workers.emplace_back([&] {
            for (u32 run = next++; run < runs; run = next++) {
                try {
                    results[run].set_value(app::runSoak(optionsOf(run)));
                } catch (...) {
                    results[run].set_exception(std::current_exception());
                }
            }
        });
    double hours = 0;
    std::string failed;
    for (u32 run = 0; run < runs; ++run) {
        const app::SoakResult result = results[run].get_future().get();
        hours += result.hours;
        if (app::printSoak(optionsOf(run), result) != 0) failed += " " + std::to_string(optionsOf(run).seed);
        std::fflush(stdout);
    }
    if (runs > 1)
        std::printf("soak: %u runs, %.1f virtual hours, %s%s\n", runs, hours,
                    failed.empty() ? "all hold" : "these seeds don't hold:", failed.c_str());
    return failed.empty() ? 0 : CHECK_FAILED;
}

/// "" when the first word is a command.
std::string unknownCommand(const CLI::App& tu, int argc, char** argv)
{
    if (argc < 2 || argv[1][0] == '-') return "";
    std::string known;
    for (const CLI::App* const command : tu.get_subcommands({})) {
        if (command->get_name() == argv[1]) return "";
        known += (known.empty() ? "" : ", ") + command->get_name();
    }
    return std::string("'") + argv[1] + "' is none of " + known;
}

// ---- the words of each command ------------------------------------------------------------------

CLI::App* addRun(CLI::App& tu, RunArguments& a)
{
    CLI::App* const command = tu.add_subcommand("run", "Run a scenario and score the clock");
    command
        ->add_option("scenario", a.scenarios, "Scenarios: TOML files, or names of those that are installed")
        ->required();
    CLI::Option* const seed = command->add_option("--seed", a.seed,
                                                  "Seed of every noise source, in place of the scenario's");
    command->add_option("--seeds", a.seeds, "A run for each seed, such as 1..50, and the percentiles of all")
        ->excludes(seed);
    command->add_option("--jobs", a.jobs, "Runs side by side; by default one a processor")
        ->check(CLI::Range(1, 1024));
    command->add_option("--oscillator", a.oscillator,
                           "Recorded oscillator, one value a second: FILE[:hz|:mhz|:frequency|:phase], or "
                           "FILE:counts,nominal=COUNTS[,gate=SECONDS][,column=N]");
    command->add_option("--reference-noise", a.referenceNoise,
                           "Recorded noise of the references: FILE[:phase], or as the oscillator");
    command->add_option("--summary", a.summary,
                           "Write the summary to this file as JSON; - is standard output");
    command->add_option("--junit", a.junit, "Write what held and what didn't to this file as JUnit's XML");
    command->add_option("--out", a.out, "Folder for series, traces, volumes and report.html");
    command->add_flag("--quiet", a.quiet, "No progress, no lines, no summary on the terminal");
    command->add_flag("--stacks", a.stacks, "Tell how much of their stacks the processes have used");
    command->add_flag("--shell", a.shell, "Operator's console; the unit runs in real time unless --speed");
    command->add_option("--speed", a.speed, "Times real time, 0 as fast as it goes")
        ->check(CLI::Range(0.0, 1e6));
    command->add_option("--ptp-if", a.interfaces,
                           "[NAME=]INTERFACE: the unit, or the unit or master of that name, on a network "
                           "interface; the run keeps the host's time")
        ->type_name("TEXT")->expected(1)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    command->add_flag("--one-step", a.oneStep,
                         "Masters on interfaces tell the time in Sync itself: the card puts it in where it "
                         "can, elsewhere it is the time before Sync is sent");
    command
        ->add_option("--gps-tty", a.gpsTty,
                     "[UNIT=]DEVICE: a receiver on this serial line in place of the simulated one; the run "
                     "keeps the host's time")
        ->type_name("TEXT");
    command->add_option("--pps", a.pps,
                           "That receiver's pulse, a PPS device; the host's seconds without one");
    command->add_option("--host-scale", a.hostScale,
                           "Which of the host's time scales is true time where the run keeps it: tai, or utc "
                           "beside a master that gives the host's time of day as it is")
        ->check(CLI::IsMember({"tai", "utc"}));
    command->add_option("--status", a.feed.socket,
                           "Serve the units' status, JSON a line, on this local socket");
    command->add_option("--metrics", a.feed.metrics,
                           "[HOST:]PORT: serve /metrics there for Prometheus, on the loopback without a "
                           "host");
    return command;
}

CLI::App* addStatus(CLI::App& tu, app::StatusQuery& query)
{
    CLI::App* const command = tu.add_subcommand("status", "Ask a run that serves --status how its units are");
    command->add_option("socket", query.socket, "Its socket")->required();
    command->add_option("--unit", query.unit, "One unit of several");
    command->add_flag("--json", query.json, "JSON a line");
    command->add_flag("--watch", query.watch, "On until the run ends");
    return command;
}

CLI::App* addWait(CLI::App& tu, WaitArguments& a)
{
    CLI::App* const command = tu.add_subcommand("wait", "Wait until a unit's clock is in a state");
    command->add_option("socket", a.query.socket, "Socket of a run that serves --status")->required();
    command->add_option("state", a.query.state, "Clock state, such as RNT_TIME_LOCKED")->required();
    command->add_option("--unit", a.query.unit, "A unit other than the first");
    command->add_option("--within", a.within,
                            "And the time known to this: its estimate and the band about it");
    command->add_option("--timeout", a.timeout, "Of real time, such as 10m; exit code 1 then");
    return command;
}

CLI::App* addNmea(CLI::App& tu, NmeaArguments& a)
{
    CLI::App* const command =
        tu.add_subcommand("nmea", "Put a receiver's log on a unit's serial line and tell what it takes");
    command->add_option("log", a.log, "NMEA 0183 log")->required();
    command->add_option("--cut", a.cut, "Cut it into pieces of random length, from this seed");
    command->add_option("--noise", a.noise, "Random bytes mixed in, for each byte of the log")
        ->check(CLI::Range(0.0, 1.0));
    command->add_option("--seed", a.seed, "Seed of the noise");
    command->add_flag("--raw", a.raw, "Leave the ends of lines as they are");
    command->add_flag("--verbose", a.verbose, "Each sentence with what became of it");
    return command;
}

CLI::App* addPcap(CLI::App& tu, PcapArguments& a)
{
    CLI::App* const command =
        tu.add_subcommand("pcap", "Tell what a unit takes of a capture's PTP, and what the capture shows");
    command->add_option("file", a.file, "pcap or pcapng of Ethernet, plain or gzip, or a network interface")
        ->required();
    command->add_option("--seconds", a.seconds, "How long an interface is listened to, or until an interrupt")
        ->check(CLI::Range(0.1, 1e6));
    command->add_flag("--summary", a.summary, "The closing tables alone");
    command->add_flag("--json", a.json, "The same as JSON");
    command->add_flag("--no-unit", a.noUnit, "Without a unit: what the capture shows by itself");
    command->add_option("--out", a.out, "Folder for report.html with plots, and for the series");
    return command;
}

CLI::App* addCompare(CLI::App& tu, CompareArguments& a)
{
    CLI::App* const command = tu.add_subcommand(
        "compare", "Tell what changed from one summary to another; exit code 1 beyond a tolerance");
    command->add_option("before", a.before, "Summary of a run, JSON")->required();
    command->add_option("after", a.after, "The other one")->required();
    command->add_option("--relative", a.tolerance.relative, "Share by which numbers may differ, 0.01 is 1 %")
        ->check(CLI::NonNegativeNumber);
    command->add_option("--absolute", a.tolerance.absolute, "Or by so much, in the number's own unit")
        ->check(CLI::NonNegativeNumber);
    return command;
}

CLI::App* addSoak(CLI::App& tu, SoakArguments& a)
{
    CLI::App* const command =
        tu.add_subcommand("soak", "Run what a seed draws, and watch what must hold whatever happens");
    command->add_option("--hours", a.options.hours, "Virtual hours of each run")->check(CLI::Range(0.1, 1e5));
    command->add_option("--seed", a.options.seed, "Seed of the first run");
    command->add_option("--runs", a.runs, "Runs, each with the next seed")->check(CLI::Range(1, 1000000));
    command->add_option("--jobs", a.jobs, "Runs side by side; by default one a processor")
        ->check(CLI::Range(1, 1024));
    command->add_option("--save", a.options.save, "Write the scenario that the seed draws to this file");
    command->add_flag("--quiet", a.options.quiet, "Tell failures alone");
    return command;
}

/// What is wrong with the input; any other exception goes on.
std::string inputFault()
{
    try {
        throw;
    } catch (const sim::ScenarioError& e) {
        return e.what();
    } catch (const sim::SeriesError& e) {
        return e.what();
    } catch (const sim::HostError& e) {
        return e.what();
    } catch (const app::NmeaError& e) {
        return e.what();
    } catch (const app::StatusError& e) {
        return e.what();
    } catch (const app::PcapError& e) {
        return e.what();
    } catch (const app::CompareError& e) {
        return e.what();
    }
}

}  // namespace

int main(int argc, char** argv)
{
    CLI::App tu{"Timing units of a radio base station in a simulated node", "tu"};
    tu.require_subcommand(1);
    tu.set_version_flag("--version", std::string("tu ") + app::version());
    RunArguments a;
    app::StatusQuery query;
    WaitArguments w;
    NmeaArguments n;
    PcapArguments p;
    CompareArguments c;
    SoakArguments s;
    struct Command { CLI::App* words; std::function<int()> run; };
    const Command commands[] = {
        {addRun(tu, a), [&] { return run(a); }},
        {addStatus(tu, query), [&] { return app::printStatus(query); }},
        {addWait(tu, w), [&] { return wait(w); }},
        {addNmea(tu, n), [&] { return nmea(n); }},
        {addPcap(tu, p), [&] { return pcap(p); }},
        {addCompare(tu, c), [&] { return compare(c); }},
        {addSoak(tu, s), [&] { return soak(s); }},
    };
    if (argc == 3 && std::string_view(argv[1]) == "--manual") {   // for who builds a package
        const std::string wrong = app::writeManual(tu, app::version(), argv[2]);
        return wrong.empty() ? 0 : refuse(wrong);
    }
    try {
        tu.parse(argc, argv);
        return std::ranges::find_if(commands, [](const Command& each) { return each.words->parsed(); })
            ->run();
    } catch (const CLI::ParseError& e) {
        if (e.get_exit_code() == 0) return tu.exit(e);
        const std::string wrong = unknownCommand(tu, argc, argv);
        return refuse("tu: " + (wrong.empty() ? e.what() : wrong));
    } catch (...) {
        return refuse(inputFault());
    }
}
