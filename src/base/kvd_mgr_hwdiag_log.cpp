// Reports of hardware faults to the node's error log.
#include "base/kvd_mgr_hwdiag_log.h"
#include "base/trace_groups.h"
#include "node/elgi.h"
#include "node/trace.h"
#include "ose/module_data.h"

#include <cstdio>
#include <iterator>

namespace {

struct LogText { const char* code; const char* text; };

// In the order of LogEntry.
constexpr LogText LOG_TEXTS[] = {
    {"MC0",
     "KVD: Hardware Test Failed - HM Toggle PDH_REF1 test failed - Problem with PDH_REF1 Toggle Detector"},
    {"MC1",
     "KVD: Hardware Test Failed - HM Toggle PDH_REF2 test failed - Problem with PDH_REF2 Toggle Detector"},
    {"MC2",
     "KVD: Hardware Test Failed - HM Toggle PDH_REF3 test failed - Problem with PDH_REF3 Toggle Detector"},
    {"MC3",
     "KVD: Hardware Test Failed - HM Toggle PDH_REF4 test failed - Problem with PDH_REF4 Toggle Detector"},
    {"MC4",
     "KVD: Hardware Test Failed - HM Toggle SDH_REF test failed - Problem with SDH_REF Toggle Detector"},
    {"MC5",
     "KVD: Hardware Test Failed - HM Toggle EXT_REF_LIM test failed - "
     "Problem with EXT_REF_LIM Toggle Detector"},
    {"MC6", "KVD: Hardware Test Failed - Feedback on Synth C is missing Harware Fault in Synth C"},
    {"MC7", "KVD: OCXO EEPROM data checksum failed - Check OCXO"},
    {"MC8", "KVD: Error while writing multiplicator values "},
    {"MC9", "KVD: Board type could not be determined "},
    {"MCA",
     "KVD: Run Time HW Test Failed - HM Toggle PDH_REF1 test failed - Problem with PDH_REF1 Toggle Detector"},
    {"MCB",
     "KVD: Run Time HW Test Failed - HM Toggle PDH_REF2 test failed - Problem with PDH_REF2 Toggle Detector"},
    {"MCC",
     "KVD: Run Time HW Test Failed - HM Toggle PDH_REF3 test failed - Problem with PDH_REF3 Toggle Detector"},
    {"MCD",
     "KVD: Run Time HW Test Failed - HM Toggle PDH_REF4 test failed - Problem with PDH_REF4 Toggle Detector"},
    {"MCE",
     "KVD: Run Time HW Test Failed - HM Toggle SDH_REF test failed - Problem with SDH_REF Toggle Detector"},
    {"MCF",
     "KVD: Run Time HW Test Failed - HM Toggle EXT_REF test failed - Problem with EXT_REF Toggle Detector"},
    {"MCH", "KVD: Run Time HW Test Failed - Feedback on Synth C is missing Harware Fault in Synth C"},
    {"MCI", "KVD: Run Time HW Test Failed - HM Toggle SYNTH_C test failed - Synth C not locked"},
    {"MCJ", "KVD: Run Time HW Test Failed - HM Toggle SYNTH_B test failed - Synth B not locked"},
    {"MCK", "KVD: Run Time HW Test Failed - Oscillator Temperature Failed - outside limits"},
    {"MCL", "KVD: Unable to obtain FPGA memory base address(es)"},
    {"MCM", "KVD: Run Time HW Test Failed - Oscillator Temperature Reading Failed - valid bit not set"},
    {"MCO", "KVD: Calculate Samplings Intervall Failed - Negative samplings intervall"},
    {"MCP", "KVD: LOZ6 Initiate - Ocxo Eeprom nominal frequency not valid"},
};
static_assert(std::size(LOG_TEXTS) == LOG_ENTRIES);

constexpr u8 OSC_TOO_LOW = 2, OSC_TOO_HIGH = 3, OSC_UNREADABLE = 4;
constexpr int HALI_NO_REGISTER = 1, HALI_OUT_OF_RANGE = 2, HALI_NO_DATA = 3;

struct State {
    // Told once a program life, so that a lasting fault doesn't fill the log.
    u32 boardTypeTold = 0;
    u32 baseAddressTold = 0;
    u32 sfcTold = 0;
    u32 samplingTold = 0;
    u8 temperatureState = 0;
};
ose::ModuleData<State> s;

void write(const char* code, const char* text)
{
    const int result = node::TarsoElgi_write2(code, text);
    if (result != 0) KVD_TRACE(TRACE_TUMGR_HWDIAG, TRACE_INFO, "Error in writing to ELG-server:%d", result);
}

void writeOnce(u32& told, LogEntry entry)
{
    if (told != 0) return;
    told = 1;
    KvdLoz6HwDiag_writeLog(entry);
}

}  // namespace

void KvdLoz6HwDiag_writeLog(LogEntry entry) { write(LOG_TEXTS[entry].code, LOG_TEXTS[entry].text); }

void KvdLoz6HwDiag_reportError(u32 testNumber)
{
    switch (testNumber) {
    case 1: case 2: case 3: case 4: case 5: case 6: case 7: case REPORT_EEPROM: case REPORT_MULTIPLICATOR:
        KvdLoz6HwDiag_writeLog(static_cast<LogEntry>(testNumber - 1));                  break;
    case REPORT_BOARD_TYPE:   writeOnce(s->boardTypeTold, LOG_MC9);                         break;
    case REPORT_BASE_ADDRESS: writeOnce(s->baseAddressTold, LOG_MCL);                       break;
    default:                                                                                break;
    }
}

void KvdLoz6HwDiag_temperatureState(u8 state, int haliResult)
{
    if (state == s->temperatureState) return;
    if (state == OSC_TOO_LOW || state == OSC_TOO_HIGH || haliResult == HALI_OUT_OF_RANGE) {
        KvdLoz6HwDiag_writeLog(LOG_MCK);
        KVD_TRACE(TRACE_TUMGR_HWDIAG, TRACE_INFO, "Oscillator Temperature Failed reported to ELG-server");
    } else if (state == OSC_UNREADABLE) {
        // Not stored, so that each start of the halted state is told.
        if (haliResult == HALI_NO_REGISTER) {
            KvdLoz6HwDiag_reportError(REPORT_BASE_ADDRESS);
        } else if (haliResult == HALI_NO_DATA) {
            KvdLoz6HwDiag_writeLog(LOG_MCM);
            KVD_TRACE(TRACE_TUMGR_HWDIAG, TRACE_INFO,
                      "Oscillator Temperature Reading Failed reported to ELG-server");
        } else {
            KVD_TRACE(TRACE_TUMGR_HWDIAG, TRACE_INFO,
                      "Unexpected result value received from HALI_getOcxoTemp %d", haliResult);
        }
        return;
    }
    s->temperatureState = state;
}

u8 KvdLoz6HwDiag_lastTemperatureState() { return s->temperatureState; }

void KvdLoz6HwDiag_reportSfcFailure(const char* text)
{
    if (s->sfcTold != 0) return;
    s->sfcTold = 1;
    char entry[96];
    std::snprintf(entry, sizeof entry, "KVD: Read SFC Failed %s", text);
    write("MCN", entry);
}

void KvdLoz6HwDiag_reportSamplingFailure() { writeOnce(s->samplingTold, LOG_MCO); }
void KvdLoz6HwDiag_reportNominalFrequencyFailure() { KvdLoz6HwDiag_writeLog(LOG_MCP); }
