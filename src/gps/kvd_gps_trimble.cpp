#include "gps/kvd_gps_trimble.h"

#include "gps/kvd_gps.h"
#include "gps/kvd_gps_fields.h"
#include "gps/kvd_gps_out.h"
#include "gps/kvd_gps_receiver.h"
#include "gps/kvd_gps_send.h"
#include "ose/module_data.h"
#include "ose/ose.h"
#include "sig/gps_sig.h"
#include "sig/ref_types.h"
#include "unit/kvd_gps_state.h"
#include "unit/kvd_unit_process.h"

#include <cstring>

namespace {

using gps::Fields;
using gps::LEVEL_CONTENT;
using gps::LEVEL_REFUSED;
using gps::Sentence;

constexpr OSTIME ANSWER_WAIT = 2000;   // ms, a command waits a second for its turn to be sent

struct State {
    GpsModule module;
    u32 antennaFeedline = FEEDLINE_UNKNOWN;
    GpsTrimbleCounters counters;
};
ose::ModuleData<State> s;

// ---- sentences ----

constexpr const char* RVR = "KvdLoz6TuGps_parsePTNLRVR";
constexpr const char* RBA = "KvdLoz6TuGps_parsePTNLRBA";

void tellWaiter(SIGSELECT sigNo)
{
    const PROCESS waiter = KvdLoz6TuGps_waiter();
    if (waiter == 0) return;
    Signal* sig = ose::alloc(sizeof(Signal), sigNo);
    ose::send(&sig, waiter);
}

/// Appends a field to a text of the record, with a point before it unless it is the first.
void join(char (&text)[MODULE_TEXT], const char* part)
{
    if (text[0] != '\0') std::strcat(text, ".");
    std::strcat(text, part);
}

using RvrFields = Fields<MODULE_TEXT>;

bool parseIdentity(RvrFields& field)
{
    GpsModule read = s->module;
    read.manufactureDate[0] = '\0';
    if (!field.nextExactly("Hardware ID", 4)) return false;
    std::memcpy(read.hardwareId, field.value, MODULE_TEXT);
    if (!field.next()) return false;
    if (!field.nextExactly("Serial Number", 8)) return false;
    std::memcpy(read.serialNumber, field.value, MODULE_TEXT);
    if (!field.nextExactly("Manf date Month", 2)) return false;
    join(read.manufactureDate, field.value);
    if (!field.nextExactly("Manf date Day", 2)) return false;
    join(read.manufactureDate, field.value);
    if (!field.nextExactly("Manf date Year", 4)) return false;
    join(read.manufactureDate, field.value);

    s->module = read;
    KVD_TRACE(TRACE_TUGPS, LEVEL_CONTENT, "PTNLRVR H sentence parsed hardware ID: %s", read.hardwareId);
    KVD_TRACE(TRACE_TUGPS, LEVEL_CONTENT, "PTNLRVR H sentence parsed serial number: %s", read.serialNumber);
    KVD_TRACE(TRACE_TUGPS, LEVEL_CONTENT, "PTNLRVR H sentence parsed manufacturing date: %s",
              read.manufactureDate);
    return true;
}

bool parseFirmware(RvrFields& field)
{
    field.splitAtPoint();
    char version[MODULE_TEXT] = "";
    if (!field.nextExactly("Firmware major version", 2)) return false;
    join(version, field.value);
    if (!field.nextExactly("Firmware minor version", 2)) return false;
    join(version, field.value);
    if (!field.nextExactly("Firmware build version", 2)) return false;
    join(version, field.value);
    if (!field.nextExactly("Manf date Month", 2)) return false;
    if (!field.nextExactly("Manf date Day", 2)) return false;
    if (!field.nextExactly("Manf date Year", 4)) return false;

    KVD_TRACE(TRACE_TUGPS, LEVEL_CONTENT, "PTNLRVR S sentence parsed firmware version: %s", version);
    std::memcpy(s->module.firmwareVersion, version, MODULE_TEXT);
    tellWaiter(KVD_TUGPS_CHIP_MSG_PARSED_IND);
    return true;
}

// ---- queries ----

/// An answer to an earlier question may have come too late: it isn't this one's.
void dropLateAnswers(const SIGSELECT* selection)
{
    while (Signal* sig = ose::receive_w_tmo(0, selection)) ose::free_buf(&sig);
}

/// The module's command, and who waits for its answer.
void ask(const char* command)
{
    KvdLoz6TuGps_sendOneShot(command, true);
    Signal* sig = ose::alloc(sizeof(Signal), KVD_TUGPS_STATUS_MSG_SENT);
    ose::send(&sig, KvdLoz6TuMgr_pid());
}

bool awaitAnswer(const SIGSELECT* selection)
{
    Signal* sig = ose::receive_w_tmo(ANSWER_WAIT, selection);
    KvdLoz6TuGps_clearWaiter();
    if (sig == nullptr) return false;
    ose::free_buf(&sig);
    return true;
}

}  // namespace

