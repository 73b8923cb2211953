#include "integrations/github.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

#include "core/linux_glib_loop.h"

namespace {

// gh's output shapes: check runs (Actions) and status contexts (external CI) mixed.
const char* kOpen = R"({"number":4321,"state":"OPEN","statusCheckRollup":[
  {"__typename":"CheckRun","completedAt":"2024-05-01T10:02:11Z","conclusion":"SUCCESS",
   "name":"build","startedAt":"2024-05-01T10:00:01Z","status":"COMPLETED","workflowName":"CI"},
  {"__typename":"CheckRun","completedAt":"0001-01-01T00:00:00Z","conclusion":"",
   "name":"test","startedAt":"2024-05-01T10:00:01Z","status":"IN_PROGRESS","workflowName":"CI"},
  {"__typename":"StatusContext","context":"ci/lint","state":"SUCCESS",
   "targetUrl":"https://ci.example/1"}],
  "title":"Add widget cache","url":"https://github.com/acme/widget/pull/4321"})";
const char* kMerged = R"({"number":4321,"state":"MERGED","statusCheckRollup":[
  {"__typename":"CheckRun","conclusion":"SUCCESS","name":"build","status":"COMPLETED"},
  {"__typename":"CheckRun","conclusion":"SKIPPED","name":"deploy","status":"COMPLETED"},
  {"__typename":"StatusContext","context":"ci/lint","state":"SUCCESS"}],
  "title":"Add widget cache","url":"https://github.com/acme/widget/pull/4321"})";

}  // namespace

TEST(GitHubParse, ReadsGhAnswersAndSummarisesChecks) {
  auto open = Gh::read(true, kOpen, "");
  ASSERT_EQ(open.kind, Gh::Answer::pullRequest);
  EXPECT_EQ(open.pr.number, 4321);
  EXPECT_EQ(open.pr.title, "Add widget cache");
  EXPECT_EQ(open.pr.state, "OPEN");
  EXPECT_EQ(open.pr.url, "https://github.com/acme/widget/pull/4321");
  EXPECT_EQ(open.pr.checks, "pending");
  EXPECT_EQ(Gh::parse(kMerged)->state, "MERGED");
  EXPECT_EQ(Gh::parse(kMerged)->checks, "pass");
  EXPECT_EQ(Gh::parse(R"({"number":9,"state":"CLOSED","statusCheckRollup":[]})")->checks, "");

  EXPECT_EQ(Gh::read(false, "", "no pull requests found for branch \"main\"\n").kind,
            Gh::Answer::none);
  for (auto [ok, out, err] : {std::tuple{false, "", "fatal: not a git repository"},
                              {false, kOpen, "HTTP 502"},
                              {true, "not json", ""},
                              {true, R"({"number":3})", ""}})
    EXPECT_EQ(Gh::read(ok, out, err).kind, Gh::Answer::failed) << out << err;

  for (auto [checks, summary] :
       {std::pair{R"([{"status":"QUEUED"},
      {"status":"COMPLETED","conclusion":"CANCELLED"}])",
                  "fail"},
        {R"([{"status":"COMPLETED","conclusion":"TIMED_OUT"}])", "fail"},
        {R"([{"status":"COMPLETED","conclusion":"ACTION_REQUIRED"}])", "fail"},
        {R"([{"state":"PENDING"},{"state":"ERROR"}])", "fail"},
        {R"([{"status":"IN_PROGRESS"},{"state":"SUCCESS"}])", "pending"},
        {R"([{"status":"COMPLETED","conclusion":"NEUTRAL"},{"state":"PENDING"}])", "pending"},
        {R"([{"status":"COMPLETED","conclusion":"SUCCESS"},{"state":"SUCCESS"}])", "pass"},
        {"null", ""}})
    EXPECT_EQ(Gh::checks(JsonField::parse(checks)), summary) << checks;
}

