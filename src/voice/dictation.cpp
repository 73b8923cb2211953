#include "voice/dictation.h"

#include <unicode/locid.h>
#include <unicode/regex.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <array>
#include <initializer_list>
#include <memory>
#include <stdexcept>
#include <string_view>

#include "core/text.h"

namespace Dictation {
namespace {

using icu::RegexMatcher;
using icu::RegexPattern;
using icu::UnicodeString;

struct Source {
  const char16_t* regex;
  uint32_t flags;
};

constexpr uint32_t kIgnoreCase = UREGEX_CASE_INSENSITIVE;

// The rewrites of a dictation. The first eight are the fillers, applied in this order.
constexpr size_t kFillerCount = 8;
constexpr Source kSources[] = {
    {uR"(\b(um+|uh+|erm+|hmm+|uh-huh|ah)\b[,.]?)", kIgnoreCase},
    {uR"(\byou know\b,?)", kIgnoreCase},
    {uR"(\bi mean\b,?(?= ))", kIgnoreCase},
    {uR"(^ ?(okay|ok|alright|so)( so)?\b,?)", kIgnoreCase},
    {uR"(\bso yeah\b,?)", kIgnoreCase},
    {uR"(\b(like),(?= ))", kIgnoreCase},
    // "like" after a filler word.
    {uR"((?<=\b(so|just|um|uh|and|but|yeah|okay|ok)) like\b)", kIgnoreCase},
    // "like" as a hedge between a subject or auxiliary and a verb-like word or a number.
    {uR"((?<=\b(you|we|they|it|to|is|was|really|kinda|gonna)) like\b)"
     uR"((?= (\w+ing|\w+ed|retry|add|make|use|run|fix|change|move|go|do|put|get|set|try|just|maybe|five|six|\d)))",
     kIgnoreCase},
    {uR"(\s+)", 0},
    // Greedy: everything up to the last restart phrase goes.
    {uR"((?i)^.*\b(scratch that|forget that|start over)\b[,.]?)", 0},
    {uR"(^\s*like\b,?)", kIgnoreCase},
    {uR"((?i),? \b(no wait|wait no|no sorry|sorry no|actually no|no actually|i meant|correction)\b,? (make it |it's |it should be )?)",
     0},
    {uR"(\s+([,.?!]))", 0},
    {uR"(,{2,})", 0},
    {uR"(\s{2,})", 0},
};

enum Rule : size_t {
  kLikeAfterFiller = 6,
  kLikeBeforeVerb = 7,
  kSpaces = kFillerCount,
  kRestart,
  kLeadingLike,
  kCorrection,
  kSpaceBeforePunctuation,
  kCommaRun,
  kSpaceRun,
  kRuleCount,
};
static_assert(std::size(kSources) == kRuleCount);

using Patterns = std::array<std::unique_ptr<RegexPattern>, kRuleCount>;

// Compiled once for the process and never freed, so that matchers living in thread-local
// storage never outlive their pattern.
const Patterns& patterns() {
  static const Patterns* compiled = [] {
    auto* all = new Patterns;
    for (size_t i = 0; i < kRuleCount; ++i) {
      UErrorCode status = U_ZERO_ERROR;
      UParseError where;
      (*all)[i].reset(RegexPattern::compile(UnicodeString(kSources[i].regex), kSources[i].flags,
                                            where, status));
      if (U_FAILURE(status)) throw std::logic_error("dictation: bad regular expression");
    }
    return all;
  }();
  return *compiled;
}

// A matcher per rule and thread, reset onto each text (building one costs more than a match).
// The text must outlive the use of the matcher.
RegexMatcher& matcher(Rule rule, const UnicodeString& text) {
  thread_local const auto matchers = [] {
    std::array<std::unique_ptr<RegexMatcher>, kRuleCount> all;
    for (size_t i = 0; i < kRuleCount; ++i) {
      UErrorCode status = U_ZERO_ERROR;
      all[i].reset(patterns()[i]->matcher(status));
      if (U_FAILURE(status)) throw std::runtime_error("dictation: no regular expression matcher");
    }
    return all;
  }();
  RegexMatcher& m = *matchers[rule];
  m.reset(text);
  return m;
}

UnicodeString replaceAll(Rule rule, const UnicodeString& text, const char16_t* replacement) {
  UErrorCode status = U_ZERO_ERROR;
  UnicodeString out = matcher(rule, text).replaceAll(UnicodeString(replacement), status);
  return U_SUCCESS(status) ? out : text;
}

// Whether a text may match a case-insensitive pattern that needs one of `phrases`: its case
// folding must contain one of theirs. A cheap test that spares the patterns that would
// otherwise scan the whole text.
bool mayContain(const UnicodeString& folded, std::initializer_list<std::u16string_view> phrases) {
  for (std::u16string_view phrase : phrases)
    if (folded.indexOf(phrase.data(), static_cast<int32_t>(phrase.size()), 0) >= 0) return true;
  return false;
}

// Whether "\s+" would change nothing, the text's only white space being lone ASCII spaces.
// Anything that any definition counts as white space is left to the pattern.
bool hasOnlyLoneSpaces(const UnicodeString& text) {
  for (int32_t i = 0; i < text.length(); ++i) {
    const char16_t c = text.charAt(i);
    if (c == u' ') {
      if (i + 1 < text.length() && text.charAt(i + 1) == u' ') return false;
    } else if (c < 0x21 || (c >= 0x80 && (u_isspace(c) || u_isUWhiteSpace(c) ||
                                          (U_GET_GC_MASK(c) & U_GC_Z_MASK) != 0))) {
      return false;
    }
  }
  return true;
}

// Whether the text at `at` may begin with one of `phrases` (lower-case ASCII) in any case.
// Among ASCII letters only their own other case matches; anything else is left to the pattern.
bool mayStartWith(const UnicodeString& text, int32_t at,
                  std::initializer_list<std::u16string_view> phrases) {
  for (std::u16string_view phrase : phrases) {
    size_t i = 0;
    for (; i < phrase.size() && at + static_cast<int32_t>(i) < text.length(); ++i) {
      const char16_t c = text.charAt(at + static_cast<int32_t>(i));
      if (c >= 0x80) return true;
      if ((c >= u'A' && c <= u'Z' ? c | 0x20 : c) != phrase[i]) break;
    }
    if (i == phrase.size()) return true;
  }
  return false;
}

// The leftmost match of a rule that can only start at positions `mayStart` accepts, tried
// there alone (ICU's own search tries its look-arounds at every position). Bounds are
// transparent so that look-behinds and word boundaries see the text before the position.
// Returns the match's start and leaves the matcher on it, or -1.
template <typename MayStart>
int32_t findAt(RegexMatcher& m, const UnicodeString& text, int32_t from, MayStart mayStart) {
  m.useTransparentBounds(true);
  for (int32_t at = from; at < text.length(); ++at) {
    if (!mayStart(at)) continue;
    UErrorCode status = U_ZERO_ERROR;
    m.region(at, text.length(), status);
    if (U_SUCCESS(status) && m.lookingAt(status) && U_SUCCESS(status)) return at;
  }
  return -1;
}

// Replaces by one space every match of a rule that begins with " like" behind a look-behind.
UnicodeString replaceLikeMatches(Rule rule, const UnicodeString& text) {
  RegexMatcher& m = matcher(rule, text);
  auto mayStart = [&](int32_t at) {
    return text.charAt(at) == u' ' && mayStartWith(text, at + 1, {u"like"});
  };
  UnicodeString out;
  int32_t copied = 0;
  for (int32_t at = findAt(m, text, 0, mayStart); at >= 0;) {
    UErrorCode status = U_ZERO_ERROR;
    const int32_t end = m.end(status);
    out.append(text, copied, at - copied).append(u' ');
    copied = end;
    at = findAt(m, text, end, mayStart);
  }
  if (copied == 0) return text;
  return out.append(text, copied, text.length() - copied);
}

// Words between `begin` and `end`, split at spaces, empty pieces omitted.
std::vector<UnicodeString> spaceSeparated(const UnicodeString& text, int32_t begin, int32_t end) {
  std::vector<UnicodeString> out;
  while (begin < end) {
    int32_t stop = text.indexOf(u' ', begin);
    if (stop < 0 || stop > end) stop = end;
    if (stop > begin) out.emplace_back(text, begin, stop - begin);
    begin = stop + 1;
  }
  return out;
}

bool isStopWord(const UnicodeString& word) {
  static constexpr std::u16string_view kStopWords[] = {u"and", u"then",    u"but",
                                                       u"so",  u"because", u"please"};
  if (word.length() > 16) return false;  // no stop word lower-cases from anything longer
  UnicodeString lower(word);
  lower.toLower(icu::Locale::getRoot());
  const std::u16string_view view(lower.getBuffer(), static_cast<size_t>(lower.length()));
  return std::find(std::begin(kStopWords), std::end(kStopWords), view) != std::end(kStopWords);
}

// How many words the correction replaces: as many as follow it, up to a stop word, at most
// four, ending early after a word that closes a clause; at least one.
size_t replacedWordCount(const std::vector<UnicodeString>& after) {
  size_t taken = 0;
  for (const UnicodeString& word : after) {
    if (taken == 4 || isStopWord(word)) break;
    ++taken;
    const char16_t last = word.charAt(word.length() - 1);
    if (last == u',' || last == u'.') break;
  }
  return std::max<size_t>(taken, 1);
}

// "send it to Bob no wait Alice" becomes "send it to Alice", one correction at a time from the
// left.
void applyCorrections(UnicodeString& text) {
  for (;;) {
    RegexMatcher& m = matcher(kCorrection, text);
    auto mayStart = [&](int32_t at) {
      static constexpr std::initializer_list<std::u16string_view> kPhrases = {
          u"no wait",     u"wait no",     u"no sorry", u"sorry no",
          u"actually no", u"no actually", u"i meant",  u"correction"};
      const char16_t c = text.charAt(at);
      if (c == u',') return text.charAt(at + 1) == u' ' && mayStartWith(text, at + 2, kPhrases);
      return c == u' ' && mayStartWith(text, at + 1, kPhrases);
    };
    if (findAt(m, text, 0, mayStart) < 0) return;
    UErrorCode status = U_ZERO_ERROR;
    const int32_t start = m.start(status);
    const int32_t end = m.end(status);
    if (U_FAILURE(status)) return;
    std::vector<UnicodeString> before = spaceSeparated(text, 0, start);
    const std::vector<UnicodeString> after = spaceSeparated(text, end, text.length());
    const size_t dropped = std::min(replacedWordCount(after), before.size());
    before.resize(before.size() - dropped);
    before.insert(before.end(), after.begin(), after.end());
    UnicodeString joined(u' ');
    for (size_t i = 0; i < before.size(); ++i) {
      if (i) joined.append(u' ');
      joined.append(before[i]);
    }
    joined.append(u' ');
    text = joined;
  }
}

void trimSpacesAndCommas(UnicodeString& text) {
  auto edge = [](char16_t c) { return c == u' ' || c == u','; };
  int32_t end = text.length();
  while (end > 0 && edge(text.charAt(end - 1))) --end;
  int32_t begin = 0;
  while (begin < end && edge(text.charAt(begin))) ++begin;
  text.retainBetween(begin, end);
}

bool isWordCharacter(UChar32 c) {
  return (U_GET_GC_MASK(c) & (U_GC_L_MASK | U_GC_M_MASK | U_GC_N_MASK)) != 0;
}

}  // namespace

std::string clean(std::string_view input) {
  UnicodeString text = UnicodeString::fromUTF8(icu::StringPiece(input.data(), input.size()));
  // Padding lets the patterns that need a neighbouring space match at either end.
  if (!hasOnlyLoneSpaces(text)) text = replaceAll(kSpaces, text, u" ");
  text = UnicodeString(u' ') + text + UnicodeString(u' ');

  UnicodeString folded(text);
  folded.foldCase();
  if (mayContain(folded, {u"scratch that", u"forget that", u"start over"})) {
    if (RegexMatcher& m = matcher(kRestart, text); m.find()) {
      UErrorCode status = U_ZERO_ERROR;
      const int32_t end = m.end(status);
      if (U_SUCCESS(status)) text = UnicodeString(u' ') + text.tempSubString(end);
    }
  }
  for (size_t i = 0; i < kFillerCount; ++i) {
    const Rule rule = Rule(i);
    text = rule == kLikeAfterFiller || rule == kLikeBeforeVerb ? replaceLikeMatches(rule, text)
                                                               : replaceAll(rule, text, u" ");
  }
  text = replaceAll(kLeadingLike, text, u" ");
  // The rewrites above only cut text out, and where they join words they leave two spaces, so
  // a correction phrase that was not in the text before them is not in it now.
  if (mayContain(folded, {u"no wait", u"wait no", u"no sorry", u"sorry no", u"actually no",
                          u"no actually", u"i meant", u"correction"}))
    applyCorrections(text);

  text = replaceAll(kSpaceBeforePunctuation, text, u"$1");
  text = replaceAll(kCommaRun, text, u",");
  text = replaceAll(kSpaceRun, text, u" ");
  trimSpacesAndCommas(text);
  if (text.isEmpty()) return {};

  std::string out;
  text.toUTF8String(out);
  const std::string first = Text::prefixGraphemes(out, 1);
  return Text::upper(first) + out.substr(first.size());
}

std::vector<std::string> words(std::string_view input) {
  const UnicodeString text = UnicodeString::fromUTF8(icu::StringPiece(input.data(), input.size()));
  UnicodeString kept;
  for (int32_t i = 0; i < text.length(); i = text.moveIndex32(i, 1)) {
    const UChar32 c = text.char32At(i);
    if (isWordCharacter(c) || u_isUWhiteSpace(c)) kept.append(c);
  }
  kept.toLower(icu::Locale::getRoot());

  std::vector<std::string> out;
  int32_t start = 0;
  for (int32_t i = 0; i <= kept.length(); i = kept.moveIndex32(i, 1)) {
    if (i < kept.length() && !u_isUWhiteSpace(kept.char32At(i))) continue;
    if (i > start) kept.tempSubStringBetween(start, i).toUTF8String(out.emplace_back());
    start = kept.moveIndex32(i, 1);
    if (i == kept.length()) break;
  }
  return out;
}

}  // namespace Dictation
