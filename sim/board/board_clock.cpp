// The board's clock: oscillator through the divider to the frame counter, its latches and steps.
#include "sim/board/board.h"

#include <cmath>

namespace sim {
namespace {

constexpr u32 INC_PER_FRAME = 1'228'800;
constexpr u32 FRAMES_PER_TURN = 4096;
constexpr u32 TURNS = 25;
constexpr i128 FRAME = static_cast<i128>(INC_PER_FRAME) * PHASE_ONE;
constexpr i128 SECOND = FRAME * 100;
constexpr i128 PERIOD = FRAME * FRAMES_PER_TURN * TURNS;   // 1024 s

/// Ratio at which a nominal oscillator gives the nominal counter rate.
struct NominalRatio { i64 n, K, M; };

NominalRatio nominalRatio(const BoardConfig& config)
{
    constexpr i64 M = 800'000'000;
    if (config.isRev3()) return {1250, 0, M};
    if (config.type == 2 && config.extPhaseDetector) return {110, 260'904'947, M};
    return {706, 69'791'666, M};
}

i128 modulo(i128 value, i128 modulus)
{
    const i128 rest = value % modulus;
    return rest < 0 ? rest + modulus : rest;
}

CounterTriple triple(i128 phase)
{
    const u64 halves = static_cast<u64>(modulo(phase, PERIOD) >> (PHASE_FRACTION_BITS - 1));
    const u64 increments = halves / 2;
    const u64 frames = increments / INC_PER_FRAME;
    CounterTriple c;
    c.half = static_cast<u32>(halves & 1);
    c.inc = static_cast<u32>(increments % INC_PER_FRAME);
    c.sfn = static_cast<u16>(frames % FRAMES_PER_TURN);
    c.mfn = static_cast<u16>(frames / FRAMES_PER_TURN);
    return c;
}

CounterTriple withFaults(CounterTriple c, i32 mfn, i32 inc)
{
    if (mfn >= 0) c.mfn = static_cast<u16>(mfn);
    if (inc >= 0) c.inc = static_cast<u32>(inc);
    return c;
}

}  // namespace

// ---- rate ---------------------------------------------------------------------------------------

void Board::advance()
{
    const ose::Time now = world_.now();
    const ose::Time length = oscillator_.segment();
    while (clockAt_ < now) {
        const ose::Time end = static_cast<ose::Time>(segment_ + 1) * length;
        const ose::Time to = end < now ? end : now;
        phase_.run(to - clockAt_, y_);
        clockAt_ = to;
        if (to != end) continue;
        ++segment_;
        yOscillator_ = oscillator_.frequency(segment_, temperature_.volts(to), temperature_.coldness(to));
        updateRate();
    }
}

void Board::updateRate() { y_ = yOscillator_ + yRatio_ + yOscillator_ * yRatio_; }

i64 Board::word33(u32 high, u32 low) const
{
    const i64 word = common_[low / 4];
    return (common_[high / 4] & 1) != 0 ? word - (1LL << 32) : word;
}

/// The words take effect: the counter's rate is the nominal ratio over the programmed one. The
/// difference is formed in integers so that the rate is good to a part in 1e22.
void Board::enableDeltaSigma()
{
    advance();
    const i64 M = word33(M_HIGH, M_LOW);
    const i64 K = word33(K_HIGH, K_LOW);
    const i64 n = (common_[DIVISOR / 4] & 0x3FFF) + 1;
    if (M <= 0) return;
    const NominalRatio nominal = nominalRatio(config_);
    const i128 ratio = static_cast<i128>(n) * M + K;                 // U * M
    if (ratio <= 0) return;
    const i128 difference = static_cast<i128>(nominal.n - n) * M * nominal.M
                            + static_cast<i128>(nominal.K) * M - static_cast<i128>(K) * nominal.M;
    yRatio_ = static_cast<double>(difference) / (static_cast<double>(ratio) * static_cast<double>(nominal.M));
    divider_ = static_cast<double>(n) + static_cast<double>(K) / static_cast<double>(M);
    updateRate();
}

double Board::timeError_s()
{
    advance();
    return CounterPhase::seconds(phase_.deviation() - errorOrigin_);
}

double Board::stampError_s()
{
    advance();
    return CounterPhase::seconds(phase_.deviation() - errorOrigin_ - stepped_);
}

double Board::frequencyError()
{
    advance();
    return y_;
}

// ---- counters -----------------------------------------------------------------------------------

CounterTriple Board::counter() { return withFaults(triple(phase()), faults.counterMfn, faults.counterInc); }

double Board::counterTime_s() { return CounterPhase::seconds(modulo(phase(), PERIOD)); }

u32 Board::externalCounter()
{
    const i128 now = phase();
    return static_cast<u32>((now - modulo(now, PERIOD)) / PERIOD + periods_) & 0xFFFFFF;
}

u32 Board::packFrames(const CounterTriple& c, bool valid) const
{
    return (valid ? 1u << 31 : 0) | static_cast<u32>(c.mfn) << 12 | c.sfn;
}

u32 Board::packIncrements(const CounterTriple& c) const
{
    return config_.type == 1 ? c.inc : c.inc << 1 | c.half;
}

/// The selected reference's edge has reached the latch.
void Board::latch()
{
    latched_ = withFaults(triple(phase()), faults.latchMfn, faults.latchInc);
    latchValid_ = true;
}

/// The load registers hold what the counter is moved by, modulo its period; beyond it the external
/// counter.
void Board::stepCounter(i64 periods)
{
    const u32 frames = timeWords_[LOAD_FRAMES];
    const u32 word = timeWords_[LOAD_INC];
    const i128 whole = FRAME * ((frames >> 12 & 0x1F) * FRAMES_PER_TURN + (frames & 0xFFF));
    const i128 part = config_.type == 1 ? static_cast<i128>(word & 0x1FFFFF) * PHASE_ONE
                                        : static_cast<i128>(word & 0x3FFFFF) * (PHASE_ONE / 2);
    const i128 forward = modulo(whole + part, PERIOD);
    // More than half the period is the shorter way backwards.
    const bool backwards = forward > PERIOD / 2;
    const i128 step = backwards ? forward - PERIOD : forward;
    advance();
    phase_.step(step);
    stepped_ += step;
    periods_ += periods + (backwards ? 1 : 0);
    armOutput();
    armBfn();
}

/// Load control of board type 2, in one word with FSYNC: bits 0 and 2 order the load.
void Board::orderLoad(u32 value)
{
    constexpr u32 ORDER = 0x5, BITS = 0x7;
    constexpr ose::Time LOAD_TIME = 8 * ose::MS;      // promised: 10 ms
    const bool ordered = (timeWords_[LOAD_CONTROL] & ORDER) == ORDER;
    timeWords_[LOAD_CONTROL] = value;
    if ((value & BITS) == 0) timeWords_[LOAD_STATUS] = 0;
    if (ordered || (value & ORDER) != ORDER || loadEvent_ != 0) return;
    timeWords_[LOAD_STATUS] = 0;
    if (faults.loadNeverDone) return;
    loadEvent_ = world_.after(LOAD_TIME, [this] {
        loadEvent_ = 0;
        const u32 ext = timeWords_[LOAD_EXT] & 0xFFFFFF;
        stepCounter(ext < 0x800000 ? static_cast<i64>(ext) : static_cast<i64>(ext) - 0x1000000);
        timeWords_[LOAD_STATUS] = 1;
    });
}

// ---- GPS output ---------------------------------------------------------------------------------

/// Phase of the output's next pulse: it comes once in each second of the counter.
i128 Board::outputNext()
{
    const i128 now = phase();
    return now - modulo(now - outputPhase_, SECOND) + SECOND;
}

/// The pair tells the counter at the next pulse.
u32 Board::readOutput(TimeWord word)
{
    if (word == OUT_FRAMES || config_.type == 1)
        output_ = withFaults(triple(outputNext()), faults.outputMfn, faults.outputInc);
    if (word == OUT_FRAMES) return static_cast<u32>(output_.mfn) << 5 | static_cast<u32>(output_.sfn >> 7);
    const u32 low = output_.sfn & 0x7Fu;
    return config_.type == 1 ? low << 21 | output_.inc : low << 22 | packIncrements(output_);
}

/// The offset word moves the pulses to a later time.
void Board::moveOutput(u32 value)
{
    const bool type1 = config_.type == 1;
    const u32 frames = (type1 ? value >> 21 : value >> 22) & 0x7F;
    const i128 part = type1 ? static_cast<i128>(value & 0x1FFFFF) * PHASE_ONE
                            : static_cast<i128>(value & 0x3FFFFF) * (PHASE_ONE / 2);
    outputPhase_ = modulo(outputPhase_ + frames * FRAME + part, SECOND);
    armOutput();
}

void Board::armOutput()
{
    const bool seen = (enabled_ & GPS_OUTPUT) != 0 || outputPeer_ != nullptr;
    if (powered_ && seen) arm(outputAlarm_, outputNext(), &Board::onOutput);
}

void Board::onOutput()
{
    armOutput();
    if (outputPeer_ && outputEnabled()) outputPeer_();
    if ((enabled_ & GPS_OUTPUT) != 0) raise(GPS_OUTPUT);
}

void Board::onOutputPulse(std::function<void()> peer)
{
    outputPeer_ = std::move(peer);
    armOutput();
}

// ---- BFN output ---------------------------------------------------------------------------------

void Board::onBfnFrame(std::function<void()> peer)
{
    bfnPeer_ = std::move(peer);
    armBfn();
}

void Board::armBfn()
{
    constexpr i128 TEN_FRAMES = FRAME * 10;
    if (!powered_ || bfnPeer_ == nullptr) return;
    const i128 now = phase();
    arm(bfnAlarm_, now - modulo(now, TEN_FRAMES) + TEN_FRAMES, &Board::onBfn);
}

void Board::onBfn()
{
    armBfn();
    bfnPeer_();
}

// ---- events at a phase of the counter -----------------------------------------------------------

void Board::arm(Alarm& alarm, i128 target, void (Board::*due)())
{
    if (alarm.event != 0) world_.cancel(alarm.event);
    alarm.target = target;
    waitFor(alarm, due);
}

/// The rate may change on the way, so the event looks again.
void Board::waitFor(Alarm& alarm, void (Board::*due)())
{
    const double rest_s = CounterPhase::seconds(alarm.target - phase()) / (1.0 + y_);
    const ose::Time wait = static_cast<ose::Time>(std::ceil(rest_s * 1e12));
    alarm.event = world_.after(wait > 1 ? wait : 1, [this, &alarm, due] {
        alarm.event = 0;
        if (phase() < alarm.target) waitFor(alarm, due);
        else (this->*due)();
    });
}

// ---- NTP counter --------------------------------------------------------------------------------

/// NTP format counter of board type 1, latched at the last frame edge: seconds and 2^-32 parts. It
/// runs with the frame counter but isn't stepped with it.
u32 Board::readNtp(TimeWord word)
{
    const i128 now = phase();
    const i128 edge = now - modulo(now, FRAME) - stepped_;
    const i128 part = modulo(edge, SECOND);
    if (word == NTP1) return static_cast<u32>((edge - part) / SECOND);
    return static_cast<u32>((part << 32) / SECOND);
}

// ---- packet stamps ------------------------------------------------------------------------------

PacketTime Board::packetTime(double offset_s, double resolution_ns)
{
    constexpr double INC_PER_s = 122.88e6;
    constexpr i128 NS = 1'000'000'000;
    i128 at = phase() + static_cast<i128>(offset_s * INC_PER_s * static_cast<double>(PHASE_ONE));
    at += config_.type == 1 ? -static_cast<i128>(stepped_) : static_cast<i128>(periods_) * PERIOD;
    const i128 part = modulo(at, SECOND);
    u64 ns = static_cast<u64>(part * NS / SECOND);
    const u64 step = static_cast<u64>(resolution_ns);
    if (step > 1) ns -= ns % step;
    // The program cuts down: the fraction is the smallest that it reads as these ns.
    const u64 fraction = ((ns << 32) + static_cast<u64>(NS) - 1) / static_cast<u64>(NS);
    return {static_cast<u32>((at - part) / SECOND), static_cast<u32>(fraction)};
}

}  // namespace sim
