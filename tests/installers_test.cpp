// Hook installers: every agent's configuration is edited in place without losing anything the
// user wrote, with one backup, atomically, and with the exact commands each agent runs.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <random>

#include "core/defaults.h"
#include "core/files.h"
#include "core/prefs.h"
#include "integrations/installers.h"
#include "test_support.h"

namespace fs = std::filesystem;

namespace {

const std::string kClaudeCommand =
    R"(/bin/sh -c '[ -x "$HOME/.vantler/bin/vantler-hook" ] && "$HOME/.vantler/bin/vantler-hook" claude; exit 0')";
const std::string kGeminiCommand =
    R"(/bin/sh -c '[ -x "$HOME/.vantler/bin/vantler-hook" ] && "$HOME/.vantler/bin/vantler-hook" gemini; exit 0')";
const std::string kDroidCommand =
    R"(/bin/sh -c '[ -x "$HOME/.vantler/bin/vantler-hook" ] && "$HOME/.vantler/bin/vantler-hook" droid; exit 0')";
const std::string kCopilotCommand =
    R"(/bin/sh -c '[ -x "$HOME/.vantler/bin/vantler-hook" ] && "$HOME/.vantler/bin/vantler-hook" copilot; exit 0')";
const std::string kWindsurfCommand =
    R"(/bin/sh -c '[ -x "$HOME/.vantler/bin/vantler-hook" ] && "$HOME/.vantler/bin/vantler-hook" windsurf; exit 0')";
const std::string kCursorStop =
    R"(/bin/sh -c '[ -x "$HOME/.vantler/bin/vantler-hook" ] && exec "$HOME/.vantler/bin/vantler-hook" cursor || echo "{}"')";
const std::string kCursorPrompt =
    R"(/bin/sh -c '[ -x "$HOME/.vantler/bin/vantler-hook" ] && exec "$HOME/.vantler/bin/vantler-hook" cursor || echo "{\"continue\":true}"')";

// Each agent's events with their matcher flag and timeout (0 = none), as the agents expect.
struct Ev {
  const char* name;
  bool matcher;
  int timeout;
};
const std::vector<Ev> kClaudeEvents = {
    {"SessionStart", false, 0}, {"SessionEnd", false, 0}, {"UserPromptSubmit", false, 0},
    {"PreToolUse", true, 0},    {"PostToolUse", true, 0}, {"PermissionRequest", true, 86400},
    {"Notification", true, 0},  {"Stop", false, 0},       {"SubagentStop", false, 0},
    {"PreCompact", false, 0}};
const std::vector<Ev> kGeminiEvents = {{"SessionStart", false, 0},  {"SessionEnd", false, 0},
                                       {"BeforeAgent", false, 0},   {"BeforeTool", true, 0},
                                       {"AfterTool", true, 0},      {"Notification", true, 0},
                                       {"AfterAgent", false, 70000}};
const std::vector<Ev> kDroidEvents = {
    {"SessionStart", false, 0}, {"SessionEnd", false, 0}, {"UserPromptSubmit", false, 0},
    {"PreToolUse", true, 0},    {"PostToolUse", true, 0}, {"Notification", true, 0},
    {"Stop", false, 70}};
const std::vector<std::string> kCursorEvents = {
    "sessionStart",        "sessionEnd",        "beforeSubmitPrompt",
    "afterShellExecution", "afterMCPExecution", "afterFileEdit",
    "afterAgentResponse",  "preCompact",        "stop"};
const std::vector<std::string> kWindsurfEvents = {
    "pre_user_prompt",   "pre_read_code",        "post_read_code",   "pre_write_code",
    "post_write_code",   "pre_run_command",      "post_run_command", "pre_mcp_tool_use",
    "post_mcp_tool_use", "post_cascade_response"};

Json group(const std::string& command, const Ev& e) {
  Json entry = {{"type", "command"}, {"command", command}};
  if (e.timeout) entry["timeout"] = e.timeout;
  Json g = {{"hooks", {entry}}};
  if (e.matcher) g["matcher"] = "*";
  return g;
}

std::string slurp(const std::string& path) {
  return Files::read(path).value_or("<missing>");
}

void put(const std::string& path, const std::string& text) {
  Files::makeDirs(Files::parent(path));
  std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

Json readJson(const std::string& path) {
  return Json::parse(slurp(path));
}

class Installers : public ::testing::Test {
 protected:
  TempHome home;
  std::string oldPath = getenv("PATH") ? getenv("PATH") : "";
  std::string pathDir = home.path() + "/path-bin";
  std::string hookSource = home.path() + "/build/vantler-hook";

  void SetUp() override {
    Files::makeDirs(pathDir);
    setenv("PATH", pathDir.c_str(), 1);
    put(hookSource, "#!/bin/sh\nexit 0\n");
    chmod(hookSource.c_str(), 0755);
    HookInstaller::setBundledBinary(hookSource);
    Prefs::resetExtensions();
  }
  void TearDown() override {
    setenv("PATH", oldPath.c_str(), 1);
    Prefs::resetExtensions();
  }
  std::string at(const std::string& rest) const { return home.path() + rest; }
};

using ClaudeInstaller = Installers;
using CursorInstaller = Installers;
using IntegrationInstallers = Installers;
using InstallerFiles = Installers;

TEST_F(ClaudeInstaller, FreshHomeGetsTenGroupsAndTheExecutable) {
  HookInstaller::install();
  std::string settings = at("/.claude/settings.json"), bin = at("/.vantler/bin/vantler-hook");
  EXPECT_EQ(readJson(settings).size(), 1u);
  EXPECT_EQ(readJson(settings)["hooks"].size(), 10u);
  // Pretty-printed with unescaped slashes, the inner quotes escaped once.
  EXPECT_NE(slurp(settings).find(R"(      "command": "/bin/sh -c '[ -x \"$HOME/.vantler/bin/)"),
            std::string::npos);
  EXPECT_FALSE(Files::exists(settings + ".vantler-backup"));
  EXPECT_EQ(slurp(bin), slurp(hookSource));
  EXPECT_TRUE(HookInstaller::isInstalled());
  // Installed means: the settings mention the hook anywhere and the executable can run.
  chmod(bin.c_str(), 0644);
  EXPECT_FALSE(HookInstaller::isInstalled());
  HookInstaller::copyBinary();  // puts the bundled mode back
  EXPECT_TRUE(HookInstaller::isInstalled());
  put(settings, R"({"note": "see vantler-hook"})");
  EXPECT_TRUE(HookInstaller::isInstalled());

  HookInstaller::setBundledBinary(at("/nowhere"));
  fs::remove_all(at("/.vantler"));
  put(settings, "");
  HookInstaller::install();  // no executable to copy: the settings are still edited
  EXPECT_FALSE(Files::exists(bin));
  EXPECT_EQ(readJson(settings)["hooks"].size(), 10u);
  EXPECT_FALSE(HookInstaller::isInstalled());
}

TEST_F(ClaudeInstaller, RemovesLegacyEntriesAndOnlyOurs) {
  std::string settings = at("/.claude/settings.json");
  Json original = Json::parse(R"J({"model": "opus", "hooks": {
      "Notification": [{"hooks": [{"type": "command", "command": "/x/glimmerax-hook claude"},
                                  {"type": "command", "command": "notify-send hi"}]}],
      "Stop": [{"matcher": "", "hooks": [{"type": "command", "command": "/opt/glimmerax-hook"}]}]}})J");
  put(settings, original.dump());
  HookInstaller::install();
  Json hooks = readJson(settings)["hooks"];
  EXPECT_EQ(hooks["Notification"][0]["hooks"],
            Json::parse(R"([{"type": "command", "command": "notify-send hi"}])"));
  EXPECT_EQ(hooks["Stop"].size(), 1u);
  HookInstaller::uninstall();
  EXPECT_EQ(readJson(settings), Json::parse(R"({"model": "opus", "hooks": {"Notification":
      [{"hooks": [{"type": "command", "command": "notify-send hi"}]}]}})"));
  put(settings, R"({"theme": "dark"})");
  HookInstaller::install();
  HookInstaller::uninstall();
  EXPECT_EQ(readJson(settings), Json::parse(R"({"theme": "dark", "hooks": {}})"));
  // Nothing of ours: uninstall leaves the file alone, and creates none.
  put(settings, "{ }");
  HookInstaller::uninstall();
  EXPECT_EQ(slurp(settings), "{ }");
  fs::remove_all(at("/.claude"));
  HookInstaller::uninstall();
  EXPECT_FALSE(Files::exists(at("/.claude")));
}

TEST_F(InstallerFiles, RefusesFilesItCannotEditAndLeavesThemUntouched) {
  struct Case {
    std::string text, message;
  };
  const std::vector<Case> cases = {
      {"[1, 2]", "~/.claude/settings.json is not a JSON object; left it untouched"},
      {"\"text\"", "~/.claude/settings.json is not a JSON object; left it untouched"},
      {"{\n  \"model\": \"opus\",\n  \"hooks\": {\n", "~/.claude/settings.json is not valid JSON"},
      {R"({"hooks": "echo hi"})", R"(~/.claude/settings.json: "hooks" is not an object)"},
      {R"({"hooks": [{"command": "x"}]})", R"("hooks" is not an object; left it untouched)"},
      {R"({"hooks": {"Stop": {"command": "x"}}})", R"(the "Stop" hooks are not a list)"},
      {R"({"hooks": {}, "x": )" + std::string(500, '[') + std::string(500, ']') + "}",
       "settings.json nests deeper than 128 levels; left it untouched"},
  };
  std::string settings = at("/.claude/settings.json");
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    put(settings, c.text);
    fs::remove(settings + ".vantler-backup");
    try {
      HookInstaller::install();
      ADD_FAILURE() << "install accepted the file";
    } catch (const InstallError& e) {
      EXPECT_NE(std::string(e.what()).find(c.message), std::string::npos) << e.what();
    }
    EXPECT_EQ(slurp(settings), c.text);
    EXPECT_FALSE(Files::exists(settings + ".vantler-backup"));
  }
  // The same refusal for every agent's shared file.
  put(at("/.cursor/hooks.json"), "[]");
  put(at("/.gemini/settings.json"), "{oops");
  EXPECT_THROW(CursorHooks::install(), InstallError);
  EXPECT_THROW(Integrations::install(Integration::gemini), InstallError);
  EXPECT_EQ(slurp(at("/.cursor/hooks.json")), "[]");
  EXPECT_EQ(slurp(at("/.gemini/settings.json")), "{oops");
}

