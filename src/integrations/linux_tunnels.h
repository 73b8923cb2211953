#pragma once
// One SSH tunnel per remote host while Vantler runs: `ssh -N -R <host socket>:<local socket>`
// carries the host's hook connections to this machine's socket. Before each start the host's
// run directory is made owner-only and the socket file an earlier tunnel left there removed (the
// server will not forward over it). A tunnel that ends is started again after a pause that
// doubles up to a minute; removing a host or dropping this object stops its ssh. Nothing here
// waits: every ssh runs beside the loop.
//
// The hub learns which host an event came from by the peer of the connection, which for a
// forwarded one is that host's ssh client (`machineOf`).

#include <gio/gio.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/json.h"
#include "core/loop.h"
#include "integrations/linux_subprocesses.h"
#include "integrations/remote_hosts.h"

class Tunnels {
 public:
  static constexpr double kFirstRetry = 1, kLongestRetry = 60;
  // A tunnel that stayed up this long starts its next retry from the shortest pause again.
  static constexpr double kSteady = 30;

  // `socketAt(home)` is the socket's path under a home directory, there as here.
  Tunnels(Loop& loop, std::string localSocket,
          std::function<std::string(const std::string& home)> socketAt);
  ~Tunnels();
  Tunnels(const Tunnels&) = delete;
  Tunnels& operator=(const Tunnels&) = delete;

  // Reads the host list again: tunnels start for new SSH hosts and stop for removed ones.
  void reload();
  // The host whose tunnel the process `pid` is; the time of its last event is noted.
  std::optional<std::string> machineOf(int32_t pid);
  // The ssh command line up to the destination that runs commands on `host` through its
  // tunnel's connection; nothing while that connection is not up.
  std::optional<std::vector<std::string>> sshThrough(const std::string& host) const;
  // `up` runs on the loop each time a host's tunnel starts, with the host's name.
  void onUp(std::function<void(const std::string& host)> up) { up_ = std::move(up); }
  // `changed` runs on the loop when a tunnel comes up or goes down.
  void onChange(std::function<void()> changed) { changed_ = std::move(changed); }
  // Each host: {"name", "state", "lastEvent" (seconds since 1970, 0 when none)}.
  Json status() const;

 private:
  struct Tunnel;
  void prepare(const std::shared_ptr<Tunnel>& tunnel);
  void open(const std::shared_ptr<Tunnel>& tunnel, const std::string& home);
  void ended(const std::shared_ptr<Tunnel>& tunnel, const std::string& why);
  void stop(Tunnel& tunnel);
  std::string controlPath(const std::string& host) const;

  Loop& loop_;
  std::string localSocket_;
  std::function<std::string(const std::string&)> socketAt_;
  Subprocesses runner_;
  std::map<std::string, std::shared_ptr<Tunnel>> tunnels_;
  std::function<void(const std::string&)> up_;
  std::function<void()> changed_;
};
