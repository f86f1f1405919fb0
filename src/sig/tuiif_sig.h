// tuiif_sig.h - Signals between the timing unit and the main processor's program: numbers in order,
// layouts, values that travel. "in" is main processor to timing unit, "out" the other way.
//
// Units   as the field says; ids of 0xFFFFFFFF are none.
// Errors  a shorter buffer than its layout is refused by as<T>.
#pragma once
#include "node/name_service.h"
#include "ose/types.h"

#include <cstddef>

constexpr const char* TUIIF_SERVICE_NAME = "KvdTuIIfServiceName";   // at the name server

// ---- the interface ----

constexpr SIGSELECT KVD_TUIIF_INITIATE_SERVICE_REQ                 = 0x9C000;   // out
constexpr SIGSELECT KVD_TUIIF_INITIATE_SERVICE_CFM                 = 0x9C001;   // in
constexpr SIGSELECT KVD_TUIIF_INITIATE_SERVICE_SUS                 = 0x9C002;   // in
constexpr SIGSELECT KVD_TUIIF_INITIATE_SERVICE_REJ                 = 0x9C003;   // in
constexpr SIGSELECT KVD_TUIIF_SUBSCRIBE_PM_REQ                     = 0x9C004;   // in
constexpr SIGSELECT KVD_TUIIF_SUBSCRIBE_PM_CFM                     = 0x9C005;   // out
constexpr SIGSELECT KVD_TUIIF_UNSUBSCRIBE_PM_REQ                   = 0x9C006;   // in
constexpr SIGSELECT KVD_TUIIF_UNSUBSCRIBE_PM_CFM                   = 0x9C007;   // out
constexpr SIGSELECT KVD_TUIIF_GET_CURRENT_PM_REQ                   = 0x9C008;   // in
constexpr SIGSELECT KVD_TUIIF_GET_CURRENT_PM_CFM                   = 0x9C009;   // out
constexpr SIGSELECT KVD_TUIIF_SYNCH_PATH_SUP_IND                   = 0x9C00A;   // in
constexpr SIGSELECT KVD_TUIIF_SELECT_SYNCH_REF_IND                 = 0x9C00C;   // in
constexpr SIGSELECT KVD_TUIIF_BVQ_STATUS_IND                       = 0x9C00D;   // out
constexpr SIGSELECT KVD_TUIIF_BOARD_FAILURE_RECOVERY_IND           = 0x9C00E;   // in
constexpr SIGSELECT KVD_TUIIF_ET_FROID_IND                         = 0x9C010;   // out
constexpr SIGSELECT KVD_TUIIF_REF_STATUS_CHANGE_IND                = 0x9C011;   // out
constexpr SIGSELECT KVD_TUIIF_GET_RNT_TO_SFC_DIFF_REQ              = 0x9C012;   // in
constexpr SIGSELECT KVD_TUIIF_GET_RNT_TO_SFC_DIFF_CFM              = 0x9C013;   // out
constexpr SIGSELECT KVD_TUIIF_GET_RNT_TO_SFC_DIFF_REJ              = 0x9C014;   // out
constexpr SIGSELECT KVD_TUIIF_JUMP_RNT_TO_SFC_DIFF_ZERO_REQ        = 0x9C015;   // in
constexpr SIGSELECT KVD_TUIIF_JUMP_RNT_TO_SFC_DIFF_ZERO_CFM        = 0x9C016;   // out
constexpr SIGSELECT KVD_TUIIF_GET_RNT_FOR_SFN_REQ                  = 0x9C01B;   // in
constexpr SIGSELECT KVD_TUIIF_GET_RNT_FOR_SFN_CFM                  = 0x9C01C;   // out
constexpr SIGSELECT KVD_TUIIF_GET_RNT_FOR_SFN_REJ                  = 0x9C01D;   // out
constexpr SIGSELECT KVD_TUIIF_PKT_RATE_IND                         = 0x9C01E;   // out
constexpr SIGSELECT KVD_TUIIF_GPS_STATUS_IND                       = 0x9C021;   // out
constexpr SIGSELECT KVD_TUIIF_CHANGE_MASTER_TU_IND                 = 0x9C023;   // in
constexpr SIGSELECT KVD_TUIIF_GPS_ATTRIB_CFM                       = 0x9C024;   // out
constexpr SIGSELECT KVD_TUIIF_SET_TEST_MODE_IND                    = 0x9C025;   // in
constexpr SIGSELECT KVD_TUIIF_SET_DELAY_IND                        = 0x9C026;   // in
constexpr SIGSELECT KVD_TUIIF_GPS_ATTRIB_REQ                       = 0x9C027;   // in
constexpr SIGSELECT KVD_TUIIF_SET_FIXED_POSITION_IND               = 0x9C028;   // in
constexpr SIGSELECT KVD_TUIIF_FIXED_POSITION_IND                   = 0x9C029;   // out
constexpr SIGSELECT KVD_TUIIF_SET_GPSOUT_IND                       = 0x9C02B;   // in
constexpr SIGSELECT KVD_TUIIF_GPS_OUT_TIME_DATA_IND                = 0x9C02C;   // out
constexpr SIGSELECT KVD_TUIIF_CALIBRATION_STATUS_IND               = 0x9C02D;   // out
// 0x9C02E to 0x9C039: packet references, tuiif_pktref_sig.h
constexpr SIGSELECT KVD_TUIIF_PKT_REF_RO_UNAVAILABLE_IND           = 0x9C03A;   // out
constexpr SIGSELECT KVD_TUIIF_SET_SFN_INIT_TIME_IND                = 0x9C03B;   // in
constexpr SIGSELECT KVD_TUIIF6_BVQ_REF_STATE_IND                   = 0x9C03D;   // out
constexpr SIGSELECT KVD_TUIIF_TIME_ACCURACY_CHANGE_IND             = 0x9C03E;   // out
constexpr SIGSELECT KVD_TUIIF_SET_HPTSIOUT_IND                     = 0x9C03F;   // in
constexpr SIGSELECT KVD_TUIIF_SET_HPTSI_DELAY_IND                  = 0x9C040;   // in
constexpr SIGSELECT KVD_TUIIF_HPTSI_ATTRIB_REQ                     = 0x9C041;   // in
constexpr SIGSELECT KVD_TUIIF_HPTSI_ATTRIB_CFM                     = 0x9C042;   // out
constexpr SIGSELECT KVD_TUIIF_HPTSI_STATUS_IND                     = 0x9C043;   // out
constexpr SIGSELECT KVD_TUIIF_OSC_TEMPERATURE_STATE_IND            = 0x9C045;   // out
constexpr SIGSELECT KVD_TUIIF_SET_GPSOSL_DELAY_IND                 = 0x9C046;   // in
constexpr SIGSELECT KVD_TUIIF_GPSOSL_ATTRIB_REQ                    = 0x9C047;   // in
constexpr SIGSELECT KVD_TUIIF_GPSOSL_ATTRIB_CFM                    = 0x9C048;   // out
constexpr SIGSELECT KVD_TUIIF_GPSOSL_STATUS_IND                    = 0x9C049;   // out
constexpr SIGSELECT KVD_TUIIF_REMOTE_RC_STATE_IND                  = 0x9C04A;   // out
constexpr SIGSELECT KVD_TUIIF10_TIME_DATA_IND                      = 0x9C04B;   // in and out
constexpr SIGSELECT KVD_TUIIF_IDL2_MODE_IND                        = 0x9C04C;   // out
constexpr SIGSELECT KVD_TUIIF_SELECTION_MODE_CHANGE_IND            = 0x9C04D;   // in
constexpr SIGSELECT KVD_TUIIF_QUALITY_LEVEL_IND                    = 0x9C04E;   // out
constexpr SIGSELECT KVD_TUIIF_IDL2_TIME_DATA_IND                   = 0x9C04F;   // out
constexpr SIGSELECT KVD_TUIIF_PDU_MISSING_IND                      = 0x9C050;   // out
constexpr SIGSELECT KVD_TUIIF_IDL2_LINK_STATUS_FWD                 = 0x9C051;   // out
constexpr SIGSELECT KVD_TUIIF_IDL2_SYNC_DATA_IND                   = 0x9C052;   // in
constexpr SIGSELECT KVD_TUIIF_IDL2_SYNC_REPORT_IND                 = 0x9C053;   // out
constexpr SIGSELECT KVD_TUIIF_IDL2_SELECT_IDL_TYPE_REQ             = 0x9C054;   // in
constexpr SIGSELECT KVD_TUIIF_IDL2_SELECT_IDL_TYPE_CFM             = 0x9C055;   // out, no data
constexpr SIGSELECT KVD_TUIIF_IDL2_TOGGLE_PERSISTENT_FREQ_LOCK_REQ = 0x9C056;   // in
constexpr SIGSELECT KVD_TUIIF_IDL2_TOGGLE_PERSISTENT_FREQ_LOCK_CFM = 0x9C057;   // out, no data
constexpr SIGSELECT KVD_TUIIF_IDL2_SET_MASTER_SERVER_REQ           = 0x9C058;   // out
constexpr SIGSELECT KVD_TUIIF_IDL2_SET_MASTER_SERVER_CFM           = 0x9C059;   // in
constexpr SIGSELECT KVD_TUIIF_SYNCINFO_REQ                         = 0x9C05A;   // in
constexpr SIGSELECT KVD_TUIIF_SYNCINFO_CFM                         = 0x9C05B;   // out
constexpr SIGSELECT KVD_TUIIF_FREQ_HOLDOVER_TMO_IND                = 0x9C05C;   // timer, no data
constexpr SIGSELECT KVD_TUIIF_TO_HOLDOVER_TMO_IND                  = 0x9C05D;   // timer, no data
constexpr SIGSELECT KVD_TUIIF_RNT_HOLDOVER_TMO_IND                 = 0x9C05E;   // timer, no data
constexpr SIGSELECT KVD_TUIIF_REGISTER_SYNCH_REF_IND               = 0x9C05F;   // in
constexpr SIGSELECT KVD_TUIIF_DEREGISTER_SYNCH_REF_IND             = 0x9C060;   // in
// 0x9C061 to 0x9C081: synchronisation over CPRI, tuiif_socpri_sig.h

