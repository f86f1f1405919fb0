#include "sim/node/ipsynctsi_server.h"

#include "node/ipsynctsi.h"
#include "node/ipsynctsi_sig.h"
#include "sim/board/board.h"
#include "sim/node/node.h"

#include <algorithm>
#include <cmath>

namespace sim {

namespace {

constexpr i64 NTP_ERA = 2'208'988'800;               // s from 1900, where NTP begins, to 1970
constexpr ose::Time SERVER_TIME = 50 * ose::US;      // from the request's arrival to its answer
constexpr ose::Time LOST_AFTER = 10 * ose::SEC;
constexpr double PS = 1e12;

}  // namespace

IpsynctsiServer::IpsynctsiServer(Node& node, const NtpConfig& c)
    : Server(node, IPSYNCTSI_SERVER_NAME, 10), config(c), interval_ms_(c.interval_ms),
      serverError_s_(c.serverOffset_s), up_(node.world().seed(), node.name() + ".ntp.up"),
      down_(node.world().seed(), node.name() + ".ntp.down")
{
}

// ---- service ------------------------------------------------------------------------------------

template <typename T>
void IpsynctsiServer::tell(PROCESS to, const T& layout)
{
    // By an event of the world, whoever calls: the order of the calls is the order of arrival.
    node_.after(0, [this, to, layout, from = pid()] {
        node_.system().inject(std::as_bytes(std::span(&layout, 1)), to, from);
    });
}

void IpsynctsiServer::serve(Answer answer)
{
    setAnswer(answer);
    if (!alive()) return;
    if (answer == Answer::Suspend && client_ != 0) {
        tell(client_, IpsynctsiInitiateServiceSus{IPSYNCTSI_INITIATE_SERVICE_SUS, highestPv});
        suspended_ = client_;
        disconnect();
    } else if (answer == Answer::Accept && suspended_ != 0) {
        tell(std::exchange(suspended_, 0), Signal{IPSYNCTSI_SERVER_UP_IND});
    }
}

void IpsynctsiServer::die()
{
    suspended_ = 0;
    disconnect();
    Server::die();
}

void IpsynctsiServer::disconnect()
{
    ++life_;
    client_ = 0;
    setReachable(false);
}

void IpsynctsiServer::onSignal(Signal* sig, PROCESS from)
{
    if (sig->sigNo == IPSYNCTSI_INITIATE_SERVICE_REQ && answer() != Answer::Silent) onInitiate(sig, from);
}

void IpsynctsiServer::onInitiate(Signal* sig, PROCESS from)
{
    if (ose::sigsize(&sig) < sizeof(IpsynctsiInitiateServiceReq)) return;
    const auto* req = reinterpret_cast<const IpsynctsiInitiateServiceReq*>(sig);
    disconnect();
    suspended_ = 0;
    if (answer() == Answer::Suspend) {
        suspended_ = from;
        return send(from, IpsynctsiInitiateServiceSus{IPSYNCTSI_INITIATE_SERVICE_SUS, highestPv});
    }
    const u32 wanted[] = {req->pvFirstWanted, req->pvSecondWanted, req->pvThirdWanted};
    const auto* const pv = std::find_if(std::begin(wanted), std::end(wanted),
                                        [this](u32 version) { return version >= 1 && version <= highestPv; });
    if (answer() != Answer::Accept || pv == std::end(wanted))
        return send(from, IpsynctsiInitiateServiceRej{IPSYNCTSI_INITIATE_SERVICE_REJ, highestPv});
    client_ = from;
    send(from, IpsynctsiInitiateServiceCfm{IPSYNCTSI_INITIATE_SERVICE_CFM, *pv});
    poll();
}

// ---- exchanges ----------------------------------------------------------------------------------

void IpsynctsiServer::setRate(u32 perSecond)
{
    if (perSecond == 0 || !config.followsRate) return;
    interval_ms_ = 1000 / std::min(perSecond, 1000u);
}

void IpsynctsiServer::setReachable(bool reachable)
{
    if (std::exchange(reachable_, reachable) != reachable && onReachable_) onReachable_();
}

void IpsynctsiServer::poll()
{
    node_.after(interval_ms_ * ose::MS, [this, life = life_] {
        if (life != life_) return;
        if (!node_.system().alive(client_)) return disconnect();
        if (node_.world().now() - answeredAt_ > LOST_AFTER) setReachable(false);
        if (config.answers) exchange();
        poll();
    });
}

void IpsynctsiServer::exchange()
{
    const auto span = [](double s) { return static_cast<ose::Time>(std::llround(s * PS)); };
    const ose::Time now = node_.world().now();
    const ose::Time received = now + span(delay(config.up, up_));
    const ose::Time sent = received + SERVER_TIME;
    const ose::Time back = sent + span(delay(config.down, down_));
    IpsynctsiNtpPacketInd ind{};
    ind.sigNo = IPSYNCTSI_NTP_PACKET_IND;
    ind.froId = config.froId;
    ind.T1 = nodeStamp();
    ind.T2 = serverStamp(received);
    ind.T3 = serverStamp(sent);
    node_.after(back - now, [this, ind, life = life_]() mutable {
        if (life != life_ || !node_.system().alive(client_)) return;
        ind.T4 = nodeStamp();
        answeredAt_ = node_.world().now();
        ++exchanges_;
        node_.system().inject(std::as_bytes(std::span(&ind, 1)), client_, pid());
        setReachable(true);
    });
}

double IpsynctsiServer::delay(const NtpPath& path, Random& random) const
{
    if (!(path.noise_s > 0.0)) return path.delay_s;
    if (config.noise == DelayNoise::Gaussian)
        return std::max(path.delay_s + path.noise_s * random.gaussian(), 0.0);
    return path.delay_s - path.noise_s * portable::ln(1.0 - random.uniform());
}

// ---- clocks -------------------------------------------------------------------------------------

void IpsynctsiServer::setServerFrequency(double ppb)
{
    const ose::Time now = node_.world().now();
    serverError_s_ += config.serverFrequency_ppb * 1e-9 * static_cast<double>(now - serverSince_) / PS;
    serverSince_ = now;
    config.serverFrequency_ppb = ppb;
}

void IpsynctsiServer::stepServer(double step_s) { serverError_s_ += step_s; }

u64 IpsynctsiServer::serverStamp(ose::Time at) const
{
    const double since_s = static_cast<double>(at - serverSince_) / PS;
    return stamp(at, serverError_s_ + config.serverFrequency_ppb * 1e-9 * since_s);
}

u64 IpsynctsiServer::nodeStamp() const
{
    return stamp(node_.world().now(), config.nodeOffset_s + node_.board().stampError_s());
}

/// NTP timestamp format (RFC 5905 clause 6) of a clock that is ahead of true time by that much.
u64 IpsynctsiServer::stamp(ose::Time at, double error_s) const
{
    constexpr i128 SECOND = ose::SEC;
    const i128 since1900 = (node_.config().calendarStart + NTP_ERA) * SECOND + at
                           + std::llround(error_s * PS);
    const u64 seconds = static_cast<u32>(since1900 / SECOND);
    return seconds << 32 | static_cast<u64>((since1900 % SECOND << 32) / SECOND);
}

}  // namespace sim
