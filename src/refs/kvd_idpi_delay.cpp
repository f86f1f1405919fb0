// Delays of the ports: collected in rounds, and told to the main processor with the counters' value.
#include "base/trace_groups.h"
#include "hw/kvd_hwif.h"
#include "mp/kvd_iifadm.h"
#include "node/sig.h"
#include "node/trace.h"
#include "refs/kvd_idpi_int.h"
#include "refs/kvd_ref_idl.h"
#include "refs/kvd_slave.h"
#include "refs/kvd_slave_int.h"
#include "refs/kvd_slave_warm.h"
#include "reg/kvd_reg_jump.h"
#include "reg/kvd_reg_measure.h"
#include "sig/tuiif_sig.h"
#include "unit/kvd_ref_table.h"
#include "unit/kvd_unit_link.h"
#include "base/frame_counter.h"

namespace {

using idpi::state;

constexpr OSTIME REQUEST_TIME_MASTER = 40;    // ms
constexpr OSTIME REQUEST_TIME_SLAVE  = 100;   // ms

// ---- time data ----------------------------------------------------------------------------------

struct CounterValue {
    u32 eSFC;                 // turns of the 1024 s counter
    u16 mfn, sfn;
    u32 inc;
};

/// The last sample may be older than the counter's wrap: its turn is then one behind.
bool readCounter(CounterValue& now)
{
    if (tuHwIf_readSfc(now.mfn, now.sfn, now.inc) != 0) return false;
    const double t_f = tuHwIf_sfcToIncrements(now.mfn, now.sfn, now.inc) / INCREMENTS_PER_SECOND;
    const TimePair last = KvdLoz6TuReg_getLastTime();
    now.eSFC = slave::turns(last.c) + (hasTurned(t_f, last.f, COUNTER_PERIOD) ? 1 : 0);
    return true;
}

u8 portNoOf(u16 port) { return port != IDPI_NO_PORT ? static_cast<u8>(port) : u8{0}; }

void fill(TuiifIdl2PortData& out, const IdpiPort& p)
{
    out.nearEndportNo = portNoOf(p.nearPort);
    out.farEndportNo = portNoOf(p.farPort);
    out.delayC4T1High = p.delayC4T1High;
    out.delayC4T1Low = p.delayC4T1Low;
    out.delayT1C1High = p.delayT1C1High;
    out.delayT1C1Low = p.delayT1C1Low;
    out.linkMode = p.linkMode;
    out.linkStability = p.linkStability;
}

/// The delays of every active port and the counters at this moment, for the units at the other ends.
void sendIdl2TimeDataInd()
{
    if (KvdLoz6TuIifAdm_startState() != TUIIF_START_RESTART_READY) return;
    CounterValue now{};
    if (!readCounter(now)) {
        KVD_TRACE(TRACE_IDPI, TRACE_ERROR, "sendIdl2TimeDataInd: failed to retrieve new SFC data");
        return;
    }
    const u32 ports = state().nActivePorts;
    Signal* sig = ose::alloc(sizeof(KvdTuiifIdl2TimeDataInd) + IDL2_TIME_DATA_PORT_GROWTH * (ports - 1),
                             KVD_TUIIF_IDL2_TIME_DATA_IND);
    auto* ind = reinterpret_cast<KvdTuiifIdl2TimeDataInd*>(sig);
    ind->apn = KvdLoz6TuIifAdm_apn();
    ind->jumpPend = KvdLoz6TuReg_takeJumpRequested();
    ind->jumpInd = KvdLoz6TuReg_takeJumpPerformed();
    ind->numOfPorts = ports;
    ind->eSFC = now.eSFC;
    ind->mfn = now.mfn;
    ind->sfn = now.sfn;
    ind->inc = now.inc;
    TuiifIdl2PortData* out = ind->port;
    for (const IdpiPort& p : state().port)
        if (idpi::isActive(p.nearPort)) fill(*out++, p);
    KVD_TRACE(TRACE_IDPI, TRACE_3,
              "KVD_TUIIF_IDL2_TIME_DATA_IND (apn = %u, jumpPend = %s, jumpInd = %s, numOfPorts = %u)",
              ind->apn, ind->jumpPend != 0 ? "True" : "False", ind->jumpInd != 0 ? "True" : "False", ports);
    KvdLoz6TuIifAdm_send(&sig);
}

// ---- rounds of delays ---------------------------------------------------------------------------

u32 receivedPorts()
{
    u32 count = 0;
    for (const IdpiPort& p : state().port) count += p.received != 0 ? 1 : 0;
    return count;
}

/// An answer, or a port less to wait for: is the round complete? It is told once: a server that answers many
/// requests at once has measured the same thing so many times, and each would count as a sample of its own.
void testCompleteness()
{
    if (!state().isRoundOpen) return;
    if (state().nActivePorts == 0 || receivedPorts() != state().nActivePorts) return;
    if (KvdLoz6TuSlave_isIdl2SyncDataStopped() != 0) return;
    state().isRoundOpen = false;
    sendIdl2TimeDataInd();
    // The data of the other end answers this; a slave in fine synchronisation counts on it.
    if (!KvdLoz6TuMgr_isMaster() && KvdLoz6SlaveWarm_data().idpiClkStatus == IDPI_CLK_STATUS_FINE_TIME_SYNCED)
        KvdLoz6TuRef_startIdl2SyncDataTimer();
}

bool mayRequest()
{
    return KvdLoz6TuMgr_isMaster()
           || (KvdLoz6BiraIifAdm_hasHwControl() != 0 && KvdLoz6BiraIifAdm_timeTuningOngoing() != 0);
}

void requestDelays()
{
    KvdLoz6Idpi_clearDelayData();
    state().isRoundOpen = true;
    if (state().availabilityStatus != IDPI_AVAILABLE) return;
    for (const IdpiPort& p : state().port) {
        if (!idpi::isActive(p.nearPort)) continue;
        auto* req = node::make<IdpiGetDelayReq>(IDPI_GET_DELAY_REQ);
        req->clientRef = state().clientRef;
        req->serverRef = state().serverRef;
        req->portNo = static_cast<u16>(p.nearPort + 1);
        node::sendTo(state().servicePid, req);
    }
}

}  // namespace

