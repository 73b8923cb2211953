// End to end: the real daemon in a temporary home, driven by the real vantler-hook with
// payloads modelled on each agent's hooks, and answered through the command line.

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <fstream>
#include <memory>
#include <sstream>

#include "core/files.h"
#include "process.h"
#include "test_support.h"

namespace {

const std::string kBin = VANTLER_BINARY_DIR;
const std::string kFixtures = std::string(VANTLER_SOURCE_DIR) + "/tests/fixtures/";
const std::string kClaudeKey = "claude:4b1f2c9e-7d3a-4e51-9a0c-2f6b8d1e3a77";

std::vector<Json> fixture(const std::string& name) {
  std::vector<Json> out;
  std::ifstream in(kFixtures + name);
  for (std::string line; std::getline(in, line);)
    if (!line.empty()) out.push_back(Json::parse(line));
  return out;
}

}  // namespace

class DaemonTest : public DaemonHome {
 protected:
  // Without a panel nobody looks at a finished turn: these runs answer replies from the
  // command line, so the hook of a finished turn is always held for one.
  void start(Json settings = Json::object()) {
    if (!settings.contains("replyHold")) settings["replyHold"] = "always";
    Files::writeAtomic(home.path() + "/.config/vantler/defaults.json", settings.dump());
    daemon = std::make_unique<Process>(std::vector<std::string>{bin("vantler"), "daemon"}, env());
    ASSERT_TRUE(eventually([&] { return Files::exists(socket()); })) << daemon->err();
  }
  using DaemonHome::hook;
  // Runs a hook that must not wait, and returns what it printed.
  std::string quick(const std::string& agent, const Json& payload) {
    auto p = hook(agent, payload);
    EXPECT_EQ(p->wait(5), 0);
    return p->out();
  }
  // Opens a reply window with a stop-like event, answers it from the command line and returns
  // what the hook printed.
  Json replyThrough(const std::string& agent, const Json& stop, const std::string& id,
                    const std::string& text) {
    auto hooked = hook(agent, stop);
    EXPECT_TRUE(waitPending(id));
    EXPECT_EQ(cli({"reply", id, text}), 0);
    EXPECT_EQ(hooked->wait(5), 0);
    return Json::parse(hooked->out(), nullptr, false);
  }
};

TEST_F(DaemonTest, ClaudeTurnPermissionsQuestionsAndReplies) {
  start({{"replyWindow", 30}});
  for (const Json& event : fixture("claude_turn.jsonl")) EXPECT_EQ(quick("claude", event), "");
  Json s = session(kClaudeKey);
  EXPECT_EQ(s["mood"], "working");
  EXPECT_EQ(s["title"], "Why does the login test fail on CI?");
  EXPECT_EQ(s["activity"], "Editing session.ts");
  EXPECT_EQ(s["tools"][1],
            Json({{"label", "Running npm test -- login"}, {"running", false}, {"failed", true}}));
  EXPECT_EQ(s["turnCalls"], 3);

  const Json permission = fixture("claude_permission.json")[0];
  auto allowed = hook("claude", permission);
  ASSERT_TRUE(waitPending(kClaudeKey));
  EXPECT_EQ(session(kClaudeKey)["pending"]["detail"], "git push --force origin main");
  std::string err;
  EXPECT_EQ(cli({"reply", kClaudeKey, "hi"}, &err), 1);
  EXPECT_THAT(err, ::testing::HasSubstr("not waiting for a reply"));
  EXPECT_EQ(cli({"allow", kClaudeKey}), 0);
  ASSERT_EQ(allowed->wait(5), 0);
  EXPECT_EQ(
      Json::parse(allowed->out()),
      Json::parse(
          R"({"hookSpecificOutput":{"hookEventName":"PermissionRequest","decision":{"behavior":"allow"}}})"));
  EXPECT_EQ(std::count(allowed->out().begin(), allowed->out().end(), '\n'), 1);

  auto denied = hook("claude", permission);
  ASSERT_TRUE(waitPending(kClaudeKey));
  EXPECT_EQ(cli({"deny", kClaudeKey}), 0);
  ASSERT_EQ(denied->wait(5), 0);
  EXPECT_EQ(Json::parse(denied->out())["hookSpecificOutput"]["decision"],
            Json({{"behavior", "deny"}, {"message", "The user denied this in Vantler's panel."}}));
  EXPECT_EQ(session(kClaudeKey)["activity"], "Denied from the notch");

  auto asked = hook("claude", fixture("claude_question.json")[0]);
  ASSERT_TRUE(waitPending(kClaudeKey));
  EXPECT_EQ(cli({"answer", kClaudeKey, "Postgres"}, &err), 1);
  EXPECT_THAT(err, ::testing::HasSubstr("asks 2 questions"));
  EXPECT_EQ(cli({"answer", kClaudeKey, "Postgres", "staging, production"}), 0);
  ASSERT_EQ(asked->wait(5), 0);
  Json input = Json::parse(asked->out())["hookSpecificOutput"]["decision"]["updatedInput"];
  EXPECT_EQ(input["answers"], Json({{"Which session store should we use?", "Postgres"},
                                    {"Which environments need the fix?", "staging, production"}}));
  EXPECT_EQ(input["questions"].size(), 2u);

  auto stopped = hook("claude", fixture("claude_stop.json")[0]);
  ASSERT_TRUE(waitPending(kClaudeKey));
  EXPECT_EQ(session(kClaudeKey)["pending"]["window"], 30000);
  EXPECT_EQ(cli({"reply", kClaudeKey, "Also", "add", "a", "regression", "test"}), 0);
  ASSERT_EQ(stopped->wait(5), 0);
  EXPECT_EQ(
      Json::parse(stopped->out()),
      Json::parse(
          R"({"hookSpecificOutput":{"hookEventName":"Stop","additionalContext":"The user replied in Vantler's panel. Treat this as their next message:\n\nAlso add a regression test"},"systemMessage":"Replied in Vantler's panel: Also add a regression test"})"));
  EXPECT_EQ(session(kClaudeKey)["mood"], "working");
  EXPECT_EQ(cli({"allow", "claude:unknown"}, &err), 1);
  EXPECT_THAT(err, ::testing::HasSubstr("no session claude:unknown"));
}

