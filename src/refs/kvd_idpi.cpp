// Connection to the port server, clock status, access to the port table.
#include "refs/kvd_idpi.h"

#include "base/element_of.h"
#include "base/kvd_answer.h"
#include "base/text_of.h"
#include "base/trace_groups.h"
#include "mp/kvd_iifadm.h"
#include "node/platform.h"
#include "node/sig.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "refs/kvd_idpi_int.h"
#include "unit/kvd_unit_process.h"

#include <algorithm>

namespace {

ose::ModuleData<idpi::State> s;

constexpr KvdAnswerOf ANSWER{TRACE_IDPI, IDPI_SERVER_NAME, IDPI_ANSWER_TMO};
constexpr u16 RECONNECT_REV = 1;
constexpr u32 REJECT_TEXT_MAX = 64;

using RejectText = std::array<char, REJECT_TEXT_MAX>;

/// A rejection may come without any text.
template <typename Rej>
const Rej* rejection(const Signal* sig)
{
    return node::asOfAtLeast<Rej>(sig, offsetof(Rej, text));
}

/// Its port number is the last that it holds.
const IdpiGetDelayReq* delayRejection(const Signal* sig)
{
    return node::asOfAtLeast<IdpiGetDelayReq>(sig, offsetof(IdpiGetDelayReq, portNo) + sizeof(u16));
}

/// A rejection's text lies at the end of its signal, terminated or not.
RejectText rejectText(const void* sig, u32 offset)
{
    RejectText out{};
    const char* const text = static_cast<const char*>(sig) + offset;
    const u32 room = std::min(node::sizeOf(static_cast<const Signal*>(sig)) - offset, REJECT_TEXT_MAX - 1);
    std::transform(text, std::find(text, text + room, '\0'), out.begin(),
                   [](char c) { return c >= ' ' && c <= '~' ? c : '?'; });
    return out;
}

template <typename T>
T* makeAddressed(SIGSELECT sigNo)
{
    T* const sig = node::make<T>(sigNo);
    sig->clientRef = s->clientRef;
    sig->serverRef = s->serverRef;
    return sig;
}

/// 1 when there is no service to ask.
int request(SIGSELECT sigNo)
{
    if (s->availabilityStatus != IDPI_AVAILABLE) return 1;
    auto* req = makeAddressed<IdpiRefs>(sigNo);
    node::sendTo(s->servicePid, req);
    return 0;
}

void awaitAnswer(SIGSELECT request)
{
    s->owed = request;
    KvdAnswer_await(s->answerTimer, ANSWER);
}

void answered()
{
    s->owed = 0;
    KvdTimer_cancel(s->answerTimer);
}

void forgetServer()
{
    answered();
    s->factoryPid = 0;
    s->servicePid = 0;
    s->availabilityStatus = IDPI_UNAVAILABLE;
    s->idpiClkStatus = idpi::CLK_STATUS_NONE;
}

// ---- connection ---------------------------------------------------------------------------------

void askForConnection()
{
    auto* req = makeAddressed<IdpiConnEstablishReq>(IDPI_CONN_ESTABLISH_REQ);
    req->protocolRev = s->protocolRev;
    node::sendTo(s->factoryPid, req);
    awaitAnswer(IDPI_CONN_ESTABLISH_REQ);
}

void onServerUp(PROCESS factory)
{
    if (s->availabilityStatus != IDPI_INITIATING || s->factoryPid != 0) return;
    s->factoryPid = factory;
    Signal* down = ose::alloc(sizeof(SIGSELECT), IDPI_SERVER_DOWN_IND);
    s->attach = ose::attach(&down, factory);
    s->serverRef = 0;
    askForConnection();
}

/// True when an answer to the connection request is awaited.
bool awaitsAnswer(const char* what)
{
    if (s->availabilityStatus == IDPI_INITIATING && s->factoryPid != 0) return true;
    KVD_TRACE(TRACE_IDPI, TRACE_7, "%s not asked for, dropped, availabilityStatus=%u", what,
              s->availabilityStatus);
    return false;
}

void onConnEstablishCfm(const IdpiRefs* cfm, PROCESS service)
{
    if (cfm == nullptr || !awaitsAnswer("IDPI_CONN_ESTABLISH_CFM")) return;
    s->servicePid = service;
    s->serverRef = cfm->serverRef;
    s->availabilityStatus = IDPI_AVAILABLE;
    awaitAnswer(IDPI_GET_CAPABILITY_REQ);
    if (request(IDPI_GET_CAPABILITY_REQ) != 0) KVD_TRACE(TRACE_IDPI, TRACE_7, "IDPI GET CAPABILITY failed");
}

void onConnEstablishRej(const IdpiConnEstablishRej* rej)
{
    if (rej == nullptr || !awaitsAnswer("IDPI_CONN_ESTABLISH_REJ")) return;
    ose::detach(&s->attach);
    forgetServer();
    KVD_TRACE(TRACE_IDPI, TRACE_7, "received IDPI_CONN_ESTABLISH_REJ: protocolRev=%u, errorCode=%u (%s)",
              rej->protocolRev, rej->errorCode, rejectText(rej, offsetof(IdpiConnEstablishRej, text)).data());
}

void onServerDown()
{
    s->attach = 0;
    forgetServer();
    if (KvdLoz6TuSlave_connEstablish(RECONNECT_REV) != 0)
        KVD_TRACE(TRACE_IDPI, TRACE_7, "IDPI CONNECTION ESTABLISH failed");
}

// ---- capability, subscription -------------------------------------------------------------------

void subscribe()
{
    if (request(IDPI_SUBSCRIBE_LINK_STATUS_REQ) == 0) return awaitAnswer(IDPI_SUBSCRIBE_LINK_STATUS_REQ);
    KVD_TRACE(TRACE_IDPI, TRACE_7, "IDPI SUBSCRIBE LINK STATUS failed");
}

/// Looks at no more records than the signal holds, whatever its count says.
bool hasDelayCapability(const Signal* sig, const IdpiGetCapabilityCfm& cfm)
{
    constexpr u32 FIRST = offsetof(IdpiGetCapabilityCfm, capability);
    const u32 held = (node::sizeOf(sig) - FIRST) / static_cast<u32>(sizeof(IdpiCapability));
    return std::any_of(cfm.capability, cfm.capability + std::min<u32>(cfm.count, held),
                       [](const IdpiCapability& record) {
                           return record.type == IDPI_CAPABILITY_DELAY && record.supported == 1;
                       });
}

void onGetCapabilityCfm(const Signal* sig)
{
    const bool isEmpty = node::sizeOf(sig) < sizeof(IdpiGetCapabilityCfm);
    s->delayMeasurementCap = !isEmpty
                             && hasDelayCapability(sig, *reinterpret_cast<const IdpiGetCapabilityCfm*>(sig));
    subscribe();
}

void onGetCapabilityRej(const IdpiRej* rej)
{
    if (rej == nullptr) return;
    KVD_TRACE(TRACE_IDPI, TRACE_7, "IDPI_GET_CAPABILITY_REQ rejected. error_code: %u", rej->errorCode);
    s->delayMeasurementCap = 0;
    subscribe();
}

void onSubscribeCfm()
{
    KVD_TRACE(TRACE_IDPI, TRACE_7, "received IDPI_SUBSCRIBE_LINK_STATUS_CFM");
    answered();
}

void onAnswerTimeout()
{
    if (!KvdAnswer_isLate(s->answerTimer, ANSWER)) return;
    if (s->owed == IDPI_CONN_ESTABLISH_REQ) return askForConnection();
    request(s->owed);
    awaitAnswer(s->owed);
}

void onSubscribeRej(const IdpiRej* rej)
{
    if (rej == nullptr) return;
    answered();
    KVD_TRACE(TRACE_IDPI, TRACE_7, "received IDPI_SUBSCRIBE_LINK_STATUS_REJ: errorCode=%u (%s)",
              rej->errorCode, rejectText(rej, offsetof(IdpiRej, text)).data());
}

}  // namespace

