#include "integrations/github.h"

#include <algorithm>
#include <array>

namespace Gh {

namespace {

template <std::size_t N>
bool oneOf(const std::string& value, const std::array<std::string_view, N>& set) {
  return std::find(set.begin(), set.end(), value) != set.end();
}

constexpr std::array<std::string_view, 5> kFailedConclusions = {
    "FAILURE", "CANCELLED", "TIMED_OUT", "ACTION_REQUIRED", "STARTUP_FAILURE"};
constexpr std::array<std::string_view, 2> kFailedStates = {"FAILURE", "ERROR"};
constexpr std::array<std::string_view, 2> kPendingStates = {"PENDING", "EXPECTED"};

constexpr std::string_view kNoPullRequest = "no pull requests found";

}  // namespace

std::string checks(const Json& statusCheckRollup) {
  if (!statusCheckRollup.is_array()) return {};
  bool failed = false;
  bool pending = false;
  std::size_t count = 0;
  // Check runs (GitHub Actions and apps) carry status and conclusion; commit status contexts
  // carry a state.
  for (const Json& check : statusCheckRollup) {
    if (!check.is_object()) continue;
    ++count;
    const std::string conclusion = JsonField::str(check, "conclusion");
    const std::string status = JsonField::str(check, "status");
    const std::string state = JsonField::str(check, "state");
    if (oneOf(conclusion, kFailedConclusions) || oneOf(state, kFailedStates)) failed = true;
    if ((!status.empty() && status != "COMPLETED") || oneOf(state, kPendingStates)) pending = true;
  }
  if (failed) return "fail";
  if (pending) return "pending";
  return count ? "pass" : "";
}

std::optional<PullRequest> parse(std::string_view json) {
  const Json doc = JsonField::parse(json);
  if (!doc.is_object()) return std::nullopt;
  PullRequest pr;
  pr.number = JsonField::integer(doc, "number");
  pr.state = JsonField::str(doc, "state");
  if (pr.number <= 0 || pr.state.empty()) return std::nullopt;
  pr.title = JsonField::str(doc, "title");
  pr.url = JsonField::str(doc, "url");
  pr.checks = checks(JsonField::array(doc, "statusCheckRollup"));
  return pr;
}

Answer read(bool succeeded, std::string_view out, std::string_view err) {
  Answer answer;
  if (succeeded) {
    if (auto pr = parse(out)) {
      answer.kind = Answer::pullRequest;
      answer.pr = std::move(*pr);
    }
  } else if (err.find(kNoPullRequest) != std::string_view::npos) {
    answer.kind = Answer::none;
  }
  return answer;
}

std::string news(bool known, const PullRequest* before, const PullRequest* after) {
  if (!known || !after) return {};
  if (!before || before->number != after->number) return after->state == "OPEN" ? "opened" : "";
  if (before->state != after->state) {
    if (after->state == "OPEN") return "opened";
    if (after->state == "MERGED") return "merged";
    if (after->state == "CLOSED") return "closed";
    return {};
  }
  if (after->state != "OPEN" || before->checks == after->checks) return {};
  if (after->checks == "pass") return "checksPassed";
  if (after->checks == "fail") return "checksFailed";
  return {};
}

}  // namespace Gh

std::vector<std::string> FetchSchedule::request(const std::vector<std::string>& roots, bool force,
                                                double now) {
  for (const std::string& root : roots) {
    if (root.empty()) continue;
    Entry& e = entries_[root];
    if (e.running) {
      if (force) e.again = true;
      continue;
    }
    if (e.waiting) continue;
    if (force || !e.started || now - *e.started >= interval_) {
      e.waiting = true;
      queue_.push_back(root);
    }
  }
  return pump(now);
}

std::vector<std::string> FetchSchedule::finished(const std::string& root, double now) {
  auto it = entries_.find(root);
  if (it == entries_.end() || !it->second.running) return {};
  Entry& e = it->second;
  e.running = false;
  --running_;
  if (e.again) {
    e.again = false;
    e.waiting = true;
    queue_.push_back(root);
  }
  return pump(now);
}

std::vector<std::string> FetchSchedule::pump(double now) {
  std::vector<std::string> start;
  while (running_ < maxRunning_ && !queue_.empty()) {
    std::string root = std::move(queue_.front());
    queue_.pop_front();
    Entry& e = entries_[root];
    e.waiting = false;
    e.running = true;
    e.started = now;
    ++running_;
    start.push_back(std::move(root));
  }
  return start;
}

GitHub::GitHub(Loop& loop, std::string ghPath)
    : loop_(loop), ghPath_(std::move(ghPath)), runs_(loop) {}

void GitHub::refresh(const std::vector<std::string>& roots, bool force) {
  start(schedule_.request(roots, force, loop_.uptime()));
}

const PullRequest* GitHub::find(const std::string& root) const {
  auto it = roots_.find(root);
  return it != roots_.end() && it->second.pr ? &*it->second.pr : nullptr;
}

void GitHub::start(std::vector<std::string> roots) {
  // A root whose gh cannot be started has finished at once, which may free a slot for the next.
  std::deque<std::string> todo(roots.begin(), roots.end());
  while (!todo.empty()) {
    std::string root = std::move(todo.front());
    todo.pop_front();
    if (launch(root)) continue;
    for (std::string& next : schedule_.finished(root, loop_.uptime()))
      todo.push_back(std::move(next));
  }
}

bool GitHub::launch(const std::string& root) {
  Subprocesses::Options options;
  options.deadline = Gh::kRunLimit;
  options.cwd = root;
  // Never wait for an answer from the user, and keep the output plain.
  options.env = {{"GH_PROMPT_DISABLED", "1"},
                 {"GH_NO_UPDATE_NOTIFIER", "1"},
                 {"GIT_TERMINAL_PROMPT", "0"},
                 {"NO_COLOR", "1"}};
  return runs_.run({ghPath_, "pr", "view", "--json", "number,title,state,url,statusCheckRollup"},
                   options, [this, root](const Subprocesses::Result& r) { answered(root, r); });
}

void GitHub::answered(const std::string& root, const Subprocesses::Result& result) {
  // A failure unless gh ran to the end.
  const Gh::Answer answer =
      result.finished ? Gh::read(result.exited0, result.out, result.err) : Gh::Answer{};
  const std::string kind = apply(root, answer);
  start(schedule_.finished(root, loop_.uptime()));
  // Last: the listener may do anything, including dropping this object.
  if (!kind.empty() && onNews) {
    auto listener = onNews;
    listener(root, kind);
  }
}

std::string GitHub::apply(const std::string& root, const Gh::Answer& answer) {
  if (answer.kind == Gh::Answer::failed) return {};
  Known& known = roots_[root];
  std::string kind;
  if (answer.kind == Gh::Answer::pullRequest) {
    kind = Gh::news(known.answered, known.pr ? &*known.pr : nullptr, &answer.pr);
    known.pr = answer.pr;
  } else {
    known.pr.reset();
  }
  known.answered = true;
  return kind;
}
