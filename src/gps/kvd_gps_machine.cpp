// State machine of the GPS reference: from the first byte string to a time at each pulse, and what
// it makes of each sentence on the way.
#include "base/element_of.h"
#include "base/trace_groups.h"
#include "gps/kvd_gps_capture.h"
#include "gps/kvd_gps_common.h"
#include "gps/kvd_gps_int.h"
#include "gps/kvd_gps_nmea.h"
#include "gps/kvd_gps_norvane.h"
#include "gps/kvd_gps_recovery.h"
#include "gps/kvd_gps_send.h"
#include "gps/kvd_gps_trimble.h"
#include "node/sig.h"
#include "node/trace.h"
#include "ose/ose.h"

#include <span>

namespace {

using gps::state;

// ms
constexpr OSTIME WAIT_FOR_VALID_TIME       = 60'000;
constexpr OSTIME WAIT_FOR_OPERATIONAL_TIME = 60'000;
constexpr OSTIME OPERATIONAL_TIME          = 120'000;
constexpr OSTIME VALID_TIME                = 800;   // below the second between two timing sentences

constexpr u8 SETUP_AFTER = 6;   // timing sentences in another observation mode than the one wanted

// ---- timers -------------------------------------------------------------------------------------

/// Ends the present run, if any.
void start(KvdTimer& timer, OSTIME time_ms, SIGSELECT sigNo, const char* name)
{
    if (!KvdTimer_restart(timer, time_ms, sigNo))
        KVD_TRACE(TRACE_TUGPS, TRACE_ERROR, "Timer %s failed to start!", name);
}

void startWaitForValid()
{
    start(state().waitForValidTmoRef, WAIT_FOR_VALID_TIME, KVD_TUGPS_WAIT_FOR_VALID_MSG,
          "waitForValidTmoRef");
}

void startWaitForOperational()
{
    start(state().waitForOperationalTmoRef, WAIT_FOR_OPERATIONAL_TIME, KVD_TUGPS_WAIT_FOR_OPERATIONAL_TIMEOUT,
          "waitForOperationalTmoRef");
}

void startOperational()
{
    start(state().operationalTmoRef, OPERATIONAL_TIME, KVD_TUGPS_OPERATIONAL_TIMEOUT, "operationalTmoRef");
}

/// One that runs from before a time-out of the operational state goes on.
void startValid()
{
    if (KvdLoz6TuGps_gpsState() == GPS_OPERATIONAL && state().validTmoRef.runs()) return;
    start(state().validTmoRef, VALID_TIME, KVD_TUGPS_VALID_TIMEOUT, "validTmoRef");
}

// ---- observation mode ---------------------------------------------------------------------------

/// Asks the receiver for a fixed position or for a survey and remembers the wish.
void setUpMode(bool fixedPosition)
{
    if (KvdLoz6TuGps_gpsState() == GPS_UN_INIT) {
        KVD_TRACE(TRACE_TUGPS, TRACE_INFO, "Serial port unitialised, no data sent to GPSS.");
        return;
    }
    const u32 gpssType = KvdLoz6TuGps_receiver().gpssType;
    if (gpssType != GPSS_NORVANE_COMBINED && gpssType != GPSS_FURUNO_GPS02) return;
    KvdLoz6TuGps_queueModeSetup(fixedPosition);
    state().fixedPosition = fixedPosition ? 1 : 0;
}

/// True when the receiver has now been in another mode for as long as is tolerated.
bool countModeRetry()
{
    if (++state().modeRetries < SETUP_AFTER) return false;
    state().modeRetries = 0;
    return true;
}

void checkPositionMode()
{
    gps::tellFixedPosition();
    const GpsReceiver& receiver = KvdLoz6TuGps_receiver();
    const bool usable = receiver.timeNotValid == 0;
    const bool fixed = state().fixedPosition != 0;
    if (fixed && receiver.gpssType == GPSS_NORVANE_COMBINED && usable
        && receiver.observationMode != GPS_POSITION_HOLD) {
        if (KvdLoz6TuGps_norvane().GPsts_positionHoldMode == 0) {
            state().modeRetries = 0;
        } else if (countModeRetry()) {
            KVD_TRACE(TRACE_TUGPS, TRACE_INFO, "GPSS not in Fixed Observation Point mode, resending setup");
            setUpMode(true);
        }
    } else if (!fixed && usable && receiver.observationMode != GPS_SURVEY) {
        if (countModeRetry()) {
            KVD_TRACE(TRACE_TUGPS, TRACE_INFO, "GPSS not in Survey mode, resending setup");
            setUpMode(false);
        }
    } else {
        state().modeRetries = 0;
    }
}

// ---- which kind of receiver ---------------------------------------------------------------------

constexpr u8 SEEN_GPTPS = 1, SEEN_GPPPR = 2, SEEN_GPSTS = 4;
/// A receiver that hasn't sent GPsts by then is believed to have none.
constexpr u8 SETTLED_AFTER = 7;   // valid sentences

void noteSentence(u8& seenTypes, u8 kind)
{
    switch (kind) {
    case GPS_KIND_GPTPS: seenTypes |= SEEN_GPTPS; break;
    case GPS_KIND_GPPPR: seenTypes |= SEEN_GPPPR; break;
    case GPS_KIND_GPSTS: seenTypes |= SEEN_GPSTS; break;
    default: break;
    }
}

u32 typeOf(u8 seenTypes)
{
    const bool status = (seenTypes & SEEN_GPSTS) != 0;
    if ((seenTypes & SEEN_GPTPS) != 0) return status ? GPSS_FURUNO_GPS02 : GPSS_PENDING_FURUNO;
    if ((seenTypes & SEEN_GPPPR) != 0) return status ? GPSS_NORVANE_COMBINED : GPSS_PENDING;
    return GPSS_UNKNOWN;
}

void detect(u8 kind)
{
    const u32 gpssType = gps::detectReceiver(state().detection, kind);
    if (!gps::isSettled(gpssType)) return;

    state().detection = {};
    gps::enter(GPS_WAIT_FOR_OPERATIONAL);
    startWaitForOperational();
    if (gpssType == GPSS_FURUNO_GPS02) gps::checkSelfTest();
}

// ---- sentences, by state ------------------------------------------------------------------------

bool isTimingWithTime(const GpsSentenceType& type)
{
    return type.sentenceClass == GPS_CLASS_TIMING && KvdLoz6TuGps_receiver().timeValid == 1;
}

void inWaitForOperational(const GpsSentenceType& type)
{
    if (type.sentenceClass != GPS_CLASS_TIMING) return;
    KVD_TRACE(TRACE_TUGPS, TRACE_4, "Timing message received in wait for operational state");
    KvdTimer_cancel(state().waitForOperationalTmoRef);
    if (KvdLoz6TuGps_receiver().timeValid == 1) {
        startOperational();
        gps::enter(GPS_OPERATIONAL);
        KvdTimer_cancel(state().additionalInfoSuprTmoRef);
        gps::report();
    } else {
        startWaitForOperational();
    }
    gps::endAlarmSuppression();
    checkPositionMode();
}

void inOperational(const GpsSentenceType& type)
{
    if (!isTimingWithTime(type)) return;
    if (state().operationalTmoRef.runs()) startOperational();
    startValid();
    checkPositionMode();
    if (KvdLoz6TuGps_gpsState() == GPS_OPERATIONAL) gps::enter(GPS_OPERATIONAL_WITH_VALID_TIME);
}

void onParsedSentence(const char* text)
{
    const u32 gpsState = KvdLoz6TuGps_gpsState();
    GpsSentenceType type;
    if (!KvdLoz6TuGps_parseSentence(text, type)) {
        if (gpsState == GPS_WAIT_FOR_VALID_MSG) KVD_TRACE(TRACE_TUGPS, TRACE_INFO, "Not a valid message");
        return;
    }
    switch (gpsState) {
    case GPS_WAIT_FOR_VALID_MSG:
        KvdTimer_cancel(state().waitForValidTmoRef);
        detect(type.kind);
        break;
    case GPS_WAIT_FOR_OPERATIONAL: inWaitForOperational(type); break;
    default:                       inOperational(type);        break;
    }
    KvdLoz6TuGps_recoverySentence(type.kind);
}

void lookForReceiverAnew()
{
    KvdTimer_cancel(state().waitForSelfTestTmoRef);
    gps::enter(GPS_WAIT_FOR_ANY_MSG);
}

/// A time-out that finds the machine at rest doesn't wake it, wherever it comes from.
bool takeTimeout(KvdTimer& timer)
{
    return KvdTimer_expired(timer) && KvdLoz6TuGps_gpsState() != GPS_UN_INIT;
}

}  // namespace

