// Cursor's hooks: flat lists of commands per event in ~/.cursor/hooks.json.

#include "integrations/file_access.h"
#include "integrations/installers.h"

namespace CursorHooks {
namespace {

struct Event {
  const char* name;
  std::optional<int64_t> timeout;
};

// Every event is answered at once except the end of a turn, which waits for a typed reply.
constexpr Event kEvents[] = {
    {"sessionStart", 10},        {"sessionEnd", 10},        {"beforeSubmitPrompt", 10},
    {"afterShellExecution", 10}, {"afterMCPExecution", 10}, {"afterFileEdit", 10},
    {"afterAgentResponse", 10},  {"preCompact", 10},        {"stop", 600},
};

}  // namespace

std::string path() {
  return ConfigFile::files().home() + "/.cursor/hooks.json";
}

bool available() {
  return Integrations::onPath("cursor") ||
         ConfigFile::files().exists(ConfigFile::files().home() + "/.cursor");
}

bool isInstalled() {
  auto root = ConfigFile::peek(path());
  return root && ConfigFile::hasFlatEntry(JsonField::object(*root, "hooks"));
}

// When the executable is missing the shell answers for it, so Cursor always gets valid JSON;
// before a prompt that answer lets the prompt through.
std::string command(std::string_view event) {
  std::string fallback = event == "beforeSubmitPrompt" ? R"({\"continue\":true})" : "{}";
  return R"(/bin/sh -c '[ -x "$HOME/.vantler/bin/vantler-hook" ] && exec "$HOME/.vantler/bin/vantler-hook" cursor || echo ")" +
         fallback + "\"'";
}

void install() {
  HookInstaller::copyBinary();
  std::string file = path();
  ConfigFile::edit(file, [&](Json& root) {
    Json& hooks = ConfigFile::hooksOf(root, file);
    // Fresh entries replace ours, always at the end of each list.
    ConfigFile::stripFlat(hooks);
    for (const Event& e : kEvents) {
      Json entry = {{"command", command(e.name)}};
      if (e.timeout) entry["timeout"] = *e.timeout;
      ConfigFile::eventList(hooks, e.name, file).push_back(std::move(entry));
    }
    if (!root.contains("version")) root["version"] = 1;
    return true;
  });
}

void uninstall() {
  ConfigFile::edit(
      path(),
      [](Json& root) { return root.contains("hooks") && ConfigFile::stripFlat(root["hooks"]); },
      false);
}

}  // namespace CursorHooks
