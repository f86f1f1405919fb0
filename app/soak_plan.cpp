// The scenario that a seed draws: one or two units, and what happens to them. Each disturbance is taken
// back after a while, so that the run goes on from a unit that can lock.
#include "app/soak.h"
#include "sim/clock/random.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

namespace app {
namespace {

std::string format(const char* text, ...) __attribute__((format(printf, 1, 2)));
std::string format(const char* text, ...)
{
    char line[512];
    va_list arguments;
    va_start(arguments, text);
    std::vsnprintf(line, sizeof line, text, arguments);
    va_end(arguments);
    return line;
}

class Plan {
public:
    Plan(double hours, u64 seed) : random_(seed, "soak"), end_s_(hours * 3600.0)
    {
        text_ = format("name = \"soak-%llu\"\nduration = \"%.0fs\"\nseed = %llu\n",
                       static_cast<unsigned long long>(seed), end_s_,
                       static_cast<unsigned long long>(seed));
        const u32 units = below(3) == 0 ? 2 : 1;
        for (u32 i = 1; i <= units; ++i) drawUnit("tu" + std::to_string(i));
        text_ += "\n" + net_;
        for (const Drawn& unit : units_) drawEvents(unit);
    }
    const std::string& text() const { return text_; }

private:
    struct Drawn {
        std::string name;
        bool gps = false, ptp = false, frequency = false;   // ptp: packet time, frequency: packet frequency
        std::vector<std::string> inputs, references, masters;
        std::string ptpReference = "", path = "";   // words of its own that events put back
        int log = -4;                               // interval of its masters, log2 of s
        bool hasTime() const { return gps || ptp; }
    };

    u32 below(u32 count) { return static_cast<u32>(random_.bits() % count); }
    double between(double low, double high) { return low + random_.uniform() * (high - low); }
    template <std::size_t N>
    const char* oneOf(const char* const (&words)[N]) { return words[below(N)]; }

    void drawUnit(const std::string& name)
    {
        Drawn u;
        u.name = name;
        const u32 first = below(8);      // packets cost much time: a minority
        u.gps = first < 3;
        u.ptp = first == 3 || first == 4 || (u.gps && below(4) == 0);
        u.frequency = first > 4 && below(4) == 0;
        text_ += format("\n[[unit]]\nname = \"%s\"\nboard_type = %u\ntime_mode = \"%s\"\n", name.c_str(),
                        1 + below(2), u.hasTime() ? "time" : "frequency");
        text_ += format("[unit.oscillator]\noffset_ppb = %.3f\nageing_ppb_per_day = %.3f\n"
                        "white_fm = 2e-12\nflicker_fm = 3e-12\nretrace_ppb = %.3f\nwarm_up_ppb = -300.0\n",
                        between(-30, 30), between(-0.5, 0.5), between(-5, 5));
        text_ += format("[unit.temperature]\nshape = \"day\"\nbase_volts = 2.0\namplitude_volts = %.3f\n"
                        "cold_volts = 0.4\nwarm_up_time = \"60s\"\n",
                        between(0.0, 0.05));
        if (u.gps) {
            constexpr const char* TYPES[] = {"gps01", "gps02", "gps03", "combined", "norvane"};
            text_ += format("[unit.gps]\ntype = \"%s\"\nwhite_ns = 6.0\n", oneOf(TYPES));
            addReference(u, "gps", "GPS_REF", 0, 3);
        }
        if (u.ptp) addPacketTime(u);
        if (!u.hasTime()) {
            addInput(u, "pps", 6.0);
            addReference(u, "pps", "TU_REF", 5, 1);
        }
        if (u.frequency) addPacketFrequency(u);
        if (below(2) == 0) {
            text_ += "[[unit.port]]\nline = 0\nfro_id = 100\n";
            addInput(u, "pdh1", 30.0);
            addReference(u, "pdh1", "PDH_SDH_REF", 100, 1);
        }
        units_.push_back(u);
    }

