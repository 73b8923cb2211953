#pragma once
// What every face of Vantler runs, with or without a window: the hub and its collaborators,
// the hook socket and the Codex watcher, started in one order by the daemon and by the
// desktop app; and the hand-over from an older running instance through the pid file.

#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>

#include "bridge/linux_bridge.h"
#include "core/defaults.h"
#include "core/hub.h"
#include "core/linux_glib_loop.h"
#include "integrations/codex_watcher.h"

class Services {
 public:
  Services(GLibLoop& loop, std::string home);
  ~Services();
  Services(const Services&) = delete;
  Services& operator=(const Services&) = delete;

  // VANTLER_DEMO is set: demonstration sessions instead of the user's.
  static bool demo();

  // Listens on the hook socket. False, with the reason logged, when it cannot be bound.
  bool startBridge();
  // Restores recently finished sessions and follows Codex, or loads the demonstration
  // sessions.
  void startSessions();
  // Rewrites installed Claude Code and Cursor hooks so they run the current vantler-hook.
  static void refreshHooks();
  // Stops listening (the socket file goes) and gives up the pid file.
  void stop();

  Hub& hub() { return hub_; }
  Defaults& defaults() { return defaults_; }
  Bridge* bridge() { return bridge_.get(); }
  const std::string& home() const { return home_; }

 private:
  std::string home_;
  Defaults defaults_;
  Hub hub_;
  CodexWatcher codex_;
  std::unique_ptr<Bridge> bridge_;
};

namespace Instance {

// The pid file of the running instance, in the run directory.
std::string pidPath(const std::string& home);
// The pid of another live vantler process named by the pid file.
std::optional<pid_t> running(const std::string& home);
// Stops an older instance: SIGTERM, then SIGKILL after 1.2 s.
void terminate(pid_t pid);
// Records this process as the running instance.
void claim(const std::string& home);
// Removes the pid file if it still names this process.
void release(const std::string& home);

}  // namespace Instance
