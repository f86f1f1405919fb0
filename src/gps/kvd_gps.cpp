// GPS receivers aren't part of this load yet: the element of the dispatch chain answers 0, no receiver is
// ever found, no measurement arrives.
#include "gps/kvd_gps.h"

#include "mgr/trace_groups.h"
#include "node/platform.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "ref/ref_types.h"

namespace {

struct State {
    u8 tuGpsRefType = NO_REF;   // whom the receiver front end serves
};
ose::ModuleData<State> s;

}  // namespace

void KvdLoz6TuGps_initiate() { s->tuGpsRefType = NO_REF; }
int KvdLoz6TuGps_dispatch(Signal*) { return 0; }
void KvdLoz6TuGps_handleInt()
{
    KVD_TRACE(TRACE_TUGPS, TRACE_INFO, "reference edge dropped, GPS isn't running");
}
void KvdLoz6TuGps_regStateChanged(u8) {}
void KvdLoz6TuGps_testMode(u32) {}
void KvdLoz6TuGps_clearPreTimeOffset() {}
void KvdLoz6TuGps_serverGone() {}
void KvdLoz6TuGps_statusChange(u32) {}
void KvdLoz6TuGps_closePort() {}
void KvdLoz6TuGps_selectionMode(u8) {}
u8 KvdLoz6TuGps_tuGpsRefType() { return s->tuGpsRefType; }
void KvdLoz6TuGps_setTuGpsRefType(u8 refType) { s->tuGpsRefType = refType; }
u32 KvdLoz6TuGps_gpssType() { return 0; }
u32 KvdLoz6TuGps_gpssTypeBackup() { return 0; }
bool KvdLoz6TuGps_isOperational() { return false; }
void KvdLoz6TuGps_supervision(const Signal*, u32) {}
void KvdLoz6TuGps_printInfo()
{
    node::shellPrintf("\n***** GPS *****\n   not running\n");
}
