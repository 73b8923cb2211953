#pragma once
// The one owner of all agent sessions. Event adapters, watchers and the panel's commands change
// sessions only through it; the panel listens through `onChange` and `onAttention`. Everything
// runs on the loop's thread.

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "core/defaults.h"
#include "core/json.h"
#include "core/loop.h"
#include "core/ports.h"
#include "core/session.h"
#include "core/session_texts.h"

struct HubOptions {
  std::string home;                        // the user's home directory (project roots stop there)
  std::optional<std::string> debugAnswer;  // VANTLER_DEBUG_ANSWER: scripted answers
  bool startTimer = true;
};

class Hub {
 public:
  using Reply = std::function<void(const std::string&)>;

  struct Flash {
    std::string id;
    Date until = 0;
  };
  struct PrNews {
    std::string id;
    std::string kind;
    Date until = 0;
  };

  static constexpr double kTickInterval = 1.0;
  static constexpr double kTickTolerance = 0.3;
  static constexpr double kSlowSweepEvery = 20.0;
  static constexpr double kSilentClaudeGone = 8 * 3600.0;
  static constexpr double kCodexFlashRecent = 15.0;
  static constexpr double kFlashFor = 3.2;
  static constexpr double kPrNewsFor = 8.0;
  static constexpr double kAutoAnswerDelay = 1.2;
  static constexpr double kPrRefreshSoon = 4.0;
  static constexpr double kPrRefreshLater = 30.0;
  // Finished sessions kept beyond this number are forgotten, least recently updated first.
  static constexpr size_t kMaxEnded = 500;

  Hub(Loop& loop, Defaults& defaults, HubPorts ports = {}, HubOptions options = {});
  ~Hub();
  Hub(const Hub&) = delete;
  Hub& operator=(const Hub&) = delete;

  // --- the session table ---
  const std::vector<Session>& sessions() const { return sessions_; }
  const Session* find(const std::string& id) const;
  // The session for a key, existing or new (not yet stored).
  Session session(const std::string& key, Agent agent, const std::string& cwd);
  // Puts a session back (or appends a new one) with a new revision and announces the change.
  // Sessions in the table change only through here: the snapshot reuses the text of a session
  // whose revision it has seen.
  void store(Session session);
  // Schedules one `onChange` for this loop turn.
  void changed();
  // The hook behind an open request went away without an answer.
  void hookGone(const std::string& pendingId);
  // Withdraws every open request of a session in place; each hook gets the empty reply.
  void clearPending(Session& session);
  // Opens a request in the session (changed in place, not stored); `reply` answers its hook.
  // It is shown at once, or queued behind the session's open requests; a prompt shown in the
  // agent's own window gives way to it.
  void openRequest(Session& session, Pending request, Reply reply);
  // Withdraws one request, shown or queued (its hook gets the empty reply); the next one is
  // shown. False when the session has no such request.
  bool withdrawRequest(Session& session, const std::string& requestId);
  // Registers the reply function for an open request.
  void setResponder(const std::string& pendingId, Reply reply);
  bool hasResponder(const std::string& pendingId) const { return responders_.count(pendingId); }
  // Takes a session out of the table, first withdrawing its open request (its hook gets the
  // empty reply). Unknown ids are ignored.
  void remove(const std::string& id);
  // Records the agent's process (pid and start time) for a session, changed in place.
  void noteAgent(Session& session, int32_t pid);
  // The Codex watcher's entry point.
  void codex(const std::string& id, const std::string& cwd,
             const std::function<void(Session&)>& update);

  // --- decisions and replies (each settles the session's shown request) ---
  // `always` also accepts the standing rule the request offers, so the agent stops asking.
  void decide(const std::string& id, const std::string& behavior,
              const std::optional<Json>& input = std::nullopt, bool always = false);
  void answer(const std::string& id, const std::vector<std::string>& answers);
  void sendReply(const std::string& id, const std::string& text);
  void engage(const std::string& id);
  void release(const std::string& id);
  void answerThere(const std::string& id);
  // With VANTLER_DEBUG_ANSWER set, answers the session's request 1.2 s later.
  void autoAnswerForTests(const Session& session);

