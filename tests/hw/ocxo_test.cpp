// The oscillator's EEPROM block, its calibration and temperature; the serial port of the board.
#include "hw/fake_bus.h"

#include <gtest/gtest.h>

#include <cstring>

using namespace hwtest;

namespace {

std::vector<u8> blockOf(const std::string& part = "OXK317295/1",
                        const std::string& date = "2023-06-15")
{
    std::vector<u8> block(128, 0);
    block[0] = 5;
    for (u32 i = 1; i <= 16; ++i) block[i] = static_cast<u8>('0' + i % 10);
    std::copy(part.begin(), part.end(), block.begin() + 17);
    std::copy(date.begin(), date.end(), block.begin() + 88);
    return block;
}

}  // namespace

TEST(Eeprom, IsValidWithTheSumOf125Bytes)
{
    struct Case { const char* what; std::vector<std::pair<u32, u8>> bytes; int result; };
    for (const Case& c : std::to_array<Case>({
             {"all zeros", {}, 1},
             {"first byte", {{0, 9}, {127, 9}}, 0},
             {"last data byte", {{123, 9}, {127, 9}}, 0},
             {"upper byte of the sum's own word counts", {{124, 7}, {127, 7}}, 0},
             {"second byte of that word doesn't", {{125, 7}, {127, 7}}, 1},
             {"one too many", {{0, 9}, {127, 10}}, 1},
             {"carry into the upper byte", {{0, 255}, {1, 2}, {126, 1}, {127, 1}}, 0}})) {
        SCOPED_TRACE(c.what);
        Bench bench(1);
        std::vector<u8> block(128, 0);
        for (const auto& [at, value] : c.bytes) block[at] = value;
        putBlock(bench.bus, BASE_1, block);
        bench.in([&] { EXPECT_EQ(tuHwIf_validateOcxoEeprom(), c.result); });
    }
}

TEST(Eeprom, SerialStartsWithABlankAndMustBePrintable)
{
    Bench bench(2);
    std::vector<u8> block = blockOf();
    block[16] = '~';
    block[1] = ' ';
    putBlock(bench.bus, BASE_2B, block);
    char serial[18], part[12];
    u8 version = 0, maker = 0;
    bench.in([&] {
        EXPECT_EQ(HALI_readOcxoSerial(serial, version, maker), 0);
        EXPECT_EQ(tuHwIf_readOcxoPartNum(part), 0);
    });
    EXPECT_STREQ(serial, "  23456789012345~");
    EXPECT_EQ(version, 5);
    EXPECT_EQ(maker, 'O');
    EXPECT_STREQ(part, "OXK317295/1");
    for (const u8 bad : {u8{0x1F}, u8{0x7F}, u8{0}}) {
        block[16] = bad;
        putBlock(bench.bus, BASE_2B, block);
        bench.in([&] { EXPECT_EQ(tuHwIf_readOcxoSerial(serial, version, maker), 1); });
    }
    bench.in([&] { EXPECT_EQ(HALI_readOcxoSerial(serial, version, maker), 0); });
    EXPECT_STREQ(serial, "  23456789012345~") << "read once";
}

TEST(Eeprom, CoefficientsAreFixedPointAndLimitsDependOnTheModel)
{
    Bench bench(1);
    bench.set(57, 9999999);
    bench.set(58, 0x80000000);
    bench.set(65, 0xFFFFFFFF);            // a3: -0.5
    bench.set(66, 0x80000000);
    bench.in([] {
        EXPECT_EQ(tuHwIf_readOcxoCoeff(0), 9999999.5);
        EXPECT_EQ(tuHwIf_relativeNominalOffset(), -5e-8);
        EXPECT_EQ(tuHwIf_readOcxoCoeff(4), -0.5);
        for (const u32 index : {5u, 6u, 9u}) EXPECT_EQ(tuHwIf_readOcxoCoeff(index), 0.0);
    });
    EXPECT_EQ(bench.bus.countOf("OCXO has no such coeff="), 3u);
    EXPECT_EQ(bench.bus.countOf("OCXO has no such coeff=5h"), 1u);

    struct Case { const char* part; double min; double max; };
    for (const Case& c : std::to_array<Case>({{"OXK318407/1", 1.0, 3.0999999998603016},
                                              {"OXK318 407/", 1.0, 3.0999999998603016},
                                              {"OXK317295/1", 1.7, 2.5},
                                              {"OXK318407/2", 1.8, 2.5},
                                              {"", 1.8, 2.5}})) {
        EXPECT_DOUBLE_EQ(hwif::temperatureLimit(c.part, 7, 2.0), c.min) << c.part;
        EXPECT_DOUBLE_EQ(hwif::temperatureLimit(c.part, 8, 2.5), c.max) << c.part;
    }
}

