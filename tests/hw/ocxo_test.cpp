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
