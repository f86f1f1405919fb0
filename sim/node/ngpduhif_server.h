// ngpduhif_server.h - The node's NGPDUHIF service: a sync group logic behind it, broadcasts to the SYNC-INCI
// connections that asked for them.
#pragma once
#include "sim/node/server.h"
#include "sim/node/sync_group.h"

#include <vector>

namespace sim {

class NgpduhifServer : public Server {
public:
    NgpduhifServer(Node& node, const SyncGroupConfig& config);

    // ---- script, with setAnswer and delay_ms of Server ------------------------------------------
    Answer handshakeAnswer = Answer::Accept;         // others reject or say nothing; no broadcast then
    bool broadcasts = true;                          // false: only what sendBcm is given
    void setPriority(u16 priority) { group_.setPriority(priority); }
    /// Broadcast data as given, its references filled in for the connection. At once.
    void sendBcm(KvdNgpduhifSendBcmDataInd data);

    void start() override;
    void die() override;

    // ---- what the program said, and what came of it ---------------------------------------------
    u32 nodeIdentifier() const { return group_.nodeIdentifier(); }
    bool connected() const { return client_ != 0; }
    const KvdNgpduhifConnEstablishReq& connection() const { return connection_; }
    /// SYNC-INCI connections that are broadcast to, as they were handed over.
    const std::vector<u32>& served() const { return served_; }
    const std::vector<u32>& clientReleases() const { return clientReleases_; }
    /// The newest of each; number 0 while there is none.
    const KvdNgpduhifReceiveBcmDataInd& lastBcm() const { return lastBcm_; }
    const KvdNgpduhifTimeDataInd& lastTime() const { return lastTime_; }
    std::optional<SyncProvider> provider() const;

protected:
    void onSignal(Signal* sig, PROCESS from) override;

private:
    void onEstablish(const KvdNgpduhifConnEstablishReq& req, PROCESS from);
    void onHandshake(const KvdNgpduhifConnReq& req);
    void onServerRelease(const KvdNgpduhifConnReq& req);
    void onClientRelease(const KvdNgpduhifConnReq& req);
    void answerRelease(SIGSELECT sigNo, u32 connId, bool wasKnown);
    void broadcast();
    void broadcastLater();
    ose::Time lasts() const;
    template <typename T>
    void tell(T layout);

    SyncGroupConfig config_;
    SyncGroup group_;
    PROCESS client_ = 0;
    KvdNgpduhifConnEstablishReq connection_{};
    u32 life_ = 0;                     // counts deaths: what was due before is void
    bool isDue_ = false;               // the next broadcast
    std::vector<u32> served_;
    std::vector<u32> clientReleases_;
    KvdNgpduhifReceiveBcmDataInd lastBcm_{};
    KvdNgpduhifTimeDataInd lastTime_{};
};

}  // namespace sim
