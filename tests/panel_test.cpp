#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

#include "app/panel_controller.h"
#include "core/files.h"
#include "core/prefs.h"
#include "test_support.h"

namespace {

const Screen kMain{"0:DEL:U2720Q", "DP-1", {0, 0, 1920, 1080}, {0, 32, 1920, 1048}, true};
const Screen kSide{"1:LG:27UL", "HDMI-1", {1920, 0, 1280, 800}, {1920, 0, 1280, 800}, false};
const Rect kHomeStage{600, 0, 720, 640};

// A fake loop that also records the rate of every repeating timer.
struct PollLoop final : Loop {
  FakeLoop fake;
  std::vector<std::pair<double, double>> repeating;
  TaskId post(Task t) override { return fake.post(std::move(t)); }
  TaskId after(double s, Task t) override { return fake.after(s, std::move(t)); }
  TaskId every(double interval, double tolerance, Task t) override {
    repeating.emplace_back(interval, tolerance);
    return fake.every(interval, tolerance, std::move(t));
  }
  void cancel(TaskId id) override { fake.cancel(id); }
  WallTime wall() const override { return fake.wall(); }
  double uptime() const override { return fake.uptime(); }
  void advance(double seconds) { fake.advance(seconds); }
};

struct FakeWindow final : PanelWindow {
  std::vector<Screen> screenList{kMain, kSide};
  std::optional<Point> at{Point{100, 900}};  // nothing: no global pointer, as on Wayland
  bool button = false;
  Rect frameNow;
  std::vector<std::pair<Rect, bool>> frames;
  std::vector<std::vector<Rect>> regions;
  bool raised = false, visible = true, focused = false;

  std::vector<Screen> screens() const override { return screenList; }
  std::optional<Point> pointer() const override { return at; }
  bool primaryButtonDown() const override { return button; }
  void setFrame(const Rect& f, bool animate) override {
    frameNow = f;
    frames.emplace_back(f, animate);
  }
  Rect frame() const override { return frameNow; }
  void setInputRegion(const std::vector<Rect>& rects) override { regions.push_back(rects); }
  void setRaised(bool r) override { raised = r; }
  void setVisible(bool v) override { visible = v; }
  void takeFocus() override { focused = true; }
  void releaseFocus() override { focused = false; }
  bool hasFocus() const override { return focused; }
};

struct FakeDesktop final : Desktop {
  std::vector<std::string> copied;
  std::function<void()> menuClosed;
  void copyText(const std::string& text) override { copied.push_back(text); }
  void openUri(const std::string&) override {}
  void showMenu(std::function<void()> closed) override { menuClosed = std::move(closed); }
  void quit() override {}
  bool prefersDark() const override { return true; }
  std::vector<std::string> mechanisms() const override { return {"session: x11"}; }
};

struct FakeVoice final : Voice {
  bool on = false;
  int cancels = 0;
  void start() override { on = true; }
  void stop() override { on = false; }
  void cancel() override {
    on = false;
    ++cancels;
  }
  bool listening() const override { return on; }
};

class PanelTest : public ::testing::Test {
 protected:
  TempHome home;
  PollLoop loop;
  Defaults defaults{home.path() + "/.config/vantler/defaults.json"};
  Hub hub{loop, defaults, {}, HubOptions{home.path(), std::nullopt, false}};
  FakeWindow window;
  FakeDesktop desktop;
  std::shared_ptr<FakeVoice> fakeVoice = std::make_shared<FakeVoice>();
  std::shared_ptr<Voice> voice = fakeVoice;
  std::vector<std::pair<std::string, Json>> sent;
  std::unique_ptr<PanelController> panel;

  void start(bool arriving = false, PanelOptions options = {}) {
    panel = std::make_unique<PanelController>(
        loop, hub, defaults, window, desktop,
        [this](const std::string& name, Json payload) { sent.emplace_back(name, payload); },
        services(), options);
    panel->show(arriving);
  }
  PanelServices services(std::shared_ptr<HotKeys> keys = nullptr,
                         std::shared_ptr<Delivery> delivery = nullptr) {
    PanelServices out;
    out.voice = voice;
    out.hotKeys = std::move(keys);
    out.delivery = std::move(delivery);
    return out;
  }
  void pointAt(double x, double y) { window.at = Point{x, y}; }
  std::vector<Json> messages(const std::string& name) const {
    std::vector<Json> out;
    for (const auto& [n, payload] : sent)
      if (n == name) out.push_back(payload);
    return out;
  }
  // Opens a question on a new Claude session; returns what its hook receives.
  std::vector<std::string>& askColour(const std::string& key) {
    Session s = hub.session(key, Agent::claude, "");
    s.pending = Pending{"req-" + key, Pending::Questions{{{"H", "Which colour?", {}, false}}},
                        Json::object(), hub.now(), false};
    hub.store(s);
    auto& replies = hookReplies[key];
    hub.setResponder("req-" + key, [&replies](const std::string& r) { replies.push_back(r); });
    return replies;
  }
  std::map<std::string, std::vector<std::string>> hookReplies;
};

}  // namespace

