// The fifteen later agents: their documented payloads become sessions, words and moods; the
// answerable ones get exactly their own answer format; their settings files connect and
// disconnect byte for byte.

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "bridge/adapters.h"
#include "core/files.h"
#include "integrations/file_access.h"
#include "integrations/installers.h"
#include "integrations/more_agents.h"
#include "integrations/toml_tables.h"
#include "test_support.h"

namespace {

namespace fs = std::filesystem;

class MoreAgentEvents : public HubTest {
 protected:
  std::unique_ptr<Adapters> adapters;
  void SetUp() override {
    HubTest::SetUp();
    adapters = std::make_unique<Adapters>(*hub);
  }
  struct Sent {
    std::optional<std::string> held;
    std::vector<std::string> replies;
  };
  std::shared_ptr<Sent> send(const std::string& agent, Json payload) {
    payload["_agent"] = agent;
    auto sent = std::make_shared<Sent>();
    sent->held =
        adapters->handle(payload, [sent](const std::string& t) { sent->replies.push_back(t); });
    return sent;
  }
};

// One payload per agent as its documentation shows it, and what Vantler makes of it.
TEST_F(MoreAgentEvents, EachAgentsPayloadBecomesItsSessionWordsAndMood) {
  struct Case {
    std::string agent;
    Json payload;
    std::string key, activity;
    Mood mood;
    std::string pending;  // the open request's kind, "" for none
    std::string reply;    // what the hook gets at once (when nothing is held)
  };
  const Json bash = {{"command", "npm test"}};
  const std::vector<Case> cases = {
      {"qwen",
       {{"hook_event_name", "PreToolUse"},
        {"session_id", "q1"},
        {"cwd", "/w/api"},
        {"tool_name", "run_shell_command"},
        {"tool_input", bash},
        {"tool_use_id", "t1"},
        {"permission_mode", "default"}},
       "qwen:q1",
       "Running npm test",
       Mood::working,
       "",
       ""},
      {"devin",
       {{"hook_event_name", "PreToolUse"},
        {"session_id", "d1"},
        {"tool_name", "edit"},
        {"tool_input", {{"file_path", "/w/a.ts"}}}},
       "devin:d1",
       "Editing a.ts",
       Mood::working,
       "",
       ""},
      {"augment",
       {{"hook_event_name", "PreToolUse"},  // named by the hook's command line
        {"conversation_id", "c9"},
        {"workspace_roots", {"/w/site"}},
        {"tool_name", "launch-process"},
        {"tool_input", bash}},
       "augment:c9",
       "Running npm test",
       Mood::working,
       "",
       ""},
      {"kimi",
       {{"hook_event_name", "PermissionRequest"},
        {"session_id", "k1"},
        {"id", "perm-1"},
        {"tool_name", "Shell"},
        {"action", "Run npm test"},
        {"tool_input", bash}},
       "kimi:k1",
       "",
       Mood::waiting,
       "elsewhere",
       ""},
      {"goose",
       {{"event", "PreToolUse"},
        {"session_id", "g1"},
        {"working_dir", "/w/g"},
        {"tool_name", "developer__shell"},
        {"tool_input", bash},
        {"tool_call_id", "call-1"}},
       "goose:g1",
       "Running npm test",
       Mood::working,
       "",
       ""},
      {"cline",
       {{"hookName", "PreToolUse"},
        {"taskId", "t7"},
        {"workspaceRoots", {"/w/c"}},
        {"model", {{"provider", "anthropic"}, {"slug", "claude-sonnet-4"}}},
        {"preToolUse",
         {{"toolName", "write_to_file"},
          {"parameters", {{"path", "src/a.ts"}, {"content", "x"}}}}}},
       "cline:t7",
       "Writing a.ts",
       Mood::working,
       "",
       R"({"cancel":false})"},
      {"cline",
       {{"hookName", "Notification"},
        {"taskId", "t8"},
        {"notification", {{"message", "Approve the command?"}, {"waitingForUserInput", true}}}},
       "cline:t8",
       "",
       Mood::waiting,
       "elsewhere",
       R"({"cancel":false})"},
      {"kiro",
       {{"hook_event_name", "PreToolUse"},
        {"cwd", "/w/k"},
        {"agentPid", 4242},
        {"tool_name", "fs_read"},
        {"tool_input", {{"path", "/w/k/README.md"}}}},
       "kiro:4242@/w/k",
       "Reading README.md",
       Mood::working,
       "",
       ""},
      {"vibe",
       {{"hook_event_name", "pre_tool"},
        {"session_id", "v1"},
        {"tool_name", "search_replace"},
        {"tool_input", {{"file_path", "/w/app.py"}}}},
       "vibe:v1",
       "Editing app.py",
       Mood::working,
       "",
       ""},
      {"crush",
       {{"event", "PreToolUse"},
        {"session_id", "cr1"},
        {"cwd", "/w/cr"},
        {"tool_name", "view"},
        {"tool_input", {{"file_path", "/w/cr/main.go"}}},
        {"_crush_allowed", Json::array()}},
       "crush:cr1",
       "Reading main.go",
       Mood::working,
       "",
       R"({"decision":null,"version":1})"},
      {"crush",
       {{"event", "PreToolUse"},
        {"session_id", "cr2"},
        {"tool_name", "bash"},
        {"tool_input", bash},
        {"_crush_allowed", {"bash"}}},
       "crush:cr2",
       "Running npm test",
       Mood::working,
       "",
       R"({"decision":null,"version":1})"},
      {"junie",
       {{"hook_event_name", "SessionStart"}, {"session_id", "j1"}, {"source", "startup"}},
       "junie:j1",
       "",
       Mood::idle,
       "",
       ""},
      {"aider",
       {{"hook_event_name", "Notification"}, {"agentPid", 77}, {"_cwd", "/w/ai"}},
       "aider:77@/w/ai",
       "",
       Mood::waiting,
       "elsewhere",
       ""},
      {"amp",
       {{"hook_event_name", "tool.call"},
        {"session_id", "T-1"},
        {"tool_name", "edit_file"},
        {"tool_input", {{"path", "/w/amp/x.ts"}}},
        {"tool_use_id", "tu1"}},
       "amp:T-1",
       "Editing x.ts",
       Mood::working,
       "",
       ""},
      {"kilo",
       {{"hook_event_name", "tool.before"},
        {"session_id", "ses_k"},
        {"tool_name", "bash"},
        {"tool_input", bash}},
       "kilo:ses_k",
       "Running npm test",
       Mood::working,
       "",
       ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.agent + " " + c.payload.dump());
    auto sent = send(c.agent, c.payload);
    EXPECT_FALSE(sent->held);
    EXPECT_THAT(sent->replies, ::testing::ElementsAre(c.reply));
    const Session* s = hub->find(c.key);
    ASSERT_TRUE(s);
    EXPECT_EQ(s->activity, c.activity);
    EXPECT_EQ(s->shownMood(hub->now()), c.mood);
    EXPECT_EQ(s->pending ? std::string(s->pending->kindName()) : "", c.pending);
  }
  // The figures some agents send with their events.
  EXPECT_EQ(hub->find("cline:t7")->stats.model, "claude-sonnet-4");
  send("qwen", {{"hook_event_name", "Stop"},
                {"session_id", "q1"},
                {"context_usage", 0.052},
                {"context_limit", 1000000}});
  EXPECT_EQ(hub->find("qwen:q1")->stats.contextTokens, 52000);
  // Its transcript adds the branch, the first prompt and a newer count; the window of its events
  // stays.
  TranscriptStats chat;
  chat.contextTokens = 61000;
  chat.branch = "fix/login";
  chat.firstPrompt = "Fix the login bug";
  transcripts->byPath["/q/chats/q1.jsonl"] = chat;
  send("qwen", {{"hook_event_name", "Notification"},
                {"session_id", "q1"},
                {"transcript_path", "/q/chats/q1.jsonl"}});
  EXPECT_EQ(hub->find("qwen:q1")->stats.branch, "fix/login");
  EXPECT_EQ(hub->find("qwen:q1")->stats.contextTokens, 61000);
  EXPECT_EQ(hub->find("qwen:q1")->stats.contextWindow, 1000000);
  EXPECT_EQ(hub->find("qwen:q1")->headline(), "Fix the login bug");
  // Qwen Code hands a tool's result back to the model as a prompt without text: the same turn.
  send("qwen", {{"hook_event_name", "UserPromptSubmit"}, {"session_id", "q1"}, {"prompt", "Go"}});
  send("qwen", {{"hook_event_name", "PreToolUse"},
                {"session_id", "q1"},
                {"tool_name", "run_shell_command"},
                {"tool_input", {{"command", "npm test"}}}});
  send("qwen", {{"hook_event_name", "UserPromptSubmit"}, {"session_id", "q1"}, {"prompt", ""}});
  EXPECT_EQ(hub->find("qwen:q1")->turnCalls, 1);
  EXPECT_EQ(hub->find("qwen:q1")->title, "Go");
  send("kimi", {{"hook_event_name", "UserPromptSubmit"},
                {"session_id", "k1"},
                {"session_title", "Release notes"},
                {"prompt", {{{"type", "text"}, {"text", "Write the"}}, {{"text", "notes"}}}}});
  EXPECT_EQ(hub->find("kimi:k1")->title, "Write the notes");
  EXPECT_EQ(hub->find("kimi:k1")->headline(), "Release notes");
  // Kimi's prompt answered in its own window.
  send("kimi", {{"hook_event_name", "PermissionRequest"}, {"session_id", "k1"}});
  send("kimi",
       {{"hook_event_name", "PermissionResult"}, {"session_id", "k1"}, {"decision", "approved"}});
  EXPECT_FALSE(hub->find("kimi:k1")->pending);
  // Devin CLI runs Claude Code's hooks too: its session is shown once.
  send("claude", {{"hook_event_name", "SessionStart"}, {"session_id", "d1"}});
  EXPECT_FALSE(hub->find("claude:d1"));
}

// The agents that can be answered: `vantler allow`/`deny` writes exactly their format.
TEST_F(MoreAgentEvents, AnswersInEachAgentsOwnFormat) {
  const Json suggestion = {
      {"type", "addRules"},
      {"rules", {{{"toolName", "run_shell_command"}, {"ruleContent", "npm test"}}}},
      {"behavior", "allow"},
      {"destination", "localSettings"}};
  const std::string claudeAllow =
      R"({"hookSpecificOutput":{"decision":{"behavior":"allow"},"hookEventName":"PermissionRequest"}})";
  struct Case {
    std::string agent;
    Json payload;
    std::string decision;  // "allow", "always" or "deny"
    std::string answer;
  };
  const Json bash = {{"command", "npm test"}};
  const std::vector<Case> cases = {
      {"qwen",
       {{"hook_event_name", "PermissionRequest"},
        {"tool_name", "run_shell_command"},
        {"tool_input", bash},
        {"permission_suggestions", {suggestion}}},
       "always",
       R"({"hookSpecificOutput":{"decision":{"behavior":"allow","updatedPermissions":[)" +
           suggestion.dump() + R"(]},"hookEventName":"PermissionRequest"}})"},
      {"qoder",
       {{"hook_event_name", "PermissionRequest"}, {"tool_name", "Bash"}, {"tool_input", bash}},
       "allow",
       claudeAllow},
      {"codebuddy",
       {{"hook_event_name", "PermissionRequest"}, {"tool_name", "Bash"}, {"tool_input", bash}},
       "allow",
       claudeAllow},
      {"devin",
       {{"hook_event_name", "PermissionRequest"}, {"tool_name", "exec"}, {"tool_input", bash}},
       "deny",
       R"({"hookSpecificOutput":{"decision":{"behavior":"deny","message":"The user denied this in Vantler's panel."},"hookEventName":"PermissionRequest"}})"},
      {"crush",
       {{"event", "PreToolUse"},
        {"tool_name", "bash"},
        {"tool_input", bash},
        {"_crush_allowed", {"view"}}},
       "allow",
       R"({"decision":"allow","version":1})"},
      {"amp",
       {{"hook_event_name", "tool.call"},
        {"tool_name", "Bash"},
        {"tool_input", {{"cmd", "npm test"}}},
        {"tool_use_id", "tu9"}},
       "deny",
       R"({"action":"reject-and-continue","message":"The user denied this in Vantler's panel."})"},
      {"amp",
       {{"hook_event_name", "tool.call"}, {"tool_name", "Bash"}, {"tool_input", bash}},
       "allow",
       R"({"action":"allow"})"},
      {"kilo",
       {{"hook_event_name", "permission.ask"},
        {"tool_name", "bash"},
        {"tool_input", bash},
        {"tool_use_id", "call_1"}},
       "allow",
       R"({"status":"allow"})"},
  };
  int n = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.agent);
    Json payload = c.payload;
    payload["session_id"] = "s" + std::to_string(++n);
    auto sent = send(c.agent, payload);
    ASSERT_TRUE(sent->held);
    EXPECT_TRUE(sent->replies.empty());
    const std::string key = c.agent + ":" + payload["session_id"].get<std::string>();
    const Session& s = *hub->find(key);
    ASSERT_TRUE(s.pending && s.pending->is<Pending::Permission>());
    EXPECT_EQ(s.pending->as<Pending::Permission>()->title, "Wants to run");
    hub->decide(key, c.decision == "deny" ? "deny" : "allow", std::nullopt, c.decision == "always");
    EXPECT_THAT(sent->replies, ::testing::ElementsAre(c.answer));
  }
  // A held call whose hook is let go gets the agent's "no opinion".
  auto crush =
      send("crush", {{"event", "PreToolUse"}, {"session_id", "x"}, {"tool_name", "write"}});
  ASSERT_TRUE(crush->held);
  hub->release("crush:x");
  EXPECT_THAT(crush->replies, ::testing::ElementsAre(R"({"decision":null,"version":1})"));
}

// --- installers ---

class MoreAgentFiles : public ::testing::Test {
 protected:
  TempHome home;
  std::string oldPath = getenv("PATH") ? getenv("PATH") : "";
  void SetUp() override {
    setenv("PATH", (home.path() + "/no-bin").c_str(), 1);
    HookInstaller::setBundledBinary(std::nullopt);
    ConfigFile::waitForPrograms(true);  // as on the command line
  }
  void TearDown() override { setenv("PATH", oldPath.c_str(), 1); }
  std::string at(const std::string& rest) const { return home.path() + rest; }
  static void put(const std::string& path, const std::string& text) {
    Files::makeDirs(Files::parent(path));
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
  }
  static std::string slurp(const std::string& path) {
    return Files::read(path).value_or("<missing>");
  }
};

// Settings files as people write them: connecting adds Vantler's entries (with each agent's
// unit of time), a second connect changes nothing, and disconnecting gives back every byte.
TEST_F(MoreAgentFiles, SettingsFilesComeBackByteForByte) {
  struct Case {
    std::string agent, file, text;
    std::vector<std::string> added;  // pieces of what connect writes
    // Files put beside it first; each is as it was after disconnecting.
    std::map<std::string, std::string> beside = {};
  };
  const std::string json =
      "{\n    \"theme\": \"dark\",\n    \"n\": 1.50,\n    \"hooks\": {\n"
      "        \"Stop\": [{\"hooks\": [{\"type\": \"command\", \"command\": "
      "\"notify-send done\"}]}]\n    }\n}\n";
  const std::vector<Case> cases = {
      {"qwen", "/.qwen/settings.json", json, {"\"timeout\": 60000", "\"timeout\": 10000"}},
      {"qoder", "/.qoder/settings.json", json, {"\"timeout\": 86400", "vantler-hook\\\" qoder"}},
      {"codebuddy", "/.codebuddy/settings.json", "{}", {"vantler-hook\\\" codebuddy"}},
      {"devin",
       "/.devin/hooks.v1.json",
       "{\n  \"PreToolUse\": [\n    {\"matcher\": \"exec\", \"hooks\": []}\n  ]\n}",
       {"\"PermissionRequest\": [", "vantler-hook\\\" devin"}},
      {"augment", "/.augment/settings.json", json, {"/.augment/hooks/vantler-PreToolUse.sh"}},
      {"crush",
       "/.config/crush/crush.json",
       "{\n  \"$schema\": \"https://charm.land/crush.json\",\n  \"permissions\": "
       "{\"allowed_tools\": "
       "[\"view\"]}\n}\n",
       {"\"name\": \"vantler\"", "\"timeout\": 600"}},
      {"junie", "/.junie/config.json", "{\r\n  \"a\": 1\r\n}\r\n", {"SessionStart"}},
      {"kimi",
       "/.kimi-code/config.toml",
       "# my settings\ndefault_model = \"kimi-k2\"\n\n[[hooks]]\nevent = \"Stop\"\nmatcher = \"\"\n"
       "command = 'say done'\ntimeout = 5\n\n[models.kimi]\nname = \"k2\"  # comment\n",
       {"\n\n[[hooks]]\nevent = \"SessionStart\"\nmatcher = \"\"\ncommand = \"/bin/sh -c '[ -x "
        "\\\"$HOME/.vantler/bin/vantler-hook\\\" ] && \\\"$HOME/.vantler/bin/vantler-hook\\\" "
        "kimi; "
        "exit 0'\"\ntimeout = 10\n",
        "event = \"PermissionResult\""}},
      {"kimi", "/.kimi-code/config.toml", "model = 'x'", {"model = 'x'\n[[hooks]]\n"}},
      {"vibe",
       "/.vibe/hooks.toml",
       "",
       {"name = \"vantler-pre_tool\"\ntype = \"pre_tool\"\nmatch = \"*\""}},
      // Before 2.21 (as the package's record says): the older names, and hooks switched on.
      {"vibe",
       "/.vibe/hooks.toml",
       "# mine\n",
       {"[[hooks]]\nname = \"vantler-before_tool\"\ntype = \"before_tool\"",
        "type = \"post_agent_turn\""},
       {{"/.local/share/uv/tools/mistral-vibe/lib/python3.12/site-packages/"
         "mistral_vibe-2.20.4.dist-info/RECORD",
         ""},
        {"/.vibe/config.toml", "[model]\nname = \"devstral\"\n"}}},
      // Older Kiro CLIs: the hooks inside each agent file.
      {"kiro",
       "/.kiro/agents/dev.json",
       "{\n  \"name\": \"dev\",\n  \"hooks\": {\n    \"stop\": [{\"command\": \"say done\"}]\n  "
       "}\n}\n",
       {"\"preToolUse\": [", "\"timeout_ms\": 10000"},
       {{"/.kiro/agents/review.json", "{\"name\": \"review\"}"}}},
      {"aider",
       "/.aider.conf.yml",
       "model: sonnet\nauto-commits: false\n",
       {"notifications: true\nnotifications-command: '/bin/sh -c ''[ -x",
        "aider Notification </dev/null; exit 0'''\nmodel: sonnet"}},
      {"aider",
       "/.aider.conf.yml",
       "---\nnotifications: true\n",
       {"---\n# Vantler: tells Vantler when Aider waits for you"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.agent + ": " + c.text);
    const std::string file = at(c.file);
    put(file, c.text);
    for (const auto& [path, text] : c.beside) put(at(path), text);
    MoreAgents::install(c.agent);
    const std::string connected = slurp(file);
    for (const std::string& piece : c.added)
      EXPECT_NE(connected.find(piece), std::string::npos) << connected;
    EXPECT_TRUE(MoreAgents::isInstalled(c.agent));
    EXPECT_EQ(slurp(file + ".vantler-backup"), c.text);
    MoreAgents::install(c.agent);
    EXPECT_EQ(slurp(file), connected);
    MoreAgents::uninstall(c.agent);
    EXPECT_EQ(slurp(file), c.text);
    for (const auto& [path, text] : c.beside) EXPECT_EQ(slurp(at(path)), text) << path;
    EXPECT_FALSE(MoreAgents::isInstalled(c.agent));
    fs::remove_all(at("/.augment/hooks"));
    fs::remove_all(at("/.local/share"));
  }
}

// Files that are entirely Vantler's are written whole and removed again; the user's own
// files beside them stay, and a file of the user's where Vantler's would go is refused.
TEST_F(MoreAgentFiles, OwnFilesComeAndGoAndTheUsersStay) {
  put(at("/Documents/Cline/Hooks/notes.txt"), "mine");
  put(at("/.kiro/hooks/lint.json"), "{}");
  for (const char* agent : {"goose", "kiro", "cline", "amp", "kilo"}) {
    SCOPED_TRACE(agent);
    MoreAgents::install(agent);
    EXPECT_TRUE(MoreAgents::isInstalled(agent));
    MoreAgents::uninstall(agent);
    EXPECT_FALSE(MoreAgents::isInstalled(agent));
  }
  EXPECT_EQ(slurp(at("/Documents/Cline/Hooks/notes.txt")), "mine");
  EXPECT_EQ(slurp(at("/.kiro/hooks/lint.json")), "{}");
  EXPECT_FALSE(fs::exists(at("/.agents/plugins/vantler")));
  EXPECT_FALSE(fs::exists(at("/.config/amp/plugins/vantler.ts")));

  // Cline's scripts answer "no objection" without the app, and are executable.
  MoreAgents::install("cline");
  const std::string script = at("/Documents/Cline/Hooks/PreToolUse");
  EXPECT_THAT(slurp(script), ::testing::HasSubstr("vantler-hook\" cline PreToolUse\necho "
                                                  "'{\"cancel\":false}'"));
  struct stat st;
  ASSERT_EQ(::stat(script.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0755u);
  MoreAgents::uninstall("cline");

  struct Refusal {
    std::string agent, file, text, message;
  };
  const std::vector<Refusal> refusals = {
      {"cline", "/Documents/Cline/Hooks/TaskStart", "#!/bin/sh\necho hi\n", "is a hook of yours"},
      {"kimi", "/.kimi-code/config.toml", "x = 1\nhooks = []\n",
       "line 2: hooks is set to a value, not an array of tables"},
      {"vibe", "/.vibe/hooks.toml", "[hooks]\na = 1\n", "hooks is a table"},
      {"aider", "/.aider.conf.yml", "notifications-command: say hi\n",
       "notifications-command of yours"},
      {"aider", "/.aider.conf.yml", "notifications: false\n", "turns notifications off"},
  };
  for (const Refusal& r : refusals) {
    SCOPED_TRACE(r.agent);
    put(at(r.file), r.text);
    try {
      MoreAgents::install(r.agent);
      ADD_FAILURE() << "accepted";
    } catch (const InstallError& e) {
      EXPECT_THAT(e.what(), ::testing::HasSubstr(r.message));
    }
    EXPECT_EQ(slurp(at(r.file)), r.text);
    EXPECT_FALSE(MoreAgents::isInstalled(r.agent));
  }
}

// Which form of hooks goes where: Vibe's by the version it reports (and the form already there
// when it cannot be asked), Kiro's agent files only while Kiro 3's hooks directory is unused.
TEST_F(MoreAgentFiles, TheFormTheInstalledVersionTakes) {
  const std::string hooks = at("/.vibe/hooks.toml"), config = at("/.vibe/config.toml");
  put(at("/no-bin/vibe"), "#!/bin/sh\necho 'vibe 2.9.0'\n");
  fs::permissions(at("/no-bin/vibe"), fs::perms::owner_all);
  MoreAgents::install("vibe");
  EXPECT_THAT(slurp(hooks), ::testing::HasSubstr("type = \"after_tool\""));
  EXPECT_EQ(slurp(config),
            "enable_experimental_hooks = true  # Vantler: vantler disconnect vibe removes this "
            "line\n");
  EXPECT_THAT(MoreAgents::todo("vibe"), ::testing::HasSubstr("before 2.21"));
  // Where the version cannot be learnt (the app), a reconnect keeps the form there.
  fs::remove(at("/no-bin/vibe"));
  MoreAgents::install("vibe");
  EXPECT_THAT(slurp(hooks), ::testing::HasSubstr("type = \"before_tool\""));
  MoreAgents::uninstall("vibe");
  EXPECT_FALSE(fs::exists(config));
  // Unknown on a fresh connect: the newer form, and `vantler agents` says what to check.
  MoreAgents::install("vibe");
  EXPECT_THAT(slurp(hooks), ::testing::HasSubstr("type = \"post_tool\""));
  EXPECT_FALSE(fs::exists(config));
  EXPECT_THAT(MoreAgents::todo("vibe"), ::testing::HasSubstr("check that vibe --version"));
  // Hooks switched off by the user are not switched on behind their back.
  put(config, "enable_experimental_hooks = false\n");
  put(at("/no-bin/vibe"), "#!/bin/sh\necho 'vibe 2.20.0'\n");
  fs::permissions(at("/no-bin/vibe"), fs::perms::owner_all);
  EXPECT_THROW(MoreAgents::install("vibe"), InstallError);
  EXPECT_EQ(slurp(config), "enable_experimental_hooks = false\n");

  const std::string agent = at("/.kiro/agents/dev.json");
  put(agent, "{}");
  MoreAgents::install("kiro");
  EXPECT_THAT(slurp(agent), ::testing::HasSubstr("agentSpawn"));
  EXPECT_THAT(MoreAgents::todo("kiro"), ::testing::HasSubstr("1 agent file,"));
  EXPECT_FALSE(fs::exists(at("/.kiro/hooks")));
  // Kiro 3 in use: its hook file instead, and the agent files lose ours.
  put(at("/.kiro/hooks/lint.json"), "{}");
  MoreAgents::install("kiro");
  EXPECT_EQ(slurp(agent), "{}");
  EXPECT_TRUE(fs::exists(at("/.kiro/hooks/vantler.json")));
  EXPECT_EQ(MoreAgents::todo("kiro"), "");
}

}  // namespace
