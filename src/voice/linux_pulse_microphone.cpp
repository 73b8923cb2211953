#include "voice/linux_pulse_microphone.h"

#include <pulse/error.h>
#include <pulse/thread-mainloop.h>

#include <pulse/context.h>
#include <pulse/stream.h>

// One recording: PulseAudio's threaded main loop, its connection and the record stream. Its
// callbacks run on PulseAudio's thread and only hand buffers and failures to the loop.
struct PulseMicrophone::Run {
  PulseMicrophone* owner;  // used on the loop's thread only, while this run is current
  uint64_t id;
  std::string source;
  Handoff::Sender send;
  pa_threaded_mainloop* mainloop = nullptr;
  pa_context* context = nullptr;
  pa_stream* stream = nullptr;
  std::vector<int16_t> buffer;
  bool failed = false;

  void fail(Microphone::Failure failure) {
    if (failed) return;
    failed = true;
    send([owner = owner, id = id, failure] {
      if (owner->current_ == id && owner->onFailure) owner->onFailure(failure);
    });
  }

  void deliver() {
    double level = Audio::level(buffer);
    send([owner = owner, id = id, samples = buffer, level]() mutable {
      if (owner->current_ == id && owner->onBuffer) owner->onBuffer(std::move(samples), level);
    });
    buffer.clear();
  }

  static void readable(pa_stream* s, size_t, void* data) {
    auto* run = static_cast<Run*>(data);
    const void* bytes = nullptr;
    size_t n = 0;
    while (pa_stream_readable_size(s) > 0 && pa_stream_peek(s, &bytes, &n) == 0 && n > 0) {
      size_t frames = n / sizeof(int16_t);
      auto* samples = static_cast<const int16_t*>(bytes);
      for (size_t i = 0; i < frames; ++i) {
        // A hole in the stream (no data pointer) reads as silence.
        run->buffer.push_back(samples ? samples[i] : 0);
        if (run->buffer.size() == Audio::kBufferFrames) run->deliver();
      }
      pa_stream_drop(s);
    }
  }

  static Microphone::Failure kind(int error) {
    // No access, or no such capture device: the user can fix it in the sound settings.
    return error == PA_ERR_ACCESS || error == PA_ERR_NOENTITY ? Microphone::Failure::refused
                                                              : Microphone::Failure::wontStart;
  }

  static void streamState(pa_stream* s, void* data) {
    auto* run = static_cast<Run*>(data);
    if (pa_stream_get_state(s) == PA_STREAM_FAILED)
      run->fail(kind(pa_context_errno(pa_stream_get_context(s))));
  }

  static void contextState(pa_context* c, void* data) {
    auto* run = static_cast<Run*>(data);
    switch (pa_context_get_state(c)) {
      case PA_CONTEXT_READY: {
        pa_sample_spec format{PA_SAMPLE_S16LE, Audio::kRate, 1};
        run->stream = pa_stream_new(c, "Dictation", &format, nullptr);
        if (!run->stream) return run->fail(Microphone::Failure::wontStart);
        pa_stream_set_state_callback(run->stream, streamState, run);
        pa_stream_set_read_callback(run->stream, readable, run);
        pa_buffer_attr attr;
        attr.maxlength = attr.tlength = attr.prebuf = attr.minreq = static_cast<uint32_t>(-1);
        attr.fragsize = static_cast<uint32_t>(Audio::kBufferFrames * sizeof(int16_t));
        if (pa_stream_connect_record(run->stream,
                                     run->source.empty() ? nullptr : run->source.c_str(), &attr,
                                     PA_STREAM_ADJUST_LATENCY) < 0)
          run->fail(kind(pa_context_errno(c)));
        return;
      }
      case PA_CONTEXT_FAILED:
        return run->fail(Microphone::Failure::wontStart);
      default:
        return;
    }
  }

  bool begin() {
    mainloop = pa_threaded_mainloop_new();
    if (!mainloop) return false;
    context = pa_context_new(pa_threaded_mainloop_get_api(mainloop), "Vantler");
    if (!context) return false;
    pa_context_set_state_callback(context, contextState, this);
    if (pa_context_connect(context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) return false;
    return pa_threaded_mainloop_start(mainloop) == 0;
  }

  // On the loop's thread. PulseAudio's thread exits promptly: it only ever waits in poll.
  ~Run() {
    if (!mainloop) return;
    pa_threaded_mainloop_stop(mainloop);
    if (stream) {
      pa_stream_disconnect(stream);
      pa_stream_unref(stream);
    }
    if (context) {
      pa_context_disconnect(context);
      pa_context_unref(context);
    }
    pa_threaded_mainloop_free(mainloop);
  }
};

PulseMicrophone::PulseMicrophone(GMainContext* context, std::string source)
    : source_(std::move(source)), handoff_(context) {}

PulseMicrophone::~PulseMicrophone() {
  stop();
}

void PulseMicrophone::start() {
  stop();
  run_ = std::make_unique<Run>();
  run_->owner = this;
  run_->id = current_;
  run_->source = source_;
  run_->send = handoff_.sender();
  run_->buffer.reserve(Audio::kBufferFrames);
  if (!run_->begin()) run_->fail(Microphone::Failure::wontStart);
}

void PulseMicrophone::stop() {
  ++current_;
  run_.reset();
}
