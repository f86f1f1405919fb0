// Words of the BFN input and sync data of any content to a running slave: it lives on, its times and
// its loop stay numbers, and what it sends on the link is a slave's word.
#include "fuzz/fuzz.h"
#include "hw/kvd_hwif_regs.h"
#include "hw/kvd_hwif_words.h"
#include "refs/kvd_slave_int.h"
#include "reg/kvd_reg_control.h"
#include "reg/kvd_reg_int.h"
#include "reg/kvd_reg_measure.h"
#include "reg/kvd_reg_pll.h"
#include "sig/hwif_sig.h"
#include "sig/tuiif_sig.h"

#include <cmath>

namespace {

using fuzz::require;
using fuzz::take;

slave::PortData portData;                // of the slave's end, from the input

/// The hardware counts as handed over; the loop is the program's own.
const slave::Needs NEEDS = {
    [] { return u32{1}; },
    [] { return u32{1}; },
    [] { return 0; },
    [](u8) { return 0; },
    [](u32, slave::PortData& data) { data = portData; },
    KvdLoz6TuReg_slavePllState,
    KvdLoz6TuReg_slavePll_control,
};

/// A node whose BFN input holds what the input says.
class LinkNode : public sim::Node {
public:
    using sim::Node::Node;
    u32 address[4] = {};                 // counters, flags, words
    u32 word[4] = {};
    u32 mmioRead(u32 at) override
    {
        for (u32 i = 0; i < 4; ++i)
            if (address[i] != 0 && at == address[i]) return word[i];
        return sim::Node::mmioRead(at);
    }
};

sim::NodeConfig slaveConfig()
{
    sim::NodeConfig config;
    config.boardType = 2;
    config.mainProcessor.masterSlaveMode = 0;
    return config;
}

struct Target {
    ose::World world{1};
    LinkNode node{world, slaveConfig()};
    u32 bfnOut = 0;

    Target()
    {
        fuzz::watch(world, node);
        node.powerOn();
        world.runFor(5 * ose::SEC);
        constexpr u32 IDS[] = {REG_BFN_IN_COUNTERS, REG_BFN_IN_FLAGS, REG_BFN_IN_WORD1, REG_BFN_IN_WORD2};
        for (u32 i = 0; i < 4; ++i) node.address[i] = registerAddress(IDS[i]);
        bfnOut = registerAddress(REG_BFN_OUT_WORD2);
    }
    u32 registerAddress(u32 id)
    {
        return node.inProgram([id] { return static_cast<u32>(tuHwIf_lookupRegister(id)); });
    }
    void inject(std::span<const std::byte> signal)
    {
        fuzz::inject(node, fuzz::MANAGER, signal, node.mainProcessor().pid());
        world.runFor(20 * ose::MS);
    }
};

void bfnWord(Target& t, fuzz::Input& rest)
{
    const u8 kind = take<u8>(rest);
    for (u32& word : t.node.word) word = take<u32>(rest);
    if (kind < 200) {                    // mostly words that pass the input's own checks
        t.node.word[0] &= ~(u32{0x18} | 0x18 << 5);
        t.node.word[1] = (t.node.word[1] & 0x00FFFFFF) | 0xA0000000;
        if ((t.node.word[0] >> 11) > 1228799) t.node.word[0] &= 0x7FFFFFFF;
    }
    const KvdTuhwifRefInterrupt ind{KVD_TUHWIF_REF_INTERRUPT, 1};
    t.inject(std::as_bytes(std::span(&ind, 1)));
}

void syncData(Target& t, fuzz::Input& rest)
{
    const u8 kind = take<u8>(rest);
    portData = take<slave::PortData>(rest);
    auto ind = take<KvdTuiifIdl2SyncDataInd>(rest);
    ind.sigNo = KVD_TUIIF_IDL2_SYNC_DATA_IND;
    if (kind < 200) {                    // mostly data that gets as far as the counters
        ind.jumpPend &= 1, ind.jumpInd &= 1, ind.directConn = 1;
        ind.synchPortNo %= 6, ind.mfc %= 25, ind.sfc %= 4096, ind.inc %= 1228800;
        ind.linkStability = 1, portData.linkStability = 1;
        if (!(std::fabs(ind.intermediaryDuPhaseDiff) < 1.0)) ind.intermediaryDuPhaseDiff = 0.0;
    }
    const std::size_t cut = kind >= 240 ? kind - 239 : 0;
    t.inject(std::as_bytes(std::span(&ind, 1)).first(sizeof ind - cut));
}

void check(Target& t)
{
    require(t.node.programEnds().empty(), "the program ended");
    t.node.inProgram([] {
        const MeasStateVar& v = KvdLoz6TuReg_measStateVar();
        for (const double value :
             {v.t_c_last, v.t_f_last, v.delta0_c, v.delta0_f, v.delta0_slave_c, v.delta0_slave_f,
              v.max_locked_diff, KvdLoz6TuReg_pll_targetDiff(), KvdLoz6TuReg_pll_extAccFreqOffset()})
            require(std::isfinite(value), "a time or the loop is no number any more");
        require(v.delta0_slave_c == 0.0 && v.delta0_slave_f == 0.0, "slave offset left over");
        return 0;
    });
    const u32 sent = t.node.mmioRead(t.bfnOut);
    const hwif::BfnExtended word = hwif::unpackBfnExtended(0, sent);
    require(sent == 0 || (word.rc_state == 7 && word.ms_flag == 0), "not a slave's word");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    constexpr u32 INPUTS_A_UNIT = 200;
    Target& target = fuzz::serving<Target>(INPUTS_A_UNIT);
    target.node.inProgram([] {
        slave::setNeeds(&NEEDS);
        KvdLoz6TuReg_forceRegState(FREQLOCKED);
        regulator::state().tuRegInitiateState = TUREG_INIT;
        return 0;
    });
    // An input is a row of measurements: link, kind, content.
    fuzz::Input rest(data, size);
    while (!rest.empty()) {
        if ((take<u8>(rest) & 1) == 0) bfnWord(target, rest);
        else                           syncData(target, rest);
    }
    check(target);
    return 0;
}
