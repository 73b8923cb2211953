#include "core/linux_glib_loop.h"

#include <cmath>

struct GLibLoop::Slot {
  GLibLoop* owner;
  TaskId id;
  Task task;
  bool repeating;
  GSource* source;
};

GLibLoop::GLibLoop(GMainContext* context)
    : context_(context ? g_main_context_ref(context) : g_main_context_ref_thread_default()),
      mainLoop_(g_main_loop_new(context_, FALSE)) {}

GLibLoop::~GLibLoop() {
  for (auto& [id, slot] : slots_) {
    g_source_destroy(slot->source);
    g_source_unref(slot->source);
  }
  slots_.clear();
  g_main_loop_unref(mainLoop_);
  g_main_context_unref(context_);
}

Loop::TaskId GLibLoop::attach(GSource* source, Task task, bool repeating) {
  TaskId id = nextId_++;
  auto slot = std::make_unique<Slot>(Slot{this, id, std::move(task), repeating, source});
  g_source_set_callback(
      source,
      [](gpointer data) -> gboolean {
        auto* s = static_cast<Slot*>(data);
        GLibLoop* owner = s->owner;
        TaskId id = s->id;
        if (s->repeating) {
          // Copy: the task may cancel itself, destroying the slot while it runs.
          Task task = s->task;
          task();
          return owner->slots_.count(id) ? G_SOURCE_CONTINUE : G_SOURCE_REMOVE;
        }
        auto node = owner->slots_.extract(id);
        Task task = std::move(node.mapped()->task);
        g_source_unref(node.mapped()->source);
        task();
        return G_SOURCE_REMOVE;
      },
      slot.get(), nullptr);
  g_source_attach(source, context_);
  slots_.emplace(id, std::move(slot));
  return id;
}

Loop::TaskId GLibLoop::post(Task task) {
  GSource* source = g_idle_source_new();
  g_source_set_priority(source, G_PRIORITY_DEFAULT);
  return attach(source, std::move(task), false);
}

Loop::TaskId GLibLoop::after(double seconds, Task task) {
  guint ms = seconds > 0 ? static_cast<guint>(std::llround(seconds * 1000.0)) : 0;
  return attach(g_timeout_source_new(ms), std::move(task), false);
}

Loop::TaskId GLibLoop::every(double interval, double tolerance, Task task) {
  // Whole-second timers with room to spare are coalesced by GLib, which saves wake-ups.
  GSource* source = (tolerance >= 0.25 && std::fmod(interval, 1.0) == 0 && interval >= 1)
                        ? g_timeout_source_new_seconds(static_cast<guint>(interval))
                        : g_timeout_source_new(static_cast<guint>(std::llround(interval * 1000)));
  return attach(source, std::move(task), true);
}

void GLibLoop::cancel(TaskId id) {
  auto it = slots_.find(id);
  if (it == slots_.end()) return;
  GSource* source = it->second->source;
  slots_.erase(it);
  g_source_destroy(source);
  g_source_unref(source);
}

WallTime GLibLoop::wall() const {
  return static_cast<double>(g_get_real_time()) / 1e6;
}

double GLibLoop::uptime() const {
  return static_cast<double>(g_get_monotonic_time()) / 1e6;
}

void GLibLoop::run() {
  g_main_loop_run(mainLoop_);
}

void GLibLoop::quit() {
  g_main_loop_quit(mainLoop_);
}
