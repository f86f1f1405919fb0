#include "refs/kvd_slave_warm.h"

#include "base/trace_groups.h"
#include "node/bytes.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "store/kvd_mgr_mem.h"

namespace {

struct State {
    SlaveWarmData data;
    u32 restored = 0;             // 1: the next IDL2 measurement takes over the copy
};
ose::ModuleData<State> s;

constexpr u32 AT_T_C_LAST = 8, AT_DELTA0_C = 16, AT_YI = 24, AT_IDPI_CLK_STATUS = 32;

}  // namespace

const SlaveWarmData& KvdLoz6SlaveWarm_data() { return s->data; }

void KvdLoz6SlaveWarm_setTime(double t_c_last, double delta0_c)
{
    s->data.t_c_last = t_c_last;
    s->data.delta0_c = delta0_c;
}

void KvdLoz6SlaveWarm_setYi(double yi) { s->data.yi = yi; }
void KvdLoz6SlaveWarm_setIdpiClkStatus(u32 idpiClkStatus) { s->data.idpiClkStatus = idpiClkStatus; }

bool KvdLoz6SlaveWarm_write(const char* caller)
{
    u8 block[MEM_SLAVE_WARM_SIZE] = {};
    node::putBeDouble(block + AT_T_C_LAST, s->data.t_c_last);
    node::putBeDouble(block + AT_DELTA0_C, s->data.delta0_c);
    node::putBeDouble(block + AT_YI, s->data.yi);
    node::putBe32(block + AT_IDPI_CLK_STATUS, s->data.idpiClkStatus);
    if (KvdLoz6TuMem_writeSlaveWarm(block)) return true;
    KVD_TRACE(TRACE_TUSLAVE, TRACE_INFO, "%s(): Unable to write in MSI Slave warm region.", caller);
    return false;
}

bool KvdLoz6SlaveWarm_read()
{
    u8 block[MEM_SLAVE_WARM_SIZE] = {};
    if (!KvdLoz6TuMem_readSlaveWarm(block)) return false;
    s->data.t_c_last = node::beDouble(block + AT_T_C_LAST);
    s->data.delta0_c = node::beDouble(block + AT_DELTA0_C);
    s->data.yi = node::beDouble(block + AT_YI);
    s->data.idpiClkStatus = node::be32(block + AT_IDPI_CLK_STATUS);
    return true;
}

bool KvdLoz6SlaveWarm_ready() { return KvdLoz6TuMem_ready(MEM_SLAVE_WARM); }

int KvdLoz6SlaveWarm_reset(u32 idpiClkStatus, const char* caller)
{
    s->data = SlaveWarmData{};
    s->data.idpiClkStatus = idpiClkStatus;
    s->restored = 0;
    return KvdLoz6SlaveWarm_write(caller);
}

void KvdLoz6SlaveWarm_setRestored() { s->restored = 1; }

u32 KvdLoz6SlaveWarm_takeRestored()
{
    const u32 was = s->restored;
    s->restored = 0;
    return was;
}
