#pragma once
// Real components for the voice tests and benchmarks: a private PulseAudio server whose
// microphone is a pipe the test writes audio into, the fake model server, and turning the
// GLib main context until something has happened.

#include <fcntl.h>
#include <glib.h>
#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "process.h"

namespace VoiceSupport {

inline std::string which(const std::string& name) {
  gchar* path = g_find_program_in_path(name.c_str());
  std::string found = path ? path : "";
  g_free(path);
  return found;
}

// Turns the default main context until `done` holds or `seconds` pass; whether it held.
inline bool spinUntil(const std::function<bool()>& done, double seconds) {
  auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (!done()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    if (!g_main_context_iteration(nullptr, FALSE)) ::usleep(1000);
  }
  return true;
}

inline void spinFor(double seconds) {
  spinUntil([] { return false; }, seconds);
}

// The fake OpenAI-compatible server (tests/voice/fake_model_server.py) on a free port.
class FakeModelServer {
 public:
  FakeModelServer()
      : process_({"/usr/bin/python3", VANTLER_SOURCE_DIR "/tests/voice/fake_model_server.py"}, {}) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (process_.out().find('\n') == std::string::npos &&
           std::chrono::steady_clock::now() < deadline && process_.running())
      ::usleep(5000);
    port_ = std::atoi(process_.out().c_str());
  }
  bool up() const { return port_ > 0; }
  // The base address for one behaviour: "ok", "slow", "fail", "unfaithful", "key".
  std::string url(const std::string& mode) const {
    return "http://127.0.0.1:" + std::to_string(port_) + "/" + mode;
  }

 private:
  Process process_;
  int port_ = 0;
};

// A PulseAudio server of its own (private runtime directory and socket) with one capture
// device, "mic", fed from a pipe at 22,050 Hz (espeak-ng's rate); clients recording at 16 kHz
// get it resampled. PULSE_SERVER points this process's clients at it while it lives.
class PulseServer {
 public:
  static constexpr int kPipeRate = 22050;

  PulseServer() {
    if (which("pulseaudio").empty()) return;
    char pattern[] = "/tmp/vantler-pulse-XXXXXX";
    dir_ = ::mkdtemp(pattern);
    std::string socket = dir_ + "/pulse.sock";
    process_ = std::make_unique<Process>(
        std::vector<std::string>{
            which("pulseaudio"), "--daemonize=no", "-n", "--exit-idle-time=-1", "--use-pid-file=no",
            "--disable-shm", "-F", "/dev/null",
            "--load=module-native-protocol-unix auth-anonymous=1 socket=" + socket,
            "--load=module-pipe-source source_name=mic format=s16le channels=1 rate=" +
                std::to_string(kPipeRate) + " file=" + dir_ + "/mic"},
        std::map<std::string, std::string>{
            {"XDG_RUNTIME_DIR", dir_}, {"HOME", dir_}, {"PULSE_RUNTIME_PATH", dir_}});
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    // Up once the socket is there and the source reads its pipe (opening the pipe for
    // writing fails until then). Held open from the start, so the source never sees it close.
    while (std::chrono::steady_clock::now() < deadline && process_->running()) {
      if (std::filesystem::exists(socket) &&
          (pipe_ = ::open((dir_ + "/mic").c_str(), O_WRONLY | O_CLOEXEC | O_NONBLOCK)) >= 0)
        break;
      ::usleep(10000);
    }
    if (pipe_ < 0) return;
    ::fcntl(pipe_, F_SETFL, 0);
    ::setenv("PULSE_SERVER", ("unix:" + socket).c_str(), 1);
  }
  ~PulseServer() {
    if (pipe_ >= 0) ::close(pipe_);
    ::unsetenv("PULSE_SERVER");
    process_.reset();
    std::error_code ec;
    if (!dir_.empty()) std::filesystem::remove_all(dir_, ec);
  }
  bool up() const { return pipe_ >= 0; }
  // Why the server is not up.
  std::string why() { return process_ ? process_->err() : "pulseaudio is not installed"; }

  // Samples at kPipeRate into the capture device.
  void say(const std::vector<int16_t>& samples) {
    const char* p = reinterpret_cast<const char*>(samples.data());
    size_t left = samples.size() * 2;
    while (left > 0) {
      ssize_t n = ::write(pipe_, p, left);
      if (n <= 0) return;
      p += n;
      left -= static_cast<size_t>(n);
    }
  }
  static std::vector<int16_t> silence(double seconds) {
    return std::vector<int16_t>(static_cast<size_t>(seconds * kPipeRate), 0);
  }
  // A full-scale square wave: every sample at ±32767.
  static std::vector<int16_t> fullScale(double seconds) {
    std::vector<int16_t> out(static_cast<size_t>(seconds * kPipeRate));
    for (size_t i = 0; i < out.size(); ++i) out[i] = (i / 25) % 2 ? 32767 : -32767;
    return out;
  }
  // `text` spoken by espeak-ng (a WAV file with a 44-byte header on its output), or nothing
  // when it is not installed.
  static std::vector<int16_t> speech(const std::string& text) {
    if (which("espeak-ng").empty()) return {};
    Process espeak({which("espeak-ng"), "-v", "en-us", "--stdout", text}, {});
    espeak.wait(20);
    const std::string& wav = espeak.out();
    if (wav.size() <= 44) return {};
    std::vector<int16_t> out((wav.size() - 44) / 2);
    std::memcpy(out.data(), wav.data() + 44, out.size() * 2);
    return out;
  }

 private:
  std::string dir_;
  std::unique_ptr<Process> process_;
  int pipe_ = -1;
};

}  // namespace VoiceSupport
