#include "integrations/codex_watcher.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <deque>
#include <memory>

#include <glib.h>

#include "core/hub.h"
#include "core/tool_text.h"

namespace {

using JsonField::str;

struct DateTimeUnref {
  void operator()(GDateTime* t) const { g_date_time_unref(t); }
};
using DateTime = std::unique_ptr<GDateTime, DateTimeUnref>;

// A record's ISO 8601 time stamp ("2025-10-08T14:02:11.512Z") as seconds since 1970.
std::optional<WallTime> iso(const std::string& text) {
  if (text.empty()) return std::nullopt;
  DateTime t(g_date_time_new_from_iso8601(text.c_str(), nullptr));
  if (!t) return std::nullopt;
  return static_cast<WallTime>(g_date_time_to_unix(t.get())) +
         g_date_time_get_microsecond(t.get()) / 1e6;
}

// Removes white space of any kind, line breaks included, from both ends.
std::string trimmed(std::string_view text) {
  const char* begin = text.data();
  const char* end = begin + text.size();
  while (begin < end) {
    gunichar c = g_utf8_get_char_validated(begin, end - begin);
    if (c == static_cast<gunichar>(-1) || c == static_cast<gunichar>(-2) || !g_unichar_isspace(c))
      break;
    begin = g_utf8_next_char(begin);
  }
  while (end > begin) {
    const char* last = g_utf8_find_prev_char(begin, end);
    if (!last) last = begin;
    gunichar c = g_utf8_get_char_validated(last, end - last);
    if (c == static_cast<gunichar>(-1) || c == static_cast<gunichar>(-2) || !g_unichar_isspace(c))
      break;
    end = last;
  }
  return std::string(begin, end);
}

std::string withoutBold(std::string text) {
  for (size_t at = text.find("**"); at != std::string::npos; at = text.find("**", at))
    text.erase(at, 2);
  return text;
}

// A command item's command line: a string, or an argument vector (recent versions). A vector
// that runs a shell on a command string ("bash", "-lc", "cargo test") shows that string;
// others are joined with spaces.
std::string commandLine(const Json& item) {
  if (JsonField::hasString(item, "command")) return str(item, "command");
  std::vector<std::string> args;
  for (const Json& arg : JsonField::array(item, "command"))
    if (arg.is_string()) args.push_back(arg.get<std::string>());
  if (args.size() == 3 && (args[1] == "-c" || args[1] == "-lc")) return args[2];
  std::string line;
  for (const std::string& arg : args) line += (line.empty() ? "" : " ") + arg;
  return line;
}

std::string nonEmpty(std::string text, std::string_view fallback) {
  return text.empty() ? std::string(fallback) : text;
}

using Calls = std::deque<std::string>;
constexpr size_t kOpenCallsKept = 16;

// What a command did, by Codex's own reading of it: only reading, listing and searching is
// research; anything else (or no reading at all) is a command under review.
std::string commandPhase(const Json& item) {
  const Json& parsed = JsonField::array(item, "parsed_cmd");
  if (parsed.empty()) return "reviewing";
  for (const Json& part : parsed) {
    const std::string type = str(part, "type");
    if (type != "read" && type != "list_files" && type != "search") return "reviewing";
  }
  return "researching";
}

// An answer's text: a plain "text", or the text parts of its "content".
std::string agentText(const Json& item) {
  if (JsonField::hasString(item, "text")) return str(item, "text");
  std::string text;
  for (const Json& part : JsonField::array(item, "content"))
    if (JsonField::hasString(part, "text")) text += str(part, "text");
  return text;
}

// The model asked to run a command: it runs from now on and is counted at once, since a
// command refused or failing in the sandbox leaves no finished item behind.
void applyCall(Session& s, const Json& payload, Calls& open, Date date) {
  if (s.hooked || str(payload, "name") != "exec_command") return;
  const Json* raw = JsonField::find(payload, "arguments");
  const Json args = raw && raw->is_string() ? JsonField::parse(raw->get_ref<const std::string&>())
                    : raw                   ? *raw
                                            : Json::object();
  const Json* cmd = args.is_object() ? JsonField::find(args, "cmd") : nullptr;
  const std::string command = commandLine(Json{{"command", cmd ? *cmd : Json()}});
  s.activity = "Running " + ToolText::shorten(command, 48);
  s.pushTool(s.activity);
  s.countTool("Bash", Json{{"command", command}}, date);
  s.mood = Mood::working;
  open.push_back(str(payload, "call_id"));
  if (open.size() > kOpenCallsKept) open.pop_front();
}

// Takes the counted call a finished command item belongs to: the one with its id, else the
// oldest still open. False when none was counted.
bool takeCall(Calls& open, const Json& item) {
  for (const char* key : {"call_id", "id"}) {
    const std::string id = str(item, key);
    if (id.empty()) continue;
    if (auto it = std::find(open.begin(), open.end(), id); it != open.end()) {
      open.erase(it);
      return true;
    }
  }
  if (open.empty()) return false;
  open.pop_front();
  return true;
}

// The turn's item as the session shows it: the user's prompt, a finished command or MCP call,
// an answer, or an extension at work.
void applyItem(Session& s, const Json& item, Calls& open, Date date) {
  const std::string type = str(item, "type");
  if (type == "UserMessage") {
    const Json* content = JsonField::find(item, "content");
    if (auto text = content ? CodexWatcher::userText(*content) : std::nullopt)
      s.title = ToolText::headline(*text);
  } else if (type == "AgentMessage") {
    std::string said = ToolText::shorten(withoutBold(agentText(item)), 70);
    if (!said.empty()) s.activity = std::move(said);
  } else if (s.hooked && (type == "CommandExecution" || type == "McpToolCall")) {
    // Codex's hooks told of this call as it began and ended: counted once, there.
  } else if (type == "CommandExecution") {
    const std::string status = str(item, "status");
    const bool failed =
        (!status.empty() && status != "completed") || JsonField::integer(item, "exit_code", 0) != 0;
    if (!takeCall(open, item)) {
      const std::string command = commandLine(item);
      s.pushTool("Running " + ToolText::shorten(command, 48));
      s.countTool("Bash", Json{{"command", command}}, date);
    }
    s.finishTools(failed);
    s.phase = commandPhase(item);
  } else if (type == "McpToolCall") {
    const std::string tool = "mcp__" + nonEmpty(str(item, "server"), "tool") + "__" +
                             nonEmpty(str(item, "tool"), "call");
    const Json* found = JsonField::find(item, "arguments");
    const Json args = found ? *found : Json::object();
    std::string label = ToolText::shorten(str(item, "title"), 48);
    if (label.empty()) label = ToolText::activity(tool, args);
    s.pushTool(std::move(label));
    s.finishTools(false);
    s.countTool(tool, args, date);
  } else if (type == "Extension") {
    // Codex's extension items are its web searches.
    s.activity = "Searching the web";
  }
}

// A turn ended: no line keeps running, and calls still open will get no item.
void endTurn(Session& s, Calls& open) {
  for (size_t i = 0; i < s.tools.size(); ++i) s.finishTools(false);
  open.clear();
}

void applyEvent(Session& s, const Json& payload, Calls& open, Date date) {
  const std::string type = str(payload, "type");
  if (type == "task_started") {
    s.mood = Mood::working;
    s.activity = "Thinking";
    s.turnStarted = date;
    s.finishedAt.reset();
    s.tools.clear();
    s.turnCalls = 0;
    s.phase = "reasoning";
    open.clear();
  } else if (type == "task_complete") {
    endTurn(s, open);
    s.mood = Mood::done;
    s.finishedAt = date;
    std::string said = ToolText::shorten(withoutBold(str(payload, "last_agent_message")), 70);
    s.activity = said.empty() ? "Finished" : std::move(said);
  } else if (type == "turn_aborted") {
    endTurn(s, open);
    s.mood = Mood::idle;
    s.activity = "Stopped";
  } else if (type == "token_count") {
    const Json& info = JsonField::object(payload, "info");
    const Json& last = JsonField::object(info, "last_token_usage");
    const Json* tokens = JsonField::find(last, "input_tokens");
    const Json* window = JsonField::find(info, "model_context_window");
    if (tokens && tokens->is_number() && window && window->is_number()) {
      s.stats.contextTokens = JsonField::integer(last, "input_tokens");
      s.stats.contextWindow = JsonField::integer(info, "model_context_window");
    }
  } else if (type == "item_completed") {
    applyItem(s, JsonField::object(payload, "item"), open, date);
  }
}

}  // namespace

