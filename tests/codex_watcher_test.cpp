#include "integrations/codex_watcher.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>

#include <chrono>
#include <cmath>
#include <fstream>
#include <future>

#include "core/files.h"
#include "core/line_reader.h"
#include "test_support.h"

namespace {

constexpr WallTime kMidnight = 1'799'971'200;  // 2027-01-15 00:00:00 UTC
const std::string kId = "0199a3f2-5c1e-7a40-9b3d-2f8e61c4d7a9";

// One rollout line as Codex writes it.
std::string record(const std::string& type, const Json& payload,
                   const std::string& stamp = "2027-01-15T00:00:05.000Z") {
  Json line = {{"type", type}, {"payload", payload}};
  if (!stamp.empty()) line["timestamp"] = stamp;
  return line.dump() + "\n";
}
std::string event(const Json& payload, const std::string& stamp = "2027-01-15T00:00:05.000Z") {
  return record("event_msg", payload, stamp);
}
std::string item(const Json& it, const std::string& stamp = "2027-01-15T00:00:05.000Z") {
  return event({{"type", "item_completed"}, {"thread_id", kId}, {"turn_id", "1"}, {"item", it}},
               stamp);
}
std::string meta(const std::string& id = kId) {
  return record("session_meta", {{"id", id},
                                 {"timestamp", "2027-01-15T00:00:01.000Z"},
                                 {"cwd", "/home/dev/shop"},
                                 {"originator", "codex_cli_rs"},
                                 {"cli_version", "0.47.0"},
                                 {"instructions", nullptr}});
}
std::string command(const std::string& cmd) {
  return item({{"type", "CommandExecution"},
               {"id", "call_7"},
               {"command", cmd},
               {"status", "completed"},
               {"exit_code", 0}});
}

class CodexWatcherTest : public ::testing::Test {
 protected:
  std::string logIn(const std::string& day, const std::string& id = kId) {
    std::string dir = home.path() + "/.codex/sessions/" + day;
    Files::makeDirs(dir);
    return dir + "/rollout-2027-01-15T00-00-01-" + id + ".jsonl";
  }
  // Appends to a log and dates its modification `age` seconds before the loop's now.
  void append(const std::string& path, const std::string& text, double age = 0) {
    std::ofstream(path, std::ios::app) << text;
    const double when = loop.wall() - age;
    timespec times[2];
    times[0].tv_sec = times[1].tv_sec = static_cast<time_t>(std::floor(when));
    times[0].tv_nsec = times[1].tv_nsec = static_cast<long>((when - std::floor(when)) * 1e9);
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  }
  const Session* codex(const std::string& id = kId) { return hub.find("codex:" + id); }

  ScopedEnv tz{"TZ", "UTC"};  // day directories follow the local calendar
  TempHome home;
  FakeLoop loop{kMidnight + 30};
  Defaults defaults{home.path() + "/.config/vantler/defaults.json"};
  Hub hub{loop, defaults, {}, HubOptions{home.path(), std::nullopt, false}};
  CodexWatcher watcher{hub, loop, home.path()};
  std::string today = logIn("2027/01/15");
};

}  // namespace

