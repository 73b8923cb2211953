#pragma once
// Work done on other threads (audio capture, HTTP requests, speech decoding) comes back to the
// loop's thread through a `Handoff`: a task sent from any thread runs on the GLib main context
// on a later turn. Tasks sent after the Handoff is gone, or still queued when it goes, never
// run, so a task may use its owner without a further check.

#include <functional>
#include <memory>
#include <mutex>

#include <glib.h>

class Handoff {
 public:
  using Task = std::function<void()>;
  using Sender = std::function<void(Task)>;

  // The thread-default main context when none is given.
  explicit Handoff(GMainContext* context = nullptr);
  ~Handoff();
  Handoff(const Handoff&) = delete;
  Handoff& operator=(const Handoff&) = delete;

  // Callable from any thread, also after the Handoff is gone (the task is then dropped).
  Sender sender() const;

 private:
  struct State {
    std::mutex mutex;
    bool open = true;
    GMainContext* context = nullptr;
  };
  struct Delivery {
    std::shared_ptr<State> state;
    Task task;
  };
  std::shared_ptr<State> state_;
};
