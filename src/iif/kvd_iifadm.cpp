#include "iif/kvd_iifadm_orders.h"

#include "base/kvd_answer.h"
#include "base/kvd_mgr_hwdiag_log.h"
#include "base/trace_groups.h"
#include "base/tu_common.h"
#include "gps/kvd_gps.h"
#include "gps/kvd_gps_osl.h"
#include "hw/kvd_hwif.h"
#include "iif/kvd_biraiifadm.h"
#include "iif/kvd_iif_upcalls.h"
#include "iif/kvd_mgr_wait.h"
#include "mp/kvd_iifadm_state.h"
#include "node/pri.h"
#include "pktsync/tupktsync_proc.h"
#include "pktsync/tupktsyncadm.h"
#include "ref/kvd_phyadm.h"
#include "ref/kvd_ref.h"
#include "refs/kvd_hptsi.h"
#include "refs/kvd_idpi.h"
#include "refs/kvd_ref_idl.h"
#include "refs/kvd_slave.h"
#include "refs/kvd_slowpi.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control.h"
#include "reg/kvd_reg_pll.h"
#include "sig/reg_sig.h"
#include "socpri/kvd_socpri_inrsi.h"
#include "socpri/kvd_socpri_inrsi_sdu.h"

#include <cstring>

namespace {

using tuiif::state;

constexpr u32 REQUEST_SIGNAL_REVISION = 2;
constexpr u32 CONFIRM_SIGNAL_REVISION = 4;
constexpr u32 WANTED_PV = 22;
constexpr u32 PRI_PV = 3;
constexpr u16 IDPI_PROTOCOL_REV = 1;
constexpr OSTIME PRI_RETRY_ms = 3000;
constexpr OSTIME PRI_ANSWER_ms = 10'000;

// ---- own identity ----

void initiatePri()
{
    while (node::TarsoPri_initiateService(PRI_PV, PRI_PV, PRI_PV) != 0) {
        KVD_TRACE(TRACE_TUIIFADM, TRACE_INFO,
                  "WARNING: TarsoPri_initiateService() did not succeed, retrying ...");
        ose::delay(PRI_RETRY_ms);
    }
}

/// Which of the two answers have come, both with a good result.
struct Identity {
    bool instance = false;
    bool hwAddr = false;
};

void onPriSignal(const Signal* sig, Identity& known)
{
    const u32 result = node::TarsoPri_internal(sig);
    switch (sig->sigNo) {
    case TARSO_PRI_SERVER_UP_IND: break;
    case TARSO_PRI_INITIATE_SERVICE_CFM:
        if (result != 2) break;
        node::TarsoPiu_getOwnIdentity();
        node::TarsoPiu3_getOwnHWAddr();
        break;
    case TARSO_PRI_SERVER_DOWN_IND: initiatePri(); break;
    case TARSO_PIU_OWN_IDENTITY_CFM:
        if (const auto* cfm = as<TarsoPiuOwnIdentityCfm>(sig); cfm != nullptr && cfm->result == 1) {
            state().ownPiuInstanceId = cfm->piuInstanceId;
            known.instance = true;
        }
        break;
    case TARSO_PIU3_OWN_HW_ADDR_CFM:
        if (const auto* cfm = as<TarsoPiu3OwnHwAddrCfm>(sig); cfm != nullptr && cfm->result == 1) {
            state().ownPiuHwAddr_r.smn = cfm->smn;
            state().ownPiuHwAddr_r.apn = cfm->apn;
            known.hwAddr = true;
        }
        break;
    default: KVD_TRACE(TRACE_TUIIFADM, TRACE_INFO, "Unexpected signal: %u received", sig->sigNo); break;
    }
}

/// Its next signal; nullptr when none came in 10 s, which is traced.
Signal* awaitPri(const SIGSELECT* selection, const char* what)
{
    KvdMgrExchange exchange{TRACE_TUIIFADM, "The PRI service", PRI_ANSWER_ms};
    return KvdLoz6TuMgr_await(exchange, selection, what);
}

/// Nothing needs the service any more; one that dies here has no confirmation to give.
void terminatePri()
{
    static constexpr SIGSELECT TERMINATED[] = {2, TARSO_PRI_TERMINATE_SERVICE_CFM, TARSO_PRI_SERVER_DOWN_IND};
    if (node::TarsoPri_terminateService() != 0) return;
    Signal* sig = awaitPri(TERMINATED, "its end");
    if (sig == nullptr) return;
    node::TarsoPri_internal(sig);
    ose::free_buf(&sig);
}

/// Blocks the manager until the own identity is known. Other signals wait in the queue meanwhile. A service
/// that says nothing is asked again.
void fetchOwnIdentity()
{
    static constexpr SIGSELECT PRI_SIGNALS[] = {
        8,
        TARSO_PRI_INITIATE_SERVICE_CFM, TARSO_PRI_INITIATE_SERVICE_SUS,
        TARSO_PRI_INITIATE_SERVICE_REJ, TARSO_PRI_SERVER_UP_IND,
        TARSO_PRI_SERVER_DOWN_IND, TARSO_PRI_TERMINATE_SERVICE_CFM,
        TARSO_PIU_OWN_IDENTITY_CFM, TARSO_PIU3_OWN_HW_ADDR_CFM,
    };
    initiatePri();
    Identity known;
    while (!known.instance || !known.hwAddr) {
        Signal* sig = awaitPri(PRI_SIGNALS, "its answer, asks again");
        if (sig == nullptr) {
            initiatePri();
            continue;
        }
        onPriSignal(sig, known);
        ose::free_buf(&sig);
    }
    terminatePri();
    state().firstPriCall = 1;
}

// ---- name server ----

void onNameServerFound(PROCESS nameServer)
{
    if (state().nsAttach != 0) ose::detach(&state().nsAttach);
    state().nsPid = nameServer;
    state().nsAttach = node::NameService_attach(nameServer);
    node::NameService_ask(nameServer, TUIIF_SERVICE_NAME);
}

void onNameServerDead()
{
    state().nsAttach = 0;
    node::NameService_hunt();
}

// ---- connection ----

/// One that hears and says nothing isn't dead. It may take its time over many units, and answers each
/// request.
constexpr OSTIME CONFIRM_ms = 60'000;
constexpr KvdAnswerOf CONFIRM{TRACE_TUIIFADM, "The main processor", KVD_TUIIF_ANSWER_TMO};

void tryInitiateService()
{
    if (state().tuiifServerUp == 0 || state().msiMemInitiated == 0) {
        const char* const missing = state().msiMemInitiated != 0 ? "MSI initiated, TUIIF not so much"
                                    : state().tuiifServerUp != 0 ? "TUIIF initiated, MSI not so much"
                                                            : "Neither MSI nor TUIIF is initiated";
        KVD_TRACE(TRACE_TUIIFADM, TRACE_4, "%s", missing);
        return;
    }
    auto* req = node::make<KvdTuiifInitiateServiceReq>(KVD_TUIIF_INITIATE_SERVICE_REQ);
    req->signalRevision = REQUEST_SIGNAL_REVISION;
    req->pvFirstWanted = WANTED_PV;
    req->pvSecondWanted = WANTED_PV;
    req->pvThirdWanted = WANTED_PV;
    req->smn = tuiif::smn();
    req->apn = tuiif::apn();
    req->piuInstanceId = state().ownPiuInstanceId;
    req->boardType2 = getBoardType() == BVQ3 ? 1 : 0;
    tuiif::sendToPeer(req);
    KvdAnswer_await(state().answerTimer, CONFIRM, CONFIRM_ms);
}

void onAnswerTimeout()
{
    if (KvdAnswer_isLate(state().answerTimer, CONFIRM)) tryInitiateService();
}

void onServerUp(PROCESS server)
{
    if (state().nsAttach != 0) ose::detach(&state().nsAttach);
    if (state().peerAttach != 0) ose::detach(&state().peerAttach);
    Signal* dead = ose::alloc(sizeof(SIGSELECT), KVD_COMM_SERVER_DEAD);
    state().peerAttach = ose::attach(&dead, server);
    if (state().firstPriCall == 0) fetchOwnIdentity();
    state().tuiifServerUp = 1;
    state().procTuiifMpPid = server;
    tryInitiateService();
}

void onServerDead()
{
    state().peerAttach = 0;
    KvdTimer_cancel(state().answerTimer);
    tuiif::resetStatus();
    KvdLoz6TuRef_idlReset();
    state().savedBvqStatusData.tuiifRefState = 0;
    KvdLoz6TuGps_serverGone();
    KvdLoz6GpsOsl_serverGone();
    KvdLoz6TuHptsi_serverGone();
    // Packet synchronisation waits for the first word that a main processor is there: before, this one would
    // lie in front of it, and be read behind it.
    if (state().pktsyncUp) TuPktsync_tuiifDownInd();
    state().pktsyncUp = false;
    KvdLoz6TuReg_clearReceivedTimeData();
    KvdLoz6TuSlowpi_unsubscribe();
    if (state().startState != TUIIF_LOZ6_STARTED) {
        state().startState = TUIIF_BVQ_RESTARTED;
        KVD_TRACE(TRACE_TUIIFADM, TRACE_INFO,
                  "tuiifStartState: TUIIF_START_RESTART_READY->TUIIF_BVQ_RESTARTED");
        KvdLoz6TuPhyAdm_stop();
    }
    node::NameService_hunt();
    state().tuiifServerUp = 0;
}

/// True for an answer of the server that is there now. One that lay in the queue when its server died, or
/// came from elsewhere, would begin a wait that nobody's death ends.
bool isFromServer(SIGSELECT sigNo)
{
    KvdTimer_cancel(state().answerTimer);
    if (state().tuiifServerUp != 0) return true;
    KVD_TRACE(TRACE_TUIIFADM, TRACE_ERROR, "no main processor is there, answer dropped, signal=0x%x", sigNo);
    return false;
}

/// Deaf until the peer dies.
void waitForServerDead()
{
    KvdLoz6TuMgr_deafWait();
    onServerDead();
}

void onInitiateServiceSus(const KvdTuiifInitiateServiceSus* sus)
{
    if (sus == nullptr || !isFromServer(sus->sigNo)) return;
    KVD_TRACE(TRACE_TUIIFADM, TRACE_INFO,
              "KVD_TUIIF_INITIATE_SERVICE_SUS received. highestAvailablePV=%u"
              "Wait until BVQ has restarted",
              sus->highestAvailablePV);
    waitForServerDead();
}

void onInitiateServiceRej(const KvdTuiifInitiateServiceRej* rej)
{
    if (rej == nullptr || !isFromServer(rej->sigNo)) return;
    state().startState = TUIIF_ERROR;
    KVD_TRACE(TRACE_TUIIFADM, TRACE_INFO,
              "KVD_TUIIF_INITIATE_SERVICE_REJ received. highestAvailablePV=%u"
              "Wait until BVQ has restarted",
              rej->highestAvailablePV);
    waitForServerDead();
}

DateTime dateOf(const TuiifSfnInitTime& time)
{
    return {time.year, time.month, time.day, time.hour, time.minute, time.second};
}

/// A slave's loop tells its state when it changes, which may be long ago, and in between nobody else does.
/// While the hardware is the basic timing function's, the unit runs free. Nor does this main processor know
/// that the master's data is wanted.
void retellSlave()
{
    if (KvdLoz6BiraIifAdm_timeTuningOngoing() != 0) KvdLoz6TuIifAdm_sendIdl2SetMasterServerReq(1);
    const u32 slavePllState = KvdLoz6TuReg_slavePllState();
    if (slavePllState == SLAVE_PLL_Uninitialized) {
        KvdLoz6TuIifAdm_reportRegState(KvdLoz6TuReg_regState() == WARMUP ? WARMUP : FREQDRIFTING);
    } else {
        KvdLoz6TuIifAdm_reportSlavePllState(slavePllState);
        KvdLoz6TuIifAdm_updateRadioClockState(KvdLoz6TuIifAdm_lastRegulatorState());
        KvdLoz6TuRef_awaitLeader();
    }
}

/// What a freshly confirmed main processor is told, and what it tells the components.
void tellAfterConfirm(const KvdTuiifInitiateServiceCfm& cfm, u32 isFirstStart)
{
    tuiif::resetStatus();
    KvdLoz6TuIifAdm_sendOscTemperatureState(KvdLoz6HwDiag_lastTemperatureState());
    tuiif::updateCalibrationStatus();
    KvdLoz6TuReg_initSfnInitTime(dateOf(cfm.sfnInitTime));
    TuPktsync_selectionMode(cfm.selectionQlMode);
    KvdLoz6TuSlowpi_selectionMode(cfm.selectionQlMode);
    if (KvdLoz6TuSlave_connEstablish(IDPI_PROTOCOL_REV) != 0)
        KVD_TRACE(TRACE_TUIIFADM, TRACE_INFO, "failed to initiate IDPI subscription");
    KvdLoz6TuIifAdm_sendIdl2ModeInd();
    KvdLoz6Idpi_resendLinkStatus();
    if (isFirstStart == 0) {
        if (tuiif::isMaster())
            KvdLoz6Inrsi_mainProcessorRestarted();
        else
            KvdLoz6InrsiSdu_mainProcessorRestarted();
    }
    if (!tuiif::isMaster()) {
        KvdLoz6TuRef_stopIdl2SyncDataTimer();
        KvdLoz6TuSlave_idl2SyncDataStopped(0);
        if (isFirstStart == 0) retellSlave();
    }
    // What stands as it did, a slave's clock or a loss of tracking, is news to this main processor.
    if (isFirstStart == 0) tuiif::sendBvqStatus();
}

void onInitiateServiceCfm(const KvdTuiifInitiateServiceCfm* received, PROCESS server)
{
    if (received == nullptr || !isFromServer(received->sigNo)) return;
    const KvdTuiifInitiateServiceCfm cfm = *received;
    if (cfm.signalRevision != CONFIRM_SIGNAL_REVISION || cfm.pvSelected != WANTED_PV) {
        KVD_TRACE(TRACE_TUIIFADM, TRACE_INFO,
                  "KVD_TUIIF_INITIATE_SERVICE_CFM received with signal revision %u and PV %u . "
                  "Requested signal revision = %d, wanted PV = %d",
                  cfm.signalRevision, cfm.pvSelected, static_cast<int>(REQUEST_SIGNAL_REVISION),
                  static_cast<int>(WANTED_PV));
        return;
    }
    tuiif::SavedBvqStatusData& saved = state().savedBvqStatusData;
    state().procTuiifMpPid = server;
    saved.timeMode = cfm.timeMode;
    saved.masterSlaveMode = cfm.masterSlaveMode;
    saved.gpsOut = cfm.gpsOutEnabled;
    saved.hptsiOut = cfm.hptsiOutEnabled;
    saved.lastRegulatorState = KVD_TUIIF_UNKNOWN;
    saved.remoteRCState = REMOTE_RC_UNKNOWN;

    const u32 isMaster = tuiif::isMaster() ? 1 : 0;
    if (KvdLoz6BiraIifAdm_started() == 0 && KvdLoz6BiraIifAdm_initiate(isMaster) != 0)
        IIF_UPCALLS.startHardware(HW_IDL_MODE_NOT_AVAILABLE, 0);

    // A rejection before it leaves the components as little started as they were.
    const u32 isFirstStart = state().everConfirmed ? 0 : 1;
    state().everConfirmed = true;
    // The link told its loop's word; the regulator is only going to warm up.
    if (isFirstStart == 1 && KvdLoz6BiraIifAdm_idlMode() == KVD_BIRAIIF_IDL_MODE_1)
        saved.lastRegulatorState = KVD_TUIIF_UNKNOWN;
    const u8 outEmuMode = saved.gpsOut == 1 ? 1 : saved.hptsiOut == 1 ? 2 : 0;
    state().startState = TUIIF_START_RESTART_READY;
    IIF_UPCALLS.restartComponents(isFirstStart, saved.timeMode, saved.masterSlaveMode, outEmuMode);
    // The halted state returns when the peer has died: there is nobody to tell then.
    if (!tuiif::isReady()) return;
    state().pktsyncUp = true;
    tellAfterConfirm(cfm, isFirstStart);
}

}  // namespace

