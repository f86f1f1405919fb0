#include "sim/net/ptp_master.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace sim {

namespace {

constexpr MacAddress FORWARDABLE{0x01, 0x1B, 0x19, 0, 0, 0};
constexpr MacAddress NON_FORWARDABLE{0x01, 0x80, 0xC2, 0, 0, 0x0E};
constexpr u8 ALTERNATE_MASTER = 0x01, TWO_STEP = 0x02, UNICAST = 0x04;
constexpr double FOLLOW_UP_LATER_s = 200e-6, DELAY_RESP_LATER_s = 100e-6, GRANT_LATER_s = 1e-3;
constexpr u8 NO_INTERVAL = 0x7F;

double intervalOf(i8 log) { return std::ldexp(1.0, log); }
double seconds(ose::Time t) { return static_cast<double>(t) * 1e-12; }
u8 controlOf(u8 type)
{
    return type == ptp::SYNC ? 0 : type == ptp::FOLLOW_UP ? 2 : type == ptp::DELAY_RESP ? 3 : 5;
}

}  // namespace

PtpMaster::PtpMaster(ose::World& world, Network& network, const PtpMasterConfig& c)
    : config(c), world_(world), network_(network)
{
    network_.attach(*this);
    if (config.unicast) return;      // it speaks when it is asked to
    every(&PtpMasterConfig::logAnnounce, &PtpMaster::announce);
    every(&PtpMasterConfig::logSync, &PtpMaster::sync);
}

void PtpMaster::after(double s, std::function<void()> action)
{
    world_.after(static_cast<ose::Time>(std::llround(s * 1e12)),
                 [alive = alive_, action = std::move(action)] {
                     if (*alive) action();
                 });
}

void PtpMaster::every(i8 PtpMasterConfig::*log, void (PtpMaster::*what)())
{
    after(intervalOf(config.*log), [this, log, what] {
        (this->*what)();
        every(log, what);
    });
}

// ---- time ---------------------------------------------------------------------------------------

void PtpMaster::stepTime(double s) { config.offset_s += s; }

void PtpMaster::setFrequency(double ppb)
{
    const double at = seconds(world_.now());
    drifted_s_ += (at - driftSince_s_) * config.frequency_ppb * 1e-9;
    driftSince_s_ = at;
    config.frequency_ppb = ppb;
}

/// Whole seconds and their rest apart: a double can't hold both to the ns.
ptp::Stamp PtpMaster::stampOf(ose::Time t, double later_s) const
{
    constexpr i64 NS = 1'000'000'000, PS_PER_S = 1'000'000'000'000;
    const double drift = drifted_s_ + (seconds(t) - driftSince_s_) * config.frequency_ppb * 1e-9
                         + config.offset_s + later_s;
    double ns = static_cast<double>(t % PS_PER_S) * 1e-3 + drift * 1e9;
    const double step = config.stampResolution_ns;
    if (step > 0) ns = std::floor(ns / step) * step;
    i64 whole = static_cast<i64>(std::floor(ns));
    i64 s = config.epoch + t / PS_PER_S + whole / NS;
    whole %= NS;
    if (whole < 0) {
        whole += NS;
        --s;
    }
    return {static_cast<u64>(s), static_cast<u32>(whole)};
}

// ---- messages -----------------------------------------------------------------------------------

ptp::Message PtpMaster::message(u8 type) const
{
    ptp::Message m;
    m.type = type;
    m.version = config.version;
    m.domain = config.domain;
    m.flags0 = static_cast<u8>((config.unicast ? UNICAST : 0)
                               | (config.alternateMaster ? ALTERNATE_MASTER : 0));
    m.source = {config.identity, config.portNumber};
    m.control = controlOf(type);
    return m;
}

