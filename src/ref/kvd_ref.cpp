// The table, its queries, the dispatch and the restart.
#include "ref/kvd_ref.h"

#include "base/trace_groups.h"
#include "mp/kvd_iifadm.h"
#include "node/sig.h"
#include "node/trace.h"
#include "ref/kvd_ref_int.h"
#include "ref/kvd_ref_mon_proc.h"
#include "ref/kvd_ref_select.h"
#include "refs/kvd_ref_idl.h"
#include "refs/kvd_slave.h"
#include "reg/kvd_reg_packet.h"
#include "reg/kvd_reg_pll.h"
#include "sig/hwif_sig.h"
#include "sig/idpi_sig.h"
#include "sig/ref_types.h"
#include "unit/kvd_unit_link.h"
#include "unit/kvd_unit_process.h"
#include "hw/kvd_hwif.h"

namespace {

RefTable& table() { return KvdLoz6TuRef_table(); }

// ---- handlers -----------------------------------------------------------------------------------

void onSelectSynchRef(const KvdTuiifSelectSynchRefInd* ind)
{
    if (ind == nullptr) return;
    KvdLoz6TuRef_selectSynchRef(ind->refType, ind->froId, ind->froClassNo);
}

bool hasDelayHistory(u32 froClassNo)
{
    return froClassNo == NTP_FRO_CLASS || froClassNo == PACKET_TIME_FRO_CLASS
           || froClassNo == PACKET_FREQ_FRO_CLASS;
}

void onRegisterSynchRef(const KvdTuiifRegisterSynchRefInd* ind)
{
    if (ind == nullptr) return;
    if (hasDelayHistory(ind->froClassNo)) KvdLoz6TuReg_registerPacketRef(ind->froClassNo, ind->froId);
}

void onDeregisterSynchRef(const KvdTuiifDeregisterSynchRefInd* ind)
{
    if (ind == nullptr) return;
    if (hasDelayHistory(ind->froClassNo)) KvdLoz6TuReg_deregisterPacketRef(ind->froClassNo, ind->froId);
}

void onRefInterrupt(const KvdTuhwifRefInterrupt* ind)
{
    if (ind == nullptr || (ind->pending & TU_BFN_IN_INT) == 0) return;
    if (!KvdLoz6TuMgr_isMaster() && KvdLoz6BiraIifAdm_idlMode() == KVD_BIRAIIF_IDL_MODE_2)
        return;   // the slave listens on port 2
    KvdLoz6TuRef_idlInterrupt(IDLPORT_1);
}

void onIdl2SyncData(const Signal* sig)
{
    if (KvdLoz6TuMgr_isMaster()) return;
    if (KvdLoz6TuReg_handleIdl2Slave(sig)) KvdLoz6TuRef_idlInterrupt(IDLPORT_2);
}

void onIdl2Delay()
{
    if (KvdLoz6TuMgr_isMaster()) KvdLoz6TuRef_idlInterrupt(IDLPORT_2);
}

void fillRows()
{
    u32 row = 0;
    for (RefDesc& desc : table().refDescTable) {
        desc.refStatus = REF_STATUS_UNK;
        desc.filterType = NO_FILTER;
        desc.froId = FRO_NONE;
        desc.froClassNo = FRO_NONE;
        desc.refType = REF_ROW_TRAITS[row++].refType;
    }
}

/// The main processor is going to ask for supervision again.
void releaseRows()
{
    for (RefDesc& desc : table().refDescTable) {
        KvdTimer_cancel(desc.filterTimer);
        desc.filterType = NO_FILTER;
        desc.supervisionStatus = 0;
        desc.refStatus = REF_STATUS_UNK;
    }
}

}  // namespace