TEST_F(PanelTest, DwellBeforeOpeningIsShortAtHomeAndLongerPlacedAway) {
  start();
  pointAt(960, 10);  // on the resting pill at the top centre
  panel->evaluateHover();
  loop.advance(0.03);
  EXPECT_FALSE(hub.isOpen());
  loop.advance(0.01);  // open the moment the dwell is over, not at the next poll
  EXPECT_TRUE(hub.isOpen());

  pointAt(100, 900);
  loop.advance(0.7);  // collapsed, and lowered once the collapse is over
  ASSERT_FALSE(hub.isOpen());
  EXPECT_FALSE(window.raised);

  Placement::save(defaults, kSide, 640, 300, "");
  panel->screensChanged();
  EXPECT_EQ(window.frameNow, (Rect{2200, 294, 720, 640}));
  pointAt(2560, 305);
  panel->evaluateHover();
  EXPECT_TRUE(window.raised);  // a placed panel takes the pointer as soon as it is in reach
  loop.advance(0.115);
  EXPECT_FALSE(hub.isOpen());
  loop.advance(0.005);
  panel->evaluateHover();
  EXPECT_TRUE(hub.isOpen());
}

TEST_F(PanelTest, PollRunsFastOnlyNearThePanel) {
  start();
  using Rate = std::pair<double, double>;
  EXPECT_EQ(loop.repeating.back(), (Rate{0.4, 0.15}));
  pointAt(200, 50);  // within 120 px of the screen top
  loop.advance(0.4);
  EXPECT_EQ(loop.repeating.back(), (Rate{0.03, 0.01}));
  size_t timers = loop.repeating.size();
  loop.advance(0.1);
  EXPECT_EQ(loop.repeating.size(), timers);  // an unchanged rate keeps its timer
  pointAt(200, 130);
  loop.advance(0.03);
  EXPECT_EQ(loop.repeating.back(), (Rate{0.4, 0.15}));
  EXPECT_EQ(loop.fake.pending(), 1u);  // the fast timer is gone
}

TEST_F(PanelTest, LeavingCollapsesAfterATenthUnlessThePointerComesBack) {
  start();
  panel->open();
  panel->evaluateHover();  // the pointer is far away
  loop.advance(0.09);
  EXPECT_TRUE(hub.isOpen());
  pointAt(960, 10);
  panel->evaluateHover();
  loop.advance(0.02);  // past the collapse that was due
  EXPECT_TRUE(hub.isOpen());
  loop.advance(0.5);
  EXPECT_TRUE(hub.isOpen());
  pointAt(100, 900);
  panel->evaluateHover();
  loop.advance(0.1);
  EXPECT_FALSE(hub.isOpen());
}

TEST_F(PanelTest, AnyHoldKeepsThePanelOpen) {
  start();
  for (const char* reason :
       {"keys", "typing", "talking", "menu", "tour", "setup", "copied", "debug", "settings"}) {
    SCOPED_TRACE(reason);
    panel->hold(reason, true);
    panel->open();
    loop.advance(1.0);
    EXPECT_TRUE(hub.isOpen());
    panel->close();
    EXPECT_TRUE(hub.isOpen());
    panel->hold(reason, false);
    loop.advance(0.2);
    EXPECT_FALSE(hub.isOpen());
  }
}

TEST_F(PanelTest, AttentionPeeksForSixSecondsAtHomeButOnlyRefreshesPlacedAway) {
  defaults.set("autoOpen", true);
  start();
  hub.onAttention();
  EXPECT_TRUE(hub.isOpen());
  loop.advance(5.9);
  EXPECT_TRUE(hub.isOpen());
  loop.advance(0.3);
  EXPECT_FALSE(hub.isOpen());

  Placement::save(defaults, kMain, 500, 500, "");
  sent.clear();
  hub.onAttention();
  EXPECT_FALSE(hub.isOpen());
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0].first, "state");
  EXPECT_TRUE(sent[0].second["geo"]["away"]);
}

