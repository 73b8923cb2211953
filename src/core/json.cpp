#include "core/json.h"

#include <cmath>
#include <limits>

namespace JsonField {

const Json* find(const Json& obj, std::string_view key) {
  if (!obj.is_object()) return nullptr;
  auto it = obj.find(key);
  return it == obj.end() ? nullptr : &*it;
}

std::string str(const Json& obj, std::string_view key, std::string_view fallback) {
  const Json* v = find(obj, key);
  if (v && v->is_string()) return v->get_ref<const std::string&>();
  return std::string(fallback);
}

double num(const Json& obj, std::string_view key, double fallback) {
  const Json* v = find(obj, key);
  if (v && v->is_number()) return v->get<double>();
  return fallback;
}

int64_t integer(const Json& obj, std::string_view key, int64_t fallback) {
  const Json* v = find(obj, key);
  if (!v || !v->is_number()) return fallback;
  if (v->is_number_integer()) return v->get<int64_t>();
  if (v->is_number_unsigned()) {
    auto u = v->get<uint64_t>();
    return u > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())
               ? std::numeric_limits<int64_t>::max()
               : static_cast<int64_t>(u);
  }
  double d = v->get<double>();
  if (!std::isfinite(d)) return fallback;
  if (d >= 9.2e18) return std::numeric_limits<int64_t>::max();
  if (d <= -9.2e18) return std::numeric_limits<int64_t>::min();
  return static_cast<int64_t>(d);
}

bool boolean(const Json& obj, std::string_view key, bool fallback) {
  const Json* v = find(obj, key);
  if (v && v->is_boolean()) return v->get<bool>();
  return fallback;
}

const Json& object(const Json& obj, std::string_view key) {
  static const Json empty = Json::object();
  const Json* v = find(obj, key);
  return v && v->is_object() ? *v : empty;
}

const Json& array(const Json& obj, std::string_view key) {
  static const Json empty = Json::array();
  const Json* v = find(obj, key);
  return v && v->is_array() ? *v : empty;
}

bool hasString(const Json& obj, std::string_view key) {
  const Json* v = find(obj, key);
  return v && v->is_string();
}

std::string compact(const Json& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string compactOrEmpty(const Json& value) {
  try {
    return value.dump();
  } catch (const Json::exception&) {
    return {};
  }
}

void (*depthRejected)(size_t bytes, size_t maxDepth) = nullptr;

bool nestsWithin(std::string_view text, size_t maxDepth) {
  size_t depth = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    switch (text[i]) {
      case '"':
        // To the closing quote, stepping over escaped characters.
        for (++i; i < text.size() && text[i] != '"'; ++i)
          if (text[i] == '\\') ++i;
        break;
      case '[':
      case '{':
        if (++depth > maxDepth) return false;
        break;
      case ']':
      case '}':
        if (depth > 0) --depth;
        break;
      default:
        break;
    }
  }
  return true;
}

Json parseBounded(std::string_view text, size_t maxDepth) {
  if (!nestsWithin(text, maxDepth)) {
    if (depthRejected) depthRejected(text.size(), maxDepth);
    return Json(Json::value_t::discarded);
  }
  return Json::parse(text.begin(), text.end(), nullptr, false);
}

Json parse(std::string_view text) {
  return parseBounded(text, kMaxDepth);
}

}  // namespace JsonField