namespace idpi {

State& state() { return *s; }

const char* portText(u32 port)
{
    constexpr const char* TEXTS[] = {"Port A ", "Port B ", "Port C ", "Port D ", "Port E ", "Port F "};
    return textOf(TEXTS, port, "<Unknown>");
}

void dropPort(u32 port)
{
    if (!isActive(port)) return;
    s->idl2PortMap = static_cast<u8>(s->idl2PortMap & ~bitOf(port));
    --s->nActivePorts;
    s->port[port].received = 0;
}

IdpiPort emptyPort(u32 port)
{
    IdpiPort empty;
    empty.nearPort = static_cast<u16>(port);
    return empty;
}

}  // namespace idpi

bool KvdLoz6Idpi_dispatch(Signal* sig)
{
    switch (sig->sigNo) {
    case IDPI_SERVER_UP_IND:         onServerUp(ose::sender(&sig));                            return true;
    case IDPI_SERVER_DOWN_IND:       onServerDown();                                           return true;
    case IDPI_CONN_ESTABLISH_CFM:    onConnEstablishCfm(as<IdpiRefs>(sig), ose::sender(&sig)); return true;
    case IDPI_CONN_ESTABLISH_REJ:    onConnEstablishRej(rejection<IdpiConnEstablishRej>(sig)); return true;
    case IDPI_GET_CAPABILITY_CFM:    onGetCapabilityCfm(sig);                                  return true;
    case IDPI_GET_CAPABILITY_REJ:    onGetCapabilityRej(rejection<IdpiRej>(sig));              return true;
    case IDPI_SUBSCRIBE_LINK_STATUS_CFM: onSubscribeCfm();                                     return true;
    case IDPI_ANSWER_TMO:            onAnswerTimeout();                                        return true;
    case IDPI_SUBSCRIBE_LINK_STATUS_REJ: onSubscribeRej(rejection<IdpiRej>(sig));              return true;
    case IDPI_LINK_STATUS_IND:       idpi::onLinkStatus(as<IdpiLinkStatusInd>(sig));           return true;
    case IDPI_PROP_PORT_INFO_CFM:
        KVD_TRACE(TRACE_IDPI, TRACE_7, "received IDPI_PROP_PORT_INFO_CFM");                    return true;
    case IDPI_REQUEST_DATA_TMO:      idpi::onRequestDataTimeout();                             return true;
    case IDPI_GET_DELAY_CFM:         idpi::onGetDelayCfm(as<IdpiGetDelayCfm>(sig));            return true;
    case IDPI_GET_DELAY_REJ:         idpi::onGetDelayRej(delayRejection(sig));                 return true;
    default:                                                                                   return false;
    }
}

