// tuiif_pktref_sig.h - The main processor's signals about packet references: numbers, layouts.
// Included by tuiif_sig.h.
#pragma once
#include "ose/types.h"

#include <cstddef>

constexpr SIGSELECT KVD_TUIIF_CREATE_PKT_REF_RO_REQ       = 0x9C02E;   // in
constexpr SIGSELECT KVD_TUIIF_CREATE_PKT_REF_RO_CFM       = 0x9C02F;   // out
constexpr SIGSELECT KVD_TUIIF_DELETE_PKT_REF_RO_REQ       = 0x9C030;   // in
constexpr SIGSELECT KVD_TUIIF_DELETE_PKT_REF_RO_CFM       = 0x9C031;   // out
constexpr SIGSELECT KVD_TUIIF_SET_PKT_REF_RO_REQ          = 0x9C032;   // in
constexpr SIGSELECT KVD_TUIIF_SET_PKT_REF_RO_CFM          = 0x9C033;   // out
constexpr SIGSELECT KVD_TUIIF_AUDIT_PKT_REF_RO_REQ        = 0x9C035;   // out
constexpr SIGSELECT KVD_TUIIF_AUDIT_PKT_REF_RO_CFM        = 0x9C036;   // in
constexpr SIGSELECT KVD_TUIIF_AUDIT_PKT_REF_RO_RESULT_IND = 0x9C037;   // out
constexpr SIGSELECT KVD_TUIIF_GET_PKT_REF_RO_ATTRIB_REQ   = 0x9C038;   // in
constexpr SIGSELECT KVD_TUIIF_GET_PKT_REF_RO_ATTRIB_CFM   = 0x9C039;   // out, 208 bytes

/// An address of IP version 4 or 6; an IPv4 address fills the first four bytes.
struct TuiifIpAddress {
    u8 family;                 // 4 or 6
    u8 reserved[3];
    u8 address[16];
};
static_assert(sizeof(TuiifIpAddress) == 20);

/// What the main processor configures of one packet reference.
struct TuiifPktRefConfig {
    u32 froId, froClassNo;
    u8  typeOfPktStruct;       // 0 Ethernet multicast PTP time .. 4 unicast IP NTP frequency
    u8  ptpDomain;
    i32 asymmetryCompensation; // ns
    u8  peerDelayMechanism;
    u8  reserved[3];
    TuiifIpAddress serverIpAddress, ownIpAddress;
    u8  dscp, pbit;
    u8  ptpProfile;            // 0 IEEE 1588 annex J.3, 1 ITU-T G.8275.1
    u8  ptpMulticastAddress;   // 0 forwardable, 1 not forwardable
    u8  macAddress[6];         // of the port, Ethernet
    u32 linkSpeed;             // code of the port: 4 or 6
    u32 portWord;              // which port of the unit
};
static_assert(offsetof(TuiifPktRefConfig, typeOfPktStruct) == 8);
static_assert(offsetof(TuiifPktRefConfig, asymmetryCompensation) == 12);
static_assert(offsetof(TuiifPktRefConfig, serverIpAddress) == 20);
static_assert(offsetof(TuiifPktRefConfig, dscp) == 60);
static_assert(offsetof(TuiifPktRefConfig, macAddress) == 64);
static_assert(offsetof(TuiifPktRefConfig, linkSpeed) == 72);
static_assert(sizeof(TuiifPktRefConfig) == 80);

struct KvdTuiifCreatePktRefRoReq {        // also KVD_TUIIF_SET_PKT_REF_RO_REQ
    SIGSELECT sigNo;
    TuiifPktRefConfig config;
};
static_assert(offsetof(KvdTuiifCreatePktRefRoReq, config) == 4);
static_assert(sizeof(KvdTuiifCreatePktRefRoReq) == 84);
using KvdTuiifSetPktRefRoReq = KvdTuiifCreatePktRefRoReq;

struct KvdTuiifCreatePktRefRoCfm {
    SIGSELECT sigNo;
    u32 froId, froClassNo;
    u32 apn;
    u32 result;                // 0 success, 1 host not available, 2 failure
};
static_assert(offsetof(KvdTuiifCreatePktRefRoCfm, result) == 16);
static_assert(sizeof(KvdTuiifCreatePktRefRoCfm) == 20);

