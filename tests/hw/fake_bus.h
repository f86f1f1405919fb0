// fake_bus.h - A node whose registers are plain memory with a hook an address: for the failure
// paths of the hardware interface (a word that doesn't read back, an IC that stays silent, an FPGA
// that isn't there).
#pragma once
#include "base/trace_groups.h"
#include "hw/hali.h"
#include "hw/kvd_hwif.h"
#include "hw/kvd_hwif_priv.h"
#include "node/platform.h"
#include "node/trace.h"
#include "ose/world.h"
#include "sig/hwif_sig.h"
#include "support/idle_node.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace hwtest {

struct FakeBus : node::Platform {
    std::map<u32, u32> memory;
    std::map<u32, std::function<u32(u32 stored)>> onRead;
    std::map<u32, std::function<void(u32 value)>> onWrite;     // after the word was stored
    std::vector<std::pair<u32, u32>> writes;                   // address, value
    std::map<u32, u32> reads;                                  // how often, by address
    std::string order;                                         // 'r', 'w' and 'b' as they came

    int adiResult = 0;
    u32 boardCode = 9;
    int extIntResult = 0;
    std::vector<std::pair<char, u32>> lines;                   // 'e' or 'd', vector
    std::map<std::string, std::string> parameters{
        {"zfb/hw/fpga/bvf4/base", "0xC0000000"}, {"zfb/hw/fpga/moka/tu_clk_sys/base", "0xD0010000"},
        {"zfb/hw/fpga/moka/base", "0xD0000000"}, {"bvqmodule", "ZTM 600 145/32"},
        {"productnumber", "YCA 350 208/1"},      {"productrevision", "P2A"},
    };
    node::CalendarTime now{1'700'000'000, 0};
    std::vector<std::pair<u8, std::string>> traces;            // level, text
    std::vector<std::string> errorLog;
    std::string shell;

    int serialOpenResult = 0, serialWriteResult = 0, serialCloseResult = 0;
    std::string serialDevice;                                  // open device, "" when closed
    std::vector<std::pair<u32, u32>> serialSettings;
    std::string received, sent;

    u32 mmioRead(u32 address) override
    {
        ++reads[address];
        order += 'r';
        const auto hook = onRead.find(address);
        return hook != onRead.end() ? hook->second(memory[address]) : memory[address];
    }
    void mmioWrite(u32 address, u32 value) override
    {
        writes.emplace_back(address, value);
        order += 'w';
        memory[address] = value;
        const auto hook = onWrite.find(address);
        if (hook != onWrite.end()) hook->second(value);
    }
    void ioBarrier() override { order += 'b'; }

    int adiBoardCode(u32& code) override { return code = boardCode, adiResult; }
    int adiEnableExtInt(u32 vector) override { return lines.emplace_back('e', vector), extIntResult; }
    int adiDisableExtInt(u32 vector) override { return lines.emplace_back('d', vector), extIntResult; }
    int boardParameter(const char* name, char* text, std::size_t size) override
    {
        const auto found = parameters.find(name);
        if (found == parameters.end() || found->second.size() >= size) return 1;
        found->second.copy(text, found->second.size());
        text[found->second.size()] = '\0';
        return 0;
    }
    int bootParameter(const char*, char*, std::size_t) override { return 1; }

    int visualIndication(u32) override { return 0; }
    int elgiWrite(const char* code, u32, u32, const char* text, u32) override
    {
        return errorLog.push_back(std::string(code) + " " + text), 0;
    }
    int registerShutdown(void (*)()) override { return 0; }
    node::CalendarTime calendar() override { return now; }
    int fileExists(const char*) override { return 0; }
    int fileRead(const char*, std::string&) override { return 1; }
    int fileWrite(const char*, const std::string&) override { return 1; }
    int fileAppend(const char*, const std::string&) override { return 1; }
    int fileRemove(const char*) override { return 1; }

    int serialOpen(const char* device, u32, const node::SerialSetting* settings, std::size_t count) override
    {
        if (serialOpenResult != 0) return serialOpenResult;
        serialDevice = device;
        serialSettings.clear();
        for (const auto& s : std::span(settings, count)) serialSettings.emplace_back(s.key, s.value);
        return 0;
    }
    int serialClose(const char*) override { return serialDevice.clear(), serialCloseResult; }
    int serialWrite(const char*, const u8* bytes, std::size_t count) override
    {
        if (serialWriteResult != 0) return serialWriteResult;
        sent.append(reinterpret_cast<const char*>(bytes), count);
        return 0;
    }
    std::size_t serialRead(const char*, u8* bytes, std::size_t room) override
    {
        const std::size_t count = std::min(room, received.size());
        std::copy_n(received.begin(), count, bytes);
        received.erase(0, count);
        return count;
    }
    int registerCommand(const node::ShellCommand&) override { return 0; }
    void shellPrint(const char* text) override { shell += text; }
    void trace(const node::TraceRecord& record) override { traces.emplace_back(record.level, record.text); }

    std::size_t countOf(const std::string& text) const
    {
        std::size_t count = 0;
        for (const auto& [level, line] : traces) count += line.find(text) != std::string::npos;
        return count;
    }
    int levelOf(const std::string& text) const
    {
        for (const auto& [level, line] : traces)
            if (line.find(text) != std::string::npos) return level;
        return -1;
    }
};

constexpr u32 NO_BOARD = 0;
constexpr u32 BASE_1 = 0xE0070000, BASE_2B = 0xC0070000, BASE_2C = 0xD0010000, BASE_2D = 0xD0000000;

/// A loaded program on a fake bus, its base addresses found.
struct Bench {
    FakeBus bus;
    ose::World world{1};
    ose::System& system = world.createSystem("node");
    ose::Block* block = nullptr;

