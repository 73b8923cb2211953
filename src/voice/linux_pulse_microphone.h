#pragma once
// The microphone through the PulseAudio client library (also served by PipeWire): 16 kHz mono
// recorded on PulseAudio's own thread, cut into 1,024-frame buffers whose level is computed
// there; buffers come back on the loop. Nothing here waits for audio to arrive, so stopping
// never hangs on a silent device.

#include <memory>
#include <string>
#include <vector>

#include "voice/linux_handoff.h"
#include "voice/talk.h"

class PulseMicrophone final : public Microphone {
 public:
  // `source` names a capture device; empty for the user's default one.
  explicit PulseMicrophone(GMainContext* context = nullptr, std::string source = {});
  ~PulseMicrophone() override;
  PulseMicrophone(const PulseMicrophone&) = delete;
  PulseMicrophone& operator=(const PulseMicrophone&) = delete;

  void start() override;
  void stop() override;

 private:
  struct Run;
  std::string source_;
  Handoff handoff_;
  std::unique_ptr<Run> run_;
  uint64_t current_ = 0;  // the run whose buffers are delivered
};
