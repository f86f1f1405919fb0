#include "app/socpri_reports.h"

#include "sig/tuiif_sig.h"

namespace app {
namespace {

template <typename T, typename Read>
std::optional<SocpriReport> read(const sim::MpRecord& record, Read fields)
{
    const auto sig = record.as<T>();
    if (!sig) return std::nullopt;
    SocpriReport report;
    report.sigNo = record.sigNo;
    fields(*sig, report);
    return report;
}

}  // namespace

std::optional<SocpriReport> socpriReport(const sim::MpRecord& record)
{
    switch (record.sigNo) {
    case KVD_TUIIF_SOCPRI_START_RSP:
    case KVD_TUIIF_SOCPRI_BFN_ALIGN_TO_GROUP_RSP:
        return read<KvdTuiifSocpriStartRsp>(record, [](const auto& s, auto& r) { r.status = s.status; });
    case KVD_TUIIF_SOCPRI_GO_TO_TIME_HOLDOVER_RSP:
        return read<KvdTuiifSocpriGoToTimeHoldoverRsp>(record,
                                                       [](const auto& s, auto& r) { r.status = s.status; });
    case KVD_TUIIF_SOCPRI_SCAN_LINK_RSP:
    case KVD_TUIIF_SOCPRI_SELECT_SYNC_LINK_RSP:
    case KVD_TUIIF_SOCPRI_LINK_SYNC_STATUS_IND:
        return read<KvdTuiifSocpriScanLinkRsp>(record, [](const auto& s, auto& r) {
            r.port = s.portNo;
            r.status = s.syncStatus;
        });
    case KVD_TUIIF_SOCPRI_SUPERVISION_STATUS_IND:
        return read<KvdTuiifSocpriSupervisionStatusInd>(record, [](const auto& s, auto& r) {
            r.port = s.portNo;
            r.status = s.syncStatus;
        });
    case KVD_TUIIF_SOCPRI_LINK_STATUS_FWD:
        return read<KvdTuiifSocpriLinkStatusFwd>(record, [](const auto& s, auto& r) {
            r.port = s.portNo;
            r.status = s.linkStatus;
        });
    case KVD_TUIIF_SOCPRI_ALREADY_SELECTED_IND:
        return read<KvdTuiifSocpriAlreadySelectedInd>(record, [](const auto& s, auto& r) {
            r.port = s.requestedCpriPort;
            r.status = s.selectedCpriPort;
        });
    default: return std::nullopt;
    }
}

}  // namespace app
