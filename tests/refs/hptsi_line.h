// hptsi_line.h - Frames of a time of day as bytes, and a connected unit that they are fed to.
#pragma once
#include "refs/kvd_hptsi_int.h"
#include "tests/ref/ref_unit.h"

#include <string>
#include <vector>

namespace bench {

using Bytes = std::vector<u8>;

/// 23 bytes as a source sends them; the checksum isn't looked at.
inline Bytes infoFrame(u32 tow, u16 week = 2245, u8 pp1sState = 0, i8 leapSec = 18, u8 tacc = 7)
{
    const auto byte = [](u32 value, u32 shift) { return static_cast<u8>(value >> shift); };
    return {'C', 'M', 1, 0x20, 0, 16, byte(tow, 24), byte(tow, 16), byte(tow, 8), byte(tow, 0),
            0, 0, 0, 0, byte(week, 8), byte(week, 0), static_cast<u8>(leapSec), pp1sState, tacc,
            0, 0, 0, 0x55};
}
inline Bytes stateFrame(u16 state = 5, u8 clkSource = 1, u16 alarm = 0)
{
    return {'C', 'M', 1, 3, 0, 16, clkSource, static_cast<u8>(state >> 8), static_cast<u8>(state),
            static_cast<u8>(alarm >> 8), static_cast<u8>(alarm), 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xAA};
}

struct HptsiUnit : RefUnit {
    u32 tow = 100;
    u8  pp1sState = 0;
    u16 sourceState = 5;

    explicit HptsiUnit(u32 raw = RAW_1PPS, bool supervised = true)
    {
        toggles(raw);
        if (!supervised) return;
        supervise(HPTSI_REF, true);
        ms(5);
    }
    void feed(const Bytes& bytes, i64 then_ms = 0)
    {
        node.serial().feed(bytes.data(), bytes.size());
        ms(then_ms);
    }
    /// Seconds of a source, which is a little fast: both frames early in each.
    void seconds(u32 count)
    {
        for (u32 i = 0; i < count; ++i) {
            feed(infoFrame(++tow, 2245, pp1sState), 200);
            feed(stateFrame(sourceState), 799);
        }
    }
    hptsi::State state() { return node.inProgram([] { return hptsi::state(); }); }
    u32 hptsiState() { return state().hptsiState; }
    std::vector<std::string> statuses()
    {
        return statusTexts(node.mainProcessor(), KVD_TUIIF_HPTSI_STATUS_IND, &KvdTuiifHptsiStatusInd::status);
    }
    std::string status()
    {
        const auto all = statuses();
        return all.empty() ? "" : all.back();
    }
    std::vector<u32> qualities()
    {
        std::vector<u32> values;
        for (const sim::MpRecord& record : node.mainProcessor().all(KVD_TUIIF_QUALITY_LEVEL_IND)) {
            const auto ind = record.as<KvdTuiifQualityLevelInd>();
            if (ind && ind->froId == 0 && ind->froClassNo == 6) values.push_back(ind->clockQuality);
        }
        return values;
    }
};

}  // namespace bench
