// kvd_mgr_mem_data.cpp - Content of the persistent memory regions: reading, writing, checksums.
#include "store/kvd_mgr_mem.h"

#include "base/trace_groups.h"
#include "node/bytes.h"
#include "node/trace.h"
#include "store/kvd_mgr_mem_int.h"
#include "store/kvd_mgr_mem_upcalls.h"

#include <cstring>

using mem::state;

namespace {

/// Where a client's bytes, counted through its regions, keep what isn't data.
struct Layout {
    u32 clientRef;
    u32 size;
    u32 sumAt;
    u32 sizeAt;              // NO_SIZE_WORD: none
    u32 skipFrom, skipTo;    // bytes that the sum reads as 0
    mem::RegionIndex first;
};
constexpr u32 NO_SIZE_WORD = 0xFFFFFFFF;
constexpr Layout LAYOUTS[] = {
    {MEM_REG_HIST,   MEM_REG_HIST_SIZE,   4, 8,            4, 8,  mem::REG_HIST},
    {MEM_GPS_OUT,    MEM_GPS_OUT_SIZE,    8, NO_SIZE_WORD, 8, 12, mem::GPS_OUT_OFFSET},
    {MEM_REG_NF,     MEM_REG_NF_SIZE,     0, NO_SIZE_WORD, 0, 8,  mem::REG_NF},
    {MEM_SLAVE_WARM, MEM_SLAVE_WARM_SIZE, 0, 4,            0, 4,  mem::SLAVE_WARM},
};
constexpr u32 BLOCK_MAX = MEM_REG_HIST_SIZE;

const Layout* layoutOf(u32 clientRef)
{
    for (const Layout& l : LAYOUTS)
        if (l.clientRef == clientRef) return &l;
    return nullptr;
}

u32 checksum(const Layout& layout, const u8* bytes)
{
    constexpr u32 FNV_OFFSET_BASIS = 0x811C9DC5;
    constexpr u32 FNV_PRIME = 16777619;
    u32 sum = FNV_OFFSET_BASIS;
    u32 i = 0;
    for (; i < layout.skipFrom; ++i) sum = (sum ^ bytes[i]) * FNV_PRIME;
    for (; i < layout.skipTo; ++i) sum *= FNV_PRIME;
    for (; i < layout.size; ++i) sum = (sum ^ bytes[i]) * FNV_PRIME;
    return sum;
}

/// Address of byte `at` of a client's data; client 2's checksum lies in a region of its own.
u32 addressOf(const Layout& layout, u32 at)
{
    if (layout.clientRef == MEM_GPS_OUT && at >= layout.sumAt)
        return state().region[mem::GPS_OUT_SUM].address;
    return state().region[layout.first].address + at;
}

bool allocated(const Layout& layout)
{
    return state().region[layout.first].address != 0 && addressOf(layout, layout.sumAt) != 0;
}

bool store(const Layout& layout, u32 at, const u8* bytes, u32 count)
{
    const u32 result = node::TarsoMsi_memSafeWrite(addressOf(layout, at), bytes, count);
    if (result == node::MSI_DONE) return true;
    KVD_TRACE(TRACE_TUMGR_PROC, TRACE_ERROR, "Memory write failed, clientRef=%u offset=%u result=%u",
              layout.clientRef, at, result);
    return false;
}

bool storeWord(const Layout& layout, u32 at, u32 value)
{
    u8 bytes[4];
    node::putBe32(bytes, value);
    return store(layout, at, bytes, sizeof bytes);
}

/// Reads a client of one region whole.
bool fetch(const Layout& layout, u8* block)
{
    const u32 result = node::TarsoMsi_memRead(addressOf(layout, 0), block, layout.size);
    if (result == node::MSI_DONE) return true;
    KVD_TRACE(TRACE_TUMGR_PROC, TRACE_ERROR, "Memory read failed, clientRef=%u result=%u", layout.clientRef,
              result);
    return false;
}

bool traceDifference(u32 calculated, u32 received, u32 clientRef)
{
    KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO, "Checksum differs: calculated=%u, received=%u, clientRef=%u",
              calculated, received, clientRef);
    return false;
}

bool readShadow(const Layout& layout, u8* shadow, u8* buffer)
{
    const u32 stored = node::be32(shadow + layout.sumAt);
    // The sum of client 2 serves one read; the next write brings a new one.
    if (layout.clientRef == MEM_GPS_OUT) node::putBe32(shadow + layout.sumAt, 0);
    const u32 calculated = checksum(layout, shadow);
    if (calculated != stored) return traceDifference(calculated, stored, layout.clientRef);
    std::memcpy(buffer, shadow, layout.size);
    return true;
}

bool readRegion(const Layout& layout, u8* buffer)
{
    u8 block[BLOCK_MAX];
    if (!fetch(layout, block)) return false;
    const u32 stored = node::be32(block + layout.sumAt);
    storeWord(layout, layout.sumAt, 0);
    const u32 calculated = checksum(layout, block);
    if (layout.clientRef == MEM_REG_HIST) storeWord(layout, layout.sumAt, stored);
    if (calculated != stored) return traceDifference(calculated, stored, layout.clientRef);
    if (layout.clientRef == MEM_SLAVE_WARM) storeWord(layout, layout.sumAt, stored);
    if (layout.clientRef == MEM_REG_HIST && !MEM_UPCALLS.isHistoryUsable(block)) return false;
    std::memcpy(buffer, block, layout.size);
    return true;
}