/// radioClockState and lastRegulatorState.
enum TuiifClockState : u8 {
    KVD_TUIIF_WARMUP = 1,
    KVD_TUIIF_FREQUENCY_DRIFTING = 2,
    KVD_TUIIF_FREQUENCY_LOCKED = 3,
    KVD_TUIIF_FREQUENCY_HOLDOVER = 4,
    KVD_TUIIF_LOSS_OF_TRACKING = 5,
    KVD_TUIIF_FAILURE = 6,
    KVD_TUIIF_UNKNOWN = 7,
    KVD_TUIIF_TIME_OFFSET_LOCKED = 8,
    KVD_TUIIF_TIME_OFFSET_HOLDOVER = 9,
    KVD_TUIIF_RNT_TIME_LOCKED = 10,
    KVD_TUIIF_RNT_TIME_HOLDOVER = 11,
    KVD_TUIIF_PREJUMP_START = 12,
    KVD_TUIIF_PREJUMP_HIST = 13,
    KVD_TUIIF_SLAVE_FREE_RUNNING = 14,
    KVD_TUIIF_SLAVE_FREQUENCY_LOCKED = 15,
    KVD_TUIIF_SLAVE_FRAME_LOCKED = 16,
    TUIIF_SOCPRI_STARTING = 17,           // SoCPRI starts up; it has no name in printouts
};
// The values of activRefLtrStatus and activRefDegrStatus (KVD_TUIIF_NOT_VALID, KVD_TUIIF_REF_OK,
// KVD_TUIIF_REF_DEGRADED, KVD_TUIIF_REF_LTR) stand in reg/kvd_reg_estimate.h.

