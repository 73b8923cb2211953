#include "bridge/linux_bridge.h"

#include <errno.h>
#include <fcntl.h>
#include <glib-unix.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "core/files.h"

namespace {

struct Watch {
  Bridge* bridge;
  Router::ConnId id;  // 0 for the listening socket
};

bool outOfDescriptors(int error) {
  return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}

}  // namespace

std::string Bridge::runDir(const std::string& home) {
  return Wire::runDir(home);
}

std::string Bridge::socketPath(const std::string& home) {
  return Wire::socketPath(home);
}

std::optional<std::string> Bridge::prepareRunDir(const std::string& home) {
  const std::string dir = runDir(home);
  Files::makeDirs(Files::parent(dir), 0700);
  // mkdir never follows a symbolic link at the last component; the check below refuses one.
  if (::mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST)
    return "cannot create " + dir + ": " + std::strerror(errno);
  if (auto problem = Wire::runDirProblem(dir)) return "cannot use " + dir + ": " + *problem;
  return std::nullopt;
}

Bridge::Bridge(Hub& hub, std::string home, Router::CommandHandler commands, GMainContext* context,
               Router::Limits limits)
    : home_(std::move(home)),
      path_(socketPath(home_)),
      context_(context ? g_main_context_ref(context) : g_main_context_ref_thread_default()),
      router_(hub, *this, std::move(commands), limits) {}

Bridge::~Bridge() {
  stop();
  for (auto& [id, c] : conns_) {
    if (c.source) {
      g_source_destroy(c.source);
      g_source_unref(c.source);
    }
    ::close(c.fd);
  }
  conns_.clear();
  g_main_context_unref(context_);
}

GSource* Bridge::watch(int fd, GIOCondition condition, Router::ConnId id) {
  GSource* source = g_unix_fd_source_new(fd, condition);
  auto* w = new Watch{this, id};
  g_source_set_callback(
      source,
      reinterpret_cast<GSourceFunc>(
          reinterpret_cast<void (*)()>(+[](gint, GIOCondition cond, gpointer data) -> gboolean {
            auto* w = static_cast<Watch*>(data);
            Bridge* b = w->bridge;
            if (w->id == 0) {
              b->acceptAll();
              return G_SOURCE_CONTINUE;
            }
            Router::ConnId id = w->id;
            if (cond & G_IO_OUT) {
              b->flush(id);
            } else {
              b->readable(id);
            }
            return G_SOURCE_CONTINUE;  // a closed connection destroys its own source
          })),
      w, [](gpointer data) { delete static_cast<Watch*>(data); });
  g_source_attach(source, context_);
  return source;
}

bool Bridge::start() {
  if (listenFd_ >= 0) return true;
  auto fail = [this](std::string message) {
    error_ = std::move(message);
    g_warning("Vantler: %s", error_.c_str());
    return false;
  };
  if (auto problem = prepareRunDir(home_)) return fail(*problem);

  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  if (path_.size() >= sizeof addr.sun_path)
    return fail("cannot listen on " + path_ + " (the path is too long)");
  std::memcpy(addr.sun_path, path_.c_str(), path_.size() + 1);
  // A socket file nobody answers on is left from a run that ended without cleaning up.
  if (int other = Wire::connectBy(path_, Wire::Clock::now() + std::chrono::milliseconds(200));
      other >= 0) {
    ::close(other);
    return fail("cannot listen on " + path_ + ": another Vantler is listening there");
  }
  ::unlink(path_.c_str());

  int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  // The socket file is created owner-only: no other user may reach the hub.
  mode_t old = ::umask(0177);
  bool ok = fd >= 0 && ::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
  ::umask(old);
  ok = ok && ::listen(fd, SOMAXCONN) == 0;
  struct stat st;
  ok = ok && ::lstat(path_.c_str(), &st) == 0;
  if (!ok) {
    int error = errno;
    if (fd >= 0) ::close(fd);
    return fail("cannot listen on " + path_ + ": " + std::strerror(error));
  }
  socketDev_ = st.st_dev;
  socketIno_ = st.st_ino;
  listenFd_ = fd;
  listenSource_ = watch(fd, G_IO_IN, 0);
  return true;
}

void Bridge::stop() {
  if (listenFd_ < 0) return;
  if (listenSource_) {
    g_source_destroy(listenSource_);
    g_source_unref(listenSource_);
    listenSource_ = nullptr;
  }
  if (resumeSource_) {
    g_source_destroy(resumeSource_);
    g_source_unref(resumeSource_);
    resumeSource_ = nullptr;
  }
  ::close(listenFd_);
  listenFd_ = -1;
  // Another instance may have taken the path over since: its socket is not ours to remove.
  struct stat st;
  if (::lstat(path_.c_str(), &st) == 0 && st.st_dev == socketDev_ && st.st_ino == socketIno_)
    ::unlink(path_.c_str());
}

