// sig.h - Looking at a received signal as a layout.
#pragma once
#include "node/trace.h"
#include "ose/ose.h"

#include <span>

namespace node {

/// Size and sender of a signal that is only read: the kernel's calls take a buffer that may change hands.
inline u32 sizeOf(const Signal* sig)
{
    Signal* s = const_cast<Signal*>(sig);
    return ose::sigsize(&s);
}
inline PROCESS senderOf(const Signal* sig)
{
    Signal* s = const_cast<Signal*>(sig);
    return ose::sender(&s);
}

/// Traces a signal that is shorter than its layout: number, sizes, sender.
void traceShortSignal(const Signal* sig, u32 wanted);

/// The buffer as layout T, or nullptr (traced) when it is too short for it: a peer can send that.
/// Handlers begin with `if (ind == nullptr) return;`.
template <typename T>
const T* as(const Signal* sig)
{
    if (sizeOf(sig) < sizeof(T)) {
        traceShortSignal(sig, static_cast<u32>(sizeof(T)));
        return nullptr;
    }
    return reinterpret_cast<const T*>(sig);
}

/// The same for a layout whose end is open, text or a list: `least` octets are there, and the members in
/// them.
template <typename T>
const T* asOfAtLeast(const Signal* sig, std::size_t least)
{
    if (sizeOf(sig) < least) {
        traceShortSignal(sig, static_cast<u32>(least));
        return nullptr;
    }
    return reinterpret_cast<const T*>(sig);
}

/// What a signal carries behind its layout: the whole items that it holds, which lie aligned there.
template <typename T, typename Layout>
std::span<const T> tail(const Layout* sig)
{
    static_assert(sizeof(Layout) % alignof(T) == 0);
    return {reinterpret_cast<const T*>(sig + 1),
            (sizeOf(reinterpret_cast<const Signal*>(sig)) - sizeof(Layout)) / sizeof(T)};
}

/// A new signal of layout T, zeroed, its number set.
template <typename T>
T* make(SIGSELECT sigNo, const ose::Place& place = ose::Place::current())
{
    return reinterpret_cast<T*>(ose::alloc(sizeof(T), sigNo, place));
}

/// Sends a signal of layout T; the pointer is cleared.
template <typename T>
void sendTo(PROCESS to, T*& sig, const ose::Place& place = ose::Place::current())
{
    Signal* s = reinterpret_cast<Signal*>(sig);
    sig = nullptr;
    ose::send(&s, to, place);
}

}  // namespace node

using node::as;