// A turn as Codex logs it: injected context before the prompt, a line cut short by a crash,
// records of kinds the watcher does not follow.
constexpr const char* kTurn =
    R"({"timestamp":"2027-01-15T00:00:01.000Z","type":"turn_context","payload":{"cwd":"/home/dev/shop","approval_policy":"on-request","model":"gpt-5-codex","effort":"medium"}}
{"timestamp":"2027-01-15T00:00:02.000Z","type":"event_msg","payload":{"type":"task_started","model_context_window":272000}}
{"timestamp":"2027-01-15T00:00:02.100Z","type":"event_msg","payload":{"type":"item_completed","item":{"type":"UserMessage","id":"u1","content":[{"type":"text","text":"<environment_context>\n  <cwd>/home/dev/shop</cwd>"},{"type":"text","text":"\n  Fix the checkout rounding bug\nand add a test"}]}}}
{"timestamp":"2027-01-15T00:00:02.900Z","type":"event_msg","payload":
{"timestamp":"2027-01-15T00:00:03.000Z","type":"response_item","payload":{"type":"reasoning","summary":[]}}
{"timestamp":"2027-01-15T00:00:06.000Z","type":"event_msg","payload":{"type":"item_completed","item":{"type":"CommandExecution","id":"c1","command":["/bin/bash","-lc","cargo test -p checkout -- rounding"],"exit_code":0}}}
{"timestamp":"2027-01-15T00:00:08.000Z","type":"event_msg","payload":{"type":"item_completed","item":{"type":"McpToolCall","server":"github","tool":"get_issue","arguments":{"issue":42},"title":"Read issue #42"}}}
{"timestamp":"2027-01-15T00:00:09.250Z","type":"event_msg","payload":{"type":"token_count","info":{"total_token_usage":{"input_tokens":90000},"last_token_usage":{"input_tokens":48210,"output_tokens":812},"model_context_window":272000},"rate_limits":null}}
)";

TEST_F(CodexWatcherTest, FollowsATurnFromItsRecords) {
  append(today, meta() + kTurn);
  watcher.sweep();

  const Session* s = codex();
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(s->mood, Mood::working);
  EXPECT_EQ(s->activity, "Thinking");
  EXPECT_EQ(s->root, "/home/dev/shop");
  EXPECT_EQ(s->title, "Fix the checkout rounding bug");  // the injected context is skipped
  EXPECT_EQ(s->stats.model, "gpt-5-codex");
  EXPECT_EQ(s->stats.contextTokens, 48210);
  EXPECT_EQ(s->stats.contextWindow, 272000);
  EXPECT_EQ(s->turnStarted, kMidnight + 2);
  EXPECT_EQ(s->updated, kMidnight + 9.25);
  EXPECT_EQ(s->tools, (std::vector<ToolLine>{{"Running cargo test -p checkout -- rounding"},
                                             {"Read issue #42"}}));
  ASSERT_EQ(s->tally.size(), 2u);
  EXPECT_EQ(s->tally[0].tool, "Bash");
  EXPECT_EQ(s->tally[1].tool, "mcp__github__get_issue");
  EXPECT_EQ(s->turnCalls, 2);

  append(today, item({{"type", "Extension"}}) +
                    event({{"type", "task_complete"},
                           {"last_agent_message", "**Fixed** the rounding: totals use `Decimal`."}},
                          "2027-01-15T00:00:20.500Z"));
  watcher.sweep();
  s = codex();
  EXPECT_EQ(s->mood, Mood::done);
  EXPECT_EQ(s->activity, "Fixed the rounding: totals use `Decimal`.");
  EXPECT_EQ(s->finishedAt, kMidnight + 20.5);
}

