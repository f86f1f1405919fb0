// tuiif_socpri_sig.h - The main processor's signals about synchronisation over CPRI (SoCPRI):
// numbers in order, layouts, values. Included by tuiif_sig.h.
//
// A port number on these signals is counted from 1; 0 in a list is an unused place.
#pragma once
#include "ose/types.h"

#include <cstddef>

constexpr SIGSELECT KVD_TUIIF_SOCPRI_START_REQ                = 0x9C061;   // in, no data
constexpr SIGSELECT KVD_TUIIF_SOCPRI_START_RSP                = 0x9C062;   // out
constexpr SIGSELECT KVD_TUIIF_SOCPRI_STOP_REQ                 = 0x9C063;   // in, no data
constexpr SIGSELECT KVD_TUIIF_SOCPRI_SUP_IND                  = 0x9C065;   // in
constexpr SIGSELECT KVD_TUIIF_SOCPRI_SCAN_LINK_REQ            = 0x9C066;   // in
constexpr SIGSELECT KVD_TUIIF_SOCPRI_SCAN_LINK_RSP            = 0x9C067;   // out
constexpr SIGSELECT KVD_TUIIF_SOCPRI_LINK_STATUS_FWD          = 0x9C068;   // out
constexpr SIGSELECT KVD_TUIIF_SOCPRI_SELECT_SYNC_LINK_REQ     = 0x9C069;   // in
constexpr SIGSELECT KVD_TUIIF_SOCPRI_SELECT_SYNC_LINK_RSP     = 0x9C06A;   // out
constexpr SIGSELECT KVD_TUIIF_SOCPRI_LINK_SYNC_STATUS_IND     = 0x9C06B;   // out
constexpr SIGSELECT KVD_TUIIF_SOCPRI_BFN_ALIGN_TO_GROUP_REQ   = 0x9C06C;   // in
constexpr SIGSELECT KVD_TUIIF_SOCPRI_BFN_ALIGN_TO_GROUP_RSP   = 0x9C06D;   // out
constexpr SIGSELECT KVD_TUIIF_SOCPRI_COARSE_TIME_DATA_IND     = 0x9C06E;   // in
constexpr SIGSELECT KVD_TUIIF_SOCPRI_GO_TO_TIME_HOLDOVER_REQ  = 0x9C06F;   // in, no data
constexpr SIGSELECT KVD_TUIIF_SOCPRI_GO_TO_TIME_HOLDOVER_RSP  = 0x9C070;   // out
constexpr SIGSELECT KVD_TUIIF_SOCPRI_ALREADY_SELECTED_IND     = 0x9C071;   // out
constexpr SIGSELECT KVD_TUIIF_SOCPRI_DESELECT_SYNC_LINK_IND   = 0x9C072;   // in
constexpr SIGSELECT KVD_TUIIF_SOCPRI_SUPERVISION_STATUS_IND   = 0x9C073;   // out
constexpr SIGSELECT KVD_TUIIF_SOCPRI_SP_JUMP_IND              = 0x9C074;   // in
constexpr SIGSELECT KVD_TUIIF_SOCPRI_SDU_FOLLOW_OCXO_ADJ_IND  = 0x9C075;   // in and out
constexpr SIGSELECT KVD_TUIIF_SOCPRI_SDU_FOLLOW_SFC_ADJ_IND   = 0x9C076;   // in and out
constexpr SIGSELECT KVD_TUIIF_INRSI_BFN_JUMP_INFO_REQ_FWD     = 0x9C077;   // in and out
constexpr SIGSELECT KVD_TUIIF_SOCPRI_SDU_FOLLOW_OCXO_REVERT_IND = 0x9C078; // in and out
constexpr SIGSELECT KVD_TUIIF_INRSI_LINK_STATUS2_IND_FWD      = 0x9C079;   // in
constexpr SIGSELECT KVD_TUIIF_INRSI_GET_FREQ_DIFF2_REQ_FWD    = 0x9C07A;   // in and out
constexpr SIGSELECT KVD_TUIIF_INRSI_GET_FREQ_DIFF2_CFM_FWD    = 0x9C07B;   // in and out
constexpr SIGSELECT KVD_TUIIF_INRSI_GET_FREQ_DIFF2_REJ_FWD    = 0x9C07C;   // in and out
constexpr SIGSELECT KVD_TUIIF_INRSI_GET_PHASE_DIFF2_REQ_FWD   = 0x9C07D;   // in and out
constexpr SIGSELECT KVD_TUIIF_INRSI_GET_PHASE_DIFF2_CFM_FWD   = 0x9C07E;   // in and out
constexpr SIGSELECT KVD_TUIIF_INRSI_GET_PHASE_DIFF2_REJ_FWD   = 0x9C07F;   // in and out
constexpr SIGSELECT KVD_TUIIF_SOCPRI_SDU_LOCK_PORT_FOCUS_IND  = 0x9C080;   // in
constexpr SIGSELECT KVD_TUIIF_SOCPRI_SDU_CLEAR_PORT_FOCUS_IND = 0x9C081;   // in, no data