TEST_F(PanelTest, SummonTwiceLeavesKeyboardMode) {
  start();
  panel->summon();
  EXPECT_TRUE(hub.isOpen());
  EXPECT_TRUE(window.focused);
  panel->summon();
  EXPECT_FALSE(panel->holds().count("keys"));
  EXPECT_FALSE(window.focused);
  panel->summon();
  panel->events().focusLost();  // a click elsewhere
  std::vector<Json> keys = messages("keys");
  ASSERT_EQ(keys.size(), 4u);
  EXPECT_EQ(keys[0]["on"], true);
  EXPECT_EQ(keys[1]["on"], false);
  EXPECT_EQ(keys[3]["on"], false);
}

TEST(PanelGeometry, DropReturnsHomeDocksAtEdgesAndClamps) {
  std::vector<Screen> screens{kMain, kSide};
  auto home = Geometry::homeScreen(screens);
  auto drop = [&](double x, double y) { return Geometry::drop({x, y}, screens, {}, home); };
  EXPECT_TRUE(drop(1020, 80).home);  // 100 px from the top centre
  EXPECT_FALSE(drop(1040, 80).home);
  EXPECT_FALSE(drop(2560, 10).home);  // the top centre of another screen is just a place

  Geometry::Drop d = drop(89, 500);
  EXPECT_EQ(d.edge, "left");
  EXPECT_EQ(d.cx, 89);
  EXPECT_EQ(d.top, 483);
  EXPECT_EQ(drop(90, 500).edge, "");
  EXPECT_EQ(drop(10, 500).cx, 30);
  d = drop(1915, 5);
  EXPECT_EQ(d.edge, "right");
  EXPECT_EQ(d.cx, 1890);
  EXPECT_EQ(d.top, 36);  // below the desktop's top bar
  EXPECT_EQ(drop(500, 1079).top, 1042);
  d = drop(2000, 400);
  EXPECT_EQ(d.screen->key, kSide.key);
  EXPECT_EQ(d.top, 383);                             // no top bar there: the 24 px minimum
  EXPECT_EQ(drop(-50, -50).screen->key, kMain.key);  // off every screen: the home screen
}

TEST(PanelGeometry, StageFollowsThePlacement) {
  using Placement::Placed;
  auto stage = [](Placed p) { return Geometry::stageRect(p, kMain); };
  EXPECT_EQ(Geometry::stageRect(std::nullopt, kMain), kHomeStage);
  EXPECT_EQ(stage({kSide, 100, 300, "right"}), (Rect{2480, 294, 720, 640}));
  EXPECT_EQ(stage({kSide, 100, 300, ""}).x, 1920);  // clamped to the screen
  Placed low{kSide, 640, 500, ""};
  EXPECT_EQ(Geometry::anchor(low), "bottom");
  EXPECT_EQ(stage(low), (Rect{2200, -100, 720, 640}));  // grows upwards from 540
  Placed clamped{kMain, 30, 300, ""};
  EXPECT_EQ(Geometry::dx(clamped, stage(clamped)), -330);
  EXPECT_EQ(Geometry::shape(false, "auto", 0), "pill");
  EXPECT_EQ(Geometry::shape(false, "auto", 180), "notch");
  EXPECT_EQ(Geometry::shape(true, "notch", 180), "pill");
}

TEST_F(PanelTest, DropsAreRememberedPerScreenAndIgnoredWhileTheScreenIsGone) {
  start();
  auto drag = [&](Point to) {
    window.button = true;
    panel->handle({{"type", "dragStart"}});
    pointAt(to.x, to.y);
    loop.advance(0.4);
    window.button = false;
    panel->events().buttonReleased();
  };
  pointAt(960, 10);
  drag({2300, 400});
  EXPECT_EQ(window.frames[window.frames.size() - 2].first, (Rect{1940, 377, 720, 640}));
  EXPECT_EQ(window.frames.back(), (std::pair{Rect{1940, 377, 720, 640}, true}));
  EXPECT_FALSE(panel->dragging());
  EXPECT_EQ(sent.back().second["geo"]["away"], true);

  window.screenList = {kMain};
  panel->events().screensChanged();
  EXPECT_EQ(window.frameNow, kHomeStage);
  window.screenList = {kMain, kSide};
  panel->events().screensChanged();
  EXPECT_EQ(window.frameNow.x, 1940);

  drag({89, 500});
  EXPECT_EQ(window.frameNow, (Rect{0, 477, 720, 640}));
  EXPECT_EQ(sent.back().second["geo"]["edge"], "left");
  drag({970, 40});
  EXPECT_EQ(window.frameNow, kHomeStage);
  EXPECT_FALSE(panel->placedAway());
}

