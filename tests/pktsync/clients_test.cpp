// The packet process and its three services: the chain of starts, each service refusing, dying and coming
// back, multicast groups, sockets.
#include "base/trace_groups.h"
#include "mp/kvd_iifadm_state.h"
#include "node/cfi_sig.h"
#include "node/ipsocki_sig.h"
#include "node/pktsyncdrv_sig.h"
#include "tests/pktsync/packet_unit.h"

namespace {

using namespace bench;
using sim::Answer;
using States = std::array<u32, 4>;

TEST(PacketChain, GoesOnWithoutAServiceThatRefusesAndWaitsForOneThatIsSilent)
{
    struct Case { const char* what; void (*script)(sim::Node&); States states; };
    constexpr u32 ALL = ROOT_STARTED, DRV = DRV_AVAILABLE, CFI = CFI_ATTACHED, IP = IPSOCKI_AVAILABLE;
    constexpr u32 NO_DRV = DRV_NOT_AVAILABLE, NO_CFI = CFI_NOT_AVAILABLE, NO_IP = IPSOCKI_NOT_AVAILABLE;
    constexpr Case CASES[] = {
        {"all there", [](sim::Node&) {}, {ALL, DRV, CFI, IP}},
        {"driver suspends", [](auto& n) { n.pktsyncDrv().setAnswer(Answer::Suspend); },
         {ALL, NO_DRV, CFI, IP}},
        {"driver rejects", [](auto& n) { n.pktsyncDrv().setAnswer(Answer::Reject); }, {ALL, NO_DRV, CFI, IP}},
        {"driver of another version", [](auto& n) { n.pktsyncDrv().selectedPv = 2; }, {ALL, DRV, CFI, IP}},
        {"driver silent", [](auto& n) { n.pktsyncDrv().setAnswer(Answer::Silent); },
         {WAIT4_PKTSYNCDRV_CLIENT, DRV_WAIT_FOR_INIT_RESPONS, NO_CFI, NO_IP}},
        {"no driver", [](auto& n) { n.pktsyncDrv().die(); },
         {WAIT4_PKTSYNCDRV_CLIENT, DRV_WAIT_FOR_SERVER_UP, NO_CFI, NO_IP}},
        {"frames suspended", [](auto& n) { n.cfi().setAnswer(Answer::Suspend); }, {ALL, DRV, NO_CFI, IP}},
        {"frames rejected", [](auto& n) { n.cfi().setAnswer(Answer::Reject); }, {ALL, DRV, NO_CFI, IP}},
        {"frames of another version", [](auto& n) { n.cfi().selectedPv = 7; }, {ALL, DRV, CFI, IP}},
        {"no device", [](auto& n) { n.cfi().attachResult = 7; },
         {WAIT4_CFI_CLIENT, DRV, CFI_WAIT_FOR_ATTACH_CFM, NO_IP}},
        {"sockets rejected", [](auto& n) { n.ipsocki().setAnswer(Answer::Reject); }, {ALL, DRV, CFI, NO_IP}},
        {"sockets of another version", [](auto& n) { n.ipsocki().selectedPv = 4; }, {ALL, DRV, CFI, IP}},
        {"sockets suspended", [](auto& n) { n.ipsocki().setAnswer(Answer::Suspend); },
         {WAIT4_IPSOCKI_CLIENT, DRV, CFI, IPSOCKI_WAIT_FOR_SERVER_DOWN}},
        {"sockets busy", [](auto& n) { n.ipsocki().setAnswer(Answer::Busy); },
         {WAIT4_IPSOCKI_CLIENT, DRV, CFI, NO_IP}},
    };
    for (const Case& c : CASES) {
        SCOPED_TRACE(c.what);
        PacketUnit u;
        c.script(u.node);
        u.on();
        EXPECT_EQ(u.states(), c.states);
        const bool isStarted = c.states[0] == ROOT_STARTED;
        EXPECT_EQ(u.control(), isStarted ? u32{READY} : u32{UNINITIALIZED});
        EXPECT_EQ(u.told(KVD_TUIIF_PKT_REF_RO_UNAVAILABLE_IND), 1u);
        // A creation on a transport that isn't there fails; the others stand.
        u.node.mainProcessor().createPacketRef(ethernetRef(1, 24));
        u.node.mainProcessor().createPacketRef(unicastRef(2));
        u.run(1);
        const bool canStamp = c.states[1] == DRV_AVAILABLE && isStarted;
        EXPECT_EQ(u.created(1, 4), canStamp && c.states[2] == CFI_ATTACHED);
        EXPECT_EQ(u.created(2, 5), canStamp && c.states[3] == IPSOCKI_AVAILABLE);
        EXPECT_EQ(u.told(KVD_TUIIF_CREATE_PKT_REF_RO_CFM), isStarted ? 2u : 0u);
        if (!std::string(c.what).ends_with("rejects") && !std::string(c.what).ends_with("rejected")) continue;
        u.run(11);                                   // a word of refusal is taken
        EXPECT_EQ(u.traces("it is asked again"), 0u);
    }
}

TEST(PacketChain, OfNewerSocketsTerminatesAndInitiatesAnew)
{
    PacketUnit u;
    u.node.ipsocki().setAnswer(Answer::Suspend);
    u.node.ipsocki().selectedPv = 6;
    u.node.ipsocki().delay_ms = 100;
    u.on(1);
    while (u.ipsocki() != IPSOCKI_WAIT_FOR_TERMINATE_CONFIRM) u.run(0.01);
    EXPECT_EQ(u.root(), u32{WAIT4_IPSOCKI_CLIENT});
    u.node.ipsocki().setAnswer(Answer::Accept);
    u.node.ipsocki().selectedPv = 5;
    u.run(1);
    EXPECT_EQ(u.ipsocki(), u32{IPSOCKI_AVAILABLE});
    EXPECT_EQ(u.root(), u32{ROOT_STARTED});
    EXPECT_GE(u.node.ipsocki().received(TARSO_IPSOCKI4_TERMINATE_SERVICE_REQ), 1u);
}

TEST(PacketServices, ASignalInTheWrongStateOrTooShortIsDropped)
{
    constexpr SIGSELECT NUMBERS[] = {
        PKTSYNCDRV_SERVER_UP_IND, PKTSYNCDRV_INITIATE_SERVICE_CFM, CFI_SERVER_UP_IND,
        CFI_INITIATE_SERVICE_CFM, CFI_ATTACH_CFM, TARSO_IPSOCKI_INITIATE_SERVICE_CFM,
        TARSO_IPSOCKI_INITIATE_SERVICE_SUS, TARSO_IPSOCKI_INITIATE_SERVICE_REJ,
        TARSO_IPSOCKI_ACREDIT_IND, TARSO_IPSOCKI4_TERMINATE_SERVICE_CFM,
        // A death of somebody else's service; answers without their words; nobody's.
        PKTSYNCDRV_SERVER_DOWN_IND, CFI_SERVER_DOWN_IND, TARSO_IPSOCKI_SERVER_DOWN_IND,
        PKTSYNCDRV_SETSYNCREF_CFM, PKTSYNCDRV_DELETESYNCREF_CFM, PKTSYNCDRV_TIMESTAMP_IND,
        CFI_JOIN_MULTICAST_CFM, CFI_LEAVE_MULTICAST_CFM, CFI_RECEIVE_FRAME_IND, TARSO_IPSOCKI_FD_READ_DATA,
        0x12345,
    };
    PacketUnit u;
    u.on();
    for (const SIGSELECT number : NUMBERS) {
        SCOPED_TRACE(testing::Message() << std::hex << number);
        u.node.traces().clear();
        u.inject(number);
        EXPECT_FALSE(u.node.traces().lines().empty());
        EXPECT_EQ(u.states(), (States{ROOT_STARTED, DRV_AVAILABLE, CFI_ATTACHED, IPSOCKI_AVAILABLE}));
    }
    struct { CfiReceiveFrameInd ind; u8 octets[20]; } frame{{CFI_RECEIVE_FRAME_IND, 3, 0, 0, 21, 8}, {}};
    u.inject(frame);
    EXPECT_EQ(u.traces("CFI_RECEIVE_FRAME_IND of 44 octets holds no frame of 21"), 1u);
    u.node.mainProcessor().createPacketRef(ethernetRef(1, 24));
    u.run(1);
    EXPECT_TRUE(u.created(1, 4));
    u.node.pktsyncDrv().setMute(true);
    u.node.mainProcessor().createPacketRef(ethernetRef(2, 25));
    u.run(1);
    // A word of refusal at any time leaves the client without the service. What waits for it fails.
    for (const SIGSELECT word : {CFI_INITIATE_SERVICE_SUS, CFI_INITIATE_SERVICE_REJ, CFI_INITIATE_SERVICE_CFM,
                                 PKTSYNCDRV_INITIATE_SERVICE_REJ, PKTSYNCDRV_INITIATE_SERVICE_CFM})
        u.inject(word);
    EXPECT_EQ(u.states(), (States{ROOT_STARTED, DRV_NOT_AVAILABLE, CFI_NOT_AVAILABLE, IPSOCKI_AVAILABLE}));
    u.run(1);
    EXPECT_EQ(u.told(KVD_TUIIF_CREATE_PKT_REF_RO_CFM), 2u);
    EXPECT_FALSE(u.created(2, 4));
    // What stands on it can go all the same: nobody is waited for.
    u.node.mainProcessor().deletePacketRef(1, 4);
    u.run(1);
    EXPECT_EQ(u.told(KVD_TUIIF_DELETE_PKT_REF_RO_CFM), 1u);
    EXPECT_FALSE(u.created(1, 4));
}

sim::Server& driverOf(sim::Node& n) { return n.pktsyncDrv(); }
sim::Server& framesOf(sim::Node& n) { return n.cfi(); }
sim::Server& socketsOf(sim::Node& n) { return n.ipsocki(); }

// Whatever a service was asked for while it heard all and said nothing, it is asked again.
TEST(PacketServices, OneThatSaysNothingIsAskedAgain)
{
    using Of = sim::Server& (*)(sim::Node&);
    struct Case {
        const char* what;
        Of server;
        void (*ask)(PacketUnit&);
        bool (*isDone)(PacketUnit&);
    };
    constexpr auto isStarted = [](PacketUnit& u) { return u.root() == ROOT_STARTED && u.control() == READY; };
    constexpr auto create = [](PacketUnit& u) {
        u.node.mainProcessor().createPacketRef(ethernetRef(0, 24));
        u.node.mainProcessor().createPacketRef(unicastRef(0));
    };
    constexpr auto isCreated = [](PacketUnit& u) { return u.created(0, 4) && u.created(0, 5); };
    constexpr auto forget = [](PacketUnit& u) { u.node.mainProcessor().deletePacketRef(0, 4); };
    // The driver forgets a froId as a whole: the other class is told again.
    constexpr auto isForgotten = [](PacketUnit& u) {
        const auto known = u.node.pktsyncDrv().syncrefs();
        return u.told(KVD_TUIIF_DELETE_PKT_REF_RO_CFM) == 1 && known.size() == 1 && known.contains({0, 1})
               && u.node.cfi().groups().empty();
    };
    constexpr auto move = [](PacketUnit& u) {
        u.node.mainProcessor().setPacketRef(unicastRef(0, {192, 168, 0, 77}));
    };
    constexpr auto isMoved = [](PacketUnit& u) {
        return u.node.pktsyncDrv().syncrefs().at({0, 1}).serverIpAddress[7] == 77;
    };
    constexpr auto anew = [](PacketUnit& u) {
        for (const Of of : {driverOf, framesOf}) of(u.node).die(), u.run(0.1), of(u.node).start();
    };
    constexpr Case CASES[] = {
        {"driver at the start", driverOf, nullptr, isStarted},
        {"frames at the start", framesOf, nullptr, isStarted},
        {"sockets at the start", socketsOf, nullptr, isStarted},
        {"driver, a creation", driverOf, create, isCreated},
        {"frames, a creation", framesOf, create, isCreated},
        {"driver, a change", driverOf, move, isMoved},
        {"driver, an end", driverOf, forget, isForgotten},
        {"frames, an end", framesOf, forget, isForgotten},
        {"driver, the chain anew", driverOf, anew, isCreated},
        {"sockets, the chain anew", socketsOf, anew, isCreated},
    };
    for (const Case& c : CASES) {
        SCOPED_TRACE(c.what);
        PacketUnit u;
        u.node.packetPort().config.address = {4, {192, 168, 0, 1}};
        if (c.ask != nullptr) {
            u.on();
            if (c.ask != create) create(u);
            u.run(1);
        }
        c.server(u.node).setMute(true);
        if (c.ask != nullptr) c.ask(u);
        else                  u.on();
        u.run(25);
        EXPECT_FALSE(c.isDone(u));
        c.server(u.node).setMute(false);
        u.run(10.5);
        EXPECT_TRUE(c.isDone(u));
        EXPECT_TRUE(isStarted(u));
        EXPECT_GE(u.traces("doesn't serve yet, it is asked again"), 2u);
        u.node.traces().clear();
        u.run(30);
        EXPECT_EQ(u.traces("it is asked again"), 0u);
    }
}

// References go with any of the services that they may stand on, and come back with it.
TEST(PacketServices, OneThatDiesBeginsTheChainAnew)
{
    for (const auto of : {driverOf, framesOf, socketsOf}) {
        PacketUnit u;
        u.node.mainProcessor().config.packetRefs = {ethernetRef(1, 24)};
        u.on();
        ASSERT_TRUE(u.created(1, 4));
        u.node.mainProcessor().clearLog();
        of(u.node).die();
        u.run(0.1);
        EXPECT_EQ(u.told(KVD_TUIIF_PKT_REF_RO_UNAVAILABLE_IND), 1u);
        EXPECT_EQ(u.control(), u32{REINIT});
        u.call([] { tuiif::state().ownPiuHwAddr_r.apn = 7; });
        of(u.node).start();
        u.run(1);
        EXPECT_EQ(u.control(), u32{READY});
        const auto* audit = u.node.mainProcessor().last(KVD_TUIIF_AUDIT_PKT_REF_RO_REQ);
        ASSERT_NE(audit, nullptr);
        EXPECT_EQ(audit->as<KvdTuiifAuditPktRefRoReq>()->apn, 7u);
    }
}

// Each is asked again before it has answered: the second answer finds nobody who waits for it.
TEST(PacketServices, SlowOnesAnswerTwiceAndNothingIsLost)
{
    PacketUnit u;
    for (const auto of : {driverOf, framesOf, socketsOf}) of(u.node).delay_ms = 12'000;
    u.node.packetPort().config.address = {4, {192, 168, 0, 1}};
    u.on(150);
    ASSERT_EQ(u.root(), u32{ROOT_STARTED});
    u.node.mainProcessor().createPacketRef(ethernetRef(7, 24));
    u.node.mainProcessor().createPacketRef(unicastRef(7));
    sim::MpPacketRef other = ethernetRef(8, 25);
    other.multicastAddress = 1;
    u.node.mainProcessor().createPacketRef(other);
    u.run(300);
    EXPECT_TRUE(u.created(7, 4) && u.created(7, 5) && u.created(8, 4));
    u.node.mainProcessor().deletePacketRef(7, 4);
    u.run(600);
    EXPECT_EQ(u.told(KVD_TUIIF_DELETE_PKT_REF_RO_CFM), 1u);
    EXPECT_TRUE(u.node.pktsyncDrv().syncrefs().contains({7, 1}));
    EXPECT_EQ(u.node.cfi().groups(), std::set<sim::MacAddress>{TUPKTSYNC_GROUP_MAC[1]});
    EXPECT_EQ(u.group(0).state, u32{GROUP_NONE});
    EXPECT_EQ(u.group(1).state, u32{GROUP_JOINED});
    EXPECT_GE(u.traces("which nobody waits for"), 3u);
}

void suspend(sim::Server& s, bool serves) { s.setAnswer(serves ? Answer::Accept : Answer::Suspend); }

// One that doesn't serve now may do so later: what it is needed for begins anew.
TEST(PacketServices, OneThatIsSuspendedBusyOrRefusesItsDeviceIsAskedAgain)
{
    struct Case { const char* what; void (*script)(sim::Node&, bool serves); };
    constexpr Case CASES[] = {
        {"driver", [](sim::Node& n, bool serves) { suspend(n.pktsyncDrv(), serves); }},
        {"frames", [](sim::Node& n, bool serves) { suspend(n.cfi(), serves); }},
        {"sockets", [](sim::Node& n, bool serves) { suspend(n.ipsocki(), serves); }},
        {"busy",
         [](sim::Node& n, bool serves) { n.ipsocki().setAnswer(serves ? Answer::Accept : Answer::Busy); }},
        {"device", [](sim::Node& n, bool serves) { n.cfi().attachResult = serves ? 0 : 7; }},
    };
    for (const Case& c : CASES) {
        SCOPED_TRACE(c.what);
        PacketUnit u;
        u.node.packetPort().config.address = {4, {192, 168, 0, 1}};
        u.node.mainProcessor().config.packetRefs = {ethernetRef(1, 24), unicastRef(2)};
        c.script(u.node, false);
        u.on(25);
        EXPECT_FALSE(u.created(1, 4) && u.created(2, 5));
        c.script(u.node, true);
        u.run(11);
        EXPECT_TRUE(u.created(1, 4) && u.created(2, 5));
    }
}

// ---- multicast groups -----------------------------------------------------------------------------

struct GroupUnit : PacketUnit {
    sim::MainProcessor& mp = node.mainProcessor();
    sim::CfiServer& cfi = node.cfi();
    GroupUnit() { on(); }
    void create(u32 froId, u8 group = 0)
    {
        sim::MpPacketRef ref = ethernetRef(froId, static_cast<u8>(froId));
        ref.multicastAddress = group;
        mp.createPacketRef(ref);
        run(0.1);
    }
    void remove(u32 froId) { mp.deletePacketRef(froId, 4), run(0.1); }
    void confirm() { cfi.confirmGroups(), run(0.1); }
    void expect(u32 state, u32 users, u32 i = 0)
    {
        EXPECT_EQ(std::pair(group(i).state, group(i).users), std::pair(state, users));
    }
    std::size_t deleted() { return told(KVD_TUIIF_DELETE_PKT_REF_RO_CFM); }
    u32 joins() { return cfi.received(CFI_JOIN_MULTICAST_REQ); }
    u32 leaves() { return cfi.received(CFI_LEAVE_MULTICAST_REQ); }
    bool isIn(u32 i) { return cfi.groups() == std::set<sim::MacAddress>{TUPKTSYNC_GROUP_MAC[i]}; }
};

TEST(PacketGroups, JoinsAndLeavesThatCross)
{
    GroupUnit u;
    u.cfi.confirmsGroups = false;
    u.create(1), u.expect(GROUP_JOIN_PENDING, 1);
    u.create(2), u.expect(GROUP_JOIN_PENDING, 2);
    EXPECT_EQ(u.joins(), 1u);
    EXPECT_FALSE(u.created(1, 4) || u.created(2, 4));
    u.confirm(), u.expect(GROUP_JOINED, 2);
    EXPECT_TRUE(u.created(1, 4) && u.created(2, 4) && u.isIn(0));

    u.remove(1), u.expect(GROUP_JOINED, 1);
    EXPECT_EQ(u.deleted(), 1u);
    u.remove(2), u.expect(GROUP_LEAVE_PENDING, 0);
    u.create(3), u.expect(GROUP_LEAVE_PENDING, 1);
    EXPECT_EQ(u.joins(), 1u);                        // it waits for the leave
    EXPECT_EQ(u.deleted(), 1u);
    u.confirm(), u.expect(GROUP_JOIN_PENDING, 1);
    EXPECT_EQ(u.deleted(), 2u);
    EXPECT_FALSE(u.created(3, 4));
    u.confirm(), u.expect(GROUP_JOINED, 1);
    EXPECT_TRUE(u.created(3, 4));
    u.remove(3), u.expect(GROUP_LEAVE_PENDING, 0);
    u.confirm(), u.expect(GROUP_NONE, 0);

    // A user whose driver goes while the join is asked for goes with its confirmation, and the group is left
    // once; another's join waits for that.
    u.node.pktsyncDrv().setMute(true);
    u.create(4, 1), u.expect(GROUP_JOIN_PENDING, 1, 1);
    u.node.pktsyncDrv().setMute(false);
    u.create(5), u.expect(GROUP_NONE, 1);
    u.inject(SIGSELECT{PKTSYNCDRV_INITIATE_SERVICE_REJ});
    u.confirm(), u.expect(GROUP_LEAVE_PENDING, 0, 1), u.expect(GROUP_NONE, 1);
    u.confirm(), u.expect(GROUP_NONE, 0, 1), u.expect(GROUP_JOIN_PENDING, 1);
    u.confirm();
    EXPECT_TRUE(u.created(5, 4) && u.isIn(0));

    // A user that goes before the join is confirmed, as there is no driver: the group is left once it is.
    u.create(6, 1), u.expect(GROUP_JOIN_PENDING, 0, 1);
    EXPECT_EQ(u.group(1).leaveNeeded, 1u);
    u.confirm(), u.expect(GROUP_LEAVE_PENDING, 0, 1);
    u.confirm(), u.expect(GROUP_NONE, 0, 1);
    EXPECT_TRUE(u.isIn(0));
    EXPECT_EQ(u.traces("MulticastReq failed"), 0u);
}

TEST(PacketGroups, OneRequestIsOutAtATime)
{
    GroupUnit u;
    u.cfi.confirmsGroups = false;
    u.create(1), u.create(2, 1);
    EXPECT_EQ(u.joins(), 1u);
    u.expect(GROUP_NONE, 1, 1);
    u.confirm();
    EXPECT_TRUE(u.created(1, 4) && !u.created(2, 4));
    EXPECT_EQ(u.joins(), 2u);
    u.confirm();
    EXPECT_TRUE(u.created(2, 4));
    // Both are to be left: the second waits, and stays after all when somebody comes for it.
    u.remove(1), u.remove(2);
    EXPECT_EQ(u.leaves(), 1u);
    EXPECT_EQ(u.group(1).state, u32{GROUP_JOINED});
    u.create(3, 1);
    EXPECT_TRUE(u.created(3, 4));
    EXPECT_EQ(u.deleted(), 0u);
    u.confirm();
    EXPECT_EQ(u.deleted(), 2u);
    EXPECT_EQ(u.leaves(), 1u);
    EXPECT_TRUE(u.isIn(1));
    // A refused request is answered too: it doesn't hold the next one up.
    u.remove(3), u.create(4);
    EXPECT_EQ(u.joins(), 2u);
    u.inject(CfiResultCfm{CFI_LEAVE_MULTICAST_CFM, 3, 6, 1}, u.cfi.pid());
    EXPECT_EQ(u.traces("TuPktsync_CFI_client: error result = 6\nin leave multicast cfm"), 1u);
    EXPECT_EQ(u.joins(), 3u);
}

TEST(PacketProcess, FollowsAMainProcessorThatDiedBeforeItsFirstConfirmation)
{
    PacketUnit u;
    auto& mp = u.node.mainProcessor();
    mp.config.packetRefs = {ethernetRef(1, 1)};
    mp.setAnswer(sim::Answer::Silent);
    u.on(5);
    mp.die();
    u.run(1);
    mp.setAnswer(sim::Answer::Accept);
    mp.start();
    u.run(5);
    EXPECT_EQ(u.control(), u32{READY});
    EXPECT_TRUE(u.created(1, 4));
}

TEST(PacketGroups, ARefusedJoinFailsTheReferenceAndTheNextAsksAgain)
{
    GroupUnit u;
    u.cfi.joinResult = 5;
    u.create(7);
    EXPECT_EQ(u.traces("TuPktsync_CFI_client: error result = 5\nin join multicast cfm"), 1u);
    u.expect(GROUP_JOIN_PENDING, 0);
    EXPECT_EQ(u.told(KVD_TUIIF_CREATE_PKT_REF_RO_CFM), 1u);
    EXPECT_FALSE(u.created(7, 4));
    EXPECT_TRUE(u.node.pktsyncDrv().syncrefs().empty());
    u.inject(CfiResultCfm{CFI_JOIN_MULTICAST_CFM, 3, 0, 0}, u.cfi.pid());   // of no request
    u.expect(GROUP_JOIN_PENDING, 0);
    // An audit ends, with what failed in its result.
    u.node.pktsyncDrv().die();
    u.run(1);
    u.node.pktsyncDrv().start();
    u.run(1);
    EXPECT_EQ(u.control(), u32{READY});
    EXPECT_FALSE(u.created(7, 4));
    u.cfi.joinResult = 0;
    u.create(7);
    EXPECT_TRUE(u.created(7, 4));
    // A leave that is refused holds nobody up either.
    u.cfi.leaveResult = 6;
    u.remove(7);
    EXPECT_EQ(u.traces("TuPktsync_CFI_client: error result = 6\nin leave multicast cfm"), 1u);
    EXPECT_EQ(u.group(0).state, u32{GROUP_LEAVE_PENDING});
    EXPECT_EQ(u.deleted(), 1u);
    u.create(8);
    EXPECT_TRUE(u.created(8, 4));
    EXPECT_EQ(u.group(0).state, u32{GROUP_JOINED});
}

TEST(PacketDriver, KnowsAReferenceByItsFroIdAndItsServer)
{
    PacketUnit u;
    u.on();
    auto& mp = u.node.mainProcessor();
    const auto driver = [&u] { return u.node.pktsyncDrv().syncrefs(); };
    u.node.packetPort().config.address = {4, {192, 168, 0, 1}};
    mp.createPacketRef(ethernetRef(7, 1));
    mp.createPacketRef(unicastRef(7));               // of the other class: another reference
    u.run(0.5);
    ASSERT_TRUE(u.created(7, 4) && u.created(7, 5));
    ASSERT_TRUE(driver().contains({7, 0}) && driver().contains({7, 1}));
    EXPECT_EQ(u.clock(1).setup.rqmt.freqClockClassG8265_1, (std::array<u8, 5>{80, 82, 84, 86, 90}));
    sim::MpPacketRef other = unicastRef(7, {192, 168, 0, 77});
    mp.setPacketRef(other);
    u.run(0.5);
    EXPECT_EQ(driver().at({7, 1}).serverIpAddress[7], 77);
    mp.deletePacketRef(7, 4);
    u.run(0.5);
    EXPECT_EQ(u.told(KVD_TUIIF_DELETE_PKT_REF_RO_CFM), 1u);
    EXPECT_FALSE(driver().contains({7, 0}));
    ASSERT_TRUE(driver().contains({7, 1}));          // it goes on to be stamped
    u.inject(PktsyncDrvCfm{PKTSYNCDRV_SETSYNCREF_CFM, 9}, u.node.pktsyncDrv().pid());
    EXPECT_EQ(u.traces("PKTSYNCDRV_SETSYNCREF_CFM for froId 9, which nobody waits for"), 1u);
}

// ---- sockets --------------------------------------------------------------------------------------

PktIpAddress ownAddress(u8 last) { return {4, {192, 168, 0, last}}; }

struct SocketUnit : PacketUnit {
    SocketUnit() { on(); }
    i32 open(const PktIpAddress& own, u32 kind)
    {
        node.packetPort().config.address = {own.family, own.octets};
        i32 resource = 0;
        call([&] { resource = TuPktsync_IPSOCKI_client_createSocketAndBind(own, kind); });
        return resource;
    }
    void close(i32 resource)
    {
        call([resource] { TuPktsync_IPSOCKI_client_removeResourceUser(resource); });
    }
};

TEST(PacketSockets, AreSharedByAddressAndPortAndClosedWithTheLastUser)
{
    SocketUnit u;
    EXPECT_EQ(u.open(ownAddress(1), SOCKET_EVENT), 0);
    EXPECT_EQ(u.open(ownAddress(1), SOCKET_GENERAL), 1);
    EXPECT_EQ(u.open(ownAddress(1), SOCKET_EVENT), 0);
    EXPECT_EQ(u.open(ownAddress(2), SOCKET_EVENT), 2);
    const PktIpAddress v6{6, {192, 168, 0, 1}};      // the same octets, another family
    EXPECT_EQ(u.open(v6, SOCKET_EVENT), 3);
    EXPECT_EQ(u.socket(3).addressFamily, IPSOCKI_AF_INET6);
    EXPECT_EQ(u.socket(0).users, 2u);
    EXPECT_EQ(u.node.ipsocki().sockets(), 4u);
    u.close(0);
    EXPECT_EQ(u.node.ipsocki().sockets(), 4u);
    u.close(0);
    EXPECT_EQ(u.node.ipsocki().sockets(), 3u);
    EXPECT_EQ(u.socket(0).state, u32{SOCKET_FREE});
    u.close(0);                                      // nobody's
    u.close(-1);
    u.close(16);
    for (u8 i = 0; i < 13; ++i)
        EXPECT_EQ(u.open(ownAddress(static_cast<u8>(10 + i)), SOCKET_EVENT), i == 0 ? 0 : 3 + i);
    EXPECT_EQ(u.open(ownAddress(99), SOCKET_EVENT), -1);
    EXPECT_EQ(u.traces("No free resource at \n TuPktsync_IPSOCKI_client_createSocketAndBind"), 1u);
    EXPECT_EQ(u.open(ownAddress(22), SOCKET_EVENT), 15);      // a shared one is to be had
    u.close(7);
    EXPECT_EQ(u.open(ownAddress(99), SOCKET_EVENT), 7);
}

TEST(PacketSockets, FailingCallsFreeThePlaceAndSayWhy)
{
    SocketUnit u;
    for (const u32 option : {TARSO_IPSOCKI_SO_REUSEADDR, TARSO_IPSOCKI_SO_SNDBUF, TARSO_IPSOCKI_SO_RCVBUF,
                             TARSO_IPSOCKI__IP_RECVSRCADDR, TARSO_IPSOCKI_SO_TIMESTAMPING_ZFB}) {
        SCOPED_TRACE(option);
        u.node.ipsocki().failingOption = option;
        EXPECT_EQ(u.open(ownAddress(1), SOCKET_EVENT), -1);
        EXPECT_EQ(u.node.ipsocki().sockets(), 0u);
    }
    EXPECT_EQ(u.traces("failed to set options for \nsocket identifier "), 5u);
    EXPECT_EQ(u.open(ownAddress(1), SOCKET_GENERAL), 0);      // stamps only on the event socket
    u.close(0);
    u.node.ipsocki().failingOption = 0;
    for (const i32 error : {i32{IPSOCKI_E_ADDRINUSE}, 50}) {
        u.node.ipsocki().bindError = error;
        EXPECT_EQ(u.open(ownAddress(1), SOCKET_EVENT), -1);
        EXPECT_EQ(u.node.ipsocki().sockets(), 0u);
    }
    EXPECT_EQ(u.traces("TarsoIpsocki_bind failed, address already in use \nipsockiResultCode="), 1u);
    u.node.ipsocki().bindError = 0;
    u.node.ipsocki().socketError = IPSOCKI_E_NOBUFS;
    EXPECT_EQ(u.open(ownAddress(1), SOCKET_EVENT), -1);
    u.node.ipsocki().socketError = 0;
    u.node.ipsocki().hostAvailable = false;
    EXPECT_EQ(u.open(ownAddress(1), SOCKET_EVENT), -2);
    u.node.ipsocki().hostAvailable = true;
    EXPECT_EQ(u.open(ownAddress(1), SOCKET_EVENT), 0);
    u.node.ipsocki().die();
    u.run(0.1);
    EXPECT_EQ(u.open(ownAddress(1), SOCKET_EVENT), -1);
}

TEST(PacketSockets, PayloadsClassOfServiceAndFailingSends)
{
    SocketUnit u;
    const i32 event = u.open(ownAddress(1), SOCKET_EVENT);
    const PktIpAddress server{4, {192, 168, 0, 9}};
    const auto send = [&](u8 dscp) {
        bool sent = false;
        u.call([&] {
            u8* const payload = TuPktsync_IPSOCKI_client_getPayloadPointer(event, 44, 0, nullptr, dscp);
            ASSERT_NE(payload, nullptr);
            std::fill_n(payload, 44, u8{0x5A});
            EXPECT_EQ(TuPktsync_IPSOCKI_client_getPayloadPointer(event, 44, 0, nullptr, dscp), nullptr);
            sent = TuPktsync_IPSOCKI_client_sendPayload(event, server) == 1;
            EXPECT_EQ(TuPktsync_IPSOCKI_client_sendPayload(event, server), 0u);
        });
        return sent;
    };
    const int id = u.socket(0).socketId;
    EXPECT_TRUE(send(46));
    EXPECT_EQ(u.node.ipsocki().tos(id), 184);
    ASSERT_EQ(u.sent.size(), 1u);
    EXPECT_EQ(u.sent[0].bytes, std::vector<u8>(44, 0x5A));
    EXPECT_EQ(u.sent[0].toPort, 319);
    EXPECT_EQ(u.sent[0].to.octets, server.octets);
    u.node.ipsocki().failingOption = TARSO_IPSOCKI_SO_IP_TOS;
    EXPECT_TRUE(send(46));                           // unchanged: not set again
    EXPECT_EQ(u.traces("Failed to set socket option\nTARSO_IPSOCKI_SO_IP_TOS"), 0u);
    EXPECT_TRUE(send(0));                            // a class that can't be had doesn't keep it
    u.node.ipsocki().failingOption = 0;
    EXPECT_TRUE(send(0));
    EXPECT_EQ(u.node.ipsocki().tos(id), 0);
    u.node.ipsocki().close(id);
    EXPECT_FALSE(send(0));                           // and the buffer is there for the next
    EXPECT_FALSE(send(0));
    u.call([] {
        EXPECT_EQ(TuPktsync_IPSOCKI_client_getPayloadPointer(0, 1473, 0, nullptr, 10), nullptr);
        EXPECT_EQ(TuPktsync_IPSOCKI_client_getPayloadPointer(77, 54, 0, nullptr, 10), nullptr);
        EXPECT_EQ(TuPktsync_IPSOCKI_client_sendPayload(77, {}), 0u);
    });
    u.node.ipsocki().die();
    u.run(0.1);
    u.call([] { EXPECT_EQ(TuPktsync_IPSOCKI_client_sendPayload(0, {}), 0u); });
}

TEST(PacketSockets, EachDatagramGivesItsCreditBack)
{
    struct Datagram { TarsoIpsockiFdReadData ind; u8 octets[64]; };
    Datagram good{};
    good.ind.sigNo = TARSO_IPSOCKI_FD_READ_DATA;
    good.ind.localPort = 320;
    good.ind.saFamily = IPSOCKI_AF_INET;
    good.ind.address = {192, 168, 0, 9};
    good.ind.length = 64;
    struct Case { void (*spoil)(Datagram&); const char* text; };
    constexpr Case CASES[] = {
        {[](Datagram& d) { d.ind.localPort = 321; }, "received for unknown port number (321)"},
        {[](Datagram& d) { d.ind.saFamily = 17; }, "senderAddress->sa_family 17 not v4 or v6"},
        {[](Datagram& d) { d.ind.length = 65; }, "Failed to access socket data\nresult = 7"},
        {[](Datagram& d) { d.ind.length = 0xFFFFFFFF; }, "Failed to access socket data\nresult = 7"},
        {[](Datagram& d) { d.ind.length = 0; }, "PTP received in too short frame, 0 bytes"},
        {[](Datagram& d) { d.ind.controlLevel = 0xFFFF; }, "get ControlData, unrecognised control data"},
        {[](Datagram& d) { d.ind.controlLevel = 0xFFFF, d.ind.controlType = 2048; }, "metadata received"},
        {[](Datagram& d) { d.ind.saFamily = IPSOCKI_AF_INET6; }, "unknown server IP address (c0a80009"},
        {[](Datagram&) {}, "unknown server IP address (192.168.0.9) and/or domainId (0)"},
    };
    PacketUnit u;
    u.on();
    const u32 credit = u.node.ipsocki().credit();
    EXPECT_EQ(credit, 25u);
    u32 given = 0;
    for (const Case& c : CASES) {
        SCOPED_TRACE(c.text);
        Datagram d = good;
        c.spoil(d);
        u.node.traces().clear();
        u.inject(d);
        EXPECT_EQ(u.traces(c.text), 1u);
        // Without a sender it isn't taken for a frame.
        EXPECT_EQ(u.traces("PTP message received for unknown domainId"), 0u);
        EXPECT_EQ(u.traces("unknown server IP address (0000"), 0u);
        EXPECT_EQ(u.node.ipsocki().credit(), credit + ++given);
    }
    // Credits that the service doesn't hear of come back with those for a while without a datagram.
    auto& service = u.node.ipsocki();
    u.node.packetPort().config.address = {4, {192, 168, 0, 1}};
    u.node.mainProcessor().createPacketRef(unicastRef(2));
    u.run(1);
    service.setMute(true);
    sim::NetPacket packet;
    packet.isFrame = false;
    packet.bytes.resize(64);
    packet.from = {4, {192, 168, 0, 9}};
    packet.to = {4, {192, 168, 0, 1}};
    packet.toPort = 319;
    while (service.credit() > 0) service.deliver(packet, {});
    u.run(30);
    EXPECT_EQ(service.credit(), 0u);
    service.setMute(false);
    for (u32 i = 0; i < 3; ++i) {
        u.inject(SIGSELECT{TARSO_IPSOCKI_SERVER_UP_IND});      // of a hunt before: nothing begins anew
        u.run(4);
    }
    EXPECT_EQ(service.credit(), 25u);
    u.node.ipsocki().die();
    u.run(0.1);
    u.inject(good);
    EXPECT_EQ(u.traces("Wrong state when receiving TARSO_IPSOCKI_FD_READ_DATA"), 1u);
}

}  // namespace