TEST(Calibration, DateIsParsedAndChecked)
{
    struct Case { const char* text; bool good; const char* trace; };
    for (const Case& c : std::to_array<Case>({
             {"2023-06-15", true, "OCXO calibration date:2023-06-15"},
             {"1900-01-01", true, "OCXO calibration date:1900-01-01"},
             {"1899-12-31", false, "Unable to determine calibration date."},
             {"2023-00-15", false, "Unable to determine calibration date."},
             {"2023-13-15", false, "Unable to determine calibration date."},
             {"2023-06-00", false, "Unable to determine calibration date."},
             {"2023-06-32", false, "Unable to determine calibration date."},
             {"2023-06", false, "Incorrect number of values read for calibration date."},
             {"", false, "Incorrect number of values read for calibration date."}})) {
        SCOPED_TRACE(c.text);
        Bench bench(2);
        putBlock(bench.bus, BASE_2B, blockOf("", c.text));
        std::tm date{};
        bench.in([&] { EXPECT_EQ(tuHwIf_readOcxoCalibDate(date) == 0, c.good); });
        EXPECT_EQ(bench.bus.countOf(c.trace), 1u);
    }
}

TEST(Calibration, IsValidForOneYearFromItsDate)
{
    struct Case { i64 now; int valid; };
    constexpr i64 DATE = 1686787200;      // 2023-06-15 00:00:00
    for (const Case& c : std::to_array<Case>({{DATE - 1, 0}, {DATE, 1}, {DATE + 365 * 86400, 1},
                                              {DATE + 365 * 86400 + 1, 0}})) {
        SCOPED_TRACE(c.now - DATE);
        Bench bench(2);
        putBlock(bench.bus, BASE_2B, blockOf());
        bench.bus.now.seconds = c.now;
        bench.in([&] { EXPECT_EQ(tuHwIf_isCalibrated() != 0, c.valid == 1); });
        EXPECT_EQ(bench.bus.countOf("Calibration is not valid. Days since calibration "),
                  c.valid == 1 ? 0u : 1u);
    }
    Bench older(1);
    older.in([] {
        EXPECT_EQ(tuHwIf_isCalibrated(), 0);
        EXPECT_EQ(tuHwIf_calibrationLimit(), 7);
        tuHwIf_setCalibrationLimit(60);
        EXPECT_EQ(tuHwIf_calibrationLimit(), 60);
    });
    EXPECT_EQ(older.bus.countOf("Calibration date not available for board type 1."), 1u);
}

TEST(OcxoParams, CarryTheDateOnTheNewerBoardOnly)
{
    for (const u32 type : {1u, 2u}) {
        SCOPED_TRACE(type);
        Bench bench(type);
        putBlock(bench.bus, type == 1 ? BASE_1 : BASE_2B, blockOf());
        bench.set(57, 10000000);
        bench.set(59, 1);                 // a0
        bench.set(65, 4);                 // a3
        bench.set(67, 2);
        bench.set(69, 3);
        OcxoParams params;
        bench.in([&] { EXPECT_EQ(HALI_getOcxoParams(params), 0); });
        EXPECT_EQ(params.nominalFrequency, 10000000.0);
        EXPECT_STREQ(params.calibrationDate, type == 1 ? "" : "2023-06-15");
        EXPECT_EQ(params.a0, 1.0);
        EXPECT_EQ(params.a3, 4.0);
        EXPECT_DOUBLE_EQ(params.tempMin, 1.8);
        EXPECT_EQ(params.tempMax, 3.0);
    }
    Bench unmapped(2, false);
    OcxoParams params;
    unmapped.in([&] { EXPECT_NE(HALI_getOcxoParams(params), 0); });
    EXPECT_EQ(params.nominalFrequency, 0.0);
}

// ---- serial port ------------------------------------------------------------------------------

namespace {

std::string received;
u32 buffersOut = 0;      // allocated and not freed
u32 emptyBuffers = 0;    // freed without a delivery

SerialPortDescriptor descriptor()
{
    static constexpr node::SerialSetting SETTINGS[] = {
        {0x1000, 9600}, {0x1005, 'N'}, {0xFFFFFFFF, 0}, {1, 1}};
    received.clear();
    buffersOut = emptyBuffers = 0;
    SerialPortDescriptor d{};
    d.settings = SETTINGS;
    d.callbacks.allocate = [](u32 bytes) -> SerialBuffer* {
        if (received == "full") return nullptr;
        ++buffersOut;
        return reinterpret_cast<SerialBuffer*>(ose::alloc(sizeof(SIGSELECT) + bytes, 0));
    };
    d.callbacks.freeDelivered = [](SerialBuffer* buffer) {
        --buffersOut;
        Signal* sig = reinterpret_cast<Signal*>(buffer);
        ose::free_buf(&sig);
    };
    d.callbacks.free = [](SerialBuffer* buffer) {
        ++emptyBuffers;
        --buffersOut;
        Signal* sig = reinterpret_cast<Signal*>(buffer);
        ose::free_buf(&sig);
    };
    d.callbacks.error = [](u32) {};
    d.callbacks.deliver = [](const SerialBuffer* buffer, u32 count) {
        if (buffer == nullptr) received += "null";
        else received.append(reinterpret_cast<const char*>(buffer->bytes), count);
    };
    d.stack = 2048;
    d.priority = 12;
    d.vector = 70;
    d.processName = "TuTestInt_proc";
    return d;
}

}  // namespace