enum TuiifMasterSlave : u8 { KVD_TUIIF_SLAVE_TU = 0, KVD_TUIIF_MASTER_TU = 1 };
enum TuiifGpsOut : u8 { KVD_TUIIF_GPSOUT_DISABLED = 0, KVD_TUIIF_GPSOUT_ENABLED = 1 };
enum TuiifCalibration : u8 {
    KVD_TUIIF_CALIBRATED = 1,
    KVD_TUIIF_SOON_TO_EXPIRE = 2,
    KVD_TUIIF_UNCALIBRATED = 3,
};

/// State of the other end of the GPS out sync link, KVD_TUIIF_REMOTE_RC_STATE_IND.
enum TuiifRemoteRcState : u32 {
    REMOTE_RC_WARMUP = 1, REMOTE_RC_SYNCH1 = 2, REMOTE_RC_SYNCH2 = 3, REMOTE_RC_SYNCH3 = 4,
    REMOTE_RC_FREQ_LOCKED = 5, REMOTE_RC_FREQ_HOLDOVER = 6, REMOTE_RC_FREERUNNING = 7,
    REMOTE_RC_LOSS_OF_TRACKING = 8, REMOTE_RC_FAILURE = 9, REMOTE_RC_UNKNOWN = 10,
    REMOTE_RC_TIME_OFFSET_LOCKED = 11, REMOTE_RC_TIME_OFFSET_HOLDOVER = 12,
    REMOTE_RC_RNT_TIME_LOCKED = 13, REMOTE_RC_RNT_TIME_HOLDOVER = 14,
    REMOTE_RC_INTER_DU_TIME_LOCKED = 15, REMOTE_RC_INTER_DU_TIME_HOLDOVER = 16,
    REMOTE_RC_PRE_JUMP_START = 17, REMOTE_RC_PRE_JUMP_HIST = 18,
};

