#include "app/status_client.h"

#include "app/status_server.h"
#include "app/summary.h"
#include "app/unit_status_text.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace app {
namespace {

using Clock = std::chrono::steady_clock;
using Json = StatusJson;

/// Lines of one connection.
class Connection {
public:
    explicit Connection(std::string path) : path_(std::move(path)) {}
    ~Connection() { if (fd_ >= 0) ::close(fd_); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// False when nobody serves the socket.
    bool open()
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        if (path_.empty() || path_.size() >= sizeof address.sun_path)
            throw StatusError(path_ + ": a socket's path has at most 107 bytes");
        std::memcpy(address.sun_path, path_.data(), path_.size());
        fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return true;
        why_ = std::strerror(errno);
        ::close(fd_);
        fd_ = -1;
        return false;
    }
    const std::string& why() const { return why_; }

    /// Nothing at the connection's end or after `until`.
    std::optional<Json> next(std::optional<Clock::time_point> until)
    {
        for (;;) {
            if (const std::size_t end = buffer_.find('\n'); end != std::string::npos) {
                const std::string line = buffer_.substr(0, end);
                buffer_.erase(0, end + 1);
                Json json = Json::parse(line, nullptr, false);
                if (!json.is_object() || !json.contains("units"))
                    throw StatusError(path_ + ": no status comes from it");
                return json;
            }
            if (buffer_.size() > LONGEST || !fill(until)) return {};
        }
    }

private:
    static constexpr std::size_t LONGEST = 16 << 20;   // bytes of a line, many times what a run says

    bool fill(std::optional<Clock::time_point> until)
    {
        int wait_ms = -1;
        if (until) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(*until - Clock::now()).count();
            if (left <= 0) return false;
            wait_ms = static_cast<int>(std::min<long long>(left, 60'000));
        }
        pollfd polled{fd_, POLLIN, 0};
        if (poll(&polled, 1, wait_ms) == 0) return !until || Clock::now() < *until;
        char bytes[65536];
        const ssize_t n = recv(fd_, bytes, sizeof bytes, 0);
        if (n > 0) buffer_.append(bytes, static_cast<std::size_t>(n));
        return n > 0 || (n < 0 && errno == EINTR);
    }

    std::string path_, buffer_, why_;
    int fd_ = -1;
};

void openOrFail(Connection& connection, const std::string& path)
{
    if (!connection.open()) throw StatusError(path + ": " + connection.why());
}

const Json* unitOf(const Json& run, const std::string& name)
{
    for (const Json& unit : run.at("units"))
        if (name.empty() || unit.at("unit").get<std::string>() == name) return &unit;
    return nullptr;
}

void show(const Json& run, const StatusQuery& query)
{
    if (query.json) {
        std::printf("%s\n", lineOf(query.unit.empty() ? run : *unitOf(run, query.unit)).c_str());
    } else {
        for (const Json& unit : run.at("units"))
            if (query.unit.empty() || unit.at("unit").get<std::string>() == query.unit)
                std::printf("%s%s", whyText(unit).c_str(), sourcesText(unit).c_str());
        if (run.contains("host")) std::printf("%s", heardText(run.at("host")).c_str());
        const bool isPaused = run.at("paused").get<bool>();
        std::printf("%s, %.4g times real time%s\n\n", run.at("scenario").get<std::string>().c_str(),
                    run.at("speed").get<double>(), isPaused ? ", paused" : "");
    }
    std::fflush(stdout);
}

/// The state stands, or has been there since `from_s`: it may have gone by between two lines.
bool wasIn(const Json& unit, const std::string& state, double from_s)
{
    if (unit.at("clock").get<std::string>() == state) return true;
    return std::ranges::any_of(unit.at("events"), [&](const Json& e) {
        return e.at("t").get<double>() >= from_s && e.at("kind").get<std::string>() == "clock"
               && e.at("text").get<std::string>() == state;
    });
}

bool isWithin(const Json& unit, double limit_ns)
{
    const Json& e = unit.at("estimate");
    if (e.at("time_ns").is_null()) return false;
    return std::abs(e.at("time_ns").get<double>()) + e.at("time_band_ns").get<double>() <= limit_ns;
}

std::string describe(const WaitQuery& query)
{
    return query.state + (query.within_ns ? " within " + timeText(*query.within_ns) : "");
}

int print(const StatusQuery& query)
{
    Connection connection(query.socket);
    openOrFail(connection, query.socket);
    constexpr auto PATIENCE = std::chrono::seconds(10);
    bool shown = false;
    for (;;) {
        const auto run = connection.next(shown ? std::nullopt : std::optional(Clock::now() + PATIENCE));
        if (!run && !shown) throw StatusError(query.socket + ": no status comes from it");
        if (!run) return 0;
        if (unitOf(*run, query.unit) == nullptr) throw StatusError("there is no unit '" + query.unit + "'");
        show(*run, query);
        shown = true;
        if (!query.watch || run->at("ended").get<bool>()) return 0;
    }
}

int waitFor(const WaitQuery& query)
{
    constexpr auto TO_BEGIN = std::chrono::seconds(10);
    const auto began = Clock::now();
    std::optional<Clock::time_point> until;
    if (query.timeout_s)
        until = began +
                std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(*query.timeout_s));
    Connection connection(query.socket);
    // A run that was started a moment ago may not serve it yet.
    while (!connection.open()) {
        if (Clock::now() >= until.value_or(began + TO_BEGIN))
            throw StatusError(query.socket + ": " + connection.why());
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    std::optional<double> from_s;
    while (const auto run = connection.next(until)) {
        const Json* const unit = unitOf(*run, query.unit);
        if (unit == nullptr) throw StatusError("there is no unit '" + query.unit + "'");
        if (!from_s) from_s = unit->at("t").get<double>();
        const bool isThere = query.within_ns ? unit->at("clock").get<std::string>() == query.state
                                                   && isWithin(*unit, *query.within_ns)
                                             : wasIn(*unit, query.state, *from_s);
        if (isThere) {
            std::printf("%s %s at %s\n", unit->at("unit").get<std::string>().c_str(), describe(query).c_str(),
                        clockText(unit->at("t").get<double>()).c_str());
            return 0;
        }
        if (run->at("ended").get<bool>()) break;
    }
    const bool isLate = until && Clock::now() >= *until;
    std::fprintf(stderr, "tu wait: %s %s before it was %s\n", query.socket.c_str(),
                 isLate ? "the time was over" : "the run ended", describe(query).c_str());
    return 1;
}

/// What is JSON, and not what a run says, is refused like what is none.
template <typename Query>
int asking(const Query& query, int (*ask)(const Query&))
{
    try {
        return ask(query);
    } catch (const Json::exception&) {
        throw StatusError(query.socket + ": no status comes from it");
    }
}

}  // namespace

int printStatus(const StatusQuery& query) { return asking(query, print); }

int waitForState(const WaitQuery& query) { return asking(query, waitFor); }

std::optional<double> parseTime_ns(const std::string& text)
{
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (end == text.c_str() || !(value > 0) || !std::isfinite(value)) return {};
    while (*end == ' ') ++end;
    struct Unit { const char* name; double ns; };
    for (const Unit& u : {Unit{"ns", 1.0}, Unit{"us", 1e3}, Unit{"ms", 1e6}, Unit{"s", 1e9}})
        if (std::strcmp(end, u.name) == 0) return value * u.ns;
    return {};
}

}  // namespace app
