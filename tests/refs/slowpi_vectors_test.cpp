// The ESMC client against an independent model: template, frame verdicts, sequences of events. And frames
// as they were captured on a link between two transport clocks.
#include "refs/slowpi_bench.h"
#include "tests/support/captures.h"
#include "tests/support/vectors.h"

#include <map>

namespace {

using bench::SlowpiBench;
using bench::Told;
using vectors::json;

std::vector<Told> signalsOf(const json& list)
{
    std::vector<Told> signals;
    for (const json& s : list) {
        Told t{s[0], {}};
        for (std::size_t i = 1; i < s.size(); ++i) t.fields.push_back(s[i]);
        signals.push_back(t);
    }
    return signals;
}

std::vector<std::string> requestsOf(const json& list)
{
    std::vector<std::string> requests;
    for (const json& r : list)
        requests.push_back(r.is_string() ? r.get<std::string>()
                                         : r[0].get<std::string>() + " " + r[1].get<std::string>());
    return requests;
}

struct Timers {
    TimerRef heartBeat, pduMissing;
};
Timers timersOf(SlowpiBench& b) { return {b.state().heartBeat.timer.ref, b.state().pduMissing.timer.ref}; }

void expectState(SlowpiBench& b, const json& out, const Timers& before)
{
    const slowpi::State s = b.state();
    EXPECT_EQ(s.slowpiState, out["slowpiState"]);
    EXPECT_EQ(s.SSM, out["SSM"]);
    EXPECT_EQ(s.previousSSM, out["previousSSM"]);
    EXPECT_EQ(s.nmbOfEventMessages, out["nmbOfEventMessages"]);
    EXPECT_EQ(s.tcuDetected, out["tcuDetected"]);
    EXPECT_EQ(s.pduMissingAlarmRaised, out["pduMissingAlarmRaised"]);
    EXPECT_EQ(s.supervisionState, out["supervisionState"]);
    EXPECT_EQ(s.selectionProcessMode, out["selectionProcessMode"]);
    EXPECT_EQ(bench::hexOf(s.frame.data() + 6, 6), out["macAddress"]);
    std::vector<std::string> running, restarted;
    const auto note = [&](const char* name, const slowpi::BufferTimer& t, TimerRef refBefore) {
        if (t.timer.runs()) running.push_back(name);
        if (t.timer.runs() && t.timer.ref != refBefore) restarted.push_back(name);
    };
    note("HEART_BEAT", s.heartBeat, before.heartBeat);
    note("PDU_MISSING", s.pduMissing, before.pduMissing);
    EXPECT_EQ(running, out["timers"].get<std::vector<std::string>>());
    EXPECT_EQ(restarted, out["restarted"].get<std::vector<std::string>>());
    EXPECT_EQ(b.takeTold(), signalsOf(out["signals"]));
    if (out.contains("requests")) {
        EXPECT_EQ(b.takeRequests(), requestsOf(out["requests"]));
    }
}

/// What the traces of one frame say.
void expectVerdict(SlowpiBench& b, const json& verdict, u32 rejectedBefore)
{
    if (verdict.is_null()) return;
    const bool unused = verdict.value("reason", "") == "Do not use ESMC frame";
    const bool rejected = !verdict.contains("ok") && !unused;
    EXPECT_EQ(b.state().nmbOfRejectedFrames - rejectedBefore, rejected ? 1u : 0u);
    if (verdict.contains("reason")) {
        EXPECT_EQ(b.traces(verdict["reason"]), 1u) << verdict["reason"];
    }
    if (verdict.contains("trace")) {
        EXPECT_EQ(b.traces(verdict["trace"]), 1u) << verdict["trace"];
    }
    if (!verdict.contains("code") || verdict.value("beyond", 0) == 1) return;
    EXPECT_EQ(b.traces("code=" + std::to_string(verdict["code"].get<u32>()) + ", "), 1u);
}

void step(SlowpiBench& b, const json& s)
{
    const std::string ev = s["ev"];
    if (ev == "CFM") b.cfm();
    else if (ev == "SUS") b.sus();
    else if (ev == "REJ") b.rej();
    else if (ev == "SUP") b.supervise(s["on"], s["type"], s["froId"], s["mac"]);
    else if (ev == "SUBSCRIBE_RSP") b.subscribeRsp(s["result"]);
    else if (ev == "UNSUBSCRIBE_RSP") b.unsubscribeRsp(s["result"]);
    else if (ev == "MODE") b.mode(s["mode"]);
    else if (ev == "HEART_BEAT") b.heartBeat();
    else if (ev == "PDU_MISSING") b.pduMissing();
    else if (ev == "SERVER_DOWN") b.serverDown();
    else if (ev == "STOP") b.stopSupervision();
    else if (ev == "FRAME") b.frame(s["hex"].get<std::string>());
    else ADD_FAILURE() << "unknown step " << ev;
}

void replaySequence(const json& v)
{
    SlowpiBench b;
    b.clear();
    const json& steps = v["in"]["steps"];
    for (std::size_t i = 0; i < steps.size(); ++i) {
        SCOPED_TRACE("step " + std::to_string(i) + " " + steps[i]["ev"].get<std::string>());
        const Timers before = timersOf(b);
        const u32 rejected = b.state().nmbOfRejectedFrames;
        b.bus.traces.clear();
        step(b, steps[i]);
        const json& out = v["out"]["after"][i];
        expectState(b, out, before);
        expectVerdict(b, out.value("verdict", json{}), rejected);
    }
}

void replayVerdict(const json& v)
{
    SlowpiBench b;
    b.toQlSend();
    const json& in = v["in"];
    b.set([&](slowpi::State& s) {
        s.slowpiState = in["slowpiState"];
        s.SSM = in["SSM"];
        s.previousSSM = in["previousSSM"];
        s.pduMissingAlarmRaised = in["pduMissingAlarmRaised"];
        s.froId = in["froId"];
        std::fill_n(s.frame.begin() + 6, 6, u8{0});
    });
    b.clear();
    const Timers before = timersOf(b);
    b.frame(in["frame"].get<std::string>());
    expectState(b, v["out"], before);
    expectVerdict(b, v["out"]["verdict"], 0);
}

TEST(SlowpiVectors, TheModelAgrees)
{
    TU_LOAD_VECTORS(document, "o05_esmc.json");
    u32 replayed = 0;
    for (const json& v : document["vectors"]) {
        SCOPED_TRACE(v["id"].get<std::string>());
        const std::string kind = v["kind"];
        if (kind == "verdict") replayVerdict(v);
        else if (kind == "sequence") replaySequence(v);
        else EXPECT_EQ(bench::hexOf(slowpi::ownFrame().data(), 28), v["out"]["hex"]);
        ++replayed;
    }
    EXPECT_EQ(replayed, document["count"].get<u32>());
}

TEST(SlowpiCaptures, FramesOfRealPortsAreTaken)
{
    std::vector<captures::Packet> packets;
    const std::string name = "pcap/wiki_synce_esmc_bidirectional.pcapng";
    if (!captures::load(name, packets))
        GTEST_SKIP() << "captured frames not found: " << name << " (set TU_DATA to the folder that holds it)";
    SlowpiBench b;
    b.toQlSend();
    std::map<u8, u32> codes;
    for (const captures::Packet& p : packets) {
        const slowpi::EsmcReading reading = slowpi::readEsmc(p.bytes);
        EXPECT_EQ(reading.verdict, slowpi::EsmcVerdict::Taken);
        EXPECT_EQ(reading.version, 1);
        EXPECT_FALSE(reading.isEvent);
        ++codes[reading.ssm];
        b.frame(p.bytes);
    }
    EXPECT_EQ(codes, (std::map<u8, u32>{{0x4, 7}, {0xF, 8}}));   // QL-SSU-A one way, QL-DNU the other
    EXPECT_EQ(b.state().nmbOfFrames, 15u);
    EXPECT_EQ(b.state().nmbOfRejectedFrames, 0u);
    const std::vector<Told> told = b.takeTold();
    ASSERT_EQ(told.size(), 1u);                                  // the first information PDU alone is told
    const u8 first = slowpi::readEsmc(packets[0].bytes).ssm;
    EXPECT_EQ(told[0], (Told{"KVD_TUIIF_QUALITY_LEVEL_IND", {5, 7, first, 0}}));
}

}  // namespace
