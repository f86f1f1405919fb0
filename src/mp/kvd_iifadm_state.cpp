// What is known of the connection and the selection; the marker of SoCPRI.
#include "mp/kvd_iifadm_state.h"

#include "base/trace_groups.h"
#include "node/platform.h"
#include "node/trace.h"
#include "ose/module_data.h"

namespace {

ose::ModuleData<tuiif::State> s;

constexpr const char* SOCPRI_MARKER_FILE = "/d/socpri_active";
constexpr const char* SOCPRI_MARKER_TEXT = "SoCPRI is active!";

}  // namespace

tuiif::State& tuiif::state() { return *s; }

u32     KvdLoz6TuIifAdm_startState() { return s->startState; }
PROCESS KvdLoz6TuIifAdm_peer()       { return s->procTuiifMpPid; }
u32     KvdLoz6TuIifAdm_apn()        { return s->ownPiuHwAddr_r.apn; }
u32     KvdLoz6TuIifAdm_piuInstanceId() { return s->ownPiuInstanceId; }
u32     KvdLoz6TuIifAdm_smn()        { return s->ownPiuHwAddr_r.smn; }
u8      KvdLoz6TuIifAdm_storedMasterSlaveMode() { return s->savedBvqStatusData.masterSlaveMode; }

u8 KvdLoz6TuMgr_masterSlaveMode()
{
    const u8 stored = s->savedBvqStatusData.masterSlaveMode;
    if (stored == 1) return 1;
    if (stored != 0) KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO, "Unavailable masterSlaveMode %d ", stored);
    return 0;
}
bool KvdLoz6TuMgr_isMaster() { return KvdLoz6TuMgr_masterSlaveMode() == 1; }

u8  KvdLoz6TuIifAdm_selectedRef() { return s->savedBvqStatusData.selectedRef; }
u8  KvdLoz6TuIifAdm_prevSelectedRef() { return s->savedBvqStatusData.prevSelectedRef; }
u32 KvdLoz6TuIifAdm_activRefFroId() { return s->savedBvqStatusData.activRefFroId; }
u32 KvdLoz6TuIifAdm_activRefFroClassNo() { return s->savedBvqStatusData.activRefFroClassNo; }

void KvdLoz6TuIifAdm_setSocpriMarker(u32 wasActive) { s->socpriMarker = wasActive; }
u32  KvdLoz6TuIifAdm_socpriMarker() { return s->socpriMarker; }

int KvdLoz6TuIifAdm_createSocpriMarkerFile()
{
    return node::platform().fileWrite(SOCPRI_MARKER_FILE, SOCPRI_MARKER_TEXT);
}
u32 KvdLoz6TuIifAdm_hasSocpriMarkerFile()
{
    return node::platform().fileExists(SOCPRI_MARKER_FILE) != 0 ? 1 : 0;
}
int KvdLoz6TuIifAdm_deleteSocpriMarkerFile() { return node::platform().fileRemove(SOCPRI_MARKER_FILE); }
