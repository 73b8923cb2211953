#pragma once
// Where a session's agent runs and the steps that bring that place forward, decided from what
// the hook learnt of the agent's surroundings and from the markers terminals leave in the
// environment of the programs they run. Nothing here touches the system.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/session.h"

namespace Jump {

// What terminals and multiplexers put in the environment of the programs they start.
struct Markers {
  std::string tmux;            // TMUX: "<socket>,<server pid>,<session>"
  std::string tmuxPane;        // TMUX_PANE: "%3"
  std::string kittyWindow;     // KITTY_WINDOW_ID
  std::string kittyListen;     // KITTY_LISTEN_ON: "unix:/tmp/kitty-1234"
  std::string weztermPane;     // WEZTERM_PANE
  std::string weztermSocket;   // WEZTERM_UNIX_SOCKET
  std::string gnomeScreen;     // GNOME_TERMINAL_SCREEN: "/org/gnome/Terminal/screen/<uuid>"
  std::string konsoleService;  // KONSOLE_DBUS_SERVICE: the bus name of the Konsole process
  std::string konsoleSession;  // KONSOLE_DBUS_SESSION: "/Sessions/<n>"
};

// Fills the markers still empty from one environment block (NUL-separated NAME=value), so
// reading the agent first and then its ancestors keeps the nearest value.
void readMarkers(std::string_view environ, Markers& markers);

// What is known of a session's place.
struct Facts {
  Agent agent = Agent::claude;
  std::string root;
  std::optional<int32_t> hostPid;
  std::optional<std::string> hostBundle;
  std::optional<std::string> tty;
  std::optional<int32_t> agentPid;
  bool agentRunning = false;  // agentPid names a live process (its markers were read)
  Markers markers;
};

enum class Place { unknown, editor, tmux, kitty, wezterm, gnomeTerminal, konsole, terminal };
std::string_view name(Place place);

struct Command {
  std::vector<std::string> argv;
  std::vector<std::pair<std::string, std::string>> env;
  bool operator==(const Command&) const = default;
};

struct Plan {
  Place place = Place::unknown;
  // An editor opens the session's folder with its own command, which brings its window forward.
  std::optional<Command> open;
  // Commands that select the tab or pane, run in order. For tmux see `tmux`.
  std::vector<Command> select;
  // tmux: the command reaching the agent's server, and the pane when the environment named it;
  // without it the pane is looked up by the session's terminal device.
  std::vector<std::string> tmux;
  std::string tmuxPane;
  // Konsole: its bus name and session number; the windows are listed first.
  std::string konsoleService;
  std::string konsoleSession;
  // The window to raise: this process's, or its nearest ancestor's that has one. For tmux, the
  // attached client's terminal is raised instead.
  std::optional<int32_t> raiseFrom;
  // A short name of the place for messages ("kitty", "GNOME Terminal").
  std::string label;
  // Why a step cannot be taken, for the trace log.
  std::vector<std::string> notes;
};

Plan plan(const Facts& facts);

// The command of an editor that opens a folder in it ("code", "codium", "pycharm"); empty when
// the session does not run in an editor Vantler knows.
std::string editorCommand(Agent agent, const std::optional<std::string>& hostBundle);

// The tmux client to switch: the most recently active one of a listing made with
// `list-clients -F '#{client_activity} #{client_pid} #{client_tty}'`.
struct TmuxClient {
  int32_t pid = 0;
  std::string tty;
};
std::optional<TmuxClient> activeClient(std::string_view listing);

// The tmux commands that bring `pane` forward on the server `server` reaches (a plan's `tmux`):
// its window and the pane selected, then the clients listed for `activeClient`, then the
// client on terminal `clientTty` switched to the pane.
std::vector<Command> tmuxSelect(const std::vector<std::string>& server, const std::string& pane);
Command tmuxClients(const std::vector<std::string>& server);
Command tmuxSwitch(const std::vector<std::string>& server, const std::string& clientTty,
                   const std::string& pane);

// The child object names of a D-Bus introspection, as printed by `gdbus call … Introspect`.
std::vector<std::string> childNodes(std::string_view introspection);

// A process of this user as /proc shows it, for finding the local login to another machine.
struct Process {
  int32_t pid = 0;
  int32_t parent = 0;
  uint64_t started = 0;  // clock ticks after boot
  std::vector<std::string> argv;
};

// The names a command line may give a remote host typed as `host` (an ~/.ssh/config alias or
// user@host[:port]): the destination without its port, the host without its user, and
// `hostName`, the address the alias stands for, when known.
std::vector<std::string> loginNames(const std::string& host, const std::string& hostName);
// The address in the output of `ssh -G <alias>` ("hostname devbox.example.com"); empty when none.
std::string configuredHostName(std::string_view sshConfig);
// The `ssh`, `mosh` or `mosh-client` among `processes` that logs in under one of `names`, the
// most recently started one. Forwarding-only ssh (`-N`) and the children of `self` (Vantler's
// own tunnels) have no terminal and are passed over.
std::optional<int32_t> loginClient(const std::vector<Process>& processes,
                                   const std::vector<std::string>& names, int32_t self);

// How windows are raised on this desktop, from the session's environment.
enum class Raise { x11, sway, hyprland, kwin, gnome, none };
Raise raiseWay(const std::function<std::string(const char* name)>& env);
std::string_view name(Raise way);

}  // namespace Jump
