// vectors.h - Check values: inputs and results of an independent model, see tests/values/README.md.
//
// A replay walks a file through `Value`, which remembers what was read of it. `each` runs one body a vector:
// an exception, a key that isn't there and a key that nobody read are failures that bear the vector's name,
// and the next vector goes on.
#pragma once
#include "tests/support/hex.h"
#include "tests/support/tree.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <span>
#include <stdexcept>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

namespace vectors {

using json = nlohmann::json;

inline std::filesystem::path own() { return projectTree() / "tests/values"; }

/// The folder: $TU_CHECK_VALUES when it is set, else the tree's own.
inline std::filesystem::path folder()
{
    const char* given = std::getenv("TU_CHECK_VALUES");
    return given != nullptr ? given : own();
}

/// Reads one file, packed or plain. A file that is missing or broken throws.
inline json load(const std::filesystem::path& path)
{
    gzFile file = gzopen(path.c_str(), "rb");       // reads plain files as they are
    if (file == nullptr) throw std::runtime_error("check values not found: " + path.string());
    std::string text;
    char piece[65536];
    int got = 0;
    while ((got = gzread(file, piece, sizeof piece)) > 0) text.append(piece, static_cast<std::size_t>(got));
    const int closed = gzclose(file);
    if (got < 0 || closed != Z_OK) throw std::runtime_error("can't be unpacked: " + path.string());
    return json::parse(text);
}

/// A file of the folder by its name, "name.gz" or "name".
inline std::filesystem::path pathOf(const std::string& name)
{
    const std::filesystem::path packed = folder() / (name + ".gz");
    return std::filesystem::exists(packed) ? packed : folder() / name;
}

/// The files of the folder whose names begin so, without ".gz".
inline std::vector<std::string> files(const std::string& prefix)
{
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder())) {
        std::string name = entry.path().filename();
        if (name.ends_with(".gz")) name.resize(name.size() - 3);
        if (name.starts_with(prefix) && name.ends_with(".json")) names.insert(name);
    }
    return {names.begin(), names.end()};
}

/// A number of the file, a truth as 1 or 0; "inf", "-inf", "nan" and hexadecimal ones stand as texts.
inline double number(const json& value)
{
    if (value.is_boolean()) return value.get<bool>() ? 1.0 : 0.0;
    if (!value.is_string()) return value.get<double>();
    const auto& text = value.get_ref<const std::string&>();
    char* end = nullptr;
    const double v = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0') throw std::runtime_error("not a number: \"" + text + "\"");
    return v;
}

/// Words for the reader of a file: nothing to replay.
inline bool isProse(const std::string& key)
{
    static const std::set<std::string> PROSE = {"id",    "name", "about", "note", "notes", "open",
                                                "oracle", "file", "legend", "interface", "replay", "count",
                                                "seeds", "vector", "why", "alternatives",
                                                "depends_on_open_reading"};
    return PROSE.contains(key);
}

/// An integer, of which the type takes what it holds; a fraction is refused by its value.
template <std::integral T>
T whole(const json& value)
{
    if (value.is_number_integer()) return value.get<T>();
    if (number(value) != std::floor(number(value))) throw std::runtime_error("a fraction: " + value.dump());
    return static_cast<T>(number(value));
}

/// What a table has for a word; an unknown word is named.
template <typename Of>
const Of& rowOf(const std::map<std::string, Of>& table, const std::string& word)
{
    const auto found = table.find(word);
    if (found == table.end()) throw std::runtime_error("no replay of \"" + word + "\"");
    return found->second;
}

/// Another reading of an open result, told in words alone, or not at all.
inline bool isReadingInWords(const std::string& key, const json& value)
{
    return key == "alt" && (value.is_string() || value.is_null());
}

/// A view of a part of a file that remembers, for the whole file, which values were read.
class Value {
public:
    using Read = std::unordered_set<const json*>;

    Value(const json& node, Read& read) : node_(&node), read_(&read) {}

    Value operator[](const std::string& key) const
    {
        if (!node_->is_object() || !node_->contains(key))
            throw std::runtime_error("key \"" + key + "\" is missing");
        return {node_->at(key), *read_};
    }
    Value operator[](const char* key) const { return (*this)[std::string(key)]; }
    template <std::integral Index>
    Value operator[](Index index) const { return {node_->at(static_cast<std::size_t>(index)), *read_}; }
    template <typename Key>
    Value at(const Key& key) const { return (*this)[key]; }

