// serial_port.h - The board's one UART as the node's serial driver offers it.
#pragma once
#include "node/platform.h"
#include "ose/world.h"

#include <deque>
#include <functional>
#include <string>
#include <vector>

namespace sim {

class Node;

constexpr int SERIAL_NO_DEVICE = 8;
constexpr int SERIAL_BUSY = 4;        // already open
constexpr int SERIAL_NOT_OPEN = 5;

class SerialPort {
public:
    SerialPort(Node& node, std::string device) : node_(node), device_(std::move(device)) {}

    // ---- the driver's calls ---------------------------------------------------------------------
    int open(const char* device, u32 vector, const node::SerialSetting* settings, std::size_t count);
    int close(const char* device);
    int write(const char* device, const u8* bytes, std::size_t count);
    std::size_t read(const char* device, u8* bytes, std::size_t room);

    // ---- the far end ----------------------------------------------------------------------------
    /// Bytes that come in: they wait in the receive buffer and raise the port's interrupt. Lost
    /// while the port is closed, beyond `rxCapacity` the newest are.
    void feed(const u8* bytes, std::size_t count);
    void feed(const std::string& text);
    /// Called with what the program sends: the receiver that the unit commands, and one more listener
    /// at the line.
    void onSent(std::function<void(const std::vector<u8>&)> peer) { peer_ = std::move(peer); }
    void onHeard(std::function<void(const std::vector<u8>&)> listener) { listener_ = std::move(listener); }

    // ---- script, queries ------------------------------------------------------------------------
    int openResult = 0;                // nonzero: the next opens fail with it
    int writeResult = 0;
    int closeResult = 0;               // nonzero: told though the port is closed
    std::size_t rxCapacity = 4096;
    bool isOpen() const { return open_; }
    u32 vector() const { return vector_; }
    const std::vector<node::SerialSetting>& settings() const { return settings_; }
    u64 lost() const { return lost_; }      // received bytes that found no room or no open port
    u64 sent() const { return sent_; }
    const std::string& device() const { return device_; }
    /// The program is gone: its port is closed.
    void programGone();

private:
    Node& node_;
    std::string device_;
    bool open_ = false;
    u32 vector_ = 0;
    std::vector<node::SerialSetting> settings_;
    std::deque<u8> rx_;
    u64 lost_ = 0;
    u64 sent_ = 0;
    std::function<void(const std::vector<u8>&)> peer_, listener_;
};

}  // namespace sim
