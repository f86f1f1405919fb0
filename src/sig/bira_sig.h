// bira_sig.h - Signals of the node's basic timing function, "Syncdrv_proc": the BIRA server. It owns the
// hardware until this program takes it.
#pragma once
#include "ose/types.h"

#include <cstddef>

constexpr SIGSELECT KVD_BIRAIIF_INITIATE_SERVICE_REQ = 0x9DF01;     // client -> server
constexpr SIGSELECT KVD_BIRAIIF_INITIATE_SERVICE_CFM = 0x9DF02;     // server -> client
constexpr SIGSELECT KVD_BIRAIIF_INITIATE_SERVICE_REJ = 0x9DF03;     // server -> client, no data
constexpr SIGSELECT KVD_BIRAIIF_INITIATE_SERVICE_SUS = 0x9DF04;     // server -> client, no data
constexpr SIGSELECT KVD_BIRAIIF_IDL2_LINK_IND = 0x9DF05;            // server -> client
constexpr SIGSELECT KVD_BIRAIIF_FREQ_LOCKED_IND = 0x9DF07;          // server -> client, no data
constexpr SIGSELECT KVD_BIRAIIF_UNABLE_TO_TIME_LOCK_IND = 0x9DF08;  // client -> server
constexpr SIGSELECT KVD_BIRAIIF_SERVER_UP_IND = 0x9DF09;            // hunt, no data
constexpr SIGSELECT KVD_BIRAIIF_SERVER_DOWN_IND = 0x9DF0A;          // attach, no data
constexpr SIGSELECT KVD_BIRAIIF_BASIC_RESTART_TMO = 0x9DF0C;        // internal, no data
constexpr SIGSELECT KVD_BIRAIIF_IDL2_SELECT_IDL_TYPE_REQ = 0x9DF0D; // client -> server
constexpr SIGSELECT KVD_BIRAIIF_IDL2_SELECT_IDL_TYPE_CFM = 0x9DF0E; // server -> client, no data
constexpr SIGSELECT KVD_BIRAIIF_IDL2_TOGGLE_PERSISTENT_FREQ_LOCK_REQ = 0x9DF0F;   // client -> server
constexpr SIGSELECT KVD_BIRAIIF_IDL2_TOGGLE_PERSISTENT_FREQ_LOCK_CFM = 0x9DF10;   // no data
constexpr SIGSELECT KVD_BIRAIIF_IDL1_CLK_STATE_TMO = 0x9DF11;       // internal, no data
constexpr SIGSELECT KVD_BIRAIIF_ANSWER_TMO = 0x9DF12;               // internal, no data
constexpr SIGSELECT KVD_BIRAIIF_ORDER_TMO = 0x9DF13;                // internal, no data
constexpr SIGSELECT KVD_BIRAIIF_HAND_BACK_TMO = 0x9DF14;            // internal, no data

constexpr const char* BIRA_SERVER_NAME = "Syncdrv_proc";

struct KvdBiraiifInitiateServiceReq {
    SIGSELECT sigNo;
    u32 signalRevision;        // 1
    u32 pvFirstWanted, pvSecondWanted, pvThirdWanted;   // 1
    u8  isMaster;
};
static_assert(offsetof(KvdBiraiifInitiateServiceReq, isMaster) == 20);

struct KvdBiraiifInitiateServiceCfm {
    SIGSELECT sigNo;
    u32 pvSelected;
    u8  restart;               // 1 cold, other warm
};
static_assert(offsetof(KvdBiraiifInitiateServiceCfm, restart) == 8);

struct KvdBiraiifIdl2LinkInd {
    SIGSELECT sigNo;
    u8  linkType;              // KVD_BIRAIIF_IDL_MODE_...
    u8  clockHoldover;         // 1: the server's clock is in holdover
    u8  synchPortNo;
    u8  data;                  // 0: what this unit stored before its restart may be used
};
static_assert(offsetof(KvdBiraiifIdl2LinkInd, data) == 7 && sizeof(KvdBiraiifIdl2LinkInd) == 8);

struct KvdBiraiifUnableToTimeLockInd {
    SIGSELECT sigNo;
    u8  synchPortNo;
};
static_assert(offsetof(KvdBiraiifUnableToTimeLockInd, synchPortNo) == 4);

struct KvdBiraiifIdl2SelectIdlTypeReq {
    SIGSELECT sigNo;
    u32 idl2Type;              // KVD_BIRAIIF_IDL_MODE_...
    u8  synchPortNo;
};
static_assert(offsetof(KvdBiraiifIdl2SelectIdlTypeReq, synchPortNo) == 8);

struct KvdBiraiifIdl2TogglePersistentFreqLockReq {
    SIGSELECT sigNo;
    u32 persistentFreqLock;
    u8  synchPortNo;
};
static_assert(offsetof(KvdBiraiifIdl2TogglePersistentFreqLockReq, synchPortNo) == 8);
