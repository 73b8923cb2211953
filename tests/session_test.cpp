#include <gtest/gtest.h>

#include <filesystem>

#include "core/session.h"
#include "test_support.h"
#include "usage/pricing.h"

namespace {
Session working(std::string activity = "") {
  Session s;
  s.mood = Mood::working;
  s.activity = std::move(activity);
  return s;
}
}  // namespace

TEST(SessionTools, KeepsLatestFourAndFinishesNewestRunning) {
  Session s;
  for (const char* label : {"a", "b", "c", "d", "e"}) s.pushTool(label);
  ASSERT_EQ(s.tools.size(), 4u);
  EXPECT_EQ(s.tools.front().label, "b");
  EXPECT_EQ(s.tools.back(), (ToolLine{"e", true, false}));
  for (size_t i = 0; i < 3; ++i) EXPECT_FALSE(s.tools[i].running);

  s.tools[2].running = true;  // two running lines, possible only through a copy
  s.finishTools(true);
  EXPECT_EQ(s.tools[3], (ToolLine{"e", false, true}));
  EXPECT_TRUE(s.tools[2].running);
  s.finishTools(false);
  s.finishTools(true);  // nothing running: no change
  EXPECT_EQ(s.tools[2], (ToolLine{"d", false, false}));
}

TEST(SessionTools, TallyKeepsFirstKindTakesNewDetailAndMovesPhase) {
  Session s;
  s.phase = "reasoning";
  s.countTool("Read", {{"file_path", "/x/a.cpp"}}, 10);
  s.countTool("mcp__github__create_issue", Json::object(), 11);  // "other": phase unchanged
  EXPECT_EQ(s.phase, "researching");
  s.countTool("Read", {{"file_path", "/x/b.cpp"}}, 12);
  s.countTool("Bash", {{"command", "make"}}, 13);
  ASSERT_EQ(s.tally.size(), 3u);
  EXPECT_EQ(s.tally[0].count, 2);
  EXPECT_EQ(s.tally[0].detail, "b.cpp");
  EXPECT_EQ(s.tally[0].kind, "research");
  EXPECT_EQ(s.tally[0].last, 12);
  EXPECT_EQ(s.turnCalls, 4);
  EXPECT_EQ(s.phase, "reviewing");
}

TEST(SessionMood, DoneDecaysAndPosesFollowTheClock) {
  Session s;
  s.mood = Mood::done;
  EXPECT_EQ(s.pose(0), "idle");  // no finish time known
  s.finishedAt = 1000;
  EXPECT_EQ(s.pose(1029), "success");
  EXPECT_EQ(s.pose(1030), "idle");
  EXPECT_EQ(s.shownMood(1600), Mood::done);
  EXPECT_EQ(s.shownMood(1601), Mood::idle);
  EXPECT_EQ(s.pose(1601), "sleep");

  s.mood = Mood::working;
  s.pending = Pending{"p", Pending::Reply{"m", 0}, Json::object(), 0, false};
  EXPECT_EQ(s.shownMood(0), Mood::done);
  EXPECT_EQ(s.pose(0), "success");
  s.pending->kind = Pending::Questions{};
  EXPECT_EQ(s.shownMood(0), Mood::waiting);
  EXPECT_EQ(s.pose(0), "listen");
  s.pending->kind = Pending::Elsewhere{"x"};
  EXPECT_EQ(s.pose(0), "alert");
}

TEST(SessionMood, WorkingPoses) {
  EXPECT_EQ(working("Editing main.cpp").pose(0), "write");
  EXPECT_EQ(working("CREATING file").pose(0), "write");
  EXPECT_EQ(working("Running make").pose(0), "think");
  Session failed = working("Editing x");
  failed.pushTool("Running make");
  failed.finishTools(true);
  EXPECT_EQ(failed.pose(0), "error");
  Session waiting;
  waiting.mood = Mood::waiting;
  EXPECT_EQ(waiting.pose(0), "alert");
}