void Bridge::acceptAll() {
  // A bounded number per wake-up: a storm of connections cannot keep the loop to itself.
  for (int i = 0; i < kAcceptsPerWake; ++i) {
    int fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) {
      if (errno == EINTR || errno == ECONNABORTED) continue;
      if (outOfDescriptors(errno)) {
        pauseAccepting();
      } else if (errno != EAGAIN && errno != EWOULDBLOCK) {
        g_warning("Vantler bridge failed: %s", std::strerror(errno));
      }
      return;
    }
    pauseMs_ = kPauseFirstMs;
    ucred cred{};
    socklen_t len = sizeof cred;
    if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &len) != 0 || cred.uid != ::getuid()) {
      g_warning("Vantler: refused a connection from user %u", static_cast<unsigned>(cred.uid));
      ::close(fd);
      continue;
    }
    Router::ConnId id = nextId_++;
    Conn& c = conns_[id];
    c.fd = fd;
    setWatch(c, id, G_IO_IN);
    std::optional<std::string> machine;
    if (machineOf_) machine = machineOf_(static_cast<int32_t>(cred.pid));
    router_.opened(id, machine.value_or(""));
  }
}

void Bridge::pauseAccepting() {
  // The waiting connection stays in the backlog, so the listening socket would wake the loop
  // at once again: stop watching it until descriptors may have been freed.
  gint64 now = g_get_monotonic_time();
  if (now - lastPauseLog_ >= 10 * G_USEC_PER_SEC) {
    g_warning("Vantler: out of file descriptors; new hook connections wait (retrying every %u ms)",
              pauseMs_);
    lastPauseLog_ = now;
  }
  g_source_destroy(listenSource_);
  g_source_unref(listenSource_);
  listenSource_ = nullptr;
  resumeSource_ = g_timeout_source_new(pauseMs_);
  pauseMs_ = std::min(pauseMs_ * 2, kPauseLongestMs);
  g_source_set_callback(
      resumeSource_,
      [](gpointer data) -> gboolean {
        auto* b = static_cast<Bridge*>(data);
        g_source_unref(b->resumeSource_);
        b->resumeSource_ = nullptr;
        b->listenSource_ = b->watch(b->listenFd_, G_IO_IN, 0);
        return G_SOURCE_REMOVE;
      },
      this, nullptr);
  g_source_attach(resumeSource_, context_);
}

void Bridge::setWatch(Conn& c, Router::ConnId id, GIOCondition condition) {
  if (c.source && c.watching == condition) return;
  if (c.source) {
    g_source_destroy(c.source);
    g_source_unref(c.source);
  }
  c.watching = condition;
  c.source = watch(c.fd, static_cast<GIOCondition>(condition | G_IO_HUP | G_IO_ERR), id);
}

void Bridge::readable(Router::ConnId id) {
  // One chunk per wake-up: a connection that floods cannot keep the others waiting.
  char buf[kReadChunk];
  for (;;) {
    auto it = conns_.find(id);
    if (it == conns_.end() || it->second.closing) return;
    ssize_t n = ::read(it->second.fd, buf, sizeof buf);
    if (n > 0) {
      router_.received(id, std::string_view(buf, static_cast<size_t>(n)));
      return;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;
    close(id);  // end of stream or an error: the hook is gone
    return;
  }
}

void Bridge::send(Router::ConnId id, std::string bytes) {
  auto it = conns_.find(id);
  if (it == conns_.end() || it->second.closing) return;
  it->second.out += bytes;
  flush(id);
}

void Bridge::finish(Router::ConnId id, std::string bytes) {
  auto it = conns_.find(id);
  if (it == conns_.end()) return;
  it->second.out += bytes;
  it->second.closing = true;
  flush(id);
}

void Bridge::drop(Router::ConnId id) {
  close(id);
}

size_t Bridge::unsent(Router::ConnId id) const {
  auto it = conns_.find(id);
  return it == conns_.end() ? 0 : it->second.out.size();
}

void Bridge::flush(Router::ConnId id) {
  auto it = conns_.find(id);
  if (it == conns_.end()) return;
  Conn& c = it->second;
  size_t done = 0;
  while (done < c.out.size()) {
    ssize_t n = ::send(c.fd, c.out.data() + done, c.out.size() - done, MSG_NOSIGNAL);
    if (n > 0) {
      done += static_cast<size_t>(n);
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      c.out.erase(0, done);
      if (c.out.size() > kMaxUnsent) break;
      // The peer reads slowly: go on when the socket can take more.
      setWatch(c, id, c.closing ? G_IO_OUT : static_cast<GIOCondition>(G_IO_IN | G_IO_OUT));
      return;
    }
    close(id);  // the peer is gone: nothing more to write
    return;
  }
  if (done < c.out.size() || c.closing) {
    close(id);
    return;
  }
  c.out.clear();
  setWatch(c, id, G_IO_IN);
}

void Bridge::close(Router::ConnId id) {
  auto node = conns_.extract(id);
  if (node.empty()) return;
  Conn& c = node.mapped();
  if (c.source) {
    g_source_destroy(c.source);
    g_source_unref(c.source);
  }
  ::close(c.fd);
  router_.ended(id);
}
