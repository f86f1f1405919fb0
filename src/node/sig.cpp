#include "node/sig.h"

namespace node {

namespace {
constexpr u32 GROUP = 0;   // the program's first group: whoever receives for everybody
}

void traceShortSignal(const Signal* sig, u32 wanted)
{
    const char* from = ose::process_name(senderOf(sig));
    KVD_TRACE(GROUP, TRACE_ERROR, "Signal 0x%x from %s ignored, too short, size=%u wanted=%u", sig->sigNo,
              from != nullptr ? from : "an unknown process", sizeOf(sig), wanted);
}

}  // namespace node
