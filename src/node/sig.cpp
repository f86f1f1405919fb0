#include "node/sig.h"

namespace node {

namespace {
constexpr u32 GROUP = 0;   // the program's first group: whoever receives for everybody
}

void traceShortSignal(const Signal* sig, u32 wanted)
{
    Signal* received = const_cast<Signal*>(sig);
    const char* from = ose::process_name(ose::sender(&received));
    KVD_TRACE(GROUP, TRACE_ERROR, "Signal 0x%x from %s ignored, too short, size=%u wanted=%u",
              sig->sigNo, from != nullptr ? from : "an unknown process", ose::sigsize(&received),
              wanted);
}

}  // namespace node
