#pragma once
// Starting the real executables from tests: a child with its own environment, stdin fed from a
// string, and stdout/stderr collected; and raw connections to the daemon's socket.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "core/files.h"
#include "core/json.h"
#include "test_support.h"

extern char** environ;

// Polls `done` every 10 ms until it holds or `seconds` pass; whether it held.
template <class Done>
bool eventually(Done done, double seconds = 5) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (!done()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

class Process {
 public:
  // Starts `argv` with the current environment plus `env` (which overrides).
  Process(std::vector<std::string> argv, const std::map<std::string, std::string>& env,
          const std::string& input = "", bool closeInput = true) {
    int in[2], out[2], err[2];
    if (::pipe2(in, O_CLOEXEC) || ::pipe2(out, O_CLOEXEC) || ::pipe2(err, O_CLOEXEC)) return;
    std::vector<std::string> envStrings;
    for (char** e = environ; *e; ++e) {
      std::string kv = *e;
      if (!env.count(kv.substr(0, kv.find('=')))) envStrings.push_back(kv);
    }
    for (const auto& [k, v] : env) envStrings.push_back(k + "=" + v);
    pid_ = ::fork();
    if (pid_ == 0) {
      ::dup2(in[0], 0);
      ::dup2(out[1], 1);
      ::dup2(err[1], 2);
      std::vector<char*> args, envp;
      for (auto& a : argv) args.push_back(a.data());
      args.push_back(nullptr);
      for (auto& e : envStrings) envp.push_back(e.data());
      envp.push_back(nullptr);
      ::execve(args[0], args.data(), envp.data());
      ::_exit(127);
    }
    ::close(in[0]);
    ::close(out[1]);
    ::close(err[1]);
    stdin_ = in[1];
    stdout_ = out[0];
    stderr_ = err[0];
    ::fcntl(stdout_, F_SETFL, O_NONBLOCK);
    ::fcntl(stderr_, F_SETFL, O_NONBLOCK);
    if (!input.empty()) writeInput(input);
    if (closeInput) closeStdin();
  }
  ~Process() {
    if (pid_ > 0 && !status_) {
      ::kill(pid_, SIGKILL);
      ::waitpid(pid_, nullptr, 0);
    }
    for (int fd : {stdin_, stdout_, stderr_})
      if (fd >= 0) ::close(fd);
  }
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  void writeInput(const std::string& data) {
    for (size_t done = 0; done < data.size();) {
      ssize_t n = ::write(stdin_, data.data() + done, data.size() - done);
      if (n <= 0) break;
      done += static_cast<size_t>(n);
    }
  }
  void closeStdin() {
    if (stdin_ >= 0) ::close(stdin_);
    stdin_ = -1;
  }

  // Waits for the exit, collecting output; nothing when it is still running after `seconds`.
  std::optional<int> wait(double seconds = 10) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!status_) {
      drain();
      int st = 0;
      pid_t r = ::waitpid(pid_, &st, WNOHANG);
      if (r == pid_) {
        status_ = WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
        break;
      }
      if (std::chrono::steady_clock::now() > deadline) return std::nullopt;
      pollfd p[2] = {{stdout_, POLLIN, 0}, {stderr_, POLLIN, 0}};
      ::poll(p, 2, 5);
    }
    drain();
    return status_;
  }
  bool running() {
    drain();
    if (status_) return false;
    int st = 0;
    if (::waitpid(pid_, &st, WNOHANG) == pid_) {
      status_ = WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
      return false;
    }
    return true;
  }
  void signal(int sig) { ::kill(pid_, sig); }
  pid_t pid() const { return pid_; }
  const std::string& out() {
    drain();
    return out_;
  }
  const std::string& err() {
    drain();
    return err_;
  }

 private:
  void drain() {
    char buf[65536];
    for (auto [fd, dst] : {std::pair{stdout_, &out_}, std::pair{stderr_, &err_}}) {
      for (;;) {
        ssize_t n = ::read(fd, buf, sizeof buf);
        if (n <= 0) break;
        dst->append(buf, static_cast<size_t>(n));
      }
    }
  }

  pid_t pid_ = -1;
  int stdin_ = -1, stdout_ = -1, stderr_ = -1;
  std::string out_, err_;
  std::optional<int> status_;
};

