#include "sim/node/name_server.h"

#include "sim/node/node.h"

#include <algorithm>
#include <cstring>

namespace sim {

namespace {

constexpr SIGSELECT NS_HUNT_REQUEST = 0x7B81;
// Request: u32 number, u32 0, u32 name length, u32 unused, name, number of the answering signal
// right behind the name, unaligned.
constexpr std::size_t NAME_LENGTH_AT = 8;
constexpr std::size_t NAME_AT = 16;

u32 wordAt(const std::byte* bytes, std::size_t at)
{
    u32 word;
    std::memcpy(&word, bytes + at, sizeof word);
    return word;
}

}  // namespace

NameServer::NameServer(Node& node) : Server(node, "ose_ns", 10) {}

void NameServer::publish(const std::string& service, PROCESS pid)
{
    services_[service] = pid;
    std::vector<Wanted> still;
    for (Wanted& w : std::exchange(waiting_, {})) {
        if (w.service == service) tell(w, pid);
        else still.push_back(std::move(w));
    }
    waiting_ = std::move(still);
}

void NameServer::withdraw(const std::string& service) { services_.erase(service); }

void NameServer::die()
{
    waiting_.clear();
    Server::die();
}

void NameServer::onSignal(Signal* sig, PROCESS from)
{
    if (sig->sigNo != NS_HUNT_REQUEST || answer() != Answer::Accept) return;
    const u32 size = ose::sigsize(&sig);
    if (size < NAME_AT + sizeof(SIGSELECT)) return;
    const auto* bytes = reinterpret_cast<const std::byte*>(sig);
    const u32 length = wordAt(bytes, NAME_LENGTH_AT);
    if (length > size - NAME_AT - sizeof(SIGSELECT)) return;

    const Wanted wanted{{reinterpret_cast<const char*>(bytes + NAME_AT), length},
                        from,
                        wordAt(bytes, NAME_AT + length)};
    const auto found = services_.find(wanted.service);
    if (found != services_.end()) tell(wanted, found->second);
    else waiting_.push_back(wanted);
}

void NameServer::tell(const Wanted& wanted, PROCESS service)
{
    // Comes from the service itself, so that the client knows whom to talk to.
    node_.after(0, [this, wanted, service] {
        node_.system().inject(std::as_bytes(std::span(&wanted.sigNo, 1)), wanted.client, service);
    });
}

}  // namespace sim
