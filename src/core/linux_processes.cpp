#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "core/processes.h"

namespace Processes {

namespace {

// The fields of /proc/<pid>/stat after the command name, which may hold blanks and
// parentheses: they are counted from the last closing parenthesis.
std::optional<std::string> statFields(int32_t pid) {
  if (pid <= 0) return std::nullopt;
  char path[32];
  std::snprintf(path, sizeof path, "/proc/%d/stat", static_cast<int>(pid));
  int fd = ::open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  char buf[1024];
  ssize_t n = ::read(fd, buf, sizeof buf - 1);
  ::close(fd);
  if (n <= 0) return std::nullopt;
  buf[n] = '\0';
  const char* rest = std::strrchr(buf, ')');
  if (!rest) return std::nullopt;
  return std::string(rest + 1);
}

}  // namespace

std::optional<uint64_t> startTime(int32_t pid) {
  // "pid (comm) state ppid ... starttime ...": starttime is the 20th field after the name.
  std::optional<std::string> rest = statFields(pid);
  if (!rest) return std::nullopt;
  char state = 0;
  unsigned long long start = 0;
  if (std::sscanf(
          rest->c_str(),
          " %c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %*u %*u %*d %*d %*d %*d %*d %*d %llu",
          &state, &start) != 2)
    return std::nullopt;
  if (state == 'Z' || state == 'X') return std::nullopt;  // it has exited, unreaped or not
  return static_cast<uint64_t>(start);
}

std::optional<int32_t> parent(int32_t pid) {
  std::optional<std::string> rest = statFields(pid);
  int ppid = 0;
  if (!rest || std::sscanf(rest->c_str(), " %*c %d", &ppid) != 1) return std::nullopt;
  return ppid;
}

std::vector<int32_t> ancestors(int32_t pid, size_t max) {
  std::vector<int32_t> chain;
  while (pid > 1 && chain.size() < max) {
    chain.push_back(pid);
    pid = parent(pid).value_or(0);
  }
  return chain;
}

bool headlessArgs(const std::vector<std::string>& args) {
  for (size_t i = 1; i < args.size(); ++i) {
    const std::string& a = args[i];
    if (a == "-p" || a == "--print" || a.starts_with("--print=")) return true;
  }
  // `codex exec …`, also when started through node (`node …/codex.js exec …`).
  for (size_t i = 1; i < args.size() && i < 3; ++i)
    if (args[i] == "exec") return true;
  return false;
}

bool headless(int32_t pid) {
  if (pid <= 0) return false;
  char path[32];
  std::snprintf(path, sizeof path, "/proc/%d/cmdline", static_cast<int>(pid));
  int fd = ::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return false;
  std::string text(64 * 1024, '\0');  // a cap: agents' argument lists are far shorter
  ssize_t n = ::read(fd, text.data(), text.size());
  ::close(fd);
  if (n <= 0) return false;
  text.resize(static_cast<size_t>(n));
  std::vector<std::string> args;
  for (size_t start = 0; start < text.size();) {
    size_t end = text.find('\0', start);
    if (end == std::string::npos) end = text.size();
    args.emplace_back(text, start, end - start);
    start = end + 1;
  }
  return headlessArgs(args);
}

}  // namespace Processes
