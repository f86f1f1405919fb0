#include "app/pcap.h"

#include "node/trace.h"
#include "pktsync/tupktsync_coli.h"
#include "pktsync/tupktsync_ptp_clock.h"
#include "sig/ref_types.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace app {
namespace {

constexpr ose::Time START_LIMIT = 600 * ose::SEC;
constexpr u32 EVERY_LEVEL = 0xFFFFFFFF;
constexpr std::size_t COMMON_HEADER = 34;
constexpr u8 ETHERNET_TIME = 0, UNICAST_FREQUENCY = 3;    // MpPacketRef::typeOfPktStruct
constexpr u8 FORWARDABLE = 0, NOT_FORWARDABLE = 1;        // its multicastAddress

bool isFigure(char c) { return c >= '0' && c <= '9'; }

/// Without the figure that differs from message to message, so that equal reasons count together.
std::string reasonOf(const std::string& trace)
{
    constexpr std::string_view COUNTED = "sequenceId ";
    std::string text = trace;
    if (const std::size_t at = text.find(COUNTED); at != std::string::npos) {
        const auto from = text.begin() + static_cast<std::ptrdiff_t>(at + COUNTED.size());
        text.replace(from, std::find_if_not(from, text.end(), isFigure), "n");
    }
    text.erase(text.find_last_not_of(" \n,") + 1);
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

// ---- what a message is --------------------------------------------------------------------------

bool hasHeader(std::span<const u8> m) { return m.size() >= COMMON_HEADER && (m[1] & 0xF) == 2; }
u32 typeOf(std::span<const u8> m) { return m[0] & 0xFu; }

std::string typeText(std::span<const u8> m)
{
    static constexpr const char* NAMES[] = {
        "Sync",    "Delay_Req", "Pdelay_Req", "Pdelay_Resp",           "type 4",   "type 5",    "type 6",
        "type 7",  "Follow_Up", "Delay_Resp", "Pdelay_Resp_Follow_Up", "Announce", "Signaling", "Management",
        "type 14", "type 15"};
    if (m.size() < 2) return "too short";
    if ((m[1] & 0xF) != 2) return "PTP version " + std::to_string(m[1] & 0xF);
    return m.size() < COMMON_HEADER ? "too short" : NAMES[typeOf(m)];
}

bool isOfMaster(u32 type)
{
    return type == PTP_SYNC || type == PTP_FOLLOW_UP || type == PTP_DELAY_RESP || type == PTP_ANNOUNCE;
}

std::string wayText(const PtpCarrier& c) { return c.packet.isFrame ? "L2" : sim::textOf(c.packet.from); }

/// Group of an Ethernet frame as a packet reference tells it.
u8 groupOf(const PtpCarrier& c)
{
    const bool isLinkLocal = c.packet.bytes[0] == 0x01 && c.packet.bytes[1] == 0x80;
    return isLinkLocal ? NOT_FORWARDABLE : FORWARDABLE;
}

/// A domain on Ethernet, or a host and a domain of UDP.
struct Source {
    std::optional<sim::NetAddress> server;
    u8 domain = 0, group = FORWARDABLE;
    bool isMaster = false;             // has sent what a master sends
    u64 announces = 0;                 // that can be read
};

bool isGoodAnnounce(std::span<const u8> m)
{
    constexpr std::size_t ANNOUNCE_OCTETS = 64;
    if (!hasHeader(m) || typeOf(m) != PTP_ANNOUNCE || m.size() < ANNOUNCE_OCTETS) return false;
    const PtpHeader h = ptpHeaderOf(m.data());
    return h.messageLength >= ANNOUNCE_OCTETS && h.messageLength <= m.size()
           && h.sourcePortIdentity.clockIdentity != PtpClockIdentity{};
}

/// Most Announces first, then masters, then in the order of the capture; a domain on Ethernet with the group
/// that most of its Announces came to.
std::vector<Source> sourcesOf(const std::vector<PcapPacket>& capture)
{
    std::vector<Source> all;
    for (const PcapPacket& p : capture) {
        const std::optional<PtpCarrier> c = ptpOf(p);
        if (!c || !c->behind.empty() || c->message().size() <= 4) continue;
        const std::span<const u8> m = c->message();
        const auto server = c->packet.isFrame ? std::nullopt : std::optional(c->packet.from);
        const u8 group = c->packet.isFrame ? groupOf(*c) : FORWARDABLE;
        auto s = std::find_if(all.begin(), all.end(), [&](const Source& known) {
            return known.server == server && known.domain == m[4] && known.group == group;
        });
        if (s == all.end()) s = all.insert(s, {server, m[4], group, false, 0});
        if (hasHeader(m) && isOfMaster(typeOf(m))) s->isMaster = true;
        if (isGoodAnnounce(m)) ++s->announces;
    }
    std::stable_sort(all.begin(), all.end(), [](const Source& a, const Source& b) {
        return std::tie(a.announces, a.isMaster) > std::tie(b.announces, b.isMaster);
    });
    std::vector<Source> chosen;
    for (const Source& s : all)
        if (std::none_of(chosen.begin(), chosen.end(),
                         [&](const Source& c) { return c.server == s.server && c.domain == s.domain; }))
            chosen.push_back(s);
    // A host that only asks is no master, unless there is none.
    const bool anyServer = std::any_of(chosen.begin(), chosen.end(),
                                       [](const Source& s) { return s.server && s.isMaster; });
    std::erase_if(chosen, [&](const Source& s) { return s.server && anyServer && !s.isMaster; });
    return chosen;
}

sim::NetAddress ownAddress(u32 family)
{
    sim::NetAddress own;               // of the blocks for documentation (RFC 5737, RFC 3849)
    sim::parseNetAddress(family == 6 ? "2001:db8:0:0:0:0:0:1" : "192.0.2.1", own);
    return own;
}

}  // namespace

// ---- the unit -----------------------------------------------------------------------------------

sim::NodeConfig PcapBench::configFor(const std::vector<PcapPacket>& capture)
{
    sim::NodeConfig config;
    for (const Source& s : sourcesOf(capture)) {
        if (s.server && family_ == 0) family_ = s.server->family;
        if (config.mainProcessor.packetRefs.size() == PTP_CLOCKS) {
            ++result_.leftOut;
            continue;
        }
        if (s.server && s.server->family != family_) continue;
        sim::MpPacketRef r;
        r.froId = static_cast<u32>(config.mainProcessor.packetRefs.size()) + 1;
        r.domain = s.domain;
        r.typeOfPktStruct = s.server ? UNICAST_FREQUENCY : ETHERNET_TIME;
        r.froClassNo = s.server ? PACKET_FREQ_FRO_CLASS : PACKET_TIME_FRO_CLASS;
        constexpr u8 TELECOM_FIRST = 24, TELECOM_LAST = 43;      // ITU-T G.8275.1 6.2.1
        const bool isTelecom = s.domain >= TELECOM_FIRST && s.domain <= TELECOM_LAST;
        r.profile = !s.server && isTelecom ? ITU_T_G_8275_1 : IEEE_1588_J3;
        r.multicastAddress = s.group;
        if (s.server) {
            r.family = family_;
            r.server = s.server->octets;
            r.own = ownAddress(family_).octets;
        }
        sim::MpReference reference;
        reference.name = (s.server ? sim::textOf(*s.server) : "L2") + " domain " + std::to_string(s.domain);
        reference.refType = s.server ? PACKET_FREQ_REF : PACKET_TIME_REF;
        reference.froId = r.froId;
        reference.froClassNo = r.froClassNo;
        config.mainProcessor.packetRefs.push_back(r);
        config.mainProcessor.references.push_back(reference);
    }
    config.mainProcessor.timeMode = 3;                           // a time reference needs absolute time
    if (family_ != 0) config.packetPort.address = ownAddress(family_);
    return config;
}

PcapBench::PcapBench(std::vector<PcapPacket> capture) : capture_(std::move(capture))
{
    const sim::NodeConfig config = configFor(capture_);
    const std::size_t wanted = config.mainProcessor.packetRefs.size();
    node_ = std::make_unique<sim::Node>(world_, config);
    world_.onMisuse([this](const ose::Misuse& m) { result_.misuses.push_back(m.text()); });
    node_->traces().setCapacity(0);
    node_->traces().onLine([this](const sim::TraceLine& line) {
        const bool isPacket = line.group.find("TUPKTSYNC") != std::string::npos;
        if (isPacket) lastWord_ = reasonOf(line.text);
    });
    node_->powerOn();
    const auto clocks = [this] {
        if (node_->program() == nullptr) return 0u;
        return node_->inProgram([] {
            u32 count = 0;
            for (u32 id = 0; id < PTP_CLOCKS; ++id) count += ptpClockOf(id) != nullptr ? 1 : 0;
            return count;
        });
    };
    do world_.runFor(ose::SEC);
    while (clocks() < wanted && world_.now() < START_LIMIT);
    if (clocks() < wanted) throw PcapError("the unit doesn't create its packet references");
    world_.runFor(ose::SEC);           // groups are joined, references supervised
}

PcapResult PcapBench::run()
{
    constexpr i64 DAY_ns = 86'400'000'000'000;
    constexpr ose::Time NS = ose::SEC / 1'000'000'000;
    node_->inProgram([] { node::traceSetProgramMask(EVERY_LEVEL); });
    ose::Time due = world_.now();
    const ose::Time start = due;
    for (std::size_t i = 0; i < capture_.size(); ++i) {
        if (i > 0) {
            const u64 step = static_cast<u64>(capture_[i].time_ns)
                             - static_cast<u64>(capture_[i - 1].time_ns);
            if (step <= static_cast<u64>(DAY_ns)) due += static_cast<ose::Time>(step) * NS;
        }
        ++result_.packets;
        const std::optional<PtpCarrier> carrier = ptpOf(capture_[i]);
        if (!carrier) {
            ++result_.other;
            continue;
        }
        if (due > world_.now()) world_.runUntil(due);
        const std::span<const u8> m = carrier->message();
        PcapMessage message;
        message.number = i + 1;
        message.at_s = static_cast<double>(due - start) / static_cast<double>(ose::SEC);
        message.way = wayText(*carrier);
        message.type = typeText(m);
        if (hasHeader(m)) {
            message.domain = m[4];
            message.sequence = static_cast<u32>(m[30] << 8 | m[31]);
        }
        hand(*carrier, message);
        note(*carrier, message);
    }
    node_->inProgram([] { node::traceSetProgramMask(node::TRACE_MASK_DEFAULT); });
    readReferences();
    return result_;
}

PcapBench::Counts PcapBench::counts()
{
    Counts all;
    if (node_->program() == nullptr) return all;
    node_->inProgram([&all] {
        for (u32 id = 0; id < PTP_CLOCKS; ++id) {
            const PtpClock* const c = ptpClockOf(id);
            if (c == nullptr) continue;
            for (const u32 n : c->used) all.used += n;
            all.stored += c->stored;
            all.unread += c->unread;
        }
    });
    return all;
}

/// Why the node's services wouldn't hand it to the unit; nullptr when they would.
const char* PcapBench::obstacle(const PtpCarrier& carrier)
{
    if (carrier.isCut) return "the recorder cut it";
    const sim::NetPacket& packet = carrier.packet;
    if (packet.isFrame) {
        sim::MacAddress to;
        std::copy_n(packet.bytes.begin(), to.size(), to.begin());
        const bool isJoined = (to[0] & 1) == 0 || node_->cfi().groups().contains(to);
        return isJoined ? nullptr : "no reference of its group";
    }
    if (node_->ipsocki().sockets() == 0) return "no reference of unicast UDP";
    return packet.from.family == family_ ? nullptr : "the unit's host is of the other IP version";
}

/// What the unit does with it is told by its own counts; its words only say why.
void PcapBench::hand(const PtpCarrier& carrier, PcapMessage& message)
{
    message.verdict = PcapVerdict::NotHanded;
    if (!carrier.behind.empty()) {
        message.reason = "behind " + carrier.behind + ", where a unit doesn't look";
        return;
    }
    if (const char* const reason = obstacle(carrier)) {
        message.reason = reason;
        return;
    }
    sim::NetPacket packet = carrier.packet;
    if (!packet.isFrame) packet.to = node_->packetPort().config.address;
    lastWord_.clear();
    node_->packetPort().onPacket(packet);
    world_.runFor(10 * ose::US);
    const Counts after = counts();
    const Counts before = std::exchange(counts_, after);
    if (after.used > before.used) {
        message.verdict = PcapVerdict::Taken;
    } else if (after.stored > before.stored) {
        message.verdict = PcapVerdict::Waits;
        message.reason = "its sender isn't followed (yet)";
    } else if (after.unread > before.unread) {
        message.verdict = PcapVerdict::Ignored;
        message.reason = "nothing that a slave reads";
    } else {
        message.verdict = PcapVerdict::Refused;
        message.reason = lastWord_.empty() ? "without a word" : lastWord_;
    }
}

void PcapBench::note(const PtpCarrier& carrier, const PcapMessage& message)
{
    const auto verdict = static_cast<std::size_t>(message.verdict);
    ++result_.totals[verdict];
    ++result_.types[message.type][verdict];
    if (!message.reason.empty()) ++result_.reasons[message.reason];
    if (observer_) observer_(message);
    const std::span<const u8> m = carrier.message();
    const bool isAnnounce = hasHeader(m) && typeOf(m) == PTP_ANNOUNCE;
    if (!isAnnounce && (!hasHeader(m) || typeOf(m) != PTP_SYNC)) return;
    const auto port = node_->inProgram(
        [&] { return TuPktsync_portIdentityText(ptpHeaderOf(m.data()).sourcePortIdentity); });
    PcapMaster& master =
        result_.masters[message.way + " domain " + std::to_string(message.domain) + " " + port.data()];
    if (!isAnnounce) {
        ++master.syncs;
        return;
    }
    ++master.announces;
    if (message.verdict == PcapVerdict::Refused) ++master.refusedAnnounces;
    if (!isGoodAnnounce(m)) return;
    master.isRead = true;
    const PtpAnnounce a = ptpAnnounceOf(m.data() + COMMON_HEADER);
    master.priority1 = a.grandmasterPriority1;
    master.clockClass = a.grandmasterClockQuality.clockClass;
    master.clockAccuracy = a.grandmasterClockQuality.clockAccuracy;
    master.priority2 = a.grandmasterPriority2;
    master.stepsRemoved = a.stepsRemoved;
    char text[20];
    std::size_t at = 0;
    for (const u8 octet : a.grandmasterIdentity)
        at += static_cast<std::size_t>(std::snprintf(text + at, sizeof text - at, "%02X", octet));
    master.grandmaster = text;
}

void PcapBench::readReferences()
{
    const auto& references = node_->config().mainProcessor.references;
    if (node_->program() == nullptr) return;
    node_->inProgram([&] {
        for (u32 id = 0; id < PTP_CLOCKS; ++id) {
            const PtpClock* const c = ptpClockOf(id);
            if (c == nullptr) continue;
            const std::string what = id < references.size() ? references[id].name : "?";
            const bool hasParent = c->parent.parentPortIdentity != PtpPortIdentity{};
            result_.references.push_back(
                {what, ptpPortStateText(c->portState),
                 hasParent ? TuPktsync_portIdentityText(c->parent.parentPortIdentity).data() : "none"});
        }
    });
}

}  // namespace app
