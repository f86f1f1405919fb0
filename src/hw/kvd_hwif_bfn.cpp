// kvd_hwif_bfn.cpp - BFN link between two units: input latch with its noise filter, output words.
#include "hw/kvd_hwif.h"
#include "hw/kvd_hwif_priv.h"

#include "base/kvd_math.h"
#include "base/trace_groups.h"
#include "node/mmio.h"
#include "node/trace.h"
#include "ose/module_data.h"

using namespace hwif;

namespace {

constexpr double WORD_DISTANCE_s = 0.095;   // the link delivers a word about every 0.1 s
constexpr double NOISE_TIME_s = 2.0;
constexpr u32 NOISE_PARITY_ERRORS = 3;
constexpr u32 NOISE_GOOD_WORDS = 20;
constexpr u8 READ_FAILURES = 3;

struct State {
    BfnNoiseFilter noise;
    u8 failedReads = 0;
};
ose::ModuleData<State> s;

struct RawBfnIn { u32 counters, word1, word2, flags; };
/// The flags come last: they tell whether the words before them belong together.
std::optional<RawBfnIn> readRawBfnIn()
{
    const auto counters = readRegister(REG_BFN_IN_COUNTERS);
    if (!counters) return std::nullopt;
    const u32 word1 = readRegisterOr0(REG_BFN_IN_WORD1);
    const u32 word2 = readRegisterOr0(REG_BFN_IN_WORD2);
    return RawBfnIn{*counters, word1, word2, readRegisterOr0(REG_BFN_IN_FLAGS)};
}

void traceNoise(BfnNoise change)
{
    if (change == BfnNoise::Ceased) KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "BfnIn noise protection ceased");
    if (change == BfnNoise::Began)
        KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "BfnIn noise detected, ignoring BfnIn for the next %d seconds.",
                  static_cast<int>(NOISE_TIME_s));
}

void countFailedRead()
{
    ++s->failedReads;
    if (s->failedReads >= READ_FAILURES) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "tuHwIf_readBfnIn Failed");
        s->failedReads = 0;
        return;
    }
    KVD_TRACE(TRACE_TUHWIF, TRACE_3, "attempt to read bfnIn failed %u times",
              static_cast<u32>(s->failedReads));
}

}  // namespace

namespace hwif {

BfnNoise filterBfnNoise(BfnNoiseFilter& filter, double T, bool parityError)
{
    BfnNoise change = BfnNoise::Quiet;
    const bool isEarly = isWithin(T - filter.last, WORD_DISTANCE_s);
    if (filter.active != 0) {
        if (isEarly) filter.goodCount = 0;
        else ++filter.goodCount;
        if (isBeyond(T - filter.start, NOISE_TIME_s) || filter.goodCount >= NOISE_GOOD_WORDS) {
            change = BfnNoise::Ceased;
            filter.active = 0;
            filter.start = 0;
            filter.parityRun = 0;
            filter.goodCount = 0;
        }
    }
    if (filter.active == 0 && filter.last != 0.0) {
        if (isEarly && parityError) {
            if (++filter.parityRun >= NOISE_PARITY_ERRORS) {
                filter.start = T;
                filter.active = 1;
                change = BfnNoise::Began;
            }
        } else {
            filter.parityRun = 0;
        }
    }
    filter.last = T;
    return change;
}

const BfnNoiseFilter& bfnNoiseFilter() { return s->noise; }

}  // namespace hwif

int tuHwIf_readBfnIn(BfnIn& in)
{
    in = {};
    const auto raw = readRawBfnIn();
    if (!raw) return 1;
    const BfnInWords words = unpackBfnIn(getBoardType(), raw->counters, raw->flags);
    if (words.valid == 0) return 4;
    if (!isCounter(words.local, "local ", "increment")) return 1;
    const double T = increments(words.local) / INCREMENTS_PER_SECOND;
    traceNoise(filterBfnNoise(s->noise, T, words.parityError != 0));
    if (s->noise.active != 0) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_3, "noise detected in bfn in data");
        return 1;
    }
    if (words.parityError != 0) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_3, "parity error in bfn in data");
        return 5;
    }
    if (!isCounter({words.remoteMfn, words.remoteSfn, 0}, "remote ")) return 1;
    in.extended = words.extended;
    in.mfn = words.local.mfn;
    in.sfn = words.local.sfn;
    in.inc = words.local.inc;
    in.remoteMfn = words.remoteMfn;
    in.remoteSfn = words.remoteSfn;
    in.word1 = words.extended != 0 ? raw->word1 : 0;
    in.word2 = words.extended != 0 ? raw->word2 : 0;
    return 0;
}

int tuHwIf_readBfnAll(BfnAll& all)
{
    all = {};
    BfnIn in;
    const int result = tuHwIf_readBfnIn(in);
    if (result != 0) {
        countFailedRead();
        return result;
    }
    const double diff = KvdLoz6Math_wrapSymmetric(
        increments({in.mfn, in.sfn, in.inc}) + 0.5 - increments({in.remoteMfn, in.remoteSfn, 0}),
        INCREMENTS_PER_PERIOD);
    all.extended = in.extended;
    all.inc = in.inc;
    if (in.extended != 0) {
        const BfnExtended e = unpackBfnExtended(in.word1, in.word2);
        all.e_sfc = e.e_sfc;
        all.rc_state = e.rc_state;
        all.jump = e.jump;
        all.ms_flag = e.ms_flag;
        all.coldRestartFlag_tmp = e.coldRestartFlag_tmp;
        // Both units' inc halves make up the loop; half of it is one way.
        const double loop = KvdLoz6Math_fmodSignY(static_cast<double>(e.inc_diff) + in.inc,
                                                  INCREMENTS_PER_FRAME);
        all.meanDifference = KvdLoz6Math_wrapSymmetric(diff - 0.5 * loop, INCREMENTS_PER_PERIOD);
    } else {
        KVD_TRACE(TRACE_TUHWIF, TRACE_7,
                  "tuHwIf_readBfnInAll: Received BFN_IN information has not been updated");
    }
    all.valid = 1;
    s->failedReads = 0;
    return 0;
}

int tuHwIf_readBfnInAll(BfnAll& all) { return tuHwIf_readBfnAll(all); }

void tuHwIf_writeBfnOut(u32 word1, u32 word2)
{
    if (!writeRegister(REG_BFN_OUT_WORD1, word1)) return;
    node::ioBarrier();
    writeRegister(REG_BFN_OUT_WORD2, word2);
}

void tuHwIf_writeBfnOutPacked(u32 inc_diff, u32 e_sfc, u32 rc_state, u32 jump, u32 coldRestartFlag_tmp,
                              u32 ms_flag)
{
    const BfnOutWords words = packBfnExtended(
        {inc_diff, e_sfc, rc_state, coldRestartFlag_tmp, jump, ms_flag});
    tuHwIf_writeBfnOut(words.word1, words.word2);
}
