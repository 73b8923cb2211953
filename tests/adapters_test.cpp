// Hook payloads of each agent turned into session changes and hook replies.

#include <gmock/gmock.h>

#include "bridge/adapters.h"
#include "test_support.h"

using ::testing::ElementsAre;

class AdapterTest : public HubTest {
 protected:
  struct Sent {
    std::optional<std::string> held;
    std::vector<std::string> replies;
  };
  int attention = 0;
  std::unique_ptr<Adapters> adapters;

  void SetUp() override {
    HubTest::SetUp();
    hub->onAttention = [this] { ++attention; };
    adapters = std::make_unique<Adapters>(*hub);
  }

  // Delivers a payload as the bridge would; replies land in the returned record.
  std::shared_ptr<Sent> send(Json payload) {
    auto sent = std::make_shared<Sent>();
    auto reply = [sent](const std::string& text) { sent->replies.push_back(text); };
    sent->held = adapters->handle(payload, reply);
    return sent;
  }

  std::shared_ptr<Sent> claude(const std::string& event, Json extra = Json::object()) {
    extra["hook_event_name"] = event;
    extra["session_id"] = "s1";
    extra["cwd"] = home.path() + "/proj";
    return send(extra);
  }

  const Session& s(const std::string& key = "claude:s1") { return *hub->find(key); }
};

TEST_F(AdapterTest, ClaudeTurnWithToolsAndReplyWindow) {
  auto start =
      claude("SessionStart",
             {{"_host", {{"pid", 42}, {"bundle", "/usr/bin/kitty"}, {"tty", "/dev/pts/4"}}},
              {"agentPid", 77}});
  EXPECT_THAT(start->replies, ElementsAre(""));
  EXPECT_EQ(s().hostPid, 42);
  EXPECT_EQ(s().agentPid, 77);
  EXPECT_EQ(s().family(), "terminal");

  claude("UserPromptSubmit", {{"prompt", "Fix the **flaky** test"}});
  EXPECT_EQ(s().title, "Fix the flaky test");
  EXPECT_EQ(s().mood, Mood::working);
  EXPECT_EQ(s().turnStarted, hub->now());

  auto pre =
      claude("PreToolUse", {{"tool_name", "Bash"}, {"tool_input", {{"command", "npm test"}}}});
  EXPECT_THAT(pre->replies, ElementsAre(""));
  EXPECT_FALSE(pre->held);
  EXPECT_EQ(s().activity, "Running npm test");
  claude("PostToolUseFailure", {{"tool_name", "Bash"}});
  EXPECT_EQ(s().pose(hub->now()), "error");
  claude("PreToolUse",
         {{"tool_name", "Edit"}, {"tool_input", {{"file_path", "/p/a.ts"}}}, {"agent_id", "sub"}});
  EXPECT_EQ(s().tools.size(), 1u);  // subagent calls stay out of the tool lines

  loop.advance(5);
  auto stop = claude("Stop", {{"last_assistant_message", "All green now.\nDetails follow"}});
  ASSERT_TRUE(stop->held);
  EXPECT_TRUE(stop->held->starts_with("claude:s1:reply:"));
  EXPECT_TRUE(stop->replies.empty());
  EXPECT_EQ(s().activity, "All green now.");
  EXPECT_EQ(s().pending->as<Pending::Reply>()->expires, hub->now() + 15);
  EXPECT_EQ(hub->flash()->id, "claude:s1");
  EXPECT_EQ(attention, 1);

  loop.advance(4);
  ASSERT_FALSE(prs->refreshes.empty());
  EXPECT_TRUE(prs->refreshes.back().second);  // forced refresh after the turn
  hub->sendReply("claude:s1", "thanks");
  ASSERT_EQ(stop->replies.size(), 1u);
  EXPECT_EQ(Json::parse(stop->replies[0])["systemMessage"], "Replied in Vantler's panel: thanks");
}

