// Hardware start, restart of the components, the halted state.
#include "base/text_of.h"
#include "base/trace_groups.h"
#include "fifo/kvd_fifo_proc.h"
#include "frame/kvd_mgr_hwdiag.h"
#include "frame/kvd_mgr_int.h"
#include "frame/kvd_mgr_proc.h"
#include "gps/kvd_gps_out.h"
#include "hw/hali.h"
#include "hw/kvd_hwif.h"
#include "iif/kvd_biraiifadm.h"
#include "iif/kvd_iifadm_orders.h"
#include "iif/kvd_mgr_wait.h"
#include "mp/kvd_iifadm.h"
#include "node/platform.h"
#include "node/sig.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "pktsync/tupktsync_proc.h"
#include "ref/kvd_phyadm.h"
#include "ref/kvd_ref.h"
#include "ref/kvd_ref_select.h"
#include "refs/kvd_ipsynctsiadm.h"
#include "reg/kvd_reg.h"
#include "sig/ref_types.h"
#include "sig/tuiif_sig.h"
#include "store/kvd_mgr_mem.h"

namespace {

constexpr u8 HWDIAG_NO_ANSWER = 1, HWDIAG_FAILED = 2;
constexpr u32 LAST_COLD_RESTART_TYPE = 2;        // above it the hardware was left running

struct State {
    u8 hwDiagResult = 0;       // 0 passed or not requested, 1 no answer, 2 failed
    u32 coldRestart = 0;
    bool hardwareStarted = false;
};
ose::ModuleData<State> s;

void takeRestartType()
{
    if (s->hwDiagResult == HWDIAG_NO_ANSWER) {
        KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO, "No restartType received from TEMI, assuming Power-on");
        s->coldRestart = 1;
        return;
    }
    KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO, "Received restartType=%u from TEMI", KvdUnit_life().restartType);
    // Hardware that had to be set up from nothing stays a cold start whatever the type says.
    if (KvdUnit_life().restartType <= LAST_COLD_RESTART_TYPE) s->coldRestart = 1;
}

void traceBanner()
{
    constexpr const char* STARS = "*****************************************";   // 41
    KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO, "%s", STARS);
    if (s->coldRestart != 0)
        KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO, "COLD RESTART of KVD on BVQ LOZ6");
    else
        KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO, "WARM RESTART of KVD on BVQ LOZ6");
    KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO, "%s", STARS);
}

void startOutput(u8 outEmuMode)
{
    if (outEmuMode == 1 || outEmuMode == 2) {
        KvdLoz6GpsOut_start(outEmuMode);
        KvdLoz6TuMem_allocate(MEM_GPS_OUT, s->coldRestart);
    } else if (tuHwIf_isGpsOutEnabled() != 0) {
        HALI_enableTuOut(0, 0);
        tuHwIf_disableIsr(TU_GPS_OUT_INT);
    }
}

void startRegulator(u32 isFirstStart, u8 timeMode, u8 masterSlaveMode)
{
    if (isFirstStart == 1) return KvdLoz6TuReg_initiate(s->coldRestart, timeMode, masterSlaveMode);
    const bool wasSlave = !KvdLoz6TuReg_isMaster();
    KvdLoz6TuMgr_takeRole(timeMode, masterSlaveMode);
    // A master of this main processor's making follows nobody, until it is told whom.
    if (wasSlave && KvdLoz6TuReg_isMaster()) KvdLoz6TuRef_selectSynchRef(NO_REF, FRO_NONE, FRO_NONE);
}

}  // namespace

