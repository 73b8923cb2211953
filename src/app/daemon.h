#pragma once

namespace Daemon {

struct Options {
  bool replace = false;  // stop an instance that is already running
};

// Runs the hub, the hook socket and the timers without a window until SIGINT or SIGTERM.
int run(const Options& options);

}  // namespace Daemon
