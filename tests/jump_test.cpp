#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "core/linux_glib_loop.h"
#include "core/ports.h"
#include "integrations/jump.h"
#include "integrations/linux_jump.h"
#include "process.h"
#include "test_support.h"

using namespace std::string_literals;

namespace {

std::string envBlock(std::initializer_list<std::string> entries) {
  std::string block;
  for (const std::string& e : entries) block += e + '\0';
  return block;
}

Jump::Facts facts(std::optional<std::string> host, std::string env) {
  Jump::Facts f;
  f.root = "/home/me/app";
  f.hostBundle = std::move(host);
  if (f.hostBundle) f.hostPid = 300;
  f.agentPid = 400;
  f.agentRunning = true;
  Jump::readMarkers(env, f.markers);
  return f;
}

}  // namespace

TEST(JumpPlan, TheInnermostTerminalThatRunsTheAgentIsSelected) {
  const std::string kitty = "KITTY_WINDOW_ID=7\0KITTY_LISTEN_ON=unix:/tmp/kitty-9"s;
  // tmux started from kitty: the pane, on the server the agent's environment names.
  Jump::Plan p = Jump::plan(
      facts(std::nullopt, envBlock({"TMUX=/tmp/tmux-1000/work,77,0", "TMUX_PANE=%12", kitty})));
  EXPECT_EQ(p.place, Jump::Place::tmux);
  EXPECT_EQ(p.tmux, (std::vector<std::string>{"tmux", "-S", "/tmp/tmux-1000/work"}));
  EXPECT_EQ(p.tmuxPane, "%12");

  p = Jump::plan(facts("/usr/lib/kitty/kitty", kitty));
  EXPECT_EQ(p.place, Jump::Place::kitty);
  EXPECT_EQ(p.raiseFrom, 300);
  // Konsole started from GNOME Terminal inherits its marker; Konsole's own wins.
  p = Jump::plan(
      facts("/usr/bin/konsole",
            envBlock({"GNOME_TERMINAL_SCREEN=/org/gnome/Terminal/screen/0a1b2c3d_"
                      "aaaa_bbbb_cccc_0123456789ab",
                      "KONSOLE_DBUS_SERVICE=:1.42", "KONSOLE_DBUS_SESSION=/Sessions/3"})));
  EXPECT_EQ(p.place, Jump::Place::konsole);
  EXPECT_EQ(p.konsoleSession, "3");

  p = Jump::plan(facts("/usr/libexec/gnome-terminal-server",
                       envBlock({"GNOME_TERMINAL_SCREEN=/org/gnome/Terminal/screen/0a1b2c3d_aaaa_"
                                 "bbbb_cccc_0123456789ab"})));
  ASSERT_EQ(p.place, Jump::Place::gnomeTerminal);
  EXPECT_EQ(p.select.at(0).argv.at(9), "0a1b2c3d-aaaa-bbbb-cccc-0123456789ab");

  // An xterm opened from a shell in tmux inside kitty carries both their markers: just the
  // xterm's window.
  p = Jump::plan(facts("/usr/bin/xterm", envBlock({"TMUX=/tmp/t,1,0", "TMUX_PANE=%1", kitty})));
  EXPECT_EQ(p.place, Jump::Place::terminal);
  EXPECT_EQ(p.raiseFrom, 300);
  EXPECT_EQ(p.label, "xterm");
}

TEST(JumpPlan, EditorsOpenTheFolderWithTheirOwnCommand) {
  auto open = [](Agent agent, std::optional<std::string> host) {
    Jump::Facts f = facts(std::move(host), "TMUX=/tmp/t,1,0\0TMUX_PANE=%1"s);
    f.agent = agent;
    Jump::Plan p = Jump::plan(f);
    return p.open ? std::vector<std::string>(p.open->argv.end() - 2, p.open->argv.end())
                  : std::vector<std::string>{};
  };
  using Args = std::vector<std::string>;
  EXPECT_EQ(open(Agent::claude, "/usr/share/code/code"), (Args{"code", "/home/me/app"}));
  EXPECT_EQ(open(Agent::claude, "PyCharmCE"), (Args{"pycharm", "/home/me/app"}));
  EXPECT_EQ(open(Agent::claude, "/usr/bin/codesign-helper"), Args{});

  Session s;
  s.agent = Agent::claude;
  s.hostBundle = "/usr/libexec/gnome-terminal-server";
  EXPECT_EQ(Jump::hostName(s), "GNOME Terminal");
  s.hostBundle = "PyCharm";
  EXPECT_EQ(Jump::hostName(s), "PyCharm");
}