    /// A master, and another that is silent until the first one fails, or until it is a choice.
    void addPacketTime(Drawn& u)
    {
        const bool isJ3 = below(2) == 0;
        const u32 domain = isJ3 ? 0 : 24;
        u.log = isJ3 ? -3 : -4;
        u.ptpReference = format("fro_id = 200\ntype = \"ethernet_time\"\ndomain = %u\nprofile = \"%s\"\n",
                                domain, isJ3 ? "IEEE_1588_J3" : "ITU_T_G_8275_1");
        text_ += "[[unit.packet_reference]]\n" + u.ptpReference;
        addReference(u, "ptp", "PACKET_TIME_REF", 200, 4);
        u.path = format("delay_us = %.2f\ngaussian_us = %.3f\n", between(1, 100),
                        isJ3 ? between(0, 5) : between(0, 0.02));
        for (u32 i = 1; i <= 2; ++i)
            addMaster(u, format("domain = %u\ntwo_step = %s\nlog_announce = %d\n", domain,
                                below(2) == 0 ? "true" : "false", isJ3 ? 1 : -3) +
                             intervals(u.log) + (i == 1 ? "" : SILENT));
    }

    void addPacketFrequency(Drawn& u)
    {
        u.path = format("delay_us = %.2f\ngaussian_us = %.3f\n", between(100, 2000), between(0, 20));
        addMaster(u, "domain = 0\nunicast = true\nclass = 80\nlog_announce = 1\n");
        text_ += format("[[unit.packet_reference]]\nfro_id = 201\ntype = \"unicast_frequency\"\ndomain = 0\n"
                        "server = \"192.168.0.%zu\"\n", 100 + masters_);
        addReference(u, "frequency", "PACKET_FREQ_REF", 201, 5);
    }

    void addMaster(Drawn& u, const std::string& words)
    {
        const std::string name = format("gm%zu", ++masters_);
        net_ += format("[[master]]\nname = \"%s\"\n", name.c_str()) + words +
                format("[[path]]\nfrom = \"%s\"\nto = \"%s\"\n", name.c_str(), u.name.c_str()) + u.path;
        u.masters.push_back(name);
    }

    void addInput(Drawn& u, const char* at, double white_ns)
    {
        text_ += format("[[unit.input]]\nat = \"%s\"\nwhite_ns = %.1f\n", at, white_ns);
        u.inputs.push_back(at);
    }
    void addReference(Drawn& u, const char* name, const char* type, u32 froId, u32 froClass)
    {
        text_ += format("[[unit.reference]]\nname = \"%s\"\ntype = \"%s\"\nfro_id = %u\nfro_class = %u\n",
                        name, type, froId, froClass);
        u.references.push_back(name);
    }

    void add(const Drawn& u, double at_s, const char* what, const std::string& with = "")
    {
        if (at_s >= end_s_) return;
        const std::string word = what;
        const bool isNet = word.starts_with("master.") || word.starts_with("path.");
        text_ += format("[[event]]\nat = \"%.1fs\"\ndo = \"%s\"\n", at_s, what) +
                 (isNet ? "" : format("unit = \"%s\"\n", u.name.c_str())) + with;
    }

    void drawEvents(const Drawn& u)
    {
        constexpr double QUIET_FIRST_s = 1800.0;
        double at_s = QUIET_FIRST_s;
        while (at_s < end_s_) {
            at_s += drawEvent(u, at_s);
            at_s += between(30.0, 1500.0);
        }
    }

    /// One disturbance; how long it lasts, s.
    double drawEvent(const Drawn& u, double at_s)
    {
        if (!u.masters.empty() && below(4) == 0) return packets(u, at_s);
        switch (below(16)) {
        case 0: case 1: return reference(u, at_s);
        case 2: case 3: return u.gps ? receiver(u, at_s) : reference(u, at_s);
        case 4: return restart(u, at_s);
        case 5: return power(u, at_s);
        case 6: case 7: return mainProcessor(u, at_s);
        case 8: return selection(u, at_s);
        case 9: return boardFault(u, at_s);
        case 10: return memory(u, at_s);
        case 11: return u.hasTime() ? jump(u, at_s) : selection(u, at_s);
        default: return command(u, at_s);
        }
    }

