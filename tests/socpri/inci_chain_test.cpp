// Three units in a chain, from process to process over the links between them: who provides the time goes
// along the chain and back.
#include "sig/tuiif_sig.h"
#include "tests/socpri/inci_bench.h"

#include <memory>

namespace {

using namespace bench;

constexpr u32 A = 0, B = 1, C = 2;

/// a - b - c; each knows its neighbours by the unit's name. The lower priority value wins.
struct Chain {
    ose::World world{1};
    std::vector<std::unique_ptr<InciUnit>> units;
    u8 clockState[3] = {KVD_TUIIF_RNT_TIME_LOCKED, KVD_TUIIF_RNT_TIME_LOCKED, KVD_TUIIF_FREQUENCY_HOLDOVER};

    Chain()
    {
        failOnMisuse(world);
        for (u32 i = 0; i < 3; ++i)
            units.push_back(std::make_unique<InciUnit>(
                world, std::string(1, static_cast<char>('a' + i)), i + 1, true,
                sim::SyncGroupConfig{true, 0x100 + i, static_cast<u16>(10 * (i + 1)), 500}));
        join(A, B);
        join(B, C);
        for (auto& u : units) u->start();
        run(0.1);
        for (const auto& [near, far] : {std::pair(A, B), std::pair(B, A), std::pair(B, C), std::pair(C, B)})
            at(near).establish(at(far).node.name(), static_cast<u8>(far), 100 + far);
    }
    InciUnit& at(u32 i) { return *units[i]; }
    void join(u32 i, u32 j)
    {
        world.link(at(i).node.system(), at(j).node.name(), at(j).node.system());
        world.link(at(j).node.system(), at(i).node.name(), at(i).node.system());
    }
    /// The managers answer for their clocks, which is all they do here.
    void run(double seconds)
    {
        for (double t = 0; t < seconds; t += 0.1) {
            for (u32 i = 0; i < 3; ++i) {
                if (at(i).process() == 0) continue;
                at(i).order(KvdTuSocpriInciGetTimeDataRsp{KVD_TUSOCPRI_INCI_GET_TIME_DATA_RSP, 40 + i, 3,
                                                          99, 0, clockState[i], 0, 1});
            }
            world.runFor(100 * ose::MS);
        }
    }
    /// Priority and hops of a unit's provider, {0, 0} for none.
    std::pair<u32, u32> provider(u32 i)
    {
        const auto p = at(i).node.ngpduhif().provider();
        return p ? std::pair<u32, u32>{p->priority, p->hops} : std::pair<u32, u32>{0, 0};
    }
};
using Offer = std::pair<u32, u32>;

TEST(InciChain, AllFollowTheBestUnitAndItsTimeComesAlong)
{
    Chain chain;
    chain.run(5.0);
    for (u32 i = 0; i < 3; ++i) {
        EXPECT_EQ(chain.provider(i), (Offer{10, i})) << i;
        EXPECT_EQ(chain.at(i).responses(), i == B ? 2u : 1u);
        EXPECT_EQ(chain.at(i).response().result, 1u);
        EXPECT_EQ(chain.at(i).node.ngpduhif().served().size(), i == B ? 2u : 1u);
    }
    const KvdNgpduhifReceiveBcmDataInd& heard = chain.at(C).node.ngpduhif().lastBcm();
    EXPECT_EQ(heard.ngsmNodeIdentifier, 0x101u);
    EXPECT_EQ(heard.syncProviderNodePriority, 10u);
    EXPECT_EQ(heard.syncNodePriority, 20u);
    EXPECT_EQ(heard.lockedTo, 0x100u);
    EXPECT_EQ(heard.syncProviderSyncState, 7u);          // RNT time locked, as others know it
    EXPECT_EQ(heard.esfc, 40u);
    EXPECT_EQ(heard.mfn, 3u);
    EXPECT_EQ(heard.dataRTOSeconds, 0u);
    EXPECT_EQ(heard.hopCounter, 1u);
    EXPECT_EQ(heard.sharedId, 101u);
    EXPECT_EQ(heard.riPortNo, B);
    EXPECT_EQ(heard.apn, 3u);
}

TEST(InciChain, WithoutTheBestTheNextOneProvidesAndItsReturnIsHeard)
{
    Chain chain;
    chain.run(5.0);
    chain.at(A).kill();                          // the process, as its manager orders it
    chain.run(20.0);                             // what b and c still tell each other runs out of hops
    EXPECT_EQ(chain.provider(B), (Offer{20, 0}));
    EXPECT_EQ(chain.provider(C), (Offer{20, 1}));
    chain.at(A).start();
    chain.run(0.1);
    chain.at(A).establish("b", 1, 101);
    chain.run(5.0);
    for (u32 i = 0; i < 3; ++i) EXPECT_EQ(chain.provider(i), (Offer{10, i})) << i;
    EXPECT_EQ(chain.at(B).responses(), 3u);      // a's return
    EXPECT_EQ(chain.at(B).response().result, 1u);

    chain.clockState[A] = KVD_TUIIF_FREQUENCY_HOLDOVER;
    chain.run(20.0);
    EXPECT_EQ(chain.provider(A), (Offer{20, 1}));
}

TEST(InciChain, AMiddleUnitThatIsGoneSplitsItAndItsConnectionsAreDropped)
{
    Chain chain;
    chain.run(5.0);
    chain.at(B).node.kill();
    chain.run(10.0);
    EXPECT_EQ(chain.provider(A), (Offer{10, 0}));
    EXPECT_EQ(chain.provider(C), (Offer{0, 0}));         // not locked itself
    for (const u32 i : {A, C}) {
        EXPECT_TRUE(chain.at(i).node.ngpduhif().served().empty());
        EXPECT_EQ(chain.at(i).node.ngpduhif().clientReleases().size(), 1u);
        EXPECT_NE(chain.at(i).command("kvdngpduh inci_if").find("INCI_INITIATING"), std::string::npos);
    }
}

TEST(InciChain, BroadcastsThatAreLostOnTheWayAgeTheOffer)
{
    Chain chain;
    chain.run(5.0);
    chain.at(C).node.system().faults().loseSignal = [](const std::string&, const std::string&, SIGSELECT n) {
        return n == PSX_IW_NGSC_INCI_BROADCAST_MESSAGE2_IND;
    };
    chain.run(1.0);
    EXPECT_EQ(chain.provider(C), (Offer{10, 2}));
    chain.run(2.0);
    EXPECT_EQ(chain.provider(C), (Offer{0, 0}));
    chain.at(C).node.system().faults().loseSignal = nullptr;
    chain.run(1.0);
    EXPECT_EQ(chain.provider(C), (Offer{10, 2}));
}

}  // namespace
