#pragma once
// Arrays of tables in a TOML file ("[[hooks]]"), added and removed as text: every byte of the
// user's document stays as written. Vantler's tables are appended at the end of the file (keys
// after a table header belong to that table, so nothing of the user's may follow them), each
// after one line break, and removing them takes exactly those bytes away again.

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/json.h"

namespace TomlTables {

// One table: its keys in order, each a string or an integer.
using Table = std::vector<std::pair<std::string, Json>>;
// Whether a table (its keys' values, strings unquoted) is Vantler's.
using IsOurs = std::function<bool(const Table&)>;

// The tables of the array `name` in the document, in order; values other than one-line strings
// and integers are left out.
std::vector<Table> tables(std::string_view text, std::string_view name);

// Why the document cannot take tables of the array `name`: the name is already used for a
// value or a plain table ("line 4: hooks is not an array of tables"). Nothing when it can.
std::optional<std::string> conflict(std::string_view text, std::string_view name);

// The document without the tables of `name` for which `ours` holds: each goes with the line
// break before it. `removed` tells whether anything was taken.
std::string strip(std::string_view text, std::string_view name, const IsOurs& ours,
                  bool* removed = nullptr);

// The document with the tables appended, written with basic strings and integers.
std::string append(std::string_view text, std::string_view name, const std::vector<Table>& add);

}  // namespace TomlTables