void PtpMaster::send(const ptp::Message& m, const NetAddress* to, bool isEvent, const Left& left)
{
    NetPacket packet;
    const std::vector<u8> octets = ptp::write(m);
    if (to == nullptr) {
        const MacAddress& group = config.nonForwardable ? NON_FORWARDABLE : FORWARDABLE;
        packet.bytes = ptp::frame(group, config.mac, 0, octets);
    } else {
        packet.isFrame = false;
        packet.bytes = octets;
        packet.from = config.address;
        packet.to = *to;
        packet.fromPort = packet.toPort = isEvent ? ptp::EVENT_PORT : ptp::GENERAL_PORT;
    }
    network_.send(*this, packet, left);
}

void PtpMaster::announce() { sendAnnounce(nullptr); }
void PtpMaster::sync() { sendSync(nullptr, config.logSync); }

void PtpMaster::sendAnnounce(const NetAddress* to)
{
    if (!config.announces) return;
    ptp::Message m = message(ptp::ANNOUNCE);
    m.flags1 = config.flags;
    m.sequence = sequence_[ptp::ANNOUNCE]++;
    m.logInterval = config.logAnnounce;
    m.utcOffset = config.utcOffset;
    m.priority1 = config.priority1;
    m.clockClass = config.clockClass;
    m.accuracy = config.accuracy;
    m.variance = config.variance;
    m.priority2 = config.priority2;
    m.grandmaster = config.identity;
    m.steps = config.steps;
    m.timeSource = config.timeSource;
    send(m, to, false);
}

void PtpMaster::sendSync(const NetAddress* to, i8 logInterval)
{
    if (!config.syncs) return;
    ptp::Message m = message(ptp::SYNC);
    m.sequence = sequence_[ptp::SYNC]++;
    m.logInterval = logInterval;
    m.correction = std::llround(config.correction_ns * 65536.0);
    // What the correction says has passed since the origin.
    const double since_s = config.correction_ns * 1e-9;
    if (!config.twoStep) {
        const Leaving leaving = network_.leaving(*this);
        m.stamp = stampOf(leaving.at, -since_s);
        if (leaving.inserted_ns) leaveOrigin(m, *leaving.inserted_ns);
        return send(m, to, true);
    }
    m.flags0 |= TWO_STEP;
    ptp::Message follow = message(ptp::FOLLOW_UP);
    follow.sequence = m.sequence;
    follow.logInterval = logInterval;
    const std::optional<NetAddress> slave = to != nullptr ? std::optional(*to) : std::nullopt;
    send(m, to, true, [this, alive = alive_, follow, slave, since_s](ose::Time at) mutable {
        if (!*alive) return;
        follow.stamp = stampOf(at, -since_s);
        after(FOLLOW_UP_LATER_s, [this, follow, slave] { send(follow, slave ? &*slave : nullptr, false); });
    });
}

/// The origin is the card's to write, by its own clock: the correction tells what this clock is ahead of it.
void PtpMaster::leaveOrigin(ptp::Message& m, i64 card_ns)
{
    constexpr i64 NS = 1'000'000'000;
    constexpr i64 TOO_BIG = INT64_MAX;   // to be represented (IEEE 1588-2008 13.3.2.7)
    constexpr i64 LARGEST_ns = (TOO_BIG >> 16) - NS;
    const i64 ahead_ns = static_cast<i64>(m.stamp.seconds) * NS + m.stamp.ns - card_ns;
    m.correction = std::abs(ahead_ns) < LARGEST_ns ? m.correction + ahead_ns * 65536 : TOO_BIG;
    m.stamp = {};
}

void PtpMaster::onPacket(const NetPacket& packet)
{
    const std::size_t at = packet.isFrame ? ptp::messageAt(packet.bytes) : 0;
    if (packet.isFrame != !config.unicast || (packet.isFrame && at == 0)) return;
    const auto m = ptp::read(packet.bytes.data() + at, packet.bytes.size() - at);
    if (!m || m->domain != config.domain) return;
    if (m->type == ptp::DELAY_REQ) onDelayReq(*m, packet);
    if (m->type == ptp::SIGNALING && config.unicast) onSignaling(*m, packet);
}

