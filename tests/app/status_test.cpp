// A run's status for others, and events that are typed: what clients do harms nobody, a look changes nothing,
// and what can be typed is what the scenario's reader takes.
#include "app/estimate_lag.h"
#include "app/runner.h"
#include "app/status_client.h"
#include "app/status_server.h"
#include "app/summary.h"
#include "sim/scenario/scenario.h"
#include "tests/support/tree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

std::string socketPath() { return "/tmp/tu-status-" + std::to_string(::getpid()); }

int connectTo(const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    EXPECT_EQ(::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    return fd;
}

TEST(StatusServer, NoClientHoldsItUpAndAReaderGetsTheLastLineWhole)
{
    std::string last;
    std::thread reader;
    const auto began = std::chrono::steady_clock::now();
    std::vector<int> clients;
    {
        app::StatusServer server(socketPath());
        server.publish("first");
        for (int i = 0; i < 4; ++i) clients.push_back(connectTo(socketPath()));   // they never read
        const std::string rubbish(100'000, '\xff');
        std::thread([&] {
            ::send(clients[1], rubbish.data(), rubbish.size(), MSG_NOSIGNAL);
            ::close(clients[2]);
        }).join();
        reader = std::thread([&last, fd = connectTo(socketPath())] {
            std::string all;
            char bytes[4096];
            for (ssize_t n = 0; (n = ::read(fd, bytes, sizeof bytes)) > 0;)
                all.append(bytes, static_cast<size_t>(n));
            ::close(fd);
            if (all.empty() || all.back() != '\n') return;
            all.pop_back();
            last = all.substr(all.rfind('\n') + 1);
        });
        for (int i = 0; i < 2000; ++i) server.publish(std::to_string(i) + std::string(5000, 'x'));
        std::this_thread::sleep_for(std::chrono::milliseconds(200));   // for the reader alone
        server.publish("the end");
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    reader.join();
    EXPECT_EQ(last, "the end");
    EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(20));
    EXPECT_FALSE(std::filesystem::exists(socketPath()));
    for (const int i : {0, 1, 3}) ::close(clients[static_cast<size_t>(i)]);
}

TEST(StatusServer, TakesOverASocketThatNobodyServesAndNothingElse)
{
    const int left = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    socketPath().copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(left, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ::close(left);
    {
        const app::StatusServer server(socketPath());
        EXPECT_THROW(app::StatusServer{socketPath()}, app::StatusError);
    }
    std::ofstream(socketPath()) << "mine";
    EXPECT_THROW(app::StatusServer{socketPath()}, app::StatusError);
    EXPECT_TRUE(std::filesystem::remove(socketPath()));
}

/// A cold unit finds a receiver and has its time two and a half minutes later.
sim::Scenario gpsScenario()
{
    return sim::readScenarioText(
        "name = \"gps\"\nduration = \"8m\"\n[[unit]]\nname = \"tu1\"\ntime_mode = \"time\"\n"
        "[unit.gps]\n[[unit.reference]]\nname = \"gps\"\ntype = \"GPS_REF\"\nfro_id = 0\n"
        "[[event]]\nat = \"6m\"\ndo = \"mp.jump\"\n",
        "gps.toml");
}

TEST(Status, ALookChangesNothingAndAWaitSeesAStateThatHasGoneBy)
{
    const sim::Scenario scenario = gpsScenario();
    app::RunOptions options;
    options.quiet = true;
    app::Recording alone = app::runScenario(scenario, {}, options);
    options.feed.socket = socketPath();
    options.feed.metrics = "0";
    int passedBy = -1, never = -1;
    std::thread first([&] {
        passedBy = app::waitForState({socketPath(), "", "RNT_TIME_LOCKED", 1000.0, 60.0});
    });
    std::thread second([&] { never = app::waitForState({socketPath(), "", "FAILURE", {}, 60.0}); });
    options.speed = 240;   // two seconds in all
    app::Recording watched = app::runScenario(scenario, {}, options);
    first.join();
    second.join();
    EXPECT_EQ(passedBy, 0);
    EXPECT_EQ(never, 1);
    alone.wall_s = watched.wall_s = 0;
    EXPECT_EQ(app::summaryJson(alone), app::summaryJson(watched));
    const app::Sample& last = alone.units.at(0).samples.back();
    EXPECT_EQ(last.estimate.timeBound_ns, 100.0);   // a receiver's
    EXPECT_EQ(last.estimate.freqBound_ppb, 0.0);
    EXPECT_LE(std::abs(last.estimate.time_ns - last.gpsTimeError_ns), 100.0 + last.estimate.timeBand_ns);
}

TEST(EstimateLag, TellsAMeanThatLiesOffAndOneThatGrows)
{
    constexpr double TURNOVER = 1.0 / 300;
    app::EstimateLag still, growing;
    for (int i = 0; i < 3000; ++i) still.take((50 + (i % 2 == 0 ? 10 : -10)) * 1e-9, 1.0, TURNOVER);
    EXPECT_NEAR(still.time_ns(), 50, 0.5);
    EXPECT_NEAR(still.freq_ppb(), std::sqrt(2.0) * 50 * TURNOVER, 0.01);   // what the filter takes back
    for (int i = 0; i <= 3000; ++i) growing.take((i - 3000) * 1e-9, 1.0, TURNOVER);
    EXPECT_NEAR(growing.freq_ppb(), 1, 0.02);
}

TEST(EventLine, TakesWhatEveryScenarioLetsHappen)
{
    const std::vector<std::string> words = sim::eventWords();
    const std::filesystem::path folder = projectTree() / "scenarios";
    const std::regex happens("\ndo = \"([^\"]+)\"");
    std::size_t seen = 0;
    for (const auto& file : std::filesystem::directory_iterator(folder)) {
        if (file.path().extension() != ".toml") continue;
        std::ifstream in(file.path());
        const std::string text{std::istreambuf_iterator<char>(in), {}};
        for (std::sregex_iterator it(text.begin(), text.end(), happens), end; it != end; ++it, ++seen)
            EXPECT_THAT(words, Contains((*it)[1].str())) << file.path();
    }
    EXPECT_GT(seen, 100u);
}

TEST(EventLine, IsReadAndCompletedByTheScenariosReader)
{
    const sim::Scenario scenario = gpsScenario();
    EXPECT_EQ(sim::readEventLine("gps.fault fault=antenna_open on=false", scenario).what,
              "gps.fault antenna_open off");
    EXPECT_EQ(sim::readEventLine("gps.fault for=10s fault=wrong_second amount=2", scenario).what,
              "gps.fault wrong_second amount=2 for=10s");
    struct Case { const char* line; const char* refusal; };
    for (const Case& c :
         {Case{"gps.fault", "'fault' is missing"}, Case{"gps.fault fault=x", "'x' is no fault of "},
          Case{"nothing.at_all", "is nothing that can happen"},
          Case{"mp.jump colour=red", "unknown key 'colour'"}, Case{"mp.jump red", "isn't key=value"},
          Case{"mp.set_gps_delay ns=ten", "a whole number is expected"},
          Case{"mp.jump unit=tu9", "there is no unit 'tu9'"}, Case{"\"=\n\" \"]", ""}, Case{"", ""}}) {
        try {
            sim::readEventLine(c.line, scenario);
            ADD_FAILURE() << c.line;
        } catch (const sim::ScenarioError& e) {
            EXPECT_THAT(e.what(), HasSubstr(c.refusal)) << c.line;
        }
    }
    EXPECT_THAT(sim::completeEvent("gps.f", scenario), Contains("gps.fault"));
    EXPECT_THAT(sim::completeEvent("gps.fault ", scenario), ElementsAre("unit=", "fault="));
    EXPECT_THAT(sim::completeEvent("gps.fault fault=", scenario),
                testing::IsSupersetOf({"fault=antenna_open", "fault=stuck_pps"}));
    EXPECT_THAT(sim::completeEvent("gps.fault fault=jamming on=", scenario),
                ElementsAre("on=true", "on=false"));
    EXPECT_THAT(sim::completeEvent("mp.select reference=", scenario), Contains("reference=gps"));
}

}  // namespace
