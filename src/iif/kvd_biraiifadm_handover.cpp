// Hand-over of the hardware between the basic function and this program, and the slave's warm data.
#include "base/trace_groups.h"
#include "hw/kvd_hwif.h"
#include "iif/kvd_biraiifadm_int.h"
#include "mp/kvd_iifadm.h"
#include "node/sig.h"
#include "node/trace.h"
#include "ref/kvd_ref.h"
#include "refs/kvd_idpi.h"
#include "refs/kvd_ref_idl.h"
#include "refs/kvd_slave.h"
#include "refs/kvd_slave_warm.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_handover.h"
#include "reg/kvd_reg_pll.h"
#include "sig/tuiif_sig.h"

using bira::state;

namespace {

constexpr OSTIME BASIC_RESTART_ms  = 10000;
constexpr OSTIME IDL1_CLK_STATE_ms = 1200000;   // 20 min
constexpr OSTIME HAND_BACK_ms = 1200000;        // 20 min, in which the server has its frequency locked
constexpr KvdAnswerOf HAND_BACK{TRACE_BIRAIIFADM, BIRA_SERVER_NAME, KVD_BIRAIIF_HAND_BACK_TMO};
constexpr KvdAnswerOf ORDER{TRACE_BIRAIIFADM, BIRA_SERVER_NAME, KVD_BIRAIIF_ORDER_TMO};
constexpr u8 ORDERED_SYNCH_PORT = 1;            // of a link type that the main processor orders

/// The loop begins on the link, and the clock follows the other unit in frequency.
void startSlaveLoop()
{
    KvdLoz6TuReg_slavePll_init(SLAVE_PLL_Unlocked);
    KvdLoz6TuIifAdm_reportSlavePllState(SLAVE_PLL_Unlocked);
    KvdLoz6TuIifAdm_updateRadioClockState(KVD_TUIIF_SLAVE_FREQUENCY_LOCKED);
}

/// Keeps the rest of the warm data. `done` is the trace of success.
void storeClkStatus(u32 idpiClkStatus, const char* caller, const char* done)
{
    KvdLoz6SlaveWarm_setIdpiClkStatus(idpiClkStatus);
    if (KvdLoz6SlaveWarm_write(caller)) KVD_TRACE(TRACE_BIRAIIFADM, TRACE_INFO, "%s", done);
}
constexpr const char* STORED_LOCKED = "idpiClkStatus = CLK_STATUS_LOCKED stored in slave MSI memory";

template <typename T>
void sendToServer(T*& sig)
{
    if (state().biraServPid != 0) {
        node::sendTo(state().biraServPid, sig);
        return;
    }
    KVD_TRACE(TRACE_BIRAIIFADM, TRACE_ERROR, "%s isn't there, signal 0x%x not sent", BIRA_SERVER_NAME,
              sig->sigNo);
    Signal* unsent = reinterpret_cast<Signal*>(sig);
    sig = nullptr;
    ose::free_buf(&unsent);
}

}  // namespace

// ---- taking and giving --------------------------------------------------------------------------

namespace {

/// The answer is the server's lock. One that didn't hear of it would have nothing to lock.
void handBack()
{
    auto* ind = node::make<KvdBiraiifUnableToTimeLockInd>(KVD_BIRAIIF_UNABLE_TO_TIME_LOCK_IND);
    ind->synchPortNo = state().synchPortNo;
    sendToServer(ind);
    KvdAnswer_await(state().handBackTimer, HAND_BACK, HAND_BACK_ms);
}

}  // namespace

void bira::onHandBackTimeout()
{
    if (!KvdAnswer_isLate(state().handBackTimer, HAND_BACK)) return;
    if (KvdUnit_link().hasHwControl == 0 && state().persistentFreqLock == 0) handBack();
}

void bira::tellMasterServer()
{
    KvdLoz6TuIifAdm_sendIdl2SetMasterServerReq(KvdUnit_link().timeTuningOngoing);
}

void bira::takeOver()
{
    KvdTimer_cancel(state().handBackTimer);
    KvdUnit_link().timeTuningOngoing = 1;
    KvdUnit_link().hasHwControl = 1;
    storeClkStatus(IDPI_CLK_STATUS_LOCKED, __func__,
                   "Set idpiClkStatus = IDPI_CLK_STATUS_LOCKED, in slave warm MSI memory.");
    KvdLoz6TuReg_idl2Go();
    KvdLoz6TuReg_slavePll_setState(SLAVE_PLL_Uninitialized);
    if (KvdLoz6Idpi_portAvailable() != 0) {
        KvdLoz6Idpi_startRequestTimer();
        KvdLoz6TuRef_idl2Supervise();
    }
    startSlaveLoop();
    tuHwif_startIntProc();
}

