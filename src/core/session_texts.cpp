#include "core/session_texts.h"

#include "core/json_writer.h"

std::string_view SessionTexts::text(const Session& s, Date now, int64_t replyWindowSeconds,
                                    const PullRequest* pr, const ModelCatalog* models) {
  const int phase = s.clockPhase(now);
  // The window is shown only with an open reply.
  const int64_t window = s.pending && s.pending->is<Pending::Reply>() ? replyWindowSeconds : 0;
  auto write = [&](std::string& out) {
    JsonWriter w(std::move(out));
    s.write(w, now, replyWindowSeconds, pr, models);
    out = w.take();
  };
  if (s.revision == 0) {
    write(unstored_);
    return unstored_;
  }
  ++asked_;
  auto it = entries_.find(s.id);
  if (it == entries_.end()) it = entries_.try_emplace(s.id).first;
  Entry& e = it->second;
  const bool samePr = pr ? e.pr && *e.pr == *pr : !e.pr;
  if (e.revision != s.revision || e.phase != phase || e.replyWindow != window || !samePr) {
    write(e.text);
    e.revision = s.revision;
    e.phase = phase;
    e.replyWindow = window;
    if (pr)
      e.pr = *pr;
    else
      e.pr.reset();
  }
  e.used = generation_;
  return e.text;
}

void SessionTexts::sweep() {
  if (entries_.size() > asked_)
    std::erase_if(entries_, [&](const auto& entry) { return entry.second.used != generation_; });
  ++generation_;
  asked_ = 0;
}
