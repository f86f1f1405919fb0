// The front end's state machine, the recovery machine and the receiver-unit supervision against
// check values, step by step.
#include "gps/kvd_gps_common.h"
#include "gps/kvd_gps_hrv_supervision.h"
#include "gps/kvd_gps_int.h"
#include "gps/kvd_gps_nmea.h"
#include "gps/kvd_gps_norvane.h"
#include "gps/kvd_gps_recovery.h"
#include "gps/kvd_gps_send.h"
#include "ref/kvd_ref.h"
#include "ref/kvd_ref_int.h"
#include "reg/kvd_reg.h"
#include "tests/gps/gps_replay.h"
#include "tests/support/vectors.h"
#include "unit/kvd_ref_table.h"

#include <cstdio>
#include <ctime>
#include <map>
#include <set>
#include <sstream>

namespace {

using bench::sentence;
using vectors::json;
using vectors::Value;

constexpr i64 EPOCH = 1'704'067'200;   // calendar at time 0 of the steps, 2024-01-01 00:00:00 UTC

std::string timeText(i64 t)
{
    const std::time_t seconds = EPOCH + t;
    std::tm date{};
    gmtime_r(&seconds, &date);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S.000000", &date);
    return text;
}

// ---- recovery machine ---------------------------------------------------------------------------

SIGSELECT recoverySignal(const std::string& timer)
{
    static const std::map<std::string, SIGSELECT> SIGNALS = {
        {"gpgsvTimer", 0x9C60F},    {"gpstsTimer", 0x9C610},      {"gpstsSubSmTimer", 0x9C610},
        {"gpverTimer", 0x9C611},    {"recoveryTimer", 0x9C612},   {"hysteresisTimer", 0x9C613},
        {"hrvSwResetTimer", 0x9C614}};
    return vectors::rowOf(SIGNALS, timer);
}

struct RecoveryReplay : bench::GpsReplay {
    std::map<std::string, u32> running;     // ms, as the traces of start and cancel tell

