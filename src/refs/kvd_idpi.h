// kvd_idpi.h - Client of the platform's inter-unit link port server: which of the six ports lead to
// another unit, and how long their delays are each way.
// Owner   the manager process.
// Units   delays are halves of a 64-bit count of ps; timers in ms; ports 0 to 5, on the wire 1 to 6.
// Errors  rejections are traced at a module level and leave the state as told there. A server that is lost
//         is looked for at once; its ports simply stop delivering.
#pragma once
#include "ose/types.h"

#include <array>

struct Signal;

constexpr u32 IDPI_PORTS = 6;
constexpr u16 IDPI_NO_PORT = 6;            // far port of a port that leads nowhere

enum IdpiAvailability : u32 { IDPI_AVAILABLE = 0, IDPI_INITIATING = 1, IDPI_UNAVAILABLE = 2 };

struct IdpiPort {
    u32 delayT1C1High = 0, delayT1C1Low = 0;
    u32 delayC4T1High = 0, delayC4T1Low = 0;
    u16 nearPort = 0;                      // this record's number
    u16 farPort = IDPI_NO_PORT;
    u8  nearDu = 0, farDu = 0;
    u16 status = 0;                        // 3: available
    u8  linkMode = 0;
    u8  linkStability = 0;
    u8  received = 0;                      // a delay answer is held
    u32 StabilityFailures = 0;             // answers with stability 0
};

void KvdLoz6Idpi_initiate();
bool KvdLoz6Idpi_dispatch(Signal* sig);
/// Connects to the port server; returns at once. 0 done or connected already, 1 when the server isn't
/// there yet: the connection follows when it comes.
int  KvdLoz6TuSlave_connEstablish(u16 protocolRev);
/// Tells the server the unit's clock status, unless it is what was told last. 0 done, 1 no server.
int  KvdLoz6Idpi_sendClkStatus(u8 clkStatus);
/// Forgets the delay answers of all ports.
void KvdLoz6Idpi_clearDelayData();
/// Copy of a port's record; an empty one out of range.
IdpiPort KvdLoz6Idpi_port(u32 port);
u8   KvdLoz6Idpi_nActivePorts();
u32  KvdLoz6Idpi_availabilityStatus();     // IdpiAvailability
/// 1 when delays can be measured and a port leads to another unit.
u32  KvdLoz6Idpi_portAvailable();
/// Delay requests: every 40 ms on a master, 100 ms on a slave.
void KvdLoz6Idpi_startRequestTimer();
void KvdLoz6Idpi_stopRequestTimer();
/// Sends the state of each of the six ports to the main processor.
void KvdLoz6Idpi_resendLinkStatus();
/// "idpi" section of kvdinfo.
void KvdLoz6Idpi_printInfo();
