#pragma once
// The one-line summary of the sessions that `vantler status` prints for a status bar: how many
// sessions wait, work and are done, and what Claude Code cost today, as plain text, as the JSON
// of a Waybar custom module (text, tooltip with a line per session, class by the most urgent
// mood) or with tmux colour markup.

#include <optional>
#include <string>
#include <string_view>

#include "core/json.h"

namespace StatusLine {

enum class Format { plain, waybar, tmux };

// "plain", "waybar", "tmux"; nothing for another name.
std::optional<Format> format(std::string_view name);

// The line for a snapshot (as `vantler state` prints it) and today's cost in dollars; without
// a snapshot, the line of an app that is not running (class "off").
std::string render(const Json* snapshot, double costToday, Format format);

}  // namespace StatusLine
