// Orders of the main processor: change of role, inter-unit links, synchronisation over CPRI.
#include "tests/iif/iif_bench.h"

#include "ref/kvd_ref_select.h"
#include "reg/kvd_reg.h"
#include "socpri/kvd_socpri_inrsi.h"
#include "unit/kvd_ref_table.h"

namespace {

using bench::IifBench;

TEST(ChangeOfRole, TellsRegulatorAndSelection)
{
    struct Case { const char* when; u8 from, to; u8 isMaster; u8 selected; };
    for (const Case& c : {Case{"to slave", 1, 0, 0, IDL1_REF}, Case{"to master", 0, 1, 1, NO_REF}}) {
        SCOPED_TRACE(c.when);
        IifBench b{bench::Negotiated{3, c.from}};
        b.connect();
        b.in([] { KvdLoz6TuRef_selectSynchRef(GPS_REF, 1, 2); });
        b.mp().changeMaster(3, c.to);
        b.run(0.1);
        EXPECT_EQ(b.look(KvdLoz6TuIifAdm_storedMasterSlaveMode), c.to);
        EXPECT_EQ(b.look(KvdLoz6TuReg_isMaster), c.isMaster);
        EXPECT_EQ(b.look(KvdLoz6TuRef_selectedRef), c.selected);
    }
}

TEST(ChangeOfRole, ToAnUnknownOneIsStoredAndNoMore)
{
    IifBench b;
    b.connect();
    b.in([] { KvdLoz6TuRef_selectSynchRef(GPS_REF, 1, 2); });
    b.mp().changeMaster(3, 2);
    b.run(0.1);
    EXPECT_TRUE(b.traced("Unavailable master/slave mode received 2 "));
    EXPECT_EQ(b.look(KvdLoz6TuIifAdm_storedMasterSlaveMode), 2);
    EXPECT_EQ(b.look(KvdLoz6TuReg_isMaster), 1);
    EXPECT_EQ(b.look(KvdLoz6TuRef_selectedRef), GPS_REF);
}

TEST(LinkTypeOrder, IsConfirmedAndTakenByTheRightUnit)
{
    struct Case { const char* when; u32 apn; u32 isMasterServer; const char* trace; };
    for (const Case& c :
         {Case{"other unit", 1, 1,
               "KVD_TUIIF_IDL2_SELECT_IDL_TYPE_REQ Signal received by wrong slave DU!"},
          Case{"not the server", 2, 0,
               "Master should not be server. Don't handle signal. idlType = 0, idl2Type = 1"},
          Case{"right one", 2, 1, nullptr}}) {
        SCOPED_TRACE(c.when);
        sim::NodeConfig config = IifBench::config();
        config.apn = c.apn;
        IifBench b{config};
        b.connect();
        b.mp().sendLayout(KvdTuiifIdl2SetMasterServerCfm{KVD_TUIIF_IDL2_SET_MASTER_SERVER_CFM,
                                                         c.isMasterServer});
        b.mp().sendLayout(KvdTuiifIdl2SelectIdlTypeReq{KVD_TUIIF_IDL2_SELECT_IDL_TYPE_REQ, 1, 3});
        b.run(0.1);
        EXPECT_EQ(b.sent(KVD_TUIIF_IDL2_SELECT_IDL_TYPE_CFM), 1u);
        EXPECT_EQ(b.traces("wrong slave DU!") + b.traces("Master should not be server"),
                  c.trace != nullptr ? 1u : 0u);
        if (c.trace != nullptr) {
            EXPECT_TRUE(b.traced(c.trace));
        }
    }
}

TEST(SocpriScan, OnAMasterSelectsAndShowsTheStart)
{
    IifBench b;
    b.connect();                      // a first start
    b.in([] { KvdLoz6TuIifAdm_sendTimeAccuracyChangeInd(500); });
    b.mp().clearLog();
    b.mp().sendLayout(KvdTuiifSocpriScanLinkReq{KVD_TUIIF_SOCPRI_SCAN_LINK_REQ, 1, 4});
    b.run(0.1);
    EXPECT_EQ(b.look(KvdLoz6TuRef_selectedRef), SOCPRI_REF);
    EXPECT_EQ(b.look(KvdLoz6TuIifAdm_activRefFroId), 0u);
    EXPECT_EQ(b.look(KvdLoz6TuIifAdm_activRefFroClassNo), 9u);
    EXPECT_EQ(b.clock(), 17);
    EXPECT_EQ(b.take<KvdTuiifTimeAccuracyChangeInd>(KVD_TUIIF_TIME_ACCURACY_CHANGE_IND)->timeAccuracy, 0u);
    EXPECT_EQ(b.look(inrsiGetAction), u32{INRSI_CLIENT_ACTION_FREQ_SCANNING});
    EXPECT_EQ(b.look(inrsiGetPortNo), 3) << "ports count from 0 inside";
}

TEST(SocpriSelection, SelectsWithoutTheStartingState)
{
    IifBench b;
    b.connect();
    b.mp().sendLayout(
        KvdTuiifSocpriSelectSyncLinkReq{KVD_TUIIF_SOCPRI_SELECT_SYNC_LINK_REQ, 1, 1});
    b.run(0.1);
    EXPECT_EQ(b.look(KvdLoz6TuRef_selectedRef), SOCPRI_REF);
    EXPECT_NE(b.clock(), 17);
}

TEST(SocpriSelection, IsRefusedWhileTheOscillatorIsOutOfItsTemperature)
{
    IifBench b;
    b.connect();
    // A temperature reading: 2.0 V lies within the oscillator's range, 4.5 V above it.
    const auto tick = [&b](double vT, u32 outOfLimits) {
        b.in([=] { KvdLoz6TuReg_startUpController(vT, 0, outOfLimits, 0); });
    };
    const auto answerTo = [&b](u8 port) {
        b.in([] { inrsiClientReset(); });
        b.mp().sendLayout(
            KvdTuiifSocpriSelectSyncLinkReq{KVD_TUIIF_SOCPRI_SELECT_SYNC_LINK_REQ, 1, port});
        b.run(0.1);
        return b.take<KvdTuiifSocpriSelectSyncLinkRsp>(KVD_TUIIF_SOCPRI_SELECT_SYNC_LINK_RSP);
    };
    for (u32 i = 0; i < 200; ++i) tick(2.0, 0);   // through the warm-up
    ASSERT_EQ(b.look(KvdLoz6TuReg_initiateState), TUREG_INIT);
    b.in([] { KvdLoz6TuRef_selectSynchRef(SOCPRI_REF, 0, 9); });

    tick(4.5, 5);
    EXPECT_FALSE(answerTo(2)) << "the fifth reading in a row isn't a fault yet";
    EXPECT_EQ(b.look(inrsiGetPortNo), 1);

    tick(4.5, 6);
    const auto refused = answerTo(2);
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->apn, 1u);
    EXPECT_EQ(refused->portNo, 2);
    EXPECT_EQ(refused->syncStatus, 4u);
    EXPECT_EQ(b.look(inrsiGetAction), u32{INRSI_CLIENT_IDLE});

    tick(2.0, 0);
    EXPECT_FALSE(answerTo(2)) << "the temperature is back";
    EXPECT_EQ(b.look(inrsiGetPortNo), 1);
}

}  // namespace
