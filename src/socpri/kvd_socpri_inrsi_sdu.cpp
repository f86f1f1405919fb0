// The slave's client: ports lent to the master, requests passed on, the rest supervised.
#include "socpri/kvd_socpri_inrsi_sdu.h"

#include "base/element_of.h"
#include "base/trace_groups.h"
#include "base/tu_common.h"
#include "hw/kvd_hwif.h"
#include "mp/kvd_iifadm_send.h"
#include "node/platform.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "reg/kvd_reg_pll.h"
#include "reg/kvd_reg_socpri.h"
#include "socpri/kvd_socpri_inrsi_sdu_int.h"

#include <algorithm>

namespace inrsi::slave {

namespace {

struct State {
    Client client{.role = &ROLE};
    Log log{};
    Log snapshot{};
};
ose::ModuleData<State> s;

Client& client() { return s->client; }
u8 focus() { return s->client.portNo; }
void log(Event event, bool keep = false, ose::Place at = ose::Place::current())
{
    inrsi::log(s->client, event, keep, at);
}

constexpr OSTIME RETRIEVE_ms = 300;

void writeLog(Event event, u32 line, bool keep)
{
    const auto at = std::find(std::begin(SLAVE_EVENTS), std::end(SLAVE_EVENTS), event);
    LogEntry& e = s->log.entry[s->log.index];
    e.used = 1;
    e.event = static_cast<u32>(at - std::begin(SLAVE_EVENTS));
    e.line = line;
    e.cpriPortStatus = s->client.cpriPortStatus;
    e.subscribed = s->client.subscribed;
    e.portNo = s->client.portNo;
    e.sharedUnitId = s->client.sharedUnitId;
    TuCommon_timeStamp(e.time);
    s->log.index = static_cast<u16>((s->log.index + 1) % LOG_ENTRIES);
    if (keep) s->snapshot = s->log;
}

/// Nothing follows for the port in focus: the master sees it by its own requests.
void linkLost(u8 port, u8)
{
    cancelTimer(MEAS_RETRIEVE, port);
    if (port != focus()) stopSupervision(client(), port);
}

}  // namespace

const Role ROLE = {
    .isMaster = false,
    .log = writeLog,
    .serverLost = [] {},
    .linkLost = linkLost,
    .retrieveTime = []() -> OSTIME { return RETRIEVE_ms; },
    .supervised = [](u8, double, u32) {},
    .resendLinkStatus = KvdLoz6TuSoCpri_inrsi_sDu_resendSoCpriLinkStatusData,
};

const Client& clientRecord() { return s->client; }
const Log& snapshot() { return s->snapshot; }

namespace {

// ---- port focus ----------------------------------------------------------------------------------

void giveUpFocus()
{
    const u8 port = focus();
    client().portNo = NO_PORT;
    client().sharedUnitId = NO_UNIT;
    superviseIfLinked(client(), port);
}

void onLockPortFocus(const KvdTuiifSocpriSduLockPortFocusInd* ind)
{
    if (ind == nullptr) return;
    const u8 port = static_cast<u8>(ind->portNo - 1);
    if (!isPort(port)) {
        KVD_TRACE(TRACE_INRSI, TRACE_ERROR, "%s():Port %u out of bound error!", __func__, port);
        return log(INRSI_CL_EV_LOCK_PORT_FOCUS_ERROR);
    }
    if (focus() != NO_PORT && focus() != port) {
        KVD_TRACE(TRACE_INRSI, TRACE_INFO, "%s():Port %u had its NGSM focus removed in place of port %u",
                  __func__, focus(), port);
        giveUpFocus();
        log(INRSI_CL_EV_LOCK_PORT_FOCUS_OVERWRITE);
    }
    const Slot* const unit = firstUnit(client(), port, LINK_AVAILABLE);
    client().portNo = port;
    client().sharedUnitId = unit != nullptr ? unit->sharedUnitId : NO_UNIT;
    stopSupervision(client(), port);
    log(INRSI_CL_EV_LOCK_PORT_FOCUS_SET);
    KVD_TRACE(TRACE_INRSI, TRACE_INFO, "%s():Port %u is now used by NGSM", __func__, port);
}

void onClearPortFocus()
{
    if (focus() != NO_PORT) giveUpFocus();
    log(INRSI_CL_EV_CLEAR_PORT_FOCUS);
    KVD_TRACE(TRACE_INRSI, TRACE_INFO, "%s():No CPRI ports on this DU are used by NGSM", __func__);
}

// ---- requests of the master -----------------------------------------------------------------------

bool isInFocus(u32 sharedUnitId)
{
    const u8 port = portOfUnit(client(), sharedUnitId);
    return port != NO_PORT && port == focus();
}

void onGetFreqDiffFwd(const KvdTuiifInrsiGetFreqDiff2ReqFwd* req)
{
    if (req == nullptr) return;
    if (isInFocus(req->sharedUnitId))
        return requestMeasurement(client(), INRSI_GET_FREQ_DIFF2_REQ, req->sharedUnitId);
    KvdLoz6TuIifAdm_sendInrsiGetFreqDiff2CfmFwd(req->sharedUnitId, 0, 0);
    log(INRSI_CL_EV_FREQ_DIFF_REQ_OBSOLETE);
}

void onGetPhaseDiffFwd(const KvdTuiifInrsiGetPhaseDiff2ReqFwd* req)
{
    if (req == nullptr) return;
    if (isInFocus(req->sharedUnitId))
        return requestMeasurement(client(), INRSI_GET_PHASE_DIFF2_REQ, req->sharedUnitId);
    KvdLoz6TuIifAdm_sendInrsiGetPhaseDiff2CfmFwd(req->sharedUnitId, 0, 0, 0);
    log(INRSI_CL_EV_PHASE_DIFF_REQ_OBSOLETE);
}

// ---- answers of the server -------------------------------------------------------------------------

void onFreqCfm(const InrsiGetFreqDiff2Cfm* cfm)
{
    if (cfm != nullptr)
        KvdLoz6TuIifAdm_sendInrsiGetFreqDiff2CfmFwd(cfm->sharedUnitId, cfm->freqDiff, cfm->freqDiffValid);
}

void onFreqRej(const InrsiUnitRej* rej)
{
    if (rej != nullptr)
        KvdLoz6TuIifAdm_sendInrsiGetFreqDiff2RejFwd(rej->sharedUnitId, static_cast<u8>(rej->errorCode));
}

void onPhaseCfm(const InrsiGetPhaseDiff2Cfm* cfm)
{
    if (cfm == nullptr) return;
    const u32 unit = cfm->sharedUnitId;
    if (isInFocus(unit))
        KvdLoz6TuIifAdm_sendInrsiGetPhaseDiff2CfmFwd(unit, cfm->trpDiffHigh, cfm->trpDiffLow,
                                                     cfm->trpDiffValid);
    else
        onSupervisionSample(client(), portOfUnit(client(), unit), cfm->trpDiffHigh, cfm->trpDiffLow,
                            cfm->trpDiffValid);
}

/// A supervision sample that there won't be.
void failSample(u8 port)
{
    if (!isPort(port)) return;
    cancelTimer(MEAS_RETRIEVE, port);
    client().supervision[port].supMeasOngoing = false;
    if (port != focus()) superviseIfLinked(client(), port);
    sendSupervisionStatus(port, PHASE_MEAS_MISSING);
}

void onPhaseRej(const InrsiUnitRej* rej)
{
    if (rej == nullptr) return;
    if (isInFocus(rej->sharedUnitId)) {
        KvdLoz6TuIifAdm_sendInrsiGetPhaseDiff2RejFwd(rej->sharedUnitId, static_cast<u8>(rej->errorCode));
        return;
    }
    log(INRSI_CL_EV_PHASE_DIFF_REJ, KEEP);
    failSample(portOfUnit(client(), rej->sharedUnitId));
}

// ---- time-outs -----------------------------------------------------------------------------------

void onPhaseDataTimeout(u8 port)
{
    if (port != focus()) return requestSupervision(client(), port);
    KVD_TRACE(TRACE_INRSI, TRACE_INFO,
              "%s(): KVD_TUMGR_INRSI_REQUEST_PHASE_DATA_TMO expired on port not being used for supervision "
              "on this board",
              __func__);
}

void onRetrieveTimeout(u8 port)
{
    log(INRSI_CL_EV_MEAS_TMO_EXPIRED, KEEP);
    failSample(port);
}

void onSupervisionTimeout(u8 port)
{
    if (port != focus()) requestSupervision(client(), port);
}

// ---- following -----------------------------------------------------------------------------------

void onFollowOcxoRevert(const KvdTuiifSocpriSduFollowOcxoRevertInd* ind)
{
    if (ind == nullptr) return;
    tuHwIf_adjustFrequency(tuHwIf_readCurrentFrequency() - ind->deltaFreq);
    KvdLoz6TuReg_pll_setExtAccFreqOffset(KvdLoz6TuReg_pll_extAccFreqOffset() - ind->deltaFreq);
    KvdLoz6TuReg_logSoCpriEvent(SOCPRI_EV_OCXO_ACC_FREQ_UPDATED);
    KvdLoz6TuReg_traceSoCpriLog(1);
    log(INRSI_CL_EV_REVERTED_DELTA_SIGMA);
}

}  // namespace

// ---- printout ------------------------------------------------------------------------------------

void printInfo()
{
    node::shellPrintf("\n***** TU_SOCPRI INRSI (sDU) related data *****\n");
    printClient(s->client);
    printUnits(s->client.cpriPortStatus, PORTS);
}

void printHistory()
{
    node::shellPrintf("\nINRSI (sDU) trace history snapshot:\n\n");
    for (u32 i = 0; i < LOG_ENTRIES; ++i) {
        const LogEntry& e = s->snapshot.entry[(s->snapshot.index + i) % LOG_ENTRIES];
        if (e.used == 0) continue;
        char ports[PORTS + 1];
        const Event* const event = elementOf(SLAVE_EVENTS, e.event);
        node::shellPrintf(
            "[%s]: event = %s, line = %u, subscribed = %s, portNo = %u, sharedUnitId = 0x%08x\n", e.time,
            event != nullptr ? eventText(*event) : "<Unknown>", e.line, subscribedText(e.subscribed, ports),
            e.portNo, e.sharedUnitId);
        printUnits(e.cpriPortStatus, PORTS);
    }
}

}  // namespace inrsi::slave