void bira::onFreqLocked()
{
    if (!isSlave()) {
        KVD_TRACE(TRACE_BIRAIIFADM, TRACE_INFO, "frequency lock of a master's basic function dropped");
        return;
    }
    if (state().persistentFreqLock == 0) takeOver();
    tellMasterServer();
}

void bira::giveUp(bool tell)
{
    KvdUnit_link().timeTuningOngoing = 0;
    KvdUnit_link().hasHwControl = 0;
    KvdLoz6TuReg_idl2Stop();
    tuHwif_killIntProc();
    KvdLoz6Idpi_stopRequestTimer();
    KvdLoz6TuSlave_idl2Reset();
    KvdLoz6Idpi_clearDelayData();
    if (tell) handBack();
    KvdLoz6TuIifAdm_reportSlavePllState(SLAVE_PLL_Uninitialized);
    resetSlaveMsi(IDPI_CLK_STATUS_FREE_RUNNING);
    tellMasterServer();
}

int KvdLoz6BiraIifAdm_unableToTimeLock()
{
    if (state().biraInitiated == 0) return 1;
    bira::giveUp(true);
    return 0;
}

void bira::becomeIdl1Slave()
{
    KVD_TRACE(TRACE_BIRAIIFADM, TRACE_INFO, "IDL1 Detected.");
    if (KvdUnit_link().hasHwControl == 0 || KvdUnit_link().timeTuningOngoing != 0) {
        if (KvdUnit_link().hasHwControl == 0) {
            KVD_TRACE(TRACE_BIRAIIFADM, TRACE_INFO, "IDL1 Detected. Taking Hardware control.");
            KvdUnit_link().hasHwControl = 1;
        }
        if (KvdLoz6TuReg_initiateState() == TUREG_INIT)
            KvdLoz6TuIifAdm_updateRadioClockState(KVD_TUIIF_SLAVE_FREE_RUNNING);
        KvdUnit_link().timeTuningOngoing = 0;
        KvdLoz6TuReg_resetIdl1Slave();
    }
    tuHwif_startIntProc();
    KvdLoz6TuIifAdm_reportSlavePllState(SLAVE_PLL_Unlocked);
    startIdl1ClkStateTimer();
}

// ---- warm data ----------------------------------------------------------------------------------

void bira::initiateWithSlaveMsi(u32 expired)
{
    const bool isReady = KvdLoz6SlaveWarm_ready();
    const bool isRead = isReady && KvdLoz6SlaveWarm_read();
    const u32 idpiClkStatus = isRead ? KvdLoz6SlaveWarm_data().idpiClkStatus : 0;
    KVD_TRACE(TRACE_BIRAIIFADM, TRACE_INFO,
              "Initiate with slave with Slave MSI. isIdl2SlaveMsiReady=%u, isIdl2SlaveMsiRead=%u, "
              "idpiClkStatus=%u, isBiraUpTimerExpired=%u",
              u32{isReady}, u32{isRead}, idpiClkStatus, expired);
    KvdUnit_link().timeTuningOngoing = 1;
    KvdUnit_link().hasHwControl = 1;
    KvdLoz6BiraIifAdm_setIdl2InitState(IDL2_WARM_INIT_SUCCEEDED);
    if (isRead && expired == 0 && idpiClkStatus > IDPI_CLK_STATUS_FREE_RUNNING) {
        KVD_TRACE(TRACE_BIRAIIFADM, TRACE_INFO, "IDL2 slave MSI initialization after warm successful.");
        KvdUnit_link().fromSlaveMsi = 1;
        KvdLoz6SlaveWarm_setRestored();
        return;
    }
    KVD_TRACE(TRACE_BIRAIIFADM, TRACE_INFO, "Initiate with Slave MSI failed");
    resetSlaveMsi(IDPI_CLK_STATUS_LOCKED);
}

void bira::resetSlaveMsi(u32 idpiClkStatus)
{
    KVD_TRACE(TRACE_BIRAIIFADM, TRACE_INFO, "Stop using Slave MSI data.");
    KvdUnit_link().fromSlaveMsi = 0;
    if (KvdLoz6SlaveWarm_reset(idpiClkStatus, __func__) != 0)
        KVD_TRACE(TRACE_BIRAIIFADM, TRACE_INFO,
                  "Set idpiClkStatus = FREE_RUNNING, in slave warm MSI memory.");
}

