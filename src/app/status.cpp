#include "app/status.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

#include "app/client.h"
#include "bridge/linux_bridge.h"
#include "core/files.h"
#include "core/linux_glib_loop.h"
#include "usage/usage_meter.h"

namespace Status {
namespace {

// While no app runs, following looks for one again this often.
constexpr auto kRetryEvery = std::chrono::seconds(2);

class Printer {
 public:
  explicit Printer(StatusLine::Format format) : format_(format), usage_(loop_) {}

  // Prints the line unless it is the one printed last; false once stdout is gone.
  bool show(const Json* snapshot) {
    double cost = snapshot ? JsonField::num(usage_.snapshot(), "today") : 0;
    std::string line = StatusLine::render(snapshot, cost, format_);
    if (line == last_) return true;
    last_ = line;
    return std::printf("%s\n", line.c_str()) > 0 && std::fflush(stdout) == 0;
  }

 private:
  StatusLine::Format format_;
  GLibLoop loop_;  // the clock of today's usage
  UsageMeter usage_;
  std::string last_;
};

// Follows one connection to the app until it ends; false once stdout is gone.
bool follow(int fd, Printer& printer) {
  const std::string subscribe = R"({"_command":{"type":"subscribe"}})"
                                "\n";
  if (!Wire::sendBy(fd, subscribe, Wire::Clock::now() + std::chrono::seconds(1))) return true;
  std::string pending, line, newer;
  for (;;) {
    Wire::Read r;
    while ((r = Wire::lineBy(fd, pending, line, Wire::Clock::now() + std::chrono::hours(1))) ==
           Wire::Read::kTimeout) {
    }
    if (r != Wire::Read::kLine) return true;
    // Only the newest of the snapshots already here is worth a line.
    while (Wire::lineBy(fd, pending, newer, Wire::Clock::now()) == Wire::Read::kLine)
      line.swap(newer);
    Json snapshot = JsonField::parse(line);
    if (!snapshot.is_object() || snapshot.contains("ok")) {
      std::fprintf(stderr, "vantler: %s\n",
                   JsonField::str(snapshot, "error", "unexpected answer from Vantler").c_str());
      return true;
    }
    if (!printer.show(&snapshot)) return false;
  }
}

}  // namespace

int run(const Options& options) {
  const std::string socket = Bridge::socketPath(Files::home());
  Printer printer(options.format);
  if (!options.follow) {
    Client::Result r = Client::exchange(socket, R"({"_query":"state"})");
    Json snapshot = JsonField::parse(r.answer);
    printer.show(r.connected && !r.timedOut && snapshot.is_object() ? &snapshot : nullptr);
    return 0;
  }
  for (;;) {
    int fd = Wire::connectBy(socket, Wire::Clock::now() + std::chrono::seconds(1));
    if (fd >= 0) {
      bool stdoutOpen = follow(fd, printer);
      ::close(fd);
      if (!stdoutOpen) return 0;
      // A newer instance that replaced this one is listening already.
      fd = Wire::connectBy(socket, Wire::Clock::now() + std::chrono::milliseconds(500));
      if (fd >= 0) {
        ::close(fd);
        continue;
      }
    }
    if (!printer.show(nullptr)) return 0;
    std::this_thread::sleep_for(kRetryEvery);
  }
}

}  // namespace Status
