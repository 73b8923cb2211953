#pragma once
// The application's loop: GLib's main context (the one GTK runs).

#include <memory>
#include <unordered_map>

#include <glib.h>

#include "core/loop.h"

class GLibLoop final : public Loop {
 public:
  // Uses the thread-default main context when none is given.
  explicit GLibLoop(GMainContext* context = nullptr);
  ~GLibLoop() override;
  GLibLoop(const GLibLoop&) = delete;
  GLibLoop& operator=(const GLibLoop&) = delete;

  TaskId post(Task task) override;
  TaskId after(double seconds, Task task) override;
  TaskId every(double interval, double tolerance, Task task) override;
  void cancel(TaskId id) override;
  WallTime wall() const override;
  double uptime() const override;

  // Runs the context until `quit` is called.
  void run();
  void quit();
  GMainContext* context() const { return context_; }

 private:
  struct Slot;
  TaskId attach(GSource* source, Task task, bool repeating);

  GMainContext* context_;
  GMainLoop* mainLoop_;
  TaskId nextId_ = 1;
  std::unordered_map<TaskId, std::unique_ptr<Slot>> slots_;
};
