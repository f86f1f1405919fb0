// Connection to the measurement server, subscription of ports, the table of units behind them.
#include "socpri/kvd_socpri_inrsi_int.h"

#include "iif/kvd_iifadm.h"
#include "mgr/trace_groups.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "ref/kvd_ref.h"
#include "socpri/kvd_ngpduh_proc.h"

#include <algorithm>
#include <cstring>

namespace {

/// Of the program, whichever client is at work.
struct State {
    std::array<u8, std::size(INRSI_SERVER_NAMES)> huntsPending{};
    u8 statusResent = 0;                       // by a master: once in the life of the program
};
ose::ModuleData<State> s;

}  // namespace

namespace inrsi {

// ---- requests and timers -------------------------------------------------------------------------

void requestMeasurement(Client& c, SIGSELECT sigNo, u32 sharedUnitId)
{
    auto* req = makeRequest<InrsiUnit>(c, sigNo);
    req->sharedUnitId = sharedUnitId;
    node::sendTo(c.factoryPid, req);
}

int requestBfnJumpInfo(Client& c, u32 enabled)
{
    if (c.availabilityStatus != INRSI_AVAILABLE) return 1;
    auto* req = makeRequest<InrsiBfnJumpInfoReq>(c, INRSI_BFN_JUMP_INFO_REQ);
    req->bfnJumpEnabled = enabled == 1 ? 1 : 0;
    KVD_TRACE(TRACE_INRSI, TRACE_INFO, "INRSI_BFN_JUMP_INFO_REQ sent with data: BfnJumpEnabled= %s",
              enabled == 1 ? "TRUE" : "FALSE");
    node::sendTo(c.servicePid, req);
    return 0;
}

void startTimer(TimerRef& timer, OSTIME time_ms, SIGSELECT sigNo)
{
    cancelTimer(timer);
    timer = ose::request_tmo(time_ms, sigNo);
    if (timer == 0) KVD_TRACE(TRACE_INRSI, TRACE_ERROR, "no timer for signal 0x%x", sigNo);
}

void startPortTimer(TimerRef& timer, OSTIME time_ms, SIGSELECT sigNo, u8 port)
{
    cancelTimer(timer);
    auto* tmo = node::make<InrsiPortTmo>(sigNo);
    tmo->port = port;
    Signal* sig = reinterpret_cast<Signal*>(tmo);
    timer = ose::request_tmo_sig(time_ms, &sig);
    if (timer != 0) return;
    KVD_TRACE(TRACE_INRSI, TRACE_ERROR, "no timer for signal 0x%x of port %u", sigNo, port);
    ose::free_buf(&sig);
}

// ---- units ---------------------------------------------------------------------------------------

Slot* findUnit(Client& c, u8 port, u32 sharedUnitId)
{
    if (sharedUnitId == NO_UNIT || port >= PORTS_WITH_X) return nullptr;
    for (Slot& slot : c.cpriPortStatus[port])
        if (slot.sharedUnitId == sharedUnitId) return &slot;
    return nullptr;
}

u32 mapUnitIdToArraySlot(Client& c, u8 port, u32 sharedUnitId)
{
    const PortUnits& units = c.cpriPortStatus[port];
    for (const u32 wanted : {sharedUnitId, NO_UNIT})
        for (u32 i = 0; i < SLOTS; ++i)
            if (units[i].sharedUnitId == wanted) return i;
    KVD_TRACE(TRACE_INRSI, TRACE_ERROR,
              "%s(): Mapping was not successful (port %u, sharedUnitId %u), returning 0 for slot number!",
              __func__, port, sharedUnitId);
    return 0;
}

Slot* firstUnit(Client& c, u8 port, u8 linkStatus)
{
    if (port >= PORTS_WITH_X) return nullptr;
    for (Slot& slot : c.cpriPortStatus[port])
        if (slot.sharedUnitId != NO_UNIT && slot.linkStatus >= linkStatus) return &slot;
    return nullptr;
}

u8 portOfUnit(Client& c, u32 sharedUnitId)
{
    for (u8 port = 0; port < PORTS; ++port)
        if (findUnit(c, port, sharedUnitId) != nullptr) return port;
    return NO_PORT;
}

void setPortInCpriPortStatus(Client& c, u8 port, const UnitReport& report)
{
    // A unit that has taken over another's id is known by the old one until now.
    const bool isKnownByOldId =
        report.subsumedValid != 0 && findUnit(c, port, report.subsumedUnitId) != nullptr;
    const u32 key = isKnownByOldId ? report.subsumedUnitId : report.sharedUnitId;
    Slot& slot = c.cpriPortStatus[port][mapUnitIdToArraySlot(c, port, key)];
    switch (report.linkStatus) {
    case LINK_PRESENT:
        slot.inciEstablishStatus = INCI_NONE;
        [[fallthrough]];
    case LINK_AVAILABLE:
        slot.sharedUnitId = report.sharedUnitId;
        slot.subsumedUnitId = report.subsumedValid != 0 ? report.subsumedUnitId : NO_UNIT;
        break;
    default:
        KVD_TRACE(TRACE_INRSI, TRACE_INFO, "%s():Link is not available, it will restart", __func__);
        slot.sharedUnitId = NO_UNIT;
        slot.subsumedUnitId = NO_UNIT;
        slot.inciEstablishStatus = INCI_NONE;
        break;
    }
    slot.linkStatus = report.linkStatus;
    std::memset(slot.huntPathPrefix, 0, sizeof slot.huntPathPrefix);
    std::memcpy(slot.huntPathPrefix, report.huntPathPrefix,
                strnlen(report.huntPathPrefix, sizeof slot.huntPathPrefix - 1));
}

void sendLinkStatus(u8 port, const UnitReport& report, u8 linkStatus)
{
    char prefix[INCI_PATH_SIZE] = {};
    std::memcpy(prefix, report.huntPathPrefix, strnlen(report.huntPathPrefix, sizeof prefix - 1));
    KvdLoz6TuIifAdm_sendSocpriLinkStatusFwd(report.sharedUnitId, static_cast<u8>(port + 1), linkStatus,
                                            prefix, report.subsumedUnitId, report.subsumedValid);
}

namespace {

UnitReport reportOf(const Slot& slot)
{
    return {slot.linkStatus, slot.sharedUnitId, slot.subsumedUnitId,
            slot.subsumedUnitId != NO_UNIT ? 1u : 0u, slot.huntPathPrefix};
}

/// As the main processor is told: present, available, or neither.
u8 toldStatus(u8 linkStatus) { return linkStatus > LINK_AVAILABLE ? u8{LINK_NOT_AVAILABLE} : linkStatus; }

}  // namespace

void resendLinkStatusData(Client& c)
{
    for (u8 port = 0; port < PORTS; ++port) {
        if (c.subscribed[port] == 0) continue;
        for (const Slot& slot : c.cpriPortStatus[port])
            sendLinkStatus(port, reportOf(slot), toldStatus(slot.linkStatus));
    }
}

namespace {

void resetPortStatus(Client& c, u8 port)
{
    for (Slot& slot : c.cpriPortStatus[port]) {
        sendLinkStatus(port, reportOf(slot), LINK_NOT_AVAILABLE);
        slot = FREE_SLOT;
    }
    log(c, INRSI_CL_EV_PORT_STATUS_RESET);
}

// ---- connection ---------------------------------------------------------------------------------

/// One hunt a name is enough, for ever.
void huntFor(u32 name)
{
    if (s->huntsPending[name] == 0) {
        auto* up = node::make<InrsiServerUpInd>(INRSI_SERVER_UP_IND);
        up->name = name;
        Signal* sig = reinterpret_cast<Signal*>(up);
        s->huntsPending[name] = 1;
        if (ose::hunt(INRSI_SERVER_NAMES[name], 0, nullptr, &sig) != 0) return;
    }
    // Not there yet: the hunt stands until it comes.
    KVD_TRACE(TRACE_INRSI, TRACE_INFO, "Failed to hunt for process: %s", INRSI_SERVER_NAMES[name]);
}

/// 1 when the server is hunted for already, or connected.
int connEstablish(Client& c)
{
    if (c.availabilityStatus != INRSI_UNAVAILABLE) return 1;
    c.availabilityStatus = INRSI_INITIATING;
    c.factoryPid = c.servicePid = 0;
    for (u32 name = 0; name < std::size(INRSI_SERVER_NAMES); ++name) huntFor(name);
    return 0;
}

void forgetServer(Client& c)
{
    c.factoryPid = c.servicePid = 0;
    c.availabilityStatus = INRSI_UNAVAILABLE;
}

void onStartReq(Client& c)
{
    switch (c.availabilityStatus) {
    case INRSI_AVAILABLE:
        KVD_TRACE(TRACE_INRSI, TRACE_INFO,
                  "Inrsi already available, send KVD_TUIIF_SOCPRI_START_RSP.");
        KvdLoz6TuIifAdm_sendSocpriStartRsp(1);
        break;
    case INRSI_UNAVAILABLE:
        connEstablish(c);
        break;
    default:
        KVD_TRACE(TRACE_INRSI, TRACE_INFO, "failed to initiate INRSI subscription");
        break;
    }
    log(c, INRSI_CL_EV_START_REQ_HANDLED);
}

void onServerUp(Client& c, const InrsiServerUpInd* ind, PROCESS factory)
{
    if (ind == nullptr) return;
    if (ind->name < s->huntsPending.size()) s->huntsPending[ind->name] = 0;
    if (c.availabilityStatus != INRSI_INITIATING || c.factoryPid != 0) return;   // the other is in use
    c.factoryPid = factory;
    Signal* down = ose::alloc(sizeof(SIGSELECT), INRSI_SERVER_DOWN_IND);
    c.attach = ose::attach(&down, factory);
    auto* req = makeRequest<InrsiConnEstablishReq>(c, INRSI_CONN_ESTABLISH_REQ);
    req->numberOfRevisions = c.numberOfRevisions;
    req->protocolRev[0] = c.protocolRev[0];
    node::sendTo(factory, req);
    log(c, INRSI_CL_EV_SERVER_UP);
}

/// True when an answer to the connection request is awaited.
bool awaitsAnswer(const Client& c, const char* what)
{
    if (c.availabilityStatus == INRSI_INITIATING && c.factoryPid != 0) return true;
    KVD_TRACE(TRACE_INRSI, TRACE_INFO, "%s not asked for, dropped, availabilityStatus=%u", what,
              c.availabilityStatus);
    return false;
}

void onConnEstablishCfm(Client& c, const InrsiConnEstablishCfm* cfm, PROCESS service)
{
    if (cfm == nullptr || !awaitsAnswer(c, "INRSI_CONN_ESTABLISH_CFM")) return;
    c.servicePid = service;
    c.connectionRef = cfm->connectionRef;
    c.availabilityStatus = INRSI_AVAILABLE;
    KvdLoz6TuIifAdm_sendSocpriStartRsp(1);
    log(c, INRSI_CL_EV_CONN_ESTABLISH_CFM);
}

void onConnEstablishRej(Client& c, const InrsiErrorRej* rej)
{
    if (rej == nullptr || !awaitsAnswer(c, "INRSI_CONN_ESTABLISH_REJ")) return;
    KVD_TRACE(TRACE_INRSI, TRACE_INFO, "received INRSI_CONN_ESTABLISH_REJ: errorCode=%u", rej->errorCode);
    ose::detach(&c.attach);
    c.attach = NO_ATTACH;
    forgetServer(c);
    KvdLoz6TuIifAdm_sendSocpriStartRsp(0);
    log(c, INRSI_CL_EV_CONN_ESTABLISH_REJ, KEEP);
}

void onServerDown(Client& c)
{
    if (c.attach == NO_ATTACH) return;
    c.attach = NO_ATTACH;
    log(c, INRSI_CL_EV_SERVER_DOWN, KEEP);
    c.role->serverLost();
    forgetServer(c);
    c.procedureRef = c.connectionRef = 0;
    for (u8 port = 0; port < PORTS; ++port) {
        stopSupervision(c, port);
        if (c.subscribed[port] != 0) resetPortStatus(c, port);
    }
    c.subscribed = {};
    if (connEstablish(c) != 0)
        KVD_TRACE(TRACE_INRSI, TRACE_INFO, "INRSI CONNECTION ESTABLISH failed");
}

// ---- exchange with other units -------------------------------------------------------------------

void releaseInci(u8 port, u32 sharedUnitId, u32 remove)
{
    auto* req = node::make<KvdTuSocpriInciReleaseReq>(KVD_TUSOCPRI_INCI_RELEASE_REQ);
    req->cpriPortNo = port;
    req->sharedId = sharedUnitId;
    req->remove = remove;
    node::sendTo(KvdLoz6NgPduh_pid(), req);
}

void establishInci(u8 port, Slot& slot)
{
    if (slot.inciEstablishStatus != INCI_NONE) {
        KVD_TRACE(TRACE_INRSI, TRACE_INFO,
                  "NGSC-INCI already established for portNo = %u, sharedId = %u, huntPathPrefix = %s", port,
                  slot.sharedUnitId, slot.huntPathPrefix);
        return;
    }
    slot.inciEstablishStatus = INCI_ASKED;
    auto* req = node::make<KvdTuSocpriInciEstablishReq>(KVD_TUSOCPRI_INCI_ESTABLISH_REQ);
    std::memcpy(req->huntPathPrefix, slot.huntPathPrefix, sizeof req->huntPathPrefix);
    req->cpriPortNo = port;
    req->sharedId = slot.sharedUnitId;
    req->subsumedUnitId = slot.subsumedUnitId;
    node::sendTo(KvdLoz6NgPduh_pid(), req);
}

void handleInciEstablishRsp(Client& c, const KvdTuSocpriInciEstablishRsp* rsp)
{
    if (rsp == nullptr) return;
    Slot* const slot = findUnit(c, rsp->cpriPortNo, rsp->sharedId);
    if (slot == nullptr) return;
    if (rsp->subsumedIdValid != 0) releaseInci(rsp->cpriPortNo, rsp->subsumedUnitId, 1);
    slot->inciEstablishStatus = INCI_ESTABLISHED;
}

/// Its connections end with it.
void killInci(Client& c)
{
    KvdLoz6NgPduh_kill();
    for (PortUnits& units : c.cpriPortStatus)
        for (Slot& slot : units) slot.inciEstablishStatus = INCI_NONE;
}

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

// ---- subscription --------------------------------------------------------------------------------

void subscribe(Client& c, u8 port)
{
    if (c.availabilityStatus != INRSI_AVAILABLE) {
        KVD_TRACE(TRACE_INRSI, TRACE_INFO, "%s(): Server is not available", __func__);
        KVD_TRACE(TRACE_INRSI, TRACE_INFO, "%s():INRSI SUBSCRIBE LINK STATUS failed (port %u)", __func__,
                  port);
        log(c, INRSI_CL_EV_SUBSCRIBE_SERVER_STATUS_NOK);
        return;
    }
    auto* req = makeRequest<InrsiPort>(c, INRSI_SUBSCRIBE_LINK_STATUS_REQ);
    req->nearEndPortNo = port + 1u;
    node::sendTo(c.servicePid, req);
    log(c, INRSI_CL_EV_SUBSCRIBE_SERVER_STATUS_OK);
}

void unsubscribe(Client& c, u8 port)
{
    if (port != c.portNo) stopSupervision(c, port);
    if (c.availabilityStatus != INRSI_AVAILABLE) {
        KVD_TRACE(TRACE_INRSI, TRACE_INFO,
                  "%s(): Unsubsribe failed for port %u, INRSI server unavailable", __func__, port);
        KVD_TRACE(TRACE_INRSI, TRACE_INFO, "%s():INRSI UNSUBSCRIBE LINK STATUS failed (port %u)", __func__,
                  port);
        log(c, INRSI_CL_EV_UNSUBSCRIBE_LINK_STATUS_NOK);
        return;
    }
    auto* req = makeRequest<InrsiPort>(c, INRSI_UNSUBSCRIBE_LINK_STATUS_REQ);
    req->nearEndPortNo = port + 1u;
    node::sendTo(c.servicePid, req);
    for (Slot& slot : c.cpriPortStatus[port]) {
        if (slot.inciEstablishStatus == INCI_NONE) continue;
        releaseInci(port, slot.sharedUnitId, 0);
        slot.inciEstablishStatus = INCI_NONE;
    }
    log(c, INRSI_CL_EV_UNSUBSCRIBE_LINK_STATUS_OK);
}

/// Takes over what was subscribed and asks for the rest; which ports are wanted now.
Subscribed subscribeWanted(Client& c, const KvdTuiifSocpriSupInd& ind, const Subscribed& before)
{
    Subscribed wanted{};
    for (const u8 number : ind.syncRiPortNo) {
        if (number == 0) continue;
        const u8 port = static_cast<u8>(number - 1);
        if (port >= PORTS) {
            KVD_TRACE(TRACE_INRSI, TRACE_ERROR, "%s(): Port number out of range (%u)", __func__, port);
            continue;
        }
        if (wanted[port] != 0) continue;
        wanted[port] = 1;
        if (before[port] != 0) {
            c.subscribed[port] = 1;
            KVD_TRACE(TRACE_INRSI, TRACE_INFO, "%s():INRSI link already subscribed (port %u)", __func__, port);
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
    Subscribed wanted{};
    if (ind->supEnable != 0) wanted = subscribeWanted(c, *ind, before);
    for (u8 port = 0; port < PORTS; ++port)
        if (before[port] != 0 && wanted[port] == 0) unsubscribe(c, port);
    if (ind->supEnable != 0) {
        const bool isOnce = c.role->isMaster;
        if (!isOnce || (s->statusResent == 0 && KvdLoz6TuRef_isFirstStart() == 0)) {
            s->statusResent = 1;
            c.role->resendLinkStatus();
        }
        KvdLoz6NgPduh_start();
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
    if (port < PORTS) c.subscribed[port] = 1;
    else KVD_TRACE(TRACE_INRSI, TRACE_ERROR, "%s(): Port number out of range (%u)", __func__, port);
}

void onSubscribeRej(const InrsiPortRej* rej)
{
    if (rej == nullptr) return;
    KVD_TRACE(TRACE_INRSI, TRACE_INFO,
              "received INRSI_SUBSCRIBE_LINK_STATUS_REJ: nearEndPortNo=%u, errorCode=%u",
              rej->nearEndPortNo, rej->errorCode);
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
    if (ind->nearEndPortNo - 1 >= PORTS) {
        KVD_TRACE(TRACE_INRSI, TRACE_ERROR, "%s(): Port number out of range (%u)", __func__,
                  ind->nearEndPortNo - 1);
        log(c, INRSI_CL_EV_LINK_SC_IGNORED_PORTNO_LIMITS);
        return;
    }
    const u8 port = static_cast<u8>(ind->nearEndPortNo - 1);
    const UnitReport report = {ind->linkStatus, ind->sharedUnitId, ind->subsumedUnitId,
                               ind->subsumedUnitIdValid, ind->huntPathPrefix};
    setPortInCpriPortStatus(c, port, report);
    if (c.subscribed[port] == 0) {
        KVD_TRACE(TRACE_INRSI, TRACE_INFO,
                  "%s():Port %u is not Sync RI port candidate, link status is ignored!", __func__, port);
        log(c, INRSI_CL_EV_LINK_SC_IGNORED_PORT_NOT_SUBSCRIBED);
        return;
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

void initiate(Client& c, const Role& role)
{
    c = Client{};
    c.role = &role;
    for (PortUnits& units : c.cpriPortStatus) units.fill(FREE_SLOT);
    log(c, INRSI_CL_EV_INIT);
}

void leave(Client& c)
{
    for (TimerRef& timer : c.phaseDataTmo) cancelTimer(timer);
    for (TimerRef& timer : c.measRetrieveTmo) cancelTimer(timer);
    for (u8 port = 0; port < PORTS; ++port) stopSupervision(c, port);
    if (c.attach != NO_ATTACH) ose::detach(&c.attach);
    initiate(c, *c.role);
}

void mainProcessorRestarted(Client& c)
{
    c.role->resendLinkStatus();
    c.subscribed = {};
    log(c, INRSI_CL_EV_SUP_DATA_RESET);
}

int dispatchLink(Client& c, Signal* sig)
{
    switch (sig->sigNo) {
    case KVD_TUIIF_SOCPRI_START_REQ: onStartReq(c);                                             return 1;
    case KVD_TUIIF_SOCPRI_STOP_REQ:  onStopReq(c);                                              return 1;
    case KVD_TUIIF_SOCPRI_SUP_IND:   onSupInd(c, as<KvdTuiifSocpriSupInd>(sig));                return 1;
    case INRSI_SERVER_UP_IND:
        onServerUp(c, as<InrsiServerUpInd>(sig), ose::sender(&sig));                            return 1;
    case INRSI_SERVER_DOWN_IND:      onServerDown(c);                                           return 1;
    case INRSI_CONN_ESTABLISH_CFM:
        onConnEstablishCfm(c, as<InrsiConnEstablishCfm>(sig), ose::sender(&sig));               return 1;
    case INRSI_CONN_ESTABLISH_REJ:   onConnEstablishRej(c, as<InrsiErrorRej>(sig));             return 1;
    case INRSI_SUBSCRIBE_LINK_STATUS_CFM: onSubscribeCfm(c, as<InrsiPort>(sig));                return 1;
    case INRSI_SUBSCRIBE_LINK_STATUS_REJ: onSubscribeRej(as<InrsiPortRej>(sig));                return 1;
    case INRSI_UNSUBSCRIBE_LINK_STATUS_CFM:
        KVD_TRACE(TRACE_INRSI, TRACE_INFO, "received INRSI_UNSUBSCRIBE_LINK_STATUS_CFM");       return 1;
    case INRSI_LINK_STATUS2_IND:     onLinkStatus2(c, as<InrsiLinkStatus2Ind>(sig));            return 1;
    case INRSI_BFN_JUMP_INFO_CFM:    log(c, INRSI_CL_EV_SFC_ADJ_NOTIF_CFM);                     return 1;
    case INRSI_BFN_JUMP_INFO_REJ:    onBfnJumpInfoRej(c, as<InrsiErrorRej>(sig));               return 1;
    case KVD_TUSOCPRI_INCI_ESTABLISH_RSP:
        handleInciEstablishRsp(c, as<KvdTuSocpriInciEstablishRsp>(sig));                        return 1;
    case KVD_TUSOCPRI_INCI_RELEASE_RSP:
        KVD_TRACE(TRACE_INRSI, TRACE_INFO, "received KVD_TUSOCPRI_INCI_RELEASE_RSP");           return 1;
    case KVD_TUSOCPRI_INCI_GET_TIME_DATA_REQ: answerTimeDataRequest(ose::sender(&sig));         return 1;
    default:                                                                                    return 0;
    }
}

}  // namespace inrsi
