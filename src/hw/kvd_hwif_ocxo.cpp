// kvd_hwif_ocxo.cpp - The oscillator's EEPROM as the FPGA copies it, temperature, calibration.
//
// The copy is a block of bytes, big-endian inside the 32-bit words:
//    0  u8   data version
//    1  16   serial number, printable characters
//   17  u8   manufacturer id; also the first of 11 characters of the part number
//   32  8    nominal frequency, Hz      56  8  a1            80  8   lowest temperature, V
//   40  8    a3                         64  8  a0            88  10  calibration date, board type 2
//   48  8    a2                         72  8  highest, V   124  4   checksum in the low 16 bits
#include "hw/kvd_hwif.h"
#include "hw/kvd_hwif_priv.h"

#include "base/trace_groups.h"
#include "base/tu_common.h"
#include "node/mmio.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "ose/ose.h"

#include <cstdio>
#include <cstring>
#include <iterator>
#include <span>

using namespace hwif;

namespace {

constexpr OSTIME COPY_SETTLE_ms = 50;
constexpr OSTIME COPY_POLL_ms = 10;
constexpr int COPY_POLLS = 500;
constexpr u32 COPY_ORDER = 1;
constexpr u32 COPY_DONE = 0x2;
constexpr int READ_ATTEMPTS = 4;
constexpr OSTIME RETRY_DELAY_ms = 10;
constexpr u32 SUMMED_BYTES = 125;           // up to the upper byte of the checksum's word
constexpr u32 SERIAL_BYTES = 18;
constexpr u32 PART_NUMBER_BYTES = 11;
constexpr u32 DATE_BYTES = 10;
constexpr double DAYS_VALID = 365.0;
constexpr double DAY_s = 86400.0;

struct State {
    char partNumber[PART_NUMBER_BYTES + 1] = "";
    u8 calibrationLimit = 7;                // days of warning before the calibration expires
};
ose::ModuleData<State> s;

/// Models whose EEPROM isn't taken for the limits, or taken in another way.
enum class Model : u8 { Other, FixedLimits, LowerMinimum };
Model modelOf(const char* partNumber)
{
    if (std::strcmp(partNumber, "OXK318407/1") == 0) return Model::FixedLimits;
    if (std::strcmp(partNumber, "OXK318 407/") == 0) return Model::FixedLimits;
    if (std::strcmp(partNumber, "OXK317295/1") == 0) return Model::LowerMinimum;
    return Model::Other;
}
constexpr double FIXED_MIN_V = coefficient(1, 0);
constexpr double FIXED_MAX_V = coefficient(3, 0x19999999);

struct CoefficientRow { u32 index; u32 high; u32 low; };
constexpr CoefficientRow COEFFICIENTS[] = {
    {0, REG_NOM_FREQ_HIGH, REG_NOM_FREQ_LOW}, {1, REG_COEF_A0_HIGH, REG_COEF_A0_LOW},
    {2, REG_COEF_A1_HIGH, REG_COEF_A1_LOW},   {3, REG_COEF_A2_HIGH, REG_COEF_A2_LOW},
    {4, REG_COEF_A3_HIGH, REG_COEF_A3_LOW},   {7, REG_MIN_TEMP_HIGH, REG_MIN_TEMP_LOW},
    {8, REG_MAX_TEMP_HIGH, REG_MAX_TEMP_LOW},
};
constexpr u32 INDEX_MIN_TEMP = 7;
constexpr u32 INDEX_MAX_TEMP = 8;

/// A byte of the block, wherever it lies in its word.
u8 readByte(u32 address)
{
    return static_cast<u8>(node::mmioRead(address & ~3u) >> (24 - 8 * (address & 3)));
}

bool readBytes(u32 id, std::span<u8> bytes)
{
    auto address = findRegister(id);
    if (!address) return false;
    for (u8& byte : bytes) byte = readByte((*address)++);
    return true;
}

void traceBlock()
{
    struct Word { u32 id; const char* name; };
    constexpr Word WORDS[] = {
        {REG_NOM_FREQ_HIGH, "NOM_FREQ_HIGH"}, {REG_NOM_FREQ_LOW, "NOM_FREQ_LOW "},
        {REG_COEF_A3_HIGH, "COEF_A3_HIGH "},  {REG_COEF_A3_LOW, "COEF_A3_LOW  "},
        {REG_COEF_A2_HIGH, "COEF_A2_HIGH "},  {REG_COEF_A2_LOW, "COEF_A2_LOW  "},
        {REG_COEF_A1_HIGH, "COEF_A1_HIGH "},  {REG_COEF_A1_LOW, "COEF_A1_LOW  "},
        {REG_COEF_A0_HIGH, "COEF_A0_HIGH "},  {REG_COEF_A0_LOW, "COEF_A0_LOW  "},
        {REG_MAX_TEMP_HIGH, "MAX_TEMP_HIGH"}, {REG_MAX_TEMP_LOW, "MAX_TEMP_LOW "},
        {REG_MIN_TEMP_HIGH, "MIN_TEMP_HIGH"}, {REG_MIN_TEMP_LOW, "MIN_TEMP_LOW "},
    };
    KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "Read the following OCXO data into FPGA registers:");
    for (const Word& word : WORDS)
        KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "%s = %08Xh", word.name, readRegisterOr0(word.id));
}

