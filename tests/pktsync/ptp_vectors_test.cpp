// PTP clocks against an independent model's check values.
#include "tests/pktsync/replay.h"

#include <cstring>

namespace {

using namespace bench;

TEST(PtpCheckValues, MasterComparisons)
{
    const auto dataset = [](const Value& d, const char* port) {
        return PtpDataset{d["p1"], {d["cls"], d["acc"], d["var"]}, d["p2"], identityOf(text(d["gm"])),
                          d["stepsRemoved"], portOf(d[port])};
    };
    replay("o03_ptp_bmca.json", [&](const Value& c) {
        vectors::each(c["pairs"], [&](const Value& pair) {
            const PtpDataset present = dataset(pair["present"], "parentPort");
            const PtpDataset candidate = dataset(pair["candidate"], "sourcePort");
            EXPECT_EQ(dataSetBmcaComparison(present, candidate), pair["j3"] == 1);
            EXPECT_EQ(dataSetAbmcaComparison(present, candidate), pair["g82751"] == 1);
            if (pair["topology"].is_null()) return;
            EXPECT_EQ(bmcaPart2Algorithm(present, candidate), pair["topology"] == 1);
        });
    });
}

TEST(PtpCheckValues, Quality)
{
    constexpr u8 ACCURACIES[] = {0x20, 0x21, 0x22, 0xFE};
    replay("o03_ptp_quality.json", [&](const Value& c) {
        for (const Value row : c["rows"])
            for (u32 i = 0; i < 16; ++i) {
                const PtpTraceability t{row[0], ACCURACIES[i % 4], (i / 4) % 2 != 0, i / 8 != 0};
                const Value wanted = row[1][i];
                EXPECT_EQ(wanted[0], ptpQualityLevelIndex(t)) << "class " << row[0] << " pair " << i;
                EXPECT_EQ(wanted[1], ptpFaultsG82751(wanted[0], 0)) << "class " << row[0] << " pair " << i;
            }
    });
    replay("o03_ptp_quality.json", [](const Value& m) {
        EXPECT_EQ(m[4], ptpQualityLevelIndex({m[0], m[3], m[2] == 1, m[1] == 1})) << m;
    }, "more");
    replay("o03_ptp_quality.json", [](const Value& i) {
        EXPECT_EQ(i[1], ptpFaultsG82751(i[0], 0)) << i;
        EXPECT_EQ(i[2], ptpFaultsG82751(i[0], 0x7FFF)) << i;
    }, "byIndex");
}

TEST(PtpCheckValues, Faults)
{
    replay("o03_ptp_faults_j3.json", [](const Value& c) {
        for (const Value r : c["rows"]) {
            const PtpRequirement required{r[0] == 5, r[1], classesOf(r[2]), r[3]};
            EXPECT_EQ(r[9], ptpFaultsJ3(required, {r[4], r[5], r[7] == 1, false}, r[6] == 1, r[8])) << r;
        }
    });
}

TEST(PtpCheckValues, Corrections)
{
    replay("o03_ptp_normalise.json", [](const Value& c) {
        const i64 raw = static_cast<i64>(bench::hexNumber(text(c["correctionField"])));
        const PtpTimestamp at{c["seconds"], c["nanoseconds"]};
        const PtpTime T1 = ptpAdd(at, ptpCorrection_ns(raw)), T4 = ptpAdd(at, -ptpCorrection_ns(raw));
        expectSame(c, {{"T1", {T1.seconds, T1.nanoseconds}}, {"T4", {T4.seconds, T4.nanoseconds}}});
    });
}

// ---- stamps -----------------------------------------------------------------------------------------------

/// The set that was handed out: its number and its stamps' labels; nothing when there was none.
json collected;

/// A label of up to four letters stands in a stamp's upper word.
PtpStamp labelled(const std::string& label)
{
    PtpStamp stamp;
    std::memcpy(&stamp.high, label.data(), std::min<std::size_t>(4, label.size()));
    return stamp;
}

TEST(PtpCheckValues, StampSets)
{
    replay("o03_ts_sets.json", [](const Value& c) {
        static u32 perSet;
        perSet = c["TSperSet"];
        TsBuffer buffer;
        TuPktsync_new_TS_buffer(buffer, 0, c["requestedSize"], c["TSperSet"], [](u32, const TsPosition& set) {
            collected = {set.sequenceId, json::array()};
            for (u32 i = 0; i < perSet; ++i) {
                char label[5] = {};
                std::memcpy(label, &set.stamps[i].high, 4);
                collected[1].push_back(label);
            }
        });
        EXPECT_EQ(c["size"], buffer.size);
        for (const Value s : c["steps"]) {
            collected = {};
            const u32 stored = TuPktsync_save_TS(buffer, s[0], c["shift"], s[1], labelled(text(s[2])));
            const json got = {s[0].read(), s[1].read(), s[2].read(), stored, collected, buffer.occupancy,
                              buffer.max_occupancy, buffer.mostRecentSeqId, buffer.discardedSeqIds,
                              buffer.TSoverwrites};
            EXPECT_EQ(s, got);
        }
    });
}

// ---- messages ---------------------------------------------------------------------------------------------

PtpClock& newClock(const PtpClockSetup& setup)
{
    if (TuPktsync_new_ptp_clock(setup) != 1) throw std::runtime_error("the clock can't be made");
    return *ptpClockOf(setup.syncrefId);
}
/// What most replays begin with: a clock of a time reference that no message has reached yet.
PtpClock& timeClock(i32 delayAsymmetry = 0)
{
    ptpBegin();
    PtpClockSetup setup;
    setup.froClassNo = PACKET_TIME_FRO_CLASS;
    setup.delayAsymmetry = delayAsymmetry;
    return newClock(setup);
}

PtpClockSetup setupOf(const Value& init)
{
    PtpClockSetup setup;
    setup.syncrefId = init["syncrefId"];
    setup.froClassNo = init["froClassNo"];
    setup.ptpProfile = init["ptpProfile"];
    setup.ptpMapping = init["ptpMapping"];
    setup.domainNumber = init["domain"];
    setup.clockIdentity = identityOf(text(init["clockIdentity"]));
    setup.delayAsymmetry = init["delayAsymmetry"];
    const Value r = init["requirement"];
    setup.rqmt = {r["maxSync"], r["minSync"], r["maxDelayReq"], r["clockClass"], classesOf(r["classes"]),
                  r["clockAccuracy"]};
    return setup;
}

void receive(const Value& message, const PtpStamp& at, const PktIpAddress* server)
{
    const std::vector<u8> rx = vectors::bytes(message);
    TuPktsync_handle_ptp_message(rx.data(), static_cast<u32>(rx.size()), at, server);
}

/// Hands the step's message or stamp to the clock.
void feed(const PtpClockSetup& setup, const Value& step)
{
    static const std::set<std::string> MESSAGES = {"announce", "sync", "followUp", "delayResp"};
    if (step["do"] == "wait") return;
    if (step["do"] == "egress") {
        const u32 seq = step["seq"];
        const u8 metadata[8] = {static_cast<u8>(seq >> 8), static_cast<u8>(seq), 0,
                                static_cast<u8>(setup.syncrefId), PTP_DELAY_REQ, 0, 0, 0};
        return TuPktsync_PTP_egressTimestamp(metadata, stampOf(step["stamp"]));
    }
    if (!MESSAGES.contains(text(step["do"]))) noReplay(step["do"]);
    const PktIpAddress* const server = setup.ptpMapping == UDP_UC ? &setup.serverIpAddress : nullptr;
    receive(step["rx"], stampOf(step["rxStamp"]), server);
}

json timesOf(const PtpExchange& e)
{
    return {{"T1", {e.T1s, e.T1f}}, {"T2", {e.T2s, e.T2f}}, {"T3", {e.T3s, e.T3f}}, {"T4", {e.T4s, e.T4f}},
            {"asymComp", e.asymComp}};
}

void flowStep(const PtpClockSetup& setup, u32 begin, const Value& step)
{
    json state = ptpClockOf(setup.syncrefId)->portState;
    ptpSeen().sent.clear(), ptpSeen().qualities.clear(), ptpSeen().exchanges.clear();
    ptpRunTo(begin + step["t"].get<u32>());
    feed(setup, step);
    if (step.contains("outcome")) step["outcome"].read();        // shows in the state
    std::map<std::string, json> got, wanted;
    for (const auto& s : ptpSeen().sent)
        if (s.event) got["Delay_Req"].push_back(s.hex);
    for (const u32 q : ptpSeen().qualities) got["quality"].push_back(q);
    for (const PtpExchange& e : ptpSeen().exchanges) {
        got["packet"].push_back(timesOf(e));
        got["packet"].back()["interval"] = e.interval_ms;
    }
    step["events"].read();
    for (const Value e : step["events"]) {
        vectors::expectKnown(e.read(),
                             {"portState", "unexpectedPortEvent", "quality", "Delay_Req", "packet"});
        if (e[0] == "portState")
            state = e[1].read();
        else if (e[0] != "unexpectedPortEvent")
            wanted[text(e[0])].push_back(e[1].read());
    }
    EXPECT_EQ(json(got), json(wanted));
    const PtpClock& clock = *ptpClockOf(setup.syncrefId);
    expectSame(step, {{"portState", clock.portState}, {"portState", state}, {"faults", clock.fault_flags},
                      {"stepsRemoved", clock.stepsRemoved}});
    EXPECT_EQ(clock.parent.parentPortIdentity, portOf(step["parent"]));
    if (step.contains("foreignMasters") && !step["foreignMasters"].is_null())
        expectSame(step, {{"foreignMasters", clock.foreignMasterCount}});
}

/// A case of messages, stamps and waits; the state after each step.
void flow(const Value& c)
{
    ptpBegin();
    const Value init = c["init"];
    const PtpClockSetup setup = setupOf(init);
    ptpSeen().latency = init["latencyAsymmetry"];
    const u32 begin = ptpNow_ms();
    newClock(setup);
    if (init["enabled"] == 1) TuPktsync_set_ptp_path_supervision(setup.syncrefId, 1);
    TuPktsync_set_ptp_selected(setup.syncrefId, init["selected"]);
    u32 index = 0;
    for (const Value step : c["steps"]) {
        SCOPED_TRACE(testing::Message() << "step " << index++ << " " << step["do"] << " at " << step["t"]);
        flowStep(setup, begin, step);
    }
    TuPktsync_delete_ptp_clock(setup.syncrefId);
}

TEST(PtpCheckValues, Flow)
{
    for (const char* file : {"o03_ptp_announce.json", "o03_ptp_flow.json"}) replay(file, flow);
}

/// Of an exchange, by way of messages of a clock that has both pools filled by hand.
TEST(PtpCheckValues, Exchange)
{
    replay("o03_ptp_exchange.json", [](const Value& c) {
        PtpClock& clock = timeClock(c["delayAsymmetry"]);
        ptpSeen().latency = c["latencyAsymmetry"];
        TuPktsync_set_ptp_selected(0, 1);
        TuPktsyncPTP_start_DelayReqRespCtrl(clock);
        TuPktsync_save_TS(clock.delay.stamps, 0, 0, 0, stampOf(c["T3raw"]));
        TuPktsync_save_TS(clock.delay.stamps, 0, 0, 1, stampOf(c["T4"]));
        const u64 raw = bench::hexNumber(text(c["correctionField"]));
        TuPktsync_save_TS(clock.syncStamps, 7, 0, 0, {static_cast<u32>(raw >> 32), static_cast<u32>(raw)});
        TuPktsync_save_TS(clock.syncStamps, 7, 0, 1, stampOf(c["T1"]));
        TuPktsync_save_TS(clock.syncStamps, 7, 0, 2, stampOf(c["T2raw"]));
        ASSERT_EQ(ptpSeen().exchanges.size(), 1u);
        EXPECT_EQ(c["out"], timesOf(ptpSeen().exchanges[0]));
        TuPktsync_delete_ptp_clock(0);
    });
}

TEST(PtpCheckValues, DelayRequest)
{
    replay("o03_ptp_delay_req.json", [](const Value& c) {
        ptpBegin();
        PtpClockSetup setup;
        setup.syncrefId = c["syncrefId"];
        setup.froClassNo = PACKET_TIME_FRO_CLASS;
        setup.ptpMapping = c["ptpMapping"];
        setup.domainNumber = c["domain"];
        setup.clockIdentity = identityOf(text(c["clockIdentity"]));
        setup.delayAsymmetry = c["delayAsymmetry"];
        newClock(setup).timeProperties.flags = c["timePropertiesFlags"];
        ptpSendDelayReq(setup.syncrefId, c["sequenceId"]);
        ASSERT_EQ(ptpSeen().sent.size(), 1u);
        expectSame(c, {{"frame", ptpSeen().sent[0].hex}, {"metadata", ptpSeen().sent[0].metadata}});
        TuPktsync_delete_ptp_clock(setup.syncrefId);
    });
}

// ---- delay mechanism --------------------------------------------------------------------------------------

/// One operation; what a read hands out.
json delayOperation(PtpClock& clock, const Value& op)
{
    const std::string what = text(op[0]);
    if (what == "start") TuPktsyncPTP_start_DelayReqRespCtrl(clock);
    else if (what == "stop") TuPktsyncPTP_stop_DelayReqRespCtrl(clock);
    else if (what == "timeout") TuPktsyncPTP_handle_DelayReqRespCtrl_timeout(clock);
    else if (what == "update") TuPktsyncPTP_update_DelayReqRespCtrl_interval(clock, op[1], op[2]);
    else if (what == "fault") ptpFaults(clock, op[1], 0);
    else if (what == "stamps")
        for (const u32 i : {0u, 1u}) TuPktsync_save_TS(clock.delay.stamps, op[1], 0, i, stampOf(op[2 + i]));
    else if (what != "read") noReplay(op);
    if (what != "read") return {};
    const PtpDelaySample* r = TuPktsyncPTP_delaySample(clock);
    return r != nullptr ? json{r->T3s, r->T3f, r->T4s, r->T4f, r->sequenceId} : json{};
}

TEST(PtpCheckValues, DelayMechanism)
{
    replay("o03_ptp_delay.json", [](const Value& c) {
        PtpClock& clock = timeClock();
        for (const Value step : c["steps"]) {
            SCOPED_TRACE(step);
            ptpSeen().sent.clear();
            EXPECT_EQ(step["result"], delayOperation(clock, step["op"]));
            std::vector<u32> wanted, sent;       // sequenceIds
            for (const Value e : step["events"]) {
                vectors::expectKnown(e.read(), {"Delay_Req", "notRunning"});
                if (e[0] == "Delay_Req") wanted.push_back(e[1]);
            }
            constexpr std::size_t SEQUENCE_AT = 60;              // in hexadecimal figures
            for (const auto& m : ptpSeen().sent)
                sent.push_back(static_cast<u32>(std::stoul(m.hex.substr(SEQUENCE_AT, 4), nullptr, 16)));
            EXPECT_EQ(sent, wanted);
            const DelayReqRespCtrl& d = clock.delay;
            expectSame(step, {{"status", TuPktsyncPTP_drmStatusText(d.status)},
                              {"nom_interval", d.nom_interval}, {"missed_limit", d.missed_limit},
                              {"missed_replies", d.missed_replies}, {"no_reply", d.no_reply},
                              {"nextSequenceId", d.nextSequenceId}, {"faults", clock.fault_flags},
                              {"age", d.sample.age}});
            if (step["timer"].is_null()) continue;
            EXPECT_GE(d.timer.duration_ms, step["timer"][0].get<u32>());
            EXPECT_LE(d.timer.duration_ms, step["timer"][1].get<u32>());
        }
        TuPktsync_delete_ptp_clock(0);
    });
}

// ---- Sync filter and supervision --------------------------------------------------------------------------

TEST(PtpCheckValues, SyncFilter)
{
    replay("o03_ptp_syncfilter.json", [](const Value& c) {
        PtpClock& clock = timeClock();
        for (const Value row : c["rows"]) {
            clock.logSyncInterval = row[0];
            clock.setup.rqmt.minSyncInterval = row[1];
            ptpRecomputeFilter(clock);
            EXPECT_EQ(row[2], clock.logPassFraction) << row;
            EXPECT_EQ(row[3], clock.seqIdDiscardMask) << row;
            row[4].read();               // 1: the mask is cut to 16 bits
        }
        TuPktsync_delete_ptp_clock(0);
    });
}

TEST(PtpCheckValues, SyncSupervision)
{
    replay("o03_ptp_syncsup.json", [](const Value& row) {
        PtpClock& clock = timeClock();
        clock.logSyncInterval = row[0];
        ptpStartSyncSup(clock, false);
        EXPECT_EQ(row[1], clock.syncSup.timer_interval);
        // A threshold that a byte doesn't hold is cut as the store has it.
        EXPECT_TRUE(row[3] == 1 || row[2] == clock.syncSup.norm_threshold) << row;
        row.read();
        TuPktsync_delete_ptp_clock(0);
    }, "settings");
    replay("o03_ptp_syncsup.json", [](const Value& c) {
        if (c["name"] == "from DEGRADED to FAILED") return void(c.read());   // its start isn't given
        constexpr const char* STATUS[] = {"OFF", "OK", "DEGRADED", "FAILED"};
        PtpClock& clock = timeClock();
        clock.logSyncInterval = c["logMsgInterval"];
        ptpStartSyncSup(clock, false);
        EXPECT_EQ(c["threshold"], clock.syncSup.norm_threshold);
        for (const Value step : c["steps"]) {
            for (u32 i = 0; i < step[0].get<u32>(); ++i) ptpCountSync(clock);
            ptpSyncSupTimeout(clock);
            EXPECT_EQ(step[1], STATUS[clock.syncSup.syncStatus]) << step;
            EXPECT_EQ(step[2], clock.fault_flags) << step;
            step[3].read();              // the port isn't a slave here: the fault doesn't start it anew
        }
        TuPktsync_delete_ptp_clock(0);
    });
}

// ---- unicast negotiation ----------------------------------------------------------------------------------

void negotiate(const PktIpAddress& server, u32 begin, const Value& step)
{
    static const std::set<std::string> RECEIVED = {"grant", "cancel", "ackCancel"};
    const Value op = step["op"];
    const std::string what = text(op[0]);
    if (what == "start") TuPktsyncPTP_start_UCnegotiation(0, op[1]);
    else if (what == "advance") ptpRunTo(begin + op[1].get<u32>());
    else if (what == "announce") TuPktsyncPTP_UCneg_notify_announce(0, op[1]);
    else if (what == "cancelAll") TuPktsyncPTP_cancel_UCtrans(0);
    else if (RECEIVED.contains(what)) receive(step["rx"], {}, &server);
    else noReplay(op);
}

TEST(PtpCheckValues, UnicastNegotiation)
{
    replay("o03_ptp_ucneg.json", [](const Value& c) {
        ptpBegin();
        PtpClockSetup setup;
        setup.froClassNo = PACKET_FREQ_FRO_CLASS;
        setup.ptpMapping = UDP_UC;
        setup.domainNumber = c["domain"];
        setup.clockIdentity = identityOf(text(c["clockIdentity"]));
        newClock(setup);
        TuPktsyncPTP_delete_UCnegCtrl(0);   // the file begins before its start
        TuPktsyncPTP_new_UCnegCtrl(0);
        const u32 begin = ptpNow_ms();
        constexpr const char* REPORTS[] = {"AWAIT_ANNOUNCE", "READY",  "NO_REPLY",
                                           "NO_AGREE",       "MC_NOK", "CANCELLED"};
        std::string report = REPORTS[UC_AWAIT_ANNOUNCE];
        u32 index = 0;
        for (const Value step : c["steps"]) {
            SCOPED_TRACE(testing::Message() << "step " << index++ << " " << step["op"]);
            ptpSeen().sent.clear();
            negotiate(setup.serverIpAddress, begin, step);
            json sent = json::array(), wanted = json::array();
            for (const auto& m : ptpSeen().sent) sent.push_back(m.hex);
            for (const Value e : step["events"]) {
                vectors::expectKnown(e.read(), {"send", "expired", "report", "startAnnounceTimer",
                                                "unexpected", "portEvent"});
                if (e[0] == "send") wanted.push_back(e[1].read());
                if (e[0] == "report") report = text(e[1]);
            }
            EXPECT_EQ(sent, wanted);
            expectSame(step, {{"state", ptpUcNegState(0)},
                              {"faults", ptpClockOf(0)->fault_flags & FAULTS_UNICAST}});
            const ucneg::UCnegCtrl& now = *ucneg::controlOf(0);
            json states, attempts;
            for (const auto& m : now.messages)
                states.push_back(m.state), attempts.push_back(m.request_attempts);
            expectSame(step, {{"records", states},
                              {"attempts", attempts},
                              {"sequenceId", now.sequenceId},
                              {"requestedDuration", now.requestedDuration},
                              {"negotiation_retries", now.negotiation_retries}});
            EXPECT_EQ(report, REPORTS[now.last_report]);
            EXPECT_EQ(now.serverPortIdentity, portOf(step["serverPortIdentity"]));
            for (const char* inside : {"op", "rx", "events"}) step[inside].read();
            step["timers"].skip({"reply", "duration", "delayed", "retry"});      // show in what is sent when
        }
        TuPktsync_delete_ptp_clock(0);
    });
}

}  // namespace
