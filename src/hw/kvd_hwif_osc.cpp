// kvd_hwif_osc.cpp - Fractional divider behind the oscillator: ratio = register + 1 + K/M.
#include "hw/kvd_hwif.h"
#include "hw/kvd_hwif_priv.h"

#include "base/kvd_math.h"
#include "base/trace_groups.h"
#include "base/tu_common.h"
#include "hw/kvd_hwif_upcalls.h"
#include "node/mmio.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "ose/ose.h"
#include "unit/kvd_ref_table.h"
#include "unit/kvd_unit_link.h"

#include <array>
#include <cstdio>

using namespace hwif;

namespace {

constexpr u32 DIVISOR_MASK = 0x3FFF;
constexpr double LIMIT_MASTER = 1.05e-5;
constexpr double LIMIT_MASTER_SOCPRI = 1.01e-5;
constexpr double LIMIT_SLAVE_IDL2 = 1.02e-5;
constexpr double LIMIT_SLAVE_IDL1 = 1.0096e-5;
constexpr double ONE_INCREMENT_s = 8.138020833333334e-09;   // 1/122880000 s
constexpr double OCXO_NOMINAL_Hz = 10000000.0;
constexpr int READ_BACKS = 4;
constexpr OSTIME READ_BACK_DELAY_ms = 10;

struct State {
    u32 isRev3 = 0;
    u32 extPhaseDetector = 0;
    double nomDiv_old = 0;      // divisor last written, register form
};
ose::ModuleData<State> s;

/// Reads back until `matches`; `failed` is told each miss by its number. The write isn't repeated.
template <typename Matches, typename Failed>
bool readsBack(Matches matches, Failed failed)
{
    for (int attempt = 1; attempt <= READ_BACKS; ++attempt) {
        if (matches()) return true;
        failed(attempt);
        ose::delay(READ_BACK_DELAY_ms);
    }
    return false;
}

bool writeDeltaSigma(u32 idHigh, u32 idLow, i64 value)
{
    return writeRegister(idHigh, deltaSigmaHigh(value)) && writeRegister(idLow, deltaSigmaLow(value));
}

std::array<char, 24> decimal(i64 value)
{
    std::array<char, 24> text{};
    std::snprintf(text.data(), text.size(), "%lld", static_cast<long long>(value));
    return text;
}

i64 readDeltaSigma(u32 idHigh, u32 idLow)
{
    const auto high = readRegister(idHigh);
    return high ? deltaSigmaValue(*high, readRegisterOr0(idLow)) : 0;
}

}  // namespace

// ---- nominal values ---------------------------------------------------------------------------

namespace hwif {

NominalValues nominalValues() { return nominalValues(getBoardType(), s->isRev3, s->extPhaseDetector); }

FrequencyWords frequencyWords(const NominalValues& nominal, double relative, double wander)
{
    constexpr double DIVISOR_MAX = 16383.0;
    const double U_nom = nominalRatio(nominal);
    const double U = U_nom * (1 + relative + wander);
    double D = nominal.nomDiv;
    if (isBeyond(U - D - 1, 1)) D = KvdLoz6Math_roundHalfDown(U);
    const double divisor = D - 1;
    if (!(divisor >= 0 && divisor <= DIVISOR_MAX)) return {U_nom, U, divisor};
    // D stands for register + 1, so that K is what the ratio has above it, of either sign.
    const i64 K = static_cast<i64>(KvdLoz6Math_roundHalfDown((U - D) * static_cast<double>(nominal.M)));
    return {U_nom, U, divisor, K, true};
}

double frequencyLimit(u8 isMaster, u8 selectedRef, u32 idlMode)
{
    if (isMaster != 0) return selectedRef == SOCPRI_REF ? LIMIT_MASTER_SOCPRI : LIMIT_MASTER;
    return idlMode == KVD_BIRAIIF_IDL_MODE_2 ? LIMIT_SLAVE_IDL2 : LIMIT_SLAVE_IDL1;
}

double currentFrequency(const NominalValues& nominal, u32 divisor, i64 K, i64 M)
{
    if (M == 0) return 0.0;
    const double ratio = divisor + 1.0 + static_cast<double>(K) / static_cast<double>(M);
    return ratio / nominalRatio(nominal) - 1;
}

void setRev3(u32 isRev3) { s->isRev3 = isRev3; }
void setExtPhaseDetector(u32 present) { s->extPhaseDetector = present; }
u32 extPhaseDetector() { return s->extPhaseDetector; }
double nomDivOld() { return s->nomDiv_old; }
void setNomDivOld(double divisor) { s->nomDiv_old = divisor; }

}  // namespace hwif

u32 tuHwIf_isRev3() { return s->isRev3; }
u32 tuHwIf_readNomDiv() { return nominalValues().nomDiv; }
i64 tuHwIf_readInitDeltaSigmaM() { return nominalValues().M; }
i64 tuHwIf_readInitDeltaSigmaK() { return nominalValues().K; }

double tuHwIf_factoryDivider() { return nominalRatio(nominalValues()); }

double tuHwIf_calcOcxoGain(double U)
{
    if (U == 0.0) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "KvdLoz6TuReg_calcOcxoGain: division by 0!");
        return -1.0 / tuHwIf_factoryDivider();
    }
    return -1.0 / U;
}

bool tuHwIf_isOverOneIncrement(double a, double b)
{
    return isBeyond(a, ONE_INCREMENT_s) || isBeyond(b, ONE_INCREMENT_s);
}

double tuHwIf_relativeNominalOffset()
{
    return (tuHwIf_readOcxoCoeff(0) - OCXO_NOMINAL_Hz) / OCXO_NOMINAL_Hz;
}

// ---- registers --------------------------------------------------------------------------------

