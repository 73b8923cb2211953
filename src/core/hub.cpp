#include "core/hub.h"

#include <algorithm>
#include <cerrno>
#include <unordered_set>

#include "core/files.h"
#include "core/prefs.h"
#include "core/processes.h"

namespace {

class NoTranscripts final : public TranscriptReader {
 public:
  std::optional<TranscriptStats> update(const std::string&) override { return std::nullopt; }
};

class NoHostTranscripts final : public HostTranscripts {
 public:
  void follow(const std::string&, const std::string&, const std::string&) override {}
};

class NoPullRequests final : public PullRequests {
 public:
  void refresh(const std::vector<std::string>&, bool) override {}
  const PullRequest* find(const std::string&) const override { return nullptr; }
};

class NoRecentTranscripts final : public RecentTranscripts {
 public:
  std::vector<RecentTranscript> find() override { return {}; }
};

class NoJumper final : public Jumper {
 public:
  void go(const Session&) override {}
};

class NoTypist final : public TerminalReplies {
 public:
  void type(const std::string&, const std::string&) override {}
};

}  // namespace

Hub::Hub(Loop& loop, Defaults& defaults, HubPorts ports, HubOptions options)
    : loop_(loop),
      defaults_(defaults),
      ports_(std::move(ports)),
      options_(std::move(options)),
      self_(std::make_shared<Hub*>(this)) {
  if (!ports_.transcripts) ports_.transcripts = std::make_shared<NoTranscripts>();
  if (!ports_.hostTranscripts) ports_.hostTranscripts = std::make_shared<NoHostTranscripts>();
  if (!ports_.github) ports_.github = std::make_shared<NoPullRequests>();
  if (!ports_.recent) ports_.recent = std::make_shared<NoRecentTranscripts>();
  if (!ports_.jumper) ports_.jumper = std::make_shared<NoJumper>();
  if (!ports_.typist) ports_.typist = std::make_shared<NoTypist>();
  if (!ports_.processStart) ports_.processStart = Processes::startTime;
  if (!ports_.headless) ports_.headless = Processes::headless;
  if (options_.home.empty()) options_.home = Files::home();

  std::weak_ptr<Hub*> weak = self_;
  ports_.github->onNews = [weak](const std::string& root, const std::string& kind) {
    if (auto hub = weak.lock()) (*hub)->prChanged(root, kind);
  };
  loadTucked();
  lastSlowTick_ = now();
  if (options_.startTimer) {
    ticker_ = loop_.every(kTickInterval, kTickTolerance, [weak] {
      if (auto hub = weak.lock()) (*hub)->tick();
    });
  }
}

Hub::~Hub() {
  if (ticker_) loop_.cancel(*ticker_);
  ports_.github->onNews = nullptr;
}

void Hub::later(double seconds, std::function<void(Hub&)> task) {
  std::weak_ptr<Hub*> weak = self_;
  auto run = [weak, task = std::move(task)] {
    if (auto hub = weak.lock()) task(**hub);
  };
  if (seconds <= 0) {
    loop_.post(std::move(run));
  } else {
    loop_.after(seconds, std::move(run));
  }
}

const Session* Hub::find(const std::string& id) const {
  for (const Session& s : sessions_)
    if (s.id == id) return &s;
  return nullptr;
}

Session* Hub::findMutable(const std::string& id) {
  return const_cast<Session*>(std::as_const(*this).find(id));
}

Session Hub::session(const std::string& key, Agent agent, const std::string& cwd) {
  if (const Session* existing = find(key)) {
    Session s = *existing;
    if (s.root.empty() && !cwd.empty()) s.root = Session::projectRoot(cwd, options_.home);
    return s;
  }
  // The smallest colour slot no visible session uses; with all nine taken, spread by count.
  bool taken[9] = {};
  for (const Session* v : visible())
    if (v->colorIndex >= 0 && v->colorIndex < 9) taken[v->colorIndex] = true;
  int64_t color = static_cast<int64_t>(sessions_.size() % 9);
  for (int i = 0; i < 9; ++i) {
    if (!taken[i]) {
      color = i;
      break;
    }
  }
  Session s;
  s.id = key;
  s.agent = agent;
  s.root = cwd.empty() ? std::string() : Session::projectRoot(cwd, options_.home);
  s.colorIndex = color;
  s.mood = Mood::idle;
  s.phase = "reasoning";
  s.started = s.updated = now();
  return s;
}

void Hub::store(Session session) {
  session.revision = ++revisions_;
  if (Session* existing = findMutable(session.id)) {
    *existing = std::move(session);
  } else {
    sessions_.push_back(std::move(session));
    evictEnded();
  }
  changed();
}

