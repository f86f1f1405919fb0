#include "sim/node/pm_agent.h"

#include "node/pmai_sig.h"
#include "sim/node/node.h"

#include <algorithm>

namespace sim {

namespace {
constexpr i64 PERIOD_s = 300;
constexpr i64 US_PER_S = 1'000'000;
}  // namespace

PmAgent::PmAgent(Node& node) : Server(node, TMV_PMAI_SERVER_NAME, 10) {}

void PmAgent::die()
{
    client_ = 0;
    Server::die();
}

void PmAgent::push(u32 seqNo)
{
    if (client_ == 0) return;
    const TmvPmaiPushInd ind{TMV_PMAI_PUSH_IND, seqNo};
    node_.system().inject(std::as_bytes(std::span(&ind, 1)), client_, pid());
}

void PmAgent::schedulePush()
{
    if (!pushes) return;
    const node::CalendarTime now = node_.calendar();
    const i64 into_us = now.seconds % PERIOD_s * US_PER_S + now.microseconds;
    node_.after((PERIOD_s * US_PER_S - into_us) * ose::US, [this, attach = attach_] {
        if (attach != attach_ || client_ == 0) return;
        if (!node_.system().alive(client_)) {
            client_ = 0;               // the program is gone
            return;
        }
        if (pushes) push(static_cast<u32>(node_.calendar().seconds / PERIOD_s));
        schedulePush();
    });
}

void PmAgent::onSignal(Signal* sig, PROCESS from)
{
    if (answer() == Answer::Silent && sig->sigNo == TMV_PMAI_ATTACH_REQ) return;
    switch (sig->sigNo) {
    case TMV_PMAI_ATTACH_REQ:
        if (answer() != Answer::Accept) return sendEmpty(from, TMV_PMAI_ATTACH_REJ);
        client_ = from;
        ++attach_;
        schedulePush();
        return sendEmpty(from, TMV_PMAI_ATTACH_CFM);
    case TMV_PMAI_PM_DATA_IND:
        if (ose::sigsize(&sig) < sizeof(TmvPmaiPmData)) return;
        return onPmData(*reinterpret_cast<const TmvPmaiPmData*>(sig), from);
    case TMV_PMAI_END_OF_DATA_IND: {
        if (ose::sigsize(&sig) < sizeof(TmvPmaiEndOfData)) return;
        const auto* end = reinterpret_cast<const TmvPmaiEndOfData*>(sig);
        const auto last = std::find_if(records_.rbegin(), records_.rend(), [&](const PmRecord& r) {
            return r.seqNo == end->seqNo && r.froType == end->froType;
        });
        if (last != records_.rend()) last->ended = true;
        return;
    }
    default: return;
    }
}

void PmAgent::onPmData(const TmvPmaiPmData& data, PROCESS from)
{
    const u32 count = std::min(data.noOfPmAttr, PMAI_ATTR_MAX);
    records_.push_back({node_.world().now(), data.seqNo, data.froType, data.froId,
                        data.suspectFlag, {data.pmAttrList, data.pmAttrList + count}});
    if (onRecord_) onRecord_(records_.back());
    if (confirms && answer() != Answer::Silent) sendEmpty(from, TMV_PMAI_PM_DATA_CFM);
}

}  // namespace sim