    bool contains(const std::string& key) const { return node_->is_object() && node_->contains(key); }
    std::size_t size() const { return node_->size(); }
    bool empty() const { return node_->empty() && (read(), true); }
    bool is_null() const { return node_->is_null() && (read(), true); }
    bool is_object() const { return node_->is_object(); }
    bool is_array() const { return node_->is_array(); }
    bool is_string() const { return node_->is_string(); }
    bool is_number() const { return node_->is_number(); }
    bool is_boolean() const { return node_->is_boolean(); }

    /// All of it counts as read from here on.
    const json& read() const
    {
        read_->insert(node_);
        return *node_;
    }
    /// Those of its keys that say nothing to compare or show elsewhere; any other stays unread.
    void skip(std::initializer_list<const char*> keys) const
    {
        for (const char* key : keys)
            if (contains(key)) (*this)[key].read();
    }
    template <typename T>
    T get() const
    {
        if constexpr (std::is_integral_v<T> && !std::is_same_v<T, bool>) return whole<T>(read());
        else return read().get<T>();
    }
    /// As an argument or a member takes it; texts and truths are numbers too.
    template <typename T>
        requires std::is_arithmetic_v<T>
    operator T() const
    {
        if constexpr (std::is_same_v<T, bool>) return number(read()) != 0.0;
        else if constexpr (std::is_integral_v<T>) return whole<T>(read());
        else return static_cast<T>(number(read()));
    }
    template <std::size_t Size>
    operator std::array<double, Size>() const
    {
        if (size() != Size) throw std::runtime_error(std::to_string(size()) + " numbers");
        std::array<double, Size> all{};
        for (std::size_t i = 0; i < Size; ++i) all[i] = (*this)[i];
        return all;
    }
    template <typename T>
    T value(const std::string& key, T fallback) const
    {
        return contains(key) ? (*this)[key].template get<T>() : fallback;
    }
    std::string value(const std::string& key, const char* fallback) const
    {
        return value(key, std::string(fallback));
    }
    std::string dump() const { return read().dump(); }
    template <typename T>
    friend bool operator==(const Value& a, const T& b) { return a.read() == b; }
    friend bool operator==(const Value& a, const Value& b) { return a.read() == b.read(); }
    friend std::ostream& operator<<(std::ostream& out, const Value& v) { return out << *v.node_; }

    std::vector<std::pair<std::string, Value>> items() const
    {
        std::vector<std::pair<std::string, Value>> all;
        for (const auto& [key, child] : node_->items()) all.emplace_back(key, Value{child, *read_});
        return all;
    }
    class Iterator {
    public:
        Iterator(json::const_iterator at, Read& read) : at_(at), read_(&read) {}
        Value operator*() const { return {*at_, *read_}; }
        Iterator& operator++() { ++at_; return *this; }
        bool operator!=(const Iterator& other) const { return at_ != other.at_; }

    private:
        json::const_iterator at_;
        Read* read_;
    };
    Iterator begin() const { return {node_->begin(), *read_}; }
    Iterator end() const { return {node_->end(), *read_}; }

    /// The paths below this that nobody read, each once, without the indices of arrays.
    std::set<std::string> unread() const
    {
        std::set<std::string> paths;
        collect(*node_, "", paths);
        return paths;
    }

private:
    void collect(const json& node, const std::string& path, std::set<std::string>& paths) const
    {
        if (read_->contains(&node)) return;
        if (node.is_object()) {
            for (const auto& [key, child] : node.items())
                if (!isProse(key) && !isReadingInWords(key, child))
                    collect(child, path.empty() ? key : path + "." + key, paths);
        } else if (node.is_array()) {
            for (const json& child : node) collect(child, path + "[]", paths);
        } else {
            paths.insert(path);
        }
    }

    const json* node_;
    Read* read_;
};

inline double number(const Value& value) { return number(value.read()); }

/// One file, held for as long as its values are used.
class Document {
public:
    /// A section of another folder's file that the tree's own hasn't is one that nobody replays.
    explicit Document(const std::string& name) : json_(load(pathOf(name)))
    {
        const std::filesystem::path known_file = own() / (name + ".gz");
        if (!std::filesystem::exists(known_file) || folder() == own()) return;
        const json known = load(known_file);
        for (const auto& [section, value] : json_.items())
            if (!isProse(section) && !known.contains(section))
                ADD_FAILURE() << "no replay of the section \"" << section << "\"";
    }
    Document(const Document&) = delete;
    Value operator[](const std::string& key) { return root()[key]; }
    Value root() { return {json_, read_}; }

private:
    json json_;
    Value::Read read_;
};

