// kvd_hwif_print.cpp - "tuhwif related data": what the hardware interface holds and reads now.
#include "hw/hali.h"
#include "hw/kvd_hwif.h"
#include "hw/kvd_hwif_priv.h"

#include "node/platform.h"

using namespace hwif;
using node::shellPrintf;

namespace {

void printBoard()
{
    const BaseAddresses& bases = baseAddresses();
    const u32 revision = revisionAtStart();
    shellPrintf("\n***** tuhwif related data *****\n");
    shellPrintf("board type                  : %u\n", getBoardType());
    shellPrintf("FPGA base addresses         : A=0x%08x B=0x%08x C=0x%08x D=0x%08x\n", bases.A, bases.B,
                bases.C, bases.D);
    shellPrintf("FPGA revision               : 0x%08x, %s\n", revision,
                tuHwIf_isRev3() != 0 ? "Is P3" : " Not P3");
    shellPrintf("external phase detector     : %u\n", extPhaseDetector());
}

void printDivider()
{
    shellPrintf("nominal nomDiv, K, M        : %u, %lld, %lld\n", tuHwIf_readNomDiv(),
                static_cast<long long>(tuHwIf_readInitDeltaSigmaK()),
                static_cast<long long>(tuHwIf_readInitDeltaSigmaM()));
    shellPrintf("present divisor, K, M       : %u, %lld, %lld\n", tuHwIf_readNominalDivisor(),
                static_cast<long long>(tuHwIf_readDeltaSigmaK()),
                static_cast<long long>(tuHwIf_readDeltaSigmaM()));
    shellPrintf("nomDiv_old                  : %.1f\n", nomDivOld());
    shellPrintf("relative frequency          : %-16.17g\n", tuHwIf_readCurrentFrequency());
    const WanderState wander = wanderState();
    shellPrintf("wander active, index, offset: %u, %u, %-16.17g\n", wander.active, wander.index,
                tuHwIf_wanderOffset());
    const u32 synth = tuHwIf_readSynthStatus();
    shellPrintf("synthesiser status          : 0x%x (synth C %s, synth B %s, 30,72 MHz feedback %s)\n", synth,
                (synth & 0x1) != 0 ? "locked" : "not locked", (synth & 0x4) != 0 ? "locked" : "not locked",
                (synth & 0x8) != 0 ? "present" : "missing");
}

void printReferences()
{
    const u32 select = readRegisterOr0(REG_SELECT);
    const u32 enable = readRegisterOr0(REG_INT_ENABLE);
    shellPrintf("reference select register   : 0x%08x, GPS output %s\n", select,
                (select & SELECT_GPS_OUT) != 0 ? "on" : "off");
    shellPrintf("toggle status, register     : 0x%x, 0x%08x\n", tuHwIf_readToggleStatus(),
                tuHwIf_readToggleStatusReg());
    shellPrintf("interrupts enabled          : 0x%x\n", interruptsFromBoard(getBoardType(), enable));
    u16 mfn = 0;
    u16 sfn = 0;
    u32 inc = 0;
    const int result = tuHwIf_readSfc(mfn, sfn, inc);
    shellPrintf("frame counter               : mfn=%u sfn=%u inc=%u (result %d)\n", mfn, sfn, inc, result);
}

void printOscillator()
{
    char serial[18] = "";
    u8 version = 0;
    u8 manufacturer = 0;
    const int result = HALI_readOcxoSerial(serial, version, manufacturer);
    OcxoParams params{};
    HALI_getOcxoParams(params);
    shellPrintf("OCXO serial number          : %s (result %d)\n", serial, result);
    shellPrintf("OCXO EEPROM version, maker  : %u, %u\n", version, manufacturer);
    shellPrintf("OCXO part number            : %s\n", heldPartNumber());
    shellPrintf("OcxoNominalFreq             : %-16.17g\n", params.nominalFrequency);
    shellPrintf("OcxoCoeffA0                 : %-16.17g\n", params.a0);
    shellPrintf("OcxoCoeffA1                 : %-16.17g\n", params.a1);
    shellPrintf("OcxoCoeffA2                 : %-16.17g\n", params.a2);
    shellPrintf("OcxoCoeffA3                 : %-16.17g\n", params.a3);
    shellPrintf("OcxoMinTemp                 : %-16.17g\n", params.tempMin);
    shellPrintf("OcxoMaxTemp                 : %-16.17g\n", params.tempMax);
    double volts = 0;
    const int tempResult = tuHwIf_readOcxoTemp(volts);
    shellPrintf("OCXO temperature            : %-16.17g V (result %d)\n", volts, tempResult);
    shellPrintf("calibrated, warning days    : %d, %u\n", tuHwIf_isCalibrated(), tuHwIf_calibrationLimit());
}

}  // namespace

void tuHwIf_printInfo()
{
    printBoard();
    printDivider();
    printReferences();
    printOscillator();
}
