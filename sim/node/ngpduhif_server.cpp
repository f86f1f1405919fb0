#include "sim/node/ngpduhif_server.h"

#include "sim/node/node.h"

#include <algorithm>

namespace sim {

namespace {

constexpr u32 SERVER_REF = 0x4E47;
constexpr u8 ERROR_REFUSED = 1;

template <typename T>
const T* view(Signal* sig)
{
    return ose::sigsize(&sig) < sizeof(T) ? nullptr : reinterpret_cast<const T*>(sig);
}

u32 identifierOf(const SyncGroupConfig& config, u32 apn)
{
    return config.nodeIdentifier != 0 ? config.nodeIdentifier : apn;
}

}  // namespace

NgpduhifServer::NgpduhifServer(Node& node, const SyncGroupConfig& config)
    : Server(node, "ngpduhifServer", 12), config_(config),
      group_(identifierOf(config, node.config().apn), config.priority)
{
}

void NgpduhifServer::start()
{
    if (alive()) return;
    Server::start();
    node_.nameServer().publish(NGPDUHIF_SERVICE_NAME, pid());
}

void NgpduhifServer::die()
{
    ++life_;
    client_ = 0;
    served_.clear();
    isDue_ = false;
    group_ = SyncGroup(identifierOf(config_, node_.config().apn), config_.priority);
    node_.nameServer().withdraw(NGPDUHIF_SERVICE_NAME);
    Server::die();
}

ose::Time NgpduhifServer::lasts() const { return SYNC_GROUP_LOST_PERIODS * config_.period_ms * ose::MS; }

std::optional<SyncProvider> NgpduhifServer::provider() const
{
    return group_.provider(node_.world().now(), lasts());
}

template <typename T>
void NgpduhifServer::tell(T layout)
{
    layout.clientRef = connection_.clientRef;
    layout.serverRef = SERVER_REF;
    // By an event of the world, whoever calls: the order of the calls is the order of arrival.
    node_.after(0, [this, layout, to = client_, life = life_] {
        if (life == life_ && alive()) node_.system().inject(std::as_bytes(std::span(&layout, 1)), to, pid());
    });
}

// ---- broadcasts ---------------------------------------------------------------------------------

void NgpduhifServer::broadcastLater()
{
    if (isDue_) return;
    isDue_ = true;
    node_.after(config_.period_ms * ose::MS, [this, life = life_] {
        if (life != life_ || !alive()) return;
        isDue_ = false;
        if (served_.empty()) return;   // nobody listens: the next handshake begins anew
        if (broadcasts) broadcast();
        broadcastLater();
    });
}

void NgpduhifServer::broadcast()
{
    KvdNgpduhifSendBcmDataInd ind = group_.broadcast(node_.world().now(), lasts());
    for (const u32 connection : served_) {
        ind.serverConnectionRef = connection;
        tell(ind);
    }
}

void NgpduhifServer::sendBcm(KvdNgpduhifSendBcmDataInd data)
{
    data.sigNo = KVD_NGPDUHIF_SEND_BCM_DATA_IND;
    if (client_ != 0) tell(data);
}

// ---- requests -----------------------------------------------------------------------------------

void NgpduhifServer::onEstablish(const KvdNgpduhifConnEstablishReq& req, PROCESS from)
{
    connection_ = req;
    if (answer() != Answer::Accept)
        return send(from, KvdNgpduhifConnEstablishRej{KVD_NGPDUHIF_CONN_ESTABLISH_REJ, req.clientRef, 0,
                                                      ERROR_REFUSED});
    client_ = from;
    served_.clear();
    send(from, KvdNgpduhifConnEstablishCfm{KVD_NGPDUHIF_CONN_ESTABLISH_CFM, req.clientRef, SERVER_REF,
                                           req.protocolRev[0], group_.nodeIdentifier()});
}

void NgpduhifServer::onHandshake(const KvdNgpduhifConnReq& req)
{
    if (handshakeAnswer == Answer::Silent) return;
    if (handshakeAnswer != Answer::Accept) return tell(KvdNgpduhifRefs{KVD_NGPDUHIF_HANDSHAKE_PDU_REJ, 0, 0});
    if (std::find(served_.begin(), served_.end(), req.connId) == served_.end()) served_.push_back(req.connId);
    tell(KvdNgpduhifRefs{KVD_NGPDUHIF_HANDSHAKE_PDU_CFM, 0, 0});
    broadcastLater();
}

void NgpduhifServer::answerRelease(SIGSELECT sigNo, u32 connId, bool wasKnown)
{
    tell(KvdNgpduhifConnReleaseRsp{sigNo, 0, 0, connId, wasKnown ? 1u : 0u});
}

void NgpduhifServer::onServerRelease(const KvdNgpduhifConnReq& req)
{
    const bool wasKnown = std::erase(served_, req.connId) != 0;
    answerRelease(KVD_NGPDUHIF_SERVER_CONN_RELEASE_RSP, req.connId, wasKnown);
}

void NgpduhifServer::onClientRelease(const KvdNgpduhifConnReq& req)
{
    group_.forgetConnection(req.connId);
    clientReleases_.push_back(req.connId);
    answerRelease(KVD_NGPDUHIF_CLIENT_CONN_RELEASE_RSP, req.connId, true);
}

void NgpduhifServer::onSignal(Signal* sig, PROCESS from)
{
    if (answer() == Answer::Silent) return;
    switch (sig->sigNo) {
    case KVD_NGPDUHIF_CONN_ESTABLISH_REQ:
        if (const auto* req = view<KvdNgpduhifConnEstablishReq>(sig)) onEstablish(*req, from);
        return;
    case KVD_NGPDUHIF_HANDSHAKE_PDU_REQ:
        if (const auto* req = view<KvdNgpduhifConnReq>(sig)) onHandshake(*req);
        return;
    case KVD_NGPDUHIF_SERVER_CONN_RELEASE_REQ:
        if (const auto* req = view<KvdNgpduhifConnReq>(sig)) onServerRelease(*req);
        return;
    case KVD_NGPDUHIF_CLIENT_CONN_RELEASE_REQ:
        if (const auto* req = view<KvdNgpduhifConnReq>(sig)) onClientRelease(*req);
        return;
    case KVD_NGPDUHIF_RECEIVE_BCM_DATA_IND:
        if (const auto* ind = view<KvdNgpduhifReceiveBcmDataInd>(sig)) {
            lastBcm_ = *ind;
            group_.onNeighbour(*ind, node_.world().now());
        }
        return;
    case KVD_NGPDUHIF_TIME_DATA_IND:
        if (const auto* ind = view<KvdNgpduhifTimeDataInd>(sig)) {
            lastTime_ = *ind;
            group_.onOwnTime(*ind, node_.world().now());
        }
        return;
    default: return;
    }
}

}  // namespace sim
