#include "integrations/tmux_replies.h"

#include <glib.h>

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

// One tmux run. It belongs to the completion callback, which frees it; `owner` is cleared when
// the TmuxReplies object goes first.
struct TmuxReplies::Run {
  TmuxReplies* owner;
  std::string target;  // the tty looked for, or the pane typed into
  std::string text;
  Done done;
  GSubprocess* process = nullptr;
  GCancellable* cancellable = nullptr;
  Loop::TaskId limit = 0;
};

TmuxReplies::TmuxReplies(Loop& loop, std::vector<std::string> tmux)
    : loop_(loop), tmux_(std::move(tmux)) {}

TmuxReplies::~TmuxReplies() {
  for (Run* run : runs_) {
    run->owner = nullptr;
    if (run->limit) loop_.cancel(run->limit);
    g_cancellable_cancel(run->cancellable);
    g_subprocess_force_exit(run->process);
  }
}

void TmuxReplies::type(const std::string& tty, const std::string& text) {
  std::string line = Tmux::typed(text);
  if (tty.empty() || line.empty()) return;
  launch({"list-panes", "-a", "-F", "#{pane_id} #{pane_tty}"}, tty, std::move(line), &listed);
}

void TmuxReplies::listed(TmuxReplies& self, Run& run, bool ok, const std::string& out) {
  std::optional<std::string> pane = ok ? Tmux::paneFor(out, run.target) : std::nullopt;
  if (!pane) return;  // not in tmux, or no server: nothing can type there
  self.launch({"send-keys", "-t", *pane, "-l", "--", run.text}, *pane, run.text, &typedText);
}

void TmuxReplies::typedText(TmuxReplies& self, Run& run, bool ok, const std::string&) {
  if (ok) self.launch({"send-keys", "-t", run.target, "Enter"}, run.target, {}, nullptr);
}

void TmuxReplies::launch(std::vector<std::string> args, std::string target, std::string text,
                         Done done) {
  std::vector<const gchar*> argv;
  for (const std::string& part : tmux_) argv.push_back(part.c_str());
  for (const std::string& part : args) argv.push_back(part.c_str());
  argv.push_back(nullptr);
  GError* error = nullptr;
  GSubprocess* process =
      g_subprocess_newv(argv.data(),
                        static_cast<GSubprocessFlags>(G_SUBPROCESS_FLAGS_STDOUT_PIPE |
                                                      G_SUBPROCESS_FLAGS_STDERR_SILENCE),
                        &error);
  if (!process) {
    g_clear_error(&error);
    return;
  }
  auto* run = new Run{this, std::move(target), std::move(text), done, process, g_cancellable_new()};
  runs_.insert(run);
  run->limit = loop_.after(kDeadline, [run] {
    run->limit = 0;
    g_cancellable_cancel(run->cancellable);
    g_subprocess_force_exit(run->process);
  });
  g_subprocess_communicate_utf8_async(process, nullptr, run->cancellable,
                                      &TmuxReplies::communicated, run);
}

void TmuxReplies::communicated(GObject* source, GAsyncResult* result, gpointer data) {
  auto* run = static_cast<Run*>(data);
  char* out = nullptr;
  GError* error = nullptr;
  bool ok =
      g_subprocess_communicate_utf8_finish(G_SUBPROCESS(source), result, &out, nullptr, &error);
  ok = ok && g_subprocess_get_if_exited(run->process) &&
       g_subprocess_get_exit_status(run->process) == 0;
  const std::string output = out ? out : "";
  g_free(out);
  g_clear_error(&error);
  TmuxReplies* owner = run->owner;
  if (owner) {
    owner->runs_.erase(run);
    if (run->limit) owner->loop_.cancel(run->limit);
    if (run->done) run->done(*owner, *run, ok, output);
  }
  g_object_unref(run->process);
  g_object_unref(run->cancellable);
  delete run;
}
