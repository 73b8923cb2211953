#include "usage/claude_transcripts.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>

#include "core/text.h"
#include "usage/pricing.h"

namespace {

using ClaudeLines::Line;
using ClaudeLines::trimmed;

// User lines that Claude Code writes for slash commands and shell escapes: not prompts.
constexpr std::array<std::string_view, 5> kNotPrompts = {
    "<command-", "<local-command", "<bash-input>", "<bash-stdout>", "<bash-stderr>"};
// What Claude Code writes as a user line when the user stops a turn.
constexpr std::string_view kInterrupted = "[Request interrupted by user";
// System lines written once a turn is over.
constexpr std::array<std::string_view, 2> kTurnOver = {"stop_hook_summary", "turn_duration"};

// The text the user typed: a plain string, or the text blocks of a block list. Lists holding a
// tool result are the results of tool calls, not prompts.
std::optional<std::string> typedText(const ClaudeLines::Value& content) {
  if (content.isString()) {
    if (auto text = ClaudeLines::text(content)) return Text::trimWhitespace(*text);
    return std::nullopt;
  }
  if (content.kind != '[' || content.raw.find("\"tool_result\"") != std::string_view::npos)
    return std::nullopt;
  std::string joined;
  for (const Json& block : JsonField::parse(content.raw)) {
    if (JsonField::str(block, "type") != "text") continue;
    const std::string part = Text::trimWhitespace(JsonField::str(block, "text"));
    if (part.empty()) continue;
    if (!joined.empty()) joined += '\n';
    joined += part;
  }
  return joined;
}

int64_t contextOf(const std::string& usageText) {
  const Json usage = JsonField::parse(usageText);
  return JsonField::integer(usage, "input_tokens") +
         JsonField::integer(usage, "cache_creation_input_tokens") +
         JsonField::integer(usage, "cache_read_input_tokens");
}

}  // namespace

void ClaudeFigures::add(std::string_view text) {
  dirty = true;
  Line line;
  if (!ClaudeLines::scan(text, line)) return;
  auto keep = [](std::optional<std::string>& field, const ClaudeLines::Value& value) {
    if (auto v = ClaudeLines::text(value); v && !v->empty()) field = std::move(v);
  };
  keep(stats.cwd, line.cwd);
  keep(stats.branch, line.gitBranch);
  keep(stats.entrypoint, line.entrypoint);

  if (line.type.is("custom-title")) {
    if (auto title = ClaudeLines::text(line.customTitle))
      stats.customTitle = title->empty() ? std::nullopt : std::optional(std::move(*title));
    return;
  }
  // Sub-agent conversations cost money but are not the session's own thread.
  if (line.type.is("assistant")) ledger.record(line);
  if (line.isSidechain.isTrue()) return;

  if (line.type.is("assistant")) {
    const std::string model = ClaudeLines::text(line.messageModel).value_or("");
    if (!model.empty() && model != ClaudeLines::kSynthetic) {
      stats.model = model;
      if (model.find("[1m]") != std::string::npos) longContext = true;
      if (line.messageUsage.kind == '{') contextUsage.assign(line.messageUsage.raw);
    }
    std::string key = ClaudeLines::messageKey(line.messageId.raw, line.requestId.raw);
    const auto stop = ClaudeLines::text(line.messageStopReason);
    // The stop reason is often known only on a message's last lines.
    if (key.empty() || key != lastMessage)
      stopReason = stop.value_or("");
    else if (stop)
      stopReason = *stop;
    lastMessage = std::move(key);
    turn = Turn::answered;
  } else if (line.type.is("user")) {
    if (line.isMeta.isTrue() || line.isCompactSummary.isTrue()) return;
    auto prompt = typedText(line.messageContent);
    if (!prompt || prompt->empty()) return;
    if (prompt->starts_with(kInterrupted)) {
      turn = Turn::over;
      return;
    }
    for (std::string_view marker : kNotPrompts)
      if (prompt->starts_with(marker)) return;
    if (!stats.firstPrompt) stats.firstPrompt = *prompt;
    stats.lastPrompt = std::move(*prompt);
    turn = Turn::prompted;
  } else if (line.type.is("system")) {
    for (std::string_view over : kTurnOver)
      if (line.subtype.is(over) && turn == Turn::answered) turn = Turn::over;
  }
}

const TranscriptStats& ClaudeFigures::figures() {
  if (!dirty) return stats;
  dirty = false;
  ledger.settle([this](const auto* before, const auto& after) {
    stats.cost += after.cost - (before ? before->cost : 0);
  });
  if (!contextUsage.empty()) {
    stats.contextTokens = contextOf(contextUsage);
    contextUsage.clear();
  }
  const auto rate = stats.model ? Pricing::rate(*stats.model) : std::nullopt;
  const int64_t standard = rate && rate->window > 0 ? rate->window : 200'000;
  if (stats.contextTokens > standard) longContext = true;
  stats.contextWindow = longContext ? ClaudeTranscripts::kLongContextWindow : 0;
  stats.endedTurn =
      turn == Turn::over ||
      (turn == Turn::answered && (stopReason == "end_turn" || stopReason == "stop_sequence"));
  return stats;
}

ClaudeTranscripts::ClaudeTranscripts() : files_(kSlice) {}
ClaudeTranscripts::~ClaudeTranscripts() = default;

std::optional<TranscriptStats> ClaudeTranscripts::update(const std::string& path) {
  return files_.update(path);
}

void ClaudeTranscripts::forget(const std::string& path) {
  files_.forget(path);
}

ClaudeRecentTranscripts::ClaudeRecentTranscripts(Clock clock, std::string projects)
    : clock_(std::move(clock)), projects_(std::move(projects)) {}

ClaudeRecentTranscripts::ClaudeRecentTranscripts(const Loop& loop, std::string projects)
    : ClaudeRecentTranscripts([&loop] { return loop.wall(); }, std::move(projects)) {}

std::vector<RecentTranscript> ClaudeRecentTranscripts::find() {
  const WallTime since = clock_() - kWindowSeconds;
  std::vector<RecentTranscript> found;
  ClaudeLines::forEachTranscript(projects_, [&](const std::string& path, std::string_view name,
                                                const struct stat& info) {
    const WallTime modified = static_cast<double>(info.st_mtim.tv_sec) + info.st_mtim.tv_nsec / 1e9;
    if (modified < since || name.starts_with("agent-")) return;
    found.push_back({std::string(name.substr(0, name.size() - 6)), path, modified});
  });
  std::sort(found.begin(), found.end(),
            [](const auto& a, const auto& b) { return a.modified > b.modified; });
  if (found.size() > kMaxCount) found.resize(kMaxCount);
  return found;
}
