// Line framing and routing, without sockets.

#include <gmock/gmock.h>

#include "bridge/router.h"
#include "test_support.h"

namespace {
struct FakeTransport : Router::Transport {
  std::map<Router::ConnId, std::string> finished;
  std::vector<Router::ConnId> dropped;
  void finish(Router::ConnId conn, std::string bytes) override { finished[conn] = bytes; }
  void drop(Router::ConnId conn) override { dropped.push_back(conn); }
};
const char* kStart = R"({"session_id":"a","hook_event_name":"SessionStart"})";
const char* kPrompt = R"({"session_id":"a","hook_event_name":"UserPromptSubmit","prompt":"go"})";
const char* kAsk =
    R"({"_agent":"claude","session_id":"b","hook_event_name":"PermissionRequest","tool_name":"Bash","tool_use_id":"t1"})";
}  // namespace

class RouterTest : public HubTest {
 protected:
  FakeTransport transport;
  std::unique_ptr<Router> owned;
  Router* r = nullptr;
  void SetUp() override {
    HubTest::SetUp();
    owned = std::make_unique<Router>(*hub, transport);
    r = owned.get();
  }
};

TEST_F(RouterTest, FramesLinesAcrossReadsAndDropsBadOnes) {
  r->opened(1);
  // Two objects and half of a third in one read: the first event answers and ends the
  // connection, so the rest is not routed.
  r->received(1, std::string("not json\n[1]\n") + kStart + "\n" + kPrompt + "\n{\"sess");
  EXPECT_EQ(transport.finished[1], "\n");
  EXPECT_EQ(hub->find("claude:a")->mood, Mood::idle);

  r->opened(2);
  std::string ask = std::string(kAsk) + "\n";
  r->received(2, ask.substr(0, 10));
  EXPECT_FALSE(hub->find("claude:b"));
  r->received(2, ask.substr(10));
  EXPECT_EQ(r->holding(), 1u);
  EXPECT_FALSE(transport.finished.count(2));
  r->ended(2);
  r->ended(2);
  EXPECT_FALSE(hub->find("claude:b")->pending);  // withdrawn once, by the hook going away
  EXPECT_EQ(r->connections(), 1u);
}

TEST_F(RouterTest, StateQueriesCommandsAndRunawayLines) {
  r->received(3, "{\"_query\":\"state\"}\n");
  Json state = Json::parse(transport.finished[3]);
  EXPECT_TRUE(state.contains("sessions"));
  EXPECT_NE(transport.finished[3].find("\n  \""), std::string::npos);  // pretty-printed

  r->received(4,
              "{\"_command\":{\"type\":\"allow\",\"id\":\"x\"},\"session_id\":\"c\",\"hook_"
              "event_name\":\"Stop\"}\n");
  EXPECT_EQ(Json::parse(transport.finished[4])["ok"], false);  // not routed as an event
  EXPECT_FALSE(hub->find("claude:c"));

  std::string chunk(1 << 20, 'x');
  for (size_t sent = 0; sent <= Router::kMaxLine; sent += chunk.size()) r->received(5, chunk);
  EXPECT_THAT(transport.dropped, ::testing::ElementsAre(5u));
}