// A raw connection to the daemon's socket, for what the hook would never send.
class RawClient {
 public:
  explicit RawClient(const std::string& path) {
    fd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::strncpy(addr.sun_path, path.c_str(), sizeof addr.sun_path - 1);
    connected_ = ::connect(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
  }
  ~RawClient() { ::close(fd_); }
  bool connected() const { return connected_; }
  int fd() const { return fd_; }
  bool send(std::string_view bytes) {
    for (size_t done = 0; done < bytes.size();) {
      ssize_t n = ::send(fd_, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
      if (n <= 0) return false;
      done += static_cast<size_t>(n);
    }
    return true;
  }
  // Everything until the daemon closes, or nothing if it keeps the connection open.
  std::optional<std::string> readToClose(int timeoutMs = 5000) {
    std::string out;
    char buf[65536];
    for (;;) {
      pollfd p{fd_, POLLIN, 0};
      if (::poll(&p, 1, timeoutMs) != 1) return std::nullopt;
      ssize_t n = ::read(fd_, buf, sizeof buf);
      if (n <= 0) return out;
      out.append(buf, static_cast<size_t>(n));
    }
  }

 private:
  int fd_ = -1;
  bool connected_ = false;
};

// The real daemon in a temporary home, its hooks and its command line.
class DaemonHome : public ::testing::Test {
 protected:
  static std::string bin(const std::string& name) { return VANTLER_BINARY_DIR "/" + name; }

  TempHome home;
  std::unique_ptr<Process> daemon;
  std::string debugAnswer;
  std::map<std::string, std::string> extraEnv;

  std::map<std::string, std::string> env() const {
    std::map<std::string, std::string> all = {{"HOME", home.path()},
                                              {"XDG_CONFIG_HOME", home.path() + "/.config"},
                                              {"VANTLER_DEBUG_ANSWER", debugAnswer},
                                              {"VANTLER_DEMO", ""}};
    for (const auto& [k, v] : extraEnv) all[k] = v;
    return all;
  }
  std::string runDir() const { return home.path() + "/.vantler/run"; }
  std::string socket() const { return runDir() + "/vantler.sock"; }

  void TearDown() override {
    if (daemon && daemon->running()) {
      daemon->signal(SIGCONT);
      daemon->signal(SIGTERM);
      EXPECT_EQ(daemon->wait(5), 0);
    }
  }
  std::unique_ptr<Process> hook(const std::string& agent, const std::string& input) {
    return std::make_unique<Process>(std::vector<std::string>{bin("vantler-hook"), agent}, env(),
                                     input);
  }
  std::unique_ptr<Process> hook(const std::string& agent, const Json& payload) {
    return hook(agent, payload.dump());
  }
  // Runs a `vantler` command to its end: its exit status, -1 when it did not end.
  int cli(std::vector<std::string> args, std::string* err = nullptr, std::string* out = nullptr) {
    args.insert(args.begin(), bin("vantler"));
    Process p(args, env());
    auto status = p.wait(10);
    if (err) *err = p.err();
    if (out) *out = p.out();
    return status.value_or(-1);
  }
  Json state() {
    Process p({bin("vantler"), "state"}, env());
    p.wait(10);
    return Json::parse(p.out(), nullptr, false);
  }
  Json session(const std::string& id) {
    const Json all = state();
    if (all.is_object())
      for (const Json& s : all["sessions"])
        if (s["id"] == id) return s;
    return nullptr;
  }
  // Polls the state until the session's request is open (or closed).
  bool waitPending(const std::string& id, bool open = true) {
    return eventually(
        [&] {
          const Json s = session(id);
          return s.is_object() && s.contains("pending") == open;
        },
        10);
  }
};
