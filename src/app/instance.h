#pragma once
// One running Vantler per user: whoever holds the lock on ~/.vantler/run/vantler.pid owns the
// hook socket, for as long as it lives. The lock file also holds the owner's process id, so that
// a newer start can ask the owner to quit ("newest wins") and take over once it has let go.

#include <sys/types.h>

#include <optional>
#include <string>

class Instance {
 public:
  // How long an owner gets to quit after SIGTERM before it is killed, and how long a takeover
  // waits for the lock altogether.
  static constexpr int kGraceMs = 1200;
  static constexpr int kTakeOverMs = 4000;

  // Takes the lock, first making sure the run directory is safe to use. When another instance
  // holds it: without `replace`, fails; with it, stops that instance (SIGTERM, SIGKILL after
  // the grace period) and takes the lock when it is released. On failure `error` holds a
  // one-line message for the user.
  static std::optional<Instance> acquire(const std::string& home, bool replace, std::string& error);

  Instance(Instance&& other) noexcept;
  Instance& operator=(Instance&& other) noexcept;
  Instance(const Instance&) = delete;
  Instance& operator=(const Instance&) = delete;
  ~Instance();  // lets go of the lock

  static std::string lockPath(const std::string& home);

  // Raises the soft limit on open files to the hard limit: every waiting hook holds a socket.
  static void raiseFileLimit();

 private:
  explicit Instance(int fd) : fd_(fd) {}
  int fd_ = -1;
};