bool KvdLoz6TuRef_dispatch(Signal* sig)
{
    switch (sig->sigNo) {
    case KVD_TUIIF_SYNCH_PATH_SUP_IND:
        KvdLoz6TuRef_onPathSupervision(as<KvdTuiifSynchPathSupInd>(sig));                         return true;
    case KVD_TUIIF_SELECT_SYNCH_REF_IND:
        onSelectSynchRef(as<KvdTuiifSelectSynchRefInd>(sig));                                     return true;
    case KVD_TUIIF_REGISTER_SYNCH_REF_IND:
        onRegisterSynchRef(as<KvdTuiifRegisterSynchRefInd>(sig));                                 return true;
    case KVD_TUIIF_DEREGISTER_SYNCH_REF_IND:
        onDeregisterSynchRef(as<KvdTuiifDeregisterSynchRefInd>(sig));                             return true;
    case KVD_TUREFMON_PROC_TOGGLE_STATUS_IND:    KvdLoz6TuRef_onToggleStatus();                   return true;
    case KVD_TUREF_TIMEOUT_IND:
        KvdLoz6TuRef_onFilterTimeout(as<KvdTurefTimeoutInd>(sig));                                return true;
    case KVD_TUREF_IDL1_WTR_TIMEOUT_IND:         KvdLoz6TuRef_onIdlWtrTimeout(IDLPORT_1);         return true;
    case KVD_TUREF_IDL1_HO_TIMEOUT_IND:          KvdLoz6TuRef_onIdlHoTimeout(IDLPORT_1);          return true;
    case KVD_TUREF_IDL1_SUPERVISION_TIMEOUT_IND: KvdLoz6TuRef_onIdlSupervisionTimeout(IDLPORT_1); return true;
    case KVD_TUREF_IDL2_WTR_TIMEOUT_IND:         KvdLoz6TuRef_onIdlWtrTimeout(IDLPORT_2);         return true;
    case KVD_TUREF_IDL2_HO_TIMEOUT_IND:          KvdLoz6TuRef_onIdlHoTimeout(IDLPORT_2);          return true;
    case KVD_TUREF_IDL2_SUPERVISION_TIMEOUT_IND: KvdLoz6TuRef_onIdlSupervisionTimeout(IDLPORT_2); return true;
    case KVD_TUREF_GPSOSL_HOLDOVER_TIMEOUT_IND:  KvdLoz6TuRef_onGpsOslHoldoverTimeout();          return true;
    case KVD_TUREF_SLAVE_HOLDOVER_TIMEOUT_IND:
        KvdLoz6TuRef_onSlaveHoldoverTimeout(as<KvdTurefSlaveHoldoverTimeoutInd>(sig));            return true;
    case KVD_TUREF_IDL2_SYNC_DATA_TIMEOUT_IND:   KvdLoz6TuRef_onIdl2SyncDataTimeout();            return true;
    case KVD_TUIIF_IDL2_SYNC_DATA_IND:           onIdl2SyncData(sig);                             return true;
    case KVD_TUHWIF_REF_INTERRUPT:               onRefInterrupt(as<KvdTuhwifRefInterrupt>(sig));  return true;
    case IDPI_GET_DELAY_CFM:                     onIdl2Delay();                                   return true;
    default:                                                                                     return false;
    }
}

void KvdLoz6TuRef_restart(u32 isFirstStart)
{
    const bool first = isFirstStart == 1;
    KvdLoz6TuRef_idlClear();
    table().refStatusBits = 0;
    table().gpsExtToggle = NO_TOGGLE;
    table().prevGpsToggle = NO_TOGGLE;
    table().ethStatusSent = 0;
    table().firstStart = isFirstStart;
    if (first) {
        fillRows();
        KvdLoz6TuRefMon_start();
    } else {
        releaseRows();
    }

    const u8 selected = KvdLoz6TuRef_selectedRef();
    if (!first && (selected == GPSOSL_REF || selected == SOCPRI_REF) && KvdLoz6TuReg_pllIsLocked())
        KvdLoz6TuReg_pll_clearEmptyHOVector();
    if (first || (selected != IDL1_REF && selected != IDL2_REF))
        KvdLoz6TuRef_selectSynchRef(NO_REF, FRO_NONE, FRO_NONE);
    if (first) KvdLoz6TuRef_clearGpsOslHoldoverTimer();
}

void KvdLoz6TuRef_report() { KvdLoz6TuIifAdm_updateRefState(KvdLoz6TuIifAdm_tuiifRefState()); }