TEST(JumpPlan, ReadsWhatTerminalsAndDesktopsPrint) {
  // Nearest first: the agent's own marker is kept over its ancestor's.
  Jump::Markers m;
  Jump::readMarkers(envBlock({"PATH=/bin", "WEZTERM_PANE=4", "broken"}), m);
  Jump::readMarkers(envBlock({"WEZTERM_PANE=1", "WEZTERM_UNIX_SOCKET=/run/w"}), m);
  EXPECT_EQ(m.weztermPane, "4");
  EXPECT_EQ(m.weztermSocket, "/run/w");

  auto client = Jump::activeClient(
      "1700000005 812 /dev/pts/3\n1700000009 901 /dev/pts/5\n"
      "1700000099 bad /dev/pts/6\n");
  ASSERT_TRUE(client);
  EXPECT_EQ(client->tty, "/dev/pts/5");

  EXPECT_EQ(Jump::childNodes("('<node><interface name=\"x\"/><node name=\"1\"/>"
                             "<node name=\"12\"/><node name=\"../x\"/></node>',)"),
            (std::vector<std::string>{"1", "12"}));

  auto way = [](std::map<std::string, std::string> env) {
    return Jump::raiseWay([&](const char* name) { return env[name]; });
  };
  EXPECT_EQ(way({{"WAYLAND_DISPLAY", "wayland-1"}, {"SWAYSOCK", "/run/s"}, {"DISPLAY", ":0"}}),
            Jump::Raise::sway);
  EXPECT_EQ(
      way({{"WAYLAND_DISPLAY", "w"}, {"XDG_CURRENT_DESKTOP", "ubuntu:GNOME"}, {"DISPLAY", ":0"}}),
      Jump::Raise::gnome);
  EXPECT_EQ(way({}), Jump::Raise::none);
}

// The pids each raise was asked for.
struct RecordingRaiser : WindowRaiser {
  std::vector<std::vector<int32_t>> raised;
  void raise(const std::vector<int32_t>& pids, const std::string&, Done done) override {
    raised.push_back(pids);
    done(true, "recorded");
  }
};

// A jumper on a loop of its own, raising through the recorder.
class JumpLoop : public ::testing::Test {
 protected:
  void SetUp() override {
    context_ = g_main_context_new();
    g_main_context_push_thread_default(context_);
    loop_ = std::make_unique<GLibLoop>(context_);
    jumper_ = std::make_unique<TerminalJumper>(
        *loop_, raiser_, [this](const std::string& line) { log_ += line + "\n"; });
  }
  void TearDown() override {
    jumper_.reset();
    loop_.reset();
    g_main_context_pop_thread_default(context_);
    g_main_context_unref(context_);
  }
  // Turns the loop until `count` raises were asked for, or five seconds pass.
  bool raises(size_t count) {
    const gint64 deadline = g_get_monotonic_time() + 5 * G_USEC_PER_SEC;
    while (raiser_->raised.size() < count && g_get_monotonic_time() < deadline)
      if (!g_main_context_iteration(context_, FALSE)) g_usleep(1000);
    return raiser_->raised.size() == count;
  }

  TempHome home_;
  std::string log_;
  GMainContext* context_ = nullptr;
  std::unique_ptr<GLibLoop> loop_;
  std::shared_ptr<RecordingRaiser> raiser_ = std::make_shared<RecordingRaiser>();
  std::unique_ptr<TerminalJumper> jumper_;
};

