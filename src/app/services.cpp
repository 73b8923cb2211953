#include "app/services.h"

#include <cstdlib>
#include <fstream>

#include "app/linux_raise.h"

#include "bridge/control.h"
#include "core/files.h"
#include "core/prefs.h"
#include "integrations/file_access.h"
#include "integrations/github.h"
#include "integrations/installers.h"
#include "integrations/linux_host_transcripts.h"
#include "integrations/linux_jump.h"
#include "integrations/more_agents.h"
#include "integrations/tmux_replies.h"
#include "usage/agent_transcripts.h"
#include "usage/claude_transcripts.h"
#include "usage/pricing.h"
#include "version.h"

namespace {

// Each jump step that cannot be taken says why in the system log, and in the trace log when
// VANTLER_TRACE is set.
void jumpLog(const Loop& loop, const std::string& home, const std::string& line) {
  g_message("Vantler jump: %s", line.c_str());
  const char* trace = std::getenv("VANTLER_TRACE");
  if (!trace) return;
  Files::makeDirs(home + "/.vantler", 0700);
  char stamp[32];
  std::snprintf(stamp, sizeof stamp, "%.3f ", loop.uptime());
  std::ofstream(home + "/.vantler/hover.log", std::ios::app) << stamp << "JUMP " << line << '\n';
}

HubPorts hubPorts(GLibLoop& loop, const std::string& home,
                  std::shared_ptr<HostTranscriptReader> hostTranscripts) {
  HubPorts ports;
  ports.hostTranscripts = std::move(hostTranscripts);
  ports.transcripts = std::make_shared<AnyTranscripts>();
  ports.recent = std::make_shared<ClaudeRecentTranscripts>(loop);
  ports.github = std::make_shared<GitHub>(loop);
  ports.models = std::make_shared<PricingCatalog>();
  ports.typist = std::make_shared<TmuxReplies>(loop);
  ports.jumper = std::make_shared<TerminalJumper>(
      loop, std::make_shared<LinuxWindowRaiser>(loop),
      [&loop, home](const std::string& line) { jumpLog(loop, home, line); });
  return ports;
}

HubOptions hubOptions(const std::string& home) {
  HubOptions options{home, std::nullopt, true};
  if (const char* answer = std::getenv("VANTLER_DEBUG_ANSWER"); answer && *answer)
    options.debugAnswer = answer;
  return options;
}

}  // namespace

Services::Services(GLibLoop& loop, std::string home)
    : loop_(loop),
      home_(std::move(home)),
      hostTranscripts_(std::make_shared<HostTranscriptReader>(
          loop, [] { return std::make_unique<ClaudeFigures>(); })),
      hub_(loop, defaults_, hubPorts(loop, home_, hostTranscripts_), hubOptions(home_)),
      codex_(hub_, loop, home_) {
  hostTranscripts_->onFigures = [this](const std::string& id, const TranscriptStats& stats) {
    return hub_.hostFigures(id, stats);
  };
  Integrations::registerPrefs();
  remoteSettings_ = std::make_unique<RemoteSettings>(
      loop_, Files::executable(), [this] { return remotesStatus(); },
      [this] {
        if (tunnels_) tunnels_->reload();
        hub_.changed();
      });
  Prefs::addReporter([this](Json& settings) { remoteSettings_->report(settings); });
  Prefs::addHandler([this](std::string_view key, const Json& value, std::string& error) {
    return remoteSettings_->set(key, value, error);
  });
  JsonField::depthRejected = +[](size_t bytes, size_t depth) {
    g_warning("Vantler: dropped %zu bytes of JSON nested deeper than %zu levels", bytes, depth);
  };
}

Services::~Services() {
  stop();
  Prefs::resetExtensions();
}

bool Services::demo() {
  const char* demo = std::getenv("VANTLER_DEMO");
  return demo && *demo;
}