// Two subagents of one session ask at once: the command line answers them in turn, the first
// together with the standing rule Claude Code offered.
TEST_F(DaemonTest, ParallelRequestsAnsweredInTurnWithAlwaysAllow) {
  start();
  const Json asked = fixture("claude_permission.json")[0];
  std::vector<std::unique_ptr<Process>> hooks;
  for (const char* call : {"toolu_X", "toolu_Y"}) {
    Json pre = asked;
    pre["hook_event_name"] = "PreToolUse";
    pre["tool_use_id"] = call;
    pre["agent_id"] = std::string("agent-") + call;
    EXPECT_EQ(quick("claude", pre), "");
  }
  auto waiting = [&](int behind) {
    Json s;
    eventually([&] {
      s = session(kClaudeKey);
      return s.is_object() && JsonField::integer(s["pending"], "waiting", -1) == behind;
    });
    return s;
  };
  hooks.push_back(hook("claude", asked));
  ASSERT_TRUE(waiting(0).is_object());
  hooks.push_back(hook("claude", asked));
  Json shown = waiting(1);
  ASSERT_TRUE(shown.is_object());
  EXPECT_EQ(shown["pending"]["id"], kClaudeKey + ":toolu_X");
  EXPECT_EQ(shown["pending"]["always"], "Always allow `git push`");

  EXPECT_EQ(cli({"allow", "--always", kClaudeKey}), 0);
  ASSERT_EQ(hooks[0]->wait(5), 0);
  EXPECT_EQ(Json::parse(hooks[0]->out())["hookSpecificOutput"]["decision"],
            Json({{"behavior", "allow"}, {"updatedPermissions", asked["permission_suggestions"]}}));
  EXPECT_TRUE(hooks[1]->running());
  EXPECT_EQ(waiting(0)["pending"]["id"], kClaudeKey + ":toolu_Y");
  EXPECT_EQ(cli({"deny", kClaudeKey}), 0);
  ASSERT_EQ(hooks[1]->wait(5), 0);
  EXPECT_EQ(Json::parse(hooks[1]->out())["hookSpecificOutput"]["decision"]["behavior"], "deny");
}

TEST_F(DaemonTest, ReplyWindowExpiresAndScriptedAnswers) {
  start({{"replyWindow", 1}});
  auto stopped = hook("claude", fixture("claude_stop.json")[0]);
  ASSERT_EQ(stopped->wait(5), 0);  // the window closes by itself after a second
  EXPECT_EQ(stopped->out(), "");
  EXPECT_EQ(session(kClaudeKey)["mood"], "done");

  TearDown();
  debugAnswer = "deny";
  start({{"replyWindow", 30}});
  auto denied = hook("claude", fixture("claude_permission.json")[0]);
  ASSERT_EQ(denied->wait(5), 0);
  EXPECT_EQ(Json::parse(denied->out())["hookSpecificOutput"]["decision"]["behavior"], "deny");
  auto left = hook("claude", fixture("claude_stop.json")[0]);
  EXPECT_FALSE(left->wait(2));  // "deny" leaves a reply window alone
}

