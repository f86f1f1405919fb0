// The oscillator's EEPROM block, its calibration and temperature; the serial port of the board.
#include "hw/fake_bus.h"

using namespace hwtest;

namespace {

TEST(OcxoParams, CarryTheDateOnTheNewerBoardOnly)
{
    for (const u32 type : {1u, 2u}) {
        SCOPED_TRACE(type);
        Bench bench(type);
        std::vector<u8> block(128, 0);
        std::ranges::copy(std::string("2023-06-15"), block.begin() + 88);
        putBlock(bench.bus, type == 1 ? BASE_1 : BASE_2B, block);
        for (const u32 i : {0u, 1u, 2u, 3u}) bench.set(59 + 2 * i, 1 + i);      // a0 to a3
        bench.set(67, 2);
        bench.set(69, 3);
        OcxoParams params;
        bench.in([&] { EXPECT_EQ(HALI_getOcxoParams(params), 0); });
        EXPECT_EQ(params.nominalFrequency, 0.0);
        bench.set(57, 10000000);          // there the next time, and held from then on
        bench.in([&] { EXPECT_EQ(HALI_getOcxoParams(params), 0); });
        bench.set(57, 1);
        bench.in([&] { EXPECT_EQ(HALI_getOcxoParams(params), 0); });
        EXPECT_EQ(params.nominalFrequency, 10000000.0);
        EXPECT_STREQ(params.calibrationDate, type == 1 ? "" : "2023-06-15");
        EXPECT_EQ((std::vector{params.a0, params.a1, params.a2, params.a3}), (std::vector{1., 2., 3., 4.}));
        EXPECT_DOUBLE_EQ(params.tempMin, 1.8);
        EXPECT_EQ(params.tempMax, 3.0);
    }
    Bench unmapped(2, false);
    OcxoParams params;
    unmapped.in([&] { EXPECT_EQ(HALI_getOcxoParams(params), 1); });
    EXPECT_EQ(params.nominalFrequency, 0.0);
}

// ---- serial port ------------------------------------------------------------------------------

std::string received;
u32 buffersOut = 0;      // allocated and not freed
u32 emptyBuffers = 0;    // freed without a delivery

void freeBuffer(SerialBuffer* buffer)
{
    --buffersOut;
    Signal* sig = reinterpret_cast<Signal*>(buffer);
    ose::free_buf(&sig);
}

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
    d.callbacks.freeDelivered = freeBuffer;
    d.callbacks.free = [](SerialBuffer* buffer) {
        ++emptyBuffers;
        freeBuffer(buffer);
    };
    d.callbacks.error = [](u32 code) { received += "error " + std::to_string(code); };
    d.callbacks.deliver = [](const SerialBuffer* buffer, u32 count) {
        if (buffer == nullptr) received += "null " + std::to_string(count);
        else received.append(reinterpret_cast<const char*>(buffer->bytes), count);
    };
    d.stack = 2048;
    d.priority = 12;
    d.vector = 70;
    d.processName = "TuTestInt_proc";
    return d;
}

TEST(SerialPort, HandsOverWhatComesInInTheClientsBuffers)
{
    Bench bench(2);
    const SerialPortDescriptor d = descriptor();
    bench.in([&] { HALI_subscribeSerialPort(d); });
    EXPECT_EQ(bench.bus.serialSettings, (std::vector<std::pair<u32, u32>>{{0x1000, 9600}, {0x1005, 'N'}}));
    bench.bus.received = std::string(300, 'x');
    EXPECT_NE(bench.system.raise(70), 0);
    EXPECT_EQ(received, std::string(300, 'x'));
    EXPECT_EQ(emptyBuffers, 0u);
    bench.bus.received = "more";
    received = "full";                                   // no buffer this time
    bench.system.raise(70);
    EXPECT_EQ(received, "fullnull 0");
    bench.in([] { HALI_simSerialInterrupt(); });
    EXPECT_EQ(received, "fullnull 0more");
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
        EXPECT_EQ(HALI_closeSerialPort(0), 0);
        EXPECT_EQ(HALI_writeSerialPort(reinterpret_cast<const u8*>("e"), 1), 8);
    });
    bench.bus.received = "late";
    bench.system.raise(70);
    EXPECT_EQ(bench.bus.received, "late");
    EXPECT_NE(bench.system.find("TuTestInt_proc"), 0u);
    bench.bus.serialCloseResult = 5;
    bench.in([&] {
        EXPECT_EQ(HALI_subscribeSerialPort(d), 0);
        EXPECT_EQ(HALI_closeSerialPort(1), 0);
    });
    EXPECT_EQ(bench.system.find("TuTestInt_proc"), 0u) << "nor the one before";
    EXPECT_TRUE(received.ends_with("error 5"));
}

}  // namespace
