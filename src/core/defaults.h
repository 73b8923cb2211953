#pragma once
// The user-defaults store: a JSON object of settings kept in
// $XDG_CONFIG_HOME/vantler/defaults.json. A missing or corrupt file reads as empty; every
// change is written back at once, atomically.

#include <string>
#include <string_view>

#include "core/json.h"

class Defaults {
 public:
  // Loads from `path`; the default location when `path` is empty.
  explicit Defaults(std::string path = {});

  static std::string defaultPath();
  const std::string& path() const { return path_; }

  // The stored value, or null when absent.
  const Json& get(std::string_view key) const;
  bool has(std::string_view key) const { return JsonField::find(values_, key) != nullptr; }
  std::string string(std::string_view key, std::string_view fallback = {}) const {
    return JsonField::str(values_, key, fallback);
  }
  int64_t integer(std::string_view key, int64_t fallback = 0) const {
    return JsonField::integer(values_, key, fallback);
  }
  bool boolean(std::string_view key, bool fallback = false) const {
    return JsonField::boolean(values_, key, fallback);
  }

  void set(std::string_view key, Json value);
  void remove(std::string_view key);

  // The last write error, empty when the last write succeeded.
  const std::string& lastError() const { return lastError_; }

 private:
  void save();

  std::string path_;
  Json values_ = Json::object();
  std::string lastError_;
};