bool Services::startBridge() {
  if (bridge_) return true;
  auto bridge = std::make_unique<Bridge>(hub_, home_, [this](const Json& command) {
    // `vantler remote` changed the host list: the tunnels follow it.
    if (JsonField::str(command, "type") == "remotes") {
      remoteSettings_->reload();
      if (tunnels_) tunnels_->reload();
      hub_.changed();
      Json answer = remotesStatus();
      answer["ok"] = true;
      return answer;
    }
    return Control::handle(hub_, command);
  });
  if (!bridge->start()) {
    bridgeError_ = bridge->error();
    return false;
  }
  bridge_ = std::move(bridge);
  return true;
}

void Services::startSessions() {
  if (demo()) {
    hub_.loadDemo();
    return;
  }
  hub_.restoreRecent();
  codex_.start();
  askAgentVersions();
  if (bridge_ && !tunnels_) {
    tunnels_ = std::make_unique<Tunnels>(loop_, bridge_->path(), &Bridge::socketPath);
    bridge_->setMachineOf([this](int32_t pid) { return tunnels_->machineOf(pid); });
    hostTranscripts_->command = [this](const std::string& host) {
      return tunnels_ ? tunnels_->sshThrough(host) : std::nullopt;
    };
    hostHooks_ = std::make_unique<HostHooks>(
        loop_, std::string("vantler-hook ") + Version::kVersion,
        [](const std::string& host) {
          return std::vector<std::string>{Files::executable(), "remote", "update", host};
        },
        // Every step is logged; the settings page shows the hook's state as it goes.
        [this](const std::string& line) {
          g_message("Vantler remote: %s", line.c_str());
          hub_.changed();
        });
    tunnels_->onUp([this](const std::string& host) { hostHooks_->tunnelUp(host); });
    tunnels_->onChange([this] { hub_.changed(); });
    tunnels_->reload();
  }
}

Json Services::remotesStatus() const {
  return {{"hosts", tunnels_ ? tunnels_->status() : Json::array()},
          {"hooks", hostHooks_ ? hostHooks_->status() : Json::object()}};
}

void Services::askAgentVersions() {
  // Mistral Vibe renamed its hook tables in 2.21; which form to write is known only from its
  // own `--version`, which may take seconds, so it is asked beside the loop and the hooks are
  // written again with the answer.
  if (!MoreAgents::isInstalled("vibe")) return;
  Subprocesses::Options options;
  options.deadline = 10;
  programs_.run({"vibe", "--version"}, options, [](const Subprocesses::Result& r) {
    if (!r.exited0 || !MoreAgents::isInstalled("vibe")) return;
    ConfigFile::rememberVersion("vibe", r.out.empty() ? r.err : r.out);
    try {
      MoreAgents::install("vibe");
    } catch (const std::exception& e) {
      g_warning("Vantler: %s", e.what());
    }
  });
}

void Services::refreshHooks() {
  // Hooks written by an earlier version point at an older command: they are written again on
  // every start. A settings file that cannot be read is reported once here and otherwise left
  // alone; nothing here is worth stopping for.
  try {
    // Every connected agent runs the one copy in ~/.vantler/bin: after an upgrade it is
    // replaced by the installed vantler-hook even when Claude Code is not connected.
    if (Files::exists(HookInstaller::binPath())) HookInstaller::copyBinary();
  } catch (const std::exception& e) {
    g_warning("Vantler: %s", e.what());
  }
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
  // Plugins and hook scripts of the further agents carry this version's text.
  for (std::string_view id : MoreAgents::ids()) {
    try {
      if (MoreAgents::isInstalled(id)) MoreAgents::install(id);
    } catch (const std::exception& e) {
      g_warning("Vantler: %s", e.what());
    }
  }
}

void Services::stop() {
  if (bridge_) bridge_->setMachineOf({});
  hostTranscripts_->command = {};
  tunnels_.reset();
  hostHooks_.reset();
  if (bridge_) bridge_->stop();
}
