// name_server.h - The kernel's name server "ose_ns": tells a client when a service exists.
#pragma once
#include "sim/node/server.h"

#include <vector>

namespace sim {

class NameServer : public Server {
public:
    explicit NameServer(Node& node);

    /// `pid` serves `service` from now on; clients that wait for it are told, the signal coming
    /// from pid.
    void publish(const std::string& service, PROCESS pid);
    void withdraw(const std::string& service);
    /// Clients waiting for a service that nobody publishes.
    std::size_t waiting() const { return waiting_.size(); }

    void die() override;

protected:
    void onSignal(Signal* sig, PROCESS from) override;

private:
    struct Wanted {
        std::string service;
        PROCESS client;
        SIGSELECT sigNo;      // number of the signal that tells the client
    };
    void tell(const Wanted& wanted, PROCESS service);

    std::map<std::string, PROCESS> services_;
    std::vector<Wanted> waiting_;
};

}  // namespace sim
