// pri_server.h - The node's identity service (PRI, PIU): instance and hardware address of the unit.
#pragma once
#include "sim/node/server.h"

namespace sim {

class PriServer : public Server {
public:
    PriServer(Node& node, u32 smn, u32 apn, u32 piuInstanceId);

    // The script, beside setAnswer and delay_ms.
    u32 smn, apn, piuInstanceId;
    u32 identityResult = 1;            // 1 good
    u32 hwAddrResult = 1;

    u32 clients() const { return clients_; }     // confirmed and not terminated

protected:
    void onSignal(Signal* sig, PROCESS from) override;

private:
    u32 clients_ = 0;
};

}  // namespace sim
