#pragma once
// The main loop as the core sees it. All session state lives on one thread; work is handed to
// the loop and timers fire on it. The application runs it over GLib; tests use FakeLoop, whose
// clock only moves when the test says so.

#include <cstdint>
#include <functional>

// Seconds since 1970 (wall clock, for dates shown to the user and stored in sessions).
using WallTime = double;

class Loop {
 public:
  using Task = std::function<void()>;
  using TaskId = uint64_t;

  virtual ~Loop() = default;

  // Runs the task on a later turn of the loop, after the work already queued.
  virtual TaskId post(Task task) = 0;
  // Runs the task once, `seconds` from now.
  virtual TaskId after(double seconds, Task task) = 0;
  // Runs the task every `interval` seconds; the loop may shift a firing by up to `tolerance`.
  virtual TaskId every(double interval, double tolerance, Task task) = 0;
  // Cancels a task that has not run yet (or a repeating one). Unknown ids are ignored.
  virtual void cancel(TaskId id) = 0;

  // Wall-clock time, seconds since 1970.
  virtual WallTime wall() const = 0;
  // Monotonic seconds since an arbitrary start (boot), never going back.
  virtual double uptime() const = 0;
};
