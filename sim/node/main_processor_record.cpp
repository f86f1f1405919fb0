// What the main processor keeps of the unit's signals.
#include "sig/tuiif_sig.h"
#include "sim/node/main_processor.h"
#include "sim/node/node.h"

#include <algorithm>

namespace sim {

namespace { constexpr std::size_t LOG_MAX = 100'000; }

void MainProcessor::record(Signal* sig, PROCESS from)
{
    const auto* bytes = reinterpret_cast<const std::byte*>(sig);
    if (log_.size() == LOG_MAX) log_.pop_front();
    log_.push_back({node_.world().now(), sig->sigNo, from, {bytes, bytes + ose::sigsize(&sig)}});
    told_.add(log_.back().at);
    told_.addBytes(log_.back().bytes);
    ++toldSignals_;
    if (onRecord_) onRecord_(log_.back());
    for (const auto& peer : onForward_) peer(log_.back());
}

std::size_t MainProcessor::count(SIGSELECT sigNo, ose::Time since) const
{
    return static_cast<std::size_t>(std::count_if(log_.begin(), log_.end(), [&](const MpRecord& r) {
        return r.sigNo == sigNo && r.at >= since;
    }));
}

const MpRecord* MainProcessor::last(SIGSELECT sigNo) const
{
    for (auto r = log_.rbegin(); r != log_.rend(); ++r)
        if (r->sigNo == sigNo) return &*r;
    return nullptr;
}

std::vector<MpRecord> MainProcessor::all(SIGSELECT sigNo) const
{
    std::vector<MpRecord> found;
    for (const MpRecord& r : log_)
        if (r.sigNo == sigNo) found.push_back(r);
    return found;
}

std::string MainProcessor::describe(const MpRecord& record)
{
    char text[240];
    const char* name = tuiifSignalName(record.sigNo);
    if (const auto s = record.as<KvdTuiifBvqStatusInd>();
        record.sigNo == KVD_TUIIF_BVQ_STATUS_IND && s) {
        std::snprintf(
            text, sizeof text,
            "%s radioClockState=%u %s refState=0x%x ltr=%u degr=%u froId=%u froClassNo=%u", name,
            s->radioClockState, clockStateName(s->radioClockState), s->refState,
            s->activRefLtrStatus, s->activRefDegrStatus, s->activRefFroId, s->activRefFroClassNo);
    } else if (const auto e = record.as<KvdTuiifEtFroidInd>();
               record.sigNo == KVD_TUIIF_ET_FROID_IND && e) {
        std::snprintf(text, sizeof text, "%s line=%u froId=%u statusControl=%u", name, e->lineNum,
                      e->froId, e->statusControl);
    } else if (const auto r = record.as<KvdTuiif6BvqRefStateInd>();
               record.sigNo == KVD_TUIIF6_BVQ_REF_STATE_IND && r) {
        std::snprintf(text, sizeof text, "%s froId=%u froClassNo=%u refState=%u info=0x%x", name, r->froId,
                      r->froClassNo, r->refState, r->additionalRefStateInfo);
    } else if (const auto g = record.as<KvdTuiifGpsStatusInd>();
               record.sigNo == KVD_TUIIF_GPS_STATUS_IND && g) {
        std::snprintf(text, sizeof text, "%s gpsStatus=%u %.131s", name, g->gpsStatus, g->text);
    } else if (const auto h = record.as<KvdTuiifHptsiStatusInd>();
               record.sigNo == KVD_TUIIF_HPTSI_STATUS_IND && h) {
        std::snprintf(text, sizeof text, "%s status=%u %.131s", name, h->status, h->text);
    } else if (const auto q = record.as<KvdTuiifQualityLevelInd>();
               record.sigNo == KVD_TUIIF_QUALITY_LEVEL_IND && q) {
        std::snprintf(text, sizeof text, "%s froId=%u froClassNo=%u clockQuality=%u", name, q->froId,
                      q->froClassNo, q->clockQuality);
    } else if (const auto p = record.as<KvdTuiifPduMissingInd>();
               record.sigNo == KVD_TUIIF_PDU_MISSING_IND && p) {
        std::snprintf(text, sizeof text, "%s froId=%u froClassNo=%u pduMissing=%u", name, p->froId,
                      p->froClassNo, p->pduMissing);
    } else if (*name != '\0') {
        std::snprintf(text, sizeof text, "%s size=%zu", name, record.bytes.size());
    } else {
        std::snprintf(text, sizeof text, "signal 0x%x size=%zu", record.sigNo, record.bytes.size());
    }
    return text;
}

}  // namespace sim