/// What a failure calls a vector.
inline std::string nameOf(const Value& vector, std::size_t index)
{
    std::string name;
    for (const char* key : {"id", "name"}) {
        if (!vector.contains(key)) continue;
        const Value v = vector[key];
        name += (name.empty() ? "" : " ") + (v.is_string() ? v.get<std::string>() : v.dump());
    }
    return name.empty() ? "vector " + std::to_string(index) : name;
}

/// One result of a vector, which `out` holds: as it stands there, or as an alternative has it when it's open.
template <typename T>
void expectOut(const Value& vector, const std::string& key, const T& got)
{
    const Value wanted = vector["out"][key];
    if (wanted == got) return;
    if (vector.contains("open") && vector.contains("alternatives"))
        for (const Value other : vector["alternatives"])
            if (other.contains(key) && other[key] == got) return;
    ADD_FAILURE() << key << " is " << json(got) << ", wanted " << wanted;
}

/// Of a type as a file names it: "u16", "f64[6]", "char[100]".
inline std::size_t widthOf(const std::string& type)
{
    static const std::map<std::string, std::size_t> WIDTHS = {
        {"u8", 1}, {"u16", 2}, {"i16", 2}, {"u32", 4}, {"i32", 4}, {"u64", 8}, {"i64", 8}, {"f64", 8},
        {"char", 1}, {"bytes", 1}};
    const std::size_t count = type.find('[');
    const std::size_t times = count == std::string::npos ? 1 : std::stoul(type.substr(count + 1));
    return rowOf(WIDTHS, type.substr(0, count)) * times;
}

/// Bytes that stand as hexadecimal text.
inline std::vector<std::uint8_t> bytes(const Value& v) { return bench::bytesOf(v.get<std::string>()); }

/// Runs one body; what it throws, and what it leaves unread, is a failure by name.
inline void runOne(const std::string& name, const Value& vector,
                   const std::function<void(const Value&)>& body)
{
    SCOPED_TRACE(name);
    try {
        body(vector);
        for (const std::string& path : vector.unread()) ADD_FAILURE() << "\"" << path << "\" isn't replayed";
    } catch (const std::exception& e) {
        ADD_FAILURE() << e.what();
    }
}

/// Runs `body` once for each vector of a list, which must not be empty.
inline void each(const Value& list, const std::function<void(const Value&)>& body)
{
    EXPECT_GT(list.size(), 0u) << "the list is empty";
    std::size_t index = 0;
    for (const Value vector : list) runOne(nameOf(vector, index++), vector, body);
}

/// The steps of a vector in order, to the first that throws; a failure bears the step's number.
inline void eachStep(const Value& steps, const std::function<void(const Value&)>& body)
{
    std::size_t index = 0;
    for (const Value step : steps) {
        SCOPED_TRACE("step " + std::to_string(index++));
        body(step);
    }
}

/// Runs `body` once for each vector of a file's list.
inline void replay(const std::string& file, const std::string& list,
                   const std::function<void(const Value&)>& body)
{
    SCOPED_TRACE(file);
    Document document(file);
    each(document[list], body);
}

/// The event's name is one of those that a replay looks at, or that show elsewhere.
inline void expectKnown(const json& event, const std::set<std::string>& names)
{
    if (!names.contains(event.at(0))) ADD_FAILURE() << "no replay of the event " << event;
}

/// The rows of a dispatch by a word of the vector.
using Kinds = std::map<std::string, std::function<void(const Value&)>>;

/// Runs the row of `word`; an unknown word is named.
inline void dispatch(const Kinds& kinds, const std::string& word, const Value& vector)
{
    rowOf(kinds, word)(vector);
}

/// Vectors that bear their kind: the row of a kind takes them one by one. A kind that another test replays
/// stands in `elsewhere`; one that nobody knows fails.
inline void eachKind(const Value& list, const Kinds& kinds, const std::set<std::string>& elsewhere = {})
{
    each(list, [&](const Value& vector) {
        const std::string kind = vector["kind"].get<std::string>();
        if (elsewhere.contains(kind)) vector.read();
        else dispatch(kinds, kind, vector);
    });
}

/// A file of groups: the row of a group takes its vectors one by one, beside the group itself. A group that
/// another test replays stands in `elsewhere`.
using Groups = std::map<std::string, std::function<void(const Value& vector, const Value& group)>>;
inline void eachGroup(const Value& groups, const Groups& rows, const std::set<std::string>& elsewhere = {})
{
    EXPECT_GT(groups.size(), 0u);
    for (const Value group : groups) {
        const std::string name = group["name"].get<std::string>();
        if (elsewhere.contains(name)) continue;
        SCOPED_TRACE(name);
        const auto found = rows.find(name);
        if (found == rows.end()) {
            ADD_FAILURE() << "no replay of the group \"" << name << "\"";
            continue;
        }
        static const std::set<std::string> KNOWN = {"op", "tol", "vectors"};
        for (const auto& [key, value] : group.items())
            if (!isProse(key) && !KNOWN.contains(key))
                ADD_FAILURE() << "\"" << key << "\" of the group isn't replayed";
        each(group["vectors"], [&](const Value& vector) { found->second(vector, group); });
    }
}