void Hub::evictEnded() {
  const Date t = now();
  std::vector<std::pair<Date, const Session*>> ended;
  for (const Session& s : sessions_)
    if (isFinished(s, t)) ended.emplace_back(s.updated, &s);
  if (ended.size() <= kMaxEnded) return;
  auto cut = ended.begin() + static_cast<std::ptrdiff_t>(ended.size() - kMaxEnded);
  std::nth_element(ended.begin(), cut, ended.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  std::unordered_set<std::string> gone;
  for (auto it = ended.begin(); it != cut; ++it) gone.insert(it->second->id);
  std::erase_if(sessions_, [&](const Session& s) { return gone.count(s.id) > 0; });
}

bool Hub::hostFigures(const std::string& id, const TranscriptStats& stats) {
  const Session* found = find(id);
  if (!found) return false;
  Session s = *found;
  s.stats = stats;
  store(std::move(s));
  return true;
}

void Hub::changed() {
  if (pushScheduled_) return;
  pushScheduled_ = true;
  later(0, [](Hub& hub) {
    hub.pushScheduled_ = false;
    hub.onChange();
    std::erase_if(hub.listeners_, [](const auto& weak) { return weak.expired(); });
    for (const auto& weak : std::vector(hub.listeners_))
      if (auto listener = weak.lock()) (*listener)();
  });
}

Hub::Listener Hub::listen(std::function<void()> callback) {
  auto listener = std::make_shared<std::function<void()>>(std::move(callback));
  listeners_.push_back(listener);
  return listener;
}

void Hub::openRequest(Session& session, Pending request, Reply reply) {
  setResponder(request.id, std::move(reply));
  if (session.pending && session.pending->is<Pending::Elsewhere>()) session.pending.reset();
  if (session.pending)
    session.queued.push_back(std::move(request));
  else
    session.pending = std::move(request);
}

void Hub::showNext(Session& session) {
  session.pending.reset();
  if (session.queued.empty()) return;
  session.pending = std::move(session.queued.front());
  session.queued.erase(session.queued.begin());
}

bool Hub::withdrawRequest(Session& session, const std::string& requestId) {
  Reply reply;
  if (session.pending && session.pending->id == requestId) {
    reply = takeResponder(requestId);
    showNext(session);
  } else {
    auto it = std::find_if(session.queued.begin(), session.queued.end(),
                           [&](const Pending& p) { return p.id == requestId; });
    if (it == session.queued.end()) return false;
    reply = takeResponder(requestId);
    session.queued.erase(it);
  }
  if (reply) reply("");
  return true;
}

void Hub::flashSession(const std::string& id) {
  flash_ = Flash{id, now() + kFlashFor};
}

void Hub::setResponder(const std::string& pendingId, Reply reply) {
  responders_[pendingId] = std::move(reply);
}

Hub::Reply Hub::takeResponder(const std::string& pendingId) {
  auto node = responders_.extract(pendingId);
  return node.empty() ? Reply() : std::move(node.mapped());
}

void Hub::hookGone(const std::string& pendingId) {
  // Nothing waiting under this key means it was already answered or withdrawn. The reply
  // function is dropped uncalled: its connection is gone.
  if (responders_.erase(pendingId) == 0) return;
  for (const Session& s : sessions_) {
    if (s.request(pendingId)) {
      Session copy = s;
      withdrawRequest(copy, pendingId);
      store(std::move(copy));
      return;
    }
  }
}

void Hub::clearPending(Session& session) {
  std::optional<Pending> shown = std::move(session.pending);
  std::vector<Pending> queued = std::move(session.queued);
  session.pending.reset();
  session.queued.clear();
  if (shown) {
    if (Reply reply = takeResponder(shown->id)) reply("");
  }
  for (const Pending& p : queued)
    if (Reply reply = takeResponder(p.id)) reply("");
}

void Hub::remove(const std::string& id) {
  auto it = std::find_if(sessions_.begin(), sessions_.end(),
                         [&](const Session& s) { return s.id == id; });
  if (it == sessions_.end()) return;
  // Out of the table before its hook is released, so a reply that re-enters the hub finds the
  // table already consistent.
  Session gone = std::move(*it);
  sessions_.erase(it);
  clearPending(gone);
  changed();
}

void Hub::noteAgent(Session& session, int32_t pid) {
  if (session.agentPid == pid && session.agentStarted) return;
  session.agentPid = pid;
  session.agentStarted = ports_.processStart(pid);
}

void Hub::codex(const std::string& id, const std::string& cwd,
                const std::function<void(Session&)>& update) {
  std::string key = "codex:" + id;
  Session s = session(key, Agent::codex, cwd);
  Mood before = s.mood;
  update(s);
  if (s.mood == Mood::working) {
    untuck(key);
  } else if (before == Mood::working && s.mood == Mood::done && s.finishedAt &&
             now() - *s.finishedAt < kCodexFlashRecent) {
    flash_ = Flash{key, now() + kFlashFor};
  }
  store(std::move(s));
}

void Hub::setOpen(bool open) {
  if (open == isOpen_) return;
  isOpen_ = open;
  changed();
}

void Hub::loadTucked() {
  tucked_.clear();
  const Json& stored = defaults_.get("tucked");
  if (!stored.is_object()) return;
  for (auto it = stored.begin(); it != stored.end(); ++it)
    if (it.value().is_number()) tucked_[it.key()] = it.value().get<double>();
}

void Hub::saveTucked() {
  Json out = Json::object();
  for (const auto& [id, when] : tucked_) out[id] = when;
  defaults_.set("tucked", std::move(out));
}

bool Hub::holdsReply(const Session& s) const {
  const std::string rule = Prefs::replyHold(defaults_);
  if (rule != "auto") return rule == "always";
  if (s.stats.entrypoint && s.stats.entrypoint->starts_with("sdk")) return false;
  if (s.agentPid && ports_.headless(*s.agentPid)) return false;
  return userLooking();
}
