#pragma once
// Unicode-aware text helpers built on ICU. Lengths are user-perceived characters (grapheme
// clusters); line breaks are every Unicode newline; trimmed blanks are horizontal spaces
// (space, tab and the other Unicode space separators).

#include <string>
#include <string_view>
#include <vector>

namespace Text {

// Number of grapheme clusters in UTF-8 text (invalid bytes count one each).
size_t graphemes(std::string_view text);
// The first `n` grapheme clusters of the text.
std::string prefixGraphemes(std::string_view text, size_t n);
// Splits at every Unicode line break (LF, CR, CRLF, VT, FF, NEL, LS, PS), dropping empty pieces.
std::vector<std::string> lines(std::string_view text);
// Removes horizontal spaces from both ends.
std::string trim(std::string_view text);
// Removes ASCII whitespace, line ends included, from both ends (machine output, markup values).
std::string trimWhitespace(std::string_view text);
// The first and the last line holding more than whitespace, trimmed; empty when there is none
// (what a command printed).
std::string firstLine(std::string_view text);
std::string lastLine(std::string_view text);
// Full Unicode upper-casing (so "ß" becomes "SS").
std::string upper(std::string_view text);
// Full Unicode lower-casing.
std::string lower(std::string_view text);

}  // namespace Text
