#include "node/elgi.h"
#include "node/phyport.h"
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

/// What the name server gets: the name has no terminator, the answer's number stands right behind
/// it.
void askNameServer(PROCESS ns, const std::string& name, SIGSELECT answer)
{
    Signal* sig = ose::alloc(static_cast<u32>(name.size()) + 24, 0x7B81);
    auto* bytes = reinterpret_cast<char*>(sig);
    const u32 length = static_cast<u32>(name.size());
    std::memcpy(bytes + 8, &length, 4);
    std::memcpy(bytes + 16, name.data(), name.size());
    std::memcpy(bytes + 16 + name.size(), &answer, 4);
    ose::send(&sig, ns);
}

}  // namespace

TEST(NameServer, AnswersOnceTheServiceExistsAndAsTheService)
{
    for (const std::string name : {"odd", "even", "KvdSomeService"}) {
        SCOPED_TRACE(name);
        IdleNode b;
        sim::NameServer& ns = b.node.nameServer();
        const PROCESS service = b.node.system().find("TarsoPriServer");
        SIGSELECT early = 99, late = 0;
        PROCESS from = 0;
        b.world.after(500 * ose::MS, [&] { ns.publish(name, service); });
        b.in([&] {
            askNameServer(b.node.system().find("ose_ns"), name, 0x90E03);
            early = next(400);
            Signal* sig = ose::receive_w_tmo(1000, ose::ANY_SIGNAL);
            if (sig == nullptr) return;
            late = sig->sigNo;
            from = ose::sender(&sig);
            ose::free_buf(&sig);
        });
        EXPECT_EQ(early, 0u);
        EXPECT_EQ(late, 0x90E03u);
        EXPECT_EQ(from, service);
        EXPECT_EQ(ns.waiting(), 0u);
    }
}

TEST(NameServer, SurvivesRequestsThatLie)
{
    IdleNode b;
    b.in([&] {
        const PROCESS ns = b.node.system().find("ose_ns");
        for (const u32 size : {4u, 12u, 19u, 24u}) {
            Signal* sig = ose::alloc(size, 0x7B81);
            const u32 length = 0xFFFFFFF0;
            if (size >= 12) std::memcpy(reinterpret_cast<char*>(sig) + 8, &length, 4);
            ose::send(&sig, ns);
        }
        ose::delay(1);
        askNameServer(ns, "KvdTuIIfServiceName", 0x90E03);
        EXPECT_EQ(next(), 0x90E03u) << "and goes on serving";
    });
}

TEST(NameServer, OfADeadServerNothingComesAndAnAttachTells)
{
    IdleNode b;
    SIGSELECT told = 0, answer = 99;
    b.world.after(100 * ose::MS, [&] { b.node.nameServer().die(); });
    b.in([&] {
        const PROCESS ns = b.node.system().find("ose_ns");
        Signal* dead = ose::alloc(4, 0x90E01);
        ose::attach(&dead, ns);
        askNameServer(ns, "not there", 0x90E03);
        told = next();
        answer = next(200);
    });
    EXPECT_EQ(told, 0x90E01u);
    EXPECT_EQ(answer, 0u);
    b.node.nameServer().start();
    EXPECT_NE(b.node.system().find("ose_ns"), 0u);
}

TEST(Identity, IsToldAfterTheServiceConfirmed)
{
    sim::NodeConfig config;
    config.smn = 3;
    config.apn = 2;
    config.piuInstanceId = 77;
    IdleNode b{config};
    std::vector<SIGSELECT> order;
    u32 instance = 0, smn = 0, apn = 0, inUse = 0, early = 0;
    b.in([&] {
        early = node::TarsoPiu_getOwnIdentity();
        EXPECT_EQ(node::TarsoPri_initiateService(3, 3, 3), 0u);
        while (order.size() < 5) {
            Signal* sig = ose::receive_w_tmo(1000, ose::ANY_SIGNAL);
            if (sig == nullptr) return;
            order.push_back(sig->sigNo);
            const u32 result = node::TarsoPri_internal(sig);
            if (sig->sigNo == 0x60300) {
                inUse = result;
                node::TarsoPiu_getOwnIdentity();
                node::TarsoPiu3_getOwnHWAddr();
            } else if (const auto* id = as<TarsoPiuOwnIdentityCfm>(sig);
                       sig->sigNo == 0x60306 && id) {
                instance = id->piuInstanceId;
            } else if (const auto* hw = as<TarsoPiu3OwnHwAddrCfm>(sig);
                       sig->sigNo == 0x60307 && hw) {
                smn = hw->smn;
                apn = hw->apn;
                node::TarsoPri_terminateService();
            }
            ose::free_buf(&sig);
        }
        b.node.pri().die();                     // no longer of interest: nothing is told
        EXPECT_EQ(next(100), 0u);
    });
    EXPECT_NE(early, 0u) << "not connected yet";
    EXPECT_EQ(order, (std::vector<SIGSELECT>{0x60303, 0x60300, 0x60306, 0x60307, 0x60305}));
    EXPECT_EQ(inUse, 2u);
    EXPECT_EQ(instance, 77u);
    EXPECT_EQ(smn, 3u);
    EXPECT_EQ(apn, 2u);
    EXPECT_EQ(b.node.pri().clients(), 0u);
}

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
        EXPECT_EQ(next(), 0x60303u);
        EXPECT_EQ(next(), 0x60300u);
    });
}