    double reference(const Drawn& u, double at_s)
    {
        if (u.inputs.empty()) return 0;
        const std::string& input = u.inputs[below(static_cast<u32>(u.inputs.size()))];
        const std::string at = format("input = \"%s\"\n", input.c_str());
        const double lasts = between(5.0, 7200.0);
        switch (below(4)) {
        case 0:
            add(u, at_s, "input.off", at);
            add(u, at_s + lasts, "input.on", at);
            return lasts;
        case 1: add(u, at_s, "input.phase_step", at + format("ns = %.1f\n", between(-2000, 2000))); return 0;
        case 2:
            add(u, at_s, "input.frequency", at + format("ppb = %.3f\n", between(-4, 4)));
            add(u, at_s + lasts, "input.frequency", at + "ppb = 0.0\n");
            return lasts;
        default: add(u, at_s, "input.bad_pulse", at + format("ns = %.1f\n", between(-5000, 5000))); return 0;
        }
    }

    double receiver(const Drawn& u, double at_s)
    {
        // Not a stuck 1PPS: the unit can't tell it from a quiet one until its estimate has aged.
        constexpr const char* FAULTS[] = {"antenna_open", "antenna_short", "jamming", "status_nok",
                                          "no_gpgsv", "no_pps", "silence", "garbled"};
        const double lasts = between(5.0, 7200.0);
        if (below(5) == 0) {
            add(u, at_s, "gps.power", "on = false\n");
            add(u, at_s + lasts, "gps.power", "on = true\n");
            return lasts;
        }
        const std::string fault = format("fault = \"%s\"\n", oneOf(FAULTS));
        add(u, at_s, "gps.fault", fault);
        add(u, at_s + lasts, "gps.fault", fault + "on = false\n");
        return lasts;
    }

    // ---- packet references ----------------------------------------------------------------------

    static constexpr const char* SILENT = "announces = false\nsyncs = false\nresponds = false\n";
    static constexpr const char* SPEAKING = "announces = true\nsyncs = true\nresponds = true\n";

    double packets(const Drawn& u, double at_s)
    {
        const double lasts = between(5.0, 7200.0);
        switch (below(u.ptp ? 8 : 5)) {
        case 0: case 1: masterFails(u, at_s, lasts); return lasts;
        case 2: route(u, at_s, lasts); return lasts;
        case 3: packetServices(u, at_s, lasts); return lasts;
        case 4: routeDown(u, at_s, lasts); return lasts;
        case 5: masterErrs(u, at_s, lasts); return lasts;
        case 6: add(u, at_s, "mp.set_packet_reference",
                    u.ptpReference + format("asymmetry_ns = %d\n", static_cast<int>(between(-90, 90))));
                return 0;
        default:
            add(u, at_s, "mp.delete_packet_reference", "fro_id = 200\n");
            add(u, at_s + lasts, "mp.create_packet_reference", u.ptpReference);
            return lasts;
        }
    }

    static std::string masterOf(const Drawn& u) { return "master = \"" + u.masters.front() + "\"\n"; }

    /// The other one speaks for a while, as the better or the worse.
    void standby(const Drawn& u, double at_s, double lasts)
    {
        const std::string master = "master = \"" + u.masters.back() + "\"\n";
        add(u, at_s, "master.set", master + SPEAKING + format("priority2 = %u\n", 127 + 2 * below(2)));
        add(u, at_s + lasts, "master.set", master + SILENT);
    }

    std::string intervals(int log) { return format("log_sync = %d\nlog_delay_req = %d\n", log, log); }

    /// It falls silent in part or degrades, and is well again.
    void masterFails(const Drawn& u, double at_s, double lasts)
    {
        if (u.ptp && below(2) == 0) standby(u, at_s, lasts);
        constexpr const char* FAULTS[][2] = {
            {"announces = false\n", "announces = true\n"},
            {"syncs = false\n", "syncs = true\n"},
            {"responds = false\n", "responds = true\n"},
            {SILENT, SPEAKING},
            {"answers = false\ngrants = false\n", "answers = true\ngrants = true\n"},
            {"steps_removed = 300\n", "steps_removed = 0\n"},
            {"alternate_master = true\n", "alternate_master = false\n"}};
        const std::string master = masterOf(u);
        if (below(4) == 0) {
            add(u, at_s, "master.set", master + "class = 187\naccuracy = 0xFE\nflags = 0x08\n");
            add(u, at_s + lasts, "master.set",
                master + format("class = %u\naccuracy = 0x21\nflags = 0x3C\n", u.frequency ? 80 : 6));
            return;
        }
        if (below(6) == 0) {
            add(u, at_s, "master.set", master + intervals(below(2) == 0 ? -7 : 2));
            add(u, at_s + lasts / 10, "master.set", master + intervals(u.log));
            return;
        }
        const auto& fault = FAULTS[below(static_cast<u32>(std::size(FAULTS)))];
        add(u, at_s, "master.set", master + fault[0]);
        add(u, at_s + lasts, "master.set", master + fault[1]);
    }

