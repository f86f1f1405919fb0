#include "unit/kvd_ref_table.h"

#include "base/trace_groups.h"
#include "node/trace.h"
#include "ose/module_data.h"

#include <algorithm>

namespace {

ose::ModuleData<RefTable> s;

u32 validRow(u32 row) { return row < REF_ROWS ? row : 0; }

}  // namespace

RefTable& KvdLoz6TuRef_table() { return *s; }

u32 KvdLoz6TuRef_rowOfRefType(u8 refType)
{
    const auto& rows = s->refDescTable;
    const auto row = std::ranges::find(rows, refType, &RefDesc::refType);
    if (row != rows.end()) return static_cast<u32>(row - rows.begin());
    KVD_TRACE(TRACE_TUREF, TRACE_INFO, "refType: %s (%u) not found in refDescTable",
              KvdLoz6TuRef_refTypeText(refType), refType);
    return 0;
}

const RefDesc& KvdLoz6TuRef_row(u32 row) { return s->refDescTable[validRow(row)]; }
u32 KvdLoz6TuRef_toggleMask(u32 row) { return REF_ROW_TRAITS[validRow(row)].toggleMask; }
u32 KvdLoz6TuRef_stateMask(u32 row) { return REF_ROW_TRAITS[validRow(row)].stateMask; }
u32 KvdLoz6TuRef_isFirstStart() { return s->firstStart; }
u32 KvdLoz6TuRef_lastToggleStatus() { return s->lastToggleStatus; }
u32 KvdLoz6TuRef_noChangeCounter() { return s->noChangeCounter; }
u32 KvdLoz6TuRef_refStatusBits() { return s->refStatusBits; }
void KvdLoz6TuRef_setRefStatusBits(u32 bits) { s->refStatusBits |= bits; }
void KvdLoz6TuRef_clearRefStatusBits(u32 bits) { s->refStatusBits &= ~bits; }
u32 KvdLoz6TuRef_gpsExtToggle() { return s->gpsExtToggle; }
u32 KvdLoz6TuRef_prevGpsToggle() { return s->prevGpsToggle; }

void KvdLoz6TuRef_setGpsExtToggle(u32 toggle)
{
    s->prevGpsToggle = s->gpsExtToggle;
    s->gpsExtToggle = toggle;
}

u8 KvdLoz6TuRef_selectedRef() { return s->selectedRef; }
u8 KvdLoz6TuRef_prevSelRef() { return s->prevSelRef; }
u8 KvdLoz6TuRef_prevPrevSelRef() { return s->prevPrevSelRef; }

const char* KvdLoz6TuRef_refTypeText(u8 refType)
{
    switch (refType) {
    case NO_REF:          return "NO_REF";
    case TU_REF:          return "TU_REF";
    case NTP_REF:         return "NTP_REF";
    case PDH_SDH_REF:     return "PDH_SDH_REF";
    case IDL1_REF:        return "IDL1_REF";
    case GPS_REF:         return "GPS_REF";
    case PACKET_TIME_REF: return "PACKET_TIME_REF";
    case PACKET_FREQ_REF: return "PACKET_FREQ_REF";
    case IDL2_REF:        return "IDL2_REF";
    case HPTSI_REF:       return "HPTSI_REF";
    case ETHA_REF:        return "ETHA_REF";
    case ETHB_REF:        return "ETHB_REF";
    case ETHC_REF:        return "ETHC_REF";
    case GPSOSL_REF:      return "GPSOSL_REF";
    case SOCPRI_REF:      return "SOCPRI_REF";
    default:              return "<Unknown>";
    }
}