    /// A table of these satellites, with that count in view, by sentences.
    void satellites(const Value& table, u32 inView)
    {
        const std::size_t pages = std::max<std::size_t>(1, (table.size() + 3) / 4);
        for (std::size_t page = 0; page < pages; ++page) {
            char field[60];
            std::snprintf(field, sizeof field, ",%02u", inView);
            std::string body = "GPGSV," + std::to_string(pages) + "," + std::to_string(page + 1) + field;
            for (std::size_t n = page * 4; n < std::min(table.size(), page * 4 + 4); ++n) {
                const Value s = table[n];
                std::snprintf(field, sizeof field, ",%02u,%02u,%03u,%02u", s[0].get<u32>(), s[1].get<u32>(),
                              s[2].get<u32>(), s[3].get<u32>());
                body += field;
            }
            in([&] { EXPECT_EQ(KvdLoz6TuGps_parseGPGSV(sentence(body).c_str()), 1) << body; });
        }
        in([&] { EXPECT_EQ(KvdLoz6TuGps_noOfSatellitesInView(), inView); });
    }
    void begin(const std::string& firmware)
    {
        in([&] {
            // A receiver that restarts may be sent to.
            KvdLoz6TuGps_setTuGpsRefType(GPS_REF);
            KvdLoz6TuGps_storeGpsState(GPS_WAIT_FOR_VALID_MSG);
            if (firmware == "Unknown") return;
            const std::string version = sentence("PNVX,GPver,GRM,NUMBER,R1A," + firmware);
            EXPECT_EQ(KvdLoz6TuGps_parsePxxxGPver(version.c_str()), 1) << version;
        });
    }
    void apply(const Value& step)
    {
        if (step.is_object()) return satellites(step["sats"], step["inView"]);
        if (step.is_number()) return in([&] { KvdLoz6TuGps_onRecoverySMEvent(step.get<u32>()); });
        const std::string timer = step.get<std::string>();
        // The time-out of the sub machine's timer leaves its own reference as it is.
        if (timer != "gpstsSubSmTimer") running.erase(timer);
        dispatch(recoverySignal(timer));
    }
    /// Starts and cancels of timers in the order of their traces.
    std::vector<std::string> timerActions()
    {
        std::vector<std::string> actions;
        for (const std::string& text : traceTexts()) {
            char name[32];
            u32 seconds = 0;
            if (std::sscanf(text.c_str(), "Timer %31s started: %u sec", name, &seconds) == 2) {
                const u32 ms = running[name] = seconds * 1000;
                actions.push_back("start " + std::string(name) + " " + std::to_string(ms));
            } else if (std::sscanf(text.c_str(), "Timer %31s canceled.", name) == 1
                       && text.ends_with("canceled.")) {
                running.erase(name);
                actions.push_back("cancel " + std::string(name));
            }
        }
        return actions;
    }
    void compare(const Value& out)
    {
        std::vector<std::string> expected;
        std::size_t dumps = 0;
        for (const Value action : out["actions"]) {
            const std::string text = action.get<std::string>();
            if (text.starts_with("start ") || text.starts_with("cancel ")) expected.push_back(text);
            else if (text == "dump GPS log") ++dumps;
            else if (text != "GpsFwRestart" && text != "reset of the receiver unit")     // counted below
                throw std::runtime_error("no replay of the action \"" + text + "\"");
        }
        EXPECT_EQ(timerActions(), expected);
        EXPECT_EQ(bench::pktsyncInbox().size(), dumps);
        EXPECT_EQ(running, (out["timers"].get<std::map<std::string, u32>>()));
        look([&] {
            const RecoveryCounters& c = KvdLoz6TuGps_recoveryCounters();
            vectors::expectAll({{"state", KvdLoz6TuGps_recoveryState()},
                                {"subState", KvdLoz6TuGps_recoverySubState()},
                                {"status", KvdLoz6TuGps_supervisionStatus()},
                                {"currentAttempted", c.currentAttemptedRecoveries},
                                {"totalAttempted", c.totalAttemptedRecoveries},
                                {"unsuccessfulCycles", c.unsuccessfulRecoveryCycles},
                                {"hrvSwRestarts", c.HrvSwRestartsCounter},
                                {"hrvSwRestartsTotal", c.HrvSwRestartsCounterTotal}}, out);
            // What each reset and each restart of the newest firmware leaves in the send queue.
            const GpsSendCounters& sent = KvdLoz6TuGps_sendCounters();
            EXPECT_EQ(sent.numberOfPNVXGPdbgRS, c.HrvSwRestartsCounterTotal);
            if (KvdLoz6TuGps_isFirmware("120510"))
                vectors::expectAll({{"totalAttempted", sent.numberOfPNVXGPdbgRI}}, out);
            return 0;
        });
    }
    void nextStep()
    {
        node.traces().clear();
        bench::pktsyncInbox().clear();
    }
    /// Rows of a printed history, two texts behind the time, against the file's pairs of states.
    void expectHistory(void (*print)(), const Value& pairs, const char* (*textOf)(u32),
                       bool isNewestFirst = false)
    {
        using Rows = std::vector<std::pair<std::string, std::string>>;
        Rows rows, expected;
        look([&] {
            for (const Value p : pairs) expected.emplace_back(textOf(p[0]), textOf(p[1]));
            return 0;
        });
        std::string text;
        node.shell().onStray([&](const std::string& piece) { text += piece; });
        in([&] { print(); });
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            const std::size_t from = line.find("] "), arrow = line.find(" --> ");
            if (arrow == std::string::npos) continue;
            std::string left = line.substr(from + 2, arrow - from - 2);
            left.erase(left.find_last_not_of(' ') + 1);
            rows.insert(rows.begin(), {left, line.substr(arrow + 5)});
        }
        if (isNewestFirst) std::ranges::reverse(expected);
        EXPECT_EQ(rows, expected);
    }
};

void recovery(const Value& vector)
{
    RecoveryReplay replay;
    const Value in = vector["in"];
    replay.begin(in["firmware"].get<std::string>());
    replay.satellites(in["gpsCurrent"], in["inView"]);
    if (in.contains("step_form")) in["step_form"].read();        // in words
    std::size_t n = 0;
    for (const Value step : in["steps"]) {
        SCOPED_TRACE(testing::Message() << "step " << n << ": " << step);
        replay.nextStep();
        replay.apply(step);
        replay.compare(vector["out"]["after"][n++]);
    }
    replay.expectHistory(KvdLoz6TuGps_printRecoveryHistory, vector["out"]["statusHistory"],
                         KvdLoz6TuGps_supervisionStatusText);
}