TEST_F(InstallerFiles, FailedWriteLeavesTheOldFileWholeAndNoTemporaries) {
  std::string settings = at("/.claude/settings.json");
  std::string original = R"({"model": "opus"})";
  put(settings, original);
  HookInstaller::copyBinary();
  // The new file is far larger than the old one: a file size cap between the two makes the
  // write fail halfway.
  struct rlimit old, cap;
  getrlimit(RLIMIT_FSIZE, &old);
  cap = {512, old.rlim_max};
  auto previous = signal(SIGXFSZ, SIG_IGN);
  setrlimit(RLIMIT_FSIZE, &cap);
  EXPECT_THROW(HookInstaller::install(), InstallError);
  setrlimit(RLIMIT_FSIZE, &old);
  signal(SIGXFSZ, previous);
  EXPECT_EQ(slurp(settings), original);
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(at("/.claude")))
    names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"settings.json", "settings.json.vantler-backup"}));
}

TEST_F(InstallerFiles, FollowsSymlinksAndKeepsPermissions) {
  std::string real = at("/dotfiles/claude.json");
  put(real, R"({"env": {"TOKEN": "secret"}})");
  chmod(real.c_str(), 0600);
  Files::makeDirs(at("/.claude"));
  fs::create_symlink(real, at("/.claude/settings.json"));
  HookInstaller::install();
  EXPECT_TRUE(fs::is_symlink(at("/.claude/settings.json")));
  EXPECT_EQ(readJson(real)["env"]["TOKEN"], "secret");
  EXPECT_EQ(readJson(real)["hooks"].size(), 10u);
  EXPECT_EQ(fs::status(real).permissions(), fs::perms(0600));
  EXPECT_EQ(fs::status(at("/.claude/settings.json.vantler-backup")).permissions(), fs::perms(0600));
}

