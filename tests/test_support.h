#pragma once
// Shared fixtures: a temporary HOME so no test touches the user's files, and a hub on a fake
// clock with recording stand-ins for its collaborators.

#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "core/defaults.h"
#include "core/fake_loop.h"
#include "core/hub.h"

// Sets (or, with no value, unsets) an environment variable until the end of the scope.
class ScopedEnv {
 public:
  ScopedEnv(std::string name, const std::optional<std::string>& value) : name_(std::move(name)) {
    if (const char* old = getenv(name_.c_str())) old_ = old;
    set(value);
  }
  ~ScopedEnv() { set(old_); }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  void set(const std::optional<std::string>& value) {
    if (value)
      setenv(name_.c_str(), value->c_str(), 1);
    else
      unsetenv(name_.c_str());
    tzset();  // for TZ
  }
  std::string name_;
  std::optional<std::string> old_;
};

class TempHome {
 public:
  TempHome() {
    char pattern[] = "/tmp/vantler-test-XXXXXX";
    path_ = mkdtemp(pattern);
    vars_.emplace_back(std::make_unique<ScopedEnv>("HOME", path_));
    vars_.emplace_back(std::make_unique<ScopedEnv>("XDG_CONFIG_HOME", path_ + "/.config"));
  }
  ~TempHome() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  std::vector<std::unique_ptr<ScopedEnv>> vars_;
};

struct RecordingJumper : Jumper {
  std::vector<std::string> jumped;
  void go(const Session& s) override { jumped.push_back(s.id); }
};

struct StubPullRequests : PullRequests {
  std::map<std::string, PullRequest> byRoot;
  std::vector<std::pair<std::vector<std::string>, bool>> refreshes;
  void refresh(const std::vector<std::string>& roots, bool force) override {
    refreshes.emplace_back(roots, force);
  }
  const PullRequest* find(const std::string& root) const override {
    auto it = byRoot.find(root);
    return it == byRoot.end() ? nullptr : &it->second;
  }
};

struct StubTranscripts : TranscriptReader {
  std::map<std::string, TranscriptStats> byPath;
  std::optional<TranscriptStats> update(const std::string& path) override {
    auto it = byPath.find(path);
    if (it == byPath.end()) return std::nullopt;
    return it->second;
  }
};

struct StubRecent : RecentTranscripts {
  std::vector<RecentTranscript> list;
  std::vector<RecentTranscript> find() override { return list; }
};

class HubTest : public ::testing::Test {
 protected:
  TempHome home;
  FakeLoop loop;
  Defaults defaults{home.path() + "/.config/vantler/defaults.json"};
  std::shared_ptr<RecordingJumper> jumper = std::make_shared<RecordingJumper>();
  std::shared_ptr<StubPullRequests> prs = std::make_shared<StubPullRequests>();
  std::shared_ptr<StubTranscripts> transcripts = std::make_shared<StubTranscripts>();
  std::shared_ptr<StubRecent> recent = std::make_shared<StubRecent>();
  std::map<int32_t, uint64_t> processes;  // pid → start time of the processes that run
  std::set<int32_t> headless;             // pids of agents run in a print or exec mode
  bool looking = true;                    // the user has the panel open
  std::optional<std::string> debugAnswer;
  std::unique_ptr<Hub> hub;
  int changes = 0;

  void SetUp() override { makeHub(); }

  void makeHub() {
    hub.reset();
    HubPorts ports{transcripts,
                   prs,
                   recent,
                   jumper,
                   [this](int32_t pid) -> std::optional<uint64_t> {
                     auto it = processes.find(pid);
                     if (it == processes.end()) return std::nullopt;
                     return it->second;
                   },
                   nullptr,
                   [this](int32_t pid) { return headless.count(pid) > 0; },
                   nullptr,
                   nullptr};
    hub = std::make_unique<Hub>(loop, defaults, ports, HubOptions{home.path(), debugAnswer, true});
    hub->onChange = [this] { ++changes; };
    hub->userLooking = [this] { return looking; };
  }

  // Stores a new session with the given mood, as an adapter would.
  void add(const std::string& key, Mood mood = Mood::working, Agent agent = Agent::claude) {
    Session s = hub->session(key, agent, "");
    s.mood = mood;
    hub->store(s);
  }

  // Changes a stored session in place, as an adapter would.
  template <class F>
  void edit(const std::string& key, F change) {
    Session s = *hub->find(key);
    change(s);
    hub->store(s);
  }

  // Opens a request on a session and records what its hook receives.
  std::vector<std::string>& request(const std::string& key, Pending::Kind kind,
                                    Json toolInput = Json::object()) {
    Session s = *hub->find(key);
    std::string pid = "req-" + key + "-" + std::to_string(++requests);
    s.pending = Pending{pid, std::move(kind), std::move(toolInput), hub->now(), false};
    hub->store(s);
    auto& replies = hookReplies[pid];
    hub->setResponder(pid, [&replies](const std::string& text) { replies.push_back(text); });
    return replies;
  }

  std::map<std::string, std::vector<std::string>> hookReplies;
  int requests = 0;
};
