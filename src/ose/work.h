// work.h - Something to be done later: moved, not copied, and up to a packet's size held in place, so that
// queueing it asks no heap.
#pragma once
#include <concepts>
#include <cstddef>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace ose {

class Work {
public:
    static constexpr std::size_t HELD = 112;   // bytes; more goes to the heap

    Work() = default;
    template <typename Body>
        requires(!std::same_as<std::remove_cvref_t<Body>, Work> && std::invocable<std::decay_t<Body>&>)
    Work(Body&& body)
    {
        using Held = std::decay_t<Body>;
        if constexpr (sizeof(Held) <= HELD && alignof(Held) <= ALIGN
                      && std::is_nothrow_move_constructible_v<Held>) {
            new (at_) Held(std::forward<Body>(body));
            kind_ = &KIND<Held>;
        } else {
            *this = Work([far = std::make_unique<Held>(std::forward<Body>(body))] { (*far)(); });
        }
    }
    Work(Work&& other) noexcept { take(other); }
    Work& operator=(Work&& other) noexcept
    {
        if (this == &other) return *this;
        clear();
        take(other);
        return *this;
    }
    ~Work() { clear(); }

    void operator()() { kind_->run(at_); }
    void clear()
    {
        if (kind_ != nullptr) std::exchange(kind_, nullptr)->destroy(at_);
    }

private:
    static constexpr std::size_t ALIGN = 16;
    struct Kind {
        void (*run)(void* at);
        void (*move)(void* to, void* from);   // leaves nothing behind
        void (*destroy)(void* at);
    };
    template <typename Held>
    static constexpr Kind KIND{
        [](void* at) { (*static_cast<Held*>(at))(); },
        [](void* to, void* from) {
            new (to) Held(std::move(*static_cast<Held*>(from)));
            static_cast<Held*>(from)->~Held();
        },
        [](void* at) { static_cast<Held*>(at)->~Held(); },
    };

    void take(Work& other)
    {
        kind_ = std::exchange(other.kind_, nullptr);
        if (kind_ != nullptr) kind_->move(at_, other.at_);
    }

    alignas(ALIGN) std::byte at_[HELD];
    const Kind* kind_ = nullptr;
};

}  // namespace ose