TEST(TestService, DrivesTheStartUpSequenceOncePerProgram)
{
    sim::NodeConfig config;
    config.restartType = 1;
    IdleNode b{config};
    const auto exchange = [&](u32 tests) {
        std::vector<u32> seen;
        b.in([&] {
            EXPECT_EQ(node::TarsoTemi_initiateService("KVD_LOZ6_HW", 2), 0u);
            for (;;) {
                Signal* sig = ose::receive_w_tmo(100, ose::ANY_SIGNAL);
                if (sig == nullptr) return;
                seen.push_back(sig->sigNo);
                node::TarsoTemi_internal(sig);
                if (const auto* ind = as<TarsoTemiDoTestInd>(sig); sig->sigNo == 0x60255 && ind) {
                    EXPECT_EQ(ind->restartType, b.node.temi().restartType);
                    EXPECT_STREQ(ind->name, "KVD_LOZ6_HW");
                    const bool last = seen.size() > tests;
                    node::TarsoTemi_doTestResponse(last, static_cast<u32>(seen.size() - 1), "T", 0,
                                                   "ok");
                    if (last) node::TarsoTemi_terminateService();
                }
                ose::free_buf(&sig);
            }
        });
        return seen;
    };
    EXPECT_EQ(exchange(3), (std::vector<u32>{0x60250, 0x60255, 0x60255, 0x60255, 0x60257}));
    ASSERT_EQ(b.node.temi().results().size(), 3u);
    EXPECT_EQ(b.node.temi().results()[1].testNumber, 2u);
    EXPECT_TRUE(b.node.temi().results()[2].last);
    EXPECT_EQ(exchange(1), (std::vector<u32>{0x60250})) << "later connections bring no tests";

    b.node.restartWarm();
    b.world.runFor(ose::MS);
    EXPECT_EQ(b.node.temi().restartType, 4u);
    EXPECT_EQ(exchange(1), (std::vector<u32>{0x60250, 0x60255, 0x60257}));
}

