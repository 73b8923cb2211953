#include "core/prefs.h"

#include <array>
#include <cmath>
#include <vector>

#include <unistd.h>

#include "core/files.h"
#include "version.h"

namespace Prefs {
namespace {

std::vector<Reporter>& reporters() {
  static std::vector<Reporter> list;
  return list;
}

std::vector<Handler>& handlers() {
  static std::vector<Handler> list;
  return list;
}

std::string oneOf(const Defaults& d, std::string_view key,
                  std::initializer_list<std::string_view> allowed) {
  std::string value = d.string(key);
  for (std::string_view a : allowed)
    if (value == a) return value;
  return std::string(*allowed.begin());
}

const char* comboKey(HotKey::Action action) {
  return action == HotKey::Action::open ? "openKey" : "talkKey";
}

Json comboJson(HotKey::Combo c) {
  return {{"code", c.code}, {"mods", c.mods}, {"label", HotKey::label(c)}};
}

// A combination arrives as {"code","mods"} from the panel or as the packed number.
std::optional<HotKey::Combo> parseCombo(const Json& value) {
  if (value.is_object()) {
    const Json* code = JsonField::find(value, "code");
    const Json* mods = JsonField::find(value, "mods");
    if (!code || !code->is_number() || !mods || !mods->is_number()) return std::nullopt;
    int64_t c = JsonField::integer(value, "code"), m = JsonField::integer(value, "mods");
    if (c < 0 || c > 0xffff || m < 0 || m > 0xffffffffLL) return std::nullopt;
    return HotKey::Combo{static_cast<uint32_t>(c), static_cast<uint32_t>(m)};
  }
  if (value.is_number_unsigned() || (value.is_number_integer() && value.get<int64_t>() >= 0))
    return HotKey::Combo::unpack(value.get<uint64_t>());
  return std::nullopt;
}

constexpr std::array kIntegerKeys{"hideAfter", "replyWindow"};
constexpr std::array kBoolKeys{"autoOpen", "autoUpdate", "optionTap", "glass", "notifyAnswers"};

}  // namespace

int64_t hideAfter(const Defaults& d) {
  return d.integer("hideAfter", 120);
}
int64_t replyWindow(const Defaults& d) {
  return d.integer("replyWindow", 15);
}
bool autoOpen(const Defaults& d) {
  return d.boolean("autoOpen", false);
}
bool autoUpdate(const Defaults& d) {
  return d.boolean("autoUpdate", true);
}
bool optionTap(const Defaults& d) {
  return d.boolean("optionTap", true);
}
bool glass(const Defaults& d) {
  return d.boolean("glass", false);
}
bool notifyAnswers(const Defaults& d) {
  return d.boolean("notifyAnswers", false);
}
std::string shape(const Defaults& d) {
  return oneOf(d, "shape", {"auto", "notch", "pill"});
}
std::string theme(const Defaults& d) {
  return oneOf(d, "theme", {"auto", "light", "dark"});
}
std::string screen(const Defaults& d) {
  const Json& v = d.get("screen");
  return v.is_string() && !v.get_ref<const std::string&>().empty() ? v.get<std::string>() : "auto";
}
std::string replyHold(const Defaults& d) {
  return oneOf(d, "replyHold", {"auto", "always", "never"});
}

std::string resolvedTheme(const Defaults& d, bool desktopIsDark) {
  std::string t = theme(d);
  if (t == "auto") return desktopIsDark ? "dark" : "light";
  return t;
}

std::optional<HotKey::Combo> combo(const Defaults& d, HotKey::Action action) {
  const Json& v = d.get(comboKey(action));
  return v.is_null() ? std::nullopt : parseCombo(v);
}

HotKey::Combo comboOrDefault(const Defaults& d, HotKey::Action action) {
  return combo(d, action).value_or(HotKey::defaultCombo(action));
}

std::string autostartPath() {
  return Files::configHome() + "/autostart/vantler.desktop";
}

bool openAtLogin() {
  return Files::exists(autostartPath());
}

namespace {

// A desktop entry's Exec argument in double quotes, with the characters that stay special
// inside them escaped: a path with spaces or quotes still starts the right program.
std::string desktopEntryQuoted(const std::string& path) {
  std::string quoted = "\"";
  for (char c : path) {
    if (c == '"' || c == '`' || c == '$' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + "\"";
}

}  // namespace

std::optional<std::string> setOpenAtLogin(bool on, const std::string& executable) {
  std::string path = autostartPath();
  if (!on) {
    if (::unlink(path.c_str()) != 0 && Files::exists(path)) return "cannot remove " + path;
    return std::nullopt;
  }
  std::string entry =
      "[Desktop Entry]\n"
      "Type=Application\n"
      "Name=Vantler\n"
      "Comment=Companion for AI coding agents\n"
      "Exec=" +
      desktopEntryQuoted(executable) +
      "\n"
      "Terminal=false\n"
      "X-GNOME-Autostart-enabled=true\n";
  return Files::writeAtomic(path, entry, 0644);
}

void addReporter(Reporter reporter) {
  reporters().push_back(std::move(reporter));
}
void addHandler(Handler handler) {
  handlers().push_back(std::move(handler));
}
void resetExtensions() {
  reporters().clear();
  handlers().clear();
}

Json json(const Defaults& d) {
  Json out = {
      {"shape", shape(d)},
      {"replyWindow", replyWindow(d)},
      {"hideAfter", hideAfter(d)},
      {"autoOpen", autoOpen(d)},
      {"openAtLogin", openAtLogin()},
      {"autoUpdate", autoUpdate(d)},
      {"optionTap", optionTap(d)},
      {"optionTapReady", false},
      {"glass", glass(d)},
      {"notifyAnswers", notifyAnswers(d)},
      {"theme", theme(d)},
      {"replyHold", replyHold(d)},
      {"screen", screen(d)},
      {"version", Version::kVersion},
      {"openKey", comboJson(comboOrDefault(d, HotKey::Action::open))},
      {"talkKey", comboJson(comboOrDefault(d, HotKey::Action::talk))},
  };
  for (const Reporter& r : reporters()) r(out);
  return out;
}

std::optional<std::string> set(Defaults& d, std::string_view key, const Json& value) {
  for (const Handler& h : handlers()) {
    std::string error;
    if (h(key, value, error)) return error.empty() ? std::nullopt : std::optional(error);
  }
  if (value.is_null()) {
    d.remove(key);
    return std::nullopt;
  }
  for (const char* k : kIntegerKeys) {
    if (key != k) continue;
    if (!value.is_number()) return std::string(key) + " must be a number";
    double v = value.get<double>();
    if (!std::isfinite(v) || v < 0 || v > 1e9) return std::string(key) + " is out of range";
    d.set(key, static_cast<int64_t>(std::llround(v)));
    return std::nullopt;
  }
  for (const char* k : kBoolKeys) {
    if (key != k) continue;
    if (!value.is_boolean()) return std::string(key) + " must be true or false";
    d.set(key, value);
    return std::nullopt;
  }
  if (key == "shape" || key == "theme" || key == "replyHold" || key == "screen") {
    if (!value.is_string()) return std::string(key) + " must be a string";
    d.set(key, value);
    return std::nullopt;
  }
  if (key == "openKey" || key == "talkKey") {
    auto c = parseCombo(value);
    if (!c) return std::string(key) + " must be a key combination";
    d.set(key, c->packed());
    return std::nullopt;
  }
  if (key == "openAtLogin") {
    if (!value.is_boolean()) return std::string("openAtLogin must be true or false");
    std::string path = Files::executable();
    return setOpenAtLogin(value.get<bool>(), path.empty() ? "vantler" : path);
  }
  return "unknown setting " + std::string(key);
}

}  // namespace Prefs
