// Reading what carries packets: a unit's [unit.packet_port] and [[unit.packet_reference]], a scenario's
// [[master]] and [[path]], and what can happen to them.
#include "sim/scenario/packet_net.h"
#include "sim/scenario/scenario.h"
#include "sim/scenario/unit.h"

#include <toml++/toml.h>

#include <algorithm>

namespace sim {
namespace {

using NetAction = std::function<void(PacketNet&)>;
using Action = std::function<void(Unit&)>;

constexpr double US = 1e-6;
constexpr i64 PCP_LAST = 7, DSCP_LAST = 63;

constexpr std::initializer_list<std::pair<const char*, u8>> KINDS = {
    {"ethernet_time", u8{0}}, {"multicast_ip_time", u8{1}}, {"unicast_ip_time", u8{2}},
    {"unicast_frequency", u8{3}}, {"ntp_frequency", u8{4}}};
constexpr std::initializer_list<std::pair<const char*, u8>> PROFILES = {{"IEEE_1588_J3", u8{0}},
                                                                        {"ITU_T_G_8275_1", u8{1}}};

MacAddress macOf(TableReader& t, const char* key, const MacAddress& fallback)
{
    if (!t.has(key)) return fallback;
    const std::string text = t.text(key);
    unsigned m[6];
    char rest = 0;
    if (std::sscanf(text.c_str(), "%2x:%2x:%2x:%2x:%2x:%2x%c", &m[0], &m[1], &m[2], &m[3], &m[4], &m[5],
                    &rest) != 6)
        t.fail(key, "six octets, as 02:00:00:00:00:01");
    MacAddress mac;
    std::transform(std::begin(m), std::end(m), mac.begin(), [](unsigned o) { return static_cast<u8>(o); });
    return mac;
}

NetAddress addressOf(TableReader& t, const char* key, const NetAddress& fallback)
{
    if (!t.has(key)) return fallback;
    NetAddress address;
    if (!parseNetAddress(t.text(key), address)) t.fail(key, "an address of IP version 4, or of 6 in full");
    return address;
}

i8 logOf(TableReader& t, const char* key, i8 fallback)
{
    return static_cast<i8>(t.integer(key, -10, 13, fallback));
}

u8 octetOf(TableReader& t, const char* key, i64 fallback, i64 last = 255)
{
    return static_cast<u8>(t.integer(key, 0, last, fallback));
}

// ---- a unit's -----------------------------------------------------------------------------------

void readPort(const toml::table& table, const std::string& file, PacketPortConfig& c)
{
    TableReader t(table, file, "packet_port");
    c.mac = macOf(t, "mac", c.mac);
    c.address = addressOf(t, "address", c.address);
    c.stampResolution_ns = t.notNegative("stamp_ns", c.stampResolution_ns);
    c.linkSpeed = static_cast<u32>(t.integer("link_speed", 0, 255, c.linkSpeed));
    c.portWord = static_cast<u32>(t.integer("port_word", 0, 255, c.portWord));
    c.ingress_ns = t.number("ingress_ns", c.ingress_ns);
    c.egress_ns = t.number("egress_ns", c.egress_ns);
    t.finish();
}

MpPacketRef readPacketRef(TableReader& t, const PacketPortConfig& port)
{
    MpPacketRef r;
    r.froId = static_cast<u32>(t.integer("fro_id", 0, 0xFFFFFFFE));
    r.typeOfPktStruct = t.choice<u8>("type", KINDS);
    constexpr u8 UNICAST_FREQUENCY = 3;
    r.froClassNo = r.typeOfPktStruct < UNICAST_FREQUENCY ? 4 : 5;
    r.domain = octetOf(t, "domain", r.domain);
    r.profile = t.choice<u8>("profile", PROFILES, r.profile);
    r.asymmetry_ns = static_cast<i32>(t.integer("asymmetry_ns", INT32_MIN, INT32_MAX, 0));
    r.peerDelay = t.boolean("peer_delay", false);
    r.dscp = octetOf(t, "dscp", 0, DSCP_LAST);
    r.pbit = octetOf(t, "priority", 0, PCP_LAST);
    r.multicastAddress = t.boolean("non_forwardable", false) ? 1 : 0;
    r.family = port.address.family;
    r.own = port.address.octets;
    r.server = addressOf(t, "server", {}).octets;
    r.mac = port.mac;
    r.linkSpeed = port.linkSpeed;
    r.portWord = port.portWord;
    return r;
}

// ---- masters and paths --------------------------------------------------------------------------

void readQuality(TableReader& t, PtpMasterConfig& c)
{
    c.priority1 = octetOf(t, "priority1", c.priority1);
    c.priority2 = octetOf(t, "priority2", c.priority2);
    c.clockClass = octetOf(t, "class", c.clockClass);
    c.accuracy = octetOf(t, "accuracy", c.accuracy);
    c.variance = static_cast<u16>(t.integer("variance", 0, 0xFFFF, c.variance));
    c.steps = static_cast<u16>(t.integer("steps_removed", 0, 0xFFFF, c.steps));
    c.flags = octetOf(t, "flags", c.flags);
    c.utcOffset = static_cast<i16>(t.integer("utc_offset", INT16_MIN, INT16_MAX, c.utcOffset));
}

void readFlow(TableReader& t, PtpMasterConfig& c)
{
    c.logAnnounce = logOf(t, "log_announce", c.logAnnounce);
    c.logSync = logOf(t, "log_sync", c.logSync);
    c.logDelayReq = logOf(t, "log_delay_req", c.logDelayReq);
    c.twoStep = t.boolean("two_step", c.twoStep);
    c.alternateMaster = t.boolean("alternate_master", c.alternateMaster);
    c.version = octetOf(t, "version", c.version, 15);
    c.correction_ns = t.number("correction_ns", c.correction_ns);
    c.announces = t.boolean("announces", c.announces);
    c.syncs = t.boolean("syncs", c.syncs);
    c.responds = t.boolean("responds", c.responds);
    c.fastest = logOf(t, "fastest", c.fastest);
    c.longest_s = static_cast<u32>(t.seconds("longest", c.longest_s));
    c.grants = t.boolean("grants", c.grants);
    c.answers = t.boolean("answers", c.answers);
}

/// Keys that stand in the table itself go for both ways.
void readDelay(TableReader& t, DelayConfig& d)
{
    d.constant_s = t.notNegative("delay_us", d.constant_s / US) * US;
    d.gaussian_s = t.notNegative("gaussian_us", d.gaussian_s / US) * US;
    d.exponential_s = t.notNegative("exponential_us", d.exponential_s / US) * US;
    d.loss = t.number("loss", d.loss);
    d.duplicates = t.number("duplicates", d.duplicates);
    d.reordered = t.number("reordered", d.reordered);
    d.reorderedBy_s = t.notNegative("reordered_by_us", d.reorderedBy_s / US) * US;
    d.residence_s = t.notNegative("residence_us", d.residence_s / US) * US;
    if (t.has("series")) { d.series = EndlessSeries(readColumn(t)); }
    for (const double share : {d.loss, d.duplicates, d.reordered})
        if (share < 0 || share > 1) t.fail("a share lies between 0 and 1");
}

std::string hostOf(TableReader& t, const char* key, const Scenario& scenario)
{
    const std::string name = t.text(key);
    const bool isUnit = std::any_of(scenario.units.begin(), scenario.units.end(),
                                    [&](const UnitSpec& u) { return u.node.name == name; });
    const bool isMaster = std::any_of(scenario.masters.begin(), scenario.masters.end(),
                                      [&](const PtpMasterConfig& m) { return m.name == name; });
    if (!isUnit && !isMaster) t.fail(key, "there is no unit or master '" + name + "'");
    return name;
}

}  // namespace

void readPacketPort(TableReader& t, const std::string& file, NodeConfig& node)
{
    if (const toml::table* const port = t.table("packet_port")) readPort(*port, file, node.packetPort);
    if (const toml::array* const refs = t.tables("packet_reference"))
        for (const toml::node& entry : *refs) {
            TableReader r(*entry.as_table(), file, "packet_reference");
            node.mainProcessor.packetRefs.push_back(readPacketRef(r, node.packetPort));
            r.finish();
        }
}

PtpMasterConfig readMaster(const toml::table& table, const std::string& file, const Scenario& scenario)
{
    TableReader t(table, file, "master");
    PtpMasterConfig c;
    c.name = t.text("name");
    for (const PtpMasterConfig& other : scenario.masters)
        if (other.name == c.name) t.fail("name", "there is another master '" + c.name + "'");
    for (const UnitSpec& unit : scenario.units)
        if (unit.node.name == c.name) t.fail("name", "there is a unit '" + c.name + "'");
    // Each its own identity, in the order in which they stand.
    const u8 number = static_cast<u8>(scenario.masters.size() + 1);
    c.identity.back() = number;
    c.mac.back() = number;
    c.address = addressOf(t, "address", {4, {192, 168, 0, static_cast<u8>(100 + number)}});
    c.unicast = t.boolean("unicast", c.unicast);
    c.nonForwardable = t.boolean("non_forwardable", c.nonForwardable);
    c.domain = octetOf(t, "domain", c.domain);
    c.stampResolution_ns = t.notNegative("stamp_ns", c.stampResolution_ns);
    c.offset_s = t.number("offset_ns", 0.0) * 1e-9;
    c.frequency_ppb = t.number("frequency_ppb", 0.0);
    readQuality(t, c);
    readFlow(t, c);
    t.finish();
    return c;
}

PathSpec readPath(const toml::table& table, const std::string& file, const Scenario& scenario)
{
    TableReader t(table, file, "path");
    PathSpec p;
    p.from = hostOf(t, "from", scenario);
    p.to = hostOf(t, "to", scenario);
    readDelay(t, p.forward);
    p.back = p.forward;
    p.forward.constant_s += t.number("asymmetry_us", 0.0) * US;
    for (const auto& [key, way] : {std::pair{"forward", &p.forward}, std::pair{"back", &p.back}})
        if (const toml::table* const own = t.table(key)) {
            TableReader w(*own, file, key);
            readDelay(w, *way);
            w.finish();
        }
    t.finish();
    return p;
}

void Scenario::setMasterEpoch(i64 tai_s)
{
    for (PtpMasterConfig& master : masters) master.epoch = tai_s;
    for (UnitSpec& unit : units) unit.masterEpoch = tai_s;
}

// ---- events -------------------------------------------------------------------------------------

namespace {

std::string masterOf(TableReader& t, const Scenario& scenario)
{
    if (scenario.masters.empty()) t.fail("do", "there is no master");
    const std::string name = t.text("master", scenario.masters.front().name);
    if (std::none_of(scenario.masters.begin(), scenario.masters.end(),
                     [&](const PtpMasterConfig& m) { return m.name == name; }))
        t.fail("master", "there is no master '" + name + "'");
    return name;
}

const PtpMasterConfig& configOf(const Scenario& scenario, const std::string& name)
{
    return *std::find_if(scenario.masters.begin(), scenario.masters.end(),
                         [&](const PtpMasterConfig& m) { return m.name == name; });
}

/// Only what the event names changes: each key is compared with what the scenario began with.
NetAction masterSet(TableReader& t, const Scenario& scenario)
{
    const std::string name = masterOf(t, scenario);
    using Change = std::function<void(PtpMasterConfig&)>;
    std::vector<Change> changes;
    const PtpMasterConfig& old = configOf(scenario, name);
    const auto take = [&](const char* key, auto member, auto read) {
        if (!t.has(key)) return;
        changes.push_back([member, value = read(key)](PtpMasterConfig& c) { c.*member = value; });
    };
    const auto octet = [&t](const char* key) { return octetOf(t, key, 0); };
    const auto word = [&t](const char* key) { return static_cast<u16>(t.integer(key, 0, 0xFFFF)); };
    const auto log = [&t](const char* key) { return logOf(t, key, 0); };
    const auto flag = [&t](const char* key) { return t.boolean(key, true); };
    take("priority1", &PtpMasterConfig::priority1, octet);
    take("priority2", &PtpMasterConfig::priority2, octet);
    take("class", &PtpMasterConfig::clockClass, octet);
    take("accuracy", &PtpMasterConfig::accuracy, octet);
    take("variance", &PtpMasterConfig::variance, word);
    take("steps_removed", &PtpMasterConfig::steps, word);
    take("flags", &PtpMasterConfig::flags, octet);
    take("log_announce", &PtpMasterConfig::logAnnounce, log);
    take("log_sync", &PtpMasterConfig::logSync, log);
    take("log_delay_req", &PtpMasterConfig::logDelayReq, log);
    take("two_step", &PtpMasterConfig::twoStep, flag);
    take("alternate_master", &PtpMasterConfig::alternateMaster, flag);
    take("version", &PtpMasterConfig::version, octet);
    take("announces", &PtpMasterConfig::announces, flag);
    take("syncs", &PtpMasterConfig::syncs, flag);
    take("responds", &PtpMasterConfig::responds, flag);
    take("fastest", &PtpMasterConfig::fastest, log);
    take("grants", &PtpMasterConfig::grants, flag);
    take("answers", &PtpMasterConfig::answers, flag);
    take("correction_ns", &PtpMasterConfig::correction_ns, [&t](const char* key) { return t.number(key); });
    if (changes.empty()) t.fail("do", "nothing of '" + old.name + "' is named that changes");
    return [name, changes](PacketNet& net) {
        for (const Change& change : changes) change(net.master(name).config);
    };
}

NetAction pathChange(TableReader& t, const Scenario& scenario)
{
    const std::string from = hostOf(t, "from", scenario), to = hostOf(t, "to", scenario);
    const bool bothWays = t.boolean("both_ways", false);
    // A route that changes keeps nothing of the old one that isn't named again.
    DelayConfig d;
    readDelay(t, d);
    return [from, to, bothWays, d](PacketNet& net) {
        const auto replace = [&d](DelayConfig& c) { c = d; };
        net.network().change(from, to, replace);
        if (bothWays) net.network().change(to, from, replace);
    };
}

NetAction pathUp(TableReader& t, const Scenario& scenario, bool up)
{
    const std::string from = hostOf(t, "from", scenario), to = hostOf(t, "to", scenario);
    const bool bothWays = t.boolean("both_ways", true);
    return [from, to, bothWays, up](PacketNet& net) {
        net.network().setUp(from, to, up);
        if (bothWays) net.network().setUp(to, from, up);
    };
}

/// The thousand delays, s, that the unit's generator takes: from 0 to nearly `largest_s`, each once, in an
/// order without a trend.
std::string evenDelays(double largest_s)
{
    constexpr u32 COUNT = 1000, STRIDE = 617;            // prime to each other
    std::string lines;
    for (u32 i = 0; i < COUNT; ++i) {
        char line[32];
        std::snprintf(line, sizeof line, "%.9f\n", largest_s * (i * STRIDE % COUNT) / COUNT);
        lines += line;
    }
    return lines;
}

}  // namespace

std::function<void(PacketNet&)> readNetEvent(const EventWord& word, TableReader& t, const Scenario& scenario)
{
    if (word == "master.set") return masterSet(t, scenario);
    if (word == "master.step")
        return [name = masterOf(t, scenario), s = t.number("ns") * 1e-9](PacketNet& net) {
            net.master(name).stepTime(s);
        };
    if (word == "master.frequency")
        return [name = masterOf(t, scenario), ppb = t.number("ppb")](PacketNet& net) {
            net.master(name).setFrequency(ppb);
        };
    if (word == "master.cancel")
        return [name = masterOf(t, scenario)](PacketNet& net) { net.master(name).cancelContracts(); };
    if (word == "path.change") return pathChange(t, scenario);
    if (word == "path.down") return pathUp(t, scenario, false);
    if (word == "path.up") return pathUp(t, scenario, true);
    return {};
}

std::function<void(Unit&)> readPacketEvent(const EventWord& word, TableReader& t, const UnitSpec& unit)
{
    const PacketPortConfig port = unit.node.packetPort;
    if (word == "mp.create_packet_reference")
        return [r = readPacketRef(t, port)](Unit& u) { u.node().mainProcessor().createPacketRef(r); };
    if (word == "mp.set_packet_reference")
        return [r = readPacketRef(t, port)](Unit& u) { u.node().mainProcessor().setPacketRef(r); };
    if (word == "mp.delete_packet_reference" || word == "mp.packet_reference_attributes") {
        const u32 froId = static_cast<u32>(t.integer("fro_id", 0, 0xFFFFFFFE));
        const u32 froClass = static_cast<u32>(t.integer("fro_class", 4, 5, 4));
        const bool isDelete = word == "mp.delete_packet_reference";
        return [froId, froClass, isDelete](Unit& u) {
            MainProcessor& mp = u.node().mainProcessor();
            if (isDelete) mp.deletePacketRef(froId, froClass);
            else mp.askPacketRefAttributes(froId, froClass);
        };
    }
    if (word == "node.packet_service") {
        using Get = Server& (*)(Node&);
        const Get get = t.choice<Get>("service",
                                      {{"cfi", [](Node& n) -> Server& { return n.cfi(); }},
                                       {"driver", [](Node& n) -> Server& { return n.pktsyncDrv(); }},
                                       {"socket", [](Node& n) -> Server& { return n.ipsocki(); }}});
        const bool on = t.boolean("on", true);
        return [get, on](Unit& u) {
            if (on) get(u.node()).start();
            else get(u.node()).die();
        };
    }
    if (word == "node.pdv_file") {
        const char* const file =
            t.choice<const char*>("direction", {{"uplink", "/d/genPdvUplink.txt"},
                                                {"downlink", "/d/genPdvDownlink.txt"}});
        return [file, content = evenDelays(t.number("us") * US)](Unit& u) {
            u.node().volumes().write(file, content);
        };
    }
    if (word == "node.packet_stamps")
        return [lost = t.number("lost", 0.0), late_ms = t.number("late_ms", 0.05)](Unit& u) {
            u.node().pktsyncDrv().lostStamps = lost;
            u.node().pktsyncDrv().stampDelay_ms = late_ms;
        };
    return {};
}

}  // namespace sim