bool KvdLoz6TuIifAdm_dispatch(Signal* sig)
{
    using namespace tuiif;
    switch (sig->sigNo) {
    case KVD_COMM_ONS_HUNT:               onNameServerFound(ose::sender(&sig));       return true;
    case KVD_COMM_ONS_DEAD:               onNameServerDead();                         return true;
    case KVD_COMM_SERVER_DEAD:            onServerDead();                             return true;
    case KVD_COMM_SERVER_UP_IND:          onServerUp(ose::sender(&sig));              return true;
    case KVD_TUIIF_INITIATE_SERVICE_CFM:
        onInitiateServiceCfm(as<KvdTuiifInitiateServiceCfm>(sig), ose::sender(&sig)); return true;
    case KVD_TUIIF_INITIATE_SERVICE_SUS:
        onInitiateServiceSus(as<KvdTuiifInitiateServiceSus>(sig));                    return true;
    case KVD_TUIIF_INITIATE_SERVICE_REJ:
        onInitiateServiceRej(as<KvdTuiifInitiateServiceRej>(sig));                    return true;
    case KVD_TUIIF_ANSWER_TMO:            onAnswerTimeout();                          return true;
    case KVD_TUIIF_CHANGE_MASTER_TU_IND:
        onChangeMasterTu(as<KvdTuiifChangeMasterTuInd>(sig));                         return true;
    case KVD_TUIIF_IDL2_SELECT_IDL_TYPE_REQ:
        onSelectIdlType(as<KvdTuiifIdl2SelectIdlTypeReq>(sig));                       return true;
    case KVD_TUIIF_IDL2_TOGGLE_PERSISTENT_FREQ_LOCK_REQ:
        onTogglePersistentFreqLock(as<KvdTuiifIdl2TogglePersistentFreqLockReq>(sig)); return true;
    case KVD_TUIIF_IDL2_SET_MASTER_SERVER_CFM:
        onSetMasterServer(as<KvdTuiifIdl2SetMasterServerCfm>(sig));                   return true;
    case KVD_TUIIF_FREQ_HOLDOVER_TMO_IND: onHoldoverTimeout(HOLDOVER_FREQ);           return true;
    case KVD_TUIIF_TO_HOLDOVER_TMO_IND:   onHoldoverTimeout(HOLDOVER_TO);             return true;
    case KVD_TUIIF_RNT_HOLDOVER_TMO_IND:  onHoldoverTimeout(HOLDOVER_RNT);            return true;
    case KVD_FORCED_LOCKED_TIMEOUT_IND:   onForcedLockedTimeout();                    return true;
    case KVD_TUIIF_SOCPRI_SCAN_LINK_REQ:
        onSocpriScanLink(as<KvdTuiifSocpriScanLinkReq>(sig));                         return true;
    case KVD_TUIIF_SOCPRI_SELECT_SYNC_LINK_REQ:
        onSocpriSelectSyncLink(as<KvdTuiifSocpriSelectSyncLinkReq>(sig));             return true;
    case KVD_TUIIF_SOCPRI_BFN_ALIGN_TO_GROUP_REQ:
        onSocpriBfnAlignToGroup(as<KvdTuiifSocpriBfnAlignToGroupReq>(sig));           return true;
    case KVD_TUIIF_INRSI_BFN_JUMP_INFO_REQ_FWD:
        onBfnJumpInfo(as<KvdTuiifInrsiBfnJumpInfoReqFwd>(sig));                       return true;
    case KVD_TUIIF_SOCPRI_SDU_FOLLOW_OCXO_ADJ_IND:
        onSduFollowOcxoAdj(as<KvdTuiifSocpriSduFollowOcxoAdjInd>(sig));               return true;
    case KVD_TUIIF_SOCPRI_SDU_FOLLOW_SFC_ADJ_IND:
        onSduFollowSfcAdj(as<KvdTuiifSocpriSduFollowSfcAdjInd>(sig));                 return true;
    case KVD_TUIIF_SYNCH_PATH_SUP_IND:   // reference management takes it too, further down
    case KVD_TUIIF_CREATE_PKT_REF_RO_REQ:
    case KVD_TUIIF_DELETE_PKT_REF_RO_REQ:
    case KVD_TUIIF_SET_PKT_REF_RO_REQ:
    case KVD_TUIIF_AUDIT_PKT_REF_RO_CFM:
    case KVD_TUIIF_GET_PKT_REF_RO_ATTRIB_REQ:
        TuPktsync_forward(sig);                                                       return true;
    default:                                                                          return false;
    }
}

void KvdLoz6TuIifAdm_initiate() { node::NameService_hunt(); }

void KvdLoz6TuIifAdm_msiMemInitiated()
{
    state().msiMemInitiated = 1;
    tryInitiateService();
}
