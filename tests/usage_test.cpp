#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <time.h>

#include <fstream>
#include <string>
#include <vector>

#include "core/files.h"
#include "test_support.h"
#include "transcript_lines.h"
#include "usage/usage_meter.h"

namespace {

std::string assistant(const std::string& time, const std::string& id, const std::string& model,
                      const Json& use, const std::string& request = "req_1") {
  Json line = {
      {"type", "assistant"},
      {"requestId", request},
      {"message",
       {{"id", id},
        {"model", model},
        {"role", "assistant"},
        {"content",
         {{{"type", "tool_use"},
           {"input", {{"timestamp", "1999-01-01T00:00:00Z"}, {"note", "\"assistant\""}}}}}},
        {"usage", use}}},
      {"timestamp", time}};
  return line.dump() + "\n";
}

double at(const char* iso) {
  struct tm parts = {};
  strptime(iso, "%Y-%m-%dT%H:%M:%S", &parts);
  return static_cast<double>(timegm(&parts));
}

// Today is 1 June 2025 in a zone five hours behind UTC: local midnight is 05:00 UTC.
class UsageMeterTest : public ::testing::Test {
 protected:
  ScopedEnv tz{"TZ", "EST5"};
  TempHome home;
  double now = at("2025-06-01T20:00:00");
  UsageMeter meter{[this] { return now; }};
  std::string dir = home.path() + "/.claude/projects/-work-app/";

