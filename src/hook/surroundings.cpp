#include "hook/surroundings.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <vector>

#include "core/hosts.h"

namespace Surroundings {
namespace {

// How far the walks go before giving up; real trees are a dozen levels deep at most.
constexpr int kMaxWrappers = 8;
constexpr int kMaxAncestors = 64;

// Programs that stand between an agent and its hook without being either: shells running a
// command string or a script, and launchers that keep running above the command they start.
constexpr std::array<std::string_view, 8> kShells = {"sh",  "bash", "dash", "zsh",
                                                     "ksh", "mksh", "fish", "busybox"};
constexpr std::array<std::string_view, 9> kLaunchers = {
    "env", "timeout", "nice", "nohup", "stdbuf", "ionice", "setsid", "time", "chrt"};

template <size_t N>
bool listed(const std::array<std::string_view, N>& names, std::string_view name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

std::string_view baseName(std::string_view path) {
  size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

std::string procPath(pid_t pid, const char* leaf) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "/proc/%d/%s", static_cast<int>(pid), leaf);
  return buf;
}

// Reads a whole small /proc file; empty on failure.
std::string slurp(const std::string& path) {
  std::string out;
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return out;
  char buf[4096];
  for (;;) {
    ssize_t n = ::read(fd, buf, sizeof buf);
    if (n <= 0) break;
    out.append(buf, static_cast<size_t>(n));
  }
  ::close(fd);
  return out;
}

// The target of a symbolic link such as /proc/<pid>/exe, without the kernel's " (deleted)" mark
// for an executable replaced on disk while running (an editor that updated itself).
std::string linkTarget(const std::string& path) {
  char buf[PATH_MAX];
  ssize_t n = ::readlink(path.c_str(), buf, sizeof buf);
  if (n <= 0 || n == static_cast<ssize_t>(sizeof buf)) return {};
  std::string target(buf, static_cast<size_t>(n));
  constexpr std::string_view kDeleted = " (deleted)";
  if (target.ends_with(kDeleted)) target.resize(target.size() - kDeleted.size());
  return target;
}

std::vector<std::string> commandLine(pid_t pid) {
  std::vector<std::string> args;
  std::string raw = slurp(procPath(pid, "cmdline"));
  size_t start = 0;
  while (start < raw.size()) {
    size_t end = raw.find('\0', start);
    if (end == std::string::npos) end = raw.size();
    args.emplace_back(raw, start, end - start);
    start = end + 1;
  }
  return args;
}

struct Process {
  pid_t ppid = 0;
  unsigned long ttyNr = 0;
  bool ok = false;
};

Process readStat(pid_t pid) {
  Process p;
  int fd = ::open(procPath(pid, "stat").c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return p;
  char buf[512];
  ssize_t n = ::read(fd, buf, sizeof buf - 1);
  ::close(fd);
  if (n <= 0) return p;
  buf[n] = '\0';
  // "pid (comm) state ppid pgrp session tty_nr ...": comm may hold blanks and parentheses, so
  // the fields are counted from the last closing parenthesis.
  const char* rest = std::strrchr(buf, ')');
  if (!rest) return p;
  char state = 0;
  int ppid = 0, pgrp = 0, session = 0, tty = 0;
  if (std::sscanf(rest + 1, " %c %d %d %d %d", &state, &ppid, &pgrp, &session, &tty) != 5) return p;
  p.ppid = ppid;
  p.ttyNr = static_cast<unsigned int>(tty);
  p.ok = true;
  return p;
}

// A process between the agent and the hook: a shell (running "sh -c ...", a hook script, or a
// script that runs the hook), or a launcher such as env, timeout or nice. Agents themselves
// are never shells, so no shell is taken for the agent.
bool isWrapper(pid_t pid) {
  const std::string exe = linkTarget(procPath(pid, "exe"));
  return listed(kShells, baseName(exe)) || listed(kLaunchers, baseName(exe));
}

// The JetBrains product a Java process runs, from its launcher's arguments: "PyCharm" for
// -Didea.paths.selector=PyCharm2024.1; "JetBrains" for another IntelliJ-based one; empty
// for any other Java program.
std::string jetBrainsProduct(pid_t pid) {
  bool intellij = false;
  std::string product;
  for (const std::string& arg : commandLine(pid)) {
    constexpr std::string_view kSelector = "-Didea.paths.selector=";
    if (arg.starts_with(kSelector)) {
      intellij = true;
      for (char c : std::string_view(arg).substr(kSelector.size())) {
        if (!std::isalpha(static_cast<unsigned char>(c))) break;
        product += c;
      }
    } else if (arg.find("com.intellij.") != std::string::npos) {
      intellij = true;
    }
  }
  if (!intellij) return {};
  std::string lowered;
  for (char c : product) lowered += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return Hosts::classify(lowered) == Hosts::Kind::editor ? product : "JetBrains";
}

enum class Role { kOther, kHost, kStop };

// Decides what the process with executable `exe` is; for a host, sets `bundle`.
Role classify(pid_t pid, const std::string& exe, std::string& bundle) {
  std::string_view name = baseName(exe);
  if (const Hosts::Host* host = Hosts::find(name)) {
    if (host->kind == Hosts::Kind::stop) return Role::kStop;
    bundle = exe;
    return Role::kHost;
  }
  if (name.starts_with("python")) {
    // Terminals written in Python (terminator, guake): the script names the program.
    std::vector<std::string> args = commandLine(pid);
    for (size_t i = 1; i < args.size(); ++i) {
      if (args[i].starts_with("-")) continue;
      const Hosts::Host* host = Hosts::find(baseName(args[i]));
      if (host && host->kind == Hosts::Kind::terminal) {
        bundle = args[i];
        return Role::kHost;
      }
      break;
    }
  } else if (name == "java") {
    // JetBrains IDEs started through their launcher scripts run on the bundled Java.
    bundle = jetBrainsProduct(pid);
    if (!bundle.empty()) return Role::kHost;
  }
  return Role::kOther;
}

bool isTty(const std::string& path, dev_t dev) {
  if (!path.starts_with("/dev/pts/") && !path.starts_with("/dev/tty")) return false;
  if (path == "/dev/tty") return false;  // the alias of any controlling terminal, not a device
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0 || !S_ISCHR(st.st_mode)) return false;
  return dev == 0 || st.st_rdev == dev;
}

// The device path of a process's controlling terminal (tty_nr from its stat), or else of a
// terminal on its standard descriptors.
std::string terminalOf(pid_t pid, unsigned long ttyNr) {
  // tty_nr packs the device number as the kernel's new_encode_dev does.
  unsigned int major = (ttyNr >> 8) & 0xfff;
  unsigned int minor = (ttyNr & 0xff) | ((ttyNr >> 12) & 0xfff00);
  dev_t dev = ttyNr ? makedev(major, minor) : 0;
  if (dev) {
    char guess[32] = "";
    if (major >= 136 && major <= 143) {
      std::snprintf(guess, sizeof guess, "/dev/pts/%u", (major - 136) * 256 + minor);
    } else if (major == 4 && minor < 64) {
      std::snprintf(guess, sizeof guess, "/dev/tty%u", minor);
    } else if (major == 4) {
      std::snprintf(guess, sizeof guess, "/dev/ttyS%u", minor - 64);
    }
    if (guess[0] && isTty(guess, dev)) return guess;
  }
  for (const char* fd : {"fd/0", "fd/1", "fd/2"}) {
    std::string target = linkTarget(procPath(pid, fd));
    if (isTty(target, dev)) return target;
  }
  return {};
}

}  // namespace

Found discover(pid_t parent) {
  Found found;
  if (parent <= 1) return found;

  pid_t agent = parent;
  Process agentStat = readStat(agent);
  for (int i = 0; i < kMaxWrappers && agentStat.ok && agentStat.ppid > 1 && isWrapper(agent); ++i) {
    agent = agentStat.ppid;
    agentStat = readStat(agent);
  }
  if (!agentStat.ok) return found;  // the parent has gone already
  found.agentPid = agent;
  found.tty = terminalOf(agent, agentStat.ttyNr);

  // The agent itself may be the host (an editor running its agent in-process).
  pid_t pid = agent;
  Process proc = agentStat;
  for (int i = 0; i < kMaxAncestors && pid > 1 && proc.ok; ++i) {
    std::string exe = linkTarget(procPath(pid, "exe"));
    std::string bundle;
    Role role = exe.empty() ? Role::kOther : classify(pid, exe, bundle);
    if (role == Role::kStop) break;
    if (role == Role::kHost) {
      // Editors and some terminals run helpers of their own executable below the process that
      // owns the windows; climb to the topmost of them.
      for (int j = 0; j < kMaxAncestors && proc.ppid > 1; ++j) {
        if (linkTarget(procPath(proc.ppid, "exe")) != exe) break;
        pid = proc.ppid;
        proc = readStat(pid);
        if (!proc.ok) break;
      }
      found.hostPid = pid;
      found.bundle = bundle;
      break;
    }
    pid = proc.ppid;
    proc = readStat(pid);
  }
  return found;
}

}  // namespace Surroundings