void unitSupervision(const Value& vector)
{
    RecoveryReplay replay;
    replay.begin("120510");
    if (vector["in"].contains("names")) vector["in"]["names"].read();   // of the events
    std::size_t n = 0;
    u32 restarts = 0;
    for (const Value event : vector["in"]["events"]) {
        SCOPED_TRACE(testing::Message() << "step " << n << ": " << event);
        replay.nextStep();
        // The time-outs come by their signals, so that the references are cleared as at expiry.
        const u32 number = event;
        if (number == HRV_SUPERVISION_EVENT_TIMER_ELAPSE
            || number == HRV_SUPERVISION_EVENT_1PPS_TIMER_ELAPSE) {
            const bool supervision = number == HRV_SUPERVISION_EVENT_TIMER_ELAPSE;
            replay.running.erase(supervision ? "supervisionTimer" : "onePPSTimer");
            replay.dispatch(supervision ? 0x9C615 : 0x9C616);
        } else {
            replay.in([&] { KvdLoz6TuGps_onHRVSupervisionEvent(number); });
        }
        const Value out = vector["out"]["after"][n++];
        replay.timerActions();
        std::vector<std::string> running;
        for (const auto& [name, ms] : replay.running) running.push_back(name);
        EXPECT_EQ(running, out["timers"].get<std::vector<std::string>>());
        for (const Value action : out["actions"])
            if (action == "GpsFwRestart") ++restarts;
            else                          throw std::runtime_error("no replay of " + action.dump());
        replay.look([&] {
            vectors::expectAll({{"state", KvdLoz6TuGps_hrvState()},
                                {"resetAttempts", KvdLoz6TuGps_hrvResetAttempts()}}, out);
            EXPECT_EQ(KvdLoz6TuGps_sendCounters().numberOfPNVXGPdbgRI, restarts);
            return 0;
        });
    }
    replay.expectHistory(KvdLoz6TuGps_printHrvHistory, vector["out"]["history_newest_first"],
                         KvdLoz6TuGps_hrvStateText, true);
}

// ---- the front end ------------------------------------------------------------------------------

SIGSELECT frontEndSignal(const std::string& name)
{
    static const std::map<std::string, SIGSELECT> SIGNALS = {
        {"KVD_TUGPS_OPERATIONAL_TIMEOUT", 0x9C600},    {"KVD_TUGPS_WAIT_FOR_OPERATIONAL_TIMEOUT", 0x9C601},
        {"KVD_TUGPS_WAIT_FOR_VALID_MSG", 0x9C602},     {"KVD_TUGPS_VALID_TIMEOUT", 0x9C603},
        {"KVD_TUGPS_SERIALPORT_INITIALISED", 0x9C605}, {"KVD_TUGPS_SUPR_ALARM_TIMEOUT", 0x9C606},
        {"KVD_TUGPS_SELF_TEST_TIMEOUT", 0x9C607},      {"KVD_TUGPS_SEND_TO_GPS_TIMEOUT", 0x9C608},
        {"KVD_TUGPS_SUPPR_ADDINFO_TIMEOUT", 0x9C60A}};
    return vectors::rowOf(SIGNALS, name);
}

struct SequenceReplay : bench::GpsReplay {
    SequenceReplay()
    {
        in([] { KvdLoz6TuRef_restart(1); });
        node.system().kill(node.system().find("Kvd_loz6_turefmon_proc"));
        mp().clearLog();
    }

    void apply(const Value& step)
    {
        const std::string event = step["ev"].get<std::string>();
        const auto value = [&](const char* key) { return step[key].get<u32>(); };
        if (event == "supervise") {
            node.serial().openResult = step.value("subscribe_ok", 1) == 1 ? 0 : 1;
            in([&] { supervise(value("status")); });
        } else if (event == "signal" || event == "timeout") {
            dispatch(frontEndSignal(step["name"].get<std::string>()));
        } else if (event == "sentence") {
            sentenceCame(step["text"].get<std::string>());
        } else if (event == "pps") {
            in([&] { KvdLoz6TuGps_statusChange(value("present")); });
        } else if (event == "force") {
            EXPECT_EQ(value("value"), 1u);
            in(KvdLoz6TuGps_setForceReport);
        } else if (event == "testmode") {
            const u8 on = static_cast<u8>(value("on"));
            IifBench::dispatch(KvdLoz6TuReg_dispatch, KVD_TUIIF_SET_TEST_MODE_IND, &on, 1);
        } else if (event == "selectionMode") {
            const u8 mode = static_cast<u8>(value("mode"));
            dispatch(KVD_TUIIF_SELECTION_MODE_CHANGE_IND, &mode, 1);
        } else if (event == "fixed") {
            const u32 wanted = value("wanted");
            dispatch(KVD_TUIIF_SET_FIXED_POSITION_IND, &wanted, 4);
        } else if (event == "reftype") {
            in([&] { KvdLoz6TuGps_setTuGpsRefType(static_cast<u8>(value("value"))); });
        } else {
            throw std::runtime_error("no replay of the step \"" + event + "\"");
        }
        world.runUntil(world.now());
    }

