// Line framing and routing, without sockets.

#include <gmock/gmock.h>

#include "bridge/router.h"
#include "bridge/subscribers.h"
#include "test_support.h"

using ::testing::ElementsAre;

namespace {
struct FakeTransport : Router::Transport {
  std::map<Router::ConnId, std::string> sent, finished;
  std::vector<Router::ConnId> dropped;
  void send(Router::ConnId conn, std::string bytes) override { sent[conn] += bytes; }
  void finish(Router::ConnId conn, std::string bytes) override { finished[conn] = bytes; }
  void drop(Router::ConnId conn) override { dropped.push_back(conn); }
  std::map<Router::ConnId, size_t> backlog;  // bytes a peer has not read
  size_t unsent(Router::ConnId conn) const override {
    auto it = backlog.find(conn);
    return it == backlog.end() ? 0 : it->second;
  }
};
const char* kStart = R"({"session_id":"a","hook_event_name":"SessionStart"})";
const char* kPrompt = R"({"session_id":"a","hook_event_name":"UserPromptSubmit","prompt":"go"})";
std::string ask(const std::string& session) {
  return R"({"_agent":"claude","session_id":")" + session +
         R"(","hook_event_name":"PermissionRequest","tool_name":"Bash","tool_use_id":"t-)" +
         session + "\"}\n";
}
}  // namespace

class RouterTest : public HubTest {
 protected:
  FakeTransport transport;
  std::unique_ptr<Router> owned;
  Router* r = nullptr;
  void SetUp() override {
    HubTest::SetUp();
    owned = std::make_unique<Router>(*hub, transport, nullptr, Router::Limits{1000, 2500});
    r = owned.get();
  }
};

TEST_F(RouterTest, RoutesEveryLineInOrderAndKeepsTheUnfinishedOne) {
  r->opened(1);
  // Two objects and half of a third in one read: the first event is answered at once and the
  // second still applies; the half waits for its line feed.
  r->received(1, std::string("not json\n[1]\n\n\n") + kStart + "\n" + kPrompt + "\n{\"sess");
  EXPECT_EQ(transport.finished[1], "\n");
  EXPECT_EQ(hub->find("claude:a")->mood, Mood::working);
  EXPECT_EQ(hub->find("claude:a")->title, "go");
  EXPECT_EQ(r->buffered(), 6u);
  r->received(1, "ion_id\":\"c\",\"hook_event_name\":\"SessionStart\"}\n");
  EXPECT_TRUE(hub->find("claude:c"));
  EXPECT_EQ(r->buffered(), 0u);

  // A request opened after the answer has nobody to answer: it is withdrawn at once.
  r->received(1, ask("late"));
  EXPECT_FALSE(hub->find("claude:late")->pending);
  EXPECT_EQ(r->holding(), 0u);
}

TEST_F(RouterTest, HeldRequestsAreAcknowledgedKeptAliveAndWithdrawnOnce) {
  r->opened(2);
  std::string line = ask("b");
  r->received(2, line.substr(0, 10));
  EXPECT_FALSE(hub->find("claude:b"));
  r->received(2, line.substr(10) + ask("d"));
  EXPECT_EQ(transport.sent[2], "~hold\n");
  EXPECT_EQ(r->holding(), 1u);
  EXPECT_FALSE(hub->find("claude:d")->pending);  // one request per connection
  loop.advance(4.5);
  EXPECT_EQ(transport.sent[2], "~hold\n~alive\n~alive\n");

  hub->decide("claude:b", "allow");
  EXPECT_THAT(transport.finished[2], ::testing::HasSubstr("\"allow\""));
  loop.advance(10);
  EXPECT_EQ(transport.sent[2], "~hold\n~alive\n~alive\n");  // answered: no more keep-alives

  r->received(3, ask("e"));
  EXPECT_EQ(r->holding(), 1u);
  r->ended(3);
  r->ended(3);
  EXPECT_FALSE(hub->find("claude:e")->pending);  // withdrawn once, by the hook going away
  EXPECT_EQ(r->holding(), 0u);
}

TEST_F(RouterTest, StateQueriesCommandsAndLimits) {
  r->received(3, "{\"_query\":\"state\"}\n");
  Json state = Json::parse(transport.finished[3]);
  EXPECT_TRUE(state.contains("sessions"));
  EXPECT_NE(transport.finished[3].find("\n  \""), std::string::npos);  // pretty-printed

  r->received(4,
              "{\"_command\":{\"type\":\"allow\",\"id\":\"x\"},\"session_id\":\"c\",\"hook_"
              "event_name\":\"Stop\"}\n");
  EXPECT_EQ(Json::parse(transport.finished[4])["ok"], false);  // not routed as an event
  EXPECT_FALSE(hub->find("claude:c"));

  // One line too long, and then too much across connections; what was held is given back.
  r->received(6, std::string(1001, 'x'));
  r->received(7, std::string(900, 'x'));
  r->received(8, std::string(900, 'x'));
  r->received(9, std::string(900, 'x'));
  EXPECT_THAT(transport.dropped, ElementsAre(6u, 9u));
  EXPECT_EQ(r->buffered(), 1800u);
  for (Router::ConnId c : {6u, 7u, 8u, 9u}) r->ended(c);
  EXPECT_EQ(r->buffered(), 0u);
}

