#include "core/session.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <utility>

#include "core/hosts.h"
#include "core/json_writer.h"
#include "core/ports.h"
#include "core/text.h"
#include "core/tool_text.h"

namespace Agents {

namespace {
constexpr std::array<std::string_view, 23> kRaw{
    "claude", "codex", "cursor",    "gemini", "droid",   "opencode", "copilot", "windsurf",
    "qwen",   "qoder", "codebuddy", "devin",  "augment", "kimi",     "goose",   "cline",
    "kiro",   "vibe",  "crush",     "junie",  "aider",   "amp",      "kilo"};
}

std::string_view raw(Agent agent) {
  return kRaw[static_cast<size_t>(agent)];
}

std::optional<Agent> parse(std::string_view raw) {
  for (size_t i = 0; i < kRaw.size(); ++i)
    if (kRaw[i] == raw) return static_cast<Agent>(i);
  return std::nullopt;
}

bool canReply(Agent agent) {
  return agent == Agent::claude || agent == Agent::cursor || agent == Agent::gemini ||
         agent == Agent::droid;
}

}  // namespace Agents

namespace Moods {
std::string_view name(Mood mood) {
  switch (mood) {
    case Mood::idle:
      return "idle";
    case Mood::done:
      return "done";
    case Mood::working:
      return "working";
    case Mood::waiting:
      return "waiting";
  }
  return "idle";
}
}  // namespace Moods

std::string_view Pending::kindName() const {
  static constexpr std::array<std::string_view, 4> kNames{"permission", "questions", "reply",
                                                          "elsewhere"};
  return kNames[kind.index()];
}

