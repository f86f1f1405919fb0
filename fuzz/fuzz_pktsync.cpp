// Frames, datagrams, negotiation TLVs and signals of any content to the packet process of a running unit:
// it lives on, its table and its clocks stay what they can be, and whatever it sends is a PTP message.
#include "fuzz/wire_inputs.h"
#include "node/cfi.h"
#include "node/ipsocki.h"
#include "node/pktsyncdrv.h"
#include "pktsync/tupktsync_proc.h"
#include "pktsync/tupktsync_ptp_clock.h"
#include "pktsync/tupktsync_syncref_int.h"
#include "sig/tuiif_sig.h"
#include "sim/net/ptp_master.h"

namespace {

using fuzz::message;
using fuzz::require;
using fuzz::signaling;
using fuzz::take;
using fuzz::takeOctets;

namespace ptp = sim::ptp;

constexpr std::array<u8, 16> SERVER{192, 168, 0, 9};
constexpr u8 ETHERNET_DOMAIN = 24, UNICAST_DOMAIN = 4;

sim::NodeConfig config()
{
    sim::NodeConfig c;
    sim::MpPacketRef ethernet;
    ethernet.froId = 1;
    ethernet.domain = ETHERNET_DOMAIN;
    sim::MpPacketRef unicast;
    unicast.froId = 2;
    unicast.froClassNo = 5;
    unicast.typeOfPktStruct = 3;
    unicast.domain = UNICAST_DOMAIN;
    unicast.server = SERVER;
    unicast.own = {192, 168, 0, 1};
    c.mainProcessor.packetRefs = {ethernet, unicast};
    return c;
}

void mustBePtp(const sim::NetPacket& p)
{
    const std::size_t at = p.isFrame ? ptp::messageAt(p.bytes) : 0;
    require(!p.isFrame || at != 0, "a frame that isn't PTP left");
    std::string why;
    const auto m = ptp::read(p.bytes.data() + at, p.bytes.size() - at, &why);
    require(m.has_value(), why.c_str());
    require(m->type == ptp::DELAY_REQ || m->type == ptp::SIGNALING, "no message of a slave");
}

sim::PtpMasterConfig masterConfig(bool unicast)
{
    sim::PtpMasterConfig c;
    c.domain = unicast ? UNICAST_DOMAIN : ETHERNET_DOMAIN;
    c.unicast = unicast;
    c.name = unicast ? "unicast" : "ethernet";
    if (unicast) c.address = {4, SERVER};
    return c;
}

/// A unit that follows two masters who mean well, whatever else it hears.
struct Target {
    ose::World world{1};
    sim::Node node{world, config()};
    sim::Network net{world};
    sim::PtpMaster ethernet{world, net, masterConfig(false)}, unicast{world, net, masterConfig(true)};

