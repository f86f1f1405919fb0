// What each floor asks of those above it, and tells them: the one place where a call goes up.
#include "fifo/kvd_fifo_upcalls.h"
#include "frame/kvd_mgr_int.h"
#include "frame/kvd_mgr_proc.h"
#include "frame/tu_coli.h"
#include "gps/kvd_gps.h"
#include "gps/kvd_gps_nmea.h"
#include "gps/kvd_gps_osl.h"
#include "gps/kvd_gps_out.h"
#include "gps/kvd_gps_receiver.h"
#include "gps/kvd_gps_upcalls.h"
#include "hw/kvd_hwif_upcalls.h"
#include "iif/kvd_biraiifadm.h"
#include "iif/kvd_iif_upcalls.h"
#include "iif/kvd_iifadm_orders.h"
#include "iif/kvd_pm.h"
#include "mp/kvd_mp_upcalls.h"
#include "pktsync/tupktsync_ptp_protocol.h"
#include "pktsync/tupktsync_syncref_ctrl.h"
#include "pktsync/tupktsync_upcalls.h"
#include "ref/kvd_ref.h"
#include "ref/kvd_ref_select.h"
#include "ref/kvd_ref_upcalls.h"
#include "refs/kvd_eth.h"
#include "refs/kvd_ext.h"
#include "refs/kvd_hptsi.h"
#include "refs/kvd_idpi.h"
#include "refs/kvd_refs_upcalls.h"
#include "refs/kvd_slave.h"
#include "refs/kvd_slave_warm.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control.h"
#include "reg/kvd_reg_history.h"
#include "reg/kvd_reg_histrecord.h"
#include "reg/kvd_reg_jump.h"
#include "reg/kvd_reg_measure.h"
#include "reg/kvd_reg_pll.h"
#include "reg/kvd_reg_upcalls.h"
#include "socpri/kvd_socpri_inrsi.h"
#include "store/kvd_mgr_mem_upcalls.h"

// ---- store, main processor, hardware, logs ------------------------------------------------------

const MemUpcalls MEM_UPCALLS = {
    .serviceAnswered = KvdLoz6TuIifAdm_msiMemInitiated,
    .isHistoryUsable = [](const u8* record) { return KvdLoz6TuReg_validateHistory(record); },
    .timeOffset =
        [](double& offset_s) {
            offset_s = KvdLoz6TuReg_sfcGpsOffset();
            return KvdLoz6TuReg_initiateState() >= TUREG_WARM_INITIATED;
        },
};

const MpUpcalls MP_UPCALLS = {
    .loopHolds = [] { return KvdLoz6TuReg_pllIsLocked() || KvdLoz6TuReg_pllIsHoldover(); },
    .calibrationExpiry = KvdLoz6TuReg_calibrationExpiry,
    .isGpsOperational = KvdLoz6TuGps_isOperational,
    .isHptsiOperational = KvdLoz6TuHptsi_isOperational,
    .cancelJump =
        [] {
            if (KvdLoz6TuReg_jumpState() != JUMP_NOT_NEEDED) KvdLoz6TuReg_setJumpState(JUMP_NOT_NEEDED);
        },
    .clockStateTold = KvdLoz6TuPm_clockState,
    .gpsStatusTold = KvdLoz6TuPm_gpsStatus,
};

const HwifUpcalls HWIF_UPCALLS = {
    .isMaster = KvdLoz6TuReg_isMaster,
    .divider = KvdLoz6TuReg_Div,
    .lastSampleTime = [] { return KvdLoz6TuReg_getLastTime().c; },
    .gpsOutTime = KvdLoz6GpsOut_time,
    .historyColdFlag = KvdLoz6TuReg_historyColdFlag,
};

const FifoUpcalls FIFO_UPCALLS = {
    .printAll = TuColi_printAll,
    .receiver = []() -> const GpsReceiver& { return KvdLoz6TuGps_receiver(); },
    .satellites = KvdLoz6TuGps_mergedSatellites,
};

// ---- regulator ----------------------------------------------------------------------------------

namespace {

struct EdgeHandler { u32 selectedRef; void (*handle)(); };
constexpr EdgeHandler EDGE_HANDLERS[] = {
    {TU_SR_PDH_REF1, KvdLoz6TuExt_handlePdhSdhInt},      {TU_SR_PDH_REF2, KvdLoz6TuExt_handlePdhSdhInt},
    {TU_SR_PDH_REF3, KvdLoz6TuExt_handlePdhSdhInt},      {TU_SR_PDH_REF4, KvdLoz6TuExt_handlePdhSdhInt},
    {TU_SR_SDH_REF, KvdLoz6TuExt_handlePdhSdhInt},       {TU_SR_GPS_REF, KvdLoz6TuGps_handleInt},
    {TU_SR_EXT_REF, KvdLoz6TuExt_handleExtInt},          {TU_ETH_REF, KvdLoz6TuEth_handleInt},
    {TU_SR_EXT_1PPS_REF, KvdLoz6TuExt_handleExt1ppsInt}, {TU_SR_HPTSI_REF, KvdLoz6TuHptsi_handleInt},
    {TU_GPS_OUT_REF, KvdLoz6GpsOut_handleInt},           {TU_SR_GPSOSL_REF, KvdLoz6GpsOsl_handleInt},
};

bool handleEdge(u32 selectedRef)
{
    for (const EdgeHandler& row : EDGE_HANDLERS)
        if (row.selectedRef == selectedRef) {
            row.handle();
            return true;
        }
    return false;
}

const u8* profileOf(u32 froId)
{
    return TuPktsync_PTP_getProfile(
        static_cast<u32>(TuPktsync_SyncrefCtrl_syncrefIdOf(froId, PACKET_TIME_FRO_CLASS)));
}

void storeClkStatus(u32 clkStatus, const char* caller)
{
    KvdLoz6SlaveWarm_setIdpiClkStatus(clkStatus);
    KvdLoz6SlaveWarm_write(caller);
}

}  // namespace

