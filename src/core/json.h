#pragma once
// Field access for loosely typed JSON payloads: a missing key, or a value of the wrong type,
// reads as the default. Every payload, settings file and message goes through these.

#include <cstdint>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

using Json = nlohmann::json;

namespace JsonField {

// The value under `key` when `obj` is an object holding that key; nullptr otherwise.
const Json* find(const Json& obj, std::string_view key);

std::string str(const Json& obj, std::string_view key, std::string_view fallback = {});
double num(const Json& obj, std::string_view key, double fallback = 0);
// Integers accept any JSON number; fractions are truncated towards zero.
int64_t integer(const Json& obj, std::string_view key, int64_t fallback = 0);
bool boolean(const Json& obj, std::string_view key, bool fallback = false);
// An empty object or array (shared, never null) when the key is absent or of another type.
const Json& object(const Json& obj, std::string_view key);
const Json& array(const Json& obj, std::string_view key);

bool hasString(const Json& obj, std::string_view key);

// Compact serialisation that never throws: invalid UTF-8 is replaced, not rejected.
std::string compact(const Json& value);
// Compact serialisation that reports failure (invalid UTF-8) by returning an empty string.
std::string compactOrEmpty(const Json& value);

// Parses text, returning a discarded value on any error (no exceptions escape).
Json parse(std::string_view text);

// Nesting deeper than this is refused by parseBounded: copying, comparing and printing a
// value recurse once per level, so a hostile document could exhaust the stack.
inline constexpr size_t kMaxDepth = 256;
// Like parse, but text nested deeper than `maxDepth` is refused (discarded) before parsing.
Json parseBounded(std::string_view text, size_t maxDepth = kMaxDepth);

}  // namespace JsonField
