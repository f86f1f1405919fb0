// inrsi_sig.h - Signals of the radio links' measurement server, "inrsiServer", and the client's own
// timers. Ports count from 1 on the server's signals, from 0 on the own ones.
#pragma once
#include "ose/types.h"

#include <cstddef>

/// What the client is at.
enum InrsiClientAction : u32 {
    INRSI_CLIENT_IDLE = 0,
    INRSI_CLIENT_ACTION_FREQ_SCANNING = 1,
    INRSI_CLIENT_ACTION_BFN_ALIGN = 2,
    INRSI_CLIENT_ACTION_FREQ_SYNC = 3,
    INRSI_CLIENT_ACTION_TIME_SYNC = 4,
};

constexpr SIGSELECT INRSI_CONN_ESTABLISH_REQ          = 0x1019400;   // client -> server
constexpr SIGSELECT INRSI_CONN_ESTABLISH_CFM          = 0x1019401;   // server -> client
constexpr SIGSELECT INRSI_CONN_ESTABLISH_REJ          = 0x1019402;
constexpr SIGSELECT INRSI_SUBSCRIBE_LINK_STATUS_REQ   = 0x1019403;
constexpr SIGSELECT INRSI_SUBSCRIBE_LINK_STATUS_CFM   = 0x1019404;
constexpr SIGSELECT INRSI_SUBSCRIBE_LINK_STATUS_REJ   = 0x1019405;
constexpr SIGSELECT INRSI_UNSUBSCRIBE_LINK_STATUS_REQ = 0x101940D;
constexpr SIGSELECT INRSI_UNSUBSCRIBE_LINK_STATUS_CFM = 0x101940E;
constexpr SIGSELECT INRSI_BFN_JUMP_INFO_REQ           = 0x101940F;
constexpr SIGSELECT INRSI_BFN_JUMP_INFO_CFM           = 0x1019410;   // no more than the references
constexpr SIGSELECT INRSI_BFN_JUMP_INFO_REJ           = 0x1019411;
constexpr SIGSELECT INRSI_GET_PHASE_DIFF2_REQ         = 0x1019412;
constexpr SIGSELECT INRSI_GET_PHASE_DIFF2_CFM         = 0x1019413;
constexpr SIGSELECT INRSI_GET_PHASE_DIFF2_REJ         = 0x1019414;
constexpr SIGSELECT INRSI_GET_FREQ_DIFF2_REQ          = 0x1019415;
constexpr SIGSELECT INRSI_GET_FREQ_DIFF2_CFM          = 0x1019416;
constexpr SIGSELECT INRSI_GET_FREQ_DIFF2_REJ          = 0x1019417;
constexpr SIGSELECT INRSI_LINK_STATUS2_IND            = 0x1019418;   // server -> client

constexpr SIGSELECT INRSI_SERVER_UP_IND               = 0x9C6D1;     // hunt: InrsiServerUpInd
constexpr SIGSELECT INRSI_SERVER_DOWN_IND             = 0x9C6D2;     // attach, no data
constexpr SIGSELECT INRSI_REQUEST_PHASE_DATA_TMO      = 0x9C6D3;     // timer: InrsiPortTmo
constexpr SIGSELECT INRSI_REQUEST_FREQ_DATA_TMO       = 0x9C6D4;     // timer, no data
constexpr SIGSELECT KVD_TUSOCPRI_MEAS_RETRIEVE_TMO    = 0x9C6D5;     // timer: InrsiPortTmo
constexpr SIGSELECT KVD_TUSOCPRI_HOLDOVER_TMO         = 0x9C6D6;     // timer, no data
constexpr SIGSELECT KVD_TUSOCPRI_BFN_JUMP_WARNING_TMO = 0x9C6DF;     // timer, no data
constexpr SIGSELECT KVD_TUSOCPRI_SUPERVISION_TMO      = 0x9C6E1;     // timer: InrsiPortTmo
constexpr SIGSELECT KVD_TUSOCPRI_ANSWER_TMO           = 0x9C6D0;     // timer, no data

/// Names of the server's process: on this board, and behind the link to the next.
constexpr const char* INRSI_SERVER_NAMES[] = {"inrsiServer", "1/inrsiServer"};
constexpr u32 INRSI_PROTOCOL_REV = 2;

struct InrsiServerUpInd {
    SIGSELECT sigNo;
    u32 name;                  // of INRSI_SERVER_NAMES
};
struct InrsiPortTmo {
    SIGSELECT sigNo;
    u8 port;                   // 0 to 6
};
static_assert(offsetof(InrsiPortTmo, port) == 4);

