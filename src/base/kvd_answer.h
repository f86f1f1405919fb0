// kvd_answer.h - The answer that a service of the node owes to a request. One that hears and says nothing
// isn't dead, and nothing else would ask it again: its client does, each 10 s, until the answer is there.
// Owner   the process that asks. It starts the wait with each request, cancels the timer when the answer or
//         the service's death ends it, and repeats the request when the answer is late. One that comes twice
//         then is dropped like any that nobody asked for.
// Errors  a timer that can't be had is traced; the request isn't repeated then.
#pragma once
#include "base/kvd_timer.h"

constexpr OSTIME KVD_ANSWER_ms = 10'000;

/// What is the same in each wait of a client.
struct KvdAnswerOf {
    u32 traceGroup;
    const char* service;
    SIGSELECT timeout;          // no data
};

void KvdAnswer_await(KvdTimer& timer, const KvdAnswerOf& of, OSTIME time_ms = KVD_ANSWER_ms);
/// First call of the time-out's handler: true, and traced, when the request is to be repeated.
bool KvdAnswer_isLate(KvdTimer& timer, const KvdAnswerOf& of);
