// pool.h - Private to the kernel: signal buffers and the pools that they come from.
#pragma once
#include "ose/ose.h"

#include <memory>
#include <string>
#include <vector>

namespace ose {

class Pool;

enum class BufferState : u8 {
    Free,     // in the pool
    Held,     // a process owns it
    Queued,   // waits in its owner's queue
    Kernel,   // a prepared signal: belongs to a timer, a hunt or an attach
};

/// Stands before the bytes of each signal.
struct alignas(16) Buffer {
    u64 mark;            // proves that a pointer is a buffer at all
    BufferState state;
    u8 sizeClass;
    u32 size;            // as asked for, bytes
    PROCESS owner;
    PROCESS sender;
    Buffer* next;        // in a queue or in the pool's free list
    Buffer* newer;       // in the pool's list of buffers in use
    Buffer* older;
    Pool* pool;
    const void* frame;   // stack depth where its owner got hold of it
    bool kept;           // its owner holds it for good: see keep
    AttachRef attach;    // queued, the news of the death that this one supervised
    Place place;         // of allocation

    Signal* signal() { return reinterpret_cast<Signal*>(this + 1); }
    std::byte* bytes() { return reinterpret_cast<std::byte*>(this + 1); }
    static Buffer* of(Signal* sig) { return reinterpret_cast<Buffer*>(sig) - 1; }
    bool genuine() const { return mark == markOf(this); }
    bool endIntact() const;
    static u64 markOf(const Buffer* b) { return reinterpret_cast<std::uintptr_t>(b) ^ 0x5EA1'B0FF'E45E'A1ED; }
};

/// Buffers by size class. A freed buffer stays in its class, so a steady load asks no heap.
class Pool {
public:
    /// `limit` bytes in all, counted in whole size classes; 0: unlimited. `classes` ascending.
    Pool(u32 limit, std::vector<u32> classes);
    ~Pool();
    Pool(const Pool&) = delete;
    Pool& operator=(const Pool&) = delete;

    /// A zeroed buffer in use, without owner; nullptr when the pool has no room for it.
    Buffer* get(u32 size, const Place& place);
    void put(Buffer& b);

    u32 largest() const { return classes_.back().size; }
    u32 limit() const { return limit_; }
    u32 used() const { return used_; }
    u32 peak() const { return peak_; }
    Buffer* oldest() const { return oldest_; }   // of those in use, by way of Buffer::newer

    /// The program is gone; the pool goes with its last buffer.
    void leave();
    std::vector<Pool*>* registry = nullptr;      // list that this pool takes itself out of

private:
    struct Class {
        u32 size;
        Buffer* free;
    };
    u32 limit_;
    u32 used_ = 0;
    u32 peak_ = 0;
    bool left_ = false;
    std::vector<Class> classes_;
    Buffer* oldest_ = nullptr;
    Buffer* newest_ = nullptr;
};

struct PoolLeaver {
    void operator()(Pool* pool) const { pool->leave(); }
};

/// "31,63,127" to numbers; empty when it isn't such a list in ascending order, 4 to 65535 each.
std::vector<u32> parseSizes(const std::string& text);

}  // namespace ose