bool KvdLoz6TuGps_parsePTNLRBA(const char* text)
{
    const Sentence sentence = gps::inspect(text);
    if (!gps::optionalChecksumPasses(sentence, RBA)) return false;
    if (!gps::lengthPasses(sentence, 8, 14, "KvdLoz6TuGps_parsePTNLRBA: PTNLRBA")) return false;
    Fields<9> field(sentence, "KvdLoz6TuGps_parsePTNLRBA: ");
    field.skipAddress();
    ++s->counters.numberOfPTNLRBA;
    if (!field.next("Antenna STATUS Message", 1)) return false;
    const u32 status = gps::toNumber(field.value);
    if (!field.next("Antenna FEEDLINE Message", 1)) return false;
    const u32 feedline = gps::toNumber(field.value);
    KVD_TRACE(TRACE_TUGPS, LEVEL_REFUSED, "%s: Antenna status value is %u, and Antenna feedline value is %u",
              RBA, status, feedline);
    const bool isKnown = field.is('0') || field.is('1') || field.is('2');
    s->antennaFeedline = isKnown ? feedline : u32{FEEDLINE_UNKNOWN};
    tellWaiter(KVD_TUGPS_STATUS_MSG_PARSED);
    return true;
}

bool KvdLoz6TuGps_parsePTNLRVR(const char* text)
{
    const Sentence sentence = gps::inspect(text);
    if (!gps::requiredChecksumPasses(sentence, RVR)) return false;
    if (!gps::lengthPasses(sentence, 8, 64, "KvdLoz6TuGps_parsePTNLRVR: PTNLRVR")) return false;
    RvrFields field(sentence, "KvdLoz6TuGps_parsePTNLRVR: ");
    field.skipAddress();
    if (!field.nextExactly("Type", 1)) return false;
    switch (field.value[0]) {
    case 'H': ++s->counters.numberOfPTNLRVRH; return parseIdentity(field);
    case 'S': ++s->counters.numberOfPTNLRVRS; return parseFirmware(field);
    default: KVD_TRACE(TRACE_TUGPS, LEVEL_REFUSED, "%s: Wrong PTNLRVR subfield!", RVR); return false;
    }
}

const GpsModule& KvdLoz6TuGps_module() { return s->module; }
void KvdLoz6TuGps_resetModule() { s->module = {}; }
u32 KvdLoz6TuGps_antennaFeedline() { return s->antennaFeedline; }
const GpsTrimbleCounters& KvdLoz6TuGps_trimbleCounters() { return s->counters; }
void KvdLoz6TuGps_clearTrimbleCounters() { s->counters = {}; }

const char* KvdLoz6TuGps_feedlineText(u32 feedline)
{
    switch (feedline) {
    case FEEDLINE_NORMAL: return "Normal";
    case FEEDLINE_OPEN:   return "Open Circuit";
    case FEEDLINE_SHORT:  return "Short Circuit";
    default:              return "Unknown";
    }
}

GpsModule KvdLoz6TuGps_queryChipset()
{
    static constexpr SIGSELECT ANSWER[] = {1, KVD_TUGPS_CHIP_MSG_PARSED_IND};
    s->module = {};
    if (!KvdLoz6TuGps_takesOneShots()) return s->module;
    if (KvdLoz6TuGps_gpssType() == GPSS_FURUNO) {
        KVD_TRACE(TRACE_TUGPS, LEVEL_CONTENT, "No Chipset info for GPS01 module.\n");
    } else {
        dropLateAnswers(ANSWER);
        // The answer to the second ends the wait; the first is stored by then.
        ask("PTNLQVR,H");
        ask("PTNLQVR,S");
        if (!awaitAnswer(ANSWER))
            KVD_TRACE(TRACE_TUGPS, LEVEL_CONTENT, "Did not recieve info from Gps module\n");
    }
    return s->module;
}

const char* KvdLoz6TuGps_queryAntenna()
{
    static constexpr SIGSELECT ANSWER[] = {1, KVD_TUGPS_STATUS_MSG_PARSED};
    if (!KvdLoz6TuGps_historyAboveUnInit() || KvdLoz6TuGps_gpssType() == GPSS_FURUNO) return "";
    if (KvdLoz6TuGps_tuGpsRefType() != GPS_REF && !KvdLoz6GpsOut_isRunning()) return "";
    dropLateAnswers(ANSWER);
    ask("PTNLQBA");
    if (awaitAnswer(ANSWER)) {
        KVD_TRACE(TRACE_TUGPS, TRACE_INFO, "Received information about Antenna status from GPS\n");
    } else {
        KVD_TRACE(TRACE_TUGPS, LEVEL_CONTENT, "Didn't receive information about Antenna status from GPS\n");
        s->antennaFeedline = FEEDLINE_UNKNOWN;
    }
    return KvdLoz6TuGps_feedlineText(s->antennaFeedline);
}