TEST_F(DaemonTest, CursorGeminiDroidAndOpenCode) {
  start();
  auto turn = fixture("cursor_turn.jsonl");
  EXPECT_EQ(quick("cursor", turn[0]), "{\"continue\":true}\n");  // no decision: Cursor goes on
  for (size_t i = 1; i < turn.size(); ++i) EXPECT_EQ(quick("cursor", turn[i]), "{}\n");
  const std::string cursorKey = "cursor:8f3c1a2b-55d0-4c1e-a1f2-0b9e7c6d5a41";
  EXPECT_EQ(session(cursorKey)["tools"][1]["label"], "Running npm run build");
  auto stop = hook("cursor", fixture("cursor_stop.json")[0]);
  ASSERT_TRUE(waitPending(cursorKey));
  EXPECT_EQ(session(cursorKey)["pending"]["message"],
            "The header now has a search box wired to the docs index.");
  EXPECT_EQ(cli({"reply", cursorKey, "Make it keyboard accessible"}), 0);
  ASSERT_EQ(stop->wait(5), 0);
  EXPECT_EQ(Json::parse(stop->out()), Json({{"followup_message", "Make it keyboard accessible"}}));

  EXPECT_EQ(
      replyThrough("gemini", fixture("gemini_stop.json")[0], "gemini:gem-51c2", "Do it"),
      Json({{"decision", "deny"}, {"reason", "The user replied in Vantler's panel:\n\nDo it"}}));
  EXPECT_EQ(replyThrough("droid", fixture("droid_stop.json")[0], "droid:droid-7e2a", "Apply it"),
            Json({{"decision", "block"},
                  {"reason", "The user replied in Vantler's panel:\n\nApply it"}}));

  EXPECT_EQ(quick("opencode", fixture("opencode_permission.json")[0]), "");
  Json opencode = session("opencode:ses_5f1e");
  EXPECT_EQ(opencode["mood"], "waiting");
  EXPECT_EQ(opencode["pending"]["title"], "Allow bash: rm -rf notes/tmp?");
}