bool writeGpsOut(const Layout& layout, const u8* data)
{
    bool done = store(layout, 0, data, layout.sumAt);
    done &= storeWord(layout, layout.sumAt, 0);
    mem::refreshShadow(MEM_GPS_OUT);
    u8* const shadow = state().gpsOutShadow;
    const u32 sum = checksum(layout, shadow);
    node::putBe32(shadow + layout.sumAt, sum);
    done &= storeWord(layout, layout.sumAt, sum);
    return done;
}

bool writeRegNf(const Layout& layout, const u8* data)
{
    u8 block[MEM_REG_NF_SIZE];
    std::memcpy(block, data, sizeof block);
    node::putBe32(&block[layout.sumAt], 0);
    bool done = store(layout, 0, block, sizeof block);
    done &= storeWord(layout, layout.sumAt, checksum(layout, block));
    mem::refreshShadow(MEM_REG_NF);
    return done;
}

bool writeRegion(const Layout& layout, const u8* data)
{
    bool done = store(layout, 0, data, layout.size);
    done &= storeWord(layout, layout.sizeAt, layout.size);
    done &= storeWord(layout, layout.sumAt, 0);
    u8 block[BLOCK_MAX];
    if (!fetch(layout, block)) return false;
    done &= storeWord(layout, layout.sumAt, checksum(layout, block));
    return done;
}

}  // namespace

void mem::refreshShadow(u32 clientRef)
{
    const auto copy = [](RegionIndex index, u8* to) {
        const Region& r = state().region[index];
        if (r.address == 0) return;
        const u32 result = node::TarsoMsi_memRead(r.address, to, r.size);
        if (result != node::MSI_DONE)
            KVD_TRACE(TRACE_TUMGR_PROC, TRACE_ERROR, "Memory read failed, clientRef=%u result=%u",
                      r.clientRef, result);
    };
    if (clientRef == MEM_GPS_OUT) {
        copy(GPS_OUT_OFFSET, state().gpsOutShadow);
        copy(GPS_OUT_SUM, state().gpsOutShadow + 8);
    } else {
        copy(REG_NF, state().regNfShadow);
    }
}

u32 KvdLoz6TuMem_checksum(u32 clientRef, const u8* bytes) { return checksum(*layoutOf(clientRef), bytes); }

bool KvdLoz6TuMem_read(u32 clientRef, void* buffer, u32 size)
{
    if (state().msiState != 1) {
        KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO, "MSI has not yet been initiated");
        return false;
    }
    const Layout* const layout = layoutOf(clientRef);
    if (layout == nullptr || buffer == nullptr || size != layout->size || !allocated(*layout)) {
        KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO, "Nothing to read, clientRef=%u size=%u", clientRef, size);
        return false;
    }
    u8* const to = static_cast<u8*>(buffer);
    switch (clientRef) {
    case MEM_GPS_OUT: return readShadow(*layout, state().gpsOutShadow, to);
    case MEM_REG_NF:  return readShadow(*layout, state().regNfShadow, to);
    default:          return readRegion(*layout, to);
    }
}

bool KvdLoz6TuMem_write(u32 clientRef, const void* buffer, u32 size)
{
    const Layout* const layout = layoutOf(clientRef);
    if (layout == nullptr) {
        KVD_TRACE(TRACE_TUMGR_PROC, TRACE_ERROR, "Invalid clientRef=%u", clientRef);
        return false;
    }
    const bool possible = state().msiState == 1 && allocated(*layout);
    if (!possible || buffer == nullptr || size != layout->size) {
        KVD_TRACE(TRACE_TUMGR_PROC, TRACE_ERROR, "%s not written, msiState=%u address=0x%08x size=%u",
                  state().region[layout->first].name, state().msiState, addressOf(*layout, 0), size);
        return false;
    }
    const u8* const data = static_cast<const u8*>(buffer);
    switch (clientRef) {
    case MEM_GPS_OUT: return writeGpsOut(*layout, data);
    case MEM_REG_NF:  return writeRegNf(*layout, data);
    default:          return writeRegion(*layout, data);
    }
}

bool KvdLoz6TuMem_writeSlaveWarm(const void* buffer)
{
    if (!KvdLoz6TuMem_ready(MEM_SLAVE_WARM)) {
        KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO,
                  "Failed to write Slave warm data to MSI memory due to unallocated MSI.");
        std::memcpy(state().slaveWarmPending, buffer, MEM_SLAVE_WARM_SIZE);
        state().pending = true;
        return false;
    }
    const bool done = KvdLoz6TuMem_write(MEM_SLAVE_WARM, buffer, MEM_SLAVE_WARM_SIZE);
    if (done)
        KVD_TRACE(TRACE_TUMGR_PROC, TRACE_7, "Successfully updated IDL2 Slave MSI memory");
    else
        KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO, "Failed to write Slave warm data to MSI memory");
    return done;
}

bool KvdLoz6TuMem_readSlaveWarm(void* buffer)
{
    const bool good = KvdLoz6TuMem_read(MEM_SLAVE_WARM, buffer, MEM_SLAVE_WARM_SIZE);
    if (good) KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO, "Slave MSI memory read SUCCEEDED");
    else           KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO, "Slave MSI memory read Failed");
    return good;
}
