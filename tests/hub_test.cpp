#include <gmock/gmock.h>

#include "core/files.h"
#include "core/json_writer.h"
#include "core/prefs.h"
#include "test_support.h"

using ::testing::ElementsAre;

namespace {
Pending::Kind permission() {
  return Pending::Permission{"Wants to run", "ls", "Bash"};
}
Pending::Kind twoQuestions() {
  return Pending::Questions{{{"H1", "Which colour?", {{"Red", ""}, {"Blue", ""}}, false},
                             {"H2", "Which sizes?", {{"S", ""}, {"M", ""}}, true}}};
}
std::vector<std::string> ids(const std::vector<const Session*>& list) {
  std::vector<std::string> out;
  for (const Session* s : list) out.push_back(s->id);
  return out;
}
}  // namespace

TEST_F(HubTest, ChangesInOneLoopTurnGiveOnePush) {
  add("claude:a");
  add("claude:b");
  hub->select("claude:a");
  hub->setOpen(true);
  hub->setOpen(true);  // no change
  EXPECT_EQ(changes, 0);
  loop.turn();
  EXPECT_EQ(changes, 1);
  hub->setOpen(false);
  loop.turn();
  EXPECT_EQ(changes, 2);
}

TEST_F(HubTest, SessionKeepsFirstRootAndTakesLaterCwd) {
  std::filesystem::create_directories(home.path() + "/proj/.git");
  std::filesystem::create_directories(home.path() + "/proj/src/deep");
  Session s = hub->session("claude:x", Agent::claude, "");
  EXPECT_EQ(s.root, "");
  EXPECT_EQ(s.phase, "reasoning");
  hub->store(s);
  EXPECT_EQ(hub->session("claude:x", Agent::claude, home.path() + "/proj/src/deep").root,
            home.path() + "/proj");
}

TEST_F(HubTest, ColourSlotsFillGapsThenWrap) {
  for (int i = 0; i < 9; ++i) add("claude:" + std::to_string(i));
  for (int i = 0; i < 9; ++i) EXPECT_EQ(hub->find("claude:" + std::to_string(i))->colorIndex, i);
  add("claude:tenth");  // all nine visible: session count (9) modulo 9
  EXPECT_EQ(hub->find("claude:tenth")->colorIndex, 0);
  hub->dismiss("claude:3");  // hidden sessions free their slot
  add("claude:eleventh");
  EXPECT_EQ(hub->find("claude:eleventh")->colorIndex, 3);
}

TEST_F(HubTest, CodexFlashOnlyForFreshFinish) {
  auto finish = [&](const std::string& id, double agoSeconds) {
    hub->codex(id, "", [](Session& s) { s.mood = Mood::working; });
    hub->codex(id, "", [&](Session& s) {
      s.mood = Mood::done;
      s.finishedAt = hub->now() - agoSeconds;
    });
  };
  finish("old", 20);
  EXPECT_FALSE(hub->flash());
  finish("fresh", 2);
  ASSERT_TRUE(hub->flash());
  EXPECT_EQ(hub->flash()->id, "codex:fresh");
  EXPECT_TRUE(hub->snapshot().contains("flash"));
  loop.advance(3.3);  // past `until`: the snapshot omits it before the tick clears it
  EXPECT_TRUE(hub->flash());
  EXPECT_FALSE(hub->snapshot().contains("flash"));
  loop.advance(1);
  EXPECT_FALSE(hub->flash());
}

TEST_F(HubTest, ElsewhereDecisionJumpsInsteadOfAnswering) {
  add("droid:a", Mood::waiting, Agent::droid);
  auto& replies = request("droid:a", Pending::Elsewhere{"Approve the plan"});
  hub->decide("droid:a", "allow");
  EXPECT_THAT(replies, ElementsAre(""));
  EXPECT_THAT(jumper->jumped, ElementsAre("droid:a"));
  EXPECT_EQ(hub->find("droid:a")->mood, Mood::waiting);
}

