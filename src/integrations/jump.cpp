#include "integrations/jump.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <sstream>

#include "core/text.h"

namespace Jump {
namespace {

bool digits(std::string_view text) {
  return !text.empty() && text.size() <= 9 &&
         std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// The executable's or product's name, lower-cased: "/usr/share/code/code" gives "code".
std::string hostName(const std::optional<std::string>& bundle) {
  return bundle ? Text::lower(lastPathComponent(*bundle)) : std::string();
}

// The terminal a host is, for checking that a marker was left by the terminal that runs the
// agent and not inherited from one that started it.
Place terminalOf(std::string_view host) {
  if (host == "kitty") return Place::kitty;
  if (host == "wezterm" || host == "wezterm-gui") return Place::wezterm;
  if (host == "gnome-terminal-server" || host == "gnome-terminal") return Place::gnomeTerminal;
  if (host == "konsole") return Place::konsole;
  return Place::unknown;
}

// GNOME Terminal's search provider names a screen by its uuid; the screen's object path carries
// it with underscores for dashes.
std::string gnomeUuid(std::string_view screen) {
  std::string uuid = lastPathComponent(screen);
  std::replace(uuid.begin(), uuid.end(), '_', '-');
  bool ok = uuid.size() == 36 && std::all_of(uuid.begin(), uuid.end(), [](char c) {
              return std::isxdigit(static_cast<unsigned char>(c)) || c == '-';
            });
  return ok ? uuid : std::string();
}

// Runs an editor's command on its own: one that starts the editor keeps running with it, and
// must not hold pipes the jump would wait on. Only a missing command is reported.
constexpr const char* kDetached =
    "command -v \"$0\" >/dev/null || { echo \"$0 is not on PATH\" >&2; exit 127; }; "
    "\"$0\" \"$1\" </dev/null >/dev/null 2>&1 &";

}  // namespace

void readMarkers(std::string_view environ, Markers& m) {
  static constexpr std::pair<std::string_view, std::string Markers::*> kNames[] = {
      {"TMUX", &Markers::tmux},
      {"TMUX_PANE", &Markers::tmuxPane},
      {"KITTY_WINDOW_ID", &Markers::kittyWindow},
      {"KITTY_LISTEN_ON", &Markers::kittyListen},
      {"WEZTERM_PANE", &Markers::weztermPane},
      {"WEZTERM_UNIX_SOCKET", &Markers::weztermSocket},
      {"GNOME_TERMINAL_SCREEN", &Markers::gnomeScreen},
      {"KONSOLE_DBUS_SERVICE", &Markers::konsoleService},
      {"KONSOLE_DBUS_SESSION", &Markers::konsoleSession},
  };
  while (!environ.empty()) {
    size_t end = environ.find('\0');
    std::string_view entry = environ.substr(0, end);
    environ = end == std::string_view::npos ? std::string_view() : environ.substr(end + 1);
    size_t eq = entry.find('=');
    if (eq == std::string_view::npos) continue;
    for (const auto& [name, field] : kNames)
      if (entry.substr(0, eq) == name && (m.*field).empty()) m.*field = entry.substr(eq + 1);
  }
}

std::string_view name(Place place) {
  switch (place) {
    case Place::unknown:
      return "unknown";
    case Place::editor:
      return "editor";
    case Place::tmux:
      return "tmux";
    case Place::kitty:
      return "kitty";
    case Place::wezterm:
      return "WezTerm";
    case Place::gnomeTerminal:
      return "GNOME Terminal";
    case Place::konsole:
      return "Konsole";
    case Place::terminal:
      return "terminal";
  }
  return "";
}

std::string editorCommand(Agent agent, const std::optional<std::string>& hostBundle) {
  // Names matched exactly (with an optional "64"), then JetBrains products by their beginning:
  // their names carry editions ("PyCharmCE", "IntelliJIdea2024").
  static constexpr std::pair<std::string_view, std::string_view> kExact[] = {
      {"code", "code"},         {"code-oss", "code-oss"}, {"code-insiders", "code-insiders"},
      {"codium", "codium"},     {"vscodium", "codium"},   {"cursor", "cursor"},
      {"windsurf", "windsurf"}, {"zed", "zed"},           {"zeditor", "zeditor"},
  };
  static constexpr std::pair<std::string_view, std::string_view> kProducts[] = {
      {"intellij", "idea"},     {"idea", "idea"},           {"pycharm", "pycharm"},
      {"webstorm", "webstorm"}, {"clion", "clion"},         {"goland", "goland"},
      {"phpstorm", "phpstorm"}, {"rubymine", "rubymine"},   {"rider", "rider"},
      {"datagrip", "datagrip"}, {"dataspell", "dataspell"}, {"rustrover", "rustrover"},
  };
  if (agent == Agent::cursor) return "cursor";
  std::string host = hostName(hostBundle);
  if (host.ends_with("64")) host.resize(host.size() - 2);
  for (const auto& [name, command] : kExact)
    if (host == name) return std::string(command);
  for (const auto& [prefix, command] : kProducts)
    if (host.starts_with(prefix)) return std::string(command);
  if (agent == Agent::windsurf && !hostBundle) return "windsurf";
  return {};
}

Plan plan(const Facts& f) {
  Plan p;
  const Markers& m = f.markers;
  const std::string host = hostName(f.hostBundle);
  const Place hostTerminal = terminalOf(host);
  p.raiseFrom = f.hostPid ? f.hostPid : f.agentPid;

  if (std::string editor = editorCommand(f.agent, f.hostBundle); !editor.empty()) {
    p.place = Place::editor;
    p.label = editor;
    if (f.root.empty())
      p.notes.push_back("the session has no folder to open in " + editor);
    else
      p.open = Command{{"sh", "-c", kDetached, editor, f.root}, {}};
    return p;
  }

  // A marker counts when no host was found (the hook stops at multiplexers and remote logins)
  // or when the host is the terminal that leaves it: a terminal started from another inherits
  // the other's markers.
  auto fits = [&](Place terminal) { return !f.hostBundle || hostTerminal == terminal; };

  // tmux is never a host: with a host found, its marker was inherited (a terminal opened
  // from a shell inside tmux).
  const std::string tmuxSocket = m.tmux.substr(0, m.tmux.find(','));
  if (!f.hostBundle && tmuxSocket.starts_with('/') && m.tmuxPane.starts_with('%') &&
      digits(std::string_view(m.tmuxPane).substr(1))) {
    p.place = Place::tmux;
    p.tmux = {"tmux", "-S", tmuxSocket};
    p.tmuxPane = m.tmuxPane;
  } else if (!f.hostBundle && f.tty) {
    // Inside tmux the hook finds no host; without the agent's environment the pane is looked
    // for by its terminal on the default server.
    p.place = Place::tmux;
    p.tmux = {"tmux"};
    if (!f.agentRunning) p.notes.push_back("the agent's environment is not readable");
  } else if (fits(Place::kitty) && digits(m.kittyWindow)) {
    p.place = Place::kitty;
    if (m.kittyListen.empty())
      p.notes.push_back(
          "kitty was started without listen_on, so its remote control cannot be reached");
    else
      p.select.push_back(Command{
          {"kitty", "@", "--to", m.kittyListen, "focus-window", "--match", "id:" + m.kittyWindow},
          {}});
  } else if (fits(Place::wezterm) && digits(m.weztermPane)) {
    p.place = Place::wezterm;
    Command c{{"wezterm", "cli", "activate-pane", "--pane-id", m.weztermPane}, {}};
    if (!m.weztermSocket.empty()) c.env.emplace_back("WEZTERM_UNIX_SOCKET", m.weztermSocket);
    p.select.push_back(std::move(c));
  } else if (fits(Place::gnomeTerminal) && !gnomeUuid(m.gnomeScreen).empty()) {
    p.place = Place::gnomeTerminal;
    p.select.push_back(Command{
        {"gdbus", "call", "--session", "--dest", "org.gnome.Terminal", "--object-path",
         "/org/gnome/Terminal/SearchProvider", "--method",
         "org.gnome.Shell.SearchProvider2.ActivateResult", gnomeUuid(m.gnomeScreen), "[]", "0"},
        {}});
  } else if (fits(Place::konsole) && m.konsoleService.starts_with(':') &&
             m.konsoleSession.starts_with("/Sessions/") &&
             digits(std::string_view(m.konsoleSession).substr(10))) {
    p.place = Place::konsole;
    p.konsoleService = m.konsoleService;
    p.konsoleSession = m.konsoleSession.substr(10);
  } else if (p.raiseFrom) {
    p.place = Place::terminal;
    if (hostTerminal != Place::unknown)
      p.notes.push_back("the agent's environment names no " + std::string(name(hostTerminal)) +
                        " tab: only the window is raised");
  } else {
    p.notes.push_back("nothing is known of the process the session runs in");
  }
  p.label = p.place == Place::terminal || p.place == Place::unknown
                ? lastPathComponent(f.hostBundle.value_or(""))
                : std::string(name(p.place));
  return p;
}

std::optional<TmuxClient> activeClient(std::string_view listing) {
  std::optional<TmuxClient> best;
  long long bestActivity = -1;
  for (const std::string& line : Text::lines(listing)) {
    std::istringstream fields(line);
    std::string activity, pid, tty, extra;
    if (!(fields >> activity >> pid >> tty) || fields >> extra) continue;
    if (!digits(pid) || !tty.starts_with("/dev/")) continue;
    long long when = std::atoll(activity.c_str());
    if (when <= bestActivity) continue;
    bestActivity = when;
    best = TmuxClient{std::atoi(pid.c_str()), tty};
  }
  return best;
}

namespace {
Command tmuxCommand(std::vector<std::string> argv, std::initializer_list<std::string> args) {
  argv.insert(argv.end(), args);
  return Command{std::move(argv), {}};
}
}  // namespace

std::vector<Command> tmuxSelect(const std::vector<std::string>& server, const std::string& pane) {
  return {tmuxCommand(server, {"select-window", "-t", pane}),
          tmuxCommand(server, {"select-pane", "-t", pane})};
}

Command tmuxClients(const std::vector<std::string>& server) {
  return tmuxCommand(server,
                     {"list-clients", "-F", "#{client_activity} #{client_pid} #{client_tty}"});
}

Command tmuxSwitch(const std::vector<std::string>& server, const std::string& clientTty,
                   const std::string& pane) {
  return tmuxCommand(server, {"switch-client", "-c", clientTty, "-t", pane});
}

std::vector<std::string> childNodes(std::string_view xml) {
  std::vector<std::string> nodes;
  constexpr std::string_view kOpen = "<node name=\"";
  for (size_t at = xml.find(kOpen); at != std::string_view::npos; at = xml.find(kOpen, at)) {
    at += kOpen.size();
    size_t end = xml.find('"', at);
    if (end == std::string_view::npos) break;
    if (std::string_view node = xml.substr(at, end - at); digits(node)) nodes.emplace_back(node);
  }
  return nodes;
}

std::vector<std::string> loginNames(const std::string& host, const std::string& hostName) {
  std::string destination = host;
  size_t colon = host.rfind(':');
  if (colon != std::string::npos && host.find(':') == colon && digits(host.substr(colon + 1)))
    destination.resize(colon);
  std::vector<std::string> names = {destination};
  if (size_t at = destination.find('@'); at != std::string::npos)
    names.push_back(destination.substr(at + 1));
  if (!hostName.empty()) names.push_back(hostName);
  std::sort(names.begin(), names.end());
  names.erase(std::unique(names.begin(), names.end()), names.end());
  std::erase(names, std::string());
  return names;
}

std::string configuredHostName(std::string_view config) {
  for (const std::string& line : Text::lines(config))
    if (line.starts_with("hostname ")) return Text::trim(line.substr(9));
  return {};
}

std::optional<int32_t> loginClient(const std::vector<Process>& processes,
                                   const std::vector<std::string>& names, int32_t self) {
  // "-N" alone or among other single-letter flags ("-fNT").
  auto forwardsOnly = [](const std::string& arg) {
    return arg.size() > 1 && arg[0] == '-' && arg.find('N') != std::string::npos &&
           std::all_of(arg.begin() + 1, arg.end(), [](char c) { return std::isalpha(c); });
  };
  // A word naming the host, alone or after a user ("me@devbox").
  auto names_ = [&](std::string_view word) {
    for (const std::string& name : names)
      if (word == name || (word.size() > name.size() && word.ends_with(name) &&
                           word[word.size() - name.size() - 1] == '@'))
        return true;
    return false;
  };
  const Process* best = nullptr;
  for (const Process& p : processes) {
    if (p.argv.empty() || p.parent == self) continue;
    const std::string program = lastPathComponent(p.argv[0]);
    if (program != "ssh" && program != "mosh" && program != "mosh-client") continue;
    bool named = false, forwarding = false;
    // mosh-client carries the command line the user typed as one argument ("-# devbox |").
    for (size_t i = 1; i < p.argv.size(); ++i) {
      forwarding = forwarding || (program == "ssh" && forwardsOnly(p.argv[i]));
      std::istringstream words(p.argv[i]);
      for (std::string word; !named && words >> word;) named = names_(word);
    }
    // Start times count in clock ticks: of logins started in the same one, the later pid.
    if (named && !forwarding &&
        (!best || std::pair(p.started, p.pid) > std::pair(best->started, best->pid)))
      best = &p;
  }
  return best ? std::optional<int32_t>(best->pid) : std::nullopt;
}

Raise raiseWay(const std::function<std::string(const char*)>& env) {
  if (!env("SWAYSOCK").empty()) return Raise::sway;
  if (!env("HYPRLAND_INSTANCE_SIGNATURE").empty()) return Raise::hyprland;
  if (!env("WAYLAND_DISPLAY").empty()) {
    std::string desktop = Text::lower(env("XDG_CURRENT_DESKTOP"));
    if (desktop.find("kde") != std::string::npos) return Raise::kwin;
    if (desktop.find("gnome") != std::string::npos) return Raise::gnome;
  }
  return env("DISPLAY").empty() ? Raise::none : Raise::x11;
}

std::string_view name(Raise way) {
  switch (way) {
    case Raise::x11:
      return "X11";
    case Raise::sway:
      return "sway";
    case Raise::hyprland:
      return "Hyprland";
    case Raise::kwin:
      return "KWin";
    case Raise::gnome:
      return "GNOME";
    case Raise::none:
      return "none";
  }
  return "";
}

}  // namespace Jump
