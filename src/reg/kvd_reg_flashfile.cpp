// The regulator's history isn't part of this load yet: nothing is stored, every start is from calibration
// or cold, and no calibration expiry is foreseen.
#include "reg/kvd_reg_flashfile.h"

#include "mgr/trace_groups.h"
#include "node/platform.h"
#include "node/trace.h"

int KvdLoz6TuReg_initiateWithMsi(double) { return INITIATE_FAILED; }
int KvdLoz6TuReg_initiateWithFlash(double) { return INITIATE_FAILED; }
void KvdLoz6TuReg_writeHistory(bool) {}

int KvdLoz6TuReg_historyForPll()
{
    constexpr int COULD_NOT_BE_READ = 2;
    return COULD_NOT_BE_READ;
}

bool KvdLoz6TuReg_calibrationExpiryCheck() { return false; }

void KvdLoz6TuReg_forceWriteHistory(bool)
{
    node::shellPrintf("History isn't kept in this load\n");
}

void KvdLoz6TuReg_printHistory()
{
    node::shellPrintf("History isn't kept in this load\n");
}

void KvdLoz6TuReg_historyColdFlag(u32&) {}
