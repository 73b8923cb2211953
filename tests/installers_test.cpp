// Hook installers: every agent's configuration is edited as text, changing only Vantler's own
// entries, with one backup, atomically, and with the exact commands each agent runs.

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

// The command every grouped or flat agent runs, by agent name.
std::string hookCommand(const std::string& agent) {
  return R"(/bin/sh -c '[ -x "$HOME/.vantler/bin/vantler-hook" ] && "$HOME/.vantler/bin/vantler-hook" )" +
         agent + "; exit 0'";
}
const std::string kClaudeCommand = hookCommand("claude");
const std::string kCursorStop =
    R"(/bin/sh -c '[ -x "$HOME/.vantler/bin/vantler-hook" ] && exec "$HOME/.vantler/bin/vantler-hook" cursor || echo "{}"')";
const std::string kCursorPrompt =
    R"(/bin/sh -c '[ -x "$HOME/.vantler/bin/vantler-hook" ] && exec "$HOME/.vantler/bin/vantler-hook" cursor || echo "{\"continue\":true}"')";

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
  std::string pathDir = home.path() + "/path-bin";
  ScopedEnv path{"PATH", pathDir};
  std::string hookSource = home.path() + "/build/vantler-hook";

  void SetUp() override {
    Files::makeDirs(pathDir);
    put(hookSource, "#!/bin/sh\nexit 0\n");
    chmod(hookSource.c_str(), 0755);
    HookInstaller::setBundledBinary(hookSource);
    Prefs::resetExtensions();
  }
  void TearDown() override { Prefs::resetExtensions(); }
  std::string at(const std::string& rest) const { return home.path() + rest; }
};

using ClaudeInstaller = Installers;
using CursorInstaller = Installers;
using IntegrationInstallers = Installers;
using InstallerFiles = Installers;

TEST_F(ClaudeInstaller, FreshHomeGetsEveryGroupAndTheExecutable) {
  HookInstaller::install();
  std::string settings = at("/.claude/settings.json"), bin = at("/.vantler/bin/vantler-hook");
  EXPECT_EQ(readJson(settings).size(), 1u);
  EXPECT_EQ(readJson(settings)["hooks"].size(), 11u);
  // Pretty-printed with unescaped slashes, the inner quotes escaped once.
  EXPECT_NE(slurp(settings).find(R"(      "command": "/bin/sh -c '[ -x \"$HOME/.vantler/bin/)"),
            std::string::npos);
  EXPECT_FALSE(Files::exists(settings + ".vantler-backup"));
  EXPECT_EQ(slurp(bin), slurp(hookSource));
  EXPECT_TRUE(HookInstaller::isInstalled());
  // Installed means: an entry of ours is there and the executable can run.
  chmod(bin.c_str(), 0644);
  EXPECT_FALSE(HookInstaller::isInstalled());
  HookInstaller::copyBinary();  // puts the bundled mode back
  EXPECT_TRUE(HookInstaller::isInstalled());
  put(settings, R"({"note": "see vantler-hook", "hooks": {"Stop": [{"hooks": [
      {"type": "command", "command": "echo vantler-hook"}]}]}})");
  EXPECT_FALSE(HookInstaller::isInstalled());

  HookInstaller::setBundledBinary(at("/nowhere"));
  fs::remove_all(at("/.vantler"));
  put(settings, "");
  HookInstaller::install();  // no executable to copy: the settings are still edited
  EXPECT_FALSE(Files::exists(bin));
  EXPECT_EQ(readJson(settings)["hooks"].size(), 11u);
  EXPECT_FALSE(HookInstaller::isInstalled());
}

TEST_F(ClaudeInstaller, RemovesLegacyEntriesAndOnlyOurs) {
  std::string settings = at("/.claude/settings.json");
  put(settings, R"J({"model": "opus", "hooks": {
      "Notification": [{"hooks": [{"type": "command", "command": "/x/glimmerax-hook claude"},
                                  {"type": "command", "command": "notify-send hi"}]}],
      "Stop": [{"matcher": "", "hooks": [{"type": "command", "command": "/opt/glimmerax-hook"}]}],
      "PreCompact": [{"hooks": [{"type": "command", "command": "\"$HOME/.vantler/bin/vantler-hook\" claude"}]}]}})J");
  EXPECT_TRUE(HookInstaller::hasLegacyEntries());
  HookInstaller::install();
  Json hooks = readJson(settings)["hooks"];
  EXPECT_EQ(hooks["Notification"][0]["hooks"],
            Json::parse(R"([{"type": "command", "command": "notify-send hi"}])"));
  EXPECT_EQ(hooks["Stop"].size(), 1u);
  EXPECT_EQ(hooks["PreCompact"].size(), 1u);  // an entry of ours in an older spelling counts
  EXPECT_FALSE(HookInstaller::hasLegacyEntries());
  HookInstaller::uninstall();
  EXPECT_EQ(readJson(settings), Json::parse(R"({"model": "opus", "hooks": {"Notification":
      [{"hooks": [{"type": "command", "command": "notify-send hi"}]}]}})"));
  // Nothing of ours: uninstall leaves the file alone, and creates none.
  put(settings, "{ }");
  HookInstaller::uninstall();
  EXPECT_EQ(slurp(settings), "{ }");
  fs::remove_all(at("/.claude"));
  HookInstaller::uninstall();
  EXPECT_FALSE(Files::exists(at("/.claude")));
}

