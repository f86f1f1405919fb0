// event_queue.h - Private to the kernel: pending events by due time, then by request.
#pragma once
#include "ose/world.h"

#include <algorithm>

namespace ose {

enum class EventKind : u8 { Action, Timer, Wait, Period };

/// Lives inside of what it wakes, so that queueing one never allocates.
struct Event {
    static constexpr u32 NOT_QUEUED = UINT32_MAX;
    EventKind kind = EventKind::Wait;
    u32 position = NOT_QUEUED;   // in the queue
    void* owner = nullptr;

    bool queued() const { return position != NOT_QUEUED; }
};

/// A heap of four children a node, flatter than one of two, that events can leave from the middle.
class EventQueue {
public:
    EventQueue() { heap_.reserve(512); }

    bool empty() const { return heap_.empty(); }
    Time nextDue() const { return heap_.empty() ? INT64_MAX : heap_.front().due; }
    void push(Event& event, Time due)
    {
        heap_.push_back({due, ++requests_, &event});
        up(static_cast<u32>(heap_.size() - 1), heap_.back());
    }
    Event& pop()
    {
        Event& event = *heap_.front().event;
        remove(event);
        return event;
    }
    /// No effect when it isn't queued.
    void remove(Event& event)
    {
        const u32 hole = event.position;
        if (hole == Event::NOT_QUEUED) return;
        event.position = Event::NOT_QUEUED;
        const Entry moved = heap_.back();
        heap_.pop_back();
        if (hole == heap_.size()) return;
        if (hole > 0 && moved < heap_[(hole - 1) / CHILDREN]) up(hole, moved);
        else down(hole, moved);
    }

private:
    static constexpr u32 CHILDREN = 4;
    struct Entry {
        Time due;
        u64 request;
        Event* event;
        bool operator<(const Entry& other) const
        {
            return due != other.due ? due < other.due : request < other.request;
        }
    };
    void put(u32 at, const Entry& entry)
    {
        heap_[at] = entry;
        entry.event->position = at;
    }
    void up(u32 at, const Entry entry)
    {
        while (at > 0 && entry < heap_[(at - 1) / CHILDREN]) {
            put(at, heap_[(at - 1) / CHILDREN]);
            at = (at - 1) / CHILDREN;
        }
        put(at, entry);
    }
    void down(u32 at, const Entry entry)
    {
        const u32 size = static_cast<u32>(heap_.size());
        for (;;) {
            const u32 first = CHILDREN * at + 1;
            if (first >= size) break;
            u32 child = first;
            for (u32 other = first + 1; other < std::min(first + CHILDREN, size); ++other)
                if (heap_[other] < heap_[child]) child = other;
            if (!(heap_[child] < entry)) break;
            put(at, heap_[child]);
            at = child;
        }
        put(at, entry);
    }

    std::vector<Entry> heap_;
    u64 requests_ = 0;
};

}  // namespace ose
