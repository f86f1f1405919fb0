// Planned jumps aren't part of this load yet: none is ever needed, an order for one is traced.
#include "reg/kvd_reg_jump.h"

#include "mgr/trace_groups.h"
#include "node/trace.h"
#include "ose/module_data.h"

namespace {

struct State {
    u32 jumpState = JUMP_NOT_NEEDED;
};
ose::ModuleData<State> s;

}  // namespace

u32 KvdLoz6TuReg_jumpState() { return s->jumpState; }
void KvdLoz6TuReg_setJumpState(u32 jumpState) { s->jumpState = jumpState; }
void KvdLoz6TuReg_Jump() {}
void KvdLoz6TuReg_onJumpRequest(const Signal*, PROCESS)
{
    KVD_TRACE(TRACE_TUREG, TRACE_ERROR, "jump ordered, jumps aren't in this load");
}
void KvdLoz6TuReg_onJumpIndTimeout() {}
void KvdLoz6TuReg_onBfnJumpWarningTimeout() {}
void KvdLoz6TuReg_onSocpriSfcAdjMonitorTimeout() {}
