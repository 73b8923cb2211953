#include "integrations/linux_tunnels.h"

#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <functional>

#include "core/files.h"
#include "core/text.h"

struct Tunnels::Tunnel {
  RemoteHost host;
  GSubprocess* ssh = nullptr;
  GCancellable* cancel = nullptr;
  int32_t pid = 0;
  double startedAt = 0;  // uptime
  double retry = kFirstRetry;
  Loop::TaskId retryTask = 0;
  std::string state = "starting";
  double lastEvent = 0;  // wall time
  bool stopped = false;
};

namespace {

int32_t parentOf(int32_t pid) {
  // /proc/<pid>/stat: "pid (comm) state ppid ...", where comm may hold spaces and parentheses.
  auto stat = Files::read("/proc/" + std::to_string(pid) + "/stat");
  size_t close = stat ? stat->rfind(')') : std::string::npos;
  if (close == std::string::npos || close + 4 > stat->size()) return 0;
  return static_cast<int32_t>(std::atoi(stat->c_str() + close + 4));
}

std::string clock(double wall) {
  char text[32];
  time_t t = static_cast<time_t>(wall);
  std::strftime(text, sizeof text, "%H:%M:%S", std::localtime(&t));
  return text;
}

}  // namespace

Tunnels::Tunnels(Loop& loop, std::string localSocket,
                 std::function<std::string(const std::string& home)> socketAt)
    : loop_(loop),
      localSocket_(std::move(localSocket)),
      socketAt_(std::move(socketAt)),
      runner_(loop) {}

Tunnels::~Tunnels() {
  for (auto& [name, tunnel] : tunnels_) stop(*tunnel);
}

void Tunnels::reload() {
  std::vector<RemoteHost> hosts = RemoteHosts::load();
  std::erase_if(hosts, [](const RemoteHost& h) { return !h.container.empty(); });
  for (auto it = tunnels_.begin(); it != tunnels_.end();) {
    bool kept = std::any_of(hosts.begin(), hosts.end(),
                            [&](const RemoteHost& h) { return h.name == it->first; });
    if (kept) {
      ++it;
      continue;
    }
    stop(*it->second);
    it = tunnels_.erase(it);
  }
  for (RemoteHost& host : hosts) {
    if (tunnels_.count(host.name)) continue;
    auto tunnel = std::make_shared<Tunnel>();
    tunnel->host = std::move(host);
    tunnels_[tunnel->host.name] = tunnel;
    prepare(tunnel);
  }
}

void Tunnels::prepare(const std::shared_ptr<Tunnel>& tunnel) {
  tunnel->state = "connecting";
  std::vector<std::string> argv = RemoteHosts::ssh(tunnel->host.name);
  argv.push_back(RemoteHosts::remoteCommand(RemoteHosts::prepareScript(), {}));
  std::weak_ptr<Tunnel> weak = tunnel;
  Subprocesses::Options options;
  options.deadline = 30;
  bool started = runner_.run(argv, options, [this, weak](const Subprocesses::Result& r) {
    auto t = weak.lock();
    if (!t || t->stopped) return;
    std::string home = Text::lastLine(r.out);
    if (!r.exited0 || home.empty() || home[0] != '/')
      return ended(
          t, r.finished ? RemoteHosts::loginProblem(t->host.name, r.err) : "no answer within 30 s");
    open(t, home);
  });
  if (!started) ended(tunnel, "cannot run ssh");
}

