#include "sim/refs/cmcc_source.h"

#include "base/tu_common.h"
#include "node/bytes.h"

#include <algorithm>
#include <cmath>

namespace sim {
namespace {

using ose::SEC;

constexpr ose::Time BYTE = SEC / 960;              // 9600 bit/s, ten bits a byte
constexpr i64 GPS_EPOCH = 315'964'800;             // 1980-01-06, s since 1970
constexpr i64 WEEK_s = 604'800;
constexpr u8  TIME_INFO = 0x20, TIME_STATE = 3;

std::array<u8, 23> headed(u8 id) { return {'C', 'M', 1, id, 0, 16}; }

void close(std::array<u8, 23>& frame) { frame[22] = TuCommon_crc8(&frame[2], 20); }

}  // namespace

CmccSource::CmccSource(ose::World& world, SerialPort& serial, const CmccSourceConfig& config, u64 seed,
                       const std::string& name)
    : words(config.words), world_(world), serial_(serial), config_(config),
      pps_(world, config.pps, PPS_RATE_Hz, seed, name + ".pps"), garble_(seed, name + ".garbled")
{
    pps_.changed = [this] {
        if (changed) changed();
    };
    after(SEC, [this] { pulse(1); });
}

void CmccSource::after(ose::Time when, std::function<void()> action)
{
    world_.at(when, [alive = alive_, action = std::move(action)] {
        if (*alive) action();
    });
}

void CmccSource::setFault(CmccFault fault, bool on, double amount)
{
    faults_[static_cast<u32>(fault)] = {on, amount};
    if (changed) changed();
}

ose::Time CmccSource::nextEdge(ose::Time now)
{
    if (!present() || faulty(CmccFault::StuckPps)) return -1;
    return pps_.nextEdge(now);
}

void CmccSource::pulse(i64 second)
{
    after((second + 1) * SEC, [this, second] { pulse(second + 1); });
    if (faulty(CmccFault::Silence)) return;
    if (!faulty(CmccFault::NoInfo)) transmit(config_.infoDelay, infoFrame(second));
    if (!faulty(CmccFault::NoState)) transmit(config_.stateDelay, stateFrame());
}

void CmccSource::transmit(ose::Time delay, Frame frame)
{
    if (faulty(CmccFault::WrongChecksum)) frame[22] ^= 0xFF;
    if (faulty(CmccFault::Late)) delay += static_cast<ose::Time>(amount(CmccFault::Late) * 1e9);
    if (faulty(CmccFault::Garbled))
        for (u8& byte : frame)
            if (garble_.uniform() < amount(CmccFault::Garbled))
                byte ^= static_cast<u8>(1u << (garble_.bits() & 7));
    lineFree_ = std::max(lineFree_, world_.now() + delay) + static_cast<ose::Time>(frame.size()) * BYTE;
    after(lineFree_, [this, frame] {
        ++frames_;
        serial_.feed(frame.data(), frame.size());
    });
}

CmccSource::Frame CmccSource::infoFrame(i64 second) const
{
    i64 named = config_.start - GPS_EPOCH + config_.leapSeconds + second;
    if (faulty(CmccFault::WrongSecond)) named += std::llround(amount(CmccFault::WrongSecond));
    Frame frame = headed(TIME_INFO);
    node::putBe32(&frame[6], static_cast<u32>(named % WEEK_s));
    node::putBe16(&frame[14], static_cast<u16>(named / WEEK_s));
    frame[16] = static_cast<u8>(words.leapSec);
    frame[17] = words.pp1sState;
    frame[18] = words.tacc;
    close(frame);
    return frame;
}

CmccSource::Frame CmccSource::stateFrame() const
{
    Frame frame = headed(TIME_STATE);
    frame[6] = words.clkSource;
    node::putBe16(&frame[7], words.state);
    node::putBe16(&frame[9], words.alarm);
    close(frame);
    return frame;
}

}  // namespace sim
