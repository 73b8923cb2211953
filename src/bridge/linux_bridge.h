#pragma once
// The local socket every agent hook reaches the app through: a Unix stream socket at
// ~/.vantler/run/vantler.sock, one request per connection, lines of JSON each way. Only the
// user who runs the app may connect.

#include <glib.h>

#include <memory>
#include <string>
#include <unordered_map>

#include "bridge/router.h"

class Bridge final : private Router::Transport {
 public:
  // `context` is the main context to run on (the thread default when null).
  Bridge(Hub& hub, std::string home, Router::CommandHandler commands = {},
         GMainContext* context = nullptr);
  ~Bridge() override;
  Bridge(const Bridge&) = delete;
  Bridge& operator=(const Bridge&) = delete;

  static std::string runDir(const std::string& home);
  static std::string socketPath(const std::string& home);

  // Creates the run directory (0700), removes a stale socket and listens. False when the
  // socket cannot be made; the reason is logged.
  bool start();
  // Stops listening and removes the socket file. Open connections stay until they end.
  void stop();

  const std::string& path() const { return path_; }
  Router& router() { return router_; }
  size_t connections() const { return conns_.size(); }

 private:
  struct Conn {
    int fd = -1;
    GSource* source = nullptr;
    std::string out;  // reply bytes not yet written
    bool closing = false;
  };

  void finish(Router::ConnId conn, std::string bytes) override;
  void drop(Router::ConnId conn) override;

  void acceptAll();
  void readable(Router::ConnId id);
  void flush(Router::ConnId id);
  // Closes and forgets a connection; the router is told it ended.
  void close(Router::ConnId id);
  GSource* watch(int fd, GIOCondition condition, Router::ConnId id);

  std::string home_;
  std::string path_;
  GMainContext* context_;
  Router router_;
  int listenFd_ = -1;
  GSource* listenSource_ = nullptr;
  Router::ConnId nextId_ = 1;
  std::unordered_map<Router::ConnId, Conn> conns_;
};
