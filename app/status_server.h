// status_server.h - A run's status to whoever asks: lines on a local socket, a page of metrics over HTTP.
// Each server has a thread of its own that sees texts alone, so that no client holds up the run.
#pragma once
#include <memory>
#include <stdexcept>
#include <string>

namespace app {

/// One line: what can't be opened, and why.
class StatusError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A stream socket of the local machine. A client gets the latest line when it connects, and each later one;
/// one that reads slowly misses lines in between, what it sends is ignored.
class StatusServer {
public:
    /// Throws StatusError. A socket that nobody serves any more is taken over.
    explicit StatusServer(const std::string& path);
    ~StatusServer();
    StatusServer(const StatusServer&) = delete;
    StatusServer& operator=(const StatusServer&) = delete;

    void publish(const std::string& line);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

/// GET /metrics answers with the latest page.
class MetricsServer {
public:
    /// "[HOST:]PORT", the loopback without a host, any free port for 0. Throws StatusError.
    explicit MetricsServer(const std::string& address);
    ~MetricsServer();
    MetricsServer(const MetricsServer&) = delete;
    MetricsServer& operator=(const MetricsServer&) = delete;

    void publish(const std::string& page);
    /// "127.0.0.1:9100"
    const std::string& address() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace app
