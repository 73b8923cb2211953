#pragma once
// Shared fixtures: a temporary HOME so no test touches the user's files, and a hub on a fake
// clock with recording stand-ins for its collaborators.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "core/defaults.h"
#include "core/fake_loop.h"
#include "core/hub.h"

class TempHome {
 public:
  TempHome() {
    char pattern[] = "/tmp/vantler-test-XXXXXX";
    path_ = mkdtemp(pattern);
    for (const char* var : {"HOME", "XDG_CONFIG_HOME"}) {
      const char* old = getenv(var);
      saved_.emplace_back(var, old ? std::optional<std::string>(old) : std::nullopt);
    }
    setenv("HOME", path_.c_str(), 1);
    setenv("XDG_CONFIG_HOME", (path_ + "/.config").c_str(), 1);
  }
  ~TempHome() {
    for (auto& [var, old] : saved_) {
      if (old)
        setenv(var.c_str(), old->c_str(), 1);
      else
        unsetenv(var.c_str());
    }
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  std::vector<std::pair<std::string, std::optional<std::string>>> saved_;
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