// Each agent's own payloads, in the order its hooks send them.
TEST_F(DaemonTest, GeminiOpenCodeWindsurfAndCopilotTurns) {
  start();
  // Gemini CLI asks for permission with a notification and waits in its own window.
  const Json gemini = {
      {"session_id", "gem-7"}, {"cwd", "/w/ml"}, {"transcript_path", "/nonexistent"}};
  auto geminiEvent = [&](Json event) {
    event.update(gemini);
    return quick("gemini", event);
  };
  geminiEvent({{"hook_event_name", "BeforeAgent"}, {"prompt", "Clean the cache"}});
  geminiEvent({{"hook_event_name", "BeforeTool"},
               {"tool_name", "run_shell_command"},
               {"tool_input", {{"command", "rm -rf .cache"}}}});
  geminiEvent({{"hook_event_name", "Notification"},
               {"notification_type", "ToolPermission"},
               {"message", "Allow rm -rf .cache?"},
               {"details", {{"type", "exec"}}}});
  Json s = session("gemini:gem-7");
  EXPECT_EQ(s["mood"], "waiting");
  EXPECT_EQ(s["activity"], "Running rm -rf .cache");
  EXPECT_EQ(s["pending"]["kind"], "elsewhere");
  EXPECT_EQ(s["pending"]["title"], "Allow rm -rf .cache?");
  geminiEvent({{"hook_event_name", "AfterTool"},
               {"tool_name", "run_shell_command"},
               {"tool_input", {{"command", "rm -rf .cache"}}}});
  EXPECT_FALSE(session("gemini:gem-7").contains("pending"));  // answered there: it ran

  // OpenCode's plugin: a prompt, a shell command and a read, then idle.
  for (const Json& event :
       {Json{{"hook_event_name", "prompt"}, {"session_id", "ses_1"}, {"prompt", "Tidy notes"}},
        Json{{"hook_event_name", "tool.before"},
             {"session_id", "ses_1"},
             {"tool_name", "bash"},
             {"tool_input", {{"command", "ls notes"}}}},
        Json{{"hook_event_name", "tool.after"}, {"session_id", "ses_1"}, {"tool_name", "bash"}},
        Json{{"hook_event_name", "tool.before"},
             {"session_id", "ses_1"},
             {"tool_name", "read"},
             {"tool_input", {{"filePath", "/w/notes/todo.md"}}}}}) {
    Json e = event;
    e["cwd"] = "/w/notes";
    EXPECT_EQ(quick("opencode", e), "");
  }
  s = session("opencode:ses_1");
  EXPECT_EQ(s["activity"], "Reading todo.md");
  EXPECT_EQ(s["phase"], "researching");
  EXPECT_EQ(s["tally"][1],
            Json({{"tool", "bash"}, {"detail", "ls notes"}, {"count", 1}, {"kind", "review"}}));

  // Windsurf tells the working directory only in a command's data: a sub-folder of a project.
  std::filesystem::create_directories(home.path() + "/site/.git");
  std::filesystem::create_directories(home.path() + "/site/packages/ui");
  quick("windsurf", {{"agent_action_name", "pre_user_prompt"},
                     {"trajectory_id", "traj-2"},
                     {"tool_info", {{"user_prompt", "Build the UI package"}}}});
  quick("windsurf",
        {{"agent_action_name", "pre_run_command"},
         {"trajectory_id", "traj-2"},
         {"tool_info",
          {{"command_line", "pnpm build"}, {"cwd", home.path() + "/site/packages/ui"}}}});
  s = session("windsurf:traj-2");
  EXPECT_EQ(s["project"], "site");
  EXPECT_EQ(s["title"], "Build the UI package");
  EXPECT_EQ(s["activity"], "Running pnpm build");

  // Copilot CLI through the hook commands `vantler connect` wrote, which name each event.
  std::filesystem::create_directories(home.path() + "/.copilot");
  ASSERT_EQ(cli({"connect", "copilot"}), 0);
  const Json hooks =
      Json::parse(*Files::read(home.path() + "/.copilot/hooks/vantler.json"))["hooks"];
  auto copilot = [&](const std::string& event, Json payload) {
    payload["sessionId"] = "cp-1";
    payload["cwd"] = "/w/api";
    payload["timestamp"] = 1795000000000;
    Process p({"/bin/sh", "-c", hooks[event][0]["bash"].get<std::string>()}, env(), payload.dump());
    EXPECT_EQ(p.wait(5), 0);
  };
  copilot("sessionStart", {{"source", "new"}});
  copilot("userPromptSubmitted", {{"prompt", "Why is the build red?"}});
  copilot("preToolUse", {{"toolName", "bash"}, {"toolArgs", R"({"command":"npm test"})"}});
  s = session("copilot:cp-1");
  EXPECT_EQ(s["title"], "Why is the build red?");
  EXPECT_EQ(s["activity"], "Running npm test");
  copilot("postToolUse", {{"toolName", "bash"},
                          {"toolArgs", R"({"command":"npm test"})"},
                          {"toolResult", {{"resultType", "failure"}}}});
  copilot("errorOccurred", {{"error", {{"message", "Rate limit reached"}, {"name", "E"}}}});
  s = session("copilot:cp-1");
  EXPECT_EQ(s["mood"], "done");
  EXPECT_EQ(s["activity"], "Rate limit reached");
}

// Codex's hooks land on the session its rollout log follows, and its permission requests are
// answered from the panel with Codex's decision body.
// Qwen Code and Crush asked and answered from the command line, through the real hook; Crush
// and Cline get their "no opinion" at once for the events Vantler does not hold.
TEST_F(DaemonTest, QwenAndCrushAnsweredCrushAndClineLetGoAtOnce) {
  start();
  Files::writeAtomic(home.path() + "/.config/crush/crush.json",
                     R"({"permissions": {"allowed_tools": ["edit"]}})");
  const Json bash = {{"command", "make deploy"}};
  // Crush's own prompt would not come for these: the hook answers at once.
  EXPECT_EQ(quick("crush", {{"event", "PreToolUse"},
                            {"session_id", "cr"},
                            {"cwd", "/w/cr"},
                            {"tool_name", "edit"},
                            {"tool_input", {{"file_path", "/w/cr/a.go"}}}}),
            "{\"decision\":null,\"version\":1}\n");
  EXPECT_EQ(quick("cline", {{"hookName", "TaskStart"}, {"taskId", "t1"}}), "{\"cancel\":false}\n");
  EXPECT_EQ(session("cline:t1")["agent"], "cline");

  struct Asked {
    std::string agent;
    Json payload;
    std::string answer;
  };
  const std::vector<Asked> cases = {
      {"qwen",
       {{"hook_event_name", "PermissionRequest"},
        {"session_id", "q"},
        {"tool_name", "run_shell_command"},
        {"tool_input", bash}},
       R"({"hookSpecificOutput":{"decision":{"behavior":"allow"},"hookEventName":"PermissionRequest"}})"},
      {"crush",
       {{"event", "PreToolUse"}, {"session_id", "cr"}, {"tool_name", "bash"}, {"tool_input", bash}},
       R"({"decision":"allow","version":1})"},
  };
  for (const Asked& c : cases) {
    SCOPED_TRACE(c.agent);
    auto asked = hook(c.agent, c.payload);
    const std::string key = c.agent + ":" + c.payload["session_id"].get<std::string>();
    ASSERT_TRUE(waitPending(key));
    EXPECT_EQ(session(key)["pending"]["detail"], "make deploy");
    EXPECT_EQ(cli({"allow", key}), 0);
    ASSERT_EQ(asked->wait(5), 0);
    EXPECT_EQ(asked->out(), c.answer + "\n");
  }
}

