// Signals of the manager itself: board failure alarm, synchronisation info, run-time check, outputs.
#include "base/trace_groups.h"
#include "frame/kvd_mgr_hwdiag.h"
#include "frame/kvd_mgr_int.h"
#include "gps/kvd_gps_out.h"
#include "node/elgi.h"
#include "node/platform.h"
#include "node/sig.h"
#include "node/temi.h"
#include "node/trace.h"
#include "pktsync/tupktsyncadm.h"
#include "reg/kvd_reg_estimate.h"
#include "reg/kvd_reg_packet.h"
#include "sig/ref_sig.h"
#include "sig/tuiif_sig.h"
#include "store/kvd_mgr_mem.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <string>

namespace {

constexpr u32 RED_LED_ON = 1, RED_LED_OFF = 2;

void switchRedLed(u32 order, const char* name)
{
    const int result = node::platform().visualIndication(order);
    if (result != 0)
        KVD_TRACE(TRACE_TUMGR_PROC, TRACE_ERROR,
                  "Switch %s red LED failed. TarsoVii_visualIndRequest returned =%u", name,
                  static_cast<u32>(result));
}

void onBoardFailure(const KvdTuiifBoardFailureRecoveryInd* ind)
{
    if (ind == nullptr) return;
    if (ind->value == 1)
        KvdLoz6TuMgr_raiseAlarm();
    else
        KvdLoz6TuMgr_ceaseAlarm();
}

/// Synchronisation info: which texts an option asks for, in their order.
enum class SyncInfo : u8 { All = 1, PdvHistory = 2, ReferenceSwitches = 3, Grandmasters = 4 };

constexpr u32 SYNCINFO_TEXT_OFFSET = 8;
constexpr u32 SYNCINFO_OVERHEAD = 12;      // what the signal is larger than its terminated text
constexpr u32 SYNCINFO_ROOM = ose::SIGNAL_SIZE_MAX - SYNCINFO_OVERHEAD;    // of the terminated text

using Printer = u32 (*)(char* text, u32 room);   // the text's length, less than room

void append(std::string& text, Printer printer)
{
    const std::size_t before = text.size();
    text.resize(SYNCINFO_ROOM);
    const std::span room = std::span(text).subspan(before);
    text.resize(before + printer(room.data(), static_cast<u32>(room.size())));
}

std::string syncInfoText(u8 option)
{
    std::string text;
    switch (static_cast<SyncInfo>(option)) {
    case SyncInfo::All:
        append(text, KvdLoz6TuReg_pdvHistoryText);
        append(text, KvdLoz6TuReg_referenceSwitchesText);
        append(text, TuPktsync_grandmasterHistoryText);
        text.resize(std::min<std::size_t>(text.size(), SYNCINFO_ROOM - sizeof "\n\n"));
        text += "\n\n";
        break;
    case SyncInfo::PdvHistory:        append(text, KvdLoz6TuReg_pdvHistoryText);         break;
    case SyncInfo::ReferenceSwitches: append(text, KvdLoz6TuReg_referenceSwitchesText);  break;
    case SyncInfo::Grandmasters:      append(text, TuPktsync_grandmasterHistoryText);    break;
    default: KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO, "Unexpected syncinfo option received"); break;
    }
    return text;
}

/// The answer goes to whoever asked, whatever the state of the connection.
void onSyncInfoReq(const KvdTuiifSyncinfoReq* req, PROCESS client)
{
    if (req == nullptr) return;
    const std::string text = syncInfoText(req->option);
    const u32 length = static_cast<u32>(text.size());
    Signal* sig = ose::alloc(length + 1 + SYNCINFO_OVERHEAD, KVD_TUIIF_SYNCINFO_CFM);
    reinterpret_cast<KvdTuiifSyncinfoCfm*>(sig)->clientRef = req->clientRef;
    std::memcpy(reinterpret_cast<char*>(sig) + SYNCINFO_TEXT_OFFSET, text.c_str(), length + 1);
    ose::send(&sig, client);
}

void onElgiResponse(const TarsoElgiWrite2Rsp* rsp)
{
    if (rsp == nullptr) return;
    KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO, "elgiWrite2Rsp: status=%d", rsp->status);
}

void setOutput(u32 value, u8 emulationMode)
{
    if (value != 1) {
        KvdLoz6GpsOut_stop();
        return;
    }
    KvdLoz6GpsOut_start(emulationMode);
    KvdLoz6TuMem_allocate(MEM_GPS_OUT, 1);
}

void onSetGpsOut(const KvdTuiifSetGpsoutInd* ind)
{
    if (ind != nullptr) setOutput(ind->enable, 1);
}

void onSetHptsiOut(const KvdTuiifSetHptsioutInd* ind)
{
    if (ind != nullptr) setOutput(ind->enable, 2);
}

}  // namespace

bool KvdLoz6TuMgr_dispatchFirstGroup(Signal* sig)
{
    switch (sig->sigNo) {
    case KVD_TUIIF_BOARD_FAILURE_RECOVERY_IND:
        onBoardFailure(as<KvdTuiifBoardFailureRecoveryInd>(sig));                              break;
    case KVD_TUIIF_SYNCINFO_REQ:
        onSyncInfoReq(as<KvdTuiifSyncinfoReq>(sig), ose::sender(&sig));                        break;
    case KVD_TUREFMON_CHECK_TD_IND: KvdLoz6HwDiag_runTimeCheck();                              break;
    case TARSO_TEMI_SERVER_DOWN_IND:                 // of an exchange that is over
        break;
    case KVD_TUMGR_FIX_FREQUENCY_IND: KvdLoz6TuReg_fixFrequency();                             break;
    case TARSO_ELGI_WRITE2_RSP:     onElgiResponse(as<TarsoElgiWrite2Rsp>(sig));               break;
    default:                                                                                   return false;
    }
    return true;
}

bool KvdLoz6TuMgr_dispatchSecondGroup(Signal* sig)
{
    switch (sig->sigNo) {
    case KVD_TUIIF_SET_GPSOUT_IND:   onSetGpsOut(as<KvdTuiifSetGpsoutInd>(sig));               break;
    case KVD_TUIIF_SET_HPTSIOUT_IND: onSetHptsiOut(as<KvdTuiifSetHptsioutInd>(sig));           break;
    default:                                                                                   return false;
    }
    return true;
}

void KvdLoz6TuMgr_raiseAlarm()
{
    KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO, "LOZ6 HW fault alarm raised (red LED on)");
    switchRedLed(RED_LED_ON, "on");
}

void KvdLoz6TuMgr_ceaseAlarm()
{
    KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO, "LOZ6 HW fault alarm ceased (red LED off)");
    switchRedLed(RED_LED_OFF, "off");
}
