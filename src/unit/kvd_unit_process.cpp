#include "unit/kvd_unit_process.h"

#include "ose/module_data.h"

namespace {

struct State {
    PROCESS managerPid = 0;
    PROCESS fifoPid = 0;
    PROCESS pktsyncPid = 0;
    KvdUnitLife life;
};
ose::ModuleData<State> s;

}  // namespace

PROCESS KvdLoz6TuMgr_pid() { return s->managerPid; }
PROCESS KvdLoz6TuPktsync_pid() { return s->pktsyncPid; }
PROCESS KvdLoz6TuFifo_pid() { return s->fifoPid; }

void KvdLoz6TuMgr_setPids(PROCESS manager, PROCESS fifo, PROCESS pktsync)
{
    s->managerPid = manager;
    s->fifoPid = fifo;
    s->pktsyncPid = pktsync;
}

KvdUnitLife& KvdUnit_life() { return s->life; }
u32  KvdLoz6TuMgr_isHalted() { return s->life.hwFailed; }
bool KvdLoz6TuMgr_isRunning() { return s->life.componentsStarted != 0; }
u32  KvdLoz6TuMgr_restartType() { return s->life.restartType; }
