#include "core/tool_text.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using ToolText::shorten;

TEST(ToolTextTest, ShortenTakesFirstLineTrimmedAndCut) {
  EXPECT_EQ(shorten("  hello world  \nsecond", 5), "hell…");
  EXPECT_EQ(shorten("\n\r\n\n", 5), "");
  EXPECT_EQ(shorten("\n\n  exact \nmore", 5), "exact");
  EXPECT_EQ(shorten("abc", 1), "…");
  // Counts user-perceived characters, never splitting a cluster.
  EXPECT_EQ(shorten("e\xCC\x81"
                    "e\xCC\x81"
                    "e\xCC\x81",
                    3),
            "e\xCC\x81"
            "e\xCC\x81"
            "e\xCC\x81");
  EXPECT_EQ(shorten("e\xCC\x81"
                    "e\xCC\x81"
                    "e\xCC\x81",
                    2),
            "e\xCC\x81…");
}

TEST(ToolTextTest, FileIsLastPathComponent) {
  EXPECT_EQ(ToolText::file({{"path", "/tmp/dir/"}}), "dir");
  EXPECT_EQ(ToolText::file({{"file_path", 3}, {"notebook_path", "/a/b.ipynb"}, {"path", "/x"}}),
            "b.ipynb");
  EXPECT_EQ(ToolText::file(Json::object()), "");
}

TEST(ToolTextTest, ActivityAndDetail) {
  struct Case {
    std::string tool;
    Json input;
    std::string activity;
    std::string detail;
  };
  const std::string longCommand = "npm test -- --watch=false --reporter=verbose --coverage now";
  const std::vector<Case> cases = {
      {"Bash",
       {{"command", longCommand}},
       "Running npm test -- --watch=false --reporter=verbose --…",
       "npm test -- --watch=false --reporter=ve…"},
      {"Read", {{"file_path", "/r.md"}}, "Reading r.md", "r.md"},
      {"Glob", {{"pattern", "**/*.cpp"}}, "Searching **/*.cpp", "**/*.cpp"},
      {"WebFetch",
       {{"url", "https://docs.example.com:8080/a?b=c"}},
       "Reading docs.example.com",
       "docs.example.com"},
      {"WebFetch", {{"url", "not a url"}}, "Reading the web", ""},
      {"WebFetch", {{"url", 42}}, "Reading the web", ""},
      {"WebFetch", {{"url", "https://exa mple.com/"}}, "Reading the web", ""},
      {"WebFetch", {{"url", "file:///etc/hosts"}}, "Reading the web", ""},
      {"WebSearch", {{"query", "gtest table"}}, "Searching the web", "gtest table"},
      {"Task",
       {{"description", "Find every caller of the parse function in src"}},
       "Delegating Find every caller of the parse func…",
       "Find every caller of the parse …"},
      {"mcp__github__create_issue", Json::object(), "github · create_issue", "create_issue"},
      {"mcp__x", Json::object(), "mcp__x", ""},
      {"mcp__srv__", Json::object(), "mcp__srv__", ""},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(ToolText::activity(c.tool, c.input), c.activity) << c.tool << " " << c.input;
    EXPECT_EQ(ToolText::detail(c.tool, c.input), c.detail) << c.tool << " " << c.input;
  }
}

