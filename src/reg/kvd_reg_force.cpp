// Forcing by command and the delay variation generator aren't part of this load yet.
#include "reg/kvd_reg_force.h"

#include "mgr/trace_groups.h"
#include "node/platform.h"
#include "node/trace.h"

void KvdLoz6TuReg_forceDrift()
{
    node::shellPrintf("Forcing isn't in this load\n");
}
void KvdLoz6TuReg_removeTime()
{
    node::shellPrintf("Forcing isn't in this load\n");
}
void KvdLoz6TuReg_onGenPdvReq(const Signal*)
{
    KVD_TRACE(TRACE_TUREG, TRACE_ERROR, "delay variation ordered, its generator isn't in this load");
}
void KvdLoz6TuReg_generatePdv(u32 direction)
{
    KVD_TRACE(TRACE_TUREG, TRACE_ERROR, "delay variation ordered, its generator isn't in this load, "
              "direction=%u", direction);
}