// A real tmux server on a private directory: a session with two windows, the second split in
// two, a fake agent in its last pane; a client attached to another session through a
// pseudo-terminal.
class TmuxJump : public JumpLoop {
 protected:
  void SetUp() override {
    setenv("TMUX_TMPDIR", home_.path().c_str(), 1);
    ASSERT_EQ(tmux("new-session -d -s work -x 120 -y 40 'sleep 600'"), 0);
    ASSERT_EQ(tmux("new-window -t work 'sleep 600'"), 0);
    ASSERT_EQ(tmux("split-window -t work:1 'sleep 600'"), 0);
    agentPid_ = std::stoi(query("display -p -t work:1.1 '#{pane_pid}'"));
    tty_ = query("display -p -t work:1.1 '#{pane_tty}'");
    ASSERT_EQ(tmux("select-window -t work:0"), 0);
    ASSERT_EQ(tmux("select-pane -t work:1.0"), 0);
    ASSERT_EQ(tmux("new-session -d -s other 'sleep 600'"), 0);
    client_ = std::make_unique<Process>(
        std::vector<std::string>{"/usr/bin/script", "-qfc", "tmux attach -t other", "/dev/null"},
        std::map<std::string, std::string>{{"TERM", "xterm"}}, "", false);
    const gint64 deadline = g_get_monotonic_time() + 5 * G_USEC_PER_SEC;
    while (clientTty().empty() && g_get_monotonic_time() < deadline) g_usleep(20000);
    ASSERT_FALSE(clientTty().empty()) << client_->err();
    JumpLoop::SetUp();
  }
  void TearDown() override {
    JumpLoop::TearDown();
    client_.reset();
    tmux("kill-server");
    unsetenv("TMUX_TMPDIR");
  }
  int tmux(const std::string& args) {
    return std::system(("tmux " + args + " 2>/dev/null").c_str());
  }
  std::string query(const std::string& args) {
    std::string out = home_.path() + "/out";
    tmux(args + " > " + out);
    std::string line;
    std::getline(std::ifstream(out), line);
    return line;
  }
  std::string clientTty() { return query("list-clients -F '#{client_tty}'"); }
  // Where the attached client looks: "session:window.pane".
  std::string shown() {
    return query("display -p -c " + clientTty() +
                 " '#{session_name}:#{window_index}.#{pane_index}'");
  }

  int32_t agentPid_ = 0;
  std::string tty_;
  std::unique_ptr<Process> client_;
};

TEST_F(TmuxJump, SelectsTheAgentsWindowAndPaneAndRaisesTheClientsTerminal) {
  Session s;
  s.id = "claude:pane";
  s.agentPid = agentPid_;
  s.tty = tty_;
  ASSERT_EQ(shown(), "other:0.0");
  jumper_->go(s);
  ASSERT_TRUE(raises(1)) << log_;
  EXPECT_EQ(shown(), "work:1.1") << log_;
  // The window raised is the one of the client's terminal: the client first, then its parents
  // (a shell may stand between the client and the terminal that started it).
  const int32_t clientPid = std::stoi(query("list-clients -F '#{client_pid}'"));
  const std::vector<int32_t>& chain = raiser_->raised[0];
  EXPECT_EQ(chain.at(0), clientPid);
  EXPECT_NE(std::find(chain.begin() + 1, chain.end(), client_->pid()), chain.end());

  // The agent gone, the pane is found by its terminal device alone.
  tmux("select-window -t work:0");
  s.agentPid = 999999;
  jumper_->go(s);
  ASSERT_TRUE(raises(2)) << log_;
  EXPECT_EQ(shown(), "work:1.1") << log_;
  EXPECT_NE(log_.find("claude:pane: the agent process 999999 is gone"), std::string::npos) << log_;
}

