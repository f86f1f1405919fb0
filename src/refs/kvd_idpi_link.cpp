// Link status of the ports: which of them lead to another unit.
#include "base/trace_groups.h"
#include "mp/kvd_iifadm.h"
#include "node/sig.h"
#include "node/trace.h"
#include "refs/kvd_idpi_int.h"
#include "refs/kvd_ref_idl.h"
#include "refs/kvd_refs_upcalls.h"
#include "unit/kvd_ref_table.h"
#include "unit/kvd_unit_link.h"

#include <algorithm>

namespace {

using idpi::state;

constexpr u16 LINK_DOWN = 0;

u16 farPortOf(u16 wirePort)
{
    return static_cast<u16>(std::min<u32>(idpi::tablePort(wirePort), IDPI_NO_PORT));
}

u8 duOf(u16 wireDu) { return static_cast<u8>(wireDu); }

bool isOfTable(const IdpiPort& p, const IdpiLinkStatusInd& ind)
{
    return p.farPort == farPortOf(ind.farEndPortNo) && p.nearDu == duOf(ind.nearEndDuId)
           && p.farDu == duOf(ind.farEndDuId);
}

void addPort(u32 port)
{
    if (idpi::isActive(port)) return;
    state().idl2PortMap = static_cast<u8>(state().idl2PortMap | idpi::bitOf(port));
    ++state().nActivePorts;
}

void forward(u32 port)
{
    const IdpiPort& p = state().port[port];
    KvdLoz6TuIifAdm_sendIdl2LinkStatusFwd(port, p.status == IDPI_LINK_AVAILABLE ? 1 : 0, p.farDu,
                                          static_cast<u8>(p.farPort));
}

/// Until it drives the hardware a slave leaves the link to the server.
void evaluateOnSlave()
{
    if (KvdLoz6BiraIifAdm_idlMode() != KVD_BIRAIIF_IDL_MODE_2 || KvdLoz6BiraIifAdm_hasHwControl() == 0)
        return;
    KvdLoz6Idpi_startRequestTimer();
    if (KvdLoz6BiraIifAdm_idl2InitState() == IDL2_WARM_INIT_SUCCEEDED) return REFS_UPCALLS.finishWarmStart();
    if (KvdLoz6BiraIifAdm_timeTuningOngoing() != 0) return KvdLoz6TuRef_idl2PortAvailable();
    KVD_TRACE(TRACE_IDPI, TRACE_INFO,
              "%s(): IDL2 link is functional but we are awaiting KVD_BIRAIIF_FREQ_LOCKED_IND "
              "signal after handover to LOZ in order to start regulation ",
              __func__);
}

/// The ports have changed: delays are asked for while there is one to ask for.
void evaluate()
{
    if (KvdLoz6Idpi_portAvailable() == 0) {
        KVD_TRACE(TRACE_IDPI, TRACE_INFO, "IDL2 port not available");
        KvdLoz6Idpi_stopRequestTimer();
    } else if (KvdLoz6TuMgr_isMaster()) {
        KvdLoz6Idpi_startRequestTimer();
    } else {
        evaluateOnSlave();
    }
}

}  // namespace

void idpi::onLinkStatus(const IdpiLinkStatusInd* ind)
{
    if (ind == nullptr) return;
    const u32 port = tablePort(ind->nearEndPortNo);
    const bool isValid = ind->dunDataValid == 1 && ind->portDataValid == 1;
    u16 status = LINK_DOWN;
    if (isValid) {
        if (port >= IDPI_PORTS) {
            KVD_TRACE(TRACE_IDPI, TRACE_INFO, "%s(): Port ID out of range (%u)", __func__, port);
            return;
        }
        if (ind->status == IDPI_LINK_AVAILABLE) {
            addPort(port);
            status = IDPI_LINK_AVAILABLE;
        }
    } else if (port >= IDPI_PORTS || !isOfTable(state().port[port], *ind)) {
        // Without valid data the numbers are only good for finding the port that they were told of.
        KVD_TRACE(TRACE_IDPI, TRACE_INFO,
                  "LINK - near DU: %u near port: %u(%u) --> far DU: %u far port: %u(%u) - not in "
                  "port table, Ignore IDPI indication",
                  ind->nearEndDuId, ind->nearEndPortNo, port, ind->farEndDuId, ind->farEndPortNo,
                  farPortOf(ind->farEndPortNo));
        return;
    }
    if (status == LINK_DOWN) dropPort(port);

    IdpiPort& p = state().port[port];
    p.farPort = farPortOf(ind->farEndPortNo);
    p.nearDu = duOf(ind->nearEndDuId);
    p.farDu = duOf(ind->farEndDuId);
    p.status = status;
    KVD_TRACE(TRACE_IDPI, TRACE_INFO, "%sstatus=%u, reported=%u, far DU=%u, far port=%u", portText(port),
              status, ind->status, p.farDu, p.farPort);
    evaluate();
    forward(port);
    if (status == LINK_DOWN) p = emptyPort(port);
}

void KvdLoz6Idpi_resendLinkStatus()
{
    for (const IdpiPort& p : state().port) forward(p.nearPort);
}
