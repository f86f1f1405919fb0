// vectors.h - Check values of an independent model, read at run time from a folder outside the
// tree. The folder is $TU_VECTORS, else "shared/vectors" in a folder above this source. Tests begin
// with `TU_LOAD_VECTORS(doc, "name.json");` and are skipped with a clear line when the folder isn't
// there.
#pragma once
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace vectors {

using json = nlohmann::json;

/// The folder, empty when there is none.
inline std::filesystem::path folder()
{
    namespace fs = std::filesystem;
    if (const char* given = std::getenv("TU_VECTORS")) return fs::is_directory(given) ? given : "";
    std::error_code ignored;
    for (fs::path at = fs::absolute(__FILE__).parent_path();; at = at.parent_path()) {
        if (fs::is_directory(at / "shared" / "vectors", ignored)) return at / "shared" / "vectors";
        if (at == at.parent_path()) return {};
    }
}

/// Loads one file. False when the folder or the file isn't there; a broken file throws.
inline bool load(const std::string& name, json& document)
{
    const std::filesystem::path dir = folder();
    if (dir.empty()) return false;
    std::ifstream in(dir / name);
    if (!in) return false;
    document = json::parse(in);
    return true;
}

/// A number of the file; "inf", "-inf" and "nan" stand as texts, since JSON has no such numbers.
inline double number(const json& value)
{
    if (value.is_string()) return std::strtod(value.get<std::string>().c_str(), nullptr);
    return value.get<double>();
}

}  // namespace vectors

/// Declares `document` and loads it, or skips the test. Use directly in the body of a TEST.
#define TU_LOAD_VECTORS(document, name)                                                             \
    vectors::json document;                                                                         \
    if (!vectors::load(name, document))                                                             \
    GTEST_SKIP() << "check values not found: " << (name)                                            \
                 << " (set TU_VECTORS to the folder that holds them)"
