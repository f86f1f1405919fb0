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
        for (const Drawn& unit : units_) drawEvents(unit);
    }
    const std::string& text() const { return text_; }

private:
    struct Drawn {
        std::string name;
        bool gps;
        std::vector<std::string> inputs, references;
    };

    u32 below(u32 count) { return static_cast<u32>(random_.bits() % count); }
    double between(double low, double high) { return low + random_.uniform() * (high - low); }
    template <std::size_t N>
    const char* oneOf(const char* const (&words)[N]) { return words[below(N)]; }

    void drawUnit(const std::string& name)
    {
        Drawn u{name, below(2) == 0, {}, {}};
        const u32 board = 1 + below(2);
        text_ += format("\n[[unit]]\nname = \"%s\"\nboard_type = %u\ntime_mode = \"%s\"\n", name.c_str(),
                        board, u.gps ? "time" : "frequency");
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
        } else {
            addInput(u, "pps", 6.0);
            addReference(u, "pps", "TU_REF", 5, 1);
        }
        if (below(2) == 0) {
            text_ += "[[unit.port]]\nline = 0\nfro_id = 100\n";
            addInput(u, "pdh1", 30.0);
            addReference(u, "pdh1", "PDH_SDH_REF", 100, 1);
        }
        units_.push_back(u);
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
        text_ += format("[[event]]\nat = \"%.1fs\"\nunit = \"%s\"\ndo = \"%s\"\n", at_s, u.name.c_str(),
                        what) + with;
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
        switch (below(16)) {
        case 0: case 1: return reference(u, at_s);
        case 2: case 3: return u.gps ? receiver(u, at_s) : reference(u, at_s);
        case 4: return restart(u, at_s);
        case 5: return power(u, at_s);
        case 6: case 7: return mainProcessor(u, at_s);
        case 8: return selection(u, at_s);
        case 9: return boardFault(u, at_s);
        case 10: return memory(u, at_s);
        case 11: return u.gps ? jump(u, at_s) : selection(u, at_s);
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
            return gone + 2;
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
            "kvdholdoverthr", "kvdholdoverthr freq d", "socprireadsfc", "socpritogreg current",
            "kvdsetcallimit 14", "kvdsetfastlock 9", "genwander 0 0", "genpdv x y z", "gpssend nmea $X",
            "kvdprodtest a b", "kvdsetfsyncreg maybe", "kvdconfigtimeacc enable",
            "kvdconfigtimeacc disable", "no_such_command"};
        add(u, at_s, "unit.command", format("line = \"%s\"\n", oneOf(LINES)));
        return 0;
    }

    sim::Random random_;
    double end_s_;
    std::string text_;
    std::vector<Drawn> units_;
};

}  // namespace

std::string drawScenario(double hours, u64 seed) { return Plan(hours, seed).text(); }

}  // namespace app
