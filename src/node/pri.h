// pri.h - Client of the node's own-identity service (PRI, PIU): instance and hardware address of the
// unit.
// Owner   the process that initiated the service: answers come there as signals, and it alone calls.
// Errors  a call before the service was found, or after its death, answers a number other than 0; none
//         blocks. An answer's own result says whether its data counts.
#pragma once
#include "ose/types.h"

#include <cstddef>

constexpr SIGSELECT TARSO_PRI_INITIATE_SERVICE_CFM  = 0x60300;   // no data
constexpr SIGSELECT TARSO_PRI_INITIATE_SERVICE_SUS  = 0x60301;   // no data
constexpr SIGSELECT TARSO_PRI_INITIATE_SERVICE_REJ  = 0x60302;   // no data
constexpr SIGSELECT TARSO_PRI_SERVER_UP_IND         = 0x60303;   // no data
constexpr SIGSELECT TARSO_PRI_SERVER_DOWN_IND       = 0x60304;   // no data
constexpr SIGSELECT TARSO_PRI_TERMINATE_SERVICE_CFM = 0x60305;   // no data
constexpr SIGSELECT TARSO_PIU_OWN_IDENTITY_CFM      = 0x60306;   // TarsoPiuOwnIdentityCfm
constexpr SIGSELECT TARSO_PIU3_OWN_HW_ADDR_CFM      = 0x60307;   // TarsoPiu3OwnHwAddrCfm

struct TarsoPiuOwnIdentityCfm {
    SIGSELECT sigNo;
    u32 result;          // 1 good
    u32 piuInstanceId;
};
static_assert(sizeof(TarsoPiuOwnIdentityCfm) == 12);

struct TarsoPiu3OwnHwAddrCfm {
    SIGSELECT sigNo;
    u32 result;          // 1 good
    u32 smn;
    u32 apn;
};
static_assert(sizeof(TarsoPiu3OwnHwAddrCfm) == 16);

namespace node {

/// All answer 0 for done.
u32 TarsoPri_initiateService(u32 firstPv, u32 secondPv, u32 thirdPv);
u32 TarsoPri_terminateService();
/// Lets the proxy take one of the service's answers; 2 when the service is in use from now on.
u32 TarsoPri_internal(const Signal* sig);
u32 TarsoPiu_getOwnIdentity();
u32 TarsoPiu3_getOwnHWAddr();

}  // namespace node
