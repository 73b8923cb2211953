#include "app/services.h"

#include <cstdlib>

#include "bridge/control.h"
#include "core/files.h"
#include "integrations/github.h"
#include "integrations/installers.h"
#include "integrations/more_agents.h"
#include "integrations/tmux_replies.h"
#include "usage/claude_transcripts.h"
#include "usage/pricing.h"

namespace {

HubPorts hubPorts(GLibLoop& loop) {
  HubPorts ports;
  ports.transcripts = std::make_shared<ClaudeTranscripts>();
  ports.recent = std::make_shared<ClaudeRecentTranscripts>(loop);
  ports.github = std::make_shared<GitHub>(loop);
  ports.models = std::make_shared<PricingCatalog>();
  ports.typist = std::make_shared<TmuxReplies>(loop);
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
    : home_(std::move(home)),
      hub_(loop, defaults_, hubPorts(loop), hubOptions(home_)),
      codex_(hub_, loop, home_) {
  Integrations::registerPrefs();
  JsonField::depthRejected = +[](size_t bytes, size_t depth) {
    g_warning("Vantler: dropped %zu bytes of JSON nested deeper than %zu levels", bytes, depth);
  };
}

Services::~Services() {
  stop();
}

bool Services::demo() {
  const char* demo = std::getenv("VANTLER_DEMO");
  return demo && *demo;
}

bool Services::startBridge() {
  if (bridge_) return true;
  auto bridge = std::make_unique<Bridge>(
      hub_, home_, [this](const Json& command) { return Control::handle(hub_, command); });
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
}

void Services::refreshHooks() {
  // Hooks written by an earlier version point at an older command: they are written again on
  // every start. A settings file that cannot be read is reported once here and otherwise left
  // alone; nothing here is worth stopping for.
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
  if (bridge_) bridge_->stop();
}