TEST(TestService, TakesReportsAtRunTimeAndCanBeMissing)
{
    IdleNode b;
    b.in([&] {
        EXPECT_NE(node::TarsoTemi_testResultInd(8, "Runtime fault", 2, "x"), 0u) << "not connected";
        EXPECT_EQ(node::TarsoTemi_initiateService("KVD_LOZ6_HW", 2), 0u);
        EXPECT_EQ(
            node::TarsoTemi_testResultInd(8, "Runtime fault", 2, std::string(300, 'm').c_str()),
            0u);
        std::vector<SIGSELECT> seen;
        while (const SIGSELECT sigNo = next(100)) seen.push_back(sigNo);
        EXPECT_EQ(seen, (std::vector<SIGSELECT>{0x60250, 0x60255, 0x60256}));
        b.node.temi().setAnswer(Answer::Reject);
        EXPECT_EQ(node::TarsoTemi_initiateService("KVD_LOZ6_HW", 2), 0u);
        EXPECT_EQ(next(), 0x60252u);
        b.node.temi().die();
        EXPECT_NE(node::TarsoTemi_initiateService("KVD_LOZ6_HW", 2), 0u);
    });
    ASSERT_EQ(b.node.temi().failures(), 1u);
    EXPECT_TRUE(b.node.temi().results()[0].atRuntime);
    EXPECT_EQ(b.node.temi().results()[0].name, "Runtime fault");
    EXPECT_EQ(b.node.temi().results()[0].message, std::string(159, 'm'));
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

TEST(PhyPorts, AreAnnouncedAtConnectionAndOnChange)
{
    sim::NodeConfig config;
    config.ports = {{.line = 0, .froId = 10}, {.line = 4, .froId = 14, .syncState = 1}};
    IdleNode b{config};
    std::vector<SIGSELECT> seen;
    u32 lastFroId = 0, lastControl = 9;
    b.world.after(100 * ose::MS, [&] { b.node.phyPorts().add({.line = 2, .froId = 12}); });
    b.world.after(200 * ose::MS, [&] { b.node.phyPorts().remove(0); });
    b.world.after(300 * ose::MS, [&] { b.node.phyPorts().die(); });
    b.in([&] {
        auto* req = node::make<PhyportConnectReq>(0xA21C2);
        req->interfaceNumber = 664000;
        req->pvFirst = 1;
        req->pvSecond = 2;
        const PROCESS server = b.node.system().find("PhyPortInfoServer");
        Signal* dead = ose::alloc(4, 0xA21C1);
        ose::attach(&dead, server);
        node::sendTo(server, req);
        for (;;) {
            Signal* sig = ose::receive_w_tmo(1000, ose::ANY_SIGNAL);
            if (sig == nullptr) return;
            seen.push_back(sig->sigNo);
            if (const auto* ind = as<PhyportPortInfoInd>(sig); sig->sigNo == 0xA21C8 && ind) {
                lastFroId = ind->froId;
                lastControl = ind->stateControl;
            }
            ose::free_buf(&sig);
        }
    });
    EXPECT_EQ(seen, (std::vector<SIGSELECT>{0xA21C3, 0xA21C5, 0xA21C8, 0xA21C7, 0xA21C8, 0xA21C7,
                                            0xA21C8, 0xA21C7, 0xA21C8, 0xA21C1}));
    EXPECT_EQ(lastFroId, 10u);
    EXPECT_EQ(lastControl, 1u);
}

TEST(Parameters, OfTheBoardAndItsFaults)
{
    sim::NodeConfig config;
    config.boardParameters = {{"extra", "0123456789ABCDE"}, {"productnumber", "-"}};
    IdleNode b{config};
    char text[16];
    u32 code = 0;
    EXPECT_EQ(b.node.boardParameter("zfb/hw/fpga/moka/base", text, sizeof text), 0);
    EXPECT_STREQ(text, "0xE2000000");
    EXPECT_EQ(b.node.boardParameter("pp1s_board_delay_to_latch", text, sizeof text), 0);
    EXPECT_STREQ(text, "32");
    EXPECT_EQ(b.node.boardParameter("extra", text, 16), 0)
        << "15 characters and the end fit 16 bytes";
    EXPECT_NE(b.node.boardParameter("extra", text, 15), 0);
    EXPECT_NE(b.node.boardParameter("productnumber", text, sizeof text), 0) << "left out";
    EXPECT_EQ(b.node.adiBoardCode(code), 0);
    EXPECT_EQ(code, 9u);
    b.node.parameters().adiResult = 3;
    EXPECT_EQ(b.node.adiBoardCode(code), 3);

    sim::NodeConfig first;
    first.boardType = 1;
    IdleNode old{first};
    EXPECT_EQ(old.node.adiBoardCode(code), 0);
    EXPECT_EQ(code, 7u);
    EXPECT_NE(old.node.boardParameter("zfb/hw/fpga/moka/base", text, sizeof text), 0);
}

TEST(Volumes, OutliveRestartsAndPowerAndGoToTheHost)
{
    IdleNode b;
    EXPECT_EQ(b.node.fileExists("/d/a.txt"), 0);
    EXPECT_EQ(b.node.fileWrite("/d/a.txt", std::string("x\0y", 3)), 0);
    EXPECT_EQ(b.node.fileAppend("/gzip/c/logfiles/log", "1"), 0);
    EXPECT_EQ(b.node.fileAppend("/gzip/c/logfiles/log", "2"), 0);
    b.node.powerOff();
    b.node.powerOn();
    b.node.restartWarm();
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

TEST(SerialLine, IsOpenOnceAndRaisesItsInterrupt)
{
    IdleNode b;
    sim::SerialPort& port = b.node.serial();
    static std::string received;
    static int interrupts;
    received.clear();
    interrupts = 0;
    std::string sent;
    port.onSent([&](const std::vector<u8>& bytes) { sent.append(bytes.begin(), bytes.end()); });
    port.feed("lost");
    b.in([&] {
        const PROCESS isr = ose::create_process(ose::KIND_INTERRUPT, "uart_int", [] {
            ++interrupts;
            u8 bytes[4];
            while (const std::size_t n = node::platform().serialRead("UART", bytes, sizeof bytes))
                received.append(bytes, bytes + n);
        }, 1024, 5, 0, 44);
        ose::start(isr);
        EXPECT_EQ(node::platform().serialOpen("UART750", 44, nullptr, 0), 8)
            << "of the other board";
        const node::SerialSetting settings[] = {{1, 9600}};
        EXPECT_EQ(node::platform().serialOpen("UART", 44, settings, 1), 0);
        EXPECT_EQ(node::platform().serialOpen("UART", 44, settings, 1), 4);
        EXPECT_EQ(node::platform().serialWrite("UART", reinterpret_cast<const u8*>("$PFEC"), 5), 0);
    });
    b.world.runFor(ose::MS);
    EXPECT_EQ(sent, "$PFEC");
    port.feed("$GPGGA");
    b.world.runFor(ose::MS);
    EXPECT_EQ(received, "$GPGGA");
    EXPECT_EQ(interrupts, 1);
    EXPECT_EQ(port.lost(), 4u);
    port.writeResult = 6;
    EXPECT_EQ(b.node.serialWrite("UART", nullptr, 0), 6);
    b.node.restartWarm();
    EXPECT_FALSE(port.isOpen()) << "the program's end closes it";
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
                                   for (int i = 0; i < argc; ++i)
                                       node::shellPrintf("%d:%s\n", i, argv[i]);
                                   return argc;
                               }});
            p.registerCommand({"slow", "slow", "takes a second", [](int, char**) {
                                   node::shellPrintf("before ");
                                   ose::delay(1000);
                                   node::shellPrintf("%s", node::traceGroupName(0));
                                   return 0;
                               }});
            node::traceRegisterGroup("GROUP_OF_THE_PROGRAM");
            EXPECT_NE(p.registerCommand({"echo", "", "", [](int, char**) { return 0; }}), 0)
                << "twice";
        });
    };
    registerAll();
    std::string output;
    EXPECT_EQ(b.node.shell().run("echo \"a b\" c", output), 3);
    EXPECT_EQ(output, "0:echo\n1:a b\n2:c\n");
    EXPECT_EQ(b.node.shell().run("", output), 0);
    EXPECT_EQ(b.node.shell().run("ekko", output), sim::SHELL_UNKNOWN_COMMAND);

    std::vector<std::string> ended;
    const auto note = [&](int result, const std::string& text) {
        ended.push_back(std::to_string(result) + text);
    };
    b.node.shell().submit("slow", note);
    b.node.shell().submit("echo", note);
    b.world.runFor(999 * ose::MS);
    EXPECT_TRUE(ended.empty()) << "the second waits for the first";
    b.world.runFor(2 * ose::MS);
    EXPECT_EQ(ended, (std::vector<std::string>{"0before GROUP_OF_THE_PROGRAM", "10:echo\n"}));

    ended.clear();
    b.node.shell().submit("slow", note);
    b.world.runFor(10 * ose::MS);
    b.node.restartWarm();
    b.world.runFor(2 * ose::SEC);
    EXPECT_EQ(ended, (std::vector<std::string>{"-2before "})) << "ended with its program";
    EXPECT_EQ(b.node.shell().run("echo", output), sim::SHELL_UNKNOWN_COMMAND)
        << "not registered yet";
    registerAll();
    EXPECT_EQ(b.node.shell().run("echo", output), 1);
    b.node.kill();
    EXPECT_EQ(b.node.shell().run("echo", output), sim::SHELL_NO_PROGRAM);
}