  void SetUp() override { Files::makeDirs(dir); }
  void append(const std::string& file, const std::string& text) {
    std::ofstream(dir + file, std::ios::app) << text;
  }
  void setModified(const std::string& file, double when) {
    const timespec times[2] = {{static_cast<time_t>(when), 0}, {static_cast<time_t>(when), 0}};
    utimensat(AT_FDCWD, (dir + file).c_str(), times, 0);
  }
  double today() { return meter.snapshot()["today"].get<double>(); }
};

TEST_F(UsageMeterTest, PricesTodaysMessagesOncePerModelMostExpensiveFirst) {
  // Partial usage first, then the final figures on the message's later line.
  append("a.jsonl",
         assistant("2025-06-01T12:00:00.000Z", "m1", "claude-sonnet-4-5-20250929", usage(10, 1)));
  append("a.jsonl", assistant("2025-06-01T12:00:01.000Z", "m1", "claude-sonnet-4-5-20250929",
                              usage(100, 50, 2000, 600, 400)));
  append("a.jsonl", assistant("2025-06-01T12:00:02.000Z", "m2", "claude-opus-4-5-20251101",
                              usage(1000, 2000, 0, 1000)));
  append("a.jsonl", assistant("2025-06-01T12:00:03.000Z", "m3", "<synthetic>", usage(5, 5)));
  append("a.jsonl", assistant("2025-06-01T12:00:04.000Z", "m4", "gpt-5", usage(7, 3)));
  // Local evening of the same day is already the next UTC date; local yesterday is not today.
  append("a.jsonl",
         assistant("2025-06-02T03:00:00.000Z", "m5", "claude-sonnet-4-5-20250929", usage(1000, 0)));
  append("a.jsonl", assistant("2025-06-01T04:59:59.999Z", "m6", "claude-sonnet-4-5-20250929",
                              usage(9999, 9999)));
  // A resumed session repeats an earlier message in another file.
  append("b.jsonl", assistant("2025-06-01T12:00:02.000Z", "m2", "claude-opus-4-5-20251101",
                              usage(1000, 2000, 0, 1000)));
  append("b.jsonl", R"({"type":"user","timestamp":"2025-06-01T12:00:00Z","message":{}})"
                    "\n{broken\n");

  const Json snap = meter.snapshot();
  const double sonnet =
      (3.0 * (100 + 1.25 * 600 + 2 * 400) + 0.3 * 2000 + 15.0 * 50 + 3.0 * 1000) / 1e6;
  const double opus = (5.0 * (1000 + 1.25 * 1000) + 25.0 * 2000) / 1e6;
  ASSERT_EQ(snap["models"].size(), 3u);
  EXPECT_EQ(snap["models"][0]["model"], "Opus 4.5");
  EXPECT_NEAR(snap["models"][0]["cost"].get<double>(), opus, 1e-12);
  EXPECT_EQ(snap["models"][0]["tokens"], 3000);
  EXPECT_EQ(snap["models"][1]["model"], "Sonnet 4.5");
  EXPECT_NEAR(snap["models"][1]["cost"].get<double>(), sonnet, 1e-12);
  EXPECT_EQ(snap["models"][1]["tokens"], 150 + 1000);
  EXPECT_EQ(snap["models"][2]["model"], "gpt-5");
  EXPECT_EQ(snap["models"][2]["cost"], 0.0);
  EXPECT_EQ(snap["models"][2]["tokens"], 10);
  EXPECT_NEAR(snap["today"].get<double>(), sonnet + opus, 1e-12);
  EXPECT_TRUE(snap["models"][2]["tokens"].is_number_integer());
}

TEST_F(UsageMeterTest, ReadsAppendedLinesOnceAndSkipsFilesOlderThanToday) {
  const std::string line =
      assistant("2025-06-01T12:00:00.000Z", "m1", "claude-haiku-4-5", usage(1000, 0));
  append("a.jsonl", line.substr(0, 50));
  EXPECT_EQ(today(), 0);
  append("a.jsonl", line.substr(50));
  EXPECT_NEAR(today(), 1000 / 1e6, 1e-12);
  EXPECT_NEAR(today(), 1000 / 1e6, 1e-12);
  append("a.jsonl", assistant("2025-06-01T12:00:01.000Z", "m2", "claude-haiku-4-5", usage(0, 0)));
  append("a.jsonl",
         assistant("2025-06-01T12:00:01.000Z", "m2", "claude-haiku-4-5", usage(2000, 0)));
  EXPECT_NEAR(today(), 3000 / 1e6, 1e-12);

  // Rewritten shorter: read again without counting the same messages twice.
  std::ofstream(dir + "a.jsonl", std::ios::trunc)
      << line << assistant("2025-06-01T13:00:00.000Z", "m3", "claude-haiku-4-5", usage(500, 0));
  EXPECT_NEAR(today(), 3500 / 1e6, 1e-12);

  // Last changed before today began: such a file is not read, whatever it claims.
  append("old.jsonl",
         assistant("2025-06-01T12:00:00.000Z", "x1", "claude-haiku-4-5", usage(1'000'000, 0)));
  setModified("old.jsonl", at("2025-06-01T04:00:00"));
  EXPECT_NEAR(today(), 3500 / 1e6, 1e-12);
  append("old.jsonl",
         assistant("2025-06-01T19:00:00.000Z", "x2", "claude-haiku-4-5", usage(100'000, 0)));
  EXPECT_NEAR(today(), 103'500 / 1e6, 1e-12);
}

// Most lines are decided by their last members; whatever the order of the members, and whatever
// strings hold, a line counts exactly when its own type and time stamp say so.
TEST_F(UsageMeterTest, LinesCountWhateverTheOrderOfTheirMembers) {
  using Ordered = nlohmann::ordered_json;
  auto line = [](const std::vector<std::pair<std::string, Ordered>>& members) {
    Ordered o = Ordered::object();
    for (const auto& [key, value] : members) o[key] = value;
    return o.dump() + "\n";
  };
  auto message = [](const std::string& id) {
    return Ordered{{"id", id},
                   {"model", "claude-haiku-4-5"},
                   {"usage", Ordered::parse(usage(1000, 0).dump())}};
  };
  const std::string noon = "2025-06-01T12:00:00Z";
  append("a.jsonl", line({{"type", "assistant"},
                          {"timestamp", noon},
                          {"requestId", "r1"},
                          {"message", message("m1")}}));
  append("a.jsonl", line({{"message", message("m2")},
                          {"requestId", "r2"},
                          {"type", "assistant"},
                          {"timestamp", noon},
                          {"note", "x\",\"type\":\"user\\"}}));
  append("a.jsonl", line({{"message", message("m3")}, {"type", "user"}, {"timestamp", noon}}));
  append("a.jsonl", line({{"message", message("m4")},
                          {"type", "assistant"},
                          {"timestamp", "2025-05-31T12:00:00Z"}}));
  EXPECT_NEAR(today(), 2000 / 1e6, 1e-12);
}

TEST_F(UsageMeterTest, StartsAgainFromZeroAtLocalMidnight) {
  now = at("2025-06-02T04:59:00");  // 23:59 local
  append("a.jsonl",
         assistant("2025-06-02T04:58:00.000Z", "m1", "claude-haiku-4-5", usage(1000, 10)));
  EXPECT_EQ(meter.snapshot()["models"][0]["tokens"], 1010);

  now = at("2025-06-02T05:01:00");  // 00:01 local, the next day
  Json snap = meter.snapshot();
  EXPECT_EQ(snap["today"], 0.0);
  EXPECT_TRUE(snap["models"].empty());

  append("a.jsonl",
         assistant("2025-06-02T05:00:30.000Z", "m2", "claude-haiku-4-5", usage(2000, 20)));
  snap = meter.snapshot();
  EXPECT_NEAR(snap["today"].get<double>(), (2000 + 5.0 * 20) / 1e6, 1e-12);
  EXPECT_EQ(snap["models"][0]["tokens"], 2020);
}

}  // namespace
