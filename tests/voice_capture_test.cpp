// Dictation end to end on real components: a private PulseAudio server whose microphone is fed
// with espeak-ng speech, PulseMicrophone capturing it, and pocketsphinx recognising it.

#include <gtest/gtest.h>

#include <algorithm>

#include "core/linux_glib_loop.h"
#include "voice/linux_pocketsphinx.h"
#include "voice/linux_pulse_microphone.h"
#include "voice_support.h"

// The leak checker of the sanitizer build: pocketsphinx's grammar parser keeps a few strings of
// every grammar it reads for good, inside the library.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libsphinxbase.so\n";
}

using VoiceSupport::PulseServer;
using VoiceSupport::spinUntil;

namespace {

constexpr const char* kGrammar =
    "#JSGF V1.0;\ngrammar talk;\npublic <talk> = run the tests again please | open the panel "
    "| stop the build now;\n";

struct Heard {
  std::vector<std::string> partials;
  std::vector<double> levels;
  std::vector<std::string> finals;
  std::vector<std::string> errors;
  void listen(Talk& talk) {
    talk.onUpdate = [this](const std::string& text, bool final, double level) {
      if (final) {
        finals.push_back(text);
        return;
      }
      levels.push_back(level);
      if (!text.empty() && (partials.empty() || partials.back() != text)) partials.push_back(text);
    };
    talk.onError = [this](const std::string& m) { errors.push_back(m); };
  }
};

}  // namespace

TEST(VoiceCapture, HearsSpokenWordsAndMeasuresTheirLevel) {
  PulseServer pulse;
  auto speech = PulseServer::speech("run the tests again please");
  if (!pulse.up() || speech.empty()) GTEST_SKIP() << pulse.why() << " / espeak-ng missing?";
  ASSERT_TRUE(Pocketsphinx::installed(Pocketsphinx::defaultModels()));

  GLibLoop loop;
  auto mic = std::make_shared<PulseMicrophone>(nullptr, "mic");
  auto engine = std::make_shared<Pocketsphinx>(
      Pocketsphinx::Options{Pocketsphinx::defaultModels(), kGrammar});
  Talk talk(loop, mic, engine);
  Heard heard;
  heard.listen(talk);

  talk.start();
  pulse.say(PulseServer::silence(0.5));
  ASSERT_TRUE(spinUntil([&] { return heard.levels.size() >= 4; }, 10)) << heard.errors.size();
  EXPECT_EQ(*std::max_element(heard.levels.begin(), heard.levels.end()), 0);

  pulse.say(speech);
  pulse.say(PulseServer::silence(0.3));
  pulse.say(PulseServer::fullScale(0.3));
  pulse.say(PulseServer::silence(0.3));
  size_t expected = (0.5 * PulseServer::kPipeRate + speech.size()) * Audio::kRate /
                    PulseServer::kPipeRate / Audio::kBufferFrames;
  ASSERT_TRUE(spinUntil([&] { return heard.levels.size() >= expected + 12; }, 20));
  EXPECT_EQ(*std::max_element(heard.levels.begin(), heard.levels.end()), 1);
  // The decoder runs behind the audio; its partial text comes while still listening.
  EXPECT_TRUE(spinUntil([&] { return !heard.partials.empty(); }, 10));

  talk.stop();
  talk.stop();
  ASSERT_TRUE(spinUntil([&] { return !heard.finals.empty(); }, 10));
  spinUntil([] { return false; }, Talk::kFinalDelay);
  EXPECT_EQ(heard.finals, std::vector<std::string>{"run the tests again please"});
  EXPECT_TRUE(heard.errors.empty());
}

TEST(VoiceCapture, MissingMicrophoneIsReported) {
  PulseServer pulse;
  if (!pulse.up()) GTEST_SKIP() << pulse.why();
  GLibLoop loop;
  auto engine = std::make_shared<Pocketsphinx>(
      Pocketsphinx::Options{Pocketsphinx::defaultModels(), kGrammar});
  Talk talk(loop, std::make_shared<PulseMicrophone>(nullptr, "no-such-device"), engine);
  Heard heard;
  heard.listen(talk);
  talk.start();
  ASSERT_TRUE(spinUntil([&] { return !heard.errors.empty(); }, 10));
  EXPECT_EQ(heard.errors[0], Talk::kRefused);
  EXPECT_FALSE(talk.listening());
}