void KvdLoz6Idpi_initiate()
{
    for (u32 port = 0; port < IDPI_PORTS; ++port) s->port[port] = idpi::emptyPort(port);
}

int KvdLoz6TuSlave_connEstablish(u16 protocolRev)
{
    if (s->availabilityStatus != IDPI_UNAVAILABLE) return 0;
    s->protocolRev = protocolRev;
    s->availabilityStatus = IDPI_INITIATING;
    Signal* up = ose::alloc(sizeof(SIGSELECT), IDPI_SERVER_UP_IND);
    if (ose::hunt(IDPI_SERVER_NAME, 0, nullptr, &up) != 0) return 0;
    KVD_TRACE(TRACE_IDPI, TRACE_7, "Failed to hunt for process: %s", IDPI_SERVER_NAME);
    return 1;
}

int KvdLoz6Idpi_sendClkStatus(u8 clkStatus)
{
    if (s->availabilityStatus != IDPI_AVAILABLE) return 1;
    if (clkStatus == s->idpiClkStatus) {
        KVD_TRACE(TRACE_IDPI, TRACE_3, "Idpi clk status %u already sent.", clkStatus);
        return 0;
    }
    s->idpiClkStatus = clkStatus;
    KVD_TRACE(TRACE_IDPI, TRACE_INFO, "IDPI_CLK_STATUS_FWD clkStatus: %u", clkStatus);
    auto* fwd = makeAddressed<IdpiClkStatusFwd>(IDPI_CLK_STATUS_FWD);
    fwd->clkStatus = clkStatus;
    node::sendTo(s->servicePid, fwd);
    return 0;
}

