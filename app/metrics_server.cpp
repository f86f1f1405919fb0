#include "app/status_server.h"

#include <httplib.h>

#include <mutex>
#include <thread>

namespace app {

struct MetricsServer::Impl {
    httplib::Server server;
    std::mutex mutex;
    std::string page;
    std::string address;
    std::thread thread;
};

MetricsServer::MetricsServer(const std::string& address) : impl_(std::make_unique<Impl>())
{
    const std::size_t colon = address.rfind(':');
    const std::string host = colon == std::string::npos ? "127.0.0.1" : address.substr(0, colon);
    const std::string portText = colon == std::string::npos ? address : address.substr(colon + 1);
    char* end = nullptr;
    const unsigned long port = std::strtoul(portText.c_str(), &end, 10);
    if (portText.empty() || *end != '\0' || port > 65535)
        throw StatusError("--metrics: '" + address + "' isn't [HOST:]PORT");
    httplib::Server& server = impl_->server;
    // Another run on the same port is refused, not shared with.
    server.set_socket_options([](socket_t socket) {
        const int on = 1;
        setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    });
    // A client that is slow keeps a thread, so there are some more than one has clients; and not for long.
    server.new_task_queue = [] { return new httplib::ThreadPool(32); };
    server.set_read_timeout(1);
    server.set_write_timeout(1);
    server.set_keep_alive_timeout(1);
    server.set_payload_max_length(4096);
    server.Get("/metrics", [impl = impl_.get()](const httplib::Request&, httplib::Response& response) {
        const std::scoped_lock lock(impl->mutex);
        response.set_content(impl->page, "text/plain; version=0.0.4");
    });
    int bound = static_cast<int>(port);
    if (port == 0) bound = server.bind_to_any_port(host);
    else if (!server.bind_to_port(host, bound)) bound = -1;
    if (bound < 0) throw StatusError("--metrics: " + address + " can't be served");
    impl_->address = host + ":" + std::to_string(bound);
    impl_->thread = std::thread([&server] { server.listen_after_bind(); });
    while (!server.is_running()) std::this_thread::yield();
}

MetricsServer::~MetricsServer()
{
    impl_->server.stop();
    impl_->thread.join();
}

void MetricsServer::publish(const std::string& page)
{
    const std::scoped_lock lock(impl_->mutex);
    impl_->page = page;
}

const std::string& MetricsServer::address() const { return impl_->address; }

}  // namespace app