struct InrsiRefs {             // INRSI_BFN_JUMP_INFO_CFM
    SIGSELECT sigNo;
    u32 procedureRef, connectionRef;
};
static_assert(offsetof(InrsiRefs, connectionRef) == 8 && sizeof(InrsiRefs) == 12);

struct InrsiConnEstablishReq {
    SIGSELECT sigNo;
    u32 procedureRef, connectionRef;
    u32 numberOfRevisions;
    u32 protocolRev[1];
};
static_assert(offsetof(InrsiConnEstablishReq, protocolRev) == 16);
static_assert(sizeof(InrsiConnEstablishReq) == 20);

struct InrsiConnEstablishCfm {
    SIGSELECT sigNo;
    u32 procedureRef, connectionRef;
    u32 protocolRev;
};
static_assert(offsetof(InrsiConnEstablishCfm, protocolRev) == 12);

struct InrsiErrorRej {         // of the connection, of the jump information
    SIGSELECT sigNo;
    u32 procedureRef, connectionRef;
    u32 errorCode;
};
static_assert(offsetof(InrsiErrorRej, errorCode) == 12);

struct InrsiPort {             // subscription and its end: requests, confirmations
    SIGSELECT sigNo;
    u32 procedureRef, connectionRef;
    u32 nearEndPortNo;
};
static_assert(offsetof(InrsiPort, nearEndPortNo) == 12 && sizeof(InrsiPort) == 16);

struct InrsiPortRej {
    SIGSELECT sigNo;
    u32 procedureRef, connectionRef;
    u32 nearEndPortNo;
    u32 errorCode;
};
static_assert(offsetof(InrsiPortRej, errorCode) == 16);

struct InrsiBfnJumpInfoReq {
    SIGSELECT sigNo;
    u32 procedureRef, connectionRef;
    u32 bfnJumpEnabled;        // 0 or 1
};
static_assert(offsetof(InrsiBfnJumpInfoReq, bfnJumpEnabled) == 12);

struct InrsiUnit {             // INRSI_GET_PHASE_DIFF2_REQ, INRSI_GET_FREQ_DIFF2_REQ
    SIGSELECT sigNo;
    u32 procedureRef, connectionRef;
    u32 sharedUnitId;
};
static_assert(offsetof(InrsiUnit, sharedUnitId) == 12 && sizeof(InrsiUnit) == 16);

struct InrsiUnitRej {          // of either measurement
    SIGSELECT sigNo;
    u32 procedureRef, connectionRef;
    u32 sharedUnitId;
    u32 errorCode;
};
static_assert(offsetof(InrsiUnitRej, errorCode) == 16);

struct InrsiGetPhaseDiff2Cfm {
    SIGSELECT sigNo;
    u32 procedureRef, connectionRef;
    u32 sharedUnitId;
    u32 trpDiffHigh, trpDiffLow;   // halves of a count of ps
    u8  reserved[3];
    u8  trpDiffValid;
};
static_assert(offsetof(InrsiGetPhaseDiff2Cfm, trpDiffHigh) == 16);
static_assert(offsetof(InrsiGetPhaseDiff2Cfm, trpDiffLow) == 20);
static_assert(offsetof(InrsiGetPhaseDiff2Cfm, trpDiffValid) == 27);

struct InrsiGetFreqDiff2Cfm {
    SIGSELECT sigNo;
    u32 procedureRef, connectionRef;
    u32 sharedUnitId;
    u8  reserved1[2];
    i16 freqDiff;              // ppb
    u8  reserved2[3];
    u8  freqDiffValid;
};
static_assert(offsetof(InrsiGetFreqDiff2Cfm, freqDiff) == 18);
static_assert(offsetof(InrsiGetFreqDiff2Cfm, freqDiffValid) == 23);

struct InrsiLinkStatus2Ind {
    SIGSELECT sigNo;
    u32  procedureRef, connectionRef;
    u32  nearEndPortNo;
    u8   reserved[3];
    u8   linkStatus;           // 0 not available, 1 present, 2 available
    u32  sharedUnitId;
    char huntPathPrefix[100];  // terminated or not
    u32  subsumedUnitId;
    u32  subsumedUnitIdValid;
};
static_assert(offsetof(InrsiLinkStatus2Ind, linkStatus) == 19);
static_assert(offsetof(InrsiLinkStatus2Ind, sharedUnitId) == 20);
static_assert(offsetof(InrsiLinkStatus2Ind, huntPathPrefix) == 24);
static_assert(offsetof(InrsiLinkStatus2Ind, subsumedUnitId) == 124);
static_assert(offsetof(InrsiLinkStatus2Ind, subsumedUnitIdValid) == 128);
static_assert(sizeof(InrsiLinkStatus2Ind) == 132);