TEST(Calendar, RunsWithTheWorldFromWhereItIsSet)
{
    sim::NodeConfig config;
    config.calendarStart = 1'000'000'000;
    IdleNode b{config};                                  // has run for 1 ms
    EXPECT_EQ(b.node.calendar().seconds, 1'000'000'000);
    EXPECT_EQ(b.node.calendar().microseconds, 1000u);
    b.node.setCalendar(-1, 999'999);
    EXPECT_EQ(b.node.calendar().seconds, -1);
    EXPECT_EQ(b.node.calendar().microseconds, 999'999u);
    b.world.runFor(ose::US);
    EXPECT_EQ(b.node.calendar().seconds, 0);
    EXPECT_EQ(b.node.calendar().microseconds, 0u);
}

TEST(Led, FollowsTheRequestsUnlessTheyFail)
{
    IdleNode b;
    EXPECT_EQ(b.node.led(), sim::Led::Unknown);
    EXPECT_EQ(b.node.visualIndication(1), 0);
    EXPECT_EQ(b.node.led(), sim::Led::RedOn);
    b.node.ledResult = 9;
    EXPECT_EQ(b.node.visualIndication(2), 9);
    EXPECT_EQ(b.node.led(), sim::Led::RedOn);
    b.node.ledResult = 0;
    EXPECT_EQ(b.node.visualIndication(2), 0);
    EXPECT_EQ(b.node.led(), sim::Led::RedOff);
    EXPECT_NE(b.node.visualIndication(3), 0);
}
