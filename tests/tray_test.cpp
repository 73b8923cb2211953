// The application menu's rules, the update checks' schedule and feed, and the notifications
// that answer requests.

#include <gtest/gtest.h>

#include "app/panel_menu.h"
#include "app/panel_notices.h"
#include "app/panel_updates.h"
#include "core/prefs.h"
#include "test_support.h"

namespace {

std::vector<std::string> titles(const std::vector<MenuItem>& items) {
  std::vector<std::string> out;
  for (const MenuItem& i : items)
    out.push_back(i.kind == MenuItem::Kind::separator ? "-" : i.title);
  return out;
}

}  // namespace

TEST(AppMenu, ItemsFollowTheFacts) {
  EXPECT_EQ(AppMenu::summary(0, 2), "No sessions right now");
  EXPECT_EQ(AppMenu::summary(2, 2), "2 sessions · 2 need you");
  MenuFacts all{"0.1.0", 2, 1, true, true, true, true, true, "0.2.0", {"devbox: up since 16:02"}};
  std::vector<MenuItem> items = AppMenu::build(all);
  EXPECT_EQ(titles(items), (std::vector<std::string>{"Vantler 0.1.0",
                                                     "2 sessions · 1 needs you",
                                                     "Vantler 0.2.0 Is Available…",
                                                     "-",
                                                     "Open Vantler",
                                                     "Settings…",
                                                     "Move Back to the Top",
                                                     "Clear Finished",
                                                     "-",
                                                     "Disconnect Claude Code",
                                                     "Disconnect Cursor",
                                                     "-",
                                                     "Remote Hosts",
                                                     "    devbox: up since 16:02",
                                                     "Manage Remote Hosts…",
                                                     "-",
                                                     "Show Walkthrough",
                                                     "Check for Updates…",
                                                     "-",
                                                     "Quit Vantler"}));
  // Labels only inform; every other title does something.
  for (const MenuItem& i : items)
    EXPECT_EQ(i.kind == MenuItem::Kind::action, !i.action.empty()) << i.title;
  EXPECT_EQ(items[0].kind, MenuItem::Kind::label);
  EXPECT_EQ(items[1].kind, MenuItem::Kind::label);
}

TEST(UpdateFeed, VersionsCompareByTheirParts) {
  const std::tuple<const char*, const char*, int> cases[] = {
      {"1.10", "1.9", 1},          {"0.2.0", "0.1.9", 1},
      {"1.0", "1.0.0", 0},         {"1.0b2", "1.0", -1},
      {"1.0b2", "1.0b10", -1},     {"1.0.1", "1.0b1", 1},
      {"v2", "1.99", 1},           {"007", "7", 0},
      {"1.0-rc1", "1.0-beta3", 1}, {"99999999999999999999", "1", 1},
  };
  for (auto [a, b, expected] : cases) {
    EXPECT_EQ(UpdateFeed::compareVersions(a, b), expected) << a << " vs " << b;
    EXPECT_EQ(UpdateFeed::compareVersions(b, a), -expected) << b << " vs " << a;
  }
}

