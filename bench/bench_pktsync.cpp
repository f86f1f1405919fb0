// Packet synchronisation: one Sync with its Follow_Up from frame to the regulator's door; virtual seconds a
// wall second of a unit that follows eight masters, each at 128 Sync messages a second.
#include "frame/kvd_mgr_proc.h"
#include "node/sig.h"
#include "pktsync/tupktsync_pdu.h"
#include "pktsync/tupktsync_ptp_clock.h"
#include "pktsync/tupktsync_timestamp_server.h"
#include "pktsync/tupktsyncadm.h"
#include "sig/ref_types.h"
#include "sig/tuiif_sig.h"
#include "sig/tupktsync_sig.h"
#include "sim/net/ptp_master.h"
#include "support/idle_node.h"
#include "unit/kvd_unit_process.h"

#include <benchmark/benchmark.h>

#include <memory>

namespace {

namespace ptp = sim::ptp;

constexpr u32 FRO_ID = 1;
constexpr u8 DOMAIN_NUMBER = 24;

std::vector<u8> framed(const ptp::Message& m)
{
    constexpr std::ptrdiff_t HEADER = 14, STAMP = 8;
    std::vector<u8> frame = ptp::frame({1, 0x1B, 0x19, 0, 0, 0}, {2, 0, 0, 0, 1, 1}, 0, ptp::write(m));
    frame.insert(frame.begin() + HEADER, STAMP, 0);
    return frame;
}

ptp::Message fromMaster(u8 type)
{
    ptp::Message m;
    m.type = type;
    m.domain = DOMAIN_NUMBER;
    m.source.clock = {0, 0x1B, 0x19, 0xFF, 0xFE, 0, 0, 1};
    m.flags0 = type == ptp::SYNC ? 2 : 0;
    m.logInterval = -3;
    m.clockClass = 6;
    m.accuracy = 0x21;
    m.stamp = {1'704'067'237, 500};
    return m;
}

/// The exchanges come to this process from now on.
void consume(PROCESS own)
{
    auto* select = node::make<TuPktsyncRefSelectionInd>(TUPKTSYNC_REF_SELECTION_IND);
    select->selectOperation = PKTSYNC_DESELECT_ALL;
    select->timestampConsumerPid = own;
    Signal* sig = reinterpret_cast<Signal*>(select);
    TuPktsync_Timestamp_server_dispatch(sig);
    ose::free_buf(&sig);
}

/// A clock that follows its master and is selected, with a first delay sample.
void follow()
{
    PtpNeeds needs;
    needs.sendExchange = TuPktsync_Timestamp_server_handle_ts_ptp;
    needs.send = [](const PtpDescriptor&, const u8*, u32, const u8*) -> bool { return true; };
    TuPktsync_PTP_init(needs);
    PtpClockSetup setup;
    setup.froId = FRO_ID;
    setup.froClassNo = PACKET_TIME_FRO_CLASS;
    setup.domainNumber = DOMAIN_NUMBER;
    TuPktsync_new_ptp_clock(setup);
    TuPktsync_set_ptp_selected(0, 1);
    PtpClock& c = *ptpClockOf(0);
    c.parent.parentPortIdentity = {fromMaster(ptp::SYNC).source.clock, 1};
    c.portState = SLAVE;
    c.logSyncInterval = -3;
    c.delay.status = DRM_OK;
    c.delay.sample = {1'704'067'237, 100, 1'704'067'237, 200, 0, 0};
}

void selectInManager(PROCESS own)
{
    KvdLoz6TuMgr_setPids(own, own, own);
    auto* select = node::make<KvdTuiifSelectSynchRefInd>(KVD_TUIIF_SELECT_SYNCH_REF_IND);
    select->refType = PACKET_TIME_REF;
    select->froId = FRO_ID;
    select->froClassNo = PACKET_TIME_FRO_CLASS;
    Signal* sig = reinterpret_cast<Signal*>(select);
    TuPktsyncAdm_dispatch(sig);
    ose::free_buf(&sig);
    sig = ose::receive(ose::ANY_SIGNAL);             // what the packet process would be told
    ose::free_buf(&sig);
}

void BM_SyncFromFrameToRegulator(benchmark::State& state)
{
    constexpr u32 ROUNDS = 1000;                     // a call, so that its own cost doesn't count
    IdleNode b;
    b.node.traces().setCapacity(0);
    std::vector<u8> sync = framed(fromMaster(ptp::SYNC)), followUp = framed(fromMaster(ptp::FOLLOW_UP));
    u16 sequence = 0;
    u64 handed = 0;
    b.in([] {
        follow();
        selectInManager(ose::current_process());
    });
    for (auto _ : state) {
        b.in([&] {
            consume(ose::current_process());
            for (u32 i = 0; i < ROUNDS; ++i) {
                constexpr std::size_t SEQUENCE_AT = 14 + 8 + 30;
                ++sequence;
                for (std::vector<u8>* frame : {&sync, &followUp}) {
                    (*frame)[SEQUENCE_AT] = static_cast<u8>(sequence >> 8);
                    (*frame)[SEQUENCE_AT + 1] = static_cast<u8>(sequence);
                    TuPktsync_PDU_CfiRcvFrame(static_cast<u32>(frame->size()), 8, frame->data());
                }
                while (Signal* sig = ose::receive_w_tmo(0, ose::ANY_SIGNAL)) {
                    handed += static_cast<u64>(TuPktsyncAdm_dispatch(sig));
                    ose::free_buf(&sig);
                }
            }
        });
    }
    const double rounds = static_cast<double>(state.iterations()) * ROUNDS;
    if (static_cast<double>(handed) != rounds) state.SkipWithError("not every Sync came through");
    state.counters["per_sync"] = benchmark::Counter(rounds, benchmark::Counter::kIsRate
                                                                | benchmark::Counter::kInvert);
    b.in([] { TuPktsync_delete_ptp_clock(0); });
}
BENCHMARK(BM_SyncFromFrameToRegulator)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();

/// A unit and the masters of its eight references.
struct BusyUnit {
    ose::World world{1};
    sim::Node node{world, config()};
    sim::Network net{world};
    std::vector<std::unique_ptr<sim::PtpMaster>> masters;

    static sim::NodeConfig config()
    {
        sim::NodeConfig c;
        c.board.oscillator.offset_ppb = 5.0;
        for (u32 i = 0; i < PTP_CLOCKS; ++i) {
            sim::MpPacketRef ref;
            ref.froId = i;
            ref.domain = static_cast<u8>(DOMAIN_NUMBER + i);
            c.mainProcessor.packetRefs.push_back(ref);
        }
        sim::MpReference reference;
        reference.refType = PACKET_TIME_REF;
        reference.froClassNo = PACKET_TIME_FRO_CLASS;
        reference.alwaysUsable = true;
        c.mainProcessor.references = {reference};
        return c;
    }
    BusyUnit()
    {
        net.attach(node.packetPort());
        node.packetPort().plug(&net);
        for (u32 i = 0; i < PTP_CLOCKS; ++i) {
            sim::PtpMasterConfig gm;
            gm.name = "gm" + std::to_string(i);
            gm.domain = static_cast<u8>(DOMAIN_NUMBER + i);
            gm.logSync = gm.logDelayReq = -7;
            masters.push_back(std::make_unique<sim::PtpMaster>(world, net, gm));
            net.connect(node.packetPort(), *masters.back(), {}, {});
        }
        node.traces().setCapacity(0);
        node.powerOn();
        world.runFor(600 * ose::SEC);
    }
    u32 following()
    {
        return node.inProgram([] {
            u32 count = 0;
            for (u32 id = 0; id < PTP_CLOCKS; ++id)
                count += ptpClockOf(id) != nullptr && ptpClockOf(id)->delay.status == DRM_OK ? 1 : 0;
            return count;
        });
    }
};

void BM_EightSyncrefs(benchmark::State& state)
{
    BusyUnit unit;
    constexpr i64 STRETCH_s = 20;
    if (unit.following() != PTP_CLOCKS) state.SkipWithError("not every clock follows");
    const u32 before = unit.node.packetPort().received();
    for (auto _ : state) unit.world.runFor(STRETCH_s * ose::SEC);
    const double seconds = static_cast<double>(state.iterations() * STRETCH_s);
    state.counters["virtual_s_per_s"] = benchmark::Counter(seconds, benchmark::Counter::kIsRate);
    state.counters["packets_per_virtual_s"] = (unit.node.packetPort().received() - before) / seconds;
}
BENCHMARK(BM_EightSyncrefs)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();

}  // namespace