    Target()
    {
        fuzz::watch(world, node);
        node.packetPort().plug(&net);
        node.packetPort().onSend(mustBePtp);
        net.attach(node.packetPort());
        for (sim::PtpMaster* master : {&ethernet, &unicast}) net.connect(node.packetPort(), *master, {}, {});
        node.powerOn();
        world.runFor(10 * ose::SEC);
        const u32 following = node.inProgram([] {
            return ptpClockOf(0)->delay.status == DRM_OK && ptpClockOf(1)->delay.status == DRM_OK ? 1u : 0u;
        });
        require(following == 1, "no clock that follows to begin with");
    }
    void inject(std::span<const std::byte> signal)
    {
        fuzz::inject(node, "Kvd_loz6_tupktsync_proc", signal, node.mainProcessor().pid());
        world.runFor(10 * ose::MS);
    }
};

void frame(Target& t, fuzz::Input& rest)
{
    const auto head = take<std::array<u8, 3>>(rest);
    const u8 priority = head[0] % 8;
    std::vector<u8> octets = ptp::frame({1, 0x1B, 0x19, 0, 0, 0}, {2}, priority,
                                        message(rest, ETHERNET_DOMAIN));
    const auto at = octets.begin() + static_cast<std::ptrdiff_t>(priority != 0 ? 18 : 14);
    octets.insert(at, 8, head[1]);
    CfiReceiveFrameInd ind{CFI_RECEIVE_FRAME_IND, 3, 0, 0, static_cast<u32>(octets.size()), 8};
    if (head[1] >= 230) ind.metalength = head[2];
    if (head[1] >= 240) ind.length = head[2];
    t.inject(fuzz::signalOf(ind, octets));
}

void datagram(Target& t, fuzz::Input& rest, bool isSignaling)
{
    const auto head = take<std::array<u8, 4>>(rest);
    const std::vector<u8> octets = isSignaling ? signaling(rest, UNICAST_DOMAIN)
                                               : message(rest, UNICAST_DOMAIN);
    TarsoIpsockiFdReadData ind{};
    ind.sigNo = TARSO_IPSOCKI_FD_READ_DATA;
    ind.localPort = head[0] % 8 != 0 ? 319 + head[0] % 2 : 318;
    ind.saFamily = head[1] < 240 ? IPSOCKI_AF_INET : head[1];
    ind.address = SERVER;
    if (head[2] % 2 == 0) ind.controlLevel = IPSOCKI_STAMP_LEVEL, ind.controlType = IPSOCKI_STAMP_TYPE;
    ind.length = head[3] < 250 ? static_cast<u32>(octets.size()) : head[3] * 0x1010101u;
    t.inject(fuzz::signalOf(ind, octets));
}

/// A signal of the main processor, the manager or a service.
void signal(Target& t, fuzz::Input& rest)
{
    constexpr SIGSELECT NUMBERS[] = {
        KVD_TUIIF_CREATE_PKT_REF_RO_REQ, KVD_TUIIF_DELETE_PKT_REF_RO_REQ, KVD_TUIIF_SET_PKT_REF_RO_REQ,
        KVD_TUIIF_AUDIT_PKT_REF_RO_CFM, KVD_TUIIF_GET_PKT_REF_RO_ATTRIB_REQ, KVD_TUIIF_SYNCH_PATH_SUP_IND,
        TUPKTSYNC_REF_SELECTION_IND, TUPKTSYNC_CLOCK_RQMT_IND, TUPKTSYNC_REG_IND, TUPKTSYNC_TMO_IND,
        TUPKTSYNC_TUIIF_UP_IND, TUPKTSYNC_TUIIF_DOWN_IND, PKTSYNCDRV_SETSYNCREF_CFM,
        PKTSYNCDRV_DELETESYNCREF_CFM, PKTSYNCDRV_TIMESTAMP_IND, CFI_JOIN_MULTICAST_CFM,
        CFI_LEAVE_MULTICAST_CFM, TARSO_IPSOCKI_ACREDIT_IND, CFI_SERVER_UP_IND,
        PKTSYNCDRV_INITIATE_SERVICE_CFM,
    };
    const SIGSELECT number = NUMBERS[take<u8>(rest) % std::size(NUMBERS)];
    const std::size_t length = take<u8>(rest) % 180;
    fuzz::Bytes bytes = fuzz::signalOf(number, takeOctets(rest, length));
    bytes.resize(sizeof number + length);
    // Identities are few, so that requests find what others made; so are kinds, domains and clocks.
    const auto limit = [&bytes](std::size_t at, u32 below) {
        u32 word;
        if (at + sizeof word > bytes.size()) return;
        std::memcpy(&word, bytes.data() + at, sizeof word);
        word %= below;
        std::memcpy(bytes.data() + at, &word, sizeof word);
    };
    if (number == KVD_TUIIF_AUDIT_PKT_REF_RO_CFM) limit(4, 11);
    else limit(4, 4), limit(8, 6);
    if (number == KVD_TUIIF_CREATE_PKT_REF_RO_REQ && bytes.size() > 13) {
        bytes[12] &= std::byte{7};
        bytes[13] &= std::byte{31};
    }
    t.inject(bytes);
}

void check(Target& t)
{
    require(t.node.programEnds().empty(), "the program ended");
    t.node.inProgram([] {
        const syncref::State& s = syncref::state();
        require(s.syncRefCtrlState > UNINITIALIZED && s.syncRefCtrlState <= REINIT, "no state of control");
        require(s.selected_syncrefId < static_cast<i32>(PTP_CLOCKS), "selection");
        for (u32 id = 0; id < PTP_CLOCKS; ++id) {
            const auto& r = s.table[id];
            const PtpClock* const c = ptpClockOf(id);
            require((c != nullptr) == (r && r->protocolStarted), "a clock without its reference");
            if (r) require(r->syncRefIndivState > syncref::FREE, "a free place in use");
            if (c == nullptr) continue;
            require(c->portState == LISTENING || c->portState == UNCALIBRATED || c->portState == SLAVE,
                    "no state of a slave");
            require(c->foreignMasterCount <= PTP_FOREIGN_MASTERS, "foreign masters");
            for (const TsBuffer* b : {&c->syncStamps, &c->delay.stamps}) {
                u32 used = 0;
                for (const TsPosition& at : b->positions) used += at.mask != 0 ? 1 : 0;
                require(b->occupancy <= b->size && b->occupancy == used, "places of stamps");
            }
        }
        return 0;
    });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    constexpr u32 INPUTS_A_UNIT = 200;
    Target& target = fuzz::serving<Target>(INPUTS_A_UNIT);
    // An input is a row of events: kind, content.
    fuzz::Input rest(data, size);
    while (!rest.empty()) {
        switch (take<u8>(rest) % 5) {
        case 0:
        case 1: frame(target, rest); break;
        case 2: datagram(target, rest, false); break;
        case 3: datagram(target, rest, true); break;
        default: signal(target, rest);
        }
    }
    target.world.runFor(100 * ose::MS);
    check(target);
    return 0;
}
