#include "core/defaults.h"

#include <glib.h>

#include "core/files.h"

std::string Defaults::defaultPath() {
  return Files::configHome() + "/vantler/defaults.json";
}

Defaults::Defaults(std::string path) : path_(path.empty() ? defaultPath() : std::move(path)) {
  auto text = Files::read(path_);
  if (!text || text->empty()) return;
  Json parsed = JsonField::parse(*text);
  if (parsed.is_object()) {
    values_ = std::move(parsed);
  } else {
    g_warning("Vantler: ignoring unreadable settings in %s", path_.c_str());
  }
}

const Json& Defaults::get(std::string_view key) const {
  static const Json null;
  const Json* v = JsonField::find(values_, key);
  return v ? *v : null;
}

void Defaults::set(std::string_view key, Json value) {
  if (value.is_null()) return remove(key);
  values_[std::string(key)] = std::move(value);
  save();
}

void Defaults::remove(std::string_view key) {
  auto it = values_.find(key);
  if (it == values_.end()) return;
  values_.erase(it);
  save();
}

void Defaults::save() {
  std::string text = values_.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
  auto error = Files::writeAtomic(path_, text, 0600);
  lastError_ = error.value_or("");
  if (error) g_warning("Vantler: %s", error->c_str());
}
