#include "sim/node/serial_port.h"

#include "sim/node/node.h"

namespace sim {

int SerialPort::open(const char* device, u32 vector, const node::SerialSetting* settings, std::size_t count)
{
    if (device_ != device) return SERIAL_NO_DEVICE;
    if (openResult != 0) return openResult;
    if (open_) return SERIAL_BUSY;
    open_ = true;
    vector_ = vector;
    settings_.assign(settings, settings + count);
    return 0;
}

int SerialPort::close(const char* device)
{
    if (device_ != device) return SERIAL_NO_DEVICE;
    if (!open_) return SERIAL_NOT_OPEN;
    open_ = false;
    rx_.clear();
    return closeResult;
}

int SerialPort::write(const char* device, const u8* bytes, std::size_t count)
{
    if (device_ != device) return SERIAL_NO_DEVICE;
    if (!open_) return SERIAL_NOT_OPEN;
    if (writeResult != 0) return writeResult;
    sent_ += count;
    // The far end runs as an event of the world: what it does in return can't meet the sender
    // halfway.
    if (peer_ || listener_)
        node_.after(0, [this, sent = std::vector<u8>(bytes, bytes + count)] {
            if (peer_) peer_(sent);
            if (listener_) listener_(sent);
        });
    return 0;
}

std::size_t SerialPort::read(const char* device, u8* bytes, std::size_t room)
{
    if (device_ != device || !open_) return 0;
    std::size_t n = 0;
    for (; n < room && !rx_.empty(); ++n) {
        bytes[n] = rx_.front();
        rx_.pop_front();
    }
    return n;
}

void SerialPort::feed(const u8* bytes, std::size_t count)
{
    if (!open_) {
        lost_ += count;
        return;
    }
    for (std::size_t i = 0; i < count; ++i) {
        if (rx_.size() >= rxCapacity) ++lost_;
        else rx_.push_back(bytes[i]);
    }
    node_.system().raise(vector_);
}

void SerialPort::feed(const std::string& text)
{
    feed(reinterpret_cast<const u8*>(text.data()), text.size());
}

void SerialPort::programGone()
{
    open_ = false;
    rx_.clear();
}

}  // namespace sim
