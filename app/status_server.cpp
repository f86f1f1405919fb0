#include "app/status_server.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <list>
#include <mutex>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace app {
namespace {

constexpr std::size_t CLIENTS_MAX = 64;

[[noreturn]] void fail(const std::string& path, const std::string& why)
{
    throw StatusError(path + ": " + why);
}

sockaddr_un addressOf(const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path)
        fail(path, "a socket's path has at most 107 bytes");
    std::memcpy(address.sun_path, path.data(), path.size());
    return address;
}

/// A socket file whose server is gone is in the way of a new one; everything else stays.
void removeStale(const std::string& path, const sockaddr_un& address)
{
    struct stat status{};
    if (lstat(path.c_str(), &status) != 0) return;
    if (!S_ISSOCK(status.st_mode)) fail(path, "is there and no socket");
    const int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool isServed = connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    close(probe);
    if (isServed) fail(path, "another run serves it");
    unlink(path.c_str());
}

struct Client {
    int fd;
    std::string out;         // the line on its way
    std::size_t sent = 0;
    bool hasNewer = false;   // the latest line waits until this one is out
};

}  // namespace

struct StatusServer::Impl {
    std::string path;
    int listener = -1;
    int wake = -1;
    std::mutex mutex;
    std::string line;        // the latest, with its end
    bool ends = false;
    std::list<Client> clients;   // of the thread
    std::thread thread;

    std::string latest()
    {
        const std::scoped_lock lock(mutex);
        return line;
    }

    void ring() const
    {
        const std::uint64_t one = 1;
        [[maybe_unused]] const ssize_t n = write(wake, &one, sizeof one);
    }

    /// False when the client is gone.
    bool flush(Client& c)
    {
        for (;;) {
            if (c.sent == c.out.size()) {
                if (!c.hasNewer) return true;
                c.out = latest();
                c.sent = 0;
                c.hasNewer = false;
                if (c.out.empty()) return true;
            }
            const ssize_t n = send(c.fd, c.out.data() + c.sent, c.out.size() - c.sent,
                                   MSG_NOSIGNAL | MSG_DONTWAIT);
            if (n < 0) return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
            c.sent += static_cast<std::size_t>(n);
        }
    }

    /// What a client sends is read and forgotten. False at its end.
    static bool drain(int fd)
    {
        char rubbish[4096];
        const ssize_t n = recv(fd, rubbish, sizeof rubbish, MSG_DONTWAIT);
        return n > 0 || (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR));
    }

    void accept()
    {
        const int fd = accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd < 0) return;
        if (clients.size() >= CLIENTS_MAX) {
            close(fd);
            return;
        }
        clients.push_back({fd, "", 0, true});
    }

    void serve()
    {
        bool ended = false;
        while (!ended) {
            std::vector<pollfd> polled{{wake, POLLIN, 0}, {listener, POLLIN, 0}};
            for (const Client& c : clients)
                polled.push_back(
                    {c.fd, static_cast<short>(POLLIN | (c.sent < c.out.size() ? POLLOUT : 0)), 0});
            if (poll(polled.data(), polled.size(), -1) < 0) continue;
            if (polled[0].revents != 0) {
                std::uint64_t count = 0;
                [[maybe_unused]] const ssize_t n = read(wake, &count, sizeof count);
                for (Client& c : clients) c.hasNewer = true;
                const std::scoped_lock lock(mutex);
                ended = ends;
            }
            std::size_t i = 2;
            for (auto c = clients.begin(); c != clients.end(); ++i) {
                const bool hasInput = i < polled.size()
                                      && (polled[i].revents & (POLLIN | POLLHUP | POLLERR)) != 0;
                const bool stays = (!hasInput || drain(c->fd)) && flush(*c);
                if (!stays) close(c->fd);
                c = stays ? std::next(c) : clients.erase(c);
            }
            if (polled[1].revents != 0) {
                accept();
                if (!clients.empty()) flush(clients.back());
            }
        }
        for (const Client& c : clients) close(c.fd);
    }
};

StatusServer::StatusServer(const std::string& path) : impl_(std::make_unique<Impl>())
{
    const sockaddr_un address = addressOf(path);
    removeStale(path, address);
    impl_->path = path;
    impl_->listener = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    impl_->wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (impl_->listener < 0 || impl_->wake < 0
        || bind(impl_->listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0
        || listen(impl_->listener, 16) != 0) {
        const std::string why = std::strerror(errno);
        close(impl_->listener);
        close(impl_->wake);
        fail(path, why);
    }
    impl_->thread = std::thread([this] { impl_->serve(); });
}

StatusServer::~StatusServer()
{
    {
        const std::scoped_lock lock(impl_->mutex);
        impl_->ends = true;
    }
    impl_->ring();
    impl_->thread.join();
    close(impl_->listener);
    close(impl_->wake);
    unlink(impl_->path.c_str());
}

void StatusServer::publish(const std::string& line)
{
    {
        const std::scoped_lock lock(impl_->mutex);
        impl_->line = line + "\n";
    }
    impl_->ring();
}

}  // namespace app
