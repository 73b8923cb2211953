#pragma once
// Follows Codex sessions through the rollout logs Codex writes, one JSON-lines file per session
// under ~/.codex/sessions/YYYY/MM/DD. Every two seconds the watcher reads what was appended to
// today's and yesterday's logs and turns each record into a change of the session "codex:<id>"
// through `Hub::codex`. Commands are counted from the model's `exec_command` call when it is
// written, so that those the sandbox refuses count too; a session that also sends Codex's hooks
// has its calls counted there instead. A session whose log has been quiet for 45 minutes, or
// whose file has left the two day directories, is taken out of the hub.
//
// Runs on the loop's thread only. Read positions and ids live in memory: after a restart every
// fresh file is read again from its start, which rebuilds its session.

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "core/json.h"
#include "core/line_reader.h"
#include "core/loop.h"
#include "core/session.h"

class Hub;

class CodexWatcher {
 public:
  static constexpr double kInterval = 2.0;
  static constexpr double kTolerance = 0.5;
  // A log unchanged for this long no longer counts as a running session.
  static constexpr double kStale = 2700.0;
  // At most about this much of the logs is read in one sweep; the rest waits for the next.
  static constexpr size_t kSweepBudget = 4u << 20;

  // `home` is the user's home directory; logs are read below home + "/.codex/sessions".
  CodexWatcher(Hub& hub, Loop& loop, std::string home);
  ~CodexWatcher();
  CodexWatcher(const CodexWatcher&) = delete;
  CodexWatcher& operator=(const CodexWatcher&) = delete;

  // Sweeps once at once, then every two seconds until `stop`.
  void start();
  void stop();
  // One look at the logs: reads what was appended, forgets and removes what went stale.
  void sweep();

  // Today's and yesterday's log directories, in that order, by the local calendar at `now`.
  std::vector<std::string> dayDirs(WallTime now) const;

  // The first text that, trimmed, is not empty and does not begin with "<" (injected context,
  // not the user's words). Accepts plain strings and Codex's {"type":"text","text":…} parts.
  static std::optional<std::string> userText(const Json& content);

 private:
  struct Meta {
    std::string id;
    std::string cwd;
    // Command calls counted from their request, oldest first, whose finished item has not come
    // (a command refused or failing in the sandbox never gets one): the item, when it comes,
    // is not counted again.
    std::deque<std::string> openCalls;
  };

  // Consumes the complete lines appended to a log, up to about `budget` bytes; a trailing
  // partial line waits. Returns the bytes read.
  size_t read(const std::string& path, LineMark& mark, size_t budget);
  // One decoded record; `now` is the date of records without a readable time stamp.
  void apply(const Json& record, const std::string& path, WallTime now);

  Hub& hub_;
  Loop& loop_;
  std::string root_;
  std::unordered_map<std::string, LineMark> marks_;
  LineReader reader_;
  std::unordered_map<std::string, Meta> meta_;
  std::optional<Loop::TaskId> timer_;
  std::unordered_set<std::string> seen_;  // this sweep's fresh logs
};
