#pragma once
// The pull request of each project's current branch, read with GitHub's `gh` command line:
// `gh pr view --json number,title,state,url,statusCheckRollup` run in the project root as an
// asynchronous subprocess on the thread-default main context, so the loop never waits on the
// network.
//
// Reading gh's answer, summarising the checks, deciding what is news and when a root is due
// for another look are plain functions (namespace Gh, FetchSchedule); GitHub wires them to
// GSubprocess.
//
// Timing: a root is looked at once, then at most once every kFetchInterval seconds; a forced
// refresh skips that wait. A root never has two gh runs at once (a forced refresh arriving
// during a run queues exactly one more run after it), at most kMaxRunning gh processes run
// together (the rest wait their turn in order), and a run taking longer than kRunLimit is
// killed and counts as a failure.
//
// Failures are silent: no gh, no repository, no network or no login leave the root as it was
// (no entry if it had none; an entry it had stays, so a dropped connection does not make the
// pull request flicker off the panel). Only gh's own "no pull requests found" removes an entry.

#include <gio/gio.h>

#include <cstddef>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/json.h"
#include "core/loop.h"
#include "core/ports.h"
#include "integrations/linux_subprocesses.h"

namespace Gh {

inline constexpr double kFetchInterval = 60.0;  // seconds between unforced looks at a root
inline constexpr std::size_t kMaxRunning = 4;   // gh processes at a time
inline constexpr double kRunLimit = 30.0;       // seconds before a gh run is killed

// "fail" when any check failed (a check run concluded FAILURE, CANCELLED, TIMED_OUT,
// ACTION_REQUIRED or STARTUP_FAILURE, or a status context is FAILURE or ERROR); else "pending"
// when any has not finished (a check run not COMPLETED, a status context PENDING or EXPECTED);
// else "pass" when there is at least one check; else "".
std::string checks(const Json& statusCheckRollup);

// The pull request in gh's JSON, or nothing when the text is not one (no positive number or
// no state).
std::optional<PullRequest> parse(std::string_view json);

// What one gh run said about a root.
struct Answer {
  enum Kind { pullRequest, none, failed };
  Kind kind = failed;
  PullRequest pr;  // when kind == pullRequest
};
// `succeeded` is a zero exit status. A failing run whose error output says "no pull requests
// found" means the branch has none; any other failure, or output that is not a pull request,
// tells nothing.
Answer read(bool succeeded, std::string_view out, std::string_view err);

// The news kind when a root's pull request goes from `before` to `after` (nullptr: none), or
// "" when there is nothing to tell. `known` is false until a run has answered for the root:
// whatever is first seen is the current state, not news.
// - A pull request the root did not show before (none, or another number) is "opened" when
//   OPEN; one that is already merged or closed when first shown is not news.
// - The same pull request changing state is "merged", "closed" or, when reopened, "opened".
// - An open pull request whose checks turn "pass" or "fail" is "checksPassed"/"checksFailed".
// - A pull request going away is not news.
std::string news(bool known, const PullRequest* before, const PullRequest* after);

}  // namespace Gh

// When each root's gh runs start: the throttle, one run per root, and the cap on concurrent
// runs. Times are the loop's uptime.
class FetchSchedule {
 public:
  explicit FetchSchedule(double interval = Gh::kFetchInterval,
                         std::size_t maxRunning = Gh::kMaxRunning)
      : interval_(interval), maxRunning_(maxRunning) {}

  // Takes note of the roots that are due (all of them when `force`) and returns the ones to
  // start now; the caller starts each. Empty roots are ignored.
  std::vector<std::string> request(const std::vector<std::string>& roots, bool force, double now);
  // The run of `root` has ended; returns the roots to start now.
  std::vector<std::string> finished(const std::string& root, double now);

  std::size_t running() const { return running_; }

 private:
  struct Entry {
    std::optional<double> started;
    bool running = false;
    bool waiting = false;
    bool again = false;  // forced while running: run once more afterwards
  };
  std::vector<std::string> pump(double now);

  double interval_;
  std::size_t maxRunning_;
  std::map<std::string, Entry> entries_;
  std::deque<std::string> queue_;
  std::size_t running_ = 0;
};

class GitHub final : public PullRequests {
 public:
  // `ghPath` is the gh executable, a name looked up on PATH or a path.
  explicit GitHub(Loop& loop, std::string ghPath = "gh");
  GitHub(const GitHub&) = delete;
  GitHub& operator=(const GitHub&) = delete;

  void refresh(const std::vector<std::string>& roots, bool force) override;
  const PullRequest* find(const std::string& root) const override;

  // gh runs under way.
  std::size_t running() const { return runs_.running(); }

 private:
  struct Known {
    bool answered = false;
    std::optional<PullRequest> pr;
  };

  void start(std::vector<std::string> roots);
  // Launches gh for the root; false when it could not be started.
  bool launch(const std::string& root);
  void answered(const std::string& root, const Subprocesses::Result& result);
  // Records the answer and returns the news kind, or "".
  std::string apply(const std::string& root, const Gh::Answer& answer);

  Loop& loop_;
  std::string ghPath_;
  FetchSchedule schedule_;
  std::map<std::string, Known> roots_;
  Subprocesses runs_;  // last: dropping it kills gh runs still going, before the rest goes
};