// Parallel subagents share a session: their requests wait in turn, each answered by its own
// id, and no answer reaches the hook of another session.
TEST_F(AdapterTest, RequestsOfOneSessionAreAnsweredInTurn) {
  const Json bash = {{"command", "npm test"}};
  auto call = [&](const std::string& event, const std::string& agentId, Json extra = {}) {
    extra["tool_name"] = "Bash";
    extra["tool_input"] = bash;
    extra["agent_id"] = agentId;
    return claude(event, extra);
  };
  // Claude Code's requests carry no call id: each takes the one of its PreToolUse.
  call("PreToolUse", "a1", {{"tool_use_id", "toolu_A"}});
  call("PreToolUse", "a2", {{"tool_use_id", "toolu_B"}});
  auto first = call("PermissionRequest", "a1");
  auto second = call("PermissionRequest", "a2");
  auto third = call("PermissionRequest", "a3");  // no call announced: an id of its own
  EXPECT_EQ(first->held, "claude:s1:toolu_A");
  EXPECT_EQ(second->held, "claude:s1:toolu_B");
  ASSERT_TRUE(third->held);
  EXPECT_TRUE(third->held->starts_with("claude:s1:perm:"));
  EXPECT_TRUE(first->replies.empty() && second->replies.empty());  // none handed back
  EXPECT_EQ(hub->snapshot()["sessions"][0]["pending"]["waiting"], 2);

  // Another session whose agent numbers its calls alike.
  auto other = send({{"hook_event_name", "PermissionRequest"},
                     {"session_id", "s2"},
                     {"tool_name", "Bash"},
                     {"tool_use_id", "toolu_A"}});
  EXPECT_EQ(other->held, "claude:s2:toolu_A");

  hub->decide("claude:s1", "deny");
  EXPECT_EQ(first->replies.size(), 1u);
  EXPECT_TRUE(other->replies.empty());
  EXPECT_EQ(s().pending->id, "claude:s1:toolu_B");  // the next one is shown
  hub->hookGone(*third->held);                      // a queued hook went away
  EXPECT_TRUE(s().queued.empty());
  call("PostToolUse", "a2", {{"tool_use_id", "toolu_B"}});  // answered in the terminal
  EXPECT_THAT(second->replies, ElementsAre(""));
  EXPECT_FALSE(s().pending);
  EXPECT_TRUE(hub->find("claude:s2")->pending);

  auto again = call("PermissionRequest", "a4");
  auto after = call("PermissionRequest", "a5");
  claude("SessionEnd");  // the agent has gone: every open request is let go
  EXPECT_THAT(again->replies, ElementsAre(""));
  EXPECT_THAT(after->replies, ElementsAre(""));
  EXPECT_TRUE(Hub::isFinished(s(), hub->now()));
}

// The standing rule Claude Code offers becomes a third choice, returned unchanged.
TEST_F(AdapterTest, AlwaysAllowOffersTheSuggestedRule) {
  struct Case {
    Json suggestion;
    std::string label;  // empty: not offered
  };
  const Case cases[] = {
      {{{"type", "addRules"},
        {"rules", {{{"toolName", "Bash"}, {"ruleContent", "npm test:*"}}}},
        {"behavior", "allow"},
        {"destination", "localSettings"}},
       "Always allow `npm test`"},
      {{{"type", "addRules"},
        {"rules", {{{"toolName", "Read"}, {"ruleContent", "//w/docs/**"}}, {{"toolName", "Glob"}}}},
        {"behavior", "allow"},
        {"destination", "projectSettings"}},
       "Always allow Read `//w/docs/**` and Glob"},
      {{{"type", "addDirectories"}, {"directories", {"/w/lib/"}}, {"destination", "session"}},
       "Allow access to `lib` this session"},
      {{{"type", "setMode"}, {"mode", "acceptEdits"}, {"destination", "session"}},
       "Allow all edits this session"},
      {{{"type", "addRules"},
        {"rules", {{{"toolName", "Bash"}, {"ruleContent", "rm:*"}}}},
        {"behavior", "deny"}},
       ""},
      {{{"type", "setMode"}, {"mode", "plan"}, {"destination", "session"}}, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.suggestion.dump());
    auto asked = claude("PermissionRequest", {{"tool_name", "Bash"},
                                              {"tool_input", {{"command", "npm test"}}},
                                              {"permission_suggestions", {c.suggestion}}});
    const Json pending = hub->snapshot()["sessions"][0]["pending"];
    EXPECT_EQ(JsonField::str(pending, "always"), c.label);
    hub->decide("claude:s1", "allow", std::nullopt, true);
    const Json decision = Json::parse(asked->replies.at(0))["hookSpecificOutput"]["decision"];
    EXPECT_EQ(decision["behavior"], "allow");
    if (c.label.empty())
      EXPECT_FALSE(decision.contains("updatedPermissions"));
    else
      EXPECT_EQ(decision["updatedPermissions"], Json::array({c.suggestion}));
  }
}