TEST(UpdateFeed, TheNewestItemOfAnAppcastWithItsLink) {
  const char* appcast = R"(<?xml version="1.0" encoding="utf-8"?>
<rss version="2.0" xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle">
 <channel><title>Vantler</title><link>https://example.org/channel</link>
  <item><title>0.3.0</title><sparkle:shortVersionString>0.3.0</sparkle:shortVersionString>
   <link>https://example.org/0.3.0</link><description><![CDATA[<b>new</b> & better]]></description></item>
  <item><title>0.10.0</title>
   <enclosure url="https://example.org/vantler-0.10.0.deb" sparkle:version="0.10.0" length="1"/></item>
  <item><title>0.4.0</title><sparkle:version>0.4.0</sparkle:version><link>file:///etc/passwd</link></item>
 </channel></rss>)";
  auto release = UpdateFeed::newest(appcast);
  ASSERT_TRUE(release);
  EXPECT_EQ(release->version, "0.10.0");
  EXPECT_EQ(release->link, "https://example.org/vantler-0.10.0.deb");

  // Only http(s) links are kept; the channel's own link is not an item's.
  std::string local = appcast;
  local.erase(local.find("  <item><title>0.10.0"),
              local.find("  <item><title>0.4.0") - local.find("  <item><title>0.10.0"));
  release = UpdateFeed::newest(local);
  ASSERT_TRUE(release);
  EXPECT_EQ(release->version, "0.4.0");
  EXPECT_EQ(release->link, "");

  for (const char* bad :
       {"", "<rss><channel></channel></rss>", "<rss><item><title>x</title>", "not xml at all",
        "<rss><item><sparkle:version>...</sparkle:version>"
        "</item></rss>"})
    EXPECT_FALSE(UpdateFeed::newest(bad)) << bad;
}

namespace {

struct FakeFetcher final : FeedFetcher {
  std::vector<std::string> urls;
  std::function<void(Result)> pending;
  void fetch(const std::string& url, std::function<void(Result)> done) override {
    urls.push_back(url);
    pending = std::move(done);
  }
  void answer(Result r) { std::exchange(pending, nullptr)(std::move(r)); }
};

std::string appcastOf(const std::string& version) {
  return "<rss><channel><item><sparkle:version>" + version +
         "</sparkle:version><link>https://example.org/" + version +
         "</link></item></channel></rss>";
}

}  // namespace

TEST(Updater, ChecksADayApartAndNeverWhileARequestWaits) {
  TempHome home;
  FakeLoop loop;
  Defaults defaults{home.path() + "/defaults.json"};
  FakeFetcher fetcher;
  bool busy = false;
  int changes = 0;
  auto updater = std::make_unique<Updater>(loop, defaults, fetcher, "https://feed", "0.1.0");
  updater->busy = [&] { return busy; };
  updater->changed = [&] { ++changes; };
  updater->start();

  loop.advance(Updater::kFirstDelay - 1);
  EXPECT_TRUE(fetcher.urls.empty());
  busy = true;  // a request waits when the check is due: put off a minute at a time
  loop.advance(1);
  EXPECT_EQ(updater->status()["state"], "waiting");
  loop.advance(Updater::kBusyRetry * 3);
  EXPECT_TRUE(fetcher.urls.empty());
  busy = false;
  loop.advance(Updater::kBusyRetry);
  ASSERT_EQ(fetcher.urls, std::vector<std::string>{"https://feed"});
  updater->checkNow();  // one request at a time
  EXPECT_EQ(fetcher.urls.size(), 1u);
  fetcher.answer({true, appcastOf("0.2.0"), ""});
  EXPECT_EQ(updater->status(), (Json{{"state", "newer"},
                                     {"version", "0.2.0"},
                                     {"link", "https://example.org/0.2.0"},
                                     {"error", ""}}));
  EXPECT_EQ(updater->newerVersion(), "0.2.0");

  // The next check comes a day later, also after a restart; a manual one comes at once.
  loop.advance(Updater::kDay - 1);
  updater = std::make_unique<Updater>(loop, defaults, fetcher, "https://feed", "0.1.0");
  updater->start();
  loop.advance(Updater::kFirstDelay - 1);
  EXPECT_EQ(fetcher.urls.size(), 1u);
  updater->checkNow();
  ASSERT_EQ(fetcher.urls.size(), 2u);
  fetcher.answer({true, appcastOf("0.1.0"), ""});
  EXPECT_EQ(updater->status()["state"], "current");
  EXPECT_EQ(updater->newerVersion(), "");

  // A build without a feed never fetches.
  updater.reset();
  Updater off(loop, defaults, fetcher, "", "0.1.0");
  off.start();
  off.checkNow();
  loop.advance(Updater::kDay * 2);
  EXPECT_EQ(off.status()["state"], "off");
  EXPECT_EQ(fetcher.urls.size(), 2u);
}