struct KvdTuiifInitiateServiceReq {
    SIGSELECT sigNo;
    u32 signalRevision;
    u32 pvFirstWanted, pvSecondWanted, pvThirdWanted;
    u32 smn, apn;
    u32 piuInstanceId;
    u8  boardType2;            // 1 on board type 2
};
static_assert(offsetof(KvdTuiifInitiateServiceReq, pvFirstWanted) == 8);
static_assert(offsetof(KvdTuiifInitiateServiceReq, smn) == 20);
static_assert(offsetof(KvdTuiifInitiateServiceReq, apn) == 24);
static_assert(offsetof(KvdTuiifInitiateServiceReq, boardType2) == 32);
static_assert(sizeof(KvdTuiifInitiateServiceReq) == 36);

/// A calendar time, UTC.
struct TuiifSfnInitTime {
    u16 year;
    u8 month, day, hour, minute, second;
};
static_assert(offsetof(TuiifSfnInitTime, month) == 2 && offsetof(TuiifSfnInitTime, second) == 6);
static_assert(sizeof(TuiifSfnInitTime) == 8);

struct KvdTuiifInitiateServiceCfm {
    SIGSELECT sigNo;
    u32 signalRevision;
    u32 pvSelected;
    u8  timeMode;              // 1 frequency only, 3 time
    u8  masterSlaveMode;       // TuiifMasterSlave
    u8  gpsOutEnabled;
    u8  hptsiOutEnabled;
    TuiifSfnInitTime sfnInitTime;
    u8  selectionQlMode;       // 1 selection by quality level
};
static_assert(offsetof(KvdTuiifInitiateServiceCfm, timeMode) == 12);
static_assert(offsetof(KvdTuiifInitiateServiceCfm, hptsiOutEnabled) == 15);
static_assert(offsetof(KvdTuiifInitiateServiceCfm, sfnInitTime) == 16);
static_assert(offsetof(KvdTuiifInitiateServiceCfm, selectionQlMode) == 24);
static_assert(sizeof(KvdTuiifInitiateServiceCfm) == 28);

struct KvdTuiifInitiateServiceSus {       // also the layout of KVD_TUIIF_INITIATE_SERVICE_REJ
    SIGSELECT sigNo;
    u32 signalRevision;
    u32 highestAvailablePV;
};
static_assert(offsetof(KvdTuiifInitiateServiceSus, highestAvailablePV) == 8);
static_assert(sizeof(KvdTuiifInitiateServiceSus) == 12);
using KvdTuiifInitiateServiceRej = KvdTuiifInitiateServiceSus;

// ---- performance counters ----

struct KvdTuiifSubscribePmReq {
    SIGSELECT sigNo;
    u32 granularity;           // s
    u32 froType, froId;
};
static_assert(offsetof(KvdTuiifSubscribePmReq, froType) == 8);
static_assert(sizeof(KvdTuiifSubscribePmReq) == 16);