u32 gps::detectReceiver(Detection& detection, u8 kind)
{
    noteSentence(detection.seenTypes, kind);
    u32 gpssType = typeOf(detection.seenTypes);
    if (detection.seenCount <= SETTLED_AFTER)
        ++detection.seenCount;
    else if (gpssType == GPSS_PENDING)
        gpssType = GPSS_NORVANE;
    else if (gpssType == GPSS_PENDING_FURUNO)
        gpssType = GPSS_FURUNO;
    KvdLoz6TuGps_setGpssType(gpssType);
    return gpssType;
}

bool gps::isSettled(u32 gpssType)
{
    return gpssType != GPSS_UNKNOWN && gpssType != GPSS_PENDING && gpssType != GPSS_PENDING_FURUNO;
}

const KvdTugpsNmeaMsgRec* gps::wholeSentence(Signal* sig)
{
    const auto* rec = as<KvdTugpsNmeaMsgRec>(sig);
    if (rec == nullptr) return nullptr;
    const std::span text(rec->text, ose::sigsize(&sig) - offsetof(KvdTugpsNmeaMsgRec, text));
    const char* const end = elementOf(text, rec->length);
    return end != nullptr && *end == '\0' ? rec : nullptr;
}

void gps::resetReceiverData()
{
    KvdLoz6TuGps_resetSatellites();
    KvdLoz6TuGps_resetVersion();
    KvdLoz6TuGps_resetModule();
    KvdLoz6TuGps_resetReceiver();
}

