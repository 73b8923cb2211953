#pragma once
// Listening to the microphone and turning speech into text. `Talk` runs on the loop's thread:
// the microphone and the speech engine are ports whose implementations do their work elsewhere
// (an audio thread, a request thread) and call back on the loop.
//
// Audio is 16 kHz mono, signed 16-bit samples, delivered in buffers of 1,024 frames.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "core/loop.h"

namespace Audio {

constexpr int kRate = 16000;
constexpr size_t kBufferFrames = 1024;

// The loudness of one buffer, 0 … 1: the root mean square of the samples (full scale = 1),
// amplified twelve times and capped at 1.
double level(std::span<const int16_t> samples);

// The samples as a WAV file (16 kHz, mono, 16-bit PCM).
std::string wav(std::span<const int16_t> samples);

}  // namespace Audio

// The capture device.
class Microphone {
 public:
  enum class Failure { refused, wontStart };

  virtual ~Microphone() = default;
  // Starts capturing. Buffers then arrive through `onBuffer` with their level, or one
  // `onFailure` says why capture could not start or broke off.
  virtual void start() = 0;
  // Stops capturing; no callback comes after this.
  virtual void stop() = 0;

  std::function<void(std::vector<int16_t> samples, double level)> onBuffer;
  std::function<void(Failure)> onFailure;
};

// Turns a recording into text, while it grows and once it is over.
class SpeechEngine {
 public:
  virtual ~SpeechEngine() = default;
  // A new recording begins; anything left from the previous one is dropped.
  virtual void begin() = 0;
  // Samples appended to the recording.
  virtual void hear(std::span<const int16_t> samples) = 0;
  // The recording is over: one `onText(…, true)` follows (the empty string when nothing
  // could be heard or the engine failed).
  virtual void end() = 0;
  // The recording is abandoned: no callback follows.
  virtual void cancel() = 0;

  // The transcript of the recording so far (`final` false), then of the whole.
  std::function<void(const std::string& text, bool final)> onText;
};

class Talk {
 public:
  static constexpr double kFinalDelay = 0.35;
  // How long a final text may keep the user waiting after `stop` before the latest partial
  // text is delivered instead.
  static constexpr double kFinalDeadline = 5.0;

  static constexpr const char* kUnavailable = "Speech recognition isn't available right now.";
  static constexpr const char* kRefused =
      "Vantler can't use the microphone. Check that one is plugged in and turned on in the "
      "sound settings.";
  static constexpr const char* kWontStart = "The microphone wouldn't start.";

  // Without an engine every start reports `kUnavailable`.
  Talk(Loop& loop, std::shared_ptr<Microphone> microphone, std::shared_ptr<SpeechEngine> engine);
  ~Talk();
  Talk(const Talk&) = delete;
  Talk& operator=(const Talk&) = delete;

  void start();
  // Stops listening; 0.35 s later (or once the engine's final text is in, whichever is
  // later, up to the deadline) `onUpdate(latest, true, 0)` comes, exactly once.
  void stop();
  // Stops listening; no callback follows.
  void cancel();
  bool listening() const { return listening_; }
  // Replaces the engine (the settings changed); takes effect at the next start.
  void setEngine(std::shared_ptr<SpeechEngine> engine);

  std::function<void(const std::string& text, bool final, double level)> onUpdate;
  std::function<void(const std::string& message)> onError;

 private:
  void heard(const std::string& text, bool final);
  void buffer(std::vector<int16_t> samples, double level);
  void failed(Microphone::Failure failure);
  void deliverIfReady();
  void deliver();
  void dropTimers();

  Loop& loop_;
  std::shared_ptr<Microphone> microphone_;
  std::shared_ptr<SpeechEngine> engine_;
  std::shared_ptr<SpeechEngine> nextEngine_;
  std::string latest_;
  double level_ = 0;
  bool listening_ = false;
  // Between `stop` and the final text.
  bool finishing_ = false;
  bool delayOver_ = false;
  bool engineDone_ = false;
  std::optional<Loop::TaskId> delay_, deadline_;
  std::shared_ptr<Talk*> self_;
};