TEST(HookCommands, OursByTheProgramTheyRunNeverByMention) {
  TempHome home;
  struct Case {
    std::string command;
    bool ours;
  };
  const std::vector<Case> cases = {
      {kClaudeCommand, true},
      {kCursorPrompt, true},
      {hookCommand("windsurf"), true},
      {R"("$HOME/.vantler/bin/vantler-hook" claude)", true},
      {home.path() + "/.vantler/bin/vantler-hook claude", true},
      {"~/.vantler/bin/vantler-hook", true},
      {R"(/bin/sh -c '"$HOME/.vantler/bin/vantler-hook" codex || true')", true},
      {"echo vantler-hook", false},
      {"/opt/tools/vantler-hook claude", false},
      {"~/.vantler/bin/vantler-hook-debug claude", false},
      {"/bin/sh -c 'logger ran vantler-hook; exit 0'", false},
      {R"(/bin/sh -c '[ -x "/opt/vantler-hook" ] && "/opt/vantler-hook" claude; exit 0')", false},
      {R"(/bin/sh -c '[ -x "$HOME/.vantler/bin/vantler-hook" ] && "$HOME/bin/mine" claude')",
       false},
  };
  for (const Case& c : cases) EXPECT_EQ(ConfigFile::isOurCommand(c.command), c.ours) << c.command;
  EXPECT_TRUE(ConfigFile::isOurCommand("/x/glimmerax-hook claude", HookInstaller::kLegacyMarker));
  EXPECT_FALSE(ConfigFile::isOurCommand("echo glimmerax-hook", HookInstaller::kLegacyMarker));
}

// Settings as people write them: connecting adds only our entries, in the file's own layout,
// and disconnecting gives back every byte.
TEST_F(InstallerFiles, HandFormattedFilesComeBackByteForByte) {
  struct Case {
    std::string text;
    std::string ours;  // how our entries start in the Claude Code file
  };
  const std::vector<Case> cases = {
      {"{\n  \"model\": \"opus\",\n  \"env\": {\"BIG\": 12345678901234567890, \"NAME\": "
       "\"Ren\\u00e9e\", \"PATH\": \"a\\/b\"},\n  \"permissions\": {\n    \"allow\": "
       "[\"Bash(ls:*)\"]\n  },\n  \"alwaysThinkingEnabled\": true\n}\n",
       "true,\n  \"hooks\": {\n    \"Notification\": [\n      {\n        \"hooks\": [\n"},
      {"{\n    \"hooks\": {\n        \"PreToolUse\": [{\"matcher\": \"Bash\", \"hooks\": "
       "[{\"type\": \"command\", \"command\": \"echo vantler-hook is great\"}]}]\n    },\n    "
       "\"theme\": \"dark\"\n}",
       "}]}, {\"hooks\":[{\"command\":"},
      {"{\n\t\"permissions\": {\n\t\t\"deny\": []\n\t},\n\t\"n\": 1E+2\n}\n",
       "1E+2,\n\t\"hooks\": {\n\t\t\"Notification\": [\n\t\t\t{\n\t\t\t\t\"hooks\": [\n"},
      {R"({"model":"opus","n":1.50})", R"("n":1.50,"hooks":{"Notification":[{"hooks":[{)"},
      {"{}\n", "{\n  \"hooks\": {\n    \"Notification\": [\n"},
      {"{\r\n  \"a\": {}\r\n}\r\n", "{},\r\n  \"hooks\": {\r\n    \"Notification\": [\r\n"},
  };
  struct Agent {
    std::string file;
    std::function<void(bool on)> set;
  };
  const std::vector<Agent> agents = {
      {at("/.claude/settings.json"),
       [](bool on) { on ? HookInstaller::install() : HookInstaller::uninstall(); }},
      {at("/.gemini/settings.json"),
       [](bool on) {
         on ? Integrations::install(Integration::gemini)
            : Integrations::uninstall(Integration::gemini);
       }},
      {at("/.codeium/windsurf/hooks.json"), [](bool on) {
         on ? Integrations::install(Integration::windsurf)
            : Integrations::uninstall(Integration::windsurf);
       }}};
  for (const Case& c : cases) {
    for (const Agent& agent : agents) {
      SCOPED_TRACE(agent.file + ":\n" + c.text);
      put(agent.file, c.text);
      agent.set(true);
      std::string connected = slurp(agent.file);
      Json expected = Json::parse(c.text);
      expected.erase("hooks");
      Json got = Json::parse(connected);
      got.erase("hooks");
      EXPECT_EQ(got, expected);
      if (agent.file == at("/.claude/settings.json")) {
        EXPECT_NE(connected.find(c.ours), std::string::npos) << connected;
      }
      if (c.text.find('\r') != std::string::npos) {
        EXPECT_EQ(std::count(connected.begin(), connected.end(), '\n'),
                  std::count(connected.begin(), connected.end(), '\r'));
      }
      agent.set(true);
      EXPECT_EQ(slurp(agent.file), connected);
      agent.set(false);
      EXPECT_EQ(slurp(agent.file), c.text);
    }
  }
}

