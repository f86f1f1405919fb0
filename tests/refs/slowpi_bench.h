// slowpi_bench.h - The ESMC client by itself: a manager process that hands it each signal, the service's
// operations recorded in place of a server, a main processor that keeps what it is told. Timers and
// buffers are the kernel's own, and any misuse of them fails the test.
#pragma once
#include "hw/fake_bus.h"
#include "mp/kvd_iifadm_state.h"
#include "node/slowpi_sig.h"
#include "refs/kvd_slowpi.h"
#include "refs/kvd_slowpi_int.h"
#include "sig/tuiif_sig.h"
#include "tests/support/hex.h"
#include "tests/support/manager.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace bench {

inline void slowpiMain()
{
    for (const char* group : TRACE_GROUP_NAMES) node::traceRegisterGroup(group);
    node::traceSetProgramMask(0xFFFFFFFF);
    ose::start(ose::create_process(ose::KIND_PRIORITISED, "slowpi_manager", [] {
        node::traceAttachProcess();
        serve([](Signal* sig) {
            KvdLoz6TuSlowpi_dispatch(sig);
            const SIGSELECT n = sig->sigNo;
            const bool rearmed = n == KVD_SLOWPI_HEART_BEAT_IND || n == KVD_SLOWPI_PDU_MISSING_IND;
            return rearmed && KvdLoz6TuSlowpi_owns(sig) != 0;          // as the manager does
        });
    }, 16384, 16, 0, 0));
    waitForEver();
}

/// A signal to the main processor, by its fields in order.
struct Told {
    std::string name;
    std::vector<u32> fields;
    bool operator==(const Told&) const = default;
};

/// How the service answers a call, and what was asked of it.
struct FakeService {
    bool hasMemory = true;
    u32 initiateResult = 0, internalResult = 0, subscribeResult = 0, sendResult = 0;
    std::vector<std::string> requests = {};   // frames as "Slowpi_sendFrameInd <hex>"
    u32 freed = 0;
};

struct SlowpiBench {
    hwtest::FakeBus bus;
    ose::World world{1};
    ose::System& system = world.createSystem("node");
    ose::Block* block = nullptr;
    FakeService service;
    std::vector<Told> told;

    explicit SlowpiBench(const FakeService& s = {}) : service(s)
    {
        current() = this;
        world.onMisuse([](const ose::Misuse& m) { ADD_FAILURE() << m.text(); });
        system.setPlatform(static_cast<node::Platform*>(&bus));
        static const ose::Program program = programOf("slowpi", slowpiMain);
        block = &system.load(program);
        world.runFor(ose::MS);
        const PROCESS peer = system.spawn("mp", 20, [this] { listen(); });
        in([&] {
            tuiif::state().startState = TUIIF_START_RESTART_READY;
            tuiif::state().procTuiifMpPid = peer;
            slowpi::setNeeds(&needs());
            KvdLoz6TuSlowpi_initiate();
        });
    }
    ~SlowpiBench() { current() = nullptr; }

    // ---- signals --------------------------------------------------------------------------------
    void in(const std::function<void()>& body) { runIn(system, system.find("slowpi_manager"), body); }
    void injectBytes(std::span<const std::byte> bytes)
    {
        system.inject(bytes, system.find("slowpi_manager"), 0);
        world.runUntil(world.now());
    }
    template <typename T>
    void inject(const T& layout) { injectBytes(asBytes(layout)); }
    void cfm() { inject(SlowpiInitiateServiceCfm{SLOWPI_INITIATE_SERVICE_CFM, 1, 1}); }
    void sus() { inject(SlowpiInitiateServiceRej{SLOWPI_INITIATE_SERVICE_SUS, 1, 1}); }
    void rej() { inject(SlowpiInitiateServiceRej{SLOWPI_INITIATE_SERVICE_REJ, 1, 1}); }
    void serverDown() { inject(SIGSELECT{SLOWPI_SERVER_DOWN_IND}); }
    void subscribeRsp(u8 result = 0) { inject(SlowpiResultRsp{SLOWPI_SUBSCRIBE_RSP, result}); }
    void unsubscribeRsp(u8 result = 0) { inject(SlowpiResultRsp{SLOWPI_UNSUBSCRIBE_RSP, result}); }
    void mode(u8 m) { inject(KvdTuiifSelectionModeChangeInd{KVD_TUIIF_SELECTION_MODE_CHANGE_IND, m}); }
    void stopSupervision() { in(KvdLoz6TuSlowpi_unsubscribe); }
    void supervise(u32 on, u8 type = 11, u32 froId = 5, const std::string& mac = "020304050607")
    {
        KvdTuiifSynchPathSupEthInd ind{};
        ind.path = {KVD_TUIIF_SYNCH_PATH_SUP_IND, type, on, froId, 7};
        const std::vector<u8> address = bytesOf(mac);
        std::copy(address.begin(), address.end(), ind.macAddress);
        inject(ind);
    }
    /// `claimed` stands in the length field; left out: the frame's own length.
    void frame(const std::vector<u8>& bytes, i64 claimed = -1)
    {
        const SlowpiFrame head{SLOWPI_RECEIVE_FRAME_IND,
                               claimed < 0 ? static_cast<u32>(bytes.size()) : static_cast<u32>(claimed)};
        const auto front = asBytes(head), frame = std::as_bytes(std::span(bytes));
        std::vector<std::byte> signal(front.begin(), front.end());
        signal.insert(signal.end(), frame.begin(), frame.end());
        injectBytes(signal);
    }
    void frame(const std::string& hex) { frame(bytesOf(hex)); }
    /// The timer's own buffer expires now, whether it runs or lies idle.
    void expire(slowpi::BufferTimer slowpi::State::*timer)
    {
        in([timer] {
            slowpi::BufferTimer& t = slowpi::state().*timer;
            Signal* sig = t.timer.runs() ? ose::cancel_tmo_sig(&t.timer.ref) : t.sig;
            ASSERT_NE(sig, nullptr);
            KvdLoz6TuSlowpi_dispatch(sig);
        });
    }
    void heartBeat() { expire(&slowpi::State::heartBeat); }
    void pduMissing() { expire(&slowpi::State::pduMissing); }
    void runFor_ms(u32 ms) { world.runFor(ms * ose::MS); }

