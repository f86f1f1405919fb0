#include "sim/board/board.h"

namespace sim {

Board::Board(ose::World& world, const BoardConfig& config)
    : world_(world), config_(config),
      oscillator_(config.oscillator, config.seed, config.name + ".ocxo"),
      temperature_(config.temperature)
{
    constexpr std::size_t MOST_WORDS = 256;
    multiplicator_.reserve(MOST_WORDS);
    pllIc_.reserve(MOST_WORDS);
    layOut();
    clockAt_ = world.now();
    segment_ = static_cast<u64>(clockAt_ / oscillator_.segment());
    yOscillator_ = oscillator_.frequency(segment_, temperature_.volts(clockAt_),
                                         temperature_.coldness(clockAt_));
    updateRate();
    reset();
}

Board::~Board()
{
    powerOff();
    for (EdgeSource* const source : sources_) {
        if (source == nullptr) continue;
        source->changed = nullptr;
        source->gone = nullptr;
    }
}

// ---- power --------------------------------------------------------------------------------------

void Board::powerOn(bool coldOven)
{
    advance();
    powered_ = true;
    if (coldOven) {
        temperature_.coldStart(world_.now());
        oscillator_.coldStart(world_.now());
    }
    const i128 start = static_cast<i128>(config_.counterStart_s * INCREMENTS_PER_SECOND) * PHASE_ONE;
    origin_ = phase_.at(world_.now()) - start;
    errorOrigin_ = phase_.deviation();
    stepped_ = 0;
    periods_ = 0;
    reset();
}

void Board::powerOff()
{
    powered_ = false;
    for (ose::EventId* event : {&tickEvent_, &edgeEvent_, &outputAlarm_.event, &bfnAlarm_.event,
                                &eepromEvent_, &loadEvent_, &lineEvent_})
        if (*event != 0) world_.cancel(*event);
}

void Board::reset()
{
    const bool wasPowered = powered_;
    powerOff();
    powered_ = wasPowered;
    common_.fill(0);
    timeWords_.fill(0);
    bfnWords_.reset();
    eeprom_.fill(0);
    moka_ = 0;
    u32 revision = 0;
    for (std::size_t i = 0; i < 4; ++i)
        revision = revision << 8 | (i < config_.revision.size() ? static_cast<u8>(config_.revision[i]) : ' ');
    common_[REVISION / 4] = revision;
    constexpr u32 NO_REFERENCE = 0x8;
    common_[SELECT / 4] = NO_REFERENCE;
    constexpr u32 REFERENCE_IN_EVERYWHERE = 0x9249;  // three bits a detector, six detectors
    common_[MONITOR / 4] = REFERENCE_IN_EVERYWHERE;
    if (config_.isRev3()) {                          // this FPGA comes up with its nominal ratio
        common_[DIVISOR / 4] = 1249;
        common_[M_LOW / 4] = 800'000'000;
    }
    enabled_ = 0;
    pending_ = 0;
    running_ = latched_ = output_ = {};
    latchValid_ = false;
    multiplicator_.clear();
    pllIc_.clear();
    multiplicatorCount_ = 0;
    multReadAt_ = -1;
    advance();
    divider_ = 0;
    yRatio_ = 0;                                     // the divider starts with its nominal ratio
    updateRate();
    constexpr i128 SECOND = static_cast<i128>(INCREMENTS_PER_SECOND) * PHASE_ONE;
    outputPhase_ = phase() % SECOND;
    armOutput();
    armBfn();
}

// ---- address map --------------------------------------------------------------------------------

void Board::layOut()
{
    // Offset from base A on type 1, from base C on type 2.
    constexpr u32 NONE = 0xFFFFFFFF;
    struct Row { TimeWord word; u32 type1, type2; };
    static constexpr Row ROWS[] = {
        {CONTROL, NONE, 0x40},       {BFN_COUNTERS, 0x104, 0xD4}, {BFN_FLAGS, 0x100, 0xD0},
        {BFN_EXT1, 0x108, 0xD8},     {BFN_EXT2, 0x10C, 0xDC},     {BFN_OUT1, 0x110, 0xE0},
        {BFN_OUT2, 0x114, 0xE4},     {FSYNC_ONLY, 0x70, NONE},    {INT_ENABLE, 0x40, 0x08},
        {INT_PENDING, 0x44, 0x04},   {LOAD_EXT, NONE, 0x84},      {LOAD_FRAMES, 0x2C, 0x88},
        {LOAD_INC, 0x30, 0x8C},      {LOAD_CONTROL, NONE, 0x90},  {LOAD_STATUS, NONE, 0x94},
        {RUN_FRAMES, 0x24, 0xC8},    {RUN_INC, 0x28, 0xCC},       {LATCH_VALID, NONE, 0xB4},
        {LATCH_FRAMES, 0x34, 0xB8},  {LATCH_INC, 0x38, 0xBC},     {OUT_FRAMES, 0x130, 0xF0},
        {OUT_INC, 0x134, 0xF4},      {OUT_OFFSET, NONE, 0xF8},    {NTP1, 0x04, NONE},
        {NTP2, 0x08, NONE},          {CLK_SYS, NONE, 0x28},
    };
    const bool type1 = config_.type == 1;
    sharedBase_ = type1 ? config_.baseA : config_.baseB;
    timeBase_ = type1 ? config_.baseA : config_.baseC;
    timeAt_.fill(NOWHERE);
    for (const Row& row : ROWS) {
        const u32 offset = type1 ? row.type1 : row.type2;
        if (offset != NONE) timeAt_[offset / 4] = row.word;
    }
}

Board::TimeWord Board::timeWordAt(u32 address) const
{
    const u32 offset = address - timeBase_;          // below the base it wraps far beyond the end
    return offset < TIME_END ? timeAt_[offset / 4] : NOWHERE;
}

namespace {

constexpr u32 MOKA_TEST = 0x2040;
constexpr u32 BUS_FLOATS = 0xFFFFFFFF;

}  // namespace

u32 Board::read(u32 address)
{
    const bool type1 = config_.type == 1;
    if (const TimeWord word = timeWordAt(address); word != NOWHERE)
        return unmapped(type1 ? REGION_SHARED : REGION_TIMING) ? BUS_FLOATS : readTime(word);
    if (const u32 offset = address - sharedBase_; offset < SHARED_END)
        return unmapped(REGION_SHARED) ? BUS_FLOATS : readShared(offset & ~3u);
    if (!type1 && address == config_.baseD + MOKA_TEST) return unmapped(REGION_TOP) ? BUS_FLOATS : moka_;
    return 0;
}

void Board::write(u32 address, u32 value)
{
    const bool type1 = config_.type == 1;
    if (const TimeWord word = timeWordAt(address); word != NOWHERE) {
        if (!unmapped(type1 ? REGION_SHARED : REGION_TIMING)) writeTime(word, value);
    } else if (const u32 offset = address - sharedBase_; offset < SHARED_END) {
        if (!unmapped(REGION_SHARED)) writeShared(offset & ~3u, value);
    } else if (!type1 && address == config_.baseD + MOKA_TEST && !unmapped(REGION_TOP)) {
        moka_ = value;
    }
}

u32 Board::readShared(u32 offset)
{
    if (offset >= EEPROM && offset < EEPROM_END) return eepromWord(offset - EEPROM);
    if (offset >= MULT_DATA && offset < PLL_IC) return multiplicatorData(offset - MULT_DATA);
    switch (offset) {
    case TEMPERATURE:  return temperatureWord();
    case TOGGLE:       return toggleWord();
    case SYNTH_STATUS: return 0xF & faults.synthStatusAnd;
    case A1_REF:
        if (faults.a1Ref >= 0) return static_cast<u32>(faults.a1Ref);
        return config_.type == 1 ? 1252 : 1174;
    case MULT_READ: {
        constexpr ose::Time READ_TIME = 20 * ose::MS;
        const bool done = multReadAt_ >= 0 && world_.now() - multReadAt_ >= READ_TIME;
        return multReadAt_ < 0 ? 0 : done && !faults.multiplicatorReadNever ? 3 : 1;
    }
    case MULT_STATUS:  return faults.multiplicatorCrc ? 1u << 18 : 0;
    case DIVISOR: case M_HIGH: case M_LOW: case K_HIGH: case K_LOW: case SYNTH_C:
        return readBack(offset);
    default:           return common_[offset / 4];
    }
}

void Board::writeShared(u32 offset, u32 value)
{
    if (offset >= EEPROM && offset < EEPROM_END) return;
    if (offset >= MULT_DATA && offset < PLL_IC) return;
    switch (offset) {
    case EEPROM_CONTROL:
        if ((value & 1) != 0) loadEeprom();
        break;
    case SELECT: select(value); break;
    case DS_ENABLE: {
        constexpr u32 ENABLE = 1u << 31;
        const bool rises = (common_[DS_ENABLE / 4] & ENABLE) == 0 && (value & ENABLE) != 0;
        common_[DS_ENABLE / 4] = value;
        if (rises) enableDeltaSigma();
        break;
    }
    case MULTIPLICATOR: writeMultiplicator(value); break;
    case PLL_IC:        writePllIc(value);         break;
    case MULT_READ:
        if ((value & 1) != 0) multReadAt_ = world_.now();
        break;
    case TEMPERATURE: case TOGGLE: case SYNTH_STATUS: case REVISION: case A1_REF: case MULT_STATUS:
        break;
    default: common_[offset / 4] = value; break;
    }
}

u32 Board::readTime(TimeWord word)
{
    switch (word) {
    case RUN_FRAMES: running_ = counter(); return packFrames(running_, false);
    case RUN_INC:
        if (config_.type == 1) running_ = counter();   // the older board holds nothing back
        return packIncrements(running_);
    case LATCH_VALID:  return latchValid_ && !faults.latchInvalid ? 1u << 31 : 0;
    case LATCH_FRAMES: {
        const bool valid = config_.type == 1 && latchValid_ && !faults.latchInvalid;
        return packFrames(latched_, valid);
    }
    case LATCH_INC:                return packIncrements(latched_);
    case OUT_FRAMES: case OUT_INC: return readOutput(word);
    case NTP1: case NTP2:          return readNtp(word);
    case INT_ENABLE:               return toType(enabled_);
    case INT_PENDING:              return readPending();
    default:                       return timeWords_[word];
    }
}

void Board::writeTime(TimeWord word, u32 value)
{
    switch (word) {
    case INT_ENABLE: writeEnable(value); break;
    case INT_PENDING:
        if (config_.type == 2) pending_ &= ~fromType(value);
        break;
    case LOAD_INC:
        timeWords_[LOAD_INC] = value;
        if (config_.type == 1) stepCounter(0);
        break;
    case LOAD_CONTROL: orderLoad(value); break;
    case OUT_INC:                                      // type 1: counter and offset in one place
        if (config_.type == 1) moveOutput(value);
        break;
    case OUT_OFFSET: moveOutput(value); break;
    case BFN_OUT2:
        timeWords_[BFN_OUT2] = value;
        bfnWords_ = {timeWords_[BFN_OUT1], value};
        break;
    case RUN_FRAMES: case RUN_INC: case LATCH_VALID: case LATCH_FRAMES: case LATCH_INC:
    case OUT_FRAMES: case NTP1: case NTP2: case LOAD_STATUS: case BFN_COUNTERS: case BFN_FLAGS:
    case BFN_EXT1: case BFN_EXT2:
        break;
    default: timeWords_[word] = value; break;
    }
}

}  // namespace sim