TEST(GitHubNews, TellsChangesNotFirstSights) {
  auto pr = [](int64_t n, const char* state, const char* checks) {
    return PullRequest{n, "t", state, checks, "u"};
  };
  const PullRequest open = pr(1, "OPEN", "pending"), passed = pr(1, "OPEN", "pass"),
                    failed = pr(1, "OPEN", "fail"), merged = pr(1, "MERGED", "pass"),
                    closed = pr(1, "CLOSED", "pass"), other = pr(2, "OPEN", "");
  EXPECT_EQ(Gh::news(false, nullptr, &open), "");
  EXPECT_EQ(Gh::news(false, &open, &merged), "");
  EXPECT_EQ(Gh::news(true, nullptr, &open), "opened");
  EXPECT_EQ(Gh::news(true, nullptr, &merged), "");
  EXPECT_EQ(Gh::news(true, &merged, &other), "opened");
  EXPECT_EQ(Gh::news(true, &passed, &merged), "merged");
  EXPECT_EQ(Gh::news(true, &open, &closed), "closed");
  EXPECT_EQ(Gh::news(true, &closed, &open), "opened");
  EXPECT_EQ(Gh::news(true, &open, &passed), "checksPassed");
  EXPECT_EQ(Gh::news(true, &passed, &failed), "checksFailed");
  EXPECT_EQ(Gh::news(true, &failed, &open), "");
  EXPECT_EQ(Gh::news(true, &open, nullptr), "");
}

TEST(GitHubSchedule, ThrottlesAndNeverRunsARootTwiceAtOnce) {
  using V = std::vector<std::string>;
  FetchSchedule s(60, 2);
  EXPECT_EQ(s.request({"/a", ""}, false, 100), V{"/a"});
  EXPECT_EQ(s.request({"/a"}, true, 101), V{});  // running: remembered, not started
  EXPECT_EQ(s.request({"/a"}, true, 102), V{});
  EXPECT_EQ(s.finished("/a", 103), V{"/a"});  // the forced run, once
  EXPECT_EQ(s.finished("/a", 104), V{});
  EXPECT_EQ(s.request({"/a"}, false, 162), V{});  // 59 s after the last start
  EXPECT_EQ(s.request({"/a"}, false, 163), V{"/a"});
  s.finished("/a", 164);
  EXPECT_EQ(s.request({"/a"}, true, 165), V{"/a"});

  // At most two at a time; the rest start in order as runs end.
  EXPECT_EQ(s.request({"/b", "/c", "/d"}, false, 166), V{"/b"});
  EXPECT_EQ(s.request({"/c", "/d"}, false, 167), V{});
  EXPECT_EQ(s.finished("/a", 168), V{"/c"});
  EXPECT_EQ(s.finished("/b", 169), V{"/d"});
  EXPECT_EQ(s.running(), 2u);
}

// A real GLib loop on its own context, running a fake gh that answers with the JSON the test
// leaves in answer.json, or exits 1 as gh does on a branch without a pull request.
class GitHubProcess : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/vantler-gh-XXXXXX";
    dir_ = mkdtemp(pattern);
    root_ = dir_ + "/project";
    std::filesystem::create_directory(root_);
    gh_ = dir_ + "/gh";
    std::ofstream(gh_) << "#!/bin/sh\n"
                          "d=$(dirname \"$0\")\n"
                          "echo \"$PWD $*\" >> \"$d/calls\"\n"
                          "if [ -f \"$d/hang\" ]; then echo $$ > \"$d/pid\"; exec sleep 30; fi\n"
                          "if [ -f \"$d/slow\" ]; then sleep 0.3; fi\n"
                          "if [ -f \"$d/answer.json\" ]; then cat \"$d/answer.json\"; exit 0; fi\n"
                          "echo 'no pull requests found for branch \"main\"' >&2\n"
                          "exit 1\n";
    chmod(gh_.c_str(), 0755);
    context_ = g_main_context_new();
    g_main_context_push_thread_default(context_);
    loop_ = std::make_unique<GLibLoop>(context_);
  }
  void TearDown() override {
    loop_.reset();
    g_main_context_pop_thread_default(context_);
    g_main_context_unref(context_);
    std::filesystem::remove_all(dir_);
  }

  void put(const char* name, const char* text = "") { std::ofstream(dir_ + "/" + name) << text; }
  // Turns the loop until `done` holds or five seconds pass.
  template <class Done>
  bool until(Done done) {
    const gint64 deadline = g_get_monotonic_time() + 5 * G_USEC_PER_SEC;
    while (!done() && g_get_monotonic_time() < deadline)
      if (!g_main_context_iteration(context_, FALSE)) g_usleep(1000);
    return done();
  }
  std::vector<std::string> calls() {
    std::ifstream in(dir_ + "/calls");
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
  }

  std::string dir_, root_, gh_;
  GMainContext* context_ = nullptr;
  std::unique_ptr<GLibLoop> loop_;
};

