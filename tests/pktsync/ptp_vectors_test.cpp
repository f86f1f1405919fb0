// PTP clocks against an independent model's check values.
#include "tests/pktsync/ptp_bench.h"
#include "tests/support/vectors.h"

#include <cstring>
#include <map>

namespace {

using namespace bench;
using vectors::json;

PtpPortIdentity portOf(const json& j) { return {identityOf(j[0]), j[1].get<u16>()}; }

TEST(PtpCheckValues, Intervals)
{
    TU_LOAD_VECTORS(document, "o03_ptp_tables.json");
    u32 rows = 0;
    for (const json& c : document["cases"]) {
        if (c["name"] != "logToMs") continue;
        for (const json& row : c["table"]) {
            const u32 ms = row[1];
            EXPECT_EQ(ptpLogToMs(row[0].get<i8>()), ms);
            if (row[0] >= -10 && row[0] <= 13) {
                EXPECT_EQ(ptpMsToLog(ms), row[0].get<i32>());
                EXPECT_EQ(ptpMsToLog(ms - 1), std::max(-10, row[0].get<i32>() - 1));
            }
            ++rows;
        }
    }
    EXPECT_EQ(rows, 256u);
}

TEST(PtpCheckValues, MasterComparisons)
{
    TU_LOAD_VECTORS(document, "o03_ptp_bmca.json");
    IdleNode b;
    b.in([&document] {
        const auto dataset = [](const json& d, const char* port) {
            return PtpDataset{d["p1"],
                              {d["cls"], d["acc"], d["var"]},
                              d["p2"],
                              identityOf(d["gm"]),
                              d["stepsRemoved"],
                              portOf(d[port])};
        };
        for (const json& pair : document["cases"][0]["pairs"]) {
            SCOPED_TRACE(pair["name"].get<std::string>());
            const PtpDataset present = dataset(pair["present"], "parentPort");
            const PtpDataset candidate = dataset(pair["candidate"], "sourcePort");
            EXPECT_EQ(dataSetBmcaComparison(present, candidate), pair["j3"] == 1);
            EXPECT_EQ(dataSetAbmcaComparison(present, candidate), pair["g82751"] == 1);
            if (!pair["topology"].is_null()) {
                EXPECT_EQ(bmcaPart2Algorithm(present, candidate), pair["topology"] == 1);
            }
        }
    });
}

TEST(PtpCheckValues, QualityAndFaults)
{
    TU_LOAD_VECTORS(quality, "o03_ptp_quality.json");
    TU_LOAD_VECTORS(j3, "o03_ptp_faults_j3.json");
    IdleNode b;
    b.in([&] {
        constexpr u8 ACCURACIES[] = {0x20, 0x21, 0x22, 0xFE};
        for (const json& row : quality["cases"][0]["rows"]) {
            for (u32 i = 0; i < 16; ++i) {
                const PtpTraceability t{row[0], ACCURACIES[i % 4], (i / 4) % 2 != 0, i / 8 != 0};
                SCOPED_TRACE(testing::Message() << "class " << row[0] << " pair " << i);
                EXPECT_EQ(ptpQualityLevelIndex(t), row[1][i][0].get<u8>());
                EXPECT_EQ(ptpFaultsG82751(row[1][i][0], 0), row[1][i][1].get<u32>());
            }
        }
        for (const json& m : quality["more"])
            EXPECT_EQ(ptpQualityLevelIndex({m[0], m[3], m[2] == 1, m[1] == 1}), m[4].get<u8>()) << m;
        for (const json& i : quality["byIndex"]) {
            EXPECT_EQ(ptpFaultsG82751(i[0], 0), i[1].get<u32>()) << i;
            EXPECT_EQ(ptpFaultsG82751(i[0], 0x7FFF), i[2].get<u32>()) << i;
        }
        for (const json& r : j3["cases"][0]["rows"]) {
            const PtpRequirement required{r[0] == 5, r[1], r[2], r[3]};
            EXPECT_EQ(ptpFaultsJ3(required, {r[4], r[5], r[7] == 1, false}, r[6] == 1, r[8]),
                      r[9].get<u32>())
                << r;
        }
    });
}

TEST(PtpCheckValues, Corrections)
{
    TU_LOAD_VECTORS(document, "o03_ptp_normalise.json");
    for (const json& c : document["cases"]) {
        const i64 raw =
            static_cast<i64>(std::stoull(c["correctionField"].get<std::string>(), nullptr, 16));
        const PtpTimestamp at{c["seconds"], c["nanoseconds"]};
        const i64 ns = ptpCorrection_ns(raw);
        const PtpTime T1 = ptpAdd(at, ns);
        const PtpTime T4 = ptpAdd(at, -ns);
        EXPECT_EQ(json({T1.seconds, T1.nanoseconds}), c["T1"]) << c;
        EXPECT_EQ(json({T4.seconds, T4.nanoseconds}), c["T4"]) << c;
    }
}

struct Collected {
    bool any = false;
    u16 sequenceId = 0;
    std::vector<std::string> stamps;
};
Collected collected;

TEST(PtpCheckValues, StampSets)
{
    TU_LOAD_VECTORS(document, "o03_ts_sets.json");
    IdleNode b;
    b.in([&document] {
        for (const json& c : document["cases"]) {
            SCOPED_TRACE(c["name"].get<std::string>());
            static u32 perSet;
            perSet = c["TSperSet"];
            TsBuffer buffer;
            TuPktsync_new_TS_buffer(buffer, 0, c["requestedSize"], c["TSperSet"],
                                    [](u32, const TsPosition& set) {
                                        collected = {true, set.sequenceId, {}};
                                        for (u32 i = 0; i < perSet; ++i) {
                                            char text[5] = {};
                                            std::memcpy(text, &set.stamps[i].high, 4);
                                            collected.stamps.push_back(text);
                                        }
                                    });
            EXPECT_EQ(buffer.size, c["size"].get<u16>());
            for (const json& s : c["steps"]) {
                SCOPED_TRACE(s.dump());
                collected = {};
                PtpStamp stamp;
                const std::string label = s[2];
                std::memcpy(&stamp.high, label.data(), std::min<std::size_t>(4, label.size()));
                EXPECT_EQ(TuPktsync_save_TS(buffer, s[0], c["shift"], s[1], stamp), s[3].get<u32>());
                EXPECT_EQ(collected.any, !s[4].is_null());
                if (collected.any && !s[4].is_null()) {
                    EXPECT_EQ(collected.sequenceId, s[4][0].get<u16>());
                    EXPECT_EQ(json(collected.stamps), s[4][1]);
                }
                EXPECT_EQ(json({buffer.occupancy, buffer.max_occupancy, buffer.mostRecentSeqId,
                                buffer.discardedSeqIds, buffer.TSoverwrites}),
                          json({s[5], s[6], s[7], s[8], s[9]}));
            }
        }
    });
}

PtpClockSetup setupOf(const json& init)
{
    PtpClockSetup setup;
    setup.syncrefId = init["syncrefId"];
    setup.froClassNo = init["froClassNo"];
    setup.ptpProfile = init["ptpProfile"];
    setup.ptpMapping = init["ptpMapping"];
    setup.domainNumber = init["domain"];
    setup.clockIdentity = identityOf(init["clockIdentity"]);
    setup.delayAsymmetry = init["delayAsymmetry"];
    const json& r = init["requirement"];
    setup.rqmt = {r["maxSync"],    r["minSync"], r["maxDelayReq"],
                  r["clockClass"], r["classes"], r["clockAccuracy"]};
    return setup;
}

/// A case of messages, stamps and waits; the state after each step.
void replayFlow(const json& c)
{
    SCOPED_TRACE(c["name"].get<std::string>());
    ptpBegin();
    const json& init = c["init"];
    const PtpClockSetup setup = setupOf(init);
    ptpSeen().latency = init["latencyAsymmetry"];
    const u32 begin = ptpNow_ms();
    ASSERT_EQ(TuPktsync_new_ptp_clock(setup), 1u);
    const u32 id = setup.syncrefId;
    if (init["enabled"] == 1) TuPktsync_set_ptp_path_supervision(id, 1);
    TuPktsync_set_ptp_selected(id, init["selected"]);
    for (std::size_t i = 0; i < c["steps"].size(); ++i) {
        const json& step = c["steps"][i];
        SCOPED_TRACE(testing::Message() << "step " << i << " " << step["do"] << " at " << step["t"]);
        const u32 stateBefore = ptpClockOf(id)->portState;
        PtpSeen& seen = ptpSeen();
        seen.sent.clear();
        seen.qualities.clear();
        seen.exchanges.clear();
        ptpRunTo(begin + step["t"].get<u32>());
        if (step["do"] == "egress") {
            const u32 seq = step["seq"];
            const u8 metadata[8] = {static_cast<u8>(seq >> 8), static_cast<u8>(seq), 0,
                                    static_cast<u8>(id), PTP_DELAY_REQ, 0, 0, 0};
            TuPktsync_PTP_egressTimestamp(metadata, {step["stamp"][0], step["stamp"][1]});
        } else if (step["do"] != "wait") {
            const std::vector<u8> rx = bytesOf(step["rx"]);
            TuPktsync_handle_ptp_message(rx.data(), static_cast<u32>(rx.size()),
                                         {step["rxStamp"][0], step["rxStamp"][1]},
                                         setup.ptpMapping == UDP_UC ? &setup.serverIpAddress : nullptr);
        }
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
        for (const json& e : step["events"]) {
            if (e[0] == "portState") state = e[1];
            else if (e[0] != "unexpectedPortEvent") wanted[e[0]].push_back(e[1]);
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
        if (testing::Test::HasFailure()) break;
    }
    TuPktsync_delete_ptp_clock(id);
}

TEST(PtpCheckValues, Announce)
{
    TU_LOAD_VECTORS(document, "o03_ptp_announce.json");
    IdleNode b;
    for (const json& c : document["cases"]) b.in([&c] { replayFlow(c); });
}

TEST(PtpCheckValues, Flow)
{
    TU_LOAD_VECTORS(document, "o03_ptp_flow.json");
    IdleNode b;
    for (const json& c : document["cases"]) b.in([&c] { replayFlow(c); });
}

/// Of an exchange, by way of messages of a clock that has both pools filled by hand.
TEST(PtpCheckValues, Exchange)
{
    TU_LOAD_VECTORS(document, "o03_ptp_exchange.json");
    IdleNode b;
    b.in([&document] {
        for (const json& c : document["cases"]) {
            SCOPED_TRACE(c.dump());
            ptpBegin();
            ptpSeen().latency = c["latencyAsymmetry"];
            PtpClockSetup setup;
            setup.froClassNo = PACKET_TIME_FRO_CLASS;
            setup.delayAsymmetry = c["delayAsymmetry"];
            ASSERT_EQ(TuPktsync_new_ptp_clock(setup), 1u);
            TuPktsync_set_ptp_selected(0, 1);
            PtpClock& clock = *ptpClockOf(0);
            TuPktsyncPTP_start_DelayReqRespCtrl(clock);
            const auto pair = [](const json& j) { return PtpStamp{j[0], j[1]}; };
            TuPktsync_save_TS(clock.delay.stamps, 0, 0, 0, pair(c["T3raw"]));
            TuPktsync_save_TS(clock.delay.stamps, 0, 0, 1, pair(c["T4"]));
            const u64 raw = std::stoull(c["correctionField"].get<std::string>(), nullptr, 16);
            TuPktsync_save_TS(clock.syncStamps, 7, 0, 0,
                              {static_cast<u32>(raw >> 32), static_cast<u32>(raw)});
            TuPktsync_save_TS(clock.syncStamps, 7, 0, 1, pair(c["T1"]));
            TuPktsync_save_TS(clock.syncStamps, 7, 0, 2, pair(c["T2raw"]));
            ASSERT_EQ(ptpSeen().exchanges.size(), 1u);
            const PtpExchange& e = ptpSeen().exchanges[0];
            EXPECT_EQ(json({{"T1", {e.T1s, e.T1f}}, {"T2", {e.T2s, e.T2f}}, {"T3", {e.T3s, e.T3f}},
                            {"T4", {e.T4s, e.T4f}}, {"asymComp", e.asymComp}}),
                      c["out"]);
            TuPktsync_delete_ptp_clock(0);
        }
    });
}

TEST(PtpCheckValues, DelayRequest)
{
    TU_LOAD_VECTORS(document, "o03_ptp_delay_req.json");
    IdleNode b;
    b.in([&document] {
        for (const json& c : document["cases"]) {
            SCOPED_TRACE(c.dump());
            ptpBegin();
            PtpClockSetup setup;
            setup.syncrefId = c["syncrefId"];
            setup.froClassNo = PACKET_TIME_FRO_CLASS;
            setup.ptpMapping = c["ptpMapping"];
            setup.domainNumber = c["domain"];
            setup.clockIdentity = identityOf(c["clockIdentity"]);
            setup.delayAsymmetry = c["delayAsymmetry"];
            ASSERT_EQ(TuPktsync_new_ptp_clock(setup), 1u);
            ptpClockOf(setup.syncrefId)->timeProperties.flags = c["timePropertiesFlags"];
            ptpSendDelayReq(setup.syncrefId, c["sequenceId"]);
            ASSERT_EQ(ptpSeen().sent.size(), 1u);
            EXPECT_EQ(ptpSeen().sent[0].hex, c["frame"].get<std::string>());
            EXPECT_EQ(ptpSeen().sent[0].metadata, c["metadata"].get<std::string>());
            TuPktsync_delete_ptp_clock(setup.syncrefId);
        }
    });
}

TEST(PtpCheckValues, DelayMechanism)
{
    TU_LOAD_VECTORS(document, "o03_ptp_delay.json");
    IdleNode b;
    b.in([&document] {
        for (const json& c : document["cases"]) {
            SCOPED_TRACE(c["name"].get<std::string>());
            ptpBegin();
            PtpClockSetup setup;
            setup.froClassNo = PACKET_TIME_FRO_CLASS;
            ASSERT_EQ(TuPktsync_new_ptp_clock(setup), 1u);
            PtpClock& clock = *ptpClockOf(0);
            for (const json& step : c["steps"]) {
                SCOPED_TRACE(step.dump());
                ptpSeen().sent.clear();
                const json& op = step["op"];
                json result;
                if (op[0] == "start") TuPktsyncPTP_start_DelayReqRespCtrl(clock);
                else if (op[0] == "stop") TuPktsyncPTP_stop_DelayReqRespCtrl(clock);
                else if (op[0] == "timeout") TuPktsyncPTP_handle_DelayReqRespCtrl_timeout(clock);
                else if (op[0] == "update")
                    TuPktsyncPTP_update_DelayReqRespCtrl_interval(clock, op[1], op[2]);
                else if (op[0] == "fault") ptpFaults(clock, op[1], 0);
                else if (op[0] == "stamps") {
                    TuPktsync_save_TS(clock.delay.stamps, op[1], 0, 0, {op[2][0], op[2][1]});
                    TuPktsync_save_TS(clock.delay.stamps, op[1], 0, 1, {op[3][0], op[3][1]});
                } else if (const PtpDelaySample* r = TuPktsyncPTP_delaySample(clock)) {
                    result = {r->T3s, r->T3f, r->T4s, r->T4f, r->sequenceId};
                }
                const DelayReqRespCtrl& d = clock.delay;
                std::size_t sends = 0;
                for (const json& e : step["events"])
                    if (e[0] == "Delay_Req") ++sends;
                EXPECT_EQ(ptpSeen().sent.size(), sends);
                EXPECT_EQ(TuPktsyncPTP_drmStatusText(d.status), step["status"].get<std::string>());
                EXPECT_EQ(json({d.nom_interval, d.missed_limit, d.missed_replies, d.no_reply,
                                d.nextSequenceId}),
                          json({step["nom_interval"], step["missed_limit"], step["missed_replies"],
                                step["no_reply"], step["nextSequenceId"]}));
                EXPECT_EQ(clock.fault_flags, step["faults"].get<u32>());
                EXPECT_EQ(d.sample.age, step["age"].get<u32>());
                EXPECT_EQ(result, step["result"]);
                if (!step["timer"].is_null()) {
                    EXPECT_GE(d.timer.duration_ms, step["timer"][0].get<u32>());
                    EXPECT_LE(d.timer.duration_ms, step["timer"][1].get<u32>());
                }
            }
            TuPktsync_delete_ptp_clock(0);
        }
    });
}

TEST(PtpCheckValues, SyncFilterAndSupervision)
{
    TU_LOAD_VECTORS(filter, "o03_ptp_syncfilter.json");
    TU_LOAD_VECTORS(supervision, "o03_ptp_syncsup.json");
    IdleNode b;
    b.in([&] {
        ptpBegin();
        PtpClockSetup setup;
        setup.froClassNo = PACKET_TIME_FRO_CLASS;
        ASSERT_EQ(TuPktsync_new_ptp_clock(setup), 1u);
        PtpClock& c = *ptpClockOf(0);
        for (const json& row : filter["cases"][0]["rows"]) {
            c.logSyncInterval = row[0];
            c.setup.rqmt.minSyncInterval = row[1];
            ptpRecomputeFilter(c);
            EXPECT_EQ(json({c.logPassFraction, c.seqIdDiscardMask}), json({row[2], row[3]})) << row;
        }
        c.logPassFraction = c.seqIdDiscardMask = 0;
        for (const json& row : supervision["settings"]) {
            if (row[3] == 1) continue;   // a threshold that a byte doesn't hold
            c.logSyncInterval = row[0];
            ptpStartSyncSup(c, false);
            EXPECT_EQ(json({c.syncSup.timer_interval, c.syncSup.norm_threshold}),
                      json({row[1], row[2]}))
                << row;
        }
        for (const json& run : supervision["cases"]) {
            SCOPED_TRACE(run["name"].get<std::string>());
            c.logSyncInterval = run["logMsgInterval"];
            ptpStartSyncSup(c, false);
            for (const json& step : run["steps"]) {
                for (u32 i = 0; i < step[0]; ++i) ptpCountSync(c);
                ptpSyncSupTimeout(c);
                constexpr const char* STATUS[] = {"OFF", "OK", "DEGRADED", "FAILED"};
                EXPECT_EQ(STATUS[c.syncSup.syncStatus], step[1].get<std::string>());
                EXPECT_EQ(c.fault_flags, step[2].get<u32>());
                if (!step[3].empty()) break;   // the port's fault starts the supervision anew
            }
        }
        TuPktsync_delete_ptp_clock(0);
    });
}

TEST(PtpCheckValues, UnicastNegotiation)
{
    TU_LOAD_VECTORS(document, "o03_ptp_ucneg.json");
    IdleNode b;
    for (const json& c : document["cases"]) {
        b.in([&c] {
            SCOPED_TRACE(c["name"].get<std::string>());
            ptpBegin();
            PtpClockSetup setup;
            setup.froClassNo = PACKET_FREQ_FRO_CLASS;
            setup.ptpMapping = UDP_UC;
            setup.domainNumber = c["domain"];
            setup.clockIdentity = identityOf(c["clockIdentity"]);
            ASSERT_EQ(TuPktsync_new_ptp_clock(setup), 1u);
            TuPktsyncPTP_delete_UCnegCtrl(0);   // the file begins before its start
            TuPktsyncPTP_new_UCnegCtrl(0);
            const u32 begin = ptpNow_ms();
            for (std::size_t i = 0; i < c["steps"].size(); ++i) {
                const json& step = c["steps"][i];
                SCOPED_TRACE(testing::Message() << "step " << i << " " << step["op"].dump());
                ptpSeen().sent.clear();
                const json& op = step["op"];
                if (op[0] == "start") TuPktsyncPTP_start_UCnegotiation(0, op[1]);
                else if (op[0] == "advance") ptpRunTo(begin + op[1].get<u32>());
                else if (op[0] == "announce") TuPktsyncPTP_UCneg_notify_announce(0, op[1]);
                else if (op[0] == "cancelAll") TuPktsyncPTP_cancel_UCtrans(0);
                else {
                    const std::vector<u8> rx = bytesOf(step["rx"]);
                    TuPktsync_handle_ptp_message(rx.data(), static_cast<u32>(rx.size()), {},
                                                 &setup.serverIpAddress);
                }
                json sent = json::array();
                for (const auto& m : ptpSeen().sent) sent.push_back(m.hex);
                json wanted = json::array();
                for (const json& e : step["events"])
                    if (e[0] == "send") wanted.push_back(e[1]);
                EXPECT_EQ(sent, wanted);
                EXPECT_EQ(ptpUcNegState(0), step["state"].get<u32>());
                EXPECT_EQ(ptpClockOf(0)->fault_flags & FAULTS_UNICAST, step["faults"].get<u32>());
                if (testing::Test::HasFailure()) break;
            }
            TuPktsync_delete_ptp_clock(0);
        });
    }
}

}  // namespace
