#include "sim/node/bira_server.h"

#include "iif/kvd_biraiifadm.h"
#include "sig/bira_sig.h"
#include "sim/board/board.h"
#include "sim/node/node.h"
#include "unit/kvd_unit_link.h"

#include <cmath>

namespace sim {

namespace {

constexpr u8 COLD = 1, WARM = 2;

/// Words of the divider in the block that both board types share.
enum DividerWord : u32 {
    DIVISOR = 0x48, M_HIGH = 0x4C, M_LOW = 0x50, K_HIGH = 0x54, K_LOW = 0x58, DS_ENABLE = 0x5C
};
constexpr u32 DS_ON = 1u << 31;
constexpr i64 DENOMINATOR = 800'000'000;
struct Ratio { u32 n; i64 K; };        // n + K / DENOMINATOR

u32 addressOf(const BoardConfig& board, DividerWord word)
{
    return (board.type == 1 ? board.baseA : board.baseB) + word;
}

Ratio nominalRatio(const BoardConfig& board)
{
    if (board.isRev3()) return {1250, 0};
    if (board.type == 2 && board.extPhaseDetector) return {110, 260'904'947};
    return {706, 69'791'666};
}

void writeRatio(Board& board, const Ratio& ratio)
{
    const BoardConfig& c = board.config();
    const u64 K = static_cast<u64>(ratio.K);
    board.write(addressOf(c, DIVISOR), ratio.n - 1);
    board.write(addressOf(c, M_HIGH), 0);
    board.write(addressOf(c, M_LOW), static_cast<u32>(DENOMINATOR));
    board.write(addressOf(c, K_HIGH), static_cast<u32>(K >> 32) & 1);
    board.write(addressOf(c, K_LOW), static_cast<u32>(K));
    board.write(addressOf(c, DS_ENABLE), 0);
    board.write(addressOf(c, DS_ENABLE), DS_ON);
}

}  // namespace

BiraServer::BiraServer(Node& node, const BiraConfig& c) : Server(node, BIRA_SERVER_NAME, 12), config(c) {}

void BiraServer::die()
{
    ++life_;
    client_ = 0;
    Server::die();
}

void BiraServer::later(i64 ms, std::function<void()> action)
{
    node_.after(ms * ose::MS, [this, life = life_, action = std::move(action)] {
        if (life == life_ && alive()) action();
    });
}

template <typename T>
void BiraServer::tell(const T& layout)
{
    if (client_ == 0 || !alive()) return;
    // By an event of the world, whoever calls: the order of the calls is the order of arrival.
    node_.after(0, [this, layout, client = client_, from = pid()] {
        node_.system().inject(std::as_bytes(std::span(&layout, 1)), client, from);
    });
}

void BiraServer::tellLink()
{
    tell(KvdBiraiifIdl2LinkInd{KVD_BIRAIIF_IDL2_LINK_IND, config.linkType,
                               static_cast<u8>(config.holdover ? 1 : 0), config.synchPortNo, config.data});
}

void BiraServer::tellFreqLocked()
{
    steerToLeader();
    tell(Signal{KVD_BIRAIIF_FREQ_LOCKED_IND});
}

/// A lock takes its time; one that is under way begins anew.
void BiraServer::lockLater()
{
    if (config.lock_ms < 0 || clientIsMaster_) return;
    later(config.lock_ms, [this, lock = ++locks_] {
        if (lock == locks_) tellFreqLocked();
    });
}

/// A board that comes from a reset has no ratio yet.
void BiraServer::setUpBoard()
{
    Board& board = node_.board();
    if (board.read(addressOf(board.config(), DIVISOR)) == 0) writeRatio(board, nominalRatio(board.config()));
}

void BiraServer::steerToLeader()
{
    if (!leader_) return;
    constexpr double PPB = 1e-9;
    Board& board = node_.board();
    const Ratio nominal = nominalRatio(board.config());
    const double U = board.divider();
    if (!(U > 0.0)) return;
    // The counter runs the slower the larger the ratio is.
    const double change = board.frequencyError() - leader_() - config.lockError_ppb * PPB;
    const double K = (U * (1.0 + change) - nominal.n) * static_cast<double>(DENOMINATOR);
    writeRatio(board, {nominal.n, std::llround(K)});
}

void BiraServer::onInitiate(Signal* sig, PROCESS from)
{
    if (ose::sigsize(&sig) < sizeof(KvdBiraiifInitiateServiceReq)) return;
    const auto* req = reinterpret_cast<const KvdBiraiifInitiateServiceReq*>(sig);
    ++life_;
    client_ = from;
    clientIsMaster_ = req->isMaster == 1;
    if (answer() == Answer::Suspend) return sendEmpty(from, KVD_BIRAIIF_INITIATE_SERVICE_SUS);
    if (answer() != Answer::Accept) return sendEmpty(from, KVD_BIRAIIF_INITIATE_SERVICE_REJ);
    setUpBoard();
    const bool cold = config.cold.value_or(node_.temi().restartType <= RESTART_COLD);
    send(from, KvdBiraiifInitiateServiceCfm{KVD_BIRAIIF_INITIATE_SERVICE_CFM, 1, cold ? COLD : WARM});
    if (!tellsLink) return;
    // In holdover there is nothing to hand over: the program goes on from what it stored.
    const bool fromStored = config.holdover && !cold;
    later(config.link_ms, [this, fromStored] {
        tellLink();
        if (config.linkType == KVD_BIRAIIF_IDL_MODE_2 && !fromStored) lockLater();
    });
}

void BiraServer::onSignal(Signal* sig, PROCESS from)
{
    if (answer() == Answer::Silent) return;
    const u32 size = ose::sigsize(&sig);
    switch (sig->sigNo) {
    case KVD_BIRAIIF_INITIATE_SERVICE_REQ: return onInitiate(sig, from);
    case KVD_BIRAIIF_UNABLE_TO_TIME_LOCK_IND:
        if (size < sizeof(KvdBiraiifUnableToTimeLockInd)) return;
        ++handBacks_;
        handBackPort_ = reinterpret_cast<const KvdBiraiifUnableToTimeLockInd*>(sig)->synchPortNo;
        return lockLater();
    case KVD_BIRAIIF_IDL2_SELECT_IDL_TYPE_REQ: {
        if (size < sizeof(KvdBiraiifIdl2SelectIdlTypeReq)) return;
        const auto* req = reinterpret_cast<const KvdBiraiifIdl2SelectIdlTypeReq*>(sig);
        config.linkType = static_cast<u8>(req->idl2Type);
        if (confirms) sendEmpty(from, KVD_BIRAIIF_IDL2_SELECT_IDL_TYPE_CFM);
        return;
    }
    case KVD_BIRAIIF_IDL2_TOGGLE_PERSISTENT_FREQ_LOCK_REQ: {
        if (size < sizeof(KvdBiraiifIdl2TogglePersistentFreqLockReq)) return;
        persistentFreqLock_ =
            reinterpret_cast<const KvdBiraiifIdl2TogglePersistentFreqLockReq*>(sig)->persistentFreqLock;
        if (confirms) sendEmpty(from, KVD_BIRAIIF_IDL2_TOGGLE_PERSISTENT_FREQ_LOCK_CFM);
        if (persistentFreqLock_ == 0) return lockLater();
        // It keeps the hardware, and locks it for itself.
        return later(config.lock_ms, [this, lock = ++locks_] {
            if (lock == locks_) steerToLeader();
        });
    }
    default: return;
    }
}

}  // namespace sim
