// Carries out selections: routes the hardware, gives the regulator its reference, updates the
// client view, restarts the statistics, and takes care of the loops when a time reference goes
// away.
#include "ref/kvd_ref_select.h"

#include "base/trace_groups.h"
#include "gps/kvd_gps.h"
#include "gps/kvd_gps_osl.h"
#include "hw/hali.h"
#include "mp/kvd_iifadm.h"
#include "node/trace.h"
#include "ref/kvd_phyadm.h"
#include "ref/kvd_ref.h"
#include "ref/kvd_ref_int.h"
#include "ref/kvd_ref_upcalls.h"
#include "ref/kvd_slave_select.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control.h"
#include "reg/kvd_reg_measure.h"
#include "reg/kvd_reg_pll.h"
#include "reg/kvd_reg_socpri.h"
#include "socpri/kvd_socpri_inrsi.h"
#include "unit/kvd_unit_process.h"
#include "sig/gps_types.h"

namespace {

constexpr u32 HW_AS_IS = 0xFFFFFFFF;         // the hardware's route stays
constexpr u32 REGULATOR_AS_IS = 0xFFFFFFFF;  // the regulator keeps its reference

RefTable& table() { return KvdLoz6TuRef_table(); }

struct Ids { u32 froId, froClassNo; };

/// Route and regulator value of a type that needs nothing more than the common select.
struct Route {
    u8 refType;
    u32 selector;        // of the reference multiplexer, or HW_AS_IS
    u32 regulatorRef;
};
constexpr Route ROUTES[] = {
    // refType         selector              regulator
    {NTP_REF,         HW_AS_IS,             TU_SR_NTP_REF},
    {GPS_REF,         HALI_GPS_HW_SYNC_REF, TU_SR_GPS_REF},
    {PACKET_TIME_REF, HW_AS_IS,             TU_SR_PKT_TIME_REF},
    {PACKET_FREQ_REF, HW_AS_IS,             TU_SR_PKT_FREQ_REF},
    {HPTSI_REF,       HALI_GPS_HW_SYNC_REF, TU_SR_HPTSI_REF},
    {ETHA_REF,        HALI_ETH_REF_A,       TU_ETH_REF},
    {ETHB_REF,        HALI_ETH_REF_B,       TU_ETH_REF},
    {ETHC_REF,        HALI_ETH_REF_C,       TU_ETH_REF},
};

bool isFirstStart() { return KvdLoz6TuRef_isFirstStart() == 1; }

const char* selectorText(u32 selector)
{
    switch (selector) {
    case HALI_NO_HW_SYNC_REF:  return "HALI_NO_HW_SYNC_REF";
    case HALI_PDH_REF_1:       return "HALI_PDH_REF_1";
    case HALI_PDH_REF_2:       return "HALI_PDH_REF_2";
    case HALI_PDH_REF_3:       return "HALI_PDH_REF_3";
    case HALI_PDH_REF_4:       return "HALI_PDH_REF_4";
    case HALI_SDH_REF:         return "HALI_SDH_REF";
    case HALI_GPS_HW_SYNC_REF: return "HALI_GPS_HW_SYNC_REF";
    case HALI_EXT_HW_SYNC_REF: return "HALI_EXT_HW_SYNC_REF";
    case HALI_ETH_REF_A:       return "HALI_ETH_REF_A";
    case HALI_ETH_REF_B:       return "HALI_ETH_REF_B";
    case HALI_ETH_REF_C:       return "HALI_ETH_REF_C";
    default:                   return "<Unknown>";
    }
}

// ---- the selection block ------------------------------------------------------------------------

void moveBlockOn(u8 refType)
{
    table().prevPrevSelRef = table().prevSelRef;
    table().prevSelRef = table().selectedRef;
    table().selectedRef = refType;
}

/// For the types that can be selected again without a change of the block.
void moveBlockOnUnlessSelected(u8 refType)
{
    if (table().selectedRef != refType) {
        moveBlockOn(refType);
        return;
    }
    KVD_TRACE(
        TRACE_TUREF, TRACE_INFO,
        "Select syncRefType = %s (%u) received while selectedRef = %s (%u) and "
        "prevSelRef = %s (%u). Update of reference variables ignored.",
        KvdLoz6TuRef_refTypeText(refType), refType, KvdLoz6TuRef_refTypeText(table().selectedRef),
        table().selectedRef, KvdLoz6TuRef_refTypeText(table().prevSelRef), table().prevSelRef);
}

bool cameThroughNoRefFrom(u8 refType)
{
    return table().prevSelRef == NO_REF && table().prevPrevSelRef == refType;
}
bool cameFrom(u8 refType) { return table().prevSelRef == refType || cameThroughNoRefFrom(refType); }
bool wasAmongLastTwo(u8 refType)
{
    return table().prevSelRef == refType || table().prevPrevSelRef == refType;
}

// ---- steps that several selections share --------------------------------------------------------

/// True when the hardware follows; `text` is the selector's name in the trace.
bool routeHardware(u32 selector, const char* text)
{
    const int status = HALI_subscribeRefTime(selector);
    if (status == 0) return true;
    KVD_TRACE(TRACE_TUREF, TRACE_ERROR, "HALI_subscribeRefTime failed with status: %d for %s", status, text);
    return false;
}
bool routeHardware(u32 selector) { return routeHardware(selector, selectorText(selector)); }

void updateClients(u8 refType, Ids ids, u32 statisticsRef)
{
    REF_UPCALLS.selectionMade(refType, ids.froId, ids.froClassNo);
    REF_UPCALLS.startStatistics(statisticsRef);
}

bool refusedOnSlave(u8 refType)
{
    if (KvdLoz6TuMgr_isMaster()) return false;
    KVD_TRACE(TRACE_TUREF, TRACE_INFO, "selectSynchRef (%d) received for slave tu. Request ignored", refType);
    return true;
}

void logLoopEndAndStopSocpri(u32 event)
{
    KvdLoz6TuRef_logLoopEnd(event);
    inrsiClientReset();
}

/// A loop that ended while its link was selected: the Kalman path has predicted without the divider since
/// then, and its state was told to nobody.
bool hasUntoldEnd()
{
    const u8 regState = KvdLoz6TuReg_regState();
    return KvdLoz6TuMgr_isMaster() && table().prevSelRef == GPSOSL_REF && regState != WARMUP
           && regState != UNKNOWN;
}

void afterSelection(u8 refType)
{
    if (refType != NO_REF && wasAmongLastTwo(GPSOSL_REF)) {
        if (KvdLoz6TuRef_row(ROW_GPSOSL).supervisionStatus == 0) KvdLoz6GpsOsl_storeRemoteState(RC_UNKNOWN);
        KvdLoz6GpsOsl_sendRemoteState();
    }
    const u32 pllState = KvdLoz6TuReg_pllState();
    KVD_TRACE(TRACE_TUREF, TRACE_INFO, "Selecting ref %u, prevRef %u, pllState %u", table().selectedRef,
              table().prevSelRef, pllState);
    if (pllState != PLL_Uninitialized || hasUntoldEnd()) KvdLoz6TuReg_endPll();
    if (wasAmongLastTwo(SOCPRI_REF)) {
        inrsiClientReset();
        KvdLoz6TuRef_logLoopEnd(SOCPRI_EV_PI_CONTROLLER_SHUTDOWN_TRANS);
    }
}

// ---- common select ------------------------------------------------------------------------------

/// A frequency reference taken up after the GPS out sync link: the time that the loop still holds
/// no longer counts.
void dropHeldTime(u32 regulatorRef)
{
    if (!cameThroughNoRefFrom(GPSOSL_REF) || KvdLoz6TuReg_isTimeRef(regulatorRef)) return;
    const u32 pllState = KvdLoz6TuReg_pllState();
    if (pllState == PLL_Offset_Holdover || pllState == PLL_Locked_Holdover)
        KvdLoz6TuIifAdm_reportClockState(KVD_TUIIF_FREQUENCY_HOLDOVER);
}

/// `route` with REGULATOR_AS_IS leaves the regulator alone and counts as value 0 towards the
/// clients.
bool commonSelect(const Route& route, Ids ids)
{
    if (route.selector != HW_AS_IS && !routeHardware(route.selector)) return false;
    const bool untouched = route.regulatorRef == REGULATOR_AS_IS;
    const u32 value = untouched ? u32{TU_SR_NO_REF} : route.regulatorRef;
    if (!untouched) KvdLoz6TuReg_configRefType(value, ids.froId, ids.froClassNo);
    dropHeldTime(value);
    if (refusedOnSlave(route.refType)) return false;
    updateClients(route.refType, ids, value);
    afterSelection(route.refType);
    return true;
}

bool selectRoute(const Route& route, Ids ids)
{
    moveBlockOn(route.refType);
    return commonSelect(route, ids);
}

bool selectTuRef(Ids ids)
{
    moveBlockOn(TU_REF);
    switch (KvdLoz6TuRef_gpsExtToggle()) {
    case EXT_TOGGLE: return commonSelect({TU_REF, HALI_EXT_HW_SYNC_REF, TU_SR_EXT_REF}, ids);
    case GPS_TOGGLE: return commonSelect({TU_REF, HALI_GPS_HW_SYNC_REF, TU_SR_EXT_1PPS_REF}, ids);
    case NO_TOGGLE:
        KVD_TRACE(TRACE_TUREF, TRACE_INFO, "Neither GPS nor EXT toggle detected. No reference selected.");
        return commonSelect({TU_REF, HW_AS_IS, REGULATOR_AS_IS}, ids);
    default:
        KVD_TRACE(TRACE_TUREF, TRACE_ERROR, "gpsExtToggle %d not allowed",
                  static_cast<int>(KvdLoz6TuRef_gpsExtToggle()));
        return false;
    }
}

bool selectPdhSdh(Ids ids)
{
    const u32 line = KvdLoz6TuPhyAdm_lineOfFroId(ids.froId);    // 0 when no port has the froId
    const bool isKnown = KvdLoz6TuPhyAdm_knowsFroId(ids.froId);
    if (isKnown) moveBlockOn(PDH_SDH_REF);
    if (!isKnown || line >= REF_ROWS) {
        KVD_TRACE(TRACE_TUREF, TRACE_ERROR, "port line number out of range =%d. selectSynchRef ignored",
                  static_cast<int>(line));
        return false;
    }
    if (line > ROW_SDH) {
        KVD_TRACE(TRACE_TUREF, TRACE_ERROR, "Incorrect lineNo=%hhu. expected value between 0-4",
                  static_cast<u8>(line));
        return commonSelect({PDH_SDH_REF, HW_AS_IS, TU_SR_NO_REF}, ids);
    }
    return commonSelect({PDH_SDH_REF, line + HALI_PDH_REF_1, line + TU_SR_PDH_REF1}, ids);
}

// ---- no reference -------------------------------------------------------------------------------

void endDeselectedLoop(u32 event)
{
    if (table().prevSelRef == SOCPRI_REF) KvdLoz6TuReg_endPll(logLoopEndAndStopSocpri, event);
    else                                 KvdLoz6TuReg_endPll();
}

void deselectLocked(bool wasGpsOsl)
{
    if (wasGpsOsl) {
        KvdLoz6GpsOsl_sendRemoteState();
        KvdLoz6TuReg_pll_toHoldover();
    } else {
        inrsiImplicitHoldover();
    }
    if (KvdLoz6TuReg_pllState() == PLL_Freq_Holdover)
        endDeselectedLoop(SOCPRI_EV_PI_CONTROLLER_SHUTDOWN_NOREF_LO);
    else if (wasGpsOsl)
        KvdLoz6TuRef_startGpsOslHoldover();
}

void deselectInHoldover(bool wasGpsOsl, u32 pllState)
{
    if (wasGpsOsl) KvdLoz6TuRef_startGpsOslHoldover();      // unless it runs
    if (isFirstStart()) return;
    if (wasGpsOsl) KvdLoz6GpsOsl_sendRemoteState();
    KvdLoz6TuIifAdm_reportClockState(pllState == PLL_Offset_Holdover
                                         ? KVD_TUIIF_TIME_OFFSET_HOLDOVER
                                         : KVD_TUIIF_RNT_TIME_HOLDOVER);
}

/// A time reference goes away; what becomes of its loop depends on how far that had come.
void deselectPllRef(u32 pllState)
{
    const bool wasGpsOsl = table().prevSelRef == GPSOSL_REF;
    if (wasGpsOsl)
        KVD_TRACE(TRACE_TUREF, TRACE_INFO,
                  "Deselecting GpsOsl reference. pllState %u, gpsToggle %u, gpsOslRefState %u", pllState,
                  KvdLoz6TuRef_gpsExtToggle(), KvdLoz6TuRef_row(ROW_GPSOSL).refStatus);
    else
        KVD_TRACE(TRACE_TUREF, TRACE_INFO, "Deselecting SoCPRI reference. pllState %u", pllState);

    switch (pllState) {
    case PLL_OffsetLocked:
    case PLL_Locked: deselectLocked(wasGpsOsl); break;
    case PLL_Unlocked:
    case PLL_Freq_Holdover: endDeselectedLoop(SOCPRI_EV_PI_CONTROLLER_SHUTDOWN_NOREF_HO); break;
    case PLL_Offset_Holdover:
    case PLL_Locked_Holdover: deselectInHoldover(wasGpsOsl, pllState); break;
    case PLL_PreJumpStart:
    case PLL_PreJumpHist:                           // no phase came yet, and none will
        KvdLoz6TuReg_endPll();
        break;
    default:
        if (hasUntoldEnd()) KvdLoz6TuReg_endPll();
        break;
    }
    if (wasGpsOsl) return;
    inrsiReferenceDeselected();
    KvdLoz6TuReg_setRegState(UNKNOWN);
}

bool selectNoRef(Ids ids)
{
    const u32 pllState = KvdLoz6TuReg_pllState();   // the client view may end the loop
    moveBlockOnUnlessSelected(NO_REF);
    if (!routeHardware(HALI_NO_HW_SYNC_REF)) return false;
    KvdLoz6TuReg_configRefType(TU_SR_NO_REF, ids.froId, ids.froClassNo);
    updateClients(NO_REF, ids, TU_SR_NO_REF);
    if (table().prevSelRef == GPSOSL_REF || table().prevSelRef == SOCPRI_REF)
        deselectPllRef(pllState);
    else
        afterSelection(NO_REF);
    return true;
}

// ---- inter-unit links ---------------------------------------------------------------------------

bool selectIdl1(Ids ids)
{
    moveBlockOn(IDL1_REF);
    return KvdLoz6TuSlave_selectIdl1(ids.froId, ids.froClassNo);
}

bool selectIdl2(Ids ids)
{
    moveBlockOn(IDL2_REF);
    return KvdLoz6TuSlave_selectIdl2(ids.froId, ids.froClassNo);
}

// ---- GPS out sync link --------------------------------------------------------------------------

bool isOslReceiver()
{
    return KvdLoz6TuGps_gpssType() == GPSS_NORVANE || KvdLoz6TuGps_gpssTypeBackup() == GPSS_NORVANE;
}

enum class LoopStart { None, Unlocked, Locked };

/// How the sync link's loop starts on a regulator in that state. A loop that holds over goes on from what it
/// holds; with a regulator that doesn't know its state yet it starts only where it had run before.
LoopStart gpsOslLoopStart(u8 regState, bool holdsOver)
{
    switch (regState) {
    case WARMUP:
    case PREJUMPSTART:
    case PREJUMPHIST: return LoopStart::None;
    case UNKNOWN:
        if (isFirstStart()) return cameThroughNoRefFrom(SOCPRI_REF) ? LoopStart::Unlocked : LoopStart::None;
        return holdsOver ? LoopStart::None : LoopStart::Unlocked;
    default:
        if (holdsOver) return LoopStart::None;
        return regState == TRUETIME && cameThroughNoRefFrom(GPS_REF) && isOslReceiver()
                       && KvdLoz6GpsOsl_givesTime()
                   ? LoopStart::Locked
                   : LoopStart::Unlocked;
    }
}

void startGpsOslLoop(LoopStart start)
{
    switch (start) {
    case LoopStart::None: return;
    case LoopStart::Unlocked: return KvdLoz6TuReg_pll_init(PLL_Unlocked);
    case LoopStart::Locked:
        KVD_TRACE(TRACE_TUREF, TRACE_INFO, "RNT_HOLDOVER to remote DU, go to PLL_LOCKED directly!");
        return KvdLoz6TuReg_pll_init(PLL_Locked);
    }
}

bool selectGpsOsl(Ids ids)
{
    moveBlockOn(GPSOSL_REF);
    if (table().prevSelRef == SOCPRI_REF) KvdLoz6TuReg_setRegState(0);
    if (!routeHardware(HALI_GPS_HW_SYNC_REF)) return false;
    KvdLoz6TuReg_configRefType(TU_SR_GPSOSL_REF, ids.froId, ids.froClassNo);
    if (refusedOnSlave(GPSOSL_REF)) return false;
    updateClients(GPSOSL_REF, ids, TU_SR_GPSOSL_REF);
    KvdLoz6TuRef_stopGpsOslHoldover();
    // Without its signal the loop goes on holding over, and nothing else would end that.
    if (KvdLoz6TuReg_pllIsHoldover() && KvdLoz6TuRef_row(ROW_GPSOSL).refStatus == REF_STATUS_OFF)
        KvdLoz6TuRef_startGpsOslHoldover();
    const u8 regState = KvdLoz6TuReg_regState();
    KVD_TRACE(
        TRACE_TUREF, TRACE_1,
        "selectSynchRef (%d) received. prevRef = %u, Last regulatorState = %u, pllState = %u.",
        GPSOSL_REF, table().prevSelRef, regState, KvdLoz6TuReg_pllState());
    if (cameFrom(PACKET_TIME_REF) && regState == TRUETIME)
        KVD_TRACE(
            TRACE_TUREF, TRACE_INFO,
            "Not sending remote Radio Clock state, regulator is TRUETIME locked to PacketTime ref. "
            "It will be sent before GpsOSL enters LOCKED");
    else
        KvdLoz6GpsOsl_sendRemoteState();
    startGpsOslLoop(gpsOslLoopStart(regState, KvdLoz6TuReg_pllIsHoldover()));
    return true;
}

// ---- SoCPRI -------------------------------------------------------------------------------------

bool selectSocpri(Ids ids)
{
    KvdLoz6TuRef_stopGpsOslHoldover();
    moveBlockOnUnlessSelected(SOCPRI_REF);
    if (!routeHardware(HALI_GPS_HW_SYNC_REF, "HALI_GPS_REF")) return false;
    KvdLoz6TuReg_configRefType(TU_SR_SOCPRI_REF, ids.froId, ids.froClassNo);
    updateClients(SOCPRI_REF, ids, TU_SR_SOCPRI_REF);
    if (KvdLoz6TuReg_pllIsHoldover() && !isFirstStart()) return true;
    if (KvdLoz6TuReg_pllState() != PLL_Uninitialized) {
        if (cameFrom(GPSOSL_REF)) {                 // the loop goes on with the other link's phase
            KvdLoz6TuRef_logLoopEnd(SOCPRI_EV_PI_CONTROLLER_GPSOSL_TO_SOCPRI_SWITCH);
            KvdLoz6TuReg_initiateFromPllNow();
        } else {
            KvdLoz6TuReg_endPll(KvdLoz6TuRef_logLoopEnd, SOCPRI_EV_PI_CONTROLLER_SHUTDOWN_SELREF);
        }
    }
    KvdLoz6TuReg_setRegState(UNKNOWN);
    inrsiClientReset();
    return true;
}

bool select(u8 refType, Ids ids)
{
    switch (refType) {
    case NO_REF:      return selectNoRef(ids);
    case TU_REF:      return selectTuRef(ids);
    case PDH_SDH_REF: return selectPdhSdh(ids);
    case IDL1_REF:    return selectIdl1(ids);
    case IDL2_REF:    return selectIdl2(ids);
    case GPSOSL_REF:  return selectGpsOsl(ids);
    case SOCPRI_REF:  return selectSocpri(ids);
    default:          break;
    }
    for (const Route& route : ROUTES)
        if (route.refType == refType) return selectRoute(route, ids);
    KVD_TRACE(TRACE_TUREF, TRACE_ERROR, "Unknown syncRefType =%d for froId =%u.", refType, ids.froId);
    return false;
}

}  // namespace

void KvdLoz6TuRef_logLoopEnd(u32 event)
{
    KvdLoz6TuReg_logSoCpriEvent(event);
    KvdLoz6TuReg_traceSoCpriLog(1);
}

bool KvdLoz6TuRef_selectSynchRef(u8 refType, u32 froId, u32 froClassNo)
{
    table().prevPrevSelRef = NO_REF;
    const bool changed = select(refType, {froId, froClassNo});
    if (changed)
        KVD_TRACE(
            TRACE_TUREF, TRACE_INFO,
            "Reference update: selectedRef (%d), prevSelRef (%d). Algorithm states: PLL state %u, "
            "Slave PLL state %u, Regulator state %u",
            table().selectedRef, table().prevSelRef, KvdLoz6TuReg_pllState(),
            KvdLoz6TuReg_slavePllState(), KvdLoz6TuReg_regState());
    return changed;
}
