// commands.h - What each of the program's commands does with the words that it was given: the work of the
// other files in its order, and the program's exit code. Bad input is a line on standard error and BAD_INPUT,
// or an exception of who read it.
#pragma once
#include "app/compare.h"
#include "app/soak.h"
#include "app/status_client.h"
#include "app/status_feed.h"

#include <algorithm>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace app {

constexpr int CHECK_FAILED = 1;
constexpr int BAD_INPUT = 2;
constexpr int KILLED = 128;            // and the signal's number

/// Tells the line; BAD_INPUT.
int refuse(const std::string& line);

struct RunArguments {
    std::vector<std::string> scenarios;
    std::string oscillator, referenceNoise;
    std::string summary, out, junit;
    std::optional<u64> seed;
    std::string seeds;
    u32 jobs = std::max(1u, std::thread::hardware_concurrency());
    bool quiet = false;
    bool shell = false;
    bool stacks = false, traceAll = false;
    std::optional<double> speed;
    std::vector<std::string> interfaces;
    bool oneStep = false;
    std::string gpsTty, pps;
    std::string hostScale = "tai";
    FeedOptions feed;
};
int run(const RunArguments& arguments);

struct WaitArguments {
    WaitQuery query;
    std::string within, timeout;
};
int wait(const WaitArguments& arguments);

struct NmeaArguments {
    std::string log;
    std::optional<u64> cut;
    double noise = 0.0;
    u64 seed = 1;
    bool raw = false;
    bool verbose = false;
};
int nmea(const NmeaArguments& arguments);

struct PcapArguments {
    std::string file, out;
    bool summary = false, json = false, noUnit = false;
    double seconds = 10;
};
int pcap(const PcapArguments& arguments);

struct CompareArguments {
    std::string before, after;
    Tolerance tolerance;
};
int compare(const CompareArguments& arguments);

struct SoakArguments {
    SoakOptions options;          // of the first run
    std::string save = "";        // file for the scenario that its seed draws, instead of a run
    u32 runs = 1;
    u32 jobs = std::max(1u, std::thread::hardware_concurrency());
};
int soak(const SoakArguments& arguments);

}  // namespace app