CodexWatcher::CodexWatcher(Hub& hub, Loop& loop, std::string home)
    : hub_(hub), loop_(loop), root_(std::move(home) + "/.codex/sessions") {}

CodexWatcher::~CodexWatcher() {
  stop();
}

void CodexWatcher::start() {
  if (timer_) return;
  sweep();
  timer_ = loop_.every(kInterval, kTolerance, [this] { sweep(); });
}

void CodexWatcher::stop() {
  if (timer_) loop_.cancel(*timer_);
  timer_.reset();
}

std::vector<std::string> CodexWatcher::dayDirs(WallTime now) const {
  std::vector<std::string> dirs;
  DateTime today(g_date_time_new_from_unix_local(static_cast<gint64>(std::floor(now))));
  if (!today) return dirs;
  for (int offset : {0, -1}) {
    DateTime day(g_date_time_add_days(today.get(), offset));
    if (!day) continue;
    char part[32];
    std::snprintf(part, sizeof part, "/%04d/%02d/%02d", g_date_time_get_year(day.get()),
                  g_date_time_get_month(day.get()), g_date_time_get_day_of_month(day.get()));
    dirs.push_back(root_ + part);
  }
  return dirs;
}

void CodexWatcher::sweep() {
  const WallTime now = loop_.wall();
  size_t budget = kSweepBudget;
  seen_.clear();
  for (const std::string& dir : dayDirs(now)) {
    DIR* listing = ::opendir(dir.c_str());
    if (!listing) continue;
    while (const dirent* entry = ::readdir(listing)) {
      const std::string_view name = entry->d_name;
      if (!name.starts_with("rollout-") || !name.ends_with(".jsonl")) continue;
      struct stat st;
      if (::fstatat(::dirfd(listing), entry->d_name, &st, 0) != 0 || !S_ISREG(st.st_mode)) continue;
      const WallTime modified = static_cast<WallTime>(st.st_mtim.tv_sec) + st.st_mtim.tv_nsec / 1e9;
      if (now - modified >= kStale) continue;
      std::string path = dir + '/';
      path += name;
      LineMark& mark = marks_[path];
      // A log that was rewritten is read again from its start; what one sweep leaves unread
      // waits for the next.
      if (!mark.current(st) && budget > 0) budget -= std::min(budget, read(path, mark, budget));
      seen_.insert(std::move(path));
    }
    ::closedir(listing);
  }

  // Logs that went stale or left the two day directories end their sessions.
  std::vector<std::string> ended;
  for (auto it = meta_.begin(); it != meta_.end();) {
    if (seen_.count(it->first)) {
      ++it;
    } else {
      ended.push_back(std::move(it->second.id));
      it = meta_.erase(it);
    }
  }
  std::erase_if(marks_, [&](const auto& entry) { return !seen_.count(entry.first); });
  for (const std::string& id : ended) {
    // A session whose id another live log still carries stays.
    bool live = false;
    for (const auto& [path, meta] : meta_) live = live || meta.id == id;
    if (!live) hub_.remove("codex:" + id);
  }
}

