#pragma once
// Types a reply into the tmux pane an agent runs in, for a session whose turn the app no longer
// holds. tmux is asked for the pane whose terminal is the session's, then the text is sent as
// literal keys followed by Enter. Every tmux run is asynchronous and stopped after
// `kDeadline` seconds; the loop never waits for one.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/loop.h"
#include "core/ports.h"
#include "integrations/linux_subprocesses.h"

namespace Tmux {
// The pane ("%3") whose terminal is `tty`, from `list-panes -a -F '#{pane_id} #{pane_tty}'`.
std::optional<std::string> paneFor(std::string_view listing, std::string_view tty);
// The reply as one line of keys: control characters (line breaks included) become spaces, and
// the text is cut, on a character boundary, to at most `kMaxText` bytes.
std::string typed(std::string_view text);
constexpr size_t kMaxText = 8192;
}  // namespace Tmux

class TmuxReplies final : public TerminalReplies {
 public:
  static constexpr double kDeadline = 2.0;

  // `tmux` is the command that reaches the server, with any options naming its socket.
  explicit TmuxReplies(Loop& loop, std::vector<std::string> tmux = {"tmux"});

  void type(const std::string& tty, const std::string& text) override;

 private:
  // Runs tmux with these arguments; `then` gets whether it succeeded and what it printed.
  void launch(std::vector<std::string> args,
              std::function<void(bool ok, const std::string& out)> then = {});

  std::vector<std::string> tmux_;
  Subprocesses runs_;
};