TEST_F(DaemonTest, CodexTurnThroughItsHooks) {
  char day[32];
  time_t t = time(nullptr);
  strftime(day, sizeof day, "%Y/%m/%d", localtime(&t));
  const std::string thread = "019b2c3d-aaaa-7bbb-8ccc-0123456789ab";
  Files::writeAtomic(
      home.path() + "/.codex/sessions/" + day + "/rollout-2026-x-" + thread + ".jsonl",
      R"({"timestamp":"2026-11-22T08:00:00.000Z","type":"session_meta","payload":{"id":")" +
          thread + R"(","cwd":"/w/cli","originator":"codex-tui"}})" + "\n");
  start();
  ASSERT_EQ(cli({"connect", "codex"}), 0);
  const Json installed = Json::parse(*Files::read(home.path() + "/.codex/hooks.json"));
  EXPECT_TRUE(installed["hooks"].contains("PermissionRequest"));

  const Json common = {{"session_id", thread},
                       {"turn_id", "t1"},
                       {"transcript_path", home.path() + "/.codex/sessions/x.jsonl"},
                       {"cwd", "/w/cli"},
                       {"model", "gpt-5-codex"},
                       {"permission_mode", "default"}};
  auto event = [&](const std::string& name, Json extra = Json::object()) {
    extra.update(common);
    extra["hook_event_name"] = name;
    return extra;
  };
  const Json push = {{"command", "git push origin main"}, {"description", "Publish the fix"}};
  EXPECT_EQ(quick("codex", event("SessionStart", {{"source", "startup"}})), "");
  EXPECT_EQ(quick("codex", event("UserPromptSubmit", {{"prompt", "Ship the fix"}})), "");
  EXPECT_EQ(quick("codex", event("PreToolUse", {{"tool_name", "Bash"}, {"tool_input", push}})), "");
  auto asked =
      hook("codex", event("PermissionRequest", {{"tool_name", "Bash"}, {"tool_input", push}}));
  const std::string key = "codex:" + thread;
  ASSERT_TRUE(waitPending(key));
  Json s = session(key);
  EXPECT_EQ(s["pending"]["detail"], "git push origin main");
  EXPECT_EQ(s["title"], "Ship the fix");
  EXPECT_EQ(cli({"allow", key}), 0);
  ASSERT_EQ(asked->wait(5), 0);
  EXPECT_EQ(Json::parse(asked->out()),
            Json::parse(R"({"hookSpecificOutput":{"hookEventName":"PermissionRequest",
                            "decision":{"behavior":"allow"}}})"));
  quick("codex", event("PostToolUse", {{"tool_name", "Bash"}, {"tool_input", push}}));
  EXPECT_EQ(quick("codex", event("Stop", {{"last_assistant_message", "Pushed."}})), "");

  Json all = state();
  EXPECT_EQ(std::count_if(all["sessions"].begin(), all["sessions"].end(),
                          [&](const Json& x) { return x["id"] == key; }),
            1);
  s = session(key);
  EXPECT_EQ(s["mood"], "done");
  EXPECT_EQ(s["project"], "cli");
  EXPECT_FALSE(s.contains("pending"));  // Codex takes no reply after its turn
}

