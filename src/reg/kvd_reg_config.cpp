// Reference configuration: limits and noises of the filter and the control law by reference.
#include "base/trace_groups.h"
#include "node/trace.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control.h"
#include "reg/kvd_reg_estimate.h"
#include "reg/kvd_reg_imprec.h"
#include "reg/kvd_reg_measure.h"
#include "sig/ref_types.h"

namespace {

constexpr u32 RECOVERY_EVENT_CONFIGURED = 2;

constexpr double F_LIM = 1.7e-8;            // relative frequency of the budget
constexpr double F_LIM_GPS_OUT = 1.7e-9;
constexpr double T_LIM_LOW = 5e-7, T_LIM_HIGH = 1e-5;                   // s
constexpr double T_LIM_LOW_GPS_OUT = 5e-8, T_LIM_HIGH_GPS_OUT = 1e-7;
constexpr double T_LIM_HIGH_AFTER_GPS_OUT = 2e-7;
constexpr double VAR_F_GPS_OUT = 5e-21;     // the other unit's steering, per second

void loadCoefficients()
{
    double coeff[3];
    KvdLoz6TuReg_temperatureCoefficients(coeff);
    KvdLoz6TuReg_loadTemperatureCoefficients(coeff);
}

void configureGpsOut()
{
    loadCoefficients();
    KvdLoz6TuReg_clearDegradationCounter();
    KvdLoz6TuReg_setSystemNoise(0.0, VAR_F_GPS_OUT);
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Set frequency system noise");
    KvdLoz6TuReg_setLowerTimeLimit(T_LIM_LOW_GPS_OUT);
    KvdLoz6TuReg_setHigherTimeLimit(T_LIM_HIGH_GPS_OUT);
    KvdLoz6TuReg_setFrequencyLowerLimit(F_LIM_GPS_OUT);
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Set time and freqency limits");
}

void configureGpsOsl()
{
    KvdLoz6TuReg_setFrequencyLimit(F_LIM);
    KvdLoz6TuReg_setFrequencyLowerLimit(F_LIM_GPS_OUT);
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "The frequency budget is set to GPS_OUT value");
    KvdLoz6TuReg_setLowerTimeLimit(T_LIM_LOW_GPS_OUT);
    KvdLoz6TuReg_setHigherTimeLimit(T_LIM_HIGH_GPS_OUT);
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "The time limits for time locked is set to GPS_OUT values");
    KvdLoz6TuReg_setSystemNoise(0.0, VAR_F_GPS_OUT);
    loadCoefficients();
    KvdLoz6TuReg_clearDegradationCounter();
}

void configureNoRef()
{
    const bool endsGpsOut = KvdLoz6TuReg_selectedRef() == TU_GPS_OUT_REF;
    KvdLoz6TuReg_setHigherTimeLimit(endsGpsOut ? T_LIM_HIGH_AFTER_GPS_OUT : T_LIM_HIGH);
    KvdLoz6TuReg_setSystemNoise(0.0, 0.0);
}

void configureDefault()
{
    KvdLoz6TuReg_setFrequencyLimit(F_LIM);
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "The frequency budget is set to default value");
    KvdLoz6TuReg_setLowerTimeLimit(T_LIM_LOW);
    KvdLoz6TuReg_setHigherTimeLimit(T_LIM_HIGH);
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "The time limits for time locked is set to default values");
    KvdLoz6TuReg_setSystemNoise(0.0, 0.0);
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Set frequency system noise to 0");
    KvdLoz6TuReg_clearDegradationCounter();
}

}  // namespace

void KvdLoz6TuReg_configRefType(u32 refType, u32 froId, u32 froClassNo)
{
    static_cast<void>(froClassNo);          // the reference's type tells its class
    switch (refType) {
    case TU_GPS_OUT_REF:   configureGpsOut();   break;
    case TU_SR_GPSOSL_REF: configureGpsOsl();   break;
    case TU_SR_NO_REF:     configureNoRef();    break;
    default:               configureDefault();  break;
    }
    KvdLoz6TuReg_recoveryEvent(RECOVERY_EVENT_CONFIGURED);
    KvdLoz6TuReg_handleConfigRefType(refType, froId);
}
