// tuiif_idl_sig.h - The main processor's signals about the links between units: layouts. Their
// numbers stand in tuiif_sig.h, which includes this file.
#pragma once
#include "ose/types.h"

#include <cstddef>

struct KvdTuiifIdl2ModeInd {
    SIGSELECT sigNo;
    u32 smn, apn;
    u8  idl2Used;              // 1 when IDL2 is in use
};
static_assert(offsetof(KvdTuiifIdl2ModeInd, idl2Used) == 12 && sizeof(KvdTuiifIdl2ModeInd) == 16);

struct TuiifIdl2PortData {
    u8  nearEndportNo, farEndportNo;   // 0 to 5
    u32 delayC4T1High, delayC4T1Low;   // halves of a count of ps
    u32 delayT1C1High, delayT1C1Low;
    u8  linkMode, linkStability;
};
static_assert(offsetof(TuiifIdl2PortData, delayC4T1High) == 4);
static_assert(offsetof(TuiifIdl2PortData, linkMode) == 20 && sizeof(TuiifIdl2PortData) == 24);

/// numOfPorts records of TuiifIdl2PortData, 24 bytes apart, begin at offset 36.
struct KvdTuiifIdl2TimeDataInd {
    SIGSELECT sigNo;
    u32 signalRevision;
    u32 apn;
    u32 jumpPend;              // 1 a jump is pending
    u32 jumpInd;               // 1 a jump was made
    u32 numOfPorts;
    u32 eSFC;
    u16 mfn, sfn;
    u32 inc;
    TuiifIdl2PortData port[1];
};
static_assert(offsetof(KvdTuiifIdl2TimeDataInd, apn) == 8);
static_assert(offsetof(KvdTuiifIdl2TimeDataInd, jumpPend) == 12);
static_assert(offsetof(KvdTuiifIdl2TimeDataInd, numOfPorts) == 20);
static_assert(offsetof(KvdTuiifIdl2TimeDataInd, eSFC) == 24);
static_assert(offsetof(KvdTuiifIdl2TimeDataInd, sfn) == 30);
static_assert(offsetof(KvdTuiifIdl2TimeDataInd, inc) == 32);
static_assert(offsetof(KvdTuiifIdl2TimeDataInd, port) == 36);
static_assert(sizeof(KvdTuiifIdl2TimeDataInd) == 60);
constexpr u32 IDL2_TIME_DATA_PORT_GROWTH = 27;   // bytes of buffer for each further port

struct KvdTuiifIdl2LinkStatusFwd {
    SIGSELECT sigNo;
    u32 apn;
    u32 portNo;
    u32 linkAvailable;
    u8  farEndDuNo, farEndPortNo;
};
static_assert(offsetof(KvdTuiifIdl2LinkStatusFwd, linkAvailable) == 12);
static_assert(offsetof(KvdTuiifIdl2LinkStatusFwd, farEndPortNo) == 17);
static_assert(sizeof(KvdTuiifIdl2LinkStatusFwd) == 20);

struct KvdTuiifIdl2SyncDataInd {
    SIGSELECT sigNo;
    u32 signalRevision;
    u32 apn;
    u32 jumpPend;
    u32 jumpInd;
    u8  synchPortNo;
    u32 directConn;
    u32 intermediaryDuFineTimeSynching;
    double intermediaryDuPhaseDiff;    // s
    u32 esfc;                          // of the master, as the next three
    u16 mfc, sfc;
    u32 inc;
    u8  nearEndportNo, farEndportNo;
    u32 delayC4T1High, delayC4T1Low;   // of the master DU, halves of a count of ps
    u32 delayT1C1High, delayT1C1Low;
    u8  linkMode, linkStability;       // at the far end
};
static_assert(offsetof(KvdTuiifIdl2SyncDataInd, synchPortNo) == 20);
static_assert(offsetof(KvdTuiifIdl2SyncDataInd, directConn) == 24);
static_assert(offsetof(KvdTuiifIdl2SyncDataInd, intermediaryDuPhaseDiff) == 32);
static_assert(offsetof(KvdTuiifIdl2SyncDataInd, esfc) == 40);
static_assert(offsetof(KvdTuiifIdl2SyncDataInd, sfc) == 46);
static_assert(offsetof(KvdTuiifIdl2SyncDataInd, inc) == 48);
static_assert(offsetof(KvdTuiifIdl2SyncDataInd, farEndportNo) == 53);
static_assert(offsetof(KvdTuiifIdl2SyncDataInd, delayC4T1High) == 56);
static_assert(offsetof(KvdTuiifIdl2SyncDataInd, linkStability) == 73);
static_assert(sizeof(KvdTuiifIdl2SyncDataInd) == 80);

struct KvdTuiifIdl2SyncReportInd {
    SIGSELECT sigNo;
    u32 apn;
    u32 fineTimeSync;          // 0 or 1
    double phaseDiff;          // s
};
static_assert(offsetof(KvdTuiifIdl2SyncReportInd, fineTimeSync) == 8);
static_assert(offsetof(KvdTuiifIdl2SyncReportInd, phaseDiff) == 16);
static_assert(sizeof(KvdTuiifIdl2SyncReportInd) == 24);

struct KvdTuiifIdl2SelectIdlTypeReq {
    SIGSELECT sigNo;
    u32 idl2Type;
    u8  synchPortNo;
};
static_assert(offsetof(KvdTuiifIdl2SelectIdlTypeReq, synchPortNo) == 8);

struct KvdTuiifIdl2TogglePersistentFreqLockReq {
    SIGSELECT sigNo;
    u32 persistentFreqLock;
    u8  synchPortNo;
};
static_assert(offsetof(KvdTuiifIdl2TogglePersistentFreqLockReq, synchPortNo) == 8);

struct KvdTuiifIdl2SetMasterServerReq {
    SIGSELECT sigNo;
    u32 masterServer;
    u32 apn;
};
static_assert(offsetof(KvdTuiifIdl2SetMasterServerReq, apn) == 8);

struct KvdTuiifIdl2SetMasterServerCfm {
    SIGSELECT sigNo;
    u32 isMasterServer;
};
static_assert(sizeof(KvdTuiifIdl2SetMasterServerCfm) == 8);
