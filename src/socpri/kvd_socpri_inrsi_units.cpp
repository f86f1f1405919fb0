// The table of units behind each port, and what the main processor is told of it.
#include "socpri/kvd_socpri_inrsi_int.h"

#include "base/trace_groups.h"
#include "mp/kvd_iifadm_send.h"
#include "node/trace.h"

#include <cstring>
#include <string>

namespace inrsi {

Slot* findUnit(Client& c, u8 port, u32 sharedUnitId)
{
    if (sharedUnitId == NO_UNIT || !isPortOrX(port)) return nullptr;
    for (Slot& slot : c.cpriPortStatus[port])
        if (slot.sharedUnitId == sharedUnitId) return &slot;
    return nullptr;
}

u32 mapUnitIdToArraySlot(Client& c, u8 port, u32 sharedUnitId)
{
    const PortUnits& units = c.cpriPortStatus[port];
    for (const u32 wanted : {sharedUnitId, NO_UNIT})
        for (u32 i = 0; i < SLOTS; ++i)
            if (units[i].sharedUnitId == wanted) return i;
    KVD_TRACE(TRACE_INRSI, TRACE_ERROR,
              "%s(): Mapping was not successful (port %u, sharedUnitId %u), returning 0 for slot number!",
              __func__, port, sharedUnitId);
    return 0;
}

Slot* firstUnit(Client& c, u8 port, u8 linkStatus)
{
    if (!isPortOrX(port)) return nullptr;
    for (Slot& slot : c.cpriPortStatus[port])
        if (slot.sharedUnitId != NO_UNIT && slot.linkStatus >= linkStatus) return &slot;
    return nullptr;
}

u8 portOfUnit(Client& c, u32 sharedUnitId)
{
    for (const u8 port : PORTS_A_TO_F)
        if (findUnit(c, port, sharedUnitId) != nullptr) return port;
    return NO_PORT;
}

void setPortInCpriPortStatus(Client& c, u8 port, const UnitReport& report)
{
    // A unit that has taken over another's id is known by the old one until now.
    const bool isKnownByOldId = report.subsumedValid != 0
                                && findUnit(c, port, report.subsumedUnitId) != nullptr;
    const u32 key = isKnownByOldId ? report.subsumedUnitId : report.sharedUnitId;
    Slot& slot = c.cpriPortStatus[port][mapUnitIdToArraySlot(c, port, key)];
    switch (report.linkStatus) {
    case LINK_PRESENT: slot.inciEstablishStatus = INCI_NONE; [[fallthrough]];
    case LINK_AVAILABLE:
        slot.sharedUnitId = report.sharedUnitId;
        slot.subsumedUnitId = report.subsumedValid != 0 ? report.subsumedUnitId : NO_UNIT;
        break;
    default:
        KVD_TRACE(TRACE_INRSI, TRACE_INFO, "%s():Link is not available, it will restart", __func__);
        slot.sharedUnitId = NO_UNIT;
        slot.subsumedUnitId = NO_UNIT;
        slot.inciEstablishStatus = INCI_NONE;
        break;
    }
    slot.linkStatus = report.linkStatus;
    std::memset(slot.huntPathPrefix, 0, sizeof slot.huntPathPrefix);
    std::memcpy(slot.huntPathPrefix, report.huntPathPrefix,
                strnlen(report.huntPathPrefix, sizeof slot.huntPathPrefix - 1));
}

void sendLinkStatus(u8 port, const UnitReport& report, u8 linkStatus)
{
    const std::string prefix(report.huntPathPrefix, strnlen(report.huntPathPrefix, INCI_PATH_SIZE));
    KvdLoz6TuIifAdm_sendSocpriLinkStatusFwd(report.sharedUnitId, static_cast<u8>(port + 1), linkStatus,
                                            prefix.c_str(), report.subsumedUnitId, report.subsumedValid);
}

namespace {

UnitReport reportOf(const Slot& slot)
{
    return {slot.linkStatus, slot.sharedUnitId, slot.subsumedUnitId, slot.subsumedUnitId != NO_UNIT ? 1u : 0u,
            slot.huntPathPrefix};
}

}  // namespace

u8 toldStatus(u8 linkStatus) { return linkStatus > LINK_AVAILABLE ? u8{LINK_NOT_AVAILABLE} : linkStatus; }

void resendLinkStatusData(Client& c)
{
    for (const u8 port : PORTS_A_TO_F) {
        if (!c.subscribed[port]) continue;
        for (const Slot& slot : c.cpriPortStatus[port])
            sendLinkStatus(port, reportOf(slot), toldStatus(slot.linkStatus));
    }
}
void resetPortStatus(Client& c, u8 port)
{
    for (Slot& slot : c.cpriPortStatus[port]) {
        sendLinkStatus(port, reportOf(slot), LINK_NOT_AVAILABLE);
        slot = FREE_SLOT;
    }
    log(c, INRSI_CL_EV_PORT_STATUS_RESET);
}

}  // namespace inrsi
