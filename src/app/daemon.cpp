#include "app/daemon.h"

#include <glib-unix.h>
#include <signal.h>

#include <cstdio>
#include <optional>

#include "app/instance.h"
#include "app/services.h"
#include "core/files.h"

namespace Daemon {

int run(const Options& options) {
  ::signal(SIGPIPE, SIG_IGN);
  Instance::raiseFileLimit();
  const std::string home = Files::home();
  std::string error;
  std::optional<Instance> instance = Instance::acquire(home, options.replace, error);
  if (!instance) {
    std::fprintf(stderr, "vantler: %s\n", error.c_str());
    return 1;
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
  // The socket listens before anything slow runs: hooks are answered from the first moment.
  if (!services.startBridge()) {
    std::fprintf(stderr, "vantler: %s\n", services.bridgeError().c_str());
    g_source_remove(intSource);
    g_source_remove(termSource);
    return 1;
  }
  std::fprintf(stderr, "vantler: listening on %s\n", services.bridge()->path().c_str());
  loop.post([&services] {
    services.startSessions();
    Services::refreshHooks();
  });
  loop.run();
  g_source_remove(intSource);
  g_source_remove(termSource);

  services.stop();
  std::fprintf(stderr, "vantler: stopped\n");
  return 0;
}

}  // namespace Daemon
