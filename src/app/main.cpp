// The vantler command: the desktop app, the daemon, and commands that talk to a running
// instance.

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "app/client.h"
#include "app/daemon.h"
#include "app/desktop.h"
#include "app/linux_raise.h"
#include "app/remote_command.h"
#include "app/status.h"
#include "bridge/linux_bridge.h"
#include "core/files.h"
#include "core/json.h"
#include "core/linux_glib_loop.h"
#include "integrations/installers.h"
#include "integrations/more_agents.h"
#include "usage/usage_meter.h"
#include "version.h"

namespace {

struct Command {
  const char* name;
  const char* usage;
  const char* help;
};

constexpr Command kCommands[] = {
    {"toggle", "vantler toggle",
     "Opens the running Vantler panel with the keyboard, or closes it. Bind it to a key in your\n"
     "desktop's keyboard settings where global keys cannot be grabbed (GNOME, sway, Hyprland)."},
    {"open", "vantler open", "Opens the running Vantler panel with the keyboard."},
    {"talk", "vantler talk", "Starts dictation in the running Vantler panel, or stops it."},
    {"quit", "vantler quit", "Quits the running Vantler app."},
    {"daemon", "vantler daemon [--replace]",
     "Runs Vantler without a window: follows agent sessions, holds their requests and serves\n"
     "the commands below. Ctrl-C stops it. --replace stops an instance already running.\n"
     "Environment: VANTLER_DEMO=1 adds demonstration sessions; VANTLER_DEBUG_ANSWER=<text>\n"
     "answers every request 1.2 s after it arrives (allow, deny, or the text as a reply)."},
    {"state", "vantler state", "Prints the current state of every shown session as JSON."},
    {"status", "vantler status [--format plain|waybar|tmux] [--follow]",
     "Prints one line summarising the sessions: how many wait, work and are done, and what\n"
     "Claude Code has cost today ('Vantler off' when Vantler is not running). --format waybar\n"
     "prints the JSON of a Waybar custom module (text, tooltip, class), --format tmux tmux\n"
     "colour markup. --follow prints a new line whenever the summary changes, until stopped."},
    {"allow", "vantler allow [--always] <session-id>",
     "Allows the session's open permission request. --always also accepts the standing rule the\n"
     "agent offers with it (shown in 'vantler state' as \"always\"), so it stops asking."},
    {"deny", "vantler deny <session-id>", "Denies the session's open permission request."},
    {"answer", "vantler answer <session-id> <answer>...",
     "Answers the session's questions, one argument per question in order. Several choices\n"
     "for one question go in one argument, joined by \", \"."},
    {"reply", "vantler reply <session-id> <text>",
     "Sends the text to an agent that finished its turn, as the user's next message."},
    {"release", "vantler release <session-id>",
     "Lets go of the session's request: the agent asks in its own window instead."},
    {"dismiss", "vantler dismiss <session-id>",
     "Lets go of the session's request and hides the session until something new happens."},
    {"jump", "vantler jump <session-id>",
     "Brings the session's terminal tab, tmux pane or editor window to the front. The running\n"
     "app or daemon does it, on the display in its own environment; what it could not do is\n"
     "in its log."},
    {"agents", "vantler agents",
     "Lists the coding agents Vantler can follow: connected, not connected, not installed, or\n"
     "what you still have to do for a connected one; and the configuration file Vantler edits."},
    {"connect", "vantler connect <agent>",
     "Installs Vantler's hooks for the agent (claude, cursor, gemini, droid, copilot, windsurf,\n"
     "opencode, codex, qwen, qoder, codebuddy, devin, augment, kimi, goose, cline, kiro, vibe,\n"
     "crush, junie, aider, amp, kilo). Only Vantler's own entries are added; the previous file\n"
     "is kept beside it with the suffix .vantler-backup."},
    {"disconnect", "vantler disconnect <agent>",
     "Removes Vantler's hooks for the agent, leaving everything else in its settings as it was."},
    {"remote", "vantler remote add|list|status|remove|update [--container] <host>",
     "Follows agents on another machine over SSH: 'add <host>' (an ~/.ssh/config alias or\n"
     "user@host[:port]) installs the hook there and connects the agents it finds; Vantler then\n"
     "keeps a tunnel to it. 'add --container <name>' does the same in a podman or docker\n"
     "container and prints the mount that lets its hooks reach Vantler. 'list', 'status' and\n"
     "'remove <host>' (which gives the host's settings back) manage them; 'update <host>' copies\n"
     "this version's hook there, as Vantler does when a host's hook is of another version.\n"
     "ssh never prompts: a host must accept your key and be known in ~/.ssh/known_hosts first."},
    {"usage", "vantler usage [--json]",
     "Shows what Claude Code has cost today, per model, read from ~/.claude/projects.\n"
     "--json prints the raw figures."},
};

void usage(FILE* out) {
  std::fprintf(out,
               "Vantler %s: a companion for AI coding agents.\n\nUsage:\n"
               "  vantler                 (starts the panel at the top of the screen)\n",
               Version::kVersion);
  for (const Command& c : kCommands) std::fprintf(out, "  %s\n", c.usage);
  std::fprintf(out,
               "  vantler --version\n\nRun 'vantler <command> --help' for details. Session ids "
               "are shown by 'vantler state'\n(for example claude:0b6f…).\n");
}

const Command* find(const std::string& name) {
  for (const Command& c : kCommands)
    if (name == c.name) return &c;
  return nullptr;
}

int notRunning(const std::string& socket) {
  std::fprintf(stderr,
               "vantler: Vantler is not running (nothing listens on %s).\n"
               "Start it with 'vantler' (or 'vantler daemon' without a display).\n",
               socket.c_str());
  return 1;
}

// Sends a command to the running instance and reports its answer.
int send(const Json& command) {
  const std::string socket = Bridge::socketPath(Files::home());
  Client::Result r = Client::exchange(socket, JsonField::compact({{"_command", command}}));
  if (!r.connected) return notRunning(socket);
  Json answer = JsonField::parse(r.answer);
  if (JsonField::boolean(answer, "ok")) return 0;
  std::string error = JsonField::str(answer, "error", "no answer from Vantler");
  std::fprintf(stderr, "vantler: %s\n", error.c_str());
  return 1;
}

int agents() {
  std::vector<Integrations::AgentRow> rows = Integrations::table();
  size_t labelWidth = 5, statusWidth = 6;
  auto status = [](const Integrations::AgentRow& r) {
    if (r.connected) return r.todo.empty() ? std::string("connected") : "connected; " + r.todo;
    return std::string(r.available ? "not connected" : "not installed");
  };
  for (const auto& r : rows) {
    labelWidth = std::max(labelWidth, r.id.size() + r.label.size() + 3);
    statusWidth = std::max(statusWidth, status(r).size());
  }
  std::printf("%-*s  %-*s  %s\n", static_cast<int>(labelWidth), "AGENT",
              static_cast<int>(statusWidth), "STATUS", "CONFIG");
  for (const auto& r : rows) {
    std::string name = r.label + " (" + r.id + ")";
    std::printf("%-*s  %-*s  %s\n", static_cast<int>(labelWidth), name.c_str(),
                static_cast<int>(statusWidth), status(r).c_str(), r.configPath.c_str());
  }
  for (const auto& r : rows)
    if (!r.note.empty()) std::printf("\n%s: %s\n", r.label.c_str(), r.note.c_str());
  return 0;
}

int connect(const std::string& name, const std::string& agent) {
  try {
    if (name == "connect")
      Integrations::connect(agent);
    else
      Integrations::disconnect(agent);
  } catch (const InstallError& e) {
    std::fprintf(stderr, "vantler: %s\n", e.what());
    return 1;
  }
  std::printf("%s %s.\n", agent.c_str(), name == "connect" ? "connected" : "disconnected");
  if (auto integration = Integrations::fromId(agent); integration && name == "connect") {
    if (std::string_view note = Integrations::note(*integration); !note.empty())
      std::printf("%.*s\n", static_cast<int>(note.size()), note.data());
  }
  if (MoreAgents::known(agent) && name == "connect" && !MoreAgents::note(agent).empty())
    std::printf("%s\n", std::string(MoreAgents::note(agent)).c_str());
  return 0;
}

int usageReport(bool json) {
  GLibLoop loop;
  UsageMeter meter(loop);
  Json snap = meter.snapshot();
  if (json) {
    std::puts(snap.dump(2).c_str());
    return 0;
  }
  const Json& models = JsonField::array(snap, "models");
  if (models.empty()) {
    std::puts("No Claude Code usage today.");
    return 0;
  }
  std::printf("%-24s %12s %10s\n", "MODEL", "TOKENS", "COST");
  for (const Json& m : models)
    std::printf("%-24s %12lld %10.2f\n", JsonField::str(m, "model").c_str(),
                static_cast<long long>(JsonField::integer(m, "tokens")), JsonField::num(m, "cost"));
  std::printf("%-24s %12s %10.2f\n", "Today", "", JsonField::num(snap, "today"));
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  if (args.empty()) return DesktopApp::run(argv[0]);
  if (args[0] == "--help" || args[0] == "-h" || args[0] == "help") {
    usage(stdout);
    return 0;
  }
  if (args[0] == "--version") {
    std::printf("vantler %s (%s)\n", Version::kVersion, Version::kRevision);
    return 0;
  }
  if (args[0] == LinuxWindowRaiser::kX11Command)
    return LinuxWindowRaiser::raiseX11({args.begin() + 1, args.end()});
  const Command* command = find(args[0]);
  if (!command) {
    std::fprintf(stderr, "vantler: unknown command '%s'\n\n", args[0].c_str());
    usage(stderr);
    return 2;
  }
  for (size_t i = 1; i < args.size(); ++i) {
    if (args[i] == "--help" || args[i] == "-h") {
      std::printf("Usage: %s\n\n%s\n", command->usage, command->help);
      return 0;
    }
  }
  auto wrongUsage = [&] {
    std::fprintf(stderr, "Usage: %s\n", command->usage);
    return 2;
  };
  const std::string name = command->name;

  if (name == "toggle" || name == "open" || name == "talk" || name == "quit")
    return args.size() == 1 ? DesktopApp::activate(name) : wrongUsage();
  if (name == "daemon") {
    Daemon::Options options;
    for (size_t i = 1; i < args.size(); ++i) {
      if (args[i] == "--replace")
        options.replace = true;
      else
        return wrongUsage();
    }
    return Daemon::run(options);
  }
  if (name == "state") {
    if (args.size() != 1) return wrongUsage();
    const std::string socket = Bridge::socketPath(Files::home());
    Client::Result r = Client::exchange(socket, R"({"_query":"state"})");
    if (!r.connected) return notRunning(socket);
    if (r.timedOut) {
      std::fprintf(stderr, "vantler: Vantler did not answer in time.\n");
      return 1;
    }
    std::fputs(r.answer.c_str(), stdout);
    return 0;
  }
  if (name == "status") {
    Status::Options options;
    for (size_t i = 1; i < args.size(); ++i) {
      if (args[i] == "--follow") {
        options.follow = true;
      } else if (args[i] == "--format" && i + 1 < args.size() && StatusLine::format(args[i + 1])) {
        options.format = *StatusLine::format(args[++i]);
      } else {
        return wrongUsage();
      }
    }
    return Status::run(options);
  }
  if (name == "agents") return args.size() == 1 ? agents() : wrongUsage();
  if (name == "usage") {
    if (args.size() == 1) return usageReport(false);
    if (args.size() == 2 && args[1] == "--json") return usageReport(true);
    return wrongUsage();
  }
  if (name == "remote") return RemoteCommand::run({args.begin() + 1, args.end()});
  if (name == "connect" || name == "disconnect")
    return args.size() == 2 ? connect(name, args[1]) : wrongUsage();
  bool always = false;
  if (name == "allow" && args.size() > 1 && args[1] == "--always") {
    always = true;
    args.erase(args.begin() + 1);
  }
  if (args.size() < 2) return wrongUsage();
  Json cmd = {{"type", name}, {"id", args[1]}};
  if (always) cmd["always"] = true;
  if (name == "answer") {
    if (args.size() < 3) return wrongUsage();
    cmd["answers"] = std::vector<std::string>(args.begin() + 2, args.end());
  } else if (name == "reply") {
    if (args.size() < 3) return wrongUsage();
    std::string text = args[2];
    for (size_t i = 3; i < args.size(); ++i) text += " " + args[i];
    cmd["text"] = text;
  } else if (args.size() != 2) {
    return wrongUsage();
  }
  return send(cmd);
}
