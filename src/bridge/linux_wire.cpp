#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <thread>

#include "bridge/wire.h"

namespace Wire {
namespace {

int msUntil(Clock::time_point deadline) {
  auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return left > 0 ? static_cast<int>(left) : 0;
}

// Waits for `events` on `fd`; false at the deadline or on an error.
bool waitFor(int fd, short events, Clock::time_point deadline) {
  for (;;) {
    pollfd p{fd, events, 0};
    int n = ::poll(&p, 1, msUntil(deadline));
    if (n > 0) return true;
    if (n == 0 || errno != EINTR) return false;
  }
}

bool peerIsUs(int fd) {
  ucred cred{};
  socklen_t len = sizeof cred;
  return ::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &len) == 0 && cred.uid == ::getuid();
}

}  // namespace

std::string runDir(const std::string& home) {
  return home + "/.vantler/run";
}

std::string socketPath(const std::string& home) {
  return runDir(home) + "/vantler.sock";
}

std::optional<std::string> runDirProblem(const std::string& dir) {
  struct stat st;
  if (::lstat(dir.c_str(), &st) != 0) return std::nullopt;
  if (S_ISLNK(st.st_mode)) return "it is a symbolic link; remove it";
  if (!S_ISDIR(st.st_mode)) return "it is not a directory; remove it";
  if (st.st_uid != ::getuid())
    return "it belongs to user " + std::to_string(st.st_uid) + "; remove it";
  if (st.st_mode & 077) return "others may use it; run 'chmod 700 " + dir + "'";
  return std::nullopt;
}

bool isSignal(std::string_view line) {
  return line == kHold || line == kAlive;
}

int connectBy(const std::string& path, Clock::time_point deadline) {
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  std::string target = path;
  int dirFd = -1;
  if (target.size() >= sizeof addr.sun_path) {
    // A home directory too long for a socket address: reach the socket through its directory.
    size_t slash = path.rfind('/');
    if (slash == std::string::npos) return -1;
    dirFd = ::open(path.substr(0, slash).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (dirFd < 0) return -1;
    target = "/proc/self/fd/" + std::to_string(dirFd) + path.substr(slash);
    if (target.size() >= sizeof addr.sun_path) {
      ::close(dirFd);
      return -1;
    }
  }
  std::memcpy(addr.sun_path, target.c_str(), target.size() + 1);

  int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  bool connected = false;
  while (fd >= 0) {
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof addr) == 0) {
      connected = true;
      break;
    }
    if (errno == EINTR) continue;
    if (errno == EINPROGRESS) {
      int error = 0;
      socklen_t len = sizeof error;
      connected = waitFor(fd, POLLOUT, deadline) &&
                  ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &len) == 0 && error == 0;
      break;
    }
    // A full backlog: the app is behind (or stopped). Try again until the deadline.
    if (errno != EAGAIN || Clock::now() >= deadline) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  if (dirFd >= 0) ::close(dirFd);
  if (connected && peerIsUs(fd)) return fd;
  if (fd >= 0) ::close(fd);
  return -1;
}

bool sendBy(int fd, std::string_view data, Clock::time_point deadline) {
  while (!data.empty()) {
    ssize_t n = ::send(fd, data.data(), data.size(), MSG_NOSIGNAL);
    if (n > 0) {
      data.remove_prefix(static_cast<size_t>(n));
    } else if (n < 0 && errno == EINTR) {
      continue;
    } else if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      if (!waitFor(fd, POLLOUT, deadline)) return false;
    } else {
      return false;
    }
  }
  return true;
}

namespace {

// Appends what the next read brings to `out`, waiting for it until `deadline`: nothing when
// bytes came, else why none will.
std::optional<Read> readMore(int fd, std::string& out, Clock::time_point deadline) {
  char buf[65536];
  for (;;) {
    ssize_t n = ::read(fd, buf, sizeof buf);
    if (n > 0) {
      out.append(buf, static_cast<size_t>(n));
      return std::nullopt;
    }
    if (n == 0) return Read::kClosed;
    if (errno == EAGAIN || errno == EWOULDBLOCK) {
      if (!waitFor(fd, POLLIN, deadline)) return Read::kTimeout;
    } else if (errno != EINTR) {
      return Read::kClosed;
    }
  }
}

}  // namespace

Read lineBy(int fd, std::string& pending, std::string& line, Clock::time_point deadline) {
  for (size_t scanned = 0;;) {
    size_t nl = pending.find('\n', scanned);
    if (nl != std::string::npos) {
      line.assign(pending, 0, nl);
      pending.erase(0, nl + 1);
      return Read::kLine;
    }
    scanned = pending.size();
    if (pending.size() > kMaxLine) return Read::kClosed;
    if (auto end = readMore(fd, pending, deadline)) return *end;
  }
}

Read restBy(int fd, std::string& out, Clock::time_point deadline) {
  for (;;)
    if (auto end = readMore(fd, out, deadline)) return *end;
}

}  // namespace Wire
