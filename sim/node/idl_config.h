// idl_config.h - What a node's servers of inter-unit and radio links are told at their creation.
#pragma once
#include "ose/types.h"

#include <optional>
#include <string>
#include <vector>

namespace sim {

/// The basic timing function, which owns the hardware until the program takes it.
struct BiraConfig {
    bool present = false;
    u8  linkType = 0;                // 0 IDL1, 1 IDL2
    bool holdover = false;           // its clock holds over at the program's start
    u8  synchPortNo = 0;
    u8  data = 0;                    // 0: the program's stored data may be used
    std::optional<bool> cold;        // start told to the program; nothing: by the node's restart type
    u32 link_ms = 100;               // from the confirmation to the link's type
    i64 lock_ms = 20'000;            // until its clock is locked and it hands over; negative never
    double lockError_ppb = 1.0;      // to the leading unit, at the hand-over
};

/// A link port as the port server knows it.
struct IdpiPortConfig {
    u16 port = 1;                    // 1 to 6 are meant
    u16 nearDu = 1, farDu = 2;
    u16 farPort = 1;
    u16 status = 3;                  // 3 available
};

struct IdpiConfig {
    bool present = false;
    bool measuresDelay = true;       // its capability
    std::vector<IdpiPortConfig> ports;
};

/// A unit behind a radio link port as the measurement server knows it.
struct InrsiLinkConfig {
    u16 port = 1;                    // 1 to 6 are meant
    u32 unit = 1;                    // its shared id
    u8  status = 2;                  // 0 not available, 1 present, 2 available
    std::string huntPath = "bbu/1";
    std::optional<u32> subsumed = std::nullopt;   // id that the unit had before
    double offset_ns = 0.0;          // of its clock, where a scenario measures it
};

struct InrsiConfig {
    bool present = false;
    std::vector<InrsiLinkConfig> links;
};

}  // namespace sim