TEST_F(PanelTest, AtRestThePanelGoesToThePointersScreenUnlessADisplayIsChosen) {
  start();
  const Rect sideStage{2200, 0, 720, 640};
  pointAt(2500, 600);
  loop.advance(0.4);  // the slow poll
  EXPECT_EQ(window.frameNow, sideStage);
  pointAt(1920, 300);  // the edge both screens share
  loop.advance(0.4);
  EXPECT_EQ(window.frameNow, sideStage);

  panel->handle({{"type", "setting"}, {"key", "screen"}, {"value", kMain.key}});
  EXPECT_EQ(window.frameNow, kHomeStage);
  EXPECT_EQ(sent.back().second["screens"][1], (Json{{"key", kSide.key}, {"name", "HDMI-1"}}));
  pointAt(2500, 600);
  loop.advance(0.4);
  EXPECT_EQ(window.frameNow, kHomeStage);
}

TEST_F(PanelTest, WithoutAGlobalPointerHoverComesFromTheWindowsEvents) {
  window.at.reset();
  start();
  // The hover zone around the resting pill takes input, or the window would never hear of it.
  ASSERT_EQ(window.regions.back().size(), 2u);
  EXPECT_EQ(window.regions.back()[1], (Rect{284, 0, 152, 37}));
  PanelEvents events = panel->events();
  events.pointer(Point{360, 10});
  loop.advance(0.03);
  EXPECT_FALSE(hub.isOpen());
  loop.advance(0.01);
  events.pointer(Point{361, 10});
  EXPECT_TRUE(hub.isOpen());
  loop.advance(0.03);
  EXPECT_EQ(messages("pointer").back(), (Json{{"x", 361}, {"y", 10}}));
  EXPECT_EQ(window.regions.back()[1], (Rect{288, 0, 144, 45}));  // the open zone
  events.pointer(std::nullopt);
  loop.advance(0.1);
  EXPECT_FALSE(hub.isOpen());
}

TEST_F(PanelTest, OverAFullScreenWindowTheRestingPanelHidesUntilNeeded) {
  start();
  window.screenList[0].fullscreen = true;
  loop.advance(0.4);
  EXPECT_FALSE(window.visible);
  pointAt(960, 10);
  loop.advance(0.9);
  EXPECT_FALSE(hub.isOpen());

  pointAt(100, 900);
  auto& replies = askColour("claude:a");
  loop.advance(0);
  EXPECT_TRUE(window.visible);
  panel->handle({{"type", "answer"}, {"id", "claude:a"}, {"answers", {"Red"}}});
  ASSERT_EQ(replies.size(), 1u);
  loop.advance(0.4);
  EXPECT_FALSE(window.visible);
  panel->hold("tour", true);
  EXPECT_TRUE(window.visible);
}

TEST_F(PanelTest, AnswersOnlyCountAsAnArrayOfStrings) {
  start();
  const std::pair<Json, std::string> cases[] = {
      {Json::array({"Red"}), R"("answers":{"Which colour?":"Red"})"},
      {Json("Red"), R"("answers":{})"},
      {Json::array({"Red", 3}), R"("answers":{})"},
  };
  int n = 0;
  for (const auto& [answers, expected] : cases) {
    std::string key = "claude:" + std::to_string(++n);
    auto& replies = askColour(key);
    panel->handle({{"type", "answer"}, {"id", key}, {"answers", answers}});
    ASSERT_EQ(replies.size(), 1u) << answers;
    EXPECT_NE(replies[0].find(expected), std::string::npos) << replies[0];
  }
}

