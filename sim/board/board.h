// board.h - The board of a timing unit behind its registers: counters, divider, synthesisers,
// detectors.
//
// Registers behave as the program expects and no more. The frame counter runs from the oscillator
// through the programmed ratio; only the world's scores look at its true phase. The UART is the
// node's.
#pragma once
#include "ose/world.h"
#include "sim/board/board_config.h"
#include "sim/board/edge_source.h"
#include "sim/clock/counter_phase.h"

#include <array>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

namespace sim {

/// A frame counter value.
struct CounterTriple {
    u16 mfn = 0, sfn = 0;
    u32 inc = 0;
    u32 half = 0;          // half increment, board type 2
};

/// What a board's BFN input got from the far unit.
struct BfnInput {
    u16 remoteMfn = 0, remoteSfn = 0;
    u32 word1 = 0, word2 = 0;                   // extended words
    bool extended = true;
    bool parityError = false;
    bool valid = true;                          // false: the interrupt comes without data
    i32 localMfn = -1, localInc = -1;           // in place of the counter's, -1: the counter's
};

/// Seconds and 2^-32 s.
struct PacketTime {
    u32 seconds = 0;
    u32 fraction = 0;
};

class Board {
public:
    Board(ose::World& world, const BoardConfig& config);
    ~Board();
    Board(const Board&) = delete;
    Board& operator=(const Board&) = delete;

    // ---- the bus --------------------------------------------------------------------------------
    /// Aligned words; an address without a register reads 0.
    u32  read(u32 address);
    void write(u32 address, u32 value);
    /// The interrupt line went up: an enabled interrupt is pending. Called as a world event.
    std::function<void()> irq;
    bool interruptPending() const { return (enabled_ & pending_) != 0; }
    u32  vector() const { return config_.type == 1 ? 89 : 166; }

    // ---- power ----------------------------------------------------------------------------------
    /// Registers to their reset values, counter at its start, oven cold when it had been off.
    void powerOn(bool coldOven);
    void powerOff();
    /// Registers alone, as a reset of the board does; the oven stays warm, the counter runs on.
    void reset();

    // ---- inputs ---------------------------------------------------------------------------------
    /// One source an input, nullptr takes it out. Source and board may end in any order.
    void connect(ReferenceInput input, EdgeSource* source);
    /// The common input's mode bits: 1 or 2 where an external frequency is expected, 0 for none.
    /// Left alone, they follow what is connected.
    void setCommonMode(std::optional<u32> mode) { commonMode_ = mode; }
    void bfnReceived(const BfnInput& in);
    /// The pair of words that goes out with a frame, once: the write of the second one takes it; nothing
    /// until there is another.
    std::optional<std::pair<u32, u32>> takeBfnWords() { return std::exchange(bfnWords_, std::nullopt); }
    /// What leaves the board: called at each pulse of the output while it is switched on, before the
    /// way to the connector, and every tenth frame of the counter, when the BFN link sends.
    void onOutputPulse(std::function<void()> peer);
    void onBfnFrame(std::function<void()> peer);
    Oscillator& oscillator() { return oscillator_; }
    Temperature& temperature() { return temperature_; }
    void setEeprom(const EepromConfig& eeprom) { config_.eeprom = eeprom; }
    BoardFaults faults;

    // ---- truth, for scores and tests ------------------------------------------------------------
    /// Counter's phase against true time since the power-on in s, positive when ahead; steps are in
    /// it, each by its shorter way modulo 1024 s.
    double timeError_s();
    /// The same of the clock that stamps packets: it runs with the counter but isn't stepped with it.
    double stampError_s();
    /// Relative frequency of the counter in the present segment.
    double frequencyError();
    double temperature_V() const { return temperature_.volts(world_.now()); }
    /// Ratio of the divider as last enabled, 0 before the first.
    double divider() const { return divider_; }
    CounterTriple counter();
    /// The same to a ps: s, below 1024.
    double counterTime_s();
    /// Counts the wraps of the frame counter, 24 bits; board type 2.
    u32 externalCounter();
    /// What the packet driver's counter shows at `offset_s` from now, in steps of `resolution_ns`: on board
    /// type 1 the NTP counter, which isn't stepped with the frame counter, on type 2 the frame counter.
    PacketTime packetTime(double offset_s, double resolution_ns);

