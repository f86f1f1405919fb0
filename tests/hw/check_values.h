// check_values.h - Reading of the check values' groups, for the replay tests of this folder.
#pragma once
#include "hw/fake_bus.h"
#include "sig/ref_types.h"
#include "support/vectors.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <map>
#include <stdexcept>

namespace hwtest {

using vectors::expectNear;
using vectors::toleranceOf;
using vectors::Value;
using namespace hwif;

inline u32 u(const Value& v) { return static_cast<u32>(v.get<i64>()); }
inline double num(const Value& v) { return vectors::number(v); }
/// Compares results with those that the file has under the same names.
inline void expectFields(const Value& wanted, std::initializer_list<std::pair<const char*, double>> fields)
{
    for (const auto& [key, value] : fields) EXPECT_EQ(value, num(wanted[key])) << key;
}
/// Whether a text that stands in the file was traced once.
inline void expectTraced(const Bench& bench, const Value& text)
{
    EXPECT_EQ(bench.bus.countOf(text.get<std::string>()), 1u) << text;
}

/// Sets the registers that an input names by their number.
inline void setRegisters(Bench& bench, const Value& in)
{
    for (const auto& [key, value] : in.items())
        if (std::isdigit(static_cast<unsigned char>(key[0])) != 0 && !value.is_null())
            bench.set(static_cast<u32>(std::stoul(key)), u(value));
}

/// Expected writes as (address, value).
inline std::vector<std::pair<u32, u32>> expected(Bench& bench, const Value& writes)
{
    std::vector<std::pair<u32, u32>> list;
    for (const Value w : writes) list.emplace_back(bench.address(u(w[0])), u(w[1]));
    return list;
}

inline NominalValues nominalOf(const std::string& name)
{
    static const std::map<std::string, NominalValues> BOARDS = {
        {"isRev3", NOMINAL_REV3}, {"ext", NOMINAL_EXT_PHASE}, {"type2", NOMINAL_TYPE2},
        {"type1", NOMINAL_TYPE1}};
    return BOARDS.at(name);
}

inline double limitOf(const std::string& role)
{
    if (role == "master") return frequencyLimit(1, TU_REF, 0);
    if (role == "master SOCPRI") return frequencyLimit(1, SOCPRI_REF, 0);
    if (role == "slave IDL 2") return frequencyLimit(0, TU_REF, 1);
    if (role == "slave IDL 1") return frequencyLimit(0, TU_REF, 0);
    throw std::runtime_error("no limit of the role \"" + role + "\"");
}

inline void near(double value, const Value& wanted, vectors::Tolerance tolerance)
{
    expectNear("value", value, num(wanted), tolerance);
}

}  // namespace hwtest
