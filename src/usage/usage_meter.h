#pragma once
// What Claude Code has cost today, read from the transcripts under ~/.claude/projects.

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "core/json.h"
#include "core/line_reader.h"
#include "core/loop.h"
#include "usage/claude_lines.h"

// Today's cost and tokens per model. Each snapshot reads only what was appended to the
// transcripts since the previous one: a file whose size and modification time did not change is
// not opened, and a file last modified before today began is never read, as it cannot hold a
// message of today. "Today" is the local calendar day; when it changes, the totals start again
// from zero and the files are read again for the new day's messages.
class UsageMeter {
 public:
  using Clock = std::function<WallTime()>;

  explicit UsageMeter(Clock clock, std::string projects = ClaudeLines::projectsDirectory());
  explicit UsageMeter(const Loop& loop, std::string projects = ClaudeLines::projectsDirectory());

  // {"today": dollars, "models": [{"model": label, "cost": dollars, "tokens": integer}]}, the
  // models most expensive first.
  Json snapshot();

 private:
  struct Totals {
    double cost = 0;
    int64_t tokens = 0;
  };

  void startDay(WallTime now);
  void scan(const std::string& path, const struct stat& info);
  void read(std::string_view line);
  // A cheap test that a line may be an assistant message of today; `read` decides exactly.
  bool mayCount(std::string_view line) const;

  Clock clock_;
  std::string projects_;
  WallTime dayStart_ = 0;
  WallTime dayEnd_ = 0;
  // The UTC dates ("YYYY-MM-DD") that today's local day overlaps, as timestamps carry them.
  std::vector<std::string> utcDates_;
  std::unordered_map<std::string, LineMark> files_;
  LineReader reader_;
  ClaudeLines::MessageLedger ledger_;
  std::map<std::string, Totals> byModel_;
};
