#include "voice/polish.h"

#include "core/text.h"
#include "voice/dictation.h"

namespace Polish {
namespace {

size_t spaceWords(std::string_view text) {
  size_t n = 0;
  bool inWord = false;
  for (char c : text) {
    if (c == ' ') {
      inWord = false;
    } else if (!inWord) {
      inWord = true;
      ++n;
    }
  }
  return n;
}

}  // namespace

std::string finish(std::string_view text) {
  std::string out(text);
  if (out.empty() || spaceWords(out) <= 2) return out;
  if (std::string_view(".!?)\"'`").find(out.back()) != std::string_view::npos) return out;
  return out + ".";
}

void run(const std::string& text, PunctuationModel* model, std::function<void(std::string)> done) {
  std::string cleaned = Dictation::clean(text);
  if (!model || spaceWords(cleaned) < 4) {
    done(finish(cleaned));
    return;
  }
  model->punctuate(cleaned, [cleaned, done = std::move(done)](std::optional<std::string> answer) {
    std::string said = answer ? Text::trimWhitespace(*answer) : std::string();
    bool faithful = answer && Dictation::words(said) == Dictation::words(cleaned);
    done(finish(faithful ? said : cleaned));
  });
}

}  // namespace Polish
