#include "bridge/permission_rules.h"

#include <optional>
#include <vector>

#include "core/session.h"

namespace PermissionRules {
namespace {

std::string joined(const std::vector<std::string>& words) {
  std::string out;
  for (size_t i = 0; i < words.size(); ++i) {
    if (i > 0) out += i + 1 == words.size() ? " and " : ", ";
    out += words[i];
  }
  return out;
}

// "`npm test`" for a Bash rule "npm test:*"; "Read `src/**`" for another tool's rule; the tool
// alone for a rule without content.
std::string ruleWords(const Json& rule) {
  const std::string tool = JsonField::str(rule, "toolName");
  std::string content = JsonField::str(rule, "ruleContent");
  for (std::string_view wildcard : {":*", " *"})
    if (content.ends_with(wildcard)) content.resize(content.size() - wildcard.size());
  if (content.empty()) return tool;
  if (tool == "Bash" || tool.empty()) return "`" + content + "`";
  return tool + " `" + content + "`";
}

}  // namespace

std::string label(const Json& suggestion) {
  const std::string type = JsonField::str(suggestion, "type");
  const bool session = JsonField::str(suggestion, "destination") == "session";
  std::string what;
  if (type == "addRules" && JsonField::str(suggestion, "behavior", "allow") == "allow") {
    std::vector<std::string> words;
    for (const Json& rule : JsonField::array(suggestion, "rules"))
      if (std::string w = ruleWords(rule); !w.empty()) words.push_back(std::move(w));
    what = joined(words);
  } else if (type == "addDirectories") {
    std::vector<std::string> dirs;
    for (const Json& dir : JsonField::array(suggestion, "directories"))
      if (dir.is_string() && !dir.get_ref<const std::string&>().empty())
        dirs.push_back("`" + lastPathComponent(dir.get_ref<const std::string&>()) + "`");
    if (!dirs.empty()) what = "access to " + joined(dirs);
  } else if (type == "setMode") {
    const std::string mode = JsonField::str(suggestion, "mode");
    if (mode == "acceptEdits") what = "all edits";
    if (mode == "bypassPermissions") what = "everything";
  }
  if (what.empty()) return {};
  return session ? "Allow " + what + " this session" : "Always allow " + what;
}

std::optional<Offer> offer(const Json& payload) {
  for (const Json& suggestion : JsonField::array(payload, "permission_suggestions")) {
    if (!suggestion.is_object()) continue;
    if (std::string words = label(suggestion); !words.empty()) return Offer{words, suggestion};
  }
  return std::nullopt;
}

}  // namespace PermissionRules
