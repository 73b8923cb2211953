#include "app/services.h"

#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <thread>

#include "bridge/control.h"
#include "core/files.h"
#include "integrations/github.h"
#include "integrations/installers.h"
#include "usage/claude_transcripts.h"

namespace {

HubPorts hubPorts(GLibLoop& loop) {
  HubPorts ports;
  ports.transcripts = std::make_shared<ClaudeTranscripts>();
  ports.recent = std::make_shared<ClaudeRecentTranscripts>(loop);
  ports.github = std::make_shared<GitHub>(loop);
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
  if (!bridge->start()) return false;
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
  // every start. Errors here are not worth stopping for.
  try {
    if (HookInstaller::isInstalled()) {
      HookInstaller::install();
    } else if (auto text = Files::read(HookInstaller::settingsPath());
               text && text->find(HookInstaller::kLegacyMarker) != std::string::npos) {
      HookInstaller::install();
    }
  } catch (const InstallError& e) {
    g_warning("Vantler: %s", e.what());
  }
  try {
    const char* connect = std::getenv("VANTLER_CONNECT_CURSOR");
    if (CursorHooks::isInstalled() || (connect && *connect)) CursorHooks::install();
  } catch (const InstallError& e) {
    g_warning("Vantler: %s", e.what());
  }
}

void Services::stop() {
  if (bridge_) bridge_->stop();
  Instance::release(home_);
}

namespace Instance {

std::string pidPath(const std::string& home) {
  return Bridge::runDir(home) + "/vantler.pid";
}

std::optional<pid_t> running(const std::string& home) {
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

void terminate(pid_t pid) {
  ::kill(pid, SIGTERM);
  for (int i = 0; i < 24; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    if (::kill(pid, 0) != 0) return;
  }
  ::kill(pid, SIGKILL);
}

void claim(const std::string& home) {
  Files::makeDirs(Bridge::runDir(home), 0700);
  Files::writeAtomic(pidPath(home), std::to_string(::getpid()) + "\n", 0600);
}

void release(const std::string& home) {
  if (auto text = Files::read(pidPath(home));
      text && std::strtol(text->c_str(), nullptr, 10) == ::getpid())
    ::unlink(pidPath(home).c_str());
}

}  // namespace Instance
