// regulator_fields.h - The numbers of the regulator's records, by the names that check values give them.
#pragma once
#include "hw/kvd_hwif.h"
#include "reg/kvd_reg_control_int.h"
#include "reg/kvd_reg_estimate_int.h"
#include "reg/kvd_reg_int.h"
#include "reg/kvd_reg_jump.h"
#include "reg/kvd_reg_measure_int.h"
#include "sig/ref_types.h"
#include "support/vectors.h"
#include "unit/kvd_unit_link.h"

#include <optional>

namespace regtest {

using vectors::json;
using vectors::Tolerance;
using vectors::Value;

/// One number of the running program. Those of the hardware and of the unit's role are set alone.
struct Number {
    std::function<double()> get;
    std::function<void(const Value&)> set;
    Tolerance tolerance;
};

template <typename Record>
Record& record()
{
    if constexpr (std::is_same_v<Record, MeasStateVar>) return measure::state().var;
    else if constexpr (std::is_same_v<Record, ControlStateVar>) return control::state().var;
    else if constexpr (std::is_same_v<Record, EstimateStateVar>) return estimator::state().var;
    else return control::state().var.fix;
}
template <typename Record, typename T>
Number number(T Record::*member, Tolerance tolerance = {})
{
    return {[member] { return static_cast<double>(record<Record>().*member); },
            [member](const Value& v) { record<Record>().*member = v; }, tolerance};
}
/// What `place` refers to.
template <typename Place>
Number number(Place place, Tolerance tolerance = {}) requires std::is_invocable_v<Place>
{
    return {[place] { return static_cast<double>(place()); }, [place](const Value& v) { place() = v; },
            tolerance};
}
inline Number setOnly(std::function<void(const Value&)> set) { return {nullptr, std::move(set), {}}; }

constexpr Tolerance STEP{1e-9, 1e-12};        // divider units
constexpr Tolerance CLOSE{1e-9, 1e-300};

inline const std::map<std::string, Number>& numbers()
{
    using E = EstimateStateVar;
    using C = ControlStateVar;
    using M = MeasStateVar;
    using F = FixFilter;
    constexpr Tolerance REPORT{1e-9, 1.0};        // ns or ppb, whole numbers
    constexpr Tolerance FILTER{1e-9, 1e-14};
    static const std::map<std::string, Number> NUMBERS = {
        // the estimator
        {"T", number(&E::T, CLOSE)}, {"b", number(&E::b, CLOSE)}, {"var_G", number(&E::var_G, CLOSE)},
        {"var_F", number(&E::var_F, CLOSE)}, {"prevRef", number(&E::prevRef)}, {"degrd", number(&E::degrd)},
        {"degrState", number(&E::degrState)}, {"resSign", number(&E::residualSign)},
        {"resSignConst", number(&E::residualSignConstant)}, {"measCount", number(&E::measCount)},
        {"fixFreqMode", number(&E::fixFreqMode)},
        {"x", setOnly([](const Value& v) { record<E>().x_est = v; })},
        {"P", setOnly([](const Value& v) { record<E>().P_est = v; })},
        {"u", setOnly([](const Value& v) { for (u32 i : {0u, 1u}) record<E>().u_tf[i] = v[i]; })},
        {"ifd", setOnly([](const Value& v) { estimator::state().initialFrequencyDrift = v; })},
        {"initialFrequencyDrift",
         number([]() -> auto& { return estimator::state().initialFrequencyDrift; }, CLOSE)},
        // the control law and its filter
        {"U1", number([]() -> auto& { return record<C>().U[1]; }, {0.0, 1e-9})},
        {"du", number([]() -> auto& { return record<C>().du[1]; }, STEP)},
        {"regState",
         {[] { return record<C>().regState; }, [](const Value& v) { KvdLoz6TuReg_forceRegState(v); }, {}}},
        {"nomDiv", number(&C::nomDiv)}, {"K", number(&C::K, {0.0, 1.0})}, {"M", number(&C::M)},
        {"f_ix", number(&C::f_ix)}, {"t_ix", number(&C::t_ix)}, {"f_lim_low", number(&C::f_lim_low)},
        {"f_lim_high", number(&C::f_lim_high)}, {"t_lim_low", number(&C::t_lim_low)},
        {"t_lim_high", number(&C::t_lim_high)}, {"xf_limit", number(&C::xf_limit)},
        {"f_acc_report", number(&C::f_acc_report, REPORT)},
        {"t_acc_report", number(&C::t_acc_report, REPORT)},
        {"last", number(&F::last, FILTER)}, {"mean", number(&F::meanStep, FILTER)},
        {"meanr", number(&F::meanRisingStep, FILTER)}, {"sum", number(&F::stepSum, FILTER)},
        {"sumr", number(&F::risingStepSum, FILTER)}, {"hyst", number(&F::hyst, FILTER)},
        {"n", number(&F::count)}, {"nr", number(&F::risingCount)}, {"first", number(&F::first)},
        // the measurement core
        {"selectedRef", number(&M::selectedRef)}, {"prevSelectedRef", number(&M::prevSelectedRef)},
        {"t_c_last", number(&M::t_c_last)}, {"t_f_last", number(&M::t_f_last)},
        {"t_mod", number(&M::t_mod_old, CLOSE)}, {"t_mod_old", number(&M::t_mod_old)},
        {"delta0_c", number(&M::delta0_c)}, {"delta0_f", number(&M::delta0_f)},
        {"delta0_slave_c", number(&M::delta0_slave_c)}, {"delta0_slave_f", number(&M::delta0_slave_f)},
        {"refBreak", number(&M::refBreak)}, {"histCountDown", number(&M::histCountDown)},
        {"calibrationCountDown", number(&M::calibrationCountDown)},
        {"max_locked_diff", number(&M::max_locked_diff)},
        {"max_locked_interval_diff", number(&M::max_locked_interval_diff)}, {"vThigh", number(&M::vThigh)},
        {"vTlow", number(&M::vTlow)}, {"vT", number(&M::vT)}, {"vTnorm", number(&M::vTnorm)},
        {"nrBadSamples", number(&M::nrBadSamples)}, {"nrOutRange", number(&M::nrOutRange)},
        {"diffCheckActive", number([]() -> auto& { return measure::state().diffCheckActive; })},
        {"diffCheckAfterJump", number([]() -> auto& { return measure::state().diffCheckAfterJump; })},
        {"noisyCounter", number([]() -> auto& { return regulator::state().initCnt; })},
        {"sfcGpsOffset", number([]() -> auto& { return regulator::state().sfcGpsOffset; })},
        {"sfcPtpOffset", {[] { return KvdLoz6TuReg_sfcPtpOffset(); }, nullptr, {}}},
        // the unit's role and modes, the divider's registers
        {"master", setOnly([](const Value& v) { regulator::state().masterSlaveMode = bool{v} ? 1 : 0; })},
        {"testMode", setOnly([](const Value& v) { regulator::state().testMode = v; })},
        {"dualConfiguration", setOnly([](const Value& v) { regulator::state().dualConfiguration = v; })},
        {"jumpState", setOnly([](const Value& v) { KvdLoz6TuReg_setJumpState(v); })},
        {"idlMode", setOnly([](const Value& v) {
             KvdUnit_link().idlMode = u32{v} == 2 ? KVD_BIRAIIF_IDL_MODE_2 : KVD_BIRAIIF_IDL_MODE_1;
         })},
        {"hw_nomDiv", setOnly([](const Value& v) { tuHwIf_writeNominalDivisor(v); })},
        {"hw_K", setOnly([](const Value& v) { tuHwIf_writeDeltaSigmaK(v); })},
        {"hw_M", setOnly([](const Value& v) { tuHwIf_writeDeltaSigmaM(v); })},
    };
    return NUMBERS;
}

/// Sets those of `fields` that have a name here; what nobody reads of a vector fails by its name.
inline void write(const Value& fields, const std::string& prefix = "")
{
    for (const auto& [name, value] : fields.items()) {
        if (value.is_object()) write(value);
        const auto found = numbers().find(prefix + name);
        if (found != numbers().end() && found->second.set) found->second.set(value);
    }
}

/// Compares one number. False when it has no name here.
inline bool compare(const std::string& name, const Value& wanted, double factor = 1.0)
{
    const auto found = numbers().find(name);
    if (found == numbers().end() || !found->second.get) return false;
    vectors::expectNear(name, found->second.get(), vectors::number(wanted), found->second.tolerance, factor);
    return true;
}
/// Compares a result of the call with the one of its name, else the record's number; null says nothing.
inline void compareAll(const json& results, const Value& wanted, Tolerance tolerance)
{
    for (const auto& [name, value] : wanted.items()) {
        if (value.is_null()) continue;
        const auto found = numbers().find(name);
        if (results.contains(name)) vectors::expect(name, results[name], value, tolerance);
        else if (found != numbers().end() && found->second.get)
            vectors::expect(name, found->second.get(), value, tolerance);
    }
}

}  // namespace regtest