    /// Its time steps, or runs off until a step puts it right.
    void masterErrs(const Drawn& u, double at_s, double lasts)
    {
        const std::string master = masterOf(u);
        if (below(2) == 0) {
            const double ns = between(-1000, 1000);
            add(u, at_s, "master.step", master + format("ns = %.1f\n", ns));
            add(u, at_s + lasts, "master.step", master + format("ns = %.1f\n", -ns));
            return;
        }
        const double ppb = between(-2, 2);
        add(u, at_s, "master.frequency", master + format("ppb = %.3f\n", ppb));
        add(u, at_s + lasts, "master.frequency", master + "ppb = 0.0\n");
        add(u, at_s + lasts, "master.step", master + format("ns = %.3f\n", -ppb * lasts));
    }

    /// A load on the way to all masters, with loss; or another route.
    void route(const Drawn& u, double at_s, double lasts)
    {
        const double us = between(0.1, 200), share = between(0, 0.3);
        const bool bothWays = below(2) == 0;
        for (const std::string& master : u.masters) {
            const std::string way = format("from = \"%s\"\nto = \"%s\"\nboth_ways = ", master.c_str(),
                                           u.name.c_str());
            add(u, at_s, "path.change",
                way + (bothWays ? "true\n" : "false\n") + u.path +
                    format("exponential_us = %.3f\nloss = %.3f\nduplicates = %.3f\nreordered = %.3f\n"
                           "reordered_by_us = 300.0\nresidence_us = %.2f\n",
                           us, share, share / 3, share / 3, us / 10));
            add(u, at_s + lasts, "path.change", way + "true\n" + u.path);
        }
    }

    void routeDown(const Drawn& u, double at_s, double lasts)
    {
        const bool isAll = below(2) == 0;
        for (const std::string& master : u.masters) {
            const std::string way =
                format("from = \"%s\"\nto = \"%s\"\n", master.c_str(), u.name.c_str());
            add(u, at_s, "path.down", way);
            add(u, at_s + lasts, "path.up", way);
            if (!isAll) return;
        }
    }

    void packetServices(const Drawn& u, double at_s, double lasts)
    {
        if (below(3) == 0) {
            add(u, at_s, "node.packet_stamps", format("lost = %.2f\nlate_ms = %.1f\n", between(0, 1), between(0, 400)));
            add(u, at_s + lasts, "node.packet_stamps");
            return;
        }
        constexpr const char* SERVICES[] = {"cfi", "driver", "socket"};
        const std::string service = format("service = \"%s\"\n", oneOf(SERVICES));
        add(u, at_s, "node.packet_service", service + "on = false\n");
        add(u, at_s + lasts, "node.packet_service", service);
    }

    double restart(const Drawn& u, double at_s)
    {
        const double gap = below(2) == 0 ? 0.0 : between(1.0, 300.0);
        add(u, at_s, "unit.restart", format("type = %u\ngap = \"%.0fs\"\n", below(6), gap));
        return gap;
    }
    double power(const Drawn& u, double at_s)
    {
        const double lasts = between(1.0, 3600.0);
        add(u, at_s, "unit.power_off");
        add(u, at_s + lasts, "unit.power_on");
        return lasts;
    }

