#pragma once
// Remote hosts in the settings page: the list with each host's tunnel and hook state, and
// adding or removing a host, which runs `vantler remote add|remove` beside the loop (it logs in
// over ssh and may take a while) and tells the page how it went.

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "core/json.h"
#include "core/loop.h"
#include "integrations/linux_subprocesses.h"
#include "integrations/remote_hosts.h"

class RemoteSettings {
 public:
  static constexpr double kDeadline = 180;  // seconds for one add or remove

  // `status` gives {"hosts": [{"name", "state", ...}], "hooks": {name: state}}; `changed` runs
  // after the host list changed (the tunnels follow it, the page is told).
  RemoteSettings(Loop& loop, std::string program, std::function<Json()> status,
                 std::function<void()> changed);

  // Adds "remotes" to the settings: {"hosts": [{"name", "state", "hook", "busy"}], "message"}.
  void report(Json& settings) const;
  // Takes "remote:add" and "remote:remove" with a host name; false for other keys.
  bool set(std::string_view key, const Json& value, std::string& error);
  // Reads the host list again, after `vantler remote` changed it.
  void reload() { hosts_ = RemoteHosts::load(); }

 private:
  void run(const std::string& verb, const std::string& host);

  Subprocesses runner_;
  std::string program_;
  std::function<Json()> status_;
  std::function<void()> changed_;
  // The host list as last read: settings are reported on every snapshot, the file changes only
  // through `vantler remote`.
  std::vector<RemoteHost> hosts_ = RemoteHosts::load();
  std::map<std::string, std::string> busy_;  // host -> "adding" or "removing"
  std::string message_;                      // how the last add or remove went
};
