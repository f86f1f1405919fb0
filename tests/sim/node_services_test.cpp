#include "node/elgi.h"
#include "node/pri.h"
#include "node/sig.h"
#include "node/temi.h"
#include "support/idle_node.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <vector>

using sim::Answer;

namespace {

/// Number of the next signal within `tmo` ms, 0 when none comes; the signal is freed.
SIGSELECT next(OSTIME tmo = 1000)
{
    Signal* sig = ose::receive_w_tmo(tmo, ose::ANY_SIGNAL);
    if (sig == nullptr) return 0;
    const SIGSELECT sigNo = sig->sigNo;
    ose::free_buf(&sig);
    return sigNo;
}

}  // namespace

TEST(Identity, ServerThatSaysNoOrDies)
{
    struct Case { const char* when; Answer answer; std::vector<SIGSELECT> signals; };
    for (const Case& c : std::to_array<Case>({{"suspends", Answer::Suspend, {0x60303, 0x60301}},
                                              {"rejects", Answer::Reject, {0x60303, 0x60302}},
                                              {"silent", Answer::Silent, {0, 0}},
                                              {"busy", Answer::Busy, {0, 0}}})) {
        SCOPED_TRACE(c.when);
        IdleNode b;
        b.node.pri().setAnswer(c.answer);
        std::vector<SIGSELECT> signals;
        SIGSELECT freed = 0;
        b.in([&] {
            EXPECT_EQ(node::TarsoPri_initiateService(3, 3, 3), 0u);
            signals = {next(), next()};
            b.node.pri().setAnswer(Answer::Accept);
            freed = next(100);
        });
        EXPECT_EQ(signals, c.signals);
        EXPECT_EQ(freed, c.answer == Answer::Busy ? 0x60303u : 0u) << "a kept request is answered";
    }

    IdleNode b;
    b.world.after(50 * ose::MS, [&] { b.node.pri().die(); });
    b.world.after(150 * ose::MS, [&] { b.node.pri().start(); });
    b.in([&] {
        EXPECT_EQ(node::TarsoPri_initiateService(3, 3, 3), 0u);
        EXPECT_EQ(next(), 0x60303u);
        EXPECT_EQ(next(), 0x60300u);
        EXPECT_EQ(next(), 0x60304u) << "its death is told";
        EXPECT_NE(node::TarsoPri_initiateService(3, 3, 3), 0u) << "while it isn't there";
        ose::delay(200);
        EXPECT_EQ(node::TarsoPri_initiateService(3, 3, 3), 0u);
    });
}

TEST(ErrorLog, RecordsAndAnswers)
{
    struct Case { const char* when; Answer answer; bool dead; int result; SIGSELECT signal; };
    for (const Case& c : std::to_array<Case>({{"accepts", Answer::Accept, false, 0, 0x6011F},
                                              {"silent", Answer::Silent, false, 0, 0},
                                              {"busy", Answer::Busy, false, 4, 0},
                                              {"rejects", Answer::Reject, false, 5, 0},
                                              {"dead", Answer::Accept, true, 1, 0}})) {
        SCOPED_TRACE(c.when);
        IdleNode b;
        b.node.errorLog().setAnswer(c.answer);
        if (c.dead) b.node.errorLog().die();
        int result = -1;
        SIGSELECT signal = 99;
        b.in([&] {
            result = node::TarsoElgi_write2("MC7", "KVD: text");
            signal = next(50);
        });
        EXPECT_EQ(result, c.result);
        EXPECT_EQ(signal, c.signal);
        EXPECT_EQ(b.node.errorLog().count("MC7"), c.result == 0 ? 1u : 0u);
    }
}

