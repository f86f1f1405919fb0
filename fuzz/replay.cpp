// replay.cpp - Puts the inputs of fuzz_pktsync and fuzz_pcap on an interface, as frames and as datagrams of
// ports 319 and 320 to an address, so many a second, evenly:
//     fuzz_replay INTERFACE ADDRESS [--frames N] [--rate A_SECOND] [--seed N] [--domain N]
#include "fuzz/input.h"
#include "fuzz/wire_inputs.h"

#include <arpa/inet.h>
#include <chrono>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>

namespace {

using fuzz::take;

constexpr std::array<u8, 6> GROUP{0x01, 0x80, 0xC2, 0, 0, 0x0E}, OWN{2, 0, 0, 0, 0, 9};

struct Options {
    u64 frames = 20'000, rate = 400, seed = 1, domain = 0;
};

[[noreturn]] void fail(const char* what)
{
    std::perror(what);
    std::exit(2);
}

class Cable {
public:
    Cable(const char* interface, const char* address, const Options& o) : options_(o)
    {
        frames_ = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
        sockaddr_ll own{};
        own.sll_family = AF_PACKET;
        own.sll_ifindex = static_cast<int>(if_nametoindex(interface));
        if (frames_ < 0 || bind(frames_, reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0)
            fail(interface);
        datagrams_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        to_.sin_family = AF_INET;
        if (inet_pton(AF_INET, address, &to_.sin_addr) != 1) fail(address);
    }
    /// Its events, as fuzz_pktsync takes them, and itself as a frame, as fuzz_pcap does.
    void put(const std::vector<unsigned char>& input)
    {
        fuzz::Input rest(input);
        while (!rest.empty()) putEvent(rest);
        if (input.size() > 2) putFrame(fuzz::frameOf({input.begin() + 1, input.end()}, input[0] >> 6));
    }
    u64 count() const { return sent_ + refused_; }
    u64 sent() const { return sent_; }
    u64 refused() const { return refused_; }

private:
    void putEvent(fuzz::Input& rest)
    {
        const auto domain = static_cast<u8>(options_.domain);
        switch (take<u8>(rest) % 5) {
        case 0:
        case 1: {
            const u8 priority = take<u8>(rest) % 8;
            putFrame(sim::ptp::frame(GROUP, OWN, priority, fuzz::message(rest, domain)));
            break;
        }
        case 2: putDatagram(take<u8>(rest), fuzz::message(rest, domain)); break;
        case 3: putDatagram(take<u8>(rest), fuzz::signaling(rest, domain)); break;
        default: fuzz::takeOctets(rest, take<u8>(rest));           // a signal, which no cable carries
        }
    }
    void putFrame(const std::vector<u8>& octets)
    {
        took(::send(frames_, octets.data(), octets.size(), 0), octets.size());
    }
    void putDatagram(u8 which, const std::vector<u8>& octets)
    {
        to_.sin_port = htons(which % 2 != 0 ? sim::ptp::EVENT_PORT : sim::ptp::GENERAL_PORT);
        took(sendto(datagrams_, octets.data(), octets.size(), 0, reinterpret_cast<const sockaddr*>(&to_),
                    sizeof to_),
             octets.size());
    }
    void took(ssize_t count, std::size_t size)
    {
        ++(count == static_cast<ssize_t>(size) ? sent_ : refused_);
        const std::chrono::microseconds since(1'000'000 * this->count() / options_.rate);
        std::this_thread::sleep_until(began_ + since);
    }

    Options options_;
    int frames_ = -1, datagrams_ = -1;
    sockaddr_in to_{};
    u64 sent_ = 0, refused_ = 0;     // the kernel sends no frame that is shorter than a header
    std::chrono::steady_clock::time_point began_ = std::chrono::steady_clock::now();
};

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 3) {
        std::fprintf(stderr, "fuzz_replay INTERFACE ADDRESS [--frames N] [--rate N] [--seed N] "
                             "[--domain N]\n");
        return 2;
    }
    Options o;
    for (int i = 3; i + 1 < argc; i += 2) {
        const u64 value = std::strtoull(argv[i + 1], nullptr, 10);
        if (std::strcmp(argv[i], "--frames") == 0) o.frames = value;
        if (std::strcmp(argv[i], "--rate") == 0) o.rate = std::max<u64>(value, 1);
        if (std::strcmp(argv[i], "--seed") == 0) o.seed = value;
        if (std::strcmp(argv[i], "--domain") == 0) o.domain = value;
    }
    Cable cable(argv[1], argv[2], o);
    for (u64 number = 0; cable.count() < o.frames; ++number) cable.put(fuzz::inputOf(o.seed, number));
    std::printf("%llu sent, %llu refused\n", static_cast<unsigned long long>(cable.sent()),
                static_cast<unsigned long long>(cable.refused()));
    return 0;
}