namespace {

struct FakeNoticeServer final : NoticeServer {
  bool actions = true;
  std::map<std::string, Notice> open;
  std::vector<std::string> withdrawn;
  bool hasActions() const override { return actions; }
  void show(const std::string& key, const Notice& n) override { open[key] = n; }
  void withdraw(const std::string& key) override {
    withdrawn.push_back(key);
    open.erase(key);
  }
};

std::vector<std::string> labels(const NoticeServer::Notice& n) {
  std::vector<std::string> out;
  for (const auto& [key, label] : n.actions) out.push_back(label);
  return out;
}

class NoticesTest : public HubTest {
 protected:
  FakeNoticeServer server;
  bool unseen = true;
  int panelOpened = 0;
  std::unique_ptr<AnswerNotices> notices;

  void SetUp() override {
    HubTest::SetUp();
    notices = std::make_unique<AnswerNotices>(
        *hub, defaults, server, [this] { return unseen; }, [this] { ++panelOpened; });
    defaults.set("notifyAnswers", true);
  }
  Pending::Permission permission(std::string always = "") {
    Pending::Permission p{"Wants to run", "rm -rf build", "Bash"};
    p.always = std::move(always);
    if (!p.always.empty()) p.rule = Json{{"type", "addRules"}};
    return p;
  }
};

}  // namespace

TEST_F(NoticesTest, AnActionAnswersTheRequestItWasSentFor) {
  add("claude:a");
  auto& replies = request("claude:a", permission("Always allow rm in build"));
  notices->update();
  ASSERT_EQ(server.open.size(), 1u);
  auto [key, notice] = *server.open.begin();
  EXPECT_EQ(labels(notice),
            (std::vector<std::string>{"Allow", "Deny", "Always allow", "Open Vantler"}));
  EXPECT_EQ(notice.body, "Wants to run\nrm -rf build");
  notices->update();  // once per request
  EXPECT_EQ(server.open.size(), 1u);

  server.onAction(key, "always");
  ASSERT_EQ(replies.size(), 1u);
  EXPECT_NE(replies[0].find(R"("behavior":"allow")"), std::string::npos) << replies[0];
  EXPECT_NE(replies[0].find("addRules"), std::string::npos) << replies[0];
  EXPECT_TRUE(server.open.empty());

  // A button of a request settled meanwhile does not answer the next one.
  auto& second = request("claude:a", permission());
  notices->update();
  std::string old = server.open.begin()->first;
  hub->decide("claude:a", "deny");
  auto& third = request("claude:a", permission());
  server.onAction(old, "allow");
  EXPECT_EQ(second.size(), 1u);
  EXPECT_TRUE(third.empty());
  notices->update();
  EXPECT_EQ(server.open.size(), 1u);
  EXPECT_NE(server.open.begin()->first, old);
}

TEST_F(NoticesTest, OnlyForUnseenRequestsWithdrawnWhenSettledElsewhere) {
  add("claude:a");
  add("claude:b");
  unseen = false;
  request("claude:a", permission());
  notices->update();
  EXPECT_TRUE(server.open.empty());
  hub->decide("claude:a", "allow");

  unseen = true;
  request("claude:b", Pending::Questions{{{"H", "Which size?", {}, false}}});
  notices->update();
  ASSERT_EQ(server.open.size(), 1u);
  hub->answer("claude:b", {"Large"});  // answered in the panel or from the command line
  notices->update();
  EXPECT_TRUE(server.open.empty());

  request("claude:b", Pending::Questions{{{"H", "Which size?", {}, false}}});
  notices->update();
  defaults.set("notifyAnswers", false);  // turned off: all go
  notices->update();
  EXPECT_TRUE(server.open.empty());
}
