// Commands on the regulator and on what the client is told of it.
#include "frame/kvd_mgr_int.h"
#include "frame/kvd_mgr_proc.h"
#include "frame/tu_coli_int.h"
#include "hw/hali.h"
#include "hw/kvd_hwif.h"
#include "iif/kvd_pm.h"
#include "mp/kvd_iifadm.h"
#include "node/platform.h"
#include "node/sig.h"
#include "refs/kvd_ext.h"
#include "reg/kvd_reg_control.h"
#include "reg/kvd_reg_estimate.h"
#include "reg/kvd_reg_history.h"
#include "reg/kvd_reg_measure.h"
#include "reg/kvd_reg_packet.h"
#include "reg/kvd_reg_pdv_gen.h"
#include "reg/kvd_reg_pll.h"
#include "sig/ref_types.h"
#include "sig/reg_sig.h"
#include "sig/tuiif_sig.h"

#include <charconv>
#include <iterator>

namespace {

using coli::is;
using coli::number;
using node::shellPrintf;

int usage(const char* text)
{
    shellPrintf("%s", text);
    return COLI_USAGE;
}

constexpr const char* TIMEACC_USAGE =
    "Usage: kvdconfigtimeacc enable ->enables sending of the desired accuracy, "
    "stops propagating the real accuracy \n"
    "       kvdconfigtimeacc set 1000 -> sends time accuracy of 1000ns\n"
    "       kvdconfigtimeacc disable-> disables manually sending of the time accuracy "
    "and enables automatic propagation of the real accuracy\n";

constexpr const char* FASTLOCK_USAGE =
    "Usage: kvdsetfastlock 0 -> sets default jitter/wander tolerance level: 5e-10\n"
    "                           aprox 600 sec needed for locking\n"
    "       kvdsetfastlock 1 -> sets jitter/wander tolerance level: 3e-12\n"
    "                           aprox 120 sec needed for locking\n"
    "       kvdsetfastlock 2 -> sets jitter/wander tolerance level: 1e-14\n"
    "                           aprox 20 sec needed for locking\n";

struct FastLock { const char* word; u32 use; double R; };
constexpr FastLock FAST_LOCK[] = {{"0", 0, 5e-10}, {"1", 1, 3e-12}, {"2", 1, 1e-14}};

constexpr const char* HOLDOVER_USAGE =
    "Usage: kvdholdoverthr [rnt|to|freq] [<thr>],\n"
    "holdoverThr - holdover duration in minutes ( holdoverThr > 0 ) or 'd' for "
    "removing the threshold\n";

/// A class of holdover, and the clock state in which it runs.
struct HoldoverWord { const char* word; HoldoverClass holdoverClass; u8 clockState; const char* text; };
constexpr HoldoverWord HOLDOVER_WORDS[] = {
    {"rnt",  HOLDOVER_RNT,  KVD_TUIIF_RNT_TIME_HOLDOVER,    "RNT HOLDOVER"},
    {"to",   HOLDOVER_TO,   KVD_TUIIF_TIME_OFFSET_HOLDOVER, "TIME HOLDOVER"},
    {"freq", HOLDOVER_FREQ, KVD_TUIIF_FREQUENCY_HOLDOVER,   "FREQ HOLDOVER"},
};

void printThresholds()
{
    shellPrintf("\n*****Holdover Threshold*****\n\n");
    for (const HoldoverWord& w : HOLDOVER_WORDS) {
        const u32 minutes = KvdLoz6TuIifAdm_holdoverThreshold(w.holdoverClass);
        if (minutes == 0)
            shellPrintf("%-4s : none\n", w.word);
        else
            shellPrintf("%-4s : %u min\n", w.word, minutes);
    }
}

int setThreshold(const HoldoverWord& w, const char* value)
{
    i64 minutes = 0;
    if (!is(value, "d") && (!number(value, minutes) || minutes < 1 || minutes > 0xFFFFFFFF))
        return usage(HOLDOVER_USAGE);
    if (KvdLoz6TuIifAdm_radioClockState() == w.clockState) {
        shellPrintf("The radio clock is currently in %s mode so you can not apply COLI command.\n"
                    "Try again when the radio clock is not in %s mode.", w.text, w.text);
        return COLI_REFUSED;
    }
    KvdLoz6TuIifAdm_setHoldoverThreshold(w.holdoverClass, static_cast<u32>(minutes));
    return COLI_DONE;
}

constexpr const char* GENPDV_USAGE = "genpdv <ptp_t|ptp_f|ntp> <uplink|downlink> <enable|disable>\n";

/// A word of a command and what it stands for.
struct CommandWord { const char* word; u32 value; };
constexpr CommandWord PDV_TYPES[] = {{"ntp", PDV_NTP}, {"ptp_f", PDV_PTP_FREQ}, {"ptp_t", PDV_PTP_TIME}};
constexpr CommandWord PDV_DIRECTIONS[] = {{"uplink", PDV_UPLINK}, {"downlink", PDV_DOWNLINK}};
constexpr CommandWord PDV_SWITCH[] = {{"enable", 1}, {"disable", 0}};

/// True when the argument is one of the words; `value` is its number.
template <std::size_t N>
bool wordValue(const CommandWord (&words)[N], const char* argument, u32& value)
{
    for (const CommandWord& w : words) {
        if (!is(argument, w.word)) continue;
        value = w.value;
        return true;
    }
    return false;
}

// Reference classes of the thresholds.
constexpr CommandWord PDV_THRESHOLDS[] = {{"packettime", PACKET_TIME_FRO_CLASS},
                                          {"packetfreq", PACKET_FREQ_FRO_CLASS},
                                          {"ntp", NTP_FRO_CLASS}};

/// Nanoseconds above 0, taken whole: hexadecimal behind 0x, octal behind 0, else decimal.
bool thresholdNumber(const char* text, u32& ns)
{
    int base = 10;
    if (text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        text += 2;
    } else if (text[0] == '0') {
        base = 8;
    }
    const char* const last = text + std::strlen(text);
    const auto [stop, error] = std::from_chars(text, last, ns, base);
    return error == std::errc() && stop == last && ns > 0;
}

constexpr const char* SOCPRITOGREG_USAGE = "Usage: socpritogreg [on | cv | off | current]\n";
constexpr CommandWord REGULATION_MODES[] = {{"on", REGULATION_ON},
                                        {"cv", REGULATION_HOLDOVER_WITH_VECTOR},
                                        {"off", REGULATION_OFF}};
constexpr const char* REGULATION_TEXT[] = {"ON", "HOLDOVER WITH VECTOR", "OFF"};

int genpdvRefuse(const char* reason)
{
    shellPrintf("%s%s", reason, GENPDV_USAGE);
    return COLI_USAGE;
}

struct EthWord { const char* word; HaliSyncRef selector; const char* selectorName; };
constexpr EthWord ETH_WORDS[] = {
    {"eth_a", HALI_ETH_REF_A, "HALI_ETH_REF_A"},
    {"eth_b", HALI_ETH_REF_B, "HALI_ETH_REF_B"},
    {"eth_c", HALI_ETH_REF_C, "HALI_ETH_REF_C"},
};

void selectEth(const EthWord& w)
{
    const int status = HALI_subscribeRefTime(w.selector);
    if (status != 0) {
        shellPrintf("HALI_subscribeRefTime failed with status: %d for %s", status, w.selectorName);
        return;
    }
    KvdLoz6TuReg_setSelectedRef(TU_ETH_REF);
    KvdLoz6TuPm_startStatistics(TU_ETH_REF);
    shellPrintf("Setting TU_ETH_REF in tureg and %s in tuhwif", w.selectorName);
}

}  // namespace

