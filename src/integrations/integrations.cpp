// Gemini CLI, Factory droid, Copilot CLI, Windsurf, OpenCode and Codex.

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "core/files.h"
#include "integrations/file_access.h"
#include "integrations/installers.h"

namespace Integrations {
namespace {

// Gemini CLI counts timeouts in milliseconds, droid in seconds. The end of a turn waits for a
// typed reply (ten minutes, past any reply window); every other event is answered at once.
constexpr ConfigFile::GroupEvent kGeminiEvents[] = {
    {"SessionStart", false, 10000}, {"SessionEnd", false, 10000}, {"BeforeAgent", false, 10000},
    {"BeforeTool", true, 10000},    {"AfterTool", true, 10000},   {"Notification", true, 10000},
    {"AfterAgent", false, 600000},
};
constexpr ConfigFile::GroupEvent kDroidEvents[] = {
    {"SessionStart", false, 10}, {"SessionEnd", false, 10}, {"UserPromptSubmit", false, 10},
    {"PreToolUse", true, 10},    {"PostToolUse", true, 10}, {"Notification", true, 10},
    {"Stop", false, 600},
};
// Codex runs hooks shaped like Claude Code's. A permission request waits for the user's answer
// in the panel for up to a day.
constexpr ConfigFile::GroupEvent kCodexEvents[] = {
    {"SessionStart", false, {}},
    {"SessionEnd", false, {}},
    {"UserPromptSubmit", false, {}},
    {"PreToolUse", true, {}},
    {"PermissionRequest", true, 86400},
    {"PostToolUse", true, {}},
    {"Stop", false, {}},
};
constexpr const char* kWindsurfEvents[] = {
    "pre_user_prompt",   "pre_read_code",         "post_read_code",   "pre_write_code",
    "post_write_code",   "pre_run_command",       "post_run_command", "pre_mcp_tool_use",
    "post_mcp_tool_use", "post_cascade_response",
};
constexpr const char* kCopilotEvents[] = {
    "sessionStart", "sessionEnd", "userPromptSubmitted", "preToolUse",
    "postToolUse",  "agentStop",  "errorOccurred",
};

std::string home(std::string_view rest) {
  return ConfigFile::files().home() + std::string(rest);
}

template <size_t N>
void installGrouped(Integration which, const ConfigFile::GroupEvent (&events)[N]) {
  std::string file = path(which);
  std::string cmd = command(which);
  ConfigFile::edit(file, [&](Json& root) {
    Json& hooks = ConfigFile::hooksOf(root, file);
    ConfigFile::stripGroups(hooks);
    for (const ConfigFile::GroupEvent& e : events)
      ConfigFile::eventList(hooks, e.name, file)
          .push_back(ConfigFile::makeGroup(cmd, e.matcher, e.timeout));
    return true;
  });
}

void uninstallGrouped(const std::string& file) {
  ConfigFile::edit(
      file,
      [](Json& root) { return root.contains("hooks") && ConfigFile::stripGroups(root["hooks"]); },
      false);
}

bool groupedInstalled(const std::string& file) {
  auto root = ConfigFile::peek(file);
  return root && ConfigFile::hasGroupEntry(JsonField::object(*root, "hooks"));
}

bool ownFileInstalled(const std::string& file) {
  try {
    auto text = ConfigFile::read(file);
    return text && text->find(ConfigFile::kMarker) != std::string::npos;
  } catch (const InstallError&) {
    return false;
  }
}

void removeOwnFile(const std::string& file) {
  ConfigFile::files().remove(file);
}

// Droid reads hooks from either file; both are cleaned so no stale entry stays behind.
std::vector<std::string> droidFiles() {
  return {home("/.factory/hooks.json"), home("/.factory/settings.json")};
}

}  // namespace

std::string_view id(Integration integration) {
  switch (integration) {
    case Integration::gemini:
      return "gemini";
    case Integration::droid:
      return "droid";
    case Integration::copilot:
      return "copilot";
    case Integration::windsurf:
      return "windsurf";
    case Integration::opencode:
      return "opencode";
    case Integration::codex:
      return "codex";
  }
  return {};
}

std::string_view label(Integration integration) {
  switch (integration) {
    case Integration::gemini:
      return "Gemini CLI";
    case Integration::droid:
      return "Droid";
    case Integration::copilot:
      return "Copilot CLI";
    case Integration::windsurf:
      return "Windsurf";
    case Integration::opencode:
      return "OpenCode";
    case Integration::codex:
      return "Codex";
  }
  return {};
}

std::optional<Integration> fromId(std::string_view text) {
  for (Integration i : kAll)
    if (id(i) == text) return i;
  return std::nullopt;
}

std::string path(Integration integration) {
  switch (integration) {
    case Integration::gemini:
      return home("/.gemini/settings.json");
    case Integration::droid: {
      std::string hooks = home("/.factory/hooks.json");
      return ConfigFile::files().exists(hooks) ? hooks : home("/.factory/settings.json");
    }
    case Integration::copilot:
      return home("/.copilot/hooks/vantler.json");
    case Integration::windsurf:
      return home("/.codeium/windsurf/hooks.json");
    case Integration::opencode:
      return ConfigFile::files().configHome() + "/opencode/plugin/vantler.js";
    case Integration::codex:
      return home("/.codex/hooks.json");
  }
  return {};
}

std::string command(Integration integration, std::string_view event) {
  std::string args(id(integration));
  if (!event.empty()) args += " " + std::string(event);
  return R"(/bin/sh -c '[ -x "$HOME/.vantler/bin/vantler-hook" ] && "$HOME/.vantler/bin/vantler-hook" )" +
         args + "; exit 0'";
}

std::string_view note(Integration integration) {
  if (integration == Integration::codex)
    return "Codex asks once, on its next start, to review and trust new hooks (\"Hooks need "
           "review\"); until then it runs without them and Vantler follows its logs.";
  return {};
}

bool onPath(std::string_view name) {
  return ConfigFile::files().onPath(std::string(name));
}

bool available(Integration integration) {
  switch (integration) {
    case Integration::gemini:
      return ConfigFile::files().exists(home("/.gemini"));
    case Integration::droid:
      return ConfigFile::files().exists(home("/.factory"));
    case Integration::copilot:
      return ConfigFile::files().exists(home("/.copilot"));
    case Integration::windsurf:
      return onPath("windsurf") || ConfigFile::files().exists(home("/.codeium/windsurf"));
    case Integration::opencode:
      return ConfigFile::files().exists(ConfigFile::files().configHome() + "/opencode") ||
             ConfigFile::files().exists(home("/.opencode"));
    case Integration::codex:
      return onPath("codex") || ConfigFile::files().exists(home("/.codex"));
  }
  return false;
}

bool isInstalled(Integration integration) {
  switch (integration) {
    case Integration::gemini:
    case Integration::codex:
      return groupedInstalled(path(integration));
    case Integration::droid:
      for (const std::string& file : droidFiles())
        if (groupedInstalled(file)) return true;
      return false;
    case Integration::windsurf: {
      auto root = ConfigFile::peek(path(integration));
      return root && ConfigFile::hasFlatEntry(JsonField::object(*root, "hooks"));
    }
    case Integration::copilot:
    case Integration::opencode:
      return ownFileInstalled(path(integration));
  }
  return false;
}

void install(Integration integration) {
  // These agents work without a fresh copy as long as an earlier one is in place.
  try {
    HookInstaller::copyBinary();
  } catch (const InstallError&) {
  }
  std::string file = path(integration);
  switch (integration) {
    case Integration::gemini:
      installGrouped(integration, kGeminiEvents);
      break;
    case Integration::codex:
      installGrouped(integration, kCodexEvents);
      break;
    case Integration::droid:
      installGrouped(integration, kDroidEvents);
      for (const std::string& other : droidFiles()) {
        if (other == file) continue;
        try {
          uninstallGrouped(other);  // entries from before the other file was there
        } catch (const InstallError&) {
        }
      }
      break;
    case Integration::windsurf:
      ConfigFile::edit(file, [&](Json& root) {
        Json& hooks = ConfigFile::hooksOf(root, file);
        ConfigFile::stripFlat(hooks);
        for (const char* event : kWindsurfEvents)
          ConfigFile::eventList(hooks, event, file)
              .push_back({{"command", command(integration)}, {"show_output", false}});
        return true;
      });
      break;
    case Integration::copilot: {
      Json hooks = Json::object();
      for (const char* event : kCopilotEvents)
        hooks[event] = Json::array(
            {{{"type", "command"}, {"bash", command(integration, event)}, {"timeoutSec", 10}}});
      ConfigFile::write(file, ConfigFile::serialise({{"version", 1}, {"hooks", hooks}}));
      break;
    }
    case Integration::opencode:
      ConfigFile::write(file, openCodePlugin(), false);
      break;
  }
}

void uninstall(Integration integration) {
  switch (integration) {
    case Integration::gemini:
    case Integration::codex:
      uninstallGrouped(path(integration));
      break;
    case Integration::droid:
      for (const std::string& file : droidFiles()) uninstallGrouped(file);
      break;
    case Integration::windsurf:
      ConfigFile::edit(
          path(integration),
          [](Json& root) { return root.contains("hooks") && ConfigFile::stripFlat(root["hooks"]); },
          false);
      break;
    case Integration::copilot:
    case Integration::opencode:
      removeOwnFile(path(integration));
      break;
  }
}

const std::string& openCodePlugin() {
  static const std::string text =
      R"JS(// Vantler: tells the notch what this OpenCode session is doing.
// Installed by Vantler (Settings › Agents); switching OpenCode off there removes it.
const hook = `${process.env.HOME}/.vantler/bin/vantler-hook`

export const Vantler = async ({ directory }) => {
  function send(name, data) {
    try {
      const p = Bun.spawn([hook, "opencode"], { stdin: "pipe", stdout: "ignore", stderr: "ignore" })
      p.stdin.write(JSON.stringify({ hook_event_name: name, cwd: directory, ...data }))
      p.stdin.end()
    } catch {}
  }
  return {
    event: async ({ event }) => {
      const p = event.properties ?? {}
      const id = p.sessionID ?? p.info?.sessionID ?? p.info?.id
      if (event.type === "session.idle") send("session.idle", { session_id: id })
      if (event.type === "session.deleted") send("session.deleted", { session_id: p.info?.id ?? id })
      if (event.type === "permission.asked" || event.type === "permission.updated")
        send("permission", { session_id: id, message: p.title ?? p.message ?? "Needs your OK" })
    },
    "chat.message": async (input, output) => {
      const text = (output.parts ?? []).filter(p => p.type === "text").map(p => p.text).join(" ")
      send("prompt", { session_id: input.sessionID, prompt: text })
    },
    "tool.execute.before": async (input, output) => {
      send("tool.before", { session_id: input.sessionID, tool_name: input.tool, tool_input: output.args ?? {} })
    },
    "tool.execute.after": async (input) => {
      send("tool.after", { session_id: input.sessionID, tool_name: input.tool })
    },
  }
}
)JS";
  return text;
}

}  // namespace Integrations
