// kvdinfo and kvdhist: the components' reports.
#include "frame/kvd_mgr_proc.h"
#include "frame/tu_coli_int.h"
#include "gps/kvd_gps.h"
#include "gps/kvd_gps_osl.h"
#include "gps/kvd_gps_out.h"
#include "iif/kvd_biraiifadm.h"
#include "iif/kvd_iifadm_orders.h"
#include "iif/kvd_pm.h"
#include "mp/kvd_iifadm.h"
#include "node/platform.h"
#include "ref/kvd_phyadm.h"
#include "ref/kvd_ref.h"
#include "refs/kvd_hptsi.h"
#include "refs/kvd_idpi.h"
#include "refs/kvd_ipsynctsiadm.h"
#include "refs/kvd_slowpi.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_socpri.h"
#include "socpri/kvd_socpri.h"
#include "store/kvd_mgr_mem.h"

#include <charconv>

namespace {

using node::shellPrintf;

struct Section {
    const char* name;
    void (*print)();
    bool inAll;
    const char* help;
};
// In the order in which "all" prints them.
constexpr Section SECTIONS[] = {
    {"tu_iif",      KvdLoz6TuIifAdm_printInfo,      true,  "prints out data for tu iif"},
    {"bira_iif",    KvdLoz6BiraIifAdm_printInfo,    true,  "prints out data for bira iif"},
    {"tuphy",       KvdLoz6TuPhyAdm_printInfo,      true,  "prints out data for tu phy"},
    {"turef",       KvdLoz6TuRef_printInfo,         true,  "prints out data for tu ref"},
    {"tureg",       KvdLoz6TuReg_printInfo,         true,  "prints out data for tu reg"},
    {"tugps",       KvdLoz6TuGps_printInfo,         true,  "prints out data for tu gps"},
    {"tugps_out",   KvdLoz6GpsOut_printInfo,        true,  "prints out data for tugps out"},
    {"tuipsynctsi", KvdLoz6TuIpSyncTsiAdm_printInfo, true, "prints out data for tu ipsynctsi"},
    {"tupm",        KvdLoz6TuPm_printInfo,          true,  "prints out data for tu pm"},
    {"tuhptsi",     KvdLoz6TuHptsi_printInfo,       true,  "prints out data for tu hptsi"},
    {"tugps_osl",   KvdLoz6GpsOsl_printInfo,        true,  "prints out data for tugps osl"},
    {"idpi",        KvdLoz6Idpi_printInfo,          true,  "prints out data for idpi"},
    {"tuslowpi",    KvdLoz6TuSlowpi_printInfo,      true,  "prints out data for tu slowpi"},
    {"tumgr",       KvdLoz6TuMgr_printInfo,         true,  "prints out data for tu mgr"},
    {"inrsi",       KvdLoz6TuSoCpri_printInfo,      true,  "prints out data for inrsi"},
    {"tumem",       KvdLoz6TuMem_printInfo,         false, "prints out data for tu mem"},
};

constexpr const char* HIST_HELP[] = {
    "kvdhist inrsi - prints out trace history for inrsi\n",
    "kvdhist socpri - prints out trace history for socpri\n",
    "kvdhist socpri_supervision [port] - prints out supervision history for all ports or one, 0 to 5\n",
};

int help()
{
    shellPrintf("\nkvdinfo all - prints all data that exists in loz6\n\n");
    for (const Section& section : SECTIONS) shellPrintf("kvdinfo %s - %s\n", section.name, section.help);
    shellPrintf("\nkvdhist all - prints all trace history that exists in loz6\n\n");
    for (const char* line : HIST_HELP) shellPrintf("%s", line);
    return COLI_USAGE;
}

void end() { shellPrintf("\n***** END *****\n"); }

}  // namespace

void TuColi_printAll()
{
    for (const Section& section : SECTIONS)
        if (section.inAll) section.print();
}

namespace coli {

bool number(const char* text, i64& value)
{
    const char* const last = text + std::strlen(text);
    const auto [stop, error] = std::from_chars(text, last, value);
    return error == std::errc() && stop == last;
}

int kvdinfo(int argc, char** argv)
{
    if (argc != 2) return help();
    if (is(argv[1], "all")) {
        TuColi_printAll();
        end();
        return COLI_DONE;
    }
    for (const Section& section : SECTIONS) {
        if (!is(argv[1], section.name)) continue;
        section.print();
        end();
        return COLI_DONE;
    }
    return help();
}

int kvdhist(int argc, char** argv)
{
    u8 port = INRSI_ALL_PORTS;
    if (argc == 3 && is(argv[1], "socpri_supervision")) {
        i64 given = -1;
        if (!number(argv[2], given) || given < 0 || given > 5) return help();
        port = static_cast<u8>(given);
    } else if (argc != 2) {
        return help();
    }
    const bool all = is(argv[1], "all");
    const bool ofRegulator = is(argv[1], "socpri");
    const bool ofClient = is(argv[1], "inrsi");
    const bool ofSupervision = is(argv[1], "socpri_supervision");
    if (!all && !ofRegulator && !ofClient && !ofSupervision) return help();
    if (all || ofRegulator) KvdLoz6TuReg_printSoCpriHistory();
    if (all || ofClient) KvdLoz6TuSoCpri_printHistory();
    if (all || ofSupervision) KvdLoz6TuSoCpri_printSupervisionHistory(port);
    end();
    return COLI_DONE;
}

}  // namespace coli
