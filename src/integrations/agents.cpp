// Every agent by its id, for the command line and the settings panel.

#include "core/files.h"
#include "core/prefs.h"
#include "integrations/file_access.h"
#include "integrations/installers.h"
#include "integrations/more_agents.h"

namespace Integrations {
namespace {

bool claudeAvailable() {
  return onPath("claude") || ConfigFile::files().exists(ConfigFile::files().home() + "/.claude");
}

[[noreturn]] void unknown(std::string_view agent) {
  std::string names = "claude, cursor, gemini, droid, copilot, windsurf, opencode, codex";
  for (std::string_view id : MoreAgents::ids()) names += ", " + std::string(id);
  throw InstallError("unknown agent \"" + std::string(agent) + "\" (known: " + names + ")");
}

// Switches an agent on or off for the settings panel; errors become the handler's message.
bool toggle(std::string_view agent, std::string_view key, const Json& value, std::string& error) {
  if (!value.is_boolean()) {
    error = std::string(key) + " must be true or false";
    return true;
  }
  try {
    if (value.get<bool>())
      connect(agent);
    else
      disconnect(agent);
  } catch (const std::exception& e) {
    error = e.what();
  }
  return true;
}

}  // namespace

std::vector<AgentRow> table() {
  std::vector<AgentRow> rows;
  rows.push_back({"claude", "Claude Code", claudeAvailable(), HookInstaller::isInstalled(),
                  HookInstaller::settingsPath()});
  rows.push_back({"cursor", "Cursor", CursorHooks::available(), CursorHooks::isInstalled(),
                  CursorHooks::path()});
  for (Integration i : kAll)
    rows.push_back({std::string(id(i)), std::string(label(i)), available(i), isInstalled(i),
                    path(i), std::string(note(i))});
  for (std::string_view id : MoreAgents::ids())
    rows.push_back({std::string(id), std::string(MoreAgents::label(id)), MoreAgents::available(id),
                    MoreAgents::isInstalled(id), MoreAgents::path(id),
                    std::string(MoreAgents::note(id)), std::string(MoreAgents::todo(id))});
  return rows;
}

std::vector<std::string> found() {
  std::vector<std::string> ids;
  if (claudeAvailable()) ids.push_back("claude");
  if (CursorHooks::available()) ids.push_back("cursor");
  for (Integration i : kAll)
    if (available(i)) ids.push_back(std::string(id(i)));
  for (std::string_view id : MoreAgents::ids())
    if (MoreAgents::available(id)) ids.push_back(std::string(id));
  return ids;
}

// Claude Code's hooks can wait for it to be installed; the other agents are only connected
// when they are on this machine, so connecting never invents their configuration directory.
void connect(std::string_view agent) {
  if (agent == "claude") return HookInstaller::install();
  if (agent == "cursor") {
    if (!CursorHooks::available())
      throw InstallError("Cursor was not found (no cursor command, no ~/.cursor)");
    return CursorHooks::install();
  }
  if (MoreAgents::known(agent)) {
    if (!MoreAgents::available(agent))
      throw InstallError(std::string(MoreAgents::label(agent)) + " was not found on this computer");
    return MoreAgents::install(agent);
  }
  auto integration = fromId(agent);
  if (!integration) unknown(agent);
  if (!available(*integration))
    throw InstallError(std::string(label(*integration)) + " was not found on this computer");
  install(*integration);
}

void disconnect(std::string_view agent) {
  if (agent == "claude") return HookInstaller::uninstall();
  if (agent == "cursor") return CursorHooks::uninstall();
  if (MoreAgents::known(agent)) return MoreAgents::uninstall(agent);
  auto integration = fromId(agent);
  if (!integration) unknown(agent);
  uninstall(*integration);
}

bool isConnected(std::string_view agent) {
  if (agent == "claude") return HookInstaller::isInstalled();
  if (agent == "cursor") return CursorHooks::isInstalled();
  if (MoreAgents::known(agent)) return MoreAgents::isInstalled(agent);
  auto integration = fromId(agent);
  return integration && isInstalled(*integration);
}

void registerPrefs() {
  // The app's loop runs the installers from now on: they never wait for an agent's program.
  ConfigFile::waitForPrograms(false);
  Prefs::addReporter([](Json& settings) {
    settings["hooksInstalled"] = HookInstaller::isInstalled();
    settings["cursorInstalled"] = CursorHooks::isInstalled();
    settings["cursorAvailable"] = CursorHooks::available();
    Json list = Json::array();
    for (Integration i : kAll)
      list.push_back({{"id", id(i)},
                      {"label", label(i)},
                      {"available", available(i)},
                      {"installed", isInstalled(i)}});
    for (std::string_view id : MoreAgents::ids())
      list.push_back({{"id", id},
                      {"label", MoreAgents::label(id)},
                      {"available", MoreAgents::available(id)},
                      {"installed", MoreAgents::isInstalled(id)}});
    settings["integrations"] = std::move(list);
  });
  Prefs::addHandler([](std::string_view key, const Json& value, std::string& error) {
    if (key == "hooksInstalled") return toggle("claude", key, value, error);
    if (key == "cursorInstalled") return toggle("cursor", key, value, error);
    constexpr std::string_view prefix = "integration:";
    if (key.substr(0, prefix.size()) != prefix) return false;
    std::string_view agent = key.substr(prefix.size());
    if (!fromId(agent) && !MoreAgents::known(agent)) {
      error = "unknown agent \"" + std::string(agent) + "\"";
      return true;
    }
    return toggle(agent, key, value, error);
  });
}

}  // namespace Integrations
