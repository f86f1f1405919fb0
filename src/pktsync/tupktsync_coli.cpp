#include "pktsync/tupktsync_coli.h"

#include "base/trace_groups.h"
#include "node/platform.h"
#include "node/trace.h"
#include "pktsync/tupktsync_cfi_client.h"
#include "pktsync/tupktsync_drv_client.h"
#include "pktsync/tupktsync_genann.h"
#include "pktsync/tupktsync_ipsocki_client.h"
#include "pktsync/tupktsync_proc.h"
#include "pktsync/tupktsync_ptp_clock.h"
#include "pktsync/tupktsync_ptp_uc_neg.h"
#include "pktsync/tupktsync_syncref_ctrl.h"
#include "pktsync/tupktsync_timestamp_server.h"

#include <cstdio>
#include <cstring>

namespace {

using node::shellPrintf;

constexpr int DONE = 0, USAGE = 20;

const char* groupStateText(u32 state)
{
    static constexpr const char* TEXTS[] = {"none", "join pending", "leave pending", "joined"};
    return state <= GROUP_JOINED ? TEXTS[state] : "unknown";
}

void printProcess()
{
    shellPrintf("\n***** Packet synchronisation *****\n");
    shellPrintf("   root                 : %s\n", TuPktsync_rootStateText(TuPktsync_Root_state()));
    shellPrintf("   PKTSYNCDRV           : %s\n", TuPktsync_drvStateText(TuPktsync_PktSyncDrvClient_state()));
    shellPrintf("   CFI                  : %s\n", TuPktsync_cfiStateText(TuPktsync_CFI_client_state()));
    for (u32 i = 0; i < TUPKTSYNC_GROUPS; ++i) {
        const TuPktsyncGroup& g = TuPktsync_CFI_client_group(i);
        shellPrintf("   group %u              : %s, %u users\n", i, groupStateText(g.state), g.users);
    }
    shellPrintf("   IPSOCKI              : %s\n",
                TuPktsync_ipsockiStateText(TuPktsync_IPSOCKI_client_state()));
    for (u32 i = 0; i < SOCKET_RESOURCES; ++i) {
        const TuPktsyncSocket& r = TuPktsync_IPSOCKI_client_socket(i);
        if (r.state == SOCKET_FREE) continue;
        shellPrintf("   socket %-2u            : %s port %u, %u users\n", i,
                    TuPktsync_ipAddressText(r.own).data(),
                    r.portKind == SOCKET_EVENT ? PTP_EVENT_PORT : PTP_GENERAL_PORT, r.users);
    }
    shellPrintf("   consumer             : 0x%x\n", TuPktsync_Timestamp_server_consumer());
}

void printStamps(const char* name, const TsBuffer& b)
{
    shellPrintf("   %-21s: %u waiting (%u at most), %u given up, %u written over\n", name, b.occupancy,
                b.max_occupancy, b.discardedSeqIds, b.TSoverwrites);
}

void printClock(const PtpClock& c)
{
    const PtpParent& p = c.parent;
    const PtpClockQuality& q = p.grandmasterClockQuality;
    shellPrintf("\n   clock %u, froId %u, froClassNo %u\n", c.setup.syncrefId, c.setup.froId,
                c.setup.froClassNo);
    shellPrintf("   identity             : %s\n", TuPktsync_portIdentityText(c.portIdentity).data());
    shellPrintf("   port state           : %s, domain %u, profile %s%s%s\n", ptpPortStateText(c.portState),
                c.setup.domainNumber,
                c.setup.ptpProfile == ITU_T_G_8275_1 ? "ITU_T_G_8275_1" : "IEEE_1588_J3",
                c.enabled ? ", supervised" : "", c.selected ? ", selected" : "");
    shellPrintf("   faults               : 0x%04x\n", c.fault_flags);
    shellPrintf("   parent               : %s, %u steps\n",
                TuPktsync_portIdentityText(p.parentPortIdentity).data(), c.stepsRemoved);
    shellPrintf("   grandmaster          : %s, class %u, accuracy 0x%02x, variance 0x%04x\n",
                TuPktsync_portIdentityText({p.grandmasterIdentity, 0}).data(), q.clockClass, q.clockAccuracy,
                q.offsetScaledLogVariance);
    const PtpTimeProperties& t = c.timeProperties;
    shellPrintf("   time scale           : %s, UTC offset %d s%s\n",
                (t.flags & PTP_TIMESCALE) != 0 ? "TAI" : "arbitrary", t.currentUtcOffset,
                (t.flags & PTP_UTC_OFFSET_VALID) != 0 ? "" : ", not valid");
    shellPrintf("   foreign masters      : %u\n", c.foreignMasterCount);
    shellPrintf("   log intervals        : Announce %d, Sync %d, Delay_Req %d, one of %u Syncs passes\n",
                c.logAnnounceInterval, c.logSyncInterval, c.logMinDelayReqInterval,
                1u << (c.logPassFraction < 31 ? c.logPassFraction : 31));
    shellPrintf("   delay mechanism      : %s, %u ms, %u replies missed\n",
                TuPktsyncPTP_drmStatusText(c.delay.status), c.delay.nom_interval, c.delay.missed_replies);
    TuPktsyncPTP_UCneg_print(c.setup.syncrefId);
    shellPrintf("   messages that served : Announce %u, Sync %u, Follow_Up %u, Delay_Resp %u, Signaling %u\n",
                c.used[PTP_ANNOUNCE], c.used[PTP_SYNC], c.used[PTP_FOLLOW_UP], c.used[PTP_DELAY_RESP],
                c.used[PTP_SIGNALING]);
    printStamps("Sync stamps", c.syncStamps);
    printStamps("Delay_Req stamps", c.delay.stamps);
    shellPrintf("   offset, path delay   : %lld ns, %lld ns\n",
                static_cast<long long>(c.offsetFromMaster >> 16), static_cast<long long>(c.meanPathDelay));
}

int kvdtupktsync(int argc, char**)
{
    if (argc != 1) {
        shellPrintf("Usage: kvdtupktsync\n");
        return USAGE;
    }
    printProcess();
    TuPktsync_SyncrefCtrl_print();
    for (const u32 id : PTP_CLOCK_IDS)
        if (const PtpClock* const c = ptpClockOf(id)) printClock(*c);
    shellPrintf("\n***** END *****\n");
    return DONE;
}

constexpr node::ShellCommand COMMANDS[] = {
    {"kvdtupktsync", "kvdtupktsync", "Get packet synchronisation status information", kvdtupktsync},
    {"genann", "genann [list | stop | <entry> override|filter|set ...]",
     "Override or drop received Announce messages, by sender\n", TuPktsync_genannCommand},
};

}  // namespace