void gps::enter(u32 gpsState)
{
    KvdLoz6TuGps_storeGpsState(gpsState);
    if (gpsState == GPS_WAIT_FOR_ANY_MSG) resetReceiverData();
    if (gpsState >= GPS_WAIT_FOR_ANY_MSG && gpsState <= GPS_WAIT_FOR_OPERATIONAL) reportStatusChange();
}

void gps::gpsNmeaMsgRecv(Signal* sig)
{
    const KvdTugpsNmeaMsgRec* const rec = wholeSentence(sig);
    if (rec == nullptr) return;
    KvdLoz6TuGps_capture(rec->text, rec->length, GPS_CAPTURE_RECEIVED);
    ++state().numberOfNmeaMsgs;
    switch (KvdLoz6TuGps_gpsState()) {
    case GPS_UN_INIT:
    case GPS_INIT_SERIAL_PORT: break;
    case GPS_WAIT_FOR_ANY_MSG:
        enter(GPS_WAIT_FOR_VALID_MSG);
        startWaitForValid();
        break;
    case GPS_WAIT_FOR_VALID_MSG:
    case GPS_WAIT_FOR_OPERATIONAL:
    case GPS_OPERATIONAL:
    case GPS_OPERATIONAL_WITH_VALID_TIME: onParsedSentence(rec->text); break;
    default: KVD_TRACE(TRACE_TUGPS, TRACE_ERROR, "Unknown State"); break;
    }
}

void gps::onSerialPortInitialised()
{
    if (KvdLoz6TuGps_gpsState() == GPS_INIT_SERIAL_PORT) lookForReceiverAnew();
}

void gps::onWaitForValidTimeout()
{
    if (takeTimeout(state().waitForValidTmoRef)) lookForReceiverAnew();
}

void gps::onWaitForOperationalTimeout()
{
    if (takeTimeout(state().waitForOperationalTmoRef)) lookForReceiverAnew();
}

void gps::onOperationalTimeout()
{
    if (!takeTimeout(state().operationalTmoRef)) return;
    enter(GPS_WAIT_FOR_OPERATIONAL);
    startWaitForOperational();
}

void gps::onValidTimeout()
{
    if (!takeTimeout(state().validTmoRef)) return;
    KvdLoz6TuGps_receiverRecord().gpsCurrentTime = 0.0;
    enter(GPS_OPERATIONAL);
}

void gps::setFixedPosition(u32 wanted) { setUpMode(wanted == 1); }

void gps::cancelAllTimers()
{
    State& st = state();
    for (KvdTimer* timer :
         {&st.suprAlarmTmoRef, &st.additionalInfoSuprTmoRef, &st.waitForValidTmoRef,
          &st.waitForOperationalTmoRef, &st.operationalTmoRef, &st.validTmoRef, &st.waitForSelfTestTmoRef})
        KvdTimer_cancel(*timer);
    KvdLoz6TuGps_cancelSatelliteTimers();
    KvdLoz6TuGps_stopSending();
}
