// host_gps.h - A real GPS receiver at the unit: its serial line is a tty of the machine (or a pty that
// replays a log), its pulse the kernel's PPS device, or without one the whole seconds of the host's time of
// day while sentences come.
//
// A pulse is seen when it lies behind the host. The world mostly hasn't come there yet, and gives it to the
// board at its time; else the board is given the one that follows, a second later.
// Errors  a device that can't be used throws HostError; one that goes away is tried again each second.
#pragma once
#include "sim/board/edge_source.h"
#include "sim/net/host_clock.h"
#include "sim/net/host_device.h"
#include "sim/net/host_port.h"
#include "sim/node/serial_port.h"

#include <functional>
#include <string>

namespace sim {

class HostGps : public HostDevice, public EdgeSource {
public:
    struct Counts {
        u64 bytes = 0;               // that came
        u64 flooded = 0;             // of those, more than the line's speed can bring: dropped
        u64 sentences = 0;           // with a right checksum
        u64 sent = 0, unsent = 0;    // bytes to the receiver, and what the line didn't take
        u64 pulses = 0;
        u32 hangups = 0;
    };
    /// `pps` may be empty. All must outlive it.
    HostGps(ose::World& world, HostClock& clock, SerialPort& serial, const std::string& tty,
            const std::string& pps, DeviceCalls calls = DeviceCalls::kernel());
    ~HostGps() override;

    /// Told what goes wrong with the line or the pulse, and when it is well again.
    void onWord(std::function<void(const std::string&)> tell) { tell_ = std::move(tell); }
    const Counts& counts() const { return counts_; }
    const std::string& tty() const { return tty_; }
    const std::string& pps() const { return pps_; }

    // ---- HostDevice -----------------------------------------------------------------------------
    void take() override;
    void waitFor(std::vector<pollfd>& fds) const override;

    // ---- EdgeSource -----------------------------------------------------------------------------
    bool present() const override { return pulsing_; }
    ose::Time nextEdge(ose::Time now) override;

private:
    std::string openLine();          // why it can't be, or nothing
    void hangUp(const std::string& why);
    void reopen();
    void takeBytes();
    void follow(u8 byte);
    std::string openPulse();
    void fetchPulse();
    void losePulse(const std::string& why);
    void reopenPulse();
    void takePulse();
    void judge();
    void judgeLine(u64 bytes, u64 sentences);
    void judgePulse(u64 sentences, u64 pulses);
    void send(const std::vector<u8>& bytes);
    void say(const std::string& text) const
    {
        if (tell_) tell_(text);
    }

    ose::World& world_;
    HostClock& clock_;
    SerialPort& serial_;
    std::string tty_, pps_;
    DeviceCalls calls_;
    int line_ = -1, pulse_ = -1;
    std::function<void(const std::string&)> tell_;
    Counts counts_;
    double allowance_ = 0;           // bytes that the line's speed still allows
    ose::Time allowedAt_ = 0, triedAt_ = 0, judgedAt_ = 0, sentenceAt_ = -1;
    u64 judgedBytes_ = 0, judgedSentences_ = 0, judgedPulses_ = 0;
    bool complained_ = false, missesPulse_ = false;
    std::string sentence_;           // under way, from "$" on
    ose::Time pulseAt_ = -1;         // the last
    ose::Time foretold_ = -ose::SEC, passed_ = -ose::SEC;    // edges: given to the board, and gone by
    ose::Time pulseTriedAt_ = 0;
    u32 pulseNumber_ = 0;
    bool pulsing_ = false;
};

}  // namespace sim
