// "tuslowpi" section of kvdinfo.
#include "node/platform.h"
#include "refs/kvd_slowpi.h"
#include "refs/kvd_slowpi_int.h"

using node::shellPrintf;

namespace {

void printLevel(const char* name, u8 ssm)
{
    if (ssm == slowpi::SSM_NONE) shellPrintf("   %s: none\n", name);
    else                         shellPrintf("   %s: 0x%x\n", name, ssm);
}

void printTimer(const char* name, const slowpi::BufferTimer& timer)
{
    shellPrintf("   %s: %s, %u ms\n", name, timer.timer.runs() ? "runs" : "-", timer.duration_ms);
}

}  // namespace

void KvdLoz6TuSlowpi_printInfo()
{
    const slowpi::State& st = slowpi::state();
    const u8* const mac = st.frame.data() + slowpi::ESMC_SOURCE_AT;
    shellPrintf("\n***** SLOWPI related data *****\n");
    shellPrintf("   slowpiState            : %s (%u)\n", slowpi::stateText(st.slowpiState), st.slowpiState);
    shellPrintf("   selectionProcessMode   : %s (%u)\n", slowpi::enabledText(st.selectionProcessMode),
                st.selectionProcessMode);
    shellPrintf("   supervisionState       : %s (%u)\n", slowpi::enabledText(st.supervisionState),
                st.supervisionState);
    shellPrintf("   froId                  : %u\n", st.froId);
    shellPrintf("   macAddress             : %02X:%02X:%02X:%02X:%02X:%02X\n", mac[0], mac[1], mac[2], mac[3],
                mac[4], mac[5]);
    printLevel("SSM                    ", st.SSM);
    printLevel("Previous SSM           ", st.previousSSM);
    shellPrintf("   tcuDetected            : %u\n", st.tcuDetected);
    shellPrintf("   pduMissingAlarmRaised  : %u\n", st.pduMissingAlarmRaised);
    shellPrintf("   frames received        : %u\n", st.nmbOfFrames);
    shellPrintf("   frames rejected        : %u\n", st.nmbOfRejectedFrames);
    shellPrintf("   nmbOfEventMessages     : %u\n", st.nmbOfEventMessages);
    printTimer("heart beat timer       ", st.heartBeat);
    printTimer("PDU missing timer      ", st.pduMissing);
}