std::string lastPathComponent(std::string_view path) {
  if (path.empty()) return {};
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  if (path == "/") return "/";
  auto slash = path.rfind('/');
  return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

const Pending* Session::request(const std::string& requestId) const {
  if (pending && pending->id == requestId) return &*pending;
  for (const Pending& p : queued)
    if (p.id == requestId) return &p;
  return nullptr;
}

void Session::pushTool(std::string label) {
  for (ToolLine& line : tools) line.running = false;
  tools.push_back({std::move(label), true, false});
  if (tools.size() > kMaxToolLines)
    tools.erase(tools.begin(), tools.begin() + static_cast<long>(tools.size() - kMaxToolLines));
}

void Session::finishTools(bool failed) {
  for (auto it = tools.rbegin(); it != tools.rend(); ++it) {
    if (it->running && !it->failed) {
      it->running = false;
      it->failed = failed;
      return;
    }
  }
}

void Session::countTool(const std::string& tool, const Json& input, Date now) {
  std::string_view kind = ToolText::kind(tool, input);
  std::string detail = ToolText::detail(tool, input);
  if (__builtin_add_overflow(turnCalls, 1, &turnCalls)) std::abort();
  auto entry =
      std::find_if(tally.begin(), tally.end(), [&](const ToolTally& t) { return t.tool == tool; });
  if (entry != tally.end()) {
    ++entry->count;
    entry->detail = std::move(detail);
    entry->last = now;
  } else {
    tally.push_back({tool, std::move(detail), 1, std::string(kind), now});
  }
  if (kind == "research")
    phase = "researching";
  else if (kind == "write")
    phase = "writing";
  else if (kind == "review")
    phase = "reviewing";
  else if (kind == "reason")
    phase = "reasoning";
}

bool Session::canType() const {
  return !pending && mood == Mood::done && tty && !tty->empty() && Agents::canReply(agent);
}

Mood Session::shownMood(Date now) const {
  if (pending) return pending->is<Pending::Reply>() ? Mood::done : Mood::waiting;
  if (mood == Mood::done && finishedAt && now - *finishedAt > kDoneFor) return Mood::idle;
  return mood;
}

int Session::clockPhase(Date now) const {
  if (pending || mood != Mood::done || !finishedAt) return 0;
  const Date age = now - *finishedAt;
  if (age > kDoneFor) return 3;
  return age < kSuccessFor ? 1 : 2;
}

std::string_view Session::pose(Date now) const {
  if (pending) {
    if (pending->is<Pending::Reply>()) return "success";
    if (pending->is<Pending::Questions>()) return "listen";
    return "alert";
  }
  switch (shownMood(now)) {
    case Mood::idle:
      return "sleep";
    case Mood::done:
      if (!finishedAt) return "idle";
      return now - *finishedAt < kSuccessFor ? "success" : "idle";
    case Mood::working: {
      if (!tools.empty() && tools.back().failed) return "error";
      // The prefixes are ASCII, so comparing ASCII-folded bytes is the same test as
      // comparing the lower-cased text, without converting it.
      auto startsFolded = [&](std::string_view prefix) {
        if (activity.size() < prefix.size()) return false;
        for (size_t i = 0; i < prefix.size(); ++i) {
          char c = activity[i];
          if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
          if (c != prefix[i]) return false;
        }
        return true;
      };
      for (std::string_view p : {"editing", "writing", "creating"})
        if (startsFolded(p)) return "write";
      return "think";
    }
    case Mood::waiting:
      return "alert";
  }
  return "sleep";
}

namespace {

// The host application's name: last path component without extension, lower-cased.
std::string hostFileName(const std::optional<std::string>& bundle, bool lowerCase) {
  if (!bundle) return {};
  std::string name = lastPathComponent(*bundle);
  if (auto dot = name.rfind('.'); dot != std::string::npos && dot > 0) name.resize(dot);
  return lowerCase ? Text::lower(name) : name;
}

}  // namespace

std::string_view Session::family() const {
  if (agent == Agent::codex) return "codex";
  if (agent == Agent::cursor) return "cursor";
  // The executable's own name first: some carry a dot ("io.elementary.terminal").
  std::optional<Hosts::Kind> kind;
  if (hostBundle) kind = Hosts::classify(Text::lower(lastPathComponent(*hostBundle)));
  std::string host = hostFileName(hostBundle, true);
  if (!kind) kind = Hosts::classify(host);
  if (kind == Hosts::Kind::terminal) return "terminal";
  if (kind == Hosts::Kind::editor) return "editor";
  if (!host.empty()) return "desktop";
  return stats.entrypoint && *stats.entrypoint == "cli" ? "terminal" : "desktop";
}

std::string Session::headline() const {
  if (stats.customTitle && !stats.customTitle->empty()) return *stats.customTitle;
  if (!title.empty()) return title;
  if (stats.firstPrompt) return ToolText::headline(*stats.firstPrompt);
  std::string last = lastPathComponent(root);
  return last.empty() ? "~" : last;
}

std::string Session::projectRoot(const std::string& path, const std::string& home) {
  std::string dir = path;
  while (dir.size() > 1 && dir.back() == '/') dir.pop_back();
  std::string homeDir = home;
  while (homeDir.size() > 1 && homeDir.back() == '/') homeDir.pop_back();
  while (dir.size() >= 2 && dir != homeDir) {
    struct stat st;
    if (::stat((dir + "/.git").c_str(), &st) == 0) return dir;
    auto slash = dir.rfind('/');
    if (slash == std::string::npos) break;
    dir = slash == 0 ? "/" : dir.substr(0, slash);
  }
  return path;
}

namespace Jump {
std::optional<std::string> hostName(const Session& session) {
  // The names people know these programs by, where their executables are named otherwise.
  static constexpr std::pair<std::string_view, std::string_view> kNames[] = {
      {"gnome-terminal-server", "GNOME Terminal"},
      {"gnome-terminal", "GNOME Terminal"},
      {"konsole", "Konsole"},
      {"wezterm-gui", "WezTerm"},
      {"wezterm", "WezTerm"},
      {"xterm", "XTerm"},
      {"uxterm", "XTerm"},
      {"alacritty", "Alacritty"},
      {"tilix", "Tilix"},
      {"terminator", "Terminator"},
      {"xfce4-terminal", "Xfce Terminal"},
      {"kgx", "Console"},
      {"ptyxis", "Ptyxis"},
      {"ghostty", "Ghostty"},
      {"code", "VS Code"},
      {"code-insiders", "VS Code Insiders"},
      {"code-oss", "Code - OSS"},
      {"codium", "VSCodium"},
      {"vscodium", "VSCodium"},
      {"cursor", "Cursor"},
      {"windsurf", "Windsurf"},
      {"zed", "Zed"},
      {"zeditor", "Zed"},
      {"zed-editor", "Zed"},
      {"sublime_text", "Sublime Text"},
      {"idea", "IntelliJ IDEA"},
      {"idea64", "IntelliJ IDEA"},
  };
  if (session.agent == Agent::cursor) return "Cursor";
  if (session.agent == Agent::codex && !session.hostBundle) return "Codex";
  if (!session.hostBundle) return std::nullopt;
  const std::string exe = lastPathComponent(*session.hostBundle);
  for (const auto& [file, name] : kNames)
    if (exe == file) return std::string(name);
  std::string name = hostFileName(session.hostBundle, false);
  if (name.empty()) return std::nullopt;
  return name;
}
}  // namespace Jump

namespace {

void writePending(JsonWriter& w, const Pending& p, size_t waiting, int64_t replyWindowSeconds) {
  w.beginObject()
      .field("id", p.id)
      .field("engaged", p.engaged)
      .field("since", millis(p.since))
      .field("kind", p.kindName())
      .field("waiting", static_cast<int64_t>(waiting));
  if (auto* perm = p.as<Pending::Permission>()) {
    w.field("title", perm->title).field("detail", perm->detail).field("tool", perm->tool);
    if (!perm->always.empty()) w.field("always", perm->always);
  } else if (auto* qs = p.as<Pending::Questions>()) {
    w.key("questions").beginArray();
    for (const Question& q : qs->questions) {
      w.beginObject().field("header", q.header).field("text", q.text).field("multi", q.multi);
      w.key("options").beginArray();
      for (const auto& o : q.options)
        w.beginObject().field("label", o.label).field("detail", o.detail).endObject();
      w.endArray().endObject();
    }
    w.endArray();
  } else if (auto* r = p.as<Pending::Reply>()) {
    w.field("message", r->lastMessage)
        .field("expires", millis(r->expires))
        .field("window", replyWindowSeconds * 1000);
  } else if (auto* e = p.as<Pending::Elsewhere>()) {
    w.field("title", e->what);
  }
  w.endObject();
}

void writeStats(JsonWriter& w, const Session& s, const ModelCatalog* models) {
  w.beginObject().field("cost", s.stats.cost);
  if (s.stats.model) {
    const std::string& model = *s.stats.model;
    w.field("model", models ? models->label(s.agent, model) : model);
    int64_t window = s.stats.contextWindow;
    if (window <= 0 && models) window = models->contextWindow(model);
    if (s.stats.contextTokens > 0 && window > 0) {
      w.field("context", static_cast<double>(s.stats.contextTokens) / static_cast<double>(window));
      w.field("contextTokens", s.stats.contextTokens);
    }
  }
  if (s.turnStarted) {
    w.field("turnStarted", millis(*s.turnStarted));
    if (s.finishedAt && *s.finishedAt > *s.turnStarted) w.field("turnEnd", millis(*s.finishedAt));
  }
  w.endObject();
}

}  // namespace

void Session::write(JsonWriter& w, Date now, int64_t replyWindowSeconds, const PullRequest* pr,
                    const ModelCatalog* models) const {
  w.beginObject()
      .field("id", id)
      .field("agent", Agents::raw(agent))
      .field("color", colorIndex)
      .field("title", headline());
  std::string project = lastPathComponent(root);
  w.field("project", project.empty() ? std::string("~") : project);
  if (!machine.empty()) w.field("machine", machine);
  w.field("mood", Moods::name(shownMood(now)))
      .field("activity", activity)
      .field("updated", millis(updated));

  w.key("tools").beginArray();
  for (const ToolLine& t : tools)
    w.beginObject()
        .field("label", t.label)
        .field("running", t.running)
        .field("failed", t.failed)
        .endObject();
  w.endArray();
  w.field("phase", phase).field("turnCalls", turnCalls);

  // The four most recently used tools; equal times keep their order of first use.
  std::vector<const ToolTally*> recent;
  recent.reserve(tally.size());
  for (const ToolTally& t : tally) recent.push_back(&t);
  std::stable_sort(recent.begin(), recent.end(),
                   [](const ToolTally* a, const ToolTally* b) { return a->last > b->last; });
  w.key("tally").beginArray();
  for (size_t i = 0; i < recent.size() && i < 4; ++i)
    w.beginObject()
        .field("tool", recent[i]->tool)
        .field("detail", recent[i]->detail)
        .field("count", recent[i]->count)
        .field("kind", recent[i]->kind)
        .endObject();
  w.endArray();

  if (stats.branch) w.field("branch", *stats.branch);
  if (auto host = Jump::hostName(*this)) w.field("host", *host);
  w.field("family", family()).field("pose", pose(now));
  w.key("stats");
  writeStats(w, *this, models);
  if (pending) {
    w.key("pending");
    writePending(w, *pending, queued.size(), replyWindowSeconds);
  }
  if (canType()) w.field("canType", true);
  if (pr) {
    w.key("pr")
        .beginObject()
        .field("number", pr->number)
        .field("title", pr->title)
        .field("state", pr->state)
        .field("checks", pr->checks)
        .field("url", pr->url)
        .endObject();
  }
  w.endObject();
}

Json Session::json(Date now, int64_t replyWindowSeconds, const ModelCatalog* models) const {
  JsonWriter w;
  write(w, now, replyWindowSeconds, nullptr, models);
  return Json::parse(w.text());
}
