#include "core/text.h"

#include <memory>

#include <unicode/brkiter.h>
#include <unicode/locid.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utext.h>
#include <unicode/utf16.h>
#include <unicode/utf8.h>

namespace Text {
namespace {

bool isAscii(std::string_view text) {
  for (unsigned char c : text)
    if (c >= 0x80) return false;
  return true;
}

// Per-thread state for grapheme segmentation: the break iterator is built once (ICU's rule
// loading is the expensive part) and the UTF-16 buffers are reused between calls.
struct Segmenter {
  std::unique_ptr<icu::BreakIterator> chars;
  UText* utext = nullptr;
  std::u16string utf16;
  // byteAt[i] is the UTF-8 offset of the code point holding UTF-16 unit i; one extra entry
  // maps the end of the buffer to the end of the text.
  std::vector<size_t> byteAt;

  Segmenter() {
    UErrorCode status = U_ZERO_ERROR;
    chars.reset(icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    if (U_FAILURE(status)) chars.reset();
  }
  ~Segmenter() { utext_close(utext); }
  Segmenter(const Segmenter&) = delete;
  Segmenter& operator=(const Segmenter&) = delete;

  // Loads non-ASCII text. Each ill-formed byte becomes its own U+FFFD so that it counts as
  // one character. Returns false when ICU has no break iterator; the caller then counts
  // code points.
  bool load(std::string_view text) {
    utf16.clear();
    byteAt.clear();
    const auto* s = reinterpret_cast<const uint8_t*>(text.data());
    const auto length = static_cast<int32_t>(text.size());
    for (int32_t i = 0; i < length;) {
      const int32_t start = i;
      UChar32 c;
      U8_NEXT(s, i, length, c);
      if (c < 0) {
        c = 0xFFFD;
        i = start + 1;
      }
      if (U16_LENGTH(c) == 2) {
        utf16.push_back(static_cast<char16_t>(U16_LEAD(c)));
        utf16.push_back(static_cast<char16_t>(U16_TRAIL(c)));
        byteAt.push_back(static_cast<size_t>(start));
      } else {
        utf16.push_back(static_cast<char16_t>(c));
      }
      byteAt.push_back(static_cast<size_t>(start));
    }
    byteAt.push_back(text.size());
    if (!chars) return false;
    UErrorCode status = U_ZERO_ERROR;
    utext = utext_openUChars(utext, utf16.data(), static_cast<int64_t>(utf16.size()), &status);
    if (U_FAILURE(status)) return false;
    chars->setText(utext, status);
    return U_SUCCESS(status);
  }

  // Walks at most `limit` clusters; returns how many were walked and the UTF-16 end of the
  // last one.
  std::pair<size_t, size_t> walk(size_t limit, bool segmented) {
    size_t count = 0;
    size_t end = 0;
    if (segmented) {
      chars->first();
      for (int32_t next; count < limit && (next = chars->next()) != icu::BreakIterator::DONE;) {
        end = static_cast<size_t>(next);
        ++count;
      }
    } else {
      while (count < limit && end < utf16.size()) {
        end += U16_IS_LEAD(utf16[end]) && end + 1 < utf16.size() ? 2 : 1;
        ++count;
      }
    }
    return {count, end};
  }
};

Segmenter& segmenter() {
  thread_local Segmenter instance;
  return instance;
}

bool isHorizontalSpace(UChar32 c) {
  return c == ' ' || c == '\t' || (c >= 0x80 && u_charType(c) == U_SPACE_SEPARATOR);
}

std::string convertCase(std::string_view text, bool toUpper) {
  if (isAscii(text)) {
    std::string out(text);
    for (char& c : out) {
      if (toUpper && c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
      if (!toUpper && c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return out;
  }
  auto s = icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), text.size()));
  if (toUpper) {
    s.toUpper(icu::Locale::getRoot());
  } else {
    s.toLower(icu::Locale::getRoot());
  }
  std::string out;
  s.toUTF8String(out);
  return out;
}

}  // namespace

size_t graphemes(std::string_view text) {
  if (isAscii(text)) {
    // In ASCII every byte is a cluster except that CR LF is one.
    size_t count = text.size();
    for (size_t i = 1; i < text.size(); ++i)
      if (text[i - 1] == '\r' && text[i] == '\n') --count;
    return count;
  }
  Segmenter& seg = segmenter();
  const bool segmented = seg.load(text);
  return seg.walk(static_cast<size_t>(-1), segmented).first;
}

std::string prefixGraphemes(std::string_view text, size_t n) {
  if (isAscii(text)) {
    size_t end = 0;
    for (size_t taken = 0; taken < n && end < text.size(); ++taken)
      end += text[end] == '\r' && end + 1 < text.size() && text[end + 1] == '\n' ? 2 : 1;
    return std::string(text.substr(0, end));
  }
  Segmenter& seg = segmenter();
  const bool segmented = seg.load(text);
  const size_t end = seg.walk(n, segmented).second;
  return std::string(text.substr(0, seg.byteAt[end]));
}

std::vector<std::string> lines(std::string_view text) {
  std::vector<std::string> out;
  size_t start = 0;
  auto cut = [&](size_t end, size_t breakLength) {
    if (end > start) out.emplace_back(text.substr(start, end - start));
    start = end + breakLength;
  };
  for (size_t i = 0; i < text.size();) {
    const auto c = static_cast<unsigned char>(text[i]);
    size_t breakLength = 0;
    if (c >= 0x0A && c <= 0x0D) {
      breakLength = 1;  // LF, VT, FF, CR (CR LF leaves an empty piece, which is dropped)
    } else if (c == 0xC2 && i + 1 < text.size() &&
               static_cast<unsigned char>(text[i + 1]) == 0x85) {
      breakLength = 2;  // NEL
    } else if (c == 0xE2 && i + 2 < text.size() &&
               static_cast<unsigned char>(text[i + 1]) == 0x80 &&
               (static_cast<unsigned char>(text[i + 2]) & 0xFE) == 0xA8) {
      breakLength = 3;  // LS, PS
    }
    if (breakLength) {
      cut(i, breakLength);
      i += breakLength;
    } else {
      ++i;
    }
  }
  cut(text.size(), 0);
  return out;
}

std::string trimWhitespace(std::string_view text) {
  constexpr std::string_view blank = " \t\r\n\v\f";
  const size_t begin = text.find_first_not_of(blank);
  if (begin == std::string_view::npos) return {};
  return std::string(text.substr(begin, text.find_last_not_of(blank) - begin + 1));
}

std::string firstLine(std::string_view text) {
  for (const std::string& line : lines(text))
    if (std::string trimmed = trimWhitespace(line); !trimmed.empty()) return trimmed;
  return {};
}

std::string lastLine(std::string_view text) {
  const std::vector<std::string> all = lines(text);
  for (auto line = all.rbegin(); line != all.rend(); ++line)
    if (std::string trimmed = trimWhitespace(*line); !trimmed.empty()) return trimmed;
  return {};
}

std::string trim(std::string_view text) {
  const auto* s = reinterpret_cast<const uint8_t*>(text.data());
  const auto length = static_cast<int32_t>(text.size());
  int32_t begin = 0;
  while (begin < length) {
    int32_t next = begin;
    UChar32 c;
    U8_NEXT(s, next, length, c);
    if (!isHorizontalSpace(c)) break;
    begin = next;
  }
  int32_t end = length;
  while (end > begin) {
    int32_t previous = end;
    UChar32 c;
    U8_PREV(s, begin, previous, c);
    if (!isHorizontalSpace(c)) break;
    end = previous;
  }
  return std::string(text.substr(static_cast<size_t>(begin), static_cast<size_t>(end - begin)));
}

std::string upper(std::string_view text) {
  return convertCase(text, true);
}

std::string lower(std::string_view text) {
  return convertCase(text, false);
}

}  // namespace Text
