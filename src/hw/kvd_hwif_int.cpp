// kvd_hwif_int.cpp - The FPGA's interrupt: its process, its line, its enable and pending words.
#include "hw/kvd_hwif.h"
#include "hw/kvd_hwif_priv.h"
#include "sig/hwif_sig.h"

#include "base/trace_groups.h"
#include "node/mmio.h"
#include "node/sig.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "ose/ose.h"
#include "unit/kvd_unit_process.h"

#include <utility>

using namespace hwif;

namespace {

constexpr const char* INT_PROCESS = "Kvd_loz6_tuhwif_int_proc";
constexpr u32 INT_STACK = 2048;

struct State {
    PROCESS process = 0;     // 0: not started
    u32 vector = 0;          // 0: of an unknown board, it has no line
};
ose::ModuleData<State> s;

u32 vectorOf(u32 board)
{
    if (board == BVQ1) return 89;
    if (board == BVQ3) return 166;
    KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "Unable to determine interrupt vector");
    return 0;
}

u32 priorityOf(u32 board)
{
    if (board == BVQ1) return 19;
    if (board == BVQ3) return 10;
    KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "Unable to determine interrupt prio");
    return 0;
}

/// Runs once an interrupt; the manager's handler opens the line again when it has acted.
void tuhwifIntProc()
{
    tuHwIf_disableExtInt();
    const u32 pending = tuHwIf_readPendingIsr();
    if ((pending & TU_GPS_OUT_INT) != 0) {
        Signal* sig = ose::alloc(sizeof(Signal), KVD_TUGPS_OUT_INTERRUPT);
        ose::send(&sig, KvdLoz6TuMgr_pid());
        KVD_TRACE(TRACE_TUHWIF, TRACE_2, "KVD_TUGPS_OUT_INTERRUPT sent");
    }
    // With nothing pending, too: a line that the hardware took back, or a source that was masked meanwhile.
    // Only the manager opens the line again, and one that won't rest leaves it its turn.
    if (pending != TU_GPS_OUT_INT) {
        auto* ind = node::make<KvdTuhwifRefInterrupt>(KVD_TUHWIF_REF_INTERRUPT);
        ind->pending = pending;
        node::sendTo(KvdLoz6TuMgr_pid(), ind);
    }
}

/// Opens or closes the line; of one that isn't served nothing is to be done.
void switchLine(int (node::Platform::*change)(u32 vector), const char* name)
{
    if (s->process == 0) return;
    if (s->vector == 0) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "TUF interrupt vector is 0. Interrupts not %sd.", name);
        return;
    }
    const int result = (node::platform().*change)(s->vector);
    if (result != 0) KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "Received %d from TarsoAdi_%sExtInt", result, name);
}

int changeEnable(u32 mask, bool on)
{
    const u32 bits = interruptsToBoard(getBoardType(), mask);
    return updateRegister(REG_INT_ENABLE, on ? 0 : bits, on ? bits : 0) ? 0 : 1;
}

}  // namespace

void tuHwif_startIntProc()
{
    if (s->process != 0) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "Interrupt process %s already started!", INT_PROCESS);
        return;
    }
    const u32 board = getBoardType();
    s->vector = vectorOf(board);
    s->process = ose::create_process(ose::KIND_INTERRUPT, INT_PROCESS, tuhwifIntProc, INT_STACK,
                                     priorityOf(board), 0, s->vector);
    ose::start(s->process);
    KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "PROCESS %s created", INT_PROCESS);
    tuHwIf_enableExtInt();
}

void tuHwif_killIntProc()
{
    if (s->process == 0) return;
    ose::kill_proc(std::exchange(s->process, 0));
    KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "PROCESS Kvd_loz6_tuhwif_int_proc killed");
}

void tuHwIf_enableExtInt() { switchLine(&node::Platform::adiEnableExtInt, "enable"); }
void tuHwIf_disableExtInt() { switchLine(&node::Platform::adiDisableExtInt, "disable"); }

u32 tuHwIf_readPendingIsr()
{
    const u32 board = getBoardType();
    if (board != BVQ3) return interruptsFromBoard(board, readRegisterOr0(REG_INT_PENDING));
    const auto address = findRegister(REG_INT_PENDING);
    if (!address) return 0;
    const u32 pending = node::mmioRead(*address);
    node::mmioWrite(*address, pending);  // clears what was read
    node::ioBarrier();
    return interruptsFromBoard(board, pending & readRegisterOr0(REG_INT_ENABLE));
}

int tuHwIf_enableIsr(u32 mask) { return changeEnable(mask, true); }
int tuHwIf_disableIsr(u32 mask) { return changeEnable(mask, false); }
