// gps_receiver_config.h - What a simulated GPS receiver is: model, place, times, and the faults
// that scripts order.
#pragma once
#include "ose/world.h"
#include "sim/refs/line_source.h"

#include <string>

namespace sim {

/// Families that a unit can meet.
enum class GpsModel : u8 {
    Gps01,       // Furuno protocol alone, no status and no version sentence
    Gps02,       // both protocols; firmware "110624" or "120510"
    Gps03,       // both protocols; other firmware
    Combined,    // Norvane Combined protocol alone
    Norvane,     // the same without GPsts, GPver and GPavp
};

enum class GpsProtocol : u8 { Furuno, Combined };

enum class GpsFault : u8 {
    AntennaOpen,
    AntennaShort,
    Jamming,       // amount: dB
    NoElevation,
    StatusNok,
    NoGpgsv,
    Faulty,
    NoPps,
    StuckPps,
    WrongSecond,   // amount: s
    BadPulses,     // amount: ns
    Garbled,       // amount: share of the bytes
    Silence,
    Deaf,
};
constexpr u32 GPS_FAULTS = 14;

enum class GpsHealedBy : u8 { Nothing, Module, Unit };

/// Puts a fault on or ends it.
struct GpsFaultOrder {
    GpsFault fault = GpsFault::AntennaOpen;
    bool on = true;
    ose::Time lasts = 0;             // 0: until it is ended or healed
    double amount = 0;
    GpsHealedBy healedBy = GpsHealedBy::Nothing;
    u32 restarts = 1;                // that many of them heal it
};

enum class GpsRestart : u8 {
    Module,      // warm: keeps almanac and position
    ModuleCold,
    Unit,        // the whole receiver unit, cold
};

struct GpsReceiverConfig {
    GpsModel model = GpsModel::Gps02;
    GpsProtocol protocol = GpsProtocol::Furuno;
    std::string firmware = "120510";
    bool powered = true;
    i64  start = 1'704'067'200;      // UTC at the world's beginning, seconds since 1970
    i32  leapSeconds = 18;           // GPS ahead of UTC since 2017-01-01
    i32  weekBase = -1;              // weeks are told as the 1024 from here on; -1: whole
    ose::Time sentenceDelay = 400 * ose::MS;
    bool checksums = true;           // false: none where readers may do without
    ose::Time bootTime = 10 * ose::SEC;
    ose::Time coldFix = 40 * ose::SEC;
    ose::Time warmFix = 8 * ose::SEC;
    ose::Time surveyTime = 1200 * ose::SEC;
    ose::Time restartTime = 15 * ose::SEC;
    ose::Time unitResetTime = 30 * ose::SEC;
    ose::Time ppsHoldover = 0;
    double holdover_ppb = 20.0;
    double latitude = 59.4040;       // degrees, north positive
    double longitude = 17.9480;      // degrees, east positive
    double altitude_m = 52.0;
    bool glonass = true;             // not on GPS01
    LineConfig pps{.noise = {.white_s = 6e-9, .sawTooth_s = 12e-9}};
};

}  // namespace sim