/// How far a number may lie from the one of the file: relative x |value| + absolute. 0 and 0: exactly.
struct Tolerance {
    double relative = 0.0, absolute = 0.0;
    double of(double wanted) const { return relative * std::fabs(wanted) + absolute; }
};

/// "tol" of the innermost that has one, {"abs", "rel"}; none: exactly.
inline Tolerance toleranceOf(std::initializer_list<Value> innermostFirst)
{
    for (const Value& v : innermostFirst)
        if (v.contains("tol")) return {v["tol"].value("rel", 0.0), v["tol"].value("abs", 0.0)};
    return {};
}

inline void expectNear(const std::string& what, double value, double wanted, Tolerance tolerance,
                       double factor = 1.0)
{
    if (value == wanted || (std::isnan(value) && std::isnan(wanted))) return;
    EXPECT_TRUE(std::fabs(value - wanted) <= tolerance.of(wanted) * factor)
        << what << " is " << testing::PrintToString(value) << ", wanted " << testing::PrintToString(wanted);
}

/// Whether something is what the file wants: numbers within `tolerance`, lists by place, all else equal.
inline bool isNear(const json& got, const json& wanted, Tolerance tolerance = {})
{
    if (got.is_array() && wanted.is_array())
        return std::equal(got.begin(), got.end(), wanted.begin(), wanted.end(),
                          [&](const json& a, const json& b) { return isNear(a, b, tolerance); });
    if (wanted.is_null() || !(got.is_number() || got.is_boolean())) return got == wanted;
    const double is = number(got), w = number(wanted);
    return is == w || (std::isnan(is) && std::isnan(w)) || std::fabs(is - w) <= tolerance.of(w);
}
inline void expect(const std::string& what, const json& got, const Value& wanted, Tolerance tolerance = {})
{
    EXPECT_TRUE(isNear(got, wanted.read(), tolerance)) << what << " is " << got << ", wanted " << wanted;
}
/// Each of `got`, an object, against the one of its name in the file; what is null there says nothing.
inline void expectAll(const json& got, const Value& wanted, Tolerance tolerance = {})
{
    for (const auto& [name, value] : got.items())
        if (!wanted[name].is_null()) expect(name, value, wanted[name], tolerance);
}
/// Each of `wanted` against the one of its name in `is`; what is null in the file says nothing.
inline void expectWanted(const json& is, const Value& wanted, Tolerance tolerance = {})
{
    for (const auto& [name, value] : wanted.items()) {
        if (!is.contains(name)) ADD_FAILURE() << "nothing to compare \"" << name << "\" with";
        else if (!value.is_null()) expect(name, is[name], value, tolerance);
    }
}

/// One named number of a record.
template <typename Record>
struct Field {
    std::string name;
    std::function<double(const Record&)> get;
    std::function<void(Record&, double)> set;
    Tolerance tolerance;
};

template <typename Record, typename T>
Field<Record> field(const char* name, T Record::*member, Tolerance tolerance = {})
{
    return {name, [member](const Record& r) { return static_cast<double>(r.*member); },
            [member](Record& r, double v) { r.*member = static_cast<T>(v); }, tolerance};
}

template <typename Record>
const Field<Record>* find(const std::vector<Field<Record>>& fields, const std::string& name)
{
    for (const Field<Record>& f : fields)
        if (f.name == name) return &f;
    return nullptr;
}

/// Writes one field. False when the table hasn't the name.
template <typename Record>
bool write(const std::vector<Field<Record>>& fields, Record& record, const std::string& name,
           const Value& value)
{
    const Field<Record>* f = find(fields, name);
    if (f == nullptr || !f->set) return false;
    f->set(record, number(value));
    return true;
}

/// Compares one field. False when the table hasn't the name.
template <typename Record>
bool compare(const std::vector<Field<Record>>& fields, const Record& record, const std::string& name,
             const Value& wanted, double factor = 1.0)
{
    const Field<Record>* f = find(fields, name);
    if (f == nullptr) return false;
    expectNear(name, f->get(record), number(wanted), f->tolerance, factor);
    return true;
}

}  // namespace vectors
