#include "integrations/linux_jump.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <utility>

#include "core/files.h"
#include "core/processes.h"
#include "core/text.h"
#include "integrations/remote_hosts.h"
#include "integrations/tmux_replies.h"

namespace {

// Environments and command lines are a few KiB; a larger one is cut, which at worst hides a
// marker or an argument.
constexpr size_t kMaxRecord = 256 * 1024;
// Programs between an agent and its terminal: a shell, a launcher, a multiplexer client.
constexpr size_t kMaxLevels = 8;

// A NUL-separated record of a process ("environ", "cmdline"); nothing when it cannot be read
// (gone, another user's).
std::optional<std::string> procRecord(int32_t pid, const char* record) {
  char path[64];
  std::snprintf(path, sizeof path, "/proc/%d/%s", static_cast<int>(pid), record);
  int fd = ::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return std::nullopt;
  struct stat info;
  std::string text;
  if (::fstat(fd, &info) == 0 && S_ISREG(info.st_mode)) {
    text.resize(kMaxRecord);
    size_t got = 0;
    while (got < text.size()) {
      ssize_t n = ::read(fd, text.data() + got, text.size() - got);
      if (n <= 0) break;
      got += static_cast<size_t>(n);
    }
    text.resize(got);
  }
  ::close(fd);
  return text.empty() ? std::nullopt : std::optional<std::string>(std::move(text));
}

// This user's processes whose program may log in to another machine.
std::vector<Jump::Process> loginProcesses() {
  std::vector<Jump::Process> found;
  DIR* proc = ::opendir("/proc");
  if (!proc) return found;
  const uid_t me = ::getuid();
  while (const dirent* entry = ::readdir(proc)) {
    char* end = nullptr;
    long pid = std::strtol(entry->d_name, &end, 10);
    struct stat info;
    if (*end || pid <= 1 || ::fstatat(::dirfd(proc), entry->d_name, &info, 0) != 0 ||
        info.st_uid != me)
      continue;
    std::optional<std::string> cmdline = procRecord(static_cast<int32_t>(pid), "cmdline");
    if (!cmdline ||
        (cmdline->find("ssh") == std::string::npos && cmdline->find("mosh") == std::string::npos))
      continue;
    Jump::Process p{static_cast<int32_t>(pid), 0, 0, {}};
    p.parent = Processes::parent(p.pid).value_or(0);
    p.started = Processes::startTime(p.pid).value_or(0);
    for (size_t at = 0; at < cmdline->size();) {
      size_t next = cmdline->find('\0', at);
      if (next == std::string::npos) next = cmdline->size();
      p.argv.push_back(cmdline->substr(at, next - at));
      at = next + 1;
    }
    found.push_back(std::move(p));
  }
  ::closedir(proc);
  return found;
}

// The first line of what a command printed on failure, cut short for the log.
std::string firstLine(const std::string& text) {
  std::string line = Text::firstLine(text);
  return line.size() > 200 ? line.substr(0, 200) : line;
}

}  // namespace

TerminalJumper::TerminalJumper(Loop& loop, std::shared_ptr<WindowRaiser> raiser, Log log)
    : raiser_(std::move(raiser)), log_(std::move(log)), runs_(loop) {}

Jump::Facts TerminalJumper::facts(const Session& s) {
  Jump::Facts f{s.agent, s.root, s.hostPid, s.hostBundle, s.tty, s.agentPid, false, {}};
  if (!s.agentPid || *s.agentPid <= 1) return f;
  for (int32_t pid : Processes::ancestors(*s.agentPid, kMaxLevels)) {
    if (s.hostPid && pid == *s.hostPid) break;
    std::optional<std::string> environ = procRecord(pid, "environ");
    if (pid == *s.agentPid) f.agentRunning = environ.has_value();
    if (environ) Jump::readMarkers(*environ, f.markers);
  }
  return f;
}

void TerminalJumper::go(const Session& session) {
  if (!session.machine.empty()) return remote(session);
  Jump::Facts f = facts(session);
  // Where only the window is raised, it is named as the page names it ("XTerm").
  follow(session.id, f, Jump::hostName(session));
}

void TerminalJumper::remote(const Session& session) {
  const std::string& id = session.id;
  const std::string& machine = session.machine;
  // Its tmux there is planned as a local one would be, from the markers its hook reported.
  Jump::Facts f;
  f.markers.tmux = session.tmux;
  f.markers.tmuxPane = session.tmuxPane;
  Jump::Plan plan = Jump::plan(f);
  // The local login comes forward at once; the pane on a slow host follows when ssh gets there.
  raiseLogin(id, machine);
  if (plan.place == Jump::Place::tmux && !plan.tmuxPane.empty()) return hostTmux(id, machine, plan);
  log_(id + ": runs on " + machine +
       (session.tmuxPane.empty()
            ? ", outside tmux there"
            : ", in a tmux its hook names oddly (" + session.tmux + " " + session.tmuxPane + ")"));
}

