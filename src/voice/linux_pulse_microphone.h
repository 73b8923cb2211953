#pragma once
// The microphone through the PulseAudio client library (also served by PipeWire): 16 kHz mono
// recorded on a thread of its own, one 1,024-frame buffer at a time; the level is computed
// there, and buffers come back on the loop.

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "voice/linux_handoff.h"
#include "voice/talk.h"

class PulseMicrophone final : public Microphone {
 public:
  // `source` names a capture device; empty for the user's default one.
  explicit PulseMicrophone(GMainContext* context = nullptr, std::string source = {});
  ~PulseMicrophone() override;

  void start() override;
  void stop() override;

 private:
  struct Run {
    std::atomic<bool> stop{false};
    std::atomic<bool> over{false};
  };
  static void record(std::shared_ptr<Run> run, std::string source, Handoff::Sender send,
                     PulseMicrophone* self);
  void joinFinished(bool all);

  std::string source_;
  Handoff handoff_;
  std::shared_ptr<Run> run_;
  // Recording threads, joined once over (each ends within one buffer of being stopped).
  std::vector<std::pair<std::shared_ptr<Run>, std::thread>> threads_;
};