TEST_F(CursorInstaller, KeepsTheUsersVersionOrStartsAtOne) {
  std::string file = at("/.cursor/hooks.json");
  put(file, R"({"version": 2, "hooks": {"stop": [{"command": "paplay done.oga"}]}})");
  CursorHooks::install();
  EXPECT_EQ(readJson(file)["version"], 2);
  EXPECT_TRUE(CursorHooks::isInstalled());
  CursorHooks::uninstall();
  EXPECT_EQ(readJson(file),
            Json::parse(R"({"version": 2, "hooks": {"stop": [{"command": "paplay done.oga"}]}})"));
  EXPECT_FALSE(CursorHooks::isInstalled());
  fs::remove_all(at("/.cursor"));
  CursorHooks::install();
  EXPECT_EQ(readJson(file)["version"], 1);
  EXPECT_EQ(readJson(file)["hooks"].size(), 9u);
}

TEST_F(IntegrationInstallers, AvailabilityFromPathOrHomeDirectories) {
  EXPECT_FALSE(CursorHooks::available());
  EXPECT_FALSE(Integrations::available(Integration::windsurf));
  put(pathDir + "/cursor", "#!/bin/sh\n");
  EXPECT_FALSE(CursorHooks::available());  // not executable
  chmod((pathDir + "/cursor").c_str(), 0755);
  EXPECT_TRUE(CursorHooks::available());
  Files::makeDirs(at("/.codeium/windsurf"));
  EXPECT_TRUE(Integrations::available(Integration::windsurf));
  EXPECT_FALSE(Integrations::available(Integration::opencode));
  Files::makeDirs(at("/.opencode"));
  EXPECT_TRUE(Integrations::available(Integration::opencode));
}

