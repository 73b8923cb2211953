// Agents on another machine, end to end: a private OpenSSH server whose logins land in a second
// temporary home (the host), the real daemon keeping its tunnel, the real vantler-hook copied
// there by `vantler remote add`.

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <memory>

#include "core/files.h"
#include "integrations/jump.h"
#include "process.h"
#include "test_support.h"

namespace {

const std::string kBin = VANTLER_BINARY_DIR;
constexpr const char* kSettings = "{\n  \"theme\": \"dark\",\n    \"model\":  \"opus\"\n}\n";

std::string freePort() {
  int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t len = sizeof addr;
  ::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len);
  ::close(fd);
  return std::to_string(ntohs(addr.sin_port));
}

void write(const std::string& path, const std::string& text, unsigned mode = 0600) {
  ASSERT_FALSE(Files::writeAtomic(path, text, mode));
}

// An assistant message of a Claude Code transcript, with its model and usage.
std::string assistant(const std::string& id, int input, int cacheRead) {
  Json usage = {
      {"input_tokens", input}, {"output_tokens", 50}, {"cache_read_input_tokens", cacheRead}};
  return Json{{"type", "assistant"},
              {"requestId", "q" + id},
              {"message",
               {{"id", id},
                {"model", "claude-sonnet-4-5-20250929"},
                {"role", "assistant"},
                {"stop_reason", "tool_use"},
                {"usage", usage}}}}
             .dump() +
         "\n";
}

bool waitFor(const std::function<bool()>& done, double seconds = 10) {
  auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (std::chrono::steady_clock::now() < deadline) {
    if (done()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return done();
}

// The pid of the ssh whose command line forwards to `socket`; 0 when none runs.
pid_t tunnelTo(const std::string& socket) {
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    std::string name = entry.path().filename();
    if (name.find_first_not_of("0123456789") != std::string::npos) continue;
    auto cmdline = Files::read(entry.path().string() + "/cmdline");
    if (cmdline && cmdline->find(std::string("-R\0", 3) + socket + ":") != std::string::npos)
      return static_cast<pid_t>(std::stoi(name));
  }
  return 0;
}

}  // namespace

class RemoteTest : public ::testing::Test {
 protected:
  TempHome local;
  std::string host;  // the home directory logins to "devbox" get
  std::unique_ptr<Process> sshd, daemon;

  void SetUp() override {
    if (!Files::exists("/usr/sbin/sshd")) GTEST_SKIP() << "openssh-server is not installed";
    char pattern[] = "/tmp/vantler-host-XXXXXX";
    host = ::mkdtemp(pattern);
    const std::string dir = local.path() + "/sshd", ssh = local.path() + "/.ssh";
    Files::makeDirs(dir, 0700);
    Files::makeDirs(ssh, 0700);
    for (const std::string& key : {dir + "/host_key", ssh + "/id", ssh + "/other"})
      ASSERT_EQ(
          Process({"/usr/bin/ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", key}, {}).wait(20),
          0);
    std::filesystem::copy_file(ssh + "/id.pub", dir + "/authorized_keys");
    const std::string port = freePort();
    write(dir + "/config", "Port " + port + "\nListenAddress 127.0.0.1\nHostKey " + dir +
                               "/host_key\nPidFile " + dir + "/pid\nAuthorizedKeysFile " + dir +
                               "/authorized_keys\nUsePAM no\nStrictModes no\n"
                               "PasswordAuthentication no\nKbdInteractiveAuthentication no\n"
                               "PermitRootLogin prohibit-password\nSetEnv HOME=" +
                               host + "\n");
    if (::getuid() == 0) Files::makeDirs("/run/sshd", 0755);
    sshd = std::make_unique<Process>(
        std::vector<std::string>{"/usr/sbin/sshd", "-D", "-e", "-f", dir + "/config"},
        std::map<std::string, std::string>{});
    auto hostKey = Files::read(dir + "/host_key.pub");
    write(ssh + "/known_hosts", "[127.0.0.1]:" + port + " " + hostKey.value_or(""));
    const char* user = std::getenv("USER");
    std::string login = ::getuid() == 0 ? "root" : (user ? user : "");
    auto entry = [&](const std::string& name, const std::string& key) {
      return "Host " + name + "\n  HostName 127.0.0.1\n  Port " + port + "\n  User " + login +
             "\n  IdentityFile " + ssh + "/" + key + "\n  IdentitiesOnly yes\n" +
             "  UserKnownHostsFile " + ssh + "/known_hosts\n";
    };
    write(ssh + "/config", entry("devbox", "id") + entry("locked", "other"));
    write(local.path() + "/ssh", "#!/bin/sh\nexec ssh -F " + ssh + "/config \"$@\"\n", 0755);
    bool up = waitFor([&] {
      return Process(
                 {"/usr/bin/ssh", "-F", ssh + "/config", "-o", "BatchMode=yes", "devbox", "true"},
                 {})
                 .wait(10) == 0;
    });
    if (!up) GTEST_SKIP() << "sshd did not start: " << sshd->err();
  }

