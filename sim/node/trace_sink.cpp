#include "sim/node/trace_sink.h"

namespace sim {

namespace {

bool matches(const TraceLine& line, const TraceQuery& query)
{
    return line.at >= query.since && (query.level < 0 || line.level == query.level)
           && (query.group.empty() || line.group == query.group)
           && line.text.find(query.text) != std::string::npos;
}

}  // namespace

TraceSink::~TraceSink() { toFile(""); }

void TraceSink::write(ose::Time now, const node::TraceRecord& record)
{
    ++written_;
    TraceLine line{now,         record.group, record.level, record.process,
                   record.file, record.line,  record.text};
    if (file_ != nullptr || stream_ != nullptr) {
        const std::string text = format(line) + "\n";
        if (file_ != nullptr) std::fputs(text.c_str(), file_);
        if (stream_ != nullptr) std::fputs(text.c_str(), stream_);
    }
    if (observer_) observer_(line);
    if (capacity_ == 0) return;
    if (lines_.size() == capacity_) lines_.pop_front();
    lines_.push_back(std::move(line));
}

void TraceSink::setCapacity(std::size_t lines)
{
    capacity_ = lines;
    while (lines_.size() > capacity_) lines_.pop_front();
}

bool TraceSink::toFile(const std::string& path)
{
    if (file_ != nullptr) std::fclose(file_);
    file_ = path.empty() ? nullptr : std::fopen(path.c_str(), "w");
    return path.empty() || file_ != nullptr;
}

std::size_t TraceSink::count(const TraceQuery& query) const
{
    std::size_t n = 0;
    for (const TraceLine& line : lines_)
        if (matches(line, query)) ++n;
    return n;
}

const TraceLine* TraceSink::last(const TraceQuery& query) const
{
    for (auto line = lines_.rbegin(); line != lines_.rend(); ++line)
        if (matches(*line, query)) return &*line;
    return nullptr;
}

std::vector<TraceLine> TraceSink::find(const TraceQuery& query) const
{
    std::vector<TraceLine> found;
    for (const TraceLine& line : lines_)
        if (matches(line, query)) found.push_back(line);
    return found;
}

std::string TraceSink::format(const TraceLine& line) const
{
    char head[48];
    std::snprintf(head, sizeof head, "%lld.%06lld ", static_cast<long long>(line.at / ose::SEC),
                  static_cast<long long>(line.at % ose::SEC / ose::US));
    return head + unit_ + " " + std::to_string(line.level) + " " + line.group + " " + line.process + " "
           + line.file + ":" + std::to_string(line.line) + " " + line.text;
}

}  // namespace sim
