// The unit's role in its node, master or slave, and what has to change with it.
#include "frame/kvd_mgr_proc.h"
#include "iif/kvd_biraiifadm.h"
#include "mp/kvd_iifadm.h"
#include "ref/kvd_ref.h"
#include "refs/kvd_ref_idl.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control.h"
#include "reg/kvd_reg_pll.h"

namespace {

void becomeMaster(u8 timeMode)
{
    KvdLoz6TuReg_setMaster(timeMode);
    KvdLoz6TuReg_startReadTempTimer();     // it stood still while the hardware was another's
}

/// A loop of the old life would be taken for one that follows the new master, and so would its clock state.
void becomeSlave(u8 timeMode)
{
    if (KvdLoz6TuReg_pllState() != PLL_Uninitialized) KvdLoz6TuReg_endPll();
    KvdLoz6TuReg_setSlave(timeMode);
    KvdLoz6TuReg_slavePll_setState(SLAVE_PLL_Uninitialized);
    KvdLoz6TuIifAdm_reportRegState(FREQDRIFTING);
}

}  // namespace

void KvdLoz6TuMgr_takeRole(u8 timeMode, u8 masterSlaveMode)
{
    const bool toMaster = masterSlaveMode == 1;
    if (KvdLoz6TuReg_isMaster() == toMaster) {
        if (toMaster) KvdLoz6TuReg_setMaster(timeMode);
        else          KvdLoz6TuReg_setSlave(timeMode);
        return;
    }
    // The hardware first: without it a regulator stands still, and with it the ports are looked at anew.
    KvdLoz6BiraIifAdm_roleChanged(toMaster ? 1 : 0);
    if (toMaster) becomeMaster(timeMode);
    else          becomeSlave(timeMode);
    KvdLoz6TuRef_roleChanged();
}