TEST_F(PanelTest, CommandsFromThePage) {
  start(true);
  panel->handle({{"type", "ready"}});
  EXPECT_EQ(messages("hello").size(), 1u);
  sent.clear();
  panel->handle({{"type", "ready"}});  // a reloaded page gets the unchanged state again
  EXPECT_TRUE(messages("hello").empty());
  EXPECT_EQ(messages("state").size(), 1u);
  panel->push();  // nothing changed since: nothing sent
  EXPECT_EQ(messages("state").size(), 1u);

  sent.clear();
  panel->handle({{"type", "setting"}, {"value", true}});  // no key: nothing
  EXPECT_TRUE(sent.empty());
  panel->handle({{"type", "setting"}, {"key", "autoOpen"}, {"value", true}});
  EXPECT_TRUE(Prefs::autoOpen(defaults));
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0].second["settings"]["autoOpen"], true);

  // A facility that starts working reaches the settings at once; the Alt gesture's readiness
  // is also the setting's own "optionTapReady".
  Capabilities working = panel->capabilities();
  working.altTap.ready = true;
  panel->setCapabilities(working);
  EXPECT_EQ(sent.back().second["capabilities"]["altTap"], (Json{{"ready", true}, {"reason", ""}}));
  EXPECT_EQ(sent.back().second["settings"]["optionTapReady"], true);
  sent.clear();

  panel->handle({{"type", "menu"}});
  EXPECT_TRUE(panel->holds().count("menu"));
  desktop.menuClosed();
  EXPECT_FALSE(panel->holds().count("menu"));

  panel->summon();
  panel->toggleTalk();
  panel->hold("tour", true);
  sent.clear();
  panel->handle({{"type", "hide"}});
  EXPECT_EQ(fakeVoice->cancels, 1);
  EXPECT_EQ(messages("talk"), (std::vector<Json>{{{"state", "off"}, {"text", ""}}}));
  EXPECT_EQ(messages("keys"), (std::vector<Json>{{{"on", false}}}));
  EXPECT_TRUE(panel->holds().empty());
  EXPECT_FALSE(hub.isOpen());
}

TEST_F(PanelTest, TalkWithoutSpeechRecognitionShowsTheError) {
  voice = nullptr;
  start();
  panel->handle({{"type", "talk"}});
  EXPECT_EQ(messages("talk").back(),
            (Json{{"state", "error"}, {"text", "Speech recognition isn't available right now."}}));
  EXPECT_FALSE(panel->holds().count("talking"));
  EXPECT_TRUE(hub.isOpen());
}

TEST_F(PanelTest, HotKeysPauseWhileRecordingAndReloadOnEveryChange) {
  struct Keys final : HotKeys {
    std::string calls;
    void pause() override { calls += "pause "; }
    void reload() override { calls += "reload "; }
    void restartTap() override { calls += "tap "; }
  };
  auto keys = std::make_shared<Keys>();
  panel = std::make_unique<PanelController>(
      loop, hub, defaults, window, desktop, [](const std::string&, Json) {}, services(keys));
  panel->show(false);
  panel->handle({{"type", "recordingKey"}, {"on", true}});
  HotKey::Combo combo{HotKey::code("KeyK").value(), HotKey::kControl | HotKey::kShift};
  panel->handle({{"type", "setting"}, {"key", "openKey"}, {"value", combo.packed()}});
  panel->handle({{"type", "recordingKey"}, {"on", false}});
  panel->handle({{"type", "setting"}, {"key", "hideAfter"}, {"value", 30}});
  panel->handle({{"type", "optionTapChanged"}});
  EXPECT_EQ(keys->calls, "pause reload reload tap ");
  EXPECT_EQ(Prefs::comboOrDefault(defaults, HotKey::Action::open), combo);
  // Pressed keys reach the panel through the port.
  keys->onOpen();
  EXPECT_TRUE(hub.isOpen());
  EXPECT_TRUE(panel->holds().count("keys"));
}

// The clipboard and the focus as the delivery of dictated text sees them.
struct FakeTyping final : Delivery::Clipboard, Delivery::Desktop {
  std::string clipboard = "the user's clip";
  std::string saved;
  Delivery::Target target = Delivery::Target::none;
  std::vector<std::string> typed;  // what was on the clipboard at each keystroke, by target
  void save(std::function<void()> done) override {
    saved = clipboard;
    done();
  }
  void setText(const std::string& text) override { clipboard = text; }
  void restore() override { clipboard = saved; }
  Delivery::Target focus() override { return target; }
  void typePaste(Delivery::Target t, const std::string&, std::function<void(bool)> done) override {
    typed.push_back((t == Delivery::Target::terminal ? "terminal:" : "field:") + clipboard);
    done(true);
  }
};

