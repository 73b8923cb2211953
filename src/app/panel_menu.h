#pragma once
// The application menu as plain data: the same items for the tray icon and for the pop-up the
// page asks for. It is built afresh from the facts of the moment every time it is shown; the
// toolkit only draws it and reports which action was chosen.

#include <cstddef>
#include <string>
#include <vector>

struct MenuItem {
  enum class Kind { label, action, separator };
  Kind kind = Kind::separator;
  std::string title;
  std::string action;  // what choosing it does (see AppMenu::Action); empty for labels
  bool operator==(const MenuItem&) const = default;
};

// What the menu depends on, gathered by the caller.
struct MenuFacts {
  std::string version;       // "0.1.0", may be empty
  size_t sessions = 0;       // visible sessions
  size_t waiting = 0;        // sessions waiting for the user
  bool placedAway = false;   // the panel was dragged away from its home
  bool anyFinished = false;  // a visible session would go with "Clear Finished"
  bool claudeHooks = false;  // Claude Code hooks installed
  bool cursorAvailable = false;
  bool cursorHooks = false;
  std::string newerVersion;  // a newer version announced by the update feed, or empty
  // Each remote host and the state of its tunnel: "devbox: up since 16:02:11".
  std::vector<std::string> remotes;
};

namespace AppMenu {

// The action names items carry.
namespace Action {
inline constexpr const char* open = "open";
inline constexpr const char* settings = "settings";
inline constexpr const char* home = "home";
inline constexpr const char* clear = "clear";
inline constexpr const char* claude = "claude";
inline constexpr const char* cursor = "cursor";
inline constexpr const char* tour = "tour";
inline constexpr const char* updates = "updates";
inline constexpr const char* download = "download";
inline constexpr const char* quit = "quit";
}  // namespace Action

// "No sessions right now", "1 session", "3 sessions · 1 needs you", "2 sessions · 2 need you".
std::string summary(size_t sessions, size_t waiting);

std::vector<MenuItem> build(const MenuFacts& facts);

}  // namespace AppMenu