/// Scan, selection and link status.
enum SocpriSyncStatus : u32 {
    PORT_STATUS_UNKNOWN = 0,
    OK_FREQ_LOCKED = 1,
    OK_TIME_LOCKED = 2,
    CPRI_LINK_NOT_AVAILABLE = 3,
    FREQ_MEAS_PROBLEM = 4,
    FREQ_MEAS_MISSING = 5,
    PHASE_MEAS_PROBLEM = 6,
    PHASE_MEAS_MISSING = 7,
};

struct KvdTuiifSocpriStartRsp {           // also KVD_TUIIF_SOCPRI_BFN_ALIGN_TO_GROUP_RSP
    SIGSELECT sigNo;
    u32 apn;
    u32 status;
};
static_assert(offsetof(KvdTuiifSocpriStartRsp, status) == 8);
static_assert(sizeof(KvdTuiifSocpriStartRsp) == 12);
using KvdTuiifSocpriBfnAlignToGroupRsp = KvdTuiifSocpriStartRsp;

struct KvdTuiifSocpriSupInd {
    SIGSELECT sigNo;
    u32 supEnable;
    u32 apn;
    u8  syncRiPortNo[6];
};
static_assert(offsetof(KvdTuiifSocpriSupInd, apn) == 8);
static_assert(offsetof(KvdTuiifSocpriSupInd, syncRiPortNo) == 12);
static_assert(sizeof(KvdTuiifSocpriSupInd) == 20);

struct KvdTuiifSocpriScanLinkReq {        // also KVD_TUIIF_SOCPRI_SELECT_SYNC_LINK_REQ
    SIGSELECT sigNo;
    u32 apn;
    u8  portNo;
};
static_assert(offsetof(KvdTuiifSocpriScanLinkReq, portNo) == 8);
static_assert(sizeof(KvdTuiifSocpriScanLinkReq) == 12);
using KvdTuiifSocpriSelectSyncLinkReq = KvdTuiifSocpriScanLinkReq;

struct KvdTuiifSocpriScanLinkRsp {        // also the answer to a selection and the link's status
    SIGSELECT sigNo;
    u32 apn;
    u8  portNo;
    u32 syncStatus;            // SocpriSyncStatus
};
static_assert(offsetof(KvdTuiifSocpriScanLinkRsp, portNo) == 8);
static_assert(offsetof(KvdTuiifSocpriScanLinkRsp, syncStatus) == 12);
static_assert(sizeof(KvdTuiifSocpriScanLinkRsp) == 16);
using KvdTuiifSocpriSelectSyncLinkRsp = KvdTuiifSocpriScanLinkRsp;
using KvdTuiifSocpriLinkSyncStatusInd = KvdTuiifSocpriScanLinkRsp;

