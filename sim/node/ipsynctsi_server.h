// ipsynctsi_server.h - The node's IP sync service: asks an NTP server over a network of random delays
// and hands the stamps of each exchange to the program.
//
// The server's stamps tell its own clock, the node's the board's counter as the program steers it,
// less the counter's steps. An exchange runs only while the program has the service.
#pragma once
#include "sim/clock/random.h"
#include "sim/node/ntp_config.h"
#include "sim/node/server.h"

#include <functional>

namespace sim {

class IpsynctsiServer : public Server {
public:
    IpsynctsiServer(Node& node, const NtpConfig& config);

    // ---- script, with delay_ms of Server; config takes effect with the next exchange -------------
    NtpConfig config;
    u32 highestPv = 1;                 // of the protocol versions, all from 1 on

    /// What a request is answered, as setAnswer; beside it Suspend suspends the program that is
    /// served, and Accept tells a suspended one that the service is up.
    void serve(Answer answer);
    void die() override;
    /// The NTP server's clock runs on from where it is.
    void setServerFrequency(double ppb);
    void stepServer(double step_s);
    /// Exchanges a second that the unit wants; 0 changes nothing.
    void setRate(u32 perSecond);

    // ---- what the node knows --------------------------------------------------------------------
    bool connected() const { return client_ != 0; }
    i64  interval_ms() const { return interval_ms_; }
    u64  exchanges() const { return exchanges_; }      // handed to the program
    /// The NTP server of that reference has answered within the last 10 s.
    bool reachable(u32 froId) const { return reachable_ && froId == config.froId; }
    void onReachable(std::function<void()> observer) { onReachable_ = std::move(observer); }

protected:
    void onSignal(Signal* sig, PROCESS from) override;

private:
    void onInitiate(Signal* sig, PROCESS from);
    void poll();
    void exchange();
    void disconnect();
    void setReachable(bool reachable);
    double delay(const NtpPath& path, Random& random) const;
    u64 serverStamp(ose::Time at) const;
    u64 nodeStamp() const;
    u64 stamp(ose::Time at, double error_s) const;
    template <typename T>
    void tell(PROCESS to, const T& layout);

    PROCESS client_ = 0, suspended_ = 0;
    u32 life_ = 0;                     // counts connections and their ends: what was due before is void
    i64 interval_ms_;
    u64 exchanges_ = 0;
    bool reachable_ = false;
    ose::Time answeredAt_ = 0;
    double serverError_s_;             // at serverSince_
    ose::Time serverSince_ = 0;
    Random up_, down_;
    std::function<void()> onReachable_;
};

}  // namespace sim
