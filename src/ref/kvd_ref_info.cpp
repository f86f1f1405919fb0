// The "turef" section of kvdinfo.
#include "mp/kvd_iifadm.h"
#include "node/platform.h"
#include "ref/kvd_ref.h"
#include "ref/kvd_ref_int.h"
#include "ref/kvd_ref_select.h"
#include "refs/kvd_ref_idl.h"

#include <cstdio>

namespace {

const char* refStatusText(u32 refStatus)
{
    switch (refStatus) {
    case REF_STATUS_UNK: return "UNK";
    case REF_STATUS_ON:  return "ON";
    case REF_STATUS_OFF: return "OFF";
    default:             return "<Unknown>";
    }
}

const char* filterText(u32 filterType)
{
    switch (filterType) {
    case NO_FILTER:  return "NO_FILTER";
    case HO_FILTER:  return "HO_FILTER";
    case WTR_FILTER: return "WTR_FILTER";
    default:         return "<Unknown>";
    }
}

const char* gpsExtToggleText(u32 toggle)
{
    switch (toggle) {
    case NO_TOGGLE:  return "NO_TOGGLE";
    case EXT_TOGGLE: return "EXT_TOGGLE";
    case GPS_TOGGLE: return "GPS_TOGGLE";
    default:         return "<Unknown>";
    }
}

/// Decimal, "none" for FRO_NONE.
void idText(char (&text)[12], u32 id)
{
    if (id == FRO_NONE) std::snprintf(text, sizeof text, "none");
    else std::snprintf(text, sizeof text, "%u", id);
}

void printSelection()
{
    node::shellPrintf("   selectedRef       : %s (%u)\n",
                      KvdLoz6TuRef_refTypeText(KvdLoz6TuRef_selectedRef()), KvdLoz6TuRef_selectedRef());
    node::shellPrintf("   prevSelRef        : %s (%u)\n", KvdLoz6TuRef_refTypeText(KvdLoz6TuRef_prevSelRef()),
                      KvdLoz6TuRef_prevSelRef());
    node::shellPrintf("   before that       : %s (%u)\n",
                      KvdLoz6TuRef_refTypeText(KvdLoz6TuRef_prevPrevSelRef()), KvdLoz6TuRef_prevPrevSelRef());
}

void printWords(const RefTable& t)
{
    node::shellPrintf("   tuiifRefState     : 0x%08X\n", KvdLoz6TuIifAdm_tuiifRefState());
    node::shellPrintf("   refStatusBits     : 0x%08X\n", t.refStatusBits);
    node::shellPrintf("   lastToggleStatus  : 0x%08X\n", t.lastToggleStatus);
    node::shellPrintf("   noChangeCounter   : %u\n", t.noChangeCounter);
    node::shellPrintf("   gpsExtToggle      : %s (%u)\n", gpsExtToggleText(t.gpsExtToggle), t.gpsExtToggle);
    node::shellPrintf("   prevGpsToggle     : %s (%u)\n", gpsExtToggleText(t.prevGpsToggle), t.prevGpsToggle);
    node::shellPrintf("   ethStatusSent     : %u\n", t.ethStatusSent);
    node::shellPrintf("   first start       : %u\n", t.firstStart);
    node::shellPrintf("   GPS OSL holdover  : %s\n", KvdLoz6TuRef_gpsOslHoldoverTimerRuns() ? "runs" : "-");
}

void printRows(const RefTable& t)
{
    node::shellPrintf("\n   refDescTable\n");
    node::shellPrintf(
        "   no  refType      superv  refStatus  filterType  timer  toggleMask  stateMask  "
        "stateBits  froId       froClassNo\n");
    for (u32 row = 0; row < REF_ROWS; ++row) {
        const RefDesc& d = t.refDescTable[row];
        char froId[12], froClassNo[12];
        idText(froId, d.froId);
        idText(froClassNo, d.froClassNo);
        node::shellPrintf(
            "   %-2u  %-11s  %-6s  %-9s  %-10s  %-5s  0x%03X       0x%04X     0x%04X     "
            "%-10s  %s\n",
            row, KvdLoz6TuRef_refTypeText(d.refType), d.supervisionStatus != 0 ? "True" : "False",
            refStatusText(d.refStatus), filterText(d.filterType), d.filterTimer.runs() ? "runs" : "-",
            REF_ROW_TRAITS[row].toggleMask, REF_ROW_TRAITS[row].stateMask, d.stateBits, froId, froClassNo);
    }
}

}  // namespace

void KvdLoz6TuRef_printInfo()
{
    const RefTable& t = KvdLoz6TuRef_table();
    node::shellPrintf("\n***** KVD LOZ6 turef related data *****\n");
    printSelection();
    printWords(t);
    printRows(t);
    KvdLoz6TuRef_printIdl();
}
