#pragma once
// Frames the bytes of hook connections into lines and routes each line: agent events to the
// hub's adapters, state queries to the snapshot, control commands to their handler. It knows
// nothing of sockets; the bridge feeds it and carries its answers back. The protocol it speaks
// is described in bridge/wire.h.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "bridge/adapters.h"
#include "bridge/wire.h"
#include "core/hub.h"
#include "core/json.h"

class Subscribers;

struct RouterLimits {
  size_t line = Wire::kMaxLine;      // bytes of one connection without a line feed
  size_t total = size_t{256} << 20;  // bytes buffered across all connections
};

class Router {
 public:
  using ConnId = uint64_t;

  class Transport {
   public:
    virtual ~Transport() = default;
    // Writes the bytes; the connection stays open.
    virtual void send(ConnId conn, std::string bytes) = 0;
    // Writes the bytes, then closes the connection.
    virtual void finish(ConnId conn, std::string bytes) = 0;
    // Closes the connection without a word (it broke the protocol or a limit).
    virtual void drop(ConnId conn) = 0;
    // Bytes written to the connection that the peer has not taken yet.
    virtual size_t unsent(ConnId) const { return 0; }
  };
  // Runs a control command (the "_command" object of a line) and returns its answer.
  using CommandHandler = std::function<Json(const Json& command)>;

  using Limits = RouterLimits;

  Router(Hub& hub, Transport& transport, CommandHandler commands = {}, Limits limits = {});
  ~Router();
  Router(const Router&) = delete;
  Router& operator=(const Router&) = delete;

  // `machine` names the other machine a connection comes from (through its tunnel); empty for
  // this one. Its lines may only be agent events, which are marked with the machine's name.
  void opened(ConnId conn, std::string machine = {});
  // Every complete line is routed in order, also those after a line that was answered (their
  // answers have nowhere to go, and a request they open is withdrawn at once).
  void received(ConnId conn, std::string_view bytes);
  // The peer went away (or the connection failed): a request it waited on is withdrawn.
  void ended(ConnId conn);

  size_t connections() const { return conns_.size(); }
  size_t holding() const;
  // Connections following the snapshot.
  size_t following() const;
  // Bytes of unfinished lines across all connections.
  size_t buffered() const { return buffered_; }

 private:
  struct Conn {
    std::string buffer;
    std::optional<std::string> held;
    bool finished = false;   // answered or cut off: nothing more is written to it
    bool following = false;  // gets the snapshot on every change (see Subscribers)
    std::string machine;
  };

  // `machine` is the connection's (Conn::machine).
  void dispatch(ConnId conn, std::string_view line, const std::string& machine);
  // Whether a line on `conn` can still be answered on it.
  bool answerable(ConnId conn) const;
  void hold(ConnId conn, const std::string& key);
  void keepAlive();
  // Forgets a connection that broke a limit and closes it.
  void cut(ConnId conn, const char* why, size_t bytes);
  Hub::Reply replyFor(ConnId conn);
  Conn* find(ConnId conn);

  Hub& hub_;
  Adapters adapters_{hub_};
  Transport& transport_;
  CommandHandler commands_;
  Limits limits_;
  std::unordered_map<ConnId, Conn> conns_;
  size_t buffered_ = 0;
  std::optional<Loop::TaskId> alive_;
  std::shared_ptr<Router*> self_;
  std::unique_ptr<Subscribers> subscribers_;
};
