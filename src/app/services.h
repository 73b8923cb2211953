#pragma once
// What every face of Vantler runs, with or without a window: the hub and its collaborators,
// the hook socket and the Codex watcher, started in one order by the daemon and by the
// desktop app. Which process may run them is decided before, by `Instance`.

#include <memory>
#include <optional>
#include <string>

#include "app/panel_remotes.h"
#include "bridge/linux_bridge.h"
#include "core/defaults.h"
#include "core/hub.h"
#include "core/linux_glib_loop.h"
#include "integrations/codex_watcher.h"
#include "integrations/linux_host_hooks.h"
#include "integrations/linux_host_transcripts.h"
#include "integrations/linux_subprocesses.h"
#include "integrations/linux_tunnels.h"

class Services {
 public:
  Services(GLibLoop& loop, std::string home);
  ~Services();
  Services(const Services&) = delete;
  Services& operator=(const Services&) = delete;

  // VANTLER_DEMO is set: demonstration sessions instead of the user's.
  static bool demo();

  // Listens on the hook socket. False when it cannot be bound; `bridgeError()` says why.
  bool startBridge();
  const std::string& bridgeError() const { return bridgeError_; }
  // Restores recently finished sessions, follows Codex and opens the tunnels to remote hosts,
  // or loads the demonstration sessions.
  void startSessions();
  // Rewrites installed Claude Code and Cursor hooks so they run the current vantler-hook.
  static void refreshHooks();
  // Asks connected agents whose hooks depend on their version for it, beside the loop, and
  // writes their hooks again with the answer.
  void askAgentVersions();
  // Each remote host's tunnel ({"hosts": [...]}) and hook program ({"hooks": {...}}).
  Json remotesStatus() const;
  // Stops listening; the socket file goes if it is still the one this process made.
  void stop();

  Hub& hub() { return hub_; }
  Defaults& defaults() { return defaults_; }
  Bridge* bridge() { return bridge_.get(); }
  const std::string& home() const { return home_; }

 private:
  GLibLoop& loop_;
  std::string home_;
  Defaults defaults_;
  // Reads the transcripts of remote sessions through the tunnels' connections.
  std::shared_ptr<HostTranscriptReader> hostTranscripts_;
  Hub hub_;
  CodexWatcher codex_;
  std::unique_ptr<Bridge> bridge_;
  std::string bridgeError_;
  // The tunnels to remote hosts, kept while the bridge listens.
  std::unique_ptr<Tunnels> tunnels_;
  // Brings the hook program on those hosts to this version as their tunnels come up.
  std::unique_ptr<HostHooks> hostHooks_;
  // Agents' own programs asked for their version.
  Subprocesses programs_{loop_};
  // Remote hosts listed, added and removed from the settings page.
  std::unique_ptr<RemoteSettings> remoteSettings_;
};
