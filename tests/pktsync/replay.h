// replay.h - What the replays of packet synchronisation's check values share.
#pragma once
#include "tests/pktsync/ptp_bench.h"
#include "tests/support/vectors.h"

namespace bench {

using vectors::json;
using vectors::Value;

inline std::string text(const Value& v) { return v.get<std::string>(); }
inline PtpStamp stampOf(const Value& v) { return {v[0], v[1]}; }
inline PtpPortIdentity portOf(const Value& v) { return {identityOf(text(v[0])), v[1]}; }
inline std::array<u8, 5> classesOf(const Value& v) { return v.get<std::array<u8, 5>>(); }

/// The named results of a step.
inline void expectSame(const Value& step, std::initializer_list<std::pair<const char*, json>> got)
{
    for (const auto& [key, value] : got) EXPECT_EQ(step[key], value) << key;
}
[[noreturn]] inline void noReplay(const Value& of) { throw std::runtime_error("no replay of " + of.dump()); }

/// Each of a list on a node of its own, in a process of it: what one leaves isn't the next one's.
inline void replay(const char* file, const std::function<void(const Value&)>& body,
                   const char* list = "cases")
{
    vectors::Document document(file);
    vectors::each(document[list], [&body](const Value& c) {
        IdleNode b;
        b.in([&] { body(c); });
    });
}

}  // namespace bench
