// check_values.h - Reading of the check values' groups, for the replay tests of this folder.
#pragma once
#include "hw/fake_bus.h"
#include "ref/ref_types.h"
#include "support/vectors.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <stdexcept>

namespace hwtest {

using vectors::json;
using namespace hwif;

inline const json& group(const json& doc, const std::string& name)
{
    for (const json& g : doc["groups"])
        if (g["name"] == name) return g;
    throw std::runtime_error("no group " + name);
}

inline std::string idOf(const json& v) { return "id " + v["id"].dump() + " " + v["in"].dump(); }

inline u32 u(const json& v) { return static_cast<u32>(v.get<i64>()); }
/// What a failed operation leaves is told as null and is zero.
inline u32 uOrZero(const json& v) { return v.is_null() ? 0 : u(v); }
inline double numberOrZero(const json& v) { return v.is_null() ? 0.0 : vectors::number(v); }

/// Sets the registers that an input names by their number.
inline void setRegisters(Bench& bench, const json& in)
{
    for (const auto& [key, value] : in.items())
        if (std::isdigit(static_cast<unsigned char>(key[0])) != 0 && !value.is_null())
            bench.set(static_cast<u32>(std::stoul(key)), u(value));
}

/// Expected writes as (address, value).
inline std::vector<std::pair<u32, u32>> expected(Bench& bench, const json& writes)
{
    std::vector<std::pair<u32, u32>> list;
    for (const json& w : writes) list.emplace_back(bench.address(u(w[0])), u(w[1]));
    return list;
}

inline NominalValues nominalOf(const std::string& name)
{
    return name == "isRev3" ? NOMINAL_REV3 : name == "ext" ? NOMINAL_EXT_PHASE
         : name == "type2" ? NOMINAL_TYPE2 : NOMINAL_TYPE1;
}

inline double limitOf(const std::string& role)
{
    if (role == "master") return frequencyLimit(1, TU_REF, 0);
    if (role == "master SOCPRI") return frequencyLimit(1, SOCPRI_REF, 0);
    return frequencyLimit(0, TU_REF, role == "slave IDL 2" ? 1 : 0);
}

inline void near(double value, const json& wanted, const json& tol)
{
    const double w = vectors::number(wanted);
    const double allowed =
        tol.is_object() ? tol.value("abs", 0.0) + tol.value("rel", 0.0) * std::fabs(w) : 0.0;
    EXPECT_LE(std::fabs(value - w), allowed) << value << " wanted " << w;
}

inline const json NONE;
inline const json& tolOf(const json& v, const json& g)
{
    return v.contains("tol") ? v["tol"] : g.contains("tol") ? g["tol"] : NONE;
}

}  // namespace hwtest
