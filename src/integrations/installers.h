#pragma once
// Connecting and disconnecting coding agents: every agent's configuration is edited through
// one mechanism (ConfigFile) that touches only Vantler's own entries, keeps a backup of the
// previous file and writes atomically. Installers throw InstallError with a message the user
// can read; status queries never throw.

#include <array>
#include <cstddef>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "core/json.h"

// An installer failure; what() is a sentence for the user, e.g.
// "~/.claude/settings.json is not a JSON object; left it untouched".
struct InstallError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The shared edit pattern for agents' configuration files: read only when the path is a regular
// file, edited as text so that only the changed entries' bytes change, written atomically
// through symbolic links with one backup.
namespace ConfigFile {

// The hook program's name; a command is Vantler's when the program it runs is exactly
// ~/.vantler/bin/vantler-hook (see isOurCommand), never because it mentions the name.
inline constexpr std::string_view kMarker = "vantler-hook";
// Settings files larger than this are refused.
inline constexpr size_t kMaxBytes = size_t{16} << 20;
// Suffix of the single backup copy kept beside an edited file.
inline constexpr std::string_view kBackupSuffix = ".vantler-backup";

// The path as the user thinks of it: "~/..." under the home directory.
std::string shown(const std::string& path);

// Pretty-printed (two blanks), sorted keys, unescaped slashes, a final newline.
std::string serialise(const Json& value);

// The file's bytes, nothing when it does not exist. Never blocks: a named pipe, device,
// directory or socket is refused without being read, as is a file over kMaxBytes. Throws
// InstallError for those and for a file that cannot be read.
std::optional<std::string> read(const std::string& path);

// The file as a JSON object: a missing or empty file is an empty object. Throws InstallError
// when the file cannot be read, is not valid JSON (the message names the line) or is not an
// object.
Json load(const std::string& path);
// The same without errors: nothing when the file is missing, unreadable or not an object.
std::optional<Json> peek(const std::string& path);

// Reads the file (as load) and lets `change` edit the object; when it reports a change and the
// value differs, the file's text is edited in place (JsonText::patch): every byte outside the
// changed entries stays. A "hooks" object that the change empties is removed. A missing or
// blank file is written pretty-printed. A missing file is skipped entirely (no call, no
// write) when `createIfMissing` is false. Throws InstallError.
void edit(const std::string& path, const std::function<bool(Json& root)>& change,
          bool createIfMissing = true);

// Replaces the file with `bytes`: unchanged contents are not rewritten; otherwise the previous
// contents go to path + kBackupSuffix and the new ones are written atomically. A symbolic link
// is followed, so the link stays and its target is replaced. `backup` false skips the copy
// (for files that are entirely Vantler's); `mode` sets the file's permissions. Throws
// InstallError.
void write(const std::string& path, std::string_view bytes, bool backup = true,
           std::optional<unsigned> mode = std::nullopt);

// Whether a hook command runs `program` first: P, "exec P" or Vantler's guarded form
// '[ -x "P" ] && [exec ]"P" <args>', alone or as the script of /bin/sh -c '...', where P
// (quoted or not) is ~/.vantler/bin/<program> spelt with the home directory, "~", "$HOME" or
// "${HOME}". A command that merely mentions the program is not ours. Any other program name
// (an earlier product's) matches by file name wherever it was installed.
bool isOurCommand(std::string_view command, std::string_view program = kMarker);
// Whether `entry` is an object whose string under `key` is our command (isOurCommand).
bool isOurs(const Json& entry, std::string_view marker = kMarker, std::string_view key = "command");

// Grouped hooks (event → [ {"matcher"?, "hooks": [entries]} ]): removes the entries that are
// ours. A group emptied by that is dropped, and so is an event emptied by that; everything
// else (foreign groups of any shape, non-array events) is kept as it is. Returns whether
// anything was removed.
bool stripGroups(Json& hooks, std::string_view marker = kMarker);
// Flat hooks (event → [entries]): the same for entries that are directly in each event's list.
bool stripFlat(Json& hooks, std::string_view marker = kMarker, std::string_view key = "command");
// Whether a grouped or flat hooks object holds an entry of ours anywhere.
bool hasGroupEntry(const Json& hooks, std::string_view marker = kMarker);
bool hasFlatEntry(const Json& hooks, std::string_view marker = kMarker,
                  std::string_view key = "command");

// The root's "hooks" object for adding entries: created when absent or null. Any other shape
// is the user's and cannot take our entries: InstallError naming `path`.
Json& hooksOf(Json& root, const std::string& path);
// The event's list in a hooks object, likewise created when absent or null, else InstallError.
Json& eventList(Json& hooks, const std::string& event, const std::string& path);
// One event of a grouped hooks file as Vantler installs it.
struct GroupEvent {
  const char* name;
  bool matcher;
  std::optional<int64_t> timeout;
};

// A group as Vantler writes it: "hooks" holding one command entry (with "timeout" when given),
// and "matcher": "*" when `matcher`.
Json makeGroup(const std::string& command, bool matcher, std::optional<int64_t> timeout);

}  // namespace ConfigFile

