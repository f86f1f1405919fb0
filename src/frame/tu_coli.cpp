// The 32 commands: names, usage and help texts, handlers, in the order of registration.
#include "frame/tu_coli.h"

#include "base/trace_groups.h"
#include "frame/tu_coli_int.h"
#include "node/platform.h"
#include "node/trace.h"

namespace {

constexpr node::ShellCommand COMMANDS[] = {
    {"kvdinfo",
     "kvdinfo [all | tu_iif | bira_iif | tuphy | turef | tugps | tureg | tumgr | tuipsynctsi | "
     "tupm | tugps_out | tuhptsi | tumem | tugps_osl | idpi | tuslowpi | inrsi]",
     "Get KVD status information", coli::kvdinfo},
    {"kvdhist", "kvdhist [all | inrsi | socpri]", "Get KVD history information", coli::kvdhist},
    {"freerunning", "freerunning",
     "Force regulator to enter freerunning state. No synchronization reference should be "
     "selected when this command is used. \n"
     "Example: \n"
     "1. Radio clock in locked state\n"
     "2. Block all references\n"
     "3. Issue the command kvdfreerunning\n"
     "4. Radio clock is in state freerunning",
     coli::freerunning},
    {"kvdsetfsyncreg", "kvdsetfsyncreg [on | off] [40960|60|40|10] [BFN|off] [falling|rising] [true|false]",
     "Set FSYNC transmit interval, pattern and phase alignment.\n"
     "If the first parameter is on the FSYNC pulse is sent from FPGA every 40 ms instead of "
     "40960 ms.\n"
     "By setting one of the numbers 40960, 60, 40 or 10 in the second argument the transmit "
     "interval can be set for BVQ3 boards. The second parameter will then override [on|off].\n"
     "The third parameter set the FSYNC pattern for BVQ3 boards.\n"
     "The fourth parameter specifies alignment to BB_clk falling or rising edge for BVQ3 "
     "boards.The fifth parameter determins if the command will automatically be executedon "
     "each board restart",
     coli::kvdsetfsyncreg},
    {"kvdprodtest", "kvdprodtest [mokatestbus|mokatestmux] [enable|disable]\n",
     "Access memory in MOKA to enable/disable LA_TEST_BUS or PROD_TEST_CLK_MUX in CCR "
     "register\n",
     coli::kvdprodtest},
    {"kvdwritehist", "kvdwritehist [flash | msi]", "Forces writing of hist data to flash disk or msi\n",
     coli::kvdwritehist},
    {"kvdreadhist", "kvdreadhist", "Reads current hist data from msi and flash disk\n", coli::kvdreadhist},
    {"kvdselectregref", "kvdselectregref [eth_a | eth_b | eth_c]",
     "Set the specified reference type as selectedreference in tureg and tuhwif.\n", coli::kvdselectregref},
    {"kvdfixfrequency", "kvdfixfrequency",
     "Force regulator to enter fix frequency mode. Synchronization reference should be "
     "selected when this command is used, clock should be in locked mode. Fix frequency mode "
     "will automatically end when frequency becomes good enough.",
     coli::kvdfixfrequency},
    {"gpsprot", "Take cmd 'man gpsprot' for help info\n",
     "Change protocol between Furuno and Norvane Combined", coli::gpsprot},
    {"gpscapture", "Take cmd 'man gpscapture' for help info\n",
     "Capture NMEA messages to and from GPS receivers", coli::gpscapture},
    {"kvdconfigtimeacc", "kvdconfigtimeacc", "Send the desired time accuracy to SCSPI clients",
     coli::kvdconfigtimeacc},
    {"kvdsetfastlock", "kvdsetfastlock [0 | 1 | 2]",
     "Setting the jitter/wander tolerance level (R) for EXT REF which changes needed time for "
     "clock to become locked to the EXT REF.\n",
     coli::kvdsetfastlock},
    {"genwander", "genwander <frequency [mHz]> <amplitude [ns]>", "Introduce wander to current frequency\n",
     coli::genwander},
    {"genpdv", "genpdv <ptp_t|ptp_f|ntp> <uplink|downlink> <enable|disable>",
     "Introduce pdv to current packet reference\n", coli::genpdv},
    {"gps01reset", "Take cmd 'man gps01reset' for help info\n",
     "Reset GPS01 receiver and clear positioning data", coli::gps01reset},
    {"gps02reset", "Take cmd 'man gps02reset' for help info\n",
     "Command used to clear and/or reset GPS02 receiver", coli::gps02reset},
    {"gpsstatus", "Take cmd 'man gpsstatus' for help info\n", "Print the status of GPS receiver",
     coli::gpsstatus},
    {"gpssend", "Take cmd 'man gpssend' for help info\n", "Send message to the GPS receiver", coli::gpssend},
    {"genhptsisource", "genhptsisource [0x00|0x01|0x02|0x03|0x04|stop]", "Change Hptsi clock source",
     coli::genhptsisource},
    {"gengpssstatus", "gengpssstatus [0|1|3|stop]", "Change GpssStatus received in GPppr message",
     coli::gengpssstatus},
    {"kvdgpstrace", "kvdgpstrace",
     "Dump collected GpsSyncRef and tuReg troubleshooting \n"
     "data collected in the last hour \n"
     "Dump to two seperate .gz files, located in /c/logfiles/ directory",
     coli::kvdgpstrace},
    {"gpsskyview", "Take cmd 'man gpsskyview' for help info\n", "Collect sky-view data.", coli::gpsskyview},
    {"gentimestandard", "gentimestandard [1|2|3|stop]", "Change time standard received in GPtps message",
     coli::gentimestandard},
    {"kvdpdvthr", "kvdpdvthr [packettime|packetfreq|ntp <ns>|d]", "Set pdv-threshold for a packet reference",
     coli::kvdpdvthr},
    {"kvdholdoverthr", "kvdholdoverthr [rnt|to|freq][<min>|d]", "Set holdover threshold in minutes",
     coli::kvdholdoverthr},
    {"kvdremovetime", "kvdremovetime", "Reset time state while in Time Holdover", coli::kvdremovetime},
    {"kvddegraderef", "kvddegraderef", "Simulate reference degradation", coli::kvddegraderef},
    {"kvdsetcallimit", "kvdsetcallimit", "Set calibration expiration days limit", coli::kvdsetcallimit},
    {"kvdgpsreset", "kvdgpsreset <HRV>", "initiate reset of HRV or GRM FW on GPS receiver",
     coli::kvdgpsreset},
    {"socpritogreg", "socpritogreg [on | cv | off | current]", "Toggle regulation for SoCpri reference",
     coli::socpritogreg},
    {"socprireadsfc", "socprireadsfc", "Read eSFC and SFC registers", coli::socprireadsfc},
};
static_assert(sizeof COMMANDS / sizeof *COMMANDS == 32);

}  // namespace

void TuColi_registerCommands()
{
    for (const node::ShellCommand& command : COMMANDS) {
        const int result = node::platform().registerCommand(command);
        if (result != 0)
            KVD_TRACE(TRACE_TUMGR_PROC, TRACE_ERROR, "command %s could not be registered, result=%d",
                      command.name, result);
    }
}

int TuColi_setFsyncReg(int argc, char** argv) { return coli::kvdsetfsyncreg(argc, argv); }
