#include "sim/net/host_stamps.h"

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstring>
#include <linux/ethtool.h>
#include <linux/net_tstamp.h>
#include <linux/ptp_clock.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

namespace sim {
namespace {

constexpr i64 NS_PER_s = 1'000'000'000;

struct File {
    int fd;
    explicit File(int opened) : fd(opened) {}
    ~File() { if (fd >= 0) close(fd); }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
};

/// False with errno where the driver has no such thing.
template <typename T>
bool ask(const DeviceCalls& calls, const std::string& interface, unsigned long request, T& data)
{
    const File any(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq r{};
    std::strncpy(r.ifr_name, interface.c_str(), sizeof r.ifr_name - 1);
    r.ifr_data = reinterpret_cast<char*>(&data);
    return calls.control(any.fd, request, &r) == 0;
}

i64 nsOf(const ptp_clock_time& t) { return t.sec * NS_PER_s + t.nsec; }

/// The narrowest of some readings of the card between two of the host.
std::optional<CardClock::Reading> readCard(const DeviceCalls& calls, int fd)
{
    ptp_sys_offset_extended o{};
    o.n_samples = 5;
    if (calls.control(fd, PTP_SYS_OFFSET_EXTENDED, &o) != 0) return std::nullopt;
    CardClock::Reading best{};
    i64 narrowest = INT64_MAX;
    for (unsigned i = 0; i < o.n_samples; ++i) {
        const i64 before = nsOf(o.ts[i][0]), card = nsOf(o.ts[i][1]), after = nsOf(o.ts[i][2]);
        if (after - before >= narrowest) continue;
        narrowest = after - before;
        best = {card, before + narrowest / 2};
    }
    return best;
}

/// The filter that lets PTP's event messages be stamped, as the driver has it.
std::optional<int> filterOf(const ethtool_ts_info& info)
{
    for (const int filter : {HWTSTAMP_FILTER_ALL, HWTSTAMP_FILTER_PTP_V2_EVENT})
        if ((info.rx_filters & (1u << filter)) != 0) return filter;
    return std::nullopt;
}

/// Why the card can't put the time into Sync, or nothing. What its clock is off goes into the
/// correctionField, which holds 39 hours (IEEE 1588-2008 13.3.2.7).
std::string whyNoInsertion(const std::string& driver, const ethtool_ts_info& info, const std::string& device,
                           const CardClock::Reading& reading)
{
    constexpr i64 DAY_ns = 86'400 * NS_PER_s;
    if ((info.tx_types & (1u << HWTSTAMP_TX_ONESTEP_SYNC)) == 0) return "driver " + driver;
    if (std::abs(reading.card_ns - reading.realtime_ns) > DAY_ns)
        return device + " is more than a day off the host's time";
    return {};
}

std::string noInsertion(const std::string& interface, const std::string& why)
{
    return interface + " can't put the time into a Sync that leaves (" + why
           + "): it tells the time before it is sent, early by what the kernel takes";
}

}  // namespace

void CardClock::follow()
{
    const std::optional<Reading> now = read_();
    if (!now) return;
    if (!last_) {
        last_ = now;
        return;
    }
    const i64 passed = now->realtime_ns - last_->realtime_ns;
    if (passed >= 0 && passed < NS_PER_s) return;
    const i64 moved = (now->card_ns - last_->card_ns) - passed;
    constexpr double FASTEST = 1e-3;                 // no two clocks differ by that: one was stepped
    const double rate = passed > 0 ? static_cast<double>(moved) / static_cast<double>(passed) : FASTEST;
    if (std::fabs(rate) >= FASTEST) ++steps_;
    else                            rate_ = rate;
    last_ = now;
}

void CardClock::onHostStep()
{
    if (const std::optional<Reading> now = read_()) last_ = now;
}

std::optional<i64> CardClock::realtimeOf(i64 card_ns) const
{
    if (!last_) return std::nullopt;
    const double since = static_cast<double>(card_ns - last_->card_ns);
    return last_->realtime_ns + std::llround(since / (1.0 + rate_));
}

std::optional<i64> CardClock::cardTimeOf(i64 realtime_ns) const
{
    if (!last_) return std::nullopt;
    const double since = static_cast<double>(realtime_ns - last_->realtime_ns);
    return last_->card_ns + std::llround(since * (1.0 + rate_));
}

InterfaceStamps openStamps(const std::string& interface, bool oneStep, const DeviceCalls& calls)
{
    ethtool_drvinfo driver{};
    driver.cmd = ETHTOOL_GDRVINFO;
    const std::string name = ask(calls, interface, SIOCETHTOOL, driver) ? driver.driver : "unknown";
    const auto software = [&](const std::string& why) {
        return InterfaceStamps{
            nullptr, interface + " has no stamps of its own (" + why + "), the kernel's are taken",
            noInsertion(interface, "driver " + name)};
    };
    ethtool_ts_info info{};
    info.cmd = ETHTOOL_GET_TS_INFO;
    constexpr u32 WANTED = SOF_TIMESTAMPING_TX_HARDWARE | SOF_TIMESTAMPING_RX_HARDWARE
                           | SOF_TIMESTAMPING_RAW_HARDWARE;
    if (!ask(calls, interface, SIOCETHTOOL, info) || (info.so_timestamping & WANTED) != WANTED
        || info.phc_index < 0)
        return software("driver " + name);
    const std::optional<int> filter = filterOf(info);
    if (!filter) return software("driver " + name + " stamps no PTP");
    const std::string device = "/dev/ptp" + std::to_string(info.phc_index);
    const auto file = std::make_shared<File>(calls.open(device));
    const auto reading = file->fd >= 0 ? readCard(calls, file->fd) : std::nullopt;
    if (!reading) return software(device + ": " + std::strerror(errno));
    const std::string refused = oneStep ? whyNoInsertion(name, info, device, *reading) : "not wanted";
    hwtstamp_config config{0, refused.empty() ? HWTSTAMP_TX_ONESTEP_SYNC : HWTSTAMP_TX_ON, *filter};
    if (!ask(calls, interface, SIOCSHWTSTAMP, config))
        return software("driver " + name + ": " + std::strerror(errno));
    return {std::make_unique<CardClock>([calls, file] { return readCard(calls, file->fd); }, refused.empty()),
            interface + " stamps itself, its clock is " + device,
            refused.empty() ? interface + "'s card puts the time into each Sync as it leaves"
                            : noInsertion(interface, refused)};
}

}  // namespace sim
