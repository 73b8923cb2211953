// The loop implementations, the defaults store, preferences and hot-key labels.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "core/files.h"
#include "core/hot_key.h"
#include "core/json_writer.h"
#include "core/linux_glib_loop.h"
#include "core/prefs.h"
#include "test_support.h"

TEST(FakeLoop, RunsDueTasksInTimeThenScheduleOrder) {
  FakeLoop loop;
  std::vector<std::string> log;
  loop.after(2, [&] { log.push_back("after2"); });
  auto every = loop.every(1, 0.3, [&] { log.push_back("tick"); });
  loop.post([&] {
    log.push_back("post");
    loop.post([&] { log.push_back("nested"); });
  });
  auto cancelled = loop.after(0.5, [&] { log.push_back("cancelled"); });
  loop.cancel(cancelled);
  loop.turn();
  EXPECT_EQ(log, (std::vector<std::string>{"post", "nested"}));
  double start = loop.wall();
  loop.advance(2.5);
  EXPECT_EQ(log, (std::vector<std::string>{"post", "nested", "tick", "after2", "tick"}));
  EXPECT_DOUBLE_EQ(loop.wall() - start, 2.5);
  loop.cancel(every);
  loop.advance(5);
  EXPECT_EQ(log.size(), 5u);
  EXPECT_EQ(loop.pending(), 0u);
}

TEST(GLibLoop, PostAfterEveryAndCancelOnTheRealClock) {
  GMainContext* context = g_main_context_new();
  {
    GLibLoop loop(context);
    std::vector<std::string> log;
    int ticks = 0;
    Loop::TaskId every = 0;
    every = loop.every(0.01, 0, [&] {
      if (++ticks == 3) loop.cancel(every);  // a repeating task may cancel itself
    });
    auto dropped = loop.after(0.02, [&] { log.push_back("dropped"); });
    loop.cancel(dropped);
    loop.post([&] { log.push_back("post"); });
    loop.after(0.08, [&] {
      log.push_back("after");
      loop.quit();
    });
    double t0 = loop.uptime();
    loop.run();
    EXPECT_EQ(log, (std::vector<std::string>{"post", "after"}));
    EXPECT_EQ(ticks, 3);
    EXPECT_GE(loop.uptime() - t0, 0.07);
    EXPECT_NEAR(loop.wall(), static_cast<double>(time(nullptr)), 2.0);
    loop.after(10, [] {});  // pending at destruction: released without running
  }
  g_main_context_unref(context);
}

TEST(Files, AtomicWriteKeepsModeAndLeavesNoTemporaries) {
  TempHome home;
  std::string path = home.path() + "/a/b/settings.json";
  ASSERT_FALSE(Files::writeAtomic(path, "one", 0600));
  ASSERT_EQ(::chmod(path.c_str(), 0640), 0);
  ASSERT_FALSE(Files::writeAtomic(path, "two"));
  EXPECT_EQ(Files::read(path), "two");
  struct stat st;
  ASSERT_EQ(::stat(path.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0640u);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(home.path() + "/a/b"), {}), 1);
  EXPECT_TRUE(Files::writeAtomic("/proc/forbidden/x", "y").has_value());
}

TEST(Defaults, CorruptOrMissingFileReadsEmptyAndWritesBack) {
  TempHome home;
  {
    Defaults missing;
    EXPECT_FALSE(missing.has("x"));
  }
  Files::makeDirs(home.path() + "/.config/vantler");
  const std::string deep = "{\"x\":" + std::string(200, '[') + std::string(200, ']') + "}";
  for (const std::string& bad : {std::string("{not json"), std::string("[1,2]"),
                                 std::string("\"str\""), std::string(), deep}) {
    std::ofstream(Defaults::defaultPath()) << bad;
    Defaults d;
    EXPECT_FALSE(d.has("x")) << bad;
  }
  Defaults d;
  d.set("replyWindow", 30);
  d.set("name", "x");
  d.remove("name");
  d.set("gone", nullptr);
  Defaults again;
  EXPECT_EQ(again.integer("replyWindow"), 30);
  EXPECT_FALSE(again.has("name") || again.has("gone"));
}

