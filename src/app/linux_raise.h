#pragma once
// Raises the window of a process on the desktop Vantler's environment names: EWMH on X11 (in a
// child process of our own, so a stuck X server never holds the loop), `swaymsg`, `hyprctl`,
// a KWin script over D-Bus. GNOME on Wayland lets no application raise another's window: there
// the user gets a short notice instead. Desktop app and daemon alike.

#include <string>

#include "core/loop.h"
#include "integrations/linux_jump.h"
#include "integrations/linux_subprocesses.h"

class LinuxWindowRaiser final : public WindowRaiser {
 public:
  static constexpr double kDeadline = 3.0;
  // The hidden command of `vantler` that raises an X11 window by pid.
  static constexpr const char* kX11Command = "_raise-x11";

  explicit LinuxWindowRaiser(Loop& loop);

  void raise(const std::vector<int32_t>& pids, const std::string& place, Done done) override;

  // How windows are raised here, for the start-up log ("jump: swaymsg").
  static std::string describe();

  // `vantler _raise-x11 <pid>...`: exit status 0 and the window on stdout when one was raised.
  static int raiseX11(const std::vector<std::string>& pids);

 private:
  // Tries `command(pid)` for each pid in turn until one exits successfully.
  void tryEach(std::vector<std::vector<std::string>> commands, size_t next, std::string desktop,
               Done done);
  void kwin(const std::vector<int32_t>& pids, Done done);
  void notice(const std::string& place, Done done);

  std::string self_;  // this executable, for the X11 child
  Subprocesses runs_;
};
