#include "pktsync/tupktsync_ptp_attributes.h"

#include "pktsync/tupktsync_ptp_clock.h"

#include <algorithm>

namespace {

// What never changes of a slave-only clock.
constexpr u8  SLAVE_CLASS = 255, UNKNOWN_ACCURACY = 0xFE;
constexpr u16 UNKNOWN_VARIANCE = 0xFFFF;
constexpr u32 UNKNOWN_PHASE_RATE = 0x7FFFFFFF;
constexpr u8  E2E = 1, RECEIPT_TIMEOUT = 3, PTP_VERSION = 2;

void putIdentity(u8* at, const PtpClockIdentity& id) { std::copy(id.begin(), id.end(), at); }

void putDefault(const PtpClock& c, KvdTuiifGetPktRefRoAttribCfm& a)
{
    a.twoStepFlag = 1;
    putIdentity(a.clockIdentity, c.portIdentity.clockIdentity);
    a.numberPorts = 1;
    a.clockClass = SLAVE_CLASS;
    a.clockAccuracy = UNKNOWN_ACCURACY;
    a.offsetScaledLogVariance = UNKNOWN_VARIANCE;
    a.priority1 = c.priority1;
    a.priority2 = c.priority2;
    a.domainNumber = c.setup.domainNumber;
    a.slaveOnly = 1;
}

void putParent(const PtpClock& c, KvdTuiifGetPktRefRoAttribCfm& a)
{
    putIdentity(a.parentClockIdentity, c.parent.parentPortIdentity.clockIdentity);
    a.parentPortNumber = c.parent.parentPortIdentity.portNumber;
    a.observedParentOffsetScaledLogVariance = UNKNOWN_VARIANCE;
    a.observedParentClockPhaseChangeRate = UNKNOWN_PHASE_RATE;
    putIdentity(a.grandmasterIdentity, c.parent.grandmasterIdentity);
    const PtpClockQuality& q = c.parent.grandmasterClockQuality;
    a.grandmasterClockClass = q.clockClass;
    a.grandmasterClockAccuracy = q.clockAccuracy;
    a.grandmasterOffsetScaledLogVariance = q.offsetScaledLogVariance;
    a.grandmasterPriority1 = c.parent.grandmasterPriority1;
    a.grandmasterPriority2 = c.parent.grandmasterPriority2;
}

void putTimeProperties(const PtpTimeProperties& t, KvdTuiifGetPktRefRoAttribCfm& a)
{
    const auto flag = [&t](u8 bit) { return static_cast<u8>((t.flags & bit) != 0 ? 1 : 0); };
    a.currentUtcOffset = t.currentUtcOffset;
    a.currentUtcOffsetValid = flag(PTP_UTC_OFFSET_VALID);
    a.leap59 = flag(PTP_LEAP59);
    a.leap61 = flag(PTP_LEAP61);
    a.timeTraceable = flag(PTP_TIME_TRACEABLE);
    a.frequencyTraceable = flag(PTP_FREQUENCY_TRACEABLE);
    a.ptpTimescale = flag(PTP_TIMESCALE);
    a.timeSource = t.timeSource;
}

void putPort(const PtpClock& c, KvdTuiifGetPktRefRoAttribCfm& a)
{
    putIdentity(a.portClockIdentity, c.portIdentity.clockIdentity);
    a.portNumber = c.portIdentity.portNumber;
    a.portState = static_cast<u8>(c.portState);
    a.logMinDelayReqInterval = c.logMinDelayReqInterval;
    a.logAnnounceInterval = c.logAnnounceInterval;
    a.announceReceiptTimeout = RECEIPT_TIMEOUT;
    a.logSyncInterval = c.logSyncInterval;
    a.delayMechanism = E2E;
    a.versionNumber = PTP_VERSION;
}

}  // namespace

void TuPktsync_get_ptp_attributes(u32 syncrefId, KvdTuiifGetPktRefRoAttribCfm& cfm)
{
    const PtpClock* const c = ptpClockOf(syncrefId);
    if (c == nullptr) return;
    putDefault(*c, cfm);
    cfm.stepsRemoved = c->stepsRemoved;
    cfm.offsetFromMaster = c->offsetFromMaster;
    cfm.meanPathDelay = c->meanPathDelay;
    putParent(*c, cfm);
    putTimeProperties(c->timeProperties, cfm);
    putPort(*c, cfm);
}
