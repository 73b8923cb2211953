// The one way agents' configuration files are read and written.

#include <algorithm>

#include "integrations/file_access.h"
#include "integrations/installers.h"
#include "integrations/json_text.h"

namespace ConfigFile {
namespace {

bool blank(std::string_view text) {
  return text.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

Json parseObject(const std::string& path, const std::optional<std::string>& bytes) {
  if (!bytes || blank(*bytes)) return Json::object();
  JsonText::Parsed parsed = JsonText::parse(*bytes);
  if (!parsed.error.empty())
    throw InstallError(shown(path) + " is not valid JSON (" + parsed.error +
                       "); left it untouched");
  if (!parsed.value.is_object())
    throw InstallError(shown(path) + " is not a JSON object; left it untouched");
  return std::move(parsed.value);
}

bool anyOurs(const Json& list, std::string_view marker, std::string_view key) {
  if (!list.is_array()) return false;
  return std::any_of(list.begin(), list.end(),
                     [&](const Json& entry) { return isOurs(entry, marker, key); });
}

// Removes our entries from `list`; reports whether any were there.
bool dropOurs(Json& list, std::string_view marker, std::string_view key) {
  if (!anyOurs(list, marker, key)) return false;
  Json kept = Json::array();
  for (Json& entry : list)
    if (!isOurs(entry, marker, key)) kept.push_back(std::move(entry));
  list = std::move(kept);
  return true;
}

// Applies `strip` to every event list; an event emptied by it is removed.
template <class Strip>
bool stripEvents(Json& hooks, Strip strip) {
  if (!hooks.is_object()) return false;
  bool removed = false;
  for (auto it = hooks.begin(); it != hooks.end();) {
    if (it->is_array() && strip(*it)) {
      removed = true;
      if (it->empty()) {
        it = hooks.erase(it);
        continue;
      }
    }
    ++it;
  }
  return removed;
}

}  // namespace

std::string shown(const std::string& path) {
  std::string home = files().home();
  while (home.size() > 1 && home.back() == '/') home.pop_back();
  if (home.size() > 1 && path.size() > home.size() && path.compare(0, home.size(), home) == 0 &&
      path[home.size()] == '/')
    return "~" + path.substr(home.size());
  return path;
}

std::string serialise(const Json& value) {
  try {
    return value.dump(2) + "\n";
  } catch (const Json::exception&) {
    throw InstallError("the settings hold text that is not valid UTF-8");
  }
}

std::optional<std::string> read(const std::string& path) {
  return files().read(path);
}

Json load(const std::string& path) {
  return parseObject(path, read(path));
}

std::optional<Json> peek(const std::string& path) {
  try {
    auto bytes = read(path);
    if (!bytes) return std::nullopt;
    return parseObject(path, bytes);
  } catch (const InstallError&) {
    return std::nullopt;
  }
}

void edit(const std::string& path, const std::function<bool(Json& root)>& change,
          bool createIfMissing) {
  auto before = read(path);
  if (!before && !createIfMissing) return;
  Json root = parseObject(path, before);
  const Json original = root;
  if (!change(root)) return;
  // Hooks that this edit emptied were ours: the member goes, as it was before we came.
  auto hooks = root.find("hooks");
  if (hooks != root.end() && hooks->is_object() && hooks->empty() &&
      !JsonField::object(original, "hooks").empty())
    root.erase(hooks);
  if (root == original) return;
  if (!before || blank(*before)) return write(path, serialise(root));
  std::string bytes;
  try {
    bytes = JsonText::patch(*before, original, root);
  } catch (const Json::exception&) {
    throw InstallError(shown(path) + " holds text that is not valid UTF-8; left it untouched");
  }
  write(path, bytes);
}

void write(const std::string& path, std::string_view bytes, bool backup,
           std::optional<unsigned> mode) {
  auto before = read(path);
  if (before && *before == bytes) return;
  files().replace(path, bytes, backup && before, mode);
}

namespace {

bool isHookProgram(std::string_view path, std::string_view program) {
  if (program != kMarker) {
    // An earlier product's hook, wherever it was installed.
    auto slash = path.rfind('/');
    return path.substr(slash == std::string_view::npos ? 0 : slash + 1) == program;
  }
  const std::string rest = "/.vantler/bin/" + std::string(program);
  for (const std::string& dir :
       {files().home(), std::string("~"), std::string("$HOME"), std::string("${HOME}")})
    if (path == dir + rest) return true;
  return false;
}

// The program a shell command starts with, its quotes and escapes removed; nothing when a quote
// is left open.
std::optional<std::string> firstWord(std::string_view command) {
  std::string word;
  size_t i = command.find_first_not_of(" \t");
  for (;
       i < command.size() && std::string_view(" \t;|&").find(command[i]) == std::string_view::npos;
       ++i) {
    char c = command[i];
    if (c == '"' || c == '\'') {
      size_t end = command.find(c, i + 1);
      if (end == std::string_view::npos) return std::nullopt;
      word.append(command.substr(i + 1, end - i - 1));
      i = end;
    } else if (c == '\\' && i + 1 < command.size()) {
      word += command[++i];
    } else {
      word += c;
    }
  }
  return word;
}

// Whether a script runs the hook program first: "P args...", "exec P args..." or the guard
// every installer writes, '[ -x "P" ] && [exec ]"P" args...'.
bool runsHook(std::string_view script, std::string_view program) {
  constexpr std::string_view guard = "[ -x \"", guarded = "\" ] && ", exec = "exec ";
  std::optional<std::string_view> checked;
  if (script.starts_with(guard)) {
    size_t close = script.find('"', guard.size());
    if (close == std::string_view::npos ||
        script.substr(close).substr(0, guarded.size()) != guarded)
      return false;
    checked = script.substr(guard.size(), close - guard.size());
    script.remove_prefix(close + guarded.size());
  }
  if (script.starts_with(exec)) script.remove_prefix(exec.size());
  auto word = firstWord(script);
  return word && isHookProgram(*word, program) && (!checked || *checked == *word);
}

}  // namespace

bool isOurCommand(std::string_view command, std::string_view program) {
  constexpr std::string_view shell = "/bin/sh -c '";
  if (command.starts_with(shell) && command.size() > shell.size() && command.ends_with('\''))
    return runsHook(command.substr(shell.size(), command.size() - shell.size() - 1), program);
  return runsHook(command, program);
}

bool isOurs(const Json& entry, std::string_view marker, std::string_view key) {
  const Json* text = JsonField::find(entry, key);
  return text && text->is_string() && isOurCommand(text->get_ref<const std::string&>(), marker);
}

bool stripGroups(Json& hooks, std::string_view marker) {
  return stripEvents(hooks, [&](Json& groups) {
    bool removed = false;
    Json kept = Json::array();
    for (Json& group : groups) {
      Json* entries = group.is_object() && group.contains("hooks") ? &group["hooks"] : nullptr;
      if (entries && dropOurs(*entries, marker, "command")) {
        removed = true;
        if (entries->empty()) continue;
      }
      kept.push_back(std::move(group));
    }
    groups = std::move(kept);
    return removed;
  });
}

bool stripFlat(Json& hooks, std::string_view marker, std::string_view key) {
  return stripEvents(hooks, [&](Json& entries) { return dropOurs(entries, marker, key); });
}

bool hasGroupEntry(const Json& hooks, std::string_view marker) {
  if (!hooks.is_object()) return false;
  for (const Json& groups : hooks) {
    if (!groups.is_array()) continue;
    for (const Json& group : groups)
      if (anyOurs(JsonField::array(group, "hooks"), marker, "command")) return true;
  }
  return false;
}

bool hasFlatEntry(const Json& hooks, std::string_view marker, std::string_view key) {
  if (!hooks.is_object()) return false;
  return std::any_of(hooks.begin(), hooks.end(),
                     [&](const Json& entries) { return anyOurs(entries, marker, key); });
}

Json& hooksOf(Json& root, const std::string& path) {
  Json& hooks = root["hooks"];
  if (hooks.is_null()) hooks = Json::object();
  if (!hooks.is_object())
    throw InstallError(shown(path) + ": \"hooks\" is not an object; left it untouched");
  return hooks;
}

Json& eventList(Json& hooks, const std::string& event, const std::string& path) {
  Json& list = hooks[event];
  if (list.is_null()) list = Json::array();
  if (!list.is_array())
    throw InstallError(shown(path) + ": the \"" + event +
                       "\" hooks are not a list; left the file untouched");
  return list;
}

Json makeGroup(const std::string& command, bool matcher, std::optional<int64_t> timeout) {
  Json entry = {{"type", "command"}, {"command", command}};
  if (timeout) entry["timeout"] = *timeout;
  Json group = {{"hooks", Json::array({entry})}};
  if (matcher) group["matcher"] = "*";
  return group;
}

}  // namespace ConfigFile
