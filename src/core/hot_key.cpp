#include "core/hot_key.h"

#include <array>
#include <utility>

namespace HotKey {
namespace {

struct Key {
  std::string_view name;
  uint32_t code;
  std::string_view label;  // empty: derived from the name
};

constexpr std::array<Key, 59> kKeys{{
    {"KeyA", 0, ""},          {"KeyB", 11, ""},
    {"KeyC", 8, ""},          {"KeyD", 2, ""},
    {"KeyE", 14, ""},         {"KeyF", 3, ""},
    {"KeyG", 5, ""},          {"KeyH", 4, ""},
    {"KeyI", 34, ""},         {"KeyJ", 38, ""},
    {"KeyK", 40, ""},         {"KeyL", 37, ""},
    {"KeyM", 46, ""},         {"KeyN", 45, ""},
    {"KeyO", 31, ""},         {"KeyP", 35, ""},
    {"KeyQ", 12, ""},         {"KeyR", 15, ""},
    {"KeyS", 1, ""},          {"KeyT", 17, ""},
    {"KeyU", 32, ""},         {"KeyV", 9, ""},
    {"KeyW", 13, ""},         {"KeyX", 7, ""},
    {"KeyY", 16, ""},         {"KeyZ", 6, ""},
    {"Digit0", 29, ""},       {"Digit1", 18, ""},
    {"Digit2", 19, ""},       {"Digit3", 20, ""},
    {"Digit4", 21, ""},       {"Digit5", 23, ""},
    {"Digit6", 22, ""},       {"Digit7", 26, ""},
    {"Digit8", 28, ""},       {"Digit9", 25, ""},
    {"F1", 122, ""},          {"F2", 120, ""},
    {"F3", 99, ""},           {"F4", 118, ""},
    {"F5", 96, ""},           {"F6", 97, ""},
    {"F7", 98, ""},           {"F8", 100, ""},
    {"F9", 101, ""},          {"F10", 109, ""},
    {"F11", 103, ""},         {"F12", 111, ""},
    {"Space", 49, "Space"},   {"Period", 47, "."},
    {"Comma", 43, ","},       {"Slash", 44, "/"},
    {"Semicolon", 41, ";"},   {"Quote", 39, "'"},
    {"BracketLeft", 33, "["}, {"BracketRight", 30, "]"},
    {"Backquote", 50, "`"},   {"Minus", 27, "-"},
    {"Equal", 24, "="},
}};

}  // namespace

Combo defaultCombo(Action action) {
  return action == Action::open ? Combo{15, kControl | kOption} : Combo{49, kControl | kOption};
}

std::optional<uint32_t> code(std::string_view name) {
  for (const Key& k : kKeys)
    if (k.name == name) return k.code;
  return std::nullopt;
}

std::optional<std::string> keyName(uint32_t code) {
  for (const Key& k : kKeys) {
    if (k.code != code) continue;
    if (!k.label.empty()) return std::string(k.label);
    if (k.name.starts_with("Key")) return std::string(k.name.substr(3));
    if (k.name.starts_with("Digit")) return std::string(k.name.substr(5));
    return std::string(k.name);
  }
  return std::nullopt;
}

std::string label(Combo combo) {
  std::string out;
  for (auto [bit, name] : {std::pair{kControl, "Ctrl+"}, std::pair{kOption, "Alt+"},
                           std::pair{kShift, "Shift+"}, std::pair{kCommand, "Super+"}})
    if (combo.mods & bit) out += name;
  out += keyName(combo.code).value_or("?");
  return out;
}

}  // namespace HotKey
