// The hub's sweep against real processes: the real vantler-hook, started through the shells
// and launchers an agent's hook command uses, reports the agent itself, and the sweep keeps
// the session while that process runs and drops it once it has ended.

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <filesystem>
#include <fstream>

#include "bridge/adapters.h"
#include "core/files.h"
#include "core/processes.h"
#include "process.h"
#include "test_support.h"

namespace {

const std::string kBin = VANTLER_BINARY_DIR;

// Serves one hook connection on the socket under `home`: reads its line and answers nothing.
std::string serveOneHook(int listener) {
  pollfd p{listener, POLLIN, 0};
  if (::poll(&p, 1, 5000) != 1) return {};
  int conn = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
  std::string line;
  char c;
  for (pollfd r{conn, POLLIN, 0}; line.find('\n') == std::string::npos;) {
    if (::poll(&r, 1, 5000) != 1 || ::read(conn, &c, 1) != 1) break;
    line += c;
  }
  ::send(conn, "\n", 1, MSG_NOSIGNAL);
  ::close(conn);
  return line;
}

}  // namespace

TEST_F(HubTest, SweepKeepsTheSessionOfAnAgentWhoseHookRunsThroughAScript) {
  namespace fs = std::filesystem;
  const std::string dir = home.path();
  fs::create_directories(dir + "/.vantler/run");
  fs::permissions(dir + "/.vantler/run", fs::perms::owner_all);  // the hook trusts no other
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  std::strncpy(addr.sun_path, (dir + "/.vantler/run/vantler.sock").c_str(),
               sizeof addr.sun_path - 1);
  int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
  ASSERT_EQ(::listen(listener, 4), 0);

  // The agent is a copy of the shell under a name of its own; its hook command runs a script
  // file through env, timeout and sh, the way installed hook commands and users' wrappers do.
  fs::copy_file(fs::canonical("/bin/sh"), dir + "/agentx");
  fs::permissions(dir + "/agentx", fs::perms::owner_all);
  std::ofstream(dir + "/hook.sh") << "#!/bin/sh\n\"$HOOK\" claude < \"$T/in.json\"\nexit 0\n";
  std::ofstream(dir + "/in.json") << R"({"session_id":"sx","hook_event_name":"SessionStart"})";
  Process agent(
      {dir + "/agentx", "-c", R"(env timeout 20 sh "$T/hook.sh"; : > "$T/done"; sleep 30)"},
      {{"T", dir}, {"HOME", dir}, {"HOOK", kBin + "/vantler-hook"}});
  Json payload = JsonField::parse(serveOneHook(listener));
  ::close(listener);
  ASSERT_TRUE(payload.is_object());
  EXPECT_EQ(JsonField::integer(payload, "agentPid"), agent.pid());

  HubPorts ports;
  ports.processStart = Processes::startTime;
  Hub real(loop, defaults, ports, HubOptions{dir, std::nullopt, true});
  Adapters adapters(real);
  adapters.handle(payload, [](const std::string&) {});
  ASSERT_TRUE(real.find("claude:sx"));
  EXPECT_TRUE(real.find("claude:sx")->agentStarted);

  // The hook and its wrappers end; the agent runs on.
  for (int i = 0; i < 500 && !Files::exists(dir + "/done"); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  ASSERT_TRUE(agent.running());
  loop.advance(Hub::kSlowSweepEvery + 1);
  EXPECT_TRUE(real.find("claude:sx"));

  agent.signal(SIGKILL);
  agent.wait(5);
  loop.advance(Hub::kSlowSweepEvery + 1);
  EXPECT_FALSE(real.find("claude:sx"));
}
