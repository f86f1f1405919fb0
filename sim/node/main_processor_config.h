// main_processor_config.h - What the simulated main processor negotiates and which references it
// knows.
#pragma once
#include "ose/types.h"

#include <array>
#include <optional>
#include <string>
#include <vector>

namespace sim {

/// A reference as the main processor has it configured; the list's order is its priority.
struct MpReference {
    std::string name;                 // for reports
    u8  refType = 0;                  // 2 to 14
    u32 froId = 0;
    u32 froClassNo = 0;
    bool supervise = true;            // asks for supervision at each connection
    /// Selected without any report of being usable: packet references before their reports exist.
    bool alwaysUsable = false;
    std::array<u8, 6> macAddress{2, 0, 0, 0, 0, 1};   // of an Ethernet reference's port
    /// What whoever gives it promises: the largest error of its time and of its frequency. The operator's
    /// alone, the unit isn't told.
    std::optional<double> timeBound_ns{}, frequencyBound_ppb{};
};

/// A packet reference as the main processor has it configured: what it asks the unit to create.
struct MpPacketRef {
    u32 froId = 0;
    u32 froClassNo = 4;               // 4 time, 5 frequency
    u8  typeOfPktStruct = 0;          // 0 Ethernet multicast PTP time .. 4 unicast IP NTP frequency
    u8  domain = 24;
    i32 asymmetry_ns = 0;
    bool peerDelay = false;
    u32 family = 4;                   // of both addresses
    std::array<u8, 16> server{}, own{};
    u8  dscp = 0, pbit = 0;
    u8  profile = 0;                  // 0 IEEE 1588 annex J.3, 1 ITU-T G.8275.1
    u8  multicastAddress = 0;         // 0 forwardable, 1 not
    std::array<u8, 6> mac{2, 0, 0, 0, 0, 1};
    u32 linkSpeed = 6;
    u32 portWord = 0;
};

struct MpDate { u16 year = 2024; u8 month = 1, day = 1, hour = 0, minute = 0, second = 0; };

struct MainProcessorConfig {
    // The confirmation.
    u32 signalRevision = 4;
    u32 selectedPv = 22;
    u32 highestAvailablePv = 22;      // in SUS and REJ
    u8  timeMode = 1;                 // 1 frequency, 3 absolute time
    u8  masterSlaveMode = 1;          // 1 master, 0 slave
    u8  gpsOut = 0;
    u8  hptsiOut = 0;
    u8  selectionQlMode = 0;
    MpDate sfnInitTime{1980, 1, 6, 0, 0, 0};

    std::vector<MpReference> references;
    /// Listed in the answer to an audit.
    std::vector<MpPacketRef> packetRefs;
    bool answersAudit = true;
    /// Selects by itself: the first reference of the list that is usable, none when there is none.
    bool selects = true;
    bool present = true;              // alive from the beginning
};

}  // namespace sim