struct KvdTuiifSubscribePmCfm {   // also the confirm and requests below
    SIGSELECT sigNo;
    u32 froType, froId;
};
static_assert(offsetof(KvdTuiifSubscribePmCfm, froId) == 8 && sizeof(KvdTuiifSubscribePmCfm) == 12);
using KvdTuiifUnsubscribePmReq = KvdTuiifSubscribePmCfm;
using KvdTuiifUnsubscribePmCfm = KvdTuiifSubscribePmCfm;
using KvdTuiifGetCurrentPmReq = KvdTuiifSubscribePmCfm;

/// pmAttrList, noOfPmAttr values (i32), follows from offset 20; the buffer has noOfPmAttr * 4 + 60
/// bytes.
struct KvdTuiifGetCurrentPmCfm {
    SIGSELECT sigNo;
    u32 froType, froId;
    u32 suspectFlag;
    u32 noOfPmAttr;
};
static_assert(offsetof(KvdTuiifGetCurrentPmCfm, suspectFlag) == 12);
static_assert(sizeof(KvdTuiifGetCurrentPmCfm) == 20);
constexpr u32 PM_ATTR_LIST_OFFSET = 20;
constexpr u32 PM_ATTR_OVERHEAD = 60;

// ---- references ----

struct KvdTuiifSynchPathSupInd {
    SIGSELECT sigNo;
    u8  refType;               // RefType
    u32 on;                    // 1 supervise, 0 not
    u32 froId, froClassNo;
};
static_assert(offsetof(KvdTuiifSynchPathSupInd, on) == 8);
static_assert(offsetof(KvdTuiifSynchPathSupInd, froId) == 12);
static_assert(sizeof(KvdTuiifSynchPathSupInd) == 20);

/// The same for the Ethernet types, which add the address of the line's port.
struct KvdTuiifSynchPathSupEthInd {
    KvdTuiifSynchPathSupInd path;
    u8 macAddress[6];
};
static_assert(offsetof(KvdTuiifSynchPathSupEthInd, macAddress) == 20);
static_assert(sizeof(KvdTuiifSynchPathSupEthInd) == 28);

struct KvdTuiifSelectSynchRefInd {
    SIGSELECT sigNo;
    u8  refType;               // RefType
    u32 froId, froClassNo;
};
static_assert(offsetof(KvdTuiifSelectSynchRefInd, froId) == 8);
static_assert(offsetof(KvdTuiifSelectSynchRefInd, froClassNo) == 12);
static_assert(sizeof(KvdTuiifSelectSynchRefInd) == 16);

struct KvdTuiifBvqStatusInd {
    SIGSELECT sigNo;
    u32 smn, apn;
    u8  radioClockState;       // TuiifClockState
    u32 refState;              // tuiifRefState
    u8  activRefLtrStatus;
    u8  activRefDegrStatus;
    u32 activRefFroId, activRefFroClassNo;
};
static_assert(offsetof(KvdTuiifBvqStatusInd, radioClockState) == 12);
static_assert(offsetof(KvdTuiifBvqStatusInd, refState) == 16);
static_assert(offsetof(KvdTuiifBvqStatusInd, activRefLtrStatus) == 20);
static_assert(offsetof(KvdTuiifBvqStatusInd, activRefDegrStatus) == 21);
static_assert(offsetof(KvdTuiifBvqStatusInd, activRefFroId) == 24);
static_assert(sizeof(KvdTuiifBvqStatusInd) == 32);

struct KvdTuiifBoardFailureRecoveryInd {
    SIGSELECT sigNo;
    u32 value;                 // 1 raise, other cease
};
static_assert(offsetof(KvdTuiifBoardFailureRecoveryInd, value) == 4);

struct KvdTuiifEtFroidInd {
    SIGSELECT sigNo;
    u32 smn, apn;
    u32 lineNum, froId, statusControl;
};
static_assert(offsetof(KvdTuiifEtFroidInd, lineNum) == 12 && sizeof(KvdTuiifEtFroidInd) == 24);

struct KvdTuiifRefStatusChangeInd {
    SIGSELECT sigNo;
    u32 froId;
    u16 admState, operState;
    u32 syncState;
};
static_assert(offsetof(KvdTuiifRefStatusChangeInd, operState) == 10);
static_assert(offsetof(KvdTuiifRefStatusChangeInd, syncState) == 12);
static_assert(sizeof(KvdTuiifRefStatusChangeInd) == 16);

