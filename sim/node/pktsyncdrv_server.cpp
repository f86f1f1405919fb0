#include "sim/node/pktsyncdrv_server.h"

#include "node/sig.h"
#include "sim/node/node.h"

#include <algorithm>
#include <cmath>

namespace sim {

PktsyncDrvServer::PktsyncDrvServer(Node& node) : Server(node, PKTSYNCDRV_SERVER_NAME, 10) {}

void PktsyncDrvServer::start()
{
    client_ = 0;
    syncrefs_.clear();
    Server::start();
}

void PktsyncDrvServer::die()
{
    client_ = 0;
    syncrefs_.clear();
    Server::die();
}

void PktsyncDrvServer::onSignal(Signal* sig, PROCESS from)
{
    if (answer() == Answer::Silent) return;
    if (sig->sigNo == PKTSYNCDRV_INITIATE_SERVICE_REQ) {
        client_ = from;
        syncrefs_.clear();
        const SIGSELECT said = answer() == Answer::Suspend  ? PKTSYNCDRV_INITIATE_SERVICE_SUS
                               : answer() == Answer::Reject ? PKTSYNCDRV_INITIATE_SERVICE_REJ
                                                            : PKTSYNCDRV_INITIATE_SERVICE_CFM;
        return send(from, node::ProxyInitiateAnswer{said, selectedPv});
    }
    const auto* req = as<PktsyncDrvReq>(sig);
    if (req == nullptr || !confirms) return;
    switch (sig->sigNo) {
    case PKTSYNCDRV_SETSYNCREF_REQ:
        syncrefs_[{req->syncRefFroId, req->ref.syncrefId}] = req->ref;
        return send(from, PktsyncDrvCfm{PKTSYNCDRV_SETSYNCREF_CFM, req->syncRefFroId});
    case PKTSYNCDRV_CHANGESYNCREF_REQ:
        syncrefs_[{req->syncRefFroId, req->ref.syncrefId}] = req->ref;
        return send(from, PktsyncDrvCfm{PKTSYNCDRV_CHANGESYNCREF_CFM, req->syncRefFroId});
    case PKTSYNCDRV_DELETESYNCREF_REQ:
        std::erase_if(syncrefs_, [req](const auto& entry) { return entry.first.first == req->syncRefFroId; });
        return send(from, PktsyncDrvCfm{PKTSYNCDRV_DELETESYNCREF_CFM, req->syncRefFroId});
    default: return;
    }
}

void PktsyncDrvServer::sent(const std::array<u8, 8>& m, const PacketTime& stamp)
{
    constexpr std::size_t SYNCREF_AT = 3;
    const u32 syncrefId = m[SYNCREF_AT];
    const bool isKnown = std::any_of(syncrefs_.begin(), syncrefs_.end(), [syncrefId](const auto& entry) {
        return entry.first.second == syncrefId;
    });
    if (!alive() || client_ == 0 || !isKnown) return;
    // Every n-th is lost: the same share whatever else draws from a random stream.
    ++seen_;
    if (lostStamps > 0 && std::floor(static_cast<double>(seen_) * lostStamps) !=
                              std::floor(static_cast<double>(seen_ - 1) * lostStamps))
        return;
    const auto word = [&m](std::size_t at) {
        return u32{m[at]} << 24 | u32{m[at + 1]} << 16 | u32{m[at + 2]} << 8 | m[at + 3];
    };
    const PktsyncDrvTimestampInd ind{PKTSYNCDRV_TIMESTAMP_IND, word(0), word(4), stamp.seconds,
                                     stamp.fraction};
    const u32 times = doubledStamps > 0 ? 2 : 1;
    if (doubledStamps > 0) --doubledStamps;
    const auto later = static_cast<ose::Time>(stampDelay_ms * static_cast<double>(ose::MS));
    for (u32 i = 0; i < times; ++i)
        node_.after(later, [this, ind, client = client_] {
            if (!alive() || client != client_) return;
            ++stamps_;
            node_.system().inject(std::as_bytes(std::span(&ind, 1)), client_, pid());
        });
}

}  // namespace sim