void Tunnels::open(const std::shared_ptr<Tunnel>& tunnel, const std::string& home) {
  std::vector<std::string> argv = RemoteHosts::ssh(tunnel->host.name);
  // Our own connection, never one the user's configuration shares: the peer of a forwarded
  // connection must be this process. It is also the master of a control socket of ours, through
  // which the host's transcripts are read: the connection that brings the host's events already
  // exists, so reading costs no second login, and it stops exactly when the host is out of
  // reach. A socket left by a master that was killed would turn it away: removed first.
  const std::string control = controlPath(tunnel->host.name);
  ::unlink(control.c_str());
  argv.insert(argv.begin() + 1,
              {"-n", "-N", "-o", "ExitOnForwardFailure=yes", "-o", "StreamLocalBindMask=0177", "-o",
               "StreamLocalBindUnlink=yes", "-o", "ControlMaster=yes", "-o",
               "ControlPath=" + control, "-R", socketAt_(home) + ":" + localSocket_});
  std::vector<const gchar*> args;
  for (const std::string& a : argv) args.push_back(a.c_str());
  args.push_back(nullptr);
  GError* error = nullptr;
  GSubprocessLauncher* launcher = g_subprocess_launcher_new(static_cast<GSubprocessFlags>(
      G_SUBPROCESS_FLAGS_STDOUT_SILENCE | G_SUBPROCESS_FLAGS_STDERR_PIPE));
  // A group of its own, stopped as a whole: a wrapper in VANTLER_SSH may not exec ssh.
  g_subprocess_launcher_set_child_setup(
      launcher, [](gpointer) { ::setpgid(0, 0); }, nullptr, nullptr);
  tunnel->ssh = g_subprocess_launcher_spawnv(launcher, args.data(), &error);
  g_object_unref(launcher);
  if (!tunnel->ssh) {
    std::string why = error ? error->message : "cannot run ssh";
    g_clear_error(&error);
    return ended(tunnel, why);
  }
  tunnel->pid = static_cast<int32_t>(std::atoi(g_subprocess_get_identifier(tunnel->ssh)));
  tunnel->startedAt = loop_.uptime();
  tunnel->state = "up since " + clock(loop_.wall());
  if (up_) up_(tunnel->host.name);
  if (changed_) changed_();
  tunnel->cancel = g_cancellable_new();
  // The holder keeps the tunnel alive until ssh's end is read; a stopped one is ignored then.
  auto* holder = new std::pair<Tunnels*, std::weak_ptr<Tunnel>>(this, tunnel);
  g_subprocess_communicate_utf8_async(
      tunnel->ssh, nullptr, tunnel->cancel,
      [](GObject* source, GAsyncResult* result, gpointer data) {
        auto* held = static_cast<std::pair<Tunnels*, std::weak_ptr<Tunnel>>*>(data);
        char* err = nullptr;
        GError* error = nullptr;
        bool read = g_subprocess_communicate_utf8_finish(G_SUBPROCESS(source), result, nullptr,
                                                         &err, &error);
        std::string text = err ? err : "";
        g_free(err);
        bool cancelled = g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CANCELLED);
        g_clear_error(&error);
        auto tunnel = held->second.lock();
        Tunnels* self = held->first;
        delete held;
        if (cancelled || !tunnel || tunnel->stopped) return;
        g_clear_object(&tunnel->ssh);
        g_clear_object(&tunnel->cancel);
        tunnel->pid = 0;
        std::string why = Text::lastLine(text);
        self->ended(tunnel, read && !why.empty() ? why : "the connection ended");
      },
      holder);
}

void Tunnels::ended(const std::shared_ptr<Tunnel>& tunnel, const std::string& why) {
  if (tunnel->startedAt > 0 && loop_.uptime() - tunnel->startedAt >= kSteady)
    tunnel->retry = kFirstRetry;
  tunnel->startedAt = 0;
  const double pause = tunnel->retry;
  tunnel->retry = std::min(tunnel->retry * 2, kLongestRetry);
  tunnel->state = "down (" + why + "); trying again at " + clock(loop_.wall() + pause);
  if (changed_) changed_();
  std::weak_ptr<Tunnel> weak = tunnel;
  tunnel->retryTask = loop_.after(pause, [this, weak] {
    auto t = weak.lock();
    if (!t || t->stopped) return;
    t->retryTask = 0;
    prepare(t);
  });
}

void Tunnels::stop(Tunnel& tunnel) {
  tunnel.stopped = true;
  if (tunnel.retryTask) loop_.cancel(tunnel.retryTask);
  tunnel.retryTask = 0;
  if (tunnel.cancel) g_cancellable_cancel(tunnel.cancel);
  if (tunnel.ssh && tunnel.pid > 0) ::kill(-tunnel.pid, SIGTERM);
  g_clear_object(&tunnel.ssh);
  g_clear_object(&tunnel.cancel);
  tunnel.pid = 0;
}

std::optional<std::string> Tunnels::machineOf(int32_t pid) {
  if (tunnels_.empty()) return std::nullopt;
  // The ssh we started, or a child of it: a wrapper in VANTLER_SSH may run ssh without exec.
  for (int depth = 0; depth < 3 && pid > 1; ++depth) {
    for (auto& [name, tunnel] : tunnels_) {
      if (tunnel->pid != pid) continue;
      tunnel->lastEvent = loop_.wall();
      return name;
    }
    pid = parentOf(pid);
  }
  return std::nullopt;
}

std::string Tunnels::controlPath(const std::string& host) const {
  // Beside the local socket, in the owner-only run directory; a short name, since a socket's
  // path is limited to about a hundred bytes.
  char name[32];
  std::snprintf(name, sizeof name, "/ssh-%016zx", std::hash<std::string>{}(host));
  return Files::parent(localSocket_) + name;
}

std::optional<std::vector<std::string>> Tunnels::sshThrough(const std::string& host) const {
  auto found = tunnels_.find(host);
  if (found == tunnels_.end() || found->second->pid <= 0) return std::nullopt;
  // Only through the master: without its socket ssh would log in on its own.
  const std::string control = controlPath(host);
  struct stat info;
  if (::stat(control.c_str(), &info) != 0 || !S_ISSOCK(info.st_mode)) return std::nullopt;
  std::vector<std::string> argv = RemoteHosts::ssh(host);
  argv.insert(argv.begin() + 1, {"-o", "ControlMaster=no", "-o", "ControlPath=" + control});
  return argv;
}

Json Tunnels::status() const {
  Json list = Json::array();
  for (const auto& [name, tunnel] : tunnels_)
    list.push_back({{"name", name}, {"state", tunnel->state}, {"lastEvent", tunnel->lastEvent}});
  return list;
}
