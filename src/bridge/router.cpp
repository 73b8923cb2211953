#include "bridge/router.h"

#include <glib.h>

#include <cstring>

Router::Router(Hub& hub, Transport& transport, CommandHandler commands)
    : hub_(hub),
      transport_(transport),
      commands_(std::move(commands)),
      self_(std::make_shared<Router*>(this)) {}

Router::~Router() = default;

size_t Router::holding() const {
  size_t n = 0;
  for (const auto& [id, c] : conns_) n += c.held.has_value();
  return n;
}

void Router::opened(ConnId conn) {
  conns_[conn];
}

void Router::received(ConnId conn, std::string_view bytes) {
  auto it = conns_.find(conn);
  if (it == conns_.end()) it = conns_.emplace(conn, Conn{}).first;
  if (it->second.finished) return;
  it->second.buffer.append(bytes);

  for (;;) {
    it = conns_.find(conn);
    if (it == conns_.end() || it->second.finished) return;
    Conn& c = it->second;
    const void* nl = std::memchr(c.buffer.data() + c.scanned, '\n', c.buffer.size() - c.scanned);
    if (!nl) {
      c.scanned = c.buffer.size();
      if (c.buffer.size() > kMaxLine) {
        g_warning("Vantler: closing a hook connection that sent %zu bytes without a line end",
                  c.buffer.size());
        c.finished = true;
        c.buffer = std::string();
        transport_.drop(conn);
      }
      return;
    }
    size_t len = static_cast<const char*>(nl) - c.buffer.data();
    std::string line = c.buffer.substr(0, len);
    c.buffer.erase(0, len + 1);
    c.scanned = 0;
    dispatch(conn, line);  // may end or erase the connection
  }
}

void Router::ended(ConnId conn) {
  auto node = conns_.extract(conn);
  if (node.empty()) return;
  if (node.mapped().held) hub_.hookGone(*node.mapped().held);
}

Hub::Reply Router::replyFor(ConnId conn) {
  std::weak_ptr<Router*> weak = self_;
  auto replied = std::make_shared<bool>(false);
  return [weak, conn, replied](const std::string& text) {
    if (*replied) return;
    *replied = true;
    auto self = weak.lock();
    if (!self) return;
    Router& r = **self;
    auto it = r.conns_.find(conn);
    if (it == r.conns_.end() || it->second.finished) return;  // the hook already left
    it->second.held.reset();
    it->second.finished = true;
    it->second.buffer = std::string();
    r.transport_.finish(conn, text + "\n");
  };
}

void Router::dispatch(ConnId conn, std::string_view line) {
  Json obj = JsonField::parse(line);
  if (!obj.is_object()) return;  // not for us: dropped, the connection stays

  if (JsonField::str(obj, "_query") == "state") {
    Conn& c = conns_[conn];
    c.finished = true;
    transport_.finish(conn,
                      hub_.snapshot().dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
    return;
  }
  if (const Json* command = JsonField::find(obj, "_command")) {
    Json answer = commands_ ? commands_(*command)
                            : Json{{"ok", false}, {"error", "commands are not accepted here"}};
    Conn& c = conns_[conn];
    c.finished = true;
    transport_.finish(conn, JsonField::compact(answer) + "\n");
    return;
  }

  Hub::Reply reply = replyFor(conn);
  auto replied = [&] {
    auto it = conns_.find(conn);
    return it == conns_.end() || it->second.finished;
  };
  std::optional<std::string> key = adapters_.handle(obj, reply);
  // An entry point that answered at once leaves nothing to hold.
  if (key && !replied()) conns_[conn].held = *key;
}
