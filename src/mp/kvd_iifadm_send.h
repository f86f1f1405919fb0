// kvd_iifadm_send.h - What goes to the main processor: a sender for each signal.
// Owner   the manager process; senders that packet sync's process uses only read the connection.
// Units   ns, s, ids; port numbers of SoCPRI are counted from 1, as they travel.
// Errors  a signal is dropped unless the connection is ready; nothing is stored as sent then.
#pragma once
#include "ose/types.h"

struct Signal;

/// A prepared signal; freed when the connection isn't ready. For signals that a component builds
/// itself: time data, the regulator's answers, attributes of GPS and HPTSI, the fixed position.
void KvdLoz6TuIifAdm_send(Signal** sig);
/// The same for packet sync's own signals.
void KvdLoz6TuIifAdm_forwardPktsync(Signal** sig);

// ---- status ----

/// Sent when it differs by 100 ns or more from what was sent last. In manual mode the manager's
/// calls are dropped.
void KvdLoz6TuIifAdm_sendTimeAccuracyChangeInd(u32 timeAccuracy_ns);
/// Sent whatever was sent before.
void KvdLoz6TuIifAdm_sendTimeAccuracyNow(u32 timeAccuracy_ns);
void KvdLoz6TuIifAdm_sendOscTemperatureState(u8 oscTempState);
/// Calibration: 1 when it will soon expire.
void KvdLoz6TuIifAdm_setSoonToExpire(u32 soonToExpire);

/// Status of a receiver or input: byte and text of up to 127 characters; sent on a change.
void KvdLoz6TuIifAdm_sendGpsStatus(u8 gpsStatus, const char* text);
void KvdLoz6TuIifAdm_sendHptsiStatus(u8 hptsiStatus, const char* text);
void KvdLoz6TuIifAdm_sendGpsOslStatus(u8 gpsOslStatus, const char* text);

/// State of an Ethernet or packet reference, KVD_TUIIF6_BVQ_REF_STATE_IND; other types are refused.
void KvdLoz6TuIifAdm_sendRefState(u8 refType, u32 froId, u32 froClassNo, u32 refState,
                                  u32 additionalRefStateInfo);
/// The same from a packet reference's status bits; useActive takes the ids of the active reference.
void KvdLoz6TuIifAdm_updateTuPktRefStatus(u32 froId, u32 froClassNo, u32 refStatus, u32 useActive);
void KvdLoz6TuIifAdm_sendQualityLevelInd(u32 froId, u32 froClassNo, u32 clockQuality, u32 tcuDetected);
void KvdLoz6TuIifAdm_sendPduMissingInd(u32 froId, u32 froClassNo, u32 pduMissing);
/// State of the far end of the GPS out sync link, TuiifRemoteRcState. 10 always goes, another value
/// on a change while the link is selected or was the last selected; none with SoCPRI.
void KvdLoz6TuIifAdm_sendRemoteRcState(u32 state);

// ---- ports, inter-unit links ----

void KvdLoz6TuIifAdm_sendEtFroidInd(u32 lineNum, u32 froId, u32 statusControl);
void KvdLoz6TuIifAdm_sendRefStatusChangeInd(u32 froId, u16 admState, u16 operState, u32 syncState);
void KvdLoz6TuIifAdm_sendIdl2ModeInd();
void KvdLoz6TuIifAdm_sendIdl2LinkStatusFwd(u32 portNo, u32 linkAvailable, u8 farEndDuNo, u8 farEndPortNo);
void KvdLoz6TuIifAdm_sendIdl2SyncReportInd(u32 fineTimeSync, double phaseDiff);
void KvdLoz6TuIifAdm_sendIdl2SetMasterServerReq(u32 masterServer);

// ---- answers ----

void KvdLoz6TuIifAdm_sendGpsOslAttribCfm(u32 froId, u16 gpsOslCompensationDelay, u8 gpsOslState);
void KvdLoz6TuIifAdm_sendSubscribePmCfm(u32 froType, u32 froId);
void KvdLoz6TuIifAdm_sendUnsubscribePmCfm(u32 froType, u32 froId);
/// `count` values, none is allowed.
void KvdLoz6TuIifAdm_sendCurrentPmCfm(u32 froType, u32 froId, u32 suspectFlag, const i32* values, u32 count);

// ---- SoCPRI ----

void KvdLoz6TuIifAdm_sendSocpriStartRsp(u32 status);
void KvdLoz6TuIifAdm_sendSocpriScanLinkRsp(u8 portNo, u32 syncStatus);
void KvdLoz6TuIifAdm_sendSocpriSelectSyncLinkRsp(u8 portNo, u32 syncStatus);
void KvdLoz6TuIifAdm_sendSocpriLinkSyncStatusInd(u8 portNo, u32 syncStatus);
/// huntPathPrefix up to 99 characters.
void KvdLoz6TuIifAdm_sendSocpriLinkStatusFwd(u32 id, u8 portNo, u8 linkStatus, const char* huntPathPrefix,
                                             u32 subsumedId, u32 valid);
void KvdLoz6TuIifAdm_sendSocpriBfnAlignToGroupRsp(u32 status);
void KvdLoz6TuIifAdm_sendSocpriGoToTimeHoldoverRsp(u32 status);
void KvdLoz6TuIifAdm_sendSocpriAlreadySelectedInd(u8 selectedCpriPort, u8 requestedCpriPort);
void KvdLoz6TuIifAdm_sendSocpriSupervisionStatusInd(u8 portNo, u8 syncStatus);
void KvdLoz6TuIifAdm_sendSocpriSduFollowOcxoAdjInd(i16 freqDiff);
void KvdLoz6TuIifAdm_sendSocpriSduFollowSfcAdjInd(double delta0_c, double delta0_f);
void KvdLoz6TuIifAdm_sendSocpriSduFollowOcxoRevertInd(double deltaFreq);
void KvdLoz6TuIifAdm_sendInrsiBfnJumpInfoReqFwd(u32 bfnJumpsEnabled);
void KvdLoz6TuIifAdm_sendInrsiGetFreqDiff2ReqFwd(u32 sharedUnitId);
void KvdLoz6TuIifAdm_sendInrsiGetFreqDiff2CfmFwd(u32 sharedUnitId, i16 freqDiff, u8 freqDiffValid);
void KvdLoz6TuIifAdm_sendInrsiGetFreqDiff2RejFwd(u32 sharedUnitId, u8 errorCode);
void KvdLoz6TuIifAdm_sendInrsiGetPhaseDiff2ReqFwd(u32 sharedUnitId);
void KvdLoz6TuIifAdm_sendInrsiGetPhaseDiff2CfmFwd(u32 sharedUnitId, u32 trpDiffHigh, u32 trpDiffLow,
                                                  u8 trpDiffValid);
void KvdLoz6TuIifAdm_sendInrsiGetPhaseDiff2RejFwd(u32 sharedUnitId, u8 errorCode);
