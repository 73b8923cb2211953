#include "integrations/tmux_replies.h"

#include <functional>
#include <utility>

namespace Tmux {

std::optional<std::string> paneFor(std::string_view listing, std::string_view tty) {
  if (tty.empty()) return std::nullopt;
  while (!listing.empty()) {
    const size_t end = listing.find('\n');
    std::string_view line = listing.substr(0, end);
    listing = end == std::string_view::npos ? std::string_view() : listing.substr(end + 1);
    const size_t space = line.find(' ');
    if (space == std::string_view::npos || space == 0) continue;
    if (line.substr(space + 1) == tty) return std::string(line.substr(0, space));
  }
  return std::nullopt;
}

std::string typed(std::string_view text) {
  std::string line;
  for (char c : text) line += static_cast<unsigned char>(c) < 0x20 || c == 0x7f ? ' ' : c;
  if (line.size() <= kMaxText) return line;
  const char* cut = line.data() + kMaxText;
  // Back to the start of the character the limit falls in.
  while (cut > line.data() && (static_cast<unsigned char>(*cut) & 0xC0) == 0x80) --cut;
  line.resize(static_cast<size_t>(cut - line.data()));
  return line;
}

}  // namespace Tmux

TmuxReplies::TmuxReplies(Loop& loop, std::vector<std::string> tmux)
    : tmux_(std::move(tmux)), runs_(loop) {}

void TmuxReplies::type(const std::string& tty, const std::string& text) {
  std::string line = Tmux::typed(text);
  if (tty.empty() || line.empty()) return;
  launch({"list-panes", "-a", "-F", "#{pane_id} #{pane_tty}"},
         [this, tty, line = std::move(line)](bool ok, const std::string& out) {
           std::optional<std::string> pane = ok ? Tmux::paneFor(out, tty) : std::nullopt;
           if (!pane) return;  // not in tmux, or no server: nothing can type there
           launch({"send-keys", "-t", *pane, "-l", "--", line},
                  [this, pane = *pane](bool typed, const std::string&) {
                    if (typed) launch({"send-keys", "-t", pane, "Enter"});
                  });
         });
}

void TmuxReplies::launch(std::vector<std::string> args,
                         std::function<void(bool ok, const std::string& out)> then) {
  std::vector<std::string> argv = tmux_;
  argv.insert(argv.end(), args.begin(), args.end());
  runs_.run(argv, {kDeadline, {}, {}}, [then = std::move(then)](const Subprocesses::Result& r) {
    if (then) then(r.exited0, r.out);
  });
}
