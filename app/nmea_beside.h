// nmea_beside.h - What of a receiver's log tells date and time to a common reader, beside what the unit
// takes: RMC and ZDA of any talker (NMEA 0183), GN of several systems too.
#pragma once
#include "ose/types.h"

#include <cstdio>
#include <map>
#include <string>
#include <string_view>

namespace app {

class NmeaBeside {
public:
    struct Count { u64 good = 0, badSum = 0, invalid = 0, unreadable = 0; };

    /// A sentence as the line carried it, without the "$".
    void take(std::string_view sentence);
    const std::map<std::string, Count>& counts() const { return counts_; }
    /// "2024-05-01 12:00:00 UTC" of the newest good one, "" without any.
    const std::string& time() const { return time_; }
    u64 steps() const { return steps_; } // of its time against the second before, but for repetitions

private:
    void note(Count& count, i64 second);
    std::map<std::string, Count> counts_;
    std::string time_;
    i64 second_ = 0;                                 // since 1970
    u64 steps_ = 0;
};

void printNmeaBeside(const NmeaBeside& beside, std::FILE* out);

}  // namespace app
