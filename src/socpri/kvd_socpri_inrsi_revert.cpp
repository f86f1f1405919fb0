// A scan moves the oscillator; when it fails, the synthesiser goes back to where it stood.
#include "socpri/kvd_socpri_inrsi_master_int.h"

#include "hw/kvd_hwif.h"
#include "mp/kvd_iifadm_send.h"

namespace inrsi::master {

namespace {

SynthesiserCopy present()
{
    return {1, tuHwIf_readDeltaSigmaK(), tuHwIf_readDeltaSigmaM(), tuHwIf_readNominalDivisor()};
}

/// The register holds the divider's integer part less one.
double integerPart(const SynthesiserCopy& copy) { return copy.integerPart + 1.0; }

}  // namespace

double relativeChange(const SynthesiserCopy& a, const SynthesiserCopy& b)
{
    const double a1 = integerPart(a), a0 = integerPart(b);
    const double b1 = static_cast<double>(a.numerator), b0 = static_cast<double>(b.numerator);
    const double c1 = static_cast<double>(a.denominator), c0 = static_cast<double>(b.denominator);
    if (c1 == 0.0 || c0 == 0.0) return 0.0;    // registers that can't be read
    return ((a1 - a0) * c1 * c0 + b1 * c0 - b0 * c1) / (c1 * (a0 * c0 + b0));
}

void saveSynthesiser()
{
    record().synthesiser = present();
    log(INRSI_CL_EV_READ_DELTA_SIGMA);
}

void dropSynthesiserCopy() { record().synthesiser = {}; }

void revertSynthesiser()
{
    const SynthesiserCopy saved = record().synthesiser;
    if (saved.valid == 0) return log(INRSI_CL_EV_IGNORED_DELTA_SIGMA_REVERSAL);
    const double deltaFreq = relativeChange(present(), saved);
    tuHwIf_writeNominalDivisor(saved.integerPart);
    tuHwIf_writeDeltaSigmaM(saved.denominator);
    tuHwIf_writeDeltaSigmaK(saved.numerator);
    tuHwIf_enableDeltaSigma();
    KvdLoz6TuIifAdm_sendSocpriSduFollowOcxoRevertInd(deltaFreq);
    dropSynthesiserCopy();
    log(INRSI_CL_EV_REVERTED_DELTA_SIGMA);
}

}  // namespace inrsi::master
