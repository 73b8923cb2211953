#pragma once
// The local socket every agent hook reaches the app through: a Unix stream socket at
// ~/.vantler/run/vantler.sock, one request per connection, lines of JSON each way (the protocol
// is described in bridge/wire.h). Only the user who runs the app may connect.
//
// The loop never waits on a peer: each wake-up reads at most one chunk from one connection,
// replies are written as the peer takes them, and buffers are capped (see Router::Limits).
// When the process runs out of descriptors, accepting pauses for a moment instead of spinning.

#include <glib.h>
#include <sys/types.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

#include "bridge/router.h"

class Bridge final : private Router::Transport {
 public:
  // Bytes read from one connection, and connections accepted, per wake-up of the loop.
  static constexpr size_t kReadChunk = 64 * 1024;
  static constexpr int kAcceptsPerWake = 64;
  // Unsent bytes to a connection that does not read: over this it is closed.
  static constexpr size_t kMaxUnsent = 64u << 20;
  // Pauses of accepting after running out of descriptors, doubling up to the longest.
  static constexpr unsigned kPauseFirstMs = 100, kPauseLongestMs = 1600;

  // `context` is the main context to run on (the thread default when null).
  Bridge(Hub& hub, std::string home, Router::CommandHandler commands = {},
         GMainContext* context = nullptr, Router::Limits limits = {});
  ~Bridge() override;
  Bridge(const Bridge&) = delete;
  Bridge& operator=(const Bridge&) = delete;

  static std::string runDir(const std::string& home);
  static std::string socketPath(const std::string& home);
  // Creates ~/.vantler/run (0700) when missing and checks it: a real directory of ours that no
  // one else may use. Returns a one-line message naming the path and the fix otherwise.
  static std::optional<std::string> prepareRunDir(const std::string& home);

  // Prepares the run directory and listens; a stale socket file is replaced, a socket that
  // answers is not. False when the socket cannot be made; `error()` says why (also logged).
  bool start();
  // Stops listening and removes the socket file, if it is still the one this bridge made.
  // Open connections stay until they end.
  void stop();

  // Names the machine a connection comes from by its peer's pid (a tunnel's ssh client);
  // nothing for this machine.
  void setMachineOf(std::function<std::optional<std::string>(int32_t pid)> machineOf) {
    machineOf_ = std::move(machineOf);
  }

  const std::string& path() const { return path_; }
  const std::string& error() const { return error_; }
  Router& router() { return router_; }
  size_t connections() const { return conns_.size(); }

 private:
  struct Conn {
    int fd = -1;
    GSource* source = nullptr;
    GIOCondition watching = G_IO_IN;
    std::string out;  // reply bytes not yet written
    bool closing = false;
  };

  void send(Router::ConnId conn, std::string bytes) override;
  void finish(Router::ConnId conn, std::string bytes) override;
  void drop(Router::ConnId conn) override;
  size_t unsent(Router::ConnId conn) const override;

  void acceptAll();
  // Stops accepting for a while after running out of descriptors.
  void pauseAccepting();
  void readable(Router::ConnId id);
  void flush(Router::ConnId id);
  void setWatch(Conn& c, Router::ConnId id, GIOCondition condition);
  // Closes and forgets a connection; the router is told it ended.
  void close(Router::ConnId id);
  GSource* watch(int fd, GIOCondition condition, Router::ConnId id);

  std::string home_;
  std::string path_;
  std::string error_;
  GMainContext* context_;
  Router router_;
  int listenFd_ = -1;
  GSource* listenSource_ = nullptr;
  GSource* resumeSource_ = nullptr;
  unsigned pauseMs_ = kPauseFirstMs;
  gint64 lastPauseLog_ = 0;
  dev_t socketDev_ = 0;
  ino_t socketIno_ = 0;
  Router::ConnId nextId_ = 1;
  std::unordered_map<Router::ConnId, Conn> conns_;
  std::function<std::optional<std::string>(int32_t pid)> machineOf_;
};
