#include "voice/linux_pulse_microphone.h"

#include <pulse/error.h>
#include <pulse/simple.h>

PulseMicrophone::PulseMicrophone(GMainContext* context, std::string source)
    : source_(std::move(source)), handoff_(context) {}

PulseMicrophone::~PulseMicrophone() {
  stop();
  joinFinished(true);
}

void PulseMicrophone::start() {
  stop();
  joinFinished(false);
  run_ = std::make_shared<Run>();
  threads_.emplace_back(run_, std::thread(record, run_, source_, handoff_.sender(), this));
}

void PulseMicrophone::stop() {
  if (run_) run_->stop = true;
  run_.reset();
}

void PulseMicrophone::joinFinished(bool all) {
  for (auto it = threads_.begin(); it != threads_.end();) {
    if (all || it->first->over) {
      it->second.join();
      it = threads_.erase(it);
    } else {
      ++it;
    }
  }
}

void PulseMicrophone::record(std::shared_ptr<Run> run, std::string source, Handoff::Sender send,
                             PulseMicrophone* self) {
  // Tasks sent here run on the loop only while `self` lives (its Handoff drops them after),
  // and act only while this run is the current one.
  auto current = [self, run] { return self->run_ == run && !run->stop; };
  pa_sample_spec spec{PA_SAMPLE_S16LE, Audio::kRate, 1};
  pa_buffer_attr attr;
  attr.maxlength = static_cast<uint32_t>(-1);
  attr.tlength = attr.prebuf = attr.minreq = static_cast<uint32_t>(-1);
  attr.fragsize = static_cast<uint32_t>(Audio::kBufferFrames * sizeof(int16_t));
  int error = 0;
  pa_simple* pa =
      pa_simple_new(nullptr, "Vantler", PA_STREAM_RECORD, source.empty() ? nullptr : source.c_str(),
                    "Dictation", &spec, nullptr, &attr, &error);
  if (!pa) {
    // No access, or no capture device at all: the user can fix it in the sound settings.
    auto failure = (error == PA_ERR_ACCESS || error == PA_ERR_NOENTITY)
                       ? Microphone::Failure::refused
                       : Microphone::Failure::wontStart;
    send([self, current, failure] {
      if (current() && self->onFailure) self->onFailure(failure);
    });
    run->over = true;
    return;
  }
  std::vector<int16_t> samples(Audio::kBufferFrames);
  while (!run->stop) {
    if (pa_simple_read(pa, samples.data(), samples.size() * sizeof(int16_t), &error) < 0) {
      send([self, current] {
        if (current() && self->onFailure) self->onFailure(Microphone::Failure::wontStart);
      });
      break;
    }
    double level = Audio::level(samples);
    send([self, current, samples, level] {
      if (current() && self->onBuffer) self->onBuffer(samples, level);
    });
  }
  pa_simple_free(pa);
  run->over = true;
}
