#include "socpri/kvd_socpri.h"

#include "mp/kvd_iifadm.h"
#include "ose/module_data.h"
#include "socpri/kvd_ngpduh_proc.h"
#include "socpri/kvd_socpri_inrsi_master_int.h"
#include "socpri/kvd_socpri_inrsi_sdu.h"
#include "socpri/kvd_socpri_inrsi_sdu_int.h"
#include "unit/kvd_unit_process.h"

namespace {

struct State {
    bool wasMaster = false;
};
ose::ModuleData<State> s;

/// Neither client may meet the other's timers and answers. The process that exchanges sync data does by the
/// role what it does from its start on.
void followRole(bool master)
{
    if (master == s->wasMaster) return;
    s->wasMaster = master;
    if (master) KvdLoz6InrsiSdu_leave();
    else        KvdLoz6Inrsi_leave();
    KvdLoz6NgPduh_restart();
}

}  // namespace

void KvdLoz6TuSoCpri_initiate()
{
    KvdLoz6Inrsi_initiate();
    KvdLoz6InrsiSdu_initiate();
}

bool KvdLoz6TuSoCpri_dispatch(Signal* sig)
{
    const bool master = KvdLoz6TuMgr_isMaster();
    followRole(master);
    const auto dispatch = master ? KvdLoz6Inrsi_dispatch : KvdLoz6InrsiSdu_dispatch;
    return inrsi::isVoidTimeout(sig) || dispatch(sig);
}

void KvdLoz6TuSoCpri_printInfo()
{
    if (KvdLoz6TuMgr_isMaster()) inrsi::master::printInfo();
    else            inrsi::slave::printInfo();
}

void KvdLoz6TuSoCpri_printHistory()
{
    if (KvdLoz6TuMgr_isMaster()) inrsi::master::printHistory();
    else            inrsi::slave::printHistory();
}

void KvdLoz6TuSoCpri_printSupervisionHistory(u8 port)
{
    inrsi::master::printSupervisionHistory(port == INRSI_ALL_PORTS ? inrsi::NO_PORT : port);
}
