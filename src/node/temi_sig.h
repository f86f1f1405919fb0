// temi_sig.h - Requests of the test service's proxy to its server; the answers stand in temi.h.
#pragma once
#include "ose/types.h"

#include <cstddef>

/// Name of the server's process.
constexpr const char* TARSO_TEMI_SERVER_NAME = "TarsoTemiServer";

// All go from client to server.
constexpr SIGSELECT TARSO_TEMI_INITIATE_SERVICE_REQ  = 0x60260;   // TarsoTemiInitiateServiceReq
constexpr SIGSELECT TARSO_TEMI_DO_TEST_RSP           = 0x60261;   // TarsoTemiTestResult
constexpr SIGSELECT TARSO_TEMI_TEST_RESULT_IND       = 0x60262;   // TarsoTemiTestResult
constexpr SIGSELECT TARSO_TEMI_TERMINATE_SERVICE_REQ = 0x60263;   // no data

struct TarsoTemiInitiateServiceReq {
    SIGSELECT sigNo;
    u32 protocolVersion;
    char clientName[32];     // terminated
};
static_assert(sizeof(TarsoTemiInitiateServiceReq) == 40);

struct TarsoTemiTestResult {
    SIGSELECT sigNo;
    u32 last;                // 1 ends the sequence; 0 in an indication
    u32 testNumber;
    u32 result;              // 0 passed, 2 failed
    char testName[64];       // terminated
    char message[160];       // terminated
};
static_assert(offsetof(TarsoTemiTestResult, testName) == 16 && sizeof(TarsoTemiTestResult) == 240);