// Claude Code: eleven hook events in ~/.claude/settings.json, and the hook executable copied to
// ~/.vantler/bin/vantler-hook (shared by every agent).
namespace HookInstaller {

// Entries of the product's earlier name: always removed.
inline constexpr std::string_view kLegacyMarker = "glimmerax-hook";

std::string settingsPath();  // ~/.claude/settings.json
std::string binPath();       // ~/.vantler/bin/vantler-hook
// The hook command written for every Claude Code event.
const std::string& command();

// Where the executable is copied from: `vantler-hook` beside the running executable, else
// <prefix>/libexec/vantler/vantler-hook. Nothing when neither exists.
std::optional<std::string> bundledBinary();
// Uses `path` as the source instead of looking beside the executable (tests); nothing
// (std::nullopt) goes back to the lookup.
void setBundledBinary(std::optional<std::string> path);

// The settings file holds a hook entry of ours and the executable at binPath() is there.
bool isInstalled();
// The settings file holds an entry of the product's earlier name (refreshed away at start).
bool hasLegacyEntries();
// Copies the executable (a missing source is no error), then adds Vantler's groups.
void install();
// Removes Vantler's groups (and legacy ones). The executable stays.
void uninstall();
// Creates ~/.vantler/bin and atomically replaces binPath() with the bundled executable,
// keeping its mode. Returns without copying when there is no bundled executable.
void copyBinary();

}  // namespace HookInstaller

// Cursor: nine hook events in ~/.cursor/hooks.json.
namespace CursorHooks {

std::string path();  // ~/.cursor/hooks.json
// The `cursor` command is on PATH, or ~/.cursor exists.
bool available();
// Any entry of any event runs "vantler-hook". Missing or unreadable file: false.
bool isInstalled();
// The hook command for a Cursor event: runs the executable, or echoes a fallback answer.
std::string command(std::string_view event);
void install();
void uninstall();

}  // namespace CursorHooks

// The further agents that report through the same hook executable.
enum class Integration { gemini, droid, copilot, windsurf, opencode, codex };

namespace Integrations {

// In the order the settings show them.
inline constexpr std::array<Integration, 6> kAll = {Integration::gemini,   Integration::droid,
                                                    Integration::copilot,  Integration::windsurf,
                                                    Integration::opencode, Integration::codex};

std::string_view id(Integration integration);     // "gemini", "droid", ...
std::string_view label(Integration integration);  // "Gemini CLI", "Droid", ...
std::optional<Integration> fromId(std::string_view id);
// The configuration file Vantler edits (or owns) for the agent.
std::string path(Integration integration);
// The hook command for the agent. Copilot CLI's payloads do not name their event, so its
// command names it (`event`) for the hook executable.
std::string command(Integration integration, std::string_view event = {});
// What the user must know after connecting the agent; empty when nothing.
std::string_view note(Integration integration);
bool available(Integration integration);
// Read from the agent's file: an entry of ours is there (or our own file is).
bool isInstalled(Integration integration);
// Copies the executable (failure ignored) and writes Vantler's hooks. Throws InstallError.
void install(Integration integration);
// Removes Vantler's hooks (or our own file). Throws InstallError.
void uninstall(Integration integration);

// The text of the OpenCode plugin file.
const std::string& openCodePlugin();

// Whether an executable of that name is in one of PATH's directories, on the machine whose
// files the installers work on.
bool onPath(std::string_view command);
// The ids of the agents found on that machine, in the order of table().
std::vector<std::string> found();

// Every agent Vantler can connect, for `vantler agents`.
struct AgentRow {
  std::string id, label;
  bool available = false, connected = false;
  std::string configPath;
  std::string note = {};  // see note()
  std::string todo = {};  // what the user still has to do once connected, in a few words
};
// Rows for "claude", "cursor", "gemini", "droid", "copilot", "windsurf", "opencode", "codex",
// then the agents of MoreAgents.
std::vector<AgentRow> table();
// Installs (connect) or removes (disconnect) the hooks of the agent with that id. connect
// refuses an agent that is not on this machine (Claude Code is always accepted). Throws
// InstallError, also for an unknown id.
void connect(std::string_view id);
void disconnect(std::string_view id);
// Whether Vantler's hooks of the agent with that id are in its settings; false for an unknown id.
bool isConnected(std::string_view id);

// Adds "hooksInstalled", "cursorInstalled", "cursorAvailable" and "integrations" to
// Prefs::json and handles Prefs::set of "hooksInstalled", "cursorInstalled" and
// "integration:<id>". Call once at start.
void registerPrefs();

}  // namespace Integrations
