// Talk's timing and states on the fake clock, with a scripted microphone and engine.

#include <gtest/gtest.h>

#include <cmath>

#include "core/fake_loop.h"
#include "voice/polish.h"
#include "voice/talk.h"

namespace {

struct ScriptedMicrophone : Microphone {
  bool running = false;
  void start() override { running = true; }
  void stop() override { running = false; }
  void give(int16_t value) {
    std::vector<int16_t> buffer(Audio::kBufferFrames, value);
    double level = Audio::level(buffer);
    onBuffer(std::move(buffer), level);
  }
};

struct ScriptedEngine : SpeechEngine {
  size_t heard = 0;
  int ended = 0, cancelled = 0;
  void begin() override { heard = 0; }
  void hear(std::span<const int16_t> samples) override { heard += samples.size(); }
  void end() override { ++ended; }
  void cancel() override { ++cancelled; }
};

struct Update {
  std::string text;
  bool final;
  double level;
};

struct TalkTest : ::testing::Test {
  FakeLoop loop;
  std::shared_ptr<ScriptedMicrophone> mic = std::make_shared<ScriptedMicrophone>();
  std::shared_ptr<ScriptedEngine> engine = std::make_shared<ScriptedEngine>();
  Talk talk{loop, mic, engine};
  std::vector<Update> updates;
  std::vector<std::string> errors;

  TalkTest() {
    talk.onUpdate = [this](const std::string& t, bool f, double l) {
      updates.push_back({t, f, l});
    };
    talk.onError = [this](const std::string& m) { errors.push_back(m); };
  }
  int finals() const {
    return static_cast<int>(
        std::count_if(updates.begin(), updates.end(), [](const Update& u) { return u.final; }));
  }
};

}  // namespace

TEST(AudioLevel, SilenceIsZeroAndFullScaleIsCapped) {
  std::vector<int16_t> silence(Audio::kBufferFrames, 0);
  EXPECT_EQ(Audio::level(silence), 0);
  std::vector<int16_t> tone(Audio::kBufferFrames);
  for (size_t i = 0; i < tone.size(); ++i)
    tone[i] = static_cast<int16_t>(32767 * std::sin(2 * M_PI * 440 * i / Audio::kRate));
  EXPECT_EQ(Audio::level(tone), 1);
  // A quiet voice: rms 0.05 of full scale reads as 0.6.
  std::vector<int16_t> quiet(Audio::kBufferFrames, static_cast<int16_t>(0.05 * 32768));
  EXPECT_NEAR(Audio::level(quiet), 0.6, 1e-3);
}

TEST_F(TalkTest, PartialsThenOneFinalAfterTheDelay) {
  talk.start();
  ASSERT_TRUE(talk.listening() && mic->running);
  mic->give(0);
  engine->onText("run the", false);
  mic->give(8000);
  EXPECT_EQ(engine->heard, 2 * Audio::kBufferFrames);
  ASSERT_EQ(updates.size(), 3u);
  EXPECT_EQ(updates[0].level, 0);
  EXPECT_EQ(updates[1].text, "run the");
  EXPECT_EQ(updates[2].text, "run the");
  EXPECT_GT(updates[2].level, 0.9);

  talk.stop();
  talk.stop();
  EXPECT_FALSE(talk.listening() || mic->running);
  EXPECT_EQ(engine->ended, 1);
  engine->onText("run the tests", true);
  loop.advance(Talk::kFinalDelay - 0.01);
  EXPECT_EQ(finals(), 0);
  loop.advance(0.02);
  ASSERT_EQ(finals(), 1);
  EXPECT_EQ(updates.back().text, "run the tests");
  EXPECT_EQ(updates.back().level, 0);
  loop.advance(Talk::kFinalDeadline);
  EXPECT_EQ(finals(), 1);
}

TEST_F(TalkTest, SlowEngineIsAwaitedUntilTheDeadline) {
  talk.start();
  engine->onText("hello there", false);
  talk.stop();
  loop.advance(1.0);
  EXPECT_EQ(finals(), 0);
  engine->onText("hello there friend", true);
  ASSERT_EQ(finals(), 1);
  EXPECT_EQ(updates.back().text, "hello there friend");

  // An engine that never answers: the last partial text at the deadline.
  talk.start();
  engine->onText("second try", false);
  talk.stop();
  loop.advance(Talk::kFinalDeadline - 0.01);
  EXPECT_EQ(finals(), 1);
  loop.advance(0.02);
  EXPECT_EQ(finals(), 2);
  EXPECT_EQ(updates.back().text, "second try");
  EXPECT_EQ(engine->cancelled, 1);
}

TEST_F(TalkTest, CancelDeliversNothing) {
  talk.start();
  engine->onText("never mind", false);
  size_t before = updates.size();
  talk.cancel();
  engine->onText("never mind", true);
  loop.advance(10);
  EXPECT_EQ(updates.size(), before);
  EXPECT_FALSE(talk.listening() || mic->running);
  // Stopped, then cancelled before the final text.
  talk.start();
  talk.stop();
  talk.cancel();
  engine->onText("late", true);
  loop.advance(10);
  EXPECT_EQ(finals(), 0);
}

TEST_F(TalkTest, FailuresReportTheirMessages) {
  talk.start();
  mic->onFailure(Microphone::Failure::refused);
  EXPECT_FALSE(talk.listening());
  talk.start();
  mic->onFailure(Microphone::Failure::wontStart);
  talk.setEngine(nullptr);
  talk.start();
  EXPECT_EQ(errors,
            (std::vector<std::string>{Talk::kRefused, Talk::kWontStart, Talk::kUnavailable}));
  EXPECT_FALSE(talk.listening());
}
