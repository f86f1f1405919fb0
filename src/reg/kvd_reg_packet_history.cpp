// History of delay variation, by reference: a record when it changed enough to be worth one.
#include "base/trace_groups.h"
#include "base/element_of.h"
#include "base/kvd_math.h"
#include "node/platform.h"
#include "node/trace.h"
#include "reg/kvd_reg_measure.h"
#include "reg/kvd_reg_packet_int.h"
#include "reg/kvd_reg_text.h"
#include "sig/ref_types.h"

#include <algorithm>

using packet::state;

namespace {

constexpr double CHANGE[packet::HISTORY_TYPES] = {0.000225, 0.000225, 1.5e-06};   // s

packet::PdvRecord recordOfNow(double value1, double value2)
{
    return {TuCommon_secondsToDate(node::platform().calendar().seconds), {value1, value2}};
}

packet::HistoryPlace* findPlace(u32 type, u32 refId)
{
    for (packet::HistoryPlace& p : state().history.places)
        if (p.used != 0 && p.type == type && p.refId == refId) return &p;
    return nullptr;
}

/// Places are kept by rising id. In a full table the last one falls out; nullptr when that is the
/// new one itself.
packet::HistoryPlace* findOrMakePlace(u32 type, u32 refId)
{
    if (packet::HistoryPlace* const there = findPlace(type, refId)) return there;
    auto& places = state().history.places;
    const auto at = std::find_if(places.begin(), places.end(), [refId](const packet::HistoryPlace& p) {
        return p.used == 0 || p.refId > refId;
    });
    if (at == places.end()) return nullptr;
    std::move_backward(at, places.end() - 1, places.end());
    *at = {.used = 1, .type = type, .refId = refId};
    return &*at;
}

void append(packet::HistoryPlace& p, const packet::PdvRecord& record)
{
    p.records[p.count % packet::HISTORY_RECORDS] = record;
    ++p.count;
    if (p.count < packet::HISTORY_RECORDS) return;
    p.first = p.count % packet::HISTORY_RECORDS;
    p.count = p.first + packet::HISTORY_RECORDS;
}

/// Index 0 to 2 of a reference class, HISTORY_TYPES for others.
u32 typeOfClass(u32 froClassNo)
{
    switch (froClassNo) {
    case NTP_FRO_CLASS:         return packet::HISTORY_NTP;
    case PACKET_FREQ_FRO_CLASS: return packet::HISTORY_FREQUENCY;
    case PACKET_TIME_FRO_CLASS: return packet::HISTORY_TIME;
    default:              return packet::HISTORY_TYPES;
    }
}

u32 selectedType()
{
    switch (KvdLoz6TuReg_measurementIndex(KvdLoz6TuReg_selectedRef())) {
    case Z_NTP_REF:      return packet::HISTORY_NTP;
    case Z_PKT_FREQ_REF: return packet::HISTORY_FREQUENCY;
    case Z_PKT_TIME_REF: return packet::HISTORY_TIME;
    default:             return packet::HISTORY_TYPES;
    }
}

void printRecord(CutText& out, u32 type, const packet::PdvRecord& r)
{
    out.add("   [");
    out.addTime(r.time);
    if (type == packet::HISTORY_TIME)
        out.add("]    PDV_DL: %#10.3f [us]   PDV_UL: %#10.3f [us]\n", r.values[0] * 1e6, r.values[1] * 1e6);
    else
        out.add("]    PDV:   %#10.6f [ms]\n", r.values[0] * 1e3);
}

void printPlace(CutText& out, const packet::HistoryPlace& p)
{
    constexpr const char* HEAD[] = {"IpSyncRef", "PacketFrequencySyncRef", "PacketTimeSyncRef"};
    const bool inUse = p.type == selectedType() && p.refId == state().history.currentId[p.type];
    out.add("\n   %s [%lu]%s:\n\n", HEAD[p.type], static_cast<unsigned long>(p.refId), inUse ? " (*)" : "");
    if (p.count == 0)
        return out.add(inUse ? "   The reference contains no measurements.\n\n"
                             : "   The reference has not been selected since node restart.\n\n");
    const u32 records = std::min(p.count, packet::HISTORY_RECORDS);
    for (u32 i = 0; i < records; ++i)
        printRecord(out, p.type, p.records[(p.first + i) % packet::HISTORY_RECORDS]);
    const char* const which = inUse ? "current" : "last   ";
    if (p.type == packet::HISTORY_TIME)
        out.add("\n                    %s PDV_DL: %#10.3f [us]   PDV_UL: %#10.3f [us]\n\n", which,
                p.current.values[0] * 1e6, p.current.values[1] * 1e6);
    else
        out.add("\n                    %s PDV:   %#10.6f [ms]\n\n", which, p.current.values[0] * 1e3);
}

}  // namespace

void packet::historyEntry(u32 type, bool high, double value1, double value2)
{
    History& h = state().history;
    HistoryPlace* const place = findOrMakePlace(type, h.currentId[type]);
    if (place == nullptr) return;
    const PdvRecord record = recordOfNow(value1, value2);
    place->current = record;
    Remembered& last = h.remembered[type];
    const bool moved = isBeyond(value1 - last.values[0], CHANGE[type])
                       || isBeyond(value2 - last.values[1], CHANGE[type]);
    if (place->count != 0) {
        if (high && last.high == 0)       last.high = 1;
        else if (!high && last.high != 0) last.high = 0;
        else if (!moved)                  return;
    }
    append(*place, record);
    last.values[0] = value1;
    last.values[1] = value2;
}

void KvdLoz6TuReg_restartPdvHistory(u32 type, u32 refId)
{
    u32* const current = elementOf(state().history.currentId, type);
    if (current == nullptr) return;
    *current = refId;
    packet::HistoryPlace* const place = findOrMakePlace(type, refId);
    if (place == nullptr) return;
    place->count = 0;
    place->first = 0;
    place->current = recordOfNow(0.0, 0.0);
}

void KvdLoz6TuReg_registerPacketRef(u32 froClassNo, u32 froId)
{
    const u32 type = typeOfClass(froClassNo);
    if (type != packet::HISTORY_TYPES) findOrMakePlace(type, froId);
}

void KvdLoz6TuReg_deregisterPacketRef(u32 froClassNo, u32 froId)
{
    packet::HistoryPlace* const place = findPlace(typeOfClass(froClassNo), froId);
    if (place == nullptr) return;
    auto& places = state().history.places;
    std::move(place + 1, places.end(), place);
    places.back() = {};
}

u32 KvdLoz6TuReg_pdvHistoryText(char* text, u32 room)
{
    CutText out{text, room};
    out.add("\n***** Reference PDV measurements *****\n");
    for (const u32 type : {packet::HISTORY_TIME, packet::HISTORY_FREQUENCY, packet::HISTORY_NTP})
        for (const packet::HistoryPlace& p : state().history.places)
            if (p.used != 0 && p.type == type) printPlace(out, p);
    return out.length;
}
