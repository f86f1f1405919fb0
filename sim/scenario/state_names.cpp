// States, types and answers by the names that scenarios and checks use.
#include "sig/tuiif_sig.h"
#include "reg/kvd_reg.h"
#include "sim/node/main_processor.h"
#include "sim/scenario/scenario.h"

namespace sim {
namespace {

template <typename NameOf>
std::optional<u8> byName(const std::string& name, u8 last, NameOf nameOf)
{
    for (u8 value = 1; value <= last; ++value)
        if (name == nameOf(value)) return value;
    return std::nullopt;
}

constexpr const char* GPS_STATES[] = {"ILLEGAL_STATE",        "UN_INIT",
                                      "INIT_SERIAL_PORT",     "WAIT_FOR_ANY_MSG",
                                      "WAIT_FOR_VALID_MSG",   "WAIT_FOR_OPERATIONAL",
                                      "OPERATIONAL",          "OPERATIONAL_WITH_VALID_TIME"};
constexpr const char* GPSS_TYPES[] = {"NONE",    "FURUNO",         "NORVANE_COMBINED", "PENDING",
                                      "NORVANE", "PENDING_FURUNO", "FURUNO_GPS02"};

template <std::size_t N>
std::optional<u8> indexOf(const char* const (&names)[N], const std::string& name)
{
    for (std::size_t i = 0; i < N; ++i)
        if (name == names[i]) return static_cast<u8>(i);
    return std::nullopt;
}

struct SocpriAnswer { const char* word; SIGSELECT sigNo; };
constexpr SocpriAnswer SOCPRI_ANSWERS[] = {
    {"start", KVD_TUIIF_SOCPRI_START_RSP},
    {"scan", KVD_TUIIF_SOCPRI_SCAN_LINK_RSP},
    {"select", KVD_TUIIF_SOCPRI_SELECT_SYNC_LINK_RSP},
    {"sync", KVD_TUIIF_SOCPRI_LINK_SYNC_STATUS_IND},
    {"align", KVD_TUIIF_SOCPRI_BFN_ALIGN_TO_GROUP_RSP},
    {"holdover", KVD_TUIIF_SOCPRI_GO_TO_TIME_HOLDOVER_RSP},
    {"supervision", KVD_TUIIF_SOCPRI_SUPERVISION_STATUS_IND},
    {"link", KVD_TUIIF_SOCPRI_LINK_STATUS_FWD},
    {"already_selected", KVD_TUIIF_SOCPRI_ALREADY_SELECTED_IND},
};

}  // namespace

std::optional<u8> clockStateByName(const std::string& name) { return byName(name, 17, clockStateName); }
std::optional<u8> regStateByName(const std::string& name)
{
    return byName(name, 14, KvdLoz6TuReg_regStateText);
}
std::optional<u8> refTypeByName(const std::string& name) { return byName(name, 15, refTypeName); }
std::optional<u8> gpsStateByName(const std::string& name) { return indexOf(GPS_STATES, name); }
std::optional<u8> gpssTypeByName(const std::string& name) { return indexOf(GPSS_TYPES, name); }

const char* gpsStateName(u8 gpsState)
{
    return gpsState < std::size(GPS_STATES) ? GPS_STATES[gpsState] : "UNKNOWN";
}
const char* gpssTypeName(u8 gpssType)
{
    return gpssType < std::size(GPSS_TYPES) ? GPSS_TYPES[gpssType] : "UNKNOWN";
}

const char* socpriAnswerName(u32 sigNo)
{
    for (const SocpriAnswer& a : SOCPRI_ANSWERS)
        if (a.sigNo == sigNo) return a.word;
    return "UNKNOWN";
}

std::optional<u32> socpriAnswerByName(const std::string& name)
{
    for (const SocpriAnswer& a : SOCPRI_ANSWERS)
        if (name == a.word) return a.sigNo;
    return std::nullopt;
}

}  // namespace sim