void KvdLoz6TuMgr_startHardware(u32 idlMode, u32 restart)
{
    if (s->hardwareStarted) return;
    s->hardwareStarted = true;
    const bool isIdl = idlMode != HW_IDL_MODE_NOT_AVAILABLE;
    if (isIdl) s->coldRestart = restart;
    const int hwInitResult = tuHwIf_initiate(s->coldRestart, isIdl ? 1 : 0);
    if (!isIdl || KvdLoz6TuMgr_isMaster()) tuHwif_startIntProc();
    if (!isIdl)
        KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO, "biraiif idlMode: KVD_BIRAIIF_IDL_MODE_NOT_AVAILABLE");
    s->hwDiagResult = KvdLoz6HwDiag_startUp(KvdUnit_life().restartType, static_cast<u32>(hwInitResult));
}

void KvdLoz6TuMgr_restartComponents(u32 isFirstStart, u8 timeMode, u8 masterSlaveMode, u8 outEmuMode)
{
    KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO,
              "isLoz6Started %u, timeMode %hhu, masterSlaveMode %hhu, outEmuMode %hhu", isFirstStart,
              timeMode, masterSlaveMode, outEmuMode);
    if (KvdUnit_life().hwFailed != 0) {
        KvdLoz6TuMgr_haltProcess();
        return;
    }
    if (isFirstStart == 1) {
        if (s->hwDiagResult == HWDIAG_FAILED) {
            KvdLoz6TuMgr_haltProcess();
            return;
        }
        takeRestartType();
        traceBanner();
        KvdLoz6TuMgr_repeatFsyncSetting();
        startOutput(outEmuMode);
        KvdLoz6TuIpSyncTsiAdm_initiate();
    }
    KvdUnit_life().componentsStarted = 1;
    KvdLoz6TuPhyAdm_restart(isFirstStart);
    KvdLoz6TuRef_restart(isFirstStart);
    startRegulator(isFirstStart, timeMode, masterSlaveMode);
    TuPktsync_tuiifUPInd(getBoardType() == BVQ3 ? 2 : 1);
}

namespace {

void takeInHaltedState(const Signal* sig)
{
    if (sig->sigNo == KVD_TUIIF_BOARD_FAILURE_RECOVERY_IND) {
        const auto* ind = as<KvdTuiifBoardFailureRecoveryInd>(sig);
        if (ind != nullptr && ind->value == 1) KvdLoz6TuMgr_raiseAlarm();
    } else if (sig->sigNo == KVD_COMM_SERVER_DEAD) {
        KvdLoz6TuIifAdm_dispatch(const_cast<Signal*>(sig));
    }
}

}  // namespace

void KvdLoz6TuMgr_haltProcess()
{
    KvdLoz6Fifo_dump();
    KvdLoz6TuIifAdm_reportClockState(KVD_TUIIF_FAILURE);
    KvdUnit_life().hwFailed = 0;
    KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO, "WARNING: LOZ6 HW diagnostic failed, halting process");
    // Without a main processor there is nobody whose death would end the wait: the next one is told.
    if (KvdLoz6TuIifAdm_startState() == TUIIF_START_RESTART_READY) KvdLoz6TuMgr_haltedWait(takeInHaltedState);
    KvdUnit_life().hwFailed = 1;
}

void KvdLoz6TuMgr_printInfo()
{
    constexpr const char* HWDIAG_TEXTS[] = {"NO_ERROR", "RESTART_RANK_INVALID", "TEST_FAILED",
                                            "GENERIC_ERROR"};
    constexpr const char* RESTART_TEXTS[] = {"COLDWTEST_POWERON", "COLDWTEST", "COLD",
                                             "REFRESH", "WARM", "HOT"};
    node::shellPrintf("\n***** KVD LOZ6 tumgr_proc related data *****\n");
    node::shellPrintf("   hwdiagReturnCode   : %s (%u)\r\n", textOf(HWDIAG_TEXTS, s->hwDiagResult),
                      s->hwDiagResult);
    node::shellPrintf("   temiRestartType    : %s (%u)\r\n",
                      textOf(RESTART_TEXTS, KvdUnit_life().restartType), KvdUnit_life().restartType);
    HALI_printInfo();
    KvdLoz6TuMem_printInfo();
}