TEST_F(GitHubProcess, FollowsTheBranchPullRequest) {
  GitHub github(*loop_, gh_);
  std::vector<std::string> news;
  github.onNews = [&](const std::string& root, const std::string& kind) {
    EXPECT_EQ(root, root_);
    news.push_back(kind);
  };
  auto idle = [&] { return github.running() == 0; };

  github.refresh({root_}, false);
  ASSERT_TRUE(until(idle));
  EXPECT_EQ(github.find(root_), nullptr);
  ASSERT_EQ(calls(), std::vector<std::string>{root_ + " pr view --json number,title,state,url,"
                                                      "statusCheckRollup"});

  put("answer.json", kOpen);
  github.refresh({root_}, false);  // within the interval: no run
  EXPECT_EQ(github.running(), 0u);
  github.refresh({root_}, true);
  ASSERT_TRUE(until(idle));
  ASSERT_NE(github.find(root_), nullptr);
  EXPECT_EQ(github.find(root_)->number, 4321);
  EXPECT_EQ(github.find(root_)->checks, "pending");
  EXPECT_EQ(news, std::vector<std::string>{"opened"});

  // Forced twice during a slow run: one more run after it, never two together.
  put("slow");
  put("answer.json", kMerged);
  github.refresh({root_}, true);
  github.refresh({root_}, true);
  github.refresh({root_}, true);
  EXPECT_EQ(github.running(), 1u);
  ASSERT_TRUE(until([&] { return calls().size() == 4 && idle(); }));
  EXPECT_EQ(github.find(root_)->state, "MERGED");
  EXPECT_EQ(news, (std::vector<std::string>{"opened", "merged"}));

  std::filesystem::remove(dir_ + "/answer.json");
  github.refresh({root_}, true);
  ASSERT_TRUE(until(idle));
  EXPECT_EQ(github.find(root_), nullptr);
  EXPECT_EQ(news.size(), 2u);
}

TEST_F(GitHubProcess, MissingGhAndEarlyDestructionAreHarmless) {
  GitHub missing(*loop_, dir_ + "/no-such-gh");
  missing.refresh({root_}, true);
  EXPECT_EQ(missing.running(), 0u);
  EXPECT_EQ(missing.find(root_), nullptr);

  // Destroyed while gh runs: the process is killed and its callback finds no owner.
  put("hang");
  auto github = std::make_unique<GitHub>(*loop_, gh_);
  github->onNews = [](const std::string&, const std::string&) { ADD_FAILURE(); };
  github->refresh({root_}, true);
  ASSERT_TRUE(until([&] {
    std::error_code ec;
    return std::filesystem::file_size(dir_ + "/pid", ec) > 1 && !ec;
  }));
  pid_t pid = 0;
  std::ifstream(dir_ + "/pid") >> pid;
  github.reset();
  EXPECT_TRUE(until([&] { return ::kill(pid, 0) == -1 && errno == ESRCH; }));
}