TEST_F(JumpLoop, WezTermAndEditorsAreAskedThroughTheirCommandLines) {
  // Stand-ins on PATH that record how they were called.
  const std::string bin = home_.path() + "/bin", calls = home_.path() + "/calls";
  std::filesystem::create_directories(bin);
  for (const char* name : {"code", "wezterm"}) {
    std::ofstream(bin + "/" + name)
        << "#!/bin/sh\necho \"" << name << " $* ${WEZTERM_UNIX_SOCKET}\" >> " << calls << "\n";
    std::filesystem::permissions(bin + "/" + name, std::filesystem::perms::owner_all);
  }
  const std::string path = getenv("PATH");
  setenv("PATH", (bin + ":" + path).c_str(), 1);
  Process agent({"/bin/sleep", "600"}, {{"WEZTERM_PANE", "5"}, {"WEZTERM_UNIX_SOCKET", "/run/w"}});
  // Its environment is read once it runs `sleep`, no longer a copy of the test's.
  std::error_code ec;
  const std::string exe = "/proc/" + std::to_string(agent.pid()) + "/exe";
  const std::string environ = "/proc/" + std::to_string(agent.pid()) + "/environ";
  auto marked = [&] {
    std::stringstream text;
    text << std::ifstream(environ).rdbuf();
    return text.str().find("WEZTERM_PANE=5") != std::string::npos;
  };
  for (int i = 0;
       i < 10000 && (std::filesystem::read_symlink(exe, ec).filename() != "sleep" || !marked());
       ++i)
    g_usleep(2000);
  Session wezterm, editor;
  wezterm.id = "gemini:wez";
  wezterm.agentPid = agent.pid();
  editor.id = "claude:code";
  editor.hostBundle = "/usr/share/code/code";
  editor.root = "/home/me/app";
  jumper_->go(wezterm);
  ASSERT_TRUE(raises(1)) << log_;
  jumper_->go(editor);
  std::string recorded;
  // Generous: under sanitizers on a loaded machine a stand-in's start takes seconds.
  const gint64 deadline = g_get_monotonic_time() + 20 * G_USEC_PER_SEC;
  while (std::count(recorded.begin(), recorded.end(), '\n') < 2 &&
         g_get_monotonic_time() < deadline) {
    if (!g_main_context_iteration(context_, FALSE)) g_usleep(1000);
    std::stringstream text;
    text << std::ifstream(calls).rdbuf();
    recorded = text.str();
  }
  // An editor whose command is missing says so.
  Session missing;
  missing.id = "windsurf:w";
  missing.agent = Agent::windsurf;
  missing.root = "/home/me/app";
  setenv("PATH", (bin + ":/usr/bin:/bin").c_str(), 1);
  jumper_->go(missing);
  while (log_.find("windsurf is not on PATH") == std::string::npos &&
         g_get_monotonic_time() < deadline + 5 * G_USEC_PER_SEC)
    if (!g_main_context_iteration(context_, FALSE)) g_usleep(1000);
  EXPECT_NE(log_.find("windsurf is not on PATH"), std::string::npos) << log_;
  setenv("PATH", path.c_str(), 1);
  EXPECT_EQ(recorded,
            "wezterm cli activate-pane --pane-id 5 /run/w\n"
            "code /home/me/app \n")
      << log_;
  EXPECT_EQ(raiser_->raised[0].at(0), agent.pid());  // no host known: from the agent up
}