struct KvdTuiif6BvqRefStateInd {
    SIGSELECT sigNo;
    u32 signalRevision;        // 1
    u32 smn, apn;
    u32 froId, froClassNo;
    u32 refState, additionalRefStateInfo;
};
static_assert(offsetof(KvdTuiif6BvqRefStateInd, froId) == 16);
static_assert(offsetof(KvdTuiif6BvqRefStateInd, refState) == 24);
static_assert(sizeof(KvdTuiif6BvqRefStateInd) == 32);

struct KvdTuiifSelectionModeChangeInd {
    SIGSELECT sigNo;
    u8 selectionProcessMode;
};
static_assert(offsetof(KvdTuiifSelectionModeChangeInd, selectionProcessMode) == 4);

struct KvdTuiifQualityLevelInd {
    SIGSELECT sigNo;
    u32 froId, froClassNo;
    u32 clockQuality;
    u32 tcuDetected;
};
static_assert(offsetof(KvdTuiifQualityLevelInd, clockQuality) == 12);
static_assert(sizeof(KvdTuiifQualityLevelInd) == 20);

struct KvdTuiifPduMissingInd {
    SIGSELECT sigNo;
    u32 froId, froClassNo;
    u32 pduMissing;            // 1 missing, 0 back
};
static_assert(offsetof(KvdTuiifPduMissingInd, pduMissing) == 12);
static_assert(sizeof(KvdTuiifPduMissingInd) == 16);

struct KvdTuiifRegisterSynchRefInd {      // also KVD_TUIIF_DEREGISTER_SYNCH_REF_IND
    SIGSELECT sigNo;
    u32 froClassNo, froId;
};
static_assert(offsetof(KvdTuiifRegisterSynchRefInd, froId) == 8);
static_assert(sizeof(KvdTuiifRegisterSynchRefInd) == 12);
using KvdTuiifDeregisterSynchRefInd = KvdTuiifRegisterSynchRefInd;

struct KvdTuiifPktRateInd {
    SIGSELECT sigNo;
    u32 pktRate;
};
static_assert(sizeof(KvdTuiifPktRateInd) == 8);

// ---- time and the regulator ----

struct KvdTuiifGetRntToSfcDiffReq {       // also the request and the confirm of the jump to zero
    SIGSELECT sigNo;
    u32 clientPid;
};
static_assert(sizeof(KvdTuiifGetRntToSfcDiffReq) == 8);
using KvdTuiifJumpRntToSfcDiffZeroReq = KvdTuiifGetRntToSfcDiffReq;
using KvdTuiifJumpRntToSfcDiffZeroCfm = KvdTuiifGetRntToSfcDiffReq;

struct KvdTuiifGetRntToSfcDiffCfm {
    SIGSELECT sigNo;
    u32 clientPid;
    i32 diff;
};
static_assert(offsetof(KvdTuiifGetRntToSfcDiffCfm, diff) == 8);

struct KvdTuiifGetRntToSfcDiffRej {       // also KVD_TUIIF_GET_RNT_FOR_SFN_REJ
    SIGSELECT sigNo;
    u32 clientPid;
    u32 rejectCause;
};
static_assert(offsetof(KvdTuiifGetRntToSfcDiffRej, rejectCause) == 8);
using KvdTuiifGetRntForSfnRej = KvdTuiifGetRntToSfcDiffRej;

struct KvdTuiifGetRntForSfnReq {
    SIGSELECT sigNo;
    u32 clientPid;
    u32 sfn;
};
static_assert(offsetof(KvdTuiifGetRntForSfnReq, sfn) == 8 && sizeof(KvdTuiifGetRntForSfnReq) == 12);

struct KvdTuiifGetRntForSfnCfm {
    SIGSELECT sigNo;
    u32 clientPid;
    u16 sfn;
    u16 year;
    u8  month, day, hour, minute, second;
    u32 decimalSecond;
};
static_assert(offsetof(KvdTuiifGetRntForSfnCfm, year) == 10);
static_assert(offsetof(KvdTuiifGetRntForSfnCfm, second) == 16);
static_assert(offsetof(KvdTuiifGetRntForSfnCfm, decimalSecond) == 20);
static_assert(sizeof(KvdTuiifGetRntForSfnCfm) == 24);

