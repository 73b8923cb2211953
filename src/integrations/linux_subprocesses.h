#pragma once
// Commands run without the loop ever waiting on them: each gets a deadline after which it is
// killed, and its result comes back on the loop. Dropping the runner kills what still runs; the
// callbacks of those runs never come.

#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gio/gio.h>

#include "core/loop.h"

class Subprocesses {
 public:
  struct Result {
    bool finished = false;  // read to the end (not killed at the deadline, not cut off)
    bool exited0 = false;   // finished, and exited with status 0
    std::string out;
    std::string err;
  };
  using Done = std::function<void(const Result&)>;
  struct Options {
    double deadline = 30.0;                                // seconds
    std::string cwd;                                       // empty: the app's own
    std::vector<std::pair<std::string, std::string>> env;  // set on top of the app's
    bool bytes = false;  // the output as it came; otherwise it must be UTF-8 text
  };

  explicit Subprocesses(Loop& loop) : loop_(loop) {}
  ~Subprocesses();
  Subprocesses(const Subprocesses&) = delete;
  Subprocesses& operator=(const Subprocesses&) = delete;

  // Starts `argv`; false (and `done` is never called) when it cannot be started. `done` runs
  // once the command is over, after the runner has forgotten it, so it may drop the runner.
  bool run(const std::vector<std::string>& argv, const Options& options, Done done);
  std::size_t running() const { return runs_.size(); }

 private:
  struct Run;
  static void communicated(GObject* source, GAsyncResult* result, gpointer data);

  Loop& loop_;
  std::set<Run*> runs_;
};
