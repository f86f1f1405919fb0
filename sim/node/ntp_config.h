// ntp_config.h - What a node's IP sync service is told at its creation: the NTP server that it asks,
// and the network between.
#pragma once
#include "ose/types.h"

namespace sim {

enum class DelayNoise : u8 {
    Gaussian,       // noise_s is its standard deviation; a delay is never below 0
    Exponential,    // noise_s is its mean, on top of the delay
};

/// One direction of the network.
struct NtpPath {
    double delay_s = 0.002;
    double noise_s = 0;
};

struct NtpConfig {
    bool present = false;              // the service
    u32  froId = 0;                    // of the reference that the exchanges belong to
    bool answers = true;               // the NTP server
    i64  interval_ms = 1000;           // of the exchanges
    bool followsRate = true;           // the rate that the unit wants replaces it
    double serverOffset_s = 0;         // the server's clock against true time, positive: ahead
    double serverFrequency_ppb = 0;    // positive: runs fast
    double nodeOffset_s = 0;           // the node's stamping clock when power comes
    DelayNoise noise = DelayNoise::Exponential;
    NtpPath up, down;                  // to the server and back
};

}  // namespace sim
