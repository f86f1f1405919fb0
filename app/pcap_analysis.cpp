#include "app/pcap_analysis.h"

#include "sim/net/heard.h"

#include <algorithm>

namespace app {
namespace {

namespace ptp = sim::ptp;

constexpr i64 NS_PER_s = 1'000'000'000;
constexpr std::size_t KEPT = 256;      // messages that wait for their other half
constexpr i8 NO_INTERVAL = 0x7F;

i64 nsOf(const ptp::Stamp& s) { return static_cast<i64>(s.seconds * static_cast<u64>(NS_PER_s) + s.ns); }
/// ns * 2^16, to the nearest ns.
i64 nsOf(i64 correction) { return (correction + 0x8000) >> 16; }

u16 wordAt(std::span<const u8> b, std::size_t at) { return static_cast<u16>(b[at] << 8 | b[at + 1]); }
u64 stampAt(std::span<const u8> b, std::size_t at)
{
    u64 value = 0;
    for (std::size_t i = 0; i < 8; ++i) value = value << 8 | b[at + i];
    return value;
}

template <typename T>
void keep(std::deque<T>& waiting, T entry)
{
    if (waiting.size() == KEPT) waiting.pop_front();
    waiting.push_back(std::move(entry));
}

std::string wayOf(const PtpCarrier& c, u8 domain)
{
    return (c.packet.isFrame ? "L2" : sim::textOf(c.packet.from)) + " domain " + std::to_string(domain) + " ";
}

}  // namespace

void PcapSeries::take(double t_s, i64 value_ns)
{
    if (points.empty()) base_ns = value_ns;
    points.emplace_back(t_s, static_cast<double>(value_ns - base_ns));
}

PcapSpread spreadOf(const PcapSeries& series)
{
    PcapSpread s;
    s.count = series.points.size();
    if (s.count == 0) return s;
    const double n = static_cast<double>(s.count);
    double t = 0, y = 0;
    double low = series.points[0].second, high = low;
    for (const auto& [at, value] : series.points) {
        t += at / n;
        y += value / n;
        low = std::min(low, value);
        high = std::max(high, value);
    }
    double tt = 0, ty = 0;
    for (const auto& [at, value] : series.points) {
        tt += (at - t) * (at - t);
        ty += (at - t) * (value - y);
    }
    s.slope_ppb = tt > 0 ? ty / tt : 0.0;              // ns/s
    double sum = 0, lowest = 0, highest = 0;
    for (const auto& [at, value] : series.points) {
        const double rest = value - y - s.slope_ppb * (at - t);
        sum += rest * rest;
        lowest = std::min(lowest, rest);
        highest = std::max(highest, rest);
    }
    const double base = static_cast<double>(series.base_ns);
    s.mean_ns = base + y;
    s.min_ns = base + low;
    s.max_ns = base + high;
    s.deviation_ns = std::sqrt(sum / n);
    s.peak_ns = highest - lowest;
    return s;
}

void PcapAnalysis::take(const PcapPacket& packet, const std::optional<PtpCarrier>& ptp)
{
    if (!began_ns_) began_ns_ = packet.time_ns;
    duration_s = std::max(duration_s, seconds(packet.time_ns));
    if (ptp) return takePtp(*ptp, packet.time_ns);
    constexpr u16 SLOW_PROTOCOLS = 0x8809;
    constexpr std::size_t TYPE_AT = 12;
    if (packet.frame.size() < TYPE_AT + 2) return;
    if (wordAt(packet.frame, TYPE_AT) == SLOW_PROTOCOLS) takeEsmc(packet.frame, seconds(packet.time_ns));
    else takeNtp(packet);
}

// ---- PTP ----------------------------------------------------------------------------------------

void PcapAnalysis::takePtp(const PtpCarrier& c, i64 at_ns)
{
    const std::span<const u8> octets = c.message();
    const auto m = ptp::read(octets.data(), octets.size());
    if (!m || c.isCut) return;
    const std::string way = wayOf(c, m->domain), source = sim::textOf(m->source), master = way + source;
    if (m->type == ptp::ANNOUNCE || m->type == ptp::SYNC || m->type == ptp::DELAY_REQ
        || m->type == ptp::DELAY_RESP)
        takeFlow(master + " " + ptp::typeName(m->type), *m, seconds(at_ns));
    constexpr u8 TWO_STEP = 0x02;
    switch (m->type) {
    case ptp::SYNC: {
        const Sync sync{m->sequence, at_ns, m->correction};
        if ((m->flags0 & TWO_STEP) != 0) keep(syncs_[master], sync);
        else takeOrigin(master, sync, *m, 0);
        return;
    }
    case ptp::FOLLOW_UP: {
        std::deque<Sync>& waiting = syncs_[master];
        const auto sync = std::find_if(waiting.rbegin(), waiting.rend(),
                                       [&](const Sync& s) { return s.sequence == m->sequence; });
        if (sync == waiting.rend()) return;
        takeOrigin(master, *sync, *m, m->correction);
        waiting.erase(waiting.begin(), sync.base());
        return;
    }
    case ptp::DELAY_REQ: return keep(requests_, {source, m->sequence, at_ns, m->correction});
    case ptp::DELAY_RESP: return takeResponse(master, sim::textOf(m->requesting), *m, at_ns);
    default: return;
    }
}

void PcapAnalysis::takeFlow(const std::string& key, const ptp::Message& m, double t_s)
{
    PcapFlow& f = flows[key];
    constexpr i8 SLOWEST = 13;
    if (m.logInterval != NO_INTERVAL && m.type != ptp::DELAY_REQ && std::abs(m.logInterval) <= SLOWEST)
        f.told_s = std::ldexp(1.0, m.logInterval);
    if (f.count == 0) {
        f.first_s = t_s;
    } else {
        const double interval_s = t_s - f.last_s;
        f.intervals_s.push_back(static_cast<float>(interval_s));
        if (interval_s > f.longest_s) {
            f.longest_s = interval_s;
            f.longestAt_s = t_s;
        }
        const u16 step = static_cast<u16>(m.sequence - *f.sequence);
        constexpr u16 AHEAD = 0x8000;                // beyond, the number has gone back
        if (m.type == ptp::DELAY_RESP) {             // numbered by those who ask
        } else if (step == 0) {
            ++f.repeated;
        } else if (step < AHEAD) {
            f.lost += step - 1u;
        }
    }
    f.sequence = m.sequence;
    f.last_s = t_s;
    ++f.count;
}

void PcapAnalysis::takeOrigin(const std::string& master, const Sync& sync, const ptp::Message& origin,
                              i64 correction)
{
    PcapMasterDelays& d = masters[master];
    const i64 corrected = nsOf(sync.correction + correction);
    const i64 down = static_cast<i64>(static_cast<u64>(sync.at_ns) - static_cast<u64>(nsOf(origin.stamp)))
                     - corrected;
    d.sync.take(seconds(sync.at_ns), down);
    d.correction.take(seconds(sync.at_ns), corrected);
    lastDown_ns_[master] = down;
}

void PcapAnalysis::takeResponse(const std::string& master, const std::string& slave, const ptp::Message& m,
                                i64 at_ns)
{
    const auto request = std::find_if(requests_.rbegin(), requests_.rend(), [&](const Request& r) {
        return r.sequence == m.sequence && r.slave == slave;
    });
    const auto down = lastDown_ns_.find(master);
    if (request == requests_.rend() || down == lastDown_ns_.end() || at_ns - request->at_ns > 10 * NS_PER_s)
        return;
    const i64 up = static_cast<i64>(static_cast<u64>(nsOf(m.stamp)) - static_cast<u64>(request->at_ns))
                   - nsOf(m.correction);
    PcapExchanges& e = exchanges[master + " with " + slave];
    const double t_s = seconds(request->at_ns);
    e.path.take(t_s, (down->second + up) / 2);
    e.offset.take(t_s, (down->second - up) / 2);
    e.correction.take(t_s, nsOf(m.correction));
    requests_.erase(std::next(request).base());
}

// ---- beside PTP ---------------------------------------------------------------------------------

/// ITU-T G.8264 11.3.1: OUI, subtype 1, version and event flag, and the quality level in a TLV.
void PcapAnalysis::takeEsmc(std::span<const u8> f, double t_s)
{
    constexpr std::size_t SUBTYPE_AT = 14, OUI_AT = 15, ITU_SUBTYPE_AT = 18, FLAGS_AT = 20, LEVEL_AT = 27;
    constexpr u8 ESMC_SUBTYPE = 0x0A, EVENT = 0x08;
    constexpr double SILENT_s = 5.0;
    if (f.size() <= LEVEL_AT || f[SUBTYPE_AT] != ESMC_SUBTYPE || f[OUI_AT] != 0x00 || f[OUI_AT + 1] != 0x19
        || f[OUI_AT + 2] != 0xA7 || wordAt(f, ITU_SUBTYPE_AT) != 1)
        return;
    constexpr std::size_t SENDER_AT = 6;
    PcapEsmc& e = esmc[sim::textOf(f.data() + SENDER_AT)];
    const u8 level = f[LEVEL_AT] & 0x0F;
    if (e.count == 0) e.first_s = t_s;
    else if (t_s - e.last_s > SILENT_s) ++e.gaps;
    if (e.levels.empty() || e.levels.back().second != level) e.levels.emplace_back(t_s, level);
    e.events += (f[FLAGS_AT] & EVENT) != 0;
    e.last_s = t_s;
    ++e.count;
}

/// RFC 5905 figure 8; the stamp that a server sends back tells which request it answers.
void PcapAnalysis::takeNtp(const PcapPacket& packet)
{
    const std::optional<UdpCarrier> udp = udpOf(packet);
    constexpr u16 NTP_PORT = 123;
    constexpr std::size_t OCTETS = 48, ORIGIN_AT = 24, RECEIVE_AT = 32, TRANSMIT_AT = 40;
    if (!udp || (udp->fromPort != NTP_PORT && udp->toPort != NTP_PORT) || udp->bytes.size() < OCTETS) return;
    constexpr u8 CLIENT = 3, SERVER = 4;
    const u8 mode = udp->bytes[0] & 7;
    const std::string from = sim::textOf(udp->from), to = sim::textOf(udp->to);
    if (mode == CLIENT) {
        const std::string way = to + " with " + from;
        ++ntp[way].requests;
        return keep(ntpRequests_, {way, stampAt(udp->bytes, TRANSMIT_AT), packet.time_ns});
    }
    if (mode != SERVER) return;
    const std::string way = from + " with " + to;
    PcapNtp& n = ntp[way];
    ++n.answers;
    n.stratum = udp->bytes[1];
    const u64 origin = stampAt(udp->bytes, ORIGIN_AT);
    const auto request = std::find_if(ntpRequests_.rbegin(), ntpRequests_.rend(),
                                      [&](const NtpRequest& r) { return r.way == way && r.stamp == origin; });
    if (request == ntpRequests_.rend()) return;
    const auto nsOfNtp = [](u64 stamp) {             // since 1970, of the era that began in 1900
        constexpr i64 FROM_1900_TO_1970_s = 2'208'988'800;
        return (static_cast<i64>(stamp >> 32) - FROM_1900_TO_1970_s) * NS_PER_s
               + static_cast<i64>((stamp & 0xFFFFFFFF) * NS_PER_s >> 32);
    };
    const i64 up = nsOfNtp(stampAt(udp->bytes, RECEIVE_AT)) - request->at_ns;
    const i64 down = packet.time_ns - nsOfNtp(stampAt(udp->bytes, TRANSMIT_AT));
    n.path.take(seconds(request->at_ns), (down + up) / 2);
    n.offset.take(seconds(request->at_ns), (down - up) / 2);
    ntpRequests_.erase(std::next(request).base());
}

void PcapAnalysis::finish()
{
    constexpr double MISSED = 2.5;
    for (auto& [name, f] : flows) {
        const double interval_s = f.told_s.value_or(f.mean_s());
        f.gaps = static_cast<u64>(std::ranges::count_if(
            f.intervals_s, [&](float i) { return static_cast<double>(i) > MISSED * interval_s; }));
        f.intervals_s.clear();
    }
}

}  // namespace app