  // The body each agent's hook expects for a reply typed after its turn.
  static Json replyBody(Agent agent, const std::string& text);
  // The body of a permission decision; `rule` goes back as the one permission update.
  static Json decisionBody(const std::string& behavior, const std::optional<Json>& input,
                           const Json* rule = nullptr);

  // --- timing and ordering ---
  std::vector<const Session*> visible() const;
  std::vector<const Session*> queue() const;
  const Session* focus() const;
  void select(const std::string& id);
  void dismiss(const std::string& id);
  void untuck(const std::string& id);
  void jump(const std::string& id);
  void clearFinished();
  void undoClear();
  void restoreRecent();
  void tick();
  // A session counts as finished when no request is open and it neither works nor waits.
  static bool isFinished(const Session& session, Date now);

  // --- the panel ---
  bool isOpen() const { return isOpen_; }
  void setOpen(bool open);
  const std::optional<std::string>& selected() const { return selected_; }
  bool canUndo() const { return !cleared_.empty(); }
  const std::optional<Flash>& flash() const { return flash_; }
  const std::optional<PrNews>& prNews() const { return prNews_; }
  const std::unordered_map<std::string, Date>& tucked() const { return tucked_; }
  // Marks a session whose turn just ended, for a few seconds.
  void flashSession(const std::string& id);
  // The snapshot as compact JSON text (what is pushed), and parsed.
  std::string snapshotText() const;
  Json snapshot() const;

  // Demonstration sessions for the demo mode and the page's development.
  void loadDemo();

  Date now() const { return loop_.wall(); }
  Loop& loop() { return loop_; }
  Defaults& defaults() { return defaults_; }
  const std::string& home() const { return options_.home; }
  TranscriptReader& transcripts() { return *ports_.transcripts; }
  HostTranscripts& hostTranscripts() { return *ports_.hostTranscripts; }
  // The figures of the transcript of session `id`, read on its machine; false when the hub no
  // longer has that session.
  bool hostFigures(const std::string& id, const TranscriptStats& stats);
  PullRequests& github() { return *ports_.github; }
  // Queues a task that does nothing once the hub is gone.
  void later(double seconds, std::function<void(Hub&)> task);

  std::function<void()> onChange = [] {};
  // A further listener told after `onChange`, for as long as the returned handle is kept.
  using Listener = std::shared_ptr<std::function<void()>>;
  [[nodiscard]] Listener listen(std::function<void()> callback);
  std::function<void()> onAttention = [] {};
  // Whether the user has the panel open by their own choice right now (the panel sets it; a
  // headless run has nobody looking).
  std::function<bool()> userLooking = [] { return false; };

  // Whether a finished turn's hook is held open for a reply: the "replyHold" preference, and
  // under "auto" only for an agent run interactively while the user looks at the panel, so a
  // turn nobody answers ends at once.
  bool holdsReply(const Session& session) const;

 private:
  Session* findMutable(const std::string& id);
  // Forgets the least recently updated finished sessions beyond kMaxEnded.
  void evictEnded();
  // Removes and returns the reply function of a request.
  Reply takeResponder(const std::string& pendingId);
  // The shown request is settled: the oldest queued one takes its place.
  static void showNext(Session& session);
  void saveTucked();
  void loadTucked();
  bool isVisible(const Session& s, Date now, int64_t hideAfterMinutes) const;
  static const Session* focusAmong(const std::vector<const Session*>& shown, Date now);
  void prChanged(const std::string& root, const std::string& kind);

  Loop& loop_;
  Defaults& defaults_;
  HubPorts ports_;
  HubOptions options_;

  std::vector<Session> sessions_;
  std::optional<Flash> flash_;
  bool isOpen_ = false;
  std::optional<std::string> selected_;
  std::vector<Session> cleared_;
  std::unordered_map<std::string, Date> tucked_;
  std::unordered_map<std::string, Reply> responders_;
  std::optional<PrNews> prNews_;
  bool pushScheduled_ = false;
  std::vector<std::weak_ptr<std::function<void()>>> listeners_;
  std::optional<Loop::TaskId> ticker_;
  Date lastSlowTick_ = 0;
  std::shared_ptr<Hub*> self_;  // weak handles to this hub for queued tasks
  uint64_t revisions_ = 0;
  mutable SessionTexts texts_;
};
