#pragma once
// The value types that describe one coding-agent session. Sessions are plain values: the hub
// copies one out, changes it and stores it back.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "core/json.h"

class JsonWriter;
class ModelCatalog;
struct PullRequest;

// Seconds since 1970, as the loop's wall clock reports it.
using Date = double;

enum class Agent {
  claude,
  codex,
  cursor,
  gemini,
  droid,
  opencode,
  copilot,
  windsurf,
  qwen,
  qoder,
  codebuddy,
  devin,
  augment,
  kimi,
  goose,
  cline,
  kiro,
  vibe,
  crush,
  junie,
  aider,
  amp,
  kilo,
};

namespace Agents {
inline constexpr Agent kAll[] = {Agent::claude,  Agent::codex,    Agent::cursor,    Agent::gemini,
                                 Agent::droid,   Agent::opencode, Agent::copilot,   Agent::windsurf,
                                 Agent::qwen,    Agent::qoder,    Agent::codebuddy, Agent::devin,
                                 Agent::augment, Agent::kimi,     Agent::goose,     Agent::cline,
                                 Agent::kiro,    Agent::vibe,     Agent::crush,     Agent::junie,
                                 Agent::aider,   Agent::amp,      Agent::kilo};
std::string_view raw(Agent agent);
std::optional<Agent> parse(std::string_view raw);
// Whether a hook of this agent can carry the user's reply back into the agent.
bool canReply(Agent agent);
}  // namespace Agents

// Ordered by urgency: idle < done < working < waiting.
enum class Mood : int { idle = 0, done = 1, working = 2, waiting = 3 };

namespace Moods {
std::string_view name(Mood mood);
}

struct ToolLine {
  std::string label;
  bool running = false;
  bool failed = false;
  bool operator==(const ToolLine&) const = default;
};

struct ToolTally {
  std::string tool;
  std::string detail;
  int64_t count = 0;
  std::string kind;
  Date last = 0;
};

struct Question {
  struct Option {
    std::string label;
    std::string detail;
    bool operator==(const Option&) const = default;
  };
  std::string header;
  std::string text;
  std::vector<Option> options;
  bool multi = false;
  bool operator==(const Question&) const = default;
};

struct Pending {
  struct Permission {
    std::string title;
    std::string detail;
    std::string tool;
    // A standing rule the agent offers to remember ("always allow"): its words, and the rule as
    // the agent wrote it, returned unchanged with the decision. Empty when none is offered.
    std::string always = {};
    Json rule = nullptr;
  };
  struct Questions {
    std::vector<Question> questions;
  };
  struct Reply {
    std::string lastMessage;
    Date expires = 0;
  };
  struct Elsewhere {
    std::string what;
  };
  using Kind = std::variant<Permission, Questions, Reply, Elsewhere>;

  std::string id;
  Kind kind;
  Json toolInput = Json::object();
  Date since = 0;
  bool engaged = false;

  template <class T>
  bool is() const {
    return std::holds_alternative<T>(kind);
  }
  template <class T>
  const T* as() const {
    return std::get_if<T>(&kind);
  }
  std::string_view kindName() const;
};

// Figures read from an agent's transcript file.
struct TranscriptStats {
  std::optional<std::string> customTitle;
  std::optional<std::string> branch;
  std::optional<std::string> model;
  int64_t contextTokens = 0;
  int64_t contextWindow = 0;
  double cost = 0;
  std::optional<std::string> firstPrompt;
  std::optional<std::string> lastPrompt;
  std::optional<std::string> entrypoint;
  std::optional<std::string> cwd;
  bool endedTurn = false;
};

struct Session {
  static constexpr size_t kMaxToolLines = 4;
  // A finished turn shows as a success this long, and as done this long before it falls idle.
  static constexpr double kSuccessFor = 30;
  static constexpr double kDoneFor = 600;

  std::string id;
  Agent agent = Agent::claude;
  std::string root;
  int64_t colorIndex = 0;
  std::string title;
  std::string activity;
  Mood mood = Mood::idle;
  // The open request shown to the user, and those of the same session that arrived while it
  // was open (parallel subagents share a session), oldest first. `queued` is empty whenever
  // `pending` is.
  std::optional<Pending> pending;
  std::vector<Pending> queued;
  std::vector<ToolLine> tools;
  std::vector<ToolTally> tally;
  int64_t turnCalls = 0;
  std::string phase;
  Date started = 0;
  Date updated = 0;
  std::optional<Date> turnStarted;
  std::optional<Date> finishedAt;
  std::optional<std::string> transcript;
  TranscriptStats stats;
  // The other machine the agent runs on, reached through its tunnel; empty for this one.
  std::string machine;
  std::optional<int32_t> hostPid;
  std::optional<std::string> hostBundle;
  std::optional<std::string> tty;
  std::optional<int32_t> agentPid;
  // The tmux server and pane the agent runs in as its hook saw them (TMUX, TMUX_PANE); used
  // for an agent on another machine, whose environment cannot be read from here.
  std::string tmux, tmuxPane;
  // When the agent's process started, read while it ran: only a process known to have been the
  // agent can tell, by its end, that the session is over.
  std::optional<uint64_t> agentStarted;
  // Events of this session arrive through the agent's hooks (besides any log it writes).
  bool hooked = false;

  // The open request with this id, shown or queued.
  const Pending* request(const std::string& requestId) const;
  // Set by the hub each time the session is stored, from a counter that never repeats: equal
  // revisions mean equal sessions.
  uint64_t revision = 0;

  // A tool call began: it becomes the only running line; at most four lines are kept.
  void pushTool(std::string label);
  // The newest running call ended.
  void finishTools(bool failed);
  // Counts a call in the tally and moves the turn's phase along.
  void countTool(const std::string& tool, const Json& input, Date now);

  // The state to display: an open request overrides the stored mood, and `done` decays to
  // `idle` ten minutes after the turn ended.
  Mood shownMood(Date now) const;
  // The mascot picture: "sleep", "idle", "success", "error", "write", "think", "alert", "listen".
  std::string_view pose(Date now) const;
  // Which stretch of time, among those `shownMood` and `pose` tell apart, `now` falls in: what
  // `write` produces changes with time only when this does.
  int clockPhase(Date now) const;
  // A finished turn that no request holds any more, of an agent waiting at its prompt in a
  // known terminal: a reply can still be typed there.
  bool canType() const;
  // The kind of host: "codex", "cursor", "terminal", "editor" or "desktop".
  std::string_view family() const;
  std::string headline() const;

  // The enclosing directory that holds ".git", below `home`; `path` itself when there is none.
  static std::string projectRoot(const std::string& path, const std::string& home);

  // The session object sent to the page, with the pull request of its project when known.
  // Without a model catalog the model id is shown as it is.
  void write(JsonWriter& w, Date now, int64_t replyWindowSeconds, const PullRequest* pr = nullptr,
             const ModelCatalog* models = nullptr) const;
  Json json(Date now, int64_t replyWindowSeconds, const ModelCatalog* models = nullptr) const;
};

// Milliseconds since 1970, as the page receives times.
inline double millis(Date date) {
  return date * 1000.0;
}

// Last path component ("dir" for "/a/dir/", "/" for "/", "" for "").
std::string lastPathComponent(std::string_view path);
