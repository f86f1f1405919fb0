// scenario.h - A scenario: units, their clocks and references, what happens when, what must hold.
#pragma once
#include "sim/net/ptp_master.h"
#include "sim/node/node_config.h"
#include "sim/refs/esmc_peer.h"
#include "sim/refs/cmcc_source.h"
#include "sim/refs/gps_receiver_config.h"
#include "sim/refs/line_source.h"
#include "sim/scenario/table_reader.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace sim {

class Unit;
class Link;
class PacketNet;

/// A unit and all that is connected to its board.
struct UnitSpec {
    NodeConfig node;
    std::map<ReferenceInput, LineConfig> inputs;
    std::optional<GpsReceiverConfig> gps;
    std::vector<EsmcPeerConfig> esmc;    // far ends of the Ethernet ports
    std::optional<CmccSourceConfig> cmcc;
    double start_s = 0;              // when its power comes
    i64 masterEpoch = PtpMasterConfig{}.epoch;   // true TAI at the beginning, as PTP masters know it
};

enum class LinkKind : u8 {
    GpsOut,       // the output of one unit at the receiver's input of the other
    Hptsi,        // the same with binary frames, at its time input
    Idl1,         // words between the boards
    Idl2,         // delays that the port servers measure, carried by the main processors
    Inci,         // the path between two units' processes; nobody leads
    Cpri,         // a radio link: each end's measurement server measures the other unit's clock
    Sdu,          // what the main processor hands on between a node's two units about radio links
};
enum class LinkFault : u8 {
    Garbled,      // share of bytes, or of words, with a bit turned over
    Parity,       // share of words with a parity error
    NoPulse,      // the text alone arrives
    NoText,       // the pulse alone arrives
    Late,         // ns by which pulses come later, or the leader's first words
    UnstableFrom, // delay unstable at the end `from`
    UnstableTo,   // at the end `to`
    Jitter,       // ns, deviation of each passage
    Noise,        // damaged words between two good ones
};
constexpr u32 LINK_FAULTS = 9;

/// `to` follows `from`, until a turn.
struct LinkSpec {
    LinkKind kind = LinkKind::GpsOut;
    std::string name, from, to;
    double delay_s = 0;              // each way
    PhaseNoiseLevels noise = {};     // of each passage
    bool up = true;
    u16 fromPort = 1, toPort = 1;    // of the port or measurement servers, 1 to 6
};

/// Between two hosts of the packet network, masters or units.
struct PathSpec {
    std::string from, to;
    DelayConfig forward, back;
};

/// What happens, "gps.fault". A reader holds it against each word that it knows; `asked`, where given, gets
/// them: so the list of all that can happen is the readers' own.
class EventWord {
public:
    explicit EventWord(std::string text, std::vector<std::string>* asked = nullptr)
        : text_(std::move(text)), asked_(asked)
    {
    }
    bool operator==(const char* word) const
    {
        if (asked_ != nullptr) asked_->emplace_back(word);
        return text_ == word;
    }
    bool starts_with(const char* prefix) const { return text_.starts_with(prefix); }

private:
    std::string text_;
    std::vector<std::string>* asked_;
};

/// One thing that happens. Checked when the scenario is read, so that it can't fail in the run.
struct EventSpec {
    double at_s = 0;
    std::string unit;
    std::string what;                // as the scenario says it
    std::function<void(Unit&)> action;
    std::string link;                // of a link's event, which has no unit
    std::function<void(Link&)> linkAction;
    std::function<void(PacketNet&)> netAction;   // of the packet network's event
};

struct Scenario {
    std::string file;
    std::string name;
    std::string title;
    double duration_s = 0;
    u64 seed = 1;
    double interval_s = 1.0;         // of the recorded series
    double pagesEvery_s = 0;         // what the commands print is looked at that often, 0: at the end alone
    std::vector<UnitSpec> units;
    std::vector<LinkSpec> links;
    std::vector<PtpMasterConfig> masters;
    std::vector<PathSpec> paths;
    std::vector<EventSpec> events;   // in order of time
    /// As it was read. What must hold, its [[check]] tables, is for the one who judges the run.
    std::shared_ptr<const toml::table> document;

    /// Lets PTP masters, and whoever follows one, begin at this TAI, s since 1970.
    void setMasterEpoch(i64 tai_s);
};

/// Reads a scenario and makes sure that it can be run. Throws ScenarioError.
Scenario readScenario(const std::string& path);
/// The same of a text; `name` stands for the file in what is refused.
Scenario readScenarioText(const std::string& text, const std::string& name);

/// All words that an event's "do" can have, sorted.
std::vector<std::string> eventWords();
/// An event as typed, "gps.fault fault=antenna_open on=false", which happens at once. Throws ScenarioError,
/// whose line number means nothing.
EventSpec readEventLine(const std::string& line, const Scenario& scenario);
/// What could stand behind a line that isn't complete: words for "do", keys, or values of the last key.
std::vector<std::string> completeEvent(const std::string& line, const Scenario& scenario);

