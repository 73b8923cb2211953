// Runs the built vantler-hook executable against a fake app listening on the socket of a
// temporary home directory.

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "process.h"

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

const std::string kHook = std::string(VANTLER_BINARY_DIR) + "/vantler-hook";

struct TempHome {
  fs::path path;
  TempHome() {
    char tmpl[] = "/tmp/vantler-hook-test-XXXXXX";
    path = fs::canonical(::mkdtemp(tmpl));
  }
  ~TempHome() { fs::remove_all(path); }
};

// The app's end of the socket under `home`. Its descriptors are closed on exec: a child holding
// the listener would keep an unanswered connection open for ever.
class FakeApp {
 public:
  explicit FakeApp(const fs::path& home) {
    fs::create_directories(home / ".vantler/run");
    fs::permissions(home / ".vantler/run", fs::perms::owner_all);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::string path = home / ".vantler/run/vantler.sock";
    std::strncpy(addr.sun_path, path.c_str(), sizeof addr.sun_path - 1);
    listener_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(::bind(listener_, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
    EXPECT_EQ(::listen(listener_, 4), 0);
  }
  ~FakeApp() {
    if (thread_.joinable()) thread_.join();
    ::close(listener_);
  }

  // Accepts one connection and reads one line; then answers `reply` plus a line feed, or closes
  // without a word when there is none.
  void serveOnce(std::optional<std::string> reply) {
    thread_ = std::thread([this, reply] {
      pollfd p{listener_, POLLIN, 0};
      if (::poll(&p, 1, 5000) != 1) return;
      int conn = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
      timeval limit{5, 0};  // a hook that never sends its line fails the test, not hangs it
      ::setsockopt(conn, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
      for (char c; received_.find('\n') == std::string::npos && ::read(conn, &c, 1) == 1;) {
        received_ += c;
      }
      pollfd w{conn, POLLIN, 0};  // the hook must keep its side open while it waits
      heldOpen_ = ::poll(&w, 1, 50) == 0;
      if (reply) ::send(conn, (*reply + "\n").data(), reply->size() + 1, MSG_NOSIGNAL);
      ::close(conn);
    });
  }
  std::string received() {
    if (thread_.joinable()) thread_.join();
    return received_;
  }
  bool heldOpen() const { return heldOpen_; }
  bool connectionWaiting() const {
    pollfd p{listener_, POLLIN, 0};
    return ::poll(&p, 1, 0) == 1;
  }

 private:
  int listener_ = -1;
  std::thread thread_;
  std::string received_;
  bool heldOpen_ = false;
};

struct Result {
  std::optional<int> status;  // none when it had not finished after a second
  std::string out;
};

Result runHook(const std::string& agent, const fs::path& home, const std::string& input) {
  Process hook({kHook, agent}, {{"HOME", home.string()}}, input);
  std::optional<int> status = hook.wait(1);
  return {status, hook.out()};
}

TEST(Hook, ForwardsPayloadAsOneLineAndPrintsTheAnswer) {
  TempHome home;
  FakeApp app(home.path);
  app.serveOnce(R"({"hookSpecificOutput":{"decision":{"behavior":"allow"}}})");
  // Pretty-printed input with an escaped line feed and non-ASCII text inside strings.
  const std::string input =
      "{\n  \"session_id\": \"s1\",\n  \"hook_event_name\": \"PermissionRequest\",\n"
      "  \"tool_input\": {\"command\": \"ls\\nrm x\", \"note\": \"héllo ✓\"}\n}\n";
  Result r = runHook("claude", home.path, input);

  std::string line = app.received();
  ASSERT_FALSE(line.empty());
  EXPECT_EQ(line.find('\n'), line.size() - 1) << "exactly one line feed, at the end";
  Json sent = Json::parse(line, nullptr, false);
  sent.erase("_host");  // depends on where the tests run
  Json expected = Json::parse(input);
  expected["_agent"] = "claude";
  expected["agentPid"] = ::getpid();
  expected["_cwd"] = fs::current_path().string();
  EXPECT_EQ(sent, expected);
  EXPECT_TRUE(app.heldOpen());
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "{\"hookSpecificOutput\":{\"decision\":{\"behavior\":\"allow\"}}}\n");
}

// Kimi's payloads name no transcript: the hook finds the session's wire log under Kimi Code's
// root or the Kimi CLI's, and follows no session id out of them.
TEST(Hook, FindsKimisWireLog) {
  for (const std::string session : {"s1", "c1", "s2", "../9a3c/s1"}) {
    SCOPED_TRACE(session);
    TempHome home;
    const fs::path root = home.path / "kimi-root", share = home.path / "kimi-share";
    const fs::path wire = root / "sessions/9a3c/s1/agents/main/wire.jsonl";
    const fs::path cliWire = share / "sessions/77fe/c1/wire.jsonl";
    fs::create_directories(wire.parent_path());
    fs::create_directories(cliWire.parent_path());
    std::ofstream(wire) << "{}\n";
    std::ofstream(cliWire) << "{}\n";
    fs::create_directories(root / "sessions/9a3c/s2/agents/main/wire.jsonl");  // not a file
    FakeApp app(home.path);
    app.serveOnce(std::nullopt);
    Process hook(
        {kHook, "kimi"},
        {{"HOME", home.path.string()}, {"KIMI_CODE_HOME", root}, {"KIMI_SHARE_DIR", share}},
        Json{{"session_id", session}, {"hook_event_name", "Stop"}}.dump());
    EXPECT_EQ(hook.wait(1), 0);
    const Json sent = Json::parse(app.received(), nullptr, false);
    EXPECT_EQ(sent.value("transcript_path", ""), session == "s1"   ? wire.string()
                                                 : session == "c1" ? cliWire.string()
                                                                   : "");
  }
}

// No answer from the app (an empty line, a closed connection, no app at all, a stale socket)
// prints nothing, except Cursor's and Cline's fallback JSON, and always exits 0 at once.
TEST(Hook, WithoutAnAnswerPrintsNothingOrCursorsFallback) {
  enum class App { kEmptyReply, kCloses, kAbsent, kStaleSocket, kAnswers };
  struct Case {
    std::string agent, event;
    App app;
    std::string expected;
  };
  const Case cases[] = {
      {"claude", "Stop", App::kEmptyReply, ""},
      {"claude", "PreToolUse", App::kCloses, ""},
      {"gemini", "AfterTool", App::kAbsent, ""},
      {"claude", "Stop", App::kStaleSocket, ""},
      {"cursor", "beforeSubmitPrompt", App::kEmptyReply, "{\"continue\":true}\n"},
      {"cursor", "beforeSubmitPrompt", App::kAbsent, "{\"continue\":true}\n"},
      {"cursor", "stop", App::kCloses, "{}\n"},
      {"cursor", "afterFileEdit", App::kStaleSocket, "{}\n"},
      {"cursor", "stop", App::kAnswers, "{\"followup_message\":\"go on\"}\n"},
      // Cline reads JSON from every hook: no app still means "no objection".
      {"cline", "PreToolUse", App::kAbsent, "{\"cancel\":false}\n"},
      {"cline", "TaskStart", App::kCloses, "{\"cancel\":false}\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.agent + " " + c.event + " " + std::to_string(static_cast<int>(c.app)));
    TempHome home;
    std::optional<FakeApp> app;
    if (c.app != App::kAbsent) app.emplace(home.path);
    if (c.app == App::kStaleSocket) app.reset();  // the socket file stays, nobody listens
    if (c.app == App::kEmptyReply) app->serveOnce("");
    if (c.app == App::kCloses) app->serveOnce(std::nullopt);
    if (c.app == App::kAnswers) app->serveOnce(R"({"followup_message":"go on"})");

    Result r = runHook(c.agent, home.path, Json{{"hook_event_name", c.event}}.dump());
    if (app) {
      EXPECT_NE(app->received().find("\"_agent\":\"" + c.agent + "\""), std::string::npos);
    }
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, c.expected);
  }
}

TEST(Hook, InputThatIsNotAnObjectIsDroppedWithoutConnecting) {
  TempHome home;
  FakeApp app(home.path);
  for (const char* input : {"", "not json", "[1,2]", "\"text\"", "{\"a\":", "{} {}"}) {
    SCOPED_TRACE(input);
    Result claude = runHook("claude", home.path, input);
    EXPECT_EQ(claude.status, 0);
    EXPECT_EQ(claude.out, "");
    Result cursor = runHook("cursor", home.path, input);
    EXPECT_EQ(cursor.status, 0);
    EXPECT_EQ(cursor.out, "{}\n");
  }
  EXPECT_FALSE(app.connectionWaiting());
}

// A process tree like a real one: terminal > [multiplexer >] agent > "sh -c" > hook, with a
// pseudo-terminal as the controlling terminal of the terminal's session; or a JetBrains IDE
// on its Java launcher > agent. The hosts, multiplexer and agent are copies of the shell under
// those names.
TEST(Hook, FindsAgentHostAndTerminalFromTheProcessTree) {
  int master = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  char pts[64];
  if (master < 0 || ::grantpt(master) || ::unlockpt(master) || ::ptsname_r(master, pts, 64)) {
    GTEST_SKIP() << "no pseudo-terminals here";
  }
  TempHome dir;
  for (const char* name : {"xterm", "tmux", "agentx", "java"}) {
    fs::copy_file(fs::canonical("/bin/sh"), dir.path / name);
    fs::permissions(dir.path / name, fs::perms::owner_all);
  }
  std::ofstream(dir.path / "in.json") << R"({"hook_event_name":"Stop"})";
  const std::string agent =
      R"(echo $$ > "$T/agent.pid"; /bin/sh -c '"$HOOK" claude < "$T/in.json"; exit 0'; exit 0)";

  enum class Host { kTerminal, kMultiplexed, kJetBrains };
  for (Host host : {Host::kTerminal, Host::kMultiplexed, Host::kJetBrains}) {
    SCOPED_TRACE(static_cast<int>(host));
    FakeApp app(dir.path);
    app.serveOnce("");
    std::string inner =
        host == Host::kMultiplexed ? R"("$T/tmux" -c '"$T/agentx" -c "$AGENT"; exit 0'; exit 0)"
        : host == Host::kJetBrains
            ? R"("$T/java" -c '"$T/agentx" -c "$AGENT"; exit 0' -Didea.paths.selector=PyCharm2025.2)"
            : R"("$T/agentx" -c "$AGENT"; exit 0)";
    // setsid takes the pseudo-terminal on its standard input as the controlling terminal; the
    // terminal then lets go of it, so that only the controlling terminal tells the device.
    Process term(
        {"/bin/sh", "-c", R"(exec setsid -c "$T/xterm" -c "exec </dev/null; $INNER" <"$PTS")"},
        {{"T", dir.path.string()},
         {"HOME", dir.path.string()},
         {"HOOK", kHook},
         {"AGENT", agent},
         {"INNER", inner},
         {"PTS", pts}});
    EXPECT_EQ(term.wait(5), 0);

    std::string line = app.received();
    ASSERT_FALSE(line.empty());
    Json sent = Json::parse(line);
    int agentPid = 0;
    std::ifstream(dir.path / "agent.pid") >> agentPid;
    EXPECT_EQ(sent["agentPid"], agentPid);
    EXPECT_EQ(sent["_host"]["tty"], std::string(pts));
    if (host == Host::kMultiplexed) {
      EXPECT_FALSE(sent["_host"].contains("pid"));
      EXPECT_FALSE(sent["_host"].contains("bundle"));
    } else if (host == Host::kJetBrains) {
      EXPECT_EQ(sent["_host"]["bundle"], "PyCharm");
    } else {
      EXPECT_EQ(sent["_host"]["pid"], term.pid());
      EXPECT_EQ(sent["_host"]["bundle"], (dir.path / "xterm").string());
    }
    fs::remove(dir.path / ".vantler/run/vantler.sock");
  }
  ::close(master);
}

}  // namespace
