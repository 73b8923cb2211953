// The snapshot the panel draws from, rebuilt whole on every push.

#include "core/hub.h"
#include "core/json_writer.h"
#include "core/prefs.h"

std::string Hub::snapshotText() const {
  const Date t = now();
  const int64_t replyWindow = Prefs::replyWindow(defaults_);
  std::vector<const Session*> shown = visible();
  std::vector<const Session*> waiting = queue();
  const Session* fallback = focusAmong(shown, t);

  // The shown session: the user's pick while it is visible, else the oldest request, else the
  // fallback.
  const Session* selected = nullptr;
  if (selected_) {
    for (const Session* s : shown)
      if (s->id == *selected_) selected = s;
  }
  if (!selected) selected = waiting.empty() ? fallback : waiting.front();

  JsonWriter w(2048 + shown.size() * 1280);
  w.beginObject().field("open", isOpen_);
  w.key("sessions").beginArray();
  for (const Session* s : shown)
    s->write(w, t, replyWindow, ports_.github->find(s->root), ports_.models.get());
  w.endArray();
  w.key("selected");
  selected ? w.string(selected->id) : w.null();
  w.key("focus");
  fallback ? w.string(fallback->id) : w.null();
  w.key("queue").beginArray();
  for (const Session* s : waiting) w.string(s->id);
  w.endArray();
  w.field("canUndo", !cleared_.empty());
  w.key("settings").raw(JsonField::compact(Prefs::json(defaults_)));
  w.field("now", millis(t));
  if (flash_ && flash_->until > t) w.field("flash", flash_->id);
  if (prNews_ && prNews_->until > t)
    w.key("prNews").beginObject().field("id", prNews_->id).field("kind", prNews_->kind).endObject();
  w.endObject();
  return w.take();
}

Json Hub::snapshot() const {
  return Json::parse(snapshotText());
}
