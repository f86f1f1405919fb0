#include "sim/node/idpi_server.h"

#include "sig/idpi_sig.h"
#include "sim/node/node.h"

#include <algorithm>

namespace sim {

namespace {

constexpr u32 SERVER_REF = 0x51D;
constexpr u16 ERROR_REFUSED = 7;

template <typename T>
const T* view(Signal* sig)
{
    return ose::sigsize(&sig) < sizeof(T) ? nullptr : reinterpret_cast<const T*>(sig);
}

}  // namespace

IdpiServer::IdpiServer(Node& node, const IdpiConfig& c) : Server(node, IDPI_SERVER_NAME, 12), config(c) {}

void IdpiServer::die()
{
    ++life_;
    client_ = 0;
    subscribed_ = false;
    Server::die();
}

template <typename T>
void IdpiServer::tell(const T& layout, PROCESS to, i64 ms)
{
    // By an event of the world, whoever calls: the order of the calls is the order of arrival.
    node_.after(ms * ose::MS, [this, layout, to, life = life_] {
        if (life == life_ && alive()) node_.system().inject(std::as_bytes(std::span(&layout, 1)), to, pid());
    });
}

// ---- ports --------------------------------------------------------------------------------------

const IdpiPortConfig* IdpiServer::port(u16 number) const
{
    for (const IdpiPortConfig& p : config.ports)
        if (p.port == number) return &p;
    return nullptr;
}

void IdpiServer::setPort(const IdpiPortConfig& port)
{
    std::erase_if(config.ports, [&](const IdpiPortConfig& p) { return p.port == port.port; });
    config.ports.push_back(port);
    tellPort(port, 1, 1);
}

void IdpiServer::setStatus(u16 number, u16 status)
{
    const IdpiPortConfig* const known = port(number);
    if (known == nullptr) return;
    IdpiPortConfig changed = *known;
    changed.status = status;
    setPort(changed);
}

void IdpiServer::tellInvalid(const IdpiPortConfig& port, u16 dunDataValid, u16 portDataValid)
{
    tellPort(port, dunDataValid, portDataValid);
}

void IdpiServer::tellPort(const IdpiPortConfig& p, u16 dunDataValid, u16 portDataValid)
{
    if (!subscribed_) return;
    tell(IdpiLinkStatusInd{IDPI_LINK_STATUS_IND, 0, SERVER_REF, ++sequenceNumber_, dunDataValid,
                           portDataValid, p.port, p.nearDu, p.farPort, p.farDu, p.status},
         client_);
}

// ---- requests -----------------------------------------------------------------------------------

void IdpiServer::onEstablish(PROCESS from)
{
    if (answer() != Answer::Accept)
        return send(from, IdpiConnEstablishRej{IDPI_CONN_ESTABLISH_REJ, 0, 0, 1, ERROR_REFUSED, {}});
    client_ = from;
    subscribed_ = false;
    ++connections_;
    send(from, IdpiRefs{IDPI_CONN_ESTABLISH_CFM, 0, SERVER_REF});
}

void IdpiServer::onCapability(PROCESS from)
{
    if (capabilityAnswer == Answer::Silent) return;
    if (capabilityAnswer != Answer::Accept)
        return send(from, IdpiRej{IDPI_GET_CAPABILITY_REJ, 0, SERVER_REF, ERROR_REFUSED, {}});
    struct Cfm {                       // two records: one of another kind comes first
        SIGSELECT sigNo = IDPI_GET_CAPABILITY_CFM;
        u32 clientRef = 0, serverRef = SERVER_REF;
        u16 count = 2;
        IdpiCapability other{2, 1, 1}, delay{IDPI_CAPABILITY_DELAY, 1, 0};
    } cfm;
    static_assert(offsetof(Cfm, other) == offsetof(IdpiGetCapabilityCfm, capability));
    cfm.delay.supported = config.measuresDelay ? 1 : 0;
    send(from, cfm);
}

void IdpiServer::onSubscribe(PROCESS from)
{
    if (subscribeAnswer == Answer::Silent) return;
    if (subscribeAnswer != Answer::Accept)
        return send(from, IdpiRej{IDPI_SUBSCRIBE_LINK_STATUS_REJ, 0, SERVER_REF, ERROR_REFUSED, {}});
    subscribed_ = true;
    send(from, IdpiRefs{IDPI_SUBSCRIBE_LINK_STATUS_CFM, 0, SERVER_REF});
    for (const IdpiPortConfig& p : config.ports) tellPort(p, 1, 1);
}

void IdpiServer::onGetDelay(u16 number, PROCESS from)
{
    if (silentPorts.contains(number)) return;
    const std::optional<IdpiDelay> d = onDelay_ ? onDelay_(number) : IdpiDelay{};
    if (!d) return tell(IdpiGetDelayReq{IDPI_GET_DELAY_REJ, 0, SERVER_REF, number}, from, delayAnswer_ms);
    tell(IdpiGetDelayCfm{IDPI_GET_DELAY_CFM, 0, SERVER_REF, number, static_cast<u32>(d->T1C1_ps >> 32),
                         static_cast<u32>(d->T1C1_ps), static_cast<u32>(d->C4T1_ps >> 32),
                         static_cast<u32>(d->C4T1_ps), d->linkMode, d->linkStability},
         from, delayAnswer_ms);
}

void IdpiServer::onSignal(Signal* sig, PROCESS from)
{
    if (answer() == Answer::Silent) return;
    switch (sig->sigNo) {
    case IDPI_CONN_ESTABLISH_REQ:        return onEstablish(from);
    case IDPI_GET_CAPABILITY_REQ:        return onCapability(from);
    case IDPI_SUBSCRIBE_LINK_STATUS_REQ: return onSubscribe(from);
    case IDPI_GET_DELAY_REQ:
        if (const auto* req = view<IdpiGetDelayReq>(sig)) onGetDelay(req->portNo, from);
        return;
    case IDPI_CLK_STATUS_FWD:
        if (const auto* fwd = view<IdpiClkStatusFwd>(sig)) clkStatuses_.push_back(fwd->clkStatus);
        return;
    default: return;
    }
}

}  // namespace sim
