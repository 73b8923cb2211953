#pragma once
// Key combinations for the two global hot keys, in their stored form: a virtual key code and
// a modifier mask (Super 0x100, Shift 0x200, Alt 0x800, Ctrl 0x1000). Registering them
// with the desktop is the voice module's job; this is the shared vocabulary.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace HotKey {

enum class Action { open = 0, talk = 1 };

inline constexpr uint32_t kCommand = 0x100;
inline constexpr uint32_t kShift = 0x200;
inline constexpr uint32_t kOption = 0x800;
inline constexpr uint32_t kControl = 0x1000;

struct Combo {
  uint32_t code = 0;
  uint32_t mods = 0;
  bool operator==(const Combo&) const = default;

  // Code in the low 32 bits, modifiers in the high 32 bits.
  uint64_t packed() const { return (static_cast<uint64_t>(mods) << 32) | code; }
  static Combo unpack(uint64_t value) {
    return {static_cast<uint32_t>(value & 0xffffffffu), static_cast<uint32_t>(value >> 32)};
  }
};

// Ctrl+Alt+R opens the panel; Ctrl+Alt+Space toggles dictation.
Combo defaultCombo(Action action);

// Virtual key code for a key name ("KeyA", "Digit1", "F5", "Space", "Period", …).
std::optional<uint32_t> code(std::string_view name);
// The display label of a key code ("A", "1", "F5", "Space", "."), if the code is known.
std::optional<std::string> keyName(uint32_t code);
// "Ctrl+Alt+Shift+Super+" (the modifiers held) then the key's label, or "?" for an unknown
// key: "Ctrl+Alt+R", "Shift+Super+.".
std::string label(Combo combo);

}  // namespace HotKey
