// table_reader.h - Typed access to a TOML table with errors that name file, line and reason.
#pragma once
#include "ose/types.h"

#include <toml++/impl/forward_declarations.h>   // a reader includes <toml++/toml.h>

#include <initializer_list>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace sim {

/// What is wrong with a scenario: one line, "file:line: reason".
class ScenarioError : public std::runtime_error {
public:
    ScenarioError(const std::string& file, u32 line, const std::string& reason)
        : std::runtime_error(file + ":" + std::to_string(line) + ": " + reason)
    {
    }
};

/// "90s", "1h30m", "2d", "500ms" or a bare number of seconds; nothing when it is none of these.
std::optional<double> parseDuration(const std::string& text);

/// What a reader asked of its table: keys, and the words that a choice between some would have taken. For
/// completion; the readers of one thread note it while one exists.
struct ReadNotes {
    ReadNotes();
    ~ReadNotes();
    ReadNotes(const ReadNotes&) = delete;
    ReadNotes& operator=(const ReadNotes&) = delete;

    std::vector<std::string> keys;
    std::vector<std::pair<std::string, std::string>> words;   // key, word
};

/// Reads the keys of one table; each key is asked for at most once, and `finish` refuses those that nobody
/// asked for. Every getter without a default refuses a missing key, or the one that was meant for it:
/// "duraton" is told at its own line.
class TableReader {
public:
    TableReader(const toml::table& table, std::string file, std::string what);

    bool has(const char* key) const;
    std::string text(const char* key);
    std::string text(const char* key, const std::string& fallback);
    double number(const char* key);
    double number(const char* key, double fallback);
    double notNegative(const char* key, double fallback);   // of a size: noise, spread
    i64 integer(const char* key, i64 lowest, i64 highest);
    i64 integer(const char* key, i64 lowest, i64 highest, i64 fallback);
    bool boolean(const char* key, bool fallback);
    double seconds(const char* key);                    // a duration
    double seconds(const char* key, double fallback);
    std::vector<std::string> texts(const char* key);    // an array of texts; empty when missing
    std::vector<double> numbers(const char* key);       // an array of numbers; empty when missing
    /// One of the words; its value.
    template <typename T>
    T choice(const char* key, std::initializer_list<std::pair<const char*, T>> words,
             std::optional<T> fallback = std::nullopt)
    {
        for (const auto& [name, value] : words) noteWord(key, name);
        if (!has(key) && fallback) {
            take(key);
            return *fallback;
        }
        const std::string word = text(key);
        std::string known;
        for (const auto& [name, value] : words) {
            if (word == name) return value;
            known += known.empty() ? name : std::string(", ") + name;
        }
        fail(key, "'" + word + "' is none of " + known);
    }
    /// One row of a table that is kept by `word`; any other word "is no" such thing.
    template <typename Row, std::size_t N>
    const Row& row(const char* key, const Row (&rows)[N], const char* isNo)
    {
        for (const Row& r : rows) noteWord(key, r.word);
        const std::string word = text(key);
        for (const Row& r : rows)
            if (word == r.word) return r;
        fail(key, "'" + word + "' is no " + isNo);
    }
    /// A table below this one, nullptr when missing.
    const toml::table* table(const char* key);
    /// An array of tables below this one, nullptr when missing.
    const toml::array* tables(const char* key);
    toml::date_time dateTime(const char* key, const toml::date_time& fallback);

    void finish() const;

    u32 line() const { return line_; }
    const std::string& file() const { return file_; }
    [[noreturn]] void fail(const std::string& reason) const;
    [[noreturn]] void fail(const char* key, const std::string& reason) const;

private:
    static void noteWord(const char* key, const char* word);
    const toml::node* take(const char* key);
    const toml::node& need(const char* key);
    /// Refuses a key that is a letter or two away from the one that is missing.
    void refuseTypoOf(const std::string& key) const;

    const toml::table& table_;
    std::string file_;
    std::string what_;
    u32 line_;
    std::set<std::string> taken_;
};

}  // namespace sim
