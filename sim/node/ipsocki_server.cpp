#include "sim/node/ipsocki_server.h"

#include "node/sig.h"
#include "sim/node/node.h"

namespace sim {

namespace {

constexpr int THERE = 0, MISSING = 1, BUSY = 4;

void put32(u8* at, u32 value)
{
    for (int i = 0; i < 4; ++i) at[i] = static_cast<u8>(value >> (24 - 8 * i));
}

NetAddress addressOf(u32 family, const u8* octets)
{
    NetAddress a;
    a.family = family == IPSOCKI_AF_INET6 ? 6 : 4;
    std::copy_n(octets, a.family == 6 ? 16 : 4, a.octets.begin());
    return a;
}

}  // namespace

IpsockiServer::IpsockiServer(Node& node) : Server(node, TARSO_IPSOCKI_SERVER_NAME, 10) {}

void IpsockiServer::start()
{
    client_ = 0;
    sockets_.clear();
    waiting_.clear();
    Server::start();
}

void IpsockiServer::die()
{
    client_ = 0;
    sockets_.clear();
    waiting_.clear();
    Server::die();
}

void IpsockiServer::onSignal(Signal* sig, PROCESS from)
{
    if (answer() == Answer::Silent) return;
    switch (sig->sigNo) {
    case TARSO_IPSOCKI_INITIATE_SERVICE_REQ: {
        client_ = from;
        sockets_.clear();
        waiting_.clear();
        const SIGSELECT said = answer() == Answer::Suspend  ? TARSO_IPSOCKI_INITIATE_SERVICE_SUS
                               : answer() == Answer::Reject ? TARSO_IPSOCKI_INITIATE_SERVICE_REJ
                                                            : TARSO_IPSOCKI_INITIATE_SERVICE_CFM;
        return Server::send(from, node::ProxyInitiateAnswer{said, selectedPv});
    }
    case TARSO_IPSOCKI_ACREDIT_REQ: {
        const auto* req = as<TarsoIpsockiAcreditReq>(sig);
        const bool isFirst = maxUndelivered_ == 0 || req->credit > 1;
        credit_ = isFirst ? req->credit : credit_ + req->credit;
        maxUndelivered_ = req->maxUndelivered;
        if (isFirst) Server::send(from, TarsoIpsockiAcreditInd{TARSO_IPSOCKI_ACREDIT_IND, credit_});
        return handUp();
    }
    case TARSO_IPSOCKI4_TERMINATE_SERVICE_REQ:
        client_ = 0;
        return sendEmpty(from, TARSO_IPSOCKI4_TERMINATE_SERVICE_CFM);
    default: return;
    }
}

// ---- calls --------------------------------------------------------------------------------------

int IpsockiServer::fail(i32 why)
{
    error_ = why;
    return -1;
}

int IpsockiServer::state() const { return !alive() ? MISSING : answer() == Answer::Busy ? BUSY : THERE; }

int IpsockiServer::socket(u32 family, u32 type)
{
    if (!alive() || !hostAvailable) return fail(IPSOCKI_E_HOST);
    if (socketError != 0) return fail(socketError);
    if (type != IPSOCKI_DGRAM || (family != IPSOCKI_AF_INET && family != IPSOCKI_AF_INET6))
        return fail(IPSOCKI_E_AFNOSUPPORT);
    sockets_[nextSocket_].family = family;
    return nextSocket_++;
}

int IpsockiServer::option(int socket, u32 option, u32 value, u32 low)
{
    const auto s = sockets_.find(socket);
    if (s == sockets_.end()) return fail(IPSOCKI_E_BADF);
    if (option == failingOption) return fail(IPSOCKI_E_INVAL);
    if (option == TARSO_IPSOCKI_SO_TIMESTAMPING_ZFB) s->second.stamps = true;
    if (option == TARSO_IPSOCKI_SO_IP_TOS || option == TARSO_IPSOCKI_IPV6_TCLASS)
        s->second.tos = static_cast<int>(value);
    if (option == TARSO_IPSOCKI_SO_METADATA_ZFB) {
        s->second.metadata.emplace();
        put32(s->second.metadata->data(), value);
        put32(s->second.metadata->data() + 4, low);
    }
    return 0;
}

int IpsockiServer::bind(int socket, const u8* octets, u32 port)
{
    const auto s = sockets_.find(socket);
    if (s == sockets_.end()) return fail(IPSOCKI_E_BADF);
    if (bindError != 0) return fail(bindError);
    const NetAddress own = addressOf(s->second.family, octets);
    const PacketPort& carrier = node_.packetPort();
    if (own != carrier.config.address || !carrier.carriesDatagrams()) return fail(IPSOCKI_E_ADDRNOTAVAIL);
    for (const auto& [id, other] : sockets_)
        if (id != socket && other.port == port && other.own == own) return fail(IPSOCKI_E_ADDRINUSE);
    s->second.own = own;
    s->second.port = port;
    return 0;
}

int IpsockiServer::send(int socket, const u8* bytes, std::size_t count, const u8* octets, u32 port)
{
    const auto s = sockets_.find(socket);
    if (!alive() || s == sockets_.end()) return fail(IPSOCKI_E_BADF);
    NetPacket packet;
    packet.isFrame = false;
    packet.bytes.assign(bytes, bytes + count);
    packet.from = s->second.own;
    packet.to = addressOf(s->second.family, octets);
    packet.fromPort = static_cast<u16>(s->second.port);
    packet.toPort = static_cast<u16>(port);
    packet.tos = static_cast<u8>(s->second.tos);
    std::function<void(const PacketTime&)> left;
    if (const auto metadata = std::exchange(s->second.metadata, std::nullopt))
        left = [this, m = *metadata](const PacketTime& stamp) { node_.pktsyncDrv().sent(m, stamp); };
    node_.packetPort().send(packet, std::move(left));
    return static_cast<int>(count);
}

int IpsockiServer::close(int socket) { return sockets_.erase(socket) == 1 ? 0 : fail(IPSOCKI_E_BADF); }

int IpsockiServer::tos(int socket) const
{
    const auto s = sockets_.find(socket);
    return s != sockets_.end() ? s->second.tos : -1;
}

// ---- datagrams ----------------------------------------------------------------------------------

void IpsockiServer::deliver(const NetPacket& packet, const PacketTime& stamp)
{
    if (!alive() || client_ == 0) return;
    const auto bound = std::find_if(sockets_.begin(), sockets_.end(), [&](const auto& s) {
        return s.second.port == packet.toPort && s.second.own == packet.to;
    });
    if (bound == sockets_.end()) return;
    TarsoIpsockiFdReadData ind{};
    ind.sigNo = TARSO_IPSOCKI_FD_READ_DATA;
    ind.socketId = bound->first;
    ind.localPort = packet.toPort;
    ind.saFamily = packet.from.family == 6 ? IPSOCKI_AF_INET6 : IPSOCKI_AF_INET;
    ind.address = packet.from.octets;
    if (bound->second.stamps && stampsReceived) {
        ind.controlLevel = IPSOCKI_STAMP_LEVEL;
        ind.controlType = IPSOCKI_STAMP_TYPE;
        put32(ind.control.data(), stamp.seconds);
        put32(ind.control.data() + 4, stamp.fraction);
    }
    ind.length = static_cast<u32>(packet.bytes.size());
    std::vector<std::byte> signal(sizeof ind + ind.length);
    std::memcpy(signal.data(), &ind, sizeof ind);
    std::memcpy(signal.data() + sizeof ind, packet.bytes.data(), packet.bytes.size());
    if (waiting_.size() >= maxUndelivered_) {
        ++dropped_;
        return;
    }
    waiting_.push_back(std::move(signal));
    handUp();
}

void IpsockiServer::handUp()
{
    while (credit_ > 0 && !waiting_.empty()) {
        --credit_;
        node_.system().inject(waiting_.front(), client_, pid());
        waiting_.pop_front();
    }
}

}  // namespace sim
