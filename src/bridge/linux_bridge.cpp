#include "bridge/linux_bridge.h"

#include <errno.h>
#include <fcntl.h>
#include <glib-unix.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

#include "core/files.h"

namespace {

struct Watch {
  Bridge* bridge;
  Router::ConnId id;  // 0 for the listening socket
};

}  // namespace

std::string Bridge::runDir(const std::string& home) {
  return home + "/.vantler/run";
}

std::string Bridge::socketPath(const std::string& home) {
  return runDir(home) + "/vantler.sock";
}

Bridge::Bridge(Hub& hub, std::string home, Router::CommandHandler commands, GMainContext* context)
    : home_(std::move(home)),
      path_(socketPath(home_)),
      context_(context ? g_main_context_ref(context) : g_main_context_ref_thread_default()),
      router_(hub, *this, std::move(commands)) {}

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
  std::string dir = runDir(home_);
  Files::makeDirs(dir, 0700);
  ::chmod(dir.c_str(), 0700);
  ::unlink(path_.c_str());

  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  if (path_.size() >= sizeof addr.sun_path) {
    g_warning("Vantler: cannot listen on %s (path too long)", path_.c_str());
    return false;
  }
  std::memcpy(addr.sun_path, path_.c_str(), path_.size() + 1);
  int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  // The socket file is created owner-only: no other user may reach the hub.
  mode_t old = ::umask(0177);
  bool ok = fd >= 0 && ::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
  ::umask(old);
  ok = ok && ::listen(fd, SOMAXCONN) == 0;
  if (!ok) {
    g_warning("Vantler: cannot listen on %s: %s", path_.c_str(), std::strerror(errno));
    if (fd >= 0) ::close(fd);
    return false;
  }
  ::chmod(path_.c_str(), 0600);
  listenFd_ = fd;
  listenSource_ = watch(fd, G_IO_IN, 0);
  return true;
}

void Bridge::stop() {
  if (listenFd_ < 0) return;
  g_source_destroy(listenSource_);
  g_source_unref(listenSource_);
  listenSource_ = nullptr;
  ::close(listenFd_);
  listenFd_ = -1;
  ::unlink(path_.c_str());
}

void Bridge::acceptAll() {
  for (;;) {
    int fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) {
      if (errno == EINTR) continue;
      if (errno != EAGAIN && errno != EWOULDBLOCK)
        g_warning("Vantler bridge failed: %s", std::strerror(errno));
      return;
    }
    ucred cred{};
    socklen_t len = sizeof cred;
    if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &len) != 0 || cred.uid != ::getuid()) {
      g_warning("Vantler: refused a connection from user %u", static_cast<unsigned>(cred.uid));
      ::close(fd);
      continue;
    }
    Router::ConnId id = nextId_++;
    conns_[id] = Conn{
        fd, watch(fd, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP | G_IO_ERR), id), {}, false};
    router_.opened(id);
  }
}

void Bridge::readable(Router::ConnId id) {
  char buf[65536];
  for (;;) {
    auto it = conns_.find(id);
    if (it == conns_.end() || it->second.closing) return;
    ssize_t n = ::read(it->second.fd, buf, sizeof buf);
    if (n > 0) {
      router_.received(id, std::string_view(buf, static_cast<size_t>(n)));
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;
    close(id);  // end of stream or an error: the hook is gone
    return;
  }
}

void Bridge::finish(Router::ConnId id, std::string bytes) {
  auto it = conns_.find(id);
  if (it == conns_.end()) return;
  Conn& c = it->second;
  c.out += bytes;
  c.closing = true;
  flush(id);
}

void Bridge::drop(Router::ConnId id) {
  close(id);
}

void Bridge::flush(Router::ConnId id) {
  auto it = conns_.find(id);
  if (it == conns_.end()) return;
  Conn& c = it->second;
  while (!c.out.empty()) {
    ssize_t n = ::send(c.fd, c.out.data(), c.out.size(), MSG_NOSIGNAL);
    if (n > 0) {
      c.out.erase(0, static_cast<size_t>(n));
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      // The peer reads slowly: finish when the socket can take more.
      g_source_destroy(c.source);
      g_source_unref(c.source);
      c.source = watch(c.fd, static_cast<GIOCondition>(G_IO_OUT | G_IO_HUP | G_IO_ERR), id);
      return;
    }
    break;  // the peer is gone: nothing more to write
  }
  close(id);
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
