#include "core/tool_text.h"

#include <algorithm>
#include <cassert>
#include <initializer_list>
#include <memory>

#include <glib.h>

#include "core/text.h"

namespace ToolText {
namespace {

using JsonField::str;

bool isAny(std::string_view tool, std::initializer_list<std::string_view> names) {
  return std::find(names.begin(), names.end(), tool) != names.end();
}

bool isMcp(std::string_view tool) {
  return tool.starts_with("mcp__");
}

// The pieces of an MCP tool name split at every "_", empty pieces dropped: "mcp", the
// server, then the server's own tool name (which may itself have been split).
std::vector<std::string_view> mcpPieces(std::string_view tool) {
  std::vector<std::string_view> pieces;
  size_t start = 0;
  while (start <= tool.size()) {
    size_t end = std::min(tool.find('_', start), tool.size());
    if (end > start) pieces.push_back(tool.substr(start, end - start));
    start = end + 1;
  }
  return pieces;
}

// The MCP tool's own name: the pieces from the third on joined with "_".
std::string mcpToolName(const std::vector<std::string_view>& pieces) {
  std::string name;
  for (size_t i = 2; i < pieces.size(); ++i) {
    if (i > 2) name += '_';
    name += pieces[i];
  }
  return name;
}

// The host of input "url", or empty when it is missing, not a URL or has no host.
std::string urlHost(const Json& input) {
  if (!JsonField::hasString(input, "url")) return {};
  const std::string url = str(input, "url");
  // GLib tolerates spaces and control characters, which no real URL contains.
  if (std::any_of(url.begin(), url.end(), [](unsigned char c) { return c <= ' ' || c == 0x7F; }))
    return {};
  std::unique_ptr<GUri, decltype(&g_uri_unref)> uri(
      g_uri_parse(url.c_str(), G_URI_FLAGS_NONE, nullptr), &g_uri_unref);
  if (!uri) return {};
  const char* host = g_uri_get_host(uri.get());
  return host ? std::string(host) : std::string();
}

// The first of `keys` that holds a string, or empty.
std::string firstPresent(const Json& input, std::initializer_list<std::string_view> keys) {
  for (auto key : keys)
    if (JsonField::hasString(input, key)) return str(input, key);
  return {};
}

struct Alias {
  std::string_view name;
  std::string_view claude;
};

// Other agents' names for Claude Code's tools, by agent (names two agents share are listed
// once, under the first).
constexpr Alias kAliases[] = {
    // Gemini CLI and Qwen Code.
    {"run_shell_command", "Bash"},
    {"read_file", "Read"},
    {"read_many_files", "Read"},
    {"write_file", "Write"},
    {"replace", "Edit"},
    {"glob", "Glob"},
    {"search_file_content", "Grep"},
    {"grep_search", "Grep"},
    {"list_directory", "LS"},
    {"web_fetch", "WebFetch"},
    {"google_web_search", "WebSearch"},
    {"web_search", "WebSearch"},
    {"todo_write", "TodoWrite"},
    // droid.
    {"Execute", "Bash"},
    {"Create", "Write"},
    {"ApplyPatch", "Edit"},
    {"FetchUrl", "WebFetch"},
    // OpenCode, Kilo Code, Copilot CLI and Crush.
    {"bash", "Bash"},
    {"read", "Read"},
    {"view", "Read"},
    {"write", "Write"},
    {"create", "Write"},
    {"edit", "Edit"},
    {"multiedit", "Edit"},
    {"patch", "Edit"},
    {"grep", "Grep"},
    {"sourcegraph", "Grep"},
    {"list", "LS"},
    {"ls", "LS"},
    {"webfetch", "WebFetch"},
    {"fetch", "WebFetch"},
    {"task", "Task"},
    {"agent", "Task"},
    {"todowrite", "TodoWrite"},
    // Devin CLI.
    {"exec", "Bash"},
    // Augment.
    {"launch-process", "Bash"},
    {"str-replace-editor", "Edit"},
    {"save-file", "Write"},
    {"web-fetch", "WebFetch"},
    {"web-search", "WebSearch"},
    // Kimi Code and Kimi CLI.
    {"Shell", "Bash"},
    {"ReadFile", "Read"},
    {"WriteFile", "Write"},
    {"StrReplaceFile", "Edit"},
    {"SearchWeb", "WebSearch"},
    {"FetchURL", "WebFetch"},
    {"SetTodoList", "TodoWrite"},
    // Goose.
    {"developer__shell", "Bash"},
    {"developer__write", "Write"},
    {"developer__edit", "Edit"},
    {"developer__text_editor", "Edit"},
    // Cline.
    {"execute_command", "Bash"},
    {"write_to_file", "Write"},
    {"replace_in_file", "Edit"},
    {"search_files", "Grep"},
    {"list_files", "LS"},
    // Kiro.
    {"execute_bash", "Bash"},
    {"shell", "Bash"},
    {"fs_read", "Read"},
    {"fs_write", "Write"},
    // Mistral Vibe.
    {"search_replace", "Edit"},
    {"todo", "TodoWrite"},
    // Amp.
    {"edit_file", "Edit"},
    {"create_file", "Write"},
    {"read_web_page", "WebFetch"},
};

}  // namespace

std::string_view canonical(std::string_view tool) {
  for (const Alias& a : kAliases)
    if (a.name == tool) return a.claude;
  return tool;
}

std::string shorten(std::string_view text, size_t limit) {
  assert(limit >= 1);
  limit = std::max<size_t>(limit, 1);
  const auto pieces = Text::lines(text);
  std::string line = pieces.empty() ? std::string() : Text::trim(pieces.front());
  if (Text::graphemes(line) <= limit) return line;
  return Text::prefixGraphemes(line, limit - 1) + "…";
}

std::string file(const Json& input) {
  std::string path =
      firstPresent(input, {"file_path", "filePath", "notebook_path", "absolute_path", "path"});
  if (path.empty()) return path;
  const size_t last = path.find_last_not_of('/');
  if (last == std::string::npos) return "/";  // only slashes: the root
  path.resize(last + 1);
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string activity(std::string_view tool, const Json& input) {
  tool = canonical(tool);
  if (tool == "Bash") return "Running " + shorten(firstPresent(input, {"command", "cmd"}), 48);
  if (isAny(tool, {"Edit", "MultiEdit", "NotebookEdit"})) return "Editing " + file(input);
  if (tool == "Write") return "Writing " + file(input);
  if (tool == "Read") return "Reading " + file(input);
  if (isAny(tool, {"Grep", "Glob"})) return "Searching " + shorten(str(input, "pattern"), 32);
  if (tool == "WebFetch") {
    const std::string host = urlHost(input);
    return host.empty() ? "Reading the web" : "Reading " + host;
  }
  if (tool == "WebSearch") return "Searching the web";
  if (isAny(tool, {"Task", "Agent"})) {
    return "Delegating " + shorten(str(input, "description"), 36);
  }
  if (tool == "TodoWrite") return "Planning";
  if (tool == "AskUserQuestion") return "Asking you";
  if (isMcp(tool)) {
    const auto pieces = mcpPieces(tool);
    if (pieces.size() >= 3) return std::string(pieces[1]) + " · " + mcpToolName(pieces);
  }
  return std::string(tool);
}

std::string detail(std::string_view tool, const Json& input) {
  tool = canonical(tool);
  if (tool == "Bash") return shorten(firstPresent(input, {"command", "cmd"}), 40);
  if (isAny(tool, {"Read", "Edit", "MultiEdit", "Write", "NotebookEdit"})) return file(input);
  if (isAny(tool, {"Grep", "Glob"})) return shorten(str(input, "pattern"), 32);
  if (tool == "WebFetch") return urlHost(input);
  if (tool == "WebSearch") return shorten(str(input, "query"), 32);
  if (isAny(tool, {"Task", "Agent"})) return shorten(str(input, "description"), 32);
  if (isMcp(tool)) return mcpToolName(mcpPieces(tool));
  return {};
}

std::string_view kind(std::string_view tool, const Json& /*input*/) {
  tool = canonical(tool);
  if (isAny(tool, {"Read", "Grep", "Glob", "WebFetch", "WebSearch", "LS"})) return "research";
  if (isAny(tool, {"Edit", "MultiEdit", "Write", "NotebookEdit"})) return "write";
  if (tool == "Bash") return "review";
  if (tool == "TodoWrite") return "reason";
  if (isAny(tool, {"Task", "Agent"})) return "delegate";
  return "other";
}

std::pair<std::string, std::string> permission(std::string_view tool, const Json& input) {
  tool = canonical(tool);
  if (tool == "Bash") return {"Wants to run", firstPresent(input, {"command", "cmd"})};
  if (isAny(tool, {"Edit", "MultiEdit", "NotebookEdit"})) {
    return {"Edit " + file(input) + "?",
            firstPresent(input, {"file_path", "notebook_path", "filePath", "path"})};
  }
  if (tool == "Write")
    return {"Create " + file(input) + "?", firstPresent(input, {"file_path", "filePath", "path"})};
  if (tool == "WebFetch") return {"Fetch this page?", str(input, "url")};
  if (tool == "WebSearch") return {"Search the web?", str(input, "query")};
  if (tool == "Read") return {"Read " + file(input) + "?", str(input, "file_path")};
  // The title deliberately describes the tool without its input ("Allow Delegating ?").
  return {"Allow " + activity(tool, Json::object()) + "?", JsonField::compactOrEmpty(input)};
}

namespace {

// The array under `key` when every element is an object; otherwise nullptr, so a list with
// a stray non-object entry reads as absent.
const Json* objectArray(const Json& obj, std::string_view key) {
  const Json& list = JsonField::array(obj, key);
  for (const Json& item : list)
    if (!item.is_object()) return nullptr;
  return list.empty() ? nullptr : &list;
}

}  // namespace

std::vector<Question> questions(const Json& input) {
  std::vector<Question> out;
  const Json* list = objectArray(input, "questions");
  if (!list) return out;
  for (const Json& item : *list) {
    Question q;
    q.header = str(item, "header");
    q.text = str(item, "question");
    q.multi = JsonField::boolean(item, "multiSelect");
    if (const Json* options = objectArray(item, "options")) {
      for (const Json& option : *options)
        q.options.push_back({str(option, "label"), str(option, "description")});
    }
    out.push_back(std::move(q));
  }
  return out;
}

std::string headline(std::string_view text) {
  // The first line that is not markup (a tag, heading or code fence), else the first line.
  std::string chosen;
  bool first = true;
  for (const std::string& piece : Text::lines(text)) {
    std::string line = Text::trim(piece);
    const bool markup = line.starts_with('<') || line.starts_with('#') || line.starts_with("```");
    if (!line.empty() && !markup) {
      chosen = std::move(line);
      break;
    }
    if (first) chosen = std::move(line);
    first = false;
  }
  std::string plain;
  plain.reserve(chosen.size());
  for (size_t i = 0; i < chosen.size(); ++i) {
    if (chosen.compare(i, 2, "**") == 0) {
      ++i;
    } else {
      plain += chosen[i];
    }
  }
  return shorten(plain, 64);
}

}  // namespace ToolText
