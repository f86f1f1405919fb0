#include "sim/node/server.h"

#include "sim/node/node.h"

namespace sim {

Server::Server(Node& node, std::string processName, u32 priority)
    : node_(node), name_(std::move(processName)), priority_(priority)
{
}

Server::~Server()
{
    if (alive()) node_.system().kill(pid_);
}

void Server::start()
{
    if (alive()) return;
    pid_ = node_.system().spawn(name_, priority_, [this] { run(); });
}

void Server::die()
{
    held_.clear();
    if (!alive()) return;
    node_.system().kill(pid_);
    pid_ = 0;
}

bool Server::alive() const { return pid_ != 0 && node_.system().alive(pid_); }

void Server::setAnswer(Answer answer)
{
    answer_ = answer;
    if (answer == Answer::Busy || !alive()) return;
    for (const Held& h : std::exchange(held_, {})) node_.system().inject(h.bytes, pid_, h.from);
}

u32 Server::received(SIGSELECT sigNo) const
{
    const auto found = received_.find(sigNo);
    return found != received_.end() ? found->second : 0;
}

void Server::sendEmpty(PROCESS to, SIGSELECT sigNo)
{
    Signal* sig = ose::alloc(sizeof(SIGSELECT), sigNo);
    ose::send(&sig, to);
}

void Server::run()
{
    for (;;) {
        Signal* sig = ose::receive(ose::ANY_SIGNAL);
        if (delay_ms > 0) ose::delay(delay_ms);
        const PROCESS from = ose::sender(&sig);
        if (mute_) {
            ++received_[sig->sigNo];
        } else if (answer_ == Answer::Busy) {
            const auto* bytes = reinterpret_cast<const std::byte*>(sig);
            held_.push_back({std::vector<std::byte>(bytes, bytes + ose::sigsize(&sig)), from});
        } else {
            ++received_[sig->sigNo];
            onSignal(sig, from);
        }
        ose::free_buf(&sig);
    }
}

}  // namespace sim
