#include "app/panel_notices.h"

#include <glib.h>

#include "bridge/control.h"
#include "core/prefs.h"

AnswerNotices::AnswerNotices(Hub& hub, Defaults& defaults, NoticeServer& server,
                             std::function<bool()> outOfSight, std::function<void()> openPanel)
    : hub_(hub),
      defaults_(defaults),
      server_(server),
      outOfSight_(std::move(outOfSight)),
      openPanel_(std::move(openPanel)) {
  server_.onAction = [this](const std::string& key, const std::string& action) {
    chosen(key, action);
  };
  server_.onClosed = [this](const std::string& key) { shown_.erase(key); };
}

AnswerNotices::~AnswerNotices() {
  server_.onAction = nullptr;
  server_.onClosed = nullptr;
  for (const auto& [key, shown] : shown_) server_.withdraw(key);
}

void AnswerNotices::update() {
  const bool on = Prefs::notifyAnswers(defaults_);
  // Withdrawn: settled (or replaced by the next request), gone, or the setting turned off.
  for (auto it = shown_.begin(); it != shown_.end();) {
    const Session* s = hub_.find(it->second.session);
    if (on && s && s->pending && s->pending->id == it->second.request) {
      ++it;
      continue;
    }
    server_.withdraw(it->first);
    it = shown_.erase(it);
  }
  if (!on) return;
  bool unseen = false, asked = false;
  for (const Session& s : hub_.sessions()) {
    if (!s.pending || s.pending->engaged) continue;
    if (!s.pending->is<Pending::Permission>() && !s.pending->is<Pending::Questions>()) continue;
    std::string key = s.id + "\n" + s.pending->id;
    if (shown_.count(key)) continue;
    // Whether the user can see the panel is asked once, and only when there is news.
    if (!asked) unseen = outOfSight_(), asked = true;
    if (!unseen) continue;
    shown_[key] = {s.id, s.pending->id};
    server_.show(key, noticeFor(s));
  }
}

NoticeServer::Notice AnswerNotices::noticeFor(const Session& s) const {
  std::string project = lastPathComponent(s.root);
  NoticeServer::Notice n;
  n.title = (project.empty() ? std::string(Agents::raw(s.agent)) : project) + " needs you";
  const bool buttons = server_.hasActions();
  if (const auto* perm = s.pending->as<Pending::Permission>()) {
    n.body = perm->title + (perm->detail.empty() ? "" : "\n" + perm->detail);
    if (buttons) {
      n.actions = {{"allow", "Allow"}, {"deny", "Deny"}};
      if (!perm->always.empty()) n.actions.push_back({"always", "Always allow"});
    }
  } else if (const auto* q = s.pending->as<Pending::Questions>()) {
    n.body = q->questions.empty() ? "A question" : q->questions.front().text;
  }
  // A click on the notification opens the panel, also where there are no buttons.
  n.actions.push_back({"default", "Open Vantler"});
  return n;
}

void AnswerNotices::chosen(const std::string& key, const std::string& action) {
  auto it = shown_.find(key);
  if (it == shown_.end()) return;
  Shown target = it->second;
  shown_.erase(it);
  server_.withdraw(key);
  if (action != "allow" && action != "deny" && action != "always") {
    openPanel_();
    return;
  }
  // Through the command path, so an answer never settles a newer request of the session.
  Json command = {{"type", action == "deny" ? "deny" : "allow"},
                  {"id", target.session},
                  {"request", target.request},
                  {"always", action == "always"}};
  Json result = Control::handle(hub_, command);
  if (!JsonField::boolean(result, "ok"))
    g_message("Vantler notification: %s", JsonField::str(result, "error").c_str());
}
