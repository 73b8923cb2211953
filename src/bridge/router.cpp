#include "bridge/router.h"

#include "bridge/subscribers.h"

#include <glib.h>

#include <cstring>
#include <vector>

Router::Router(Hub& hub, Transport& transport, CommandHandler commands, Limits limits)
    : hub_(hub),
      transport_(transport),
      commands_(std::move(commands)),
      limits_(limits),
      self_(std::make_shared<Router*>(this)),
      subscribers_(std::make_unique<Subscribers>(hub, transport)) {}

Router::~Router() {
  if (alive_) hub_.loop().cancel(*alive_);
}

size_t Router::following() const {
  return subscribers_->size();
}

size_t Router::holding() const {
  size_t n = 0;
  for (const auto& [id, c] : conns_) n += c.held.has_value();
  return n;
}

Router::Conn* Router::find(ConnId conn) {
  auto it = conns_.find(conn);
  return it == conns_.end() ? nullptr : &it->second;
}

bool Router::answerable(ConnId conn) const {
  auto it = conns_.find(conn);
  return it != conns_.end() && !it->second.finished && !it->second.held && !it->second.following;
}

void Router::opened(ConnId conn, std::string machine) {
  conns_[conn].machine = std::move(machine);
}

void Router::received(ConnId conn, std::string_view bytes) {
  Conn& c = conns_[conn];
  if (bytes.empty()) return;
  // Kept aside: a connection cut or answered is forgotten while its later lines are routed.
  const std::string machine = c.machine;
  if (buffered_ + bytes.size() > limits_.total) {
    cut(conn, "the hook connections together buffer too much", buffered_ + bytes.size());
    return;
  }
  const void* last = memrchr(bytes.data(), '\n', bytes.size());
  if (!last) {
    c.buffer.append(bytes);
    buffered_ += bytes.size();
    if (c.buffer.size() > limits_.line)
      cut(conn, "a hook connection sent too long a line", c.buffer.size());
    return;
  }
  // Complete lines leave the buffer before any is routed: routing may end the connection.
  const size_t through = static_cast<const char*>(last) - bytes.data() + 1;
  std::string lines = std::move(c.buffer);
  buffered_ -= lines.size();
  lines.append(bytes.substr(0, through));
  c.buffer.assign(bytes.substr(through));
  buffered_ += c.buffer.size();
  if (c.buffer.size() > limits_.line)
    cut(conn, "a hook connection sent too long a line", c.buffer.size());

  std::string_view rest = lines;
  while (!rest.empty()) {
    size_t nl = rest.find('\n');
    std::string_view line = rest.substr(0, nl);
    rest.remove_prefix(nl + 1);
    if (!line.empty()) dispatch(conn, line, machine);
  }
}

void Router::cut(ConnId conn, const char* why, size_t bytes) {
  if (!find(conn)) return;
  g_warning("Vantler: closing a hook connection: %s (%zu bytes)", why, bytes);
  ended(conn);
  transport_.drop(conn);
}

void Router::ended(ConnId conn) {
  auto node = conns_.extract(conn);
  if (node.empty()) return;
  buffered_ -= node.mapped().buffer.size();
  if (node.mapped().held) hub_.hookGone(*node.mapped().held);
  if (node.mapped().following) subscribers_->remove(conn);
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
    Conn* c = r.find(conn);
    if (!c || c->finished) return;  // the hook already left
    c->held.reset();
    c->finished = true;
    r.transport_.finish(conn, text + "\n");
  };
}

void Router::hold(ConnId conn, const std::string& key) {
  find(conn)->held = key;
  if (!alive_)
    alive_ = hub_.loop().every(Wire::kAliveEvery, 0.5, [weak = std::weak_ptr<Router*>(self_)] {
      if (auto self = weak.lock()) (*self)->keepAlive();
    });
  // Written after the key is held: a write that fails ends the connection, which withdraws it.
  transport_.send(conn, std::string(Wire::kHold) + "\n");
}

void Router::keepAlive() {
  std::vector<ConnId> held;
  for (const auto& [id, c] : conns_)
    if (c.held) held.push_back(id);
  if (held.empty()) {
    hub_.loop().cancel(*alive_);
    alive_.reset();
    return;
  }
  for (ConnId id : held)
    if (Conn* c = find(id); c && c->held) transport_.send(id, std::string(Wire::kAlive) + "\n");
}

void Router::dispatch(ConnId conn, std::string_view line, const std::string& machine) {
  Json obj = JsonField::parseBounded(line);
  if (!obj.is_object()) return;  // not for us: dropped, the connection stays
  const bool attached = answerable(conn);
  // What a hook says of processes and files on another machine means nothing here; only the
  // tunnel, never the payload, names the machine.
  if (!machine.empty()) {
    if (obj.contains("_query") || obj.contains("_command")) {
      if (attached) {
        find(conn)->finished = true;
        transport_.finish(conn, R"({"ok":false,"error":"not accepted from another machine"})"
                                "\n");
      }
      return;
    }
    // Its tmux pane is the one fact kept: it is reached on that machine.
    Json tmux = Json::object();
    for (const char* key : {"tmux", "tmuxPane"})
      if (const Json* value = JsonField::find(JsonField::object(obj, "_host"), key))
        tmux[key] = *value;
    obj.erase("_host");
    if (!tmux.empty()) obj["_host"] = std::move(tmux);
    obj.erase("agentPid");
    obj["_machine"] = machine;
  } else {
    obj.erase("_machine");
  }

  if (JsonField::str(obj, "_query") == "state") {
    if (!attached) return;
    find(conn)->finished = true;
    transport_.finish(conn,
                      hub_.snapshot().dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
    return;
  }
  if (const Json* command = JsonField::find(obj, "_command")) {
    if (JsonField::str(*command, "type") == "subscribe") {
      if (!attached) return;
      find(conn)->following = true;
      if (!subscribers_->add(conn)) {
        Conn* c = find(conn);
        c->following = false;
        c->finished = true;
        transport_.finish(conn, R"({"ok":false,"error":"too many subscribers"})"
                                "\n");
      }
      return;
    }
    Json answer = commands_ ? commands_(*command)
                            : Json{{"ok", false}, {"error", "commands are not accepted here"}};
    if (!answerable(conn)) return;
    find(conn)->finished = true;
    transport_.finish(conn, JsonField::compact(answer) + "\n");
    return;
  }

  Hub::Reply reply = attached ? replyFor(conn) : Hub::Reply([](const std::string&) {});
  std::optional<std::string> key = adapters_.handle(obj, reply);
  if (!key) return;
  if (!attached)
    hub_.hookGone(*key);  // nobody can take the answer
  else if (answerable(conn))
    hold(conn, *key);
  // Otherwise the entry point answered at once: nothing to hold.
}
