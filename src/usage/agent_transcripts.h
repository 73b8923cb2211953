#pragma once
// Transcripts of agents other than Claude Code, read with the same incremental file handling,
// and the reader that picks a transcript's format from where the agent keeps it.

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "core/ports.h"
#include "usage/claude_transcripts.h"
#include "usage/transcript_files.h"

namespace AgentTranscripts {

enum class Format { claude, qwen, kimi };

// Qwen Code keeps "<root>/projects/<project>/chats/<session>.jsonl", Kimi Code
// "<root>/sessions/<key>/<session>/agents/main/wire.jsonl" and the Kimi CLI
// "<root>/sessions/<key>/<session>/wire.jsonl"; anything else is read as Claude Code's format,
// which several agents share.
Format formatOf(std::string_view path);

}  // namespace AgentTranscripts

// Every transcript format Vantler reads, each through its own incremental reader.
class AnyTranscripts final : public TranscriptReader {
 public:
  static constexpr size_t kSlice = ClaudeTranscripts::kSlice;

  AnyTranscripts();
  ~AnyTranscripts() override;

  std::optional<TranscriptStats> update(const std::string& path) override;

 private:
  struct Qwen;
  struct Kimi;
  ClaudeTranscripts claude_;
  TranscriptFiles<Qwen> qwen_;
  TranscriptFiles<Kimi> kimi_;
};
