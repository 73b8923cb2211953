// End to end: the real daemon in a temporary home, driven by the real vantler-hook with
// payloads modelled on each agent's hooks, and answered through the command line.

#include <gmock/gmock.h>

#include <fstream>
#include <memory>

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

class DaemonTest : public ::testing::Test {
 protected:
  TempHome home;
  std::unique_ptr<Process> daemon;

  std::string debugAnswer;

  std::map<std::string, std::string> env() const {
    return {{"HOME", home.path()},
            {"XDG_CONFIG_HOME", home.path() + "/.config"},
            {"VANTLER_DEBUG_ANSWER", debugAnswer},
            {"VANTLER_DEMO", ""}};
  }
  std::string socket() const { return home.path() + "/.vantler/run/vantler.sock"; }

  void start(const Json& settings = Json::object()) {
    if (!settings.empty())
      Files::writeAtomic(home.path() + "/.config/vantler/defaults.json", settings.dump());
    daemon =
        std::make_unique<Process>(std::vector<std::string>{kBin + "/vantler", "daemon"}, env());
    for (int i = 0; i < 500 && !Files::exists(socket()); ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ASSERT_TRUE(Files::exists(socket())) << daemon->err();
  }
  void TearDown() override {
    if (daemon && daemon->running()) {
      daemon->signal(SIGTERM);
      EXPECT_EQ(daemon->wait(5), 0);
    }
  }

  std::unique_ptr<Process> hook(const std::string& agent, const Json& payload) {
    return std::make_unique<Process>(std::vector<std::string>{kBin + "/vantler-hook", agent}, env(),
                                     payload.dump());
  }
  // Runs a hook that must not wait, and returns what it printed.
  std::string quick(const std::string& agent, const Json& payload) {
    auto p = hook(agent, payload);
    EXPECT_EQ(p->wait(5), 0);
    return p->out();
  }
  int cli(std::vector<std::string> args, std::string* err = nullptr) {
    args.insert(args.begin(), kBin + "/vantler");
    Process p(args, env());
    auto status = p.wait(10);
    if (err) *err = p.err();
    return status.value_or(-1);
  }
  Json state() {
    Process p({kBin + "/vantler", "state"}, env());
    EXPECT_EQ(p.wait(10), 0);
    return Json::parse(p.out(), nullptr, false);
  }
  Json session(const std::string& id) {
    Json all = state();
    for (const Json& s : all["sessions"])
      if (s["id"] == id) return s;
    return nullptr;
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
  // Polls the state until the session's request is open (or closed).
  bool waitPending(const std::string& id, bool open = true) {
    for (int i = 0; i < 300; ++i) {
      Json s = session(id);
      if (s.is_object() && s.contains("pending") == open) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
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
            Json({{"behavior", "deny"}, {"message", "The user denied this from the notch."}}));
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
          R"({"hookSpecificOutput":{"hookEventName":"Stop","additionalContext":"The user replied from the Vantler notch. Treat this as their next message:\n\nAlso add a regression test"},"systemMessage":"Replied from the notch: Also add a regression test"})"));
  EXPECT_EQ(session(kClaudeKey)["mood"], "working");
  EXPECT_EQ(cli({"allow", "claude:unknown"}, &err), 1);
  EXPECT_THAT(err, ::testing::HasSubstr("no session claude:unknown"));
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

  TearDown();
  debugAnswer = "Ship it";
  start({{"replyWindow", 30}});
  auto replied = hook("claude", fixture("claude_stop.json")[0]);
  ASSERT_EQ(replied->wait(5), 0);
  EXPECT_EQ(Json::parse(replied->out())["systemMessage"], "Replied from the notch: Ship it");
}

TEST_F(DaemonTest, CursorGeminiDroidWindsurfOpenCode) {
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

  for (const Json& event : fixture("gemini_turn.jsonl")) EXPECT_EQ(quick("gemini", event), "");
  EXPECT_EQ(session("gemini:gem-51c2")["tally"][0]["tool"], "run_shell_command");
  EXPECT_EQ(replyThrough("gemini", fixture("gemini_stop.json")[0], "gemini:gem-51c2", "Do it"),
            Json({{"decision", "deny"},
                  {"reason", "The user replied from the Vantler notch:\n\nDo it"}}));
  EXPECT_EQ(replyThrough("droid", fixture("droid_stop.json")[0], "droid:droid-7e2a", "Apply it"),
            Json({{"decision", "block"},
                  {"reason", "The user replied from the Vantler notch:\n\nApply it"}}));

  for (const Json& event : fixture("windsurf_tools.jsonl")) EXPECT_EQ(quick("windsurf", event), "");
  Json windsurf = session("windsurf:traj-9c1");
  EXPECT_EQ(windsurf["activity"], "Running npm run tokens");
  EXPECT_EQ(windsurf["tools"][0],
            Json({{"label", "Reading button.json"}, {"running", false}, {"failed", false}}));

  EXPECT_EQ(quick("opencode", fixture("opencode_permission.json")[0]), "");
  Json opencode = session("opencode:ses_5f1e");
  EXPECT_EQ(opencode["mood"], "waiting");
  EXPECT_EQ(opencode["pending"]["title"], "Allow bash: rm -rf notes/tmp?");
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
  for (int i = 0; i < 300 && !codex.is_object(); ++i) {
    codex = session("codex:019a");
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  ASSERT_TRUE(codex.is_object());
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

TEST(DaemonCli, HelpAndErrorsWithoutADaemon) {
  TempHome home;
  std::map<std::string, std::string> env{{"HOME", home.path()}};
  Process help({kBin + "/vantler", "answer", "--help"}, env);
  EXPECT_EQ(help.wait(5), 0);
  EXPECT_THAT(help.out(), ::testing::HasSubstr("vantler answer <session-id> <answer>..."));
  Process usage({kBin + "/vantler", "allow"}, env);
  EXPECT_EQ(usage.wait(5), 2);
  Process state({kBin + "/vantler", "state"}, env);
  EXPECT_EQ(state.wait(5), 1);
  EXPECT_THAT(state.err(), ::testing::HasSubstr("not running"));
}

TEST(DaemonCli, AgentsConnectDisconnectAndUsage) {
  TempHome home;
  std::map<std::string, std::string> env{{"HOME", home.path()},
                                         {"XDG_CONFIG_HOME", home.path() + "/.config"}};
  auto run = [&](std::vector<std::string> args) {
    args.insert(args.begin(), kBin + "/vantler");
    auto p = std::make_unique<Process>(args, env);
    p->wait(10);
    return p;
  };
  const std::string settings = home.path() + "/.claude/settings.json";
  Files::writeAtomic(settings, "[\"not an object\"]");
  auto refused = run({"connect", "claude"});
  EXPECT_EQ(refused->wait(), 1);
  EXPECT_THAT(refused->err(), ::testing::HasSubstr("not a JSON object"));
  EXPECT_EQ(Files::read(settings), "[\"not an object\"]");

  Files::writeAtomic(
      settings,
      R"({"model":"opus","hooks":{"Stop":[{"hooks":[{"type":"command","command":"notify-send done"}]}]}})");
  EXPECT_EQ(run({"connect", "claude"})->wait(), 0);
  EXPECT_THAT(run({"agents"})->out(),
              ::testing::ContainsRegex("Claude Code \\(claude\\) +yes +yes"));
  EXPECT_TRUE(Files::exists(home.path() + "/.vantler/bin/vantler-hook"));
  EXPECT_EQ(run({"disconnect", "claude"})->wait(), 0);
  Json after = Json::parse(*Files::read(settings));
  EXPECT_EQ(after["model"], "opus");
  EXPECT_EQ(after["hooks"]["Stop"][0]["hooks"][0]["command"], "notify-send done");
  EXPECT_EQ(after.dump().find("vantler-hook"), std::string::npos);
  EXPECT_EQ(run({"connect", "nonsense"})->wait(), 1);

  auto usage = run({"usage", "--json"});
  EXPECT_EQ(usage->wait(), 0);
  EXPECT_EQ(Json::parse(usage->out())["today"], 0.0);
}
