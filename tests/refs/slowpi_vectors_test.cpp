// The ESMC client against an independent model: template, frame verdicts, sequences of events.
#include "refs/slowpi_bench.h"
#include "tests/support/vectors.h"

namespace {

using bench::SlowpiBench;
using bench::Told;
using vectors::json;
using vectors::Value;

std::vector<Told> signalsOf(const json& list)
{
    std::vector<Told> signals;
    for (const json& s : list) {
        Told t{s.at(0), {}};
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

struct Timers { TimerRef heartBeat, pduMissing; };
Timers timersOf(SlowpiBench& b) { return {b.state().heartBeat.timer.ref, b.state().pduMissing.timer.ref}; }

void expectState(SlowpiBench& b, const Value& out, const Timers& before)
{
    const slowpi::State s = b.state();
    std::vector<std::string> running, restarted;
    const auto note = [&](const char* name, const slowpi::BufferTimer& t, TimerRef refBefore) {
        if (t.timer.runs()) running.push_back(name);
        if (t.timer.runs() && t.timer.ref != refBefore) restarted.push_back(name);
    };
    note("HEART_BEAT", s.heartBeat, before.heartBeat);
    note("PDU_MISSING", s.pduMissing, before.pduMissing);
    vectors::expectAll({{"slowpiState", s.slowpiState}, {"SSM", s.SSM}, {"previousSSM", s.previousSSM},
                        {"nmbOfEventMessages", s.nmbOfEventMessages}, {"tcuDetected", s.tcuDetected},
                        {"pduMissingAlarmRaised", s.pduMissingAlarmRaised},
                        {"supervisionState", s.supervisionState}, {"timers", running},
                        {"restarted", restarted}, {"selectionProcessMode", s.selectionProcessMode},
                        {"macAddress", bench::hexOf(s.frame.data() + 6, 6)}}, out);
    EXPECT_EQ(b.takeTold(), signalsOf(out["signals"].read()));
    if (out.contains("requests")) { EXPECT_EQ(b.takeRequests(), requestsOf(out["requests"].read())); }
}

/// What the traces of one frame say.
void expectVerdict(SlowpiBench& b, const Value& out, u32 rejectedBefore)
{
    if (!out.contains("verdict") || out["verdict"].is_null()) return;
    const Value verdict = out["verdict"];
    verdict.skip({"ok", "event", "ssm", "tcu", "code"});     // the flags of a good frame show in the state
    const bool unused = verdict.value("reason", "") == "Do not use ESMC frame";
    const bool rejected = !verdict.contains("ok") && !unused;
    EXPECT_EQ(b.state().nmbOfRejectedFrames - rejectedBefore, rejected ? 1u : 0u);
    for (const char* text : {"reason", "trace"})
        if (verdict.contains(text)) { EXPECT_EQ(b.traces(verdict.value(text, "")), 1u) << verdict[text]; }
    if (!verdict.contains("code") || verdict.value("beyond", 0) == 1) return;
    EXPECT_EQ(b.traces("code=" + std::to_string(verdict["code"].get<u32>()) + ", "), 1u);
}

/// "initiate_ok" 0, of a step or of all: the service refuses to be initiated.
u32 initiateResult(const Value& v) { return v.value("initiate_ok", 1) != 0 ? 0 : 1; }

void step(SlowpiBench& b, const Value& s)
{
    if (s.contains("initiate_ok")) b.service.initiateResult = initiateResult(s);
    const std::string ev = s["ev"].get<std::string>();
    if (ev == "CFM") b.cfm();
    else if (ev == "SUS") b.sus();
    else if (ev == "REJ") b.rej();
    else if (ev == "SUP")
        b.supervise(s["on"], s["type"], s["froId"], s["mac"].get<std::string>());
    else if (ev == "SUBSCRIBE_RSP") b.subscribeRsp(s["result"].get<u32>());
    else if (ev == "UNSUBSCRIBE_RSP") b.unsubscribeRsp(s["result"].get<u32>());
    else if (ev == "MODE") b.mode(s["mode"].get<u32>());
    else if (ev == "HEART_BEAT") b.heartBeat();
    else if (ev == "PDU_MISSING") b.pduMissing();
    else if (ev == "SERVER_DOWN") b.serverDown();
    else if (ev == "STOP") b.stopSupervision();
    else if (ev == "FRAME") b.frame(s["hex"].get<std::string>());
    else throw std::runtime_error("no replay of the step \"" + ev + "\"");
}

void replaySequence(const Value& v)
{
    SlowpiBench b({.initiateResult = initiateResult(v["in"])});
    b.clear();
    const Value steps = v["in"]["steps"];
    for (std::size_t i = 0; i < steps.size(); ++i) {
        SCOPED_TRACE("step " + std::to_string(i) + " " + steps[i]["ev"].get<std::string>());
        const Timers before = timersOf(b);
        const u32 rejected = b.state().nmbOfRejectedFrames;
        b.bus.traces.clear();
        step(b, steps[i]);
        const Value out = v["out"]["after"][i];
        expectState(b, out, before);
        expectVerdict(b, out, rejected);
    }
}

void replayVerdict(const Value& v)
{
    SlowpiBench b;
    b.toQlSend();
    const Value in = v["in"];
    b.set([&](slowpi::State& s) {
        s.slowpiState = in["slowpiState"].get<decltype(s.slowpiState)>();
        s.SSM = in["SSM"].get<u8>();
        s.previousSSM = in["previousSSM"].get<u8>();
        s.pduMissingAlarmRaised = in["pduMissingAlarmRaised"].get<u32>();
        s.froId = in["froId"].get<u32>();
        std::fill_n(s.frame.begin() + 6, 6, u8{0});
    });
    b.clear();
    const Timers before = timersOf(b);
    b.frame(in["frame"].get<std::string>());
    expectState(b, v["out"], before);
    expectVerdict(b, v["out"], 0);
    if (v.contains("open_code")) v["open_code"].read();      // a frame that ends before its code
}

void replayTemplate(const Value& v)
{
    EXPECT_EQ(v["out"]["hex"], bench::hexOf(slowpi::ownFrame().data(), v["out"]["length"]));
}

TEST(SlowpiVectors, TheModelAgrees)
{
    vectors::Document document("o05_esmc.json");
    vectors::eachKind(document["vectors"], {{"verdict", replayVerdict}, {"sequence", replaySequence},
                                            {"template", replayTemplate}});
}

}  // namespace
