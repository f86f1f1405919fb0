// trace_sink.h - Where the traces of a unit go: kept for tests and reports, to a file, to the
// console.
#pragma once
#include "node/platform.h"
#include "ose/world.h"

#include <cstdio>
#include <deque>
#include <functional>
#include <string>
#include <vector>

namespace sim {

struct TraceLine {
    ose::Time at = 0;
    std::string group;
    u8 level = 0;
    std::string process;
    std::string file;
    int line = 0;
    std::string text;
};

/// Which traces a query looks at. An empty text or group takes any.
struct TraceQuery {
    std::string text;              // part of the text
    std::string group = {};        // whole name
    int level = -1;                // -1 takes any
    ose::Time since = 0;
};

class TraceSink {
public:
    explicit TraceSink(std::string unit) : unit_(std::move(unit)) {}
    ~TraceSink();
    TraceSink(const TraceSink&) = delete;
    TraceSink& operator=(const TraceSink&) = delete;

    void write(ose::Time now, const node::TraceRecord& record);

    /// Newest lines that are kept for queries; 0 keeps none.
    void setCapacity(std::size_t lines);
    /// Starts a file; "" ends it. Answers false when it can't be opened.
    bool toFile(const std::string& path);
    void toStream(std::FILE* stream) { stream_ = stream; }
    void onLine(std::function<void(const TraceLine&)> observer) { observer_ = std::move(observer); }

    std::size_t count(const TraceQuery& query) const;
    bool has(const std::string& text) const { return count({text}) > 0; }
    /// Latest line of the query, nullptr when there is none.
    const TraceLine* last(const TraceQuery& query) const;
    std::vector<TraceLine> find(const TraceQuery& query) const;
    const std::deque<TraceLine>& lines() const { return lines_; }
    u64 written() const { return written_; }
    void clear() { lines_.clear(); }

    /// "12.345678 tu1 4 KVD_BVQ_LOZ6_TUREG Kvd_loz6_tumgr_proc kvd_reg.cpp:12 text"
    std::string format(const TraceLine& line) const;

private:
    std::string unit_;
    std::deque<TraceLine> lines_;
    std::size_t capacity_ = 200'000;
    u64 written_ = 0;
    std::FILE* file_ = nullptr;
    std::FILE* stream_ = nullptr;
    std::function<void(const TraceLine&)> observer_;
};

}  // namespace sim
