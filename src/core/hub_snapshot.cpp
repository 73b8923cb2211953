// The snapshot the panel draws from, rebuilt whole on every push.

#include "core/hub.h"
#include "core/prefs.h"

Json Hub::snapshot() const {
  const Date t = now();
  const int64_t replyWindow = Prefs::replyWindow(defaults_);
  std::vector<const Session*> shown = visible();
  std::vector<const Session*> waiting = queue();
  const Session* fallback = focus();

  Json sessions = Json::array();
  for (const Session* s : shown) {
    Json one = s->json(t, replyWindow);
    if (const PullRequest* pr = ports_.github->find(s->root)) one["pr"] = pr->json();
    sessions.push_back(std::move(one));
  }
  Json queueIds = Json::array();
  for (const Session* s : waiting) queueIds.push_back(s->id);

  Json selectedId = nullptr;
  if (selected_ && std::any_of(shown.begin(), shown.end(),
                               [&](const Session* s) { return s->id == *selected_; })) {
    selectedId = *selected_;
  } else if (!waiting.empty()) {
    selectedId = waiting.front()->id;
  } else if (fallback) {
    selectedId = fallback->id;
  }

  Json out = {
      {"open", isOpen_},
      {"sessions", std::move(sessions)},
      {"selected", std::move(selectedId)},
      {"focus", fallback ? Json(fallback->id) : Json(nullptr)},
      {"queue", std::move(queueIds)},
      {"canUndo", !cleared_.empty()},
      {"settings", Prefs::json(defaults_)},
      {"now", millis(t)},
  };
  if (flash_ && flash_->until > t) out["flash"] = flash_->id;
  if (prNews_ && prNews_->until > t) out["prNews"] = {{"id", prNews_->id}, {"kind", prNews_->kind}};
  return out;
}
