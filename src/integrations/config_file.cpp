// The one way agents' configuration files are read and written.

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "core/files.h"
#include "integrations/installers.h"

namespace ConfigFile {
namespace {

// The file's bytes; nothing when it does not exist. A file that exists but cannot be read is
// an error: treating it as empty would overwrite it.
std::optional<std::string> readBytes(const std::string& path) {
  if (auto bytes = Files::read(path)) return bytes;
  if (Files::exists(path)) throw InstallError("cannot read " + shown(path));
  return std::nullopt;
}

bool blank(std::string_view text) {
  return text.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

Json parseObject(const std::string& path, const std::optional<std::string>& bytes) {
  if (!bytes || blank(*bytes)) return Json::object();
  if (!JsonField::nestsWithin(*bytes))
    throw InstallError(shown(path) + " nests deeper than " + std::to_string(JsonField::kMaxDepth) +
                       " levels; left it untouched");
  Json value;
  try {
    value = Json::parse(*bytes);
  } catch (const Json::parse_error& e) {
    size_t end = std::min<size_t>(e.byte, bytes->size());
    auto line = 1 + std::count(bytes->begin(), bytes->begin() + static_cast<ptrdiff_t>(end), '\n');
    throw InstallError(shown(path) + " is not valid JSON (line " + std::to_string(line) +
                       "); left it untouched");
  }
  if (!value.is_object())
    throw InstallError(shown(path) + " is not a JSON object; left it untouched");
  return value;
}

// Where the bytes really go: the target of a symbolic link, so a link into a dotfiles
// repository stays a link.
std::string target(const std::string& path) {
  std::error_code ec;
  if (!std::filesystem::is_symlink(path, ec)) return path;
  auto real = std::filesystem::weakly_canonical(path, ec);
  return ec ? path : real.string();
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
  std::string home = Files::home();
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

Json load(const std::string& path) {
  return parseObject(path, readBytes(path));
}

std::optional<Json> peek(const std::string& path) {
  auto bytes = Files::read(path);
  if (!bytes) return std::nullopt;
  if (blank(*bytes)) return Json::object();
  Json value = JsonField::parse(*bytes);
  if (!value.is_object()) return std::nullopt;
  return value;
}

void edit(const std::string& path, const std::function<bool(Json& root)>& change,
          bool createIfMissing) {
  auto before = readBytes(path);
  if (!before && !createIfMissing) return;
  Json root = parseObject(path, before);
  if (!change(root)) return;
  write(path, serialise(root));
}

void write(const std::string& path, std::string_view bytes, bool backup) {
  auto before = readBytes(path);
  if (before && *before == bytes) return;
  std::string real = target(path);
  if (before && backup) {
    // The backup keeps the original's permissions: settings files can hold secrets. A failed
    // backup does not stop the write.
    struct stat st;
    std::optional<unsigned> mode;
    if (::stat(real.c_str(), &st) == 0) mode = st.st_mode & 0777;
    (void)Files::writeAtomic(path + std::string(kBackupSuffix), *before, mode);
  }
  if (auto error = Files::writeAtomic(real, bytes))
    throw InstallError("could not save " + shown(path) + " (" + *error + ")");
}

bool isOurs(const Json& entry, std::string_view marker, std::string_view key) {
  const Json* text = JsonField::find(entry, key);
  return text && text->is_string() &&
         text->get_ref<const std::string&>().find(marker) != std::string::npos;
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