TEST_F(PanelTest, FinalDictationGoesToAReplyWindowTheFocusedFieldOrTheClipboard) {
  FakeTyping typing;
  auto delivery = std::make_shared<Delivery>(loop, typing, typing);
  panel = std::make_unique<PanelController>(
      loop, hub, defaults, window, desktop,
      [this](const std::string& name, Json payload) { sent.emplace_back(name, payload); },
      services(nullptr, delivery));
  panel->show(false);
  auto say = [&](const std::string& text) {
    panel->toggleTalk();
    panel->toggleTalk();
    fakeVoice->onUpdate(text, true, 0);
  };
  // A reply window takes it in the page.
  Session r = hub.session("claude:r", Agent::claude, "");
  r.pending =
      Pending{"req-r", Pending::Reply{"Done.", hub.now() + 60}, Json::object(), hub.now(), false};
  hub.store(r);
  say("make it blue");
  EXPECT_EQ(messages("talk").back()["state"], "done");
  hub.release("claude:r");

  // A question cannot take free text: with nothing focused it goes to the clipboard.
  askColour("claude:a");
  say("");  // nothing said: just closes
  EXPECT_FALSE(hub.isOpen());
  say("hello there");
  loop.advance(0.15);
  EXPECT_EQ(desktop.copied, std::vector<std::string>{"hello there"});
  EXPECT_EQ(messages("talk").back()["state"], "copied");
  EXPECT_TRUE(hub.isOpen());
  loop.advance(3.5);
  EXPECT_EQ(messages("talk").back()["state"], "off");

  // A focused field gets it pasted, and the clipboard its old contents back 0.6 s later; a
  // second paste within that time does not take the first dictation for the user's clip.
  typing.target = Delivery::Target::field;
  say("first");
  loop.advance(0.15);
  typing.target = Delivery::Target::terminal;
  say("second");
  loop.advance(0.15);
  EXPECT_EQ(typing.typed, (std::vector<std::string>{"field:first", "terminal:second"}));
  loop.advance(0.5);
  EXPECT_EQ(typing.clipboard, "second");
  loop.advance(0.15);
  EXPECT_EQ(typing.clipboard, "the user's clip");
  EXPECT_EQ(desktop.copied.size(), 1u);
}

TEST_F(PanelTest, DiagnosticsAndTheTraceLog) {
  std::string osRelease = home.path() + "/os-release";
  std::ofstream(osRelease) << "NAME=Debian\nPRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\n";
  PanelOptions options;
  options.osRelease = osRelease;
  options.trace = true;
  start(false, options);
  panel->handle({{"type", "copyDiagnostics"}});
  ASSERT_EQ(desktop.copied.size(), 1u);
  const std::string& text = desktop.copied[0];
  EXPECT_NE(text.find("\nLinux Debian GNU/Linux 12 (bookworm)\n"), std::string::npos) << text;
  EXPECT_NE(text.find("\nsession: x11\n"), std::string::npos) << text;

  loop.advance(1.5);
  panel->handle({{"type", "rect"}, {"x", 300}, {"y", 6}, {"w", 12}, {"h", 34}});
  panel->handle({{"type", "log"}, {"msg", "hi"}});
  panel->push();
  EXPECT_EQ(sent.back().second["trace"], true);
  EXPECT_EQ(Files::read(home.path() + "/.vantler/hover.log"),
            "1001.500 RECT 300 6 40 34\n1001.500 PAGE hi\n");
}

TEST_F(PanelTest, TheMenuFollowsTheSessionsAndItsActionsReachThem) {
  start();
  askColour("claude:a");
  Session finished = hub.session("claude:b", Agent::claude, "");
  finished.mood = Mood::done;
  hub.store(finished);
  auto titles = [this] {
    std::vector<std::string> out;
    for (const MenuItem& i : panel->menu()) out.push_back(i.title);
    return out;
  };
  auto has = [&](const std::string& title) {
    auto t = titles();
    return std::find(t.begin(), t.end(), title) != t.end();
  };
  EXPECT_EQ(titles()[1], "2 sessions · 1 needs you");
  EXPECT_TRUE(has("Clear Finished"));
  EXPECT_FALSE(has("Move Back to the Top"));
  panel->menuChosen(AppMenu::Action::clear);
  EXPECT_EQ(titles()[1], "1 session · 1 needs you");
  EXPECT_FALSE(has("Clear Finished"));

  Placement::save(defaults, kSide, 640, 300, "");
  EXPECT_TRUE(has("Move Back to the Top"));
  panel->menuChosen(AppMenu::Action::home);
  EXPECT_FALSE(has("Move Back to the Top"));
  EXPECT_EQ(window.frameNow, kHomeStage);

  panel->menuChosen(AppMenu::Action::tour);
  EXPECT_TRUE(hub.isOpen());
  EXPECT_EQ(messages("tour").size(), 1u);
}
