// The summary line for status bars.

#include <gmock/gmock.h>

#include "core/status_line.h"

using StatusLine::Format;
using ::testing::HasSubstr;

TEST(StatusLineTest, CountsMoodsPicksTheUrgentClassAndEscapesForEachBar) {
  Json snapshot = {{"sessions",
                    {{{"agent", "claude"},
                      {"project", "api"},
                      {"mood", "waiting"},
                      {"activity", "Running"},
                      {"pending", {{"title", "Run rm <x> & y"}}}},
                     {{"agent", "codex"}, {"project", "web"}, {"mood", "working"}},
                     {{"agent", "gemini"}, {"project", "cli"}, {"mood", "working"}},
                     {{"agent", "cursor"}, {"project", "app"}, {"mood", "done"}},
                     {{"agent", "droid"}, {"project", "ops"}, {"mood", "idle"}}}}};
  EXPECT_EQ(StatusLine::render(&snapshot, 1.5, Format::plain),
            "1 waiting · 2 working · 1 done · $1.50 today");
  EXPECT_THAT(StatusLine::render(&snapshot, 1.5, Format::tmux),
              HasSubstr("#[fg=yellow,bold]1 waiting#[default] · #[fg=cyan]2 working#[default]"));

  Json waybar = Json::parse(StatusLine::render(&snapshot, 1.5, Format::waybar));
  EXPECT_EQ(waybar["class"], "waiting");
  EXPECT_EQ(waybar["text"], "1 waiting · 2 working · 1 done · $1.50 today");
  // One line per session, naming what it is about, in Pango markup.
  std::string tooltip = waybar["tooltip"];
  EXPECT_THAT(tooltip, HasSubstr("claude · api: Run rm &lt;x&gt; &amp; y (waiting)\n"));
  EXPECT_EQ(std::count(tooltip.begin(), tooltip.end(), '\n'), 4);

  snapshot["sessions"].erase(0);
  snapshot["sessions"].erase(0);
  snapshot["sessions"].erase(0);
  EXPECT_EQ(Json::parse(StatusLine::render(&snapshot, 0, Format::waybar))["class"], "done");
  snapshot["sessions"] = Json::array();
  EXPECT_EQ(StatusLine::render(&snapshot, 0, Format::plain), "idle · $0.00 today");
  EXPECT_EQ(StatusLine::render(nullptr, 0, Format::plain), "Vantler off");
  EXPECT_EQ(Json::parse(StatusLine::render(nullptr, 0, Format::waybar))["class"], "off");
}