TEST(SessionNames, FamilyFromHost) {
  auto family = [](Agent agent, std::optional<std::string> bundle,
                   std::optional<std::string> entry = {}) {
    Session s;
    s.agent = agent;
    s.hostBundle = std::move(bundle);
    s.stats.entrypoint = std::move(entry);
    return std::string(s.family());
  };
  EXPECT_EQ(family(Agent::codex, "/usr/bin/kitty"), "codex");
  EXPECT_EQ(family(Agent::cursor, {}), "cursor");
  EXPECT_EQ(family(Agent::claude, "/Applications/iTerm2.app"), "terminal");
  EXPECT_EQ(family(Agent::claude, "/usr/bin/gnome-terminal-server"), "terminal");
  EXPECT_EQ(family(Agent::claude, "/Applications/Visual Studio Code.app"), "editor");
  EXPECT_EQ(family(Agent::gemini, "/usr/bin/codesign-helper"), "editor");
  EXPECT_EQ(family(Agent::claude, "/opt/Slack/slack"), "desktop");
  EXPECT_EQ(family(Agent::claude, {}, "cli"), "terminal");
  EXPECT_EQ(family(Agent::claude, {}, "sdk-ts"), "desktop");
  EXPECT_EQ(family(Agent::claude, "PyCharm"), "editor");
  EXPECT_EQ(family(Agent::claude, "JetBrains"), "editor");
}

TEST(SessionNames, HeadlinePrecedence) {
  Session s;
  s.root = "/home/u/proj";
  EXPECT_EQ(s.headline(), "proj");
  s.stats.firstPrompt = "<command>\n**Fix** login";
  EXPECT_EQ(s.headline(), "Fix login");
  s.title = "Title";
  EXPECT_EQ(s.headline(), "Title");
  s.stats.customTitle = "";
  EXPECT_EQ(s.headline(), "Title");
  s.stats.customTitle = "Custom";
  EXPECT_EQ(s.headline(), "Custom");
  Session bare;
  EXPECT_EQ(bare.headline(), "~");
}

TEST(SessionNames, ProjectRootStopsAtHome) {
  TempHome home;
  namespace fs = std::filesystem;
  const std::string h = home.path();
  fs::create_directories(h + "/work/app/src/lib");
  fs::create_directories(h + "/work/app/.git");
  fs::create_directories(h + "/.git");
  fs::create_directories(h + "/loose/dir");
  EXPECT_EQ(Session::projectRoot(h + "/work/app/src/lib", h), h + "/work/app");
  EXPECT_EQ(Session::projectRoot(h + "/work/app", h), h + "/work/app");
  EXPECT_EQ(Session::projectRoot(h + "/loose/dir", h), h + "/loose/dir");  // home's .git ignored
  EXPECT_EQ(Session::projectRoot(h, h), h);
}

TEST(SessionJson, StatsAndTallyShape) {
  Session s;
  s.id = "claude:x";
  s.root = "/";
  s.stats.model = "claude-sonnet-4-5-20250929";
  s.stats.contextTokens = 50'000;
  s.turnStarted = 100;
  s.finishedAt = 90;  // stale: from an earlier turn
  for (int i = 0; i < 6; ++i) s.countTool("T" + std::to_string(i), Json::object(), 10 + i);
  s.tally[1].last = 100;
  PricingCatalog models;
  Json j = s.json(200, 15, &models);
  EXPECT_EQ(j["project"], "/");
  EXPECT_EQ(j["stats"]["model"], "Sonnet 4.5");
  EXPECT_DOUBLE_EQ(j["stats"]["context"].get<double>(), 0.25);
  EXPECT_EQ(j["stats"]["turnStarted"], 100000.0);
  EXPECT_FALSE(j["stats"].contains("turnEnd"));
  ASSERT_EQ(j["tally"].size(), 4u);
  EXPECT_EQ(j["tally"][0]["tool"], "T1");
  EXPECT_EQ(j["tally"][1]["tool"], "T5");
  EXPECT_FALSE(j.contains("branch") || j.contains("pending") || j.contains("host"));

  s.agent = Agent::codex;
  s.stats.model = "gpt-5-codex";  // no price entry: no context without a reported window
  s.finishedAt = 150;
  j = s.json(200, 15, &models);
  EXPECT_EQ(j["stats"]["model"], "gpt-5-codex");
  EXPECT_FALSE(j["stats"].contains("context"));
  EXPECT_EQ(j["stats"]["turnEnd"], 150000.0);
  EXPECT_EQ(j["host"], "Codex");
}