struct KvdTuiifSocpriLinkStatusFwd {
    SIGSELECT sigNo;
    u32  apn;
    u32  id;
    u8   portNo;
    u8   linkStatus;           // 0 not available, 1 present, 2 available
    char huntPathPrefix[100];
    u32  subsumedId;
    u32  valid;                // 1 when subsumedId is
};
static_assert(offsetof(KvdTuiifSocpriLinkStatusFwd, portNo) == 12);
static_assert(offsetof(KvdTuiifSocpriLinkStatusFwd, linkStatus) == 13);
static_assert(offsetof(KvdTuiifSocpriLinkStatusFwd, huntPathPrefix) == 14);
static_assert(offsetof(KvdTuiifSocpriLinkStatusFwd, subsumedId) == 116);
static_assert(sizeof(KvdTuiifSocpriLinkStatusFwd) == 124);

struct KvdTuiifSocpriBfnAlignToGroupReq {
    SIGSELECT sigNo;
    u32 apn;
    u8  portNo;
    u32 esfc;
    u16 mfn;
};
static_assert(offsetof(KvdTuiifSocpriBfnAlignToGroupReq, portNo) == 8);
static_assert(offsetof(KvdTuiifSocpriBfnAlignToGroupReq, esfc) == 12);
static_assert(offsetof(KvdTuiifSocpriBfnAlignToGroupReq, mfn) == 16);
static_assert(sizeof(KvdTuiifSocpriBfnAlignToGroupReq) == 20);

struct KvdTuiifSocpriCoarseTimeDataInd {
    SIGSELECT sigNo;
    u32 ref_esfc;
    u16 ref_mfn;
};
static_assert(offsetof(KvdTuiifSocpriCoarseTimeDataInd, ref_mfn) == 8);
static_assert(sizeof(KvdTuiifSocpriCoarseTimeDataInd) == 12);

struct KvdTuiifSocpriGoToTimeHoldoverRsp {
    SIGSELECT sigNo;
    u32 status;
};
static_assert(sizeof(KvdTuiifSocpriGoToTimeHoldoverRsp) == 8);

struct KvdTuiifSocpriAlreadySelectedInd {
    SIGSELECT sigNo;
    u32 apn;
    u8  selectedCpriPort, requestedCpriPort;
};
static_assert(offsetof(KvdTuiifSocpriAlreadySelectedInd, requestedCpriPort) == 9);
static_assert(sizeof(KvdTuiifSocpriAlreadySelectedInd) == 12);

struct KvdTuiifSocpriDeselectSyncLinkInd {
    SIGSELECT sigNo;
    u8 reserved[3];
    u8 byte7;
    u8 portNo;
};
static_assert(offsetof(KvdTuiifSocpriDeselectSyncLinkInd, byte7) == 7);
static_assert(offsetof(KvdTuiifSocpriDeselectSyncLinkInd, portNo) == 8);

struct KvdTuiifSocpriSupervisionStatusInd {
    SIGSELECT sigNo;
    u32 apn;
    u8  portNo;
    u8  syncStatus;            // SocpriSyncStatus
};
static_assert(offsetof(KvdTuiifSocpriSupervisionStatusInd, syncStatus) == 9);
static_assert(sizeof(KvdTuiifSocpriSupervisionStatusInd) == 12);

struct KvdTuiifSocpriSpJumpInd {
    SIGSELECT sigNo;
    u32 jumpIndication;
};
static_assert(sizeof(KvdTuiifSocpriSpJumpInd) == 8);

struct KvdTuiifSocpriSduFollowOcxoAdjInd {
    SIGSELECT sigNo;
    u32 apn;
    i16 freqDiff;              // ppb
};
static_assert(offsetof(KvdTuiifSocpriSduFollowOcxoAdjInd, freqDiff) == 8);

struct KvdTuiifSocpriSduFollowSfcAdjInd {
    SIGSELECT sigNo;
    u32 apn;
    double delta0_c, delta0_f; // s
};
static_assert(offsetof(KvdTuiifSocpriSduFollowSfcAdjInd, delta0_c) == 8);
static_assert(sizeof(KvdTuiifSocpriSduFollowSfcAdjInd) == 24);