    explicit Bench(u32 board, bool init = true)
    {
        bus.boardCode = board == 1 ? 7 : board == 2 ? 9 : 3;
        system.setPlatform(static_cast<node::Platform*>(&bus));
        block = &system.load(idleProgram());
        if (init) in([] { HALI_init(); });
        bus.writes.clear();
        bus.traces.clear();
    }
    /// Runs `body` as a process of the program, to its end, with every trace level on.
    void in(const std::function<void()>& body)
    {
        system.call(*block, [&] {
            node::traceSetProgramMask(0xFFFFFFFF);
            body();
        });
    }
    u32 address(u32 id)
    {
        u64 found = 0;
        in([&] { found = tuHwIf_lookupRegister(id); });
        return static_cast<u32>(found);
    }
    void set(u32 id, u32 value) { bus.memory[address(id)] = value; }
    u32 get(u32 id) { return bus.memory[address(id)]; }
    /// Writes since the last call, as (address, value).
    std::vector<std::pair<u32, u32>> takeWrites() { return std::exchange(bus.writes, {}); }
};

/// An order to the wander generator; within the program.
inline void orderWander(u32 operation, double f = 0, double a = 0, double o = 0)
{
    auto* req = reinterpret_cast<KvdTuhwifGenWanderReq*>(
        ose::alloc(sizeof(KvdTuhwifGenWanderReq), KVD_TUHWIF_GEN_WANDER_REQ));
    req->operation = operation;
    req->frequency = f;
    req->amplitude = a;
    req->offset = o;
    Signal* sig = reinterpret_cast<Signal*>(req);
    tuHwIf_dispatch(sig);
    ose::free_buf(&sig);
}

/// Bytes of the EEPROM block into their words, the first byte in the upper bits.
inline void putBlock(FakeBus& bus, u32 base, const std::vector<u8>& block)
{
    for (std::size_t i = 0; i < block.size(); ++i) {
        u32& word = bus.memory[base + 0x80 + static_cast<u32>(i & ~3u)];
        const int shift = 24 - 8 * static_cast<int>(i & 3);
        word = (word & ~(0xFFu << shift)) | static_cast<u32>(block[i]) << shift;
    }
}

}  // namespace hwtest
