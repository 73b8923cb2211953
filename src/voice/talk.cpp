#include "voice/talk.h"

#include <algorithm>
#include <cmath>

namespace Audio {

double level(std::span<const int16_t> samples) {
  if (samples.empty()) return 0;
  double sum = 0;
  for (int16_t s : samples) {
    double x = s / 32768.0;
    sum += x * x;
  }
  return std::min(std::sqrt(sum / static_cast<double>(samples.size())) * 12.0, 1.0);
}

std::string wav(std::span<const int16_t> samples) {
  auto le = [](std::string& out, uint32_t v, int bytes) {
    for (int i = 0; i < bytes; ++i) out += static_cast<char>((v >> (8 * i)) & 0xff);
  };
  uint32_t data = static_cast<uint32_t>(samples.size() * 2);
  std::string out;
  out.reserve(44 + data);
  out += "RIFF";
  le(out, 36 + data, 4);
  out += "WAVEfmt ";
  le(out, 16, 4);
  le(out, 1, 2);  // PCM
  le(out, 1, 2);  // mono
  le(out, kRate, 4);
  le(out, kRate * 2, 4);  // bytes per second
  le(out, 2, 2);          // bytes per frame
  le(out, 16, 2);         // bits per sample
  out += "data";
  le(out, data, 4);
  for (int16_t s : samples) le(out, static_cast<uint16_t>(s), 2);
  return out;
}

}  // namespace Audio

Talk::Talk(Loop& loop, std::shared_ptr<Microphone> microphone, std::shared_ptr<SpeechEngine> engine)
    : loop_(loop),
      microphone_(std::move(microphone)),
      engine_(std::move(engine)),
      self_(std::make_shared<Talk*>(this)) {
  microphone_->onBuffer = [this](std::vector<int16_t> samples, double level) {
    buffer(std::move(samples), level);
  };
  microphone_->onFailure = [this](Microphone::Failure f) { failed(f); };
}

Talk::~Talk() {
  dropTimers();
  if (listening_) microphone_->stop();
  if (engine_ && (listening_ || finishing_)) engine_->cancel();
  microphone_->onBuffer = nullptr;
  microphone_->onFailure = nullptr;
  if (engine_) engine_->onText = nullptr;
}

void Talk::setEngine(std::shared_ptr<SpeechEngine> engine) {
  if (listening_ || finishing_) {
    nextEngine_ = std::move(engine);
    return;
  }
  if (engine_) engine_->onText = nullptr;
  engine_ = std::move(engine);
}

void Talk::start() {
  if (listening_) return;
  if (finishing_) {
    // A new recording before the last final text: the old one is given up.
    engine_->cancel();
    finishing_ = false;
    dropTimers();
  }
  if (nextEngine_) {
    if (engine_) engine_->onText = nullptr;
    engine_ = std::move(nextEngine_);
  }
  if (!engine_) {
    if (onError) onError(kUnavailable);
    return;
  }
  latest_.clear();
  level_ = 0;
  listening_ = true;
  engine_->onText = [this](const std::string& text, bool final) { heard(text, final); };
  engine_->begin();
  microphone_->start();
}

void Talk::buffer(std::vector<int16_t> samples, double level) {
  if (!listening_) return;
  level_ = level;
  engine_->hear(samples);
  if (onUpdate) onUpdate(latest_, false, level_);
}

void Talk::heard(const std::string& text, bool final) {
  if (!listening_ && !finishing_) return;
  // An empty text (nothing recognised yet, or a failed request) keeps what was heard before.
  if (!text.empty()) latest_ = text;
  if (final) {
    if (!finishing_) return;  // only the final text asked for by `stop` counts
    engineDone_ = true;
    deliverIfReady();
    return;
  }
  if (listening_ && onUpdate) onUpdate(latest_, false, level_);
}

void Talk::failed(Microphone::Failure failure) {
  if (!listening_) return;
  listening_ = false;
  microphone_->stop();
  engine_->cancel();
  if (onError) onError(failure == Microphone::Failure::refused ? kRefused : kWontStart);
}

void Talk::stop() {
  if (!listening_) return;
  listening_ = false;
  microphone_->stop();
  finishing_ = true;
  delayOver_ = engineDone_ = false;
  engine_->end();
  std::weak_ptr<Talk*> weak = self_;
  delay_ = loop_.after(kFinalDelay, [weak] {
    if (auto self = weak.lock()) {
      (*self)->delay_.reset();
      (*self)->delayOver_ = true;
      (*self)->deliverIfReady();
    }
  });
  deadline_ = loop_.after(kFinalDeadline, [weak] {
    if (auto self = weak.lock()) {
      (*self)->deadline_.reset();
      (*self)->engine_->cancel();
      (*self)->deliver();
    }
  });
}

void Talk::deliverIfReady() {
  if (finishing_ && delayOver_ && engineDone_) deliver();
}

void Talk::deliver() {
  if (!finishing_) return;
  finishing_ = false;
  dropTimers();
  if (onUpdate) onUpdate(latest_, true, 0);
}

void Talk::cancel() {
  if (listening_) microphone_->stop();
  if (listening_ || finishing_) engine_->cancel();
  listening_ = finishing_ = false;
  dropTimers();
}

void Talk::dropTimers() {
  for (auto* task : {&delay_, &deadline_}) {
    if (*task) loop_.cancel(**task);
    task->reset();
  }
}
