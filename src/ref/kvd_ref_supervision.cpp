// Supervision of the paths: toggle filter, hold-off and wait-to-restore, the common input's
// machine, start and end of supervision.
#include "base/trace_groups.h"
#include "gps/kvd_gps.h"
#include "gps/kvd_gps_osl.h"
#include "hw/hali.h"
#include "mp/kvd_iifadm.h"
#include "node/sig.h"
#include "node/trace.h"
#include "ref/kvd_phyadm.h"
#include "ref/kvd_ref.h"
#include "ref/kvd_ref_int.h"
#include "ref/kvd_ref_select.h"
#include "ref/kvd_slave_select.h"
#include "refs/kvd_hptsi.h"
#include "reg/kvd_reg.h"

namespace {

// ms
constexpr OSTIME HOLDOFF_TIME     = 2500;
constexpr OSTIME HOLDOFF_TIME_REF = 5000;    // HPTSI and GPS out sync link
constexpr OSTIME HOLDOFF_GPS      = 60000;
constexpr OSTIME HOLDOFF_TU_1PPS  = 30000;   // common input that carries, or carried last, a 1PPS
constexpr OSTIME WTR_TIME         = 10000;

RefTable& table() { return KvdLoz6TuRef_table(); }
RefDesc& descOf(u32 row) { return table().refDescTable[row]; }

bool isEthernet(u8 refType) { return refType >= ETHA_REF && refType <= ETHC_REF; }

bool sharesCommonInput(u8 refType)
{
    return refType == TU_REF || refType == GPS_REF || refType == HPTSI_REF || refType == GPSOSL_REF;
}

/// A row whose receiver has a front end of its own.
bool hasOwner(u8 refType) { return sharesCommonInput(refType) && refType != TU_REF; }

// ---- filter timers ------------------------------------------------------------------------------

OSTIME holdoffTime(u8 refType)
{
    switch (refType) {
    case HPTSI_REF:
    case GPSOSL_REF: return HOLDOFF_TIME_REF;
    case GPS_REF: return HOLDOFF_GPS;
    case TU_REF: {
        const u32 last = table().gpsExtToggle != NO_TOGGLE ? table().gpsExtToggle : table().prevGpsToggle;
        return last == GPS_TOGGLE ? HOLDOFF_TU_1PPS : HOLDOFF_TIME;
    }
    default: return HOLDOFF_TIME;
    }
}

void startFilter(u32 row, OSTIME time, FilterType filter)
{
    RefDesc& desc = descOf(row);
    if (!desc.filterTimer.runs()) {
        auto* ind = node::make<KvdTurefTimeoutInd>(KVD_TUREF_TIMEOUT_IND);
        ind->row = static_cast<u8>(row);
        if (!KvdTimer_startSig(desc.filterTimer, time, reinterpret_cast<Signal*>(ind)))
            KVD_TRACE(TRACE_TUREF, TRACE_ERROR, "%u timer failed to start for ref path #%d",
                      static_cast<u32>(filter), static_cast<int>(row));
    }
    desc.filterType = filter;
}

void cancelFilter(u32 row)
{
    KvdTimer_cancel(descOf(row).filterTimer);
    descOf(row).filterType = NO_FILTER;
}

// ---- the common input: external frequency, external 1PPS, or a receiver's 1PPS ------------------

void routeTuRef(u32 selector, const char* selectorText, u32 regulatorRef)
{
    if (KvdLoz6TuRef_selectedRef() != TU_REF) return;
    const int status = HALI_subscribeRefTime(selector);
    if (status != 0) {
        KVD_TRACE(TRACE_TUREF, TRACE_ERROR, "HALI_subscribeRefTime failed with status: %d for %s", status,
                  selectorText);
        return;
    }
    KvdLoz6TuReg_configRefType(regulatorRef, descOf(ROW_TU).froId, descOf(ROW_TU).froClassNo);
}

void updateGpsExtToggle(u32 row, u32 status)
{
    const u32 from = table().gpsExtToggle;
    if ((REF_ROW_TRAITS[row].toggleMask & status) == 0) {
        // The selection stays: the signal may come back.
        if (from == NO_TOGGLE) return;
        KVD_TRACE(TRACE_TUREF, TRACE_INFO, "gpsExtToggle: from %d to NO_TOGGLE", static_cast<int>(from));
        KvdLoz6TuRef_setGpsExtToggle(NO_TOGGLE);
    } else if ((status & TOGGLE_EXT) != 0) {
        if (from != NO_TOGGLE && from != GPS_TOGGLE) {
            KVD_TRACE(TRACE_TUREF, TRACE_INFO, "Unexpected EXT Toggle in state %d ", static_cast<int>(from));
            return;
        }
        KVD_TRACE(TRACE_TUREF, TRACE_INFO, "gpsExtToggle: from %d to EXT_TOGGLE", static_cast<int>(from));
        KvdLoz6TuRef_setGpsExtToggle(EXT_TOGGLE);
        routeTuRef(HALI_EXT_HW_SYNC_REF, "HALI_EXT_HW_SYNC_REF", TU_SR_EXT_REF);
    } else {
        if (from != NO_TOGGLE && from != EXT_TOGGLE) {
            KVD_TRACE(TRACE_TUREF, TRACE_INFO, "Unexpected EXT Toggle in state %d ", static_cast<int>(from));
            return;
        }
        KVD_TRACE(TRACE_TUREF, TRACE_INFO, "gpsExtToggle: from %d to GPS_TOGGLE", static_cast<int>(from));
        KvdLoz6TuRef_setGpsExtToggle(GPS_TOGGLE);
        routeTuRef(HALI_GPS_HW_SYNC_REF, "HALI_GPS_HW_SYNC_REF", TU_SR_EXT_1PPS_REF);
    }
}

// ---- toggle filter ------------------------------------------------------------------------------

void pathOff(u32 row)
{
    RefDesc& desc = descOf(row);
    KVD_TRACE(TRACE_TUREF, TRACE_INFO, "ref path #%d is off (no signal)", static_cast<int>(row));
    if (desc.filterType == WTR_FILTER) {
        cancelFilter(row);
        desc.refStatus = REF_STATUS_ON;   // so that the way to OFF leads through the hold-off
        KVD_TRACE(TRACE_TUREF, TRACE_INFO, "WaitToRestore timer cancelled for ref path #%d",
                  static_cast<int>(row));
    }
    if (desc.refStatus != REF_STATUS_OFF && desc.filterType != HO_FILTER)
        startFilter(row, holdoffTime(desc.refType), HO_FILTER);
}

void pathOn(u32 row)
{
    RefDesc& desc = descOf(row);
    KVD_TRACE(TRACE_TUREF, TRACE_INFO, "ref path #%d is on (signal present)", static_cast<int>(row));
    if (desc.filterType == HO_FILTER) {
        // A signal that was gone for less than the hold-off is a fault of the path all the same.
        cancelFilter(row);
        desc.refStatus = REF_STATUS_OFF;
        KvdLoz6TuRef_clearRefStatusBits(REF_ROW_TRAITS[row].toggleMask);
        KvdLoz6TuIifAdm_clearRefStateBits(REF_ROW_TRAITS[row].stateMask);
        KvdLoz6TuIifAdm_markNotSent();
        KVD_TRACE(TRACE_TUREF, TRACE_INFO, "HoldOff timer cancelled for ref path #%d", static_cast<int>(row));
    }
    if (desc.refStatus != REF_STATUS_ON && desc.filterType != WTR_FILTER)
        startFilter(row, WTR_TIME, WTR_FILTER);
}

// ---- end of a filter ----------------------------------------------------------------------------

/// An Ethernet path's own steps are traced as its component's.
TraceGroup traceGroupOf(u32 row) { return isEthernet(descOf(row).refType) ? TRACE_TUETH : TRACE_TUREF; }

/// refStatus and refStatusBits after the row's filter; false when there was none that can end.
bool takeFilterResult(u32 row)
{
    RefDesc& desc = descOf(row);
    const u32 mask = REF_ROW_TRAITS[row].toggleMask;
    const TraceGroup group = traceGroupOf(row);
    const int synchRefNo = static_cast<int>(row);
    switch (desc.filterType) {
    case HO_FILTER:
        desc.refStatus = REF_STATUS_OFF;
        KvdLoz6TuRef_clearRefStatusBits(mask);
        KVD_TRACE(group, TRACE_INFO, "refStatus = OFF for synchRefNo %d", synchRefNo);
        return true;
    case WTR_FILTER:
        desc.refStatus = REF_STATUS_ON;
        KvdLoz6TuRef_setRefStatusBits(mask);
        KVD_TRACE(group, TRACE_INFO, "refStatus = ON for synchRefNo %d", synchRefNo);
        return true;
    case NO_FILTER:
        KVD_TRACE(group, TRACE_ERROR, "timeOutInd with filterType: NO_FILTER not allowed for synchRefNo %d",
                  synchRefNo);
        break;
    default:
        KVD_TRACE(group, TRACE_ERROR, "Status change filtering failed for ref. path %d", synchRefNo);
        break;
    }
    return false;
}

void plainFilterEnd(u32 row)
{
    RefDesc& desc = descOf(row);
    if (takeFilterResult(row)) {
        const u32 bit = REF_ROW_TRAITS[row].stateMask;
        if (desc.refStatus == REF_STATUS_ON) {
            KvdLoz6TuIifAdm_setRefStateBits(bit);
        } else {
            KvdLoz6TuIifAdm_clearRefStateBits(bit);
            KvdLoz6TuIifAdm_markNotSent();
        }
    }
    desc.filterType = NO_FILTER;
    KvdLoz6TuRef_report();
}

struct RefOwner {
    RefOwnerStatus& status;
    void (*statusChange)(u32 present);
};

RefOwner ownerOf(u8 refType)
{
    switch (refType) {
    case GPS_REF:   return {table().gps, KvdLoz6TuGps_statusChange};
    case HPTSI_REF: return {table().hptsi, KvdLoz6TuHptsi_statusChange};
    default:        return {table().gpsOsl, KvdLoz6GpsOsl_statusChange};
    }
}

void tellOwner(u32 row)
{
    const u8 refType = descOf(row).refType;
    const RefOwner owner = ownerOf(refType);
    const u32 bit = REF_ROW_TRAITS[row].stateMask;
    const u32 present = (KvdLoz6TuIifAdm_tuiifRefState() & bit) != 0 ? 1 : 0;
    if (present == owner.status.present && owner.status.forceStatus == 0) return;
    KVD_TRACE(
        TRACE_TUREF, TRACE_INFO,
        "Toggle detector for refType= %s (%hhu). Toggle present: %s. Force status indication: %s.",
        KvdLoz6TuRef_refTypeText(refType), refType, present != 0 ? "True" : "False",
        owner.status.forceStatus != 0 ? "True" : "False");
    owner.status.present = present;
    owner.statusChange(present);
    owner.status.forceStatus = 0;
}

/// Receivers on the common input: the 1PPS counts as theirs only while no external reference is
/// there.
void receiverFilterEnd(u32 row)
{
    RefDesc& desc = descOf(row);
    const bool taken = takeFilterResult(row);
    if (taken) {
        const u32 bit = REF_ROW_TRAITS[row].stateMask;
        const bool on = desc.refStatus == REF_STATUS_ON;
        if (on && table().gpsExtToggle == GPS_TOGGLE)
            KvdLoz6TuIifAdm_setRefStateBits(bit);
        else
            KvdLoz6TuIifAdm_clearRefStateBits(bit);
        if (!on) KvdLoz6TuIifAdm_markNotSent();
    }
    desc.filterType = NO_FILTER;
    tellOwner(row);
    if (desc.refType == GPSOSL_REF) {
        KVD_TRACE(TRACE_TUREF, TRACE_INFO, "tuiifRefState = 0x%08X.", KvdLoz6TuIifAdm_tuiifRefState());
        if (taken) KvdLoz6GpsOsl_filterEnd(row);
    }
}

/// Ethernet paths have a word of their own in place of a bit of tuiifRefState.
void ethernetFilterEnd(u32 row)
{
    RefDesc& desc = descOf(row);
    u32 stateBits = desc.stateBits;
    if (takeFilterResult(row)) {
        if (desc.refStatus == REF_STATUS_ON)
            stateBits |= ETH_STATE_DETECTED;
        else
            stateBits &= ~ETH_STATE_DETECTED;
    }
    desc.filterType = NO_FILTER;
    if (stateBits == desc.stateBits && table().ethStatusSent != 0) return;
    desc.stateBits = stateBits;
    table().ethStatusSent = 1;
    KvdLoz6TuIifAdm_sendRefState(desc.refType, desc.froId, desc.froClassNo, row, stateBits);
}

void filterEnd(u32 row)
{
    const u8 refType = descOf(row).refType;
    if (isEthernet(refType))
        ethernetFilterEnd(row);
    else if (hasOwner(refType))
        receiverFilterEnd(row);
    else
        plainFilterEnd(row);
}

// ---- start and end of supervision, by type ------------------------------------------------------

void endSupervision(u32 row, u8 level)
{
    RefDesc& desc = descOf(row);
    const TraceGroup group = traceGroupOf(row);
    desc.refStatus = REF_STATUS_UNK;
    KVD_TRACE(group, level, "refStatus: UNK for synchRefNo %d", static_cast<int>(row));
    KvdLoz6TuRef_clearRefStatusBits(REF_ROW_TRAITS[row].toggleMask);
    KvdLoz6TuIifAdm_clearRefStateBits(REF_ROW_TRAITS[row].stateMask);
    KVD_TRACE(group, level, "stopped supervision of synch ref. #%u", row);
}

void storeRequest(u32 row, const KvdTuiifSynchPathSupInd& ind)
{
    RefDesc& desc = descOf(row);
    desc.supervisionStatus = ind.on;
    desc.froId = ind.froId;
    desc.froClassNo = ind.froClassNo;
    cancelFilter(row);
}

const Signal* signalOf(const KvdTuiifSynchPathSupInd& ind) { return reinterpret_cast<const Signal*>(&ind); }

void supervisePdhSdh(const KvdTuiifSynchPathSupInd& ind)
{
    const u32 row = KvdLoz6TuPhyAdm_lineOfFroId(ind.froId);
    const bool isKnown = KvdLoz6TuPhyAdm_knowsFroId(ind.froId);
    if (!isKnown) KvdLoz6TuPhyAdm_setSupervised(ind.froId, ind.on);   // says so
    if (!isKnown || row >= REF_ROWS) {
        KVD_TRACE(TRACE_TUREF, TRACE_ERROR, "SyncRefNo out of range =%d. syncPathSupInd ignored",
                  static_cast<int>(row));
        return;
    }
    KvdLoz6TuPhyAdm_setSupervised(ind.froId, ind.on);
    storeRequest(row, ind);
    if (ind.on == 1)
        KvdLoz6TuRef_startSupervision(signalOf(ind), row);
    else
        endSupervision(row, TRACE_INFO);
}

void superviseTuRef(const KvdTuiifSynchPathSupInd& ind)
{
    storeRequest(ROW_TU, ind);
    if (ind.on == 1) {
        KvdLoz6TuGps_setTuGpsRefType(TU_REF);  // the receiver front end serves the external reference
        KvdLoz6TuRef_startSupervision(signalOf(ind), ROW_TU);
        return;
    }
    if (table().gpsExtToggle != NO_TOGGLE) KvdLoz6TuRef_setGpsExtToggle(NO_TOGGLE);
    endSupervision(ROW_TU, TRACE_INFO);
}

void superviseEthernet(const KvdTuiifSynchPathSupInd& ind)
{
    const u32 row = KvdLoz6TuRef_rowOfRefType(ind.refType);
    storeRequest(row, ind);
    if (ind.on == 1) {
        KvdLoz6TuRef_startSupervision(signalOf(ind), row);
        return;
    }
    descOf(row).stateBits &= ~ETH_STATE_DETECTED;
    endSupervision(row, TRACE_4);
}

/// The part that GPS, HPTSI and GPS out sync link have in common; `front` starts or stops the
/// receiver's serial line.
void superviseReceiver(const KvdTuiifSynchPathSupInd& ind, void (*front)(const Signal* sig, u32 row))
{
    const u32 row = KvdLoz6TuRef_rowOfRefType(ind.refType);
    if (ind.on == descOf(row).supervisionStatus) {
        KVD_TRACE(TRACE_TUREF, TRACE_INFO, "reference already supervised");
        descOf(row).froId = ind.froId;
        descOf(row).froClassNo = ind.froClassNo;
        return;
    }
    if (ind.on != 0) KvdLoz6TuRef_freeSerialLine(row);
    front(signalOf(ind), row);
    storeRequest(row, ind);
    if (ind.on == 1)
        KvdLoz6TuRef_startSupervision(signalOf(ind), row);
    else
        endSupervision(row, TRACE_INFO);
    if (ind.refType == GPS_REF && ind.on == 1) KvdLoz6TuGps_supervisionStarted();
}

}  // namespace