// Codex 0.169 in its terminal interface: the model's call is written before the command runs,
// the finished item after, among records of kinds the watcher passes over.
constexpr const char* kTuiTurn =
    R"({"timestamp":"2027-01-15T00:00:01.000Z","type":"session_meta","payload":{"id":"0199a3f2-5c1e-7a40-9b3d-2f8e61c4d7a9","timestamp":"2027-01-15T00:00:01.000Z","cwd":"/home/dev/shop","originator":"codex-tui","cli_version":"0.169.0","source":"cli","model_provider":"openai"}}
{"timestamp":"2027-01-15T00:00:01.100Z","type":"thread_settings_applied","payload":{"approval_policy":"on-request","sandbox_policy":{"type":"workspace-write"}}}
{"timestamp":"2027-01-15T00:00:01.200Z","type":"world_state","payload":{"cwd":"/home/dev/shop","shell":"bash"}}
{"timestamp":"2027-01-15T00:00:02.000Z","type":"event_msg","payload":{"type":"task_started","turn_id":"1","model_context_window":272000}}
{"timestamp":"2027-01-15T00:00:02.100Z","type":"event_msg","payload":{"type":"item_completed","thread_id":"0199a3f2-5c1e-7a40-9b3d-2f8e61c4d7a9","turn_id":"1","item":{"type":"UserMessage","id":"u1","content":[{"type":"text","text":"Why does checkout round down?"}]}}}
{"timestamp":"2027-01-15T00:00:03.000Z","type":"response_item","payload":{"type":"function_call","name":"exec_command","arguments":"{\"cmd\":\"sed -n 1,80p src/checkout.rs\",\"workdir\":\"/home/dev/shop\",\"yield_time_ms\":10000}","call_id":"call_Qx81"}}
)";
constexpr const char* kTuiTurnEnd =
    R"({"timestamp":"2027-01-15T00:00:04.000Z","type":"event_msg","payload":{"type":"item_completed","thread_id":"0199a3f2-5c1e-7a40-9b3d-2f8e61c4d7a9","turn_id":"1","item":{"type":"CommandExecution","id":"call_Qx81","command":["/bin/bash","-lc","sed -n 1,80p src/checkout.rs"],"parsed_cmd":[{"type":"read","cmd":"sed -n 1,80p src/checkout.rs","name":"checkout.rs","path":"src/checkout.rs"}],"status":"completed","aggregated_output":"fn total() {}\n","exit_code":0}}}
{"timestamp":"2027-01-15T00:00:04.100Z","type":"response_item","payload":{"type":"function_call_output","call_id":"call_Qx81","output":"fn total() {}\n"}}
{"timestamp":"2027-01-15T00:00:06.000Z","type":"event_msg","payload":{"type":"item_completed","thread_id":"0199a3f2-5c1e-7a40-9b3d-2f8e61c4d7a9","turn_id":"1","item":{"type":"AgentMessage","id":"m1","content":[{"type":"Text","text":"`total` **truncates** before it sums."}]}}}
{"timestamp":"2027-01-15T00:00:06.200Z","type":"token_usage_record","payload":{"input_tokens":9120,"output_tokens":210}}
{"timestamp":"2027-01-15T00:00:06.500Z","type":"event_msg","payload":{"type":"task_complete","turn_id":"1","last_agent_message":"`total` **truncates** before it sums."}}
)";

TEST_F(CodexWatcherTest, FollowsATurnOfTheTerminalInterface) {
  append(today, kTuiTurn);
  watcher.sweep();
  const Session* s = codex();
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(s->title, "Why does checkout round down?");
  EXPECT_EQ(s->mood, Mood::working);
  EXPECT_EQ(s->activity, "Running sed -n 1,80p src/checkout.rs");
  EXPECT_EQ(s->tools, (std::vector<ToolLine>{{"Running sed -n 1,80p src/checkout.rs", true}}));
  EXPECT_EQ(s->turnCalls, 1);

  append(today, kTuiTurnEnd);
  watcher.sweep();
  s = codex();
  EXPECT_EQ(s->tools, (std::vector<ToolLine>{{"Running sed -n 1,80p src/checkout.rs"}}));
  EXPECT_EQ(s->turnCalls, 1);  // the call and its finished item are one command
  ASSERT_EQ(s->tally.size(), 1u);
  EXPECT_EQ(s->tally[0].count, 1);
  EXPECT_EQ(s->phase, "researching");  // the command only read a file
  EXPECT_EQ(s->mood, Mood::done);
  EXPECT_EQ(s->activity, "`total` truncates before it sums.");
  EXPECT_EQ(s->finishedAt, kMidnight + 6.5);
}

