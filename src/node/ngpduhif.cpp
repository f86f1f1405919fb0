#include "node/ngpduhif.h"

#include "node/sig.h"

namespace node {

namespace {

template <typename T>
T* makeFor(const NgpduhifPeer& peer, SIGSELECT sigNo)
{
    T* const sig = make<T>(sigNo);
    sig->clientRef = peer.clientRef;
    sig->serverRef = peer.serverRef;
    return sig;
}

void sendOfConnection(const NgpduhifPeer& peer, SIGSELECT sigNo, u32 connId)
{
    auto* req = makeFor<KvdNgpduhifConnReq>(peer, sigNo);
    req->connId = connId;
    sendTo(peer.pid, req);
}

}  // namespace

void Ngpduhif_connEstablish(const NgpduhifPeer& peer, u32 protocolRev, u32 apn)
{
    auto* req = makeFor<KvdNgpduhifConnEstablishReq>(peer, KVD_NGPDUHIF_CONN_ESTABLISH_REQ);
    for (u32& wanted : req->protocolRev) wanted = protocolRev;
    req->apn = apn;
    sendTo(peer.pid, req);
}

void Ngpduhif_handshakePdu(const NgpduhifPeer& peer, u32 inciServerConnId)
{
    sendOfConnection(peer, KVD_NGPDUHIF_HANDSHAKE_PDU_REQ, inciServerConnId);
}

void Ngpduhif_serverConnRelease(const NgpduhifPeer& peer, u32 inciServerConnId)
{
    sendOfConnection(peer, KVD_NGPDUHIF_SERVER_CONN_RELEASE_REQ, inciServerConnId);
}

void Ngpduhif_clientConnRelease(const NgpduhifPeer& peer, u32 inciConnId)
{
    sendOfConnection(peer, KVD_NGPDUHIF_CLIENT_CONN_RELEASE_REQ, inciConnId);
}

void Ngpduhif_receiveBcmData(const NgpduhifPeer& peer, const KvdNgpduhifReceiveBcmDataInd& data)
{
    auto* ind = make<KvdNgpduhifReceiveBcmDataInd>(KVD_NGPDUHIF_RECEIVE_BCM_DATA_IND);
    *ind = data;
    ind->sigNo = KVD_NGPDUHIF_RECEIVE_BCM_DATA_IND;
    ind->clientRef = peer.clientRef;
    ind->serverRef = peer.serverRef;
    sendTo(peer.pid, ind);
}

void Ngpduhif_timeData(PROCESS server, const KvdNgpduhifTimeDataInd& data)
{
    auto* ind = make<KvdNgpduhifTimeDataInd>(KVD_NGPDUHIF_TIME_DATA_IND);
    *ind = data;
    ind->sigNo = KVD_NGPDUHIF_TIME_DATA_IND;
    sendTo(server, ind);
}

}  // namespace node
