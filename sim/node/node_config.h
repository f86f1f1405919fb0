// node_config.h - What a simulated node is told at its creation.
#pragma once
#include "ose/world.h"
#include "sim/board/board_config.h"
#include "sim/node/idl_config.h"
#include "sim/node/main_processor_config.h"
#include "sim/node/packet_port_config.h"
#include "sim/node/ntp_config.h"
#include "sim/node/sync_group.h"

#include <map>
#include <string>
#include <vector>

namespace sim {

/// Restart types of the node's test service.
enum RestartType : u32 {
    RESTART_COLDWTEST_POWERON = 0,
    RESTART_COLDWTEST = 1,
    RESTART_COLD = 2,
    RESTART_REFRESH = 3,
    RESTART_WARM = 4,
    RESTART_HOT = 5,
};

/// A physical line that the port service announces.
struct PhyPort {
    u32 line = 0;             // 0 to 3 PDH, 4 SDH
    u32 froId = 0;
    u16 operState = 1;        // 0 disabled, 1 enabled
    u16 admState = 1;         // 0 locked, 1 unlocked, 2 shutting down
    u8  syncState = 0;        // 0 ok, 1 degraded, 2 dead
};

struct NodeConfig {
    std::string name = "tu1";
    u32 boardType = 2;                    // 1 or 2
    /// Oscillator, oven, EEPROM of the board; its type, name and seed follow from the node and its
    /// world.
    BoardConfig board{};
    u32 boardCode = 0;                    // of the hardware information; 0: 7 or 9 by boardType

    // Own identity.
    u32 smn = 0;
    u32 apn = 1;
    u32 piuInstanceId = 1;

    /// The load module; nullptr is the timing unit's own.
    const ose::Program* program = nullptr;

    /// Restart type of the first start; a power-on.
    u32 restartType = RESTART_COLDWTEST_POWERON;

    /// The operator's wish: the program traces every level, in each of its lives.
    bool tracesEveryLevel = false;

    /// Calendar at the beginning of the world: seconds since 1970, UTC. 2024-01-01 00:00:00.
    i64 calendarStart = 1'704'067'200;

    /// Board parameters; those of the board itself are added where they aren't given, see
    /// Parameters::boardDefaults. A value "-" leaves one of those out.
    std::map<std::string, std::string> boardParameters;
    std::map<std::string, std::string> bootParameters;

    /// Lines that the port service knows at start.
    std::vector<PhyPort> ports;

    /// Servers of the inter-unit links; a unit on its own has neither.
    BiraConfig bira;
    IdpiConfig idpi;
    /// IP sync service and the NTP server behind it.
    NtpConfig ntp;

    /// Where its packets come and go.
    PacketPortConfig packetPort;

    /// Server of the slow protocol frames on the Ethernet ports.
    bool slowpi = true;

    /// The sync group logic behind NGPDUHIF; the unit's broadcasts to others need it.
    SyncGroupConfig syncGroup;
    /// Measurement server of the radio links.
    InrsiConfig inrsi;

    MainProcessorConfig mainProcessor;

    /// After a program ended by itself (error, kill of its block) it is loaded again after this
    /// time, as a restart of type `restartAfterEnd`; negative leaves it unloaded.
    i64 reloadAfter_ms = -1;
    u32 restartAfterEnd = RESTART_REFRESH;
};

}  // namespace sim
