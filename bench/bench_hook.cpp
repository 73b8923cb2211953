// The hook road measured end to end with the real executables: one non-blocking event through
// vantler-hook into a running daemon (exec to exit) against exec of /bin/true, and how many
// events per second the daemon absorbs from 50 concurrent senders.

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;

const char* kEvent =
    R"({"session_id":"bench","hook_event_name":"PreToolUse","cwd":"/tmp","tool_name":"Read","tool_input":{"file_path":"/tmp/a.txt"}})"
    "\n";

std::vector<char*> envWithHome(std::vector<std::string>& storage, const std::string& home) {
  for (char** e = environ; *e; ++e)
    if (std::strncmp(*e, "HOME=", 5) != 0) storage.emplace_back(*e);
  storage.push_back("HOME=" + home);
  std::vector<char*> out;
  for (auto& s : storage) out.push_back(s.data());
  out.push_back(nullptr);
  return out;
}

// Runs a program with `input` on stdin and stdout discarded; returns seconds from spawn to exit.
double runOnce(const std::string& program, const char* arg, char* const* envp,
               const std::string& input) {
  int in[2];
  if (::pipe2(in, O_CLOEXEC) != 0) return -1;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in[0], 0);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  std::vector<char*> argv{const_cast<char*>(program.c_str())};
  if (arg) argv.push_back(const_cast<char*>(arg));
  argv.push_back(nullptr);
  auto start = Clock::now();
  pid_t pid;
  int rc = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), envp);
  posix_spawn_file_actions_destroy(&actions);
  ::close(in[0]);
  if (rc != 0) {
    ::close(in[1]);
    return -1;
  }
  if (!input.empty() && ::write(in[1], input.data(), input.size()) < 0) {
  }
  ::close(in[1]);
  int status;
  ::waitpid(pid, &status, 0);
  return std::chrono::duration<double>(Clock::now() - start).count();
}

struct Stats {
  double median, p99;
};
Stats stats(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return {v[v.size() / 2], v[std::min(v.size() - 1, v.size() * 99 / 100)]};
}

bool sendOne(const std::string& socketPath) {
  int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  std::strncpy(addr.sun_path, socketPath.c_str(), sizeof addr.sun_path - 1);
  bool ok = ::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0 &&
            ::send(fd, kEvent, std::strlen(kEvent), MSG_NOSIGNAL) > 0;
  char buf[64];
  while (ok && ::read(fd, buf, sizeof buf) > 0) {
  }
  ::close(fd);
  return ok;
}

}  // namespace

int main() {
  ::signal(SIGPIPE, SIG_IGN);
  const fs::path dir = fs::canonical("/proc/self/exe").parent_path();
  const std::string vantler = dir / "vantler", hook = dir / "vantler-hook";
  char tmpl[] = "/tmp/vantler-bench-XXXXXX";
  const std::string home = ::mkdtemp(tmpl);
  std::vector<std::string> envStorage;
  std::vector<char*> envp = envWithHome(envStorage, home);

  pid_t daemon;
  char* daemonArgs[] = {const_cast<char*>(vantler.c_str()), const_cast<char*>("daemon"), nullptr};
  posix_spawn_file_actions_t quiet;
  posix_spawn_file_actions_init(&quiet);
  posix_spawn_file_actions_addopen(&quiet, 2, "/dev/null", O_WRONLY, 0);
  if (posix_spawn(&daemon, vantler.c_str(), &quiet, nullptr, daemonArgs, envp.data()) != 0) {
    std::fprintf(stderr, "cannot start %s\n", vantler.c_str());
    return 1;
  }
  const std::string socketPath = home + "/.vantler/run/vantler.sock";
  for (int i = 0; i < 500 && !fs::exists(socketPath); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));

  // Round trip, interleaved with /bin/true so both see the same machine.
  std::vector<double> hookTimes, trueTimes;
  for (int i = 0; i < 20; ++i) runOnce(hook, "claude", envp.data(), kEvent);  // warm caches
  for (int i = 0; i < 500; ++i) {
    hookTimes.push_back(runOnce(hook, "claude", envp.data(), kEvent));
    trueTimes.push_back(runOnce("/bin/true", nullptr, envp.data(), kEvent));
  }
  Stats h = stats(hookTimes), t = stats(trueTimes);
  std::printf("hook round trip (exec to exit): median %.3f ms, p99 %.3f ms\n", h.median * 1e3,
              h.p99 * 1e3);
  std::printf("/bin/true (exec to exit):       median %.3f ms, p99 %.3f ms\n", t.median * 1e3,
              t.p99 * 1e3);
  std::printf("ratio of medians: %.2fx\n", h.median / t.median);

  // Throughput: 50 concurrent senders for a few seconds, as hook processes and as bare
  // connections speaking the hook protocol (which leaves out the cost of exec).
  auto measure = [&](auto&& sendOneEvent) {
    std::atomic<long> count{0};
    std::atomic<bool> stop{false};
    std::vector<std::thread> workers;
    auto start = Clock::now();
    for (int w = 0; w < 50; ++w)
      workers.emplace_back([&] {
        while (!stop) {
          sendOneEvent();
          ++count;
        }
      });
    std::this_thread::sleep_for(std::chrono::seconds(3));
    stop = true;
    for (auto& w : workers) w.join();
    return count / std::chrono::duration<double>(Clock::now() - start).count();
  };
  double processes = measure([&] { runOnce(hook, "claude", envp.data(), kEvent); });
  double trues = measure([&] { runOnce("/bin/true", nullptr, envp.data(), ""); });
  double connections = measure([&] { sendOne(socketPath); });
  std::printf("events/s from 50 concurrent vantler-hook processes: %.0f\n", processes);
  std::printf(
      "exec/s of /bin/true from 50 concurrent workers:     %.0f (the machine's exec ceiling)\n",
      trues);
  std::printf("events/s from 50 concurrent hook connections:       %.0f\n", connections);

  ::kill(daemon, SIGTERM);
  ::waitpid(daemon, nullptr, 0);
  fs::remove_all(home);
  return 0;
}
