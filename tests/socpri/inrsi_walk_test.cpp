// Orders, faults, restarts and changes of role in any order: once they are over the master's client is at
// work or idle, holds nothing over for longer than its five minutes, and takes the next orders as on its
// first day.
#include "mp/kvd_iifadm.h"
#include "tests/socpri/socpri_bench.h"

#include <random>

namespace {

using namespace bench;
using sim::InrsiFrequency;
using sim::InrsiPhase;

struct Walk : SocpriUnit {
    std::mt19937 draws;

    explicit Walk(u32 seed) : SocpriUnit(MASTER), draws(seed)
    {
        get([] { node::traceSetProgramMask(0); });
        allIsWell();
    }
    u32  draw(u32 n) { return static_cast<u32>(draws() % n); }
    u8   somePort() { return draw(2) != 0 ? 1 : 3; }
    u32  someUnit() { return draw(2) != 0 ? UNIT_A : UNIT_C; }
    void allIsWell()
    {
        frequencyIs(InrsiFrequency{2, true});
        phaseIs(InrsiPhase{0, true});
        inrsi().silentUnits.clear();
        inrsi().answer_ms = 5;
        inrsi().answers = 1;
        inrsi().setAnswer(sim::Answer::Accept);
    }
    void tellCount() { otherEndSays(count()); }
    void step()
    {
        const std::function<void()> steps[] = {
            [&] { scan(somePort()); }, [&] { select(somePort()); }, [&] { select(somePort()); },
            [&] { deselect(somePort()); }, [&] { align(somePort(), count()); }, [&] { tellCount(); },
            [&] { mp().orderJump(); },
            [&] { order(KVD_TUIIF_SOCPRI_GO_TO_TIME_HOLDOVER_REQ); }, [&] { mp().selectNone(); },
            [&] { order(KVD_TUIIF_SOCPRI_START_REQ); }, [&] { order(KVD_TUIIF_SOCPRI_STOP_REQ); },
            [&] { supervise({1, 3}); }, [&] { supervise({somePort()}); }, [&] { supervise({}, false); },
            [&] { inrsi().silentUnits = {someUnit()}; }, [&] { allIsWell(); },
            [&] { inrsi().setStatus(someUnit(), static_cast<u8>(draw(3))); },
            [&] { inrsi().setStatus(someUnit(), 2); },
            [&] { inrsi().die(); }, [&] { if (!inrsi().alive()) inrsi().start(); },
            [&] { inrsi().setAnswer(sim::Answer::Silent); },
            [&] { phaseIs(draw(2) != 0 ? std::optional(InrsiPhase{0, draw(2) != 0}) : std::nullopt); },
            [&] { frequencyIs(draw(2) != 0 ? std::optional(InrsiFrequency{40, true}) : std::nullopt); },
            [&] { inrsi().answer_ms = 60; }, [&] { inrsi().answers = 2; },
            [&] { mp().restart(2 * ose::SEC), run(3.0); },
            [&] { mp().changeMaster(3, SLAVE); }, [&] { mp().changeMaster(3, MASTER); }};
        steps[draw(std::size(steps))]();
        constexpr double PAUSES[] = {0.003, 0.05, 0.2, 1.0, 6.0, 30.0};
        run(PAUSES[draw(std::size(PAUSES))]);
    }
    /// All that was wrong is right again; what is under way comes to its end.
    void calm()
    {
        allIsWell();
        mp().changeMaster(3, MASTER);
        if (!inrsi().alive()) inrsi().start();
        for (const u32 unit : {UNIT_A, UNIT_C}) inrsi().setStatus(unit, 2);
        run(400.0);
    }
    bool isIdleOrMeasures()
    {
        if (action() == INRSI_CLIENT_IDLE) return true;
        const u32 unit = port() == 0 ? UNIT_A : UNIT_C;
        const u32 before = inrsi().phaseRequests(unit);
        run(2.1);
        return action() == INRSI_CLIENT_ACTION_TIME_SYNC && inrsi().phaseRequests(unit) >= before + 20;
    }
};

TEST(InrsiWalk, LeavesNothingBehind)
{
    for (u32 seed = 0; seed < 24; ++seed) {
        SCOPED_TRACE(seed);
        Walk u(seed);
        for (u32 i = 0; i < 30; ++i) u.step();
        u.calm();
        EXPECT_FALSE(u.get(KvdLoz6TuReg_pllIsHoldover)) << "five minutes at most";
        EXPECT_TRUE(u.isIdleOrMeasures());
        if (u.get(KvdLoz6TuIifAdm_selectedRef) == NO_REF) { EXPECT_FALSE(u.get(KvdLoz6TuReg_pllIsLocked)); }

        if (u.action() != INRSI_CLIENT_IDLE) u.deselect(1);
        u.order(KVD_TUIIF_SOCPRI_START_REQ);
        u.supervise({1, 3});
        u.run(1.0);
        u.mp().clearLog();
        u.run(62.0);
        EXPECT_EQ(u.mp().count(KVD_TUIIF_SOCPRI_SUPERVISION_STATUS_IND), 2u);
        EXPECT_EQ(u.supervised().substr(1), ":2");
        const std::string units = u.printed("kvdinfo inrsi");
        for (const char* port : {"port A: ", "port C: "}) {
            const std::size_t at = units.find(port);
            ASSERT_NE(at, std::string::npos) << port;
            EXPECT_NE(units.substr(at, 90).find("INCI 2"), std::string::npos) << port;
        }
        u.scan(3);
        u.run(1.0);
        EXPECT_EQ(u.scanned(), "3:1");
        u.select(1);
        u.run(13.0);
        u.tellCount();
        u.run(10.0);
        EXPECT_TRUE(u.get(KvdLoz6TuReg_pllIsLocked));
    }
}

}  // namespace
