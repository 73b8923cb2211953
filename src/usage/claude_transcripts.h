#pragma once
// Claude Code transcripts: the per-session figures read incrementally from a transcript file,
// and the list of recently active transcripts that sessions are restored from at start.

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "core/loop.h"
#include "core/ports.h"
#include "usage/claude_lines.h"
#include "usage/transcript_files.h"

// The figures of one Claude Code transcript, taken in line by line: the same for a file read
// here and for one read on another machine.
class ClaudeFigures final : public TranscriptFigures {
 public:
  void add(std::string_view line) override;
  const TranscriptStats& figures() override;

 private:
  enum class Turn { unknown, answered, prompted, over };

  TranscriptStats stats;
  ClaudeLines::MessageLedger ledger;
  std::string contextUsage;  // usage of the latest main-thread message, not yet counted
  bool longContext = false;
  // The latest event of the conversation: an assistant message (with its stop reason), a prompt,
  // or a sign that the turn is over.
  Turn turn = Turn::unknown;
  std::string lastMessage;
  std::string stopReason;
  bool dirty = false;  // lines were added since the figures were last brought up to date
};

// Reads Claude Code transcript files (~/.claude/projects/<project>/<session>.jsonl). Each call
// reads only what was appended since the previous call for that path and updates the running
// figures; a last line still being written is read once it is complete, and a file that
// shrank or was replaced is read again from the start. One call reads at most about `kSlice`
// bytes: a long transcript is taken in over several calls.
class ClaudeTranscripts final : public TranscriptReader {
 public:
  // Sessions on the one-million-token context window: a model id marked "[1m]", or a context
  // larger than the standard window.
  static constexpr int64_t kLongContextWindow = 1'000'000;
  static constexpr size_t kSlice = 32u << 20;

  ClaudeTranscripts();
  ~ClaudeTranscripts() override;

  // Nothing when the file cannot be opened or is not a regular file.
  std::optional<TranscriptStats> update(const std::string& path) override;
  // Drops what is kept for a transcript (its next update reads it from the start).
  void forget(const std::string& path);

 private:
  TranscriptFiles<ClaudeFigures> files_;
};

// Claude Code transcripts changed in the last two hours, newest first, at most twelve: the
// sessions worth showing again when the application starts. Files of sub-agents
// ("agent-….jsonl"), whose names are not session ids, are left out.
class ClaudeRecentTranscripts final : public RecentTranscripts {
 public:
  static constexpr double kWindowSeconds = 2 * 3600;
  static constexpr size_t kMaxCount = 12;

  using Clock = std::function<WallTime()>;
  explicit ClaudeRecentTranscripts(Clock clock,
                                   std::string projects = ClaudeLines::projectsDirectory());
  explicit ClaudeRecentTranscripts(const Loop& loop,
                                   std::string projects = ClaudeLines::projectsDirectory());

  std::vector<RecentTranscript> find() override;

 private:
  Clock clock_;
  std::string projects_;
};
