// host_port.h - A host of the packet network on an interface of the machine: PTP frames through a raw packet
// socket, datagrams of ports 319 and 320 through UDP sockets that are bound to the interface, both with the
// kernel's stamps (SO_TIMESTAMPING).
#pragma once
#include "sim/net/heard.h"
#include "sim/net/host_clock.h"
#include "sim/net/host_stamps.h"
#include "sim/net/network.h"

#include <deque>
#include <poll.h>
#include <span>
#include <stdexcept>

namespace sim {

/// An interface that can't be used; one line tells which and why.
struct HostError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class HostPort : public Wire {
public:
    struct Counts {
        u32 received = 0, sent = 0;
        u32 failed = 0;              // sends that the kernel refused
        u32 unstamped = 0;           // event messages that came without a stamp, left out
        u32 unusable = 0;            // of no header's length, or beyond any PTP message's: left out
        u32 lostStamps = 0;          // of what was sent
        u32 errors = 0;              // of the interface, as when it goes down
    };

    /// `card` is whose stamps are taken, nullptr for the kernel's. Throws HostError.
    HostPort(ose::World& world, HostClock& clock, NetHost& host, const std::string& interface,
             const CardClock* card);
    ~HostPort() override;

    // ---- Wire -----------------------------------------------------------------------------------
    void send(const NetPacket& packet, Left left) override;
    bool carriesDatagrams() const override { return event_.fd >= 0; }
    Leaving leaving() const override;

    /// Takes what has come: packets and stamps of those sent become events of the world, none before its
    /// time.
    void take();
    void waitFor(std::vector<pollfd>& fds) const;
    /// Tells it what comes to the host's address, and of frames what comes to the groups if nobody else does.
    void reportTo(HeardMasters& heard, bool ofGroupsToo)
    {
        heard_ = &heard;
        reportsGroups_ = ofGroupsToo;
    }
    /// The interface is gone (0) or is another one of its name.
    void reopen(unsigned index, const CardClock* card);
    /// What couldn't be opened may be now: the interface has the host's address, say. True when a socket that
    /// was closed by somebody else has been opened anew.
    bool lookAgain();
    const std::string& interface() const { return interface_; }
    NetHost& host() const { return host_; }
    const Counts& counts() const { return counts_; }
    /// Why there are no datagrams.
    const std::string& noDatagrams() const { return noDatagrams_; }

private:
    struct Unstamped { std::vector<u8> message; ose::Time sent; Left left; };
    struct Socket {
        int fd = -1;
        u16 port = 0;                // of UDP, 0 for frames
        int tos = 0;
        std::deque<Unstamped> waiting;
    };
    struct Received;

    void open();
    void closeAll();
    void openFrames();
    void openBothDatagrams();
    std::string openDatagrams(Socket& s, u16 port);
    [[noreturn]] void fail(const std::string& what) const;
    bool receive(Socket& s, Received& r, int flags);
    void takePackets(Socket& s);
    void takeStamps(Socket& s);
    void takePacket(const Socket& s, const Received& r);
    void report(const NetPacket& packet) const;
    int stampFlags() const;
    std::optional<ose::Time> timeOf(const Received& r) const;
    bool sendOn(Socket& s, const NetPacket& packet, bool wantsStamp);

    ose::World& world_;
    HostClock& clock_;
    NetHost& host_;
    std::string interface_;
    unsigned index_ = 0;
    Socket frames_, event_, general_;
    std::string noDatagrams_;
    const CardClock* card_;
    HeardMasters* heard_ = nullptr;
    bool reportsGroups_ = false;
    bool wasClosed_ = false;         // a socket, not by this port
    Counts counts_;
};

}  // namespace sim
