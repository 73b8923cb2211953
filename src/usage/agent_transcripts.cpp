#include "usage/agent_transcripts.h"

#include "core/json.h"

namespace {

using ClaudeLines::trimmed;

// What the user typed: a string, or the texts of a list of content parts, one per line.
std::string typed(const Json* content) {
  if (!content) return {};
  if (content->is_string()) return trimmed(content->get<std::string>());
  if (!content->is_array()) return {};
  std::string joined;
  for (const Json& part : *content) {
    const std::string text = trimmed(JsonField::str(part, "text"));
    if (text.empty()) continue;
    if (!joined.empty()) joined += '\n';
    joined += text;
  }
  return joined;
}

void prompted(TranscriptStats& stats, std::string prompt) {
  if (prompt.empty()) return;
  if (!stats.firstPrompt) stats.firstPrompt = prompt;
  stats.lastPrompt = std::move(prompt);
}

void keep(std::optional<std::string>& field, const Json& record, std::string_view key) {
  if (std::string value = JsonField::str(record, key); !value.empty()) field = std::move(value);
}

}  // namespace

// Qwen Code's chat records: "type" user|assistant|tool_result|system, "cwd", "gitBranch" (in a
// git repository), and a "message" of role and parts. Its assistant records (0.24) carry the
// "model" and Gemini's "usageMetadata", whose promptTokenCount is the context the answer saw.
struct AnyTranscripts::Qwen {
  TranscriptStats stats;

  void add(std::string_view line) {
    const Json record = JsonField::parse(line);
    if (!record.is_object()) return;
    keep(stats.branch, record, "gitBranch");
    keep(stats.cwd, record, "cwd");
    const std::string type = JsonField::str(record, "type");
    if (type == "assistant") {
      keep(stats.model, record, "model");
      const int64_t prompt =
          JsonField::integer(JsonField::object(record, "usageMetadata"), "promptTokenCount");
      if (prompt > 0) stats.contextTokens = prompt;
    }
    const Json& message = JsonField::object(record, "message");
    if (type == "user" && JsonField::str(message, "role", "user") == "user")
      prompted(stats, typed(JsonField::find(message, "parts")));
  }
  const TranscriptStats& figures() const { return stats; }
};

// Kimi's wire log: records {"timestamp", "message": {"type", "payload"}}, where a turn opens
// with "TurnBegin" carrying the user's input as text or content parts, and "StatusUpdate"
// reports the step's "token_usage" and the share of the context in use ("context_usage", 0..1).
// The model and the title come with the hooks' payloads.
struct AnyTranscripts::Kimi {
  TranscriptStats stats;

  void add(std::string_view line) {
    const Json record = JsonField::parse(line);
    const Json& message = JsonField::object(record, "message");
    const std::string type = JsonField::str(message, "type");
    const Json& payload = JsonField::object(message, "payload");
    if (type == "TurnBegin") prompted(stats, typed(JsonField::find(payload, "user_input")));
    if (type != "StatusUpdate") return;
    const Json& usage = JsonField::object(payload, "token_usage");
    const int64_t tokens = JsonField::integer(usage, "input_other") +
                           JsonField::integer(usage, "input_cache_read") +
                           JsonField::integer(usage, "input_cache_creation");
    if (tokens <= 0) return;
    stats.contextTokens = tokens;
    const Json* share = JsonField::find(payload, "context_usage");
    if (share && share->is_number() && share->get<double>() > 0 && share->get<double>() <= 1)
      stats.contextWindow =
          static_cast<int64_t>(static_cast<double>(tokens) / share->get<double>());
  }
  const TranscriptStats& figures() const { return stats; }
};

namespace AgentTranscripts {

Format formatOf(std::string_view path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) return Format::claude;
  const std::string_view name = path.substr(slash + 1), folder = path.substr(0, slash);
  // Kimi Code nests the log in "agents/main"; the Kimi CLI keeps it in the session's folder.
  if (name == "wire.jsonl" && folder.find("/sessions/") != std::string_view::npos)
    return Format::kimi;
  if (name.ends_with(".jsonl") && folder.ends_with("/chats") &&
      folder.find("/projects/") != std::string_view::npos)
    return Format::qwen;
  return Format::claude;
}

}  // namespace AgentTranscripts

AnyTranscripts::AnyTranscripts() : qwen_(kSlice), kimi_(kSlice) {}
AnyTranscripts::~AnyTranscripts() = default;

std::optional<TranscriptStats> AnyTranscripts::update(const std::string& path) {
  switch (AgentTranscripts::formatOf(path)) {
    case AgentTranscripts::Format::qwen:
      return qwen_.update(path);
    case AgentTranscripts::Format::kimi:
      return kimi_.update(path);
    case AgentTranscripts::Format::claude:
      break;
  }
  return claude_.update(path);
}
