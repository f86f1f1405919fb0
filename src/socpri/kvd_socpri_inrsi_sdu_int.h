// kvd_socpri_inrsi_sdu_int.h - The slave client's record and log, for its printouts and the tests.
#pragma once
#include "base/tu_common.h"
#include "socpri/kvd_socpri_inrsi_int.h"

namespace inrsi::slave {

constexpr u32 LOG_ENTRIES = 100;

struct LogEntry {
    u32  used;
    u32  event;                                // place in SLAVE_EVENTS
    u32  line;
    CpriPortStatus cpriPortStatus;
    Subscribed subscribed;
    u8   portNo;
    u32  sharedUnitId;
    char time[TIME_STAMP_SIZE];
};
struct Log {
    std::array<LogEntry, LOG_ENTRIES> entry;
    u16 index;                                 // written next
};

extern const Role ROLE;
const Client& clientRecord();
const Log& snapshot();
void printInfo();
void printHistory();

}  // namespace inrsi::slave