TEST_F(HubTest, AnswersMapToQuestionTextsInOrder) {
  add("claude:q");
  auto& replies =
      request("claude:q", twoQuestions(), {{"questions", Json::array()}, {"answers", 1}});
  hub->answer("claude:q", {"Red", "S, M", "surplus"});
  Json body = Json::parse(replies.at(0));
  const Json& decision = body["hookSpecificOutput"]["decision"];
  EXPECT_EQ(decision["behavior"], "allow");
  EXPECT_EQ(decision["updatedInput"]["answers"],
            Json::parse(R"({"Which colour?":"Red","Which sizes?":"S, M"})"));
  EXPECT_TRUE(decision["updatedInput"].contains("questions"));

  auto& none = request("claude:q", twoQuestions());
  hub->answer("claude:q", {});
  EXPECT_EQ(Json::parse(none.at(0))["hookSpecificOutput"]["decision"]["updatedInput"]["answers"],
            Json::object());

  auto& wrongKind = request("claude:q", permission());
  hub->answer("claude:q", {"x"});
  EXPECT_TRUE(wrongKind.empty());
}

TEST_F(HubTest, SendReplyStartsANewTurn) {
  add("cursor:c", Mood::done, Agent::cursor);
  edit("cursor:c", [&](Session& s) {
    s.finishedAt = hub->now();
    s.pushTool("Reading a.txt");
    s.countTool("Read", {{"file_path", "a.txt"}}, hub->now());
  });
  auto& permissionReplies = request("cursor:c", permission());
  hub->sendReply("cursor:c", "ignored");  // not a reply window
  EXPECT_TRUE(permissionReplies.empty());

  auto& replies = request("cursor:c", Pending::Reply{"Done.", hub->now() + 15});
  loop.advance(2);
  hub->sendReply("cursor:c", "# Next\nrun the **linter**");
  EXPECT_THAT(replies, ElementsAre(R"({"followup_message":"# Next\nrun the **linter**"})"));
  const Session& s = *hub->find("cursor:c");
  EXPECT_EQ(s.mood, Mood::working);
  EXPECT_EQ(s.title, "run the linter");
  EXPECT_EQ(s.activity, "Thinking");
  EXPECT_EQ(s.phase, "reasoning");
  EXPECT_TRUE(s.tools.empty() && s.tally.empty());
  EXPECT_EQ(s.turnCalls, 0);
  EXPECT_EQ(s.turnStarted, hub->now());
  EXPECT_FALSE(s.finishedAt);
}

TEST_F(HubTest, ReleaseSetsWaitingOnlyForPromptsTheAgentWillRepeat) {
  add("claude:p");
  auto& p = request("claude:p", permission());
  hub->release("claude:p");
  EXPECT_THAT(p, ElementsAre(""));
  EXPECT_EQ(hub->find("claude:p")->mood, Mood::waiting);

  add("claude:r", Mood::done);
  auto& r = request("claude:r", Pending::Reply{"ok", hub->now() + 15});
  hub->answerThere("claude:r");
  EXPECT_THAT(r, ElementsAre(""));
  EXPECT_EQ(hub->find("claude:r")->mood, Mood::done);
  EXPECT_THAT(jumper->jumped, ElementsAre("claude:r"));
}

TEST_F(HubTest, ReplyWindowExpiresUnlessEngaged) {
  add("claude:a", Mood::done);
  add("claude:b", Mood::done);
  auto& a = request("claude:a", Pending::Reply{"a", hub->now() + 15});
  auto& b = request("claude:b", Pending::Reply{"b", hub->now() + 15});
  hub->engage("claude:b");
  loop.advance(15);
  EXPECT_TRUE(a.empty());  // `expires` is not yet in the past
  loop.advance(1);
  EXPECT_THAT(a, ElementsAre(""));
  EXPECT_FALSE(hub->find("claude:a")->pending);
  loop.advance(300);
  EXPECT_TRUE(b.empty());
  EXPECT_TRUE(hub->find("claude:b")->pending->engaged);
  hub->release("claude:b");
  EXPECT_THAT(b, ElementsAre(""));
}

TEST_F(HubTest, SlowSweepRemovesClaudeSessionsWhoseAgentEnded) {
  processes = {{101, 5}, {102, 7}, {103, 9}};
  auto agent = [&](const std::string& key, int32_t pid) {
    add(key);
    edit(key, [&](Session& s) { hub->noteAgent(s, pid); });
  };
  agent("claude:dead", 101);
  agent("claude:reused", 102);
  agent("claude:alive", 103);
  agent("claude:never-seen", 104);  // not running when its event came: not the agent's word
  add("claude:silent");
  add("claude:silent-waiting");
  request("claude:silent-waiting", permission());
  add("gemini:silent", Mood::idle, Agent::gemini);
  processes.erase(101);
  processes[102] = 8;  // the pid now belongs to a later process

  loop.advance(20);  // not more than 20 s since the start
  EXPECT_TRUE(hub->find("claude:dead"));
  loop.advance(1);
  EXPECT_FALSE(hub->find("claude:dead"));
  EXPECT_FALSE(hub->find("claude:reused"));
  EXPECT_TRUE(hub->find("claude:alive"));
  EXPECT_TRUE(hub->find("claude:never-seen"));

  loop.advance(8 * 3600 - 21);
  EXPECT_TRUE(hub->find("claude:silent"));
  loop.advance(21);
  EXPECT_FALSE(hub->find("claude:silent"));
  EXPECT_FALSE(hub->find("claude:never-seen"));
  EXPECT_TRUE(hub->find("claude:alive"));
  EXPECT_TRUE(hub->find("claude:silent-waiting"));
  EXPECT_TRUE(hub->find("gemini:silent"));
}

TEST_F(HubTest, QueueOrdersByRequestTime) {
  add("claude:first-created");
  add("claude:second-created");
  loop.advance(1);
  request("claude:second-created", permission());
  loop.advance(1);
  request("claude:first-created", permission());
  EXPECT_THAT(ids(hub->queue()), ElementsAre("claude:second-created", "claude:first-created"));
}

TEST_F(HubTest, VisibilityFollowsHideAfterAndRequests) {
  defaults.set("hideAfter", 10);
  add("claude:done", Mood::done);
  edit("claude:done", [&](Session& s) { s.finishedAt = hub->now(); });
  add("claude:working");
  loop.advance(11 * 60);
  EXPECT_THAT(ids(hub->visible()), ElementsAre("claude:working"));
  request("claude:done", permission());
  EXPECT_THAT(ids(hub->visible()), ElementsAre("claude:done", "claude:working"));
  defaults.set("hideAfter", 0);
  hub->release("claude:done");
  EXPECT_EQ(hub->visible().size(), 2u);
}

TEST_F(HubTest, DismissTucksUntilNewActivityAndPersists) {
  add("claude:a");
  auto& replies = request("claude:a", permission());
  hub->dismiss("claude:a");
  EXPECT_THAT(replies, ElementsAre(""));
  EXPECT_TRUE(hub->visible().empty());
  EXPECT_TRUE(defaults.get("tucked").contains("claude:a"));

  makeHub();  // a restart reads the tucks back; non-numbers are dropped
  defaults.set("tucked", {{"claude:a", hub->now()}, {"bad", "x"}});
  makeHub();
  EXPECT_EQ(hub->tucked().size(), 1u);

  add("claude:a");
  EXPECT_TRUE(hub->visible().empty());
  loop.advance(1);
  edit("claude:a", [&](Session& s) { s.updated = hub->now(); });  // new activity lifts it
  EXPECT_EQ(hub->visible().size(), 1u);
  hub->untuck("claude:a");
  EXPECT_FALSE(Defaults(defaults.path()).get("tucked").contains("claude:a"));
}

TEST_F(HubTest, ClearFinishedAndUndo) {
  add("claude:done", Mood::done);
  add("claude:idle", Mood::idle);
  add("claude:working");
  add("claude:reply", Mood::done);
  request("claude:reply", Pending::Reply{"x", hub->now() + 15});
  hub->clearFinished();
  EXPECT_THAT(ids(hub->visible()), ElementsAre("claude:working", "claude:reply"));
  EXPECT_TRUE(hub->canUndo());
  hub->clearFinished();  // nothing finished left: the undo survives
  EXPECT_TRUE(hub->canUndo());

  add("claude:idle");  // came back by itself: the newer record wins
  edit("claude:idle", [](Session& s) { s.title = "new"; });
  hub->undoClear();
  EXPECT_FALSE(hub->canUndo());
  EXPECT_EQ(hub->sessions().size(), 4u);
  EXPECT_EQ(hub->find("claude:idle")->title, "new");
  EXPECT_TRUE(hub->find("claude:done"));
}

TEST_F(HubTest, FocusPrefersUrgencyThenRecency) {
  add("claude:done", Mood::done);
  add("claude:w1");
  loop.advance(1);
  add("claude:w2");
  EXPECT_EQ(hub->focus()->id, "claude:w2");
  edit("claude:w1", [&](Session& s) { s.updated = hub->now() + 1; });
  EXPECT_EQ(hub->focus()->id, "claude:w1");
  edit("claude:done", [](Session& s) { s.mood = Mood::waiting; });
  EXPECT_EQ(hub->focus()->id, "claude:done");
}

TEST_F(HubTest, RestoreRecentBringsBackTranscriptSessions) {
  std::filesystem::create_directories(home.path() + "/repo/.git");
  TranscriptStats ended;
  ended.endedTurn = true;
  ended.cwd = home.path() + "/repo/pkg";
  ended.customTitle = "Ported the parser";
  transcripts->byPath["/t/new.jsonl"] = ended;
  recent->list = {{"new", "/t/new.jsonl", hub->now() - 60},
                  {"old", "/t/old.jsonl", hub->now() - 3600},
                  {"live", "/t/live.jsonl", hub->now() - 5}};
  add("claude:live");
  hub->restoreRecent();
  ASSERT_EQ(hub->sessions().size(), 3u);
  EXPECT_EQ(hub->sessions()[1].id, "claude:old");  // oldest first
  const Session& s = *hub->find("claude:new");
  EXPECT_EQ(s.root, home.path() + "/repo");
  EXPECT_EQ(s.mood, Mood::done);
  EXPECT_EQ(s.finishedAt, hub->now() - 60);
  EXPECT_EQ(s.transcript, "/t/new.jsonl");
  EXPECT_EQ(s.headline(), "Ported the parser");
  EXPECT_EQ(hub->find("claude:old")->mood, Mood::idle);
  EXPECT_EQ(hub->find("claude:live")->mood, Mood::working);
}

TEST_F(HubTest, TickAsksTrackerAndPullRequestNewsExpires) {
  add("claude:a");
  edit("claude:a", [](Session& s) { s.root = "/r"; });
  prs->byRoot["/r"] = PullRequest{12, "Fix", "OPEN", "pass", "https://x/12"};
  loop.advance(1);
  ASSERT_FALSE(prs->refreshes.empty());
  EXPECT_THAT(prs->refreshes.back().first, ElementsAre("/r"));
  EXPECT_FALSE(prs->refreshes.back().second);
  EXPECT_EQ(hub->snapshot()["sessions"][0]["pr"]["number"], 12);

  prs->onNews("/r", "merged");
  EXPECT_EQ(hub->snapshot()["prNews"], Json({{"id", "claude:a"}, {"kind", "merged"}}));
  loop.advance(Hub::kPrNewsFor + 1);
  EXPECT_FALSE(hub->prNews());
}

TEST_F(HubTest, ScriptedAnswersArriveAfterDelay) {
  debugAnswer = "looks good";
  makeHub();
  add("claude:q");
  auto& q = request("claude:q", twoQuestions());
  hub->autoAnswerForTests(*hub->find("claude:q"));
  loop.advance(1.1);
  EXPECT_TRUE(q.empty());
  loop.advance(0.2);
  EXPECT_EQ(Json::parse(q.at(0))["hookSpecificOutput"]["decision"]["updatedInput"]["answers"],
            Json::parse(R"({"Which colour?":"looks good","Which sizes?":"looks good"})"));
}

TEST_F(HubTest, SnapshotSelectionAndShape) {
  EXPECT_TRUE(hub->snapshot()["selected"].is_null());
  add("claude:a");
  add("claude:b", Mood::done);
  hub->select("claude:b");
  EXPECT_EQ(hub->snapshot()["selected"], "claude:b");
  hub->dismiss("claude:b");  // no longer visible: the first queued session, then focus
  EXPECT_EQ(hub->snapshot()["selected"], "claude:a");
  add("claude:c", Mood::done);
  request("claude:c", Pending::Reply{"Finished.", hub->now() + 15});
  defaults.set("replyWindow", 40);  // the page draws the window at the current setting
  Json snap = hub->snapshot();
  EXPECT_EQ(snap["selected"], "claude:c");
  EXPECT_THAT(snap["queue"], ElementsAre("claude:c"));
  const Json& pending = snap["sessions"][1]["pending"];
  EXPECT_EQ(pending["kind"], "reply");
  EXPECT_EQ(pending["window"], 40000);
  EXPECT_EQ(pending["expires"], (hub->now() + 15) * 1000.0);
  EXPECT_EQ(pending["message"], "Finished.");
}

// The snapshot keeps each session's text between pushes; whatever the text shows must renew it.
TEST_F(HubTest, KeptSessionTextsMatchFreshOnesAsTimeSettingsAndPullRequestsChange) {
  auto fresh = [&] {
    JsonWriter w;
    w.beginArray();
    for (const Session* s : hub->visible())
      s->write(w, hub->now(), Prefs::replyWindow(defaults), prs->find(s->root));
    w.endArray();
    return Json::parse(w.text());
  };
  add("claude:work");
  add("claude:done", Mood::done);
  edit("claude:done", [&](Session& s) {
    s.finishedAt = hub->now();
    s.root = "/r";
  });
  add("claude:reply", Mood::done);
  request("claude:reply", Pending::Reply{"Finished.", hub->now() + 3600});
  ASSERT_EQ(hub->snapshot()["sessions"], fresh());

  const std::vector<std::function<void()>> changes = {
      [&] { loop.advance(Session::kSuccessFor + 1); },  // the finished turn's pose fades
      [&] { loop.advance(Session::kDoneFor); },         // done falls idle
      [&] { defaults.set("replyWindow", 40); },
      [&] {
        prs->byRoot["/r"] = PullRequest{7, "Fix", "OPEN", "pending", "https://x/7"};
      },
      [&] { prs->byRoot["/r"].checks = "pass"; },  // changed where it lies
      [&] { prs->byRoot.clear(); },
      [&] { edit("claude:work", [](Session& s) { s.activity = "Reading a.ts"; }); },
      [&] { hub->clearFinished(); },
      [&] { hub->undoClear(); },
  };
  for (size_t i = 0; i < changes.size(); ++i) {
    changes[i]();
    EXPECT_EQ(hub->snapshot()["sessions"], fresh()) << "after change " << i;
  }
}

TEST_F(HubTest, ManyFinishedSessionsForgetTheOldestFirst) {
  add("claude:working");
  add("claude:asking", Mood::done);
  request("claude:asking", Pending::Reply{"x", hub->now() + 15});
  for (size_t i = 0; i < Hub::kMaxEnded + 20; ++i) {
    add("claude:s" + std::to_string(i), Mood::done);
    loop.advance(0.01);
  }
  EXPECT_EQ(hub->sessions().size(), Hub::kMaxEnded + 2);
  EXPECT_FALSE(hub->find("claude:s19"));
  EXPECT_TRUE(hub->find("claude:s20"));
  EXPECT_TRUE(hub->find("claude:working"));
  EXPECT_TRUE(hub->find("claude:asking"));
}