TEST_F(IntegrationInstallers, DroidPrefersHooksJsonOverSettings) {
  std::string settings = at("/.factory/settings.json"), hooks = at("/.factory/hooks.json");
  put(settings, R"({"model": "x"})");
  put(hooks, "{}");
  Integrations::install(Integration::droid);
  EXPECT_EQ(slurp(settings), R"({"model": "x"})");
  EXPECT_EQ(readJson(hooks)["hooks"].size(), 7u);
  EXPECT_TRUE(Integrations::isInstalled(Integration::droid));
}

TEST_F(IntegrationInstallers, CopilotAndOpenCodeOwnWholeFiles) {
  put(at("/.copilot/config.json"), "{\"mine\": 1}");
  Integrations::install(Integration::copilot);
  Json copilot = readJson(at("/.copilot/hooks/vantler.json"));
  EXPECT_EQ(copilot["version"], 1);
  ASSERT_EQ(copilot["hooks"].size(), 7u);
  for (const char* event : {"sessionStart", "sessionEnd", "userPromptSubmitted", "preToolUse",
                            "postToolUse", "agentStop", "errorOccurred"})
    EXPECT_EQ(
        copilot["hooks"][event],
        Json::array({Json{{"type", "command"}, {"bash", kCopilotCommand}, {"timeoutSec", 10}}}));
  EXPECT_TRUE(Integrations::isInstalled(Integration::copilot));
  Integrations::uninstall(Integration::copilot);
  EXPECT_FALSE(Files::exists(at("/.copilot/hooks/vantler.json")));
  EXPECT_EQ(slurp(at("/.copilot/config.json")), "{\"mine\": 1}");

  std::string plugin = at("/.config/opencode/plugin/vantler.js");
  Integrations::install(Integration::opencode);
  std::string text = slurp(plugin);
  size_t characters =
      std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; });
  EXPECT_EQ(characters, 1584u);
  EXPECT_NE(text.find("const hook = `${process.env.HOME}/.vantler/bin/vantler-hook`\n\n"),
            std::string::npos);
  EXPECT_TRUE(Integrations::isInstalled(Integration::opencode));
  Integrations::uninstall(Integration::opencode);
  Integrations::uninstall(Integration::opencode);
  EXPECT_FALSE(Files::exists(plugin));
}

