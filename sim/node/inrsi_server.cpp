#include "sim/node/inrsi_server.h"

#include "sig/inrsi_sig.h"
#include "sim/node/node.h"

#include <algorithm>

namespace sim {

namespace {

constexpr u32 CONNECTION = 0xC0F;
constexpr u32 ERROR_REFUSED = 7;
constexpr const char* NAME = INRSI_SERVER_NAMES[0];

template <typename T>
const T* view(Signal* sig)
{
    return ose::sigsize(&sig) < sizeof(T) ? nullptr : reinterpret_cast<const T*>(sig);
}

InrsiUnitRej rejection(SIGSELECT sigNo, u32 unit) { return {sigNo, 0, CONNECTION, unit, ERROR_REFUSED}; }

}  // namespace

InrsiServer::InrsiServer(Node& node, const InrsiConfig& c) : Server(node, NAME, 12), config(c) {}

void InrsiServer::die()
{
    ++life_;
    client_ = 0;
    subscribed_.clear();
    Server::die();
}

template <typename T>
void InrsiServer::tell(const T& layout, i64 ms)
{
    // By an event of the world, whoever calls: the order of the calls is the order of arrival.
    node_.after(ms * ose::MS, [this, layout, life = life_] {
        if (life == life_ && alive() && client_ != 0)
            node_.system().inject(std::as_bytes(std::span(&layout, 1)), client_, pid());
    });
}

// ---- links --------------------------------------------------------------------------------------

void InrsiServer::setLink(const InrsiLinkConfig& link)
{
    std::erase_if(config.links, [&](const InrsiLinkConfig& l) { return l.unit == link.unit; });
    config.links.push_back(link);
    if (subscribed(link.port)) tellLink(link);
}

void InrsiServer::setStatus(u32 unit, u8 status)
{
    const auto known = std::ranges::find(config.links, unit, &InrsiLinkConfig::unit);
    if (known == config.links.end()) return;
    InrsiLinkConfig changed = *known;
    changed.status = status;
    setLink(changed);
}

void InrsiServer::tellLink(const InrsiLinkConfig& link)
{
    InrsiLinkStatus2Ind ind{};
    ind.sigNo = INRSI_LINK_STATUS2_IND;
    ind.connectionRef = CONNECTION;
    ind.nearEndPortNo = link.port;
    ind.linkStatus = link.status;
    ind.sharedUnitId = link.unit;
    link.huntPath.copy(ind.huntPathPrefix, sizeof ind.huntPathPrefix);
    ind.subsumedUnitId = link.subsumed.value_or(0xFFFFFFFF);
    ind.subsumedUnitIdValid = link.subsumed ? 1 : 0;
    tell(ind);
}

// ---- measurements -------------------------------------------------------------------------------

void InrsiServer::tellFrequency(u32 unit, InrsiFrequency frequency)
{
    tell(InrsiGetFreqDiff2Cfm{INRSI_GET_FREQ_DIFF2_CFM, 0, CONNECTION, unit, {}, frequency.diff_ppb, {},
                              static_cast<u8>(frequency.valid ? 1 : 0)},
         answer_ms);
}

void InrsiServer::tellPhase(u32 unit, InrsiPhase phase)
{
    tell(InrsiGetPhaseDiff2Cfm{INRSI_GET_PHASE_DIFF2_CFM, 0, CONNECTION, unit,
                               static_cast<u32>(phase.diff_ps >> 32), static_cast<u32>(phase.diff_ps), {},
                               static_cast<u8>(phase.valid ? 1 : 0)},
         answer_ms);
}

void InrsiServer::onGetFrequency(u32 unit)
{
    ++frequencyRequests_[unit];
    if (silentUnits.contains(unit)) return;
    const auto f = onFrequency_ ? onFrequency_(unit) : InrsiFrequency{};
    if (!f) return tell(rejection(INRSI_GET_FREQ_DIFF2_REJ, unit), answer_ms);
    for (u32 i = 0; i < answers; ++i) tellFrequency(unit, *f);
}

void InrsiServer::onGetPhase(u32 unit)
{
    ++phaseRequests_[unit];
    if (silentUnits.contains(unit)) return;
    const auto p = onPhase_ ? onPhase_(unit) : InrsiPhase{};
    if (!p) return tell(rejection(INRSI_GET_PHASE_DIFF2_REJ, unit), answer_ms);
    for (u32 i = 0; i < answers; ++i) tellPhase(unit, *p);
}

// ---- requests -----------------------------------------------------------------------------------

void InrsiServer::onEstablish(PROCESS from)
{
    if (answer() != Answer::Accept)
        return send(from, InrsiErrorRej{INRSI_CONN_ESTABLISH_REJ, 0, 0, ERROR_REFUSED});
    client_ = from;
    subscribed_.clear();
    ++connections_;
    send(from, InrsiConnEstablishCfm{INRSI_CONN_ESTABLISH_CFM, 0, CONNECTION, INRSI_PROTOCOL_REV});
}

void InrsiServer::onSubscribe(u16 port, PROCESS from)
{
    if (subscribeAnswer == Answer::Silent) return;
    if (subscribeAnswer != Answer::Accept)
        return send(from, InrsiPortRej{INRSI_SUBSCRIBE_LINK_STATUS_REJ, 0, CONNECTION, port, ERROR_REFUSED});
    subscribed_.insert(port);
    send(from, InrsiPort{INRSI_SUBSCRIBE_LINK_STATUS_CFM, 0, CONNECTION, port});
    for (const InrsiLinkConfig& link : config.links)
        if (link.port == port) tellLink(link);
}

void InrsiServer::onJumpInfo(u32 enabled, PROCESS from)
{
    jumpInfos_.push_back(enabled);
    if (jumpInfoAnswer == Answer::Silent) return;
    if (jumpInfoAnswer == Answer::Accept)
        send(from, InrsiRefs{INRSI_BFN_JUMP_INFO_CFM, 0, CONNECTION});
    else
        send(from, InrsiErrorRej{INRSI_BFN_JUMP_INFO_REJ, 0, CONNECTION, ERROR_REFUSED});
}

void InrsiServer::onSignal(Signal* sig, PROCESS from)
{
    if (answer() == Answer::Silent) return;
    switch (sig->sigNo) {
    case INRSI_CONN_ESTABLISH_REQ: return onEstablish(from);
    case INRSI_SUBSCRIBE_LINK_STATUS_REQ:
        if (const auto* req = view<InrsiPort>(sig)) onSubscribe(static_cast<u16>(req->nearEndPortNo), from);
        return;
    case INRSI_UNSUBSCRIBE_LINK_STATUS_REQ:
        if (const auto* req = view<InrsiPort>(sig)) {
            subscribed_.erase(static_cast<u16>(req->nearEndPortNo));
            send(from, InrsiPort{INRSI_UNSUBSCRIBE_LINK_STATUS_CFM, 0, CONNECTION, req->nearEndPortNo});
        }
        return;
    case INRSI_GET_FREQ_DIFF2_REQ:
        if (const auto* req = view<InrsiUnit>(sig)) onGetFrequency(req->sharedUnitId);
        return;
    case INRSI_GET_PHASE_DIFF2_REQ:
        if (const auto* req = view<InrsiUnit>(sig)) onGetPhase(req->sharedUnitId);
        return;
    case INRSI_BFN_JUMP_INFO_REQ:
        if (const auto* req = view<InrsiBfnJumpInfoReq>(sig)) onJumpInfo(req->bfnJumpEnabled, from);
        return;
    default: return;
    }
}

}  // namespace sim
