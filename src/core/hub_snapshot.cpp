// The snapshot the panel draws from. Sessions that did not change since the last push keep
// their text; the fields around them are written anew.

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

  std::vector<std::string_view> texts;
  texts.reserve(shown.size());
  size_t length = 0;
  for (const Session* s : shown) {
    texts.push_back(
        texts_.text(*s, t, replyWindow, ports_.github->find(s->root), ports_.models.get()));
    length += texts.back().size() + 1;
  }

  JsonWriter w(2048 + length);
  w.beginObject().field("open", isOpen_);
  w.key("sessions").beginArray();
  for (std::string_view text : texts) w.raw(text);
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
  texts_.sweep();
  return w.take();
}

Json Hub::snapshot() const {
  return Json::parse(snapshotText());
}