TEST(Volumes, OutliveRestartsAndPowerAndGoToTheHost)
{
    IdleNode b;
    EXPECT_EQ(b.node.fileExists("/d/a.txt"), 0);
    EXPECT_EQ(b.node.fileWrite("/d/a.txt", std::string("x\0y", 3)), 0);
    EXPECT_EQ(b.node.fileAppend("/gzip/c/logfiles/log", "12"), 0);
    b.node.powerOff();
    b.node.powerOn();
    std::string content;
    EXPECT_EQ(b.node.fileRead("/d/a.txt", content), 0);
    EXPECT_EQ(content, std::string("x\0y", 3));
    b.node.volumes().writeFails = true;
    EXPECT_NE(b.node.fileWrite("/d/a.txt", "z"), 0);
    EXPECT_NE(b.node.fileRemove("/d/a.txt"), 0);

    const std::filesystem::path dir = std::filesystem::path(testing::TempDir()) / "tu_volumes_test";
    std::filesystem::remove_all(dir);
    EXPECT_EQ(b.node.volumes().save(dir.string()), "");
    sim::Volumes other;
    EXPECT_EQ(other.load(dir.string()), "");
    EXPECT_EQ(other.files(), b.node.volumes().files());
    std::string host(2, '\0');
    std::ifstream(dir / "gzip/c/logfiles/log", std::ios::binary).read(host.data(), 2);
    EXPECT_EQ(host, "\x1f\x8b") << "gzip's magic number, RFC 1952";
    std::ofstream(dir / "gzip/c/logfiles/log") << "cut";
    EXPECT_NE(other.load(dir.string()), "");
    EXPECT_NE(other.load((dir / "nowhere").string()), "");
    std::ofstream(dir / "plain") << "a file";
    EXPECT_NE(b.node.volumes().save((dir / "plain").string()), "") << "a file is no directory";
    std::filesystem::remove_all(dir);

    b.node.volumes().writeFails = false;
    EXPECT_EQ(b.node.fileRemove("/d/a.txt"), 0);
    EXPECT_NE(b.node.fileRemove("/d/a.txt"), 0);
    EXPECT_NE(b.node.fileRead("/d/a.txt", content), 0);
}

TEST(Shell, SplitsWords)
{
    struct Case { const char* line; std::vector<std::string> words; };
    for (const Case& c : std::to_array<Case>({
             {"", {}},
             {"  \t ", {}},
             {"kvdinfo  all ", {"kvdinfo", "all"}},
             {"a \"b c\" d", {"a", "b c", "d"}},
             {"a\"b c\"d", {"ab cd"}},
             {"a \"\"", {"a", ""}},
             {"gpssend nmea \\\"$X\\\"", {"gpssend", "nmea", "\"$X\""}},
             {"open \"to the end", {"open", "to the end"}},
             {"end\\", {"end\\"}}})) {
        SCOPED_TRACE(c.line);
        EXPECT_EQ(sim::splitCommandLine(c.line), c.words);
    }
}

TEST(Shell, RunsACommandInTheProgramOneAtATime)
{
    IdleNode b;
    const auto registerAll = [&] {
        b.in([] {
            node::Platform& p = node::platform();
            p.registerCommand({"echo", "echo", "prints its words", [](int argc, char** argv) {
                                   for (int i = 0; i < argc; ++i) node::shellPrintf("%d:%s\n", i, argv[i]);
                                   return argc;
                               }});
            p.registerCommand({"slow", "slow", "takes a second", [](int, char**) {
                                   node::shellPrintf("before ");
                                   ose::delay(1000);
                                   node::shellPrintf("after");
                                   return 0;
                               }});
            EXPECT_NE(p.registerCommand({"echo", "", "", [](int, char**) { return 0; }}), 0) << "twice";
        });
    };
    registerAll();
    std::string output;
    EXPECT_EQ(b.node.shell().run("", output), 0);
    EXPECT_EQ(b.node.shell().run("ekko", output), sim::SHELL_UNKNOWN_COMMAND);

    std::vector<std::string> ended;
    const auto note = [&](int result, const std::string& text) {
        ended.push_back(std::to_string(result) + text);
    };
    b.node.shell().submit("slow", note);
    b.node.shell().submit("echo \"a b\"", note);
    b.world.runFor(999 * ose::MS);
    EXPECT_TRUE(ended.empty()) << "the second waits for the first";
    b.world.runFor(2 * ose::MS);
    EXPECT_EQ(ended, (std::vector<std::string>{"0before after", "20:echo\n1:a b\n"}));

    ended.clear();
    b.node.shell().submit("slow", note);
    b.world.runFor(10 * ose::MS);
    b.node.restartWarm();
    b.world.runFor(2 * ose::SEC);
    EXPECT_EQ(ended, (std::vector<std::string>{"-2before "})) << "ended with its program";
    EXPECT_EQ(b.node.shell().run("echo", output), sim::SHELL_UNKNOWN_COMMAND) << "not registered yet";
    registerAll();
    EXPECT_EQ(b.node.shell().run("echo", output), 1);
    b.node.kill();
    EXPECT_EQ(b.node.shell().run("echo", output), sim::SHELL_NO_PROGRAM);
}
