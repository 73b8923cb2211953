// Dictation's own cost, on real components: a private PulseAudio server whose microphone is a
// pipe fed at real time, PulseMicrophone, Talk and the transcription engine posting to the
// local fake server (whose work, in its own process, is not counted).
//   listening: CPU of this process while capturing, measuring levels and sending partial
//     requests, as a share of one core. Target: under 3 %.
//   stop_to_text: from `stop` to the final text with the fake engine. Target: 0.35 s + 50 ms.

#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "../tests/voice_support.h"
#include "core/linux_glib_loop.h"
#include "voice/linux_model_servers.h"
#include "voice/linux_pulse_microphone.h"

using VoiceSupport::PulseServer;

namespace {

double cpuSeconds() {
  rusage u{};
  ::getrusage(RUSAGE_SELF, &u);
  return static_cast<double>(u.ru_utime.tv_sec + u.ru_stime.tv_sec) +
         static_cast<double>(u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}

// Feeds the pipe at real time, in the 1,024-frame steps a sound card would.
class Speaker {
 public:
  explicit Speaker(PulseServer& pulse)
      : thread_([this, &pulse] {
          auto tone = PulseServer::fullScale(1024.0 / PulseServer::kPipeRate);
          for (auto& s : tone) s /= 8;
          auto next = std::chrono::steady_clock::now();
          while (!stop_) {
            pulse.say(tone);
            next += std::chrono::microseconds(1024 * 1000000 / PulseServer::kPipeRate);
            std::this_thread::sleep_until(next);
          }
        }) {}
  ~Speaker() {
    stop_ = true;
    thread_.join();
  }

 private:
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

struct Rig {
  PulseServer pulse;
  VoiceSupport::FakeModelServer server;
  GLibLoop loop;
  std::shared_ptr<TranscriptionServer> engine;
  std::unique_ptr<Talk> talk;
  bool finalIn = false;
  size_t buffers = 0;

  bool up() {
    if (!pulse.up() || !server.up()) return false;
    engine = std::make_shared<TranscriptionServer>(loop, ModelServer{server.url("ok"), "", ""});
    talk = std::make_unique<Talk>(loop, std::make_shared<PulseMicrophone>(nullptr, "mic"), engine);
    talk->onUpdate = [this](const std::string&, bool final, double) {
      if (final) {
        finalIn = true;
        loop.quit();
      } else {
        ++buffers;
      }
    };
    return true;
  }
  void runFor(double seconds) {
    auto id = loop.after(seconds, [this] { loop.quit(); });
    loop.run();
    loop.cancel(id);
  }
};

void listening(benchmark::State& state) {
  Rig rig;
  if (!rig.up()) return state.SkipWithError("pulseaudio or the fake server is missing");
  Speaker speaker(rig.pulse);
  for (auto _ : state) {
    rig.talk->start();
    rig.runFor(1.0);  // connected and warmed up
    double cpu0 = cpuSeconds(), wall0 = rig.loop.uptime();
    int sent0 = rig.engine->sent();
    rig.runFor(10.0);
    double cpu = cpuSeconds() - cpu0, wall = rig.loop.uptime() - wall0;
    state.SetIterationTime(wall);
    state.counters["cpu_percent"] = 100.0 * cpu / wall;
    state.counters["partial_requests"] = rig.engine->sent() - sent0;
    state.counters["buffers_per_s"] = static_cast<double>(rig.buffers) / (wall + 1.0);
    rig.talk->cancel();
  }
}
BENCHMARK(listening)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

void stop_to_text(benchmark::State& state) {
  Rig rig;
  if (!rig.up()) return state.SkipWithError("pulseaudio or the fake server is missing");
  Speaker speaker(rig.pulse);
  for (auto _ : state) {
    rig.finalIn = false;
    rig.talk->start();
    rig.runFor(1.5);
    double stopped = rig.loop.uptime();
    rig.talk->stop();
    rig.runFor(Talk::kFinalDeadline + 1);
    if (!rig.finalIn) return state.SkipWithError("no final text");
    state.SetIterationTime(rig.loop.uptime() - stopped);
  }
}
BENCHMARK(stop_to_text)->Iterations(8)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
