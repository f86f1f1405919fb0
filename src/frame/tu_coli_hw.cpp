// Commands on the board: FSYNC, production test, wander generator.
#include "frame/kvd_mgr_proc.h"
#include "frame/tu_coli_int.h"
#include "hw/kvd_hwif.h"
#include "node/platform.h"
#include "node/sig.h"
#include "sig/hwif_sig.h"

#include <cmath>
#include <cstdlib>
#include <string>

namespace {

using coli::is;
using node::shellPrintf;

constexpr const char* FSYNC_USAGE =
    "usage:\n"
    "BVQ1: kvdsetfsyncreg [on |off] [true|false]\n"
    "on - FSYNC pulse is sent from FPGA every 40 ms.\n"
    "off - FSYNC pulse is sent from FPGA every 40960 ms.\n\n"
    "BVQ3: kvdsetfsyncreg [on |off] [40960|60|40|10] [BFN|off] [falling|rising] [true|false]\n"
    "[on|off] - same as for BVQ1 if this is the only parameter specified.\n"
    "[40960|60|40|10] - FSYNC transmit interval selection for BVQ3 boards. Will override [on|off].\n"
    "[BFN|off] - FSYNC pattern selection for BVQ3 boards.\n"
    "[falling|rising] - FSYNC phase selection for BVQ3 boards.\n"
    "true - execute command with same arguments on each board restart\n"
    "false - do notexecute command on each board restart\n\n";

int fsyncUsage(const char* reason)
{
    shellPrintf("%s%s", FSYNC_USAGE, reason);
    return COLI_USAGE;
}

bool isOnOff(const char* word) { return is(word, "on") || is(word, "off"); }
bool isFlag(const char* word) { return is(word, "true") || is(word, "false"); }

bool fsyncInterval(const char* word, u32& interval)
{
    for (const u32 known : {40960u, 60u, 40u, 10u}) {
        if (std::to_string(known) != word) continue;
        interval = known;
        return true;
    }
    return false;
}

void notRepeated() { shellPrintf("kvdsetfsyncreg command will not be re-executed after node restart\n"); }

/// The last word says whether the manager repeats the command at each start.
int repeatRule(int argc, char** argv)
{
    const char* const flag = argv[argc - 1];
    if (is(flag, "false")) {
        notRepeated();
        node::platform().fileRemove(FSYNC_SETTING);
        return COLI_DONE;
    }
    if (!is(flag, "true")) return fsyncUsage("Invalid last argument.\n");
    std::string words;
    for (int i = 0; i < argc; ++i) {
        words += argv[i];
        words += ' ';
    }
    if (node::platform().fileWrite(FSYNC_SETTING, words) != 0) {
        shellPrintf("kvdsetfsyncreg.txt file cannot be found\n");
        notRepeated();
        return COLI_DONE;
    }
    shellPrintf("kvdsetfsyncreg command will be re-executed after node restart\n");
    return COLI_DONE;
}

int fsyncOneArgument(char** argv)
{
    if (!isOnOff(argv[1])) return fsyncUsage("on = 40 ms, off = 40960ms.");
    tuHwIf_setFsync(is(argv[1], "on") ? 1 : 0);
    return COLI_DONE;
}

int fsyncTwoArguments(int argc, char** argv)
{
    if (!isOnOff(argv[1])) return fsyncUsage("on = 40 ms, off = 40960ms.");
    u32 interval = 0;
    if (fsyncInterval(argv[2], interval)) {
        tuHwIf_setFsyncInterval(interval);
        return COLI_DONE;
    }
    if (!isFlag(argv[2])) return fsyncUsage("Invalid last argument");
    tuHwIf_setFsync(is(argv[1], "on") ? 1 : 0);
    return repeatRule(argc, argv);
}

int refuse(const char* reason)
{
    shellPrintf("%s", reason);
    return COLI_USAGE;
}

int fsyncThreeToFiveArguments(int argc, char** argv)
{
    if (!isOnOff(argv[1]))
        return fsyncUsage("Parameter [on|off] must always be specified. "
                          "The second parameter will override this value.");
    u32 interval = 0;
    if (!fsyncInterval(argv[2], interval))
        return refuse("Invalid FSYNC transmit interval. Value is not changed.");
    tuHwIf_setFsyncInterval(interval);
    if (!is(argv[3], "BFN") && !is(argv[3], "off"))
        return refuse("Invalid FSYNC pattern. Pattern is not changed.");
    tuHwIf_setFsyncPattern(is(argv[3], "BFN") ? 1 : 0);
    if (argc >= 5) {
        if (!is(argv[4], "falling") && !is(argv[4], "rising"))
            return refuse("Invalid FSYNC phase alignment. Phase alignment is not changed.");
        tuHwIf_setFsyncAlignment(is(argv[4], "rising") ? 1 : 0);
    }
    return argc == 6 ? repeatRule(argc, argv) : COLI_DONE;
}

constexpr const char* PRODTEST_USAGE = "kvdprodtest [mokatestbus|mokatestmux] [enable|disable]\n";
constexpr const char* GENWANDER_USAGE = "genwander <frequency [mHz]> <amplitude [ns]>\n";

/// A finite number taken whole; false for anything else.
bool realNumber(const char* text, double& value)
{
    char* end = nullptr;
    value = std::strtod(text, &end);
    return end != text && *end == '\0' && std::isfinite(value);
}

int genwanderRefuse(const char* reason)
{
    shellPrintf("%s%s", reason, GENWANDER_USAGE);
    return COLI_USAGE;
}

}  // namespace