    /// Service up, subscribed, quality used: IF_QL_SEND.
    void toQlSend()
    {
        cfm();
        mode(1);
        supervise(1);
        subscribeRsp();
        clear();
    }

    // ---- what came out --------------------------------------------------------------------------
    slowpi::State state()
    {
        ose::DataScope scope(*block);
        return slowpi::state();
    }
    void set(const std::function<void(slowpi::State&)>& change) { in([&] { change(slowpi::state()); }); }
    void clear()
    {
        told.clear();
        service.requests.clear();
        bus.traces.clear();
    }
    std::vector<Told> takeTold()
    {
        world.runUntil(world.now());
        return std::exchange(told, {});
    }
    std::vector<std::string> takeRequests() { return std::exchange(service.requests, {}); }
    std::size_t traces(const std::string& text) const { return bus.countOf(text); }
    int levelOf(const std::string& text) const { return bus.levelOf(text); }

private:
    static SlowpiBench*& current()
    {
        static SlowpiBench* bench = nullptr;
        return bench;
    }
    static u32 asked(const std::string& what, u32 result)
    {
        current()->service.requests.push_back(what);
        return result;
    }
    static const slowpi::Needs& needs()
    {
        static int context = 0;
        static node::SlowpiContext* const here = reinterpret_cast<node::SlowpiContext*>(&context);
        static const slowpi::Needs table = {
            [] { return current()->service.hasMemory ? here : nullptr; },
            [](node::SlowpiContext*) { ++current()->service.freed; },
            [](node::SlowpiContext*, u32, u32, u32) {
                return asked("Slowpi_initiateServiceReq", current()->service.initiateResult);
            },
            [](node::SlowpiContext*, const Signal*) { return current()->service.internalResult; },
            [](node::SlowpiContext*, u8 subtype, u32 oui) {
                EXPECT_TRUE(subtype == 10 && oui == 0x19A7);
                return asked("Slowpi_subscribeReq", current()->service.subscribeResult);
            },
            [](node::SlowpiContext*, u8 subtype, u32 oui) {
                EXPECT_TRUE(subtype == 10 && oui == 0x19A7);
                return asked("Slowpi_unsubscribeReq", current()->service.subscribeResult);
            },
            [](node::SlowpiContext*, u32 length, const u8* frame) {
                return asked("Slowpi_sendFrameInd " + hexOf(frame, length), current()->service.sendResult);
            },
            [](const node::SlowpiContext*) { return asked("Slowpi_askAgain", 0); },
        };
        return table;
    }

    void listen()
    {
        for (;;) {
            Signal* sig = ose::receive(ose::ANY_SIGNAL);
            if (sig->sigNo == KVD_TUIIF_QUALITY_LEVEL_IND) {
                const auto* q = reinterpret_cast<const KvdTuiifQualityLevelInd*>(sig);
                told.push_back({"KVD_TUIIF_QUALITY_LEVEL_IND",
                                {q->froId, q->froClassNo, q->clockQuality, q->tcuDetected}});
            } else if (sig->sigNo == KVD_TUIIF_PDU_MISSING_IND) {
                const auto* p = reinterpret_cast<const KvdTuiifPduMissingInd*>(sig);
                told.push_back({"KVD_TUIIF_PDU_MISSING_IND", {p->froId, p->froClassNo, p->pduMissing}});
            } else {
                ADD_FAILURE() << "unexpected signal " << sig->sigNo;
            }
            ose::free_buf(&sig);
        }
    }
};

}  // namespace bench
