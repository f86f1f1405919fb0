// idpi_server.h - The platform's inter-unit link port server, "idpiServer": which ports lead to which unit,
// and how long their delays are each way.
#pragma once
#include "sim/node/idl_config.h"
#include "sim/node/server.h"

#include <functional>
#include <optional>
#include <set>
#include <vector>

namespace sim {

/// A delay answer. The words are times on the link less times of the unit's own frame counter, ps.
struct IdpiDelay {
    u64 T1C1_ps = 0, C4T1_ps = 0;
    u8  linkMode = 0;                  // 0 start-up, 1 synchronous
    u8  linkStability = 1;             // 1 stable
};

class IdpiServer : public Server {
public:
    IdpiServer(Node& node, const IdpiConfig& config);

    // ---- script, with setAnswer and delay_ms of Server ------------------------------------------
    IdpiConfig config;
    Answer capabilityAnswer = Answer::Accept;        // and the subscription's: others reject or say nothing
    Answer subscribeAnswer = Answer::Accept;
    std::set<u16> silentPorts;                       // whose delay is never answered
    u32 delayAnswer_ms = 1;                          // from a delay request to its answer
    /// Numbers of a port's delay, 1 to 6; nothing rejects the request. Without it they are 0.
    void onDelay(std::function<std::optional<IdpiDelay>(u16 port)> hook) { onDelay_ = std::move(hook); }

    void die() override;

    /// New state of a port, told at once when the program has subscribed. A port that wasn't known is.
    void setPort(const IdpiPortConfig& port);
    void setStatus(u16 port, u16 status);
    /// An indication whose data isn't valid, of one of the ports or of none.
    void tellInvalid(const IdpiPortConfig& port, u16 dunDataValid, u16 portDataValid);
    const IdpiPortConfig* port(u16 port) const;

    // ---- what the program said ------------------------------------------------------------------
    bool subscribed() const { return subscribed_; }
    u32  connections() const { return connections_; }
    const std::vector<u16>& clkStatuses() const { return clkStatuses_; }
    u16  clkStatus() const { return clkStatuses_.empty() ? u16{0} : clkStatuses_.back(); }

protected:
    void onSignal(Signal* sig, PROCESS from) override;

private:
    void onEstablish(PROCESS from);
    void onCapability(PROCESS from);
    void onSubscribe(PROCESS from);
    void onGetDelay(u16 port, PROCESS from);
    void tellPort(const IdpiPortConfig& port, u16 dunDataValid, u16 portDataValid);
    template <typename T>
    void tell(const T& layout, PROCESS to, i64 ms = 0);

    PROCESS client_ = 0;
    bool subscribed_ = false;
    u32 connections_ = 0;
    u16 sequenceNumber_ = 0;
    u32 life_ = 0;                     // counts deaths: what was due before is void
    std::vector<u16> clkStatuses_;
    std::function<std::optional<IdpiDelay>(u16)> onDelay_;
};

}  // namespace sim