void KvdLoz6BiraIifAdm_finishWarmStart()
{
    // The first one was lost when the start came before the main processor's connection.
    bira::tellMasterServer();
    KvdLoz6TuReg_idl2Go();
    startSlaveLoop();
    const u32 idpiClkStatus = KvdLoz6SlaveWarm_data().idpiClkStatus;
    KvdLoz6Idpi_sendClkStatus(static_cast<u8>(idpiClkStatus));
    KVD_TRACE(TRACE_BIRAIIFADM, TRACE_INFO, "Initiate with Slave MSI is DONE.");
    KvdLoz6BiraIifAdm_setIdl2InitState(IDL2_WARM_INIT_FINISHED);
    KvdLoz6TuRef_idl2Supervise();
}

// ---- the basic function is gone -----------------------------------------------------------------

void bira::startBasicRestartTimer()
{
    if (state().basicRestartTimer.runs()) {
        KVD_TRACE(TRACE_BIRAIIFADM, TRACE_INFO, "Basic restart tmo already started.");
        return;
    }
    if (KvdTimer_start(state().basicRestartTimer, BASIC_RESTART_ms, KVD_BIRAIIF_BASIC_RESTART_TMO))
        KVD_TRACE(TRACE_BIRAIIFADM, TRACE_INFO, "Basic restart tmo requested.");
    else
        KVD_TRACE(TRACE_BIRAIIFADM, TRACE_ERROR, "Basic restart tmo failed to start!");
}

void bira::onBasicRestartTimeout()
{
    if (!KvdTimer_expired(state().basicRestartTimer)) return;
    KvdUnit_link().hasHwControl = 1;
    KvdUnit_link().timeTuningOngoing = 0;
    KvdLoz6Idpi_stopRequestTimer();
    if (KvdUnit_link().idlMode == KVD_BIRAIIF_IDL_MODE_1) return;
    KvdUnit_link().idlMode = KVD_BIRAIIF_IDL_MODE_1;
    KvdLoz6TuReg_resetIdl1Slave();
    tuHwif_startIntProc();
    KvdLoz6TuIifAdm_updateRadioClockState(KVD_TUIIF_SLAVE_FREE_RUNNING);
    KvdLoz6TuIifAdm_sendIdl2ModeInd();
}

// ---- clock state of an IDL1 slave ---------------------------------------------------------------

void bira::startIdl1ClkStateTimer()
{
    if (state().idl1ClkStateTimer.runs()) {
        KVD_TRACE(TRACE_BIRAIIFADM, TRACE_INFO, "Idl1 slave IDPI clk state tmo already started.");
        return;
    }
    if (KvdTimer_start(state().idl1ClkStateTimer, IDL1_CLK_STATE_ms, KVD_BIRAIIF_IDL1_CLK_STATE_TMO))
        KVD_TRACE(TRACE_BIRAIIFADM, TRACE_INFO, "Idl1 slave IDPI clk state tmo requested.");
    else
        KVD_TRACE(TRACE_BIRAIIFADM, TRACE_ERROR, "Idl1 slave IDPI clk state tmo failed to start!");
}

void bira::onIdl1ClkStateTimeout()
{
    if (!KvdTimer_expired(state().idl1ClkStateTimer)) return;
    KvdLoz6BiraIifAdm_idl1ClkState(IDPI_CLK_STATUS_LOCKED, 0);
}

namespace {

void sendFreeRunning(const char* caller)
{
    if (KvdLoz6Idpi_sendClkStatus(IDPI_CLK_STATUS_FREE_RUNNING) != 0)
        KVD_TRACE(TRACE_BIRAIIFADM, TRACE_INFO,
                  "%s(): Unable to send IDPI_CLK_STATUS_FREE_RUNNING - IDPI Server is not "
                  "available.",
                  caller);
}

void sendLocked(const char* caller)
{
    if (KvdLoz6Idpi_sendClkStatus(IDPI_CLK_STATUS_LOCKED) != 0)
        KVD_TRACE(TRACE_BIRAIIFADM, TRACE_INFO,
                  "%s(): Unable to send IDPI_CLK_STATUS_LOCKED - IDPI Server is not available.", caller);
}

}  // namespace

