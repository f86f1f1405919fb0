// The operator's view of the GPS reference: section "tugps" of kvdinfo, and the command gpsstatus.
// Both read the manager's state from another process, without a lock: a line may mix two seconds.
#include "base/tu_common.h"
#include "gps/kvd_gps_common.h"
#include "gps/kvd_gps_furuno.h"
#include "gps/kvd_gps_hrv_supervision.h"
#include "gps/kvd_gps_int.h"
#include "gps/kvd_gps_nmea.h"
#include "gps/kvd_gps_norvane.h"
#include "gps/kvd_gps_recovery.h"
#include "gps/kvd_gps_send.h"
#include "gps/kvd_gps_serial.h"
#include "gps/kvd_gps_trimble.h"
#include "node/platform.h"
#include "unit/kvd_ref_table.h"

#include <algorithm>
#include <span>

namespace {

using gps::state;
using node::shellPrintf;

const char* yesNo(u32 flag) { return flag != 0 ? "yes" : "no"; }
const char* running(const KvdTimer& timer) { return timer.runs() ? "running" : "not running"; }

const char* observationModeText(u8 mode)
{
    switch (mode) {
    case GPS_SURVEY:        return "Survey";
    case GPS_POSITION_HOLD: return "Position Hold";
    default:                return "Unknown";
    }
}

const char* glonassText(u8 capability)
{
    return capability == 1 || capability == 2 ? "Glonass supported" : "Glonass not supported";
}

// ---- receiver -----------------------------------------------------------------------------------

void printCoordinate(const char* name, const GpsCoordinate& at)
{
    constexpr char DIRECTIONS[] = {'N', 'E', 'S', 'W'};
    shellPrintf("%s%u deg %u.%04u min %c", name, u32{at.deg}, u32{at.min}, u32{at.fractMin},
                DIRECTIONS[at.dir % 4]);
}

void printPosition(const char* name, const GpsPosition& position)
{
    printCoordinate(name, position.latitude);
    printCoordinate(", ", position.longitude);
    shellPrintf(", %.1f m\n", position.altitude);
}

void printReceiver()
{
    const GpsReceiver& receiver = KvdLoz6TuGps_receiver();
    shellPrintf("   GPS state              : %s (%u)\n", KvdLoz6TuGps_gpsStateText(KvdLoz6TuGps_gpsState()),
                KvdLoz6TuGps_gpsState());
    shellPrintf("   GPS receiver           : %s (%u)\n", KvdLoz6TuGps_gpssTypeText(receiver.gpssType),
                receiver.gpssType);
    shellPrintf("   Observation mode       : %s\n", observationModeText(receiver.observationMode));
    shellPrintf("   Fixed position wanted  : %s\n", yesNo(state().fixedPosition));
    shellPrintf("   GPS week, TOW          : %u, %u s\n", receiver.gpsTimeWeek, receiver.gpsTow);
    const GpsNorvane& norvane = KvdLoz6TuGps_norvane();
    shellPrintf("   GPSS status            : %s (%u), faulty %u\n",
                KvdLoz6TuGps_gpssStatusText(norvane.gpssStatus), u32{norvane.gpssStatus},
                u32{norvane.gpssFaulty});
    shellPrintf("   GLONASS                : %s\n", glonassText(norvane.glonassCapability));
    shellPrintf("   Time standard          : %u\n", KvdLoz6TuGps_timeStandard());
    printPosition("   Instantaneous position : ", receiver.instantaneous);
    printPosition("   Averaged position      : ", receiver.averaged);
}

void printVersions()
{
    const GpsNorvane& norvane = KvdLoz6TuGps_norvane();
    shellPrintf("   Product Designation    : %s\n", norvane.productDesignation);
    shellPrintf("   Product No.            : %s\n", norvane.productNo);
    shellPrintf("   Product Rev.           : %s\n", norvane.productRev);
    shellPrintf("   Additional Information : %s\n", norvane.additionalInformation);
}

void printModule(const GpsModule& module)
{
    shellPrintf("   Hardware ID            : %s\n", module.hardwareId);
    shellPrintf("   Serial number          : %s\n", module.serialNumber);
    shellPrintf("   Manufacture date       : %s\n", module.manufactureDate);
    shellPrintf("   Firmware version       : %s\n", module.firmwareVersion);
}

// ---- satellites ---------------------------------------------------------------------------------

void printSatellites()
{
    const GpsDop& dop = KvdLoz6TuGps_dop();
    shellPrintf("\n   Satellites in view     : %u (GPS %u, GLONASS %u), used for position: %u\n",
                u32{KvdLoz6TuGps_noOfSatellitesInView()}, u32{KvdLoz6TuGps_gpsInView()},
                u32{KvdLoz6TuGps_glonassInView()}, u32{KvdLoz6TuGps_noOfSatellitesForPosit()});
    shellPrintf("   PDOP, HDOP, VDOP       : %.1f, %.1f, %.1f\n", dop.PDOP, dop.HDOP, dop.VDOP);
    shellPrintf("      satNo  elevation  azimuth  SNR\n");
    for (const GpsSatellite& satellite : KvdLoz6TuGps_mergedSatellites()) {
        if (satellite.SVno == 0) continue;
        shellPrintf("      %5u  %9u  %7u  %3u\n", u32{satellite.SVno}, u32{satellite.elevation},
                    u32{satellite.azimuth}, u32{satellite.SNR});
    }
}

// ---- histories and machines ---------------------------------------------------------------------

void printStateHistory(u32 rows)
{
    const u8 held = KvdLoz6TuGps_stateHistoryCount();
    const u8 count = static_cast<u8>(std::min<u32>(rows, held));
    if (count == 0) return;
    shellPrintf("\n   State history, newest first:\n");
    for (u8 row = 0; row < count; ++row) {
        const GpsStateRecord& record = KvdLoz6TuGps_stateHistory(row);
        shellPrintf("      [%s] %s\n", record.time, KvdLoz6TuGps_gpsStateText(record.state));
    }
}

void printRecovery()
{
    const RecoveryCounters& counters = KvdLoz6TuGps_recoveryCounters();
    shellPrintf("\n   Recovery state         : %s\n",
                KvdLoz6TuGps_recoveryStateText(KvdLoz6TuGps_recoveryState()));
    shellPrintf("   Supervision status     : %s\n",
                KvdLoz6TuGps_supervisionStatusText(KvdLoz6TuGps_supervisionStatus()));
    shellPrintf("   Current attempted recoveries : %u\n", u32{counters.currentAttemptedRecoveries});
    shellPrintf("   Total attempted recoveries   : %u\n", u32{counters.totalAttemptedRecoveries});
    shellPrintf("   Unsuccessful recovery cycles : %u\n", u32{counters.unsuccessfulRecoveryCycles});
    shellPrintf("   HrvSwRestartsCounter         : %u\n", u32{counters.HrvSwRestartsCounter});
    shellPrintf("   HrvSwRestartsCounterTotal    : %u\n", u32{counters.HrvSwRestartsCounterTotal});
    shellPrintf("   Changes of the supervision status:\n");
    KvdLoz6TuGps_printRecoveryHistory();
    shellPrintf("\n   HRV supervision state  : %s\n", KvdLoz6TuGps_hrvStateText(KvdLoz6TuGps_hrvState()));
    shellPrintf("   Reset attempts counter : %u\n", u32{KvdLoz6TuGps_hrvResetAttempts()});
    shellPrintf("   Changes of the HRV supervision state:\n");
    KvdLoz6TuGps_printHrvHistory();
}

// ---- counters and timers ------------------------------------------------------------------------

struct CounterLine {
    const char* name;
    u32 value;
};

void printCounterLines(std::span<const CounterLine> lines)
{
    for (const CounterLine& line : lines) shellPrintf("   %-22s : %u\n", line.name, line.value);
}

void printCounters()
{
    const GpsSerialCounters& serial = KvdLoz6TuGps_serialCounters();
    const GpsSendCounters& send = KvdLoz6TuGps_sendCounters();
    const GpsNmeaCounters& nmea = KvdLoz6TuGps_nmeaCounters();
    const GpsNorvaneCounters& norvane = KvdLoz6TuGps_norvaneCounters();
    const GpsFurunoCounters& furuno = KvdLoz6TuGps_furunoCounters();
    const GpsTrimbleCounters& trimble = KvdLoz6TuGps_trimbleCounters();
    const GpsLastSentence& last = KvdLoz6TuGps_lastSentence();
    shellPrintf("\n");
    printCounterLines(std::to_array<CounterLine>({
        {"numberOfBytesRec", serial.numberOfBytesRec},
        {"numberOfNmeaMsgs", state().numberOfNmeaMsgs},
        {"numberOfTooLongMsgs", serial.numberOfTooLongMsgs},
        {"numberOfGPGGA", nmea.numberOfGPGGA},
        {"numberOfGPGSA", nmea.numberOfGPGSA},
        {"numberOfGPGSV", nmea.numberOfGPGSV},
        {"numberOfGLGSV", nmea.numberOfGLGSV},
        {"numberOfPFECMsgs", furuno.numberOfPFECMsgs},
        {"numberOfPFECGPtps", furuno.numberOfPFECGPtps},
        {"numberOfPFECGPanc", furuno.numberOfPFECGPanc},
        {"numberOfPNVXGPppr", norvane.numberOfPNVXGPppr},
        {"numberOfPNVXGPsts", norvane.numberOfPNVXGPsts},
        {"numberOfPNVXGPver", norvane.numberOfPNVXGPver},
        {"numberOfPNVXGPavp", norvane.numberOfPNVXGPavp},
        {"numberOfPNVXGPout", norvane.numberOfPNVXGPout},
        {"numberOfPTNLRBA", trimble.numberOfPTNLRBA},
        {"numberOfPTNLRVRH", trimble.numberOfPTNLRVRH},
        {"numberOfPTNLRVRS", trimble.numberOfPTNLRVRS},
        {"sentences taken", last.taken},
        {"sentences refused", last.refused},
        {"bytes in send queue", KvdLoz6TuGps_queuedBytes()},
        {"numberOfBytesQueued", send.numberOfBytesQueued},
        {"numberOfBytesSent", send.numberOfBytesSent},
        {"numberOfPTNLQVRS", send.numberOfPTNLQVRS},
        {"numberOfPTNLQVRH", send.numberOfPTNLQVRH},
        {"numberOfPTNLQBA", send.numberOfPTNLQBA},
        {"numberOfPNVXGPrst", send.numberOfPNVXGPrst},
        {"numberOfPTNLSRT", send.numberOfPTNLSRT},
        {"numberOfPNVXGPdbgG", send.numberOfPNVXGPdbgG},
        {"numberOfPNVXGPdbgRI", send.numberOfPNVXGPdbgRI},
        {"numberOfPNVXGPdbgRO", send.numberOfPNVXGPdbgRO},
        {"numberOfPNVXGPdbgRS", send.numberOfPNVXGPdbgRS},
    }));
}

void printFrontEnd()
{
    const gps::State& s = state();
    const GpsReceiver& receiver = KvdLoz6TuGps_receiver();
    const GpsLastSentence& last = KvdLoz6TuGps_lastSentence();
    shellPrintf("   gpssType_backup        : %s (%u)\n", KvdLoz6TuGps_gpssTypeText(receiver.gpssType_backup),
                receiver.gpssType_backup);
    shellPrintf("   tuGpsRefType           : %s (%u)\n", KvdLoz6TuRef_refTypeText(s.tuGpsRefType),
                u32{s.tuGpsRefType});
    shellPrintf("   supervision status     : %u\n", s.supervision);
    shellPrintf("   1PPS present           : %s\n", yesNo(s.present1pps));
    shellPrintf("   alarm active           : %s, self-test alarm shown: %s, force report: %s\n",
                yesNo(s.alarmActive), yesNo(s.selfTestAlarmShown), yesNo(s.forceReport));
    shellPrintf("   serial port open       : %s\n", yesNo(KvdLoz6TuGps_serialIsOpen() ? 1 : 0));
    shellPrintf("   sentence parsed last   : result %d, class %u, kind %u\n", last.result,
                u32{last.type.sentenceClass}, u32{last.type.kind});
    shellPrintf("   detection              : seen 0x%X, sentences %u\n", u32{s.detection.seenTypes},
                u32{s.detection.seenCount});
    shellPrintf("   time valid             : %s, time not valid: %s\n", yesNo(receiver.timeValid),
                yesNo(receiver.timeNotValid));
    shellPrintf("   gpsCurrentTime         : %s s\n", TuCommon_text(receiver.gpsCurrentTime));
    shellPrintf("   gpsCompensationDelay   : %s s\n", TuCommon_text(s.gpsCompensationDelay));
    shellPrintf("   delta0_pre             : %s s\n", TuCommon_text(s.gate.delta0_pre));
    shellPrintf("   preTimeOffset_c        : %u\n", s.gate.preTimeOffset_c);
    shellPrintf("   selectionProcessMode   : %u\n", u32{s.selectionProcessMode});
    shellPrintf("   mode retries           : %u\n", u32{s.modeRetries});
}

void printTimers()
{
    const gps::State& s = state();
    shellPrintf("\n   alarm suppression        : %s\n", running(s.suprAlarmTmoRef));
    shellPrintf("   additionalInfoSuprTmoRef : %s\n", running(s.additionalInfoSuprTmoRef));
    shellPrintf("   waitForValidTmoRef       : %s\n", running(s.waitForValidTmoRef));
    shellPrintf("   waitForOperationalTmoRef : %s\n", running(s.waitForOperationalTmoRef));
    shellPrintf("   operationalTmoRef        : %s\n", running(s.operationalTmoRef));
    shellPrintf("   validTmoRef              : %s\n", running(s.validTmoRef));
    shellPrintf("   waitForSelfTestTmoRef    : %s\n", running(s.waitForSelfTestTmoRef));
}

}  // namespace

void KvdLoz6TuGps_printInfo()
{
    shellPrintf("\n***** GPS *****\n");
    printReceiver();
    printVersions();
    printModule(KvdLoz6TuGps_module());
    printFrontEnd();
    printTimers();
    printCounters();
    printStateHistory(GPS_STATE_HISTORY);
    printRecovery();
}

void KvdLoz6TuGps_printStatus(u32 rows)
{
    shellPrintf("\n***** GPS status *****\n");
    printReceiver();
    printVersions();
    printModule(KvdLoz6TuGps_queryChipset());
    const char* const feedline = KvdLoz6TuGps_queryAntenna();
    if (feedline[0] != '\0') shellPrintf("   Antenna status         : %s\n", feedline);
    printSatellites();
    printCounters();
    printRecovery();
    printStateHistory(rows);
}
