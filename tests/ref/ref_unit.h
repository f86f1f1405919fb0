// ref_unit.h - A whole connected unit whose toggle detectors are set by the test. The main processor
// supervises and selects only what the test says.
#pragma once
#include "hw/kvd_hwif.h"
#include "hw/kvd_hwif_regs.h"
#include "mp/kvd_iifadm.h"
#include "ref/kvd_ref.h"
#include "ref/kvd_ref_select.h"
#include "refs/kvd_ref_idl.h"
#include "reg/kvd_reg_measure.h"
#include "sig/hwif_sig.h"
#include "sig/ref_sig.h"
#include "sig/tuiif_sig.h"
#include "sim/node/node.h"
#include "tests/support/unit_bench.h"
#include "unit/kvd_ref_table.h"

#include <functional>

namespace bench {

/// Raw bits of the toggle status register.
constexpr u32 RAW_PDH1 = 0x1, RAW_PDH2 = 0x2, RAW_SDH = 0x10;
constexpr u32 RAW_EXT = 0x120;                 // activity, the common input in frequency mode
constexpr u32 RAW_1PPS = 0x80;
constexpr u32 RAW_ETHA = 0x400, RAW_ETHB = 0x800, RAW_ETHC = 0x1000;

/// A node whose toggle status register holds what the test puts there.
class DetectorNode : public sim::Node {
public:
    using sim::Node::Node;
    u32 toggleAddress = 0;
    u32 rawToggles = 0;
    u32 mmioRead(u32 address) override
    {
        if (toggleAddress != 0 && address == toggleAddress) return rawToggles;
        return sim::Node::mmioRead(address);
    }
};

/// froId of line n is LINE_FRO + n.
constexpr u32 LINE_FRO = 100;

inline sim::NodeConfig refConfig(u8 masterSlaveMode = 1, u32 boardType = 2)
{
    sim::NodeConfig config;
    config.boardType = boardType;
    config.mainProcessor.selects = false;
    config.mainProcessor.masterSlaveMode = masterSlaveMode;
    for (u32 line = 0; line < 5; ++line) config.ports.push_back({line, LINE_FRO + line, 1, 1, 0});
    return config;
}

struct RefUnit : UnitIn<DetectorNode> {
    explicit RefUnit(const sim::NodeConfig& config = refConfig(), bool withMonitor = false) : UnitIn(config)
    {
        node.powerOn();
        world.runFor(5 * ose::SEC);
        EXPECT_TRUE(node.mainProcessor().connected());
        node.toggleAddress = node.inProgram(
            [] { return static_cast<u32>(tuHwIf_lookupRegister(REG_TOGGLE_STATUS)); });
        if (!withMonitor) node.system().kill(node.system().find("Kvd_loz6_turefmon_proc"));
    }

    void ms(i64 span) { world.runFor(span * ose::MS); }
    template <typename T>
    void toManager(const T& layout) { injectInto(node.system(), manager(), layout); }
    /// The detectors change, and the manager is told.
    void toggles(u32 raw)
    {
        node.rawToggles = raw;
        toManager(KvdTurefmonProcToggleStatusInd{KVD_TUREFMON_PROC_TOGGLE_STATUS_IND, 0});
    }
    void supervise(u8 refType, bool on, u32 froId = 7, u32 froClassNo = 9)
    {
        const u32 status = on ? 1 : 0;
        toManager(KvdTuiifSynchPathSupInd{KVD_TUIIF_SYNCH_PATH_SUP_IND, refType, status, froId, froClassNo});
    }
    void select(u8 refType, u32 froId = 7, u32 froClassNo = 9)
    {
        toManager(KvdTuiifSelectSynchRefInd{KVD_TUIIF_SELECT_SYNCH_REF_IND, refType, froId, froClassNo});
    }
    void portAInterrupt() { toManager(KvdTuhwifRefInterrupt{KVD_TUHWIF_REF_INTERRUPT, 1}); }

    RefDesc row(u32 n) { return node.inProgram([n] { return KvdLoz6TuRef_row(n); }); }
    u32 refStatus(u32 n) { return row(n).refStatus; }
    u32 tuiifRefState() { return node.inProgram(KvdLoz6TuIifAdm_tuiifRefState); }
    u32 idlState(u32 port) { return node.inProgram([port] { return KvdLoz6TuRef_idlState(port); }); }
    u8  selectedRef() { return node.inProgram(KvdLoz6TuRef_selectedRef); }
    u32 regulatorRef() { return node.inProgram(KvdLoz6TuReg_selectedRef); }
    u8  clientRef() { return node.inProgram(KvdLoz6TuIifAdm_selectedRef); }
    u32 selectRegister()
    {
        return node.inProgram(
            [this] { return node.mmioRead(static_cast<u32>(tuHwIf_lookupRegister(REG_SELECT))); });
    }
};

}  // namespace bench
