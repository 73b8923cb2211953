#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "core/files.h"
#include "test_support.h"
#include "usage/agent_transcripts.h"

namespace {

struct Case {
  const char* name;
  const char* path;  // under the home directory
  std::vector<Json> lines;
  const char* branch;
  const char* model;
  int64_t contextTokens, contextWindow;
  const char* firstPrompt;
  const char* lastPrompt;
};

Json qwen(const char* type, Json parts, Json extra = Json::object()) {
  extra["type"] = type;
  extra["timestamp"] = "2026-01-05T10:00:00.000Z";
  extra["gitBranch"] = "fix/login";
  extra["message"] = {{"role", std::string(type) == "assistant" ? "model" : "user"},
                      {"parts", std::move(parts)}};
  return extra;
}

const Json kimiUsage = {{"input_other", 1000}, {"input_cache_read", 31000}, {"output", 50}};

Json kimi(const char* type, Json payload) {
  return {{"timestamp", 1767607200.5}, {"message", {{"type", type}, {"payload", payload}}}};
}

// A session of each format read through the one reader, which tells the formats apart by where
// the agent keeps them. The lines arrive in two appends: the first prompt stays, the last moves.
TEST(AgentTranscripts, EachFormatGivesBranchModelContextAndPrompts) {
  const std::vector<Case> cases = {
      {"qwen",
       ".qwen/projects/-work-app/chats/5e1f.jsonl",
       {qwen("system", Json::array(), {{"subtype", "chat_compression"}}),
        qwen("user", {{{"text", "  Fix the login bug\n"}}}),
        qwen("assistant", {{{"text", "Looking."}}},
             {{"model", "qwen3-coder-plus"}, {"usageMetadata", {{"promptTokenCount", 9000}}}}),
        qwen("tool_result", {{{"functionResponse", {{"name", "read_file"}}}}}),
        qwen("user", {{{"text", "Now the tests"}}, {{"text", "too"}}}),
        qwen("assistant", {{{"text", "Done."}}},
             {{"usageMetadata", {{"promptTokenCount", 9400}}}})},
       "fix/login",
       "qwen3-coder-plus",
       9400,
       0,
       "Fix the login bug",
       "Now the tests\ntoo"},
      {"kimi",
       ".kimi/sessions/9a3c/5e1f/wire.jsonl",
       {kimi("TurnBegin", {{"user_input", "Fix the login bug"}}), kimi("StepBegin", {{"n", 1}}),
        kimi("StatusUpdate", {{"context_usage", 0.25}, {"token_usage", kimiUsage}}),
        kimi("ContentPart", {{"type", "text"}, {"text", "Looking."}}),
        kimi("TurnBegin", {{"user_input", {{{"type", "text"}, {"text", "Now the tests"}}}}}),
        kimi("StatusUpdate", {{"context_usage", nullptr}, {"token_usage", nullptr}})},
       nullptr,
       nullptr,
       32000,
       128000,
       "Fix the login bug",
       "Now the tests"},
  };
  TempHome home;
  AnyTranscripts reader;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string path = home.path() + "/" + c.path;
    Files::makeDirs(Files::parent(path));
    const size_t half = c.lines.size() / 2;
    auto append = [&](size_t from, size_t to) {
      std::ofstream out(path, std::ios::app);
      for (size_t i = from; i < to; ++i) out << c.lines[i].dump() << '\n';
    };
    append(0, half);
    ASSERT_TRUE(reader.update(path));
    append(half, c.lines.size());
    const TranscriptStats s = reader.update(path).value();
    EXPECT_EQ(s.branch, c.branch ? std::optional<std::string>(c.branch) : std::nullopt);
    EXPECT_EQ(s.model, c.model ? std::optional<std::string>(c.model) : std::nullopt);
    EXPECT_EQ(s.contextTokens, c.contextTokens);
    EXPECT_EQ(s.contextWindow, c.contextWindow);
    EXPECT_EQ(s.firstPrompt, c.firstPrompt);
    EXPECT_EQ(s.lastPrompt, c.lastPrompt);
  }
}

}  // namespace
