#include "voice/linux_handoff.h"

Handoff::Handoff(GMainContext* context) : state_(std::make_shared<State>()) {
  state_->context = context ? g_main_context_ref(context) : g_main_context_ref_thread_default();
}

Handoff::~Handoff() {
  std::lock_guard lock(state_->mutex);
  state_->open = false;
  g_main_context_unref(state_->context);
  state_->context = nullptr;
}

Handoff::Sender Handoff::sender() const {
  return [state = state_](Task task) {
    std::lock_guard lock(state->mutex);
    if (!state->open) return;
    auto* delivery = new Delivery{state, std::move(task)};
    GSource* source = g_idle_source_new();
    g_source_set_priority(source, G_PRIORITY_DEFAULT);
    g_source_set_callback(
        source,
        [](gpointer data) -> gboolean {
          auto* d = static_cast<Delivery*>(data);
          bool open;
          {
            std::lock_guard lock(d->state->mutex);
            open = d->state->open;
          }
          // Closed only on the loop's thread, so it cannot close between this check and the
          // task.
          if (open) d->task();
          return G_SOURCE_REMOVE;
        },
        delivery, [](gpointer data) { delete static_cast<Delivery*>(data); });
    g_source_attach(source, state->context);
    g_source_unref(source);
  };
}
