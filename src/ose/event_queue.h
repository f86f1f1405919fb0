// event_queue.h - Private to the kernel: pending events by due time, then by request.
#pragma once
#include "ose/world.h"

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

/// A binary heap that events can leave from the middle.
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
        if (hole > 0 && moved < heap_[(hole - 1) / 2]) up(hole, moved);
        else down(hole, moved);
    }

private:
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
        while (at > 0 && entry < heap_[(at - 1) / 2]) {
            put(at, heap_[(at - 1) / 2]);
            at = (at - 1) / 2;
        }
        put(at, entry);
    }
    void down(u32 at, const Entry entry)
    {
        const u32 size = static_cast<u32>(heap_.size());
        for (;;) {
            u32 child = 2 * at + 1;
            if (child >= size) break;
            if (child + 1 < size && heap_[child + 1] < heap_[child]) ++child;
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
