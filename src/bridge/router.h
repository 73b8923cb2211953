#pragma once
// Frames the bytes of hook connections into lines and routes each line: agent events to the
// hub's adapters, state queries to the snapshot, control commands to their handler. It knows
// nothing of sockets; the bridge feeds it and carries its answers back.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "bridge/adapters.h"
#include "core/hub.h"
#include "core/json.h"

class Router {
 public:
  using ConnId = uint64_t;

  class Transport {
   public:
    virtual ~Transport() = default;
    // Writes the bytes, then closes the connection.
    virtual void finish(ConnId conn, std::string bytes) = 0;
    // Closes the connection without a word (it broke the protocol).
    virtual void drop(ConnId conn) = 0;
  };
  // Runs a control command (the "_command" object of a line) and returns its answer.
  using CommandHandler = std::function<Json(const Json& command)>;

  // A line longer than this without its line feed closes the connection.
  static constexpr size_t kMaxLine = 64u << 20;

  Router(Hub& hub, Transport& transport, CommandHandler commands = {});
  ~Router();

  void opened(ConnId conn);
  void received(ConnId conn, std::string_view bytes);
  // The peer went away (or the connection failed): a request it waited on is withdrawn.
  void ended(ConnId conn);

  size_t connections() const { return conns_.size(); }
  size_t holding() const;

 private:
  struct Conn {
    std::string buffer;
    size_t scanned = 0;  // bytes of `buffer` known to hold no line feed
    std::optional<std::string> held;
    bool finished = false;
  };

  void dispatch(ConnId conn, std::string_view line);
  Hub::Reply replyFor(ConnId conn);

  Hub& hub_;
  Adapters adapters_{hub_};
  Transport& transport_;
  CommandHandler commands_;
  std::unordered_map<ConnId, Conn> conns_;
  std::shared_ptr<Router*> self_;
};
