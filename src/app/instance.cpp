#include "app/instance.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "bridge/linux_bridge.h"
#include "core/files.h"

namespace {

using Clock = std::chrono::steady_clock;

bool tryLock(int fd) {
  while (::flock(fd, LOCK_EX | LOCK_NB) != 0)
    if (errno != EINTR) return false;
  return true;
}

// The owner's process id as it wrote it; nothing while it has not yet written it, or when the
// process is not a Vantler (a recycled id).
std::optional<pid_t> ownerPid(int fd) {
  char buf[32] = {};
  ssize_t n = ::pread(fd, buf, sizeof buf - 1, 0);
  if (n <= 0) return std::nullopt;
  long pid = std::strtol(buf, nullptr, 10);
  if (pid <= 1 || pid == ::getpid()) return std::nullopt;
  auto cmdline = Files::read("/proc/" + std::to_string(pid) + "/cmdline");
  if (!cmdline || cmdline->find("vantler") == std::string::npos) return std::nullopt;
  return static_cast<pid_t>(pid);
}

// Polls for the lock until `deadline`.
bool lockBy(int fd, Clock::time_point deadline) {
  for (;;) {
    if (tryLock(fd)) return true;
    if (Clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

}  // namespace

std::string Instance::lockPath(const std::string& home) {
  return Bridge::runDir(home) + "/vantler.pid";
}

std::optional<Instance> Instance::acquire(const std::string& home, bool replace,
                                          std::string& error) {
  if (auto problem = Bridge::prepareRunDir(home)) {
    error = *problem;
    return std::nullopt;
  }
  const std::string path = lockPath(home);
  int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (fd < 0) {
    error = "cannot open " + path + ": " + std::strerror(errno);
    return std::nullopt;
  }
  Instance instance(fd);

  if (!tryLock(fd)) {
    // The owner writes its id right after locking: give a racing start a moment to do so.
    std::optional<pid_t> owner;
    for (int i = 0; i < 25 && !(owner = ownerPid(fd)); ++i) {
      if (tryLock(fd)) break;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    if (!tryLock(fd)) {
      const std::string who = owner ? " (pid " + std::to_string(*owner) + ")" : "";
      if (!replace) {
        error =
            "Vantler is already running" + who + ". Use 'vantler daemon --replace' to take over.";
        return std::nullopt;
      }
      if (owner) {
        ::kill(*owner, SIGTERM);
        if (!lockBy(fd, Clock::now() + std::chrono::milliseconds(kGraceMs)))
          ::kill(*owner, SIGKILL);
      }
      if (!lockBy(fd, Clock::now() + std::chrono::milliseconds(kTakeOverMs))) {
        error = "Vantler is already running" + who + " and did not stop; try again.";
        return std::nullopt;
      }
    }
  }
  const std::string pid = std::to_string(::getpid()) + "\n";
  if (::ftruncate(fd, 0) != 0 || ::pwrite(fd, pid.data(), pid.size(), 0) < 0) {
    error = "cannot write " + path + ": " + std::strerror(errno);
    return std::nullopt;
  }
  return instance;
}

void Instance::raiseFileLimit() {
  rlimit lim{};
  if (::getrlimit(RLIMIT_NOFILE, &lim) == 0 && lim.rlim_cur < lim.rlim_max) {
    lim.rlim_cur = lim.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &lim);
  }
}

Instance::Instance(Instance&& other) noexcept : fd_(other.fd_) {
  other.fd_ = -1;
}

Instance& Instance::operator=(Instance&& other) noexcept {
  if (this != &other) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = other.fd_;
    other.fd_ = -1;
  }
  return *this;
}

Instance::~Instance() {
  if (fd_ >= 0) ::close(fd_);
}