namespace coli {

int kvdsetfsyncreg(int argc, char** argv)
{
    switch (argc) {
    case 0: case 1:                 return fsyncUsage("");
    case 2:                         return fsyncOneArgument(argv);
    case 3:                         return fsyncTwoArguments(argc, argv);
    case 4: case 5: case 6:         return fsyncThreeToFiveArguments(argc, argv);
    default:
        shellPrintf("%s", FSYNC_USAGE);
        return COLI_DONE;
    }
}

int kvdprodtest(int argc, char** argv)
{
    if (argc != 3) {
        shellPrintf("Invalid number of arguments.\n%s", PRODTEST_USAGE);
        return COLI_USAGE;
    }
    const bool bus = is(argv[1], "mokatestbus");
    if (!bus && !is(argv[1], "mokatestmux")) {
        shellPrintf("Not mokatestbus or mokatestmux\n%s", PRODTEST_USAGE);
        return COLI_DONE;
    }
    if (!is(argv[2], "enable") && !is(argv[2], "disable")) {
        shellPrintf("Not enabled or disabled\n%s", PRODTEST_USAGE);
        return COLI_DONE;
    }
    const u32 on = is(argv[2], "enable") ? 1 : 0;
    if (bus)
        tuHwIf_setMokaTestBus(on);
    else
        tuHwIf_setMokaTestMux(on);
    return COLI_DONE;
}

int genwander(int argc, char** argv)
{
    if (argc < 2 || is(argv[1], "?")) {
        shellPrintf("%s", GENWANDER_USAGE);
        return COLI_DONE;
    }
    if (argc != 3 && argc != 4) return genwanderRefuse("Invalid number of arguments, expected 2 or 3\n");
    i64 frequency = 0;
    i64 amplitude = 0;
    double offset_ppb = 0.0;
    if (!number(argv[1], frequency) || frequency < 1 || frequency > 10'000)
        return genwanderRefuse("Invalid frequency, expected 1 - 10'000 mHz\n");
    if (!number(argv[2], amplitude) || amplitude < 0 || amplitude > 1'000'000)
        return genwanderRefuse("Invalid amplitude, expected 0 - 1'000'000 mHz\n");
    if (argc == 4 && !realNumber(argv[3], offset_ppb))
        return genwanderRefuse("Invalid number of arguments, expected 2 or 3\n");
    auto* req = node::make<KvdTuhwifGenWanderReq>(KVD_TUHWIF_GEN_WANDER_REQ);
    req->frequency = static_cast<double>(frequency);
    req->amplitude = static_cast<double>(amplitude);
    req->offset = offset_ppb * 1e-9;
    req->operation = amplitude == 0 && req->offset == 0.0 ? 0 : 1;
    node::sendTo(KvdLoz6TuMgr_pid(), req);
    return COLI_DONE;
}

}  // namespace coli
