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

// Qwen Code's chat records: "type" user|assistant|tool_result|system, "gitBranch", and a
// "message" of role and parts. The working folder ("cwd") and the model ("model") are read from
// the record's top level where present.
struct AnyTranscripts::Qwen {
  TranscriptStats stats;

  void apply(std::string_view line) {
    const Json record = JsonField::parse(line);
    if (!record.is_object()) return;
    keep(stats.branch, record, "gitBranch");
    keep(stats.cwd, record, "cwd");
    const std::string type = JsonField::str(record, "type");
    if (type == "assistant") keep(stats.model, record, "model");
    const Json& message = JsonField::object(record, "message");
    if (type == "user" && JsonField::str(message, "role", "user") == "user")
      prompted(stats, typed(JsonField::find(message, "parts")));
  }
  void finish() {}
};

// Kimi Code's wire log: records {"timestamp", "message": {"type", "payload"}}, where a turn
// opens with "TurnBegin" carrying the user's input as text or content parts. Only prompts are
// read; the model and the title come with the hooks' payloads.
struct AnyTranscripts::Kimi {
  TranscriptStats stats;

  void apply(std::string_view line) {
    const Json record = JsonField::parse(line);
    const Json& message = JsonField::object(record, "message");
    if (JsonField::str(message, "type") != "TurnBegin") return;
    prompted(stats, typed(JsonField::find(JsonField::object(message, "payload"), "user_input")));
  }
  void finish() {}
};

namespace AgentTranscripts {

Format formatOf(std::string_view path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) return Format::claude;
  const std::string_view name = path.substr(slash + 1), folder = path.substr(0, slash);
  if (name == "wire.jsonl" && folder.ends_with("/agents/main")) return Format::kimi;
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
