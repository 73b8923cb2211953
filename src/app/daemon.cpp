#include "app/daemon.h"

#include <glib-unix.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "app/instance.h"
#include "bridge/control.h"
#include "bridge/linux_bridge.h"
#include "core/defaults.h"
#include "core/files.h"
#include "core/hub.h"
#include "core/json.h"
#include "core/linux_glib_loop.h"
#include "integrations/codex_watcher.h"
#include "integrations/github.h"
#include "integrations/installers.h"
#include "usage/claude_transcripts.h"
#include "usage/pricing.h"

namespace Daemon {
namespace {

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

}  // namespace

int run(const Options& options) {
  ::signal(SIGPIPE, SIG_IGN);
  Instance::raiseFileLimit();
  JsonField::depthRejected = +[](size_t bytes, size_t depth) {
    g_warning("Vantler: dropped %zu bytes of JSON nested deeper than %zu levels", bytes, depth);
  };
  const std::string home = Files::home();
  std::string error;
  std::optional<Instance> instance = Instance::acquire(home, options.replace, error);
  if (!instance) {
    std::fprintf(stderr, "vantler: %s\n", error.c_str());
    return 1;
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

  // The socket listens before anything slow runs: hooks are answered from the first moment.
  Bridge bridge(hub, home, [&hub](const Json& command) { return Control::handle(hub, command); });
  if (!bridge.start()) {
    std::fprintf(stderr, "vantler: %s\n", bridge.error().c_str());
    return 1;
  }
  std::fprintf(stderr, "vantler: listening on %s\n", bridge.path().c_str());

  CodexWatcher codex(hub, loop, home);
  loop.post([&] {
    if (const char* demo = std::getenv("VANTLER_DEMO"); demo && *demo) {
      hub.loadDemo();
    } else {
      hub.restoreRecent();
      codex.start();
    }
    refreshHooks();
  });

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
  std::fprintf(stderr, "vantler: stopped\n");
  return 0;
}

}  // namespace Daemon
