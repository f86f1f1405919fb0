// bira_server.h - The node's basic timing function, "Syncdrv_proc": tells the program which link joins the
// units, runs the hardware of a slave until its clock is locked, hands it over and takes it back.
#pragma once
#include "sim/node/idl_config.h"
#include "sim/node/server.h"

#include <functional>

namespace sim {

class BiraServer : public Server {
public:
    BiraServer(Node& node, const BiraConfig& config);

    BiraConfig config;                 // the script, with setAnswer and delay_ms of Server
    bool tellsLink = true;             // false: nothing comes after the confirmation
    bool confirms = true;              // orders of the program

    void die() override;

    /// The link indication as configured; an order of the script, beside the one after a confirmation.
    void tellLink();
    void tellFreqLocked();

    /// Relative frequency of the unit that this one is to follow; without it the lock changes nothing.
    void setLeader(std::function<double()> frequency) { leader_ = std::move(frequency); }

    // ---- what the program said ------------------------------------------------------------------
    bool connected() const { return client_ != 0; }
    bool clientIsMaster() const { return clientIsMaster_; }
    u32  handBacks() const { return handBacks_; }
    u8   handBackPort() const { return handBackPort_; }
    u32  persistentFreqLock() const { return persistentFreqLock_; }

protected:
    void onSignal(Signal* sig, PROCESS from) override;

private:
    void onInitiate(Signal* sig, PROCESS from);
    void lockLater();
    void setUpBoard();
    void steerToLeader();
    template <typename T>
    void tell(const T& layout);
    void later(i64 ms, std::function<void()> action);

    PROCESS client_ = 0;
    bool clientIsMaster_ = false;
    u32 handBacks_ = 0;
    u8  handBackPort_ = 0;
    u32 persistentFreqLock_ = 0;
    u32 life_ = 0;                     // counts connections and deaths: what was due before is void
    u32 locks_ = 0;                    // counts the locks that were set going: the newest counts
    std::function<double()> leader_;
};

}  // namespace sim
