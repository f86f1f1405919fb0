// server.h - One small server of the node: a process that answers, or doesn't, as it is scripted.
#pragma once
#include "ose/world.h"

#include <cstring>
#include <map>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace sim {

class Node;

/// What a server says when a client wants its service.
enum class Answer : u8 {
    Accept,
    Suspend,
    Reject,
    Busy,      // keeps what comes and answers it once it isn't busy any more; plain calls fail
    Silent,    // takes the request and never answers
};

class Server {
public:
    Server(Node& node, std::string processName, u32 priority);
    virtual ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // The script. Both may change at any time; the next request sees the change.
    void setAnswer(Answer answer);
    Answer answer() const { return answer_; }
    u32 delay_ms = 0;              // before each request is looked at

    /// Hears what comes and says nothing: each signal is lost. Takes effect with the next one.
    void setMute(bool mute) { mute_ = mute; }

    /// The process comes to life; nothing when it lives already.
    virtual void start();
    /// The process is killed: attached clients are told, waiting requests are lost.
    virtual void die();
    bool alive() const;
    PROCESS pid() const { return pid_; }
    const std::string& processName() const { return name_; }
    /// Signals of that number taken since the node began.
    u32 received(SIGSELECT sigNo) const;

protected:
    /// One signal, in the server's process. The buffer is freed by the caller.
    virtual void onSignal(Signal* sig, PROCESS from) = 0;

    /// Sends a copy of a layout whose first word is its number; only from the server's process.
    template <typename T>
    static void send(PROCESS to, const T& layout)
    {
        static_assert(std::is_trivially_copyable_v<T>);
        Signal* sig = ose::alloc(sizeof(T), layout.sigNo);
        std::memcpy(static_cast<void*>(sig), &layout, sizeof(T));
        ose::send(&sig, to);
    }
    static void sendEmpty(PROCESS to, SIGSELECT sigNo);

    Node& node_;

private:
    struct Held {
        std::vector<std::byte> bytes;
        PROCESS from;
    };
    void run();

    std::string name_;
    u32 priority_;
    PROCESS pid_ = 0;
    Answer answer_ = Answer::Accept;
    bool mute_ = false;
    std::vector<Held> held_;
    std::map<SIGSELECT, u32> received_;
};

}  // namespace sim
