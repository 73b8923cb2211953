#pragma once
// The applications an agent can run in: terminals and editors by their executable names, and
// the programs that own a terminal without being where it is shown (multiplexers, remote
// logins). `vantler-hook` finds the host with this table and the session's `family` is read
// from it, so every host the hook reports has a family. Header only and free of the rest of
// the program: the hook includes it too.

#include <optional>
#include <string_view>

namespace Hosts {

enum class Kind { terminal, editor, stop };

struct Host {
  std::string_view name;  // the executable's file name
  Kind kind;
};

inline constexpr Host kHosts[] = {
    // Terminals.
    {"gnome-terminal", Kind::terminal},
    {"gnome-terminal-server", Kind::terminal},
    {"konsole", Kind::terminal},
    {"xterm", Kind::terminal},
    {"uxterm", Kind::terminal},
    {"foot", Kind::terminal},
    {"tilix", Kind::terminal},
    {"terminator", Kind::terminal},
    {"xfce4-terminal", Kind::terminal},
    {"urxvt", Kind::terminal},
    {"urxvtd", Kind::terminal},
    {"rxvt", Kind::terminal},
    {"rxvt-unicode", Kind::terminal},
    {"urxvt256c", Kind::terminal},
    {"kitty", Kind::terminal},
    {"alacritty", Kind::terminal},
    {"wezterm", Kind::terminal},
    {"wezterm-gui", Kind::terminal},
    {"ghostty", Kind::terminal},
    {"st", Kind::terminal},
    {"lxterminal", Kind::terminal},
    {"mate-terminal", Kind::terminal},
    {"qterminal", Kind::terminal},
    {"terminology", Kind::terminal},
    {"sakura", Kind::terminal},
    {"guake", Kind::terminal},
    {"tilda", Kind::terminal},
    {"yakuake", Kind::terminal},
    {"kgx", Kind::terminal},
    {"ptyxis", Kind::terminal},
    {"cool-retro-term", Kind::terminal},
    {"deepin-terminal", Kind::terminal},
    {"contour", Kind::terminal},
    {"rio", Kind::terminal},
    {"warp", Kind::terminal},
    {"warp-terminal", Kind::terminal},
    {"tabby", Kind::terminal},
    {"hyper", Kind::terminal},
    {"blackbox", Kind::terminal},
    {"wayst", Kind::terminal},
    {"io.elementary.terminal", Kind::terminal},
    {"termite", Kind::terminal},
    {"eterm", Kind::terminal},
    // Editors. JetBrains IDEs that run on their bundled Java are reported by product name.
    {"code", Kind::editor},
    {"code-oss", Kind::editor},
    {"code-insiders", Kind::editor},
    {"codium", Kind::editor},
    {"vscodium", Kind::editor},
    {"cursor", Kind::editor},
    {"windsurf", Kind::editor},
    {"zed", Kind::editor},
    {"zed-editor", Kind::editor},
    {"zeditor", Kind::editor},
    {"sublime_text", Kind::editor},
    {"idea", Kind::editor},
    {"idea64", Kind::editor},
    {"intellijidea", Kind::editor},
    {"pycharm", Kind::editor},
    {"pycharm64", Kind::editor},
    {"webstorm", Kind::editor},
    {"webstorm64", Kind::editor},
    {"clion", Kind::editor},
    {"clion64", Kind::editor},
    {"goland", Kind::editor},
    {"goland64", Kind::editor},
    {"phpstorm", Kind::editor},
    {"rubymine", Kind::editor},
    {"rider", Kind::editor},
    {"datagrip", Kind::editor},
    {"dataspell", Kind::editor},
    {"rustrover", Kind::editor},
    {"aqua", Kind::editor},
    {"androidstudio", Kind::editor},
    {"studio", Kind::editor},
    {"fleet", Kind::editor},
    {"jetbrains", Kind::editor},
    // Where the walk up from an agent stops.
    {"tmux", Kind::stop},
    {"screen", Kind::stop},
    {"zellij", Kind::stop},
    {"wezterm-mux-server", Kind::stop},
    {"abduco", Kind::stop},
    {"dtach", Kind::stop},
    {"sshd", Kind::stop},
    {"mosh-server", Kind::stop},
    {"dropbear", Kind::stop},
};

// Beyond exact names, a session's family also counts these beginnings of a host's lower-cased
// name (application bundles elsewhere are named "iTerm2" or "Visual Studio Code"). The test is
// deliberately loose: a host named, say, codesign-helper counts as an editor.
inline constexpr std::string_view kTerminalPrefixes[] = {
    "terminal", "iterm",  "ghostty", "warp",           "wezterm",       "alacritty", "kitty",
    "hyper",    "tabby",  "konsole", "gnome-terminal", "xterm",         "foot",      "tilix",
    "rxvt",     "ptyxis", "kgx",     "terminator",     "xfce4-terminal"};
inline constexpr std::string_view kEditorPrefixes[] = {
    "cursor",   "code",         "visual studio code",
    "zed",      "windsurf",     "xcode",
    "intellij", "webstorm",     "pycharm",
    "codium",   "sublime_text", "idea",
    "clion",    "goland",       "rider",
    "phpstorm", "rubymine",     "jetbrains"};

// The entry of the executable named exactly `name`; nothing for any other program.
constexpr const Host* find(std::string_view name) {
  for (const Host& h : kHosts)
    if (h.name == name) return &h;
  return nullptr;
}

// A terminal or editor by a lower-cased host name: its exact entry, else a listed beginning.
constexpr std::optional<Kind> classify(std::string_view lowered) {
  if (const Host* h = find(lowered); h && h->kind != Kind::stop) return h->kind;
  for (std::string_view p : kTerminalPrefixes)
    if (lowered.starts_with(p)) return Kind::terminal;
  for (std::string_view p : kEditorPrefixes)
    if (lowered.starts_with(p)) return Kind::editor;
  return std::nullopt;
}

}  // namespace Hosts
