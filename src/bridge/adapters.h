#pragma once
// Each agent's hook payloads turned into changes of its session, through the hub's public
// operations. Claude Code's events are the common vocabulary: the Cursor adapter and the
// adapter of the other agents translate their payloads and hand them to the Claude Code one.
// Each `handle` runs on the loop's thread and returns the id of a request the hook must wait
// on; when it returns nothing, the hook has already had its answer.

#include <optional>
#include <string>
#include <unordered_map>

#include "core/hub.h"
#include "core/json.h"

class ClaudeAdapter {
 public:
  explicit ClaudeAdapter(Hub& hub) : hub_(hub) {}
  std::optional<std::string> handle(const Json& payload, Hub::Reply reply);
  Hub& hub() { return hub_; }

 private:
  Hub& hub_;
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

// Gemini CLI, droid, Windsurf, Copilot CLI and OpenCode.
class OtherAgentsAdapter {
 public:
  explicit OtherAgentsAdapter(ClaudeAdapter& claude) : claude_(claude) {}
  std::optional<std::string> handle(const Json& payload, Hub::Reply reply);

 private:
  ClaudeAdapter& claude_;
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
