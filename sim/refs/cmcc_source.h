// cmcc_source.h - A source of the time of day at the unit: 1PPS at its reference input, CMCC frames on its
// serial line.
//
// The pulse of whole second n of true time begins second `start` + n. Behind each pulse come a time info
// frame that names its second, and a time state frame; both 23 bytes at 9600 bit/s, delivered with their last
// byte.
#pragma once
#include "sim/board/edge_source.h"
#include "sim/clock/random.h"
#include "sim/node/serial_port.h"
#include "sim/refs/line_source.h"

#include <array>
#include <memory>
#include <string>
#include <vector>

namespace sim {

/// What the frames say beside the time.
struct CmccWords {
    u8  clkSource = 1;               // 0 Beidou, 1 GPS, 2 PTP, 3 other
    u16 state = 5;
    u16 alarm = 0;
    u8  pp1sState = 0;               // 0 normal, 1 atomic, 2 unavailable, 3 crystal, 4 transport network
    i8  leapSec = 18;
    u8  tacc = 10;
};

struct CmccSourceConfig {
    i64 start = 1'704'067'200;       // UTC at the world's beginning, seconds since 1970
    i32 leapSeconds = 18;            // GPS ahead of UTC
    CmccWords words;
    ose::Time infoDelay = ose::MS;   // from the pulse to a frame's first byte
    ose::Time stateDelay = 200 * ose::MS;
    LineConfig pps{.noise = {.white_s = 6e-9}};
};

enum class CmccFault : u8 {
    WrongChecksum,
    Garbled,                         // amount: share of the bytes with a bit turned over
    Silence,
    NoInfo,                          // frames of one kind alone
    NoState,
    Late,                            // amount: ms by which frames come later, below 2000
    WrongSecond,                     // amount: s
    NoPps,
    StuckPps,                        // toggles, its edges don't reach the detector
};
constexpr u32 CMCC_FAULTS = 9;

class CmccSource : public EdgeSource {
public:
    /// Both must outlive it.
    CmccSource(ose::World& world, SerialPort& serial, const CmccSourceConfig& config, u64 seed,
               const std::string& name);
    ~CmccSource() override { *alive_ = false; }

    // ---- script: each takes effect with the next frame or edge ----------------------------------
    CmccWords words;
    void setFault(CmccFault fault, bool on, double amount = 0);

    // ---- queries --------------------------------------------------------------------------------
    const CmccSourceConfig& config() const { return config_; }
    u64 frames() const { return frames_; }             // that went out

    // ---- EdgeSource -----------------------------------------------------------------------------
    bool present() const override { return !faulty(CmccFault::NoPps); }
    ose::Time nextEdge(ose::Time now) override;

private:
    using Frame = std::array<u8, 23>;
    struct Fault { bool on = false; double amount = 0; };

    bool faulty(CmccFault fault) const { return faults_[static_cast<u32>(fault)].on; }
    double amount(CmccFault fault) const { return faults_[static_cast<u32>(fault)].amount; }
    void pulse(i64 second);
    void transmit(ose::Time delay, Frame frame);
    Frame infoFrame(i64 second) const;
    Frame stateFrame() const;
    void after(ose::Time when, std::function<void()> action);

    ose::World& world_;
    SerialPort& serial_;
    CmccSourceConfig config_;
    LineSource pps_;
    Random garble_;
    std::array<Fault, CMCC_FAULTS> faults_{};
    ose::Time lineFree_ = 0;
    u64 frames_ = 0;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace sim