// Other agents' names for Claude Code's tools get the same words, kinds and prompts.
TEST(ToolTextTest, OtherAgentsToolsReadLikeClaudeCodes) {
  struct Case {
    const char* tool;
    Json input;
    const char* claude;
  };
  const Case cases[] = {
      {"run_shell_command", {{"command", "make -j2"}}, "Bash"},  // Gemini CLI
      {"Execute", {{"command", "make -j2"}}, "Bash"},            // droid
      {"bash", {{"command", "make -j2"}}, "Bash"},               // OpenCode, Copilot CLI
      {"read_file", {{"file_path", "/w/a.py"}}, "Read"},
      {"read", {{"filePath", "/w/a.py"}}, "Read"},
      {"view", {{"path", "/w/a.py"}}, "Read"},
      {"replace", {{"file_path", "/w/a.py"}}, "Edit"},
      {"ApplyPatch", {{"file_path", "/w/a.py"}}, "Edit"},
      {"Create", {{"file_path", "/w/a.py"}}, "Write"},
      {"write_file", {{"file_path", "/w/a.py"}}, "Write"},
      {"search_file_content", {{"pattern", "TODO"}}, "Grep"},
      {"glob", {{"pattern", "*.py"}}, "Glob"},
      {"list_directory", {{"path", "/w"}}, "LS"},
      {"FetchUrl", {{"url", "https://example.org/a"}}, "WebFetch"},
      {"google_web_search", {{"query", "gtest"}}, "WebSearch"},
      {"task", {{"description", "Look around"}}, "Task"},
      {"todowrite", Json::object(), "TodoWrite"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.tool);
    EXPECT_EQ(ToolText::activity(c.tool, c.input), ToolText::activity(c.claude, c.input));
    EXPECT_NE(ToolText::activity(c.tool, c.input), c.tool);
    EXPECT_EQ(ToolText::detail(c.tool, c.input), ToolText::detail(c.claude, c.input));
    EXPECT_EQ(ToolText::kind(c.tool, c.input), ToolText::kind(c.claude, c.input));
    EXPECT_EQ(ToolText::permission(c.tool, c.input), ToolText::permission(c.claude, c.input));
  }
}

TEST(ToolTextTest, Permission) {
  using P = std::pair<std::string, std::string>;
  const std::string longCommand(200, 'x');
  EXPECT_EQ(ToolText::permission("Bash", Json::object()), P("Wants to run", ""));
  EXPECT_EQ(ToolText::permission("Bash", {{"command", longCommand}}),
            P("Wants to run", longCommand));
  EXPECT_EQ(ToolText::permission("NotebookEdit", {{"notebook_path", "/n/a.ipynb"}}),
            P("Edit a.ipynb?", "/n/a.ipynb"));
  EXPECT_EQ(ToolText::permission("Write", {{"file_path", "/w/new.txt"}}),
            P("Create new.txt?", "/w/new.txt"));
  EXPECT_EQ(ToolText::permission("Read", {{"path", "/p/q"}}), P("Read q?", ""));
  EXPECT_EQ(ToolText::permission("Task", {{"description", "d"}, {"a/b", 1}}),
            P("Allow Delegating ?", R"({"a/b":1,"description":"d"})"));
  EXPECT_EQ(ToolText::permission("mcp__github__create_issue", {{"title", "x"}}).first,
            "Allow github · create_issue?");
  EXPECT_EQ(ToolText::permission("Other", {{"bad", std::string("\xFF")}}), P("Allow Other?", ""));
}

TEST(ToolTextTest, Questions) {
  const Json input = Json::parse(R"({"questions": [
    {"header": "Db", "question": "Which one?", "multiSelect": true,
     "options": [{"label": "Postgres", "description": "relational"}, {"label": "Redis"}]},
    {"question": "Sure?", "multiSelect": "yes", "options": [{"label": "A"}, "B"]}
  ]})");
  const std::vector<Question> expected = {
      {"Db", "Which one?", {{"Postgres", "relational"}, {"Redis", ""}}, true},
      {"", "Sure?", {}, false},
  };
  EXPECT_EQ(ToolText::questions(input), expected);
  EXPECT_TRUE(ToolText::questions({{"questions", {{{"question", "q"}}, 3}}}).empty());
}

TEST(ToolTextTest, Headline) {
  EXPECT_EQ(ToolText::headline("<system>\n# Title\n**Fix** the bug"), "Fix the bug");
  EXPECT_EQ(ToolText::headline("```\n  \n  # Only markup  \n<x>"), "```");
  EXPECT_EQ(ToolText::headline("  \n\ttext"), "text");
  EXPECT_EQ(ToolText::headline(std::string(70, 'a')), std::string(63, 'a') + "…");
}

}  // namespace