TEST(JumpPlan, FindsTheLatestLoginToAHost) {
  EXPECT_EQ(Jump::loginNames("me@devbox:2222", ""),
            (std::vector<std::string>{"devbox", "me@devbox"}));
  EXPECT_EQ(Jump::configuredHostName("user me\nhostname devbox.example.com\nport 22\n"),
            "devbox.example.com");
  EXPECT_EQ(Jump::configuredHostName("user me\n"), "");

  const int32_t self = 50;
  const std::vector<Jump::Process> processes = {
      {9, 1, 100, {"ssh", "devbox"}},  // the same tick: the later pid wins
      {10, 1, 100, {"ssh", "me@devbox"}},
      {11, 1, 300, {"/usr/bin/ssh", "-fNT", "devbox"}},           // forwards only
      {12, self, 400, {"ssh", "-R", "/run/a:/run/b", "devbox"}},  // our tunnel
      {13, 1, 200, {"mosh-client", "-# devbox.example.com |", "10.1.1.1", "60001"}},
      {14, 1, 500, {"ssh", "otherbox"}},
      {15, 1, 600, {"vim", "devbox"}},
      {16, 1, 700, {"ssh", "-p", "22", "devbox2"}},
  };
  EXPECT_EQ(Jump::loginClient(processes, Jump::loginNames("devbox", ""), self), 10);
  EXPECT_EQ(Jump::loginClient(processes, Jump::loginNames("devbox", "devbox.example.com"), self),
            13);
  EXPECT_EQ(Jump::loginClient(processes, Jump::loginNames("me@devbox:2222", ""), self), 10);
  EXPECT_EQ(Jump::loginClient(processes, Jump::loginNames("nowhere", ""), self), std::nullopt);
}

// Logins started by a shell of their own (children of the test would pass for Vantler's own
// tunnels): `ssh me@devbox`, then a mosh-client to the address ssh's stand-in gives for
// devbox, then a forwarding-only ssh. The mosh-client's terminal is raised.
TEST_F(JumpLoop, ARemoteSessionRaisesTheLatestLoginToItsHost) {
  const std::string bin = home_.path() + "/bin";
  std::filesystem::create_directories(bin);
  std::ofstream(bin + "/login") << "#!/bin/bash\nexec -a \"$1\" /bin/sh -c 'sleep 600; :' \"$2\"\n";
  std::ofstream(bin + "/ssh") << "#!/bin/sh\nfor a; do last=$a; done\necho 'user me'\n"
                                 "[ \"$last\" = devbox ] && echo 'hostname 10.0.0.7'\n";
  for (const char* name : {"login", "ssh"})
    std::filesystem::permissions(bin + "/" + name, std::filesystem::perms::owner_all);
  setenv("VANTLER_SSH", (bin + "/ssh").c_str(), 1);
  std::vector<std::unique_ptr<Process>> logins;
  for (const char* args : {"ssh me@devbox", "mosh-client '-# 10.0.0.7 |'", "ssh -N devbox"}) {
    logins.push_back(std::make_unique<Process>(
        std::vector<std::string>{"/bin/sh", "-c", bin + "/login " + args + " & wait"},
        std::map<std::string, std::string>{}));
    // Each one's command line is in place before the next starts.
    const std::string children = "/proc/" + std::to_string(logins.back()->pid()) + "/task/" +
                                 std::to_string(logins.back()->pid()) + "/children";
    std::string command;
    for (int i = 0; i < 2500 && command.find("sleep 600") == std::string::npos;
         ++i, g_usleep(2000)) {
      int child = 0;
      if (!(std::ifstream(children) >> child)) continue;
      std::stringstream text;
      text << std::ifstream("/proc/" + std::to_string(child) + "/cmdline").rdbuf();
      command = text.str();
    }
    ASSERT_NE(command.find("sleep 600"), std::string::npos);
  }
  Session s;
  s.id = "claude:devbox:r";
  s.machine = "devbox";
  jumper_->go(s);
  ASSERT_TRUE(raises(1)) << log_;
  EXPECT_EQ(raiser_->raised[0].at(1), logins[1]->pid()) << log_;

  s.machine = "elsewhere";
  jumper_->go(s);
  const gint64 deadline = g_get_monotonic_time() + 5 * G_USEC_PER_SEC;
  while (log_.find("no ssh or mosh") == std::string::npos && g_get_monotonic_time() < deadline)
    if (!g_main_context_iteration(context_, FALSE)) g_usleep(1000);
  unsetenv("VANTLER_SSH");
  EXPECT_NE(log_.find("no ssh or mosh of this user logs in to elsewhere here"), std::string::npos)
      << log_;
  EXPECT_EQ(raiser_->raised.size(), 1u);
}