void PtpMaster::onDelayReq(const ptp::Message& m, const NetPacket& packet)
{
    ++requests_;
    if (!config.responds) return;
    i8 log = config.logDelayReq;
    if (config.unicast) {
        const auto contract = contracts_.find({packet.from.octets, ptp::DELAY_RESP});
        if (contract == contracts_.end() || contract->second.until < world_.now()) return;
        log = NO_INTERVAL;
    }
    ptp::Message r = message(ptp::DELAY_RESP);
    r.sequence = m.sequence;
    r.logInterval = log;
    r.correction = m.correction;
    r.stamp = stampOf(world_.now() - packet.age);
    r.requesting = m.source;
    const NetAddress slave = packet.from;
    after(DELAY_RESP_LATER_s, [this, r, slave] { send(r, config.unicast ? &slave : nullptr, false); });
}

// ---- contracts ----------------------------------------------------------------------------------

void PtpMaster::tell(const NetAddress& slave, u16 tlv, std::vector<u8> value)
{
    ptp::Message m = message(ptp::SIGNALING);
    m.sequence = sequence_[ptp::SIGNALING]++;
    m.logInterval = NO_INTERVAL;
    m.target.clock.fill(0xFF);
    m.target.number = 0xFFFF;
    m.tlvs.push_back({tlv, std::move(value)});
    after(GRANT_LATER_s, [this, m, slave] { send(m, &slave, false); });
}

void PtpMaster::onSignaling(const ptp::Message& m, const NetPacket& packet)
{
    if (!config.answers) return;
    slaves_[packet.from.octets] = packet.from;
    for (const ptp::Message::Tlv& tlv : m.tlvs) {
        if (tlv.type == ptp::TLV_REQUEST) onRequest(packet.from, tlv.value);
        if (tlv.type == ptp::TLV_CANCEL) onCancel(packet.from, tlv.value);
    }
}

void PtpMaster::onRequest(const NetAddress& slave, const std::vector<u8>& value)
{
    constexpr std::size_t OCTETS = 6;
    if (value.size() < OCTETS) return;
    const u8 type = value[0] >> 4;
    const i8 log = std::max(static_cast<i8>(value[1]), config.fastest);
    const u32 wanted = u32{value[2]} << 24 | u32{value[3]} << 16 | u32{value[4]} << 8 | value[5];
    const u32 granted = config.grants ? std::min(wanted, config.longest_s) : 0;
    tell(slave, ptp::TLV_GRANT,
         {static_cast<u8>(type << 4), static_cast<u8>(log), static_cast<u8>(granted >> 24),
          static_cast<u8>(granted >> 16), static_cast<u8>(granted >> 8), static_cast<u8>(granted), 0, 1});
    if (granted == 0) return;
    Contract& c = contracts_[{slave.octets, type}];
    const bool runs = c.until > world_.now() && c.logInterval == log;
    c.until = world_.now() + static_cast<ose::Time>(granted) * ose::SEC;
    c.logInterval = log;
    if (runs || type == ptp::DELAY_RESP) return;
    ++c.life;
    runContract(slave, type);
}

void PtpMaster::onCancel(const NetAddress& slave, const std::vector<u8>& value)
{
    if (value.empty()) return;
    const u8 type = value[0] >> 4;
    contracts_.erase({slave.octets, type});
    tell(slave, ptp::TLV_ACK_CANCEL, {static_cast<u8>(type << 4), 0});
}

void PtpMaster::runContract(const NetAddress& slave, u8 type)
{
    const auto found = contracts_.find({slave.octets, type});
    if (found == contracts_.end()) return;
    const i8 log = found->second.logInterval;
    after(intervalOf(log), [this, slave, type, log, life = found->second.life] {
        const auto c = contracts_.find({slave.octets, type});
        if (c == contracts_.end() || c->second.life != life || c->second.until < world_.now()) return;
        if (type == ptp::ANNOUNCE) sendAnnounce(&slave);
        if (type == ptp::SYNC) sendSync(&slave, log);
        runContract(slave, type);
    });
}

void PtpMaster::cancelContracts()
{
    for (const auto& [key, contract] : std::exchange(contracts_, {}))
        tell(slaves_[key.first], ptp::TLV_CANCEL, {static_cast<u8>(key.second << 4), 0});
}

}  // namespace sim