// `codex exec` whose first command the sandbox refused: only the model's call is written for it.
TEST_F(CodexWatcherTest, CountsCommandsThatNeverRan) {
  append(
      today,
      record("session_meta", {{"id", kId},
                              {"cwd", "/home/dev/shop"},
                              {"originator", "codex_exec"},
                              {"source", "exec"},
                              {"cli_version", "0.169.0"}}) +
          event({{"type", "task_started"}}) +
          item({{"type", "UserMessage"}, {"content", {{{"type", "text"}, {"text", "Clean up"}}}}}) +
          record("response_item", {{"type", "function_call"},
                                   {"name", "exec_command"},
                                   {"arguments", R"({"cmd":"rm -rf /var/cache/shop"})"},
                                   {"call_id", "call_r1"}}) +
          record("response_item", {{"type", "function_call_output"},
                                   {"call_id", "call_r1"},
                                   {"output", "rejected: writing outside the workspace"}}) +
          record("response_item", {{"type", "function_call"},
                                   {"name", "exec_command"},
                                   {"arguments", R"({"cmd":"cargo clean"})"},
                                   {"call_id", "call_c2"}}) +
          item({{"type", "CommandExecution"},
                {"id", "call_c2"},
                {"command", "cargo clean"},
                {"parsed_cmd", {{{"type", "unknown"}, {"cmd", "cargo clean"}}}},
                {"status", "failed"},
                {"exit_code", 101}}) +
          item({{"type", "AgentMessage"}, {"content", {{{"type", "Text"}, {"text", "Done."}}}}}));
  watcher.sweep();
  const Session* s = codex();
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(s->title, "Clean up");
  EXPECT_EQ(s->activity, "Done.");
  EXPECT_EQ(s->turnCalls, 2);

  append(today, event({{"type", "task_complete"}, {"last_agent_message", ""}}));
  watcher.sweep();
  s = codex();
  EXPECT_EQ(s->mood, Mood::done);
  EXPECT_EQ(s->activity, "Finished");
  EXPECT_EQ(s->phase, "reviewing");
  EXPECT_EQ(s->turnCalls, 2);
  EXPECT_EQ(s->tools, (std::vector<ToolLine>{{"Running rm -rf /var/cache/shop"},
                                             {"Running cargo clean", false, true}}));
}

TEST_F(CodexWatcherTest, EndsAndRestartsTurns) {
  append(today, meta() + event({{"type", "task_started"}}) + command("ls") +
                    item({{"type", "Extension"}, {"id", "x1"}}));
  watcher.sweep();
  EXPECT_EQ(codex()->activity, "Searching the web");

  append(today, event({{"type", "turn_aborted"}, {"reason", "interrupted"}}));
  watcher.sweep();
  EXPECT_EQ(codex()->mood, Mood::idle);
  EXPECT_EQ(codex()->activity, "Stopped");

  // A new turn starts clean; a completion without a message still says something.
  append(today, event({{"type", "task_started"}}) +
                    event({{"type", "task_complete"}, {"last_agent_message", nullptr}}, ""));
  watcher.sweep();
  const Session* s = codex();
  EXPECT_EQ(s->mood, Mood::done);
  EXPECT_EQ(s->activity, "Finished");
  EXPECT_TRUE(s->tools.empty());
  EXPECT_EQ(s->turnCalls, 0);
  // Without a readable time stamp a record dates from the sweep that read it.
  EXPECT_EQ(s->finishedAt, loop.wall());
  EXPECT_EQ(s->updated, loop.wall());
}

TEST_F(CodexWatcherTest, CallsOfAHookedSessionAreCountedByItsHooksOnly) {
  Session hooked = hub.session("codex:" + kId, Agent::codex, "/home/dev/shop");
  hooked.hooked = true;
  hooked.pushTool("Running ls");
  hub.store(hooked);
  append(today, meta() +
                    record("response_item", {{"type", "function_call"},
                                             {"name", "exec_command"},
                                             {"arguments", R"({"cmd":"ls"})"},
                                             {"call_id", "call_7"}}) +
                    command("ls"));
  watcher.sweep();
  EXPECT_EQ(codex()->tools.size(), 1u);
  EXPECT_EQ(codex()->turnCalls, 0);
}

