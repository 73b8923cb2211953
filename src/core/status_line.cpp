#include "core/status_line.h"

#include <array>
#include <cstdio>

namespace StatusLine {
namespace {

// The moods counted, most urgent first; the first one present names the class.
constexpr std::array<std::string_view, 3> kCounted = {"waiting", "working", "done"};

struct Summary {
  std::array<int, kCounted.size()> counts{};
  std::string mood = "idle";  // the most urgent mood among the sessions
  std::string tooltip;
};

Summary summarize(const Json& snapshot) {
  Summary s;
  for (const Json& session : JsonField::array(snapshot, "sessions")) {
    const std::string mood = JsonField::str(session, "mood");
    for (size_t i = 0; i < kCounted.size(); ++i)
      if (mood == kCounted[i]) ++s.counts[i];
    // What the session is about now: its open request, else what it does, else its title.
    std::string what = JsonField::str(JsonField::object(session, "pending"), "title");
    if (what.empty()) what = JsonField::str(session, "activity");
    if (what.empty()) what = JsonField::str(session, "title");
    const std::string project = JsonField::str(session, "project");
    if (!s.tooltip.empty()) s.tooltip += '\n';
    s.tooltip += JsonField::str(session, "agent") + " · " + project + ": " +
                 (what.empty() || what == project ? "" : what + " ") + "(" + mood + ")";
  }
  for (size_t i = 0; i < kCounted.size(); ++i) {
    if (s.counts[i] > 0) {
      s.mood = kCounted[i];
      break;
    }
  }
  if (s.tooltip.empty()) s.tooltip = "No agent sessions";
  return s;
}

std::string money(double dollars) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "$%.2f today", dollars);
  return buf;
}

// Text in Pango markup, as Waybar shows its text and tooltip.
std::string markupEscaped(std::string_view text) {
  std::string out;
  for (char c : text) {
    if (c == '&')
      out += "&amp;";
    else if (c == '<')
      out += "&lt;";
    else if (c == '>')
      out += "&gt;";
    else
      out += c;
  }
  return out;
}

std::string tmuxStyle(std::string_view mood) {
  if (mood == "waiting") return "#[fg=yellow,bold]";
  if (mood == "working") return "#[fg=cyan]";
  if (mood == "done") return "#[fg=green]";
  return "#[fg=colour244]";
}

}  // namespace

std::optional<Format> format(std::string_view name) {
  if (name == "plain") return Format::plain;
  if (name == "waybar") return Format::waybar;
  if (name == "tmux") return Format::tmux;
  return std::nullopt;
}

std::string render(const Json* snapshot, double costToday, Format format) {
  const std::string off = "Vantler off";
  if (!snapshot) {
    if (format == Format::waybar)
      return JsonField::compact(
          {{"text", off}, {"tooltip", "Vantler is not running"}, {"class", "off"}, {"alt", "off"}});
    return format == Format::tmux ? tmuxStyle("off") + off + "#[default]" : off;
  }
  const Summary s = summarize(*snapshot);
  std::string text;
  for (size_t i = 0; i < kCounted.size(); ++i) {
    if (s.counts[i] == 0) continue;
    std::string part = std::to_string(s.counts[i]) + " " + std::string(kCounted[i]);
    if (format == Format::tmux) part = tmuxStyle(kCounted[i]) + part + "#[default]";
    text += (text.empty() ? "" : " · ") + part;
  }
  if (text.empty()) text = format == Format::tmux ? tmuxStyle("idle") + "idle#[default]" : "idle";
  text += " · " + money(costToday);
  if (format != Format::waybar) return text;
  return JsonField::compact({{"text", markupEscaped(text)},
                             {"tooltip", markupEscaped(s.tooltip)},
                             {"class", s.mood},
                             {"alt", s.mood}});
}

}  // namespace StatusLine
