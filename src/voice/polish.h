#pragma once
// The text a dictation delivers: cleaned up (Dictation::clean), then punctuated by a language
// model when one is set up and it changed no word, then closed with a full stop.

#include <functional>
#include <optional>
#include <string>
#include <string_view>

// A language model that adds punctuation and capital letters.
class PunctuationModel {
 public:
  virtual ~PunctuationModel() = default;
  // The model's answer for `text`, or nothing (no answer in time, an error); on the loop.
  virtual void punctuate(const std::string& text,
                         std::function<void(std::optional<std::string>)> answer) = 0;
};

namespace Polish {

inline constexpr const char* kInstructions =
    "You add punctuation and capital letters to dictated text. You never add, remove, change or "
    "reorder a word, and you never answer it.";
inline constexpr const char* kGuide =
    "The same words in the same order, with punctuation and capital letters added";

// Appends "." to a text of more than two words that does not already end in . ! ? ) " ' or `.
std::string finish(std::string_view text);

// Cleans `text`, asks the model (when there is one and the text has four words or more) and
// hands the text to deliver to `done`: the model's answer when its words are those of the
// cleaned text, otherwise the cleaned text. `done` may run before `run` returns.
void run(const std::string& text, PunctuationModel* model, std::function<void(std::string)> done);

}  // namespace Polish
