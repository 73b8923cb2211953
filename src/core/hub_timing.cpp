// Ordering, visibility and ageing of sessions, driven by the one-second tick and the panel's
// commands.

#include <algorithm>

#include "core/hub.h"
#include "core/prefs.h"

bool Hub::isVisible(const Session& s, Date now, int64_t hideAfterMinutes) const {
  // A dismissed session stays hidden until something happens in it after the dismissal.
  if (auto t = tucked_.find(s.id); t != tucked_.end() && s.updated <= t->second) return false;
  if (s.pending) return true;
  if (s.shownMood(now) == Mood::working) return true;
  if (hideAfterMinutes == 0) return true;
  return now - s.updated < static_cast<double>(hideAfterMinutes) * 60.0;
}

std::vector<const Session*> Hub::visible() const {
  const int64_t hideAfter = Prefs::hideAfter(defaults_);
  const Date t = now();
  std::vector<const Session*> out;
  out.reserve(sessions_.size());
  for (const Session& s : sessions_)
    if (isVisible(s, t, hideAfter)) out.push_back(&s);
  return out;
}

std::vector<const Session*> Hub::queue() const {
  std::vector<const Session*> out;
  for (const Session& s : sessions_)
    if (s.pending) out.push_back(&s);
  std::stable_sort(out.begin(), out.end(), [](const Session* a, const Session* b) {
    return a->pending->since < b->pending->since;
  });
  return out;
}

// The session the panel falls back to: the most urgent visible one (waiting, then working,
// then done, then idle), and among equals the one with the latest event; the earlier in the
// list wins a full tie.
const Session* Hub::focus() const {
  return focusAmong(visible(), now());
}

const Session* Hub::focusAmong(const std::vector<const Session*>& shown, Date t) {
  const Session* best = nullptr;
  Mood bestMood = Mood::idle;
  for (const Session* s : shown) {
    Mood m = s->shownMood(t);
    if (!best || m > bestMood || (m == bestMood && s->updated > best->updated)) {
      best = s;
      bestMood = m;
    }
  }
  return best;
}

void Hub::select(const std::string& id) {
  selected_ = id;
  changed();
}

void Hub::dismiss(const std::string& id) {
  Session* found = findMutable(id);
  if (!found) return;
  Session s = *found;
  clearPending(s);
  store(std::move(s));
  tucked_[id] = now();
  saveTucked();
}

void Hub::untuck(const std::string& id) {
  if (tucked_.erase(id)) saveTucked();
}

void Hub::jump(const std::string& id) {
  if (const Session* s = find(id)) ports_.jumper->go(*s);
}

bool Hub::isFinished(const Session& s, Date now) {
  if (s.pending) return false;
  Mood m = s.shownMood(now);
  return m == Mood::done || m == Mood::idle;
}

// Clearing removes every finished session, shown or hidden, and keeps them for one undo. A
// clear that finds nothing keeps the earlier undo.
void Hub::clearFinished() {
  const Date t = now();
  std::vector<Session> removed;
  std::erase_if(sessions_, [&](Session& s) {
    if (!isFinished(s, t)) return false;
    removed.push_back(std::move(s));
    return true;
  });
  if (removed.empty()) return;
  cleared_ = std::move(removed);
  changed();
}

// Undo puts the cleared sessions back at the end, except those that came back by themselves
// with new events in the meantime (the newer record wins).
void Hub::undoClear() {
  if (cleared_.empty()) return;
  for (Session& s : cleared_)
    if (!find(s.id)) sessions_.push_back(std::move(s));
  cleared_.clear();
  changed();
}

// Claude Code sessions of recently touched transcripts come back at start: a turn that ended
// shows as done (fading to idle ten minutes after the file last changed), one that did not as
// idle; the hooks take over from their next event. Which transcripts count as recent is the
// finder's rule.
void Hub::restoreRecent() {
  std::vector<RecentTranscript> recent = ports_.recent->find();
  std::stable_sort(recent.begin(), recent.end(),
                   [](const auto& a, const auto& b) { return a.modified < b.modified; });
  for (const RecentTranscript& r : recent) {
    std::string key = "claude:" + r.id;
    if (r.id.empty() || find(key)) continue;
    TranscriptStats stats = ports_.transcripts->update(r.path).value_or(TranscriptStats{});
    Session s = session(key, Agent::claude, stats.cwd.value_or(""));
    s.transcript = r.path;
    s.stats = std::move(stats);
    s.started = s.updated = r.modified;
    if (s.stats.endedTurn) {
      s.mood = Mood::done;
      s.finishedAt = r.modified;
    }
    store(std::move(s));
  }
}

void Hub::prChanged(const std::string& root, const std::string& kind) {
  for (const Session* s : visible()) {
    if (s->root != root) continue;
    prNews_ = PrNews{s->id, kind, now() + kPrNewsFor};
    changed();
    return;
  }
}

void Hub::tick() {
  const Date t = now();

  std::vector<std::string> expired;
  for (const Session& s : sessions_) {
    if (!s.pending || s.pending->engaged) continue;
    const auto* reply = s.pending->as<Pending::Reply>();
    if (reply && reply->expires < t) expired.push_back(s.id);
  }
  for (const std::string& id : expired) release(id);

  if (flash_ && flash_->until < t) {
    flash_.reset();
    changed();
  }
  if (prNews_ && prNews_->until < t) {
    prNews_.reset();
    changed();
  }

  std::vector<std::string> roots;
  for (const Session* s : visible()) roots.push_back(s->root);
  ports_.github->refresh(roots, false);

  if (t - lastSlowTick_ > kSlowSweepEvery) {
    lastSlowTick_ = t;
    // Only Claude Code sessions are swept: other agents end their sessions with their own
    // events or a clear. A session goes when the process seen running as its agent has ended
    // (or its pid now belongs to another process); one whose agent was never seen running
    // goes after a long silence.
    std::erase_if(sessions_, [&](const Session& s) {
      if (s.agent != Agent::claude || s.pending) return false;
      if (s.agentPid && s.agentStarted) return ports_.processStart(*s.agentPid) != s.agentStarted;
      return t - s.updated > kSilentClaudeGone;
    });
    changed();
  }
}
