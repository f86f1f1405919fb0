// Subscription of ports, their link states, and the signals that both clients take.
#include "socpri/kvd_socpri_inrsi_int.h"

#include "base/trace_groups.h"
#include "mp/kvd_iifadm.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "unit/kvd_ref_table.h"

#include <algorithm>

namespace {

struct State {
    bool statusResent = false;                 // by a master: once in the life of the program
};
ose::ModuleData<State> s;

}  // namespace

namespace inrsi {

namespace {

// ---- subscription --------------------------------------------------------------------------------

void createMarker(const Client& c)
{
    if (!c.role->isMaster) return;
    if (KvdLoz6TuIifAdm_createSocpriMarkerFile() == 0)
        KVD_TRACE(TRACE_INRSI, TRACE_INFO, "SoCPRI file is created on the node.");
    else
        KVD_TRACE(TRACE_INRSI, TRACE_INFO, "SoCPRI file wasn't created on disk.");
}

void deleteMarker(const Client& c)
{
    if (!c.role->isMaster) return;
    if (KvdLoz6TuIifAdm_deleteSocpriMarkerFile() == 0)
        KVD_TRACE(TRACE_INRSI, TRACE_INFO, "SoCPRI file is deleted from the node.");
    else
        KVD_TRACE(TRACE_INRSI, TRACE_INFO, "Something went wrong! SoCOPRI file is not removed.");
}

void onStopReq(Client& c)
{
    killInci(c);
    deleteMarker(c);
    log(c, INRSI_CL_EV_STOP_REQ_HANDLED);
}

void askForSubscription(Client& c, u8 port)
{
    auto* req = makeRequest<InrsiPort>(c, INRSI_SUBSCRIBE_LINK_STATUS_REQ);
    req->nearEndPortNo = port + 1u;
    node::sendTo(c.servicePid, req);
    c.asked[port] = true;
    awaitAnswer();
}

/// A port's subscription is answered, or not wanted any more; the wait is over with the last one.
void subscriptionOver(Client& c, u32 port)
{
    if (isPort(port)) c.asked[port] = false;
    if (std::ranges::none_of(c.asked, [](bool asked) { return asked; })) cancelAnswer();
}

void subscribe(Client& c, u8 port)
{
    if (c.availabilityStatus != INRSI_AVAILABLE) {
        KVD_TRACE(TRACE_INRSI, TRACE_INFO, "%s(): Server is not available", __func__);
        KVD_TRACE(TRACE_INRSI, TRACE_INFO, "%s():INRSI SUBSCRIBE LINK STATUS failed (port %u)", __func__,
                  port);
        return log(c, INRSI_CL_EV_SUBSCRIBE_SERVER_STATUS_NOK);
    }
    askForSubscription(c, port);
    log(c, INRSI_CL_EV_SUBSCRIBE_SERVER_STATUS_OK);
}

void unsubscribe(Client& c, u8 port)
{
    if (port != c.portNo) stopSupervision(c, port);
    if (c.availabilityStatus != INRSI_AVAILABLE) {
        KVD_TRACE(TRACE_INRSI, TRACE_INFO, "%s(): Unsubsribe failed for port %u, INRSI server unavailable",
                  __func__, port);
        KVD_TRACE(TRACE_INRSI, TRACE_INFO, "%s():INRSI UNSUBSCRIBE LINK STATUS failed (port %u)", __func__,
                  port);
        return log(c, INRSI_CL_EV_UNSUBSCRIBE_LINK_STATUS_NOK);
    }
    auto* req = makeRequest<InrsiPort>(c, INRSI_UNSUBSCRIBE_LINK_STATUS_REQ);
    req->nearEndPortNo = port + 1u;
    node::sendTo(c.servicePid, req);
    releaseInci(c, port);
    log(c, INRSI_CL_EV_UNSUBSCRIBE_LINK_STATUS_OK);
}

/// Takes over what was subscribed and asks for the rest; which ports are wanted now.
Subscribed subscribeWanted(Client& c, const KvdTuiifSocpriSupInd& ind, const Subscribed& before)
{
    Subscribed wanted{};
    for (const u8 number : ind.syncRiPortNo) {
        if (number == 0) continue;
        const u8 port = static_cast<u8>(number - 1);
        if (!isPort(port)) {
            KVD_TRACE(TRACE_INRSI, TRACE_ERROR, "%s(): Port number out of range (%u)", __func__, port);
            continue;
        }
        if (wanted[port]) continue;
        wanted[port] = true;
        if (before[port]) {
            c.subscribed[port] = true;
            KVD_TRACE(TRACE_INRSI, TRACE_INFO, "%s():INRSI link already subscribed (port %u)", __func__,
                      port);
        } else {
            subscribe(c, port);
        }
    }
    return wanted;
}

void onSupInd(Client& c, const KvdTuiifSocpriSupInd* ind)
{
    if (ind == nullptr) return;
    const Subscribed before = c.subscribed;
    c.subscribed = {};
    c.asked = {};
    Subscribed wanted{};
    if (ind->supEnable != 0) wanted = subscribeWanted(c, *ind, before);
    for (const u8 port : PORTS_A_TO_F)
        if (before[port] && !wanted[port]) unsubscribe(c, port);
    if (ind->supEnable != 0) {
        const bool isOnce = c.role->isMaster;
        if (!isOnce || (!s->statusResent && KvdLoz6TuRef_isFirstStart() == 0)) {
            s->statusResent = true;
            c.role->resendLinkStatus();
        }
        startInci(c);
        createMarker(c);
    } else {
        killInci(c);
        deleteMarker(c);
    }
    log(c, INRSI_CL_EV_SUP_IND_HANDLED);
}

void onSubscribeCfm(Client& c, const InrsiPort* cfm)
{
    if (cfm == nullptr) return;
    const u32 port = cfm->nearEndPortNo - 1;
    if (!isPort(port)) {
        KVD_TRACE(TRACE_INRSI, TRACE_ERROR, "%s(): Port number out of range (%u)", __func__, port);
        return;
    }
    if (!c.asked[port]) {
        KVD_TRACE(TRACE_INRSI, TRACE_INFO, "%s(): not asked for, dropped (port %u)", __func__, port);
        return;
    }
    subscriptionOver(c, port);
    c.subscribed[port] = true;
}

void onSubscribeRej(Client& c, const InrsiPortRej* rej)
{
    if (rej == nullptr) return;
    subscriptionOver(c, rej->nearEndPortNo - 1u);
    KVD_TRACE(TRACE_INRSI, TRACE_INFO,
              "received INRSI_SUBSCRIBE_LINK_STATUS_REJ: nearEndPortNo=%u, errorCode=%u", rej->nearEndPortNo,
              rej->errorCode);
}

// ---- link status ---------------------------------------------------------------------------------

void linkAvailable(Client& c, u8 port, const UnitReport& report)
{
    KVD_TRACE(TRACE_INRSI, TRACE_INFO,
              "%s():Link status is available, sending request for INCI establishment", __func__);
    Slot* const slot = findUnit(c, port, report.sharedUnitId);
    if (slot != nullptr) establishInci(port, *slot);
    if (port != c.portNo) startSupervision(c, port);
}

void onLinkStatus2(Client& c, const InrsiLinkStatus2Ind* ind)
{
    if (ind == nullptr) return;
    if (!isPort(ind->nearEndPortNo - 1u)) {
        KVD_TRACE(TRACE_INRSI, TRACE_ERROR, "%s(): Port number out of range (%u)", __func__,
                  ind->nearEndPortNo - 1);
        return log(c, INRSI_CL_EV_LINK_SC_IGNORED_PORTNO_LIMITS);
    }
    const u8 port = static_cast<u8>(ind->nearEndPortNo - 1);
    const UnitReport report = {ind->linkStatus, ind->sharedUnitId, ind->subsumedUnitId,
                               ind->subsumedUnitIdValid, ind->huntPathPrefix};
    setPortInCpriPortStatus(c, port, report);
    if (!c.subscribed[port]) {
        KVD_TRACE(TRACE_INRSI, TRACE_INFO,
                  "%s():Port %u is not Sync RI port candidate, link status is ignored!", __func__, port);
        return log(c, INRSI_CL_EV_LINK_SC_IGNORED_PORT_NOT_SUBSCRIBED);
    }
    if (ind->linkStatus == LINK_AVAILABLE) linkAvailable(c, port, report);
    else                                   c.role->linkLost(port, ind->linkStatus);
    sendLinkStatus(port, report, toldStatus(ind->linkStatus));
    const bool isGone = toldStatus(ind->linkStatus) == LINK_NOT_AVAILABLE;
    log(c, isGone ? INRSI_CL_EV_LINK_STATUS_RESET : INRSI_CL_EV_LINK_STATUS_CHANGE);
}

void onBfnJumpInfoRej(Client& c, const InrsiErrorRej* rej)
{
    if (rej == nullptr) return;
    KVD_TRACE(TRACE_INRSI, TRACE_INFO, "received INRSI_BFN_JUMP_INFO_REJ: errorCode=%u", rej->errorCode);
    log(c, INRSI_CL_EV_SFC_ADJ_NOTIF_REJ);
}

}  // namespace

// ---- life ----------------------------------------------------------------------------------------

void askForSubscriptions(Client& c)
{
    for (const u8 port : PORTS_A_TO_F)
        if (c.asked[port]) askForSubscription(c, port);
}

void initiate(Client& c, const Role& role)
{
    c = Client{};
    c.role = &role;
    for (PortUnits& units : c.cpriPortStatus) units.fill(FREE_SLOT);
    log(c, INRSI_CL_EV_INIT);
}

void leave(Client& c)
{
    cancelAllTimers();
    cancelAnswer();
    if (c.attach != NO_ATTACH) ose::detach(&c.attach);
    initiate(c, *c.role);
}

void mainProcessorRestarted(Client& c)
{
    c.role->resendLinkStatus();
    c.subscribed = c.asked = {};
    log(c, INRSI_CL_EV_SUP_DATA_RESET);
}

bool dispatchLink(Client& c, Signal* sig)
{
    if (dispatchConnection(c, sig)) return true;
    switch (sig->sigNo) {
    case KVD_TUIIF_SOCPRI_START_REQ: onStartReq(c);                                             break;
    case KVD_TUIIF_SOCPRI_STOP_REQ:  onStopReq(c);                                              break;
    case KVD_TUIIF_SOCPRI_SUP_IND:   onSupInd(c, as<KvdTuiifSocpriSupInd>(sig));                break;
    case INRSI_SUBSCRIBE_LINK_STATUS_CFM: onSubscribeCfm(c, as<InrsiPort>(sig));                break;
    case INRSI_SUBSCRIBE_LINK_STATUS_REJ: onSubscribeRej(c, as<InrsiPortRej>(sig));             break;
    case INRSI_UNSUBSCRIBE_LINK_STATUS_CFM:
        KVD_TRACE(TRACE_INRSI, TRACE_INFO, "received INRSI_UNSUBSCRIBE_LINK_STATUS_CFM");       break;
    case INRSI_LINK_STATUS2_IND:     onLinkStatus2(c, as<InrsiLinkStatus2Ind>(sig));            break;
    case INRSI_BFN_JUMP_INFO_CFM:    log(c, INRSI_CL_EV_SFC_ADJ_NOTIF_CFM);                     break;
    case INRSI_BFN_JUMP_INFO_REJ:    onBfnJumpInfoRej(c, as<InrsiErrorRej>(sig));               break;
    case KVD_TUSOCPRI_INCI_ESTABLISH_RSP:
        onInciEstablishRsp(c, as<KvdTuSocpriInciEstablishRsp>(sig));                        break;
    case KVD_TUSOCPRI_INCI_RELEASE_RSP:
        KVD_TRACE(TRACE_INRSI, TRACE_INFO, "received KVD_TUSOCPRI_INCI_RELEASE_RSP");           break;
    case KVD_TUSOCPRI_INCI_GET_TIME_DATA_REQ: answerTimeDataRequest(ose::sender(&sig));         break;
    default:                                                                                    return false;
    }
    return true;
}

}  // namespace inrsi
