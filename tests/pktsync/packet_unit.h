// packet_unit.h - A whole unit whose packet process is looked at from outside: its services are scripted,
// what leaves its port is kept, masters stand on a network beside it.
#pragma once
#include "pktsync/tupktsync_cfi_client.h"
#include "pktsync/tupktsync_drv_client.h"
#include "pktsync/tupktsync_ipsocki_client.h"
#include "pktsync/tupktsync_proc.h"
#include "pktsync/tupktsync_ptp_clock.h"
#include "pktsync/tupktsync_syncref_int.h"
#include "sig/tuiif_sig.h"
#include "sim/net/ptp_master.h"
#include "tests/pktsync/ptp_bench.h"
#include "tests/support/unit_bench.h"

namespace bench {

struct PacketUnit : Unit {
    sim::Network net{world};
    std::vector<sim::NetPacket> sent;                // by the unit

    explicit PacketUnit(const sim::NodeConfig& config = {}) : Unit(config)
    {
        node.packetPort().plug(&net);
        net.attach(node.packetPort());
        node.packetPort().onSend([this](const sim::NetPacket& p) { sent.push_back(p); });
    }
    /// On, every trace on, until the main processor has said what it wants.
    PacketUnit& on(double seconds = 2)
    {
        node.powerOn();
        world.runFor(ose::MS);
        node.system().call(*node.program(), [] { node::traceSetProgramMask(0xFFFFFFFF); });
        run(seconds);
        return *this;
    }
    PROCESS pid() { return node.system().find("Kvd_loz6_tupktsync_proc"); }
    u32 root() { return node.inProgram(TuPktsync_Root_state); }
    u32 ipsocki() { return node.inProgram(TuPktsync_IPSOCKI_client_state); }
    /// Of the chain and of its clients of driver, frames and sockets.
    std::array<u32, 4> states()
    {
        return {root(), node.inProgram(TuPktsync_PktSyncDrvClient_state),
                node.inProgram(TuPktsync_CFI_client_state), ipsocki()};
    }
    u32 control() { return node.inProgram(TuPktsync_SyncrefCtrl_state); }
    auto group(u32 i) { return node.inProgram([i] { return TuPktsync_CFI_client_group(i); }); }
    auto socket(u32 i) { return node.inProgram([i] { return TuPktsync_IPSOCKI_client_socket(i); }); }
    /// A copy of a clock as it is now.
    PtpClock clock(u32 syncrefId)
    {
        return node.inProgram([syncrefId] { return *ptpClockOf(syncrefId); });
    }
    bool created(u32 froId, u32 froClassNo)
    {
        return node.mainProcessor().packetRefCreated(froId, froClassNo);
    }
    std::size_t told(SIGSELECT sigNo) { return node.mainProcessor().count(sigNo); }

    /// To the packet process, from a server or from nobody.
    template <typename T>
    void inject(const T& layout, PROCESS from = 0)
    {
        node.system().inject(asBytes(layout), pid(), from != 0 ? from : manager());
        world.runFor(ose::MS);
    }
    /// As a process of the program.
    void call(const std::function<void()>& body)
    {
        node.system().call(*node.program(), [&body] {
            node::traceAttachProcess();
            body();
        });
    }
};

inline sim::MpPacketRef ethernetRef(u32 froId, u8 domain, u8 pbit = 0)
{
    sim::MpPacketRef r;
    r.froId = froId;
    r.domain = domain;
    r.pbit = pbit;
    return r;
}
inline sim::MpPacketRef unicastRef(u32 froId, std::array<u8, 16> server = {192, 168, 0, 9})
{
    sim::MpPacketRef r;
    r.froId = froId;
    r.froClassNo = 5;
    r.typeOfPktStruct = 3;
    r.domain = 4;
    r.server = server;
    r.own = {192, 168, 0, 1};
    r.dscp = 46;
    return r;
}

}  // namespace bench
