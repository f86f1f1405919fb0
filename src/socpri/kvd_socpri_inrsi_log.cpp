// The master client's logs and printouts.
#include "socpri/kvd_socpri_inrsi_master_int.h"

#include "base/tu_common.h"
#include "node/platform.h"

using node::shellPrintf;

namespace inrsi::master {

void writeLog(Event event, u32 line, bool keep)
{
    Record& r = record();
    LogEntry& e = r.log[r.logIndex];
    e.used = 1;
    TuCommon_timeStamp(e.time);
    e.event = event;
    e.line = line;
    e.cpriPortStatus = r.client.cpriPortStatus;
    e.subscribed = r.client.subscribed;
    e.currAction = r.currAction;
    e.measUnavailableCounter = r.measUnavailableCounter;
    e.continuationOfSync = r.continuationOfSync;
    e.portNo = r.client.portNo;
    e.sharedUnitId = r.client.sharedUnitId;
    e.freqScanCnt = r.freqScanCnt;
    e.freqDiff = r.freqDiff;
    e.freqDiffValid = r.freqDiffValid;
    e.trpDiffHigh = r.trpDiffHigh;
    e.trpDiffLow = r.trpDiffLow;
    e.trpDiffValid = r.trpDiffValid;
    r.logIndex = static_cast<u16>((r.logIndex + 1) % LOG_ENTRIES);
    if (keep) keepSnapshot();
}

void logSupervision(u8 port, double phaseDiff, u32 valid)
{
    Record& r = record();
    SupervisionEntry& e = r.supervisionLog[r.supervisionIndex];
    e.used = 1;
    TuCommon_timeStamp(e.time);
    e.port = port;
    e.phaseDiff = phaseDiff;
    e.valid = valid;
    r.supervisionIndex = static_cast<u8>((r.supervisionIndex + 1) % SUPERVISION_ENTRIES);
}

void printInfo()
{
    const Record& r = record();
    shellPrintf("\n***** TU_SOCPRI INRSI (mDU) related data *****\n");
    printClient(r.client);
    shellPrintf("   currAction             : %s (%u)\n", actionText(r.currAction), r.currAction);
    shellPrintf("   freqScanCnt            : %u\n", r.freqScanCnt);
    shellPrintf("   freqDiff, valid        : %d ppb, %u\n", r.freqDiff, r.freqDiffValid);
    shellPrintf("   trpDiffHigh, Low, valid: %u, %u, %u\n", r.trpDiffHigh, r.trpDiffLow, r.trpDiffValid);
    shellPrintf("   measUnavailableCounter : %u\n", r.measUnavailableCounter);
    shellPrintf("   continuationOfSync     : %u\n", r.continuationOfSync);
    shellPrintf("   measOngoing            : %u\n", r.measOngoing);
    shellPrintf("   measRetrieveTimeMs     : %u\n", r.measRetrieveTimeMs);
    shellPrintf("   synthesiser saved      : %s\n", r.synthesiser.valid != 0 ? "yes" : "no");
    printUnits(r.client.cpriPortStatus, PORTS_WITH_X);
}

void printHistory()
{
    shellPrintf("\nINRSI (mDU) trace history snapshot:\n\n");
    const Record& r = snapshot();
    for (u32 i = 0; i < LOG_ENTRIES; ++i) {
        const LogEntry& e = r.log[(r.logIndex + i) % LOG_ENTRIES];
        if (e.used == 0) continue;
        char ports[PORTS + 1];
        shellPrintf("[%s]: event = %s, line = %u, subscribed = %s, currAction = %s, portNo = %u, "
                    "sharedUnitId = 0x%08x, freqScanCnt = %u, freqDiff = %d ppb, freqDiffValid = %u, "
                    "trpDiffHigh = %u, trpDiffLow = %u, trpDiffValid = %u, measUnavailableCounter = %u, "
                    "continuationOfSync = %u\n",
                    e.time, eventText(static_cast<Event>(e.event)), e.line,
                    subscribedText(e.subscribed, ports), actionText(e.currAction), e.portNo,
                    e.sharedUnitId, e.freqScanCnt, e.freqDiff, e.freqDiffValid, e.trpDiffHigh,
                    e.trpDiffLow, e.trpDiffValid, e.measUnavailableCounter, e.continuationOfSync);
        printUnits(e.cpriPortStatus, PORTS_WITH_X);
    }
}

void printSupervisionHistory(u8 port)
{
    shellPrintf("\nSoCPRI supervision history:\n\n");
    const Record& r = record();
    for (u32 i = 0; i < SUPERVISION_ENTRIES; ++i) {
        const SupervisionEntry& e = r.supervisionLog[(r.supervisionIndex + i) % SUPERVISION_ENTRIES];
        if (e.used == 0 || (port != NO_PORT && e.port != port)) continue;
        shellPrintf("[%s]: port = %u, phaseDiff = %-17.16g s, valid = %u\n", e.time, e.port, e.phaseDiff,
                    e.valid);
    }
}

}  // namespace inrsi::master