  void TearDown() override {
    if (daemon && daemon->running()) {
      daemon->signal(SIGTERM);
      EXPECT_EQ(daemon->wait(5), 0);
    }
    if (sshd) sshd->signal(SIGTERM);
    std::error_code ec;
    if (!host.empty()) std::filesystem::remove_all(host, ec);
  }

  std::map<std::string, std::string> env() const {
    return {{"HOME", local.path()},
            {"XDG_CONFIG_HOME", local.path() + "/.config"},
            {"VANTLER_SSH", local.path() + "/ssh"},
            {"VANTLER_DEMO", ""}};
  }
  std::string hostSocket() const { return host + "/.vantler/run/vantler.sock"; }

  void startDaemon() {
    daemon =
        std::make_unique<Process>(std::vector<std::string>{kBin + "/vantler", "daemon"}, env());
    ASSERT_TRUE(waitFor([&] { return Files::exists(local.path() + "/.vantler/run/vantler.sock"); }))
        << daemon->err();
  }
  int cli(std::vector<std::string> args, std::string* out = nullptr, std::string* err = nullptr) {
    args.insert(args.begin(), kBin + "/vantler");
    Process p(args, env());
    auto status = p.wait(60);
    if (out) *out = p.out();
    if (err) *err = p.err();
    return status.value_or(-1);
  }
  // The host's own copy of the hook, run there with a payload.
  std::unique_ptr<Process> hostHook(const Json& payload,
                                    std::map<std::string, std::string> env = {}) {
    env["HOME"] = host;
    return std::make_unique<Process>(
        std::vector<std::string>{host + "/.vantler/bin/vantler-hook", "claude"}, env,
        payload.dump());
  }
  Json session(const std::string& id) {
    Process p({kBin + "/vantler", "state"}, env());
    p.wait(10);
    Json all = Json::parse(p.out(), nullptr, false);
    if (all.is_object())
      for (const Json& s : all["sessions"])
        if (s["id"] == id) return s;
    return nullptr;
  }
};

