#include "sim/node/pri_server.h"

#include "node/pri.h"
#include "node/pri_sig.h"

namespace sim {

PriServer::PriServer(Node& node, u32 ownSmn, u32 ownApn, u32 ownPiuInstanceId)
    : Server(node, TARSO_PRI_SERVER_NAME, 10), smn(ownSmn), apn(ownApn), piuInstanceId(ownPiuInstanceId)
{
}

void PriServer::onSignal(Signal* sig, PROCESS from)
{
    if (answer() == Answer::Silent) return;
    switch (sig->sigNo) {
    case TARSO_PRI_INITIATE_SERVICE_REQ:
        sendEmpty(from, TARSO_PRI_SERVER_UP_IND);
        if (answer() == Answer::Suspend) return sendEmpty(from, TARSO_PRI_INITIATE_SERVICE_SUS);
        if (answer() == Answer::Reject) return sendEmpty(from, TARSO_PRI_INITIATE_SERVICE_REJ);
        ++clients_;
        return sendEmpty(from, TARSO_PRI_INITIATE_SERVICE_CFM);
    case TARSO_PRI_TERMINATE_SERVICE_REQ:
        if (clients_ > 0) --clients_;
        return sendEmpty(from, TARSO_PRI_TERMINATE_SERVICE_CFM);
    case TARSO_PIU_OWN_IDENTITY_REQ:
        return send(from, TarsoPiuOwnIdentityCfm{TARSO_PIU_OWN_IDENTITY_CFM, identityResult, piuInstanceId});
    case TARSO_PIU3_OWN_HW_ADDR_REQ:
        return send(from, TarsoPiu3OwnHwAddrCfm{TARSO_PIU3_OWN_HW_ADDR_CFM, hwAddrResult, smn, apn});
    default: return;
    }
}

}  // namespace sim
