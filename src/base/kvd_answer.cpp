#include "base/kvd_answer.h"

#include "base/trace_groups.h"
#include "node/trace.h"

void KvdAnswer_await(KvdTimer& timer, const KvdAnswerOf& of, OSTIME time_ms)
{
    if (!KvdTimer_restart(timer, time_ms, of.timeout))
        KVD_TRACE(of.traceGroup, TRACE_ERROR, "timer of the answer of %s refused", of.service);
}

bool KvdAnswer_isLate(KvdTimer& timer, const KvdAnswerOf& of)
{
    const bool isAwaited = timer.runs();
    const bool isLate = KvdTimer_expired(timer) && isAwaited;
    if (isLate) KVD_TRACE(of.traceGroup, TRACE_INFO, "%s doesn't serve yet, it is asked again", of.service);
    return isLate;
}
