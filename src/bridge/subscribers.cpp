#include "bridge/subscribers.h"

#include <glib.h>

#include <algorithm>
#include <vector>

Subscribers::Subscribers(Hub& hub, Router::Transport& transport)
    : hub_(hub), transport_(transport) {}

Subscribers::~Subscribers() {
  if (task_) hub_.loop().cancel(*task_);
}

bool Subscribers::add(Router::ConnId conn) {
  if (subscribers_.size() >= kMax) return false;
  subscribers_[conn].due = false;
  if (!listener_) listener_ = hub_.listen([this] { changed(); });
  // The first snapshot goes at once, whatever the spacing: the subscriber has nothing yet.
  transport_.send(conn, hub_.snapshotText() + "\n");
  return true;
}

void Subscribers::remove(Router::ConnId conn) {
  subscribers_.erase(conn);
  if (!subscribers_.empty()) return;
  listener_.reset();
  if (task_) hub_.loop().cancel(*task_);
  task_.reset();
}

void Subscribers::changed() {
  for (auto& [conn, s] : subscribers_) s.due = true;
  schedule(std::max(0.0, lastPublished_ + kSpacing - hub_.loop().uptime()));
}

void Subscribers::schedule(double delay) {
  if (task_ || subscribers_.empty()) return;
  task_ = hub_.loop().after(delay, [this] {
    task_.reset();
    publish();
  });
}

void Subscribers::publish() {
  const double now = hub_.loop().uptime();
  std::vector<Router::ConnId> ready, slow;
  bool waiting = false;
  for (auto& [conn, s] : subscribers_) {
    if (!s.due) continue;
    if (transport_.unsent(conn) > 0) {
      // Still on its previous line: it gets the newest one when it has taken that.
      if (!s.behindSince) s.behindSince = now;
      if (now - *s.behindSince >= kSlowLimit)
        slow.push_back(conn);
      else
        waiting = true;
      continue;
    }
    s.due = false;
    s.behindSince.reset();
    ready.push_back(conn);
  }
  // Sending may end a connection (and so remove it): the table is not walked meanwhile.
  if (!ready.empty()) {
    lastPublished_ = now;
    const std::string text = hub_.snapshotText() + "\n";
    for (Router::ConnId conn : ready)
      if (subscribers_.count(conn)) transport_.send(conn, text);
  }
  for (Router::ConnId conn : slow) {
    g_warning("Vantler: dropping a snapshot subscriber that reads nothing");
    remove(conn);
    transport_.drop(conn);
  }
  if (waiting) schedule(kSpacing);
}
