// The units that a seed draws: one or two by themselves with references of every kind, or two and three that
// follow each other over inter-unit links, a GPS output or a radio link.
#include "app/soak_plan.h"

#include "app/soak.h"

#include <cstdarg>
#include <cstdio>

namespace app {
namespace {

constexpr const char* RECEIVERS[] = {"gps01", "gps02", "gps03", "combined", "norvane"};
constexpr const char* SILENT = "announces = false\nsyncs = false\nresponds = false\n";

}  // namespace

std::string format(const char* text, ...)
{
    char line[512];
    va_list arguments;
    va_start(arguments, text);
    std::vsnprintf(line, sizeof line, text, arguments);
    va_end(arguments);
    return line;
}

Plan::Plan(double hours, unsigned long long seed) : random_(seed, "soak"), end_s_(hours * 3600.0)
{
    text_ = format("name = \"soak-%llu\"\nduration = \"%.0fs\"\nseed = %llu\nrecord_pages = \"15m\"\n", seed,
                   end_s_, seed);
    switch (below(10)) {
    case 0: case 1: drawChain(); break;
    case 2:         drawPair(); break;
    case 3:         drawOutput(); break;
    case 4:         drawRadio(); break;
    default:        drawSingles(); break;
    }
    drawRounds();
    drawNodeFailures(seed);
}

// ---- worlds -------------------------------------------------------------------------------------

void Plan::drawSingles()
{
    const unsigned units = below(3) == 0 ? 2 : 1;
    for (unsigned i = 1; i <= units; ++i) {
        const unsigned first = below(8);      // packets cost much time: a minority
        const bool gps = first < 3, ptp = first == 3 || (gps && below(6) == 0), cmcc = first == 4;
        Drawn& u = beginUnit(gps || ptp || cmcc, "master", i);
        if (gps) addReceiver(u);
        if (ptp) addPacketTime(u);
        if (cmcc) {
            text_ += "[unit.cmcc]\nwhite_ns = 6.0\n";
            u.cmcc = true;
            addReference(u, "time-input", "HPTSI_REF", 0, 6);
            addSerialLine(u, "time-input", "receiver", "GPS_REF", 3);
        }
        if (!u.hasTime()) {
            addInput(u, below(2) == 0 ? "pps" : "external", 6.0);
            addReference(u, u.inputs.back().c_str(), "TU_REF", 5, 1);
        }
        addOtherReferences(u);
    }
}

/// Master and one or two slaves of one node on CPRI links.
void Plan::drawChain()
{
    const unsigned units = 2 + below(2);
    linkType_ = "idl2";
    for (unsigned i = 1; i <= units; ++i) {
        Drawn& u = beginUnit(true, i == 1 ? "master" : "slave", i);
        text_ += "[unit.bira]\nlink = \"idl2\"\nlock = \"60s\"\n[unit.idpi]\n";
        u.services = {"bira", "idpi"};
        u.follows = i > 1;
        if (i <= 2) addReceiver(u);   // who may be master
        if (i == 1) addReference(u, "next", "IDL2_REF", 1, 1);
        else        addReference(u, "before", "IDL2_REF", i == 2 ? 1 : 0, 1);
    }
    addLink("idl2", units_[0], units_[1]);
    if (units == 3) addLink("idl2", units_[1], units_[2], "from_port = 2\n");
}

/// Master and slave on the BFN link.
void Plan::drawPair()
{
    linkType_ = "idl1";
    for (unsigned i = 1; i <= 2; ++i) {
        Drawn& u = beginUnit(true, i == 1 ? "master" : "slave", i);
        u.follows = i == 2;
        addReceiver(u);
        addReference(u, "other", "IDL1_REF", 1, 1);
    }
    addLink("idl1", units_[0], units_[1]);
}

/// A unit that follows another's GPS output: sentences and a pulse.
void Plan::drawOutput()
{
    // Its serial line is the output's: no receiver.
    Drawn& lead = beginUnit(true, "master", 1, "gps_out = true\n");
    addInput(lead, "pps", 6.0);
    addReference(lead, "pps", "TU_REF", 5, 1);
    linkType_ = "gps_out";
    Drawn& u = beginUnit(true, "master", 2, "start = \"5m\"\n");
    u.follows = true;
    addReference(u, "lead", "GPSOSL_REF", 0, 3);
    addSerialLine(u, "lead", "time-input", "HPTSI_REF", 6);
    addLink("gps_out", units_[0], units_[1], "white_ns = 2.0\n");
}

/// A unit that follows another over a radio link, by the main processor's orders.
void Plan::drawRadio()
{
    linkType_ = "cpri";
    Drawn& lead = beginUnit(true, "master", 1);
    text_ += "[unit.inrsi]\n[unit.sync_group]\nnode = 0x101\npriority = 10\n";
    addReceiver(lead);
    Drawn& u = beginUnit(true, "master", 2);
    text_ += "[unit.inrsi]\n[unit.sync_group]\npriority = 20\n";
    u.socpri = true;
    units_[0].services = units_[1].services = {"inrsi", "ngpduhif"};
    addLink("cpri", units_[0], units_[1], "white_ns = 2.0\n");
}

// ---- a unit -------------------------------------------------------------------------------------

Drawn& Plan::beginUnit(bool time, const char* role, unsigned apn, const std::string& more)
{
    Drawn u;
    u.name = "tu" + std::to_string(apn);
    const bool isLinked = !linkType_.empty();
    text_ +=
        format("\n[[unit]]\nname = \"%s\"\nboard_type = %u\ntime_mode = \"%s\"\nrole = \"%s\"\napn = %u\n",
               u.name.c_str(), isLinked ? 2 : 1 + below(2), time ? "time" : "frequency", role, apn)
        + more;
    // Links are followed by loops, which have no model of the oven's retrace.
    text_ += format("[unit.oscillator]\noffset_ppb = %.3f\nageing_ppb_per_day = %.3f\nwhite_fm = 2e-12\n"
                    "flicker_fm = 3e-12\nretrace_ppb = %.3f\nwarm_up_ppb = -300.0\n",
                    between(-30, 30), between(-0.5, 0.5), isLinked ? 0.1 : between(-5, 5));
    text_ += format("[unit.temperature]\nshape = \"day\"\nbase_volts = 2.0\namplitude_volts = %.3f\n"
                    "cold_volts = 0.4\nwarm_up_time = \"60s\"\n",
                    between(0.0, 0.05));
    units_.push_back(u);
    return units_.back();
}

void Plan::addReceiver(Drawn& u)
{
    u.gps = true;
    const std::string type = oneOf(RECEIVERS);
    // The regulator takes the last one for good to a nanosecond, and locks to no noisier one.
    text_ += format("[unit.gps]\ntype = \"%s\"\nwhite_ns = %.1f\n", type.c_str(),
                    type == "norvane" ? 2.0 : 6.0);
    addReference(u, "gps", "GPS_REF", 0, 3);
    addSerialLine(u, "gps", "time-input", "HPTSI_REF", 6);
}

/// What a unit may have beside its first reference.
void Plan::addOtherReferences(Drawn& u)
{
    if (!u.ptp && below(4) == 0) addPacketFrequency(u);
    if (below(2) == 0) {
        text_ += "[[unit.port]]\nline = 0\nfro_id = 100\n[[unit.port]]\nline = 1\nfro_id = 101\n";
        addInput(u, "pdh1", 30.0);
        addReference(u, "pdh1", "PDH_SDH_REF", 100, 1);
        text_ += "[[unit.input]]\nat = \"pdh2\"\nwhite_ns = 30.0\n";
        u.hasSpareLine = true;
    }
    if (below(3) == 0) {
        text_ += "[[unit.esmc]]\nat = \"eth_b\"\nquality = 2\n";
        addInput(u, "eth_b", 5.0);
        u.esmc.push_back("eth_b");
        u.services.push_back("slowpi");
        addReference(u, "eth-b", "ETHB_REF", 22, 7);
    }
    if (below(5) == 0) {
        text_ +=
            "[unit.ntp]\nfro_id = 7\nup_us = 500.0\ndown_us = 500.0\n"
            "up_noise_us = 5.0\ndown_noise_us = 5.0\n";
        u.ntp = true;
        u.services.push_back("ipsync");
        addReference(u, "ntp", "NTP_REF", 7, 2);
    }
}

/// A master, and another that is silent until the first one fails, or until it is a choice.
void Plan::addPacketTime(Drawn& u)
{
    const bool isJ3 = below(2) == 0;
    const unsigned domain = isJ3 ? 0 : 24;
    u.ptp = true;
    u.log = isJ3 ? -3 : -4;
    u.ptpReference = format("fro_id = 200\ntype = \"ethernet_time\"\ndomain = %u\nprofile = \"%s\"\n", domain,
                            isJ3 ? "IEEE_1588_J3" : "ITU_T_G_8275_1");
    text_ += "[[unit.packet_reference]]\n" + u.ptpReference;
    addReference(u, "ptp", "PACKET_TIME_REF", 200, 4);
    u.path = format("delay_us = %.2f\ngaussian_us = %.3f\n", between(1, 100),
                    isJ3 ? between(0, 5) : between(0, 0.02));
    for (unsigned i = 1; i <= 2; ++i)
        addMaster(u, format("domain = %u\ntwo_step = %s\nlog_announce = %d\n", domain,
                            below(2) == 0 ? "true" : "false", isJ3 ? 1 : -3)
                         + intervals(u.log) + (i == 1 ? "" : SILENT));
}

void Plan::addPacketFrequency(Drawn& u)
{
    u.frequency = true;
    u.path = format("delay_us = %.2f\ngaussian_us = %.3f\n", between(100, 2000), between(0, 20));
    addMaster(u, "domain = 0\nunicast = true\nclass = 80\nlog_announce = 1\n");
    text_ += format("[[unit.packet_reference]]\nfro_id = 201\ntype = \"unicast_frequency\"\ndomain = 0\n"
                    "server = \"192.168.0.%zu\"\n", 100 + masters_);
    addReference(u, "frequency", "PACKET_FREQ_REF", 201, 5);
}

void Plan::addMaster(Drawn& u, const std::string& words)
{
    const std::string name = format("gm%zu", ++masters_);
    net_ += format("[[master]]\nname = \"%s\"\n", name.c_str()) + words
            + format("[[path]]\nfrom = \"%s\"\nto = \"%s\"\n", name.c_str(), u.name.c_str()) + u.path;
    u.masters.push_back(name);
}

void Plan::addInput(Drawn& u, const char* at, double white_ns)
{
    text_ += format("[[unit.input]]\nat = \"%s\"\nwhite_ns = %.1f\n", at, white_ns);
    u.inputs.push_back(at);
}

void Plan::addReference(Drawn& u, const char* name, const char* type, unsigned froId, unsigned froClass)
{
    text_ += format("[[unit.reference]]\nname = \"%s\"\ntype = \"%s\"\nfro_id = %u\nfro_class = %u\n", name,
                    type, froId, froClass);
    u.references.push_back(name);
}

/// Another reference that the unit's serial line could serve; it isn't supervised until it is given the line.
void Plan::addSerialLine(Drawn& u, const char* user, const char* other, const char* type, unsigned froClass)
{
    text_ += format("[[unit.reference]]\nname = \"%s\"\ntype = \"%s\"\nfro_id = 0\nfro_class = %u\n"
                    "supervise = false\n", other, type, froClass);
    u.onLine = user;
    u.offLine = other;
}

void Plan::addLink(const char* type, const Drawn& from, const Drawn& to, const std::string& more)
{
    net_ += format("[[link]]\ntype = \"%s\"\nfrom = \"%s\"\nto = \"%s\"\ndelay_ns = 60.0\n", type,
                   from.name.c_str(), to.name.c_str()) + more;
    links_.push_back(from.name + "-" + to.name);
}

std::string Plan::intervals(int log) const { return format("log_sync = %d\nlog_delay_req = %d\n", log, log); }

std::string drawScenario(double hours, u64 seed) { return Plan(hours, seed).text(); }

}  // namespace app
