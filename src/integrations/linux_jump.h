#pragma once
// Brings a session's terminal tab, tmux pane or editor window forward. The markers are read
// from /proc; every command (tmux, kitty, wezterm, gdbus, the editors) runs asynchronously with
// a deadline, and each step that cannot be taken says why through `log`. Raising the window
// itself is the desktop's business, behind `WindowRaiser`.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "core/loop.h"
#include "core/ports.h"
#include "integrations/jump.h"
#include "integrations/linux_subprocesses.h"

class WindowRaiser {
 public:
  virtual ~WindowRaiser() = default;
  using Done = std::function<void(bool raised, const std::string& how)>;
  // Brings forward the window of the nearest of `pids` (a process and its ancestors, nearest
  // first) that has one. `place` names it in a notice where the desktop raises no windows.
  // `done` runs once, on the loop, unless the raiser is destroyed first.
  virtual void raise(const std::vector<int32_t>& pids, const std::string& place, Done done) = 0;
};

class TerminalJumper final : public Jumper {
 public:
  using Log = std::function<void(const std::string& line)>;
  static constexpr double kDeadline = 3.0;
  // For each ssh to another machine: a login takes a few round trips.
  static constexpr double kRemoteDeadline = 10.0;

  TerminalJumper(Loop& loop, std::shared_ptr<WindowRaiser> raiser, Log log);

  void go(const Session& session) override;

  // What is known of a session's place, with the markers of the agent and of its ancestors
  // below the host (nearest first).
  static Jump::Facts facts(const Session& session);

  // Raises the window of the terminal that runs `pid`: the window of the process or of its
  // nearest ancestor that has one (a local `ssh`, a tmux client). `id` heads the log lines.
  void raiseTerminalOf(const std::string& id, std::optional<int32_t> pid, const std::string& place);

 private:
  using Then = std::function<void(const Subprocesses::Result&)>;
  // A session on another machine: its tmux pane there when its hook named one, then the local
  // ssh or mosh that logs in there.
  void remote(const Session& session);
  void hostTmux(const std::string& id, const std::string& machine, const Jump::Plan& plan);
  void raiseLogin(const std::string& id, const std::string& machine);
  // Carries out the plan for `f`; `windowName` names a terminal whose window alone is raised.
  void follow(const std::string& id, const Jump::Facts& f,
              const std::optional<std::string>& windowName);
  void run(const std::string& id, const Jump::Command& command, Then then,
           double deadline = kDeadline);
  void runAll(const std::string& id, std::vector<Jump::Command> commands, size_t next,
              std::function<void()> then);
  void tmux(const std::string& id, const Jump::Plan& plan, const std::optional<std::string>& tty);
  void tmuxPane(const std::string& id, const Jump::Plan& plan, const std::string& pane);
  void konsole(const std::string& id, const Jump::Plan& plan);
  void gnomeTerminal(const std::string& id, const Jump::Plan& plan);

  std::shared_ptr<WindowRaiser> raiser_;
  Log log_;
  Subprocesses runs_;  // after the raiser: its runs go first
};