void TerminalJumper::hostTmux(const std::string& id, const std::string& machine,
                              const Jump::Plan& plan) {
  // The commands run there in one ssh each way, stopping at the first that fails.
  auto there = [machine](const std::vector<Jump::Command>& commands) {
    std::string script;
    for (const Jump::Command& command : commands) {
      script += script.empty() ? "" : " && ";
      for (const std::string& arg : command.argv) script += RemoteHosts::quote(arg) + " ";
    }
    std::vector<std::string> argv = RemoteHosts::ssh(machine);
    argv.push_back(RemoteHosts::remoteCommand(script, {}));
    return Jump::Command{argv, {}};
  };
  const std::string pane = plan.tmuxPane;
  std::vector<Jump::Command> select = Jump::tmuxSelect(plan.tmux, pane);
  select.push_back(Jump::tmuxClients(plan.tmux));
  run(
      id, there(select),
      [this, id, machine, plan, pane, there](const Subprocesses::Result& r) {
        std::optional<Jump::TmuxClient> client =
            r.exited0 ? Jump::activeClient(r.out) : std::nullopt;
        if (!client) {
          if (r.exited0)
            log_(id + ": no client is attached to tmux on " + machine + "; the pane " + pane +
                 " is selected for the next one");
          return;
        }
        run(
            id, there({Jump::tmuxSwitch(plan.tmux, client->tty, pane)}),
            [this, id, machine, pane](const Subprocesses::Result& r) {
              if (r.exited0) log_(id + ": tmux on " + machine + " shows the pane " + pane);
            },
            kRemoteDeadline);
      },
      kRemoteDeadline);
}

void TerminalJumper::raiseLogin(const std::string& id, const std::string& machine) {
  // An alias may stand for an address the user also logs in by: ssh resolves it without
  // connecting.
  std::vector<std::string> config = RemoteHosts::ssh(machine);
  config.insert(config.begin() + 1, "-G");
  run(id, {config, {}}, [this, id, machine](const Subprocesses::Result& r) {
    std::vector<std::string> names =
        Jump::loginNames(machine, r.exited0 ? Jump::configuredHostName(r.out) : "");
    std::optional<int32_t> client =
        Jump::loginClient(loginProcesses(), names, static_cast<int32_t>(::getpid()));
    if (!client) {
      log_(id + ": no ssh or mosh of this user logs in to " + machine + " here");
      return;
    }
    log_(id + ": the login to " + machine + " is process " + std::to_string(*client));
    // The login is followed as a local agent would be: its tmux pane or terminal tab, then
    // its window.
    Session login;
    login.agentPid = *client;
    follow(id, facts(login), machine);
  });
}

void TerminalJumper::follow(const std::string& id, const Jump::Facts& f,
                            const std::optional<std::string>& windowName) {
  Jump::Plan plan = Jump::plan(f);
  if (plan.place == Jump::Place::terminal) plan.label = windowName.value_or(plan.label);
  log_(id + ": " + std::string(Jump::name(plan.place)) +
       (plan.label.empty() || plan.label == Jump::name(plan.place) ? "" : " (" + plan.label + ")"));
  if (f.agentPid && !f.agentRunning)
    log_(id + ": the agent process " + std::to_string(*f.agentPid) + " is gone or unreadable");
  for (const std::string& note : plan.notes) log_(id + ": " + note);

  switch (plan.place) {
    case Jump::Place::unknown:
      return;
    case Jump::Place::editor:
      if (!plan.open) return;
      run(id, *plan.open, [this, id, plan](const Subprocesses::Result& r) {
        // An editor's command that could not run: at least its window comes forward.
        if (!r.exited0) raiseTerminalOf(id, plan.raiseFrom, plan.label);
      });
      return;
    case Jump::Place::tmux:
      tmux(id, plan, f.tty);
      return;
    case Jump::Place::konsole:
      konsole(id, plan);
      return;
    case Jump::Place::gnomeTerminal:
      gnomeTerminal(id, plan);
      return;
    default:
      runAll(id, plan.select, 0,
             [this, id, plan] { raiseTerminalOf(id, plan.raiseFrom, plan.label); });
  }
}

void TerminalJumper::run(const std::string& id, const Jump::Command& command, Then then,
                         double deadline) {
  Subprocesses::Options options{deadline, {}, command.env};
  const std::string program = command.argv.front();
  auto done = [this, id, program, then, deadline](const Subprocesses::Result& r) {
    if (!r.finished)
      log_(id + ": " + program + " did not answer within " + std::to_string(int(deadline)) + " s");
    else if (!r.exited0)
      log_(id + ": " + program + " failed: " + firstLine(r.err.empty() ? r.out : r.err));
    if (then) then(r);
  };
  if (!runs_.run(command.argv, options, done)) {
    log_(id + ": " + program + " cannot be run (not installed or not on PATH)");
    if (then) then(Subprocesses::Result{});
  }
}

