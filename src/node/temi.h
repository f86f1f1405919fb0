// temi.h - Client of the node's test service: restart type and hardware tests at start.
// Owner   the process that initiated the service: its signals go there, and it alone calls.
// Errors  a call before the service was found, or after its death, answers a number other than 0; none
//         blocks.
#pragma once
#include "ose/types.h"

#include <cstddef>

constexpr SIGSELECT TARSO_TEMI_INITIATE_SERVICE_CFM  = 0x60250;   // service -> client, no data
constexpr SIGSELECT TARSO_TEMI_INITIATE_SERVICE_REJ  = 0x60252;   // service -> client, no data
constexpr SIGSELECT TARSO_TEMI_DO_TEST_IND           = 0x60255;   // service -> client: TarsoTemiDoTestInd
constexpr SIGSELECT TARSO_TEMI_TEST_RESULT_RSP       = 0x60256;   // service -> client, no data
constexpr SIGSELECT TARSO_TEMI_TERMINATE_SERVICE_CFM = 0x60257;   // service -> client, no data
constexpr SIGSELECT TARSO_TEMI_SERVER_DOWN_IND       = 0x60258;   // attach signal: the service died, no data

struct TarsoTemiDoTestInd {
    SIGSELECT sigNo;
    u32 restartType;      // 0 cold with tests at power on .. 5 hot; above 1 no tests are wanted
    u32 clientId;
    char name[32];
};
static_assert(offsetof(TarsoTemiDoTestInd, restartType) == 4 && sizeof(TarsoTemiDoTestInd) == 44);

namespace node {

/// All answer 0 for done; any other value is an error number to trace.
u32 TarsoTemi_initiateService(const char* clientName, u32 protocolVersion);
/// Lets the proxy take one of the service's answers. 2 when the service is in use from now on, 3 for the
/// death of one that isn't the present one.
u32 TarsoTemi_internal(const Signal* sig);
/// Lets go of a service without a word to it: its death isn't told any more.
void TarsoTemi_forget();
/// Result of one start-up test: 0 passed, 2 failed. `last` 1 ends the sequence.
u32 TarsoTemi_doTestResponse(u32 last, u32 testNumber, const char* testName, u32 result, const char* message);
u32 TarsoTemi_testResultInd(u32 testNumber, const char* testName, u32 result, const char* message);
u32 TarsoTemi_terminateService();

}  // namespace node
