#include "voice/dictation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "core/text.h"

namespace {

void expectCleaned(const std::vector<std::pair<std::string, std::string>>& cases) {
  for (const auto& [text, cleaned] : cases) EXPECT_EQ(Dictation::clean(text), cleaned) << text;
}

TEST(DictationTest, DropsFillersAndFalseStarts) {
  expectCleaned({
      {"um so uh I think scratch that I know", "I know"},
      {"ok so the file", "The file"},
      {"hmmm, I mean, it works so yeah", "It works"},
      {"call Bob. Forget that. Call Alice", "Call Alice"},
      {"um uh, you know", ""},
      // "like" goes only after a filler word, or between a subject and a verb-like word.
      {"I like pizza", "I like pizza"},
      {"it like works", "It like works"},
      {"it like fixed the bug", "It fixed the bug"},
      {"so like the build", "The build"},
      {"we like retry and like, they like 5 times", "We retry and they 5 times"},
  });
}

TEST(DictationTest, AppliesSpokenCorrections) {
  expectCleaned({
      {"send it to Bob no wait Alice", "Send it to Alice"},
      {"use red, no wait, make it blue and green", "Use blue and green"},
      {"no wait Alice", "Alice"},
      // One at a time from the left: the second sees the first's result.
      {"meet at five no wait six and bring Bob no wait Alice", "Meet at six and bring Alice"},
      // As many words as follow, up to four, a stop word or a comma.
      {"set the timeout to ten seconds actually no twenty seconds please",
       "Set the timeout to twenty seconds please"},
      {"call the old one, i meant the new one, now", "Call the new one, now"},
  });
}

TEST(DictationTest, TidiesPunctuationAndCase) {
  expectCleaned({
      {"yes , and  then ,, done ,", "Yes, and then, done"},
      {"\xC3\x9F is fine ?", "SS is fine?"},         // full upper-casing
      {"e\xCC\x81t\xC3\xA9", "E\xCC\x81t\xC3\xA9"},  // a letter with a combining accent
  });
}

TEST(DictationTest, WordsIgnorePunctuationCaseAndSpacing) {
  using Words = std::vector<std::string>;
  EXPECT_EQ(Dictation::words("Hello, W\xC3\x96RLD!\t42 \xE2\x80\x94 don't\xC2\xA0\xE6\x97\xA5\n"),
            (Words{"hello", "w\xC3\xB6rld", "42", "dont", "\xE6\x97\xA5"}));
  EXPECT_TRUE(Dictation::words(" ... !? ").empty());
  EXPECT_NE(Dictation::words("send it to Alice"), Dictation::words("send to Alice"));
}

// True of every result: tidy edges, spacing and punctuation, and an upper-cased first letter.
void expectTidy(const std::string& cleaned, const std::string& input) {
  if (cleaned.empty()) return;
  const std::string first = Text::prefixGraphemes(cleaned, 1);
  EXPECT_EQ(Text::upper(first), first) << input;
  EXPECT_TRUE(cleaned.front() != ' ' && cleaned.front() != ',') << input;
  EXPECT_TRUE(cleaned.back() != ' ' && cleaned.back() != ',') << input;
  for (const char* bad : {"  ", ",,", " ,", " .", " ?", " !", "\t", "\n"})
    EXPECT_EQ(cleaned.find(bad), std::string::npos)
        << bad << " in [" << cleaned << "] from [" << input << "]";
}

// Whether `part`'s words appear in `whole` in order, compared after full upper-casing (the first
// letter of a result is upper-cased, which may turn "ß" into "SS").
bool isSubsequence(const std::vector<std::string>& part, const std::vector<std::string>& whole) {
  size_t at = 0;
  for (const auto& word : whole)
    if (at < part.size() && Text::upper(part[at]) == Text::upper(word)) ++at;
  return at == part.size();
}

// Random dictations built from the words the rules look for, punctuation and other scripts.
// Each rewrite runs once, so a second pass can find what the first one uncovered ("alright ok"
// leaves "Ok"; a correction can join "you" and "know"). What a second pass may do is drop more
// words, never change or add any.
TEST(DictationTest, RandomDictations) {
  // Separated by single spaces: tab and newline are words here too.
  const std::string list =
      "um uh, hmm erm. ah uh-huh you know i mean I ok okay so alright yeah like like, just and "
      "but it we is really running fixed retry five 7 no wait sorry actually meant correction "
      "make it's should be scratch that forget start over then because please the file Bob "
      "Alice , . ? ! red, blue. \xC3\xA9t\xC3\xA9 \xC3\x9F\x65 \xD0\xBF\xD1\x80\xD0\xB8 "
      "\xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x91\x8D caf\xC3\xA9, \t \n";
  std::vector<std::string> vocabulary;
  for (size_t at = 0, space; at <= list.size(); at = space + 1) {
    space = std::min(list.find(' ', at), list.size());
    vocabulary.push_back(list.substr(at, space - at));
  }
  std::mt19937 rng(20261123);
  std::uniform_int_distribution<size_t> length(0, 14);
  std::uniform_int_distribution<size_t> pick(0, vocabulary.size() - 1);
  int unchanged = 0;
  for (int n = 0; n < 3000; ++n) {
    std::string text;
    for (size_t i = length(rng); i > 0; --i) text += vocabulary[pick(rng)] + " ";
    const std::string once = Dictation::clean(text);
    const std::string twice = Dictation::clean(once);
    expectTidy(once, text);
    if (once == twice) {
      ++unchanged;
      continue;
    }
    EXPECT_TRUE(isSubsequence(Dictation::words(twice), Dictation::words(once)))
        << "[" << text << "] -> [" << once << "] -> [" << twice << "]";
  }
  EXPECT_GT(unchanged, 2900);
}

}  // namespace
