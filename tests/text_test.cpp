#include "core/text.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

TEST(TextTest, CountsUserPerceivedCharacters) {
  struct Case {
    std::string text;
    size_t count;
  };
  const std::vector<Case> cases = {
      {"", 0},
      {"hello", 5},
      {"a\r\nb", 3},                                        // CR LF is one character
      {"e\xCC\x81", 1},                                     // e + combining acute
      {"\xF0\x9F\x91\x8D\xF0\x9F\x8F\xBD", 1},              // thumbs up + skin tone
      {"\xF0\x9F\x87\xAB\xF0\x9F\x87\xB7!", 2},             // flag (two regional indicators) + "!"
      {"\xF0\x9F\x91\xA9\xE2\x80\x8D\xF0\x9F\x92\xBB", 1},  // ZWJ sequence
      {"a\xFF\xFE"
       "b",
       4},              // invalid bytes count one each
      {"\xE2\x82", 2},  // truncated sequence: one per byte
  };
  for (const auto& c : cases) EXPECT_EQ(Text::graphemes(c.text), c.count) << c.text;
}

TEST(TextTest, PrefixKeepsWholeClusters) {
  EXPECT_EQ(Text::prefixGraphemes("hello", 3), "hel");
  EXPECT_EQ(Text::prefixGraphemes("hi", 10), "hi");
  EXPECT_EQ(Text::prefixGraphemes("a\r\nb", 2), "a\r\n");
  EXPECT_EQ(Text::prefixGraphemes("e\xCC\x81x", 1), "e\xCC\x81");
  EXPECT_EQ(Text::prefixGraphemes("\xF0\x9F\x91\x8D\xF0\x9F\x8F\xBDz", 1),
            "\xF0\x9F\x91\x8D\xF0\x9F\x8F\xBD");
  EXPECT_EQ(Text::prefixGraphemes("\xFF\xC3\xA9z", 2), "\xFF\xC3\xA9");
  EXPECT_EQ(Text::prefixGraphemes("\xC3\xA9t\xC3\xA9", 0), "");
}

TEST(TextTest, SplitsAtEveryUnicodeLineBreak) {
  const std::vector<std::string> expected = {"a", "b", "c", "d", "e", "f", "g", "h"};
  EXPECT_EQ(Text::lines("a\nb\r\nc\rd\ve\ff\xC2\x85g\xE2\x80\xA8h"), expected);
  EXPECT_EQ(Text::lines("\n\nx\xE2\x80\xA9\n"), std::vector<std::string>{"x"});
  EXPECT_TRUE(Text::lines("\r\n\n").empty());
  // U+2027 shares the LS/PS prefix but is not a break.
  EXPECT_EQ(Text::lines("a\xE2\x80\xA7z"), std::vector<std::string>{"a\xE2\x80\xA7z"});
}

TEST(TextTest, TrimsHorizontalSpacesOnly) {
  EXPECT_EQ(Text::trim(" \t hi there \t"), "hi there");
  EXPECT_EQ(Text::trim("\xC2\xA0\xE3\x80\x80word\xE2\x80\x83"), "word");  // NBSP, ideographic, em
  EXPECT_EQ(Text::trim("\nx\n"), "\nx\n");
  EXPECT_EQ(Text::trim("\xE2\x80\x8Bx"), "\xE2\x80\x8Bx");  // zero-width space is not Zs
  EXPECT_EQ(Text::trim("   "), "");
  EXPECT_EQ(Text::trim("x\xFF "), "x\xFF");
}

TEST(TextTest, FullCaseMapping) {
  EXPECT_EQ(Text::upper("stra\xC3\x9F"
                        "e"),
            "STRASSE");
  EXPECT_EQ(Text::upper("abc-Z9"), "ABC-Z9");
  EXPECT_EQ(Text::lower("\xC3\x89T\xC3\x89 ABC"), "\xC3\xA9t\xC3\xA9 abc");
  EXPECT_EQ(Text::upper("i"), "I");  // root locale, no Turkish dotted I
}

}  // namespace