struct KvdTuiifDeletePktRefRoReq {        // also KVD_TUIIF_GET_PKT_REF_RO_ATTRIB_REQ
    SIGSELECT sigNo;
    u32 froId, froClassNo;
};
static_assert(sizeof(KvdTuiifDeletePktRefRoReq) == 12);
using KvdTuiifGetPktRefRoAttribReq = KvdTuiifDeletePktRefRoReq;

struct KvdTuiifDeletePktRefRoCfm {        // also KVD_TUIIF_SET_PKT_REF_RO_CFM
    SIGSELECT sigNo;
    u32 froId, froClassNo;
    u32 apn;
};
static_assert(offsetof(KvdTuiifDeletePktRefRoCfm, apn) == 12);
static_assert(sizeof(KvdTuiifDeletePktRefRoCfm) == 16);
using KvdTuiifSetPktRefRoCfm = KvdTuiifDeletePktRefRoCfm;

struct KvdTuiifAuditPktRefRoReq {         // also KVD_TUIIF_PKT_REF_RO_UNAVAILABLE_IND
    SIGSELECT sigNo;
    u32 apn;
};
static_assert(sizeof(KvdTuiifAuditPktRefRoReq) == 8);
using KvdTuiifPktRefRoUnavailableInd = KvdTuiifAuditPktRefRoReq;

/// `count` records of TuiifPktRefConfig follow from offset 8.
struct KvdTuiifAuditPktRefRoCfm {
    SIGSELECT sigNo;
    u32 count;
};
static_assert(sizeof(KvdTuiifAuditPktRefRoCfm) == 8);

struct TuiifAuditResult {
    u32 froId, froClassNo;
    u32 result;
};
static_assert(sizeof(TuiifAuditResult) == 12);

/// `count` records of TuiifAuditResult follow from offset 12.
struct KvdTuiifAuditPktRefRoResultInd {
    SIGSELECT sigNo;
    u32 apn;
    u32 count;
};
static_assert(sizeof(KvdTuiifAuditPktRefRoResultInd) == 12);

/// The data sets of a PTP clock (IEEE 1588-2008 clause 8), in their order; all zero for a reference
/// without one.
struct KvdTuiifGetPktRefRoAttribCfm {
    SIGSELECT sigNo;
    u32 froId, froClassNo;
    // defaultDS
    u8  twoStepFlag;
    u8  clockIdentity[8];
    u16 numberPorts;
    u8  clockClass, clockAccuracy;
    u16 offsetScaledLogVariance;
    u8  priority1, priority2, domainNumber, slaveOnly;
    // currentDS
    u16 stepsRemoved;
    i64 offsetFromMaster;      // ns * 2^16
    i64 meanPathDelay;         // as the regulator tells it, ns
    // parentDS
    u8  parentClockIdentity[8];
    u16 parentPortNumber;
    u8  parentStats;
    u16 observedParentOffsetScaledLogVariance;
    u32 observedParentClockPhaseChangeRate;
    u8  grandmasterIdentity[8];
    u8  grandmasterClockClass, grandmasterClockAccuracy;
    u16 grandmasterOffsetScaledLogVariance;
    u8  grandmasterPriority1, grandmasterPriority2;
    // timePropertiesDS
    i16 currentUtcOffset;
    u8  currentUtcOffsetValid, leap59, leap61, timeTraceable, frequencyTraceable, ptpTimescale;
    u8  timeSource;
    // portDS
    u8  portClockIdentity[8];
    u16 portNumber;
    u8  portState;
    i8  logMinDelayReqInterval, logAnnounceInterval;
    u8  announceReceiptTimeout;
    i8  logSyncInterval;
    u8  delayMechanism;
    i8  logMinPdelayReqInterval;
    u8  versionNumber;
    u8  reserved[84];
};
static_assert(offsetof(KvdTuiifGetPktRefRoAttribCfm, offsetFromMaster) == 40);
static_assert(offsetof(KvdTuiifGetPktRefRoAttribCfm, currentUtcOffset) == 90);
static_assert(offsetof(KvdTuiifGetPktRefRoAttribCfm, portNumber) == 108);
static_assert(sizeof(KvdTuiifGetPktRefRoAttribCfm) == 208);