void traceLimit(u32 index, double eeprom)
{
    const bool fixed = modelOf(s->partNumber) == Model::FixedLimits;
    if (index == INDEX_MIN_TEMP && fixed)
        KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "Using hard coded limits for min temp");
    else if (index == INDEX_MIN_TEMP)
        KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "Using eeprom based limits for min temp (%s)",
                  TuCommon_text(eeprom));
    else if (fixed)
        KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "Using hard coded limits for max temp");
    else
        KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "Using eeprom based limits for max temp (%s)",
                  TuCommon_text(eeprom));
}

/// The identity that the logic asks for later; a failure is told and leaves an empty part number.
void takeIdentity()
{
    char serial[SERIAL_BYTES];
    u8 version = 0;
    u8 manufacturer = 0;
    const int partResult = tuHwIf_readOcxoPartNum(s->partNumber);
    if (partResult != 0)
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "tuHwIf_readOcxoPartNuml failed with return code =%u",
                  static_cast<u32>(partResult));
    const int serialResult = tuHwIf_readOcxoSerial(serial, version, manufacturer);
    if (serialResult != 0)
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "tuHwIf_readOcxoSerial failed with return code =%u",
                  static_cast<u32>(serialResult));
}

}  // namespace

namespace hwif {

bool startOcxo()
{
    for (int attempt = 1; attempt <= READ_ATTEMPTS; ++attempt) {
        if (tuHwIf_readOcxoEeprom() != 0) return false;
        if (tuHwIf_validateOcxoEeprom() == 0) {
            KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "Read eeprom into FPGA register -> OK");
            takeIdentity();
            return true;
        }
        KVD_TRACE(TRACE_TUHWIF, TRACE_INFO,
                  "OCXO Eeprom data checksum failed after reading OCXO data %d times", attempt);
        ose::delay(RETRY_DELAY_ms);
    }
    return false;
}

const char* heldPartNumber() { return s->partNumber; }

double temperatureLimit(const char* partNumber, u32 index, double eeprom)
{
    const Model model = modelOf(partNumber);
    if (model == Model::FixedLimits) return index == INDEX_MIN_TEMP ? FIXED_MIN_V : FIXED_MAX_V;
    if (index != INDEX_MIN_TEMP) return eeprom;
    return model == Model::LowerMinimum ? eeprom - 0.3 : eeprom * 0.9;
}

double daysSince(const std::tm& date, i64 now)
{
    const DateTime day{static_cast<u16>(date.tm_year + 1900), static_cast<u8>(date.tm_mon + 1),
                       static_cast<u8>(date.tm_mday), 0, 0, 0};
    return static_cast<double>(now - TuCommon_dateToSeconds(day)) / DAY_s;
}

}  // namespace hwif

// ---- EEPROM -----------------------------------------------------------------------------------

u32 tuHwIf_isEepromLoaded() { return (readRegisterOr0(REG_EEPROM_CONTROL) & COPY_DONE) != 0 ? 1 : 0; }

int tuHwIf_readOcxoEeprom()
{
    if (!writeRegister(REG_EEPROM_CONTROL, COPY_ORDER)) return 1;
    ose::delay(COPY_SETTLE_ms);
    for (int poll = 0; poll < COPY_POLLS; ++poll) {
        if (tuHwIf_isEepromLoaded() != 0) {
            traceBlock();
            return 0;
        }
        ose::delay(COPY_POLL_ms);
    }
    KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "Unable to read OCXO EEPROM data (data valid never set).");
    return 1;
}

