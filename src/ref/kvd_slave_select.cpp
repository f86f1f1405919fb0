#include "ref/kvd_slave_select.h"

#include "base/trace_groups.h"
#include "hw/hali.h"
#include "mp/kvd_iifadm.h"
#include "node/trace.h"
#include "ref/kvd_ref.h"
#include "ref/kvd_ref_upcalls.h"
#include "refs/kvd_ref_idl.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control.h"
#include "reg/kvd_reg_pll.h"

namespace {

/// What both selections have in common: regulator, client view, statistics.
void follow(u8 refType, u32 regulatorRef, u32 froId, u32 froClassNo)
{
    KvdLoz6TuReg_configRefType(regulatorRef, froId, froClassNo);
    REF_UPCALLS.selectionMade(refType, froId, froClassNo);
    REF_UPCALLS.startStatistics(regulatorRef);
}

}  // namespace

bool KvdLoz6TuSlave_selectIdl1(u32 froId, u32 froClassNo)
{
    // The link comes in by an interrupt of its own, not through the reference multiplexer.
    const int status = HALI_subscribeRefTime(HALI_NO_HW_SYNC_REF);
    if (status != 0) {
        KVD_TRACE(TRACE_TUSLAVE, TRACE_ERROR,
                  "HALI_subscribeRefTime failed with status: %d for HALI_NO_HW_SYNC_REF", status);
        return false;
    }
    follow(IDL1_REF, TU_SR_IDL1_REF, froId, froClassNo);
    if (KvdLoz6TuReg_slavePllState() == SLAVE_PLL_Uninitialized && KvdLoz6TuReg_regState() > WARMUP)
        KvdLoz6TuReg_slavePll_init(SLAVE_PLL_Unlocked);
    return true;
}

bool KvdLoz6TuSlave_selectIdl2(u32 froId, u32 froClassNo)
{
    follow(IDL2_REF, TU_SR_IDL2_REF, froId, froClassNo);
    return true;
}

void KvdLoz6TuSlave_idl1LinkInd(u32 state) { KvdLoz6TuRef_idlSupervision(IDLPORT_1, state); }
void KvdLoz6TuSlave_idl2LinkInd(u32 state) { KvdLoz6TuRef_idlSupervision(IDLPORT_2, state); }
