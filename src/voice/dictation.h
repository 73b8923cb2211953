#pragma once
// Clean-up of raw speech-recognition text: fillers, false starts ("scratch that") and spoken
// corrections ("send it to Bob no wait Alice") are removed before punctuation is added.
// Text is UTF-8; ill-formed bytes read as U+FFFD.

#include <string>
#include <string_view>
#include <vector>

namespace Dictation {

// The words the speaker meant, spaces and commas tidied, the first character upper-cased;
// the empty string when nothing is left.
std::string clean(std::string_view text);

// The bare word sequence of a text: letters, marks and digits of any script, lower-cased and
// split at white space. Two texts say the same words when these sequences are equal.
std::vector<std::string> words(std::string_view text);

}  // namespace Dictation
