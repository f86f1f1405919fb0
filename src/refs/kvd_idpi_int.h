// kvd_idpi_int.h - What the sources of the port server's client share: connection and clock status
// (kvd_idpi.cpp), link status (kvd_idpi_link.cpp), delays and time data (kvd_idpi_delay.cpp).
#pragma once
#include "base/kvd_timer.h"
#include "ose/ose.h"
#include "refs/kvd_idpi.h"
#include "sig/idpi_sig.h"

#include <array>

namespace idpi {

constexpr u8 CLK_STATUS_NONE = 6;              // none was sent on this connection

struct State {
    u32 availabilityStatus = IDPI_UNAVAILABLE;
    u16 protocolRev = 0;                       // wanted
    PROCESS factoryPid = 0, servicePid = 0;
    AttachRef attach = 0;
    u32 clientRef = 0, serverRef = 0;          // addressInfo
    u8  delayMeasurementCap = 0;
    u8  idpiClkStatus = CLK_STATUS_NONE;       // last sent
    KvdTimer requestTimer;
    SIGSELECT owed = 0;                        // request that the server hasn't answered, 0: none
    KvdTimer answerTimer;
    u8  idl2PortMap = 0;                       // bit 0 is port 0
    u8  nActivePorts = 0;
    bool isRoundOpen = false;                  // delays are asked for and not told yet
    std::array<IdpiPort, IDPI_PORTS> port{};
};
State& state();

/// "Port A " for 0.
const char* portText(u32 port);
constexpr u8 bitOf(u32 port) { return static_cast<u8>(1u << port); }
inline bool isActive(u32 port) { return port < IDPI_PORTS && (state().idl2PortMap & bitOf(port)) != 0; }
/// Takes a port out of the map and forgets its answer; nothing when it isn't in.
void dropPort(u32 port);
/// A port's number as the table counts, 0 to 5; beyond that for none of the six.
constexpr u32 tablePort(u16 wirePort) { return wirePort == 0 ? 0xFFFF : wirePort - 1u; }
/// A record as it is before anything is known of the port.
IdpiPort emptyPort(u32 port);

void onLinkStatus(const IdpiLinkStatusInd* ind);
void onRequestDataTimeout();
void onGetDelayCfm(const IdpiGetDelayCfm* cfm);
void onGetDelayRej(const IdpiGetDelayReq* rej);

}  // namespace idpi
