// Hardware tests: the start-up sequence that the test service drives, and the run-time check.
#include "frame/kvd_mgr_hwdiag.h"

#include "base/kvd_mgr_hwdiag_log.h"
#include "base/trace_groups.h"
#include "fifo/kvd_fifo_proc.h"
#include "hw/kvd_hwif.h"
#include "iif/kvd_mgr_wait.h"
#include "mp/kvd_iifadm.h"
#include "node/sig.h"
#include "node/temi.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "ose/ose.h"
#include "reg/kvd_reg.h"

#include <cstdio>
#include <cstring>

namespace {

constexpr const char* TEMI_CLIENT = "KVD_LOZ6_HW";
constexpr u32 TEMI_PROTOCOL = 2;
constexpr OSTIME TEMI_RETRY_ms = 3000;
constexpr OSTIME TEMI_ANSWER_ms = 60'000;    // at the start; one that says nothing for so long won't
constexpr OSTIME MONITOR_SETTLE_ms = 10;
constexpr u32 RESULT_PASSED = 0, RESULT_FAILED = 2;
constexpr u8 STARTUP_PASSED = 0, STARTUP_NO_ANSWER = 1, STARTUP_FAILED = 2;
constexpr u32 LAST_RESTART_TYPE_WITH_TESTS = 1;

// Modes of the hardware monitor.
struct MonitorMode { u32 mode; const char* name; };
constexpr MonitorMode ZERO_IN_TD_ON{0, "ZERO_IN_TD_ON"}, REF_IN_TD_ON{1, "REF_IN_TD_ON"},
    TU_HM_CLK_IN_TD_ON{2, "TU_HM_CLK_IN_TD_ON"}, REF_IN_TD_OFF{4, "REF_IN_TD_OFF"};

struct ToggleDetector {
    u32 hm;                 // its number to the monitor
    u32 mask;
    const char* testName;
    LogEntry brokenInRunning;
};
constexpr ToggleDetector TD[] = {
    {0, 0x01, "LOZ6 PDH1 Test", LOG_MCA}, {1, 0x02, "LOZ6 PDH2 Test", LOG_MCB},
    {2, 0x04, "LOZ6 PDH3 Test", LOG_MCC}, {3, 0x08, "LOZ6 PDH4 Test", LOG_MCD},
    {4, 0x10, "LOZ6 SDH Test", LOG_MCE},  {5, 0x80, "LOZ6 EXT Test", LOG_MCF},
};
constexpr u32 TEST_SYNTH_FEEDBACK = 7;   // tests 1 to 6 are the detectors
constexpr u32 TEST_RUNTIME = 8;

// Synthesiser status.
constexpr u32 SYNTH_C_LOCKED = 0x1, SYNTH_B_LOCKED = 0x4, FEEDBACK_30_72 = 0x8;
constexpr u8 FEEDBACK_MISSES_MAX = 4;
constexpr u32 FORGIVING_CHECKS = 240;

struct State {
    u32 checkCount = 0;
    u32 feedbackMissing = 0;
    u8 FeedbackMissingCounter = 0;
    bool ltrPending = false;
    bool ltrDetected = false;
    u32 lastSynthStatus = 0;
};
ose::ModuleData<State> s;

constexpr SIGSELECT TEMI_ANSWERS[] = {
    6, TARSO_TEMI_INITIATE_SERVICE_CFM, TARSO_TEMI_INITIATE_SERVICE_REJ, TARSO_TEMI_DO_TEST_IND,
    TARSO_TEMI_TEST_RESULT_RSP, TARSO_TEMI_TERMINATE_SERVICE_CFM, TARSO_TEMI_SERVER_DOWN_IND};

constexpr const char* TEMI = "The test service";

/// False when the limit has passed.
bool initiateTemi(KvdMgrExchange& exchange)
{
    for (;;) {
        const u32 error = node::TarsoTemi_initiateService(TEMI_CLIENT, TEMI_PROTOCOL);
        if (error == 0) return true;
        KVD_TRACE(TRACE_TUMGR_HWDIAG, TRACE_INFO,
                  "WARNING: TarsoTemi_initiateService() failed (error %u), retrying ...", error);
        if (!KvdLoz6TuMgr_pause(exchange, TEMI_RETRY_ms)) return false;
    }
}

/// At the start it is tried for as long as the service isn't there: its restart type decides on the hardware.
void initiateTemiAtStart()
{
    KvdMgrExchange unlimited{TRACE_TUMGR_HWDIAG, TEMI, 0};
    initiateTemi(unlimited);
}

/// Report number of a failed hardware initiation, 0 when its result is none that is known.
u32 reportNumberOfInit(u32 hwInitResult)
{
    switch (hwInitResult) {
    case 1: return REPORT_EEPROM;
    case 2: return REPORT_MULTIPLICATOR;
    case 3: return REPORT_BOARD_TYPE;
    case 4: return REPORT_BASE_ADDRESS;
    default: KVD_TRACE(TRACE_TUMGR_HWDIAG, TRACE_INFO, "Unknown result from tuhwif."); return 0;
    }
}

struct TestOutcome {
    u32 result = RESULT_PASSED;
    char message[64] = "";
    const char* name = "";
};

bool setMonitor(u32 hm, const MonitorMode& mode)
{
    if (tuHwIf_hwDiag(hm, mode.mode) == 0) return true;
    KVD_TRACE(TRACE_TUMGR_HWDIAG, TRACE_INFO, "tuHwIf_hwDiag failed with hm =%d, mode=%s",
              static_cast<i32>(hm), mode.name);
    return false;
}

/// Feeds the detector with nothing, then with the test clock; the reference is put back in every case.
void hmTest(const ToggleDetector& td, TestOutcome& outcome)
{
    const u32 hm = td.hm;
    outcome.name = td.testName;
    outcome.result = RESULT_FAILED;
    setMonitor(hm, ZERO_IN_TD_ON);
    ose::delay(MONITOR_SETTLE_ms);
    if ((tuHwIf_readToggleStatus() & td.mask) != 0) {
        std::snprintf(outcome.message, sizeof outcome.message, "Zero in to HM %d failed",
                      static_cast<i32>(hm));
    } else if (!setMonitor(hm, TU_HM_CLK_IN_TD_ON)) {
        outcome.result = RESULT_PASSED;
    } else {
        ose::delay(MONITOR_SETTLE_ms);
        if ((tuHwIf_readToggleStatus() & td.mask) != 0)
            outcome.result = RESULT_PASSED;
        else
            std::snprintf(outcome.message, sizeof outcome.message, "Clock in to HM %d failed",
                          static_cast<i32>(hm));
    }
    if (outcome.result == RESULT_PASSED)
        std::snprintf(outcome.message, sizeof outcome.message, "HM test successful");
    setMonitor(hm, REF_IN_TD_ON);
}

void synthFeedbackTest(TestOutcome& outcome)
{
    outcome.name = "LOZ6 SynthC Feedback Test";
    if ((tuHwIf_readSynthStatus() & FEEDBACK_30_72) == 0) {
        outcome.result = RESULT_FAILED;
        std::snprintf(outcome.message, sizeof outcome.message,
                      "Feedback is missing on 30,72 MHz at start up");
    } else {
        std::snprintf(outcome.message, sizeof outcome.message, "Feedback check on 30,72 MHz successfull");
    }
    KVD_TRACE(TRACE_TUMGR_HWDIAG, TRACE_INFO, "%s", outcome.message);
}

TestOutcome runTest(u32 test)
{
    TestOutcome outcome;
    if (test == TEST_SYNTH_FEEDBACK) {
        synthFeedbackTest(outcome);
        KVD_TRACE(TRACE_TUMGR_HWDIAG, TRACE_INFO, "Last test performed.");
        return outcome;
    }
    hmTest(TD[test - 1], outcome);
    return outcome;
}

/// The start-up sequence as the service drives it.
struct StartUp {
    u32& restartType;
    const u32 hwInitResult;
    u32 test = 1;                       // the next one
    u8 result = STARTUP_PASSED;
    bool isSettled = false;             // the last answer was given: a failure stands, come what may
};

void onDoTest(const TarsoTemiDoTestInd& ind, StartUp& startUp)
{
    if (startUp.isSettled) {
        KVD_TRACE(TRACE_TUMGR_HWDIAG, TRACE_ERROR, "order to test after the last test, dropped");
        return;
    }
    startUp.restartType = ind.restartType;
    TestOutcome outcome;
    u32 report = startUp.test;
    bool last = true;
    if (startUp.hwInitResult != 0) {
        outcome.result = RESULT_FAILED;
        outcome.name = "LOZ6 Initiate";
        std::snprintf(outcome.message, sizeof outcome.message, "Start of the hardware failed");
        report = reportNumberOfInit(startUp.hwInitResult);
    } else if (ind.restartType > LAST_RESTART_TYPE_WITH_TESTS) {
        std::snprintf(outcome.message, sizeof outcome.message, "No HW tests requested at restart");
        KVD_TRACE(TRACE_TUMGR_HWDIAG, TRACE_INFO, "%s", outcome.message);
    } else {
        outcome = runTest(startUp.test);
        last = outcome.result == RESULT_FAILED || startUp.test == TEST_SYNTH_FEEDBACK;
    }
    if (outcome.result == RESULT_FAILED) {
        startUp.result = STARTUP_FAILED;
        KvdLoz6HwDiag_reportError(report);
    }
    node::TarsoTemi_doTestResponse(last ? 1 : 0, startUp.test, outcome.name, outcome.result, outcome.message);
    ++startUp.test;
    if (!last) return;
    startUp.isSettled = true;
    node::TarsoTemi_terminateService();
}

/// True when it ends the sequence.
bool onStartUpSignal(const Signal* sig, StartUp& startUp)
{
    if (sig->sigNo == TARSO_TEMI_DO_TEST_IND) {
        const auto* ind = as<TarsoTemiDoTestInd>(sig);
        if (ind != nullptr) onDoTest(*ind, startUp);
        return false;
    }
    const u32 result = node::TarsoTemi_internal(sig);
    switch (sig->sigNo) {
    case TARSO_TEMI_INITIATE_SERVICE_REJ:
        if (startUp.result == STARTUP_PASSED) startUp.result = STARTUP_NO_ANSWER;
        return true;
    case TARSO_TEMI_TERMINATE_SERVICE_CFM: return true;
    case TARSO_TEMI_SERVER_DOWN_IND:
        if (result != 0) return false;
        if (startUp.isSettled) return true;      // it has no confirmation to give any more
        startUp.test = 1;                        // another service begins from the first
        initiateTemiAtStart();
        return false;
    default: return false;
    }
}

void indicateRunTimeFault()
{
    const u32 error = node::TarsoTemi_testResultInd(TEST_RUNTIME, "Runtime fault", RESULT_FAILED,
                                                    "HW fault at runtime detected");
    if (error != 0)
        KVD_TRACE(TRACE_TUMGR_HWDIAG, TRACE_INFO, "TarsoTemi_testResultInd failed (error %u)", error);
}

/// True when it ends the exchange.
bool onRunTimeAnswer(const Signal* sig, KvdMgrExchange& exchange)
{
    const u32 result = node::TarsoTemi_internal(sig);
    switch (sig->sigNo) {
    case TARSO_TEMI_INITIATE_SERVICE_CFM: indicateRunTimeFault();                          return false;
    case TARSO_TEMI_SERVER_DOWN_IND:      return result == 0 && !initiateTemi(exchange);
    case TARSO_TEMI_TEST_RESULT_RSP:
    case TARSO_TEMI_INITIATE_SERVICE_REJ: return true;
    default:                              return false;
    }
}

/// The test service is told of a fault that showed in running. Blocks the manager meanwhile, but not for
/// long: a fault that stays is found, and told, at the next check.
void reportRunTimeFault()
{
    KvdMgrExchange exchange{TRACE_TUMGR_HWDIAG, TEMI, MGR_EXCHANGE_RUNNING_ms};
    for (bool isOver = !initiateTemi(exchange); !isOver;) {
        Signal* sig = KvdLoz6TuMgr_await(exchange, TEMI_ANSWERS, "its report");
        if (sig == nullptr) break;
        isOver = onRunTimeAnswer(sig, exchange);
        ose::free_buf(&sig);
    }
    node::TarsoTemi_forget();
}

/// A detector that still sees a signal with its input cut off is broken.
bool detectorPasses(const ToggleDetector& td)
{
    if ((tuHwIf_readToggleStatus() & td.mask) == 0) return true;
    bool passes = true;
    if (setMonitor(td.hm, REF_IN_TD_OFF)) {
        KVD_TRACE(TRACE_TUMGR_HWDIAG, TRACE_3, "Waiting 10ms");
        ose::delay(MONITOR_SETTLE_ms);
        if ((tuHwIf_readToggleStatus() & td.mask) != 0) {
            KVD_TRACE(TRACE_TUMGR_HWDIAG, TRACE_INFO, "Zero in to HM test failed for TD=%d",
                      static_cast<i32>(td.hm));
            passes = false;
        }
    }
    setMonitor(td.hm, REF_IN_TD_ON);
    return passes;
}

/// False when the missing feedback is a fault, which is then reported.
bool checkFeedback(u32 synthStatus)
{
    if ((synthStatus & FEEDBACK_30_72) == 0) {
        if (s->feedbackMissing != 0 || s->FeedbackMissingCounter >= FEEDBACK_MISSES_MAX) {
            KvdLoz6Fifo_dump();
            KvdLoz6HwDiag_writeLog(LOG_MCH);
            reportRunTimeFault();
            return false;
        }
        s->feedbackMissing = 1;
        ++s->FeedbackMissingCounter;
        KVD_TRACE(TRACE_TUMGR_HWDIAG, TRACE_INFO, "Feedback is missing on 30,72 MHz, counter = %d",
                  s->FeedbackMissingCounter);
        return true;
    }
    KVD_TRACE(TRACE_TUMGR_HWDIAG, TRACE_3, "Feedback is on 30,72 MHz is present");
    s->feedbackMissing = 0;
    if (s->checkCount >= FORGIVING_CHECKS) {
        s->checkCount = 0;
        if (s->FeedbackMissingCounter > 0) --s->FeedbackMissingCounter;
        KVD_TRACE(TRACE_TUMGR_HWDIAG, TRACE_INFO,
                  "Forgiving time! Decrease FeedbackMissingCounter by one."
                  "TimeCounter = %u , FeedbackMissingCounter = %hhu",
                  s->checkCount, s->FeedbackMissingCounter);
    }
    return true;
}

void reportFallenLock(u32 synthStatus, u32 bit, LogEntry entry)
{
    const bool fell = (s->lastSynthStatus & bit) != 0 && (synthStatus & bit) == 0;
    if (!fell) return;
    KvdLoz6Fifo_dump();
    KvdLoz6HwDiag_writeLog(entry);
}

/// Loss of tracking: a synthesiser out of lock in two checks in a row while a reference is followed.
void checkTracking(u32 synthStatus)
{
    constexpr u32 BOTH = SYNTH_C_LOCKED | SYNTH_B_LOCKED;
    if (KvdLoz6TuReg_isRegulatingOnRef() != 0 && (synthStatus & BOTH) < BOTH) {
        s->ltrPending = !s->ltrPending;
        if (!s->ltrPending) {
            s->ltrDetected = true;
            KVD_TRACE(TRACE_TUMGR_HWDIAG, TRACE_INFO, "ltrDetected = True");
            reportFallenLock(synthStatus, SYNTH_C_LOCKED, LOG_MCI);
            reportFallenLock(synthStatus, SYNTH_B_LOCKED, LOG_MCJ);
            s->lastSynthStatus = synthStatus;
        }
    } else {
        s->ltrPending = s->ltrDetected = false;
        s->lastSynthStatus = synthStatus;
        KVD_TRACE(TRACE_TUMGR_HWDIAG, TRACE_3, "ltrDetected = False");
    }
    KvdLoz6TuIifAdm_updateLtr(s->ltrDetected);
}

}  // namespace

u8 KvdLoz6HwDiag_startUp(u32& restartType, u32 hwInitResult)
{
    StartUp startUp{restartType, hwInitResult};
    initiateTemiAtStart();
    for (bool isOver = false; !isOver;) {
        KvdMgrExchange exchange{TRACE_TUMGR_HWDIAG, TEMI, TEMI_ANSWER_ms};
        Signal* sig = KvdLoz6TuMgr_await(exchange, TEMI_ANSWERS, "its tests");
        if (sig == nullptr) {
            node::TarsoTemi_forget();
            break;
        }
        isOver = onStartUpSignal(sig, startUp);
        ose::free_buf(&sig);
    }
    return startUp.isSettled ? startUp.result : STARTUP_NO_ANSWER;
}

void KvdLoz6HwDiag_runTimeCheck()
{
    ++s->checkCount;
    for (const ToggleDetector& td : TD) {
        if (detectorPasses(td)) continue;
        KvdLoz6HwDiag_writeLog(td.brokenInRunning);
        reportRunTimeFault();
        return;
    }
    const u32 synthStatus = tuHwIf_readSynthStatus();
    if (checkFeedback(synthStatus)) checkTracking(synthStatus);
}
