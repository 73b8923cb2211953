// Fuzzes the settings-file editor through the real Claude Code installer on real files. Whatever
// bytes ~/.claude/settings.json holds, connecting either refuses with an InstallError and leaves
// them as they were, or writes a file whose value is the original's plus exactly our groups;
// connecting again changes nothing; disconnecting takes exactly ours out again and, when nothing
// in the original could be taken for ours, gives back the original bytes.

#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "core/files.h"
#include "integrations/installers.h"
#include "integrations/json_text.h"

namespace {

constexpr const char* kEvents[] = {"SessionStart", "SessionEnd",  "UserPromptSubmit",
                                   "PreToolUse",   "PostToolUse", "PermissionRequest",
                                   "Notification", "Stop",        "SubagentStop",
                                   "PreCompact"};

const std::string& settingsPath() {
  static const std::string path = [] {
    char pattern[] = "/dev/shm/vantler-fuzz-XXXXXX";
    char fallback[] = "/tmp/vantler-fuzz-XXXXXX";
    const char* home = ::mkdtemp(pattern);
    if (!home) home = ::mkdtemp(fallback);
    if (!home) std::abort();
    ::setenv("HOME", home, 1);
    HookInstaller::setBundledBinary(std::string(home) + "/no-hook-program");
    return HookInstaller::settingsPath();
  }();
  return path;
}

std::string contents() {
  auto bytes = Files::read(settingsPath());
  if (!bytes) std::abort();
  return *bytes;
}

void check(bool ok) {
  if (!ok) std::abort();
}

// The value without any hook entry of ours or of the earlier name, with empty event lists and an
// empty hooks object dropped: what the user wrote, as far as meaning goes.
Json theirs(Json root) {
  auto hooks = root.find("hooks");
  if (hooks == root.end() || !hooks->is_object()) return root;
  ConfigFile::stripGroups(*hooks);
  ConfigFile::stripGroups(*hooks, HookInstaller::kLegacyMarker);
  for (auto it = hooks->begin(); it != hooks->end();)
    it = it->is_array() && it->empty() ? hooks->erase(it) : std::next(it);
  if (hooks->empty()) root.erase(hooks);
  return root;
}

// Whether disconnecting must give back the very bytes: nothing in them is ours, and no empty
// hooks object or empty list under one of our events (removing ours cannot tell those apart
// from ones it emptied).
bool restorable(const Json& original) {
  const Json* hooks = JsonField::find(original, "hooks");
  if (!hooks) return true;
  if (!hooks->is_object() || hooks->empty()) return false;
  if (ConfigFile::hasGroupEntry(*hooks) ||
      ConfigFile::hasGroupEntry(*hooks, HookInstaller::kLegacyMarker))
    return false;
  for (const char* event : kEvents)
    if (const Json* list = JsonField::find(*hooks, event); list && list->empty()) return false;
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string& path = settingsPath();
  std::string text(reinterpret_cast<const char*>(data), size);
  if (Files::writeAtomic(path, text)) std::abort();
  ::unlink((path + ".vantler-backup").c_str());
  bool blank = text.find_first_not_of(" \t\r\n") == std::string::npos;
  JsonText::Parsed parsed = JsonText::parse(text);

  try {
    HookInstaller::install();
  } catch (const InstallError&) {
    check(contents() == text);
    return 0;
  }
  check(blank || (parsed.error.empty() && parsed.value.is_object()));
  Json original = blank ? Json::object() : parsed.value;
  std::string connected = contents();
  JsonText::Parsed now = JsonText::parse(connected);
  check(now.error.empty() && now.value.is_object());
  check(theirs(now.value) == theirs(original));
  const Json& hooks = now.value["hooks"];
  for (const char* event : kEvents) {
    Json one = {{event, JsonField::array(hooks, event)}};
    check(ConfigFile::hasGroupEntry(one));
  }
  HookInstaller::install();
  check(contents() == connected);

  HookInstaller::uninstall();
  std::string disconnected = contents();
  JsonText::Parsed after = JsonText::parse(disconnected);
  check(after.error.empty() && after.value.is_object());
  check(!ConfigFile::hasGroupEntry(JsonField::object(after.value, "hooks")));
  check(theirs(after.value) == theirs(original));
  if (!blank && restorable(original)) check(disconnected == text);
  return 0;
}