using namespace inrsi;
using namespace inrsi::slave;

void KvdLoz6InrsiSdu_initiate() { inrsi::initiate(client(), ROLE); }
void KvdLoz6InrsiSdu_leave() { inrsi::leave(client()); }
void KvdLoz6InrsiSdu_mainProcessorRestarted() { inrsi::mainProcessorRestarted(client()); }

void KvdLoz6TuSoCpri_inrsi_sDu_resendSoCpriLinkStatusData()
{
    KVD_TRACE(TRACE_INRSI, TRACE_INFO, "%s():Resend SoCPRI link status indications", __func__);
    resendLinkStatusData(client());
}

void inrsiSduSendBfnJumpInfo(u32 enabled)
{
    if (!requestBfnJumpInfo(client(), enabled)) return log(INRSI_CL_EV_SFC_ADJ_FWD_NOTIF_NOK, KEEP);
    log(enabled == 1 ? INRSI_CL_EV_SFC_ADJ_FWD_NOTIF_OK_ENABLED : INRSI_CL_EV_SFC_ADJ_FWD_NOTIF_OK_DISABLED);
}

bool KvdLoz6InrsiSdu_dispatch(Signal* sig)
{
    if (dispatchLink(client(), sig)) return true;
    switch (sig->sigNo) {
    case KVD_TUIIF_SOCPRI_SDU_LOCK_PORT_FOCUS_IND:
        onLockPortFocus(as<KvdTuiifSocpriSduLockPortFocusInd>(sig));                             break;
    case KVD_TUIIF_SOCPRI_SDU_CLEAR_PORT_FOCUS_IND: onClearPortFocus();                          break;
    case KVD_TUIIF_INRSI_GET_FREQ_DIFF2_REQ_FWD:
        onGetFreqDiffFwd(as<KvdTuiifInrsiGetFreqDiff2ReqFwd>(sig));                              break;
    case KVD_TUIIF_INRSI_GET_PHASE_DIFF2_REQ_FWD:
        onGetPhaseDiffFwd(as<KvdTuiifInrsiGetPhaseDiff2ReqFwd>(sig));                            break;
    case KVD_TUIIF_SOCPRI_SDU_FOLLOW_OCXO_REVERT_IND:
        onFollowOcxoRevert(as<KvdTuiifSocpriSduFollowOcxoRevertInd>(sig));                       break;
    case INRSI_GET_FREQ_DIFF2_CFM:       onFreqCfm(as<InrsiGetFreqDiff2Cfm>(sig));               break;
    case INRSI_GET_FREQ_DIFF2_REJ:       onFreqRej(as<InrsiUnitRej>(sig));                       break;
    case INRSI_GET_PHASE_DIFF2_CFM:      onPhaseCfm(as<InrsiGetPhaseDiff2Cfm>(sig));             break;
    case INRSI_GET_PHASE_DIFF2_REJ:      onPhaseRej(as<InrsiUnitRej>(sig));                      break;
    case INRSI_REQUEST_PHASE_DATA_TMO:   onPhaseDataTimeout(portOfTimeout(sig));                break;
    case KVD_TUSOCPRI_MEAS_RETRIEVE_TMO: onRetrieveTimeout(portOfTimeout(sig));                 break;
    case KVD_TUSOCPRI_SUPERVISION_TMO:   onSupervisionTimeout(portOfTimeout(sig));              break;
    default:                                                                                     return false;
    }
    return true;
}