TEST(SerialPort, BelongsToOneClientAtATime)
{
    for (const u32 type : {1u, 2u}) {
        SCOPED_TRACE(type);
        Bench bench(type);
        const SerialPortDescriptor d = descriptor();
        bench.in([&] {
            EXPECT_EQ(HALI_subscribeSerialPort(d), 0);
            EXPECT_EQ(HALI_subscribeSerialPort(d), 4);
        });
        EXPECT_EQ(bench.bus.serialDevice, type == 1 ? "UART750" : "UART");
        EXPECT_EQ(bench.bus.serialSettings,
                  (std::vector<std::pair<u32, u32>>{{0x1000, 9600}, {0x1005, 'N'}}));
        EXPECT_EQ(bench.bus.countOf(type == 1 ? "UART device UART750 already started"
                                              : "UART device UART already started"), 1u);
        bench.in([&] {
            EXPECT_EQ(HALI_closeSerialPort(0), 0);
            EXPECT_EQ(HALI_closeSerialPort(0), 0);
        });
        EXPECT_NE(bench.system.find("TuTestInt_proc"), 0u);
        bench.in([&] {
            EXPECT_EQ(HALI_subscribeSerialPort(d), 0);
            HALI_closeSerialPort(1);
        });
        EXPECT_EQ(bench.system.find("TuTestInt_proc"), 0u);
    }
}

TEST(SerialPort, HandsOverWhatComesInInTheClientsBuffers)
{
    Bench bench(2);
    const SerialPortDescriptor d = descriptor();
    bench.in([&] { HALI_subscribeSerialPort(d); });
    bench.bus.received = std::string(300, 'x');
    EXPECT_NE(bench.system.raise(70), 0);
    EXPECT_EQ(received, std::string(300, 'x'));
    EXPECT_EQ(emptyBuffers, 0u);
    bench.bus.received = "more";
    received = "full";                                   // no buffer this time
    bench.system.raise(70);
    EXPECT_EQ(received, "fullnull");
    bench.in([] { HALI_simSerialInterrupt(); });
    EXPECT_EQ(received, "fullnullmore");
    bench.in([&] {
        EXPECT_EQ(HALI_writeSerialPort(reinterpret_cast<const u8*>("abc"), 3), 0);
        HALI_simSerialInterrupt();                       // nothing has come
    });
    EXPECT_EQ(bench.bus.sent, "abc");
    EXPECT_EQ(emptyBuffers, 1u);
    EXPECT_EQ(buffersOut, 0u);
    bench.bus.serialWriteResult = 6;
    bench.in([&] { EXPECT_EQ(HALI_writeSerialPort(reinterpret_cast<const u8*>("d"), 1), 6); });
    EXPECT_EQ(bench.bus.countOf("Failed writing to serialport (result=6)"), 1u);
    bench.in([&] {
        HALI_closeSerialPort(0);
        EXPECT_NE(HALI_writeSerialPort(reinterpret_cast<const u8*>("e"), 1), 0);
    });
    bench.bus.received = "late";
    bench.system.raise(70);
    EXPECT_EQ(bench.bus.received, "late");
}

TEST(SerialPort, OpensNothingWhenTheDriverRefuses)
{
    Bench bench(2);
    const SerialPortDescriptor d = descriptor();
    bench.bus.serialOpenResult = 8;
    bench.in([&] { EXPECT_EQ(HALI_subscribeSerialPort(d), 8); });
    EXPECT_EQ(bench.system.find("TuTestInt_proc"), 0u);
    bench.bus.serialOpenResult = 0;
    bench.in([&] { EXPECT_EQ(HALI_subscribeSerialPort(d), 0); });
}

TEST(Hali, OperationsWithoutHardwareBehindThem)
{
    Bench bench(1);
    u32 time = 9;
    bench.in([&] {
        EXPECT_EQ(HALI_getPowerOnTime(time), 0);
        EXPECT_EQ(HALI_unSubscribeRefTime(1), 0);
    });
    EXPECT_EQ(time, 0u);
    EXPECT_TRUE(bench.bus.writes.empty());
}