std::array<char, 24> TuPktsync_portIdentityText(const PtpPortIdentity& port)
{
    std::array<char, 24> text{};
    int at = 0;
    for (const u8 octet : port.clockIdentity)
        at += std::snprintf(text.data() + at, text.size() - static_cast<std::size_t>(at), "%02x", octet);
    if (port.portNumber != 0)
        std::snprintf(text.data() + at, text.size() - static_cast<std::size_t>(at), "-%u", port.portNumber);
    return text;
}

std::array<char, 40> TuPktsync_ipAddressText(const PktIpAddress& address)
{
    constexpr u32 IPV4 = 4;
    std::array<char, 40> text{};
    const auto& o = address.octets;
    if (address.family == IPV4) {
        std::snprintf(text.data(), text.size(), "%u.%u.%u.%u", o[0], o[1], o[2], o[3]);
        return text;
    }
    int at = 0;
    for (std::size_t i = 0; i < o.size(); i += 2)
        at += std::snprintf(text.data() + at, text.size() - static_cast<std::size_t>(at), "%s%x",
                            i > 0 ? ":" : "", o[i] << 8 | o[i + 1]);
    return text;
}

void TuPktsync_registerColiCmds()
{
    for (const node::ShellCommand& command : COMMANDS) {
        const int result = node::platform().registerCommand(command);
        if (result != 0)
            KVD_TRACE(TRACE_TUPKTSYNC_ROOT, TRACE_ERROR, "command %s could not be registered, result=%d",
                      command.name, result);
    }
}
