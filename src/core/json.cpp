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

Json parse(std::string_view text) {
  return Json::parse(text.begin(), text.end(), nullptr, false);
}

Json parseBounded(std::string_view text, size_t maxDepth) {
  size_t depth = 0;
  bool inString = false, escaped = false;
  for (char c : text) {
    if (inString) {
      if (escaped)
        escaped = false;
      else if (c == '\\')
        escaped = true;
      else if (c == '"')
        inString = false;
    } else if (c == '"') {
      inString = true;
    } else if (c == '[' || c == '{') {
      if (++depth > maxDepth) return Json(Json::value_t::discarded);
    } else if ((c == ']' || c == '}') && depth > 0) {
      --depth;
    }
  }
  return parse(text);
}

}  // namespace JsonField