TEST_F(RemoteTest, HostAgentsReachThePanelThroughTheTunnel) {
  const std::string settings = host + "/.claude/settings.json";
  Files::makeDirs(host + "/.claude");
  write(settings, kSettings, 0640);
  startDaemon();

  const auto added = std::chrono::steady_clock::now();
  std::string out, err;
  ASSERT_EQ(cli({"remote", "add", "devbox"}, &out, &err), 0) << err;
  EXPECT_THAT(out, ::testing::HasSubstr("connected: claude"));
  Process version({host + "/.vantler/bin/vantler-hook", "--version"}, {});
  EXPECT_EQ(version.wait(5), 0);
  EXPECT_THAT(version.out(), ::testing::StartsWith("vantler-hook "));
  auto connected = Files::read(settings);
  ASSERT_TRUE(connected);
  EXPECT_THAT(*connected,
              ::testing::StartsWith("{\n  \"theme\": \"dark\",\n    \"model\":  \"opus\""));
  EXPECT_THAT(*connected, ::testing::HasSubstr("vantler-hook\\\" claude"));
  EXPECT_EQ(Files::read(settings + ".vantler-backup"), kSettings);
  struct stat st;
  ASSERT_EQ(::stat(settings.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0640u);

  // A tool call there shows here, under an id of its own and with the host's name; the figures
  // come from its transcript there.
  const std::string id = "claude@devbox:r1", transcript = host + "/.claude/projects/r1.jsonl";
  write(transcript, assistant("m1", 1000, 20000));
  Json pre = {
      {"session_id", "r1"},           {"hook_event_name", "PreToolUse"},     {"cwd", "/srv/api"},
      {"tool_name", "Bash"},          {"tool_input", {{"command", "make"}}}, {"tool_use_id", "t1"},
      {"transcript_path", transcript}};
  ASSERT_TRUE(waitFor([&] {
    hostHook(pre)->wait(5);
    return session(id).is_object();
  }));
  std::printf("remote add -> first event shown: %.2f s\n",
              std::chrono::duration<double>(std::chrono::steady_clock::now() - added).count());
  Json s = session(id);
  EXPECT_EQ(s["machine"], "devbox");
  EXPECT_EQ(s["project"], "api");
  EXPECT_EQ(s["activity"], "Running make");
  EXPECT_EQ(session("claude:r1"), nullptr);
  EXPECT_TRUE(waitFor([&] { return session(id)["stats"]["contextTokens"] == 21000; }));
  EXPECT_EQ(session(id)["stats"]["model"], "Sonnet 4.5");
  EXPECT_GT(session(id)["stats"]["cost"], 0);
  // Lines added later come without an event.
  std::ofstream(transcript, std::ios::app) << assistant("m2", 3000, 40000);
  const auto appended = std::chrono::steady_clock::now();
  EXPECT_TRUE(waitFor([&] { return session(id)["stats"]["contextTokens"] == 43000; }));
  std::printf("host transcript line -> figure in vantler state: %.2f s\n",
              std::chrono::duration<double>(std::chrono::steady_clock::now() - appended).count());

  // A host that stops answering (its connection frozen while a read hangs on it) slows nothing
  // here.
  pid_t frozen = tunnelTo(hostSocket());
  ASSERT_GT(frozen, 0);
  ::kill(frozen, SIGSTOP);
  std::ofstream(transcript, std::ios::app) << assistant("m3", 4000, 40000);
  std::this_thread::sleep_for(std::chrono::seconds(4));
  const auto local = std::chrono::steady_clock::now();
  Process({kBin + "/vantler-hook", "claude"}, env(),
          Json{{"session_id", "l1"},
               {"hook_event_name", "PreToolUse"},
               {"cwd", "/tmp"},
               {"tool_name", "Bash"},
               {"tool_input", {{"command", "ls"}}}}
              .dump())
      .wait(5);
  EXPECT_TRUE(session("claude:l1").is_object());
  EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - local).count(), 5);
  EXPECT_EQ(session(id)["stats"]["contextTokens"], 43000);
  ::kill(frozen, SIGCONT);
  EXPECT_TRUE(waitFor([&] { return session(id)["stats"]["contextTokens"] == 44000; }, 30));

  // A permission request there is answered here, on the connection that asked.
  Json ask = pre;
  ask["hook_event_name"] = "PermissionRequest";
  auto asking = hostHook(ask);
  ASSERT_TRUE(waitFor([&] { return session(id).contains("pending"); }));
  ASSERT_EQ(cli({"allow", id}), 0);
  ASSERT_EQ(asking->wait(5), 0);
  EXPECT_EQ(JsonField::parse(asking->out())["hookSpecificOutput"]["decision"]["behavior"], "allow");

  // The tunnel drops while a request waits: both ends let go, new hooks return at once, and
  // the tunnel comes back.
  auto held = hostHook(ask);
  ASSERT_TRUE(waitFor([&] { return session(id).contains("pending"); }));
  pid_t tunnel = tunnelTo(hostSocket());
  ASSERT_GT(tunnel, 0);
  ::kill(tunnel, SIGKILL);
  EXPECT_EQ(held->wait(5), 0);
  EXPECT_EQ(held->out(), "");
  EXPECT_TRUE(waitFor([&] { return !session(id).contains("pending"); }));
  auto orphan = hostHook(pre);
  EXPECT_EQ(orphan->wait(1), 0);
  ASSERT_TRUE(waitFor([&] {
    pid_t again = tunnelTo(hostSocket());
    return again > 0 && again != tunnel;
  }));
  pre["tool_input"]["command"] = "make test";
  EXPECT_TRUE(waitFor([&] {
    hostHook(pre)->wait(5);
    return session(id)["activity"] == "Running make test";
  }));
  ASSERT_EQ(cli({"remote", "status"}, &out), 0);
  EXPECT_THAT(out, ::testing::HasSubstr("devbox: up since"));

  // Removing the host gives its settings back as they were and ends the tunnel.
  ASSERT_EQ(cli({"remote", "remove", "devbox"}, &out, &err), 0) << err;
  EXPECT_EQ(Files::read(settings), kSettings);
  EXPECT_TRUE(waitFor([&] { return tunnelTo(hostSocket()) == 0; }));
  ASSERT_EQ(cli({"remote", "list"}, &out), 0);
  EXPECT_THAT(out, ::testing::Not(::testing::HasSubstr("devbox")));
}

