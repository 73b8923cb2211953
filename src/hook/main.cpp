// vantler-hook <agent>: run by an agent's hook on every hook event. Forwards the hook payload
// from standard input, with what it knows of the agent's process, as one JSON line to the
// Vantler app's socket, and prints the app's one-line answer for the agent.
//
// It must never hurt the agent: when the app is not running it exits at once with status 0,
// bad input is dropped, and nothing it does fails the agent's action. While the app holds a
// request (a permission prompt can take minutes) it waits without a time limit; the agent's own
// hook timeout ends it.

#include <pwd.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "hook/surroundings.h"

#if __has_include("version.h")
#include "version.h"
#define VANTLER_HOOK_VERSION Version::kVersion
#else
#define VANTLER_HOOK_VERSION "development build"
#endif

namespace {

using Json = nlohmann::json;

constexpr std::string_view kUsage =
    "usage: vantler-hook <agent> [<event>]\n"
    "\n"
    "Run by an AI coding agent's hook: reads the hook's JSON payload on standard input, sends\n"
    "it to the Vantler app, and prints the app's answer, if any, on standard output.\n"
    "<agent> is the agent's name: claude, codex, cursor, gemini, droid, opencode, copilot,\n"
    "windsurf. <event> names the hook event for agents whose payloads do not (Copilot CLI).\n"
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

bool sendAll(int fd, std::string_view data) {
  while (!data.empty()) {
    ssize_t n = ::send(fd, data.data(), data.size(), MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    data.remove_prefix(static_cast<size_t>(n));
  }
  return true;
}

std::string readAll(int fd) {
  std::string out;
  char buf[65536];
  for (;;) {
    ssize_t n = ::read(fd, buf, sizeof buf);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    out.append(buf, static_cast<size_t>(n));
  }
  return out;
}

// Reads up to the first line feed. False when the connection ends before a whole line (a
// truncated answer is no answer).
bool readLine(int fd, std::string& line) {
  char buf[4096];
  for (;;) {
    ssize_t n = ::read(fd, buf, sizeof buf);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    const char* end = static_cast<const char*>(std::memchr(buf, '\n', static_cast<size_t>(n)));
    if (end) {
      line.append(buf, static_cast<size_t>(end - buf));
      return true;
    }
    line.append(buf, static_cast<size_t>(n));
  }
}

std::string homeDirectory() {
  const char* home = std::getenv("HOME");
  if (home && *home) return home;
  const passwd* pw = ::getpwuid(::getuid());
  return pw && pw->pw_dir ? pw->pw_dir : "";
}

// Connects to the app's socket; -1 when the app is not there.
int connectToApp() {
  std::string home = homeDirectory();
  if (home.empty()) return -1;
  std::string dir = home + "/.vantler/run";
  std::string path = dir + "/vantler.sock";

  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  if (path.size() >= sizeof addr.sun_path) {
    // A home directory too long for a socket address: connect by a relative name instead.
    if (::chdir(dir.c_str()) != 0) return -1;
    path = "vantler.sock";
  }
  std::memcpy(addr.sun_path, path.c_str(), path.size() + 1);

  int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  if (::connect(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof addr) != 0) {
    ::close(fd);
    return -1;
  }
  return fd;
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

void addSurroundings(Json& payload) {
  Surroundings::Found found = Surroundings::discover(::getppid());
  Json host = Json::object();
  if (found.hostPid > 0) host["pid"] = found.hostPid;
  if (!found.bundle.empty()) host["bundle"] = found.bundle;
  if (!found.tty.empty()) host["tty"] = found.tty;
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

  Json payload = Json::parse(readAll(STDIN_FILENO), nullptr, /*allow_exceptions=*/false);
  std::string_view fallback = agent == "cursor" ? cursorFallback(payload) : "";

  if (!payload.is_object()) {
    writeAll(STDOUT_FILENO, fallback);
    return 0;
  }
  int fd = connectToApp();
  if (fd < 0) {
    writeAll(STDOUT_FILENO, fallback);
    return 0;
  }

  payload["_agent"] = agent;
  // The event named on the command line, unless the payload names its own.
  if (argc > 2 && !payload.contains("hook_event_name")) payload["hook_event_name"] = argv[2];
  addSurroundings(payload);
  std::string line = payload.dump(-1, ' ', false, Json::error_handler_t::replace);
  line += '\n';

  // The write side stays open while waiting: the app takes a closed connection for a hook that
  // has gone away and withdraws the request.
  std::string reply;
  if (sendAll(fd, line) && readLine(fd, reply) && !reply.empty()) {
    reply += '\n';
    writeAll(STDOUT_FILENO, reply);
  } else {
    writeAll(STDOUT_FILENO, fallback);
  }
  ::close(fd);
  return 0;
}