struct KvdTuiifInrsiBfnJumpInfoReqFwd {
    SIGSELECT sigNo;
    u32 apn;
    u32 bfnJumpsEnabled;
};
static_assert(offsetof(KvdTuiifInrsiBfnJumpInfoReqFwd, bfnJumpsEnabled) == 8);

struct KvdTuiifSocpriSduFollowOcxoRevertInd {
    SIGSELECT sigNo;
    u32 apn;
    double deltaFreq;
};
static_assert(offsetof(KvdTuiifSocpriSduFollowOcxoRevertInd, deltaFreq) == 8);
static_assert(sizeof(KvdTuiifSocpriSduFollowOcxoRevertInd) == 16);

struct KvdTuiifInrsiLinkStatus2IndFwd {
    SIGSELECT sigNo;
    u32 apn;
    u8  nearEndPortNo;
    u8  linkStatus;
    u32 sharedUnitId;
    u32 subsumedUnitId;
    u32 valid;
};
static_assert(offsetof(KvdTuiifInrsiLinkStatus2IndFwd, linkStatus) == 9);
static_assert(offsetof(KvdTuiifInrsiLinkStatus2IndFwd, sharedUnitId) == 12);
static_assert(sizeof(KvdTuiifInrsiLinkStatus2IndFwd) == 24);

struct KvdTuiifInrsiGetFreqDiff2ReqFwd {  // also KVD_TUIIF_INRSI_GET_PHASE_DIFF2_REQ_FWD
    SIGSELECT sigNo;
    u32 apn;
    u32 sharedUnitId;
};
static_assert(offsetof(KvdTuiifInrsiGetFreqDiff2ReqFwd, sharedUnitId) == 8);
using KvdTuiifInrsiGetPhaseDiff2ReqFwd = KvdTuiifInrsiGetFreqDiff2ReqFwd;

struct KvdTuiifInrsiGetFreqDiff2CfmFwd {
    SIGSELECT sigNo;
    u32 apn;
    u32 sharedUnitId;
    i16 freqDiff;              // ppb
    u8  freqDiffValid;
};
static_assert(offsetof(KvdTuiifInrsiGetFreqDiff2CfmFwd, freqDiff) == 12);
static_assert(offsetof(KvdTuiifInrsiGetFreqDiff2CfmFwd, freqDiffValid) == 14);
static_assert(sizeof(KvdTuiifInrsiGetFreqDiff2CfmFwd) == 16);

struct KvdTuiifInrsiGetFreqDiff2RejFwd {  // also KVD_TUIIF_INRSI_GET_PHASE_DIFF2_REJ_FWD
    SIGSELECT sigNo;
    u32 apn;
    u32 sharedUnitId;
    u8  errorCode;
};
static_assert(offsetof(KvdTuiifInrsiGetFreqDiff2RejFwd, errorCode) == 12);
static_assert(sizeof(KvdTuiifInrsiGetFreqDiff2RejFwd) == 16);
using KvdTuiifInrsiGetPhaseDiff2RejFwd = KvdTuiifInrsiGetFreqDiff2RejFwd;

struct KvdTuiifInrsiGetPhaseDiff2CfmFwd {
    SIGSELECT sigNo;
    u32 apn;
    u32 sharedUnitId;
    u32 trpDiffHigh, trpDiffLow;   // halves of a count of ps
    u8  trpDiffValid;
};
static_assert(offsetof(KvdTuiifInrsiGetPhaseDiff2CfmFwd, trpDiffHigh) == 12);
static_assert(offsetof(KvdTuiifInrsiGetPhaseDiff2CfmFwd, trpDiffValid) == 20);
static_assert(sizeof(KvdTuiifInrsiGetPhaseDiff2CfmFwd) == 24);

struct KvdTuiifSocpriSduLockPortFocusInd {
    SIGSELECT sigNo;
    u8 portNo;
};
static_assert(offsetof(KvdTuiifSocpriSduLockPortFocusInd, portNo) == 4);