TEST_F(RouterTest, SubscribersGetTheSnapshotAtOnceThenCoalescedAndTheSlowAreDropped) {
  const std::string subscribe = "{\"_command\":{\"type\":\"subscribe\"}}\n";
  auto lines = [&](Router::ConnId c) {
    std::vector<Json> out;
    std::string_view rest = transport.sent[c];
    for (size_t nl; (nl = rest.find('\n')) != std::string_view::npos; rest.remove_prefix(nl + 1))
      out.push_back(Json::parse(rest.substr(0, nl)));
    return out;
  };
  r->received(1, subscribe);
  ASSERT_EQ(lines(1).size(), 1u);
  EXPECT_TRUE(lines(1)[0]["sessions"].empty());
  EXPECT_EQ(r->following(), 1u);

  // Changes of one turn make one line; a change right after waits for the spacing.
  add("claude:a");
  add("claude:b", Mood::waiting);
  loop.turn();
  ASSERT_EQ(lines(1).size(), 2u);
  EXPECT_EQ(lines(1)[1]["sessions"].size(), 2u);
  add("claude:c");
  loop.turn();
  EXPECT_EQ(lines(1).size(), 2u);
  loop.advance(Subscribers::kSpacing);
  EXPECT_EQ(lines(1).size(), 3u);

  // A peer that has not read its last line gets only the newest snapshot once it has.
  transport.backlog[1] = 100;
  add("claude:d");
  loop.advance(1);
  add("claude:e");
  loop.advance(1);
  EXPECT_EQ(lines(1).size(), 3u);
  transport.backlog[1] = 0;
  loop.advance(Subscribers::kSpacing);
  ASSERT_EQ(lines(1).size(), 4u);
  EXPECT_EQ(lines(1)[3]["sessions"].size(), 5u);

  // Reading nothing for too long ends the subscription; so does the peer leaving.
  r->received(2, subscribe);
  transport.backlog[1] = 100;
  add("claude:f");
  loop.advance(Subscribers::kSlowLimit + 1);
  EXPECT_THAT(transport.dropped, ElementsAre(1u));
  EXPECT_EQ(r->following(), 1u);
  r->ended(2);
  EXPECT_EQ(r->following(), 0u);

  // Subscribers are bounded; further lines on a subscribed connection are not answered.
  for (Router::ConnId c = 10; c < 10 + Subscribers::kMax; ++c) r->received(c, subscribe);
  r->received(99, subscribe);
  EXPECT_EQ(Json::parse(transport.finished[99])["ok"], false);
  r->received(10, "{\"_query\":\"state\"}\n");
  EXPECT_FALSE(transport.finished.count(10));
}

TEST_F(RouterTest, OnlyTheTunnelNamesAnotherMachine) {
  // From a tunnel: the session is the host's own, what the hook says of local processes is
  // dropped (but not of its tmux pane there), and commands are refused.
  r->opened(1, "devbox");
  r->received(1, R"({"session_id":"a","hook_event_name":"SessionStart","agentPid":1,)"
                 R"("_host":{"pid":1,"tty":"/dev/pts/0","tmux":"/tmp/t,9,0","tmuxPane":"%4"},)"
                 R"("transcript_path":"/etc/passwd"})"
                 "\n");
  const Session* remote = hub->find("claude@devbox:a");
  ASSERT_TRUE(remote);
  EXPECT_EQ(remote->machine, "devbox");
  EXPECT_FALSE(remote->agentPid || remote->hostPid || remote->tty || remote->transcript);
  EXPECT_EQ(remote->tmux + " " + remote->tmuxPane, "/tmp/t,9,0 %4");
  EXPECT_FALSE(hub->find("claude:a"));
  r->opened(2, "devbox");
  r->received(2, R"({"_command":{"type":"allow","id":"claude:a"}})"
                 "\n");
  EXPECT_THAT(transport.finished[2], ::testing::HasSubstr("not accepted"));

  // A local hook cannot pass itself off as one.
  r->opened(3);
  r->received(3, R"({"session_id":"b","hook_event_name":"SessionStart","_machine":"devbox"})"
                 "\n");
  EXPECT_TRUE(hub->find("claude:b"));
  EXPECT_FALSE(hub->find("claude@devbox:b"));
}
