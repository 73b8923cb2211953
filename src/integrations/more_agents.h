#pragma once
// The agents that joined after the first eight: Qwen Code, Qoder, CodeBuddy, Devin CLI,
// Augment, Kimi, Goose, Cline, Kiro, Mistral Vibe, Crush, Junie, Aider, Amp and Kilo Code. Each
// is one row of a table: where its hooks are configured, in which shape, with which events and
// timeouts (in the agent's own unit). Settings files are edited as text (JSON through
// ConfigFile, TOML through TomlTables, Aider's YAML by whole lines): only Vantler's entries
// change, with one backup. Files that are entirely Vantler's (plugins, hook scripts) are
// written whole and removed on disconnect. Errors are InstallError.

#include <string>
#include <string_view>
#include <vector>

namespace MoreAgents {

// In the order `vantler agents` lists them.
const std::vector<std::string_view>& ids();
bool known(std::string_view id);
std::string_view label(std::string_view id);
// The file Vantler edits (or owns) for the agent; for Kiro CLIs before Kiro 3, the directory of
// the agent files it edits.
std::string path(std::string_view id);
bool available(std::string_view id);
bool isInstalled(std::string_view id);
// What the user still has to do once the agent is connected, or which form of hooks is
// connected, in a few words; empty when nothing. May ask the agent's program its version.
std::string todo(std::string_view id);
// The same at length, printed after connecting.
std::string_view note(std::string_view id);
void install(std::string_view id);
void uninstall(std::string_view id);

// The plugins Vantler ships for Amp and Kilo Code.
const std::string& ampPlugin();
const std::string& kiloPlugin();

}  // namespace MoreAgents
