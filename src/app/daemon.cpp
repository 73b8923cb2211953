#include "app/daemon.h"

#include <glib-unix.h>
#include <signal.h>
#include <sys/resource.h>

#include <cstdio>

#include "app/services.h"
#include "core/files.h"

namespace Daemon {
namespace {

void raiseFileLimit() {
  rlimit lim{};
  if (::getrlimit(RLIMIT_NOFILE, &lim) == 0 && lim.rlim_cur < lim.rlim_max) {
    lim.rlim_cur = lim.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &lim);
  }
}

}  // namespace

int run(const Options& options) {
  ::signal(SIGPIPE, SIG_IGN);
  raiseFileLimit();
  const std::string home = Files::home();

  if (auto older = Instance::running(home)) {
    if (!options.replace) {
      std::fprintf(stderr,
                   "vantler: already running (pid %d). Use 'vantler daemon --replace' to take "
                   "over.\n",
                   static_cast<int>(*older));
      return 1;
    }
    Instance::terminate(*older);
  }

  GLibLoop loop;
  // Handled from the start: a signal that arrives while the rest starts still ends cleanly.
  auto quit = +[](gpointer data) -> gboolean {
    static_cast<GLibLoop*>(data)->quit();
    return G_SOURCE_CONTINUE;
  };
  guint intSource = g_unix_signal_add(SIGINT, quit, &loop);
  guint termSource = g_unix_signal_add(SIGTERM, quit, &loop);
  Services services(loop, home);
  // The socket first: hooks that fire while the rest starts are already heard.
  if (!services.startBridge()) {
    g_source_remove(intSource);
    g_source_remove(termSource);
    return 1;
  }
  Instance::claim(home);
  services.startSessions();
  Services::refreshHooks();
  std::fprintf(stderr, "vantler: listening on %s\n", services.bridge()->path().c_str());
  loop.run();
  g_source_remove(intSource);
  g_source_remove(termSource);

  services.stop();
  std::fprintf(stderr, "vantler: stopped\n");
  return 0;
}

}  // namespace Daemon