    double mainProcessor(const Drawn& u, double at_s)
    {
        const double gone = between(0.5, 600.0);
        switch (below(4)) {
        case 0: add(u, at_s, "mp.restart", format("gone = \"%.1fs\"\n", gone)); return gone;
        case 1:
            add(u, at_s, "mp.die");
            add(u, at_s + gone, "mp.start");
            return gone;
        case 2: {
            constexpr const char* ANSWERS[] = {"suspend", "reject", "busy", "silent"};
            add(u, at_s, "mp.answer", format("answer = \"%s\"\n", oneOf(ANSWERS)));
            add(u, at_s + 1, "mp.restart", "gone = \"1s\"\n");
            add(u, at_s + gone, "mp.answer", "answer = \"accept\"\n");
            add(u, at_s + gone + 1, "mp.restart", "gone = \"1s\"\n");
            add(u, at_s + gone + 5, "unit.restart", "type = 4\n");   // a unit that was refused lost timers
            return gone + 5;
        }
        default: add(u, at_s, "mp.gps_attributes"); return 0;
        }
    }

    double selection(const Drawn& u, double at_s)
    {
        const double lasts = between(1.0, 3600.0);
        const std::string name = format("reference = \"%s\"\n",
                                        u.references[below(static_cast<u32>(u.references.size()))].c_str());
        switch (below(3)) {
        case 0: add(u, at_s, "mp.select_none"); break;
        case 1: add(u, at_s, "mp.select", name); break;
        default:
            add(u, at_s, "mp.supervise", name + "on = false\n");
            add(u, at_s + lasts, "mp.supervise", name + "on = true\n");
            break;
        }
        add(u, at_s + lasts + 1, "mp.selects_itself");
        return lasts + 1;
    }

    double boardFault(const Drawn& u, double at_s)
    {
        constexpr const char* FAULTS[] = {"no_feedback", "synth_c_unlocked", "synth_b_unlocked",
                                          "temperature_invalid", "latch_invalid"};
        const std::string fault = format("fault = \"%s\"\n", oneOf(FAULTS));
        const double lasts = between(1.0, 600.0);
        add(u, at_s, "board.fault", fault);
        add(u, at_s + lasts, "board.fault", fault + "on = false\n");
        add(u, at_s + lasts + 60, "unit.restart", "type = 4\n");     // out of the halted state
        return lasts + 60;
    }

    double memory(const Drawn& u, double at_s)
    {
        const double lasts = between(1.0, 600.0);
        switch (below(3)) {
        case 0:
            add(u, at_s, "node.msi_die");
            add(u, at_s + lasts, "node.msi");
            return lasts;
        case 1:
            add(u, at_s, "node.msi", format("delay_ms = %u\n", below(5000)));
            add(u, at_s + lasts, "node.msi");
            return lasts;
        default:
            add(u, at_s, "node.msi_flip", format("region = \"TuRegHistData\"\nbyte = %u\n", below(456)));
            return 0;
        }
    }

    double jump(const Drawn& u, double at_s)
    {
        add(u, at_s, "mp.jump");
        return 10;
    }

    double command(const Drawn& u, double at_s)
    {
        constexpr const char* LINES[] = {
            "kvdinfo all", "kvdinfo tumem", "kvdinfo nothing", "kvdhist all", "gpsstatus 50",
            "gpscapture start 20", "gpscapture display", "kvdreadhist", "kvdwritehist msi",
            "kvdwritehist flash", "kvdgpstrace", "gpsskyview start", "gpsskyview stop", "kvdpdvthr",
            "kvdpdvthr packettime 200000", "kvdpdvthr packettime d",
            "kvdpdvthr packetfreq 0", "kvdtupktsync", "genpdv ptp_t uplink enable", "genpdv ptp_t uplink disable",
            "kvdholdoverthr", "kvdholdoverthr freq d", "socprireadsfc", "socpritogreg current",
            "kvdsetcallimit 14", "kvdsetfastlock 9", "genwander 0 0", "genpdv x y z", "gpssend nmea $X",
            "kvdprodtest a b", "kvdsetfsyncreg maybe", "kvdconfigtimeacc enable",
            "kvdconfigtimeacc disable", "no_such_command"};
        add(u, at_s, "unit.command", format("line = \"%s\"\n", oneOf(LINES)));
        return 0;
    }

    sim::Random random_;
    double end_s_;
    std::string text_, net_;
    std::size_t masters_ = 0;
    std::vector<Drawn> units_;
};

}  // namespace

std::string drawScenario(double hours, u64 seed) { return Plan(hours, seed).text(); }

}  // namespace app
