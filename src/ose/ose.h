// ose.h - The kernel as a program sees it: signals, processes, timers, supervision.
// Owner   the kernel; a program reaches it only through these functions, from one of its processes.
// Units   times in ms of kernel time, ticks as system_tick() says.
// Errors  misuse (a buffer that isn't yours, freed twice, leaked) is reported to the world with
//         process, signal and place; alloc and error never return on failure.
#pragma once
#include "ose/types.h"

namespace ose {

/// Where in the source a call stands, as the default argument of what is called. By the compilers' built-ins,
/// as not each library that they come with has the standard's type.
class Place {
public:
    static constexpr Place current(const char* file = __builtin_FILE(), u32 line = __builtin_LINE())
    {
        Place place;
        place.file_ = file;
        place.line_ = line;
        return place;
    }
    constexpr const char* file_name() const { return file_; }
    constexpr u32 line() const { return line_; }

private:
    const char* file_ = "";
    u32 line_ = 0;
};

using Entry = void (*)();

/// Kinds of process for create_process.
constexpr u32 KIND_PRIORITISED     = 0;
constexpr u32 KIND_INTERRUPT       = 128;
constexpr u32 KIND_TIMER_INTERRUPT = 256;

/// The largest signal that a program's pool holds, bytes.
constexpr u32 SIGNAL_SIZE_MAX = 65535;

/// Codes of the kernel's own calls of error.
constexpr u32 ERROR_NO_MEMORY   = 0x8000'0001;   // the pool has no room for a signal
constexpr u32 ERROR_SIGNAL_SIZE = 0x8000'0002;   // no signal has that size

/// A selection that takes any signal. A selection is a count and then that many numbers.
constexpr SIGSELECT ANY_SIGNAL[] = {0};

// ---- signals ------------------------------------------------------------------------------------

/// A buffer of `size` bytes (4 to 65535), zeroed, owned by the caller, its number set.
/// Out of pool memory or out of range: fatal, never returns.
Signal* alloc(u32 size, SIGSELECT sigNo, const Place& place = Place::current());

/// Moves *sig to process `to` and clears *sig. A dead or unknown receiver: the buffer is freed.
void send(Signal** sig, PROCESS to, const Place& place = Place::current());

/// Blocks until a selected signal is queued; the others stay in order.
Signal* receive(const SIGSELECT* selection);

/// The same, or nullptr after `tmo` ms. 0 looks at the queue and returns.
Signal* receive_w_tmo(OSTIME tmo, const SIGSELECT* selection);

/// Releases *sig and clears it. nullptr is misuse.
void free_buf(Signal** sig, const Place& place = Place::current());

/// The process that sent (or allocated) the buffer.
PROCESS sender(Signal* const* sig);

/// The size given to alloc, bytes.
u32 sigsize(Signal* const* sig);

/// The caller takes over a buffer that an interrupt process allocated.
void restore(Signal* sig, const Place& place = Place::current());

/// The caller holds this buffer for as long as the program is loaded, as one of a timer that is armed
/// with it again and again: being held at unload is no leak of it.
void keep(Signal* sig, const Place& place = Place::current());

// ---- processes ----------------------------------------------------------------------------------

/// Looks for a process by name ("link/name" in a linked system). Returns its id when it is there
/// already, else 0. *hunt_sig (when given, moved and cleared) comes to the caller, sent by the process
/// found, as soon as such a process exists: at once when it is there.
PROCESS hunt(const char* name, u32 user, PROCESS* found, Signal** hunt_sig,
             const Place& place = Place::current());

/// Supervises `pid`: *sig (moved and cleared) comes back, sent by pid, when that process dies; at once
/// when it is dead. With a null pointer or nullptr signal the kernel's own attach signal (252) is used.
AttachRef attach(Signal** sig, PROCESS pid, const Place& place = Place::current());

/// Ends a supervision and clears *ref; the prepared signal is freed.
void detach(AttachRef* ref);

/// Blocks the caller only.
void delay(OSTIME time);

PROCESS current_process();
/// Block of a process, 0 when it is gone.
BLOCK get_bid(PROCESS pid);
/// Environment text of a block, nullptr when not set. Valid until the next set_env of that name.
const char* get_env(BLOCK bid, const char* name);
void set_env(BLOCK bid, const char* name, const char* value);
/// Name of a process, nullptr when it is gone.
const char* process_name(PROCESS pid);

/// Creates a process in the caller's block; it runs after start. `kind` is one of KIND_...; `period` in
/// ms for timer interrupts; `vector` for interrupts. `stack` in bytes and `priority` (0 to 31, lower
/// runs first) as in the process tables.
PROCESS create_process(u32 kind, const char* name, Entry entry, u32 stack, u32 priority, OSTIME period,
                       u32 vector);
void start(PROCESS pid);
/// The process (or the whole block, by its block id) is gone; its buffers are released and the
/// attached told. A caller that kills itself doesn't return.
void kill_proc(PROCESS pid);

/// A fatal stop of the program with a code.
[[noreturn]] void error(u32 code, const Place& place = Place::current());

// ---- timers -------------------------------------------------------------------------------------

/// One empty signal of that number to the caller after `time` ms. 0 when no timer is free.
TimerRef request_tmo(OSTIME time, SIGSELECT sigNo, const Place& place = Place::current());
/// The same for a prepared signal, which moves to the timer. On 0 it stays the caller's.
TimerRef request_tmo_sig(OSTIME time, Signal** sig, const Place& place = Place::current());
/// Stops the timer and clears *ref. A time-out that is queued already is still delivered.
void cancel_tmo(TimerRef* ref);
/// The same, and the prepared signal comes back; nullptr when it is queued already.
Signal* cancel_tmo_sig(TimerRef* ref, const Place& place = Place::current());
/// A running timer starts over with `time` ms.
void reset_tmo(TimerRef* ref, OSTIME time);

/// Ticks since the system began, wraps at 2^32. One tick is system_tick() microseconds.
u32 get_ticks();
u32 system_tick();

}  // namespace ose
