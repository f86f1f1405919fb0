#include "refs/kvd_ref_history.h"

namespace {

bool isRestartAfterCancel(const IdlHistoryRecord& event, const IdlHistoryRecord& latest)
{
    return (event.timerType == HO_TIMER || event.timerType == SUP_TIMER) && event.timerStatus == TIMER_ON
           && latest.timerStatus == TIMER_CANCELED && latest.timerType == event.timerType
           && latest.idlState == event.idlState;
}

bool sameEvent(const IdlHistoryRecord& a, const IdlHistoryRecord& b)
{
    return a.idlState == b.idlState && a.timerType == b.timerType && a.timerStatus == b.timerStatus;
}

}  // namespace

void IdlHistory::offer(const IdlHistoryRecord& event)
{
    Port& p = port[event.port];
    if (p.hasLatest) {
        if (sameEvent(event, p.latest)) return;
        if (isRestartAfterCancel(event, p.latest)) {
            p.held = event;
            p.hasHeld = true;
            return;
        }
    }
    if (p.hasHeld) ring.push(p.held);
    p.hasHeld = false;
    ring.push(event);
    p.latest = event;
    p.hasLatest = true;
}
