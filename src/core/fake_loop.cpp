#include "core/fake_loop.h"

Loop::TaskId FakeLoop::schedule(double due, double interval, Task task) {
  TaskId id = nextSeq_++;
  Key key{due, id};
  queue_.emplace(key, id);
  tasks_.emplace(id, std::make_pair(key, Entry{std::move(task), interval}));
  return id;
}

Loop::TaskId FakeLoop::post(Task task) {
  return schedule(elapsed_, 0, std::move(task));
}

Loop::TaskId FakeLoop::after(double seconds, Task task) {
  return schedule(elapsed_ + (seconds > 0 ? seconds : 0), 0, std::move(task));
}

Loop::TaskId FakeLoop::every(double interval, double /*tolerance*/, Task task) {
  if (interval <= 0) interval = 1e-3;
  return schedule(elapsed_ + interval, interval, std::move(task));
}

void FakeLoop::cancel(TaskId id) {
  auto it = tasks_.find(id);
  if (it == tasks_.end()) return;
  queue_.erase(it->second.first);
  tasks_.erase(it);
}

void FakeLoop::advance(double seconds) {
  const double target = elapsed_ + (seconds > 0 ? seconds : 0);
  while (!queue_.empty() && queue_.begin()->first.first <= target) {
    auto [key, id] = *queue_.begin();
    queue_.erase(queue_.begin());
    auto node = tasks_.find(id);
    elapsed_ = key.first;
    Entry entry = std::move(node->second.second);
    tasks_.erase(node);
    if (entry.interval > 0) {
      // Re-arm before running so the task may cancel itself by id.
      Key next{key.first + entry.interval, id};
      queue_.emplace(next, id);
      tasks_.emplace(id, std::make_pair(next, Entry{entry.task, entry.interval}));
    }
    entry.task();
  }
  elapsed_ = target;
}
