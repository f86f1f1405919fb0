#include "sim/refs/gps_receiver.h"

#include <algorithm>
#include <cmath>

namespace sim {
namespace {

using ose::SEC;

constexpr ose::Time BYTE = SEC / 960;              // 9600 bit/s, ten bits a byte
constexpr double TRACKED_dB = 28.0;
constexpr i64 LOOK_s = 10;                         // satellites move by 0.1 degrees
constexpr u32 FIRST_FIX_SATELLITES = 4, TIME_SATELLITES = 1;

// Seconds between two of a kind, and which of them it is.
constexpr u32 VERSION_EVERY = 30, POSITION_EVERY = 5, AVERAGE_EVERY = 10, SATELLITES_EVERY = 10,
              ALMANAC_EVERY = 60;

ose::Time lengthOf(const std::string& text) { return static_cast<ose::Time>(text.size()) * BYTE; }

LineConfig alwaysThere(LineConfig pps)
{
    pps.present = true;
    pps.frequency_ppb = 0.0;
    return pps;
}

}  // namespace

GpsReceiver::GpsReceiver(ose::World& world, SerialPort& serial, const GpsReceiverConfig& config,
                         u64 seed, const std::string& name)
    : world_(world), serial_(serial), config_(config),
      pps_(world, alwaysThere(config.pps), PPS_RATE_Hz, seed, name + ".pps"),
      garble_(seed, name + ".garbled"), sky_(config.latitude, config.longitude),
      firstSecond_(config.start - nmea::GPS_EPOCH + config.leapSeconds), protocol_(config.protocol)
{
    pps_.changed = [this] {
        if (changed) changed();
    };
    serial_.onSent([this](const std::vector<u8>& bytes) { onBytes(bytes); });
    if (config.powered) setPowered(true);
}

GpsReceiver::~GpsReceiver()
{
    *alive_ = false;
    serial_.onSent(nullptr);
}

void GpsReceiver::after(ose::Time when, std::function<void()> action)
{
    world_.at(when, [alive = alive_, action = std::move(action)] {
        if (*alive) action();
    });
}

// ---- script -------------------------------------------------------------------------------------

void GpsReceiver::setPowered(bool on)
{
    if (powered_ == on) return;
    powered_ = on;
    almanac_ = false;
    surveyed_ = 0;
    wantsHold_ = true;
    goSilent(on ? config_.bootTime : 0);
}

void GpsReceiver::replace(GpsModel model, GpsProtocol protocol, const std::string& firmware)
{
    setPowered(false);
    config_.model = model;
    config_.firmware = firmware;
    protocol_ = protocol;
    setPowered(true);
}

void GpsReceiver::restart(GpsRestart kind)
{
    if (!powered_) return;
    ++moduleRestarts_;
    if (kind == GpsRestart::Unit) ++unitResets_;
    if (kind != GpsRestart::Module) {
        almanac_ = false;
        surveyed_ = 0;
    }
    heal(kind == GpsRestart::Unit ? GpsHealedBy::Unit : GpsHealedBy::Module);
    goSilent(kind == GpsRestart::Unit ? config_.unitResetTime : config_.restartTime);
}

void GpsReceiver::setProtocol(GpsProtocol protocol)
{
    protocol_ = protocol;
    if (powered_) scheduleTick();
}

void GpsReceiver::setSentenceDelay(ose::Time delay)
{
    config_.sentenceDelay = delay;
    if (powered_) scheduleTick();
}

void GpsReceiver::setFault(const GpsFaultOrder& order)
{
    endFault(order.fault);
    Fault& f = faults_[static_cast<u32>(order.fault)];
    ++f.order;
    if (order.on) {
        f.on = true;
        f.amount = order.amount;
        f.healedBy = order.healedBy;
        f.restarts = std::max(order.restarts, 1u);
        if (order.fault == GpsFault::BadPulses) pps_.addPhase(f.amount * 1e-9);
        if (order.fault == GpsFault::Deaf) fillers_ = 0;
        if (order.lasts > 0)
            after(world_.now() + order.lasts, [this, fault = order.fault, number = f.order] {
                if (faults_[static_cast<u32>(fault)].order != number) return;
                endFault(fault);
                lookedAt_ = -1;
                update();
            });
    }
    lookedAt_ = -1;
    update();
    if (changed) changed();
}

void GpsReceiver::endFault(GpsFault fault)
{
    Fault& f = faults_[static_cast<u32>(fault)];
    if (!f.on) return;
    f.on = false;
    if (fault == GpsFault::BadPulses) pps_.addPhase(-f.amount * 1e-9);
    if (changed) changed();
}

void GpsReceiver::heal(GpsHealedBy by)
{
    for (u32 i = 0; i < GPS_FAULTS; ++i) {
        Fault& f = faults_[i];
        if (!f.on || f.healedBy == GpsHealedBy::Nothing || f.healedBy > by) continue;
        if (--f.restarts == 0) endFault(static_cast<GpsFault>(i));
    }
}

// ---- reception and time -------------------------------------------------------------------------

i64 GpsReceiver::utcOf(i64 gpsSecond) const { return gpsSecond + nmea::GPS_EPOCH - config_.leapSeconds; }

/// What is over the antenna and how strongly it comes in.
void GpsReceiver::look()
{
    const i64 second = secondAt(world_.now());
    if (lookedAt_ >= 0 && second - lookedAt_ < LOOK_s) return;
    lookedAt_ = second;
    gps_.clear();
    glonass_.clear();
    used_.clear();
    usedGlonass_ = 0;
    if (faulty(GpsFault::AntennaOpen) || faulty(GpsFault::AntennaShort)) return;
    const double loss = faulty(GpsFault::Jamming) ? amount(GpsFault::Jamming) : 0.0;
    const auto take = [loss](const std::vector<SkySatellite>& from, std::vector<nmea::Shown>& to) {
        for (const SkySatellite& s : from) {
            const double snr = s.snr - loss;
            to.push_back({s, snr < TRACKED_dB ? 0 : static_cast<u32>(snr)});
        }
    };
    take(sky_.gps(second), gps_);
    if (config_.glonass && config_.model != GpsModel::Gps01) take(sky_.glonass(second), glonass_);
    for (const nmea::Shown& s : gps_)
        if (s.snr != 0) used_.push_back(s.satellite.number);
    for (const nmea::Shown& s : glonass_)
        if (s.snr != 0) ++usedGlonass_;
}

bool GpsReceiver::canFix() const
{
    if (faulty(GpsFault::NoElevation) || faulty(GpsFault::StatusNok)) return false;
    const u32 needed = surveyed_ >= config_.surveyTime ? TIME_SATELLITES : FIRST_FIX_SATELLITES;
    return used_.size() + usedGlonass_ >= needed;
}

void GpsReceiver::update()
{
    const ose::Time now = world_.now();
    const ose::Time passed = now - updatedAt_;
    updatedAt_ = now;
    if (!powered_ || now < silentUntil_) return setPulses(false);
    look();
    if (!canFix()) {
        searchingSince_ = now;
        if (fix_) {
            fix_ = false;
            lostAt_ = now;
            startDrift();
        }
    } else if (fix_) {
        surveyed_ = std::min(surveyed_ + passed, config_.surveyTime);
    } else if (now - searchingSince_ >= (almanac_ ? config_.warmFix : config_.coldFix)) {
        fix_ = true;
        everFix_ = true;
        almanac_ = true;
        endDrift();
    }
    setPulses(fix_ || (everFix_ && now - lostAt_ < config_.ppsHoldover));
}

void GpsReceiver::startDrift()
{
    if (config_.ppsHoldover == 0) return;
    drifting_ = true;
    driftingSince_ = world_.now();
    pps_.setFrequency(config_.holdover_ppb);
}

/// Back on the satellites' time.
void GpsReceiver::endDrift()
{
    if (!drifting_) return;
    drifting_ = false;
    const double drifted_s = static_cast<double>(world_.now() - driftingSince_) * 1e-12;
    pps_.setFrequency(0.0);
    pps_.addPhase(config_.holdover_ppb * 1e-9 * drifted_s);
}

void GpsReceiver::setPulses(bool on)
{
    if (pulses_ == on) return;
    pulses_ = on;
    if (changed) changed();
}

ose::Time GpsReceiver::nextEdge(ose::Time now)
{
    if (!present() || faulty(GpsFault::StuckPps)) return -1;
    return pps_.nextEdge(now);
}

/// Power off, power on, restart: nothing on the line and no pulses until the span is over.
void GpsReceiver::goSilent(ose::Time span)
{
    const ose::Time now = world_.now();
    ++life_;
    silentUntil_ = now + span;
    searchingSince_ = silentUntil_;
    updatedAt_ = now;
    fix_ = false;
    everFix_ = false;
    lookedAt_ = -1;
    talk_ = 0;
    lineFree_ = now;
    received_.clear();
    halfRestart_ = false;
    endDrift();
    setPulses(false);
    if (powered_) scheduleTick();
    else if (tickEvent_ != 0) world_.cancel(tickEvent_);
}

// ---- the line -----------------------------------------------------------------------------------

/// The next timing sentence that can still be sent in whole.
void GpsReceiver::scheduleTick()
{
    const u32 body = protocol_ == GpsProtocol::Furuno ? nmea::TPS_BODY : nmea::PPR_BODY;
    const bool checksum = config_.checksums || protocol_ == GpsProtocol::Combined;
    const u32 length = body + nmea::FRAME + (checksum ? nmea::CHECKSUM : 0);
    const ose::Time lag = config_.sentenceDelay + length * BYTE;
    const ose::Time now = world_.now();
    while (nextTick_ * SEC + lag <= now) ++nextTick_;
    if (tickEvent_ != 0) world_.cancel(tickEvent_);
    tickEvent_ = world_.at(nextTick_ * SEC + lag, [this, alive = alive_] {
        if (*alive) tick();
    });
}

void GpsReceiver::tick()
{
    tickEvent_ = 0;
    update();
    if (world_.now() >= silentUntil_) {
        const std::string timing = timingSentence();
        // An answer may still hold the line; else the sentence ends now.
        if (lineFree_ + lengthOf(timing) <= world_.now()) {
            lineFree_ = world_.now();
            deliver(timing);
        } else {
            transmit(timing);
        }
        std::vector<std::string> texts;
        others(texts);
        for (const std::string& text : texts) transmit(text);
        ++talk_;
    }
    ++nextTick_;
    scheduleTick();
}

std::string GpsReceiver::timingSentence()
{
    // Of the second that the next pulse begins.
    i64 named = firstSecond_ + nextTick_ + 1;
    if (faulty(GpsFault::WrongSecond)) named += static_cast<i64>(std::llround(amount(GpsFault::WrongSecond)));
    const bool known = fix_ || pulses_;
    i64 week = known ? named / nmea::WEEK_s : 0;
    const i64 tow = known ? named % nmea::WEEK_s : 0;
    constexpr i64 ROLLOVER = 1024;
    if (known && config_.weekBase >= 0)
        week = config_.weekBase + ((week - config_.weekBase) % ROLLOVER + ROLLOVER) % ROLLOVER;
    if (protocol_ == GpsProtocol::Combined)
        return nmea::ppr(week, tow, fix_ ? 0 : pulses_ ? 1 : 3, faulty(GpsFault::Faulty));
    constexpr u8 GPS_TIME = 2, OWN_CLOCK = 1;
    return nmea::tps({week, tow, utcOf(week * nmea::WEEK_s + tow), config_.leapSeconds,
                      fix_ ? GPS_TIME : OWN_CLOCK, fix_ && !faulty(GpsFault::Faulty),
                      static_cast<u8>(holdsPosition() ? 2 : 1)},
                     config_.checksums);
}

/// What follows the timing sentence in this second.
void GpsReceiver::others(std::vector<std::string>& texts)
{
    const bool status = config_.model != GpsModel::Gps01 && config_.model != GpsModel::Norvane;
    if (status) {
        const bool open = faulty(GpsFault::AntennaOpen), shorted = faulty(GpsFault::AntennaShort);
        texts.push_back(nmea::sts(!fix_ ? 0 : holdsPosition() ? 2 : 1, wantsHold_ ? 0 : 1,
                                  open ? 1 : shorted ? 2 : 0, config_.glonass));
    }
    if (status && talk_ % VERSION_EVERY == 1) {
        const bool third = config_.model == GpsModel::Gps03;
        texts.push_back(nmea::ver(third ? "GPS03" : "GPS02", config_.firmware));
    }
    const nmea::Position place{config_.latitude, config_.longitude, config_.altitude_m};
    const u32 used = static_cast<u32>(used_.size()) + usedGlonass_;
    const double dop = used < FIRST_FIX_SATELLITES ? 99.9 : 0.6 + 4.0 / used;
    if (talk_ % POSITION_EVERY == 2) {
        texts.push_back(nmea::gga(utcOf(firstSecond_ + nextTick_),
                                  everFix_ ? place : nmea::Position{0.0, 0.0, 0.0}, fix_ ? used : 0, dop,
                                  config_.checksums));
        texts.push_back(nmea::gsa(fix_ ? std::span<const u8>(used_) : std::span<const u8>(), 1.6 * dop, dop,
                                  1.25 * dop, config_.checksums));
    }
    if (status && talk_ % AVERAGE_EVERY == 5 && fix_)
        texts.push_back(nmea::avp(place, static_cast<u32>(surveyed_ / (60 * SEC))));
    if (talk_ % SATELLITES_EVERY == 4) satellites(texts);
    if (protocol_ == GpsProtocol::Furuno && talk_ % ALMANAC_EVERY == 7)
        texts.push_back(nmea::anc(utcOf(firstSecond_ + nextTick_), config_.checksums));
}

void GpsReceiver::satellites(std::vector<std::string>& texts) const
{
    const bool angles = !faulty(GpsFault::NoElevation);
    const auto add = [&](const std::vector<std::string>& series) {
        texts.insert(texts.end(), series.begin(), series.end());
    };
    if (!faulty(GpsFault::NoGpgsv)) add(nmea::gsv("GPGSV", gps_, angles, config_.checksums));
    if (config_.glonass && config_.model != GpsModel::Gps01)
        add(nmea::gsv("GLGSV", glonass_, angles, config_.checksums));
}

void GpsReceiver::transmit(const std::string& text)
{
    lineFree_ = std::max(world_.now(), lineFree_) + lengthOf(text);
    after(lineFree_, [this, life = life_, text] {
        if (life == life_) deliver(text);
    });
}

void GpsReceiver::deliver(std::string text)
{
    if (faulty(GpsFault::Silence)) return;
    ++sentences_;
    if (!faulty(GpsFault::Garbled)) return serial_.feed(text);
    std::string garbled;
    for (const char c : text) {
        if (garble_.uniform() >= amount(GpsFault::Garbled)) {
            garbled += c;
            continue;
        }
        const u64 turned = garble_.bits();
        const bool lost = (turned & 0x100) != 0;
        if (!lost) garbled += static_cast<char>(static_cast<u8>(c) ^ (turned & 0xFF));
    }
    serial_.feed(garbled);
}

}  // namespace sim
