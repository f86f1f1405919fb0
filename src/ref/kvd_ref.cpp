// The table, its queries, the dispatch and the restart.
#include "ref/kvd_ref.h"

#include "hw/hwif_sig.h"
#include "iif/kvd_biraiifadm.h"
#include "iif/kvd_iifadm.h"
#include "mgr/kvd_mgr_proc.h"
#include "mgr/trace_groups.h"
#include "node/sig.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "ref/kvd_ref_int.h"
#include "ref/kvd_ref_mon_proc.h"
#include "ref/kvd_ref_select.h"
#include "refs/idpi_sig.h"
#include "refs/kvd_slave.h"
#include "reg/kvd_reg_packet.h"
#include "reg/kvd_reg_pll.h"

namespace {

constexpr u32 INTERRUPT_PORT_A = 0x1;    // pending bit of the inter-unit link's own input

/// Classes of the packet references that have a delay history.
constexpr u32 CLASS_NTP = 2, CLASS_PACKET_TIME = 4, CLASS_PACKET_FREQ = 5;

ose::ModuleData<RefTable> s;

bool isMaster() { return KvdLoz6TuMgr_masterSlaveMode() == 1; }

// ---- handlers -----------------------------------------------------------------------------------

void onSelectSynchRef(const KvdTuiifSelectSynchRefInd* ind)
{
    if (ind == nullptr) return;
    KvdLoz6TuRef_selectSynchRef(ind->refType, ind->froId, ind->froClassNo);
}

bool hasDelayHistory(u32 froClassNo)
{
    return froClassNo == CLASS_NTP || froClassNo == CLASS_PACKET_TIME ||
           froClassNo == CLASS_PACKET_FREQ;
}

void onRegisterSynchRef(const KvdTuiifRegisterSynchRefInd* ind)
{
    if (ind == nullptr) return;
    if (hasDelayHistory(ind->froClassNo))
        KvdLoz6TuReg_registerPacketRef(ind->froClassNo, ind->froId);
}

void onDeregisterSynchRef(const KvdTuiifDeregisterSynchRefInd* ind)
{
    if (ind == nullptr) return;
    if (hasDelayHistory(ind->froClassNo))
        KvdLoz6TuReg_deregisterPacketRef(ind->froClassNo, ind->froId);
}

void onRefInterrupt(const KvdTuhwifRefInterrupt* ind)
{
    if (ind == nullptr || (ind->pending & INTERRUPT_PORT_A) == 0) return;
    if (!isMaster() && KvdLoz6BiraIifAdm_idlMode() == KVD_BIRAIIF_IDL_MODE_2)
        return;   // the slave listens on port 2
    KvdLoz6TuRef_idlInterrupt(IDLPORT_1);
}

void onIdl2SyncData(const Signal* sig)
{
    if (isMaster()) return;
    if (KvdLoz6TuReg_handleIdl2Slave(sig) == 1) KvdLoz6TuRef_idlInterrupt(IDLPORT_2);
}

void onIdl2Delay()
{
    if (isMaster()) KvdLoz6TuRef_idlInterrupt(IDLPORT_2);
}

void fillRows()
{
    for (u32 row = 0; row < REF_ROWS; ++row) {
        RefDesc& desc = s->refDescTable[row];
        desc.refStatus = REF_STATUS_UNK;
        desc.filterType = NO_FILTER;
        desc.froId = FRO_NONE;
        desc.froClassNo = FRO_NONE;
        desc.refType = REF_ROW_TRAITS[row].refType;
    }
}

/// The main processor is going to ask for supervision again.
void releaseRows()
{
    for (u32 row = 0; row < REF_ROWS; ++row) {
        KvdLoz6TuRef_stopFilter(row);
        s->refDescTable[row].supervisionStatus = 0;
        s->refDescTable[row].refStatus = REF_STATUS_UNK;
    }
}

u32 validRow(u32 row) { return row < REF_ROWS ? row : 0; }

}  // namespace

RefTable& KvdLoz6TuRef_table() { return *s; }

