#include "sim/scenario/unit.h"

#include "base/frame_counter.h"
#include "sim/board/board.h"
#include "sim/net/ptp_master.h"

#include <algorithm>
#include <chrono>
#include <cmath>

namespace sim {

Unit::Unit(ose::World& world, const UnitSpec& spec)
    : world_(world), masterEpoch_(spec.masterEpoch), node_(world, spec.node)
{
    for (const auto& [input, config] : spec.inputs) {
        const bool pps = input == ReferenceInput::Pps;
        const std::string name = spec.node.name + ".input" + std::to_string(static_cast<int>(input));
        auto source = std::make_unique<LineSource>(world, config, pps ? PPS_RATE_Hz : LINE_RATE_Hz,
                                                   world.seed(), name);
        node_.board().connect(input, source.get());
        sources_.emplace(input, std::move(source));
    }
    if (spec.gps) {
        gps_ = std::make_unique<GpsReceiver>(world, node_.serial(), *spec.gps, world.seed(),
                                             spec.node.name + ".gps");
        node_.board().connect(ReferenceInput::Pps, gps_.get());
    }
    for (const EsmcPeerConfig& peer : spec.esmc)
        esmc_.emplace(peer.port, std::make_unique<EsmcPeer>(node_, peer));
    if (spec.cmcc) {
        cmcc_ = std::make_unique<CmccSource>(world, node_.serial(), *spec.cmcc, world.seed(),
                                             spec.node.name + ".cmcc");
        node_.board().connect(ReferenceInput::Pps, cmcc_.get());
    }
    node_.idpi().onDelay([this](u16 port) -> std::optional<IdpiDelay> {
        const auto measured = delays_.find(port);
        return measured != delays_.end() ? measured->second() : std::nullopt;
    });
    node_.inrsi().onFrequency([this](u32 unit) { return answered(unit, farFrequency(unit)); });
    node_.inrsi().onPhase([this](u32 unit) { return answered(unit, farPhase(unit)); });
    world.at(static_cast<ose::Time>(spec.start_s * static_cast<double>(ose::SEC)),
             [this] { node_.powerOn(); });
}

const Unit::RadioEnd* Unit::radioEnd(u32 unit) const
{
    for (const auto& [port, end] : radioEnds_)
        if (end.id == unit) return &end;
    return nullptr;
}

void Unit::setRadioAnswer(u32 unit, RadioAnswer answer)
{
    radioAnswers_[unit] = answer;
    std::set<u32>& silent = node_.inrsi().silentUnits;
    if (answer == RadioAnswer::Silent) silent.insert(unit);
    else                               silent.erase(unit);
}

Unit::RadioAnswer Unit::radioAnswer(u32 unit) const
{
    const auto set = radioAnswers_.find(unit);
    return set != radioAnswers_.end() ? set->second : RadioAnswer::Measured;
}

template <typename T>
std::optional<T> Unit::answered(u32 unit, std::optional<T> measured) const
{
    const RadioAnswer answer = radioAnswer(unit);
    if (answer == RadioAnswer::Rejected) return std::nullopt;
    if (measured && answer == RadioAnswer::Invalid) measured->valid = false;
    return measured;
}

std::optional<InrsiFrequency> Unit::farFrequency(u32 unit)
{
    if (const RadioEnd* const end = radioEnd(unit)) return end->frequency();
    const double ppb = std::clamp(std::round(node_.board().frequencyError() * -1e9), -32768.0, 32767.0);
    return InrsiFrequency{static_cast<i16>(ppb), true};
}

std::optional<InrsiPhase> Unit::farPhase(u32 unit)
{
    if (const RadioEnd* const end = radioEnd(unit)) return end->phase();
    double ahead_s = node_.board().timeError_s();
    for (const InrsiLinkConfig& link : node_.inrsi().config.links)
        if (link.unit == unit) ahead_s -= link.offset_ns * 1e-9;
    const double turns = std::floor(ahead_s / SFN_PERIOD_s);
    return InrsiPhase{static_cast<u64>(std::llround((ahead_s - turns * SFN_PERIOD_s) * 1e12)), true};
}

namespace {

constexpr i64 TAI_AHEAD_OF_GPS = 19;          // s, always

/// s since 1970, without leap seconds.
i64 secondsOf(const MpDate& d)
{
    using namespace std::chrono;
    const sys_days day{year{d.year} / month{d.month} / d.day};
    return day.time_since_epoch().count() * 86400LL + d.hour * 3600 + d.minute * 60 + d.second;
}

}  // namespace

std::optional<i64> Unit::taiAtStart() const
{
    if (gps_) return gps_->config().start + gps_->config().leapSeconds + TAI_AHEAD_OF_GPS;
    if (cmcc_) return cmcc_->config().start + cmcc_->config().leapSeconds + TAI_AHEAD_OF_GPS;
    constexpr u32 PACKET_TIME_CLASS = 4;
    for (const MpPacketRef& r : node_.config().mainProcessor.packetRefs)
        if (r.froClassNo == PACKET_TIME_CLASS) return masterEpoch_;
    return std::nullopt;
}

std::optional<double> Unit::counterAgainstGps_s()
{
    const std::optional<i64> tai = taiAtStart();
    if (!tai) return std::nullopt;
    constexpr i64 TURN_s = 1024;
    constexpr ose::Time TURN = TURN_s * ose::SEC;
    // Frame zero is a date of TAI's scale.
    const i64 sinceZero = *tai - secondsOf(node_.mainProcessor().config.sfnInitTime);
    const ose::Time wanted = ((sinceZero % TURN_s + TURN_s) * ose::SEC + world_.now()) % TURN;
    const double ahead = node_.board().counterTime_s()
                         - static_cast<double>(wanted) / static_cast<double>(ose::SEC);
    return std::remainder(ahead, static_cast<double>(TURN_s));
}

}  // namespace sim
