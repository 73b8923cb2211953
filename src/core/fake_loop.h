#pragma once
// A loop with virtual time, for tests: nothing runs until `advance` or `turn` is called.

#include <map>
#include <utility>

#include "core/loop.h"

class FakeLoop final : public Loop {
 public:
  explicit FakeLoop(WallTime wallStart = 1'800'000'000.0, double uptimeStart = 1000.0)
      : wallStart_(wallStart), uptimeStart_(uptimeStart) {}

  TaskId post(Task task) override;
  TaskId after(double seconds, Task task) override;
  TaskId every(double interval, double tolerance, Task task) override;
  void cancel(TaskId id) override;
  WallTime wall() const override { return wallStart_ + elapsed_; }
  double uptime() const override { return uptimeStart_ + elapsed_; }

  // Runs every task due now, including tasks they post, in order.
  void turn() { advance(0); }
  // Moves time forward, running each task as its due time is reached, in due order (ties in
  // the order they were scheduled).
  void advance(double seconds);
  // Tasks waiting to run (repeating ones included).
  size_t pending() const { return tasks_.size(); }

 private:
  struct Entry {
    Task task;
    double interval = 0;  // 0 for one-shot tasks
  };
  // Keyed by (due time, sequence) so equal times keep scheduling order.
  using Key = std::pair<double, uint64_t>;

  TaskId schedule(double due, double interval, Task task);

  WallTime wallStart_;
  double uptimeStart_;
  double elapsed_ = 0;
  uint64_t nextSeq_ = 1;
  std::map<Key, TaskId> queue_;
  std::map<TaskId, std::pair<Key, Entry>> tasks_;
};
