// Claude Code's hooks, and the hook executable every agent runs.

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "core/files.h"
#include "install_dirs.h"
#include "integrations/file_access.h"
#include "integrations/installers.h"

namespace HookInstaller {
namespace {

// The hook answers every event within a fraction of a second unless the app holds it for the
// user: PermissionRequest waits for a decision in the panel (a day, so Claude Code never gives
// up on it first) and Stop for a reply typed after the turn (ten minutes, past any reply
// window). Ten seconds elsewhere bound an event that could only hang.
constexpr ConfigFile::GroupEvent kEvents[] = {
    {"SessionStart", false, 10},
    {"SessionEnd", false, 10},
    {"UserPromptSubmit", false, 10},
    {"PreToolUse", true, 10},
    {"PostToolUse", true, 10},
    {"PostToolUseFailure", true, 10},  // a failed tool shows as failed only with this one
    {"PermissionRequest", true, 86400},
    {"Notification", true, 10},
    {"Stop", false, 600},
    {"SubagentStop", false, 10},
    {"PreCompact", false, 10},
};

std::optional<std::string>& sourceOverride() {
  static std::optional<std::string> source;
  return source;
}

bool isRegularFile(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

bool groupsHaveOurs(const Json& groups) {
  return std::any_of(groups.begin(), groups.end(), [](const Json& group) {
    const Json& entries = JsonField::array(group, "hooks");
    return std::any_of(entries.begin(), entries.end(),
                       [](const Json& entry) { return ConfigFile::isOurs(entry); });
  });
}

}  // namespace

std::string settingsPath() {
  return ConfigFile::files().home() + "/.claude/settings.json";
}

std::string binPath() {
  return ConfigFile::files().home() + "/.vantler/bin/vantler-hook";
}

const std::string& command() {
  static const std::string text =
      R"(/bin/sh -c '[ -x "$HOME/.vantler/bin/vantler-hook" ] && "$HOME/.vantler/bin/vantler-hook" claude; exit 0')";
  return text;
}

std::optional<std::string> bundledBinary() {
  if (const auto& path = sourceOverride()) return isRegularFile(*path) ? path : std::nullopt;
  std::string exe = Files::executable();
  if (exe.empty()) return std::nullopt;
  std::string dir = Files::parent(exe);
  for (std::string candidate : {dir + "/vantler-hook", dir + "/" + InstallDirs::kHook})
    if (isRegularFile(candidate)) return candidate;
  return std::nullopt;
}

void setBundledBinary(std::optional<std::string> path) {
  sourceOverride() = std::move(path);
}

void copyBinary() {
  ConfigFile::files().installProgram(binPath());
}

bool isInstalled() {
  auto root = ConfigFile::peek(settingsPath());
  return root && ConfigFile::hasGroupEntry(JsonField::object(*root, "hooks")) &&
         ConfigFile::files().isExecutable(binPath());
}

bool hasLegacyEntries() {
  auto root = ConfigFile::peek(settingsPath());
  return root && ConfigFile::hasGroupEntry(JsonField::object(*root, "hooks"), kLegacyMarker);
}

void install() {
  copyBinary();
  std::string path = settingsPath();
  ConfigFile::edit(path, [&](Json& root) {
    Json& hooks = ConfigFile::hooksOf(root, path);
    ConfigFile::stripGroups(hooks, kLegacyMarker);
    for (const ConfigFile::GroupEvent& e : kEvents) {
      Json& groups = ConfigFile::eventList(hooks, e.name, path);
      if (!groupsHaveOurs(groups))
        groups.push_back(ConfigFile::makeGroup(command(), e.matcher, e.timeout));
    }
    return true;
  });
}

void uninstall() {
  ConfigFile::edit(
      settingsPath(),
      [](Json& root) {
        Json* hooks = root.contains("hooks") ? &root["hooks"] : nullptr;
        if (!hooks) return false;
        bool ours = ConfigFile::stripGroups(*hooks);
        bool legacy = ConfigFile::stripGroups(*hooks, kLegacyMarker);
        return ours || legacy;
      },
      false);
}

}  // namespace HookInstaller
