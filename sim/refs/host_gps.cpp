#include "sim/refs/host_gps.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/pps.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>
#include <utility>

namespace sim {
namespace {

constexpr double BYTES_PER_s = 960;              // 9600 bit/s: start bit, eight, stop bit
constexpr double BURST = 4096;                   // what the driver may have kept back
constexpr ose::Time AGAIN = ose::SEC, JUDGE = 10 * ose::SEC;
constexpr ose::Time SILENT = 2500 * ose::MS;     // without a sentence, or a pulse, it has gone

/// Of "$...*hh".
bool isSentence(const std::string& text)
{
    const std::size_t star = text.rfind('*');
    if (star == std::string::npos || text.size() < star + 3) return false;
    u8 sum = 0;
    for (std::size_t i = 1; i < star; ++i) sum ^= static_cast<u8>(text[i]);
    char told[3];
    std::snprintf(told, sizeof told, "%02X", sum);
    return strncasecmp(told, text.c_str() + star + 1, 2) == 0;
}

}  // namespace

HostGps::HostGps(ose::World& world, HostClock& clock, SerialPort& serial, const std::string& tty,
                 const std::string& pps, DeviceCalls calls)
    : world_(world), clock_(clock), serial_(serial), tty_(tty), pps_(pps), calls_(std::move(calls))
{
    if (const std::string why = openLine(); !why.empty()) throw HostError(tty_ + ": " + why);
    if (const std::string why = pps_.empty() ? "" : openPulse(); !why.empty()) {
        close(line_);
        throw HostError(pps_ + ": " + why);
    }
    serial_.onSent([this](const std::vector<u8>& bytes) { send(bytes); });
}

HostGps::~HostGps()
{
    serial_.onSent(nullptr);
    if (line_ >= 0) close(line_);
    if (pulse_ >= 0) close(pulse_);
}

// ---- the line -----------------------------------------------------------------------------------

std::string HostGps::openLine()
{
    const int fd = open(tty_.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return std::strerror(errno);
    termios t{};
    if (tcgetattr(fd, &t) != 0) {
        close(fd);
        return "not a serial line";
    }
    cfmakeraw(&t);
    cfsetspeed(&t, B9600);
    t.c_cflag |= CLOCAL | CREAD;
    t.c_cflag &= ~static_cast<tcflag_t>(CSTOPB | PARENB | CRTSCTS);
    if (tcsetattr(fd, TCSANOW, &t) != 0) {
        const std::string why = std::strerror(errno);
        close(fd);
        return "9600 bit/s refused: " + why;
    }
    tcflush(fd, TCIFLUSH);
    line_ = fd;
    return {};
}

void HostGps::hangUp(const std::string& why)
{
    close(std::exchange(line_, -1));
    ++counts_.hangups;
    triedAt_ = clock_.now();
    sentence_.clear();
    say(tty_ + " hung up (" + why + ")");
}

void HostGps::reopen()
{
    if (clock_.now() - triedAt_ < AGAIN) return;
    triedAt_ = clock_.now();
    if (openLine().empty()) say(tty_ + " is back");
}

void HostGps::takeBytes()
{
    const ose::Time now = clock_.now();
    allowance_ = std::min(allowance_ + static_cast<double>(now - allowedAt_) * 1e-12 * BYTES_PER_s * 1.1,
                          BURST);
    allowedAt_ = now;
    std::array<u8, 4096> bytes;
    constexpr int AT_ONCE = 16;
    for (int i = 0; i < AT_ONCE && line_ >= 0; ++i) {
        const ssize_t got = read(line_, bytes.data(), bytes.size());
        if (got < 0 && (errno == EAGAIN || errno == EINTR)) return;
        if (got <= 0) return hangUp(got == 0 ? "end of the line" : std::strerror(errno));
        counts_.bytes += static_cast<u64>(got);
        const auto fits = std::min(static_cast<std::size_t>(got),
                                   static_cast<std::size_t>(std::max(allowance_, 0.0)));
        counts_.flooded += static_cast<std::size_t>(got) - fits;
        allowance_ -= static_cast<double>(fits);
        for (std::size_t b = 0; b < fits; ++b) follow(bytes[b]);
        world_.at(world_.now(), [&serial = serial_, text = std::string(bytes.begin(), bytes.begin() + fits)] {
            serial.feed(text);
        });
    }
}

void HostGps::follow(u8 byte)
{
    constexpr std::size_t LONGEST = 256;
    if (byte == '$') sentence_.clear();
    if (byte == '\r' || byte == '\n') {
        if (isSentence(sentence_)) {
            ++counts_.sentences;
            sentenceAt_ = clock_.now();
        }
        sentence_.clear();
    } else if (sentence_.size() < LONGEST) {
        sentence_ += static_cast<char>(byte);
    }
}

void HostGps::send(const std::vector<u8>& bytes)
{
    const ssize_t wrote = line_ >= 0 ? write(line_, bytes.data(), bytes.size()) : -1;
    const u64 sent = wrote > 0 ? static_cast<u64>(wrote) : 0;
    counts_.sent += sent;
    counts_.unsent += bytes.size() - sent;
}

// ---- the pulse ----------------------------------------------------------------------------------

/// Why it can't be, or nothing.
std::string HostGps::openPulse()
{
    const int fd = calls_.open(pps_);
    if (fd < 0) return std::strerror(errno);
    int capabilities = 0;
    if (calls_.control(fd, PPS_GETCAP, &capabilities) != 0) {
        close(fd);
        return "no pulses of the kernel (PPS)";
    }
    pulse_ = fd;
    return {};
}

void HostGps::fetchPulse()
{
    pps_fdata data{};                            // no time-out: the last one
    if (calls_.control(pulse_, PPS_FETCH, &data) != 0) {
        if (errno != EINTR) losePulse(std::strerror(errno));
        return;
    }
    if (data.info.assert_sequence == pulseNumber_) return;
    pulseNumber_ = data.info.assert_sequence;
    const auto at = clock_.ofStamp(data.info.assert_tu.sec * 1'000'000'000LL + data.info.assert_tu.nsec);
    if (!at) return;
    ++counts_.pulses;
    pulseAt_ = *at;
    if (changed) changed();
}

void HostGps::losePulse(const std::string& why)
{
    close(std::exchange(pulse_, -1));
    pulseTriedAt_ = clock_.now();
    pulseNumber_ = 0;
    say(pps_ + " is gone (" + why + ")");
}

void HostGps::reopenPulse()
{
    if (clock_.now() - pulseTriedAt_ < AGAIN) return;
    pulseTriedAt_ = clock_.now();
    if (openPulse().empty()) say(pps_ + " is back");
}

void HostGps::takePulse()
{
    if (pulse_ >= 0)        fetchPulse();
    else if (!pps_.empty()) reopenPulse();
    const ose::Time last = pps_.empty() ? sentenceAt_ : pulseAt_;
    const bool pulsing = last >= 0 && clock_.now() - last < SILENT;
    if (std::exchange(pulsing_, pulsing) != pulsing && changed) changed();
}

/// The last pulse where the world hasn't come there yet, and else what follows it. An edge that the one
/// before has foretold isn't given again when it is seen.
ose::Time HostGps::nextEdge(ose::Time now)
{
    if (!pulsing_) return -1;
    if (pps_.empty()) return clock_.nextSecond(now);
    if (foretold_ <= now) passed_ = foretold_;
    const ose::Time after = std::max(now, passed_ + ose::SEC / 2);
    const ose::Time ahead = after < pulseAt_ ? 0 : (after - pulseAt_) / ose::SEC + 1;
    return foretold_ = pulseAt_ + ahead * ose::SEC;
}

// ---- what is wrong with them --------------------------------------------------------------------

/// Bytes without a sentence among them are told once.
void HostGps::judgeLine(u64 bytes, u64 sentences)
{
    constexpr u64 ENOUGH = 200;
    if (sentences > 0) complained_ = false;
    if (bytes < ENOUGH || sentences > 0 || complained_) return;
    complained_ = true;
    say(tty_ + ": " + std::to_string(bytes)
        + " bytes and no sentence; does the receiver speak at 9600 bit/s?");
}

/// As is a device that has no pulse for a receiver that speaks.
void HostGps::judgePulse(u64 sentences, u64 pulses)
{
    if (pulses > 0) missesPulse_ = false;
    if (pulse_ < 0 || pulses > 0 || sentences == 0 || missesPulse_) return;
    missesPulse_ = true;
    say(pps_ + ": sentences and no pulse; is the receiver's pulse wired to it?");
}

void HostGps::judge()
{
    const ose::Time now = clock_.now();
    if (now - judgedAt_ < JUDGE) return;
    judgedAt_ = now;
    const u64 bytes = counts_.bytes - std::exchange(judgedBytes_, counts_.bytes);
    const u64 sentences = counts_.sentences - std::exchange(judgedSentences_, counts_.sentences);
    const u64 pulses = counts_.pulses - std::exchange(judgedPulses_, counts_.pulses);
    judgeLine(bytes, sentences);
    judgePulse(sentences, pulses);
}

// ---- HostDevice ---------------------------------------------------------------------------------

void HostGps::take()
{
    if (line_ < 0) reopen();
    else           takeBytes();
    takePulse();
    judge();
}

void HostGps::waitFor(std::vector<pollfd>& fds) const
{
    if (line_ >= 0) fds.push_back({line_, POLLIN, 0});
}

}  // namespace sim