TEST_F(InstallerFiles, RefusesFilesItCannotEditAndLeavesThemUntouched) {
  struct Case {
    std::string text, message;
  };
  const std::vector<Case> cases = {
      {"[1, 2]", "~/.claude/settings.json is not a JSON object; left it untouched"},
      {"{\n  \"model\": \"opus\",\n  \"n\": 1E400\n}",
       "~/.claude/settings.json is not valid JSON (line 3: number overflow parsing '1E400'); "
       "left it untouched"},
      {"{\n  \"model\": \"opus\",\n  \"hooks\": {\n",
       "~/.claude/settings.json is not valid JSON (line 3: syntax error while parsing object key "
       "- unexpected end of input; expected string literal); left it untouched"},
      {std::string(300, '[') + std::string(300, ']'), "(line 1: nested more than 128 levels deep)"},
      {R"({"hooks": "echo hi"})", R"(~/.claude/settings.json: "hooks" is not an object)"},
      {R"({"hooks": {"Stop": {"command": "x"}}})", R"(the "Stop" hooks are not a list)"},
      {R"({"hooks": {}, "x": )" + std::string(500, '[') + std::string(500, ']') + "}",
       "(line 1: nested more than 128 levels deep); left it untouched"},
  };
  std::string settings = at("/.claude/settings.json");
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    put(settings, c.text);
    try {
      HookInstaller::install();
      ADD_FAILURE() << "install accepted the file";
    } catch (const InstallError& e) {
      EXPECT_NE(std::string(e.what()).find(c.message), std::string::npos) << e.what();
    }
    EXPECT_FALSE(HookInstaller::isInstalled());
    EXPECT_EQ(slurp(settings), c.text);
    EXPECT_FALSE(Files::exists(settings + ".vantler-backup"));
  }
  // A named pipe or a directory is refused at once, never read or replaced.
  fs::remove(settings);
  ASSERT_EQ(mkfifo(settings.c_str(), 0600), 0);
  fs::create_directories(at("/.cursor/hooks.json"));
  for (auto [install, message] :
       {std::pair<std::function<void()>, std::string>{
            HookInstaller::install, "~/.claude/settings.json is a named pipe, not a file"},
        {CursorHooks::install, "~/.cursor/hooks.json is a directory, not a file"}}) {
    try {
      install();
      ADD_FAILURE() << "accepted: " << message;
    } catch (const InstallError& e) {
      EXPECT_NE(std::string(e.what()).find(message), std::string::npos) << e.what();
    }
  }
  EXPECT_FALSE(HookInstaller::isInstalled());
  EXPECT_FALSE(CursorHooks::isInstalled());
  EXPECT_TRUE(fs::is_fifo(settings));
  EXPECT_TRUE(fs::is_directory(at("/.cursor/hooks.json")));
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

