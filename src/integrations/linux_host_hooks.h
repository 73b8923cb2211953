#pragma once
// Keeps the hook program on remote hosts at this Vantler's version. The first time a host's
// tunnel comes up, its ~/.vantler/bin/vantler-hook is asked for its version over ssh; when that
// is not ours, the update command (`vantler remote update <host>`, which copies the hook and
// rewrites the agents' hooks already connected there) runs. One host at a time, each step with
// a deadline, beside the loop; every outcome goes to the log.

#include <deque>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "core/json.h"
#include "core/loop.h"
#include "integrations/linux_subprocesses.h"

class HostHooks {
 public:
  static constexpr double kCheckWithin = 30, kUpdateWithin = 300;  // seconds
  using UpdateCommand = std::function<std::vector<std::string>(const std::string& host)>;
  using Log = std::function<void(const std::string& line)>;

  // `ours` is what our hook prints for --version ("vantler-hook 0.1.0").
  HostHooks(Loop& loop, std::string ours, UpdateCommand update, Log log);

  // The host's tunnel is up: its hook is checked, once while this object lives.
  void tunnelUp(const std::string& host);
  // Each host checked so far: its hook's version, "hook outdated" while it is being updated or
  // after an update failed, "checking hook" before the answer.
  Json status() const;

 private:
  void next();
  void check(const std::string& host);
  void update(const std::string& host);
  void finish(const std::string& host, const std::string& state, const std::string& line);

  std::string ours_;
  UpdateCommand update_;
  Log log_;
  std::set<std::string> seen_;
  std::deque<std::string> waiting_;
  bool busy_ = false;
  std::map<std::string, std::string> state_;
  Subprocesses runs_;  // last: dropping it first forgets the runs that still point here
};
