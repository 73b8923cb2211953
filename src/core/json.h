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

// How deeply arrays and objects may nest in text from outside. Everything that walks a parsed
// value recursively (serialising it, describing a tool's input) relies on this bound.
inline constexpr size_t kMaxDepth = 128;

// Whether no array or object in `text` nests deeper than `maxDepth`; strings are skipped.
bool nestsWithin(std::string_view text, size_t maxDepth = kMaxDepth);

// Told of every text refused for its depth (the app logs it; the hook stays silent).
extern void (*depthRejected)(size_t bytes, size_t maxDepth);

// Parses text, returning a discarded value on any error (no exceptions escape). Text nested
// deeper than `maxDepth` is rejected before parsing, and `depthRejected` is told.
Json parseBounded(std::string_view text, size_t maxDepth = kMaxDepth);
// The same with the usual bound: the one way outside text becomes JSON.
Json parse(std::string_view text);

}  // namespace JsonField
