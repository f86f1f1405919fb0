// PTP clocks against an independent model's check values.
#include "tests/pktsync/ptp_bench.h"
#include "tests/support/vectors.h"

#include <cstring>
#include <map>

namespace {

using namespace bench;
using vectors::json;
using vectors::Value;

std::string text(const Value& v) { return v.get<std::string>(); }
PtpPortIdentity portOf(const Value& j) { return {identityOf(text(j[0])), j[1].get<u16>()}; }

/// The event's name is one of those that a replay looks at, or that show in the state.
void expectKnown(const Value& event, const std::set<std::string>& names)
{
    if (!names.contains(text(event[0]))) ADD_FAILURE() << "no replay of the event " << event;
}

TEST(PtpCheckValues, MasterComparisons)
{
    const auto dataset = [](const Value& d, const char* port) {
        return PtpDataset{d["p1"].get<u8>(),
                          {d["cls"].get<u8>(), d["acc"].get<u8>(), d["var"].get<u16>()},
                          d["p2"].get<u8>(),
                          identityOf(text(d["gm"])),
                          d["stepsRemoved"].get<u16>(),
                          portOf(d[port])};
    };
    vectors::Document document("o03_ptp_bmca.json");
    IdleNode b;
    vectors::each(document["cases"], [&](const Value& c) {
        vectors::each(c["pairs"], [&](const Value& pair) {
            b.in([&] {
                const PtpDataset present = dataset(pair["present"], "parentPort");
                const PtpDataset candidate = dataset(pair["candidate"], "sourcePort");
                EXPECT_EQ(dataSetBmcaComparison(present, candidate), pair["j3"] == 1);
                EXPECT_EQ(dataSetAbmcaComparison(present, candidate), pair["g82751"] == 1);
                if (!pair["topology"].is_null()) {
                    EXPECT_EQ(bmcaPart2Algorithm(present, candidate), pair["topology"] == 1);
                }
            });
        });
    });
}

TEST(PtpCheckValues, Quality)
{
    constexpr u8 ACCURACIES[] = {0x20, 0x21, 0x22, 0xFE};
    vectors::Document document("o03_ptp_quality.json");
    vectors::each(document["cases"], [&](const Value& c) {
        for (const Value row : c["rows"])
            for (u32 i = 0; i < 16; ++i) {
                const PtpTraceability t{row[0].get<u8>(), ACCURACIES[i % 4], (i / 4) % 2 != 0, i / 8 != 0};
                SCOPED_TRACE(testing::Message() << "class " << row[0] << " pair " << i);
                EXPECT_EQ(ptpQualityLevelIndex(t), row[1][i][0].get<u8>());
                EXPECT_EQ(ptpFaultsG82751(row[1][i][0].get<u8>(), 0), row[1][i][1].get<u32>());
            }
    });
    vectors::each(document["more"], [](const Value& m) {
        EXPECT_EQ(ptpQualityLevelIndex({m[0].get<u8>(), m[3].get<u8>(), m[2] == 1, m[1] == 1}), m[4].get<u8>()) << m;
    });
    vectors::each(document["byIndex"], [](const Value& i) {
        EXPECT_EQ(ptpFaultsG82751(i[0].get<u8>(), 0), i[1].get<u32>()) << i;
        EXPECT_EQ(ptpFaultsG82751(i[0].get<u8>(), 0x7FFF), i[2].get<u32>()) << i;
    });
}

TEST(PtpCheckValues, Faults)
{
    vectors::Document document("o03_ptp_faults_j3.json");
    vectors::each(document["cases"], [](const Value& c) {
        for (const Value r : c["rows"]) {
            const PtpRequirement required{r[0] == 5, r[1].get<u8>(), r[2].get<std::array<u8, 5>>(), r[3].get<u8>()};
            EXPECT_EQ(ptpFaultsJ3(required, {r[4].get<u8>(), r[5].get<u8>(), r[7] == 1, false}, r[6] == 1,
                                  r[8].get<u32>()),
                      r[9].get<u32>())
                << r;
        }
    });
}

TEST(PtpCheckValues, Corrections)
{
    vectors::Document document("o03_ptp_normalise.json");
    vectors::each(document["cases"], [](const Value& c) {
        const i64 raw = static_cast<i64>(std::stoull(text(c["correctionField"]), nullptr, 16));
        const PtpTimestamp at{c["seconds"].get<u32>(), c["nanoseconds"].get<u32>()};
        const i64 ns = ptpCorrection_ns(raw);
        const PtpTime T1 = ptpAdd(at, ns);
        const PtpTime T4 = ptpAdd(at, -ns);
        EXPECT_EQ(c["T1"], json({T1.seconds, T1.nanoseconds}));
        EXPECT_EQ(c["T4"], json({T4.seconds, T4.nanoseconds}));
    });
}

// ---- stamps -----------------------------------------------------------------------------------------------

struct Collected {
    bool any = false;
    u16 sequenceId = 0;
    std::vector<std::string> stamps;
};
Collected collected;

void stampSets(const Value& c)
{
    static u32 perSet;
    perSet = c["TSperSet"].get<u32>();
    TsBuffer buffer;
    TuPktsync_new_TS_buffer(buffer, 0, c["requestedSize"].get<u16>(), c["TSperSet"].get<u8>(),
                            [](u32, const TsPosition& set) {
                                collected = {true, set.sequenceId, {}};
                                for (u32 i = 0; i < perSet; ++i) {
                                    char label[5] = {};
                                    std::memcpy(label, &set.stamps[i].high, 4);
                                    collected.stamps.push_back(label);
                                }
                            });
    EXPECT_EQ(buffer.size, c["size"].get<u16>());
    for (const Value s : c["steps"]) {
        SCOPED_TRACE(s.dump());
        collected = {};
        PtpStamp stamp;
        const std::string label = text(s[2]);
        std::memcpy(&stamp.high, label.data(), std::min<std::size_t>(4, label.size()));
        EXPECT_EQ(TuPktsync_save_TS(buffer, s[0].get<u16>(), c["shift"].get<u8>(), s[1].get<u8>(), stamp), s[3].get<u32>());
        EXPECT_EQ(collected.any, !s[4].is_null());
        if (collected.any && !s[4].is_null()) {
            EXPECT_EQ(collected.sequenceId, s[4][0].get<u16>());
            EXPECT_EQ(s[4][1], collected.stamps);
        }
        const u64 counts[] = {buffer.occupancy, buffer.max_occupancy, buffer.mostRecentSeqId, buffer.discardedSeqIds,
                              buffer.TSoverwrites};
        for (u32 i = 0; i < 5; ++i) EXPECT_EQ(counts[i], s[5 + i].get<u64>()) << i;
    }
}

TEST(PtpCheckValues, StampSets)
{
    vectors::Document document("o03_ts_sets.json");
    IdleNode b;
    vectors::each(document["cases"], [&](const Value& c) { b.in([&] { stampSets(c); }); });
}

// ---- messages ---------------------------------------------------------------------------------------------

PtpClockSetup setupOf(const Value& init)
{
    PtpClockSetup setup;
    setup.syncrefId = init["syncrefId"].get<u32>();
    setup.froClassNo = init["froClassNo"].get<u32>();
    setup.ptpProfile = init["ptpProfile"].get<u8>();
    setup.ptpMapping = init["ptpMapping"].get<decltype(setup.ptpMapping)>();
    setup.domainNumber = init["domain"].get<u8>();
    setup.clockIdentity = identityOf(text(init["clockIdentity"]));
    setup.delayAsymmetry = init["delayAsymmetry"].get<i32>();
    const Value r = init["requirement"];
    setup.rqmt = {r["maxSync"].get<u32>(), r["minSync"].get<u32>(), r["maxDelayReq"].get<u32>(),
                  r["clockClass"].get<u8>(), r["classes"].get<std::array<u8, 5>>(), r["clockAccuracy"].get<u8>()};
    return setup;
}

/// Hands the step's message or stamp to the clock.
void feed(const PtpClockSetup& setup, const Value& step)
{
    static const std::set<std::string> MESSAGES = {"announce", "sync", "followUp", "delayResp"};
    const std::string what = text(step["do"]);
    if (what == "wait") return;
    if (what == "egress") {
        const u32 seq = step["seq"].get<u32>();
        const u8 metadata[8] = {static_cast<u8>(seq >> 8), static_cast<u8>(seq), 0,
                                static_cast<u8>(setup.syncrefId), PTP_DELAY_REQ, 0, 0, 0};
        TuPktsync_PTP_egressTimestamp(metadata, {step["stamp"][0].get<u32>(), step["stamp"][1].get<u32>()});
        return;
    }
    if (!MESSAGES.contains(what)) throw std::runtime_error("no replay of the step \"" + what + "\"");
    const std::vector<u8> rx = vectors::bytes(step["rx"]);
    TuPktsync_handle_ptp_message(rx.data(), static_cast<u32>(rx.size()),
                                 {step["rxStamp"][0].get<u32>(), step["rxStamp"][1].get<u32>()},
                                 setup.ptpMapping == UDP_UC ? &setup.serverIpAddress : nullptr);
}

void flowStep(const PtpClockSetup& setup, u32 begin, const Value& step)
{
    const u32 id = setup.syncrefId;
    const u32 stateBefore = ptpClockOf(id)->portState;
    PtpSeen& seen = ptpSeen();
    seen.sent.clear();
    seen.qualities.clear();
    seen.exchanges.clear();
    ptpRunTo(begin + step["t"].get<u32>());
    feed(setup, step);
    if (step.contains("outcome")) step["outcome"].read();        // shows in the state
    const PtpClock& clock = *ptpClockOf(id);
    std::map<std::string, json> got, wanted;
    for (const auto& s : seen.sent)
        if (s.event) got["Delay_Req"].push_back(s.hex);
    for (const u32 q : seen.qualities) got["quality"].push_back(q);
    for (const PtpExchange& e : seen.exchanges)
        got["packet"].push_back({{"interval", e.interval_ms},
                                 {"T1", {e.T1s, e.T1f}},
                                 {"T2", {e.T2s, e.T2f}},
                                 {"T3", {e.T3s, e.T3f}},
                                 {"T4", {e.T4s, e.T4f}},
                                 {"asymComp", e.asymComp}});
    u32 state = stateBefore;
    step["events"].read();
    for (const Value e : step["events"]) {
        expectKnown(e, {"portState", "unexpectedPortEvent", "quality", "Delay_Req", "packet"});
        const std::string name = text(e[0]);
        if (name == "portState") state = e[1].get<u32>();
        else if (name != "unexpectedPortEvent") wanted[name].push_back(e[1].read());
    }
    EXPECT_EQ(json(got), json(wanted));
    EXPECT_EQ(clock.portState, step["portState"].get<u32>());
    EXPECT_EQ(state, step["portState"].get<u32>());
    EXPECT_EQ(clock.fault_flags, step["faults"].get<u32>());
    EXPECT_EQ(clock.parent.parentPortIdentity, portOf(step["parent"]));
    EXPECT_EQ(clock.stepsRemoved, step["stepsRemoved"].get<u16>());
    if (step.contains("foreignMasters") && !step["foreignMasters"].is_null()) {
        EXPECT_EQ(clock.foreignMasterCount, step["foreignMasters"].get<u32>());
    }
}

/// A case of messages, stamps and waits; the state after each step.
void flow(const Value& c)
{
    ptpBegin();
    const Value init = c["init"];
    const PtpClockSetup setup = setupOf(init);
    ptpSeen().latency = init["latencyAsymmetry"].get<i32>();
    const u32 begin = ptpNow_ms();
    ASSERT_EQ(TuPktsync_new_ptp_clock(setup), 1u);
    const u32 id = setup.syncrefId;
    if (init["enabled"] == 1) TuPktsync_set_ptp_path_supervision(id, 1);
    TuPktsync_set_ptp_selected(id, init["selected"].get<u8>());
    u32 index = 0;
    for (const Value step : c["steps"]) {
        SCOPED_TRACE(testing::Message() << "step " << index++ << " " << step["do"] << " at " << step["t"]);
        flowStep(setup, begin, step);
    }
    if (c.contains("alt")) c["alt"].read();
    TuPktsync_delete_ptp_clock(id);
}

/// Each case on a node of its own: what one leaves isn't the next one's.
void replay(const char* file, void (*body)(const Value&))
{
    vectors::Document document(file);
    vectors::each(document["cases"], [body](const Value& c) {
        IdleNode b;
        b.in([&] { body(c); });
    });
}

TEST(PtpCheckValues, Announce) { replay("o03_ptp_announce.json", flow); }
TEST(PtpCheckValues, Flow) { replay("o03_ptp_flow.json", flow); }

/// Of an exchange, by way of messages of a clock that has both pools filled by hand.
void exchange(const Value& c)
{
    ptpBegin();
    ptpSeen().latency = c["latencyAsymmetry"].get<i32>();
    PtpClockSetup setup;
    setup.froClassNo = PACKET_TIME_FRO_CLASS;
    setup.delayAsymmetry = c["delayAsymmetry"].get<i32>();
    ASSERT_EQ(TuPktsync_new_ptp_clock(setup), 1u);
    TuPktsync_set_ptp_selected(0, 1);
    PtpClock& clock = *ptpClockOf(0);
    TuPktsyncPTP_start_DelayReqRespCtrl(clock);
    const auto pair = [](const Value& j) { return PtpStamp{j[0].get<u32>(), j[1].get<u32>()}; };
    TuPktsync_save_TS(clock.delay.stamps, 0, 0, 0, pair(c["T3raw"]));
    TuPktsync_save_TS(clock.delay.stamps, 0, 0, 1, pair(c["T4"]));
    const u64 raw = std::stoull(text(c["correctionField"]), nullptr, 16);
    TuPktsync_save_TS(clock.syncStamps, 7, 0, 0, {static_cast<u32>(raw >> 32), static_cast<u32>(raw)});
    TuPktsync_save_TS(clock.syncStamps, 7, 0, 1, pair(c["T1"]));
    TuPktsync_save_TS(clock.syncStamps, 7, 0, 2, pair(c["T2raw"]));
    ASSERT_EQ(ptpSeen().exchanges.size(), 1u);
    const PtpExchange& e = ptpSeen().exchanges[0];
    EXPECT_EQ(c["out"], json({{"T1", {e.T1s, e.T1f}}, {"T2", {e.T2s, e.T2f}}, {"T3", {e.T3s, e.T3f}},
                              {"T4", {e.T4s, e.T4f}}, {"asymComp", e.asymComp}}));
    TuPktsync_delete_ptp_clock(0);
}
TEST(PtpCheckValues, Exchange) { replay("o03_ptp_exchange.json", exchange); }

void delayRequest(const Value& c)
{
    ptpBegin();
    PtpClockSetup setup;
    setup.syncrefId = c["syncrefId"].get<u32>();
    setup.froClassNo = PACKET_TIME_FRO_CLASS;
    setup.ptpMapping = c["ptpMapping"].get<decltype(setup.ptpMapping)>();
    setup.domainNumber = c["domain"].get<u8>();
    setup.clockIdentity = identityOf(text(c["clockIdentity"]));
    setup.delayAsymmetry = c["delayAsymmetry"].get<i32>();
    ASSERT_EQ(TuPktsync_new_ptp_clock(setup), 1u);
    ptpClockOf(setup.syncrefId)->timeProperties.flags = c["timePropertiesFlags"].get<u8>();
    ptpSendDelayReq(setup.syncrefId, c["sequenceId"].get<u16>());
    ASSERT_EQ(ptpSeen().sent.size(), 1u);
    EXPECT_EQ(ptpSeen().sent[0].hex, text(c["frame"]));
    EXPECT_EQ(ptpSeen().sent[0].metadata, text(c["metadata"]));
    TuPktsync_delete_ptp_clock(setup.syncrefId);
}
TEST(PtpCheckValues, DelayRequest) { replay("o03_ptp_delay_req.json", delayRequest); }

// ---- delay mechanism --------------------------------------------------------------------------------------

/// One operation; what a read hands out.
json delayOperation(PtpClock& clock, const Value& op)
{
    const std::string what = text(op[0]);
    if (what == "start") TuPktsyncPTP_start_DelayReqRespCtrl(clock);
    else if (what == "stop") TuPktsyncPTP_stop_DelayReqRespCtrl(clock);
    else if (what == "timeout") TuPktsyncPTP_handle_DelayReqRespCtrl_timeout(clock);
    else if (what == "update")
        TuPktsyncPTP_update_DelayReqRespCtrl_interval(clock, op[1].get<u32>(), op[2].get<u32>());
    else if (what == "fault") ptpFaults(clock, op[1].get<u32>(), 0);
    else if (what == "stamps") {
        const u16 sequenceId = op[1].get<u16>();
        TuPktsync_save_TS(clock.delay.stamps, sequenceId, 0, 0, {op[2][0].get<u32>(), op[2][1].get<u32>()});
        TuPktsync_save_TS(clock.delay.stamps, sequenceId, 0, 1, {op[3][0].get<u32>(), op[3][1].get<u32>()});
    } else if (what != "read") throw std::runtime_error("no replay of the step \"" + what + "\"");
    if (what != "read") return {};
    const PtpDelaySample* r = TuPktsyncPTP_delaySample(clock);
    return r != nullptr ? json{r->T3s, r->T3f, r->T4s, r->T4f, r->sequenceId} : json{};
}

void delayMechanism(const Value& c)
{
    ptpBegin();
    PtpClockSetup setup;
    setup.froClassNo = PACKET_TIME_FRO_CLASS;
    ASSERT_EQ(TuPktsync_new_ptp_clock(setup), 1u);
    PtpClock& clock = *ptpClockOf(0);
    for (const Value step : c["steps"]) {
        SCOPED_TRACE(step.dump());
        ptpSeen().sent.clear();
        EXPECT_EQ(step["result"], delayOperation(clock, step["op"]));
        const DelayReqRespCtrl& d = clock.delay;
        std::size_t sends = 0;
        for (const Value e : step["events"]) {
            expectKnown(e, {"Delay_Req", "notRunning"});
            sends += text(e[0]) == "Delay_Req" ? 1 : 0;
        }
        EXPECT_EQ(ptpSeen().sent.size(), sends);
        EXPECT_EQ(TuPktsyncPTP_drmStatusText(d.status), text(step["status"]));
        EXPECT_EQ(d.nom_interval, step["nom_interval"].get<u32>());
        EXPECT_EQ(d.missed_limit, step["missed_limit"].get<u32>());
        EXPECT_EQ(d.missed_replies, step["missed_replies"].get<u32>());
        EXPECT_EQ(d.no_reply, step["no_reply"].get<u32>());
        EXPECT_EQ(d.nextSequenceId, step["nextSequenceId"].get<u32>());
        EXPECT_EQ(clock.fault_flags, step["faults"].get<u32>());
        EXPECT_EQ(d.sample.age, step["age"].get<u32>());
        if (step["timer"].is_null()) continue;
        EXPECT_GE(d.timer.duration_ms, step["timer"][0].get<u32>());
        EXPECT_LE(d.timer.duration_ms, step["timer"][1].get<u32>());
    }
    TuPktsync_delete_ptp_clock(0);
}
TEST(PtpCheckValues, DelayMechanism) { replay("o03_ptp_delay.json", delayMechanism); }

// ---- Sync filter and supervision --------------------------------------------------------------------------

/// A clock that no message has reached yet, for what is a matter of its own numbers.
void withClock(const std::function<void(PtpClock&)>& body)
{
    IdleNode b;
    b.in([&] {
        ptpBegin();
        PtpClockSetup setup;
        setup.froClassNo = PACKET_TIME_FRO_CLASS;
        ASSERT_EQ(TuPktsync_new_ptp_clock(setup), 1u);
        body(*ptpClockOf(0));
        TuPktsync_delete_ptp_clock(0);
    });
}

TEST(PtpCheckValues, SyncFilter)
{
    vectors::Document document("o03_ptp_syncfilter.json");
    vectors::each(document["cases"], [](const Value& c) {
        withClock([&](PtpClock& clock) {
            for (const Value row : c["rows"]) {
                clock.logSyncInterval = row[0].get<i8>();
                clock.setup.rqmt.minSyncInterval = row[1].get<u32>();
                ptpRecomputeFilter(clock);
                EXPECT_EQ(clock.logPassFraction, row[2].get<u32>()) << row;
                EXPECT_EQ(clock.seqIdDiscardMask, row[3].get<u32>()) << row;
                row[4].read();               // 1: the mask is cut to 16 bits
            }
        });
    });
}

TEST(PtpCheckValues, SyncSupervision)
{
    vectors::Document document("o03_ptp_syncsup.json");
    withClock([&](PtpClock& clock) {
        vectors::each(document["settings"], [&](const Value& row) {
            clock.logSyncInterval = row[0].get<i8>();
            ptpStartSyncSup(clock, false);
            EXPECT_EQ(clock.syncSup.timer_interval, row[1].get<u32>());
            // A threshold that a byte doesn't hold is cut as the store has it.
            const u32 threshold = row[2].get<u32>();
            const bool isHeld = row[3] != 1;
            if (isHeld) {
                EXPECT_EQ(clock.syncSup.norm_threshold, threshold);
            }
        });
    });
    vectors::each(document["cases"], [](const Value& c) {
        if (c["name"] == "from DEGRADED to FAILED") return void(c.read());   // from what it starts isn't given
        withClock([&](PtpClock& clock) {
            constexpr const char* STATUS[] = {"OFF", "OK", "DEGRADED", "FAILED"};
            clock.logSyncInterval = c["logMsgInterval"].get<i8>();
            ptpStartSyncSup(clock, false);
            EXPECT_EQ(clock.syncSup.norm_threshold, c["threshold"].get<u32>());
            u32 index = 0;
            for (const Value step : c["steps"]) {
                SCOPED_TRACE(index++);
                for (u32 i = 0; i < step[0].get<u32>(); ++i) ptpCountSync(clock);
                ptpSyncSupTimeout(clock);
                EXPECT_EQ(STATUS[clock.syncSup.syncStatus], text(step[1]));
                EXPECT_EQ(clock.fault_flags, step[2].get<u32>());
                step[3].read();              // the port isn't a slave here: the fault doesn't start it anew
            }
        });
    });
}

// ---- unicast negotiation ----------------------------------------------------------------------------------

void negotiationStep(const PtpClockSetup& setup, u32 begin, const Value& step)
{
    static const std::set<std::string> RECEIVED = {"grant", "cancel", "ackCancel"};
    ptpSeen().sent.clear();
    const Value op = step["op"];
    const std::string what = text(op[0]);
    if (what == "start") TuPktsyncPTP_start_UCnegotiation(0, op[1].get<i8>());
    else if (what == "advance") ptpRunTo(begin + op[1].get<u32>());
    else if (what == "announce") TuPktsyncPTP_UCneg_notify_announce(0, op[1].get<u32>());
    else if (what == "cancelAll") TuPktsyncPTP_cancel_UCtrans(0);
    else if (RECEIVED.contains(what)) {
        const std::vector<u8> rx = vectors::bytes(step["rx"]);
        TuPktsync_handle_ptp_message(rx.data(), static_cast<u32>(rx.size()), {}, &setup.serverIpAddress);
    } else throw std::runtime_error("no replay of the step \"" + what + "\"");
    json sent = json::array(), wanted = json::array();
    for (const auto& m : ptpSeen().sent) sent.push_back(m.hex);
    for (const Value e : step["events"]) {
        expectKnown(e, {"send", "expired", "report", "startAnnounceTimer", "unexpected", "portEvent"});
        if (text(e[0]) == "send") wanted.push_back(e[1].read());
    }
    EXPECT_EQ(sent, wanted);
    EXPECT_EQ(ptpUcNegState(0), step["state"].get<u32>());
    EXPECT_EQ(ptpClockOf(0)->fault_flags & FAULTS_UNICAST, step["faults"].get<u32>());
    // The rest shows in what is sent, and when.
    step.read();
}

void negotiation(const Value& c)
{
    ptpBegin();
    PtpClockSetup setup;
    setup.froClassNo = PACKET_FREQ_FRO_CLASS;
    setup.ptpMapping = UDP_UC;
    setup.domainNumber = c["domain"].get<u8>();
    setup.clockIdentity = identityOf(text(c["clockIdentity"]));
    ASSERT_EQ(TuPktsync_new_ptp_clock(setup), 1u);
    TuPktsyncPTP_delete_UCnegCtrl(0);   // the file begins before its start
    TuPktsyncPTP_new_UCnegCtrl(0);
    const u32 begin = ptpNow_ms();
    u32 index = 0;
    for (const Value step : c["steps"]) {
        SCOPED_TRACE(testing::Message() << "step " << index++ << " " << step["op"]);
        negotiationStep(setup, begin, step);
    }
    TuPktsync_delete_ptp_clock(0);
}
TEST(PtpCheckValues, UnicastNegotiation) { replay("o03_ptp_ucneg.json", negotiation); }

}  // namespace