void KvdLoz6TuRef_onPathSupervision(const KvdTuiifSynchPathSupInd* ind)
{
    if (ind == nullptr) return;
    switch (ind->refType) {
    case TU_REF:      superviseTuRef(*ind);                                       break;
    case PDH_SDH_REF: supervisePdhSdh(*ind);                                      break;
    case IDL1_REF:    KvdLoz6TuSlave_idl1LinkInd(ind->on);                        break;
    case IDL2_REF:    KvdLoz6TuSlave_idl2LinkInd(ind->on);                        break;
    case GPS_REF:     superviseReceiver(*ind, KvdLoz6TuGps_supervision);          break;
    case HPTSI_REF:   superviseReceiver(*ind, KvdLoz6TuHptsi_supervision);        break;
    case GPSOSL_REF:  superviseReceiver(*ind, KvdLoz6GpsOsl_supervision);         break;
    case ETHA_REF:
    case ETHB_REF:
    case ETHC_REF:    superviseEthernet(*ind);                                    break;
    // Packet references and SoCPRI are supervised by their own components, which see the signal
    // too.
    default:                                                                      break;
    }
}

void KvdLoz6TuRef_freeSerialLine(u32 wantedRow)
{
    struct FrontEnd { u32 row; void (*stop)(); };
    constexpr FrontEnd FRONT_ENDS[] = {
        {ROW_GPS, KvdLoz6TuGps_stop}, {ROW_HPTSI, KvdLoz6TuHptsi_stop}, {ROW_GPSOSL, KvdLoz6GpsOsl_stop}};
    for (const FrontEnd& frontEnd : FRONT_ENDS)
        if (frontEnd.row != wantedRow && descOf(frontEnd.row).supervisionStatus == 0) frontEnd.stop();
}

