// The client's side: connections to other units, made, reported, lost and given back.
#include "socpri/kvd_socpri_inci_client.h"
#include "tests/socpri/inci_bench.h"

namespace {

using namespace bench;

/// Result, port, shared id, subsumed unit and whether that is known.
using Answered = std::array<u32, 5>;

struct ClientBench : InciBench {
    using InciBench::InciBench;

    Answered answered() const
    {
        const KvdTuSocpriInciEstablishRsp r = unit.response();
        return {r.result, r.cpriPortNo, r.sharedId, r.subsumedUnitId, r.subsumedIdValid};
    }

    /// Of the newest connection request.
    u32 clientRef() const
    {
        for (auto t = peer.inbox.taken.rbegin(); t != peer.inbox.taken.rend(); ++t) {
            if (t->sigNo() != PSX_IW_NGSC_INCI_CONN_ESTABLISH_REQ) continue;
            u32 ref;
            std::memcpy(&ref, &t->bytes[8], sizeof ref);
            return ref;
        }
        ADD_FAILURE() << "no connection was asked for";
        return 0;
    }
    void confirm(u32 clientRef, u32 serverRef = 0x77)
    {
        peer.send(InciConnEstablishCfm{PSX_IW_NGSC_INCI_CONN_ESTABLISH_CFM, clientRef, serverRef, 2});
    }
    void reject(u32 clientRef) { peer.send(InciRej{PSX_IW_NGSC_INCI_CONN_ESTABLISH_REJ, clientRef, 0, 1}); }
    template <typename Message = InciBroadcastMessage2Ind>
    void broadcast(u32 clientRef, SIGSELECT sigNo = PSX_IW_NGSC_INCI_BROADCAST_MESSAGE2_IND)
    {
        Message ind{};
        ind.sigNo = sigNo;
        ind.procedureRef = 0x77;
        ind.connectionRef = clientRef;
        peer.send(ind);
    }
    /// As far as the first broadcast.
    u32 establishWithPeer(u32 sharedId = 5)
    {
        peer.start();
        unit.establish("peer", 3, sharedId);
        const u32 ref = clientRef();
        confirm(ref);
        broadcast(ref);
        return ref;
    }
};

TEST(InciClient, ConnectsSubscribesAndIsEstablishedAtTheFirstBroadcast)
{
    ClientBench b;
    b.unit.establish("peer", 3, 5, 9);
    b.run(0.5);
    b.peer.start();                              // the hunt waits for it
    const auto* req = reinterpret_cast<const u32*>(b.peer.inbox.taken.at(0).bytes.data());
    ASSERT_EQ(b.peer.inbox.taken[0].bytes.size(), 24u);
    // Seeded by the node's identifier, which is the unit's number here: hash("1234", 1).
    EXPECT_EQ(std::vector<u32>(req, req + 6), (std::vector<u32>{0x1700300, 0xb80843d4, 0xb80843d4, 2, 1, 2}));
    const u32 ref = b.clientRef();
    b.confirm(ref);
    const auto subscribe = b.peer.inbox.last<InciRefs>(PSX_IW_NGSC_INCI_SUBSCRIBE_NGSM_BCM_REQ);
    ASSERT_TRUE(subscribe.has_value());
    EXPECT_EQ(subscribe->procedureRef, ref);
    EXPECT_EQ(subscribe->connectionRef, 0x77u);
    EXPECT_EQ(b.unit.responses(), 0u);

    b.broadcast(ref), b.broadcast<InciBroadcastMessageInd>(ref, PSX_IW_NGSC_INCI_BROADCAST_MESSAGE_IND);
    ASSERT_EQ(b.unit.responses(), 1u);
    EXPECT_EQ(b.answered(), (Answered{1, 3, 5, 9, 0}));      // no client of unit 9
    const auto& bcm = b.group().lastBcm();
    EXPECT_EQ(std::tuple(bcm.riPortNo, bcm.sharedId, bcm.connectionRef), std::tuple(3u, 5u, ref));
    EXPECT_EQ(b.group().received(KVD_NGPDUHIF_RECEIVE_BCM_DATA_IND), 2u);
    b.run(2.0);
    EXPECT_EQ(b.unit.responses(), 1u);           // the timer was stopped
    b.group().die();
    b.run(0.1);
    b.broadcast(ref);
    EXPECT_EQ(b.unit.traces("NGPDUHIF server not available"), 2u);       // by who sends, and who wanted it
}

TEST(InciClient, AnswersThatAreMissingLateTwiceOrRejections)
{
    using B = ClientBench;
    struct Case {
        const char* when;
        void (*early)(B&, u32 ref);              // before the timer ends
        void (*late)(B&, u32 ref);
        std::vector<u32> results;
    };
    constexpr auto NOTHING = [](B&, u32) {};
    for (const Case& c : std::to_array<Case>({
             {"never", NOTHING, NOTHING, {0}},
             {"confirmed, never a broadcast", [](B& b, u32 r) { b.confirm(r); }, NOTHING, {0}},
             {"all of it late", NOTHING, [](B& b, u32 r) { b.confirm(r), b.broadcast(r); }, {0, 1}},
             {"confirmed twice",
              [](B& b, u32 r) { b.confirm(r), b.confirm(r), b.broadcast(r); }, NOTHING, {1}},
             {"broadcast first", [](B& b, u32 r) { b.broadcast(r), b.confirm(r); }, NOTHING, {1}},
             {"rejected", [](B& b, u32 r) { b.reject(r); }, NOTHING, {0}},
             {"rejected, then confirmed after all",
              [](B&b, u32 r) { b.reject(r), b.confirm(r); },
              [](B&b, u32) { EXPECT_EQ(b.peer.inbox.count(PSX_IW_NGSC_INCI_SUBSCRIBE_NGSM_BCM_REQ), 0u); },
              {0}},
             {"confirmed, then rejected",
              [](B& b, u32 r) { b.confirm(r), b.reject(r), b.broadcast(r); },
              [](B& b, u32 r) {
                  b.peer.die(), b.run(0.1), b.peer.start();          // it is supervised still
                  b.confirm(r), b.broadcast(r);
              },
              {1, 1}},
             {"for nobody", [](B& b, u32) { b.confirm(1), b.broadcast(1), b.confirm(0), b.broadcast(0); },
              NOTHING, {0}},
             {"too short, then good",
              [](B& b, u32 r) {
                  b.peer.send(InciConnEstablishCfm{PSX_IW_NGSC_INCI_CONN_ESTABLISH_CFM, r, 0x77, 2}, 12);
                  EXPECT_EQ(b.peer.inbox.count(PSX_IW_NGSC_INCI_SUBSCRIBE_NGSM_BCM_REQ), 0u);
                  b.confirm(r), b.broadcast(r);
              },
              NOTHING, {1}},
         })) {
        SCOPED_TRACE(c.when);
        ClientBench b;
        b.peer.start();
        const ose::Time asked = b.world.now();
        b.unit.establish("peer", 3, 5);
        const u32 ref = b.clientRef();
        c.early(b, ref);
        b.world.runUntil(asked + 999 * ose::MS);
        EXPECT_EQ(b.unit.responses(), c.results[0]);
        b.run(0.001);
        EXPECT_EQ(b.unit.responses(), 1u);
        c.late(b, ref);
        EXPECT_EQ(b.unit.responses(), c.results.size());
        EXPECT_EQ(b.unit.response().result, c.results.back());
    }
}

TEST(InciClient, AKnownPathGetsItsNewIdsAndTheTimerButNoNewHunt)
{
    ClientBench b;
    b.establishWithPeer(5);
    b.unit.establish("peer", 4, 0, 5);           // a unit of number 0 is a unit
    b.unit.establish("peer", 4, 6, 5);
    EXPECT_EQ(b.unit.traces("INCI client already added"), 2u);
    EXPECT_EQ(b.unit.traces("INCI establishment request tmo already started."), 1u);
    EXPECT_EQ(b.peer.inbox.count(PSX_IW_NGSC_INCI_CONN_ESTABLISH_REQ), 1u);
    b.run(1.1);
    ASSERT_EQ(b.unit.responses(), 2u);
    EXPECT_EQ(b.answered(), (Answered{0, 3, 6, 5, 0}));
}

TEST(InciClient, ASubsumedUnitIsToldOfAndRemovedWithoutAWordToThePeer)
{
    ClientBench b;
    const u32 old = b.establishWithPeer(5);
    Peer other(b.world, b.unit.node, "other");
    b.unit.establish("other", 2, 6, 5);          // not there yet
    b.run(1.1);
    EXPECT_EQ(b.unit.response().subsumedIdValid, 1u);
    b.unit.release(5, 1);
    EXPECT_EQ(b.peer.inbox.count(PSX_IW_NGSC_INCI_CONN_RELEASE_REQ), 0u);
    EXPECT_EQ(b.unit.manager.count(KVD_TUSOCPRI_INCI_RELEASE_RSP), 0u);
    b.broadcast(old);
    EXPECT_EQ(b.unit.traces("Broadcast ind received for non-existing INCI client"), 1u);
    b.peer.die();                                // nobody is attached any more
    b.unit.release(5, 1);
    EXPECT_EQ(b.unit.traces("Tried to remove non existing client."), 1u);

    b.unit.release(6, 1);                        // while it is hunted for
    other.start();
    EXPECT_EQ(other.inbox.taken.size(), 0u);
    EXPECT_EQ(b.unit.traces("Server up received for old INCI client which does not exist"), 1u);
    b.unit.order(InciClientInd{PSX_IW_NGSC_INCI_SERVER_UP_IND, 0});
    b.unit.order(InciClientInd{PSX_IW_NGSC_INCI_SERVER_UP_IND, old});
    b.unit.order(InciClientInd{PSX_IW_NGSC_INCI_SERVER_UP_IND, old});        // told once
    EXPECT_EQ(b.unit.traces("Server up received for old INCI client which does not exist"), 2u);
    EXPECT_EQ(b.unit.node.traces().count({"Server up received for non-existing INCI client", "", 1}), 2u);
}

TEST(InciClient, TheTableHolds64AndAFreedPlaceIsTakenAgain)
{
    ClientBench b{3};
    for (u32 unit = 0; unit < INCI_CLIENTS; ++unit)
        b.unit.establish("nobody/" + std::to_string(unit), 1, unit);
    EXPECT_EQ(b.unit.responses(), 0u);
    b.unit.establish("nobody/64", 1, 64);
    EXPECT_EQ(b.unit.node.traces().count(
                  {"Unable to add INCI client, maximum client number exceeded, apn = 3.", "", 1}),
              1u);
    ASSERT_EQ(b.unit.responses(), 1u);
    EXPECT_EQ(b.answered(), (Answered{0, 1, 64, INCI_NO_UNIT, 0}));
    b.run(1.1);
    EXPECT_EQ(b.unit.responses(), 65u);          // each timer by itself

    for (const u32 unit : {40u, 41u}) b.unit.release(unit, 1);
    b.unit.establish("peer", 2, 64);
    b.unit.establish(std::string(INCI_PATH_SIZE, 'x'), 2, 66);
    b.peer.start();
    EXPECT_EQ(b.peer.inbox.count(PSX_IW_NGSC_INCI_CONN_ESTABLISH_REQ), 1u);
    const std::string shown = b.unit.command("kvdngpduh inci_if");
    EXPECT_NE(shown.find("client[40]  peer/PsxIwNgscInciServer"), std::string::npos);
    EXPECT_NE(shown.find("client[41]  " + std::string(INCI_PATH_SIZE - 1, 'x') + "\n"), std::string::npos);
    b.unit.establish("nobody/65", 1, 65);
    EXPECT_EQ(b.unit.response().sharedId, 65u);
}

TEST(InciClient, ReleaseAsksThePeerAndEndsWithItsConfirmation)
{
    ClientBench b;
    const auto result = [&] {
        return b.unit.manager.last<KvdTuSocpriInciReleaseRsp>(KVD_TUSOCPRI_INCI_RELEASE_RSP)->result;
    };
    b.unit.release(5, 0);
    EXPECT_EQ(result(), 0u);                     // no such client
    b.unit.establish("nobody", 1, 4);
    b.unit.release(4, 0);
    EXPECT_EQ(result(), 0u);                     // not connected; its timer is stopped
    b.run(1.1);
    EXPECT_EQ(b.unit.responses(), 0u);

    const u32 ref = b.establishWithPeer(5);
    b.peer.send(InciRefs{PSX_IW_NGSC_INCI_CONN_RELEASE_CFM, ref, 0});
    EXPECT_EQ(b.unit.traces("Failed to release INCI client!"), 1u);
    b.unit.release(5, 0);
    EXPECT_EQ(result(), 1u);
    const auto req = b.peer.inbox.last<InciRefs>(PSX_IW_NGSC_INCI_CONN_RELEASE_REQ);
    ASSERT_TRUE(req.has_value());
    EXPECT_EQ(req->procedureRef, ref);
    EXPECT_EQ(req->connectionRef, 0x77u);
    b.peer.send(InciRefs{PSX_IW_NGSC_INCI_CONN_RELEASE_CFM, ref, ref});
    EXPECT_EQ(b.group().clientReleases(), std::vector<u32>{ref});
    b.peer.send(InciRefs{PSX_IW_NGSC_INCI_CONN_RELEASE_CFM, ref, ref});
    EXPECT_EQ(b.unit.traces("Failed to release INCI client!"), 2u);
    b.broadcast(ref);
    EXPECT_EQ(b.group().received(KVD_NGPDUHIF_RECEIVE_BCM_DATA_IND), 1u);
}

// The path is named again while the peer is asked to give the connection back.
TEST(InciClient, OneThatIsReleasedAndWantedAgainIsMadeAnew)
{
    for (const bool confirmed : {true, false}) {
        SCOPED_TRACE(confirmed);
        ClientBench b;
        const u32 ref = b.establishWithPeer();
        b.unit.release(5, 0);
        b.unit.establish("peer", 3, 5);
        if (confirmed) b.peer.send(InciRefs{PSX_IW_NGSC_INCI_CONN_RELEASE_CFM, ref, ref});
        else           b.run(1.1);               // a peer that has forgotten it doesn't answer
        ASSERT_EQ(b.peer.inbox.count(PSX_IW_NGSC_INCI_CONN_ESTABLISH_REQ), 2u);
        EXPECT_EQ(b.group().clientReleases(), std::vector<u32>{ref});
        EXPECT_NE(b.clientRef(), ref);
        b.confirm(b.clientRef()), b.broadcast(b.clientRef());
        b.run(1.1);
        EXPECT_EQ(b.unit.traces("Failed to send KVD_TUSOCPRI_INCI_ESTABLISH_RSP"), 0u);
        EXPECT_EQ(b.unit.responses(), confirmed ? 2u : 3u);
        EXPECT_EQ(b.unit.response().result, 1u);
    }
}

TEST(InciClient, APeerThatDiesIsHuntedForAndReportedAnew)
{
    ClientBench b;
    const u32 ref = b.establishWithPeer();
    for (u32 life = 1; life <= 2; ++life) {
        b.unit.release(5, 0);                    // it dies before it confirms
        b.peer.die();
        b.unit.establish("peer", 3, 5);          // named again: its time runs out, nothing follows
        b.run(3.0);
        EXPECT_EQ(b.group().clientReleases(), std::vector<u32>(life, ref));
        b.peer.start();
        EXPECT_EQ(b.clientRef(), ref);
        b.confirm(ref, 0x78);
        b.broadcast(ref);
        EXPECT_EQ(b.unit.responses(), 2 * life + 1);
        EXPECT_EQ(b.unit.response().result, 1u);
    }
}

}  // namespace