void KvdLoz6BiraIifAdm_idl1ClkState(u32 clkStatus, u32 again)
{
    if (getBoardType() != BVQ3 || KvdUnit_link().idlMode != KVD_BIRAIIF_IDL_MODE_1) return;
    if (clkStatus == IDPI_CLK_STATUS_LOCKED) {
        KvdTimer_cancel(state().idl1ClkStateTimer);
        if (KvdLoz6SlaveWarm_data().idpiClkStatus == IDPI_CLK_STATUS_NOT_SET || again == 1) {
            KvdLoz6SlaveWarm_setIdpiClkStatus(IDPI_CLK_STATUS_FREE_RUNNING);
            sendFreeRunning(__func__);
        }
        sendLocked(__func__);
    } else if (clkStatus == IDPI_CLK_STATUS_FREE_RUNNING) {
        sendFreeRunning(__func__);
    } else {
        return;
    }
    storeClkStatus(clkStatus, __func__, STORED_LOCKED);
}

// ---- orders of the main processor ---------------------------------------------------------------

namespace {

void awaitConfirmation()
{
    if (state().biraServPid != 0) KvdAnswer_await(state().orderTimer, ORDER);
}

void confirmed(bira::Order& order)
{
    order.isOwed = false;
    if (!state().idlType.isOwed && !state().persistentLock.isOwed) KvdTimer_cancel(state().orderTimer);
}

void sendIdlType(const bira::Order& order)
{
    auto* req = node::make<KvdBiraiifIdl2SelectIdlTypeReq>(KVD_BIRAIIF_IDL2_SELECT_IDL_TYPE_REQ);
    req->idl2Type = order.value;
    req->synchPortNo = order.synchPortNo;
    sendToServer(req);
    state().idlType = order;
    state().idlType.isOwed = state().biraServPid != 0;     // one that comes tells its link type itself
    awaitConfirmation();
}

void sendPersistentLock(const bira::Order& order)
{
    auto* req = node::make<KvdBiraiifIdl2TogglePersistentFreqLockReq>(
        KVD_BIRAIIF_IDL2_TOGGLE_PERSISTENT_FREQ_LOCK_REQ);
    req->persistentFreqLock = order.value;
    req->synchPortNo = order.synchPortNo;
    sendToServer(req);
    state().persistentLock = order;
    state().persistentLock.isOwed = true;
    awaitConfirmation();
}

void linkTypeOrdered(u32 idl2Type)
{
    KvdBiraiifIdl2LinkInd ind{KVD_BIRAIIF_IDL2_LINK_IND, static_cast<u8>(idl2Type), 0, ORDERED_SYNCH_PORT, 1};
    bira::linkIndication(ind);
}

}  // namespace

void bira::sendOrders()
{
    if (state().idlType.isOwed)        sendIdlType(state().idlType);
    if (state().persistentLock.isOwed) sendPersistentLock(state().persistentLock);
}

void bira::onOrderTimeout()
{
    if (KvdAnswer_isLate(state().orderTimer, ORDER)) sendOrders();
}

void KvdLoz6BiraIifAdm_selectIdlType(u32 idl2Type, u8 synchPortNo)
{
    if (!bira::isLinkType(idl2Type)) return;
    storeClkStatus(IDPI_CLK_STATUS_LOCKED, __func__, STORED_LOCKED);
    if (KvdLoz6TuReg_slavePllState() == SLAVE_PLL_Uninitialized && idl2Type == KVD_BIRAIIF_IDL_MODE_1)
        KvdLoz6TuReg_slavePll_init(SLAVE_PLL_Unlocked);
    linkTypeOrdered(idl2Type);
    if (idl2Type == KVD_BIRAIIF_IDL_MODE_1)
        KvdLoz6BiraIifAdm_idl1ClkState(IDPI_CLK_STATUS_LOCKED, 1);
    else if (state().persistentFreqLock == 0)
        bira::takeOver();
    sendIdlType({idl2Type, synchPortNo});
}

void KvdLoz6BiraIifAdm_togglePersistentFreqLock(u32 value, u8 synchPortNo)
{
    state().persistentFreqLock = value;
    if (value == 1 && state().biraInitiated != 0) bira::giveUp(false);
    if (value == 0) bira::takeBackAsMaster();
    sendPersistentLock({value, synchPortNo});
}

void bira::onSelectIdlTypeCfm()
{
    KVD_TRACE(TRACE_BIRAIIFADM, TRACE_INFO, "KVD_BIRAIIF_IDL2_SELECT_IDL_TYPE_CFM received");
    confirmed(state().idlType);
}

void bira::onTogglePersistentFreqLockCfm()
{
    confirmed(state().persistentLock);
    if (state().persistentFreqLock == 1 && isSlave())
        KvdLoz6TuIifAdm_updateRadioClockState(KVD_TUIIF_SLAVE_FREE_RUNNING);
    state().persistentFreqLock = 0;
}