// A tmux server of the host's user, with its sockets in the host's home.
struct HostTmux {
  std::string home;
  std::unique_ptr<Process> client;
  ~HostTmux() {
    client.reset();
    run("kill-server");
  }
  std::string run(const std::string& args) {
    Process p({"/bin/sh", "-c", "tmux " + args}, {{"HOME", home}, {"TMUX_TMPDIR", home}});
    p.wait(10);
    return p.out().substr(0, p.out().find('\n'));
  }
};

// After an upgrade here, the host's older hook is replaced once its tunnel is up and the hooks
// connected there are written again; a session there in tmux is then jumped to: the host's
// tmux client shows its pane, in another window than the one it looked at.
TEST_F(RemoteTest, AnOlderHookOnTheHostIsReplacedAndJumpShowsItsTmuxPane) {
  const std::string settings = host + "/.claude/settings.json",
                    hook = host + "/.vantler/bin/vantler-hook";
  Files::makeDirs(host + "/.claude");
  write(settings, kSettings);
  ASSERT_EQ(cli({"remote", "add", "devbox"}), 0);
  Process ours({kBin + "/vantler-hook", "--version"}, {});
  ASSERT_EQ(ours.wait(5), 0);
  // The hook of an earlier version, and Claude Code's settings of one that had fewer hooks.
  write(hook, "#!/bin/sh\necho 'vantler-hook 0.0.1'\n", 0755);
  Json older = JsonField::parse(Files::read(settings).value_or(""));
  ASSERT_TRUE(older["hooks"].contains("PermissionRequest"));
  older["hooks"].erase("PermissionRequest");
  write(settings, older.dump(2));

  const auto started = std::chrono::steady_clock::now();
  startDaemon();
  auto version = [&] {
    Process p({hook, "--version"}, {});
    p.wait(5);
    return p.out();
  };
  ASSERT_TRUE(waitFor([&] { return version() == ours.out(); }, 60)) << daemon->err();
  std::printf("daemon start -> host's hook replaced: %.2f s\n",
              std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count());
  EXPECT_TRUE(waitFor([&] {
    return JsonField::parse(Files::read(settings).value_or(""))["hooks"].contains(
        "PermissionRequest");
  }));
  std::string out;
  EXPECT_TRUE(waitFor([&] {
    cli({"remote", "status"}, &out);
    return out.find("; " + ours.out().substr(0, ours.out().find('\n')) + "; agents: claude") !=
           std::string::npos;
  })) << out;

  HostTmux tmux{host, nullptr};
  ASSERT_EQ(tmux.run("new-session -d -s work -x 120 -y 40 'sleep 600' && tmux new-window -t work "
                     "'sleep 600' && tmux split-window -t work:1 'sleep 600' && tmux "
                     "select-window -t work:0 && tmux new-session -d -s other 'sleep 600' && "
                     "echo ok"),
            "ok");
  tmux.client = std::make_unique<Process>(
      std::vector<std::string>{"/usr/bin/script", "-qfc", "tmux attach -t other", "/dev/null"},
      std::map<std::string, std::string>{{"TERM", "xterm"}, {"HOME", host}, {"TMUX_TMPDIR", host}},
      "", false);
  ASSERT_TRUE(waitFor([&] { return !tmux.run("list-clients").empty(); }));
  auto shown = [&] {
    return tmux.run(
        "display -p -c \"$(tmux list-clients -F '#{client_tty}')\" "
        "'#{session_name}:#{window_index}.#{pane_index}'");
  };
  ASSERT_EQ(shown(), "other:0.0");

  // The agent's hook runs with the environment tmux gave the pane's program.
  const std::string agent = tmux.run("display -p -t work:1.1 '#{pane_pid}'");
  Jump::Markers markers;
  Jump::readMarkers(Files::read("/proc/" + agent + "/environ").value_or(""), markers);
  ASSERT_FALSE(markers.tmuxPane.empty());
  std::map<std::string, std::string> env = {{"TMUX", markers.tmux},
                                            {"TMUX_PANE", markers.tmuxPane}};
  const std::string id = "claude@devbox:t1";
  Json pre = {{"session_id", "t1"},
              {"hook_event_name", "PreToolUse"},
              {"cwd", "/srv/api"},
              {"tool_name", "Bash"},
              {"tool_input", {{"command", "make"}}}};
  ASSERT_TRUE(waitFor([&] {
    hostHook(pre, env)->wait(5);
    return session(id).is_object();
  }));
  const auto jumped = std::chrono::steady_clock::now();
  ASSERT_EQ(cli({"jump", id}), 0);
  EXPECT_TRUE(waitFor([&] { return shown() == "work:1.1"; })) << daemon->err();
  std::printf("jump -> host's tmux pane shown: %.2f s\n",
              std::chrono::duration<double>(std::chrono::steady_clock::now() - jumped).count());
}