TEST_F(DaemonTest, FollowsCodexLogs) {
  char day[32];
  time_t t = time(nullptr);
  strftime(day, sizeof day, "%Y/%m/%d", localtime(&t));
  const std::string log = home.path() + "/.codex/sessions/" + day + "/rollout-2026-x-019a.jsonl";
  Files::writeAtomic(
      log,
      R"({"timestamp":"2026-11-22T08:00:00.000Z","type":"session_meta","payload":{"id":"019a","cwd":"/w/cli","originator":"codex_cli_rs"}})"
      "\n"
      R"({"timestamp":"2026-11-22T08:00:01.000Z","type":"event_msg","payload":{"type":"task_started"}})"
      "\n");
  start();
  Json codex;
  ASSERT_TRUE(eventually([&] { return (codex = session("codex:019a")).is_object(); }));
  EXPECT_EQ(codex["mood"], "working");
  EXPECT_EQ(codex["project"], "cli");
}

TEST_F(DaemonTest, WaitingHooksEndCleanly) {
  start();
  Json permission = fixture("claude_permission.json")[0];
  auto gone = hook("claude", permission);
  ASSERT_TRUE(waitPending(kClaudeKey));
  gone->signal(SIGKILL);  // the agent gave up: its request is withdrawn
  gone->wait(5);
  EXPECT_TRUE(waitPending(kClaudeKey, false));

  std::vector<std::unique_ptr<Process>> waiting;
  for (int i = 0; i < 5; ++i) {
    Json p = permission;
    p["session_id"] = "s" + std::to_string(i);
    waiting.push_back(hook("claude", p));
  }
  ASSERT_TRUE(waitPending("claude:s4"));
  daemon->signal(SIGTERM);
  EXPECT_EQ(daemon->wait(5), 0);
  EXPECT_FALSE(Files::exists(socket()));
  for (auto& h : waiting) {
    EXPECT_EQ(h->wait(2), 0);
    EXPECT_EQ(h->out(), "");
  }
  EXPECT_EQ(quick("claude", permission), "");  // no app: the hook returns at once
}

// `vantler status --follow` prints a line for each change of the summary, none in between, and
// the "off" line once the app stops.
TEST_F(DaemonTest, StatusFollowsChangesOnly) {
  start();
  Process follow({kBin + "/vantler", "status", "--follow", "--format", "waybar"}, env());
  auto lines = [&] {
    std::vector<Json> out;
    std::istringstream in(follow.out());
    for (std::string line; std::getline(in, line);) out.push_back(Json::parse(line));
    return out;
  };
  // The class of the last line printed, once there is one of `mood`.
  auto waitClass = [&](const std::string& mood) {
    eventually([&] { return !lines().empty() && lines().back()["class"] == mood; });
    return lines().empty() ? Json() : lines().back()["class"];
  };
  ASSERT_EQ(waitClass("idle"), "idle") << follow.err();
  EXPECT_EQ(lines()[0]["tooltip"], "No agent sessions");

  std::vector<Json> turn = fixture("claude_turn.jsonl");
  quick("claude", turn[0]);
  quick("claude", turn[1]);
  EXPECT_EQ(waitClass("working"), "working");
  const size_t seen = lines().size();
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));
  EXPECT_EQ(lines().size(), seen);  // nothing changed, nothing printed

  daemon->signal(SIGTERM);
  EXPECT_EQ(daemon->wait(5), 0);
  EXPECT_EQ(waitClass("off"), "off");
}

// Connected hooks are refreshed at start; settings that cannot be read only cost a log line.
TEST_F(DaemonTest, StartsPastSettingsItCannotRead) {
  const std::string claude = home.path() + "/.claude/settings.json";
  Files::makeDirs(Files::parent(claude));
  ASSERT_EQ(mkfifo(claude.c_str(), 0600), 0);
  Files::writeAtomic(home.path() + "/.cursor/hooks.json", "{\"version\": 1E400}");
  start();
  // The files are looked at after the socket listens.
  eventually([&] { return daemon->err().find("1E400") != std::string::npos; });
  EXPECT_TRUE(daemon->running());
  EXPECT_THAT(daemon->err(), ::testing::HasSubstr("settings.json is a named pipe, not a file"));
  EXPECT_THAT(daemon->err(), ::testing::HasSubstr("(line 1: number overflow parsing '1E400')"));
}

