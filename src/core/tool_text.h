#pragma once
// Words for an agent's tool calls: pure functions from a tool name and its input to the text
// the panel shows. Tool names are Claude Code's; other agents map their events onto them.

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/json.h"
#include "core/session.h"

namespace ToolText {

// The first non-empty line, trimmed, cut to at most `limit` characters with "…". limit >= 1.
std::string shorten(std::string_view text, size_t limit);
// The Claude Code name of another agent's tool ("run_shell_command", "Execute" and "bash" are
// all "Bash"), so that every agent's calls get the same words, kinds and phases; any other name
// as it is. All functions below take either name.
std::string_view canonical(std::string_view tool);
// The last path component of "file_path", "filePath", "notebook_path", "absolute_path" or
// "path" (first present).
std::string file(const Json& input);
std::string activity(std::string_view tool, const Json& input);
std::string detail(std::string_view tool, const Json& input);
// "research", "write", "review", "reason", "delegate" or "other".
std::string_view kind(std::string_view tool, const Json& input);
// Title and detail of a permission prompt.
std::pair<std::string, std::string> permission(std::string_view tool, const Json& input);
std::vector<Question> questions(const Json& input);
// A one-line headline for free text, skipping markup lines.
std::string headline(std::string_view text);

}  // namespace ToolText
