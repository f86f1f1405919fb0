// The server's side: which clients it takes, what they are sent, and what the sync group hears of them.
#include "socpri/kvd_socpri_inci_server.h"
#include "tests/socpri/inci_bench.h"

namespace {

using namespace bench;

struct ServerBench : InciBench {
    ServerBench() : InciBench(1) { peer.start(); }
    struct Answer {
        SIGSELECT sigNo = 0;
        u32 procedureRef = 0, connectionRef = 0, word = 0;   // revision or error code
        u32 size = 0;
    };
    /// The newest signal to the client.
    Answer answer() const
    {
        if (peer.inbox.taken.empty()) return {};
        const std::vector<std::byte>& bytes = peer.inbox.taken.back().bytes;
        u32 words[4] = {};
        std::memcpy(words, bytes.data(), std::min(bytes.size(), sizeof words));
        return {words[0], words[1], words[2], words[3], static_cast<u32>(bytes.size())};
    }
    Answer connect(const std::vector<u32>& revisions, u32 connectionRef = 0x22, u32 procedureRef = 0x11,
                   std::optional<u32> count = {})
    {
        std::vector<u32> words{PSX_IW_NGSC_INCI_CONN_ESTABLISH_REQ, procedureRef, connectionRef,
                               count.value_or(static_cast<u32>(revisions.size()))};
        words.insert(words.end(), revisions.begin(), revisions.end());
        peer.sendBytes(std::as_bytes(std::span(words)));
        return answer();
    }
    Answer subscribe(u32 serverRef)
    {
        peer.send(InciRefs{PSX_IW_NGSC_INCI_SUBSCRIBE_NGSM_BCM_REQ, 0x22, serverRef});
        return answer();
    }
    Answer release(u32 serverRef)
    {
        peer.send(InciRefs{PSX_IW_NGSC_INCI_CONN_RELEASE_REQ, 0x22, serverRef});
        return answer();
    }
    void sendBcm(u32 serverRef, u32 valid = 1)
    {
        KvdNgpduhifSendBcmDataInd data{};
        data.serverConnectionRef = serverRef;
        data.dataValid = valid;
        group().sendBcm(data);
        run(0.001);
    }
};

TEST(InciServer, TakesTheHighestRevisionOfItsOwn)
{
    struct Case { std::vector<u32> revisions; std::optional<u32> count; u32 selected; };   // 0: rejected
    for (const Case& c : std::to_array<Case>({{{1, 3}, {}, 1},
                                              {{2, 1}, {}, 2},
                                              {{0, 3}, {}, 0},
                                              {{}, {}, 0},
                                              {{1}, 0xFFFFFFFF, 1},      // more said than held
                                              {{1, 2}, 1, 1}})) {
        SCOPED_TRACE(testing::PrintToString(c.revisions));
        ServerBench b;
        const auto a = b.connect(c.revisions, 0x22, 0x11, c.count);
        EXPECT_EQ(a.size, 16u);
        if (c.selected == 0) {
            EXPECT_EQ(a.sigNo, PSX_IW_NGSC_INCI_CONN_ESTABLISH_REJ);
            EXPECT_EQ(a.connectionRef, 0u);
            EXPECT_EQ(a.word & 0xFF, 1u);
            continue;
        }
        EXPECT_EQ(a.sigNo, PSX_IW_NGSC_INCI_CONN_ESTABLISH_CFM);
        EXPECT_EQ(a.procedureRef, c.selected == 1 ? 0x22u : 0x11u);
        EXPECT_EQ(a.word, c.selected);
        b.subscribe(a.connectionRef);
        b.sendBcm(a.connectionRef);
        EXPECT_EQ(b.answer().sigNo, c.selected == 1 ? PSX_IW_NGSC_INCI_BROADCAST_MESSAGE_IND
                                                    : PSX_IW_NGSC_INCI_BROADCAST_MESSAGE2_IND);
        EXPECT_EQ(b.answer().procedureRef, a.connectionRef);
        EXPECT_EQ(b.answer().connectionRef, 0x22u);
        EXPECT_EQ(b.answer().word, b.group().nodeIdentifier());
    }
}

TEST(InciServer, AClientThatAsksAgainKeepsItsReferenceAndChangesItsRevision)
{
    ServerBench b;
    const u32 ref = b.connect({1, 2}).connectionRef;
    EXPECT_EQ(b.connect({1}).connectionRef, ref);
    EXPECT_EQ(b.unit.traces("INCI client already connected"), 1u);
    b.sendBcm(ref);
    EXPECT_EQ(b.answer().sigNo, PSX_IW_NGSC_INCI_BROADCAST_MESSAGE_IND);
    EXPECT_NE(b.connect({1}, 0x23).connectionRef, ref);
}

TEST(InciServer, TheTableHolds64)
{
    ServerBench b;
    std::vector<u32> refs;
    for (u32 i = 0; i < INCI_SERVER_RECORDS; ++i) refs.push_back(b.connect({2}, 1000 + i).connectionRef);
    const auto a = b.connect({2}, 2000);
    EXPECT_EQ(a.sigNo, PSX_IW_NGSC_INCI_CONN_ESTABLISH_CFM);
    EXPECT_EQ(a.connectionRef, 0u);
    EXPECT_EQ(b.unit.traces("Unable to add INCI client 0x"), 1u);
    EXPECT_EQ(b.connect({3}, 2000).word & 0xFF, 3u);
    EXPECT_EQ(b.unit.traces("Rejecting INCI conn establish: Too many clients"), 1u);
    EXPECT_EQ(b.connect({2}, 1063).connectionRef, refs[63]);
    const auto subscription = b.subscribe(0);
    EXPECT_EQ(subscription.sigNo, PSX_IW_NGSC_INCI_SUBSCRIBE_NGSM_BCM_REJ);
    EXPECT_EQ(subscription.procedureRef, 0x22u);
    EXPECT_EQ(subscription.connectionRef, 0x22u);
    EXPECT_EQ(subscription.word & 0xFF, 2u);
    EXPECT_EQ(subscription.size, 16u);

    b.release(refs[17]);
    EXPECT_EQ(b.connect({3}, 2000).word & 0xFF, 1u);
    EXPECT_NE(b.connect({2}, 2000).connectionRef, 0u);
    const std::string shown = b.unit.command("kvdngpduh inci_if");
    EXPECT_NE(shown.find("connected clients : 64"), std::string::npos);
    EXPECT_NE(shown.find("clientConnectionRef : 0x7d0"), std::string::npos);
}

TEST(InciServer, SubscriptionAndReleaseReachTheSyncGroup)
{
    ServerBench b;
    const u32 ref = b.connect({2}).connectionRef;
    EXPECT_TRUE(b.group().served().empty());
    const auto cfm = b.subscribe(ref);
    EXPECT_EQ(cfm.sigNo, PSX_IW_NGSC_INCI_SUBSCRIBE_NGSM_BCM_CFM);
    EXPECT_EQ(cfm.size, 12u);
    EXPECT_EQ(cfm.procedureRef, 0x22u);
    EXPECT_EQ(cfm.connectionRef, 0x22u);
    EXPECT_EQ(b.group().served(), std::vector<u32>{ref});
    EXPECT_NE(b.unit.command("kvdngpduh inci_if").find("inciSubscription    : 1\n"), std::string::npos);

    const std::size_t before = b.peer.inbox.taken.size();
    b.sendBcm(ref, 0);
    EXPECT_EQ(b.peer.inbox.taken.size(), before);
    EXPECT_EQ(b.unit.traces("can not send broadcast indication"), 0u);
    b.sendBcm(ref + 1);
    EXPECT_EQ(b.unit.traces("not connected to INCI can not send broadcast indication"), 1u);

    EXPECT_EQ(b.release(ref).sigNo, PSX_IW_NGSC_INCI_CONN_RELEASE_CFM);
    EXPECT_EQ(b.answer().connectionRef, 0x22u);
    EXPECT_TRUE(b.group().served().empty());
    const std::size_t released = b.peer.inbox.taken.size();
    b.release(ref);
    EXPECT_EQ(b.peer.inbox.taken.size(), released);
    EXPECT_EQ(b.unit.traces("not connected to INCI client release not possible"), 1u);
    b.peer.die();                                // nobody is attached any more
    b.run(0.1);
    EXPECT_EQ(b.group().received(KVD_NGPDUHIF_SERVER_CONN_RELEASE_REQ), 1u);
}

TEST(InciServer, AClientThatDiesFreesItsPlaces)
{
    ServerBench b;
    for (const u32 client : {1u, 2u}) b.subscribe(b.connect({2}, client).connectionRef);
    EXPECT_EQ(b.group().served().size(), 2u);
    b.peer.die();
    b.run(0.1);
    EXPECT_TRUE(b.group().served().empty());
    EXPECT_NE(b.unit.command("kvdngpduh inci_if").find("connected clients : 0"), std::string::npos);
    b.unit.order(InciServerInd{NGSC_INCI_CLIENT_DOWN_IND, 0x99});
    EXPECT_EQ(b.unit.traces("with serverConnectionRef 0x99 not connected to INCI"), 1u);
}

// Each step that the sync group should hear of says so when nobody is there.
TEST(InciServer, GoesOnWithoutTheSyncGroup)
{
    constexpr const char* FAILURES[] = {"Failed to request Broadcast message indications",
                                        "Failed to request INCI server connection release"};
    for (const bool isThere : {true, false}) {
        SCOPED_TRACE(isThere);
        ServerBench b;
        if (!isThere) b.group().die();
        b.run(0.1);
        const u32 ref = b.connect({2}).connectionRef;
        EXPECT_EQ(b.subscribe(ref).sigNo, PSX_IW_NGSC_INCI_SUBSCRIBE_NGSM_BCM_CFM);
        EXPECT_EQ(b.release(ref).sigNo, PSX_IW_NGSC_INCI_CONN_RELEASE_CFM);
        b.connect({2});
        b.peer.die();
        b.run(0.1);
        EXPECT_EQ(b.unit.traces(FAILURES[0]), isThere ? 0u : 1u);
        EXPECT_EQ(b.unit.traces(FAILURES[1]), isThere ? 0u : 2u);
    }
}

TEST(InciServer, ShortSignalsAreTracedAndTheNextGoodOneIsTaken)
{
    ServerBench b;
    for (u32 n = PSX_IW_NGSC_INCI_CONN_ESTABLISH_REQ; n <= PSX_IW_NGSC_INCI_BROADCAST_MESSAGE2_IND; ++n)
        b.peer.send(SIGSELECT{n});
    for (u32 n = 0x9C6D7; n <= 0x9C6FB; ++n) b.peer.send(SIGSELECT{n});
    EXPECT_GT(b.unit.traces("ignored, too short"), 15u);
    EXPECT_NE(b.connect({2}).connectionRef, 0u);
}

}  // namespace