size_t CodexWatcher::read(const std::string& path, LineMark& mark, size_t budget) {
  const WallTime now = loop_.wall();
  return reader_
      .read(path, mark, budget,
            [&](std::string_view line) {
              if (line.empty()) return;
              const Json record = JsonField::parse(line);
              if (record.is_object()) apply(record, path, now);
            })
      .bytes;
}

void CodexWatcher::apply(const Json& record, const std::string& path, WallTime now) {
  const std::string type = str(record, "type");
  const Json& payload = JsonField::object(record, "payload");
  if (type == "session_meta" && JsonField::hasString(payload, "id") && !str(payload, "id").empty())
    meta_[path] = Meta{str(payload, "id"), str(payload, "cwd"), {}};

  auto meta = meta_.find(path);
  if (meta == meta_.end()) return;  // no session_meta yet: the session is unknown

  // A record without a readable time stamp happened, as far as we know, when we read it.
  const Date date = iso(str(record, "timestamp")).value_or(now);
  // Codex's desktop application does not exist on Linux, so a session's host stays unknown
  // and jumping falls back to the terminal that runs Codex.
  hub_.codex(meta->second.id, meta->second.cwd, [&](Session& s) {
    if (type == "turn_context") {
      if (std::string model = str(payload, "model"); !model.empty()) s.stats.model = model;
    } else if (type == "event_msg") {
      applyEvent(s, payload, meta->second.openCalls, date);
    } else if (type == "response_item" && str(payload, "type") == "function_call") {
      applyCall(s, payload, meta->second.openCalls, date);
    }
    s.updated = date;
  });
}

std::optional<std::string> CodexWatcher::userText(const Json& content) {
  auto pick = [](const Json& part) -> std::optional<std::string> {
    std::string text =
        trimmed(part.is_string() ? part.get_ref<const std::string&>() : str(part, "text"));
    if (text.empty() || text.starts_with('<')) return std::nullopt;
    return text;
  };
  if (content.is_string()) return pick(content);
  if (!content.is_array()) return std::nullopt;
  for (const Json& part : content)
    if (auto text = pick(part)) return text;
  return std::nullopt;
}
