#include "app/daemon.h"

#include <glib-unix.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>

#include "bridge/control.h"
#include "bridge/linux_bridge.h"
#include "core/defaults.h"
#include "core/files.h"
#include "core/hub.h"
#include "core/linux_glib_loop.h"
#include "integrations/codex_watcher.h"
#include "integrations/github.h"
#include "integrations/installers.h"
#include "usage/claude_transcripts.h"
#include "usage/pricing.h"

namespace Daemon {
namespace {

std::optional<pid_t> runningPid(const std::string& home) {
  auto text = Files::read(pidPath(home));
  if (!text) return std::nullopt;
  long pid = std::strtol(text->c_str(), nullptr, 10);
  if (pid <= 1 || pid == ::getpid()) return std::nullopt;
  if (::kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH) return std::nullopt;
  // A recycled pid is not ours unless its command line is vantler's.
  auto cmdline = Files::read("/proc/" + std::to_string(pid) + "/cmdline");
  if (!cmdline || cmdline->find("vantler") == std::string::npos) return std::nullopt;
  return static_cast<pid_t>(pid);
}

// Stops an older instance: SIGTERM, then SIGKILL after 1.2 s.
void terminate(pid_t pid) {
  ::kill(pid, SIGTERM);
  for (int i = 0; i < 24; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    if (::kill(pid, 0) != 0) return;
  }
  ::kill(pid, SIGKILL);
}

// Hooks written by an earlier version point at an older command: they are written again on
// every start. Errors here are not worth stopping for.
// A settings file that cannot be read is reported once here and otherwise left alone.
void refreshHooks() {
  try {
    ConfigFile::load(HookInstaller::settingsPath());
    if (HookInstaller::isInstalled() || HookInstaller::hasLegacyEntries()) HookInstaller::install();
  } catch (const std::exception& e) {
    g_warning("Vantler: %s", e.what());
  }
  try {
    const char* connect = std::getenv("VANTLER_CONNECT_CURSOR");
    if (Files::exists(Files::home() + "/.cursor")) ConfigFile::load(CursorHooks::path());
    if (CursorHooks::isInstalled() || (connect && *connect)) CursorHooks::install();
  } catch (const std::exception& e) {
    g_warning("Vantler: %s", e.what());
  }
}

void raiseFileLimit() {
  rlimit lim{};
  if (::getrlimit(RLIMIT_NOFILE, &lim) == 0 && lim.rlim_cur < lim.rlim_max) {
    lim.rlim_cur = lim.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &lim);
  }
}

}  // namespace

std::string pidPath(const std::string& home) {
  return Bridge::runDir(home) + "/vantler.pid";
}

int run(const Options& options) {
  ::signal(SIGPIPE, SIG_IGN);
  raiseFileLimit();
  const std::string home = Files::home();

  if (auto older = runningPid(home)) {
    if (!options.replace) {
      std::fprintf(stderr,
                   "vantler: already running (pid %d). Use 'vantler daemon --replace' to take "
                   "over.\n",
                   static_cast<int>(*older));
      return 1;
    }
    terminate(*older);
  }

  GLibLoop loop;
  Defaults defaults;
  HubOptions hubOptions{home, std::nullopt, true};
  if (const char* answer = std::getenv("VANTLER_DEBUG_ANSWER"); answer && *answer)
    hubOptions.debugAnswer = answer;
  HubPorts ports;
  ports.transcripts = std::make_shared<ClaudeTranscripts>();
  ports.recent = std::make_shared<ClaudeRecentTranscripts>(loop);
  ports.github = std::make_shared<GitHub>(loop);
  ports.models = std::make_shared<PricingCatalog>();
  Hub hub(loop, defaults, ports, hubOptions);
  Integrations::registerPrefs();
  CodexWatcher codex(hub, loop, home);
  if (const char* demo = std::getenv("VANTLER_DEMO"); demo && *demo) {
    hub.loadDemo();
  } else {
    hub.restoreRecent();
    codex.start();
  }
  refreshHooks();

  Bridge bridge(hub, home, [&hub](const Json& command) { return Control::handle(hub, command); });
  if (!bridge.start()) return 1;
  Files::writeAtomic(pidPath(home), std::to_string(::getpid()) + "\n", 0600);
  std::fprintf(stderr, "vantler: listening on %s\n", bridge.path().c_str());

  auto quit = +[](gpointer data) -> gboolean {
    static_cast<GLibLoop*>(data)->quit();
    return G_SOURCE_CONTINUE;
  };
  guint intSource = g_unix_signal_add(SIGINT, quit, &loop);
  guint termSource = g_unix_signal_add(SIGTERM, quit, &loop);
  loop.run();
  g_source_remove(intSource);
  g_source_remove(termSource);

  bridge.stop();
  if (auto text = Files::read(pidPath(home));
      text && std::strtol(text->c_str(), nullptr, 10) == ::getpid())
    ::unlink(pidPath(home).c_str());
  std::fprintf(stderr, "vantler: stopped\n");
  return 0;
}

}  // namespace Daemon