TEST_F(IntegrationInstallers, PreferencesReportFilesAndApplyChanges) {
  Integrations::registerPrefs();
  Defaults defaults(at("/.config/vantler/defaults.json"));
  Json settings = Prefs::json(defaults);
  EXPECT_EQ(settings["hooksInstalled"], false);
  EXPECT_EQ(settings["cursorInstalled"], false);
  EXPECT_EQ(settings["cursorAvailable"], false);
  Json rows = Json::array();
  for (auto [id, label] : {std::pair{"gemini", "Gemini CLI"},
                           {"droid", "Droid"},
                           {"copilot", "Copilot CLI"},
                           {"windsurf", "Windsurf"},
                           {"opencode", "OpenCode"}})
    rows.push_back({{"id", id}, {"label", label}, {"available", false}, {"installed", false}});
  EXPECT_EQ(settings["integrations"], rows);

  // Gemini CLI is not on this machine: refused, and nothing created.
  EXPECT_TRUE(Prefs::set(defaults, "integration:gemini", true).has_value());
  EXPECT_FALSE(Files::exists(at("/.gemini")));
  EXPECT_EQ(Prefs::json(defaults)["integrations"][0]["installed"], false);
  Files::makeDirs(at("/.gemini"));
  EXPECT_EQ(Prefs::set(defaults, "integration:gemini", true), std::nullopt);
  EXPECT_EQ(Prefs::set(defaults, "hooksInstalled", true), std::nullopt);
  settings = Prefs::json(defaults);
  EXPECT_EQ(settings["integrations"][0]["installed"], true);
  EXPECT_EQ(settings["hooksInstalled"], true);
  EXPECT_FALSE(defaults.has("hooksInstalled"));  // the files are the record

  // A broken settings file reports its problem and shows as off.
  EXPECT_EQ(Prefs::set(defaults, "hooksInstalled", false), std::nullopt);
  put(at("/.claude/settings.json"), "[]");
  EXPECT_EQ(Prefs::set(defaults, "hooksInstalled", true),
            "~/.claude/settings.json is not a JSON object; left it untouched");
  EXPECT_EQ(Prefs::json(defaults)["hooksInstalled"], false);
  EXPECT_TRUE(Prefs::set(defaults, "integration:nope", true).has_value());
  EXPECT_TRUE(Prefs::set(defaults, "cursorInstalled", "yes").has_value());
}

TEST_F(IntegrationInstallers, AgentTableAndConnectById) {
  std::vector<std::string> ids;
  for (const auto& row : Integrations::table()) ids.push_back(row.id);
  EXPECT_EQ(ids, (std::vector<std::string>{"claude", "cursor", "gemini", "droid", "copilot",
                                           "windsurf", "opencode"}));
  EXPECT_THROW(Integrations::connect("vim"), InstallError);
  EXPECT_THROW(Integrations::disconnect("vim"), InstallError);
  Files::makeDirs(at("/.copilot"));
  Integrations::connect("copilot");
  auto rows = Integrations::table();
  EXPECT_TRUE(rows[4].available && rows[4].connected);
  EXPECT_EQ(rows[4].configPath, at("/.copilot/hooks/vantler.json"));
  Integrations::disconnect("copilot");
  EXPECT_FALSE(Integrations::table()[4].connected);
}

// Random settings files of every shape an agent would still accept: foreign keys, foreign
// events, foreign groups of any shape and foreign entries. Install must append exactly our
// entries after the user's, a second install must change nothing (file and backup), and
// uninstall must give the original back.
class InstallerProperty : public Installers {
 protected:
  std::mt19937 rng{20240611};
  int below(int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng); }
  std::string word() {
    static const char* words[] = {"a", "x/y", "ünï", "hooks", "say \"hi\"", "vantler", "hook", ""};
    return words[below(8)];
  }
  Json value(int depth) {
    int kind = below(depth > 0 ? 7 : 5);
    if (kind == 5) return Json::array({value(depth - 1), value(depth - 1)});
    if (kind == 6) return Json{{word(), value(depth - 1)}, {word() + "2", value(depth - 1)}};
    const Json scalars[] = {nullptr, below(2) == 1, below(2000) - 1000, below(100) / 4.0, word()};
    return scalars[kind];
  }
  Json entry() {
    Json e = {{"type", "command"}, {"command", "run " + word()}};
    if (below(3) == 0) e[word()] = value(1);
    return e;
  }
  Json foreignList(bool grouped) {
    Json list = Json::array();
    for (int i = below(4); i > 0; --i) {
      int shape = below(8);
      if (shape == 0)
        list.push_back(value(1));  // not an entry or group at all
      else if (!grouped)
        list.push_back(entry());
      else if (shape == 1)
        list.push_back(Json{{"matcher", word()}});  // a group without hooks
      else
        list.push_back(Json{{"matcher", word()}, {"hooks", {entry(), entry()}}});
    }
    return list;
  }
  Json settings(const std::map<std::string, Json>& ours, bool grouped) {
    Json root = Json::object();
    for (int i = below(4); i > 0; --i) root[word() + "k"] = value(3);
    if (below(5) == 0) return root;
    Json& hooks = root["hooks"] = Json::object();
    for (const auto& [event, mine] : ours)
      if (below(3) == 0) hooks[event] = foreignList(grouped);
    for (int i = below(3); i > 0; --i)
      hooks["Other" + word()] = below(2) ? foreignList(grouped) : value(2);
    return root;
  }
  // An empty event list, or empty hooks object, means the same as none.
  static Json normal(Json root) {
    if (!root.contains("hooks")) return root;
    Json& hooks = root["hooks"];
    for (auto it = hooks.begin(); it != hooks.end();)
      it = it->is_array() && it->empty() ? hooks.erase(it) : std::next(it);
    if (hooks.empty()) root.erase("hooks");
    return root;
  }
};