void TerminalJumper::runAll(const std::string& id, std::vector<Jump::Command> commands, size_t next,
                            std::function<void()> then) {
  if (next >= commands.size()) return then();
  Jump::Command command = commands[next];
  run(id, command,
      [this, id, commands = std::move(commands), next, then](const Subprocesses::Result&) {
        runAll(id, commands, next + 1, then);
      });
}

void TerminalJumper::tmux(const std::string& id, const Jump::Plan& plan,
                          const std::optional<std::string>& tty) {
  if (!plan.tmuxPane.empty()) return tmuxPane(id, plan, plan.tmuxPane);
  std::vector<std::string> list = plan.tmux;
  list.insert(list.end(), {"list-panes", "-a", "-F", "#{pane_id} #{pane_tty}"});
  run(id, {list, {}}, [this, id, plan, tty](const Subprocesses::Result& r) {
    std::optional<std::string> pane = Tmux::paneFor(r.out, tty.value_or(""));
    if (pane) return tmuxPane(id, plan, *pane);
    log_(id + ": no tmux pane shows " + tty.value_or("its terminal") +
         ": raising the agent's own terminal");
    raiseTerminalOf(id, plan.raiseFrom, plan.label);
  });
}

void TerminalJumper::tmuxPane(const std::string& id, const Jump::Plan& plan,
                              const std::string& pane) {
  runAll(id, Jump::tmuxSelect(plan.tmux, pane), 0, [this, id, plan, pane] {
    run(id, Jump::tmuxClients(plan.tmux), [this, id, plan, pane](const Subprocesses::Result& r) {
      std::optional<Jump::TmuxClient> client = Jump::activeClient(r.out);
      if (!client) {
        log_(id + ": no client is attached to the tmux server; the pane " + pane +
             " is selected for the next one");
        return;
      }
      run(id, Jump::tmuxSwitch(plan.tmux, client->tty, pane),
          [this, id, pid = client->pid](const Subprocesses::Result&) {
            raiseTerminalOf(id, pid, "tmux");
          });
    });
  });
}

void TerminalJumper::konsole(const std::string& id, const Jump::Plan& plan) {
  auto call = [service = plan.konsoleService](const std::string& path, const std::string& method,
                                              std::vector<std::string> args) {
    std::vector<std::string> argv = {"gdbus",         "call", "--session", "--dest", service,
                                     "--object-path", path,   "--method",  method};
    argv.insert(argv.end(), args.begin(), args.end());
    return Jump::Command{argv, {}};
  };
  run(id, call("/Windows", "org.freedesktop.DBus.Introspectable.Introspect", {}),
      [this, id, plan, call](const Subprocesses::Result& r) {
        std::vector<Jump::Command> select;
        for (const std::string& window : Jump::childNodes(r.out))
          select.push_back(call("/Windows/" + window, "org.kde.konsole.Window.setCurrentSession",
                                {plan.konsoleSession}));
        if (select.empty() && r.exited0) log_(id + ": Konsole lists no windows");
        runAll(id, select, 0,
               [this, id, plan] { raiseTerminalOf(id, plan.raiseFrom, plan.label); });
      });
}

void TerminalJumper::gnomeTerminal(const std::string& id, const Jump::Plan& plan) {
  run(id, plan.select.front(), [this, id, plan](const Subprocesses::Result& r) {
    // One server runs every GNOME Terminal window, so its pid cannot tell them apart: on X11 the
    // terminal presents the tab's window itself, and raising by pid could bring another forward.
    if (r.exited0 && Jump::raiseWay(Files::environment) == Jump::Raise::x11)
      return log_(id + ": GNOME Terminal brought its tab forward");
    if (r.err.find("Error.UnknownMethod") != std::string::npos)
      log_(id +
           ": GNOME Terminal's search provider is off, so its tab cannot be chosen "
           "(gsettings set org.gnome.Terminal.Legacy.Settings shell-integration-enabled true)");
    raiseTerminalOf(id, plan.raiseFrom, plan.label);
  });
}

void TerminalJumper::raiseTerminalOf(const std::string& id, std::optional<int32_t> pid,
                                     const std::string& place) {
  if (!pid) return;
  std::vector<int32_t> pids = Processes::ancestors(*pid);
  if (pids.empty()) {
    log_(id + ": the process " + std::to_string(*pid) + " has gone; no window to raise");
    return;
  }
  raiser_->raise(pids, place, [this, id](bool raised, const std::string& how) {
    log_(id + ": " + (raised ? "raised " : "no window raised: ") + how);
  });
}
