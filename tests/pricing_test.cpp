#include "usage/pricing.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "usage/claude_lines.h"

namespace {

TEST(PricingTest, RateMatchesMostSpecificNameFirst) {
  struct Case {
    std::string model;
    double input, output, cacheRead;
  };
  const std::vector<Case> cases = {
      {"claude-fable-1", 10, 50, 0.25},  {"claude-mythos-2", 10, 50, 0.25},
      {"claude-opus-5-5", 4, 20, 0.2},   {"claude-opus-4-5-20251101", 5, 25, 0.5},
      {"claude-sonnet-5-1", 2, 10, 0.2}, {"claude-sonnet-4-5-20250929", 3, 15, 0.3},
      {"Claude-Haiku-4-5", 1, 5, 0.1},   {"claude-3-5-sonnet-20241022", 3, 15, 0.3},
  };
  for (const auto& c : cases) {
    const auto r = Pricing::rate(c.model);
    ASSERT_TRUE(r) << c.model;
    EXPECT_DOUBLE_EQ(r->input, c.input) << c.model;
    EXPECT_DOUBLE_EQ(r->output, c.output) << c.model;
    EXPECT_DOUBLE_EQ(r->cacheRead, c.cacheRead) << c.model;
    EXPECT_EQ(r->window, 200000) << c.model;
  }
  EXPECT_FALSE(Pricing::rate("gpt-5"));
  EXPECT_FALSE(Pricing::rate(""));
}

// Each usage object is priced both as parsed JSON and as the text the usage meter reads.
TEST(PricingTest, CostSplitsCacheWrites) {
  auto expectCost = [](std::string_view model, const Json& usage, double expected) {
    EXPECT_DOUBLE_EQ(Pricing::cost(model, usage), expected) << usage;
    EXPECT_DOUBLE_EQ(Pricing::cost(model, ClaudeLines::usageOf(usage.dump())), expected) << usage;
  };
  // 1000 written: 400 for an hour, the other 600 for five minutes.
  const Json usage = Json::parse(R"({"input_tokens": 100, "output_tokens": 10,
      "cache_read_input_tokens": 2000, "cache_creation_input_tokens": 1000,
      "cache_creation": {"ephemeral_1h_input_tokens": 400}})");
  expectCost("claude-sonnet-4-5", usage,
             (3.0 * (100 + 1.25 * 600 + 2 * 400) + 0.3 * 2000 + 15.0 * 10) / 1e6);

  // An explicit five-minute figure wins; a 1h figure above the total never goes negative.
  const Json given = {
      {"cache_creation_input_tokens", 1000},
      {"cache_creation", {{"ephemeral_1h_input_tokens", 1500}, {"ephemeral_5m_input_tokens", 50}}}};
  expectCost("claude-opus-4-5", given, 5.0 * (1.25 * 50 + 2 * 1500) / 1e6);
  const Json over = {{"cache_creation_input_tokens", 100},
                     {"cache_creation", {{"ephemeral_1h_input_tokens", 300}}}};
  expectCost("claude-opus-4-5", over, 5.0 * 2 * 300 / 1e6);

  // Without the breakdown every write is a five-minute one; non-numbers read as 0.
  const Json flat = {{"cache_creation_input_tokens", 1000.0},
                     {"output_tokens", "9"},
                     {"input_tokens", nullptr},
                     {"server_tool_use", {{"input_tokens", 7}}}};
  expectCost("claude-haiku-4-5", flat, 1.0 * 1.25 * 1000 / 1e6);
  expectCost("gpt-5", usage, 0);
  EXPECT_EQ(Pricing::cost("claude-haiku-4-5", ClaudeLines::usageOf(R"({"input_tokens": 5,)")), 0);
}

TEST(PricingTest, Label) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"claude-opus-4-5-20251101", "Opus 4.5"},
      {"claude-sonnet-4-20250514", "Sonnet 4"},
      {"claude-haiku-4-5", "Haiku 4.5"},
      {"claude-opus-5-5", "Opus 5.5"},
      {"claude-fable-5-123-1", "Fable 5"},
      {"claude-3-5-sonnet-20241022", "Sonnet"},
      {"claude-unknown-1", "unknown-1"},
      {"gpt-5-codex", "gpt-5-codex"},
      {"claude-opus2-4", "opus2-4"},
      {"", ""},
  };
  for (const auto& [model, label] : cases) EXPECT_EQ(Pricing::label(model), label) << model;
}

}  // namespace