/// Puts a recorded oscillator, or recorded noise of every reference, in place of the scenario's own.
/// `what` is as parseSeriesForm has it. Throws SeriesError.
void replaceOscillator(Scenario& scenario, const std::string& what);
void replaceReferenceNoise(Scenario& scenario, const std::string& what);

/// A value of the clock state, the regulator's state or the reference type by its name; nothing when there
/// is none of that name.
std::optional<u8> clockStateByName(const std::string& name);
std::optional<u8> regStateByName(const std::string& name);
std::optional<u8> refTypeByName(const std::string& name);
std::optional<u8> gpsStateByName(const std::string& name);
std::optional<u8> gpssTypeByName(const std::string& name);

/// "OPERATIONAL" for 6, "UNKNOWN" beyond the known; and of the receiver's kind "NORVANE_COMBINED" for 2.
const char* gpsStateName(u8 gpsState);
const char* gpssTypeName(u8 gpssType);
/// "scan" for KVD_TUIIF_SOCPRI_SCAN_LINK_RSP, as a check names it; and back.
const char* socpriAnswerName(u32 sigNo);
std::optional<u32> socpriAnswerByName(const std::string& name);

// Pieces of the reader, each in a file of its own.
UnitSpec readUnit(const toml::table& table, const std::string& file, const Scenario& scenario);
EventSpec readEvent(const toml::table& table, const std::string& file, const Scenario& scenario);
/// Empty when `word` is nothing that can happen to a unit.
std::function<void(Unit&)> readUnitEvent(const EventWord& word, TableReader& t, const UnitSpec& unit);
LinkSpec readLink(const toml::table& table, const std::string& file, const Scenario& scenario);
/// Empty when `word` is none of a link's events.
std::function<void(Link&)> readLinkEvent(const EventWord& word, TableReader& t, const LinkSpec& link);
GpsReceiverConfig readGps(const toml::table& table, const std::string& file);
/// Empty when `word` is none of the receiver's events.
std::function<void(Unit&)> readGpsEvent(const EventWord& word, TableReader& t, const UnitSpec& unit);
/// UTC at the beginning of the run, "start", s since 1970.
i64 readStart(TableReader& t);
CmccSourceConfig readCmcc(const toml::table& table, const std::string& file);
/// Empty when `word` is none of the time input's events.
std::function<void(Unit&)> readHptsiEvent(const EventWord& word, TableReader& t, const UnitSpec& unit);
/// Servers of the inter-unit links; the event is empty when `word` is none of theirs.
void readIdlServers(TableReader& t, const std::string& file, NodeConfig& node);
std::function<void(Unit&)> readRestartEvent(const EventWord& word, TableReader& t, const UnitSpec& unit);
std::function<void(Unit&)> readIdlEvent(const EventWord& word, TableReader& t);
/// The packet network: a unit's share, masters, paths; an event is empty when `word` is none of theirs.
void readPacketPort(TableReader& t, const std::string& file, NodeConfig& node);
PtpMasterConfig readMaster(const toml::table& table, const std::string& file, const Scenario& scenario);
PathSpec readPath(const toml::table& table, const std::string& file, const Scenario& scenario);
std::function<void(PacketNet&)> readNetEvent(const EventWord& word, TableReader& t, const Scenario& scenario);
std::function<void(Unit&)> readPacketEvent(const EventWord& word, TableReader& t, const UnitSpec& unit);
void readNtp(TableReader& t, const std::string& file, NtpConfig& ntp);
std::function<void(Unit&)> readNtpEvent(const EventWord& word, TableReader& t, const UnitSpec& unit);
/// Far ends of the Ethernet ports; the event is empty when `word` is none of theirs or of the service's.
void readEsmc(TableReader& t, const std::string& file, UnitSpec& unit);
std::function<void(Unit&)> readEsmcEvent(const EventWord& word, TableReader& t, const UnitSpec& unit);
Wander readWander(TableReader& t);
/// Sync group logic; the event is empty when `word` is none of its own.
void readSyncGroup(TableReader& unit, const std::string& file, NodeConfig& node);
std::function<void(Unit&)> readSyncGroupEvent(const EventWord& word, TableReader& t);
/// Radio links to other units; the event is empty when `word` is none of theirs.
void readInrsi(TableReader& unit, const std::string& file, InrsiConfig& c);
std::function<void(Unit&)> readSocpriEvent(const EventWord& word, TableReader& t);
/// The recorded series that "series" names, its file beside the scenario's; what is wrong with it is told
/// with the scenario's line.
EndlessSeries readRecord(TableReader& t, std::vector<double> (*read)(const std::string&, const SeriesForm&),
                         std::optional<SeriesKind> usual);
/// The same of plain numbers.
std::vector<double> readColumn(TableReader& t);
/// Phase, noise and recorded series of a reference.
void readPhase(TableReader& t, LineConfig& c);

}  // namespace sim
