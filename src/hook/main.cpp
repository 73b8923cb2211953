// vantler-hook <agent>: run by an agent's hook on every hook event. Forwards the hook payload
// from standard input, with what it knows of the agent's process, as one JSON line to the
// Vantler app's socket, and prints the app's one-line answer for the agent.
//
// It must never hurt the agent: when the app is not running, not ours, stopped or swamped it
// exits within a fraction of a second with status 0, bad input is dropped, and nothing it does
// fails the agent's action. While the app holds a request (a permission prompt can take
// minutes) it waits as long as the app keeps saying it is there; the agent's own hook timeout
// ends it. The exchange is described in bridge/wire.h.

#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "bridge/wire.h"
#include "core/json.h"
#include "hook/agent_settings.h"
#include "hook/surroundings.h"

#if __has_include("version.h")
#include "version.h"
#define VANTLER_HOOK_VERSION Version::kVersion
#else
#define VANTLER_HOOK_VERSION "development build"
#endif

namespace {

constexpr std::string_view kUsage =
    "usage: vantler-hook <agent> [<event>]\n"
    "\n"
    "Run by an AI coding agent's hook: reads the hook's JSON payload on standard input, sends\n"
    "it to the Vantler app, and prints the app's answer, if any, on standard output.\n"
    "<agent> is the agent's name: claude, codex, cursor, gemini, droid, opencode, copilot,\n"
    "windsurf, qwen, qoder, codebuddy, devin, augment, kimi, goose, cline, kiro, vibe, crush,\n"
    "junie, aider, amp, kilo. <event> names the hook event for agents whose payloads do not\n"
    "(Copilot CLI, Augment, Cline, Aider).\n"
    "\n"
    "  --version  print the version\n"
    "  --help     print this help\n";

void writeAll(int fd, std::string_view data) {
  while (!data.empty()) {
    ssize_t n = ::write(fd, data.data(), data.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;
    data.remove_prefix(static_cast<size_t>(n));
  }
}

// All of standard input, or nothing when it is longer than the app would take.
std::optional<std::string> readInput(int fd) {
  std::string out;
  char buf[65536];
  for (;;) {
    ssize_t n = ::read(fd, buf, sizeof buf);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    out.append(buf, static_cast<size_t>(n));
    if (out.size() > Wire::kMaxLine) return std::nullopt;
  }
  return out;
}

// $HOME, else the user's line of /etc/passwd. The hook is linked statically, so it runs on any
// Linux it is copied to, and does not use the name service, which needs the shared libc.
std::string homeDirectory() {
  const char* home = std::getenv("HOME");
  if (home && *home) return home;
  FILE* passwd = std::fopen("/etc/passwd", "re");
  if (!passwd) return {};
  const std::string uid = ":" + std::to_string(::getuid()) + ":";
  std::string found;
  char line[4096];
  while (found.empty() && std::fgets(line, sizeof line, passwd)) {
    // name:password:uid:gid:gecos:home:shell
    std::string_view entry(line);
    size_t first = entry.find(':');
    size_t second = first == entry.npos ? entry.npos : entry.find(':', first + 1);
    if (second == entry.npos || entry.substr(second, uid.size()) != uid) continue;
    size_t at = second;
    for (int field = 2; field < 5 && at != entry.npos; ++field) at = entry.find(':', at + 1);
    if (at == entry.npos) continue;
    std::string_view dir = entry.substr(at + 1);
    found = dir.substr(0, dir.find(':'));
  }
  std::fclose(passwd);
  return found;
}

// Sends the request line and waits for the app's answer as the protocol has it: the answer
// comes at once, or the app says it holds the request and keeps saying so until it answers.
// False when there is no answer: no app, not ours, too slow, or gone silent.
bool ask(const std::string& line, std::string& answer) {
  const std::string home = homeDirectory();
  if (home.empty() || Wire::runDirProblem(Wire::runDir(home))) return false;
  const auto deadline = Wire::Clock::now() + Wire::kFirstLineWithin;
  int fd = Wire::connectBy(Wire::socketPath(home), deadline);
  if (fd < 0) return false;
  // The write side stays open while waiting: the app takes a closed connection for a hook that
  // has gone away and withdraws the request.
  std::string pending;
  bool ok = Wire::sendBy(fd, line, deadline) &&
            Wire::lineBy(fd, pending, answer, deadline) == Wire::Read::kLine;
  while (ok && Wire::isSignal(answer))
    ok = Wire::lineBy(fd, pending, answer, Wire::Clock::now() + Wire::kSilenceLimit) ==
         Wire::Read::kLine;
  ::close(fd);
  return ok;
}

// What Cursor must read when the app gives no answer: its hooks expect JSON on standard output,
// and a prompt hook that answers nothing would hold the prompt.
std::string_view cursorFallback(const Json& payload) {
  if (payload.is_object()) {
    auto event = payload.find("hook_event_name");
    if (event != payload.end() && event->is_string() &&
        event->get_ref<const std::string&>() == "beforeSubmitPrompt") {
      return "{\"continue\":true}\n";
    }
  }
  return "{}\n";
}

// What an agent whose hook must print JSON reads when the app gives no answer: Cline's "no
// objection".
std::string_view fallbackFor(std::string_view agent, const Json& payload) {
  if (agent == "cursor") return cursorFallback(payload);
  if (agent == "cline") return "{\"cancel\":false}\n";
  return "";
}

std::string currentDirectory() {
  char buf[4096];
  return ::getcwd(buf, sizeof buf) ? std::string(buf) : std::string();
}

void addSurroundings(Json& payload, std::string_view agent) {
  Surroundings::Found found = Surroundings::discover(::getppid());
  // The agent's folder, for agents whose payloads lack it (Aider sends nothing at all).
  const std::string cwd = currentDirectory();
  if (!cwd.empty()) payload["_cwd"] = cwd;
  if (agent == "crush")
    AgentSettings::addCrushPermissions(payload, found.agentPid, homeDirectory(),
                                       JsonField::str(payload, "cwd", cwd));
  if (agent == "kimi" && !JsonField::hasString(payload, "transcript_path"))
    AgentSettings::addKimiTranscript(payload, homeDirectory());
  Json host = Json::object();
  if (found.hostPid > 0) host["pid"] = found.hostPid;
  if (!found.bundle.empty()) host["bundle"] = found.bundle;
  if (!found.tty.empty()) host["tty"] = found.tty;
  // The tmux pane the agent runs in, from the environment the hook inherits from it: on another
  // machine, the only way Vantler can reach that pane.
  for (const char* name : {"TMUX", "TMUX_PANE"})
    if (const char* value = std::getenv(name); value && *value)
      host[name == std::string_view("TMUX") ? "tmux" : "tmuxPane"] = value;
  if (!host.empty()) payload["_host"] = std::move(host);
  if (found.agentPid > 0) payload["agentPid"] = found.agentPid;
}

}  // namespace

int main(int argc, char** argv) {
  ::signal(SIGPIPE, SIG_IGN);

  if (argc < 2) {
    writeAll(STDERR_FILENO, kUsage);
    return 1;  // not 2: Claude Code reads status 2 from a hook as "block this action"
  }
  std::string_view agent = argv[1];
  if (agent == "--version" || agent == "-V") {
    std::printf("vantler-hook %s\n", VANTLER_HOOK_VERSION);
    return 0;
  }
  if (agent == "--help" || agent == "-h") {
    writeAll(STDOUT_FILENO, kUsage);
    return 0;
  }

  // Aider's notification command gets no input, and its standard input may be the terminal.
  std::optional<std::string> input =
      agent == "aider" ? std::optional<std::string>("{}") : readInput(STDIN_FILENO);
  Json payload = input ? JsonField::parseBounded(*input) : Json(Json::value_t::discarded);
  std::string_view fallback = fallbackFor(agent, payload);
  if (!payload.is_object()) {
    writeAll(STDOUT_FILENO, fallback);
    return 0;
  }

  payload["_agent"] = agent;
  // The event named on the command line, unless the payload names its own.
  if (argc > 2 && !payload.contains("hook_event_name")) payload["hook_event_name"] = argv[2];
  addSurroundings(payload, agent);
  std::string answer;
  if (ask(JsonField::compact(payload) + "\n", answer) && !answer.empty()) {
    answer += '\n';
    writeAll(STDOUT_FILENO, answer);
  } else {
    writeAll(STDOUT_FILENO, fallback);
  }
  return 0;
}