const RegUpcalls REG_UPCALLS = {
    .referenceEdge = handleEdge,
    .idlInterrupt = KvdLoz6TuSlave_handleIdlInt,
    .measurementsInitiated = KvdLoz6TuExt_initiate,
    .extFastLock =
        [](double& R) {
            R = KvdLoz6TuExt_R_fastLock();
            return KvdLoz6TuExt_useFastLock() != 0;
        },
    .useTimeOfDayAtOnce =
        [] {
            KvdLoz6TuGps_clearPreTimeOffset();
            KvdLoz6TuHptsi_clearPreTimeOffset();
        },
    .ptpProfile = profileOf,

    .halt = KvdLoz6TuMgr_haltProcess,
    .testMode = KvdLoz6TuGps_testMode,
    .regStateChanged = KvdLoz6GpsOut_regStateChanged,
    .loopStateChanged = KvdLoz6GpsOut_pllStateChanged,
    .timeStepComes = KvdLoz6GpsOut_prepareTimeStep,
    .timeStepped = KvdLoz6GpsOut_timeStepped,

    .slaveEvent = KvdLoz6TuSlave_setSlavePllEvent,
    .idl2Reset = KvdLoz6TuSlave_idl2Reset,
    .printSlave = KvdLoz6TuSlave_printInfo,
    .storeYi =
        [](double yi) {
            KvdLoz6SlaveWarm_setYi(yi);
            KvdLoz6SlaveWarm_write("pll_filter");
        },
    .storeClkStatus = storeClkStatus,
    .sendClkStatus = KvdLoz6Idpi_sendClkStatus,
    .tellIdl1Locked =
        [](bool isLocked) {
            KvdLoz6BiraIifAdm_idl1ClkState(isLocked ? IDPI_CLK_STATUS_LOCKED : IDPI_CLK_STATUS_FREE_RUNNING,
                                           0);
        },
    .unableToTimeLock = KvdLoz6BiraIifAdm_unableToTimeLock,

    .socpriAction = inrsiGetAction,
    .socpriPort = inrsiGetPortNo,
    .socpriReset = inrsiClientReset,
    .socpriReportOcxoTemp = inrsiReportOcxoTemp,
    .socpriPhaseMeasAnalysisFailed = KvdLoz6TuSoCpri_inrsi_phaseMeasAnalysisFailed,
    .socpriTimeSyncSucceeded = inrsiTimeSyncSucceeded,
    .socpriTimeSyncFailed = KvdLoz6TuSoCpri_inrsi_timeSyncFailed,
    .socpriSetContinuation = inrsiSetContinuationOfSync,
    .socpriAnswerContinuation = inrsiAnswerContinuation,
    .socpriSelectRememberedPort = inrsiSelectRememberedPort,
    .socpriSendBfnJumpInfo = inrsiSendBfnJumpInfo,
    .socpriNoMoreBfnJumpsExpected = KvdLoz6TuSoCpri_inrsi_noMoreBfnJumpsExpected,
    .socpriRestartPhaseTimer = inrsiRestartPhaseTimer,
    .socpriBfnAlignCompleted = inrsiBfnAlignCompleted,
};

// ---- references and their management ------------------------------------------------------------

const GpsUpcalls GPS_UPCALLS = {
    .startOslHoldover = KvdLoz6TuRef_startGpsOslHoldover,
    .freeSerialLine = [] { KvdLoz6TuRef_freeSerialLine(REF_ROWS); },
};

const RefsUpcalls REFS_UPCALLS = {
    .followLink = [](u8 refType) { KvdLoz6TuRef_selectSynchRef(refType, FRO_NONE, FRO_NONE); },
    .finishWarmStart = KvdLoz6BiraIifAdm_finishWarmStart,
    .unableToTimeLock = KvdLoz6BiraIifAdm_unableToTimeLock,
    .delaySample = KvdLoz6TuPm_delaySample,
};

const PktsyncUpcalls PKTSYNC_UPCALLS = {.delaySample = KvdLoz6TuPm_delaySample};

const RefUpcalls REF_UPCALLS = {
    .selectionMade = KvdLoz6TuIifAdm_updateSelection,
    .startStatistics = KvdLoz6TuPm_startStatistics,
};

// ---- main processor's orders --------------------------------------------------------------------

const IifUpcalls IIF_UPCALLS = {
    .startHardware = KvdLoz6TuMgr_startHardware,
    .restartComponents = KvdLoz6TuMgr_restartComponents,
    .takeRole = KvdLoz6TuMgr_takeRole,
    .release = KvdLoz6TuMgr_release,
};
