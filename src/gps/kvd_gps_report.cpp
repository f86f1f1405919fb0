// What the main processor is told of the GPS reference: status with its text, alarm suppression,
// the receiver's self-test, quality level.
#include "base/trace_groups.h"
#include "gps/kvd_gps_furuno.h"
#include "gps/kvd_gps_int.h"
#include "gps/kvd_gps_norvane.h"
#include "mp/kvd_iifadm_send.h"
#include "node/trace.h"
#include "ose/ose.h"
#include "reg/kvd_reg.h"
#include "sig/ref_types.h"

#include <cstdio>

namespace {

using gps::state;

// ms
constexpr OSTIME SUPPRESSION_TIME = 30'000;   // a receiver that starts isn't a fault yet
constexpr OSTIME ADDITIONAL_INFO_TIME = 16'000;
constexpr OSTIME SELF_TEST_TIME = 15'000;

enum GpsStatus : u8 { GPS_STATUS_UNKNOWN = 0, GPS_STATUS_OK = 1, GPS_STATUS_FAULT = 2 };

constexpr u8 SELF_TEST_FAULTS = 0xFB;   // bit 2 of the code is no fault

bool isSuppressed() { return state().suprAlarmTmoRef.runs(); }
bool isTestMode() { return KvdLoz6TuReg_testMode() != 0; }
u32  gpssType() { return KvdLoz6TuGps_receiver().gpssType; }

// ---- self-test ----------------------------------------------------------------------------------

bool selfTestFails()
{
    const GpsSelfTestRecord& record = KvdLoz6TuGps_selfTestRecord();
    return gpssType() == GPSS_FURUNO_GPS02 && (record.code & SELF_TEST_FAULTS) != 0 && record.gppprCount != 0;
}

void startSelfTestTimer()
{
    if (!KvdTimer_start(state().waitForSelfTestTmoRef, SELF_TEST_TIME, KVD_TUGPS_SELF_TEST_TIMEOUT))
        KVD_TRACE(TRACE_TUGPS, TRACE_ERROR, "waitForSelfTestTmoRef failed to start!");
}

// ---- status -------------------------------------------------------------------------------------

void sendAlarm(const char* text)
{
    state().alarmActive = 1;
    KvdLoz6TuIifAdm_sendGpsStatus(GPS_STATUS_FAULT, text);
}

void reportSelfTestFault()
{
    char text[64];
    std::snprintf(text, sizeof text, "%s (0x%X)", "GPSS self-test failed",
                  u32{KvdLoz6TuGps_selfTestRecord().code});
    sendAlarm(text);
    state().selfTestAlarmShown = 1;
}

void reportGood()
{
    const bool tested = gpssType() == GPSS_FURUNO_GPS02 && KvdLoz6TuGps_selfTestRecord().gppprCount != 0;
    state().alarmActive = 0;
    KvdLoz6TuIifAdm_sendGpsStatus(GPS_STATUS_OK, tested ? "GPSS self-test result: OK" : "OK");
}

void reportFaultOfState()
{
    switch (KvdLoz6TuGps_gpsState()) {
    case GPS_WAIT_FOR_ANY_MSG: sendAlarm("No messages received from the GPS antenna"); break;
    case GPS_WAIT_FOR_VALID_MSG: sendAlarm("Unexpected messages received from the GPS antenna"); break;
    case GPS_WAIT_FOR_OPERATIONAL: sendAlarm("No usable time received from the GPS antenna"); break;
    default:
        KVD_TRACE(TRACE_TUGPS, TRACE_INFO, "Unhandled combination(gps%d,ref%u)",
                  static_cast<int>(KvdLoz6TuGps_gpsState()), u32{state().tuGpsRefType});
        sendAlarm("Unknown error");
        break;
    }
}

bool isGood() { return isTestMode() || state().tuGpsRefType == TU_REF || KvdLoz6TuGps_isOperational(); }

/// Starts the delay of a change of an alarm's text, or starts it over.
void delayAdditionalInfo()
{
    if (!KvdTimer_restart(state().additionalInfoSuprTmoRef, ADDITIONAL_INFO_TIME,
                          KVD_TUGPS_SUPPR_ADDINFO_TIMEOUT))
        KVD_TRACE(TRACE_TUGPS, TRACE_ERROR, "Timer additionalInfoSuprTmoRef failed to start!");
}

u32 clockQuality()
{
    switch (gpssType()) {
    case GPSS_NORVANE_COMBINED:
    case GPSS_NORVANE: return KvdLoz6TuGps_norvane().gpssStatus > 1 ? 1 : 0;
    case GPSS_FURUNO:
    case GPSS_FURUNO_GPS02: {
        const u32 timeStandard = KvdLoz6TuGps_timeStandard();
        return timeStandard == 2 || timeStandard == 3 ? 0 : 1;
    }
    default: return 1;
    }
}

}  // namespace