void KvdLoz6TuRef_startSupervision(const Signal*, u32 row)
{
    KvdLoz6TuRef_startWithStatus(row, HALI_readToggleStatus());
}

void KvdLoz6TuRef_startWithStatus(u32 row, u32 status)
{
    RefDesc& desc = descOf(row);
    const u32 mask = REF_ROW_TRAITS[row].toggleMask;
    if (sharesCommonInput(desc.refType)) updateGpsExtToggle(row, status);

    const bool differs = status != table().lastToggleStatus;
    if ((status & mask) == 0) {
        desc.filterType = HO_FILTER;
        KvdLoz6TuIifAdm_markNotSent();
        table().ethStatusSent = 0;
        if (differs) table().lastToggleStatus &= ~mask;
    } else {
        desc.filterType = WTR_FILTER;
        if (differs) table().lastToggleStatus |= mask;
    }
    // Each receiver's owner reports again, whatever it said before.
    KvdLoz6TuIifAdm_clearStatusTexts();
    table().gps.forceStatus = 1;
    KvdLoz6TuGps_setForceReport();
    table().hptsi.forceStatus = 1;
    KvdLoz6TuHptsi_setForceReport();
    table().gpsOsl.forceStatus = 1;
    KvdLoz6GpsOsl_setForceReport();
    filterEnd(row);   // no waiting at the start: straight to ON or OFF
    KVD_TRACE(TRACE_TUREF, TRACE_INFO, "started supervision of synch ref. #%u", row);
}