TEST_F(InstallerFiles, EveryAgentWritesThroughSymlinksAndKeepsPermissions) {
  for (const char* dir : {"/.gemini", "/.factory", "/.copilot", "/.codeium/windsurf"})
    Files::makeDirs(at(dir));
  struct Case {
    std::string link;
    std::function<void()> install;
  };
  const std::vector<Case> cases = {
      {"/.claude/settings.json", HookInstaller::install},
      {"/.cursor/hooks.json", CursorHooks::install},
      {"/.gemini/settings.json", [] { Integrations::connect("gemini"); }},
      {"/.factory/settings.json", [] { Integrations::connect("droid"); }},
      {"/.codeium/windsurf/hooks.json", [] { Integrations::connect("windsurf"); }},
      {"/.copilot/hooks/vantler.json", [] { Integrations::connect("copilot"); }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.link);
    std::string real = at("/dotfiles" + c.link), link = at(c.link);
    put(real, R"({"env": {"TOKEN": "secret"}})");
    chmod(real.c_str(), 0600);
    Files::makeDirs(Files::parent(link));
    fs::create_symlink(real, link);
    c.install();
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_NE(slurp(real).find("vantler-hook"), std::string::npos);
    EXPECT_EQ(fs::status(real).permissions(), fs::perms(0600));
    EXPECT_EQ(fs::status(link + ".vantler-backup").permissions(), fs::perms(0600));
  }
  EXPECT_EQ(readJson(at("/dotfiles/.claude/settings.json"))["env"]["TOKEN"], "secret");
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(at("/.claude")))
    names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"settings.json", "settings.json.vantler-backup"}));
}

TEST_F(CursorInstaller, KeepsTheUsersVersionOrStartsAtOne) {
  std::string file = at("/.cursor/hooks.json");
  std::string text = R"({"version": 2, "hooks": {"stop": [{"command": "paplay done.oga"}]}})";
  put(file, text);
  CursorHooks::install();
  EXPECT_EQ(readJson(file)["version"], 2);
  EXPECT_EQ(readJson(file)["hooks"]["stop"][1], (Json{{"command", kCursorStop}, {"timeout", 600}}));
  EXPECT_TRUE(CursorHooks::isInstalled());
  CursorHooks::uninstall();
  EXPECT_EQ(slurp(file), text);
  EXPECT_FALSE(CursorHooks::isInstalled());
  fs::remove_all(at("/.cursor"));
  CursorHooks::install();
  EXPECT_EQ(readJson(file)["version"], 1);
  EXPECT_EQ(readJson(file)["hooks"].size(), 9u);
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
  EXPECT_EQ(copilot["hooks"].size(), 7u);
  EXPECT_TRUE(Integrations::isInstalled(Integration::copilot));
  Integrations::uninstall(Integration::copilot);
  EXPECT_FALSE(Files::exists(at("/.copilot/hooks/vantler.json")));
  EXPECT_EQ(slurp(at("/.copilot/config.json")), "{\"mine\": 1}");

  std::string plugin = at("/.config/opencode/plugin/vantler.js");
  Integrations::install(Integration::opencode);
  EXPECT_TRUE(Integrations::isInstalled(Integration::opencode));
  Integrations::uninstall(Integration::opencode);
  Integrations::uninstall(Integration::opencode);
  EXPECT_FALSE(Files::exists(plugin));
}

TEST_F(IntegrationInstallers, PreferencesAndConnectById) {
  Integrations::registerPrefs();
  Defaults defaults(at("/.config/vantler/defaults.json"));
  // Gemini CLI is not on this machine: refused, and nothing created.
  EXPECT_TRUE(Prefs::set(defaults, "integration:gemini", true).has_value());
  EXPECT_FALSE(Files::exists(at("/.gemini")));
  Files::makeDirs(at("/.gemini"));
  EXPECT_EQ(Prefs::set(defaults, "integration:gemini", true), std::nullopt);
  EXPECT_EQ(Prefs::set(defaults, "hooksInstalled", true), std::nullopt);
  Json settings = Prefs::json(defaults);
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
  EXPECT_THROW(Integrations::connect("vim"), InstallError);
  EXPECT_THROW(Integrations::disconnect("vim"), InstallError);
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
      {at("/.codeium/windsurf/hooks.json"), false, other(Integration::windsurf)},
      {at("/.codex/hooks.json"), true, other(Integration::codex)}};
  // What a file without hooks gets is what every other file must get after its own entries.
  for (Agent& agent : agents) {
    put(agent.file, "{}");
    agent.set(true);
    const Json installed = readJson(agent.file);
    for (const auto& [event, list] : installed["hooks"].items()) {
      ASSERT_EQ(list.size(), 1u) << event;
      agent.ours[event] = list[0];
    }
    ASSERT_GE(agent.ours.size(), 7u) << agent.file;
    agent.set(false);
  }

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
      // Byte for byte, unless the file held something our removal cannot tell from ours: an
      // empty hooks object, an empty list under one of our events, or no Cursor version.
      bool exact = expected == original;
      if (const Json* hooks = JsonField::find(original, "hooks")) {
        exact = exact && !hooks->empty();
        for (const auto& [event, mine] : agent.ours)
          exact = exact && !(hooks->contains(event) && (*hooks)[event].empty());
      }
      if (exact) {
        ASSERT_EQ(slurp(agent.file), text);
      }
      checked += exact;
    }
  }
  EXPECT_GT(checked, 100);
}

}  // namespace