void gps::startAlarmSuppression()
{
    if (!KvdTimer_start(state().suprAlarmTmoRef, SUPPRESSION_TIME, KVD_TUGPS_SUPR_ALARM_TIMEOUT))
        KVD_TRACE(TRACE_TUGPS, TRACE_ERROR, "Timer failed to start for alarmSupression (%dms)",
                  static_cast<int>(SUPPRESSION_TIME));
}

void gps::endAlarmSuppression()
{
    if (!isSuppressed()) return;
    KvdTimer_cancel(state().suprAlarmTmoRef);
    // Its time-out would have told the fault. An alarm that stands changes its text by a timer of its own.
    if (state().alarmActive == 0) report();
}

void gps::report()
{
    if (state().supervision == 0 || gpssType() == GPSS_PENDING) return;
    if (state().present1pps == 0) {
        state().selfTestAlarmShown = 0;
        sendAlarm("Loss of signal");
    } else if (!isTestMode() && state().tuGpsRefType == GPS_REF && !isSuppressed() && selfTestFails()) {
        reportSelfTestFault();
    } else if (isGood()) {
        state().selfTestAlarmShown = 0;
        reportGood();
    } else if (!isSuppressed()) {
        state().selfTestAlarmShown = 0;
        reportFaultOfState();
    } else if (state().forceReport) {
        KvdLoz6TuIifAdm_sendGpsStatus(GPS_STATUS_UNKNOWN, "OK");
    }
}

void gps::reportStatusChange()
{
    const bool untoldFault = selfTestFails() && state().selfTestAlarmShown == 0;
    if (state().alarmActive == 0 || untoldFault)
        report();
    else
        delayAdditionalInfo();
}

void gps::onSuprAlarmTimeout()
{
    if (KvdTimer_expired(state().suprAlarmTmoRef)) report();
}

void gps::onAdditionalInfoTimeout()
{
    if (KvdTimer_expired(state().additionalInfoSuprTmoRef)) report();
}

void gps::onSelfTestTimeout()
{
    if (KvdTimer_expired(state().waitForSelfTestTmoRef)) checkSelfTest();
}

void gps::checkSelfTest()
{
    if (gpssType() == GPSS_FURUNO)
        KVD_TRACE(TRACE_TUGPS, TRACE_INFO, "No GPSS Self-Test requested for GPS01");
    if (gpssType() != GPSS_FURUNO_GPS02) return;
    startSelfTestTimer();
    const u8 code = KvdLoz6TuGps_selfTestRecord().code;
    if (selfTestFails()) {
        if (code != state().lastSelfTestCode) reportStatusChange();
    } else if (state().selfTestAlarmShown != 0) {
        report();
    }
    state().lastSelfTestCode = code;
}

void gps::sendQualityLevel()
{
    if (state().supervision == 0) return;
    KvdLoz6TuIifAdm_sendQualityLevelInd(GPS_FRO_ID, GPS_FRO_CLASS, clockQuality(), 0);
}