void KvdLoz6Idpi_startRequestTimer()
{
    const OSTIME time = KvdLoz6TuMgr_isMaster() ? REQUEST_TIME_MASTER : REQUEST_TIME_SLAVE;
    if (state().requestTimer.runs())
        KVD_TRACE(TRACE_IDPI, TRACE_3, "IDPI request data tmo already started.");
    else if (KvdTimer_start(state().requestTimer, time, IDPI_REQUEST_DATA_TMO))
        KVD_TRACE(TRACE_IDPI, TRACE_3, "IDPI request data tmo requested.");
    else
        KVD_TRACE(TRACE_IDPI, TRACE_ERROR, "IDPI request data tmo failed to start!");
}

void KvdLoz6Idpi_stopRequestTimer()
{
    if (!state().requestTimer.runs()) return;
    KvdTimer_cancel(state().requestTimer);
    KVD_TRACE(TRACE_IDPI, TRACE_INFO, "IDPI request data tmo canceled.");
}

void idpi::onRequestDataTimeout()
{
    if (!KvdTimer_expired(state().requestTimer)) return;
    if (!mayRequest()) {
        KVD_TRACE(TRACE_IDPI, TRACE_INFO,
                  "LOZ6 LM does not have HW control or time sync has stopped. Stopped processing "
                  "IDPI data request timeouts.");
        return;
    }
    if (KvdLoz6TuRef_idl2SyncDataTimerRuns())
        KVD_TRACE(TRACE_IDPI, TRACE_3,
                  "Previous IDPI data not entirely processed. Request a new tmo and continue.");
    else
        requestDelays();
    KvdLoz6Idpi_startRequestTimer();
}

void idpi::onGetDelayCfm(const IdpiGetDelayCfm* cfm)
{
    if (cfm == nullptr) return;
    const u32 port = tablePort(cfm->portNo);
    if (!isActive(port)) {
        KVD_TRACE(TRACE_IDPI, TRACE_7, "Received IDL2 delay data for inactive port %u", port);
        return;
    }
    IdpiPort& p = state().port[port];
    p.delayT1C1High = cfm->delayT1C1High;
    p.delayT1C1Low = cfm->delayT1C1Low;
    p.delayC4T1High = cfm->delayC4T1High;
    p.delayC4T1Low = cfm->delayC4T1Low;
    p.nearPort = static_cast<u16>(port);
    p.linkMode = cfm->linkMode;
    p.linkStability = cfm->linkStability;
    p.received = 1;
    if (cfm->linkStability == IDPI_DELAY_UNSTABLE) ++p.StabilityFailures;
    KVD_TRACE(TRACE_IDPI, TRACE_3,
              "IDL2 delay data stored delayT1C1High=%u, delayT1C1Low=%u, delayC4T1High=%u, "
              "delayC4T1Low=%u, linkMode = %u, linkStability = %u for port %s",
              p.delayT1C1High, p.delayT1C1Low, p.delayC4T1High, p.delayC4T1Low, p.linkMode, p.linkStability,
              portText(port));
    testCompleteness();
}

void idpi::onGetDelayRej(const IdpiGetDelayReq* rej)
{
    if (rej == nullptr) return;
    const u32 port = tablePort(rej->portNo);
    KVD_TRACE(TRACE_IDPI, TRACE_7, "received IDPI_GET_DELAY_REJ for port %u", port);
    if (!isActive(port)) return;
    dropPort(port);
    testCompleteness();
}
