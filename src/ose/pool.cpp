#include "ose/pool.h"

#include <algorithm>
#include <cstring>
#include <new>

#if defined(__SANITIZE_ADDRESS__)
#define TU_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TU_ASAN 1
#endif
#endif
#ifdef TU_ASAN
#include <sanitizer/asan_interface.h>
#define TU_POISON(at, size)   __asan_poison_memory_region((at), (size))
#define TU_UNPOISON(at, size) __asan_unpoison_memory_region((at), (size))
#else
#define TU_POISON(at, size)   static_cast<void>(0)
#define TU_UNPOISON(at, size) static_cast<void>(0)
#endif

namespace ose {
namespace {

constexpr u32 END_MARK = 0xE5D0'CAFE;        // right behind the last byte of a signal
constexpr u32 FREED_NUMBER = 0xF4EE'DF4E;    // what a program reads from a signal that it has freed
constexpr std::size_t ALIGN = alignof(Buffer);

std::size_t roomOf(u32 classSize) { return (classSize + sizeof END_MARK + ALIGN - 1) / ALIGN * ALIGN; }

}  // namespace

bool Buffer::endIntact() const
{
    const std::byte* end = reinterpret_cast<const std::byte*>(this + 1) + size;
    return std::memcmp(end, &END_MARK, sizeof END_MARK) == 0;
}

Pool::Pool(u32 limit, std::vector<u32> classes) : limit_(limit)
{
    for (const u32 size : classes) classes_.push_back({size, nullptr});
}

Pool::~Pool()
{
    left_ = false;
    while (oldest_ != nullptr) put(*oldest_);
    for (Class& c : classes_) {
        while (c.free != nullptr) {
            Buffer* b = c.free;
            c.free = b->next;
            TU_UNPOISON(b->bytes(), roomOf(c.size));
            ::operator delete(b, std::align_val_t{ALIGN});
        }
    }
    if (registry != nullptr) std::erase(*registry, this);
}

Buffer* Pool::get(u32 size, const Place& place)
{
    u8 index = 0;
    while (index < classes_.size() && classes_[index].size < size) ++index;
    if (index == classes_.size()) return nullptr;
    Class& c = classes_[index];
    if (limit_ != 0 && limit_ - used_ < c.size) return nullptr;

    Buffer* b = c.free;
    if (b != nullptr) {
        c.free = b->next;
    } else {
        b = static_cast<Buffer*>(::operator new (sizeof(Buffer) + roomOf(c.size), std::align_val_t{ALIGN}));
        new (b) Buffer{};
        b->mark = Buffer::markOf(b);
        b->pool = this;
        b->sizeClass = index;
        TU_POISON(b->bytes(), roomOf(c.size));
    }
    TU_UNPOISON(b->bytes(), size + sizeof END_MARK);
    std::memset(b->bytes(), 0, size);
    std::memcpy(b->bytes() + size, &END_MARK, sizeof END_MARK);
    b->state = BufferState::Held;
    b->size = size;
    b->owner = 0;
    b->sender = 0;
    b->next = nullptr;
    b->frame = nullptr;
    b->kept = false;
    b->attach = 0;
    b->place = place;
    b->newer = nullptr;
    b->older = newest_;
    (newest_ != nullptr ? newest_->newer : oldest_) = b;
    newest_ = b;
    used_ += c.size;
    peak_ = std::max(peak_, used_);
    return b;
}

void Pool::put(Buffer& b)
{
    Class& c = classes_[b.sizeClass];
    (b.older != nullptr ? b.older->newer : oldest_) = b.newer;
    (b.newer != nullptr ? b.newer->older : newest_) = b.older;
    used_ -= c.size;
    b.state = BufferState::Free;
    b.signal()->sigNo = FREED_NUMBER;
    TU_POISON(b.bytes(), roomOf(c.size));
    b.next = c.free;
    c.free = &b;
    if (left_ && oldest_ == nullptr) {
        left_ = false;
        delete this;
    }
}

void Pool::leave()
{
    if (oldest_ == nullptr) delete this;
    else left_ = true;
}

std::vector<u32> parseSizes(const std::string& text)
{
    std::vector<u32> sizes;
    u32 value = 0;
    bool digits = false;
    for (std::size_t i = 0; i <= text.size(); ++i) {
        const char c = i < text.size() ? text[i] : ',';
        if (c >= '0' && c <= '9') {
            value = value * 10 + static_cast<u32>(c - '0');
            digits = true;
            if (value > SIGNAL_SIZE_MAX) return {};
        } else if (c == ',') {
            if (!digits || value < 4 || (!sizes.empty() && value <= sizes.back())) return {};
            sizes.push_back(value);
            value = 0;
            digits = false;
        } else if (c != ' ') {
            return {};
        }
    }
    return sizes.size() <= 255 ? sizes : std::vector<u32>{};
}

}  // namespace ose
