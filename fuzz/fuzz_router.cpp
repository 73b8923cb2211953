// Fuzzes line framing and dispatch: arbitrary bytes, split into arbitrary reads over a few
// connections, go through the router into a real hub. Nothing may crash, leak or misbehave
// under the sanitizers, and every held request must belong to a live connection. The same bytes
// also go through the hook's reading of its input: bounded parsing must agree with plain
// parsing wherever it accepts, and what the hook sends must read back as what it meant.

#include <cstdint>
#include <cstdlib>
#include <set>

#include "bridge/control.h"
#include "bridge/router.h"
#include "core/defaults.h"
#include "core/fake_loop.h"
#include "core/hub.h"

namespace {

struct Sink : Router::Transport {
  std::set<Router::ConnId> closed;
  Router* router = nullptr;
  void send(Router::ConnId conn, std::string) override {
    if (closed.count(conn)) std::abort();  // written to after its end
  }
  void finish(Router::ConnId conn, std::string) override { end(conn); }
  void drop(Router::ConnId conn) override { end(conn); }
  void end(Router::ConnId conn) {
    if (!closed.insert(conn).second) std::abort();  // answered twice
  }
};

}  // namespace

void hookInput(std::string_view text) {
  Json payload = JsonField::parseBounded(text);
  if (payload.is_discarded()) return;
  if (payload != JsonField::parse(text)) std::abort();
  if (!payload.is_object()) return;
  payload["_agent"] = "claude";
  std::string line = JsonField::compact(payload);
  if (line.find('\n') != std::string::npos) std::abort();  // one line, always
  Json back = JsonField::parseBounded(line);
  if (!back.is_object() || JsonField::str(back, "_agent") != "claude") std::abort();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  hookInput({reinterpret_cast<const char*>(data), size});
  static Defaults defaults("/tmp/vantler-fuzz-defaults.json");
  FakeLoop loop;
  Hub hub(loop, defaults, {}, HubOptions{"/tmp", std::nullopt, true});
  Sink sink;
  Router router(hub, sink, [&hub](const Json& c) { return Control::handle(hub, c); });

  // Each chunk: one control byte (connection and action), a length byte, then the bytes.
  size_t i = 0;
  while (i + 2 <= size) {
    uint8_t control = data[i];
    size_t len = data[i + 1];
    i += 2;
    len = std::min(len, size - i);
    Router::ConnId conn = control % 4 + 1;
    switch (control >> 6) {
      case 0:
      case 1:
        if (!sink.closed.count(conn))
          router.received(conn, {reinterpret_cast<const char*>(data + i), len});
        break;
      case 2:
        router.ended(conn);
        sink.closed.erase(conn);
        break;
      default:
        loop.advance(static_cast<double>(len));
        break;
    }
    i += len;
  }
  loop.advance(60);
  return 0;
}