// Outside text nested deeper than the bound is refused before parsing, so that no recursive walk
// of a parsed value can run out of stack; brackets inside strings do not count.
TEST(JsonField, ParseRefusesTextNestedTooDeeply) {
  auto nested = [](size_t depth, const std::string& inner) {
    return std::string(depth, '[') + inner + std::string(depth, ']');
  };
  EXPECT_TRUE(JsonField::parse(nested(JsonField::kMaxDepth, "1")).is_array());
  EXPECT_TRUE(JsonField::parse(nested(JsonField::kMaxDepth + 1, "1")).is_discarded());
  EXPECT_TRUE(JsonField::parse(nested(1'000'000, "")).is_discarded());
  EXPECT_TRUE(
      JsonField::parse("{\"a\":{\"b\":" + nested(JsonField::kMaxDepth, "1") + "}}").is_discarded());
  const std::string brackets = R"("[[{{ \" [[")";
  EXPECT_TRUE(JsonField::parse(nested(JsonField::kMaxDepth, brackets)).is_array());
  EXPECT_TRUE(JsonField::parseBounded("[[1]]", 1).is_discarded());
}

TEST(Prefs, ValuesOfTheWrongTypeReadAsTheDefault) {
  TempHome home;
  Defaults d;
  EXPECT_EQ(Prefs::resolvedTheme(d, true), "dark");
  d.set("hideAfter", "30");
  d.set("autoUpdate", 0);
  d.set("shape", "hexagon");
  d.set("theme", "light");
  d.set("replyWindow", 22.9);
  EXPECT_EQ(Prefs::hideAfter(d), 120);
  EXPECT_TRUE(Prefs::autoUpdate(d));
  EXPECT_EQ(Prefs::shape(d), "auto");
  EXPECT_EQ(Prefs::resolvedTheme(d, true), "light");
  EXPECT_EQ(Prefs::replyWindow(d), 22);
}

TEST(Prefs, SetValidatesAndAppliesSideEffects) {
  TempHome home;
  Defaults d;
  EXPECT_FALSE(Prefs::set(d, "replyWindow", 0));
  EXPECT_EQ(Prefs::replyWindow(d), 0);
  EXPECT_TRUE(Prefs::set(d, "replyWindow", "ten"));
  EXPECT_TRUE(Prefs::set(d, "autoOpen", "yes"));
  EXPECT_TRUE(Prefs::set(d, "nonsense", true));
  EXPECT_FALSE(Prefs::set(d, "glass", true));
  EXPECT_FALSE(Prefs::set(d, "glass", nullptr));  // no value removes the key
  EXPECT_FALSE(d.has("glass"));

  EXPECT_FALSE(
      Prefs::set(d, "openKey", {{"code", 49}, {"mods", HotKey::kCommand | HotKey::kShift}}));
  EXPECT_EQ(Prefs::json(d)["openKey"]["label"], "Shift+Super+Space");
  EXPECT_EQ(Prefs::json(d)["talkKey"]["label"], "Ctrl+Alt+Space");
  EXPECT_TRUE(Prefs::set(d, "talkKey", "ctrl+t"));

  EXPECT_FALSE(Prefs::openAtLogin());
  EXPECT_FALSE(Prefs::set(d, "openAtLogin", true));
  EXPECT_TRUE(Prefs::openAtLogin());
  EXPECT_NE(Files::read(Prefs::autostartPath())->find("Exec=\"/"), std::string::npos);
  ASSERT_FALSE(Prefs::setOpenAtLogin(true, "/opt/my apps/$x\"/vantler"));
  EXPECT_NE(Files::read(Prefs::autostartPath())->find("Exec=\"/opt/my apps/\\$x\\\"/vantler\"\n"),
            std::string::npos);
  EXPECT_FALSE(Prefs::set(d, "openAtLogin", false));
  EXPECT_FALSE(Prefs::json(d)["openAtLogin"]);

  Prefs::addHandler([](std::string_view key, const Json&, std::string& error) {
    if (key != "hooksInstalled") return false;
    error = "Claude Code settings are not a JSON object";
    return true;
  });
  Prefs::addReporter([](Json& s) { s["hooksInstalled"] = false; });
  EXPECT_EQ(Prefs::set(d, "hooksInstalled", true), "Claude Code settings are not a JSON object");
  EXPECT_EQ(Prefs::json(d)["hooksInstalled"], false);
  Prefs::resetExtensions();
  EXPECT_FALSE(Prefs::json(d).contains("hooksInstalled"));
}

TEST(HotKey, LabelsAndPacking) {
  EXPECT_EQ(HotKey::label({47, HotKey::kCommand | HotKey::kShift}), "Shift+Super+.");
  EXPECT_EQ(HotKey::label({96, 0}), "F5");
  EXPECT_EQ(HotKey::label({29, 0x1a00}), "Ctrl+Alt+Shift+0");
  EXPECT_EQ(HotKey::label({999, HotKey::kControl}), "Ctrl+?");
  HotKey::Combo c{17, 0x1800};
  EXPECT_EQ(HotKey::Combo::unpack(c.packed()), c);
}

TEST(JsonWriter, EscapesLikeAParserExpectsAndRepairsBadUtf8) {
  const std::string tricky =
      std::string("plain text that is long enough for blocks \"q\" \\ / \n\r\t\b\f") + '\x01' +
      "\x1f é 漢字 🙂" + "\xff\xc3" + "tail \xe2\x82";
  JsonWriter w;
  w.beginObject()
      .field("s", tricky)
      .field("n", 0.1)
      .field("i", int64_t{-42})
      .field("b", false)
      .key("list")
      .beginArray()
      .null()
      .raw("{\"x\":1}")
      .beginObject()
      .endObject()
      .endArray()
      .endObject();
  Json parsed = Json::parse(w.text());
  std::string expected = tricky;
  for (auto [bad, good] :
       {std::pair<std::string, std::string>{"\xff\xc3", "\xEF\xBF\xBD\xEF\xBF\xBD"},
        {"\xe2\x82", "\xEF\xBF\xBD\xEF\xBF\xBD"}})
    expected.replace(expected.find(bad), bad.size(), good);
  EXPECT_EQ(parsed["s"], expected);
  EXPECT_EQ(parsed["n"], 0.1);
  EXPECT_EQ(parsed["i"], -42);
  EXPECT_EQ(parsed["list"], Json::parse(R"([null,{"x":1},{}])"));
  EXPECT_EQ(w.text().find('\n'), std::string::npos);
}
