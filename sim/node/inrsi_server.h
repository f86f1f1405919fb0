// inrsi_server.h - The platform's measurement server of the radio links, "inrsiServer": which units lie
// behind a port, and how their frequency and phase stand to the node's own.
#pragma once
#include "sim/node/idl_config.h"
#include "sim/node/server.h"

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <vector>

namespace sim {

struct InrsiFrequency {
    i16 diff_ppb = 0;                  // the unit's less the node's own
    bool valid = true;
};
struct InrsiPhase {
    u64 diff_ps = 0;                   // the node's counter less the unit's, modulo a turn of frame numbers
    bool valid = true;
};

class InrsiServer : public Server {
public:
    InrsiServer(Node& node, const InrsiConfig& config);

    // ---- script, with setAnswer and delay_ms of Server ------------------------------------------
    InrsiConfig config;
    Answer subscribeAnswer = Answer::Accept;         // others reject or say nothing
    Answer jumpInfoAnswer = Answer::Accept;
    std::set<u32> silentUnits;                       // whose measurements are never answered
    u32 answer_ms = 5;                               // from a request to its answer
    u32 answers = 1;                                 // to one request
    /// Measurements of a unit; nothing rejects the request. Without them both differences are 0.
    void onFrequency(std::function<std::optional<InrsiFrequency>(u32 unit)> hook)
    {
        onFrequency_ = std::move(hook);
    }
    void onPhase(std::function<std::optional<InrsiPhase>(u32 unit)> hook) { onPhase_ = std::move(hook); }

    void die() override;

    /// New state of a link, told at once when its port is subscribed. A link that wasn't known is.
    void setLink(const InrsiLinkConfig& link);
    void setStatus(u32 unit, u8 status);
    /// The indication alone, whether subscribed or not.
    void tellLink(const InrsiLinkConfig& link);
    /// Answers that nobody asked for.
    void tellFrequency(u32 unit, InrsiFrequency frequency);
    void tellPhase(u32 unit, InrsiPhase phase);

    // ---- what the program said ------------------------------------------------------------------
    u32  connections() const { return connections_; }
    bool subscribed(u16 port) const { return subscribed_.contains(port); }
    u32  frequencyRequests(u32 unit) const { return count(frequencyRequests_, unit); }
    u32  phaseRequests(u32 unit) const { return count(phaseRequests_, unit); }
    const std::vector<u32>& jumpInfos() const { return jumpInfos_; }

protected:
    void onSignal(Signal* sig, PROCESS from) override;

private:
    static u32 count(const std::map<u32, u32>& requests, u32 unit)
    {
        const auto at = requests.find(unit);
        return at != requests.end() ? at->second : 0;
    }
    void onEstablish(PROCESS from);
    void onSubscribe(u16 port, PROCESS from);
    void onGetFrequency(u32 unit);
    void onGetPhase(u32 unit);
    void onJumpInfo(u32 enabled, PROCESS from);
    template <typename T>
    void tell(const T& layout, i64 ms = 0);

    PROCESS client_ = 0;
    std::set<u16> subscribed_;
    u32 connections_ = 0;
    u32 life_ = 0;                     // counts deaths: what was due before is void
    std::map<u32, u32> frequencyRequests_, phaseRequests_;
    std::vector<u32> jumpInfos_;
    std::function<std::optional<InrsiFrequency>(u32)> onFrequency_;
    std::function<std::optional<InrsiPhase>(u32)> onPhase_;
};

}  // namespace sim