// Which names Mistral Vibe takes for its hooks is known only from its own --version, asked
// beside the loop once the daemon runs.
TEST_F(DaemonTest, VibeHooksFollowTheVersionItReports) {
  Files::makeDirs(home.path() + "/.vibe");
  ASSERT_EQ(cli({"connect", "vibe"}), 0);
  const std::string hooks = home.path() + "/.vibe/hooks.toml";
  ASSERT_THAT(Files::read(hooks).value_or(""), ::testing::HasSubstr("\"pre_tool\""));
  const std::string bin = home.path() + "/bin";
  Files::makeDirs(bin);
  Files::writeAtomic(bin + "/vibe", "#!/bin/sh\necho 'vibe 2.20.3'\n", 0755);
  extraEnv["PATH"] = bin + ":" + std::getenv("PATH");
  start();
  EXPECT_TRUE(eventually([&] {
    return Files::read(hooks).value_or("").find("\"before_tool\"") != std::string::npos;
  }));
  EXPECT_THAT(Files::read(home.path() + "/.vibe/config.toml").value_or(""),
              ::testing::HasSubstr("enable_experimental_hooks = true"));
}

TEST_F(DaemonTest, BadInputLeavesOtherSessionsServed) {
  start();
  for (const Json& event : fixture("claude_turn.jsonl")) quick("claude", event);
  const Json before = session(kClaudeKey);

  {
    RawClient c(socket());
    ASSERT_TRUE(c.connected());
    std::string garbage = "not json\n[1,2,3]\n\"str\"\n";
    for (int i = 0; i < 4096; ++i) garbage += static_cast<char>((i * 37) & 0xff);
    c.send(garbage);
    c.send(
        "\n{\"_agent\":\"claude\",\"session_id\":\"late\",\"hook_event_name\":\"SessionStart\"}\n");
    EXPECT_EQ(c.readToClose(), "\n");  // the first event after the garbage was still answered
  }
  {
    RawClient c(socket());
    c.send("{\"session_id\":\"half\",\"hook_event_");  // leaves mid-line
  }
  {
    RawClient c(socket());
    c.send("{\"hook_event_name\":\"Stop\"}\n");  // no session id: let go at once
    EXPECT_EQ(c.readToClose(), "\n");
  }
  {
    std::vector<std::unique_ptr<RawClient>> many;
    for (int i = 0; i < 500; ++i) {
      many.push_back(std::make_unique<RawClient>(socket()));
      ASSERT_TRUE(many.back()->connected()) << i;
    }
    for (int i = 0; i < 500; ++i)
      many[i]->send(
          "{\"session_id\":\"m" + std::to_string(i % 7) +
          "\",\"hook_event_name\":\"PreToolUse\",\"tool_name\":\"Read\",\"tool_input\":{}}\n");
    for (auto& c : many) EXPECT_EQ(c->readToClose(), "\n");
  }
  Json after = session(kClaudeKey);
  EXPECT_EQ(after["tools"], before["tools"]);
  EXPECT_EQ(after["title"], before["title"]);
  EXPECT_TRUE(session("claude:late").is_object());
  EXPECT_EQ(session("claude:m3")["turnCalls"], 71);
  EXPECT_FALSE(session("claude:half").is_object());
}

// Commands that need no daemon: help, usage errors, connecting agents and today's usage.
TEST_F(DaemonTest, CommandLineWithoutADaemon) {
  std::string out, err;
  EXPECT_EQ(cli({"answer", "--help"}, nullptr, &out), 0);
  EXPECT_THAT(out, ::testing::HasSubstr("vantler answer <session-id> <answer>..."));
  EXPECT_EQ(cli({"allow"}), 2);
  EXPECT_EQ(cli({"state"}, &err), 1);
  EXPECT_THAT(err, ::testing::HasSubstr("not running"));

  const std::string settings = home.path() + "/.claude/settings.json";
  Files::writeAtomic(settings, "[\"not an object\"]");
  EXPECT_EQ(cli({"connect", "claude"}, &err), 1);
  EXPECT_THAT(err, ::testing::HasSubstr("not a JSON object"));
  EXPECT_EQ(Files::read(settings), "[\"not an object\"]");

  const std::string mine =
      "{\n  \"model\": \"opus\",\n  \"hooks\": {\"Stop\": [{\"hooks\": [{\"type\": \"command\", "
      "\"command\": \"notify-send done\"}]}]}\n}\n";
  Files::writeAtomic(settings, mine);
  EXPECT_EQ(cli({"connect", "claude"}), 0);
  EXPECT_EQ(cli({"agents"}, nullptr, &out), 0);
  EXPECT_THAT(out, ::testing::ContainsRegex("Claude Code \\(claude\\) +connected "));
  EXPECT_TRUE(Files::exists(home.path() + "/.vantler/bin/vantler-hook"));
  EXPECT_EQ(cli({"disconnect", "claude"}), 0);
  EXPECT_EQ(Files::read(settings), mine);
  EXPECT_EQ(cli({"connect", "nonsense"}), 1);

  EXPECT_EQ(cli({"usage", "--json"}, nullptr, &out), 0);
  EXPECT_EQ(Json::parse(out)["today"], 0.0);
}

