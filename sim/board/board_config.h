// board_config.h - What a simulated board is made of.
#pragma once
#include "sim/clock/oscillator.h"
#include "sim/clock/temperature.h"

#include <string>

namespace sim {

/// Content of the oscillator's EEPROM. The polynomial and nominal frequency are those of
/// OscillatorConfig.
struct EepromConfig {
    u8 version = 3;
    std::string serial = "TU00000000000001";      // 16 printable characters
    std::string partNumber = "XO612345/1 ";       // 11 characters; the first is the manufacturer id
    double tempMin_V = 1.2;                       // the program makes limits of its own of it
    double tempMax_V = 3.0;
    std::string calibrationDate = "";             // "2024-01-01"; board type 2 alone has one
};

struct BoardConfig {
    u32 type = 2;                                 // 1 or 2
    u32 baseA = 0xE0070000;                       // type 1
    u32 baseB = 0xE1070000;                       // type 2, with the 0x70000 of its window
    u32 baseC = 0xE2010000;
    u32 baseD = 0xE2000000;
    std::string revision = "R5A2";                // of the FPGA, four characters
    bool extPhaseDetector = false;
    OscillatorConfig oscillator;
    TemperatureConfig temperature;
    EepromConfig eeprom;
    double latchDelay_ns = 32.0;                  // of the common input, from connector to latch
    double counterStart_s = 0.314159;             // where the frame counter stands when power comes
    u64 seed = 1;
    std::string name = "tu1";                     // names the board's noise sources

    /// The FPGA whose ratio is a whole number and whose sensor is read about 0 V.
    bool isRev3() const { return revision.size() > 1 && revision[1] == '3'; }
};

/// Windows of the address map.
enum BoardRegion : u32 {
    REGION_SHARED = 1,        // base A of type 1, base B of type 2
    REGION_TIMING = 2,        // base C
    REGION_TOP = 4,           // base D
};

/// Faults of the board; each may change at any time.
struct BoardFaults {
    u32 unmapped = 0;                             // BoardRegion bits: all ones read, writes lost
    bool eepromNeverLoads = false;
    bool eepromBadSum = false;
    bool eepromZero = false;                      // all bytes 0, sum 0
    bool latchInvalid = false;
    // Fields as read, -1: as they stand. A counter's sfn fills its 12 bits: none is out of range.
    i32 counterMfn = -1, counterInc = -1;         // running counter
    i32 latchMfn = -1, latchInc = -1;             // 1PPS latch
    i32 outputMfn = -1, outputInc = -1;           // GPS output counter
    bool loadNeverDone = false;
    u32 multiplicatorTimeoutAt = 0xFFFFFFFF;      // this word is never taken
    bool multiplicatorCrc = false;
    bool multiplicatorReadNever = false;
    u32 multiplicatorDiffersAt = 0xFFFFFFFF;      // table index that reads back wrong
    bool pllIcTimeout = false;
    u32 readBackStuck = 0;                        // so many reads of divider, K, M, C give 0
    u32 synthStatusAnd = 0xF;                     // bits that can be 1: 8 feedback, 4 C, 1 B locked
    i32 a1Ref = -1;                               // feedback count, -1: in the middle of its window
    bool temperatureInvalid = false;
    i32 temperatureRaw = -1;                      // the low 17 bits as read, -1: as it stands
    u32 toggleStuckOn = 0;                        // raw toggle bits that read 1 whatever comes in
    u32 toggleStuckOff = 0;
};

}  // namespace sim