TEST_F(RemoteTest, AHostThatWantsAPasswordGetsOneLine) {
  std::string err;
  EXPECT_EQ(cli({"remote", "add", "locked"}, nullptr, &err), 1);
  EXPECT_THAT(err, ::testing::StartsWith("vantler: locked asks for a password"));
  EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1);
  EXPECT_FALSE(Files::exists(local.path() + "/.config/vantler/remotes.json"));
}

// A container reached through its runtime's exec: here a stand-in `podman` on PATH that runs the
// command in a directory playing the container's home.
TEST(RemoteContainerTest, AddInstallsThroughExecAndPrintsTheMount) {
  TempHome local;
  const std::string box = local.path() + "/box", bin = local.path() + "/bin";
  // Claude Code, Qwen Code and Kimi Code live in the container.
  const std::string kimi = "# mine\nmodel = \"k2\"\n\n[ui]\ntheme = 'dark'\n";
  for (const char* dir : {"/.claude", "/.qwen", "/.kimi-code"}) Files::makeDirs(box + dir);
  write(box + "/.claude/settings.json", kSettings);
  write(box + "/.qwen/settings.json", kSettings);
  write(box + "/.kimi-code/config.toml", kimi);
  write(bin + "/podman",
        "#!/bin/sh\ncase \"$1\" in\n  container) [ \"$3\" = web ];;\n"
        "  exec) shift 3; HOME=" +
            box + " exec \"$@\";;\n  *) exit 125;;\nesac\n",
        0755);
  const char* path = std::getenv("PATH");
  std::map<std::string, std::string> env = {{"HOME", local.path()},
                                            {"XDG_CONFIG_HOME", local.path() + "/.config"},
                                            {"PATH", bin + ":" + (path ? path : "/usr/bin:/bin")}};
  Process add({kBin + "/vantler", "remote", "add", "--container", "web"}, env);
  ASSERT_EQ(add.wait(60), 0) << add.err();
  EXPECT_THAT(add.out(), ::testing::HasSubstr("connected: claude, qwen, kimi."));
  EXPECT_THAT(add.out(), ::testing::HasSubstr("-v " + local.path() + "/.vantler/run:" + box +
                                              "/.vantler/run"));
  EXPECT_TRUE(Files::exists(box + "/.vantler/bin/vantler-hook"));
  for (const char* file :
       {"/.claude/settings.json", "/.qwen/settings.json", "/.kimi-code/config.toml"})
    EXPECT_THAT(Files::read(box + file).value_or(""), ::testing::HasSubstr("vantler-hook")) << file;

  Process remove({kBin + "/vantler", "remote", "remove", "web"}, env);
  ASSERT_EQ(remove.wait(60), 0) << remove.err();
  EXPECT_EQ(Files::read(box + "/.claude/settings.json"), kSettings);
  EXPECT_EQ(Files::read(box + "/.qwen/settings.json"), kSettings);
  EXPECT_EQ(Files::read(box + "/.kimi-code/config.toml"), kimi);
}