int KvdLoz6TuRef_dispatch(Signal* sig)
{
    switch (sig->sigNo) {
    case KVD_TUIIF_SYNCH_PATH_SUP_IND:
        KvdLoz6TuRef_onPathSupervision(as<KvdTuiifSynchPathSupInd>(sig));
        return 1;
    case KVD_TUIIF_SELECT_SYNCH_REF_IND:
        onSelectSynchRef(as<KvdTuiifSelectSynchRefInd>(sig));
        return 1;
    case KVD_TUIIF_REGISTER_SYNCH_REF_IND:
        onRegisterSynchRef(as<KvdTuiifRegisterSynchRefInd>(sig));
        return 1;
    case KVD_TUIIF_DEREGISTER_SYNCH_REF_IND:
        onDeregisterSynchRef(as<KvdTuiifDeregisterSynchRefInd>(sig));
        return 1;
    case KVD_TUREFMON_PROC_TOGGLE_STATUS_IND:
        KvdLoz6TuRef_onToggleStatus();
        return 1;
    case KVD_TUREF_TIMEOUT_IND:
        KvdLoz6TuRef_onFilterTimeout(as<KvdTurefTimeoutInd>(sig));
        return 1;
    case KVD_TUREF_IDL1_WTR_TIMEOUT_IND:
        KvdLoz6TuRef_onIdlWtrTimeout(IDLPORT_1);
        return 1;
    case KVD_TUREF_IDL1_HO_TIMEOUT_IND:
        KvdLoz6TuRef_onIdlHoTimeout(IDLPORT_1);
        return 1;
    case KVD_TUREF_IDL1_SUPERVISION_TIMEOUT_IND:
        KvdLoz6TuRef_onIdlSupervisionTimeout(IDLPORT_1);
        return 1;
    case KVD_TUREF_IDL2_WTR_TIMEOUT_IND:
        KvdLoz6TuRef_onIdlWtrTimeout(IDLPORT_2);
        return 1;
    case KVD_TUREF_IDL2_HO_TIMEOUT_IND:
        KvdLoz6TuRef_onIdlHoTimeout(IDLPORT_2);
        return 1;
    case KVD_TUREF_IDL2_SUPERVISION_TIMEOUT_IND:
        KvdLoz6TuRef_onIdlSupervisionTimeout(IDLPORT_2);
        return 1;
    case KVD_TUREF_GPSOSL_HOLDOVER_TIMEOUT_IND:
        KvdLoz6TuRef_onGpsOslHoldoverTimeout();
        return 1;
    case KVD_TUREF_SLAVE_HOLDOVER_TIMEOUT_IND:
        KvdLoz6TuRef_onSlaveHoldoverTimeout(as<KvdTurefSlaveHoldoverTimeoutInd>(sig));
        return 1;
    case KVD_TUREF_IDL2_SYNC_DATA_TIMEOUT_IND:
        KvdLoz6TuRef_onIdl2SyncDataTimeout();
        return 1;
    case KVD_TUIIF_IDL2_SYNC_DATA_IND:
        onIdl2SyncData(sig);
        return 1;
    case KVD_TUHWIF_REF_INTERRUPT:
        onRefInterrupt(as<KvdTuhwifRefInterrupt>(sig));
        return 1;
    case IDPI_GET_DELAY_CFM:
        onIdl2Delay();
        return 1;
    default:
        return 0;
    }
}

void KvdLoz6TuRef_restart(u32 isFirstStart)
{
    const bool first = isFirstStart == 1;
    KvdLoz6TuRef_idlClear();
    s->refStatusBits = 0;
    s->gpsExtToggle = NO_TOGGLE;
    s->prevGpsToggle = NO_TOGGLE;
    s->ethStatusSent = 0;
    s->firstStart = isFirstStart;
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

// ---- queries ------------------------------------------------------------------------------------

u32 KvdLoz6TuRef_rowOfRefType(u8 refType)
{
    for (u32 row = 0; row < REF_ROWS; ++row)
        if (s->refDescTable[row].refType == refType) return row;
    KVD_TRACE(TRACE_TUREF, TRACE_INFO, "refType: %s (%u) not found in refDescTable",
              KvdLoz6TuRef_refTypeText(refType), refType);
    return 0;
}

RefDesc& KvdLoz6TuRef_row(u32 row) { return s->refDescTable[validRow(row)]; }
u32 KvdLoz6TuRef_toggleMask(u32 row) { return REF_ROW_TRAITS[validRow(row)].toggleMask; }
u32 KvdLoz6TuRef_stateMask(u32 row) { return REF_ROW_TRAITS[validRow(row)].stateMask; }
u32 KvdLoz6TuRef_isFirstStart() { return s->firstStart; }
u32 KvdLoz6TuRef_lastToggleStatus() { return s->lastToggleStatus; }
u32 KvdLoz6TuRef_noChangeCounter() { return s->noChangeCounter; }
u32 KvdLoz6TuRef_refStatusBits() { return s->refStatusBits; }
void KvdLoz6TuRef_setRefStatusBits(u32 bits) { s->refStatusBits |= bits; }
void KvdLoz6TuRef_clearRefStatusBits(u32 bits) { s->refStatusBits &= ~bits; }
u32 KvdLoz6TuRef_gpsExtToggle() { return s->gpsExtToggle; }
u32 KvdLoz6TuRef_prevGpsToggle() { return s->prevGpsToggle; }

void KvdLoz6TuRef_setGpsExtToggle(u32 toggle)
{
    s->prevGpsToggle = s->gpsExtToggle;
    s->gpsExtToggle = toggle;
}

u32 KvdLoz6TuRef_ethStatusSent() { return s->ethStatusSent; }
void KvdLoz6TuRef_setEthStatusSent(u32 sent) { s->ethStatusSent = sent; }

void KvdLoz6TuRef_report() { KvdLoz6TuIifAdm_updateRefState(KvdLoz6TuIifAdm_tuiifRefState()); }

const char* KvdLoz6TuRef_refTypeText(u8 refType)
{
    switch (refType) {
    case NO_REF:          return "NO_REF";
    case TU_REF:          return "TU_REF";
    case NTP_REF:         return "NTP_REF";
    case PDH_SDH_REF:     return "PDH_SDH_REF";
    case IDL1_REF:        return "IDL1_REF";
    case GPS_REF:         return "GPS_REF";
    case PACKET_TIME_REF: return "PACKET_TIME_REF";
    case PACKET_FREQ_REF: return "PACKET_FREQ_REF";
    case IDL2_REF:        return "IDL2_REF";
    case HPTSI_REF:       return "HPTSI_REF";
    case ETHA_REF:        return "ETHA_REF";
    case ETHB_REF:        return "ETHB_REF";
    case ETHC_REF:        return "ETHC_REF";
    case GPSOSL_REF:      return "GPSOSL_REF";
    case SOCPRI_REF:      return "SOCPRI_REF";
    default:              return "<Unknown>";
    }
}
