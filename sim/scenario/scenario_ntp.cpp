// Reading [unit.ntp], what a node has of NTP, and what can happen to it.
#include "sim/scenario/scenario.h"
#include "sim/scenario/unit.h"

#include <toml++/toml.h>

namespace sim {
namespace {

using Action = std::function<void(Unit&)>;

constexpr double US = 1e-6;
constexpr double LONGEST_us = 1e6;

constexpr std::initializer_list<std::pair<const char*, DelayNoise>> NOISES = {
    {"gaussian", DelayNoise::Gaussian}, {"exponential", DelayNoise::Exponential}};

double delay_s(TableReader& t, const char* key, double fallback_s)
{
    const double us = t.number(key, fallback_s / US);
    if (!(us >= 0.0 && us <= LONGEST_us)) t.fail(key, "0 to 1000000");
    return us * US;
}

/// Delays and noise of both ways; what isn't said stays.
void readNetwork(TableReader& t, NtpConfig& c)
{
    c.up.delay_s = delay_s(t, "up_us", c.up.delay_s);
    c.down.delay_s = delay_s(t, "down_us", c.down.delay_s);
    c.noise = t.choice("noise", NOISES, std::optional(c.noise));
    c.up.noise_s = delay_s(t, "up_noise_us", c.up.noise_s);
    c.down.noise_s = delay_s(t, "down_noise_us", c.down.noise_s);
}

Answer answerOf(TableReader& t)
{
    return t.choice<Answer>("answer", {{"accept", Answer::Accept},
                                       {"suspend", Answer::Suspend},
                                       {"reject", Answer::Reject},
                                       {"silent", Answer::Silent}});
}

Action ntpAnswers(bool on)
{
    return [on](Unit& u) { u.node().ipsync().config.answers = on; };
}

/// Another network; what isn't said is as the scenario began.
Action ntpNetwork(TableReader& t, const UnitSpec& unit)
{
    NtpConfig network = unit.node.ntp;
    readNetwork(t, network);
    return [network](Unit& u) {
        NtpConfig& c = u.node().ipsync().config;
        c.up = network.up;
        c.down = network.down;
        c.noise = network.noise;
    };
}

}  // namespace

void readNtp(TableReader& unit, const std::string& file, NtpConfig& c)
{
    const toml::table* const table = unit.table("ntp");
    if (table == nullptr) return;
    TableReader t(*table, file, "ntp");
    c.present = true;
    c.froId = static_cast<u32>(t.integer("fro_id", 0, 0xFFFFFFFE));
    c.answers = t.boolean("answers", true);
    c.interval_ms = static_cast<i64>(t.seconds("interval", 1.0) * 1e3);
    if (c.interval_ms < 10) t.fail("interval", "10 ms at least");
    c.followsRate = t.boolean("follows_rate", true);
    c.serverOffset_s = t.number("server_offset_us", 0.0) * US;
    c.serverFrequency_ppb = t.number("server_ppb", 0.0);
    c.nodeOffset_s = t.number("node_offset_us", 0.0) * US;
    readNetwork(t, c);
    t.finish();
}

Action readNtpEvent(const EventWord& word, TableReader& t, const UnitSpec& unit)
{
    if (!word.starts_with("ntp.") && !word.starts_with("ipsync.")) return {};
    if (!unit.node.ntp.present) t.fail("do", "the unit has no IP sync service");
    if (word == "ipsync.start") return [](Unit& u) { u.node().ipsync().start(); };
    if (word == "ipsync.die") return [](Unit& u) { u.node().ipsync().die(); };
    if (word == "ipsync.answer") return [answer = answerOf(t)](Unit& u) { u.node().ipsync().serve(answer); };
    if (word == "ntp.on") return ntpAnswers(true);
    if (word == "ntp.off") return ntpAnswers(false);
    if (word == "ntp.network") return ntpNetwork(t, unit);
    if (word == "ntp.server_step")
        return [s = t.number("us") * US](Unit& u) { u.node().ipsync().stepServer(s); };
    if (word == "ntp.server_frequency")
        return [ppb = t.number("ppb")](Unit& u) { u.node().ipsync().setServerFrequency(ppb); };
    return {};
}

}  // namespace sim
