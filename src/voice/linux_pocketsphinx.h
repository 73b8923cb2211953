#pragma once
// The offline speech engine: pocketsphinx with its US English model, decoding on a thread of
// its own while the user speaks. Open dictation with its language model is weak; with a small
// grammar it recognises exactly.

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "voice/linux_handoff.h"
#include "voice/talk.h"

class Pocketsphinx final : public SpeechEngine {
 public:
  struct Options {
    std::string models;   // the directory with en-us/, en-us.lm.bin and cmudict-en-us.dict
    std::string grammar;  // a JSGF grammar to recognise instead of open dictation
  };
  // Buffers waiting for the decoder, at most (a minute of audio).
  static constexpr size_t kMaxQueued = 60 * Audio::kRate / Audio::kBufferFrames;

  static std::string defaultModels();
  // Whether the model files are installed.
  static bool installed(const std::string& models);

  explicit Pocketsphinx(Options options, GMainContext* context = nullptr);
  ~Pocketsphinx() override;

  void begin() override;
  void hear(std::span<const int16_t> samples) override;
  void end() override;
  void cancel() override;

 private:
  struct Job {
    enum Kind { begin, audio, end } kind;
    uint64_t generation;
    std::vector<int16_t> samples;
  };
  void push(Job job);
  void work();

  Options options_;
  uint64_t generation_ = 0;  // the loop's view: results of older recordings are dropped
  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<Job> jobs_;
  bool quit_ = false;
  Handoff handoff_;
  std::thread thread_;
};