    /// What the toggle filter says at the start of a supervision comes as steps of their own, so
    /// that the request goes past the filter.
    static void supervise(u32 status)
    {
        const KvdTuiifSynchPathSupInd ind{KVD_TUIIF_SYNCH_PATH_SUP_IND, GPS_REF, status, 0, 3};
        const u32 row = KvdLoz6TuRef_rowOfRefType(GPS_REF);
        RefDesc& desc = KvdLoz6TuRef_table().refDescTable[row];
        if (desc.supervisionStatus == status || status != 1) return KvdLoz6TuRef_onPathSupervision(&ind);
        KvdLoz6TuGps_supervision(reinterpret_cast<const Signal*>(&ind), row);
        desc.supervisionStatus = status;
        KvdLoz6TuGps_supervisionStarted();
    }

    /// Those that run, with what names each run.
    std::map<std::string, TimerRef> runningTimers()
    {
        return look([] {
            const gps::State& state = gps::state();
            const std::pair<const char*, const KvdTimer&> timers[] = {
                {"alarmSuppression", state.suprAlarmTmoRef},
                {"additionalInfoSuprTmoRef", state.additionalInfoSuprTmoRef},
                {"waitForValidTmoRef", state.waitForValidTmoRef},
                {"waitForOperationalTmoRef", state.waitForOperationalTmoRef},
                {"operationalTmoRef", state.operationalTmoRef},
                {"validTmoRef", state.validTmoRef},
                {"waitForSelfTestTmoRef", state.waitForSelfTestTmoRef}};
            std::map<std::string, TimerRef> running;
            for (const auto& [name, timer] : timers)
                if (timer.runs()) running[name] = timer.ref;
            return running;
        });
    }
    /// A timer that ends in the step that started it isn't seen; the queue's shows by what is written.
    void compareTimers(const Value& out, const std::map<std::string, TimerRef>& before)
    {
        auto timers = out["timers"].get<std::set<std::string>>();
        auto restarted = out["restarted"].get<std::set<std::string>>();
        timers.erase("sendToGpsTimer");
        const auto after = runningTimers();
        for (const auto& [name, ref] : after) {
            EXPECT_EQ(timers.erase(name), 1u) << name;
            const auto then = before.find(name);
            EXPECT_EQ(then == before.end() || then->second != ref, restarted.contains(name)) << name;
        }
        EXPECT_EQ(timers, std::set<std::string>()) << "don't run";
    }