struct KvdTuiifSetTestModeInd {
    SIGSELECT sigNo;
    u8 on;                     // 1 on, other off
};
static_assert(offsetof(KvdTuiifSetTestModeInd, on) == 4);

struct KvdTuiifSetSfnInitTimeInd {
    SIGSELECT sigNo;
    TuiifSfnInitTime sfnInitTime;
};
static_assert(offsetof(KvdTuiifSetSfnInitTimeInd, sfnInitTime) == 4);
static_assert(sizeof(KvdTuiifSetSfnInitTimeInd) == 12);

struct KvdTuiifTimeAccuracyChangeInd {
    SIGSELECT sigNo;
    u32 apn, smn;
    u32 timeAccuracy;          // ns
};
static_assert(offsetof(KvdTuiifTimeAccuracyChangeInd, timeAccuracy) == 12);
static_assert(sizeof(KvdTuiifTimeAccuracyChangeInd) == 16);

struct KvdTuiifOscTemperatureStateInd {
    SIGSELECT sigNo;
    u16 signalRevision;        // 1
    u8  oscTempState;
};
static_assert(offsetof(KvdTuiifOscTemperatureStateInd, oscTempState) == 6);
static_assert(sizeof(KvdTuiifOscTemperatureStateInd) == 8);

struct KvdTuiifCalibrationStatusInd {
    SIGSELECT sigNo;
    u32  signalRevision;       // 1
    u8   calibrationStatus;    // TuiifCalibration
    char calibrationExpirationDate[128];
};
static_assert(offsetof(KvdTuiifCalibrationStatusInd, calibrationStatus) == 8);
static_assert(offsetof(KvdTuiifCalibrationStatusInd, calibrationExpirationDate) == 9);
static_assert(sizeof(KvdTuiifCalibrationStatusInd) == 140);

struct KvdTuiifChangeMasterTuInd {
    SIGSELECT sigNo;
    u8 timeMode;
    u8 masterSlaveMode;        // TuiifMasterSlave
};
static_assert(offsetof(KvdTuiifChangeMasterTuInd, masterSlaveMode) == 5);

/// Time data of a unit for the other unit of a dual configuration, 104 bytes.
struct TuiifTimeData {
    double t_c;
    double delta0_c, delta0_f; // s
    double P_est_1_1;
    double x_est_1, x_est_2;
    u32 smn, apn;              // of the sender
    u8  regState;
    u8  rcState;               // radioClockState
    u8  selectedRef;           // RefType
    u8  gpsState;
    u32 jumpIndication;
    u32 reserved[10];
};
static_assert(offsetof(TuiifTimeData, smn) == 48 && offsetof(TuiifTimeData, regState) == 56);
static_assert(offsetof(TuiifTimeData, jumpIndication) == 60 && sizeof(TuiifTimeData) == 104);

struct KvdTuiif10TimeDataInd {
    SIGSELECT sigNo;
    u32 reserved;
    TuiifTimeData data;
};
static_assert(offsetof(KvdTuiif10TimeDataInd, data) == 8 && sizeof(KvdTuiif10TimeDataInd) == 112);

// ---- other ----

struct KvdTuiifRemoteRcStateInd {
    SIGSELECT sigNo;
    u32 remoteRCState;         // TuiifRemoteRcState
};
static_assert(sizeof(KvdTuiifRemoteRcStateInd) == 8);

struct KvdTuiifSyncinfoReq {
    SIGSELECT sigNo;
    u8  option;                // 1 all, 2 to 4 one text
    u32 clientRef;
};
static_assert(offsetof(KvdTuiifSyncinfoReq, option) == 4);
static_assert(offsetof(KvdTuiifSyncinfoReq, clientRef) == 8);

/// The terminated text follows from offset 8; the buffer has its length + 1 + 12 bytes.
struct KvdTuiifSyncinfoCfm {
    SIGSELECT sigNo;
    u32 clientRef;
};
static_assert(offsetof(KvdTuiifSyncinfoCfm, clientRef) == 4 && sizeof(KvdTuiifSyncinfoCfm) == 8);

#include "sig/tuiif_gps_sig.h"
#include "sig/tuiif_idl_sig.h"
#include "sig/tuiif_pktref_sig.h"
#include "sig/tuiif_socpri_sig.h"