TEST_F(AdapterTest, BadPayloadsAndNotifications) {
  auto missing = send({{"hook_event_name", "Stop"}});
  EXPECT_THAT(missing->replies, ElementsAre(""));
  EXPECT_TRUE(hub->sessions().empty());

  auto note = claude("Notification", {{"notification_type", "permission_prompt"}, {"message", ""}});
  EXPECT_THAT(note->replies, ElementsAre(""));
  EXPECT_EQ(s().pending->id, "claude:s1:note");
  EXPECT_EQ(s().pending->as<Pending::Elsewhere>()->what, "Needs your input");
  EXPECT_EQ(s().mood, Mood::waiting);
  claude("Notification", {{"notification_type", "idle_prompt"}, {"message", "x"}});
  EXPECT_EQ(s().pending->as<Pending::Elsewhere>()->what, "Needs your input");

  hub->dismiss("claude:s1");
  EXPECT_TRUE(hub->visible().empty());
  loop.advance(1);
  claude("PreCompact");  // any event brings a dismissed session back
  EXPECT_EQ(hub->visible().size(), 1u);
  EXPECT_EQ(s().activity, "Compacting");

  defaults.set("replyWindow", 0);
  auto stop = claude("Stop");
  EXPECT_THAT(stop->replies, ElementsAre(""));
  EXPECT_EQ(s().activity, "Finished");
  defaults.set("replyWindow", 15);
  auto looping = claude("Stop", {{"stop_hook_active", true}});
  EXPECT_THAT(looping->replies, ElementsAre(""));

  // A finished turn waits for a reply only when someone can give one: under "auto", an
  // interactive agent while the user has the panel open.
  struct Hold {
    const char* rule;
    bool looking;
    std::optional<std::string> entrypoint;
    bool headlessAgent;
    bool held;
  };
  for (const Hold& h : std::initializer_list<Hold>{{"auto", true, "cli", false, true},
                                                   {"auto", false, "cli", false, false},
                                                   {"auto", true, "sdk-cli", false, false},
                                                   {"auto", true, std::nullopt, true, false},
                                                   {"always", false, "sdk-cli", true, true},
                                                   {"never", true, "cli", false, false}}) {
    SCOPED_TRACE(std::string(h.rule) + (h.looking ? " looking" : " away"));
    defaults.set("replyHold", h.rule);
    looking = h.looking;
    headless = h.headlessAgent ? std::set<int32_t>{77} : std::set<int32_t>{};
    Session held = s();
    held.agentPid = 77;
    held.stats.entrypoint = h.entrypoint;
    hub->store(held);
    auto turn = claude("Stop");
    EXPECT_EQ(turn->held.has_value(), h.held);
    EXPECT_EQ(turn->replies.empty(), h.held);
    hub->release("claude:s1");
  }
  defaults.remove("replyHold");
  looking = true;

  size_t before = hub->sessions().size();
  auto unknown = send({{"_agent", "gemini"}, {"hook_event_name", "Mystery"}, {"session_id", "z"}});
  EXPECT_THAT(unknown->replies, ElementsAre(""));
  EXPECT_EQ(hub->sessions().size(), before);
}

TEST_F(AdapterTest, CursorTurnThroughStop) {
  auto cursor = [&](const std::string& hook, Json extra = Json::object()) {
    extra["hook_event_name"] = hook;
    extra["_agent"] = "cursor";
    extra["conversation_id"] = "c1";
    extra["workspace_roots"] = {"/w/site"};
    return send(extra);
  };
  cursor("beforeSubmitPrompt", {{"prompt", "Add a footer"}, {"model", "gpt-5"}});
  const std::string key = "cursor:c1";
  EXPECT_EQ(s(key).title, "Add a footer");
  EXPECT_EQ(s(key).root, "/w/site");
  EXPECT_EQ(s(key).stats.model, "gpt-5");
  auto shell = cursor("afterShellExecution", {{"command", "npm run build"}});
  EXPECT_THAT(shell->replies, ElementsAre(""));
  EXPECT_EQ(s(key).tools.back(), (ToolLine{"Running npm run build", false, false}));
  cursor("afterMCPExecution", {{"mcp_server_name", "github"},
                               {"tool_name", "create_issue"},
                               {"tool_input", "{\"title\":\"x\"}"}});
  EXPECT_EQ(s(key).tools.back().label, "github · create_issue");
  cursor("afterAgentResponse", {{"text", "Footer added."}});

  auto stop = cursor("stop", {{"status", "completed"}, {"loop_count", 0}});
  ASSERT_TRUE(stop->held);
  EXPECT_EQ(s(key).pending->as<Pending::Reply>()->lastMessage, "Footer added.");
  hub->sendReply(key, "make it blue");
  EXPECT_THAT(stop->replies, ElementsAre(R"({"followup_message":"make it blue"})"));

  auto looped = cursor("stop", {{"loop_count", 1}});
  EXPECT_THAT(looped->replies, ElementsAre(""));
  auto aborted = cursor("stop", {{"status", "error"}});
  EXPECT_THAT(aborted->replies, ElementsAre(""));
  EXPECT_EQ(s(key).mood, Mood::idle);
  EXPECT_EQ(s(key).activity, "Stopped with an error");
}