    void compareState(const Value& out, const std::set<std::string>& open)
    {
        const gps::State& state = gps::state();
        double time = -1.0;
        const u32 timeState = KvdLoz6TuGps_time(time);
        const GpsLastSentence& last = KvdLoz6TuGps_lastSentence();
        json got = {{"gpsState", KvdLoz6TuGps_gpsState()}, {"gpssType", KvdLoz6TuGps_gpssType()},
                    {"gpssType_backup", KvdLoz6TuGps_gpssTypeBackup()}, {"alarm", state.alarmActive},
                    {"detectFlags", state.detection.seenTypes}, {"detectCount", state.detection.seenCount},
                    {"retry", state.modeRetries}, {"timeQuery", {timeState, time}},
                    {"recoveryState", KvdLoz6TuGps_recoveryState()}, {"hrvState", KvdLoz6TuGps_hrvState()}};
        if (out.contains("parsed")) got["parsed"] = {last.result, last.type.sentenceClass, last.type.kind};
        for (const std::string& key : open) out[key].read(), got.erase(key);
        vectors::expectAll(got, out);
        EXPECT_EQ(KvdLoz6TuGps_queuedBytes(), out["queue"].get<std::string>().size());
        if (open.contains("history")) return;
        std::vector<std::pair<u32, std::string>> expected, rows;
        for (const Value row : out["history"]) expected.emplace_back(row[0], timeText(row[1]));
        for (u8 row = 0; row < KvdLoz6TuGps_stateHistoryCount(); ++row)
            rows.emplace_back(KvdLoz6TuGps_stateHistory(row).state, KvdLoz6TuGps_stateHistory(row).time);
        EXPECT_EQ(rows, expected);
    }
    /// What left the unit in this step: to the main processor and to the line.
    void compareSent(const Value& out)
    {
        std::vector<std::string> expectedStatuses;
        json expectedQualities = json::array();
        out["reports"].read();                                      // of which "sent" are those that differ
        for (const json& s : out["sent"].read())
            expectedStatuses.push_back(s[0].dump() + " " + s[1].get<std::string>());
        for (const json& s : out["signals"].read())                // a restart of a timer is one too
            if (s.at(0) == "KVD_TUIIF_QUALITY_LEVEL_IND") expectedQualities.push_back(s);
            else if (s.at(0) != "restart") throw std::runtime_error("no replay of the signal " + s.dump());
        EXPECT_EQ(bench::statusTexts(mp(), KVD_TUIIF_GPS_STATUS_IND, &KvdTuiifGpsStatusInd::gpsStatus),
                  expectedStatuses);
        EXPECT_EQ(qualities(), expectedQualities);
        std::string expectedWritten;
        for (const Value posted : out["posted"]) {
            if (posted.is_array() && posted[0] == "write") expectedWritten += posted[1].get<std::string>();
            else if (posted != "KVD_TUGPS_SERIALPORT_INITIALISED")   // to itself: the manager drops it
                throw std::runtime_error("nothing to see of the posted " + posted.dump());
        }
        EXPECT_EQ(written, expectedWritten);
    }
    /// Of the events that sentences raise, those that came, in order.
    void compareRecoveryEvents(const Value& out)
    {
        const std::pair<const char*, u32> raised[] = {{"= RECOVERY_EVENT_GPVER_OK.", 0},
                                                      {"= RECOVERY_EVENT_GPSTS_OK.", 2},
                                                      {"= RECOVERY_EVENT_GPSTS_NOK.", 3},
                                                      {"= RECOVERY_EVENT_GPGSV_RECEIVED.", 11}};
        std::vector<u32> came;
        for (const sim::TraceLine& line : node.traces().find({"(onRecoverySMEvent)"}))
            for (const auto& [text, event] : raised)
                if (line.text.find(text) != std::string::npos) came.push_back(event);
        EXPECT_EQ(came, out["recoveryEvents"].get<std::vector<u32>>());
    }
};

void sequence(const Value& vector)
{
    SequenceReplay replay;
    std::size_t n = 0;
    for (const Value step : vector["in"]["steps"]) {
        SCOPED_TRACE(testing::Message() << "step " << n << ": " << step);
        const Value out = vector["out"]["after"][n++];
        std::set<std::string> open;
        if (out.contains("open_keys")) open = out["open_keys"].get<std::set<std::string>>();
        replay.node.traces().clear();
        replay.mp().clearLog();
        replay.written.clear();
        replay.node.setCalendar(EPOCH + step["t"].get<i64>());
        const auto timers = replay.runningTimers();
        replay.apply(step);
        replay.look([&] {
            replay.compareState(out, open);
            return 0;
        });
        replay.compareTimers(out, timers);
        replay.compareSent(out);
        const std::vector<std::string> traces = replay.traceTexts();
        for (const Value text : out["traces"])
            EXPECT_TRUE(std::ranges::find(traces, text.get<std::string>()) != traces.end()) << text;
        replay.compareRecoveryEvents(out);
    }
}

TEST(GpsMachineCheckValues, AreMetAtEveryStep)
{
    vectors::Document document("o05_gps_sm.json");
    vectors::eachKind(document["vectors"],
                      {{"sequence", sequence}, {"recovery", recovery}, {"hrv", unitSupervision}},
                      {"preTime", "delay", "stateName", "typeName", "timeQuery", "fwRestart", "oneShot",
                       "queue", "quality"});                                  // value_vectors_test.cpp
}

}  // namespace