    // ---- what the program set -------------------------------------------------------------------
    u32 selectWord() const { return common_[SELECT / 4]; }
    std::optional<ReferenceInput> selectedInput() const;
    bool outputEnabled() const { return (common_[SELECT / 4] & SELECT_OUTPUT) != 0; }
    bool externalPllEnabled() const { return common_[SELECT / 4] >> 31 != 0; }
    u32 fsyncWord() const { return timeWords_[config_.type == 1 ? FSYNC_ONLY : LOAD_CONTROL]; }
    u32 bbClock() const { return common_[BB_CLOCK / 4]; }
    u32 mokaTestWord() const { return moka_; }
    const std::vector<u32>& multiplicatorWords() const { return multiplicator_; }
    const std::vector<u32>& pllIcWords() const { return pllIc_; }
    const BoardConfig& config() const { return config_; }

private:
    // Offsets of the block that both board types share.
    enum Shared : u32 {
        BB_CLOCK = 0x0C, TEMPERATURE = 0x10, EEPROM_CONTROL = 0x14, TOGGLE = 0x18,
        SYNTH_STATUS = 0x1C, SELECT = 0x20, DIVISOR = 0x48, M_HIGH = 0x4C, M_LOW = 0x50,
        K_HIGH = 0x54, K_LOW = 0x58, DS_ENABLE = 0x5C, MONITOR = 0x74, REVISION = 0x7C,
        EEPROM = 0x80, EEPROM_END = 0x100,
        MULTIPLICATOR = 0x120, SYNTH_C = 0x124, A1_REF = 0x128, MULT_READ = 0x12C,
        MULT_STATUS = 0x17C, MULT_DATA = 0x180, PLL_IC = 0x200, SHARED_END = 0x204,
    };
    // Registers that lie elsewhere on each type.
    enum TimeWord : u8 {
        CONTROL, BFN_COUNTERS, BFN_FLAGS, BFN_EXT1, BFN_EXT2, BFN_OUT1, BFN_OUT2, FSYNC_ONLY,
        INT_ENABLE, INT_PENDING, LOAD_EXT, LOAD_FRAMES, LOAD_INC, LOAD_CONTROL, LOAD_STATUS,
        RUN_FRAMES, RUN_INC, LATCH_VALID, LATCH_FRAMES, LATCH_INC, OUT_FRAMES, OUT_INC, OUT_OFFSET,
        NTP1, NTP2, CLK_SYS, TIME_WORDS, NOWHERE
    };
    static constexpr u32 TIME_END = 0x138;
    static constexpr u32 SELECT_OUTPUT = 0x40;
    enum Abstract : u32 { PORT_A = 1, TICK_100MS = 2, REFERENCE_EDGE = 4, GPS_OUTPUT = 8 };

    void layOut();
    bool unmapped(BoardRegion region) const { return (faults.unmapped & region) != 0; }
    TimeWord timeWordAt(u32 address) const;
    u32  readShared(u32 offset);
    void writeShared(u32 offset, u32 value);
    u32  readTime(TimeWord word);
    void writeTime(TimeWord word, u32 value);

    // board_clock.cpp
    void advance();
    void updateRate();
    void enableDeltaSigma();
    i64  word33(u32 high, u32 low) const;
    i128 phase() { advance(); return phase_.at(world_.now()) - origin_; }
    u32  packFrames(const CounterTriple& c, bool valid) const;
    u32  packIncrements(const CounterTriple& c) const;
    void latch();
    void stepCounter(i64 periods);
    void orderLoad(u32 value);
    struct Alarm {                      // at a phase of the counter
        i128 target = 0;
        ose::EventId event = 0;
    };
    i128 outputNext();
    u32  readOutput(TimeWord word);
    void moveOutput(u32 value);
    void armOutput();
    void onOutput();
    void armBfn();
    void onBfn();
    void arm(Alarm& alarm, i128 target, void (Board::*due)());
    void waitFor(Alarm& alarm, void (Board::*due)());
    u32  readNtp(TimeWord word);

    // board_io.cpp
    bool sees(ReferenceInput input) const;
    u32  toggleWord() const;
    u32  temperatureWord() const;
    void raise(u32 abstract);
    u32  toType(u32 abstract) const;
    u32  fromType(u32 bits) const;
    u32  readPending();
    void writeEnable(u32 value);
    void select(u32 value);
    void sourceChanged(ReferenceInput input);
    void armEdge();
    void armTick();

    // board_ic.cpp
    void loadEeprom();
    void fillEeprom();
    u32  eepromWord(u32 offset) const;
    void writeMultiplicator(u32 value);
    u32  multiplicatorData(u32 offset) const;
    void writePllIc(u32 value);
    u32  readBack(u32 offset);

    ose::World& world_;
    BoardConfig config_;
    Oscillator oscillator_;
    Temperature temperature_;
    bool powered_ = false;

    // Address map and registers that only store.
    u32 sharedBase_ = 0, timeBase_ = 0;
    std::array<TimeWord, TIME_END / 4> timeAt_{};
    std::array<u32, SHARED_END / 4> common_{};
    std::array<u32, TIME_WORDS> timeWords_{};
    std::optional<std::pair<u32, u32>> bfnWords_;      // written and not yet sent
    u32 moka_ = 0;
    std::array<u8, 128> eeprom_{};

    // Clock and counters.
    CounterPhase phase_;
    i128 origin_ = 0;                   // phase when power came, less the counter's start
    i128 errorOrigin_ = 0;              // deviation when power came
    i128 stepped_ = 0;                  // sum of the counter's steps since then
    ose::Time clockAt_ = 0;             // up to where the phase is known
    u64 segment_ = 0;                   // of the oscillator
    double yOscillator_ = 0;
    double yRatio_ = 0;
    double y_ = 0;
    double divider_ = 0;
    CounterTriple running_;             // pair as read
    CounterTriple latched_;
    bool latchValid_ = false;
    i64 periods_ = 0;                   // of the external counter, beside the frame counter's wraps
    i128 outputPhase_ = 0;              // of the output's pulse within the counter's second
    Alarm outputAlarm_, bfnAlarm_;
    std::function<void()> outputPeer_, bfnPeer_;
    CounterTriple output_;              // pair as read
    ose::EventId loadEvent_ = 0;

    // Interrupts.
    u32 enabled_ = 0;
    u32 pending_ = 0;
    ose::EventId tickEvent_ = 0;
    ose::EventId edgeEvent_ = 0;
    ose::EventId eepromEvent_ = 0;
    ose::EventId lineEvent_ = 0;

    std::array<EdgeSource*, REFERENCE_INPUTS> sources_{};
    std::optional<u32> commonMode_;

    // ICs.
    std::vector<u32> multiplicator_;
    std::vector<u32> pllIc_;
    u32 multiplicatorCount_ = 0;
    ose::Time multReadAt_ = -1;
};

}  // namespace sim
