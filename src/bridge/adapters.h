#pragma once
// Each agent's hook payloads turned into changes of its session, through the hub's public
// operations. Claude Code's events are the common vocabulary: the Cursor adapter and the
// adapter of the other agents translate their payloads and hand them to the Claude Code one.
// Each `handle` runs on the loop's thread and returns the id of a request the hook must wait
// on; when it returns nothing, the hook has already had its answer.

#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include "core/hub.h"
#include "core/json.h"

// The session id of an agent's session: "claude:<id>", or "claude@devbox:<id>" for one that
// came through the tunnel of another machine.
inline std::string sessionKey(std::string_view agent, const std::string& machine,
                              const std::string& id) {
  return std::string(agent) + (machine.empty() ? "" : "@" + machine) + ":" + id;
}

class ClaudeAdapter {
 public:
  explicit ClaudeAdapter(Hub& hub) : hub_(hub) {}
  std::optional<std::string> handle(const Json& payload, Hub::Reply reply);
  Hub& hub() { return hub_; }

 private:
  struct Call {
    std::string id;  // the agent's tool_use_id
    std::string tool;
    Json input;
  };
  static constexpr size_t kCallsKept = 32;  // per session
  static constexpr size_t kSessionsKept = 256;

  // The id of the tool call a permission request without one is about: the oldest call of
  // the session announced with the same tool and input that no open request holds yet.
  std::string callFor(const Session& session, const std::string& tool, const Json& input);

  Hub& hub_;
  // Recently announced tool calls per session, newest last.
  std::unordered_map<std::string, std::deque<Call>> calls_;
};

class CursorAdapter {
 public:
  explicit CursorAdapter(ClaudeAdapter& claude) : claude_(claude) {}
  std::optional<std::string> handle(const Json& payload, Hub::Reply reply);

 private:
  ClaudeAdapter& claude_;
  // The last response text per Cursor conversation, shown when its turn stops.
  std::unordered_map<std::string, std::string> lastText_;
};

// Every other agent: Gemini CLI, droid, Windsurf, Copilot CLI, OpenCode, Qwen Code, Qoder,
// CodeBuddy, Devin, Augment, Kimi, Goose, Cline, Kiro, Mistral Vibe, Crush, Junie, Aider, Amp
// and Kilo Code.
class OtherAgentsAdapter {
 public:
  explicit OtherAgentsAdapter(ClaudeAdapter& claude) : claude_(claude) {}
  std::optional<std::string> handle(const Json& payload, Hub::Reply reply);
  // Whether a Claude Code session id is one of Devin CLI's, whose events also arrive through
  // Claude Code's hooks.
  bool mirrors(const std::string& sessionId) const;

 private:
  static constexpr size_t kDevinKept = 256;
  void settleElsewhere(const std::string& key);
  void noteStats(const std::string& key, const Json& payload);

  ClaudeAdapter& claude_;
  std::unordered_set<std::string> devinSessions_;
};

// Picks the adapter by the payload's "_agent" (Claude Code when absent).
class Adapters {
 public:
  explicit Adapters(Hub& hub) : claude_(hub), cursor_(claude_), others_(claude_) {}
  std::optional<std::string> handle(const Json& payload, Hub::Reply reply);

 private:
  ClaudeAdapter claude_;
  CursorAdapter cursor_;
  OtherAgentsAdapter others_;
};