TEST_F(CodexWatcherTest, LineWrittenInTwoPiecesIsAppliedOnce) {
  const std::string line = command("npm run build");
  append(today, meta() + line.substr(0, 40));
  watcher.sweep();
  ASSERT_NE(codex(), nullptr);
  EXPECT_EQ(codex()->turnCalls, 0);

  append(today, line.substr(40));
  watcher.sweep();
  watcher.sweep();
  EXPECT_EQ(codex()->turnCalls, 1);
  ASSERT_EQ(codex()->tally.size(), 1u);
  EXPECT_EQ(codex()->tally[0].count, 1);
}

// A FIFO among the logs, a 64 GiB sparse log, a line of many megabytes and a record nested too
// deeply: no sweep blocks, each reads a bounded slice, and the records around them still count.
TEST_F(CodexWatcherTest, StrangeLogsNeverBlockAndAreReadInSlices) {
  const std::string fifo = logIn("2027/01/15", "fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const std::string sparse = logIn("2027/01/15", "sparse");
  append(sparse, meta("sparse"));
  ASSERT_EQ(truncate(sparse.c_str(), 64ll << 30), 0);
  append(sparse, "\n" + command("ls"));
  Json deep = "x";
  for (int i = 0; i < 200; ++i) deep = Json::array({deep});
  append(today, meta() + std::string(LineReader::kMaxLine + 1, 'x') + "\n" +
                    item({{"type", "CommandExecution"}, {"command", "deep"}, {"x", deep}}) +
                    command("git status"));

  auto swept = std::async(std::launch::async, [this] { watcher.sweep(); });
  const bool finished = swept.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
  if (!finished) ::close(::open(fifo.c_str(), O_WRONLY));
  ASSERT_TRUE(finished) << "a sweep blocked";
  swept.get();
  for (int i = 0; i < 10; ++i) watcher.sweep();

  EXPECT_EQ(codex("fifo"), nullptr);
  ASSERT_NE(codex("sparse"), nullptr);
  EXPECT_EQ(codex("sparse")->turnCalls, 1);
  ASSERT_NE(codex(), nullptr);
  EXPECT_EQ(codex()->tools, std::vector<ToolLine>{{"Running git status"}});
}

TEST_F(CodexWatcherTest, QuietLogEndsItsSessionAfter45Minutes) {
  append(today, meta() + event({{"type", "task_started"}}), 44 * 60);
  watcher.start();
  ASSERT_NE(codex(), nullptr);
  EXPECT_EQ(codex()->mood, Mood::working);

  loop.advance(60);
  EXPECT_EQ(codex(), nullptr);

  // Written to again, the log is read from its start and the session comes back.
  append(today, command("git status"));
  loop.advance(CodexWatcher::kInterval);
  ASSERT_NE(codex(), nullptr);
  EXPECT_EQ(codex()->mood, Mood::working);
  EXPECT_EQ(codex()->turnCalls, 1);
}

TEST_F(CodexWatcherTest, YesterdaysLogStillCountsJustAfterMidnight) {
  append(logIn("2027/01/14", "yesterday"), meta("yesterday"));
  append(logIn("2027/01/13", "older"), meta("older"));
  append(home.path() + "/.codex/sessions/2027/01/15/notes.jsonl", meta("stray"));
  watcher.sweep();
  EXPECT_NE(codex("yesterday"), nullptr);
  EXPECT_EQ(codex("older"), nullptr);
  EXPECT_EQ(codex("stray"), nullptr);
}

TEST_F(CodexWatcherTest, RemovingASessionReleasesItsHook) {
  append(today, meta(), 44 * 60);
  watcher.sweep();
  Session s = *codex();
  s.pending = Pending{"req-1", Pending::Elsewhere{"approve"}, Json::object(), loop.wall(), false};
  hub.store(s);
  std::vector<std::string> replies;
  hub.setResponder("req-1", [&](const std::string& text) { replies.push_back(text); });

  loop.advance(60);
  watcher.sweep();
  EXPECT_EQ(codex(), nullptr);
  EXPECT_EQ(replies, std::vector<std::string>{""});
}