int tuHwIf_validateOcxoEeprom()
{
    u8 block[SUMMED_BYTES];
    if (!readBytes(REG_EEPROM_BASE, block)) return 1;
    const u32 provided = readRegisterOr0(REG_EEPROM_CHECKSUM) & 0xFFFF;
    u32 calculated = 0;
    bool allZero = true;
    for (const u8 byte : block) {
        calculated = (calculated + byte) & 0xFFFF;
        allZero = allZero && byte == 0;
    }
    KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "EEPROM checksum: provided=%Xh, calculated=%Xh", provided,
              calculated);
    if (allZero) KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "Invalid OCXO EEPROM data. All values are zero");
    return calculated == provided && !allZero ? 0 : 1;
}

double tuHwIf_readOcxoCoeff(u32 index)
{
    for (const CoefficientRow& row : COEFFICIENTS) {
        if (row.index != index) continue;
        const auto high = readRegister(row.high);
        if (!high) return 0.0;
        const double value = coefficient(*high, readRegisterOr0(row.low));
        if (index != INDEX_MIN_TEMP && index != INDEX_MAX_TEMP) return value;
        traceLimit(index, value);
        return temperatureLimit(s->partNumber, index, value);
    }
    KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "OCXO has no such coeff=%Xh", index);
    return 0.0;
}

int tuHwIf_readOcxoSerial(char serial[18], u8& version, u8& manufacturer)
{
    u8 bytes[SERIAL_BYTES] = {};
    serial[0] = '\0';
    version = 0;
    manufacturer = 0;
    if (!readBytes(REG_EEPROM_BASE, bytes)) return 1;
    version = bytes[0];
    manufacturer = bytes[SERIAL_BYTES - 1];
    KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "OCXO EEPROM data version: %d", static_cast<int>(version));
    KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "OCXO Manufacturer ID: %d", static_cast<int>(manufacturer));
    for (u32 i = 1; i < SERIAL_BYTES - 1; ++i)
        if (bytes[i] < ' ' || bytes[i] > '~') return 1;
    std::memcpy(serial, bytes, SERIAL_BYTES);
    serial[0] = ' ';
    serial[SERIAL_BYTES - 1] = '\0';
    KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "OCXO serial number:%s", serial);
    return 0;
}

int tuHwIf_readOcxoPartNum(char text[12])
{
    u8 bytes[PART_NUMBER_BYTES] = {};
    text[0] = '\0';
    if (!readBytes(REG_EEPROM_PART_NUMBER, bytes)) return 1;
    std::memcpy(text, bytes, PART_NUMBER_BYTES);
    text[PART_NUMBER_BYTES] = '\0';
    return 0;
}

// ---- calibration ------------------------------------------------------------------------------

int tuHwIf_readOcxoCalibDate(std::tm& date)
{
    const u32 board = getBoardType();
    date = {};
    if (board != BVQ3) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "Calibration date not available for board type %d.",
                  static_cast<int>(board));
        return 1;
    }
    u8 bytes[DATE_BYTES + 1] = {};
    if (!readBytes(REG_CALIB_DATE, {bytes, DATE_BYTES})) return 1;
    const char* const text = reinterpret_cast<const char*>(bytes);
    KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "OCXO calibration date:%s", text);
    u16 year = 0;
    u16 month = 0;
    u16 day = 0;
    if (std::sscanf(text, "%4hu-%2hu-%2hu", &year, &month, &day) != 3) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "Incorrect number of values read for calibration date.");
        return 1;
    }
    if (year < 1900 || month < 1 || month > 12 || day < 1 || day > 31) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "Unable to determine calibration date.");
        return 1;
    }
    date.tm_year = year - 1900;
    date.tm_mon = month - 1;
    date.tm_mday = day;
    return 0;
}

int tuHwIf_isCalibrated()
{
    std::tm date{};
    if (tuHwIf_readOcxoCalibDate(date) != 0) return 0;
    const double days = daysSince(date, node::platform().calendar().seconds);
    if (days >= 0 && days <= DAYS_VALID) return 1;
    KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "Calibration is not valid. Days since calibration %s.",
              TuCommon_text(days));
    return 0;
}

void tuHwIf_setCalibrationLimit(u8 days) { s->calibrationLimit = days; }
u8 tuHwIf_calibrationLimit() { return s->calibrationLimit; }

// ---- temperature ------------------------------------------------------------------------------

int tuHwIf_readOcxoTemp(double& volts)
{
    const auto word = readRegister(REG_OCXO_TEMP);
    return word ? temperatureVolts(*word, tuHwIf_isRev3() != 0, volts) : 1;
}
