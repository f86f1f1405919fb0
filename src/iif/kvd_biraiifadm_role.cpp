// Master becomes slave, slave becomes master: who has the hardware then, and what the server is told.
#include "hw/kvd_hwif.h"
#include "iif/kvd_biraiifadm_int.h"
#include "refs/kvd_idpi.h"
#include "refs/kvd_slave.h"
#include "refs/kvd_slave_warm.h"
#include "reg/kvd_reg.h"

using bira::state;

namespace {

void stopWaiting()
{
    KvdTimer_cancel(state().basicRestartTimer);
    KvdTimer_cancel(state().idl1ClkStateTimer);
    KvdTimer_cancel(state().handBackTimer);
}

/// A master has the hardware, whether it was handed over before or not.
void takeAsMaster()
{
    const bool tuned = KvdUnit_link().timeTuningOngoing != 0;
    KvdUnit_link().timeTuningOngoing = 0;
    KvdUnit_link().hasHwControl = 1;
    if (tuned) bira::tellMasterServer();
    if (KvdUnit_link().idlMode == KVD_BIRAIIF_IDL_MODE_2) bira::resetSlaveMsi(IDPI_CLK_STATUS_FREE_RUNNING);
    KvdLoz6TuSlave_idl2Reset();
    KvdLoz6Idpi_stopRequestTimer();              // a master asks more often
    if (KvdLoz6Idpi_portAvailable() != 0) KvdLoz6Idpi_startRequestTimer();
    tuHwif_startIntProc();
}

/// On IDL2 a slave begins with the server's frequency lock. One that has nothing to say counts as dead.
void giveAsSlave()
{
    if (KvdUnit_link().idlMode != KVD_BIRAIIF_IDL_MODE_2) return;
    bira::giveUp(false);
    bira::startBasicRestartTimer();
}

}  // namespace

/// No lock of the server's brings a master its hardware.
void bira::takeBackAsMaster()
{
    if (isSlave() || KvdUnit_link().hasHwControl != 0) return;
    takeAsMaster();
    KvdLoz6TuReg_startReadTempTimer();
}

void KvdLoz6BiraIifAdm_roleChanged(u32 isMaster)
{
    state().isMaster = isMaster;
    stopWaiting();
    if (isMaster != 0) takeAsMaster();
    else               giveAsSlave();
    if (state().biraServPid != 0) bira::requestService();
}