namespace coli {

int freerunning(int argc, char**)
{
    if (argc != 1) return usage("Usage: kvdfreerunning\n");
    KvdLoz6TuReg_forceFrequencyDrifting();
    return COLI_DONE;
}

int kvdwritehist(int argc, char** argv)
{
    if (argc != 2) return usage("usage: kvdwritehist [flash | msi]\n");
    if (KvdLoz6TuReg_selectedRef() == TU_SR_NO_REF) {
        shellPrintf("Not possible to force writing of hist data, no selected ref\n");
        return COLI_DONE;
    }
    if (!is(argv[1], "flash") && !is(argv[1], "msi")) return COLI_DONE;
    KvdLoz6TuReg_forceWriteHistory(is(argv[1], "flash"));
    return COLI_DONE;
}

int kvdreadhist(int argc, char**)
{
    if (argc != 1) return usage("Usage: kvdreadhist\n");
    KvdLoz6TuReg_printHistory();
    return COLI_DONE;
}

int kvdselectregref(int argc, char** argv)
{
    if (argc != 2) return usage("usage: kvdselectregref [eth_a | eth_b | eth_c]\n");
    for (const EthWord& w : ETH_WORDS)
        if (is(argv[1], w.word)) selectEth(w);
    return COLI_DONE;
}

int kvdfixfrequency(int argc, char**)
{
    if (argc != 1) return usage("Usage: kvdfixfrequency\n");
    // A step of the control law, with timers and a report: the manager's own.
    Signal* order = ose::alloc(sizeof(SIGSELECT), KVD_TUMGR_FIX_FREQUENCY_IND);
    ose::send(&order, KvdLoz6TuMgr_pid());
    return COLI_DONE;
}

int kvdconfigtimeacc(int argc, char** argv)
{
    if (argc == 2 && is(argv[1], "enable")) {
        KvdLoz6TuIifAdm_setManualAccuracy(1);
        shellPrintf("Auto sending of real time accuracy is now disabled, "
                    "please use kvdconfigtimeacc set\nto send the desired time accuracy manually\n");
        return COLI_DONE;
    }
    if (argc == 2 && is(argv[1], "disable")) {
        KvdLoz6TuIifAdm_setManualAccuracy(0);
        return COLI_DONE;
    }
    if (argc != 3 || !is(argv[1], "set") || KvdLoz6TuIifAdm_manualAccuracy() == 0)
        return usage(TIMEACC_USAGE);
    i64 accuracy_ns = 0;
    if (!number(argv[2], accuracy_ns) || accuracy_ns < 1 || accuracy_ns > 10'000)
        return usage("Time accuracy must be a number in the range of 1 to 10 000");
    KvdLoz6TuIifAdm_sendTimeAccuracyChangeInd(static_cast<u32>(accuracy_ns));
    return COLI_DONE;
}

int kvdsetfastlock(int argc, char** argv)
{
    if (argc != 2) return usage(FASTLOCK_USAGE);
    for (const FastLock& f : FAST_LOCK) {
        if (!is(argv[1], f.word)) continue;
        KvdLoz6TuExt_setFastLock(f.use, f.R);
        return COLI_DONE;
    }
    shellPrintf("%s", FASTLOCK_USAGE);
    return COLI_DONE;
}

int genpdv(int argc, char** argv)
{
    if (argc < 2 || is(argv[1], "?")) {
        shellPrintf("%s", GENPDV_USAGE);
        return COLI_DONE;
    }
    if (argc != 4) return genpdvRefuse("Invalid number of arguments, expected 2 or 3\n");
    u32 type = 0, direction = 0, enable = 0;
    if (!wordValue(PDV_TYPES, argv[1], type))
        return genpdvRefuse("Invalid type, expected 'ptp_t', 'ptp_f' or 'ntp'\n");
    if (!wordValue(PDV_DIRECTIONS, argv[2], direction))
        return genpdvRefuse("Invalid direction, expected 'uplink' or 'downlink'\n");
    if (!wordValue(PDV_SWITCH, argv[3], enable))
        return genpdvRefuse("Invalid enabling/disabling, expected 'enable' or 'disable'\n");
    auto* req = node::make<KvdTuhwifGenPdvReq>(KVD_TUHWIF_GEN_PDV_REQ);
    req->type = type;
    req->direction = direction;
    req->enable = enable;
    node::sendTo(KvdLoz6TuMgr_pid(), req);
    return COLI_DONE;
}

int kvdholdoverthr(int argc, char** argv)
{
    if (argc == 1) {
        printThresholds();
        return COLI_DONE;
    }
    if (argc != 3) return usage(HOLDOVER_USAGE);
    for (const HoldoverWord& w : HOLDOVER_WORDS)
        if (is(argv[1], w.word)) return setThreshold(w, argv[2]);
    return usage(HOLDOVER_USAGE);
}

int kvdremovetime(int argc, char**)
{
    if (argc != 1) return usage("Usage: kvdremovetime\n");
    const u8 state = KvdLoz6TuIifAdm_radioClockState();
    if (state != KVD_TUIIF_TIME_OFFSET_HOLDOVER && state != KVD_TUIIF_RNT_TIME_HOLDOVER) {
        shellPrintf("The radio clock is not currently in TIME HOLDOVER mode - "
                    "retry command when in Time Holdover.\n");
        return COLI_REFUSED;
    }
    shellPrintf("The radio clock is currently in TIME HOLDOVER mode - removing Time Component.\n");
    KvdLoz6TuReg_forceTimeDrift();
    return COLI_DONE;
}

int kvddegraderef(int argc, char**)
{
    if (argc != 1) return usage("Usage: kvddegradereference\n");
    KvdLoz6TuReg_setDegrState(KVD_TUIIF_REF_DEGRADED);
    shellPrintf("Reference Degraded using Ccli command\n");
    return COLI_DONE;
}

int kvdsetcallimit(int argc, char** argv)
{
    i64 days = -1;
    if (argc != 2 || !number(argv[1], days) || days < 0 || days > 60)
        return usage("Usage: kvdsetcallimit [days]\n  - [days] are in range from 0 to 60\n");
    tuHwIf_setCalibrationLimit(static_cast<u8>(days));
    shellPrintf("Calibration Expiration Limit set to %d days\n", static_cast<int>(days));
    KvdLoz6TuReg_setCalibrationCountDown(0.0);
    return COLI_DONE;
}

int kvdpdvthr(int argc, char** argv)
{
    if (argc == 1) {
        char text[256];
        KvdLoz6TuReg_pdvThresholdText(text, sizeof text);
        shellPrintf("%s", text);
        return COLI_DONE;
    }
    u32 type = 0, threshold_ns = 0;
    const bool isDefault = argc == 3 && is(argv[2], "d");
    if (argc != 3 || !wordValue(PDV_THRESHOLDS, argv[1], type) ||
        (!isDefault && !thresholdNumber(argv[2], threshold_ns)))
        return usage("Usage: kvdpdvthr [packettime|packetfreq|ntp <thr>]\n"
                     "thr - threshold in ns ( thr > 0 ) or 'd' for setting the default value");
    KvdLoz6TuReg_setPdvThreshold(type, threshold_ns);
    return COLI_DONE;
}

int socpritogreg(int argc, char** argv)
{
    if (argc == 1 || is(argv[1], "?")) {
        shellPrintf("%s", SOCPRITOGREG_USAGE);
        return COLI_DONE;
    }
    if (argc != 2) {
        shellPrintf("Invalid number of arguments, expected 2\n%s", SOCPRITOGREG_USAGE);
        return COLI_USAGE;
    }
    if (is(argv[1], "current")) {
        shellPrintf("Current regulation mode is - %s\n", REGULATION_TEXT[KvdLoz6TuReg_pll_regulationMode()]);
        return COLI_DONE;
    }
    u32 mode = 0;
    if (!wordValue(REGULATION_MODES, argv[1], mode)) {
        shellPrintf("Invalid arguments, expected 'off' or 'on' or 'cv' or 'current'\n%s", SOCPRITOGREG_USAGE);
        return COLI_USAGE;
    }
    KvdLoz6TuReg_pll_setRegulationMode(static_cast<u8>(mode));
    shellPrintf("Regulation mode is now set to: %s\n", REGULATION_TEXT[mode]);
    return COLI_DONE;
}

int socprireadsfc(int argc, char**)
{
    if (argc != 1) {
        shellPrintf("Usage: socprireadsfc\n");
        return COLI_DONE;
    }
    u16 mfn = 0;
    u16 sfn = 0;
    u32 inc = 0;
    tuHwIf_readSfc(mfn, sfn, inc);
    const u32 eSfc = static_cast<u32>(KvdLoz6TuReg_getLastTime().c / COUNTER_PERIOD);
    shellPrintf("eSFC = %u, MFN = %u, SFN = %u, INC = %u\n", eSfc, mfn, sfn, inc);
    return COLI_DONE;
}

}  // namespace coli
