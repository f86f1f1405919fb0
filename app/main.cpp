// tu - Runs timing units in a simulated node from scenarios, or feeds one a receiver's log or a capture.
#include "app/commands.h"
#include "app/manual.h"
#include "app/nmea.h"
#include "app/pcap.h"
#include "app/version.h"
#include "sim/clock/series.h"
#include "sim/net/host_port.h"
#include "sim/scenario/scenario.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <functional>
#include <string_view>

namespace {

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

CLI::App* addRun(CLI::App& tu, app::RunArguments& a)
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
    command->add_flag("--trace-all", a.traceAll, "The units trace every level, as --out shows");
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

CLI::App* addWait(CLI::App& tu, app::WaitArguments& a)
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

CLI::App* addNmea(CLI::App& tu, app::NmeaArguments& a)
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

CLI::App* addPcap(CLI::App& tu, app::PcapArguments& a)
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

CLI::App* addCompare(CLI::App& tu, app::CompareArguments& a)
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

CLI::App* addSoak(CLI::App& tu, app::SoakArguments& a)
{
    CLI::App* const command =
        tu.add_subcommand("soak", "Run what a seed draws, and watch what must hold whatever happens");
    command->add_option("--hours", a.options.hours, "Virtual hours of each run")->check(CLI::Range(0.1, 1e5));
    command->add_option("--seed", a.options.seed, "Seed of the first run");
    command->add_option("--runs", a.runs, "Runs, each with the next seed")->check(CLI::Range(1, 1000000));
    command->add_option("--jobs", a.jobs, "Runs side by side; by default one a processor")
        ->check(CLI::Range(1, 1024));
    command->add_option("--save", a.save,
                        "Write the scenario that the seed draws to this file, and run nothing");
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
    app::RunArguments a;
    app::StatusQuery query;
    app::WaitArguments w;
    app::NmeaArguments n;
    app::PcapArguments p;
    app::CompareArguments c;
    app::SoakArguments s;
    struct Command { CLI::App* words; std::function<int()> run; };
    const Command commands[] = {
        {addRun(tu, a), [&] { return app::run(a); }},
        {addStatus(tu, query), [&] { return app::printStatus(query); }},
        {addWait(tu, w), [&] { return app::wait(w); }},
        {addNmea(tu, n), [&] { return app::nmea(n); }},
        {addPcap(tu, p), [&] { return app::pcap(p); }},
        {addCompare(tu, c), [&] { return app::compare(c); }},
        {addSoak(tu, s), [&] { return app::soak(s); }},
    };
    if (argc == 3 && std::string_view(argv[1]) == "--manual") {   // for who builds a package
        const std::string wrong = app::writeManual(tu, app::version(), argv[2]);
        return wrong.empty() ? 0 : app::refuse(wrong);
    }
    try {
        tu.parse(argc, argv);
        return std::ranges::find_if(commands, [](const Command& each) { return each.words->parsed(); })
            ->run();
    } catch (const CLI::ParseError& e) {
        if (e.get_exit_code() == 0) return tu.exit(e);
        const std::string wrong = unknownCommand(tu, argc, argv);
        return app::refuse("tu: " + (wrong.empty() ? e.what() : wrong));
    } catch (...) {
        return app::refuse(inputFault());
    }
}
