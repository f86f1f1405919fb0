// idpi_sig.h - Signals of the inter-unit link port server, "idpiServer". Ports count from 1 here.
#pragma once
#include "ose/types.h"

#include <cstddef>

/// Clock status of the unit as the port server is told.
enum IdpiClkStatus : u8 {
    IDPI_CLK_STATUS_NOT_SET            = 0,   // never sent; a region that holds nothing
    IDPI_CLK_STATUS_FREE_RUNNING       = 1,
    IDPI_CLK_STATUS_LOCKED             = 2,
    IDPI_CLK_STATUS_COARSE_TIME_SYNCED = 3,
    IDPI_CLK_STATUS_FINE_TIME_SYNCED   = 4,
};

constexpr SIGSELECT IDPI_CONN_ESTABLISH_REQ = 0x1019300;          // client -> server
constexpr SIGSELECT IDPI_CONN_ESTABLISH_CFM = 0x1019301;          // server -> client
constexpr SIGSELECT IDPI_CONN_ESTABLISH_REJ = 0x1019302;
constexpr SIGSELECT IDPI_GET_CAPABILITY_REQ = 0x1019303;
constexpr SIGSELECT IDPI_GET_CAPABILITY_CFM = 0x1019304;
constexpr SIGSELECT IDPI_GET_CAPABILITY_REJ = 0x1019305;
constexpr SIGSELECT IDPI_SUBSCRIBE_LINK_STATUS_REQ = 0x1019306;
constexpr SIGSELECT IDPI_SUBSCRIBE_LINK_STATUS_CFM = 0x1019307;
constexpr SIGSELECT IDPI_SUBSCRIBE_LINK_STATUS_REJ = 0x1019308;
constexpr SIGSELECT IDPI_LINK_STATUS_IND = 0x1019309;             // server -> client
constexpr SIGSELECT IDPI_CLK_STATUS_FWD = 0x101930A;              // client -> server
constexpr SIGSELECT IDPI_PROP_PORT_INFO_CFM = 0x101930F;
constexpr SIGSELECT IDPI_GET_DELAY_REQ = 0x1019316;
constexpr SIGSELECT IDPI_GET_DELAY_CFM = 0x1019317;
constexpr SIGSELECT IDPI_GET_DELAY_REJ = 0x1019318;

constexpr SIGSELECT IDPI_SERVER_UP_IND = 0x9C6B1;                 // hunt, no data
constexpr SIGSELECT IDPI_SERVER_DOWN_IND = 0x9C6B2;               // attach, no data
constexpr SIGSELECT IDPI_REQUEST_DATA_TMO = 0x9C6B3;              // internal, no data
constexpr SIGSELECT IDPI_ANSWER_TMO = 0x9C6B4;                    // internal, no data

constexpr const char* IDPI_SERVER_NAME = "idpiServer";

constexpr u16 IDPI_LINK_AVAILABLE = 3;           // status of a port that works
constexpr u16 IDPI_CAPABILITY_DELAY = 1;         // first and third word of the delay capability
constexpr u8  IDPI_DELAY_UNSTABLE = 0, IDPI_DELAY_STABLE = 1;
constexpr u8  IDPI_STARTUP_MODE = 0, IDPI_SYNCHRONOUS_MODE = 1;

/// Requests without more: capability, subscription; and the confirmation of the connection.
struct IdpiRefs {
    SIGSELECT sigNo;
    u32 clientRef, serverRef;
};
static_assert(offsetof(IdpiRefs, serverRef) == 8 && sizeof(IdpiRefs) == 12);

struct IdpiConnEstablishReq {
    SIGSELECT sigNo;
    u32 clientRef, serverRef;
    u16 protocolRev;
};
static_assert(offsetof(IdpiConnEstablishReq, protocolRev) == 12);

struct IdpiConnEstablishRej {
    SIGSELECT sigNo;
    u32 clientRef, serverRef;
    u16 protocolRev;
    u16 errorCode;
    char text[1];              // to the end of the signal
};
static_assert(offsetof(IdpiConnEstablishRej, errorCode) == 14);
static_assert(offsetof(IdpiConnEstablishRej, text) == 16);

struct IdpiCapability { u16 type, revision, supported; };

struct IdpiGetCapabilityCfm {  // `count` records
    SIGSELECT sigNo;
    u32 clientRef, serverRef;
    u16 count;
    IdpiCapability capability[1];
};
static_assert(offsetof(IdpiGetCapabilityCfm, capability) == 14);

struct IdpiRej {               // of the capability, of the subscription
    SIGSELECT sigNo;
    u32 clientRef, serverRef;
    u16 errorCode;
    char text[1];              // to the end of the signal
};
static_assert(offsetof(IdpiRej, text) == 14);

struct IdpiLinkStatusInd {
    SIGSELECT sigNo;
    u32 clientRef, serverRef;
    u16 sequenceNumber;
    u16 dunDataValid;          // 1: the unit numbers count
    u16 portDataValid;         // 1: the port numbers and the status count
    u16 nearEndPortNo;
    u16 nearEndDuId;
    u16 farEndPortNo;
    u16 farEndDuId;
    u16 status;                // IDPI_LINK_AVAILABLE
};
static_assert(offsetof(IdpiLinkStatusInd, nearEndPortNo) == 18);
static_assert(offsetof(IdpiLinkStatusInd, status) == 26 && sizeof(IdpiLinkStatusInd) == 28);

struct IdpiClkStatusFwd {
    SIGSELECT sigNo;
    u32 clientRef, serverRef;
    u16 clkStatus;
};
static_assert(offsetof(IdpiClkStatusFwd, clkStatus) == 12);

struct IdpiGetDelayReq {       // and its rejection
    SIGSELECT sigNo;
    u32 clientRef, serverRef;
    u16 portNo;
};
static_assert(offsetof(IdpiGetDelayReq, portNo) == 12);

struct IdpiGetDelayCfm {
    SIGSELECT sigNo;
    u32 clientRef, serverRef;
    u16 portNo;
    u32 delayT1C1High, delayT1C1Low;   // halves of a count of ps
    u32 delayC4T1High, delayC4T1Low;
    u8  linkMode;
    u8  linkStability;
};
static_assert(offsetof(IdpiGetDelayCfm, delayT1C1High) == 16);
static_assert(offsetof(IdpiGetDelayCfm, delayC4T1Low) == 28);
static_assert(offsetof(IdpiGetDelayCfm, linkStability) == 33);