u32 tuHwIf_readNominalDivisor() { return readRegisterOr0(REG_NOMINAL_DIVISOR) & DIVISOR_MASK; }

void tuHwIf_writeNominalDivisor(u32 divisor)
{
    const u32 value = divisor & DIVISOR_MASK;
    if (!writeRegister(REG_NOMINAL_DIVISOR, value)) return;
    // Whoever wrote it: the next steering step must know which divisor its K belongs to.
    s->nomDiv_old = value;
    const auto failed = [](int attempt) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "writeNominalDivisor failed %d times", attempt);
    };
    if (!readsBack([&] { return tuHwIf_readNominalDivisor() == value; }, failed))
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "writeNominalDivisor failed for value :%u", divisor);
}

i64 tuHwIf_readDeltaSigmaM() { return readDeltaSigma(REG_DS_M_HIGH, REG_DS_M_LOW); }
i64 tuHwIf_readDeltaSigmaK() { return readDeltaSigma(REG_DS_K_HIGH, REG_DS_K_LOW); }

void tuHwIf_writeDeltaSigmaM(i64 M)
{
    if (!writeDeltaSigma(REG_DS_M_HIGH, REG_DS_M_LOW, M)) return;
    const auto failed = [](int attempt) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "writeDeltaSigmaM failed %d times", attempt);
    };
    if (!readsBack([&] { return tuHwIf_readDeltaSigmaM() == M; }, failed))
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "writeDeltaSigmaM failed for value :%s", decimal(M).data());
}

void tuHwIf_writeDeltaSigmaK(i64 K)
{
    if (!writeDeltaSigma(REG_DS_K_HIGH, REG_DS_K_LOW, K)) return;
    const auto failed = [](int attempt) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "writeDeltaSigmaK failed %d times", attempt);
    };
    if (!readsBack([&] { return tuHwIf_readDeltaSigmaK() == K; }, failed))
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "writeDeltaSigmaK failed for value :%s", decimal(K).data());
}

void hwif::tuHwIf_writeSynthcDivider(u32 divider)
{
    if (!writeRegister(REG_SYNTH_C_DIVIDER, divider)) return;
    const auto failed = [](int attempt) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "writeSynthcDivider failed %d times", attempt);
    };
    if (!readsBack([&] { return readRegisterOr0(REG_SYNTH_C_DIVIDER) == divider; }, failed))
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "writeSynthcDivider failed for value :%u", divider);
}

void tuHwIf_enableDeltaSigma()
{
    const auto address = findRegister(REG_DS_ENABLE);
    if (!address) return;
    const u32 word = node::mmioRead(*address);
    node::mmioWrite(*address, word & ~BIT31);
    node::ioBarrier();
    node::mmioWrite(*address, word | BIT31);
}

// ---- steering ---------------------------------------------------------------------------------

void tuHwIf_adjustFrequency(double relative)
{
    const NominalValues nominal = nominalValues();
    const FrequencyWords words = frequencyWords(nominal, relative, tuHwIf_wanderOffset());
    const double limit = frequencyLimit(HWIF_UPCALLS.isMaster(), KvdLoz6TuRef_selectedRef(),
                                        KvdLoz6BiraIifAdm_idlMode());
    if (!isUpTo(relative, limit) || !words.inRange) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_INFO,
                  "Warning - anomaly detected - phase offset for OCXO frequency controlling it "
                  "outside of usual limits (current value %-17.16g [s]) - this indicates "
                  "potential problem",
                  relative);
        KVD_TRACE(
            TRACE_TUHWIF, TRACE_INFO,
            "K = %lld, M = %lld, nomDiv = %u, nomDiv_old = %.1f, U_nom = %-17.16g, U = %-17.16g",
            static_cast<long long>(nominal.K), static_cast<long long>(nominal.M), nominal.nomDiv,
            s->nomDiv_old, words.U_nom, words.U);
        return;
    }
    const u32 divisor = static_cast<u32>(words.divisor);
    if (static_cast<u32>(s->nomDiv_old) != divisor) tuHwIf_writeNominalDivisor(divisor);
    tuHwIf_writeDeltaSigmaK(words.K);
    KVD_TRACE(TRACE_TUHWIF, TRACE_3, "Writing to D/S: nomDiv = %u, K = %lld , M = %lld", divisor,
              static_cast<long long>(words.K), static_cast<long long>(nominal.M));
    tuHwIf_enableDeltaSigma();
}

double tuHwIf_readCurrentFrequency()
{
    return currentFrequency(nominalValues(), tuHwIf_readNominalDivisor(), tuHwIf_readDeltaSigmaK(),
                            tuHwIf_readDeltaSigmaM());
}

double tuHwIf_getCurrentFreqOffset() { return tuHwIf_readCurrentFrequency(); }

// ---- cold start -------------------------------------------------------------------------------

bool hwif::coldStartSynthesiser(u32 revision)
{
    const NominalValues nominal = nominalValues();
    KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "Init delta sigma values");
    tuHwIf_writeSynthcDivider(nominal.synthC);
    tuHwIf_writeDeltaSigmaM(nominal.M);
    tuHwIf_writeDeltaSigmaK(nominal.K);
    tuHwIf_writeNominalDivisor(nominal.nomDiv - 1);
    tuHwIf_enableDeltaSigma();
    if (hasMultiplicatorReadBack(revision)) {
        if (!writeAndCheckMultiplicator()) return false;
    } else if (!tuHwIf_writeMultiplicator()) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "Error while writing multiplicator values");
        return false;
    }
    if (s->extPhaseDetector == 0) return true;
    enableExternalPll();
    if (tuHwIf_writeExternalPllIC()) return true;
    KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "Error while writing external pll IC values");
    return false;
}