TEST_F(InstallerProperty, RandomSettingsKeepForeignContentAndRoundTrip) {
  struct Agent {
    std::string file;
    bool grouped;
    std::function<void(bool on)> set;
    std::map<std::string, Json> ours = {};  // event → what is appended to it
  };
  auto other = [](Integration i) {
    return [i](bool on) { on ? Integrations::install(i) : Integrations::uninstall(i); };
  };
  std::vector<Agent> agents = {
      {at("/.claude/settings.json"), true,
       [](bool on) { on ? HookInstaller::install() : HookInstaller::uninstall(); }},
      {at("/.gemini/settings.json"), true, other(Integration::gemini)},
      {at("/.factory/settings.json"), true, other(Integration::droid)},
      {at("/.cursor/hooks.json"), false,
       [](bool on) { on ? CursorHooks::install() : CursorHooks::uninstall(); }},
      {at("/.codeium/windsurf/hooks.json"), false, other(Integration::windsurf)}};
  for (const Ev& e : kClaudeEvents) agents[0].ours[e.name] = group(kClaudeCommand, e);
  for (const Ev& e : kGeminiEvents) agents[1].ours[e.name] = group(kGeminiCommand, e);
  for (const Ev& e : kDroidEvents) agents[2].ours[e.name] = group(kDroidCommand, e);
  for (const std::string& e : kCursorEvents) {
    agents[3].ours[e] = {{"command", e == "beforeSubmitPrompt" ? kCursorPrompt : kCursorStop}};
    if (e == "stop") agents[3].ours[e]["timeout"] = 60;
  }
  for (const std::string& e : kWindsurfEvents)
    agents[4].ours[e] = {{"command", kWindsurfCommand}, {"show_output", false}};

  int checked = 0;
  for (int round = 0; round < 60; ++round) {
    for (Agent& agent : agents) {
      Json original = settings(agent.ours, agent.grouped);
      std::string text = original.dump(below(5) - 1);
      put(agent.file, text);
      fs::remove(agent.file + ".vantler-backup");
      SCOPED_TRACE(agent.file + ": " + text);
      Json expected = original;
      if (agent.file.ends_with("/.cursor/hooks.json") && !original.contains("version"))
        expected["version"] = 1;

      agent.set(true);
      Json installed = expected;
      for (const auto& [event, mine] : agent.ours) installed["hooks"][event].push_back(mine);
      ASSERT_EQ(readJson(agent.file), installed);
      EXPECT_EQ(slurp(agent.file + ".vantler-backup"), text);
      std::string once = slurp(agent.file);
      agent.set(true);
      ASSERT_EQ(slurp(agent.file), once);
      ASSERT_EQ(slurp(agent.file + ".vantler-backup"), text);

      agent.set(false);
      ASSERT_EQ(normal(readJson(agent.file)), normal(expected));
      ++checked;
    }
  }
  EXPECT_EQ(checked, 300);
}

}  // namespace
