#include "reg/kvd_reg_packet_entry.h"

#include "base/trace_groups.h"
#include "node/trace.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_pdv_gen.h"

namespace {

bool isPastWarmUp()
{
    const u32 state = KvdLoz6TuReg_initiateState();
    if (state == TUREG_INIT_NOISY || state == TUREG_INIT) return true;
    KVD_TRACE(TRACE_TUREG, TRACE_3, "not passed WARM Up state yet");
    return false;
}

}  // namespace

void KvdLoz6TuReg_pktFreqMsg(const u32 (&halves)[8])
{
    if (!isPastWarmUp()) return;
    double T[8];
    for (u32 i = 0; i < 8; ++i) T[i] = halves[i];
    KvdLoz6TuReg_handlePktFreqMsg(T);
}

void KvdLoz6TuReg_ntpMsg(const NtpMsg& msg)
{
    const auto seconds = [](u64 stamp) { return static_cast<u32>(stamp >> 32); };
    const auto fraction = [](u64 stamp) { return static_cast<u32>(stamp); };
    KvdLoz6TuReg_pktFreqMsg({seconds(msg.T1), fraction(msg.T1), seconds(msg.T2), fraction(msg.T2),
                             seconds(msg.T3), fraction(msg.T3), seconds(msg.T4), fraction(msg.T4)});
}

void KvdLoz6TuReg_pktTimeMsg(PktTimeMsg& msg)
{
    if (!isPastWarmUp()) return;
    KvdLoz6TuReg_addPdv(msg);
    KvdLoz6TuReg_handlePktTimeMsg(msg);
}