// The daemon raises windows with the desktop's own commands, chosen by its environment: here
// stand-ins for hyprctl (which answers "ok" only for the terminal's pid) and for gdbus
// (KWin's scripting, and the notice on GNOME).
TEST_F(DaemonTest, JumpRaisesThroughTheDesktopsOwnCommands) {
  const std::string bin = home.path() + "/bin", calls = home.path() + "/calls";
  std::filesystem::create_directories(bin);
  Process terminal({"/bin/sleep", "600"}, {});
  const std::string pid = std::to_string(terminal.pid());
  std::ofstream(bin + "/hyprctl") << "#!/bin/sh\necho \"hyprctl $*\" >> " << calls
                                  << "\n[ \"$3\" = pid:" << pid << " ] && echo ok || echo nope\n";
  std::ofstream(bin + "/gdbus") << "#!/bin/sh\necho \"gdbus $*\" >> " << calls
                                << "\ncase \"$*\" in *loadScript*) echo '(int32 7,)';; esac\n";
  for (const char* name : {"hyprctl", "gdbus"})
    std::filesystem::permissions(bin + "/" + name, std::filesystem::perms::owner_all);
  const Json event = {{"_agent", "claude"},
                      {"hook_event_name", "UserPromptSubmit"},
                      {"session_id", "j"},
                      {"cwd", home.path()},
                      {"prompt", "where?"},
                      {"agentPid", terminal.pid()},
                      {"_host", {{"pid", terminal.pid()}, {"bundle", "/usr/bin/foot"}}}};
  auto jumpOn = [&](std::map<std::string, std::string> desktop) {
    std::filesystem::remove(calls);
    extraEnv = {{"PATH", bin + ":" + getenv("PATH")},
                {"DISPLAY", ""},
                {"WAYLAND_DISPLAY", ""},
                {"SWAYSOCK", ""},
                {"HYPRLAND_INSTANCE_SIGNATURE", ""},
                {"XDG_RUNTIME_DIR", home.path()}};
    for (auto& [k, v] : desktop) extraEnv[k] = v;
    start();
    RawClient client(socket());
    client.send(event.dump() + "\n");
    client.readToClose();  // the daemon has read the event
    eventually([&] { return session("claude:j").is_object(); });
    EXPECT_EQ(cli({"jump", "claude:j"}), 0);
    eventually([&] {
      return daemon->err().find("claude:j: raised") != std::string::npos ||
             daemon->err().find("claude:j: no window") != std::string::npos;
    });
    daemon->signal(SIGTERM);
    EXPECT_EQ(daemon->wait(5), 0);
    std::stringstream text;
    text << std::ifstream(calls).rdbuf();
    return text.str();
  };

  // The terminal's own pid answers first: nothing further is tried.
  EXPECT_EQ(jumpOn({{"WAYLAND_DISPLAY", "wayland-1"}, {"HYPRLAND_INSTANCE_SIGNATURE", "x"}}),
            "hyprctl dispatch focuswindow pid:" + pid + "\n");
  EXPECT_THAT(daemon->err(), ::testing::HasSubstr("claude:j: raised Hyprland"));

  const std::string kwin =
      jumpOn({{"WAYLAND_DISPLAY", "wayland-1"}, {"XDG_CURRENT_DESKTOP", "KDE"}});
  EXPECT_THAT(
      kwin, ::testing::HasSubstr("loadScript " + home.path() + "/vantler-jump.js vantler-jump\n"));
  EXPECT_THAT(kwin, ::testing::HasSubstr(
                        "--object-path /Scripting/Script7 --method org.kde.kwin.Script.run"));
  EXPECT_THAT(
      jumpOn({{"WAYLAND_DISPLAY", "wayland-0"}, {"XDG_CURRENT_DESKTOP", "GNOME"}}),
      ::testing::HasSubstr("org.freedesktop.Notifications.Notify Vantler 0  Switch to foot"));
  EXPECT_THAT(daemon->err(), ::testing::HasSubstr("no window raised: GNOME on Wayland"));
}