void KvdLoz6Idpi_clearDelayData()
{
    for (IdpiPort& port : s->port) port.received = 0;
}

IdpiPort KvdLoz6Idpi_port(u32 port)
{
    const IdpiPort* const known = elementOf(s->port, port);
    return known != nullptr ? *known : IdpiPort{};
}
u8  KvdLoz6Idpi_nActivePorts() { return s->nActivePorts; }
u32 KvdLoz6Idpi_availabilityStatus() { return s->availabilityStatus; }

u32 KvdLoz6Idpi_portAvailable() { return s->delayMeasurementCap != 0 && s->idl2PortMap != 0 ? 1 : 0; }

// ---- printout -----------------------------------------------------------------------------------

namespace {

const char* availabilityText(u32 status)
{
    constexpr const char* TEXTS[] = {"IDPI_AVAILABLE", "IDPI_INITIATING", "IDPI_UNAVAILABLE"};
    return textOf(TEXTS, status, "<Unknown>");
}

const char* linkText(u16 status)
{
    constexpr const char* TEXTS[] = {"Unavailable", "   No RX   ", "   No TX   ", " Available "};
    return textOf(TEXTS, status, "Unavailable");
}

}  // namespace

void KvdLoz6Idpi_printInfo()
{
    const idpi::State& st = *s;
    node::shellPrintf("\n***** IDPI related data *****\n");
    node::shellPrintf("   availabilityStatus     : %s (%u)\n", availabilityText(st.availabilityStatus),
                      st.availabilityStatus);
    node::shellPrintf("   protocolRev            : %u\n", st.protocolRev);
    node::shellPrintf("   factoryPid             : 0x%08x\n", st.factoryPid);
    node::shellPrintf("   servicePid             : 0x%08x\n", st.servicePid);
    node::shellPrintf("   addressInfo.clientRef  : %u\n", st.clientRef);
    node::shellPrintf("   addressInfo.serverRef  : %u\n", st.serverRef);
    node::shellPrintf("   delay measurement cap. : %u\n", st.delayMeasurementCap);
    node::shellPrintf("   idpiClkStatus          : %u\n", st.idpiClkStatus);
    node::shellPrintf("   idl2PortMap            : 0x%02x\n", st.idl2PortMap);
    node::shellPrintf("   nActivePorts           : %u\n", st.nActivePorts);
    node::shellPrintf("   request timer          : %s\n", st.requestTimer.runs() ? "runs" : "-");
    node::shellPrintf("   port     status       far port  near DU  far DU  mode  stability  "
                      "failures  delay T1C1, C4T1 [ps]\n");
    for (u32 i = 0; i < IDPI_PORTS; ++i) {
        const IdpiPort& p = st.port[i];
        node::shellPrintf("   %s  %s  %8u  %7u  %6u  %4u  %9u  %8u  %llu, %llu%s\n", idpi::portText(i),
                          linkText(p.status), p.farPort, p.nearDu, p.farDu, p.linkMode, p.linkStability,
                          p.StabilityFailures,
                          static_cast<unsigned long long>(u64{p.delayT1C1High} << 32 | p.delayT1C1Low),
                          static_cast<unsigned long long>(u64{p.delayC4T1High} << 32 | p.delayC4T1Low),
                          p.received != 0 ? "" : " (none held)");
    }
}