void KvdLoz6TuRef_lineEnd(u32 line)
{
    if (line > ROW_SDH || descOf(line).supervisionStatus == 0) return;
    descOf(line).supervisionStatus = 0;
    cancelFilter(line);
    endSupervision(line, TRACE_INFO);
}

void KvdLoz6TuRef_lineMoved(u32 fromLine, u32 toLine, u32 froId)
{
    if (fromLine > ROW_SDH || descOf(fromLine).supervisionStatus != 1) return;
    if (fromLine == toLine) {
        descOf(toLine).froId = froId;
        return;
    }
    const u32 froClassNo = descOf(fromLine).froClassNo;
    KvdLoz6TuRef_lineEnd(fromLine);
    if (toLine <= ROW_SDH) {
        descOf(toLine).supervisionStatus = 1;
        descOf(toLine).froId = froId;
        descOf(toLine).froClassNo = froClassNo;
        KvdLoz6TuRef_startSupervision(nullptr, toLine);
    }
    if (KvdLoz6TuRef_selectedRef() == PDH_SDH_REF && KvdLoz6TuIifAdm_activRefFroId() == froId)
        KvdLoz6TuRef_selectSynchRef(PDH_SDH_REF, froId, froClassNo);
}

void KvdLoz6TuRef_onToggleStatus()
{
    // The word may have changed again since the monitor saw it: what counts is how it stands now.
    KvdLoz6TuRef_filterToggles(HALI_readToggleStatus());
}

void KvdLoz6TuRef_filterToggles(u32 status)
{
    if (status == table().lastToggleStatus) {
        KVD_TRACE(TRACE_TUREF, TRACE_INFO, "toggleStatusInd received, no statusbits changed");
        ++table().noChangeCounter;
        return;
    }
    table().lastToggleStatus = status;
    for (u32 row = 0; row < REF_ROWS; ++row) {
        if (descOf(row).supervisionStatus != 1) continue;
        if (sharesCommonInput(descOf(row).refType)) updateGpsExtToggle(row, status);
        if ((REF_ROW_TRAITS[row].toggleMask & status) == 0)
            pathOff(row);
        else
            pathOn(row);
    }
}

void KvdLoz6TuRef_onFilterTimeout(const KvdTurefTimeoutInd* ind)
{
    if (ind == nullptr) return;
    if (ind->row >= REF_ROWS) {
        KVD_TRACE(TRACE_TUREF, TRACE_ERROR, "SyncRefNo out of range =%d. timeOutInd ignored", ind->row);
        return;
    }
    if (KvdTimer_expired(descOf(ind->row).filterTimer)) filterEnd(ind->row);
}
